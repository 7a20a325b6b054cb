// Length-data and PG-data files: reading rules, parse errors, number forms and output format.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <locale>
#include <random>
#include <sstream>
#include <streambuf>
#include <string>

#include "pgnet/detail/lineReader.h"
#include "pgnet/network.h"
#include "pgnet/networkBuilder.h"

using pgnet_test::names;

namespace {

const std::string kError = "Error in calculating length data.\nAt parsing line ";

TEST(LengthDataReader, VeryLongLinesAreCutNotHeldWhole) {
  const size_t limit = pgnet::detail::LineReader::kMaxLineBytes;
  {
    // The fields come first, the surplus is ignored like any extra field.
    zeNetwork network(1.0, false);
    std::istringstream in("a n1 n2 1 1 M1 nil " + std::string(3 * limit, 'x') +
                          "\nb n2 n3 1 1 M1 nil\n");
    EXPECT_TRUE(network.readLengthData(in));
    EXPECT_EQ(names(network.nodes), "a b");
  }
  {
    zeNetwork network(1.0, false);
    std::istringstream in("b n2 n3 1 1 M1 nil\n" + std::string(2 * limit, 'y') + "\n");
    EXPECT_FALSE(network.readLengthData(in));
    EXPECT_EQ(network.errorMessage, kError + "2:" + std::string(limit, 'y'));
  }
}

TEST(PGDataReader, FieldsComeInTheirOwnOrder) {
  zeNetwork network(1.0, false);
  std::istringstream in("r1 M2 n1 n2 10.5 -3 0.25 4 rectangleVia\nr2 M2 n1 n2 1 2 3 4\n");
  EXPECT_FALSE(network.readPGData(in));
  // Errors use the length-data wording.
  EXPECT_EQ(network.errorMessage, kError + "2:r2 M2 n1 n2 1 2 3 4");
  const kraNode* r1 = network.findNode("r1");
  ASSERT_NE(r1, nullptr);
  std::ostringstream fields;
  fields << r1->layer << ' ' << r1->edge1->name << ' ' << r1->edge2->name << ' ' << r1->x << ' '
         << r1->y << ' ' << r1->width << ' ' << r1->length << ' ' << r1->viaType << ' '
         << r1->totalLength;
  EXPECT_EQ(fields.str(), "M2 n1 n2 10.5 -3 0.25 4 3 -1");  // nothing is computed from PG data
}

// What a stream extraction makes of a whole field: the definition the reader follows.
bool streamParse(const std::string& text, double& value) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  double read = 0.0;
  const bool whole = (in >> read) && in.get() == std::char_traits<char>::eof();
  value = whole ? read : value;
  return whole;
}

void expectSameAsStream(const std::string& text) {
  SCOPED_TRACE("field \"" + text + "\"");
  double ours = -7.0;
  double theirs = -7.0;
  const bool ok = pgnet::detail::parseDouble(text, ours);
  ASSERT_EQ(ok, streamParse(text, theirs));
  if (ok) {
    EXPECT_EQ(std::memcmp(&ours, &theirs, sizeof ours), 0) << ours << " vs " << theirs;
  }
}

TEST(NumberFields, AcceptExactlyWhatAStreamAccepts) {
  std::istringstream fields(
      "1 0.5 +2e-3 -0 -0.0 .5 5. -.5 +.5e+2 1E5 1e+05 007 0.1 1.7976931348623157e308 1.8e308 "
      "1e999 -1e999 4.9e-324 2.2250738585072014e-308 1e-310 1e-400 0e999 0.000 1e 1e+ e5 . - + "
      "+-1 --1 1..2 1.2.3 1e5.5 inf -inf nan infinity 0x10 0x1p3 1,5 1_000 1f 5e-5x \u0661 "
      "12345678901234567890123 3.14159265358979323846264338327950288");
  for (std::string field; fields >> field;) {
    expectSameAsStream(field);
  }
}

TEST(NumberFields, RandomFieldsParseLikeAStream) {
  std::mt19937 random(20240611);
  const std::string alphabet = "0123456789+-.eE0000111x";
  std::uniform_int_distribution<size_t> length(1, 9);
  std::uniform_int_distribution<size_t> pick(0, alphabet.size() - 1);
  for (int i = 0; i < 20000; ++i) {
    std::string text;
    for (size_t n = length(random); n > 0; --n) {
      text += alphabet[pick(random)];
    }
    expectSameAsStream(text);
    if (HasFatalFailure()) {
      return;
    }
  }
}

TEST(NumberOutput, MatchesTheStreamsDefaultFormat) {
  const double inf = std::numeric_limits<double>::infinity();
  std::vector<double> values = {0.0,   -0.0,       1.0,      -1.5,      30.0,     0.1,
                                1e-5,  1.23456e-5, 123456.0, 1234567.0, 999999.5, 9999995.0,
                                1e100, -2.5e-300,  4.9e-324, DBL_MAX,   inf,      -inf};
  std::mt19937_64 random(7);
  for (int i = 0; i < 5000; ++i) {
    uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (std::isfinite(value)) {
      values.push_back(value);
    }
    values.push_back(static_cast<double>(random() % 2000000) / 64.0 - 10000.0);
  }
  for (double value : values) {
    std::ostringstream stream;
    stream << value;
    std::string ours;
    pgnet::detail::appendDouble(ours, value);
    ASSERT_EQ(ours, stream.str());
  }
}

// Counts how often the writer flushes.
class CountingBuffer : public std::stringbuf {
 public:
  int syncs = 0;

 protected:
  int sync() override {
    ++syncs;
    return std::stringbuf::sync();
  }
};

TEST(Writers, WriteOneFlushedLinePerNodeOrGrid) {
  zeNetwork network(1.0, false);
  std::istringstream in("v a b 0.5 1 V12 V\nm2 b c 2 1 M1 nil\nm1 a d 1 1 M1 nil\n");
  ASSERT_TRUE(network.readLengthData(in));
  CountingBuffer lengths;
  std::ostream lengthOut(&lengths);
  EXPECT_TRUE(network.writeLengthData(lengthOut));
  // In name order. v: net a has m1 (1), net b has m2 (2); 1 > 2 fails, so 2 from m2 and its
  // layer M1; no layer stack, so no top or bottom metal.
  EXPECT_EQ(lengths.str(), "m1\t1\tM\nm2\t2\tM\nv\t2\tV\tM1\t##nil##\t##nil##\n");
  EXPECT_EQ(lengths.syncs, 3);

  // A tab after every name; a grid without nodes is still a line.
  auto grid = std::make_unique<kraPowerGrid>();
  grid->lv2v = 12.5;
  grid->currentDiff = 0.125;
  grid->nodes = {network.findNode("v"), network.findNode("m1")};
  network.powerGrids.push_back(std::move(grid));
  network.powerGrids.push_back(std::make_unique<kraPowerGrid>());
  network.powerGrids.back()->lv2v = 1e-7;
  CountingBuffer grids;
  std::ostream gridOut(&grids);
  EXPECT_TRUE(network.writePGData(gridOut));
  EXPECT_EQ(grids.str(), "12.5\t0.125\tv\tm1\t\n1e-07\t0\t\n");
  EXPECT_EQ(grids.syncs, 2);
}

}  // namespace
