// Small helpers the dupes sources share: the connected card store manager,
// and the clock the search's phase timings use.
#pragma once

#include <chrono>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/foundation/error.h"

namespace ombrel::dupes_internal {

// The shared manager; raises when no store has been connected.
inline CCardStoreMgr& Mgr() {
  auto& mgr = CardStoreMgr();
  Trap(!mgr, "Cardstore object has not been set");
  return *mgr;
}

using Clock = std::chrono::steady_clock;

inline double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

}  // namespace ombrel::dupes_internal
