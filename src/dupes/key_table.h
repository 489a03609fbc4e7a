// KeyTable: text keys to the ID first stored with them, for the search's
// pass over every card of the store and for numbering the suspects' texts. A million cards make three million keys;
// keeping them in one arena with an open-addressing index costs one hash and
// at most a few comparisons per lookup and no allocation per key.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace ombrel {

class KeyTable {
 public:
  // borrowed: the keys interned stay where they are for the table's whole
  // life (and are then only looked at there), so none is copied.
  explicit KeyTable(size_t expected = 0, bool borrowed = false) : borrowed_(borrowed) { Rehash(Capacity(expected)); }

  // Empty again, keeping its room: a table filled with one kind of key after another.
  void Clear() {
    std::fill(slots_.begin(), slots_.end(), Slot{});
    arena_.clear();
    count_ = 0;
  }

  // The ID stored under key, storing id there first when the key is new (the
  // first card keeps it). h is the key's Hash, perhaps worked out on another
  // thread.
  int32_t Intern(std::string_view key, uint64_t h, int32_t id) {
    if ((count_ + 1) * 4 > slots_.size() * 3) Rehash(slots_.size() * 2);
    for (size_t i = h & mask_;; i = (i + 1) & mask_) {
      Slot& s = slots_[i];
      if (s.length < 0) {
        if (borrowed_) {
          s = Slot{h, reinterpret_cast<uintptr_t>(key.data()), static_cast<int32_t>(key.size()), id};
        } else {
          s = Slot{h, arena_.size(), static_cast<int32_t>(key.size()), id};
          arena_.append(key);
        }
        ++count_;
        return id;
      }
      if (s.hash == h && Key(s) == key) return s.id;
    }
  }

  size_t Size() const { return count_; }

  // Starts loading the slot a key with hash h is looked for in first: a
  // caller that knows the hashes of the keys to come asks a few keys ahead,
  // so the lookups do not wait on memory one after the other.
  void Prefetch(uint64_t h) const { __builtin_prefetch(&slots_[h & mask_]); }

  // Eight bytes a step (the last step overlapping the one before), then
  // mixed so that the low bits the index uses spread.
  static uint64_t Hash(std::string_view key) {
    const char* p = key.data();
    size_t n = key.size();
    uint64_t h = 0x9E3779B97F4A7C15ull ^ (n * 0xC2B2AE3D27D4EB4Full);
    auto mix = [&h](uint64_t word) {
      h = (h ^ word) * 0xBF58476D1CE4E5B9ull;
      h ^= h >> 31;
    };
    if (n >= 8) {
      for (; n > 8; p += 8, n -= 8) mix(Load<uint64_t>(p));
      mix(Load<uint64_t>(p + n - 8));
    } else if (n >= 4) {
      mix(Load<uint32_t>(p) | static_cast<uint64_t>(Load<uint32_t>(p + n - 4)) << 32);
    } else if (n > 0) {
      mix(static_cast<uint64_t>(static_cast<unsigned char>(p[0])) << 16 |
          static_cast<uint64_t>(static_cast<unsigned char>(p[n / 2])) << 8 | static_cast<unsigned char>(p[n - 1]));
    }
    h ^= h >> 29;
    h *= 0x94D049BB133111EBull;
    return h ^ (h >> 32);
  }

 private:
  template <class T>
  static T Load(const char* p) {
    T value;
    std::memcpy(&value, p, sizeof value);
    return value;
  }

  struct Slot {
    uint64_t hash = 0;
    uintptr_t offset = 0;  // in the arena, or the key's address when borrowed
    int32_t length = -1;  // -1: empty slot
    int32_t id = 0;
  };

  static size_t Capacity(size_t expected) {
    size_t c = 16;
    while (c * 3 < expected * 4 + 4) c *= 2;
    return c;
  }
  std::string_view Key(const Slot& s) const {
    if (borrowed_) return std::string_view(reinterpret_cast<const char*>(s.offset), static_cast<size_t>(s.length));
    return std::string_view(arena_).substr(s.offset, static_cast<size_t>(s.length));
  }
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

  bool borrowed_ = false;
  std::vector<Slot> slots_;
  std::string arena_;
  size_t mask_ = 0;
  size_t count_ = 0;
};

}  // namespace ombrel
