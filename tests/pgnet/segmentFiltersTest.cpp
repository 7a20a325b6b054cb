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
using pgnet_test::names;
using pgnet_test::Piece;
using pgnet_test::segmentNames;

namespace {

TEST(MetalSegments, OneSegmentPerSameLayerGroupInNameOrder) {
  zeNetwork network(1.0, false);
  build(network, {{"b1", "n1", "n2"},
                  {"a1", "n2", "n3"},
                  {"c1", "n3", "n4", 1, 1, "M2"},
                  {"v1", "n3", "n5", 1, 1, "V12", "V"},
                  {"d1", "n6", "n7"},
                  {"t1", "x", "y"},
                  {"t2", "y", "z"},
                  {"t3", "z", "x"}});
  network.findMetalSegments();
  EXPECT_EQ(segmentNames(network.segments), "[b1 a1][c1][d1][t1 t2 t3]");
  std::vector<bool> loops;
  for (const auto& segment : network.segments) {
    loops.push_back(segment->hasLoop);
  }
  EXPECT_EQ(loops, (std::vector<bool>{false, false, false, true}));
  EXPECT_FALSE(network.findNode("v1")->marked);
  EXPECT_TRUE(network.findNode("d1")->marked);
}

// Runs the position filter over the whole network as one segment.
std::string positionStrips(zeNetwork& network) {
  network.findMetalSegments();
  network.filterStraightSegment(kraPositionFilter);
  return segmentNames(network.segments);
}

TEST(StraightStrips, AnLShapedRunGivesTwoStripsSharingTheCorner) {
  zeNetwork network(1.0, false);
  build(network, {{"h1", "a", "b", 1, 1, "M1", "nil", 0, 0},
                  {"h2", "b", "c", 1, 1, "M1", "nil", 1, 0},
                  {"k", "c", "d", 1, 1, "M1", "nil", 2, 0},
                  {"u1", "d", "e", 1, 1, "M1", "nil", 2, 1},
                  {"u2", "e", "f", 1, 1, "M1", "nil", 2, 2}});
  // Same x first (k u1 u2 at x = 2), then same y (h1 h2 k at y = 0).
  EXPECT_EQ(positionStrips(network), "[k u1 u2][h1 h2 k]");
}

TEST(StraightStrips, PositionsMatchWithinHalfAGridStepOfTheStripsFirstNode) {
  // A chain p-q-r with cadGrid 0.5, so x values match within 0.25; y values all differ.
  const struct {
    double xq, xr;
    const char* strips;
  } cases[] = {
      {0.0, 0.0, "[p q r]"},      {0.25, 0.25, "[p q r]"},
      {0.25, 0.2500001, "[p q]"},  // r is 0.25 from q but more than 0.25 from p
      {0.2500001, 0.0, ""},        // p and r share x but q separates them: one node each
      {-0.25, 0.5, "[p q]"},      {0.3, 0.3, "[q r]"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.xq << " " << c.xr);
    zeNetwork network(0.5, false);
    build(network, {{"p", "a", "b", 1, 1, "M1", "nil", 0.0, 0},
                    {"q", "b", "c", 1, 1, "M1", "nil", c.xq, 10},
                    {"r", "c", "d", 1, 1, "M1", "nil", c.xr, 20}});
    EXPECT_EQ(positionStrips(network), c.strips);
  }
}

TEST(StraightStrips, ANodeJoinsTheFirstStripItMatches) {
  // Star at net b, walked a then b: strips [a1] (x 0) and [b1] (x 0.5) exist when c1 (x 0.25)
  // comes; it matches both and joins the first.
  zeNetwork network(0.5, false);
  build(network, {{"a1", "a", "b", 1, 1, "M1", "nil", 0.0, 0},
                  {"b1", "b", "c", 1, 1, "M1", "nil", 0.5, 10},
                  {"c1", "b", "d", 1, 1, "M1", "nil", 0.25, 20}});
  EXPECT_EQ(positionStrips(network), "[a1 c1]");
}

TEST(StraightStrips, WidthStripsAndTheFullFilter) {
  zeNetwork network(1.0, false);
  build(network, {{"w1", "a", "b", 1, 1.0, "M1", "nil", 0, 0},
                  {"w2", "b", "c", 1, 1.0, "M1", "nil", 0, 1},
                  {"w3", "c", "d", 1, 2.0, "M1", "nil", 0, 2},
                  {"w4", "d", "e", 1, 2.0, "M1", "nil", 0, 3}});
  network.findMetalSegments();
  network.filterStraightSegment(kraPositionFilter);
  EXPECT_EQ(segmentNames(network.segments), "[w1 w2 w3 w4]");
  network.filterStraightSegment(kraWidthFilter);
  EXPECT_EQ(segmentNames(network.segments), "[w1 w2][w3 w4]");
}

TEST(StraightStrips, NothingForNullEmptySingleOrUnknownType) {
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"s", "a", "b", 1, 1, "M1", "nil", 0, 0},
                                    {"t", "b", "c", 1, 1, "M1", "nil", 0, 1}});
  kraSegmentList out;
  network.findStraightSegments(nullptr, kraPositionFilter, out);
  kraSegment empty(std::vector<kraNode*>{});
  network.findStraightSegments(&empty, kraPositionFilter, out);
  kraSegment single(std::vector<kraNode*>{made[0]});
  network.findStraightSegments(&single, kraPositionFilter, out);
  network.findStraightSegments(&single, kraWidthFilter, out);
  kraSegment pair(made);
  network.findStraightSegments(&pair, static_cast<kraFilterType>(7), out);
  EXPECT_TRUE(out.empty());
  network.findStraightSegments(&pair, kraWidthFilter, out);
  EXPECT_EQ(segmentNames(out), "[s t]");
}

