// Reading and lengths of whole length-data files: the cases of tests/data/pgnet/lengths.txt,
// and the longest-path search they rest on.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "support/testFiles.h"

using pgnet_test::build;
using pgnet_test::lengthOutput;

namespace {

/// One case of tests/data/pgnet/lengths.txt.
struct LengthCase {
  std::string title, input, error, output;
  bool currentDirection = false, totalSum = false;
};

std::vector<LengthCase> readCases() {
  std::ifstream file(KRA2_SOURCE_DIR "/tests/data/pgnet/lengths.txt");
  std::vector<LengthCase> cases;
  for (std::string line; std::getline(file, line);) {
    const std::string word = line.substr(0, line.find(' '));
    if (word.empty() || word[0] == '#') {
      continue;
    }
    const std::string rest = line.size() > word.size()
                                 ? testing_support::unescapePercent(line.substr(word.size() + 1))
                                 : "";
    if (word == "case") {
      cases.push_back({rest, "", "", ""});
    } else if (word == "flags") {
      cases.back().currentDirection = rest.find("currentDirection") != std::string::npos;
      cases.back().totalSum = rest.find("totalSum") != std::string::npos;
    } else if (word == "in" || word == "last") {
      cases.back().input += rest + (word == "in" ? "\n" : "");
    } else if (word == "error") {
      cases.back().error = "Error in calculating length data.\nAt parsing line " + rest;
    } else if (word == "out") {
      std::istringstream fields(rest);
      std::string field, joined;
      while (fields >> field) {
        joined += (joined.empty() ? "" : "\t") + field;
      }
      cases.back().output += joined + "\n";
    }
  }
  return cases;
}

TEST(Lengths, CasesOfTheTable) {
  const std::vector<LengthCase> cases = readCases();
  ASSERT_EQ(cases.size(), 29u);
  for (const LengthCase& c : cases) {
    SCOPED_TRACE(c.title);
    zeNetwork network(0.001, false);
    network.setLayerStack({"V12", "M2", "M1"});
    network.evalCurrentDirection = c.currentDirection;
    network.evalTotalSum = c.totalSum;
    std::istringstream in(c.input);
    EXPECT_EQ(network.readLengthData(in), c.error.empty());
    EXPECT_EQ(network.errorMessage, c.error);
    EXPECT_EQ(lengthOutput(network), c.output);
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
