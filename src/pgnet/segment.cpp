#include "pgnet/segment.h"

#include <ostream>
#include <utility>

kraSegment::kraSegment(std::vector<kraNode*> nodes, bool loop)
    : hasLoop(loop), nodes_(std::move(nodes)) {}

kraSegment::kraSegment(const pgnet::NodeSet& nodes, bool loop)
    : hasLoop(loop), nodes_(nodes.items()) {}

namespace {

// Below this size a binary search is as quick as a table.
constexpr size_t kLookupFrom = 64;

size_t slotOf(uint64_t seq, size_t mask) {
  return static_cast<size_t>((seq * 0x9E3779B97F4A7C15ull) >> 20) & mask;
}

}  // namespace

void kraSegment::buildLookup() const {
  const std::vector<kraNode*>& list = nodes_.items();
  size_t capacity = 1;
  while (capacity < 2 * list.size()) {
    capacity *= 2;
  }
  lookup_.assign(capacity, 0);
  const size_t mask = capacity - 1;
  for (size_t i = 0; i < list.size(); ++i) {
    size_t at = slotOf(list[i]->seq, mask);
    while (lookup_[at] != 0) {
      at = (at + 1) & mask;
    }
    lookup_[at] = static_cast<uint32_t>(i + 1);
  }
}

ptrdiff_t kraSegment::indexOf(const kraNode* node) const {
  const std::vector<kraNode*>& list = nodes_.items();
  if (list.size() < kLookupFrom || list.size() >= UINT32_MAX) {
    return nodes_.indexOf(node);
  }
  if (lookup_.empty()) {
    buildLookup();
  }
  const size_t mask = lookup_.size() - 1;
  for (size_t at = slotOf(node->seq, mask);; at = (at + 1) & mask) {
    const uint32_t entry = lookup_[at];
    if (entry == 0) {
      return -1;
    }
    if (list[entry - 1] == node) {
      return static_cast<ptrdiff_t>(entry - 1);
    }
  }
}

std::string_view kraSegment::getLayer() const {
  return nodes_.empty() ? std::string_view() : nodes_.front()->layer;
}

kraNode* kraSegment::getAnyNode() const { return nodes_.empty() ? nullptr : nodes_.front(); }

kraEdgeNodePair kraSegment::getNextNode(kraEdgeNodePair pair) const {
  if (pair.edge == nullptr) {
    return {};
  }
  for (kraNode* node : pair.edge->nodes()) {
    if (node != pair.node && contains(node)) {
      return {node, node->otherEdge(pair.edge)};
    }
  }
  return {};
}

kraEdgeNodePair kraSegment::getLeafNode(kraEdgeNodePair pair) const {
  // There are at most two positions per node, so a longer walk can only be going round a loop.
  const size_t maxSteps = 2 * size() + 2;
  for (size_t step = 0; step < maxSteps; ++step) {
    const kraEdgeNodePair next = getNextNode(pair);
    if (next.node == nullptr) {
      return pair;
    }
    pair = next;
  }
  return pair;
}

void kraSegment::dump(std::ostream& out) const {
  size_t i = 0;
  for (const kraNode* node : nodes_) {
    out << "\nNode " << i << " :\n";
    node->dump(out);
    ++i;
  }
}

void kraSegment::clearList(kraSegmentList& list) { list.clear(); }
