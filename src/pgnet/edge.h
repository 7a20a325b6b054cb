#pragma once
// A net of the power grid and the nodes that touch it; a walk position on it.

#include <iosfwd>
#include <string_view>
#include <vector>

#include "pgnet/node.h"
#include "pgnet/nodeSet.h"

/// One net, made on first use by zeNetwork::getEdge and owned by the network.
class kraEdge {
 public:
  /// The nodes that touch the net, in creation order.
  const pgnet::NodeSet& nodes() const { return nodes_; }
  void insert(kraNode* node) { nodes_.insert(node); }
  /// The net's via nodes (viaType not 0), in set order.
  std::vector<kraNode*> getViaNodes() const;

  std::string_view name;

 private:
  pgnet::NodeSet nodes_;
};

/// A node together with the net on which a walk stands at it.
struct kraEdgeNodePair {
  kraNode* node = nullptr;
  kraEdge* edge = nullptr;

  bool operator==(const kraEdgeNodePair&) const = default;
  /// The same node with its other net.
  kraEdgeNodePair getOppositePair() const;
  /// Node name, the net, and "head" when the net is the node's edge1, else "tail". The net is
  /// written by name rather than by address so that debug output is the same on every run.
  void dump(std::ostream& out) const;
};
