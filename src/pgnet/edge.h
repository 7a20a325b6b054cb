#pragma once
// A net of the power grid and the nodes that touch it; a walk position on it.

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string_view>
#include <vector>

#include "pgnet/node.h"

/// One net, made on first use by zeNetwork::getEdge and owned by the network. Most nets touch
/// two or three nodes, so the first two are held in place and only larger nets use the heap.
class kraEdge {
 public:
  kraEdge() = default;
  ~kraEdge();
  kraEdge(const kraEdge&) = delete;
  kraEdge& operator=(const kraEdge&) = delete;

  /// The nodes that touch the net, in creation order (no node twice).
  std::span<kraNode* const> nodes() const { return {data(), size_}; }
  /// Adds a node, keeping creation order; a node already present is not added again.
  void insert(kraNode* node);
  /// The net's via nodes (viaType not 0), in set order.
  std::vector<kraNode*> getViaNodes() const;

  std::string_view name;

 private:
  static constexpr uint32_t kInPlace = 2;
  kraNode** data() { return capacity_ > kInPlace ? heap_ : inPlace_; }
  kraNode* const* data() const { return capacity_ > kInPlace ? heap_ : inPlace_; }

  union {
    kraNode* inPlace_[kInPlace] = {};
    kraNode** heap_;
  };
  uint32_t size_ = 0;
  uint32_t capacity_ = kInPlace;
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
