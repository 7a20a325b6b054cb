// The database text tool's record lines and dumped reals. Its real and integer fields are
// cases of tests/data/app/rules.txt.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <random>
#include <string>

#include "dbText.h"
#include "support/testFiles.h"

namespace {

using testing_support::ScratchDir;
using testing_support::writeFile;

TEST(DbText, RecordLinesNameTheirFaults) {
  // Good lines, and a bad field in a file, are checked end to end (the kra2db_* cases).
  IRRecord ir;
  std::string error;
  ASSERT_TRUE(kra2db::parseIRLine("\t0\t0\t0\t0\t0\t0", ir, error));
  EXPECT_EQ(ir.name, "");

  const struct {
    const char* line;
    const char* error;
  } bad[] = {
      {"n\t1\t2\t3\t4\t5", "expected 7 tab-separated fields for an IR record, found 6"},
      {"n\t1\t2\t3\t4\t5\t6\t7", "expected 7 tab-separated fields for an IR record, found 8"},
      {"n\t1\t2\tthree\t4\t5\t6", "field peak is not a number: 'three'"},
      {"n\t1\t2\t3\t4\t5\t", "field tmin is not a number: ''"},
  };
  for (const auto& c : bad) {
    SCOPED_TRACE(c.line);
    EXPECT_FALSE(kra2db::parseIRLine(c.line, ir, error));
    EXPECT_EQ(error, c.error);
  }

  kraDB::kraDBEMNode em;
  EXPECT_FALSE(kra2db::parseEMLine("R1\t1\t2\t3\t4\t5\t6.5\t8", em, error));
  EXPECT_EQ(error, "field term1 is not a 64-bit integer: '6.5'");
  EXPECT_FALSE(kra2db::parseEMLine("R1\t1\t2\t3\t4\t5\t6", em, error));
  EXPECT_EQ(error, "expected 8 tab-separated fields for an EM record, found 7");
}

TEST(DbText, DumpedRealsReadBackBitExact) {
  std::mt19937_64 random(5);
  for (int i = 0; i < 20000; ++i) {
    double value = std::bit_cast<double>(random());
    if (std::isnan(value)) {
      continue;
    }
    std::string text;
    kra2db::appendReal(text, value);
    double back = 0.0;
    ASSERT_TRUE(kra2db::parseReal(text, back)) << text;
    ASSERT_EQ(std::bit_cast<uint64_t>(back), std::bit_cast<uint64_t>(value)) << text;
  }
}

TEST(DbText, LineReaderBoundsLineLength) {
  ScratchDir dir;
  writeFile(dir.file("lines"), "a\r\n\nb\tc\nlast");
  kra2db::LineReader reader;
  ASSERT_TRUE(reader.open(dir.file("lines")));
  std::string_view line;
  std::vector<std::string> lines;
  while (reader.next(line)) {
    lines.emplace_back(line);
  }
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "", "b\tc", "last"}));
  EXPECT_FALSE(reader.tooLong());
  EXPECT_EQ(reader.lineNumber(), 4);

  // A line of exactly the limit is read; one byte more is refused, with its line number.
  const size_t limit = kra2db::LineReader::kMaxLine;
  writeFile(dir.file("long"),
            "x\n" + std::string(limit, 'y') + "\n" + std::string(limit + 1, 'z') + "\nafter\n");
  ASSERT_TRUE(reader.open(dir.file("long")));
  ASSERT_TRUE(reader.next(line));
  ASSERT_TRUE(reader.next(line));
  EXPECT_EQ(line.size(), limit);
  EXPECT_FALSE(reader.next(line));
  EXPECT_TRUE(reader.tooLong());
  EXPECT_EQ(reader.lineNumber(), 3);

  writeFile(dir.file("nofeed"), std::string(3 * limit, 'q'));
  ASSERT_TRUE(reader.open(dir.file("nofeed")));
  EXPECT_FALSE(reader.next(line));
  EXPECT_TRUE(reader.tooLong());
  EXPECT_FALSE(reader.open(dir.file("missing")));
}

}  // namespace
