// Small helpers the dupes sources share: the connected card store manager,
// the clock the search's phase timings use, and the store scans.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/icardstore.h"
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

// The store behind the manager when it can be read in one pass, else null.
ICardStore* ScanningStore();
// ScanCards, raising when the store fails.
void Scan(ICardStore& store, const std::function<bool(int32_t, const ICardValues&)>& visit);
// ScanCardsInParts, raising when the store fails.
void ScanInParts(ICardStore& store, int32_t parts,
                 const std::function<bool(int32_t, int32_t, const ICardValues&)>& visit,
                 std::span<const int32_t> partStarts = {}, const std::function<bool(int32_t)>& wanted = {},
                 const std::function<void()>& waiting = {});
// How many parts the search reads a store of that many cards in at once:
// ScanParts(), and one below PartScanThreshold() cards, where a thread costs
// more than it saves.
int32_t ScanPartsFor(const ICardStore& store, int32_t cards);
int32_t& PartScanThreshold();
// The parts for a store read in parts: 0 (the default) for two a core, at
// most eight, and one on a single core.
int32_t& ScanParts();
// Runs work(from, to) over 0..n: in two halves side by side when split, else
// in one go. work must not throw; each half writes only its own places.
void InHalves(size_t n, bool split, const std::function<void(size_t from, size_t to)>& work);
// Progress of a scan read in parts, reported by part 0 alone: its own count
// times the number of parts, so that the reports do not hang on timing.
inline int32_t PartProgress(int32_t partZeroDone, int32_t parts, int32_t total) {
  int64_t done = static_cast<int64_t>(partZeroDone) * parts;
  return done < total ? static_cast<int32_t>(done) : total;
}
// Cards the search goes through between two check-ins with its progress
// where the work has no count of its own (CDupeSearch::ReportAgain): 65,536
// unless a test says otherwise.
size_t& CheckInEvery();
// The search's sort key of a card: "last name,first name", trimmed.
std::string Tag(const CCard& card, const std::string& firstName);

}  // namespace ombrel::dupes_internal
