// The run engine over an in-memory dataset: what the end-to-end cases cannot see (reads
// counted, the streamed and batch-by-batch paths giving the same records, the stream's
// signal order, a failed bulk read, switches no command sets) and the session's settings.

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "analysis/detail/sessionStatistics.h"
#include "analysis/runLoop.h"
#include "analysis/settings.h"
#include "analysis/sources.h"
#include "analysis/streamedStatistics.h"
#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"
#include "support/testFiles.h"

namespace {

using Vec = std::vector<double>;

/// A dataset that can also hand its signals over in one pass, noting their order.
class StreamingDataset : public simdata::MemoryDataset {
 public:
  StreamingDataset() : MemoryDataset("tran", "tran") {}
  bool streamsSignals() const override { return true; }
  bool streamSignals(const simdata::SignalArray& signals, const PointChunkVisitor& visit) override {
    std::vector<Vec> columns;
    std::vector<const double*> pointers;
    for (int k = 0; k < signals.count(); ++k) {
      streamed.push_back(signals.at(k)->name1);
      const std::unique_ptr<simdata::MemoryValue>& value = values.at(signals.at(k)->name1);
      columns.emplace_back(value->yVector()->length());
      for (size_t i = 0; i < columns.back().size(); ++i) {
        columns.back()[i] = simdata::getDataVectorAt(value->yVector(), static_cast<int>(i));
      }
    }
    for (const Vec& column : columns) {
      pointers.push_back(column.data());
    }
    visit(0, columns.empty() ? 0 : columns.front().size(), pointers);
    return true;
  }
  std::vector<std::string> streamed;
  std::map<std::string, std::unique_ptr<simdata::MemoryValue>> values;
};

/// Writes what the run reports as one line per call.
class Recorder : public analysis::RunObserver {
 public:
  void batchStarting(int first, int count) override { add("start", first, count); }
  void batchLookedUp(std::span<const std::string* const> missing, bool mismatch) override {
    for (const std::string* name : missing) {
      lines += "missing " + *name + "\n";
    }
    lines += mismatch ? "mismatch\n" : "";
  }
  void batchReadFailed() override { lines += "read failed\n"; }
  void batchDone(int end, int failed, int total) override { add("done", end, failed, total); }
  std::string lines;

 private:
  template <typename... Ints>
  void add(const char* what, Ints... values) {
    lines += what;
    ((lines += " " + std::to_string(values)), ...);
    lines += "\n";
  }
};

class RunEngine : public testing::Test {
 protected:
  void SetUp() override {
    simdata::Sweep sweep;
    sweep.add({"time", simdata::Range{simdata::kFloat64, 0.0, 2.0}});
    tran.setSweep(sweep);
    settings.stopTime = 2.0 + 1e-12;
  }
  void TearDown() override { unsetenv(analysis::kStreamedRunVariable); }
  void addWave(const std::string& name, Vec y) {
    auto wave = [&] {
      return simdata::MemoryValue::waveform(name, time,
                                            std::make_shared<simdata::MemoryVector>(name, "V", y));
    };
    tran.addSignal({name, "v(" + name + ")", "voltage", -1}, wave());
    tran.values[name] = wave();
  }
  zeInstance& add(const std::string& node1, const std::string& node2) {
    zeInstance& instance = instances.emplace_back();
    instance.name = "R" + std::to_string(instances.size());
    instance.node1 = node1;
    instance.node2 = node2;
    return instance;
  }
  int run(bool streamed) {
    setenv(analysis::kStreamedRunVariable, streamed ? "on" : "off", 1);
    observer.lines.clear();
    return analysis::runInstances(tran, instances, settings, observer);
  }

