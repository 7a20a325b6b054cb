// The network walks run on explicit stacks. Here they are checked against plain recursive
// versions written straight from the rules, on many small random networks, and on strips far
// deeper than any call stack would take.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "pgnet/segmentFilters.h"

using pgnet_test::lengthOutput;
using pgnet_test::names;
using pgnet_test::segmentNames;

namespace {

// Deeper than this, a leaf walk is going round a cycle.
constexpr int kMaxDepth = 500;

struct RandomPiece {
  std::string name, net1, net2, layer, via;
  double length, width, x, y;
};

// Pieces over a few shared nets (many loops), or, for a tree, each piece bringing a new net and
// joining it to an earlier one (no loops, so the longest path decides).
std::vector<RandomPiece> randomPieces(std::mt19937& random, bool tree) {
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
    p.net1 = "e" + std::to_string(tree ? i + 1 : below(nets));
    p.net2 = tree             ? "e" + std::to_string(below(i + 1))
             : below(12) == 0 ? p.net1
                              : "e" + std::to_string(below(nets));
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

std::unique_ptr<zeNetwork> buildFrom(const std::vector<RandomPiece>& pieces, double grid = 1.0) {
  auto network = std::make_unique<zeNetwork>(grid, false);
  network->setLayerStack({"V12", "M2", "M1"});
  for (const RandomPiece& p : pieces) {
    network->createNode({p.name, p.net1, p.net2, p.length, p.width, p.layer, p.via, p.x, p.y});
  }
  return network;
}

// --- recursive references, written from the rules ---

// The same-layer group walk: collects and marks nodes; true when it meets a marked one.
bool identify(kraEdge* edge, kraNode* from, std::vector<kraNode*>& group) {
  bool loop = false;
  for (kraNode* node : edge != nullptr ? edge->nodes() : std::span<kraNode* const>()) {
    if (node == from || node->layer != from->layer) {
      continue;
    }
    if (node->marked) {
      loop = true;
      continue;
    }
    group.push_back(node);
    node->marked = true;
    loop = identify(node->otherEdge(edge), node, group) || loop;
  }
  return loop;
}

// The group of a node in creation order, and whether it has a loop.
std::pair<std::vector<kraNode*>, bool> groupOf(kraNode* node) {
  std::vector<kraNode*> group = {node};
  node->marked = true;
  const bool loop1 = identify(node->edge1, node, group);
  const bool loop = identify(node->edge2, node, group) || loop1;
  std::sort(group.begin(), group.end(), pgnet::bySeq);
  return {group, loop};
}

kraNode* longestPath(kraEdge* edge, kraNode* from, double& length) {
  if (edge == nullptr) {
    return nullptr;
  }
  kraNode* far = from;
  for (kraNode* node : edge->nodes()) {
    if (node == from || node->layer != from->layer) {
      continue;
    }
    double branch = 0.0;
    kraNode* end = longestPath(node->otherEdge(edge), node, branch);
    if (end != nullptr && branch > length) {
      length = branch;
      far = end;
    }
  }
  length += from->length;
  return far;
}

// The length calculation of the metal groups, recursively.
void metalLengths(zeNetwork& network) {
  for (kraNode* node : network.nodes) {
    if (!(node->totalLength < 0.0) || node->isVia()) {
      continue;
    }
    const auto [group, loop] = groupOf(node);
    double total = 0.0;
    if (network.evalTotalSum || loop || group.size() < 3) {
      for (kraNode* member : group) {
        total += member->length;
      }
    } else {
      auto leaf = std::find_if(group.begin(), group.end(),
                               [](kraNode* n) { return zeNetwork::isLeafNode(n); });
      if (leaf == group.end()) {
        continue;
      }
      double length1 = 0.0;
      double length2 = 0.0;
      kraNode* end1 = longestPath((*leaf)->edge1, *leaf, length1);
      kraNode* end2 = longestPath((*leaf)->edge2, *leaf, length2);
      kraNode* far = length2 > length1 ? end2 : end1;
      double back1 = 0.0;
      double back2 = 0.0;
      longestPath(far->edge1, far, back1);
      longestPath(far->edge2, far, back2);
      total = std::max(back1, back2);
    }
    for (kraNode* member : group) {
      member->totalLength = total;
    }
  }
}

// Depth first through `edge` and on through the other net of every unmarked segment node met.
template <class Take>
void walkSegment(const kraSegment* segment, kraEdge* edge, kraNode* from, Take& take) {
  if (edge == nullptr) {
    return;
  }
  for (kraNode* node : edge->nodes()) {
    if (node != from && !node->marked && segment->contains(node)) {
      take(node);
      walkSegment(segment, node->otherEdge(edge), node, take);
    }
  }
}

void clearMarks(const kraSegment* segment) {
  for (kraNode* node : segment->nodes()) {
    node->marked = false;
  }
}

// Strips of one position pass (mode 1: x, 0: y, 2: width), each node joining the first
// strip whose first node matches.
void stripPass(const kraSegment* segment, double tolerance, int mode,
               std::vector<std::vector<kraNode*>>& results) {
  auto key = [mode](const kraNode* n) { return mode == 1 ? n->x : mode == 2 ? n->width : n->y; };
  std::vector<std::vector<kraNode*>> strips;
  auto add = [&](kraNode* node) {
    node->marked = true;
    for (auto& strip : strips) {
      if (zeNetwork::compareFloatValue(key(node), key(strip.front()), 0.5 * tolerance)) {
        strip.push_back(node);
        return;
      }
    }
    strips.push_back({node});
  };
  clearMarks(segment);
  kraNode* first = segment->getAnyNode();
  add(first);
  walkSegment(segment, first->edge1, first, add);
  walkSegment(segment, first->edge2, first, add);
  for (auto& strip : strips) {
    if (strip.size() >= 2) {
      results.push_back(strip);
    }
  }
}

// The recursive jog/branch check. `path` holds the calls in progress: meeting one again means
// a cycle, where the recursion would never end, and sets `cyclic`.
bool jogCheck(const kraSegment* segment, kraEdge* edge, kraNode* from,
              std::vector<std::pair<kraEdge*, kraNode*>>& path, bool& cyclic) {
  if (edge == nullptr || edge->nodes().empty() || cyclic) {
    return true;
  }
  if (std::find(path.begin(), path.end(), std::make_pair(edge, from)) != path.end()) {
    cyclic = true;
    return true;
  }
  path.emplace_back(edge, from);
  int inside = 0;
  int outside = 0;
  bool result = true;
  for (kraNode* node : edge->nodes()) {
    if (node == from || node->layer != from->layer) {
      continue;
    }
    const bool in = segment->contains(node);
    if (in && !jogCheck(segment, node->otherEdge(edge), node, path, cyclic)) {
      result = false;
      break;
    }
    ++(in ? inside : outside);
    if (inside > 0 && outside > 0) {
      result = false;
      break;
    }
  }
  path.pop_back();
  return result;
}

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

    auto configured = [&] {
      auto network = buildFrom(pieces);
      network->evalTotalSum = round % 5 == 0;
      network->evalCurrentDirection = true;
      return network;
    };
    auto ours = configured();
    ours->calculateLengths();
    auto theirs = configured();
    metalLengths(*theirs);
    theirs->evalTopNet();
    for (kraNode* node : theirs->nodes) {
      if (node->totalLength < 0.0) {
        theirs->processVia(node);
      }
    }
    ASSERT_EQ(lengthOutput(*ours), lengthOutput(*theirs));

    // Groups and loop flags, one by one, as findMetalSegments sees them.
    auto groups = buildFrom(pieces);
    groups->findMetalSegments();
    auto groupsRef = buildFrom(pieces);
    std::string expected;
    for (kraNode* node : groupsRef->nodes) {
      if (node->marked || node->isVia()) {
        continue;
      }
      const auto [group, loop] = groupOf(node);
      loopsSeen += loop ? 1 : 0;
      longestPathsSeen += !loop && group.size() >= 3 ? 1 : 0;
      expected += '[' + names(group) + (loop ? " loop" : "") + ']';
    }
    std::string actual;
    for (const auto& segment : groups->segments) {
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
    const double grid = grids[round % 4];
    auto network = buildFrom(randomPieces(random, round % 3 == 1), grid);
    network->findMetalSegments();
    for (const auto& segment : network->segments) {
      for (kraFilterType type : {kraPositionFilter, kraWidthFilter}) {
        kraStraightSegmentFinder finder(segment.get(), grid, type);
        std::vector<std::vector<kraNode*>> expected;
        for (int mode : type == kraPositionFilter ? std::vector{1, 0} : std::vector{2}) {
          stripPass(segment.get(), grid, mode, expected);
        }
        ASSERT_EQ(segmentNames(finder.results()), listNames(expected));
        stripsSeen += static_cast<int>(expected.size());
      }

      kraSegmentSeprator separator(segment.get());
      std::vector<std::vector<kraNode*>> expectedParts;
      clearMarks(segment.get());
      for (kraNode* node : segment->nodes()) {
        if (node->marked) {
          continue;
        }
        std::vector<kraNode*> part;
        auto take = [&](kraNode* next) {
          part.push_back(next);
          next->marked = true;
        };
        take(node);
        walkSegment(segment.get(), node->edge1, node, take);
        walkSegment(segment.get(), node->edge2, node, take);
        if (part.size() >= 2) {
          expectedParts.push_back(part);
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
        std::vector<std::pair<kraEdge*, kraNode*>> path;
        bool cyclic = false;
        kraNode* first = candidate->getAnyNode();
        const bool check1 = jogCheck(candidate, first->edge1, first, path, cyclic);
        const bool check2 = jogCheck(candidate, first->edge2, first, path, cyclic);
        const bool ours = kraJogOrBranchFilter(candidate).result();
        if (!cyclic) {
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
  // 150000 pieces of length 1 in one line at x = 5 between square vias T1 and T2 of V1 (M1 is
  // its lower layer), created from both ends towards the middle so that the walks meet the set
  // order in both directions.
  constexpr int kPieces = 150000;
  auto make = [] {
    auto network = std::make_unique<zeNetwork>(1.0, false);
    network->setLayerStack({"V1", "M2", "M1"});
    const std::string last = "n" + std::to_string(kPieces);
    network->createNode({"T1", "n0", "u0", 1, 1, "V1", "squareVia", 5, -1});
    network->createNode({"T2", last, "u1", 1, 1, "V1", "squareVia", 5, kPieces});
    auto piece = [&](int i) {
      const std::string name = "s" + std::to_string(i);
      const std::string net1 = "n" + std::to_string(i);
      const std::string net2 = "n" + std::to_string(i + 1);
      network->createNode({name, net1, net2, 1.0, 1.0, "M1", "nil", 5.0, 1.0 * i});
    };
    for (int lo = 0, hi = kPieces - 1; lo <= hi; ++lo, --hi) {
      piece(lo);
      if (hi != lo) {
        piece(hi);
      }
    }
    return network;
  };

  auto lengths = make();
  lengths->calculateLengths();
  EXPECT_EQ(lengths->findNode("s0")->totalLength, kPieces);
  EXPECT_EQ(lengths->findNode("s75000")->totalLength, kPieces);
  EXPECT_EQ(lengths->findNode("T2")->totalLength, kPieces);

  // The whole strip is one power grid: s0 flows with the walk, the last piece against it.
  auto grids = make();
  pgnet::PGSessionData data;
  data.instances = {{"T1", 0, 1.0}, {"T2", 0, 1.0}, {"s0", 1, 8.0}, {"s149999", 0, 2.0}};
  ASSERT_TRUE(grids->processPG(&data, nullptr));
  ASSERT_EQ(grids->segments.size(), 1u);
  const kraSegment& strip = *grids->segments[0];
  EXPECT_EQ(strip.size(), static_cast<size_t>(kPieces));
  kraNode* middle = grids->findNode("s75000");
  const kraEdgeNodePair leaf = strip.getLeafNode({middle, middle->edge1});
  EXPECT_EQ(leaf.node->name, "s0");
  EXPECT_EQ(leaf.edge->name, "n0");
  ASSERT_EQ(grids->powerGrids.size(), 1u);
  EXPECT_EQ(grids->powerGrids[0]->nodes.size(), static_cast<size_t>(kPieces));
  EXPECT_EQ(grids->powerGrids[0]->lv2v, kPieces + 1.0);
  EXPECT_EQ(grids->powerGrids[0]->currentDiff, 0.75);
}

}  // namespace
