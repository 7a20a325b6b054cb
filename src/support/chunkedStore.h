#pragma once
// Storage for millions of small objects and their names (the nodes and nets of a grid, the
// records of a database): objects live in fixed-size chunks, so their addresses never change
// and no object costs a heap block of its own.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace support {

/// Default-constructible objects allocated in chunks, kept in creation order.
template <class T, size_t kChunkSize = 1024>
class ChunkedStore {
 public:
  ChunkedStore() = default;
  ChunkedStore(const ChunkedStore&) = delete;
  ChunkedStore& operator=(const ChunkedStore&) = delete;

  /// A fresh default object; its address stays valid for the life of the store.
  T* add() {
    if (size_ == chunks_.size() * kChunkSize) {
      chunks_.push_back(std::make_unique<T[]>(kChunkSize));
    }
    T* item = &chunks_.back()[size_ % kChunkSize];
    ++size_;
    return item;
  }
  size_t size() const { return size_; }
  T& operator[](size_t i) { return chunks_[i / kChunkSize][i % kChunkSize]; }
  const T& operator[](size_t i) const { return chunks_[i / kChunkSize][i % kChunkSize]; }

 private:
  std::vector<std::unique_ptr<T[]>> chunks_;
  size_t size_ = 0;
};

/// Keeps copies of texts in large blocks; the views it hands out stay valid for its life.
class TextStore {
 public:
  /// Texts longer than a quarter of `blockSize` get a block of their own.
  explicit TextStore(size_t blockSize = 64 * 1024) : blockSize_(blockSize) {}
  TextStore(const TextStore&) = delete;
  TextStore& operator=(const TextStore&) = delete;

  std::string_view keep(std::string_view text) {
    if (text.empty()) {
      return {};
    }
    if (text.size() > blockSize_ / 4) {
      // Long texts get a block of their own so that they waste no room in the shared ones.
      large_.push_back(std::make_unique<char[]>(text.size()));
      text.copy(large_.back().get(), text.size());
      return {large_.back().get(), text.size()};
    }
    if (blocks_.empty() || used_ + text.size() > blockSize_) {
      blocks_.push_back(std::make_unique<char[]>(blockSize_));
      used_ = 0;
    }
    char* place = blocks_.back().get() + used_;
    text.copy(place, text.size());
    used_ += text.size();
    return {place, text.size()};
  }

 private:
  size_t blockSize_;
  std::vector<std::unique_ptr<char[]>> blocks_;
  std::vector<std::unique_ptr<char[]>> large_;
  size_t used_ = 0;
};

}  // namespace support
