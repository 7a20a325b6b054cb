// The network model: node kinds and directions, nets, the name index, layers and dumps.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>

#include "db/designGlobals.h"
#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "pgnet/segment.h"

using pgnet_test::build;
using pgnet_test::names;

namespace {

TEST(Node, ViaTypeWordsAreExactAndCaseSensitive) {
  const struct {
    const char* word;
    uint32_t type;
    bool terminal;
  } cases[] = {
      {"V", 1, false},
      {"nil", 0, false},
      {"viaArray", 5, true},
      {"singleSquareVia", 2, false},
      {"fracturedVia", 4, false},
      {"rectangleVia", 3, true},
      {"squareVia", 6, true},
      {"VIA", 0, false},
      {"squarevia", 0, false},
      {"v", 0, false},
      {"Nil", 0, false},
      {"viaArray ", 0, false},
      {"", 0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.word);
    EXPECT_EQ(kraNode::getViaType(c.word), c.type);
    kraNode node;
    node.viaType = kraNode::getViaType(c.word);
    EXPECT_EQ(node.isTerminalVia(), c.terminal);
    EXPECT_EQ(node.isVia(), c.type != 0);
  }
}

TEST(Node, OppositeDirectionsSwapPairsAndDropTheRest) {
  const int expected[] = {0, 2, 1, 4, 3, 6, 5, 0, 0};
  for (int dir = 0; dir <= 8; ++dir) {
    SCOPED_TRACE(dir);
    EXPECT_EQ(getOppositeCurrDir(dir), expected[dir]);
  }
  EXPECT_EQ(getOppositeCurrDir(-1), 0);
}

TEST(Node, SetCurrentDirMapsTheSourceFlagByNodeKind) {
  const struct {
    uint32_t viaType;
    int flag;
    int expected;
  } cases[] = {
      {kraV, 1, 1},     {kraV, 0, 2},     {kraSquareVia, 1, 1}, {kraMetal, 1, 3},
      {kraMetal, 0, 4}, {kraMetal, 2, 6}, {kraV, -1, 6},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.viaType << " flag " << c.flag);
    kraNode node;
    node.viaType = c.viaType;
    node.currentDir = kraViaInOutSecond;  // an unchanged direction shows as 6
    node.setCurrentDir(c.flag);
    EXPECT_EQ(node.currentDir, c.expected);
  }
}

TEST(Network, CreateNodeFillsTheFieldsAndJoinsBothNets) {
  zeNetwork network(1.0, false);
  kraNode* node = network.createNode({.name = "r1",
                                      .net1 = "n1",
                                      .net2 = "n2",
                                      .length = 2.5,
                                      .width = 0.5,
                                      .layer = "M3",
                                      .viaType = "squareVia",
                                      .x = 3.0,
                                      .y = 4.0});
  EXPECT_EQ(node->name, "r1");
  EXPECT_EQ(node->layer, "M3");
  EXPECT_EQ(node->length, 2.5);
  EXPECT_EQ(node->width, 0.5);
  EXPECT_EQ(node->x, 3.0);
  EXPECT_EQ(node->y, 4.0);
  EXPECT_EQ(node->viaType, 6u);
  EXPECT_EQ(node->totalLength, -1.0);
  EXPECT_EQ(node->net1IsTopNet, -1);
  EXPECT_EQ(node->currentDir, 0);
  EXPECT_EQ(node->inOutDir, 0);
  EXPECT_EQ(node->current, 0.0);
  EXPECT_FALSE(node->marked);
  EXPECT_EQ(node->topMetalNode, nullptr);
  EXPECT_EQ(node->bottomMetalNode, nullptr);
  EXPECT_EQ(node->edge1, network.getEdge("n1"));
  EXPECT_EQ(node->edge2, network.getEdge("n2"));
  EXPECT_EQ(node->edge1->name, "n1");
  EXPECT_EQ(names(node->edge1->nodes()), "r1");
  EXPECT_EQ(names(node->edge2->nodes()), "r1");
  EXPECT_EQ(network.findNode("r1"), node);
  EXPECT_EQ(network.findNode("r2"), nullptr);
}

TEST(Network, NodeWhoseNetsHaveOneNameSitsOnceOnThatNet) {
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"a", "n", "n"}, {"b", "n", "m"}});
  EXPECT_EQ(made[0]->edge1, made[0]->edge2);
  EXPECT_EQ(names(network.getEdge("n")->nodes()), "a b");
  EXPECT_EQ(made[0]->otherEdge(made[0]->edge1), made[0]->edge1);
}

