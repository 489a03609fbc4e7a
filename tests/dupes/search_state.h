// Puts back, when it goes, the connected card store manager and the size
// from which the search reads in parts, for tests that change them.
#pragma once

#include <cstdint>
#include <memory>

#include "dupes/dupes_internal.h"
#include "ombrel/cardstore/ccardstoremgr.h"

namespace ombrel {

struct RestoreSearchState {
  std::shared_ptr<CCardStoreMgr> saved = CardStoreMgr();
  int32_t threshold = dupes_internal::PartScanThreshold();
  ~RestoreSearchState() {
    CardStoreMgr() = saved;
    dupes_internal::PartScanThreshold() = threshold;
  }
};

}  // namespace ombrel
