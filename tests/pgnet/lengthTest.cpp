// Reading and lengths of whole length-data files: the cases of tests/data/pgnet/lengths.txt,
// and the longest-path search they rest on.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"
#include "support/caseTable.h"
#include "support/testFiles.h"

using pgnet_test::build;
using pgnet_test::lengthOutput;

namespace {

/// The key's words joined by `separator`, %XX escapes decoded, one line per occurrence.
std::string lines(const testing_support::TableCase& c, const std::string& key,
                  const std::string& separator, const std::string& end) {
  std::string text;
  for (const std::vector<std::string>& words : c.all(key)) {
    for (size_t i = 0; i < words.size(); ++i) {
      text += (i > 0 ? separator : "") + testing_support::unescapePercent(words[i]);
    }
    text += end;
  }
  return text;
}

TEST(Lengths, CasesOfTheTable) {
  const auto cases = testing_support::readCaseTable("pgnet/lengths.txt");
  ASSERT_EQ(cases.size(), 29u);
  for (const testing_support::TableCase& c : cases) {
    SCOPED_TRACE(c.name);
    zeNetwork network(0.001, false);
    network.setLayerStack({"V12", "M2", "M1"});
    network.evalCurrentDirection = c.text("flags").find("currentDirection") != std::string::npos;
    network.evalTotalSum = c.text("flags").find("totalSum") != std::string::npos;
    std::istringstream in(lines(c, "in", " ", "\n") + lines(c, "last", " ", ""));
    const std::string error = lines(c, "error", " ", "");
    EXPECT_EQ(network.readLengthData(in), error.empty());
    EXPECT_EQ(network.errorMessage,
              error.empty() ? "" : "Error in calculating length data.\nAt parsing line " + error);
    EXPECT_EQ(lengthOutput(network), lines(c, "out", "\t", "\n"));
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
