// The shared text helpers: words and trimming. Reading numbers and integers are cases of
// tests/data/app/rules.txt.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/text.h"

namespace {

TEST(Text, SplitsAndTrimsAtEveryKindOfBlank) {
  const std::string_view line = "\t a  b\r\n c\v\fd ";
  EXPECT_EQ(support::splitWords(line), (std::vector<std::string_view>{"a", "b", "c", "d"}));
  std::string_view firstTwo[2];
  EXPECT_EQ(support::splitWords(line, firstTwo), 2u);
  EXPECT_EQ(firstTwo[1], "b");
  EXPECT_TRUE(support::splitWords(" \t\r\n").empty());
  EXPECT_EQ(support::trim(line), "a  b\r\n c\v\fd");
  EXPECT_EQ(support::trimLeft(" x "), "x ");
  EXPECT_EQ(support::trimRight(" x "), " x");
  EXPECT_EQ(support::trim("\r x\t\r", " \t"), "\r x\t\r");
  EXPECT_EQ(support::trim("   "), "");
  EXPECT_EQ(support::lowerAscii("No. Points\xC4"), "no. points\xC4");
  size_t pos = 0;
  EXPECT_EQ(support::nextWord("  ab c", pos), "ab");
  EXPECT_EQ(pos, 4u);
  EXPECT_EQ(support::nextWord("  ab c", pos), "c");
  EXPECT_EQ(support::nextWord("  ab c", pos), "");
  EXPECT_EQ(pos, 6u);
}

}  // namespace
