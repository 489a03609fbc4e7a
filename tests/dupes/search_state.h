// Puts back, when it goes, the connected card store manager, the size from
// which the search reads in parts, the number of parts and how often it
// checks in with its progress, for tests that change them.
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
  size_t checkIn = dupes_internal::CheckInEvery();
  ~RestoreSearchState() {
    dupes_internal::CheckInEvery() = checkIn;
    CardStoreMgr() = saved;
    dupes_internal::PartScanThreshold() = threshold;
    dupes_internal::ScanParts() = parts;
  }
};

}  // namespace ombrel
