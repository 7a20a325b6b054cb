#include "pgnet/network.h"

#include <cmath>
#include <cstdlib>
#include <iostream>

#include "db/designGlobals.h"
#include "pgnet/detail/walkFrames.h"

using pgnet::detail::EdgeFrame;
using pgnet::detail::PathFrame;

zeNetwork::zeNetwork()
    : zeNetwork(1.0 / hlm::global::getDBU(), std::getenv("KRA2_INTERNAL_DEBUG") != nullptr) {}

zeNetwork::zeNetwork(double cadGridValue, bool debugOn)
    : cadGrid(cadGridValue), debug(debugOn), debugOut(&std::cout) {}

zeNetwork::~zeNetwork() = default;

std::string_view zeNetwork::internLayer(std::string_view layer) {
  auto it = layerNames_.find(layer);
  if (it == layerNames_.end()) {
    it = layerNames_.emplace(layer).first;
  }
  return *it;
}

kraEdge* zeNetwork::getEdge(std::string_view name) { return edges.findOrAdd(name, names_); }

kraNode* zeNetwork::createNode(const pgnet::NodeFields& fields) {
  kraNode* node = store_.add();
  node->seq = store_.size() - 1;
  node->name = names_.keep(fields.name);
  node->layer = internLayer(fields.layer);
  node->length = fields.length;
  node->width = fields.width;
  node->x = fields.x;
  node->y = fields.y;
  node->viaType = kraNode::getViaType(fields.viaType);
  nodes.add(node);
  node->edge1 = getEdge(fields.net1);
  node->edge2 = getEdge(fields.net2);
  node->edge1->insert(node);
  node->edge2->insert(node);
  return node;
}

void zeNetwork::setLayerStack(const std::vector<std::string>& list) {
  upperLayerOf.clear();
  lowerLayerOf.clear();
  for (size_t i = 0; i + 3 <= list.size(); i += 3) {
    upperLayerOf[list[i]] = list[i + 1];
    lowerLayerOf[list[i]] = list[i + 2];
  }
}

bool zeNetwork::isTopLayer(std::string_view viaLayer, std::string_view layer) const {
  auto it = upperLayerOf.find(viaLayer);
  return it != upperLayerOf.end() && it->second == layer;
}

bool zeNetwork::isBottomLayer(std::string_view viaLayer, std::string_view layer) const {
  auto it = lowerLayerOf.find(viaLayer);
  return it != lowerLayerOf.end() && it->second == layer;
}

bool zeNetwork::compareFloatValue(double a, double b, double tolerance) {
  return a == b || std::fabs(a - b) <= tolerance;
}

bool zeNetwork::isLeafNode(const kraEdge* edge, const kraNode* node) {
  if (edge == nullptr || node == nullptr) {
    return false;
  }
  for (const kraNode* other : edge->nodes()) {
    if (other != node && other->layer == node->layer) {
      return false;
    }
  }
  return true;
}

bool zeNetwork::isLeafNode(const kraNode* node) {
  if (node == nullptr) {
    return false;
  }
  return isLeafNode(node->edge1, node) || isLeafNode(node->edge2, node);
}

kraNode* zeNetwork::longestPath(kraEdge* edge, kraNode* fromNode, double& length) {
  if (edge == nullptr || fromNode == nullptr) {
    return nullptr;
  }
  // Each frame is one call of the recursive walk: it looks at the net's same-layer nodes in
  // set order, walks on from each through that node's other net with a fresh length, keeps
  // the strictly longest branch, and on return adds its own node's length.
  std::vector<PathFrame>& stack = pathFrames_;
  stack.clear();
  stack.push_back({edge, fromNode, 0, length, fromNode});
  for (;;) {
    PathFrame& frame = stack.back();
    const std::span<kraNode* const> list = frame.edge->nodes();
    kraNode* branch = nullptr;
    while (frame.next < list.size()) {
      kraNode* candidate = list[frame.next++];
      if (candidate != frame.from && candidate->layer == frame.from->layer) {
        branch = candidate;
        break;
      }
    }
    if (branch != nullptr) {
      kraEdge* further = branch->otherEdge(frame.edge);
      if (further != nullptr) {
        stack.push_back({further, branch, 0, 0.0, branch});
      }
      continue;
    }
    kraNode* far = frame.best;
    const double farLength = frame.length + frame.from->length;
    stack.pop_back();
    if (stack.empty()) {
      length = farLength;
      return far;
    }
    PathFrame& caller = stack.back();
    if (farLength > caller.length) {
      caller.length = farLength;
      caller.best = far;
    }
  }
}

void zeNetwork::findMaxLength() {
  kraNode* leaf = nullptr;
  for (kraNode* node : workingSet) {
    if (isLeafNode(node)) {
      leaf = node;
      break;
    }
  }
  if (leaf == nullptr) {
    return;
  }
  double length1 = 0.0;
  kraNode* end1 = longestPath(leaf->edge1, leaf, length1);
  double length2 = 0.0;
  kraNode* end2 = longestPath(leaf->edge2, leaf, length2);
  kraNode* far = length2 > length1 ? end2 : end1;
  if (far == nullptr) {
    return;
  }
  double back1 = 0.0;
  longestPath(far->edge1, far, back1);
  double back2 = 0.0;
  longestPath(far->edge2, far, back2);
  const double total = back2 > back1 ? back2 : back1;
  for (kraNode* node : workingSet) {
    node->totalLength = total;
  }
}

