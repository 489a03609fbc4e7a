// The search's first pass: which cards share a name or e-mail key with
// another card.
//
// Every card is read for three values. Trimming and lower-casing them and
// hashing the keys is done where the card is read, on as many threads as the
// store reads parts at once; deciding who is a suspect depends on the order
// of the cards (the first card seen with a key is the partner of the later
// ones) and runs afterwards, in order, on keys already made.
#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <utility>
#include <unordered_set>
#include <vector>

#include "dupes/dupes_internal.h"
#include "dupes/key_table.h"
#include "ombrel/cardstore/ccardstoremgr.h"
#include "ombrel/cardstore/icardstore.h"
#include "ombrel/dupes/dupe_search.h"
#include "ombrel/foundation/cstring.h"
#include "ombrel/foundation/error.h"

namespace ombrel {

namespace {

// Appends a trimmed text lower-cased; plain ASCII takes the short way.
void AppendLowered(std::string_view text, std::string& out) {
  const size_t at = out.size();
  out.append(text);
  for (size_t k = at; k < out.size(); ++k) {
    char& c = out[k];
    if (static_cast<unsigned char>(c) >= 0x80) {
      out.resize(at);
      out += CString::LowerText(text);
      return;
    }
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
}

// The keys of the cards one part read, in its order.
class KeyPart {
 public:
  enum Kind { kName, kEmail, kLastEmail, kKinds };

  // Room for about this many cards without growing.
  void Reserve(size_t cards) {
    ids_.reserve(cards);
    spans_.reserve(cards * kKinds);
    arena_.reserve(cards * 48);
  }

  // The keys are written straight into the arena: "first last" (the blank
  // only when both are there), the e-mail, and "last e-mail" copied from the
  // two already written. Whether a part is there is told after lower-casing,
  // as the keys compare.
  void Add(int32_t id, std::string_view rawFirst, std::string_view rawLast, std::string_view rawEmail) {
    ids_.push_back(id);
    size_t begin = arena_.size();
    AppendLowered(CString::TrimmedView(rawFirst), arena_);
    const bool hasFirst = arena_.size() != begin;
    arena_ += ' ';
    size_t lastAt = arena_.size();
    AppendLowered(CString::TrimmedView(rawLast), arena_);
    const size_t lastLength = arena_.size() - lastAt;
    if (!hasFirst || lastLength == 0) {
      arena_.erase(lastAt - 1, 1);  // no blank without both
      --lastAt;
    }
    Push(begin);
    const size_t emailAt = arena_.size();
    AppendLowered(CString::TrimmedView(rawEmail), arena_);
    const size_t emailLength = arena_.size() - emailAt;
    Push(emailAt);
    begin = arena_.size();
    if (lastLength != 0 && emailLength != 0) {
      // Room first, so the copies from the arena into itself never see it move.
      arena_.reserve(arena_.size() + lastLength + 1 + emailLength);
      arena_.append(arena_.data() + lastAt, lastLength).append(1, ' ').append(arena_.data() + emailAt, emailLength);
    }
    Push(begin);
  }

  // The same, reading the three values by names the values have worked out
  // once when they offer it (without copies when they offer views).
  void Add(int32_t id, const ICardValues& values) {
    static const std::string kNames[] = {"First Name", "Last Name", "Email"};
    reader_.Use(values, kNames, 0);
    Add(id, reader_.View(0, rawFirst_), reader_.View(1, rawLast_), reader_.View(2, rawEmail_));
  }

  size_t Size() const { return ids_.size(); }
  int32_t Id(size_t k) const { return ids_[k]; }
  std::string_view Key(size_t k, Kind kind) const {
    const Span& s = spans_[k * kKinds + kind];
    return std::string_view(arena_).substr(s.begin, s.length);
  }
  uint64_t Hash(size_t k, Kind kind) const { return spans_[k * kKinds + kind].hash; }

 private:
  struct Span {
    uint64_t hash;
    size_t begin;
    size_t length;
  };
  void Push(size_t begin) {
    std::string_view key = std::string_view(arena_).substr(begin);
    spans_.push_back({key.empty() ? 0 : KeyTable::Hash(key), begin, key.size()});
  }

  std::vector<int32_t> ids_;
  std::string arena_;
  std::vector<Span> spans_;
  std::string rawFirst_, rawLast_, rawEmail_;
  PreparedNamesReader reader_;
};

// Card IDs already listed; IDs are mostly small and dense, so a bitmap
// serves them and a hash set the rest.
class IdMarks {
 public:
  explicit IdMarks(size_t expected) : bits_((expected * 4 + 64) / 64) {}
  bool Insert(int32_t id) {
    auto u = static_cast<uint32_t>(id);
    if ((u >> 6) < bits_.size()) {
      uint64_t bit = uint64_t{1} << (u & 63);
      if (bits_[u >> 6] & bit) return false;
      bits_[u >> 6] |= bit;
      return true;
    }
    return others_.insert(id).second;
  }
  bool Contains(int32_t id) const {
    auto u = static_cast<uint32_t>(id);
    if ((u >> 6) < bits_.size()) return (bits_[u >> 6] >> (u & 63)) & 1;
    return others_.count(id) > 0;
  }

 private:
  std::vector<uint64_t> bits_;
  std::unordered_set<int32_t> others_;
};

}  // namespace

std::vector<int32_t> CDupeSearch::FindSuspectIds(int32_t total, std::vector<int32_t>& partStarts) {
  partStarts.clear();
  const size_t expected = static_cast<size_t>(std::max(total, 0));
  std::vector<KeyPart> parts(1);

  if (ICardStore* store = dupes_internal::ScanningStore()) {
    parts.resize(static_cast<size_t>(dupes_internal::ScanPartsFor(*store, total)));
    for (KeyPart& part : parts) part.Reserve(expected / parts.size() + expected / 16);
    ScanStep(*store, static_cast<int32_t>(parts.size()), search_text::kReadingCards, total, {},
             [&](int32_t part, int32_t id, const ICardValues& values) { parts[static_cast<size_t>(part)].Add(id, values); });
  } else {
    CCardStoreMgr& mgr = dupes_internal::Mgr();
    for (int32_t i = 1; i <= total; ++i) {
      if (!UpdateProgress(search_text::kReadingCards, i, total)) break;
      int32_t id = mgr.GetCardID(i - 1);
      parts[0].Add(id, mgr.GetValue(id, "First Name"), mgr.GetValue(id, "Last Name"), mgr.GetValue(id, "Email"));
    }
  }
  if (stopped_) return {};

  // The cards in order, at most total of them.
  std::vector<std::pair<const KeyPart*, size_t>> order;
  order.reserve(expected);
  for (const KeyPart& part : parts)
    for (size_t k = 0; k < part.Size() && order.size() < expected; ++k) order.emplace_back(&part, k);

  // Each key table holds the first card seen with each key; what a card
  // finds in one table does not depend on the others, nor on keys of
  // another hash, so the keys are split by the top bit of their hash and
  // each half of every kind is filled on its own. partners[kind][c]: one
  // past the position of the card the c-th card finds under that kind of
  // key, 0 when none.
  std::vector<int32_t> partners[KeyPart::kKinds];
  for (auto& found : partners) found.assign(order.size(), 0);
  const bool split = order.size() >= static_cast<size_t>(dupes_internal::PartScanThreshold()) &&
                     std::thread::hardware_concurrency() >= 2;
  // Fills the tables of the keys whose hash has the given top bit (of all
  // keys when not split); the cards they hold are written by this call alone.
  // The half on this thread checks in with the progress now and then: a
  // stop ends both.
  std::atomic<bool> halt{false};
  const size_t checkInEvery = dupes_internal::CheckInEvery();
  auto fill = [&](uint64_t half) {
    // The keys stay in the parts' arenas until the tables are gone.
    KeyTable table(split ? expected / 2 : expected, true);
    for (auto kind : {KeyPart::kName, KeyPart::kEmail, KeyPart::kLastEmail}) {
      if (kind != KeyPart::kName) table.Clear();
      std::vector<int32_t>& found = partners[kind];
      auto mine = [&](uint64_t hash) { return !split || (hash >> 63) == half; };
      constexpr size_t kAhead = 16;
      for (size_t c = 0; c < order.size(); ++c) {
        if ((c + 1) % checkInEvery == 0) {
          if (half == 0 && !ReportAgain()) halt = true;
          if (halt.load(std::memory_order_relaxed)) return;
        }
        if (c + kAhead < order.size()) {
          const auto& [aheadPart, aheadK] = order[c + kAhead];
          table.Prefetch(aheadPart->Hash(aheadK, kind));
        }
        const auto& [part, k] = order[c];
        const uint64_t hash = part->Hash(k, kind);
        if (!mine(hash)) continue;
        std::string_view key = part->Key(k, kind);
        if (key.empty()) continue;
        const auto self = static_cast<int32_t>(c + 1);
        const int32_t first = table.Intern(key, hash, self);
        if (first != self) found[c] = first;
      }
    }
  };
  if (split) {
    std::thread other([&] { fill(1); });
    fill(0);
    other.join();
  } else {
    fill(0);
  }
  if (halt) return {};

  // Whether each card is a suspect, and with which partner, follows from the
  // tables alone: worked out in halves side by side for many cards
  // (verdict: -1 for no suspect, else the partner as above). The list is then
  // made in order, each partner right after the first card that names it.
  std::vector<int32_t> verdict(order.size());
  auto decide = [&](size_t from, size_t to) {
    for (size_t c = from; c < to; ++c) {
      const auto& [part, k] = order[c];
      const bool hasName = !part->Key(k, KeyPart::kName).empty();
      const bool hasEmail = !part->Key(k, KeyPart::kEmail).empty();
      bool suspect = false;
      int32_t partner = 0;
      if (hasName) {
        partner = partners[KeyPart::kName][c];
        if (partner == 0) partner = partners[KeyPart::kLastEmail][c];
        suspect = partner != 0;
      } else {
        // No name and no e-mail: nothing to pair it by, so it is always looked at.
        partner = partners[KeyPart::kEmail][c];
        suspect = !hasEmail || partner != 0;
      }
      verdict[c] = suspect ? partner : -1;
    }
  };
  dupes_internal::InHalves(order.size(), split, decide);
  if (order.size() >= checkInEvery && !ReportAgain()) return {};

  std::vector<int32_t> suspects;
  std::vector<bool> suspectAt(order.size());  // by store position
  IdMarks present(expected);
  auto add = [&](int32_t id, size_t position) {
    Trap(!present.Insert(id), "HashTable already contains key: " + std::to_string(id));
    suspects.push_back(id);
    suspectAt[position] = true;
  };
  for (size_t c = 0; c < order.size(); ++c) {
    const int32_t partner = verdict[c];
    if (partner < 0) continue;
    const auto& [part, k] = order[c];
    add(part->Id(k), c);
    if (partner != 0) {
      const auto& [partnerPart, partnerK] = order[static_cast<size_t>(partner - 1)];
      int32_t partnerId = partnerPart->Id(partnerK);
      if (!present.Contains(partnerId)) add(partnerId, static_cast<size_t>(partner - 1));
    }
  }

  // Suspects often cluster in one stretch of the store: the parts that load
  // them begin where each gets an equal share of the work, not at equal
  // stretches. A part steps over every card of its stretch and builds its
  // suspects, and building one costs about as much as stepping over
  // kBuildWeight others.
  constexpr int64_t kBuildWeight = 12;
  const size_t loadParts = parts.size();
  if (loadParts > 1 && suspects.size() >= loadParts) {
    std::vector<int32_t> positions;  // of the suspects, in store order
    positions.reserve(suspects.size());
    for (size_t c = 0; c < order.size(); ++c)
      if (suspectAt[c]) positions.push_back(static_cast<int32_t>(c));
    const int64_t work = static_cast<int64_t>(order.size()) + kBuildWeight * static_cast<int64_t>(positions.size());
    size_t i = 0;
    for (size_t p = 1; p < loadParts; ++p) {
      // The work before the i-th suspect is its position plus the builds before it.
      const int64_t share = work * static_cast<int64_t>(p) / static_cast<int64_t>(loadParts);
      while (i + 1 < positions.size() && positions[i] + kBuildWeight * static_cast<int64_t>(i) < share) ++i;
      const auto& [part, k] = order[static_cast<size_t>(positions[i])];
      partStarts.push_back(part->Id(k));
      if (i + 1 < positions.size()) ++i;  // starts stay in increasing order
    }
  }
  return suspects;
}

}  // namespace ombrel
