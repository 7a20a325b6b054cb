// The network walks run on explicit stacks. Here they are checked against plain recursive
// versions written straight from the rules, on many small random networks, and on strips far
// deeper than any call stack would take.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "pgnet/segmentFilters.h"

using pgnet_test::lengthOutput;
using pgnet_test::names;
using pgnet_test::segmentNames;

namespace {

// Deeper than this, a reference walk is going round a cycle.
constexpr int kMaxDepth = 500;

struct RandomPiece {
  std::string name, net1, net2, layer, via;
  double length, width, x, y;
};

// Pieces over a few shared nets (many loops), or, for a tree, each piece bringing a new net and
// joining it to an earlier one (no loops, so the longest path decides).
std::vector<RandomPiece> randomPieces(std::mt19937& random, bool tree = false) {
  auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  const int count = 1 + below(14);
  const int nets = 2 + below(6);
  const int namePool = below(4) == 0 ? count / 2 + 1 : count;  // sometimes repeated names
  const double xs[] = {0.0, 0.2, 0.25, 0.5, 1.0};
  const double widths[] = {0.5, 1.0, 2.0};
  std::vector<RandomPiece> pieces;
  for (int i = 0; i < count; ++i) {
    RandomPiece p;
    p.name = "n" + std::to_string(below(namePool) * 7 % 100);
    if (tree) {
      p.net1 = "e" + std::to_string(i + 1);
      p.net2 = "e" + std::to_string(below(i + 1));
    } else {
      p.net1 = "e" + std::to_string(below(nets));
      p.net2 = below(12) == 0 ? p.net1 : "e" + std::to_string(below(nets));
    }
    const int kind = below(20);
    p.layer = kind < 12 ? "M1" : kind < 17 ? "M2" : "V12";
    p.via = kind < 17 ? "nil" : "V";
    p.length = below(8) == 0 ? -below(4) : 1 + below(9);
    p.width = widths[below(3)];
    p.x = xs[below(5)];
    p.y = xs[below(5)];
    pieces.push_back(p);
  }
  return pieces;
}

void buildFrom(zeNetwork& network, const std::vector<RandomPiece>& pieces) {
  network.setLayerStack({"V12", "M2", "M1"});
  for (const RandomPiece& p : pieces) {
    network.createNode({.name = p.name,
                        .net1 = p.net1,
                        .net2 = p.net2,
                        .length = p.length,
                        .width = p.width,
                        .layer = p.layer,
                        .viaType = p.via,
                        .x = p.x,
                        .y = p.y});
  }
}

// --- recursive references, written from the rules ---

struct Reference {
  std::vector<kraNode*> workingSet;
  bool tooDeep = false;

  bool identify(kraEdge* edge, kraNode* from, int depth) {
    if (edge == nullptr || from == nullptr) {
      return false;
    }
    if (depth > kMaxDepth) {
      tooDeep = true;
      return false;
    }
    bool loop = false;
    for (kraNode* node : edge->nodes()) {
      if (node == from || node->layer != from->layer) {
        continue;
      }
      if (!node->marked) {
        workingSet.push_back(node);
        node->marked = true;
        loop = identify(node->otherEdge(edge), node, depth + 1) || loop;
      } else {
        loop = true;
      }
    }
    return loop;
  }

  bool identify(kraNode* node) {
    workingSet.push_back(node);
    node->marked = true;
    const bool loop1 = identify(node->edge1, node, 0);
    const bool loop2 = identify(node->edge2, node, 0);
    return loop1 || loop2;
  }

  kraNode* longestPath(kraEdge* edge, kraNode* from, double& length, int depth) {
    if (edge == nullptr || from == nullptr) {
      return nullptr;
    }
    if (depth > kMaxDepth) {
      tooDeep = true;
      return nullptr;
    }
    if (edge->nodes().empty()) {
      length += from->length;
      return from;
    }
    kraNode* far = from;
    for (kraNode* node : edge->nodes()) {
      if (node == from || node->layer != from->layer) {
        continue;
      }
      double branch = 0.0;
      kraNode* end = longestPath(node->otherEdge(edge), node, branch, depth + 1);
      if (end != nullptr && branch > length) {
        length = branch;
        far = end;
      }
    }
    length += from->length;
    return far;
  }

