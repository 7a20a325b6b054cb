// The EM record table's name lookups agree with the anchored regular expressions they stand
// for (checked against a regular-expression engine over random names) and with a plain split
// for dotted parts. That later records replace earlier ones of the same name is checked end to
// end (dbem_match).

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "db/emRecordTable.h"

namespace {

using kraDB::EMRecordTable;

kraDB::kraDBEMNode emRecord(const std::string& name, double avg, int64_t term1 = 0,
                            int64_t term2 = 0) {
  kraDB::kraDBEMNode record;
  record.name = name;
  record.avg = avg;
  record.peak = 2 * avg;
  record.term1 = term1;
  record.term2 = term2;
  return record;
}

std::string escaped(const std::string& text) {
  static const std::string kSpecial = "\\^$.|?*+()[]{}/-";
  std::string out;
  for (char c : text) {
    if (kSpecial.find(c) != std::string::npos) {
      out += '\\';
    }
    out += c;
  }
  return out;
}

/// The first of the sorted names that the pattern matches, as a regex scan finds it.
uint32_t firstMatching(const std::vector<std::string>& sorted, const std::regex& pattern) {
  for (uint32_t i = 0; i < sorted.size(); ++i) {
    if (std::regex_search(sorted[i], pattern)) {
      return i;
    }
  }
  return EMRecordTable::kNone;
}

TEST(EMRecordTable, LookupsAgreeWithRegularExpressionsOnRandomNames) {
  std::mt19937 random(12345);
  const std::string alphabet = "ab.+[$";
  auto randomText = [&](size_t maxLength) {
    std::string text;
    const size_t length = random() % (maxLength + 1);
    for (size_t i = 0; i < length; ++i) {
      text += alphabet[random() % alphabet.size()];
    }
    return text;
  };
  // How many questions had an answer, so that the comparison is not only of misses.
  int prefixHits = 0;
  int insideHits = 0;
  int partHits = 0;
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    EMRecordTable table;
    const int count = 1 + static_cast<int>(random() % 300);
    for (int i = 0; i < count; ++i) {
      table.add(emRecord(randomText(9), i));
    }
    table.finish();
    std::vector<std::string> sorted;
    for (uint32_t r = 0; r < table.size(); ++r) {
      sorted.emplace_back(table.at(r).name);
    }
    std::vector<std::string> texts;
    std::vector<std::string_view> views;
    for (int q = 0; q < 60; ++q) {
      texts.push_back(randomText(4));
    }
    for (const std::string& text : texts) {
      views.push_back(text);
    }
    const std::vector<uint32_t> inside = table.findFirstContainingDotted(texts);
    const std::vector<uint32_t> parts = table.findLastWithPart(views);
    for (size_t q = 0; q < texts.size(); ++q) {
      SCOPED_TRACE(texts[q]);
      const std::regex prefix("^" + escaped(texts[q]) + "\\..*$");
      EXPECT_EQ(table.findFirstWithPrefix(texts[q] + "."), firstMatching(sorted, prefix));
      const std::regex contains(".*\\." + escaped(texts[q]) + "\\..*$");
      EXPECT_EQ(inside[q], firstMatching(sorted, contains));
      uint32_t last = EMRecordTable::kNone;
      for (uint32_t r = 0; r < sorted.size(); ++r) {
        size_t start = 0;
        for (;;) {
          const size_t dot = sorted[r].find('.', start);
          if (sorted[r].substr(start, dot == std::string::npos ? dot : dot - start) == texts[q]) {
            last = r;
          }
          if (dot == std::string::npos) {
            break;
          }
          start = dot + 1;
        }
      }
      EXPECT_EQ(parts[q], last);
      prefixHits += table.findFirstWithPrefix(texts[q] + ".") != EMRecordTable::kNone ? 1 : 0;
      insideHits += inside[q] != EMRecordTable::kNone ? 1 : 0;
      partHits += last != EMRecordTable::kNone ? 1 : 0;
    }
  }
  EXPECT_GT(prefixHits, 100);
  EXPECT_GT(insideHits, 100);
  EXPECT_GT(partHits, 100);
}

TEST(EMRecordTable, ManyRecordsUnderOneInstance) {
  // Thousands of names contain ".x.", and the further their suffix after ".x." sorts, the
  // earlier the name: the first in name order is found at the far end of the run of suffixes.
  EMRecordTable table;
  char name[32];
  for (int i = 4000; i > 0; --i) {
    std::snprintf(name, sizeof name, "p%04d.x.%04d.t", i, 9999 - i);
    table.add(emRecord(name, i));
  }
  table.add(emRecord("p0.y", 0));
  table.finish();
  const std::vector<uint32_t> found = table.findFirstContainingDotted({"x", "y", "x.9000", "t"});
  EXPECT_EQ(table.at(found[0]).name, "p0001.x.9998.t");
  EXPECT_EQ(found[1], EMRecordTable::kNone);
  EXPECT_EQ(table.at(found[2]).name, "p0999.x.9000.t");
  EXPECT_EQ(found[3], EMRecordTable::kNone);
}

}  // namespace
