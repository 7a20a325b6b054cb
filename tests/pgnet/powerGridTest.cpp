// Current directions and power grids on hand-built strips: the strip cases are those of
// tests/data/pgnet/power_grids.txt, which draws the base strip they edit.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pgnet/dbNetwork.h"
#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "support/caseTable.h"

using pgnet_test::build;

namespace {

using Currents = std::vector<pgnet::InstanceCurrent>;

const std::vector<std::string> kStack = {"V1", "M2", "M1", "V2", "M3", "M2"};

/// The cases of tests/data/pgnet/power_grids.txt; the first, "base", draws the strip and its
/// currents, which the others edit.
const std::vector<testing_support::TableCase>& table() {
  static const std::vector<testing_support::TableCase> kTable =
      testing_support::readCaseTable("pgnet/power_grids.txt");
  return kTable;
}

/// The "name ..." items of the key's lines, each ended by ';'.
std::string items(const testing_support::TableCase& c, const std::string& key) {
  std::string text;
  for (const std::vector<std::string>& words : c.all(key)) {
    for (const std::string& word : words) {
      text += word + " ";
    }
    text += ";";
  }
  return text;
}

/// The currents a case lists (their names point into the table, hence no copy of the words).
Currents currentsOf(const testing_support::TableCase& c) {
  Currents currents;
  if (c.has("current")) {
    for (const std::vector<std::string>& w : c.fields.at("current")) {
      currents.push_back({w.at(0), std::stoi(w.at(1)), std::stod(w.at(2))});
    }
  }
  return currents;
}

/// The base currents with each change replacing the instance of its name or added after them.
Currents changed(const Currents& changes) {
  Currents currents = currentsOf(table().front());
  for (const pgnet::InstanceCurrent& change : changes) {
    auto it = std::find_if(currents.begin(), currents.end(),
                           [&](const auto& c) { return c.name == change.name; });
    if (it != currents.end()) {
      *it = change;
    } else {
      currents.push_back(change);
    }
  }
  return currents;
}

/// The base strip with each changed piece in place of the piece of its name; pieces of new
/// names are made before the strip.
std::string withPieces(const std::string& changes) {
  auto split = [](const std::string& text) {
    std::vector<std::pair<std::string, std::string>> list;  // name, item
    std::istringstream in(text);
    for (std::string item, name; std::getline(in, item, ';');) {
      std::istringstream(item) >> name;
      list.emplace_back(name, item);
    }
    return list;
  };
  auto changed = split(changes);
  std::string strip;
  for (const auto& [name, item] : split(items(table().front(), "strip"))) {
    auto it = std::find_if(changed.begin(), changed.end(),
                           [&](const auto& change) { return change.first == name; });
    strip += ";" + (it != changed.end() ? std::exchange(it->second, "") : item);
  }
  std::string before;
  for (const auto& change : changed) {
    before += change.second + ";";
  }
  return before + strip;
}

std::unique_ptr<zeNetwork> baseNetwork(const std::string& pieces = withPieces("")) {
  auto network = std::make_unique<zeNetwork>(1.0, false);
  build(*network, pieces);
  network->setLayerStack(kStack);
  return network;
}

TEST(PowerGrids, StripsBetweenTerminalVias) {
  ASSERT_EQ(table().size(), 17u);
  for (size_t i = 1; i < table().size(); ++i) {
    const testing_support::TableCase& c = table()[i];
    SCOPED_TRACE(c.name);
    auto network = baseNetwork(withPieces(items(c, "piece")));
    pgnet::PGSessionData data;
    data.cadGrid = 0.001;
    data.instances = changed(currentsOf(c));
    EXPECT_TRUE(network->processPG(&data, nullptr));
    std::ostringstream out;
    network->writePGData(out);
    std::string expected;  // the "out" lines' fields, each followed by a tab
    for (const std::vector<std::string>& words : c.all("out")) {
      for (const std::string& word : words) {
        expected += word + "\t";
      }
      expected += "\n";
    }
    EXPECT_EQ(out.str(), expected);
  }
}

TEST(PowerGrids, WalkStartsAtTheOuterNetOfTheFirstNodesSide) {
  // B is made first; A is reversed (its net1 is the inner net n1).
  auto network =
      baseNetwork("B n1 n2 1 1 M1 nil 2 0; A n1 n0 1 1 M1 nil 1 0; C n2 n3 1 1 M1 nil 3 0");
  network->copyCurrentDirectionData(Currents{{"A", 1, 1.0}, {"B", 1, 1.0}, {"C", 0, 1.0}});
  network->findMetalSegments();
  ASSERT_EQ(network->segments.size(), 1u);
  network->populateNodeStack(network->segments[0].get());
  std::string walk;
  for (const kraEdgeNodePair& entry : network->walk) {
    walk += std::string(entry.node->name) + ":" + std::string(entry.edge->name) + " ";
  }
  EXPECT_EQ(walk, "A:n0 A:n1 B:n2 C:n3 ");
  network->evalMetalCurrentInOutDir();
  // A flows from n1 to n0, against the walk; B with it; C from n3 to n2, against it.
  EXPECT_EQ(network->findNode("A")->inOutDir, kraMetalN2toN1);
  EXPECT_EQ(network->findNode("B")->inOutDir, kraMetalN1toN2);
  EXPECT_EQ(network->findNode("C")->inOutDir, kraMetalN2toN1);
}

TEST(PowerGrids, AClosedStripEndsItsWalk) {
  // Two pieces joining the same two nets form a loop that the filters keep.
  const std::string loop = "P a b 1 1 M1 nil 0 0; Q b a 1 1 M1 nil 0 0";
  auto network = baseNetwork(loop + "; R a c 1 1 M1 nil 0 0");
  network->findMetalSegments();
  ASSERT_EQ(network->segments.size(), 1u);
  network->populateNodeStack(network->segments[0].get());
  EXPECT_GE(network->walk.size(), 2u);
  EXPECT_LE(network->walk.size(), 4u);
  pgnet::PGSessionData data;
  auto again = baseNetwork(loop);
  EXPECT_TRUE(again->processPG(&data, nullptr));
  EXPECT_TRUE(again->powerGrids.empty());
}

TEST(PowerGrids, Lv2vComparesPositionsExactly) {
  // Common x, common y and diagonals are in the strip cases above. Within half a grid step is
  // not "equal": the distance is the straight one. Without both vias lv2v stays.
  kraNode start;
  start.x = 1;
  start.y = 0;
  kraNode end;
  end.x = 1.0004;
  end.y = 3;
  kraPowerGrid grid;
  grid.setLv2v(&start, &end);
  EXPECT_DOUBLE_EQ(grid.lv2v, std::sqrt(0.0004 * 0.0004 + 9.0));
  grid.lv2v = -3;
  grid.setLv2v(nullptr, &end);
  grid.setLv2v(&start, nullptr);
  EXPECT_EQ(grid.lv2v, -3);
}

TEST(PowerGrids, CurrentsAreCopiedByName) {
  auto network = baseNetwork();
  EXPECT_FALSE(network->processPG(nullptr, nullptr));
  EXPECT_TRUE(network->segments.empty());
  auto state = [](const zeNetwork& n) {  // "name:current:direction" of A, X, B and C
    std::ostringstream text;
    for (const char* name : {"A", "X", "B", "C"}) {
      const kraNode* node = n.findNode(name);
      text << name << ':' << node->current << ':' << static_cast<int>(node->currentDir) << ' ';
    }
    return text.str();
  };

  // From the session: the current as it is; a later instance of the same name wins; a flag
  // other than 0 and 1 leaves the direction unknown but the current is still taken.
  network->copyCurrentDirectionData(
      Currents{{"A", 1, -2.5}, {"X", 0, 1.0}, {"nowhere", 1, 9.0}, {"B", 7, 3.0}, {"A", 0, -4.0}});
  EXPECT_EQ(state(*network), "A:-4:4 X:1:2 B:3:0 C:0:0 ");

  // From the database: magnitudes of the records' averages; a node without a record keeps
  // its current, and an unknown direction (-1) leaves the node's direction alone.
  auto fromDb = baseNetwork();
  auto withAverage = [](double avg) {
    kraDB::EMRecord made;
    made.avg = avg;
    return made;
  };
  const kraDB::EMRecord negative = withAverage(-2.5);
  const kraDB::EMRecord positive = withAverage(1.25);
  kraDBNetwork db;
  db.addNode("A", 0).record = &negative;
  db.addNode("A", 0).currDir = 1;
  kraDBNode& x = db.addNode("X", 0);
  x.record = &positive;
  x.currDir = 0;
  db.addNode("nowhere", 0).record = &positive;
  fromDb->copyCurrentDirectionData(db);
  EXPECT_EQ(state(*fromDb), "A:2.5:3 X:1.25:2 B:0:0 C:0:0 ");
}

TEST(PowerGrids, DebugTrace) {
  // The trace of one strip; with a middle via of the wrong sense, the via is named when the
  // run is given up.
  const std::string found = "Found start terminal via 1 : A\n";
  const std::string dir6 = "\n\n processing for current dir : 6\n\n\n";
  const struct {
    Currents changes;
    std::string expected;
  } cases[] = {
      {{},
       "\n\nSegment current dir finding:\n\n"
       "A\t: n0\t: head\nT1  #via : V1:5\nA\t: n1\t: tail\nB\t: n2\t: tail\nX  #via : V1:6\n"
       "C\t: n3\t: tail\nD\t: n4\t: tail\nT2  #via : V1:5\n"
       "A : 3 : 3\nB : 3 : 3\nC : 3 : 3\nD : 4 : 4\n"
       "\n\n processing for current dir : 5\n\n\n" +
           found + "Found end terminal via 4 : D\nCurrent direction matched" + dir6},
      {{{"X", 0, 1.0}},
       "\n\n processing for current dir : 5\n\n\n" + found +
           "Invalid Via current direction :X : 5\n" + dir6},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    auto network = baseNetwork();
    network->copyCurrentDirectionData(changed(c.changes));
    network->findMetalSegments();
    network->filterSegmentsByPhysicalProperties();
    std::ostringstream trace;
    network->debug = true;
    network->debugOut = &trace;
    network->pgProcessMetalSegment("M1");
    const std::string text = trace.str();
    // The second case is checked from its strip processing on.
    EXPECT_EQ(c.changes.empty() ? text : text.substr(text.find("\n\n processing")), c.expected);
    EXPECT_EQ(network->powerGrids.size(), c.changes.empty() ? 1u : 0u);
  }
}

}  // namespace