void zeNetwork::addAllLength() {
  double sum = 0.0;
  for (const kraNode* node : workingSet) {
    sum += node->length;
  }
  for (kraNode* node : workingSet) {
    node->totalLength = sum;
  }
}

void zeNetwork::processMetalSegment(kraNode* node) {
  if (node == nullptr || node->isVia()) {
    return;
  }
  workingSet.clear();
  const bool hasLoop = identifySegmentAndFindLoop(node);
  if (evalTotalSum || hasLoop || workingSet.size() < 3) {
    addAllLength();
  } else {
    findMaxLength();
  }
}

double zeNetwork::getMetalLength(kraEdge* edge, kraNode* via, kraNode*& nearest) const {
  if (edge == nullptr || via == nullptr) {
    return -1.0;
  }
  kraNode* best = nullptr;
  for (kraNode* node : edge->nodes()) {
    if (node == via || node->isVia()) {
      continue;
    }
    if (best == nullptr || best->width < 0.0 ||
        (!(node->width < 0.0) && node->width < best->width)) {
      best = node;
    }
  }
  if (best == nullptr) {
    return -1.0;
  }
  nearest = best;
  return best->totalLength;
}

void zeNetwork::processVia(kraNode* via) {
  if (via == nullptr || !via->isVia()) {
    return;
  }
  via->totalLength = via->length;
  kraNode* nodeA = nullptr;
  kraNode* nodeB = nullptr;
  const double lengthA = getMetalLength(via->edge1, via, nodeA);
  const double lengthB = getMetalLength(via->edge2, via, nodeB);
  const bool aIsLonger = lengthA > lengthB;
  if (aIsLonger && !(lengthA < 0.0)) {
    via->totalLength = lengthA;
  }
  if (!aIsLonger && !(lengthB < 0.0)) {
    via->totalLength = lengthB;
  }
  // Top and bottom are judged against the via's own layer, before it is replaced below.
  for (kraNode* metal : {nodeA, nodeB}) {
    if (metal == nullptr) {
      continue;
    }
    if (isTopLayer(via->layer, metal->layer)) {
      via->topMetalNode = metal;
    } else if (isBottomLayer(via->layer, metal->layer)) {
      via->bottomMetalNode = metal;
    }
  }
  kraNode* nearer = aIsLonger ? nodeA : nodeB;
  if (nearer != nullptr) {
    via->layer = nearer->layer;
  }
}

void zeNetwork::findNet1IsTopNet(kraNode* via) {
  if (via == nullptr) {
    return;
  }
  // The first metal found, through net1 and then through net2, tells which net is on top.
  kraEdge* const sides[] = {via->edge1, via->edge2};
  for (int side = 0; side < 2; ++side) {
    kraNode* metal = nullptr;
    getMetalLength(sides[side], via, metal);
    if (metal == nullptr) {
      continue;
    }
    const bool throughNet1 = side == 0;
    if (isTopLayer(via->layer, metal->layer)) {
      via->net1IsTopNet = throughNet1 ? 1 : 0;
    } else if (isBottomLayer(via->layer, metal->layer)) {
      via->net1IsTopNet = throughNet1 ? 0 : 1;
    }
    return;
  }
}

void zeNetwork::evalTopNet() {
  for (kraNode* node : nodes) {
    if (node->isVia()) {
      findNet1IsTopNet(node);
    }
  }
}

void zeNetwork::calculateLengths() {
  for (kraNode* node : nodes) {
    if (node->totalLength < 0.0) {
      processMetalSegment(node);
    }
  }
  if (evalCurrentDirection) {
    evalTopNet();
  }
  for (kraNode* node : nodes) {
    if (node->totalLength < 0.0) {
      processVia(node);
    }
  }
}

bool zeNetwork::identifySegmentAndFindLoop(kraNode* node) {
  if (node == nullptr) {
    return false;
  }
  workingSet.insert(node);
  node->marked = true;
  const bool loop1 = identifySegmentAndFindLoop(node->edge1, node);
  const bool loop2 = identifySegmentAndFindLoop(node->edge2, node);
  return loop1 || loop2;
}

bool zeNetwork::identifySegmentAndFindLoop(kraEdge* edge, kraNode* fromNode) {
  if (edge == nullptr || fromNode == nullptr) {
    return false;
  }
  // Depth first, in the order of the recursive walk: a same-layer node met unmarked joins the
  // group and is walked on through its other net; one met already marked means a loop. Every
  // branch is walked to the end whatever it finds, so the whole group is collected.
  bool loop = false;
  pgnet::detail::walkEdges(edge, fromNode, edgeFrames_, [&](const EdgeFrame& frame, kraNode* node) {
    if (node->layer != frame.from->layer) {
      return false;
    }
    if (node->marked) {
      loop = true;
      return false;
    }
    workingSet.insert(node);
    node->marked = true;
    return true;
  });
  return loop;
}
