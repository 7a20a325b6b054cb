#pragma once
// Frames of the explicit stacks that replace recursion in the network walks. A frame is one
// pending call "walk through `edge` from `from`"; `next` is the position in the net's node set
// of the next node that call will look at, so the walks visit nodes in exactly the order of
// the recursive definitions while their depth costs heap, not call stack.

#include <cstddef>
#include <span>
#include <vector>

#include "pgnet/edge.h"

namespace pgnet::detail {

struct EdgeFrame {
  kraEdge* edge;
  kraNode* from;
  size_t next;
};

/// A frame of the longest-path walk, which also carries the call's running best.
struct PathFrame {
  kraEdge* edge;
  kraNode* from;
  size_t next;
  /// The call's in/out length: the best branch length so far (the caller's value at entry).
  double length;
  /// The far end of the best branch so far; the call's own node when no branch was taken.
  kraNode* best;
};

/// Walks depth first through `edge` from `fromNode`, in the order of the recursive
/// definition: every node of a net other than the frame's own is offered to `visit(frame,
/// node)`, and the walk goes on through the other net of each node it accepts.
template <class Visit>
void walkEdges(kraEdge* edge, kraNode* fromNode, std::vector<EdgeFrame>& stack, Visit visit) {
  stack.clear();
  stack.push_back({edge, fromNode, 0});
  while (!stack.empty()) {
    EdgeFrame& frame = stack.back();
    const std::span<kraNode* const> list = frame.edge->nodes();
    if (frame.next == list.size()) {
      stack.pop_back();
      continue;
    }
    kraNode* node = list[frame.next++];
    if (node == frame.from || !visit(frame, node)) {
      continue;
    }
    if (kraEdge* further = node->otherEdge(frame.edge); further != nullptr) {
      stack.push_back({further, node, 0});
    }
  }
}

}  // namespace pgnet::detail