TEST(Separator, KeepsConnectedPartsOfTwoOrMore) {
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"a", "1", "2"},
                                    {"x", "9", "8"},
                                    {"b", "2", "3"},
                                    {"c", "4", "5"},
                                    {"d", "5", "6"},
                                    {"e", "6", "7"},
                                    {"link", "3", "4", 1, 1, "M1"}});
  // "link" joins the two parts but is not in the segment, so it does not connect them.
  network.segments.push_back(std::make_unique<kraSegment>(
      std::vector<kraNode*>{made[0], made[1], made[2], made[3], made[4], made[5]}));
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
    std::vector<Piece> extra;
    bool kept;
  } cases[] = {
      {"a plain strip", {}, true},
      {"a branch on the same layer in the middle", {{"o", "b", "e"}}, false},
      {"a branch on another layer", {{"o", "b", "e", 1, 1, "M2"}}, true},
      {"a via in the middle", {{"o", "b", "e", 1, 1, "V12", "V"}}, true},
      // Counted from the walk's side an end net has no strip node besides the one the walk
      // came from, so a same-layer stranger there does not fail the strip.
      {"a same-layer node at the far end", {{"o", "d", "e"}}, true},
      {"a same-layer node at the first node's outer net", {{"o", "a", "e"}}, true},
      {"a branch two nets away", {{"o", "c", "e"}}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.title);
    zeNetwork network(1.0, false);
    // s1 s2 s3 over nets a b c d; the extra node is created last.
    const auto made = build(network, {{"s1", "a", "b"}, {"s2", "b", "c"}, {"s3", "c", "d"}});
    for (const Piece& p : c.extra) {
      build(network, {p});
    }
    EXPECT_EQ(keeps(made), c.kept);
  }
}

TEST(JogFilter, OrderOnTheNetDoesNotMatter) {
  // The stranger on net b comes before the strip's next node in set order.
  zeNetwork network(1.0, false);
  const auto made = build(network, {{"s1", "a", "b"}, {"o", "b", "e"}, {"s2", "b", "c"}});
  EXPECT_FALSE(keeps({made[0], made[2]}));
}

TEST(JogFilter, EndsOnStripsWithCycles) {
  zeNetwork network(1.0, false);
  // p1 and p2 both join nets f and g.
  const auto made = build(
      network,
      {{"p1", "f", "g"}, {"p2", "g", "f"}, {"r1", "u", "w"}, {"r2", "w", "u"}, {"r3", "u", "w"}});
  EXPECT_TRUE(keeps({made[0], made[1]}));
  EXPECT_TRUE(keeps({made[2], made[3], made[4]}));
  // q2 on net f is outside the strip while p2 continues it.
  build(network, {{"q2", "f", "k"}});
  EXPECT_FALSE(keeps({made[0], made[1]}));
}

TEST(JogFilter, NullAndEmptySegmentsAreKept) {
  EXPECT_TRUE(kraJogOrBranchFilter(nullptr).result());
  kraSegment empty(std::vector<kraNode*>{});
  EXPECT_TRUE(kraJogOrBranchFilter(&empty).result());
  EXPECT_TRUE(kraJogOrBranchFilter(&empty).checkBanchOrJog(nullptr, nullptr));
}

TEST(JogFilter, DropsFailingSegmentsFromTheList) {
  zeNetwork network(1.0, false);
  const auto made = build(
      network,
      {{"s1", "a", "b"}, {"s2", "b", "c"}, {"o", "b", "e"}, {"t1", "x", "y"}, {"t2", "y", "z"}});
  network.segments.push_back(std::make_unique<kraSegment>(std::vector<kraNode*>{made[0], made[1]}));
  network.segments.push_back(std::make_unique<kraSegment>(std::vector<kraNode*>{made[3], made[4]}));
  network.filterSegmentsWithJogOrBranch();
  EXPECT_EQ(segmentNames(network.segments), "[t1 t2]");
}

TEST(Filtering, DebugDumpsOnlyWhenAskedFor) {
  for (bool debug : {false, true}) {
    SCOPED_TRACE(debug);
    zeNetwork network(1.0, debug);
    std::ostringstream out;
    network.debugOut = &out;
    build(network,
          {{"s1", "a", "b", 1, 1, "M1", "nil", 0, 0}, {"s2", "b", "c", 1, 1, "M1", "nil", 0, 1}});
    network.findMetalSegments();
    network.filterSegmentsByPhysicalProperties();
    EXPECT_EQ(segmentNames(network.segments), "[s1 s2]");
    const std::string dump =
        "\n\n\nSegment : 0\n"
        "\nNode 0 :\nName:\ts1\nX   :\t0\nY   :\t0\n"
        "\nNode 1 :\nName:\ts2\nX   :\t0\nY   :\t1\n";
    const std::string expected =
        "\n\n  Start of filtering:\n\n" + dump + "\n\n  After position filtering:\n\n" + dump +
        "\n\n  After width filtering:\n\n" + dump + "\n\n  After jog filtering:\n\n" + dump;
    EXPECT_EQ(out.str(), debug ? expected : "");
  }
}

}  // namespace
