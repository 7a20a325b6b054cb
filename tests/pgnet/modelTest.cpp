// The network model: node kinds and directions, nets, the name index, layers and segments.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "db/designGlobals.h"
#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "pgnet/segment.h"

using pgnet_test::build;
using pgnet_test::names;

namespace {

TEST(Node, OppositeDirections) {
  // The via words and the directions from the source flag are cases of
  // tests/data/app/rules.txt.
  const int opposite[] = {0, 2, 1, 4, 3, 6, 5, 0};
  for (int dir = -1; dir <= 7; ++dir) {
    EXPECT_EQ(getOppositeCurrDir(dir), dir < 0 ? 0 : opposite[dir]) << dir;
  }
}

TEST(Network, NetsHoldTheirNodesOnceInCreationOrder) {
  // Names and creation order disagree on purpose: only creation order counts.
  zeNetwork network(1.0, false);
  const auto made = build(network, "zz n n; aa b n; mm n c 1 1 M1 V; bb d n; cc e f");
  EXPECT_EQ(made[0]->edge1, made[0]->edge2);
  EXPECT_EQ(made[0]->otherEdge(made[0]->edge1), made[0]->edge1);
  EXPECT_EQ(names(network.getEdge("n")->nodes()), "zz aa mm bb");
  EXPECT_EQ(names(network.getEdge("n")->getViaNodes()), "mm");
  EXPECT_TRUE(network.getEdge("never")->nodes().empty());

  // Inserting out of order and twice, past the nodes held in place.
  kraEdge* loose = network.getEdge("loose");
  for (int i : {3, 1, 4, 1, 0, 3, 2, 4}) {
    loose->insert(made[static_cast<size_t>(i)]);
  }
  EXPECT_EQ(names(loose->nodes()), "zz aa mm bb cc");
  kraEdge* small = network.getEdge("small");
  for (int i : {4, 2, 4}) {
    small->insert(made[static_cast<size_t>(i)]);
  }
  EXPECT_EQ(names(small->nodes()), "mm cc");
}

TEST(Network, NameIndexIsByteWiseAndKeepsTheLaterOfTwoNames) {
  zeNetwork network(1.0, false);
  const auto made =
      build(network, "b n1 n2 1.0; a n2 n3; b n3 n4 7.0; \xc3\xa9 1 2; B 1 2; a1 1 2; _ 1 2");
  EXPECT_EQ(names(network.nodes), "B _ a a1 b \xc3\xa9");
  EXPECT_EQ(network.findNode("b"), made[2]);
  EXPECT_EQ(network.findNode("c"), nullptr);
  EXPECT_EQ(names(network.getEdge("n2")->nodes()), "b a");
  EXPECT_EQ(network.createdNodeCount(), 7u);
}

TEST(Network, LeafNodesHaveNoSameLayerNeighbourOnOneNet) {
  zeNetwork network(1.0, false);
  const auto made = build(network, "a n1 n2; b n2 n3; d n4 n1 1 1 V12 V; e n2 n5");
  kraNode* a = made[0];
  EXPECT_TRUE(zeNetwork::isLeafNode(a->edge1, a));  // d sits on n1 but is on another layer
  EXPECT_FALSE(zeNetwork::isLeafNode(a->edge2, a));
  EXPECT_TRUE(zeNetwork::isLeafNode(a));
  EXPECT_TRUE(zeNetwork::isLeafNode(made[1]));  // leaf on its second net only
  EXPECT_FALSE(zeNetwork::isLeafNode(nullptr));
  made[2]->layer = "M1";  // the same layer name makes a neighbour, via or not
  EXPECT_FALSE(zeNetwork::isLeafNode(a->edge1, a));
}

TEST(Network, DefaultsComeFromTheDesignAndTheEnvironment) {
  unsetenv("KRA2_INTERNAL_DEBUG");
  EXPECT_FALSE(zeNetwork().debug);
  EXPECT_EQ(zeNetwork().cadGrid, 1.0 / hlm::global::getDBU());
  setenv("KRA2_INTERNAL_DEBUG", "", 1);
  EXPECT_TRUE(zeNetwork().debug);
  unsetenv("KRA2_INTERNAL_DEBUG");
}

TEST(Segment, KeepsCreationOrderAndAnswersLayerAndMembership) {
  zeNetwork network(1.0, false);
  const auto made = build(network, "z n1 n2 1 1 M4; a n2 n3 1 1 M4; q n3 n4 1 1 M4");
  kraSegment segment(std::vector<kraNode*>{made[2], made[0], made[2]});
  EXPECT_EQ(names(segment.nodes()), "z q");
  EXPECT_EQ(segment.getLayer(), "M4");
  EXPECT_FALSE(segment.contains(made[1]));
  kraSegment empty(std::vector<kraNode*>{});
  EXPECT_EQ(empty.getLayer(), "");
  EXPECT_EQ(empty.getAnyNode(), nullptr);

  // Large segments answer from a table: sizes on both sides of its threshold, every third of
  // a chain of nodes, handed over back to front.
  std::vector<kraNode*> all;
  for (int i = 0; i < 3000; ++i) {
    all.push_back(build(network, "n" + std::to_string(i) + " x y")[0]);
  }
  for (size_t count : {10u, 63u, 64u, 1000u}) {
    SCOPED_TRACE(count);
    std::vector<kraNode*> members;
    for (size_t i = 0; i < count; ++i) {
      members.push_back(all[3 * (count - 1 - i)]);
    }
    kraSegment large(members);
    ASSERT_EQ(large.size(), count);
    for (size_t i = 0; i < 3 * count; ++i) {
      ASSERT_EQ(large.indexOf(all[i]), i % 3 == 0 ? static_cast<ptrdiff_t>(i / 3) : -1) << i;
    }
    EXPECT_FALSE(large.contains(all[2999]));
  }
}

TEST(Segment, LeafAndNextFollowTheStripAndStopOnALoop) {
  zeNetwork network(1.0, false);
  // A strip s1-s2-s3 (nets a..d), a stranger on net b, and a pair p1/p2 forming a loop.
  const auto made = build(network, "s2 b c; s1 a b; x b e; s3 d c; p1 f g; p2 g f");
  kraSegment strip(std::vector<kraNode*>{made[0], made[1], made[3]});
  kraNode* s2 = made[0];
  const kraEdgeNodePair leaf = strip.getLeafNode({s2, s2->edge1});
  EXPECT_EQ(leaf, (kraEdgeNodePair{made[1], network.getEdge("a")}));
  const kraEdgeNodePair next = strip.getNextNode(leaf.getOppositePair());
  EXPECT_EQ(next, (kraEdgeNodePair{s2, network.getEdge("c")}));
  const kraEdgeNodePair last = strip.getNextNode(next);
  EXPECT_EQ(last, (kraEdgeNodePair{made[3], network.getEdge("d")}));
  EXPECT_EQ(strip.getNextNode(last).node, nullptr);
  EXPECT_EQ(strip.getLeafNode({s2, s2->edge2}), last);
  EXPECT_EQ(strip.getNextNode({s2, nullptr}).node, nullptr);

  kraSegment loop(std::vector<kraNode*>{made[4], made[5]});
  EXPECT_NE(loop.getLeafNode({made[4], made[4]->edge1}).node, nullptr);  // it returns at all
}

}  // namespace
