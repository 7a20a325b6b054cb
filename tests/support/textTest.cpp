// The shared text helpers on tables of cases. Expected numbers are those strtod gives for the
// same text (checked by hand against the C library's documentation of each form).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "support/text.h"

namespace {

constexpr double kNone = -12345.0;  // the value a refused text leaves untouched
constexpr double kInf = std::numeric_limits<double>::infinity();

struct NumberCase {
  const char* text;
  double general;       // parseDouble with the default rules (kNone: refused)
  double decimalOnly;   // with neither inf/NaN nor out-of-range values (kNone: refused)
  size_t prefixLength;  // bytes readDouble takes from the start (0: none)
};

const NumberCase kNumbers[] = {
    {"12", 12.0, 12.0, 2},
    {"+3.e-2", 0.03, 0.03, 6},
    {"-0.5", -0.5, -0.5, 4},
    {".5", 0.5, 0.5, 2},
    {"778810.", 778810.0, 778810.0, 7},
    {"1e999", kInf, kNone, 5},
    {"-1e999", -kInf, kNone, 6},
    {"1e-400", 0.0, kNone, 6},
    {"inf", kInf, kNone, 3},
    {"-Infinity", -kInf, kNone, 9},
    {"+-5", kNone, kNone, 0},
    {"++5", kNone, kNone, 0},
    {"+", kNone, kNone, 0},
    {"", kNone, kNone, 0},
    {" 1", kNone, kNone, 0},
    {"0x10", kNone, kNone, 1},
    {"1e", kNone, kNone, 1},
    {"2.5,3", kNone, kNone, 3},
    {"e5", kNone, kNone, 0},
};

TEST(Text, ReadsNumbersAsTheRulesSay) {
  for (const NumberCase& c : kNumbers) {
    const std::string_view text = c.text;
    double value = kNone;
    support::parseDouble(text, value);
    EXPECT_EQ(value, c.general) << c.text;
    value = kNone;
    support::parseDouble(text, value, {.infinityAndNaN = false, .outOfRangeAsStrtod = false});
    EXPECT_EQ(value, c.decimalOnly) << c.text;
    const char* end = support::readDouble(text.data(), text.data() + text.size(), value);
    EXPECT_EQ(end == nullptr ? 0 : static_cast<size_t>(end - text.data()), c.prefixLength)
        << c.text;
  }
  double value = 0.0;
  EXPECT_TRUE(support::parseDouble("nan", value) && std::isnan(value));
  EXPECT_FALSE(support::parseDouble("nan", value, {.infinityAndNaN = false}));
  // Below the double range but above zero: the nearest denormal, as strtod gives it.
  EXPECT_TRUE(support::parseDouble("4e-320", value) && value > 0.0 && value < 1e-319);
}

TEST(Text, ReadsWholeIntegersInRange) {
  struct Case {
    const char* text;
    bool ok;
    int64_t value;
  };
  const Case cases[] = {{"42", true, 42},         {"+7", true, 7},
                        {"-7", true, -7},         {"+-7", false, 0},
                        {"7x", false, 0},         {"", false, 0},
                        {" 7", false, 0},         {"0x1", false, 0},
                        {"2147483648", false, 0}, {"-2147483648", true, -2147483648LL}};
  for (const Case& c : cases) {
    int32_t value = -1;
    EXPECT_EQ(support::parseInteger(c.text, value), c.ok) << c.text;
    EXPECT_EQ(value, c.ok ? c.value : -1) << c.text;
  }
  int64_t wide = 0;
  EXPECT_TRUE(support::parseInteger("2147483648", wide) && wide == 2147483648LL);
}

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