  std::vector<kraNode*> sortedSet() const {
    std::vector<kraNode*> set = workingSet;
    std::sort(set.begin(), set.end(), pgnet::bySeq);
    set.erase(std::unique(set.begin(), set.end()), set.end());
    return set;
  }

  // The length calculation of the metal groups, recursively.
  void metalLengths(zeNetwork& network) {
    for (kraNode* node : network.nodes) {
      if (!(node->totalLength < 0.0) || node->isVia()) {
        continue;
      }
      workingSet.clear();
      const bool loop = identify(node);
      const std::vector<kraNode*> set = sortedSet();
      double total = 0.0;
      if (network.evalTotalSum || loop || set.size() < 3) {
        for (kraNode* member : set) {
          total += member->length;
        }
      } else {
        kraNode* leaf = nullptr;
        for (kraNode* member : set) {
          if (zeNetwork::isLeafNode(member)) {
            leaf = member;
            break;
          }
        }
        if (leaf == nullptr) {
          continue;
        }
        double length1 = 0.0;
        double length2 = 0.0;
        kraNode* end1 = longestPath(leaf->edge1, leaf, length1, 0);
        kraNode* end2 = longestPath(leaf->edge2, leaf, length2, 0);
        kraNode* far = length2 > length1 ? end2 : end1;
        double back1 = 0.0;
        double back2 = 0.0;
        longestPath(far->edge1, far, back1, 0);
        longestPath(far->edge2, far, back2, 0);
        total = back2 > back1 ? back2 : back1;
      }
      for (kraNode* member : set) {
        member->totalLength = total;
      }
    }
  }
};

struct StripReference {
  StripReference(const kraSegment* s, double t) : segment(s), tolerance(t) {}
  const kraSegment* segment;
  double tolerance;
  int mode = 0;
  std::vector<std::vector<kraNode*>> strips;
  std::vector<std::vector<kraNode*>> results;

  double key(const kraNode* node) const {
    return mode == 1 ? node->x : mode == 2 ? node->width : node->y;
  }
  void add(kraNode* node) {
    for (auto& strip : strips) {
      if (node->marked) {
        break;
      }
      if (zeNetwork::compareFloatValue(key(node), key(strip.front()), 0.5 * tolerance)) {
        node->marked = true;
        strip.push_back(node);
      }
    }
    if (!node->marked) {
      node->marked = true;
      strips.push_back({node});
    }
  }
  void walk(kraEdge* edge, kraNode* from) {
    if (edge == nullptr) {
      return;
    }
    for (kraNode* node : edge->nodes()) {
      if (node != from && !node->marked && segment->contains(node)) {
        add(node);
        walk(node->otherEdge(edge), node);
      }
    }
  }
  void pass(int passMode) {
    mode = passMode;
    for (kraNode* node : segment->nodes()) {
      node->marked = false;
    }
    kraNode* first = segment->getAnyNode();
    add(first);
    walk(first->edge1, first);
    walk(first->edge2, first);
    for (auto& strip : strips) {
      if (strip.size() >= 2) {
        results.push_back(strip);
      }
    }
    strips.clear();
  }
};

struct SeparatorReference {
  explicit SeparatorReference(const kraSegment* s) : segment(s) {}
  const kraSegment* segment;
  std::vector<kraNode*> component;
  void walk(kraEdge* edge, kraNode* from) {
    if (edge == nullptr) {
      return;
    }
    for (kraNode* node : edge->nodes()) {
      if (node != from && !node->marked && segment->contains(node)) {
        component.push_back(node);
        node->marked = true;
        walk(node->otherEdge(edge), node);
      }
    }
  }
};

struct JogReference {
  explicit JogReference(const kraSegment* s) : segment(s) {}
  const kraSegment* segment;
  // Calls in progress; meeting one again means the recursion would never end.
  std::vector<std::pair<kraEdge*, kraNode*>> path;
  bool cyclic = false;

