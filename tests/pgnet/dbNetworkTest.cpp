// The database-side network: reading the EM command's network input, attaching records,
// net mapping and current directions, and the EM listing.

#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <map>
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
  kraDB::EMRecord made;
  made.avg = avg;
  made.term1 = term1;
  made.term2 = term2;
  return made;
}

TEST(DBNetworkDirections, CasesOfTheTable) {
  for (const auto& c : testing_support::readCaseTable("pgnet/db_network_directions.txt")) {
    SCOPED_TRACE(c.name + " (line " + std::to_string(c.line) + ")");
    std::deque<kraDB::EMRecord> records;
    kraDBNetwork network;
    for (const std::vector<std::string>& w : c.all("node")) {
      ASSERT_TRUE(w.size() == 3 || w.size() == 6);
      kraDBNode& node =
          w[1] == "-" ? network.addNode(w[0], 0) : network.addNode(w[0], 0, w[1], w[2], 0, 0);
      if (w.size() == 6) {
        node.record = &records.emplace_back(
            record(testing_support::toNumber(w[3]), std::stoll(w[4]), std::stoll(w[5])));
      }
    }
    network.evalCurrDir();
    for (const std::vector<std::string>& w : c.all("want")) {
      size_t i = 0;
      while (i < network.size() && network[i].name != w.at(0)) {
        ++i;
      }
      ASSERT_LT(i, network.size()) << w[0];
      const std::map<std::string, double> actual = {{"swapped", network[i].swapped},
                                                    {"n1toN2", network[i].isN1toN2()},
                                                    {"dir", network[i].currDir}};
      for (size_t k = 1; k < w.size(); ++k) {
        const std::string field = w[k].substr(0, w[k].find('='));
        EXPECT_EQ(actual.at(field), testing_support::toNumber(w[k].substr(field.size() + 1)))
            << w[0] << " " << field;
      }
    }
    for (const std::vector<std::string>& w : c.all("onNet")) {
      EXPECT_EQ(network.nodesOnNet(w.at(0)).size(), std::stoul(w.at(1))) << w[0];
    }
    for (std::vector<std::string> w : c.all("usingNumber")) {
      std::vector<std::string> nodes;
      for (uint32_t n : network.nodesUsingNumber(std::stoll(w.at(0)))) {
        nodes.push_back(std::to_string(n));
      }
      w.erase(w.begin());
      EXPECT_EQ(nodes, w);
    }
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
  // {{{rms, avg, peak, tpeak}, avgPos, term1, term2}, name}
  const kraDB::EMRecord a{{{0.0015, -0.00125, -0.002, 3e-9}, 0.0005, 0, 0}, ""};
  const kraDB::EMRecord b{{{1e-300, 100000, 1234567, 0}, -2, 0, 0}, ""};
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
