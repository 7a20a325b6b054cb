// The run command and its batch loop over the in-memory results backend.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "analysis/settings.h"
#include "analysis/sources.h"
#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"
#include "support/testFiles.h"

namespace {

using simdata::MemoryValue;
using simdata::MemoryVector;
using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;
using Vec = std::vector<double>;

class RunLoop : public testing::Test {
 protected:
  void SetUp() override {
    writeFile(dir.file("cmd"), "");
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
    auto results = std::make_unique<simdata::MemoryResultsDir>("mem");
    tran = results->addDataset("tran", "tran");
    simdata::Sweep sweep;
    sweep.add({"time", simdata::Range{simdata::kFloat64, 0.0, 2.0}});
    tran->setSweep(sweep);
    session.resultsDir = std::move(results);
    session.analysis = tran;
    time = simdata::timeAxis({0, 1, 2});
    session.instances.loaded = true;
  }
  void TearDown() override {
    unsetenv("KRA2_INTERNAL_DEBUG");
    unsetenv(analysis::kSourceValuesVariable);
  }

  void addWave(const std::string& name, Vec y) {
    simdata::Signal signal;
    signal.name1 = name;
    signal.name2 = "v(" + name + ")";
    signal.typeName = "voltage";
    tran->addSignal(
        signal, MemoryValue::waveform(name, time, std::make_shared<MemoryVector>(name, "V", y)));
  }
  zeInstance& addInstance(const std::string& name, const std::string& node1,
                          const std::string& node2) {
    zeInstance& instance = session.instances.instances.emplace_back();
    instance.name = name;
    instance.node1 = node1;
    instance.node2 = node2;
    return instance;
  }
  const zeInstance& instance(size_t i) const { return session.instances.instances.at(i); }
  int run(const ArgList& args, std::string* printed, int ignoreSign = 0) {
    testing::internal::CaptureStdout();
    const int result = session.processRunCmd(&args, ignoreSign);
    *printed = testing::internal::GetCapturedStdout();
    return result;
  }
  std::string log() {
    std::fflush(session.logFile.get());
    return readFile(dir.file("log"));
  }