  StreamingDataset tran;
  std::shared_ptr<simdata::MemoryVector> time = simdata::timeAxis({0, 1, 2});
  std::vector<zeInstance> instances;
  analysis::StatisticsSettings settings;
  Recorder observer;
};

TEST_F(RunEngine, BatchesOf5000ReadOnceEachWithSharedNodesReadOnce) {
  for (int k = 0; k < 50; ++k) {
    addWave("n" + std::to_string(k), {double(k), double(k), double(k)});
  }
  for (int i = 0; i < 12000; ++i) {
    add("n" + std::to_string(i % 50), "n" + std::to_string((i + 1) % 50));
  }
  EXPECT_EQ(run(false), 0);
  EXPECT_EQ(observer.lines,
            "start 0 5000\ndone 5000 0 12000\nstart 5000 5000\ndone 10000 0 12000\n"
            "start 10000 2000\ndone 12000 0 12000\n");
  EXPECT_EQ(tran.bulkReads(), 3);
  // d = -1 except between n49 and n0 (49); the later of equal peaks is at t = 1.
  for (size_t i : {0, 48, 49, 11999}) {
    SCOPED_TRACE(i);
    const double d = i % 50 == 49 ? 49.0 : -1.0;
    EXPECT_EQ(instances[i].data.rms, std::fabs(d));
    EXPECT_EQ(instances[i].data.peakTime, 1.0);
    EXPECT_EQ(instances[i].data.rawAvg, double(i % 50));
    EXPECT_EQ(instances[i].direction, d < 0 ? 0 : 1);
  }
  instances.clear();
  EXPECT_EQ(run(false), 0);
  EXPECT_EQ(observer.lines, "start 0 0\ndone 0 0 0\n");
  EXPECT_EQ(tran.bulkReads(), 4);
}

TEST_F(RunEngine, StreamedAndBatchReadsGiveTheSameRecordsAndMessages) {
  addWave("n1", {1, 3, 1});
  addWave("n2", {0, 1, 0});
  addWave("n3", {-2, 1, 0.5});
  add("n1", "0");
  add("0", "n1").orientation = 1;
  add("n1", "#@#v0.5");
  add("n1", "gone");
  add("gone", "n2");
  add("0", "0");
  add("n3", "n2");
  add("0", "n3").orientation = 0;
  settings.ignoreSign = 2;
  // Both window modes, each read both ways.
  auto bothWays = [&] {
    std::vector<zeInstance> batchwise;
    for (bool streamed : {false, true}) {
      SCOPED_TRACE(streamed);
      tran.streamed.clear();
      const int readsBefore = tran.bulkReads();
      EXPECT_EQ(run(streamed), 2);
      // Streamed, only the time axis is read in bulk: a stream that fell back to batch reads
      // would give the same records, only slower.
      EXPECT_EQ(tran.bulkReads() - readsBefore, 1);
      EXPECT_EQ(observer.lines, "start 0 8\nmissing gone\nmissing gone\ndone 8 2 8\n");
      const int indices[][2] = {{0, -1}, {-1, 0},  {0, -3}, {0, -2},
                                {-2, 1}, {-1, -1}, {2, 1},  {-1, 2}};
      for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(instances[i].sigIndex1, indices[i][0]) << i;
        EXPECT_EQ(instances[i].sigIndex2, indices[i][1]) << i;
        EXPECT_EQ(instances[i].valid, i != 3 && i != 4) << i;
      }
      if (!streamed) {
        batchwise = instances;
        continue;
      }
      EXPECT_EQ(tran.streamed, (std::vector<std::string>{"n1", "n2", "n3"}));
      for (size_t i = 0; i < 8; ++i) {
        EXPECT_EQ(
            std::memcmp(&instances[i].data, &batchwise[i].data, offsetof(voltageData, acPulses)), 0)
            << i;
        EXPECT_EQ(instances[i].direction, batchwise[i].direction) << i;
      }
    }
  };
  bothWays();
  // n1 alone: d = 1 3 1; the second node alone keeps no raw values and flips orientation.
  EXPECT_EQ(instances[0].data.rms, std::sqrt(5.0));
  EXPECT_EQ(instances[1].data.avg, 2.0);
  EXPECT_EQ(instances[1].data.rawAvg, 0.0);
  EXPECT_EQ(instances[1].direction, 1);
  EXPECT_EQ(instances[2].data.peak, 2.5);  // d = 0.5 2.5 0.5
  EXPECT_EQ(instances[5].data.dutyRatio, 1.0);
  EXPECT_FALSE(instances[3].acPulses);

  // Exact windows, with both edges between samples: n1 alone, d = 1 3 1, is 1.5 at t = 0.25
  // and 2 at t = 1.5. Areas 0.75 (1.5 + 3)/2 + 0.5 (3 + 2)/2 = 2.9375; squares
  // 0.75 (2.25 + 4.5 + 9)/3 + 0.5 (9 + 6 + 4)/3 = 3.9375 + 19/6; length 1.25.
  settings.windowMode = analysis::WindowMode::kExact;
  settings.startTime = 0.25;
  settings.stopTime = 1.5;
  bothWays();
  EXPECT_DOUBLE_EQ(instances[0].data.avg, 2.35);
  EXPECT_DOUBLE_EQ(instances[0].data.rms, std::sqrt((3.9375 + 19.0 / 6.0) / 1.25));
  EXPECT_DOUBLE_EQ(instances[1].data.avg, 2.35);
  EXPECT_EQ(instances[1].data.rawAvg, 0.0);
  EXPECT_EQ(instances[1].direction, 1);
}

