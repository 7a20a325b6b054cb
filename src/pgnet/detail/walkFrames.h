#pragma once
// Frames of the explicit stacks that replace recursion in the network walks. A frame is one
// pending call "walk through `edge` from `from`"; `next` is the position in the net's node set
// of the next node that call will look at, so the walks visit nodes in exactly the order of
// the recursive definitions while their depth costs heap, not call stack.

#include <cstddef>

class kraEdge;
class kraNode;

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

}  // namespace pgnet::detail
