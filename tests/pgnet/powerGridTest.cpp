// Current directions and power grids on hand-built strips.
//
// The base strip lies on M1 along y = 0 between two square vias of layer V1 (M1 is V1's
// lower layer):
//
//   u0        u2                 u4
//   T1        X                  T2
//   n0 --A-- n1 --B-- n2 --C-- n3 --D-- n4
//
// A..D are metal at x = 1..4, T1 at (0, 0), X (a plain via, not terminal) at (2.5, 0), T2 at
// (5, 0). A is created first, so the walk starts from A's outer net n0 and runs
// A:n0, A:n1, B:n2, C:n3, D:n4. Every node's net2 is the net after it, so a metal node's
// in/out direction is its own direction (3 with the walk for flag 1, 4 against it for flag
// 0). Seen from M1 (below the vias) a via of flag 1 (net 1 to net 2) has in/out direction 6
// and one of flag 0 has 5.

#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <sstream>
#include <string>
#include <vector>

#include "pgnet/dbNetwork.h"
#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"

using pgnet_test::build;
using pgnet_test::Piece;

namespace {

const std::vector<std::string> kStack = {"V1", "M2", "M1", "V2", "M3", "M2"};

std::vector<Piece> baseStrip() {
  return {{"T1", "n0", "u0", 1, 1, "V1", "squareVia", 0, 0},
          {"A", "n0", "n1", 1, 1, "M1", "nil", 1, 0},
          {"B", "n1", "n2", 1, 1, "M1", "nil", 2, 0},
          {"X", "n2", "u2", 1, 1, "V1", "V", 2.5, 0},
          {"C", "n2", "n3", 1, 1, "M1", "nil", 3, 0},
          {"D", "n3", "n4", 1, 1, "M1", "nil", 4, 0},
          {"T2", "n4", "u4", 1, 1, "V1", "squareVia", 5, 0}};
}

using Currents = std::vector<pgnet::InstanceCurrent>;

/// Directions for a clean run of direction 5: terminal vias 5, the middle via 6 and the two
/// end pieces in opposite senses along the walk.
Currents direction5() {
  return {{"T1", 0, 1.0}, {"T2", 0, 1.0}, {"X", 1, 1.0}, {"A", 1, 2.0},
          {"B", 1, 1.0},  {"C", 1, 1.0},  {"D", 0, 1.5}};
}

Currents direction6() {
  return {{"T1", 1, 1.0}, {"T2", 1, 1.0}, {"X", 0, 1.0}, {"A", 1, 2.0},
          {"B", 1, 1.0},  {"C", 1, 1.0},  {"D", 0, 1.5}};
}

void buildAll(zeNetwork& network, const std::vector<Piece>& pieces) {
  for (const Piece& p : pieces) {
    build(network, {p});
  }
  network.setLayerStack(kStack);
}

/// The PG data output of processPG over the pieces with the given instance currents.
std::string powerGrids(const std::vector<Piece>& pieces, const Currents& currents) {
  zeNetwork network(1.0, false);
  buildAll(network, pieces);
  pgnet::PGSessionData data;
  data.cadGrid = 0.001;
  data.instances = currents;
  EXPECT_TRUE(network.processPG(&data, nullptr));
  std::ostringstream out;
  network.writePGData(out);
  return out.str();
}

void setCurrent(Currents& currents, const char* name, int direction, double current) {
  for (pgnet::InstanceCurrent& c : currents) {
    if (c.name == name) {
      c.direction = direction;
      c.current = current;
      return;
    }
  }
  currents.push_back({name, direction, current});
}

TEST(PowerGrids, StripsBetweenTerminalVias) {
  struct Case {
    const char* what;
    std::vector<Piece> pieces;
    Currents currents;
    const char* expected;
  };
  std::vector<Case> cases;
  // Direction 5 lists the vias inside the run after the node before them; lv2v is the x
  // distance of the end vias on a common y, the difference |2 - 1.5| / 2.
  cases.push_back({"direction 5", baseStrip(), direction5(), "5\t0.25\tA\tB\tX\tC\tD\t\n"});
  // Direction 6 lists the terminal vias after the first and the last metal node instead.
  cases.push_back({"direction 6", baseStrip(), direction6(), "5\t0.25\tA\tT1\tB\tC\tD\tT2\t\n"});
  {
    Currents currents = direction5();
    setCurrent(currents, "D", 0, 0.0);
    cases.push_back({"zero current at the end", baseStrip(), currents, ""});
  }
  {
    Currents currents = direction5();
    setCurrent(currents, "A", 1, 0.0);
    cases.push_back({"zero current at the start", baseStrip(), currents, ""});
  }
  {
    Currents currents = direction5();
    setCurrent(currents, "D", 1, 1.5);
    cases.push_back({"both ends with the walk", baseStrip(), currents, ""});
  }
  {
    Currents currents = direction5();
    setCurrent(currents, "X", 0, 1.0);
    cases.push_back({"a middle via of the run's own direction", baseStrip(), currents, ""});
  }
  {
    // The middle pieces carry no data: only the two ends' currents count.
    Currents currents = direction5();
    std::erase_if(currents, [](const pgnet::InstanceCurrent& c) {
      return c.name == "B" || c.name == "C";
    });
    cases.push_back({"middle pieces without data", baseStrip(), currents,
                     "5\t0.25\tA\tB\tX\tC\tD\t\n"});
  }
  {
    Currents currents = direction5();
    setCurrent(currents, "D", 0, -6.0);
    cases.push_back({"a negative current counts by its size", baseStrip(), currents,
                     "5\t0.666667\tA\tB\tX\tC\tD\t\n"});
  }
  {
    std::vector<Piece> pieces = baseStrip();
    pieces.push_back({"T3", "n4", "u5", 1, 1, "V1", "squareVia", 5, 1});
    Currents currents = direction5();
    setCurrent(currents, "T3", 0, 1.0);
    cases.push_back({"two vias on the end net", pieces, currents, ""});
  }
  {
    std::vector<Piece> pieces = baseStrip();
    pieces.back().via = "V";
    cases.push_back({"an end via that is not terminal", pieces, direction5(), ""});
  }
  {
    std::vector<Piece> pieces = baseStrip();
    pieces.push_back({"J", "n2", "j1", 1, 1, "M1", "nil", 2.5, 1});
    cases.push_back({"a jog off the middle net", pieces, direction5(), ""});
  }
  {
    std::vector<Piece> pieces = baseStrip();
    pieces.front().x = 2;
    pieces.front().y = 1;
    pieces.back().x = 2;
    pieces.back().y = 8;
    cases.push_back({"end vias on a common x", pieces, direction5(), "7\t0.25\tA\tB\tX\tC\tD\t\n"});
  }
  {
    std::vector<Piece> pieces = baseStrip();
    pieces.back().x = 6;
    pieces.back().y = 8;
    cases.push_back({"end vias on a diagonal", pieces, direction5(), "10\t0.25\tA\tB\tX\tC\tD\t\n"});
  }
  {
    // T2 ends the first run and starts the second one.
    std::vector<Piece> pieces = baseStrip();
    pieces.push_back({"E", "n4", "n5", 1, 1, "M1", "nil", 6, 0});
    pieces.push_back({"F", "n5", "n6", 1, 1, "M1", "nil", 7, 0});
    pieces.push_back({"T3", "n6", "u6", 1, 1, "V1", "squareVia", 8, 0});
    Currents currents = direction5();
    setCurrent(currents, "E", 1, 1.0);
    setCurrent(currents, "F", 0, 4.0);
    setCurrent(currents, "T3", 0, 1.0);
    cases.push_back({"two runs in a row", pieces, currents,
                     "5\t0.25\tA\tB\tX\tC\tD\t\n3\t0.75\tE\tF\t\n"});
  }
  {
    // The metal above the vias sees every via current the other way round.
    std::vector<Piece> pieces = baseStrip();
    for (Piece& p : pieces) {
      if (std::string(p.layer) == "M1") {
        p.layer = "M2";
      }
    }
    cases.push_back({"the strip above the vias", pieces, direction6(),
                     "5\t0.25\tA\tB\tX\tC\tD\t\n"});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(powerGrids(c.pieces, c.currents), c.expected);
  }
}

TEST(PowerGrids, LayersAreProcessedInNameOrder) {
  // An M2 strip between V2 vias (M2 is V2's lower layer), made before the M1 strip.
  std::vector<Piece> pieces = {{"P1", "m0", "w0", 1, 1, "V2", "viaArray", 0, 10},
                               {"P", "m0", "m1", 1, 1, "M2", "nil", 1, 10},
                               {"Q", "m1", "m2", 1, 1, "M2", "nil", 2, 10},
                               {"P2", "m2", "w2", 1, 1, "V2", "rectangleVia", 3, 10}};
  for (const Piece& p : baseStrip()) {
    pieces.push_back(p);
  }
  Currents currents = direction5();
  setCurrent(currents, "P1", 0, 1.0);
  setCurrent(currents, "P2", 0, 1.0);
  setCurrent(currents, "P", 1, 4.0);
  setCurrent(currents, "Q", 0, 4.0);
  EXPECT_EQ(powerGrids(pieces, currents), "5\t0.25\tA\tB\tX\tC\tD\t\n3\t0\tP\tQ\t\n");
}

TEST(PowerGrids, NullSessionDataDoesNothing) {
  zeNetwork network(1.0, false);
  buildAll(network, baseStrip());
  EXPECT_FALSE(network.processPG(nullptr, nullptr));
  EXPECT_TRUE(network.segments.empty());
  EXPECT_TRUE(network.powerGrids.empty());
}

TEST(PowerGrids, WalkStartsAtTheOuterNetOfTheFirstNodesSide) {
  // B is made first; A is reversed (its net1 is the inner net n1).
  zeNetwork network(1.0, false);
  buildAll(network, {{"B", "n1", "n2", 1, 1, "M1", "nil", 2, 0},
                     {"A", "n1", "n0", 1, 1, "M1", "nil", 1, 0},
                     {"C", "n2", "n3", 1, 1, "M1", "nil", 3, 0}});
  network.copyCurrentDirectionData(Currents{{"A", 1, 1.0}, {"B", 1, 1.0}, {"C", 0, 1.0}});
  network.findMetalSegments();
  ASSERT_EQ(network.segments.size(), 1u);
  network.populateNodeStack(network.segments[0].get());
  std::string walk;
  for (const kraEdgeNodePair& entry : network.walk) {
    walk += std::string(entry.node->name) + ":" + std::string(entry.edge->name) + " ";
  }
  EXPECT_EQ(walk, "A:n0 A:n1 B:n2 C:n3 ");
  network.evalMetalCurrentInOutDir();
  // A flows from n1 to n0, against the walk; B with it; C from n3 to n2, against it.
  EXPECT_EQ(network.findNode("A")->inOutDir, kraMetalN2toN1);
  EXPECT_EQ(network.findNode("B")->inOutDir, kraMetalN1toN2);
  EXPECT_EQ(network.findNode("C")->inOutDir, kraMetalN2toN1);
}

TEST(PowerGrids, AClosedStripEndsItsWalk) {
  // Two pieces joining the same two nets form a loop that the filters keep.
  zeNetwork network(1.0, false);
  buildAll(network, {{"P", "a", "b", 1, 1, "M1", "nil", 0, 0},
                     {"Q", "b", "a", 1, 1, "M1", "nil", 0, 0},
                     {"R", "a", "c", 1, 1, "M1", "nil", 0, 0}});
  network.findMetalSegments();
  ASSERT_EQ(network.segments.size(), 1u);
  network.populateNodeStack(network.segments[0].get());
  EXPECT_GE(network.walk.size(), 2u);
  EXPECT_LE(network.walk.size(), 4u);
  pgnet::PGSessionData data;
  zeNetwork again(1.0, false);
  buildAll(again, {{"P", "a", "b", 1, 1, "M1", "nil", 0, 0},
                   {"Q", "b", "a", 1, 1, "M1", "nil", 0, 0}});
  EXPECT_TRUE(again.processPG(&data, nullptr));
  EXPECT_TRUE(again.powerGrids.empty());
}

TEST(PowerGrids, AWalkOfOneEntryFindsNothing) {
  zeNetwork network(1.0, false);
  buildAll(network, baseStrip());
  network.copyCurrentDirectionData(direction5());
  kraNode* a = network.findNode("A");
  network.walk = {{a, a->edge1}};
  network.evalViaCurrentInOutDir();
  network.evalMetalCurrentInOutDir();
  network.pgProcessStrip(kraViaInOutFirst);
  EXPECT_TRUE(network.powerGrids.empty());
}

TEST(PowerGrids, Lv2v) {
  const struct {
    const char* what;
    double x1, y1, x2, y2;
    double expected;
  } cases[] = {
      {"common x", 3, 1, 3, 9, 8},
      {"common y", 7, 2, 1, 2, 6},
      {"diagonal", 0, 0, 3, 4, 5},
      // Within half a grid step is not "equal": the distance is the straight one.
      {"x almost equal", 1, 0, 1.0004, 3, std::sqrt(0.0004 * 0.0004 + 9.0)},
      {"the same point", 2, 2, 2, 2, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    kraNode start;
    start.x = c.x1;
    start.y = c.y1;
    kraNode end;
    end.x = c.x2;
    end.y = c.y2;
    kraPowerGrid grid;
    grid.setLv2v(&start, &end);
    EXPECT_DOUBLE_EQ(grid.lv2v, c.expected);
    grid.lv2v = -3;
    grid.setLv2v(nullptr, &end);
    grid.setLv2v(&start, nullptr);
    EXPECT_EQ(grid.lv2v, -3);
  }
}

TEST(PowerGrids, CurrentsFromTheSessionAreTakenAsTheyAre) {
  zeNetwork network(1.0, false);
  buildAll(network, baseStrip());
  network.copyCurrentDirectionData(
      Currents{{"A", 1, -2.5}, {"X", 0, 1.0}, {"nowhere", 1, 9.0}, {"B", 7, 3.0}, {"A", 0, -4.0}});
  // A later instance of the same name wins.
  EXPECT_EQ(network.findNode("A")->current, -4.0);
  EXPECT_EQ(network.findNode("A")->currentDir, kraMetalN2toN1);
  EXPECT_EQ(network.findNode("X")->currentDir, kraViaN2toN1);
  // A flag other than 0 and 1 leaves the direction unknown; the current is still taken.
  EXPECT_EQ(network.findNode("B")->currentDir, kraNoDir);
  EXPECT_EQ(network.findNode("B")->current, 3.0);
  EXPECT_EQ(network.findNode("C")->current, 0.0);
}

TEST(PowerGrids, CurrentsFromTheDatabaseAreMagnitudes) {
  zeNetwork network(1.0, false);
  buildAll(network, baseStrip());
  kraDB::EMRecord negative;
  negative.avg = -2.5;
  kraDB::EMRecord positive;
  positive.avg = 1.25;
  kraDBNetwork db;
  db.addNode("A", 0).record = &negative;
  db.addNode("A", 0).currDir = 1;  // a later node without a record keeps A's current
  kraDBNode& x = db.addNode("X", 0);
  x.record = &positive;
  x.currDir = 0;
  db.addNode("nowhere", 0).record = &positive;
  network.copyCurrentDirectionData(db);
  EXPECT_EQ(network.findNode("A")->current, 2.5);
  EXPECT_EQ(network.findNode("A")->currentDir, kraMetalN1toN2);
  EXPECT_EQ(network.findNode("X")->current, 1.25);
  EXPECT_EQ(network.findNode("X")->currentDir, kraViaN2toN1);
  // Unknown direction (-1) leaves the node's direction alone.
  EXPECT_EQ(network.findNode("B")->currentDir, kraNoDir);
}

TEST(PowerGrids, DebugTrace) {
  zeNetwork network(1.0, false);
  buildAll(network, baseStrip());
  pgnet::PGSessionData data;
  data.cadGrid = 0.001;
  data.instances = direction5();
  network.copyCurrentDirectionData(data.instances);
  network.findMetalSegments();
  network.filterSegmentsByPhysicalProperties();
  std::ostringstream trace;
  network.debug = true;
  network.debugOut = &trace;
  network.pgProcessMetalSegment("M1");
  EXPECT_EQ(trace.str(),
            "\n\nSegment current dir finding:\n\n"
            "A\t: n0\t: head\n"
            "T1  #via : V1:5\n"
            "A\t: n1\t: tail\n"
            "B\t: n2\t: tail\n"
            "X  #via : V1:6\n"
            "C\t: n3\t: tail\n"
            "D\t: n4\t: tail\n"
            "T2  #via : V1:5\n"
            "A : 3 : 3\n"
            "B : 3 : 3\n"
            "C : 3 : 3\n"
            "D : 4 : 4\n"
            "\n\n processing for current dir : 5\n\n\n"
            "Found start terminal via 1 : A\n"
            "Found end terminal via 4 : D\n"
            "Current direction matched"
            "\n\n processing for current dir : 6\n\n\n");
  ASSERT_EQ(network.powerGrids.size(), 1u);

  // A middle via of the wrong sense is named when the run is given up.
  zeNetwork wrong(1.0, false);
  buildAll(wrong, baseStrip());
  Currents currents = direction5();
  setCurrent(currents, "X", 0, 1.0);
  wrong.copyCurrentDirectionData(currents);
  wrong.findMetalSegments();
  wrong.filterSegmentsByPhysicalProperties();
  wrong.populateNodeStack(wrong.segments[0].get());
  wrong.evalViaCurrentInOutDir();
  wrong.evalMetalCurrentInOutDir();
  std::ostringstream why;
  wrong.debug = true;
  wrong.debugOut = &why;
  wrong.pgProcessStrip(kraViaInOutFirst);
  EXPECT_EQ(why.str(),
            "\n\n processing for current dir : 5\n\n\n"
            "Found start terminal via 1 : A\n"
            "Invalid Via current direction :X : 5\n");
}

TEST(PowerGrids, ALongStripIsOneRun) {
  // 200001 pieces on one line: walks and filters must not recurse per piece.
  constexpr int kPieces = 200001;
  zeNetwork network(1.0, false);
  network.setLayerStack(kStack);
  std::vector<std::string> names;
  names.reserve(kPieces + 2);
  auto net = [](int i) { return "n" + std::to_string(i); };
  network.createNode({.name = "T1", .net1 = "n0", .net2 = "u0", .layer = "V1",
                      .viaType = "squareVia", .x = 0, .y = 0});
  Currents currents = {{"T1", 0, 1.0}, {"T2", 0, 1.0}};
  for (int i = 0; i < kPieces; ++i) {
    names.push_back("m" + std::to_string(i));
    const std::string from = net(i);
    const std::string to = net(i + 1);
    network.createNode({.name = names.back(), .net1 = from, .net2 = to, .length = 1,
                        .width = 1, .layer = "M1", .viaType = "nil", .x = i + 1.0, .y = 0});
  }
  const std::string last = net(kPieces);
  network.createNode({.name = "T2", .net1 = last, .net2 = "u9", .layer = "V1",
                      .viaType = "squareVia", .x = kPieces + 1.0, .y = 0});
  currents.push_back({names.front(), 1, 8.0});
  currents.push_back({names.back(), 0, 2.0});
  pgnet::PGSessionData data;
  data.instances = currents;
  ASSERT_TRUE(network.processPG(&data, nullptr));
  ASSERT_EQ(network.powerGrids.size(), 1u);
  const kraPowerGrid& grid = *network.powerGrids[0];
  EXPECT_EQ(grid.nodes.size(), static_cast<size_t>(kPieces));
  EXPECT_EQ(grid.lv2v, kPieces + 1.0);
  EXPECT_EQ(grid.currentDiff, 0.75);
}

}  // namespace