TEST(Network, NetsKeepTheirNodesInCreationOrder) {
  // Names and allocation order disagree on purpose: only creation order counts.
  zeNetwork network(1.0, false);
  build(network,
        {{"zz", "n", "a"}, {"aa", "b", "n"}, {"mm", "n", "c", 1, 1, "M1", "V"}, {"bb", "d", "n"}});
  EXPECT_EQ(names(network.getEdge("n")->nodes()), "zz aa mm bb");
  EXPECT_EQ(names(network.getEdge("n")->getViaNodes()), "mm");
  EXPECT_TRUE(network.getEdge("never")->nodes().empty());
}

TEST(Network, SameNameTwiceKeepsTheLaterNodeInTheIndexAndBothInTheirNets) {
  zeNetwork network(1.0, false);
  const auto made =
      build(network, {{"b", "n1", "n2", 1.0}, {"a", "n2", "n3"}, {"b", "n3", "n4", 7.0}});
  EXPECT_EQ(network.nodes.size(), 2u);
  EXPECT_EQ(names(network.nodes), "a b");
  EXPECT_EQ(network.findNode("b"), made[2]);
  EXPECT_EQ(names(network.getEdge("n2")->nodes()), "b a");
  EXPECT_EQ(network.createdNodeCount(), 3u);
}

TEST(Network, NameOrderIsByteWise) {
  zeNetwork network(1.0, false);
  build(network, {{"b", "1", "2"},
                  {"\xc3\xa9", "1", "2"},
                  {"B", "1", "2"},
                  {"a", "1", "2"},
                  {"a1", "1", "2"},
                  {"_", "1", "2"},
                  {"A", "1", "2"}});
  EXPECT_EQ(names(network.nodes), "A B _ a a1 b \xc3\xa9");
}

TEST(Network, LayerStackIsReadInCompleteTriples) {
  const struct {
    std::vector<std::string> list;
    std::string upper;  // "via=metal" pairs
    std::string lower;
  } cases[] = {
      {{}, "", ""},
      {{"V1", "M2"}, "", ""},
      {{"V1", "M2", "M1"}, "V1=M2", "V1=M1"},
      {{"V1", "M2", "M1", "V2"}, "V1=M2", "V1=M1"},
      {{"V1", "M2", "M1", "V2", "M3", "M2"}, "V1=M2 V2=M3", "V1=M1 V2=M2"},
      {{"V1", "M2", "M1", "V1", "M9", "M8"}, "V1=M9", "V1=M8"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.list));
    zeNetwork network(1.0, false);
    network.setLayerStack({"OLD", "X", "Y"});
    network.setLayerStack(c.list);
    auto text = [](const std::map<std::string, std::string, std::less<>>& map) {
      std::string out;
      for (const auto& [via, metal] : map) {
        out += (out.empty() ? "" : " ") + via + "=" + metal;
      }
      return out;
    };
    EXPECT_EQ(text(network.upperLayerOf), c.upper);
    EXPECT_EQ(text(network.lowerLayerOf), c.lower);
  }
}

TEST(Network, LayerTestsNeedAKnownViaLayerAndAnExactName) {
  zeNetwork network(1.0, false);
  network.setLayerStack({"V12", "M2", "M1"});
  EXPECT_TRUE(network.isTopLayer("V12", "M2"));
  EXPECT_FALSE(network.isTopLayer("V12", "M1"));
  EXPECT_FALSE(network.isTopLayer("V12", "m2"));
  EXPECT_TRUE(network.isBottomLayer("V12", "M1"));
  EXPECT_FALSE(network.isBottomLayer("V12", "M2"));
  EXPECT_FALSE(network.isTopLayer("V23", "M2"));
  EXPECT_FALSE(network.isBottomLayer("M1", "M1"));
}

TEST(Network, CompareFloatValueAcceptsEqualOrWithinTolerance) {
  const double inf = std::numeric_limits<double>::infinity();
  const struct {
    double a, b, tolerance;
    bool same;
  } cases[] = {
      {1.0, 1.0, 0.0, true},   {1.0, 1.25, 0.25, true},
      {1.25, 1.0, 0.25, true}, {1.0, 1.5, 0.25, false},
      {0.0, -0.0, 0.0, true},  {1.0, 1.0, -1.0, true},
      {1.0, 1.1, -1.0, false}, {inf, inf, 0.0, true},
      {inf, -inf, inf, true},  {std::nan(""), std::nan(""), inf, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.a << " " << c.b << " " << c.tolerance);
    EXPECT_EQ(zeNetwork::compareFloatValue(c.a, c.b, c.tolerance), c.same);
  }
}

