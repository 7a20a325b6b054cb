#pragma once
// The network's nodes by name.

#include <cstddef>
#include <string_view>
#include <vector>

#include "pgnet/node.h"

namespace pgnet {

/// Nodes by name, in byte-wise ascending name order. A node added under a name already
/// present replaces the earlier one (which stays in its nets). Additions are appends; the
/// order is established once, at the next read. Not for concurrent use.
class NodeIndex {
 public:
  void add(kraNode* node) {
    entries_.push_back(node);
    sorted_ = false;
  }
  /// The node of that name, or null.
  kraNode* find(std::string_view name) const;
  const std::vector<kraNode*>& items() const {
    normalise();
    return entries_;
  }
  size_t size() const { return items().size(); }
  auto begin() const { return items().begin(); }
  auto end() const { return items().end(); }

 private:
  void normalise() const;

  mutable std::vector<kraNode*> entries_;
  mutable bool sorted_ = true;
};

}  // namespace pgnet
