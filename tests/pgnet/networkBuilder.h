#pragma once
// Small hand-built networks for the network tests.

#include <sstream>
#include <string>
#include <vector>

#include "pgnet/network.h"

namespace pgnet_test {

/// Makes one node per ';'-separated item "name net1 net2 [length [width [layer [via [x y]]]]]"
/// (by default 1, 1, M1, nil, -1, -1) and returns them in order.
inline std::vector<kraNode*> build(zeNetwork& network, const std::string& pieces) {
  std::vector<kraNode*> made;
  std::istringstream items(pieces);
  for (std::string item; std::getline(items, item, ';');) {
    std::istringstream in(item);
    std::string name, net1, net2, layer = "M1", via = "nil";
    double length = 1.0, width = 1.0, x = -1.0, y = -1.0;
    if (in >> name >> net1 >> net2) {
      in >> length >> width >> layer >> via >> x >> y;
      made.push_back(network.createNode({name, net1, net2, length, width, layer, via, x, y}));
    }
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