TEST(Network, LeafNodesHaveNoSameLayerNeighbourOnOneNet) {
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"a", "n1", "n2"},
                                    {"b", "n2", "n3"},
                                    {"c", "n3", "n4", 1, 1, "M2"},
                                    {"d", "n4", "n1", 1, 1, "V12", "V"},
                                    {"e", "n2", "n5"}});
  kraNode* a = made[0];
  EXPECT_TRUE(zeNetwork::isLeafNode(a->edge1, a));  // d sits on n1 but is on another layer
  EXPECT_FALSE(zeNetwork::isLeafNode(a->edge2, a));
  EXPECT_TRUE(zeNetwork::isLeafNode(a));
  EXPECT_FALSE(zeNetwork::isLeafNode(made[1]->edge1, made[1]));
  EXPECT_TRUE(zeNetwork::isLeafNode(made[1]));  // leaf on its second net only
  EXPECT_FALSE(zeNetwork::isLeafNode(nullptr, a));
  EXPECT_FALSE(zeNetwork::isLeafNode(a->edge1, nullptr));
  EXPECT_FALSE(zeNetwork::isLeafNode(nullptr));
  made[3]->layer = "M1";  // the same layer name makes a neighbour, via or not
  EXPECT_FALSE(zeNetwork::isLeafNode(a->edge1, a));
}

TEST(Dumps, NodeSegmentPairAndNetworkPrintTheirFixedFormats) {
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"a", "n1", "n2", 1, 1, "M1", "nil", 1.5, -2.0},
                                    {"b", "n2", "n3", 1, 1, "M1", "nil", 1e7, 0.1}});
  std::ostringstream node;
  made[0]->dump(node);
  EXPECT_EQ(node.str(), "Name:\ta\nX   :\t1.5\nY   :\t-2\n");

  kraSegment segment(std::vector<kraNode*>{made[1], made[0]});
  std::ostringstream segmentText;
  segment.dump(segmentText);
  EXPECT_EQ(segmentText.str(),
            "\nNode 0 :\nName:\ta\nX   :\t1.5\nY   :\t-2\n"
            "\nNode 1 :\nName:\tb\nX   :\t1e+07\nY   :\t0.1\n");

  std::ostringstream pairs;
  kraEdgeNodePair{made[0], made[0]->edge1}.dump(pairs);
  kraEdgeNodePair{made[0], made[0]->edge1}.getOppositePair().dump(pairs);
  EXPECT_EQ(pairs.str(), "a\t: n1\t: head\na\t: n2\t: tail\n");

  network.segments.push_back(std::make_unique<kraSegment>(std::vector<kraNode*>{made[1]}));
  std::ostringstream net;
  network.dump(net);
  EXPECT_EQ(net.str(), "\n\n\nSegment : 0\n\nNode 0 :\nName:\tb\nX   :\t1e+07\nY   :\t0.1\n");
}

TEST(Segment, KeepsCreationOrderAndAnswersLayerAndMembership) {
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"z", "n1", "n2", 1, 1, "M4"},
                                    {"a", "n2", "n3", 1, 1, "M4"},
                                    {"q", "n3", "n4", 1, 1, "M4"}});
  kraSegment segment(std::vector<kraNode*>{made[2], made[0], made[2]});
  EXPECT_EQ(names(segment.nodes()), "z q");
  EXPECT_EQ(segment.size(), 2u);
  EXPECT_EQ(segment.getAnyNode(), made[0]);
  EXPECT_EQ(segment.getLayer(), "M4");
  EXPECT_TRUE(segment.contains(made[2]));
  EXPECT_FALSE(segment.contains(made[1]));
  kraSegment empty(std::vector<kraNode*>{});
  EXPECT_EQ(empty.getLayer(), "");
  EXPECT_EQ(empty.getAnyNode(), nullptr);
}

TEST(Segment, LeafAndNextFollowTheStripAndStopOnALoop) {
  zeNetwork network(1.0, false);
  // A strip s1-s2-s3 (nets a..d), a stranger on net b, and a pair p1/p2 forming a loop.
  const auto made = build(network, {{"s2", "b", "c"},
                                    {"s1", "a", "b"},
                                    {"x", "b", "e"},
                                    {"s3", "d", "c"},
                                    {"p1", "f", "g"},
                                    {"p2", "g", "f"}});
  kraSegment strip(std::vector<kraNode*>{made[0], made[1], made[3]});
  kraNode* s2 = made[0];
  const kraEdgeNodePair leaf = strip.getLeafNode({s2, s2->edge1});
  EXPECT_EQ(leaf.node->name, "s1");
  EXPECT_EQ(leaf.edge->name, "a");
  const kraEdgeNodePair next = strip.getNextNode(leaf.getOppositePair());
  EXPECT_EQ(next.node->name, "s2");
  EXPECT_EQ(next.edge->name, "c");
  const kraEdgeNodePair last = strip.getNextNode(next);
  EXPECT_EQ(last.node->name, "s3");
  EXPECT_EQ(last.edge->name, "d");
  EXPECT_EQ(strip.getNextNode(last).node, nullptr);
  EXPECT_EQ(strip.getLeafNode({s2, s2->edge2}).node->name, "s3");
  EXPECT_EQ(strip.getNextNode({s2, nullptr}).node, nullptr);

  kraSegment loop(std::vector<kraNode*>{made[4], made[5]});
  const kraEdgeNodePair end = loop.getLeafNode({made[4], made[4]->edge1});
  EXPECT_NE(end.node, nullptr);  // it returns at all: the loop has no end
}

}  // namespace

