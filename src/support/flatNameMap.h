#pragma once
// Names to integers in one open-addressing table. Lookups of millions of node and signal
// names touch one slot (and the name's text when the hashes agree) instead of a chain of
// nodes. The keys are views: the owner of the text keeps it alive and in place while the
// map is used.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string_view>
#include <vector>

namespace support {

/// The hash the map uses; callers that look a name up in several maps compute it once.
inline size_t hashName(std::string_view name) { return std::hash<std::string_view>{}(name); }

class FlatNameMap {
 public:
  /// Makes room for `count` keys without growing.
  void reserve(size_t count) {
    size_t capacity = 16;
    while (capacity < count * 2) {
      capacity *= 2;
    }
    if (capacity > slots_.size()) {
      rehash(capacity);
    }
  }

  /// Forgets every key, keeping the table's size.
  void clear() {
    std::fill(slots_.begin(), slots_.end(), Slot{});
    count_ = 0;
  }

  size_t size() const { return count_; }

  /// The value stored for `key` (whose hashName is `hash`), or null.
  const int* find(std::string_view key, size_t hash) const {
    if (slots_.empty()) {
      return nullptr;
    }
    const uint32_t tag = tagOf(hash);
    for (size_t i = hash & mask_;; i = (i + 1) & mask_) {
      const Slot& slot = slots_[i];
      if (slot.tag == 0) {
        return nullptr;
      }
      if (slot.tag == tag && slot.size == key.size() &&
          std::memcmp(slot.data, key.data(), key.size()) == 0) {
        return &slot.value;
      }
    }
  }
  const int* find(std::string_view key) const { return find(key, hashName(key)); }

  /// Stores `value` for `key` unless the key is present (the first value stays); returns
  /// whether it was stored.
  bool insert(std::string_view key, size_t hash, int value) {
    if ((count_ + 1) * 2 > slots_.size()) {
      rehash(slots_.empty() ? 16 : slots_.size() * 2);
    }
    const uint32_t tag = tagOf(hash);
    for (size_t i = hash & mask_;; i = (i + 1) & mask_) {
      Slot& slot = slots_[i];
      if (slot.tag == 0) {
        slot = Slot{key.data(), static_cast<uint32_t>(key.size()), tag, value, hash};
        ++count_;
        return true;
      }
      if (slot.tag == tag && slot.size == key.size() &&
          std::memcmp(slot.data, key.data(), key.size()) == 0) {
        return false;
      }
    }
  }
  bool insert(std::string_view key, int value) { return insert(key, hashName(key), value); }

 private:
  struct Slot {
    const char* data = nullptr;
    uint32_t size = 0;
    uint32_t tag = 0;  // 0: empty
    int value = 0;
    size_t hash = 0;
  };

  /// The upper half of the hash, never 0 (0 marks an empty slot).
  static uint32_t tagOf(size_t hash) {
    const uint32_t tag = static_cast<uint32_t>(static_cast<uint64_t>(hash) >> 32);
    return tag != 0 ? tag : 1;
  }

  void rehash(size_t capacity) {
    std::vector<Slot> old = std::move(slots_);
    slots_.assign(capacity, Slot{});
    mask_ = capacity - 1;
    for (const Slot& slot : old) {
      if (slot.tag != 0) {
        size_t i = slot.hash & mask_;
        while (slots_[i].tag != 0) {
          i = (i + 1) & mask_;
        }
        slots_[i] = slot;
      }
    }
  }

  std::vector<Slot> slots_;
  size_t mask_ = 0;
  size_t count_ = 0;
};

}  // namespace support
