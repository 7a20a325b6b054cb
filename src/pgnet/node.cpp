#include "pgnet/node.h"

#include <algorithm>
#include <ostream>
#include <stdexcept>

#include "pgnet/edge.h"

kraCurrDirType getOppositeCurrDir(int dir) {
  // The directions come in pairs, each odd one followed by its reverse.
  if (dir < kraViaN1toN2 || dir > kraViaInOutSecond) {
    return kraNoDir;
  }
  return static_cast<kraCurrDirType>(dir % 2 == 1 ? dir + 1 : dir - 1);
}

uint32_t kraNode::getViaType(std::string_view word) {
  struct ViaWord {
    std::string_view word;
    kraViaType type;
  };
  // Tested in this order; the words are exact and case-sensitive.
  static constexpr ViaWord kWords[] = {
      {"V", kraV},
      {"nil", kraMetal},
      {"viaArray", kraViaArray},
      {"singleSquareVia", kraSingleSquareVia},
      {"fracturedVia", kraFracturedVia},
      {"rectangleVia", kraRectangleVia},
      {"squareVia", kraSquareVia},
  };
  for (const ViaWord& known : kWords) {
    if (word == known.word) {
      return known.type;
    }
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

kraEdge::~kraEdge() {
  if (capacity_ > kInPlace) {
    delete[] heap_;
  }
}

void kraEdge::insert(kraNode* node) {
  kraNode** items = data();
  // Nodes normally arrive in creation order, so this is an append.
  uint32_t at = size_;
  while (at > 0 && node->seq < items[at - 1]->seq) {
    --at;
  }
  if (at > 0 && items[at - 1] == node) {
    return;
  }
  if (size_ == capacity_) {
    if (capacity_ > UINT32_MAX / 2) {
      throw std::length_error("too many nodes on one net");
    }
    const uint32_t grown = capacity_ * 2;
    kraNode** bigger = new kraNode*[grown];
    std::copy(items, items + size_, bigger);
    if (capacity_ > kInPlace) {
      delete[] heap_;
    }
    heap_ = bigger;
    capacity_ = grown;
    items = heap_;
  }
  std::copy_backward(items + at, items + size_, items + size_ + 1);
  items[at] = node;
  ++size_;
}

std::vector<kraNode*> kraEdge::getViaNodes() const {
  std::vector<kraNode*> vias;
  for (kraNode* node : nodes()) {
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
