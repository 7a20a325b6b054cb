#include <ostream>

#include "pgnet/edge.h"
#include "pgnet/node.h"

kraCurrDirType getOppositeCurrDir(int dir) {
  switch (dir) {
    case kraViaN1toN2:
      return kraViaN2toN1;
    case kraViaN2toN1:
      return kraViaN1toN2;
    case kraMetalN1toN2:
      return kraMetalN2toN1;
    case kraMetalN2toN1:
      return kraMetalN1toN2;
    case kraViaInOutFirst:
      return kraViaInOutSecond;
    case kraViaInOutSecond:
      return kraViaInOutFirst;
    default:
      return kraNoDir;
  }
}

uint32_t kraNode::getViaType(std::string_view word) {
  // Tested in this order; the words are exact and case-sensitive.
  if (word == "V") {
    return kraV;
  }
  if (word == "nil") {
    return kraMetal;
  }
  if (word == "viaArray") {
    return kraViaArray;
  }
  if (word == "singleSquareVia") {
    return kraSingleSquareVia;
  }
  if (word == "fracturedVia") {
    return kraFracturedVia;
  }
  if (word == "rectangleVia") {
    return kraRectangleVia;
  }
  if (word == "squareVia") {
    return kraSquareVia;
  }
  return kraMetal;
}

bool kraNode::isTerminalVia() const {
  return viaType == kraRectangleVia || viaType == kraViaArray || viaType == kraSquareVia;
}

void kraNode::setCurrentDir(int flag) {
  if (flag != 0 && flag != 1) {
    return;
  }
  const bool n1toN2 = flag == 1;
  if (isVia()) {
    currentDir = n1toN2 ? kraViaN1toN2 : kraViaN2toN1;
  } else {
    currentDir = n1toN2 ? kraMetalN1toN2 : kraMetalN2toN1;
  }
}

void kraNode::dump(std::ostream& out) const {
  out << "Name:\t" << name << "\nX   :\t" << x << "\nY   :\t" << y << '\n';
}

std::vector<kraNode*> kraEdge::getViaNodes() const {
  std::vector<kraNode*> vias;
  for (kraNode* node : nodes_) {
    if (node->isVia()) {
      vias.push_back(node);
    }
  }
  return vias;
}

kraEdgeNodePair kraEdgeNodePair::getOppositePair() const {
  if (node == nullptr) {
    return {};
  }
  return {node, node->otherEdge(edge)};
}

void kraEdgeNodePair::dump(std::ostream& out) const {
  if (node == nullptr) {
    return;
  }
  out << node->name << "\t: " << (edge != nullptr ? edge->name : std::string_view("(null)"))
      << "\t: " << (edge == node->edge1 ? "head" : "tail") << '\n';
}
