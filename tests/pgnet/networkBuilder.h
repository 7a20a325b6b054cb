#pragma once
// Small hand-built networks for the network tests.

#include <sstream>
#include <string>
#include <vector>

#include "pgnet/network.h"

namespace pgnet_test {

/// One node as a test writes it.
struct Piece {
  const char* name;
  const char* net1;
  const char* net2;
  double length = 1.0;
  double width = 1.0;
  const char* layer = "M1";
  const char* via = "nil";
  double x = -1.0;
  double y = -1.0;
};

inline std::vector<kraNode*> build(zeNetwork& network, const std::vector<Piece>& pieces) {
  std::vector<kraNode*> made;
  for (const Piece& p : pieces) {
    made.push_back(
        network.createNode({p.name, p.net1, p.net2, p.length, p.width, p.layer, p.via, p.x, p.y}));
  }
  return made;
}

/// The length-data output of a network.
inline std::string lengthOutput(const zeNetwork& network) {
  std::ostringstream out;
  network.writeLengthData(out);
  return out.str();
}

/// Node names of a node list, blank-separated, for readable comparisons.
template <class Nodes>
std::string names(const Nodes& nodes) {
  std::string text;
  for (const kraNode* node : nodes) {
    text += (text.empty() ? "" : " ") + std::string(node->name);
  }
  return text;
}

/// Names of each segment of a list, one "[...]" per segment.
inline std::string segmentNames(const kraSegmentList& segments) {
  std::string text;
  for (const auto& segment : segments) {
    text += '[' + names(segment->nodes()) + ']';
  }
  return text;
}

}  // namespace pgnet_test
