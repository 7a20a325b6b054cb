// The database-side network: reading the EM command's network input, attaching records,
// net mapping and current directions, and the EM listing.

#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "pgnet/emRelation.h"
#include "support/caseTable.h"
#include "support/testFiles.h"

namespace {

constexpr DBNetworkColumns kNames = DBNetworkColumns::kNamesOnly;
constexpr DBNetworkColumns kNets = DBNetworkColumns::kWithNets;

std::string dumpNodes(const kraDBNetwork& network) {
  std::string text;
  for (size_t i = 0; i < network.size(); ++i) {
    const kraDBNode& n = network[i];
    text += std::string(n.name) + "|" + (n.flagged ? "F" : "-") + "|" + std::string(n.net1) + "|" +
            std::string(n.net2) + "|" + std::to_string(n.type) + "|" +
            std::to_string(n.reversible) + ";";
  }
  return text;
}

TEST(DBNetworkInput, CasesOfTheTable) {
  for (const auto& c : testing_support::readCaseTable("pgnet/db_network_input.txt")) {
    SCOPED_TRACE(c.name + " (line " + std::to_string(c.line) + ")");
    kraDBNetwork network;
    std::istringstream in(testing_support::unescapePercent(c.text("input")));
    EXPECT_EQ(network.loadData(in, c.word("columns") == "nets" ? kNets : kNames), !c.has("error"));
    const std::string nodes = testing_support::unescapePercent(c.text("nodes"));
    EXPECT_EQ(dumpNodes(network), nodes);
    EXPECT_EQ(network.errorMessage, c.text("error"));
    EXPECT_EQ(network.hasFlaggedNodes, nodes.find("|F|") != std::string::npos);
  }
  // A name one byte over the limit stops the reading.
  kraDBNetwork network;
  std::istringstream in("R1 0 " + std::string(kraDBNetwork::kMaxWordBytes + 1, 'r') + " 0");
  EXPECT_FALSE(network.loadData(in, kNames));
  EXPECT_EQ(dumpNodes(network), "R1|-|||-1|0;");
  EXPECT_EQ(network.errorMessage, "line 1: a name is longer than 1048576 bytes");
}

kraDB::EMRecord record(double avg, int64_t term1, int64_t term2) {
  return {.name = "", .avg = avg, .term1 = term1, .term2 = term2};
}

TEST(DBNetworkDirections, NetMappingAndDirection) {
  // A chain of resistors a-b-c-d whose records number the nodes 1..4, with R2 written the
  // other way round (its net1 is c, which the records call 3, its record's second node).
  kraDB::EMRecord r1 = record(1.0, 1, 2);
  kraDB::EMRecord r2 = record(1.0, 2, 3);
  kraDB::EMRecord r3 = record(-1.0, 3, 4);
  kraDB::EMRecord r4 = record(-1.0, 4, 3);
  kraDBNetwork network;
  network.addNode("R1", 0, "a", "b", 0, 0).record = &r1;
  network.addNode("R2", 0, "c", "b", 0, 0).record = &r2;
  network.addNode("R3", 0, "c", "d", 0, 0).record = &r3;
  // R4 parallels R3 with its record numbered the other way: same nets, swapped numbers.
  network.addNode("R4", 0, "c", "d", 0, 0).record = &r4;
  // Without a record: never mapped, direction unknown.
  network.addNode("R5", 0, "d", "e", 0, 0);
  // Name-only: no nets to try.
  kraDB::EMRecord r6 = record(-1.0, 1, 2);
  network.addNode("R6", 0).record = &r6;
  network.evalCurrDir();
  const struct {
    const char* name;
    bool swapped;
    bool n1toN2;
    int currDir;
  } expected[] = {
      // R1: net1 a touches no other resistor; net2 b meets R2, which uses number 2 too.
      {"R1", false, true, 1},
      // R2: net1 c and its first number 2 share no resistor; c and 3 share R3 and R4.
      {"R2", true, false, 0},
      // R3: c with 3 (R2, R4) decides: not swapped; the negative current flows d to c.
      {"R3", false, false, 0},
      // R4: c with its first number 4 shares R3 (on c, using 4): not swapped either,
      // although R4's record is numbered the other way round from R3's.
      {"R4", false, false, 0},
      {"R5", false, true, -1},
      {"R6", false, false, 0},
  };
  for (size_t i = 0; i < std::size(expected); ++i) {
    SCOPED_TRACE(expected[i].name);
    EXPECT_EQ(network[i].swapped, expected[i].swapped);
    EXPECT_EQ(network[i].isN1toN2(), expected[i].n1toN2);
    EXPECT_EQ(network[i].currDir, expected[i].currDir);
  }
  EXPECT_EQ(network.nodesOnNet("c").size(), 3u);
  EXPECT_TRUE(network.nodesOnNet("zz").empty());
  EXPECT_EQ(
      std::vector<uint32_t>(network.nodesUsingNumber(3).begin(), network.nodesUsingNumber(3).end()),
      (std::vector<uint32_t>{1, 2, 3}));
}

TEST(DBNetworkDirections, PairingOrder) {
  // Node 0 on nets x, y with numbers 10, 20. Helper nodes put one other resistor on a net and
  // a number; each row says which pairings hold and what node 0 ends up with.
  const struct {
    const char* what;
    bool net1First, net1Second, net2Second, net2First;
    bool swapped;
  } cases[] = {
      {"none", false, false, false, false, false},
      {"net1 with the first node", true, false, false, false, false},
      {"net1 with the second node", false, true, false, false, true},
      {"net2 with the second node", false, false, true, false, false},
      {"net2 with the first node", false, false, false, true, true},
      {"net1 before net2", false, true, true, false, true},
      {"same-numbered node first", true, true, false, false, false},
      {"net2 with the same-numbered node first", false, false, true, true, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    kraDB::EMRecord own = record(1.0, 10, 20);
    std::vector<kraDB::EMRecord> helpers;
    helpers.reserve(4);
    kraDBNetwork network;
    network.addNode("R0", 0, "x", "y", 0, 0).record = &own;
    auto helper = [&](const char* net, int64_t number) {
      helpers.push_back(record(1.0, number, 1000 + static_cast<int64_t>(helpers.size())));
      network.addNode("H", 0, net, "elsewhere" + std::to_string(helpers.size()), 0, 0).record =
          &helpers.back();
    };
    if (c.net1First) helper("x", 10);
    if (c.net1Second) helper("x", 20);
    if (c.net2Second) helper("y", 20);
    if (c.net2First) helper("y", 10);
    network.evalCurrDir();
    EXPECT_EQ(network[0].swapped, c.swapped);
  }
}

TEST(DBNetworkDirections, NegativeNumbersAndEmptyNetsAreNotTried) {
  {
    // R0 and R1 share net x and number -1: tried, x with R0's second number would swap it.
    kraDB::EMRecord r0 = record(1.0, 5, -1);
    kraDB::EMRecord r1 = record(1.0, 7, -1);
    kraDBNetwork network;
    network.addNode("R0", 0, "x", "y", 0, 0).record = &r0;
    network.addNode("R1", 0, "x", "q", 0, 0).record = &r1;
    network.evalCurrDir();
    EXPECT_FALSE(network[0].swapped);
    EXPECT_FALSE(network[1].swapped);
  }
  {
    // R0 and R1 both have an empty net1 and share number 5: tried, the empty net with R0's
    // second number would swap it. Its net2 x with 5 (R2 is on x and uses 5) decides instead.
    kraDB::EMRecord r0 = record(1.0, 9, 5);
    kraDB::EMRecord r1 = record(1.0, 11, 5);
    kraDB::EMRecord r2 = record(1.0, 5, 13);
    kraDBNetwork network;
    network.addNode("R0", 0, "", "x", 0, 0).record = &r0;
    network.addNode("R1", 0, "", "z", 0, 0).record = &r1;
    network.addNode("R2", 0, "x", "w", 0, 0).record = &r2;
    network.evalCurrDir();
    EXPECT_FALSE(network[0].swapped);
    EXPECT_TRUE(network.nodesOnNet("").empty());
  }
}

TEST(DBNetworkDirections, ReversibleNodes) {
  const struct {
    int reversible;
    int type;
    double avg;
    int before;
    int expected;
  } cases[] = {
      {0, 0, 1.0, -1, 1},  {0, 0, -1.0, -1, 0}, {0, 1, 1.0, -1, 1},  {1, -1, 1.0, -1, -1},
      {1, -1, -1.0, 0, 0}, {1, 1, 1.0, -1, 0},  {1, 1, -1.0, -1, 1}, {1, 2, 1.0, -1, 1},
      {5, 0, -1.0, -1, 0}, {0, 0, -0.0, -1, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.reversible << " " << c.type << " " << c.avg);
    kraDB::EMRecord r = record(c.avg, 1, 2);
    kraDBNode node;
    node.reversible = c.reversible;
    node.type = c.type;
    node.currDir = c.before;
    node.evalCurrDir();
    EXPECT_EQ(node.currDir, c.before);
    node.record = &r;
    node.evalCurrDir();
    EXPECT_EQ(node.currDir, c.expected);
  }
}

TEST(DBNetworkRecords, AttachmentSteps) {
  kraDB::EMRecordTable table;
  for (const char* name : {"top.R1", "chip.top.x2.R9", "R7", "z.R8"}) {
    kraDB::kraDBEMNode r;
    r.name = name;
    table.add(r);
  }
  table.finish();
  // Each step under a hierarchy prefix (by name, resistor prefix, prefix, substring, dotted
  // part, none) is in dbem_match; here an empty prefix looks for flagged nodes by substring.
  auto recordNames = [](const kraDBNetwork& n) {
    std::string text;
    for (size_t i = 0; i < n.size(); ++i) {
      text += (n[i].record == nullptr ? std::string("-") : std::string(n[i].record->name)) + " ";
    }
    return text;
  };
  kraDBNetwork plain;
  plain.addNode("x2", 1);
  plain.addNode("R7", 0);
  plain.addNode("top.R1", 0);
  const std::vector<uint32_t> plainOrder = plain.sortedByName();
  plain.attachRecords(table, "", "", plainOrder);
  EXPECT_EQ(recordNames(plain), "chip.top.x2.R9 R7 top.R1 ");

  // A node that already holds a record keeps it; flagged nodes never use dotted parts (R7 is
  // a part of the record R7, but neither R7. nor .R7. is in any name).
  kraDBNetwork kept;
  kraDB::EMRecord own;
  own.name = "own";
  kept.addNode("R1", 0).record = &own;
  kept.addNode("Rz", 0);
  kept.addNode("R7", 1);
  const std::vector<uint32_t> keptOrder = kept.sortedByName();
  kept.attachRecords(table, "", "", keptOrder);
  EXPECT_EQ(recordNames(kept), "own - - ");
}

TEST(DBNetworkRecords, SortedByNameKeepsListOrderForEqualNames) {
  kraDBNetwork network;
  for (const char* name : {"b", "a", "B", "b", "a.x", "a"}) {
    network.addNode(name, 0);
  }
  EXPECT_EQ(network.sortedByName(), (std::vector<uint32_t>{2, 1, 5, 4, 0, 3}));
}

std::string readAll(std::FILE* file) {
  std::rewind(file);
  std::string text;
  char buffer[256];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) {
    text.append(buffer, got);
  }
  return text;
}

TEST(DBNetworkRecords, Listing) {
  const kraDB::EMRecord a{
      .name = "", .rms = 0.0015, .avg = -0.00125, .peak = -0.002, .tpeak = 3e-9, .avgPos = 0.0005};
  const kraDB::EMRecord b{
      .name = "", .rms = 1e-300, .avg = 100000, .peak = 1234567, .tpeak = 0, .avgPos = -2};
  kraDBNetwork network;
  network.addNode("Rb", 0).record = &b;
  network.addNode("none", 0);
  kraDBNode& first = network.addNode(std::string_view("Ra\0hidden", 9), 0);
  first.record = &a;
  first.currDir = 1;
  const std::vector<uint32_t> order = network.sortedByName();
  std::FILE* out = std::tmpfile();
  std::FILE* mesh = std::tmpfile();
  ASSERT_NE(out, nullptr);
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(pgnet::writeEMListing(network, order, out, mesh), 2u);
  // |avgPos - avg| = 0.0005 + 0.00125 for Ra, |-2 - 100000| for Rb.
  EXPECT_EQ(readAll(out),
            "Ra  0.002  0.00125  0.0015  3e-09 0.0005 0.00175 1\n"
            "Rb  1.23457e+06  100000  1e-300  0 2 100002 -1\n");
  EXPECT_EQ(readAll(mesh), "-0.002 -0.00125\n1.23457e+06 100000\n");
  std::fclose(out);
  std::fclose(mesh);
}

}  // namespace
