#include "pgnet/segment.h"

#include <ostream>
#include <utility>

kraSegment::kraSegment(std::vector<kraNode*> nodes, bool loop)
    : hasLoop(loop), nodes_(std::move(nodes)) {}

kraSegment::kraSegment(const pgnet::NodeSet& nodes, bool loop)
    : hasLoop(loop), nodes_(nodes.items()) {}

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