  ScratchDir dir;
  zeAnalyzeNetlist session;
  simdata::MemoryDataset* tran = nullptr;
  std::shared_ptr<MemoryVector> time;
};

TEST_F(RunLoop, ArgumentsAndPrerequisites) {
  std::string printed;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.processRunCmd(nullptr, 0), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: kra2: run command requires start & stop time.\n");
  EXPECT_EQ(run({"1e-9"}, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: run command requires start & stop time.\n");

  session.analysis = nullptr;
  EXPECT_EQ(run({"0", "1e-9"}, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: Must select analysis first (selectAnalysis)\n");
  // The window is stored before the checks, the stop time widened by 1e-12.
  EXPECT_EQ(session.startTime, 0.0);
  EXPECT_EQ(session.stopTime, 1e-9 + 1e-12);

  session.resultsDir.reset();
  EXPECT_EQ(run({"2e-9", "junk"}, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: Must open simulation data directory first (openSimData)\n");
  EXPECT_EQ(session.startTime, 2e-9);
  EXPECT_EQ(session.stopTime, 1e-12);
}

TEST_F(RunLoop, EmptyNetlistGivesOneProgressLine) {
  std::string printed;
  EXPECT_EQ(run({"0", "2"}, &printed), 0);
  EXPECT_EQ(printed, "STATUS: instances (analyzed: 0       failed: 0       total: 0     )\n");
  EXPECT_EQ(tran->bulkReads(), 1);

  setenv("KRA2_INTERNAL_DEBUG", "1", 1);
  EXPECT_EQ(run({"0", "2"}, &printed), 0);
  // 0 of 0 is not a number.
  EXPECT_NE(printed.find("STATUS: instances (analyzed: 0     (  "), std::string::npos) << printed;
  EXPECT_NE(printed.find("nan)%  failed: 0       total: 0     ) time( incr: "), std::string::npos)
      << printed;
}

TEST_F(RunLoop, BatchesOf5000WithOneReadEachAndSharedNodesReadOnce) {
  for (int k = 0; k < 50; ++k) {
    addWave("n" + std::to_string(k), {double(k), double(k), double(k)});
  }
  for (int i = 0; i < 12000; ++i) {
    addInstance("R" + std::to_string(i), "n" + std::to_string(i % 50),
                "n" + std::to_string((i + 1) % 50));
  }
  std::string printed;
  EXPECT_EQ(run({"0", "2"}, &printed), 0);
  EXPECT_EQ(printed,
            "STATUS: instances (analyzed: 5000    failed: 0       total: 12000 )\n"
            "STATUS: instances (analyzed: 10000   failed: 0       total: 12000 )\n"
            "STATUS: instances (analyzed: 12000   failed: 0       total: 12000 )\n");
  EXPECT_EQ(tran->bulkReads(), 3);
  // d = -1 except between n49 and n0 (49); the later of equal peaks is at t = 1.
  for (size_t i : {0, 48, 49, 11999}) {
    SCOPED_TRACE(i);
    const double d = i % 50 == 49 ? 49.0 : -1.0;
    EXPECT_EQ(instance(i).data.peak, std::fabs(d));
    EXPECT_EQ(instance(i).data.rms, std::fabs(d));
    EXPECT_EQ(instance(i).data.peakTime, 1.0);
    EXPECT_EQ(instance(i).data.rawAvg, double(i % 50));
    EXPECT_EQ(instance(i).direction, d < 0 ? 0 : 1);
  }
  std::unique_ptr<simdata::SignalList> signals =
      session.getNetlistSignals(5000, 5000, session.instances.instances);
  EXPECT_EQ(signals->count(), 50);
  signals = session.getNetlistSignals(10000, 5000, session.instances.instances);
  EXPECT_EQ(signals->count(), 50);

  setenv("KRA2_INTERNAL_DEBUG", "", 1);
  EXPECT_EQ(run({"0", "2"}, &printed), 0);
  // Elapsed whole seconds are not reproducible.
  printed = std::regex_replace(printed, std::regex("incr: [0-9]+ sec,\t+total: [0-9]+ sec"),
                               "incr: X sec,\ttotal: X sec");
  const std::string tail = "  failed: 0       total: 12000 ) time( incr: X sec,\ttotal: X sec)\n";
  EXPECT_EQ(printed, "STATUS: instances (analyzed: 5000  ( 41.67)%" + tail +
                         "STATUS: instances (analyzed: 10000 ( 83.33)%" + tail +
                         "STATUS: instances (analyzed: 12000 (100.00)%" + tail);
}

TEST_F(RunLoop, GroundFixedValuesMissingSignalsAndBothNodes) {
  addWave("n1", {1, 3, 1});
  addWave("n2", {0, 1, 0});
  addInstance("R1", "n1", "0");
  addInstance("R2", "0", "n1").orientation = 1;
  addInstance("R3", "n1", "#@#v0.5");
  addInstance("R4", "n1", "gone");
  addInstance("R5", "gone", "n2");
  addInstance("R6", "0", "0");
  addInstance("R7", "n1", "n2");
  addInstance("R8", "0", "n1").orientation = 0;
  std::string printed;
  EXPECT_EQ(run({"0", "2"}, &printed, 2), 0);
  EXPECT_EQ(printed,
            "STATUS: instances (analyzed: 8       failed: 2       total: 8     )\n"
            "WARNING: 2 instances failed, please see the log file.\n");
  EXPECT_EQ(log(),
            "WARNING: No simulation data available for signals:\n\tgone\n\tgone\n"
            "STATUS: instances (analyzed: 8       failed: 2       total: 8     )\n"
            "WARNING: 2 instances failed, please see the log file.\n");

  struct Expected {
    int sigIndex1;
    int sigIndex2;
    bool valid;
  };
  const Expected indices[] = {{0, -1, true},  {-1, 0, true},  {0, -3, true}, {0, -2, false},
                              {-2, 1, false}, {-1, -1, true}, {0, 1, true},  {-1, 0, true}};
  for (size_t i = 0; i < 8; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(instance(i).sigIndex1, indices[i].sigIndex1);
    EXPECT_EQ(instance(i).sigIndex2, indices[i].sigIndex2);
    EXPECT_EQ(instance(i).valid, indices[i].valid);
  }
  // The measures themselves are checked with the kernels; here that each kind of instance
  // reaches one. n1 alone: d = 1 3 1, squares 5 + 5 over length 2, fresh duty ratio and width.
  EXPECT_EQ(instance(0).data.rms, std::sqrt(5.0));
  EXPECT_EQ(instance(0).data.pulseWidth, 1e99);
  // The second node alone keeps no raw values; orientation 1 gives the plain direction and 0
  // the inverted one.
  EXPECT_EQ(instance(1).data.avg, 2.0);
  EXPECT_EQ(instance(1).data.rawAvg, 0.0);
  EXPECT_EQ(instance(1).direction, 1);
  EXPECT_EQ(instance(7).direction, 0);
  EXPECT_EQ(instance(2).fixedValue, 0.5);
  EXPECT_EQ(instance(2).data.peak, 2.5);            // d = 0.5 2.5 0.5
  EXPECT_EQ(instance(6).data.rms, std::sqrt(2.5));  // n1 - n2: d = 1 2 1
  // Nothing measured between two ground nodes: the fresh record is stored. Invalid instances
  // are not analysed.
  EXPECT_EQ(instance(5).data.dutyRatio, 1.0);
  EXPECT_EQ(instance(5).direction, -1);
  EXPECT_TRUE(instance(5).acPulses);
  EXPECT_FALSE(instance(3).acPulses);

  // Invalid instances stay invalid for later runs, even once their signal exists.
  addWave("gone", {0, 0, 0});
  EXPECT_EQ(run({"0", "2"}, &printed, 2), 0);
  EXPECT_FALSE(instance(3).valid);
  EXPECT_EQ(instance(3).sigIndex2, 1);
  EXPECT_EQ(printed,
            "STATUS: instances (analyzed: 8       failed: 2       total: 8     )\n"
            "WARNING: 2 instances failed, please see the log file.\n");
}

TEST_F(RunLoop, PolarityAveragesAreStoredAsTheIgnoreSettingAsks) {
  addWave("p", {1, 1, -1});
  struct Case {
    int ignoreSign;
    double avgPositive;
    double avgNegative;
  };
  // Steps: [0,1] area 1 (positive), [1,2] mid 0 counts positive; no negative step.
  const Case cases[] = {{0, -7, -7}, {-1, 0.5, -7}, {1, -7, 0}, {2, 0.5, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ignoreSign);
    session.instances.instances.clear();
    zeInstance& r = addInstance("R", "p", "0");
    r.data.avgPositive = -7;
    r.data.avgNegative = -7;
    std::string printed;
    run({"0", "2"}, &printed, c.ignoreSign);
    EXPECT_EQ(instance(0).data.avgPositive, c.avgPositive);
    EXPECT_EQ(instance(0).data.avgNegative, c.avgNegative);
  }
}

TEST_F(RunLoop, FailedBulkReadFailsTheBatch) {
  addWave("n1", {1, 1, 1});
  addInstance("R1", "n1", "0").data.peak = 42.0;
  addInstance("R2", "0", "n1");
  tran->failReads(true);
  std::string printed;
  EXPECT_EQ(run({"0", "2"}, &printed), 0);
  EXPECT_EQ(printed,
            "STATUS: instances (analyzed: 2       failed: 2       total: 2     )\n"
            "WARNING: 2 instances failed, please see the log file.\n");
  EXPECT_EQ(log(),
            "ERROR: Failed to read some of the signal values\n"
            "STATUS: instances (analyzed: 2       failed: 2       total: 2     )\n"
            "WARNING: 2 instances failed, please see the log file.\n");
  EXPECT_EQ(instance(0).data.peak, 42.0);
  EXPECT_TRUE(instance(0).valid);
  EXPECT_EQ(session.analyseNetlist(0, 2, session.instances.instances, nullptr, 0), 2);
}

TEST_F(RunLoop, OperatingPointUsesTheDcDifference) {
  auto results = std::make_unique<simdata::MemoryResultsDir>("op");
  simdata::MemoryDataset* op = results->addDataset("op", "op");
  op->addSignal({"a", "v(a)", "voltage", -1}, MemoryValue::scalarValue("a", 1.25));
  op->addSignal({"b", "v(b)", "voltage", -1}, MemoryValue::scalarValue("b", 0.25));
  session.resultsDir = std::move(results);
  session.analysis = op;
  addInstance("R1", "a", "b");
  addInstance("R2", "a", "#@#v2");
  addInstance("R3", "0", "b");
  std::string printed;
  EXPECT_EQ(run({"0", "0"}, &printed), 0);
  // R3: no first value (a = 0), so d = 0 - 0.25.
  const double expected[][2] = {{1.0, 1.25}, {0.75, 1.25}, {0.25, 0.0}};
  for (size_t i = 0; i < 3; ++i) {
    SCOPED_TRACE(i);
    const voltageData& data = instance(i).data;
    for (double value : {data.peak, data.avg, data.rms, data.absAvg}) {
      EXPECT_EQ(value, expected[i][0]);
    }
    EXPECT_EQ(data.peakValue, expected[i][1]);
    EXPECT_EQ(data.rawAvg, expected[i][1]);
    EXPECT_EQ(data.dutyRatio, 1.0);
    EXPECT_EQ(instance(i).direction, -1);
  }
}

TEST_F(RunLoop, ResistorPowersAreCopiedWhenTheVariableIsSet) {
  addWave("n1", {1, 1, 1});
  tran->addSignal({"R1.pwr", "R1.pwr", "resistor", -1}, MemoryValue::scalarValue("p", 0.5));
  addInstance("R1", "n1", "0");
  addInstance("R9", "n1", "0").power = 3.0;
  std::string printed;
  run({"0", "2"}, &printed);
  EXPECT_EQ(instance(0).power, 0.0);
  EXPECT_TRUE(session.resToWatt.empty());

  setenv(analysis::kSourceValuesVariable, "", 1);
  run({"0", "2"}, &printed);
  EXPECT_EQ(instance(0).power, 0.5);
  EXPECT_EQ(instance(1).power, 3.0);  // not in the table: unchanged
}

/// The statistics members of the session take their settings from the session and the
/// process: the window, the AC switches and the recovery factors.
TEST(SessionStatistics, KernelSettingsComeFromTheSession) {
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
  const auto vec = [](Vec values) {
    return std::make_shared<MemoryVector>("v", "", std::move(values));
  };
  const auto x = vec({0, 1, 2, 3, 4});
  const auto y = vec({0, 1, 4, 3, 0});
  const auto square = vec({1, 1, -1, -1, 1});
  const auto zero = vec({0, 0, 0, 0, 0});
  analysis::processSettings().ACAnalysis = true;
  for (bool oldMethod : {true, false}) {
    SCOPED_TRACE(oldMethod);
    session.useOldACPeakMethod = oldMethod;
    // Half-peak pulse from 1 + 1/3 to 3 + 1/3 around the peak at t=2; or area 8 over peak 4:
    // both give width 2 and duty 0.5.
    voltageData out{};
    int direction = 7;
    session.getMaxAvgRmsDiff(0, 4, x.get(), y.get(), out, zeInstance(), 0, -1, direction, 0.0);
    EXPECT_EQ(out.pulseWidth, 2.0);
    EXPECT_EQ(out.dutyRatio, 0.5);
    EXPECT_EQ(direction, 1);
  }
  analysis::processSettings().ACAnalysis = false;
  analysis::processSettings().emRecoveryFactorGiven = true;
  analysis::processSettings().emRecoveryFactor = 0.5f;
  session.startTime = 0.0;
  session.stopTime = 10.0;
  voltageData out{};
  int direction = 7;
  session.getMaxAvgRmsDiffNew(x.get(), x.get(), square.get(), zero.get(), out, zeInstance(), 0, -1,
                              direction);
  EXPECT_EQ(out.avg, 0.125);  // (1 - 1 x 0.5) / 4
  // A window from 2.5 on skips the steps starting at 0, 1 and 2.
  session.startTime = 2.5;
  voltageData late{};
  session.getMaxAvgRmsDiffNew(x.get(), x.get(), square.get(), zero.get(), late, zeInstance(), 0, -1,
                              direction);
  EXPECT_EQ(late.peak, 1.0);
  EXPECT_EQ(late.peakTime, 3.0);
  analysis::processSettings() = analysis::ProcessSettings();
}

TEST_F(RunLoop, RunGivesEveryInstanceItsPulses) {
  addWave("n1", {1, 3, 1});
  addInstance("R1", "n1", "0");
  addInstance("R2", "n1", "0");
  session.collectAcPulses = true;
  session.acPulseThreshold = 0.0;
  std::string printed;
  run({"0", "2"}, &printed);
  ASSERT_TRUE(instance(0).acPulses);
  ASSERT_TRUE(instance(1).acPulses);
  EXPECT_NE(instance(0).acPulses, instance(1).acPulses);
  ASSERT_EQ(instance(0).acPulses->size(), 1u);
  EXPECT_EQ((*instance(0).acPulses)[0].end, 2.0);
  EXPECT_EQ(instance(0).data.acPulses, nullptr);  // the stored record keeps no pointer
}

}  // namespace