TEST_F(RunEngine, TheStreamFollowsTheDatasetsSignalOrder) {
  for (const char* name : {"a", "b", "c", "d"}) {
    addWave(name, {1, 2, 3});
  }
  add("d", "b");
  add("c", "0");
  add("b", "a");
  EXPECT_EQ(run(true), 0);
  EXPECT_EQ(tran.streamed, (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(instances[0].data.peak, 0.0);
  EXPECT_EQ(instances[1].data.peak, 3.0);
}

TEST_F(RunEngine, AFailedBulkReadFailsTheBatchAndKeepsItsRecords) {
  addWave("n1", {1, 1, 1});
  add("n1", "0").data.peak = 42.0;
  add("0", "n1");
  tran.failReads(true);
  EXPECT_EQ(run(false), 2);
  EXPECT_EQ(observer.lines, "start 0 2\nread failed\ndone 2 2 2\n");
  EXPECT_EQ(instances[0].data.peak, 42.0);
  EXPECT_TRUE(instances[0].valid);
}

TEST_F(RunEngine, PolarityAveragesAreStoredAsTheIgnoreSettingAsks) {
  addWave("p", {1, 1, -1});
  // Steps: [0,1] area 1 (positive), [1,2] mid 0 counts positive; no negative step.
  const double cases[][3] = {{0, -7, -7}, {-1, 0.5, -7}, {1, -7, 0}, {2, 0.5, 0}};
  for (const auto& [ignoreSign, positive, negative] : cases) {
    for (bool streamed : {false, true}) {
      SCOPED_TRACE(std::to_string(ignoreSign) + (streamed ? " streamed" : ""));
      instances.clear();
      add("p", "0").data.avgPositive = -7;
      instances[0].data.avgNegative = -7;
      settings.ignoreSign = static_cast<int>(ignoreSign);
      run(streamed);
      EXPECT_EQ(instances[0].data.avgPositive, positive);
      EXPECT_EQ(instances[0].data.avgNegative, negative);
    }
  }
}

TEST_F(RunEngine, EveryInstanceGetsItsOwnPulses) {
  addWave("n1", {1, 3, 1});
  add("n1", "0");
  add("n1", "0");
  settings.collectAcPulses = true;
  settings.acPulseThreshold = 0.0;
  run(false);
  ASSERT_TRUE(instances[0].acPulses && instances[1].acPulses);
  EXPECT_NE(instances[0].acPulses, instances[1].acPulses);
  ASSERT_EQ(instances[0].acPulses->size(), 1u);
  EXPECT_EQ((*instances[0].acPulses)[0].end, 2.0);
  EXPECT_EQ(instances[0].data.acPulses, nullptr);  // the stored record keeps no pointer
}

TEST(SessionRun, SettingsAndResistorPowersComeFromTheSession) {
  testing_support::ScratchDir dir;
  testing_support::writeFile(dir.file("cmd"), "");
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  session.durationTime = 0.25;
  session.startTime = 1.0;
  session.stopTime = 2.0;
  session.useOldACPeakMethod = true;
  analysis::processSettings() = {true, true, 0.5f, 0.75f};
  const analysis::StatisticsSettings settings = analysis::detail::settingsOf(session, -1);
  analysis::processSettings() = analysis::ProcessSettings();
  EXPECT_EQ(settings.durationTime, 0.25);
  EXPECT_EQ(settings.startTime, 1.0);
  EXPECT_EQ(settings.stopTime, 2.0);
  EXPECT_EQ(settings.ignoreSign, -1);
  EXPECT_TRUE(settings.acAnalysis && settings.emRecoveryFactorGiven);
  EXPECT_EQ(settings.acPeakMethod, analysis::AcPeakMethod::kHalfPeakPulses);
  EXPECT_EQ(settings.recoveryFactor, 0.5f);
  EXPECT_EQ(settings.emRecoveryFactor, 0.75f);

  // Resistor powers are copied into the instances only when source values are read.
  auto results = std::make_unique<simdata::MemoryResultsDir>("mem");
  simdata::MemoryDataset* tran = results->addDataset("tran", "tran");
  tran->addSignal({"R1.pwr", "R1.pwr", "resistor", -1},
                  simdata::MemoryValue::scalarValue("p", 0.5));
  session.analysis = tran;
  session.resultsDir = std::move(results);
  session.instances.instances.resize(2);
  session.instances.instances[0].name = "R1";
  session.instances.instances[1].name = "R9";
  session.instances.instances[1].power = 3.0;
  const ArgList args{"0", "2"};
  testing::internal::CaptureStdout();
  session.processRunCmd(&args, 0);
  EXPECT_EQ(session.instances.instances[0].power, 0.0);
  setenv(analysis::kSourceValuesVariable, "", 1);
  session.processRunCmd(&args, 0);
  unsetenv(analysis::kSourceValuesVariable);
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(session.instances.instances[0].power, 0.5);
  EXPECT_EQ(session.instances.instances[1].power, 3.0);  // not in the table: unchanged
}

}  // namespace
