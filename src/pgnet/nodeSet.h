#pragma once
// The ordered node sets of the network (a net's nodes, a segment, the working set). They are
// ordered by creation sequence, never by address, so every walk over them is reproducible.

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "pgnet/node.h"

namespace pgnet {

inline bool bySeq(const kraNode* a, const kraNode* b) { return a->seq < b->seq; }

/// A set of nodes in creation order. Inserting in creation order is an append; other orders
/// are sorted once, at the next read. Reads are const but may sort: not for concurrent use.
class NodeSet {
 public:
  NodeSet() = default;
  explicit NodeSet(std::vector<kraNode*> nodes) : items_(std::move(nodes)), sorted_(false) {}

  void insert(kraNode* node) {
    if (!items_.empty() && !(items_.back()->seq < node->seq)) {
      sorted_ = false;
    }
    items_.push_back(node);
  }
  void clear() {
    items_.clear();
    sorted_ = true;
  }
  const std::vector<kraNode*>& items() const {
    normalise();
    return items_;
  }
  size_t size() const { return items().size(); }
  bool empty() const { return items_.empty(); }
  kraNode* front() const { return items().front(); }
  kraNode* operator[](size_t i) const { return items()[i]; }
  auto begin() const { return items().begin(); }
  auto end() const { return items().end(); }
  /// Position of the node in the set, or -1.
  ptrdiff_t indexOf(const kraNode* node) const {
    const std::vector<kraNode*>& list = items();
    auto it = std::lower_bound(list.begin(), list.end(), node, bySeq);
    return (it != list.end() && *it == node) ? it - list.begin() : -1;
  }
  bool contains(const kraNode* node) const { return indexOf(node) >= 0; }

 private:
  void normalise() const {
    if (!sorted_) {
      std::sort(items_.begin(), items_.end(), bySeq);
      items_.erase(std::unique(items_.begin(), items_.end()), items_.end());
      sorted_ = true;
    }
  }

  mutable std::vector<kraNode*> items_;
  mutable bool sorted_ = true;
};

}  // namespace pgnet
