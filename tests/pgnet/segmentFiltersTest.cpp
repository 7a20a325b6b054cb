// What the random networks of walkReferenceTest do not reach: a node matching two strips, null,
// empty and single-node segments, cycles in the jog/branch walk, and the filtering debug dump.

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

bool keeps(const std::vector<kraNode*>& strip) {
  kraSegment segment(strip);
  return kraJogOrBranchFilter(&segment).result();
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
