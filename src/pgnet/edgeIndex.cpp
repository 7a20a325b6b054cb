#include "pgnet/edgeIndex.h"

#include <functional>
#include <stdexcept>

namespace pgnet {

namespace {

constexpr uint64_t kPositionMask = 0xffffffffu;

uint64_t tagOf(uint64_t hash) { return hash >> 32; }

}  // namespace

uint64_t EdgeIndex::hashOf(std::string_view name) { return std::hash<std::string_view>{}(name); }

// The slot that holds the name, or the empty slot where it would go.
size_t EdgeIndex::probe(std::string_view name, uint64_t hash) const {
  const size_t mask = slots_.size() - 1;
  for (size_t i = hash & mask;; i = (i + 1) & mask) {
    const uint64_t slot = slots_[i];
    if (slot == 0) {
      return i;
    }
    if ((slot >> 32) == tagOf(hash) && store_[(slot & kPositionMask) - 1].name == name) {
      return i;
    }
  }
}

kraEdge* EdgeIndex::find(std::string_view name) const {
  if (slots_.empty()) {
    return nullptr;
  }
  const uint64_t slot = slots_[probe(name, hashOf(name))];
  return slot == 0 ? nullptr : const_cast<kraEdge*>(&store_[(slot & kPositionMask) - 1]);
}

kraEdge* EdgeIndex::findOrAdd(std::string_view name, support::TextStore& texts) {
  // Kept at most half full.
  if (2 * (store_.size() + 1) > slots_.size()) {
    grow();
  }
  const uint64_t hash = hashOf(name);
  const size_t at = probe(name, hash);
  if (slots_[at] != 0) {
    return &store_[(slots_[at] & kPositionMask) - 1];
  }
  if (store_.size() >= kPositionMask - 1) {
    throw std::length_error("too many nets");
  }
  kraEdge* edge = store_.add();
  edge->name = texts.keep(name);
  slots_[at] = (tagOf(hash) << 32) | store_.size();
  return edge;
}

void EdgeIndex::grow() {
  std::vector<uint64_t> old;
  old.swap(slots_);
  slots_.assign(old.empty() ? 64 : old.size() * 2, 0);
  const size_t mask = slots_.size() - 1;
  for (uint64_t slot : old) {
    if (slot == 0) {
      continue;
    }
    const uint64_t hash = hashOf(store_[(slot & kPositionMask) - 1].name);
    size_t i = hash & mask;
    while (slots_[i] != 0) {
      i = (i + 1) & mask;
    }
    slots_[i] = slot;
  }
}

}  // namespace pgnet