  bool check(kraEdge* edge, kraNode* from) {
    if (edge == nullptr || from == nullptr || edge->nodes().empty()) {
      return true;
    }
    if (cyclic) {
      return true;
    }
    for (const auto& call : path) {
      if (call.first == edge && call.second == from) {
        cyclic = true;
        return true;
      }
    }
    path.emplace_back(edge, from);
    const bool result = checkNets(edge, from);
    path.pop_back();
    return result;
  }

  bool checkNets(kraEdge* edge, kraNode* from) {
    int inside = 0;
    int outside = 0;
    for (kraNode* node : edge->nodes()) {
      if (node == from || node->layer != from->layer) {
        continue;
      }
      if (segment->contains(node)) {
        if (!check(node->otherEdge(edge), node)) {
          return false;
        }
        ++inside;
      } else {
        ++outside;
      }
      if (inside > 0 && outside > 0) {
        return false;
      }
    }
    return true;
  }
};

std::string listNames(const std::vector<std::vector<kraNode*>>& lists) {
  std::string text;
  for (std::vector<kraNode*> list : lists) {
    std::sort(list.begin(), list.end(), pgnet::bySeq);
    text += '[' + names(list) + ']';
  }
  return text;
}

TEST(WalksAgainstRecursion, MetalGroupsAndLengths) {
  std::mt19937 random(12345);
  int loopsSeen = 0;
  int longestPathsSeen = 0;
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    const std::vector<RandomPiece> pieces = randomPieces(random, round % 2 == 1);
    const bool totalSum = round % 5 == 0;

    zeNetwork ours(1.0, false);
    buildFrom(ours, pieces);
    ours.evalTotalSum = totalSum;
    ours.evalCurrentDirection = true;
    ours.calculateLengths();

    zeNetwork theirs(1.0, false);
    buildFrom(theirs, pieces);
    theirs.evalTotalSum = totalSum;
    theirs.evalCurrentDirection = true;
    Reference reference;
    reference.metalLengths(theirs);
    ASSERT_FALSE(reference.tooDeep);
    theirs.evalTopNet();
    for (kraNode* node : theirs.nodes) {
      if (node->totalLength < 0.0) {
        theirs.processVia(node);
      }
    }
    ASSERT_EQ(lengthOutput(ours), lengthOutput(theirs));

    // Groups and loop flags, one by one, as findMetalSegments sees them.
    zeNetwork groups(1.0, false);
    buildFrom(groups, pieces);
    groups.findMetalSegments();
    zeNetwork groupsRef(1.0, false);
    buildFrom(groupsRef, pieces);
    std::string expected;
    for (kraNode* node : groupsRef.nodes) {
      if (node->marked || node->isVia()) {
        continue;
      }
      Reference walk;
      const bool loop = walk.identify(node);
      loopsSeen += loop ? 1 : 0;
      longestPathsSeen += !loop && walk.sortedSet().size() >= 3 ? 1 : 0;
      expected += '[' + names(walk.sortedSet()) + (loop ? " loop" : "") + ']';
    }
    std::string actual;
    for (const auto& segment : groups.segments) {
      actual += '[' + names(segment->nodes()) + (segment->hasLoop ? " loop" : "") + ']';
    }
    ASSERT_EQ(actual, expected);
  }
  // The random networks do reach both kinds of group.
  EXPECT_GT(loopsSeen, 100);
  EXPECT_GT(longestPathsSeen, 100);
}

