// Puts back, when it goes, the connected card store manager, the size from
// which the search reads in parts and the number of parts, for tests that
// change them.
#pragma once

#include <cstdint>
#include <memory>

#include "dupes/dupes_internal.h"
#include "ombrel/cardstore/ccardstoremgr.h"

namespace ombrel {

struct RestoreSearchState {
  std::shared_ptr<CCardStoreMgr> saved = CardStoreMgr();
  int32_t threshold = dupes_internal::PartScanThreshold();
  int32_t parts = dupes_internal::ScanParts();
  ~RestoreSearchState() {
    CardStoreMgr() = saved;
    dupes_internal::PartScanThreshold() = threshold;
    dupes_internal::ScanParts() = parts;
  }
};

}  // namespace ombrel
