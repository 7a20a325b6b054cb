// Metal and via lengths of whole length-data files. Every expected output below was worked out
// by hand from the length rules; the comments show the working.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>

#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"

using pgnet_test::build;
using pgnet_test::lengthOutput;

namespace {

struct LengthCase {
  const char* title;
  const char* input;
  bool currentDirection;
  bool totalSum;
  const char* expected;
};

std::string calculate(const LengthCase& c) {
  zeNetwork network(0.001, false);
  network.setLayerStack({"V12", "M2", "M1"});
  network.evalCurrentDirection = c.currentDirection;
  network.evalTotalSum = c.totalSum;
  std::istringstream in(c.input);
  EXPECT_TRUE(network.readLengthData(in)) << network.errorMessage;
  return lengthOutput(network);
}

TEST(Lengths, MetalGroups) {
  const LengthCase cases[] = {
      {"a group of one keeps its own length", "m a b 2.5 1 M1 nil\n", false, false, "m\t2.5\tM\n"},
      // Two pieces are summed even where the longest path would be the same.
      {"a group of two is summed", "m1 a b 10 1 M1 nil\nm2 b c 20 1 M1 nil\n", false, false,
       "m1\t30\tM\nm2\t30\tM\n"},
      {"other layers never join a group", "m1 a b 10 1 M1 nil\nm2 b c 20 1 M2 nil\n", false, false,
       "m1\t10\tM\nm2\t20\tM\n"},
      // Star at b: the longest leaf-to-leaf path is m1+m2 = 30, the sum would be 35.
      {"three pieces take the longest path",
       "m1 a b 10 1 M1 nil\nm2 b c 20 1 M1 nil\n"
       "m3 b d 5 1 M1 nil\n",
       false, false, "m1\t30\tM\nm2\t30\tM\nm3\t30\tM\n"},
      {"evalTotalSum sums every group",
       "m1 a b 10 1 M1 nil\nm2 b c 20 1 M1 nil\n"
       "m3 b d 5 1 M1 nil\n",
       false, true, "m1\t35\tM\nm2\t35\tM\nm3\t35\tM\n"},
      {"a loop is summed", "m1 a b 1 1 M1 nil\nm2 b c 2 1 M1 nil\nm3 c a 4 1 M1 nil\n", false,
       false, "m1\t7\tM\nm2\t7\tM\nm3\t7\tM\n"},
      // Chain p1-p2-p3-p4 of 1 each with a spur s of 10 at c. From the leaf p1 the far end is s
      // (12 against 1); from s the two branches at c tie at 2, so the total is 2 + 10 = 12.
      {"the second sweep starts from the far end",
       "p1 a b 1 1 M1 nil\np2 b c 1 1 M1 nil\np3 c d 1 1 M1 nil\np4 d e 1 1 M1 nil\n"
       "s c f 10 1 M1 nil\n",
       false, false, "p1\t12\tM\np2\t12\tM\np3\t12\tM\np4\t12\tM\ns\t12\tM\n"},
      // m1+m2 = -4 stays negative, so m2 is measured again: it is marked and its neighbour m1
      // too, which counts as a loop, and m2 alone gives 1.
      {"a negative group is measured again from its next node",
       "m1 a b -5 1 M1 nil\nm2 b c 1 1 M1 nil\n", false, false, "m1\t-4\tM\nm2\t1\tM\n"},
      {"an empty file has no lines", "", false, false, ""},
      {"six significant digits", "m a b 1234567.25 1 M1 nil\nn c d 0.000012345678 1 M1 nil\n",
       false, false, "m\t1.23457e+06\tM\nn\t1.23457e-05\tM\n"},
  };
  for (const LengthCase& c : cases) {
    SCOPED_TRACE(c.title);
    EXPECT_EQ(calculate(c), c.expected);
  }
}

TEST(Lengths, Vias) {
  const LengthCase cases[] = {
      // v1: net c has m2 (M1 group m1+m2 = 30), net d has t1 (7). 30 > 7, so 30 and layer M1;
      // M1 is below V12 (bottom m2), M2 above (top t1). c's metal is on the lower layer: 0.
      {"a via takes the longer side",
       "m1 a b 10 1 M1 nil\nm2 b c 20 1 M1 nil\n"
       "t1 d e 7 1 M2 nil\nv1 c d 0.5 1 V12 V\n",
       true, false, "m1\t30\tM\nm2\t30\tM\nt1\t7\tM\nv1\t30\tV\tM1\tt1\tm2\t0\n"},
      {"without evalCurrentDirection there is no top-net column",
       "m1 a b 10 1 M1 nil\nt1 d e 7 1 M2 nil\nv1 b d 0.5 1 V12 V\n", false, false,
       "m1\t10\tM\nt1\t7\tM\nv1\t10\tV\tM1\tt1\tm1\n"},
      // 5 against 9: the second side wins, the layer becomes M2; top and bottom are still
      // judged against V12, the via's own layer.
      {"top and bottom use the via's own layer",
       "m1 a b 5 1 M1 nil\nt1 c d 9 1 M2 nil\nv1 b c 1 1 V12 squareVia\n", false, false,
       "m1\t5\tM\nt1\t9\tM\nv1\t9\tV\tM2\tt1\tm1\n"},
      {"a via without metal keeps its own length", "v a b 0.25 1 V12 rectangleVia\n", true, false,
       "v\t0.25\tV\tV12\t##nil##\t##nil##\t-1\n"},
      {"a via next to vias only has no metal", "v1 a b 1 1 V12 V\nv2 b c 2 1 V12 viaArray\n", false,
       false, "v1\t1\tV\tV12\t##nil##\t##nil##\nv2\t2\tV\tV12\t##nil##\t##nil##\n"},
      {"via words are exact: VIA and squarevia are metal",
       "a n1 n2 3 1 V12 VIA\nb n3 n4 4 1 V12 squarevia\n", false, false, "a\t3\tM\nb\t4\tM\n"},
      // Net a: n1 (0.5) first, n2 (0.2) narrower, n3 (0.2) not strictly narrower, n4 negative.
      // Net q: k1, k2, k3 have negative widths and each replaces a negative best; k4 (0.7)
      // replaces k3; k5 (0.9) does not. The metal layers are not in the stack: no top/bottom.
      {"the nearest metal is the narrowest",
       "n1 a x 1 0.5 M3 nil\nn2 a y 2 0.2 M4 nil\nn3 a z 3 0.2 M5 nil\nn4 a w 4 -1 M6 nil\n"
       "v b a 0.1 1 V12 V\n"
       "k1 q x1 1 -2 M3 nil\nk2 q y1 2 -3 M4 nil\nk3 q z1 3 -1 M5 nil\nk4 q w1 4 0.7 M6 nil\n"
       "k5 q u1 5 0.9 M7 nil\nw q r 0.1 1 V12 V\n",
       false, false,
       "k1\t1\tM\nk2\t2\tM\nk3\t3\tM\nk4\t4\tM\nk5\t5\tM\n"
       "n1\t1\tM\nn2\t2\tM\nn3\t3\tM\nn4\t4\tM\n"
       "v\t2\tV\tM4\t##nil##\t##nil##\nw\t4\tV\tM6\t##nil##\t##nil##\n"},
      // va/vb: metal on the first net, upper (1) or lower (0). vc/vd: none on the first net,
      // so the second net decides the other way round. ve: the first net's metal is on M7,
      // neither upper nor lower, and the second net is not consulted.
      {"the top net of every via",
       "u1 a1 x1 1 1 M2 nil\nva a1 y1 1 1 V12 V\nl1 a2 x2 1 1 M1 nil\nvb a2 y2 1 1 V12 V\n"
       "u2 a3 x3 1 1 M2 nil\nvc y3 a3 1 1 V12 V\nl2 a4 x4 1 1 M1 nil\nvd y4 a4 1 1 V12 V\n"
       "o1 a5 x5 1 1 M7 nil\nu3 b5 x6 1 1 M2 nil\nve a5 b5 1 1 V12 V\n",
       true, false,
       "l1\t1\tM\nl2\t1\tM\no1\t1\tM\nu1\t1\tM\nu2\t1\tM\nu3\t1\tM\n"
       "va\t1\tV\tM2\tu1\t##nil##\t1\nvb\t1\tV\tM1\t##nil##\tl1\t0\n"
       "vc\t1\tV\tM2\tu2\t##nil##\t0\nvd\t1\tV\tM1\t##nil##\tl2\t1\n"
       "ve\t1\tV\tM2\tu3\t##nil##\t-1\n"},
  };
  for (const LengthCase& c : cases) {
    SCOPED_TRACE(c.title);
    EXPECT_EQ(calculate(c), c.expected);
  }
}

TEST(Lengths, LongestPathKeepsTheFirstOfEqualBranchesAndStartsFromTheCallersLength) {
  // f joins net b with two branches of 5; the one made first wins whatever its name. h is on
  // another layer.
  for (auto [first, second] : {std::pair{"b1", "b2"}, std::pair{"b2", "b1"}}) {
    SCOPED_TRACE(first);
    zeNetwork network(1.0, false);
    build(network, "f a b 1; " + std::string(first) + " b c 5; " + second + " b d 5; h c e 2 1 M2");
    kraNode* f = network.findNode("f");
    // A branch counts only when it beats the length the caller hands in.
    const struct {
      double start;
      const char* end;
      double length;
    } cases[] = {{0.0, first, 6.0}, {4.0, first, 6.0}, {5.0, "f", 6.0}, {100.0, "f", 101.0}};
    for (const auto& c : cases) {
      SCOPED_TRACE(c.start);
      double length = c.start;
      EXPECT_EQ(network.longestPath(f->edge2, f, length)->name, c.end);
      EXPECT_EQ(length, c.length);
    }
    double untouched = 3.0;
    EXPECT_EQ(network.longestPath(nullptr, f, untouched), nullptr);
    EXPECT_EQ(untouched, 3.0);
  }
}

}  // namespace