TEST(WalksAgainstRecursion, StripsPartsJogsAndLeaves) {
  std::mt19937 random(777);
  const double grids[] = {0.5, 0.0, 1.0, 0.4};
  int stripsSeen = 0;
  int jogFailures = 0;
  for (int round = 0; round < 1500; ++round) {
    SCOPED_TRACE(round);
    const std::vector<RandomPiece> pieces = randomPieces(random, round % 3 == 1);
    const double grid = grids[round % 4];
    zeNetwork network(grid, false);
    buildFrom(network, pieces);
    network.findMetalSegments();
    for (const auto& segment : network.segments) {
      for (kraFilterType type : {kraPositionFilter, kraWidthFilter}) {
        kraStraightSegmentFinder finder(segment.get(), grid, type);
        StripReference reference(segment.get(), grid);
        if (type == kraPositionFilter) {
          reference.pass(1);
          reference.pass(0);
        } else {
          reference.pass(2);
        }
        ASSERT_EQ(segmentNames(finder.results()), listNames(reference.results));
        stripsSeen += static_cast<int>(reference.results.size());
      }

      kraSegmentSeprator separator(segment.get());
      SeparatorReference parts(segment.get());
      std::vector<std::vector<kraNode*>> expectedParts;
      for (kraNode* node : segment->nodes()) {
        node->marked = false;
      }
      for (kraNode* node : segment->nodes()) {
        if (node->marked) {
          continue;
        }
        parts.component = {node};
        node->marked = true;
        parts.walk(node->edge1, node);
        parts.walk(node->edge2, node);
        if (parts.component.size() >= 2) {
          expectedParts.push_back(parts.component);
        }
      }
      ASSERT_EQ(segmentNames(separator.results()), listNames(expectedParts));

      // The jog check on the group itself and on each of its straight strips.
      std::vector<const kraSegment*> checked = {segment.get()};
      kraStraightSegmentFinder strips(segment.get(), grid, kraPositionFilter);
      for (const auto& strip : strips.results()) {
        checked.push_back(strip.get());
      }
      for (const kraSegment* candidate : checked) {
        JogReference jog(candidate);
        kraNode* first = candidate->getAnyNode();
        const bool check1 = jog.check(first->edge1, first);
        const bool check2 = jog.check(first->edge2, first);
        const bool ours = kraJogOrBranchFilter(candidate).result();
        if (!jog.cyclic) {
          ASSERT_EQ(ours, check1 && check2) << names(candidate->nodes());
          jogFailures += ours ? 0 : 1;
        }
      }

      // The leaf of every walk position, where the reference walk ends.
      for (kraNode* node : segment->nodes()) {
        for (kraEdge* edge : {node->edge1, node->edge2}) {
          kraEdgeNodePair pair{node, edge};
          int steps = 0;
          for (kraEdgeNodePair next = segment->getNextNode(pair);
               next.node != nullptr && steps < kMaxDepth; next = segment->getNextNode(next)) {
            pair = next;
            ++steps;
          }
          if (steps < kMaxDepth) {
            ASSERT_EQ(segment->getLeafNode({node, edge}), pair);
          }
        }
      }
    }
  }
  EXPECT_GT(stripsSeen, 1000);
  EXPECT_GT(jogFailures, 100);
}

TEST(DeepStrips, AStraightStripOfManyPiecesNeedsNoCallStack) {
  // 150000 pieces in one line, created from both ends towards the middle so that the walks
  // meet the set order in both directions. Lengths of 1 make the expected values plain.
  constexpr int kPieces = 150000;
  zeNetwork network(1.0, false);
  std::vector<int> order;
  for (int lo = 0, hi = kPieces - 1; lo <= hi; ++lo, --hi) {
    order.push_back(lo);
    if (hi != lo) {
      order.push_back(hi);
    }
  }
  for (int i : order) {
    const std::string name = "s" + std::to_string(i);
    const std::string net1 = "n" + std::to_string(i);
    const std::string net2 = "n" + std::to_string(i + 1);
    network.createNode({.name = name,
                        .net1 = net1,
                        .net2 = net2,
                        .length = 1.0,
                        .width = 1.0,
                        .layer = "M1",
                        .viaType = "nil",
                        .x = 5.0,
                        .y = static_cast<double>(i)});
  }
  network.calculateLengths();
  EXPECT_EQ(network.findNode("s0")->totalLength, kPieces);
  EXPECT_EQ(network.findNode("s75000")->totalLength, kPieces);

  for (kraNode* node : network.nodes) {
    node->marked = false;
  }
  network.findMetalSegments();
  ASSERT_EQ(network.segments.size(), 1u);
  network.filterSegmentsByPhysicalProperties();
  ASSERT_EQ(network.segments.size(), 1u);
  EXPECT_EQ(network.segments[0]->size(), static_cast<size_t>(kPieces));
  const kraSegment& strip = *network.segments[0];
  kraNode* middle = network.findNode("s75000");
  const kraEdgeNodePair leaf = strip.getLeafNode({middle, middle->edge1});
  EXPECT_EQ(leaf.node->name, "s0");
  EXPECT_EQ(leaf.edge->name, "n0");
}

}  // namespace
