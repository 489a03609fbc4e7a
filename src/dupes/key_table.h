// KeyTable: text keys to the ID first stored with them, for the search's
// pass over every card of the store and for numbering the suspects' texts. A million cards make three million keys;
// keeping them in one arena with an open-addressing index costs one hash and
// at most a few comparisons per lookup and no allocation per key.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

class KeyTable {
 public:
  explicit KeyTable(size_t expected = 0) { Rehash(Capacity(expected)); }

  // The ID stored under key, storing id there first when the key is new (the
  // first card keeps it). h is the key's Hash, perhaps worked out on another
  // thread.
  int32_t Intern(std::string_view key, uint64_t h, int32_t id) {
    if ((count_ + 1) * 4 > slots_.size() * 3) Rehash(slots_.size() * 2);
    for (size_t i = h & mask_;; i = (i + 1) & mask_) {
      Slot& s = slots_[i];
      if (s.length < 0) {
        s = Slot{h, arena_.size(), static_cast<int32_t>(key.size()), id};
        arena_.append(key);
        ++count_;
        return id;
      }
      if (s.hash == h && Key(s) == key) return s.id;
    }
  }

  size_t Size() const { return count_; }

  static uint64_t Hash(std::string_view key) {
    uint64_t h = 1469598103934665603ull;  // FNV-1a, then mixed so the low bits spread
    for (unsigned char c : key) h = (h ^ c) * 1099511628211ull;
    h ^= h >> 29;
    h *= 0xbf58476d1ce4e5b9ull;
    return h ^ (h >> 32);
  }

 private:
  struct Slot {
    uint64_t hash = 0;
    size_t offset = 0;
    int32_t length = -1;  // -1: empty slot
    int32_t id = 0;
  };

  static size_t Capacity(size_t expected) {
    size_t c = 16;
    while (c * 3 < expected * 4 + 4) c *= 2;
    return c;
  }
  std::string_view Key(const Slot& s) const { return std::string_view(arena_).substr(s.offset, static_cast<size_t>(s.length)); }
  void Rehash(size_t capacity) {
    std::vector<Slot> old;
    old.swap(slots_);
    slots_.assign(capacity, Slot{});
    mask_ = capacity - 1;
    for (const Slot& s : old) {
      if (s.length < 0) continue;
      size_t i = s.hash & mask_;
      while (slots_[i].length >= 0) i = (i + 1) & mask_;
      slots_[i] = s;
    }
  }

  std::vector<Slot> slots_;
  std::string arena_;
  size_t mask_ = 0;
  size_t count_ = 0;
};

}  // namespace ombrel
