// Metal segments, straight strips, connected parts and the jog/branch filter on hand-built
// networks.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "pgnet/segmentFilters.h"

using pgnet_test::build;
using pgnet_test::segmentNames;

namespace {

TEST(MetalSegments, OneSegmentPerSameLayerGroupInNameOrder) {
  zeNetwork network(1.0, false);
  build(
      network,
      "b1 n1 n2; a1 n2 n3; c1 n3 n4 1 1 M2; v1 n3 n5 1 1 V12 V; d1 n6 n7; t1 x y; t2 y z; t3 z x");
  network.findMetalSegments();
  std::string loops;
  for (const auto& segment : network.segments) {
    loops += segment->hasLoop ? "L" : "-";
  }
  EXPECT_EQ(segmentNames(network.segments), "[b1 a1][c1][d1][t1 t2 t3]");
  EXPECT_EQ(loops, "---L");
  EXPECT_FALSE(network.findNode("v1")->marked);
}

TEST(StraightStrips, PositionThenWidthStrips) {
  struct Spot {
    const char* name;
    double x, y, width = 1.0;
  };
  const struct {
    const char* what;
    double grid;
    std::vector<Spot> chain;  // pieces chained over nets n0, n1, ... in this order
    const char* position;     // strips after the position filter
    const char* width;        // and then after the width filter; null: the same
  } cases[] = {
      // Same x first (k u1 u2 at x = 2), then same y (h1 h2 k at y = 0).
      {"an L-shaped run",
       1.0,
       {{"h1", 0, 0}, {"h2", 1, 0}, {"k", 2, 0}, {"u1", 2, 1}, {"u2", 2, 2}},
       "[k u1 u2][h1 h2 k]",
       nullptr},
      {"two widths on one line",
       1.0,
       {{"w1", 0, 0, 1}, {"w2", 0, 1, 1}, {"w3", 0, 2, 2}, {"w4", 0, 3, 2}},
       "[w1 w2 w3 w4]",
       "[w1 w2][w3 w4]"},
      // x values match within half a grid step (0.25) of the strip's first node.
      {"within half a step",
       0.5,
       {{"p", 0, 0}, {"q", 0.25, 10}, {"r", 0.25, 20}},
       "[p q r]",
       nullptr},
      {"r near q but not p",
       0.5,
       {{"p", 0, 0}, {"q", 0.25, 10}, {"r", 0.2500001, 20}},
       "[p q]",
       nullptr},
      {"q between p and r", 0.5, {{"p", 0, 0}, {"q", 0.2500001, 10}, {"r", 0, 20}}, "", nullptr},
      {"r too far from p", 0.5, {{"p", 0, 0}, {"q", -0.25, 10}, {"r", 0.5, 20}}, "[p q]", nullptr},
      {"p alone", 0.5, {{"p", 0, 0}, {"q", 0.3, 10}, {"r", 0.3, 20}}, "[q r]", nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    zeNetwork network(c.grid, false);
    std::vector<std::string> nets;
    for (size_t i = 0; i <= c.chain.size(); ++i) {
      nets.push_back("n" + std::to_string(i));
    }
    for (size_t i = 0; i < c.chain.size(); ++i) {
      const Spot& s = c.chain[i];
      network.createNode({s.name, nets[i], nets[i + 1], 1, s.width, "M1", "nil", s.x, s.y});
    }
    network.findMetalSegments();
    network.filterStraightSegment(kraPositionFilter);
    EXPECT_EQ(segmentNames(network.segments), c.position);
    network.filterStraightSegment(kraWidthFilter);
    EXPECT_EQ(segmentNames(network.segments), c.width != nullptr ? c.width : c.position);
  }
}

TEST(StraightStrips, ANodeJoinsTheFirstStripItMatches) {
  // Star at net b, walked a then b: strips [a1] (x 0) and [b1] (x 0.5) exist when c1 (x 0.25)
  // comes; it matches both and joins the first.
  zeNetwork network(0.5, false);
  build(network, "a1 a b 1 1 M1 nil 0.0 0; b1 b c 1 1 M1 nil 0.5 10; c1 b d 1 1 M1 nil 0.25 20");
  network.findMetalSegments();
  network.filterStraightSegment(kraPositionFilter);
  EXPECT_EQ(segmentNames(network.segments), "[a1 c1]");

  // Null, empty and single-node segments and unknown filter types give nothing.
  kraSegmentList out;
  network.findStraightSegments(nullptr, kraPositionFilter, out);
  kraSegment empty(std::vector<kraNode*>{});
  network.findStraightSegments(&empty, kraPositionFilter, out);
  kraSegment single(std::vector<kraNode*>{network.findNode("a1")});
  network.findStraightSegments(&single, kraWidthFilter, out);
  network.findStraightSegments(network.segments[0].get(), static_cast<kraFilterType>(7), out);
  EXPECT_TRUE(out.empty());
}

TEST(Separator, KeepsConnectedPartsOfTwoOrMore) {
  zeNetwork network(1.0, false);
  const auto made = build(network, "a 1 2; x 9 8; b 2 3; c 4 5; d 5 6; e 6 7; link 3 4 1 1 M1");
  // "link" joins the two parts but is not in the segment, so it does not connect them.
  network.segments.push_back(
      std::make_unique<kraSegment>(std::vector<kraNode*>(made.begin(), made.end() - 1)));
  network.separateOutSegments();
  EXPECT_EQ(segmentNames(network.segments), "[a b][c d e]");
}

bool keeps(const std::vector<kraNode*>& strip) {
  kraSegment segment(strip);
  return kraJogOrBranchFilter(&segment).result();
}

TEST(JogFilter, StripsThatContinueAndBranchAtOneNetFail) {
  const struct {
    const char* title;
    const char* extra;
    bool kept;
  } cases[] = {
      {"a plain strip", "", true},
      {"a branch on the same layer in the middle", "o b e", false},
      {"a branch on another layer", "o b e 1 1 M2", true},
      {"a via in the middle", "o b e 1 1 V12 V", true},
      // Counted from the walk's side an end net has no strip node besides the one the walk
      // came from, so a same-layer stranger there does not fail the strip.
      {"a same-layer node at the far end", "o d e", true},
      {"a same-layer node at the first node's outer net", "o a e", true},
      {"a branch two nets away", "o c e", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.title);
    zeNetwork network(1.0, false);
    // s1 s2 s3 over nets a b c d; the extra node is created last.
    const auto made = build(network, "s1 a b; s2 b c; s3 c d");
    build(network, c.extra);
    EXPECT_EQ(keeps(made), c.kept);
  }
}

TEST(JogFilter, SetOrderCyclesAndEmptySegments) {
  zeNetwork network(1.0, false);
  // The stranger o on net b comes before the strip's next node in set order. p1 and p2 both
  // join nets f and g; r1, r2 and r3 all join u and w; t1 t2 is a plain strip.
  const auto made = build(
      network, "s1 a b; o b e; s2 b c; p1 f g; p2 g f; r1 u w; r2 w u; r3 u w; t1 x y; t2 y z");
  EXPECT_FALSE(keeps({made[0], made[2]}));
  EXPECT_TRUE(keeps({made[3], made[4]}));
  EXPECT_TRUE(keeps({made[5], made[6], made[7]}));
  build(network, "q2 f k");  // outside the strip on f, where p2 continues it
  EXPECT_FALSE(keeps({made[3], made[4]}));

  EXPECT_TRUE(kraJogOrBranchFilter(nullptr).result());
  kraSegment empty(std::vector<kraNode*>{});
  EXPECT_TRUE(kraJogOrBranchFilter(&empty).result());

  // The network's step keeps only the segments that pass.
  network.segments.push_back(std::make_unique<kraSegment>(std::vector<kraNode*>{made[0], made[2]}));
  network.segments.push_back(std::make_unique<kraSegment>(std::vector<kraNode*>{made[8], made[9]}));
  network.filterSegmentsWithJogOrBranch();
  EXPECT_EQ(segmentNames(network.segments), "[t1 t2]");
}

TEST(Filtering, DebugDumpsOnlyWhenAskedFor) {
  for (bool debug : {false, true}) {
    SCOPED_TRACE(debug);
    zeNetwork network(1.0, debug);
    std::ostringstream out;
    network.debugOut = &out;
    build(network, "s1 a b 1 1 M1 nil 0 -2; s2 b c 1 1 M1 nil 0 1.5");
    network.findMetalSegments();
    network.filterSegmentsByPhysicalProperties();
    EXPECT_EQ(segmentNames(network.segments), "[s1 s2]");
    const std::string dump =
        "\n\n\nSegment : 0\n"
        "\nNode 0 :\nName:\ts1\nX   :\t0\nY   :\t-2\n"
        "\nNode 1 :\nName:\ts2\nX   :\t0\nY   :\t1.5\n";
    const std::string expected =
        "\n\n  Start of filtering:\n\n" + dump + "\n\n  After position filtering:\n\n" + dump +
        "\n\n  After width filtering:\n\n" + dump + "\n\n  After jog filtering:\n\n" + dump;
    EXPECT_EQ(out.str(), debug ? expected : "");
  }
}

}  // namespace