namespace {

TEST(Nets, ManyNetsAreAllFoundByNameAndKeptInCreationOrder) {
  zeNetwork network(1.0, false);
  // Names that share long prefixes and differ only at the end, across several table growths.
  constexpr int kNets = 20000;
  for (int i = 0; i < kNets; ++i) {
    kraEdge* edge = network.getEdge("VDD/block/net_" + std::to_string(i));
    ASSERT_EQ(edge, &network.edges[static_cast<size_t>(i)]);
  }
  EXPECT_EQ(network.edges.size(), static_cast<size_t>(kNets));
  for (int i = kNets - 1; i >= 0; --i) {
    const std::string name = "VDD/block/net_" + std::to_string(i);
    kraEdge* edge = network.edges.find(name);
    ASSERT_NE(edge, nullptr) << name;
    EXPECT_EQ(edge->name, name);
    EXPECT_EQ(network.getEdge(name), edge);
  }
  EXPECT_EQ(network.edges.find("VDD/block/net_"), nullptr);
  EXPECT_EQ(network.edges.find(""), nullptr);
  EXPECT_EQ(network.edges.size(), static_cast<size_t>(kNets));
  kraEdge* empty = network.getEdge("");
  EXPECT_EQ(network.edges.find(""), empty);
}

TEST(Nets, InsertKeepsCreationOrderWithoutDuplicates) {
  zeNetwork network(1.0, false);
  std::vector<kraNode*> made;
  for (int i = 0; i < 7; ++i) {
    made.push_back(network.createNode({.name = "n" + std::to_string(i),
                                       .net1 = "a" + std::to_string(i),
                                       .net2 = "b",
                                       .layer = "M1",
                                       .viaType = "nil"}));
  }
  kraEdge* edge = network.getEdge("loose");
  for (int i : {3, 1, 5, 1, 0, 6, 3, 2, 4, 6}) {
    edge->insert(made[static_cast<size_t>(i)]);
  }
  EXPECT_EQ(names(edge->nodes()), "n0 n1 n2 n3 n4 n5 n6");
  EXPECT_EQ(names(network.getEdge("b")->nodes()), "n0 n1 n2 n3 n4 n5 n6");
  kraEdge* small = network.getEdge("small");
  small->insert(made[4]);
  small->insert(made[2]);
  small->insert(made[4]);
  EXPECT_EQ(names(small->nodes()), "n2 n4");
}

TEST(Network, DefaultsComeFromTheDesignAndTheEnvironment) {
  unsetenv("KRA2_INTERNAL_DEBUG");
  {
    zeNetwork network;
    EXPECT_FALSE(network.debug);
    EXPECT_EQ(network.cadGrid, 1.0 / hlm::global::getDBU());
  }
  setenv("KRA2_INTERNAL_DEBUG", "", 1);
  {
    zeNetwork network;
    EXPECT_TRUE(network.debug);
  }
  unsetenv("KRA2_INTERNAL_DEBUG");
}

}  // namespace

namespace {

TEST(Segment, LargeSegmentsAnswerMembershipLikeSmallOnes) {
  zeNetwork network(1.0, false);
  std::vector<kraNode*> all;
  for (int i = 0; i < 3000; ++i) {
    all.push_back(network.createNode({.name = "n" + std::to_string(i),
                                      .net1 = "a" + std::to_string(i),
                                      .net2 = "a" + std::to_string(i + 1),
                                      .layer = "M1",
                                      .viaType = "nil"}));
  }
  // Every third node, handed over back to front; sizes on both sides of the table threshold.
  for (size_t count : {10u, 63u, 64u, 1000u}) {
    SCOPED_TRACE(count);
    std::vector<kraNode*> members;
    for (size_t i = 0; i < count; ++i) {
      members.push_back(all[3 * (count - 1 - i)]);
    }
    kraSegment segment(members);
    ASSERT_EQ(segment.size(), count);
    for (size_t i = 0; i < 3 * count; ++i) {
      const ptrdiff_t expected = i % 3 == 0 ? static_cast<ptrdiff_t>(i / 3) : -1;
      ASSERT_EQ(segment.indexOf(all[i]), expected) << i;
      ASSERT_EQ(segment.contains(all[i]), expected >= 0);
    }
    EXPECT_FALSE(segment.contains(all[2999]));
  }
}

}  // namespace
