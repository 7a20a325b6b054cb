#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "analysis/resultFile.h"
#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"
#include "support/testFiles.h"

namespace {

using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

zeInstance named(const char* name, const char* node1, const char* node2) {
  zeInstance instance;
  instance.name = name;
  instance.node1 = node1;
  instance.node2 = node2;
  return instance;
}

// The expected texts were produced independently (Python's "%.20g" and "%f").
constexpr const char* k1e99Fixed =
    "999999999999999967336168804116691273849533185806555472917961779471295845921727862608739"
    "868455469056.000000";

TEST(ResultLine, ValidInstance) {
  zeInstance instance = named("R1", "a", "b");
  voltageData& data = instance.data;
  data.peak = 1.5;
  data.avg = 0.1;
  data.rms = 2.0 / 3.0;
  data.peakTime = 2.5e-9;
  data.dutyRatio = 1.0;
  data.absAvg = 1e-300;
  data.avgPositive = 123456789.125;
  data.avgNegative = 0.0;
  instance.direction = 0;
  data.pulseWidth = 2.5e-9;
  data.peakValue = -3.25;
  data.rawAvg = 1e21;
  EXPECT_EQ(analysis::resultLine(instance),
            "R1\ta\tb\t1.5\t0.10000000000000000555\t0.66666666666666662966\t"
            "2.5000000000000000523e-09\t1\t1.0000000000000000251e-300\t123456789.125\t0\t0\t"
            "0.002500000000000000052\t-3.25\t1e+21\n");
}

TEST(ResultLine, StartValuesBeforeAnyRun) {
  EXPECT_EQ(analysis::resultLine(named("R1", "n1", "0")),
            "R1\tn1\t0\t0\t0\t0\t0\t1\t0\t0\t0\t-1\t9.9999999999999993826e+104\t0\t0\n");
}

TEST(ResultLine, InvalidInstanceUsesThePlaceholders) {
  zeInstance instance = named("R2", "x", "y");
  instance.valid = false;
  instance.data.peak = 5.0;  // not written
  instance.direction = 1;    // not written either
  EXPECT_EQ(analysis::resultLine(instance),
            std::string("R2\tx\ty\tNaN\tNaN\tNaN\tNaN\t1.000000\tNaN\tNaN\tNaN\t-1\t") +
                k1e99Fixed + "\tNaN\tNaN\n");
}

TEST(ResultFile, MatchesPrintfForManyLinesAcrossBufferFlushes) {
  // 30000 lines of about 300 bytes pass the write buffer several times; every line is
  // checked against the C library's own "%.20g".
  std::mt19937_64 random(7);
  zeNetlist netlist;
  std::string expected;
  char line[1024];
  for (int i = 0; i < 30000; ++i) {
    zeInstance instance = named("", "", "");
    instance.name = "R" + std::to_string(i);
    instance.node1 = "n" + std::to_string(i % 97);
    instance.node2 = i % 5 == 0 ? "0" : "m" + std::to_string(i);
    voltageData& d = instance.data;
    for (double voltageData::*field :
         {&voltageData::peak, &voltageData::avg, &voltageData::rms, &voltageData::peakTime,
          &voltageData::dutyRatio, &voltageData::absAvg, &voltageData::avgPositive,
          &voltageData::avgNegative, &voltageData::pulseWidth, &voltageData::peakValue,
          &voltageData::rawAvg}) {
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
  ScratchDir dir;
  FILE* file = std::fopen(dir.file("out").c_str(), "w+");
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(netlist.saveResults(file), 0);
  std::fclose(file);
  const std::string written = readFile(dir.file("out"));
  ASSERT_EQ(written.size(), expected.size());
  EXPECT_TRUE(written == expected);
}

TEST(ResultFile, NothingForANullFileOrAnEmptyNetlist) {
  zeNetlist netlist;
  ScratchDir dir;
  FILE* file = std::fopen(dir.file("out").c_str(), "w+");
  EXPECT_EQ(netlist.saveResults(file), 0);
  std::fclose(file);
  EXPECT_EQ(readFile(dir.file("out")), "");
  netlist.instances.push_back(named("R1", "a", "b"));
  EXPECT_EQ(netlist.saveResults(nullptr), 0);
}

class SaveResultCommand : public testing::Test {
 protected:
  void SetUp() override {
    writeFile(dir.file("cmd"), "");
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  }
  int save(const ArgList* args, std::string* printed) {
    testing::internal::CaptureStdout();
    const int result = session.processSaveResultsCmd(args, saved);
    *printed = testing::internal::GetCapturedStdout();
    return result;
  }
  void openAnalysis() {
    auto results = std::make_unique<simdata::MemoryResultsDir>("mem");
    session.analysis = results->addDataset("tran", "tran");
    session.resultsDir = std::move(results);
  }
  ScratchDir dir;
  zeAnalyzeNetlist session;
  std::vector<zeInstance> saved;
};

TEST_F(SaveResultCommand, PrerequisitesInOrderAfterTheFileIsCreated) {
  std::string printed;
  EXPECT_EQ(save(nullptr, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: saveResults command requires a file name.\n");

  const ArgList args = {dir.file("res.txt")};
  writeFile(dir.file("res.txt"), "old contents");
  EXPECT_EQ(save(&args, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: Must open simulation data directory first (openSimData)\n");
  EXPECT_EQ(readFile(dir.file("res.txt")), "");  // emptied before the checks

  auto results = std::make_unique<simdata::MemoryResultsDir>("mem");
  simdata::Dataset* tran = results->addDataset("tran", "tran");
  session.resultsDir = std::move(results);
  EXPECT_EQ(save(&args, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: Must select analysis first (selectAnalysis)\n");

  session.analysis = tran;
  EXPECT_EQ(save(&args, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: Must load netlist first (loadNetlist)\n");

  const ArgList badPath = {dir.file("no/such/dir/res.txt")};
  EXPECT_EQ(save(&badPath, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: Unable to open output result file " + badPath[0] + ".\n");
}

TEST_F(SaveResultCommand, WritesTheLoadedNetlist) {
  openAnalysis();
  session.instances.loaded = true;
  std::string printed;
  const ArgList args = {dir.file("res.txt")};
  EXPECT_EQ(save(&args, &printed), 0);
  EXPECT_EQ(printed, "");
  EXPECT_EQ(readFile(dir.file("res.txt")), "");  // an empty netlist gives an empty file

  session.instances.instances.push_back(named("R1", "n1", "n2"));
  session.instances.instances.push_back(named("R2", "n2", "0"));
  session.instances.instances[1].valid = false;
  EXPECT_EQ(save(&args, &printed), 0);
  EXPECT_EQ(readFile(dir.file("res.txt")),
            analysis::resultLine(session.instances.instances[0]) +
                analysis::resultLine(session.instances.instances[1]));
  EXPECT_TRUE(saved.empty());

  // Without output files the instances are handed back instead, no file name needed.
  session.writeOutputFiles = false;
  EXPECT_EQ(save(nullptr, &printed), 0);
  ASSERT_EQ(saved.size(), 2u);
  EXPECT_EQ(saved[1].name, "R2");
}

}  // namespace
