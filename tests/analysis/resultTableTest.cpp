// The text of the result table that the end-to-end cases cannot reach: names with blanks at
// either end (escaped simulator names get a trailing blank) and numbers that a run rarely
// gives. Each expectation is what RFC 4180 quoting and the shortest round-trip form say.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "analysis/resultTable.h"

namespace analysis {
namespace {

TEST(ResultTable, FieldsAreQuotedOnlyWhenTheyMustBe) {
  EXPECT_EQ(csvField("n1"), "n1");
  EXPECT_EQ(csvField(""), "");
  EXPECT_EQ(csvField("a\\b "), "\"a\\b \"");
  EXPECT_EQ(csvField(" a"), "\" a\"");
  EXPECT_EQ(csvField("a b"), "a b");
  EXPECT_EQ(csvField("x\"y"), "\"x\"\"y\"");
  EXPECT_EQ(csvField("line\nbreak"), "\"line\nbreak\"");
  EXPECT_EQ(csvField("#@#v1"), "\"#@#v1\"");
}

TEST(ResultTable, NumbersAreShortestRoundTrip) {
  EXPECT_EQ(shortestNumber(0.1), "0.1");
  EXPECT_EQ(shortestNumber(1e99), "1e+99");
  EXPECT_EQ(shortestNumber(-0.0), "-0");
  EXPECT_EQ(shortestNumber(1.0 / 3.0), "0.3333333333333333");
  EXPECT_EQ(shortestNumber(std::numeric_limits<double>::infinity()), "inf");
  EXPECT_EQ(shortestNumber(std::nan("")), "nan");
  EXPECT_EQ(shortestNumber(std::numeric_limits<double>::denorm_min()), "5e-324");
}

}  // namespace
}  // namespace analysis
