// Result lines: hand-worked lines from tests/data/analysis/result_lines.txt, and the C
// library's own printf as the oracle for many lines of any numbers. The saveResult command is
// covered by the end-to-end cases (analysis_*).

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "analysis/resultFile.h"
#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"
#include "support/caseTable.h"
#include "support/testFiles.h"
#include "support/voltageFields.h"

namespace {

using testing_support::TableCase;
using testing_support::voltageFields;

TEST(ResultLine, HandWorkedLines) {
  for (const TableCase& c : testing_support::readCaseTable("analysis/result_lines.txt")) {
    SCOPED_TRACE(c.name);
    zeInstance instance;
    ASSERT_EQ(c.words("names").size(), 3u);
    instance.name = c.words("names")[0];
    instance.node1 = c.words("names")[1];
    instance.node2 = c.words("names")[2];
    for (const auto& [name, value] : c.named("set")) {
      ASSERT_TRUE(voltageFields().count(name)) << name;
      instance.data.*voltageFields().at(name) = value;
    }
    instance.direction = static_cast<int>(c.number("direction", -1));
    instance.valid = !c.has("invalid");
    EXPECT_EQ(analysis::resultLine(instance), c.text("line"));
  }
}

TEST(ResultFile, MatchesPrintfForManyLinesAcrossBufferFlushes) {
  // 30000 lines of about 300 bytes pass the write buffer several times; every line is
  // checked against the C library's own "%.20g".
  std::mt19937_64 random(7);
  zeNetlist netlist;
  std::string expected;
  char line[1024];
  for (int i = 0; i < 30000; ++i) {
    zeInstance instance;
    instance.name = "R" + std::to_string(i);
    instance.node1 = "n" + std::to_string(i % 97);
    instance.node2 = i % 5 == 0 ? "0" : "m" + std::to_string(i);
    voltageData& d = instance.data;
    for (const auto& [name, field] : voltageFields()) {
      // Any bit pattern (NaN and infinities included), or a number of ordinary size.
      const uint64_t bits = random();
      d.*field = i % 2 == 0 ? std::ldexp(static_cast<double>(bits >> 12),
                                         static_cast<int>(bits % 120) - 100)
                            : std::bit_cast<double>(bits);
    }
    instance.direction = static_cast<int>(random() % 3) - 1;
    instance.valid = i % 11 != 0;
    if (instance.valid) {
      std::snprintf(line, sizeof line,
                    "%s\t%s\t%s\t%.20g\t%.20g\t%.20g\t%.20g\t%.20g\t%.20g\t%.20g\t%.20g\t%d\t%."
                    "20g\t%.20g\t%.20g\n",
                    instance.name.c_str(), instance.node1.c_str(), instance.node2.c_str(), d.peak,
                    d.avg, d.rms, d.peakTime, d.dutyRatio, d.absAvg, d.avgPositive, d.avgNegative,
                    instance.direction, d.pulseWidth * 1000000.0, d.peakValue, d.rawAvg);
    } else {
      std::snprintf(line, sizeof line,
                    "%s\t%s\t%s\t%s\t%s\t%s\t%s\t%f\t%s\t%s\t%s\t%d\t%f\t%s\t%s\n",
                    instance.name.c_str(), instance.node1.c_str(), instance.node2.c_str(), "NaN",
                    "NaN", "NaN", "NaN", 1.0, "NaN", "NaN", "NaN", -1, 1e99, "NaN", "NaN");
    }
    expected += line;
    netlist.instances.push_back(instance);
  }
  testing_support::ScratchDir dir;
  FILE* file = std::fopen(dir.file("out").c_str(), "w+");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(netlist.saveResults(file), 0);
  std::fclose(file);
  const std::string written = testing_support::readFile(dir.file("out"));
  ASSERT_EQ(written.size(), expected.size());
  EXPECT_TRUE(written == expected);
  EXPECT_EQ(netlist.saveResults(nullptr), 0);
}

TEST(SaveResultCommand, WithoutOutputFilesHandsTheInstancesBack) {
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
  auto results = std::make_unique<simdata::MemoryResultsDir>("mem");
  session.analysis = results->addDataset("tran", "tran");
  session.resultsDir = std::move(results);
  session.instances.loaded = true;
  session.instances.instances.resize(2);
  session.instances.instances[1].name = "R2";
  session.writeOutputFiles = false;
  std::vector<zeInstance> saved;
  EXPECT_EQ(session.processSaveResultsCmd(nullptr, saved), 0);
  ASSERT_EQ(saved.size(), 2u);
  EXPECT_EQ(saved[1].name, "R2");
}

}  // namespace
