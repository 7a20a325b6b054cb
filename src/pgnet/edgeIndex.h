#pragma once
// The network's nets, owned and looked up by name.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "pgnet/edge.h"
#include "support/chunkedStore.h"

namespace pgnet {

/// Owns the nets in creation order and finds them by name. The lookup is an open-addressing
/// table of 8-byte slots (a part of the name's hash and the net's position), so a grid of a
/// million nets costs a few megabytes and a probe rarely touches a net it does not want.
class EdgeIndex {
 public:
  /// The net of that name, or null.
  kraEdge* find(std::string_view name) const;
  /// The net of that name, made if new (its name kept in `texts`, which must outlive it).
  kraEdge* findOrAdd(std::string_view name, support::TextStore& texts);
  size_t size() const { return store_.size(); }
  /// Nets in creation order.
  kraEdge& operator[](size_t i) { return store_[i]; }
  const kraEdge& operator[](size_t i) const { return store_[i]; }

 private:
  static uint64_t hashOf(std::string_view name);
  size_t probe(std::string_view name, uint64_t hash) const;
  void grow();

  support::ChunkedStore<kraEdge> store_;
  /// 0 for an empty slot, else (hash tag << 32) | (position + 1).
  std::vector<uint64_t> slots_;
};

}  // namespace pgnet
