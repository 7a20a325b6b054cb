#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "db/headerParameters.h"
#include "support/testFiles.h"

namespace {

using kraDB::HeaderParameters;
using testing_support::ScratchDir;
using testing_support::writeFile;

const std::string kStandard =
    "<><><>;<architecture>64<\\architecture>;<version>5<\\version>;<\\><\\><\\>;\n";

/// A tag text padded with zeros to a full header block, then `tail`.
std::string headerFile(const std::string& text, const std::string& tail = "") {
  std::string bytes = text;
  bytes.resize(1024, '\0');
  return bytes + tail;
}

TEST(HeaderParameters, SplitterDropsEmptyPartsAndSplitsAtAnyDelimiter) {
  // Empty parts are dropped; a delimiter byte above 0x7f works like any other.
  const struct {
    std::string text;
    std::string delimiters;
    std::vector<std::string> parts;
  } cases[] = {{"a;;b;", ";", {"a", "b"}}, {";;;", ";", {}}, {"x\xffy", "\xff", {"x", "y"}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(kraDB::splitAtAny(c.text, c.delimiters), c.parts);
  }
}

TEST(HeaderParameters, ParsesTagTextIntoKeysAndValues) {
  const struct {
    const char* label;
    std::string text;
    bool accepted;
    HeaderParameters params;
  } cases[] = {
      {"writer's header", kStandard, true, {{"architecture", "64"}, {"version", "5"}}},
      {"no parameters", "<><><>;<\\><\\><\\>;\n", true, {}},
      {"further keys",
       "<><><>;<a>1<\\a>;<b>x y<\\b>;<\\><\\><\\>;\n",
       true,
       {{"a", "1"}, {"b", "x y"}}},
      {"later key wins", "<><><>;<v>1<\\v>;<v>2<\\v>;<\\><\\><\\>;\n", true, {{"v", "2"}}},
      {"closing tag unchecked", "<><><>;<v>1<w>;<\\><\\><\\>;\n", true, {{"v", "1"}}},
      {"empty value ignored", "<><><>;<v><\\v>;<\\><\\><\\>;\n", true, {}},
      {"extra parts ignored", "<><><>;<v>1<\\v>2;<\\><\\><\\>;\n", true, {}},
      {"text after the end",
       kStandard + "<z>9<\\z>;",
       true,
       {{"architecture", "64"}, {"version", "5"}}},
      {"not at position 0", " " + kStandard, false, {}},
      {"no closing tags", "<><><>;<version>5<\\version>;", false, {}},
      {"closing tags without line feed", "<><><>;<version>5<\\version>;<\\><\\><\\>;", false, {}},
      {"empty text", "", false, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    HeaderParameters params;
    EXPECT_EQ(kraDB::readHeaderParameters(c.text, params), c.accepted);
    EXPECT_EQ(params, c.params);
  }
}

TEST(HeaderParameters, ProbeReadsTheTextUpToTheFirstZeroByte) {
  ScratchDir dir;
  HeaderParameters params;
  EXPECT_FALSE(kraDB::readDBParameters(dir.file("missing"), params));

  writeFile(dir.file("db"), headerFile(kStandard, "binary after the block"));
  EXPECT_TRUE(kraDB::readDBParameters(dir.file("db"), params));
  EXPECT_EQ(params, (HeaderParameters{{"architecture", "64"}, {"version", "5"}}));

  // The closing tags after a zero byte are not part of the text.
  writeFile(dir.file("cut"), headerFile(std::string("<><><>;\0", 8) + "<\\><\\><\\>;\n"));
  HeaderParameters cut;
  EXPECT_FALSE(kraDB::readDBParameters(dir.file("cut"), cut));
  EXPECT_TRUE(cut.empty());
}

TEST(HeaderParameters, VersionAndThirtyTwoBitRejection) {
  ScratchDir dir;
  const struct {
    const char* label;
    std::string bytes;
    float version;
  } cases[] = {
      {"current", headerFile(kStandard), 5.0f},
      {"short file with tags", kStandard, 5.0f},
      {"no tags", std::string(3000, 'x'), -1.0f},
      {"no version tag", headerFile("<><><>;<architecture>64<\\architecture>;<\\><\\><\\>;\n"),
       -1.0f},
      {"legacy version", headerFile("<><><>;<version>4.89999<\\version>;<\\><\\><\\>;\n"),
       4.89999f},
      {"architecture 032 is not 32",
       headerFile("<><><>;<architecture>032<\\architecture>;<version>4.9<\\version>;"
                  "<\\><\\><\\>;\n"),
       4.9f},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    writeFile(dir.file("db"), c.bytes);
    EXPECT_EQ(kraDB::dbGetVersion(dir.file("db")), c.version);
  }
  EXPECT_EQ(kraDB::dbGetVersion(dir.file("missing")), -1.0f);

  writeFile(dir.file("db32"),
            headerFile("<><><>;<architecture>32<\\architecture>;<version>5<\\version>;"
                       "<\\><\\><\\>;\n"));
  try {
    kraDB::dbGetVersion(dir.file("db32"));
    ADD_FAILURE() << "a 32-bit database was accepted";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(),
                 "Error: 32-bit version of muro-db is not supported. Generate 64-bit version of "
                 "muro-db and rerun the tool\n");
  }
}

TEST(HeaderParameters, LegacyThresholdComparesTheWidenedFloat) {
  EXPECT_TRUE(kraDB::isLegacyVersion(4.89999f));
  EXPECT_FALSE(kraDB::isLegacyVersion(4.9f));  // 4.9f is slightly above 4.9
  EXPECT_FALSE(kraDB::isLegacyVersion(5.0f));
  EXPECT_TRUE(kraDB::isLegacyVersion(-1.0f));
  EXPECT_TRUE(kraDB::isLegacyVersion(0.0f));
}

TEST(HeaderParameters, TaggedArchitectureReadsLikeStrtol) {
  const struct {
    const char* value;
    std::optional<int> architecture;
  } cases[] = {{"64", 64}, {"32", 32},    {"0", 0},   {"-5", std::nullopt},
               {"abc", 0}, {"64bit", 64}, {" 32", 32}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    EXPECT_EQ(kraDB::taggedArchitecture({{"architecture", c.value}}), c.architecture);
  }
  EXPECT_EQ(kraDB::taggedArchitecture({{"version", "5"}}), std::nullopt);
}

TEST(HeaderParameters, LegacyArchitectureGuessFollowsSizeThresholds) {
  ScratchDir dir;
  const std::string stars(77, '*');
  /// A file of `size` bytes of 'x' with `marker` written at `offset`.
  auto legacy = [](size_t size, size_t offset, const std::string& marker) {
    std::string bytes(size, 'x');
    if (!marker.empty()) {
      bytes.replace(offset, marker.size(), marker);
    }
    return bytes;
  };
  const struct {
    const char* label;
    std::string bytes;
    int architecture;
  } cases[] = {
      {"2096 bytes, begin at 48", legacy(2096, 48, "begin"), -1},
      {"2097 bytes, begin at 48", legacy(2097, 48, "begin"), 32},
      {"2100 bytes, begin at 96 only", legacy(2100, 96, "begin"), -1},
      {"2144 bytes, begin at 96", legacy(2144, 96, "begin"), -1},
      {"2145 bytes, begin at 96", legacy(2145, 96, "begin"), 64},
      {"2145 bytes, stars at 96", legacy(2145, 96, stars), 64},
      {"2145 bytes, 76 stars at 96", legacy(2145, 96, stars.substr(1)), -1},
      {"2145 bytes, stars at 48", legacy(2145, 48, stars), 32},
      {"5000 bytes, Begin at 96", legacy(5000, 96, "Begin"), -1},
      {"5000 bytes, no marker", legacy(5000, 0, ""), -1},
      {"empty", "", -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    writeFile(dir.file("old.db"), c.bytes);
    EXPECT_EQ(kraDB::guessLegacyArchitecture(dir.file("old.db")), c.architecture);
  }
  EXPECT_EQ(kraDB::guessLegacyArchitecture(dir.file("missing")), std::nullopt);
}

}  // namespace
