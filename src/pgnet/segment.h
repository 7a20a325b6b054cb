#pragma once
// A connected group of nodes on one layer: a metal group, a straight strip or one part of it.

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string_view>
#include <vector>

#include "pgnet/edge.h"
#include "pgnet/nodeSet.h"

class kraSegment {
 public:
  /// From a node set (any order; kept in creation order) and the loop flag.
  explicit kraSegment(std::vector<kraNode*> nodes, bool hasLoop = false);
  kraSegment(const pgnet::NodeSet& nodes, bool hasLoop);

  size_t size() const { return nodes_.size(); }
  /// The layer of the first node; empty for an empty segment.
  std::string_view getLayer() const;
  /// The first node, or null.
  kraNode* getAnyNode() const;
  /// Position of the node in the segment's order, or -1.
  ptrdiff_t indexOf(const kraNode* node) const;
  bool contains(const kraNode* node) const { return indexOf(node) >= 0; }
  const pgnet::NodeSet& nodes() const { return nodes_; }

  /// From a walk position, follows the strip to its end: repeatedly steps to the next pair
  /// (getNextNode) until there is none, and returns the last pair, an end node of the strip
  /// with its outer net. A cyclic segment has no end: after as many steps as the segment has
  /// node and net positions the walk stops and returns the pair it has reached.
  kraEdgeNodePair getLeafNode(kraEdgeNodePair pair) const;
  /// The first node N of the pair's net (set order), other than the pair's node, that belongs
  /// to the segment, paired with N's other net; a pair with a null node when there is none.
  kraEdgeNodePair getNextNode(kraEdgeNodePair pair) const;

  /// For each node i: "\nNode i :\n" and the node's dump.
  void dump(std::ostream& out) const;
  /// Deletes every segment of the list and empties it.
  static void clearList(std::vector<std::unique_ptr<kraSegment>>& list);

  /// Set when the group contains a loop.
  bool hasLoop = false;

 private:
  void buildLookup() const;

  pgnet::NodeSet nodes_;
  /// For large segments, made on the first lookup: an open-addressing table by creation
  /// sequence holding position + 1 (0 = empty). Every walk over a strip asks for membership
  /// at each step, and a binary search over a strip of a million nodes touches twenty of
  /// them per question.
  mutable std::vector<uint32_t> lookup_;
};

/// The network's owned list of owned segments.
using kraSegmentList = std::vector<std::unique_ptr<kraSegment>>;
