// The simulation-data commands on in-memory results, for what no results file can hold:
// datasets without a name or type, no dataset list at all, a temperature stored as integers,
// and the bulk reads of displaySignals -v counted. The commands on real results, their
// messages and the files they write are checked end to end (tests/e2e, simdata_*; the odd
// selections, listings, netlists and analysis infos in simdata_commands_edges).

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"
#include "support/testFiles.h"

using simdata::MemoryDataset;
using simdata::MemoryResultsDir;
using simdata::MemoryValue;
using simdata::MemoryVector;
using testing_support::readFile;
using testing_support::writeFile;

namespace {

/// A session with a log file, and a way to see what one command logged and echoed.
class SimDataCommands : public testing::Test {
 protected:
  void SetUp() override {
    simdata::initialise();
    writeFile(dir.file("cmd"), "");
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  }

  struct Outcome {
    int result;
    std::string echoed;
    std::string logged;
  };
  /// What the log received since the last call.
  std::string newLog() {
    std::fflush(session.logFile.get());
    const std::string all = readFile(dir.file("log"));
    const std::string fresh = all.substr(seen_);
    seen_ = all.size();
    return fresh;
  }
  Outcome run(const std::function<int()>& command) {
    newLog();
    testing::internal::CaptureStdout();
    const int result = command();
    std::string echoed = testing::internal::GetCapturedStdout();
    return {result, echoed, newLog()};
  }

  MemoryResultsDir* useMemory() {
    auto memory = std::make_unique<MemoryResultsDir>("mem");
    MemoryResultsDir* raw = memory.get();
    session.resultsDir = std::move(memory);
    return raw;
  }

  static simdata::Sweep sweep(const char* name, double start, double stop) {
    simdata::Sweep sweep;
    sweep.add({name, simdata::Range{simdata::kFloat64, start, stop}});
    return sweep;
  }

  testing_support::ScratchDir dir;
  zeAnalyzeNetlist session;

 private:
  size_t seen_ = 0;
};

TEST_F(SimDataCommands, DisplayAnalysisRepeatsTheBufferForIncompleteDatasets) {
  useMemory()->setNoDatasetArray();
  EXPECT_EQ(run([&] { return session.processDisplayAnalysisCmd(nullptr); }).logged,
            "ERROR: kra2: No dataset names.\n");
  MemoryResultsDir* memory = useMemory();
  memory->addDataset(nullptr, "tran");
  memory->addDataset("tran", "tran");
  memory->addDataset("x", nullptr);
  memory->addDataset("dc", "dc");
  session.logMsg(kStatus, Echo::no, "earlier line\n");
  const Outcome outcome = run([&] { return session.processDisplayAnalysisCmd(nullptr); });
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.echoed, "");
  EXPECT_EQ(outcome.logged,
            "INFO: earlier line\nINFO: tran\ttran\nINFO: tran\ttran\nINFO: dc\tdc\n");
}

/// Records the size of every bulk read.
class CountingDataset : public MemoryDataset {
 public:
  CountingDataset() : MemoryDataset("tran", "tran") {}
  std::unique_ptr<simdata::ValueArray> read(const simdata::SignalArray& signals) override {
    batches.push_back(signals.count());
    return MemoryDataset::read(signals);
  }
  std::vector<int> batches;
};

class CountingResults : public simdata::ResultsDir {
 public:
  const char* name() const override { return "counting"; }
  const simdata::DatasetArray* datasets() const override { return &array; }
  CountingDataset dataset;
  simdata::DatasetArray array;
};

TEST_F(SimDataCommands, DisplaySignalsReadsInBatches) {
  // A count that is a multiple of the batch reads (and reports) a last empty batch.
  const std::string head = "INFO: Reading Sim Data\nINFO: 0 signals have been read\n";
  const std::string read10k = "INFO: 10000 signals have been read\n";
  const std::tuple<int, std::vector<int>, std::string> cases[] = {
      {3, {3}, head},
      {10000, {10000, 0}, head + read10k},
      {25000, {10000, 10000, 5000}, head + read10k + "INFO: 20000 signals have been read\n"},
  };
  const ArgList verbose{"-v"};
  for (const auto& [signals, batches, log] : cases) {
    SCOPED_TRACE(signals);
    auto results = std::make_unique<CountingResults>();
    CountingDataset& dataset = results->dataset;
    results->array.add(&dataset);
    for (int i = 0; i < signals; ++i) {
      dataset.addSignal({"s" + std::to_string(i), "s", "voltage"}, nullptr);
    }
    session.analysis = &dataset;
    session.resultsDir = std::move(results);
    EXPECT_EQ(run([&] { return session.processDisplaySignalCmd(&verbose); }).logged, log);
    EXPECT_EQ(dataset.batches, batches);
    session.analysis = nullptr;
  }
}

TEST_F(SimDataCommands, SaveTemperature) {
  struct Case {
    const char* name;
    std::function<void(MemoryResultsDir&)> build;
    std::string file, log;
    double temperature;
  };
  const double unchanged = -273.0;
  const Case cases[] = {
      {"first element of an int vector",
       [](MemoryResultsDir& m) {
         auto y = std::make_shared<MemoryVector>("t", "C", std::vector<int32_t>{85, 1});
         m.addDataset("variables", "variables")
             ->addValue("temp:value", MemoryValue::waveform("temp", y, y));
       },
       "Temperature 85.000000\n", "", 85.0},
      {"variables without temp:value",
       [](MemoryResultsDir& m) { m.addDataset("variables", "variables"); }, "", "", unchanged},
      {"no datasets", [](MemoryResultsDir&) {}, "",
       "ERROR: saveTemperature: mem is not a valid result dir.\n", unchanged},
  };
  const ArgList out{dir.file("temp.txt")};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.build(*useMemory());
    double temperature = unchanged;
    writeFile(out[0], "old contents\n");
    const Outcome outcome =
        run([&] { return session.processSaveTemperatureCmd(&out, temperature); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.logged, c.log);
    EXPECT_EQ(outcome.echoed, c.log);
    EXPECT_EQ(readFile(out[0]), c.file);
    EXPECT_EQ(temperature, c.temperature);
    if (c.file.empty()) {  // formatted into the message buffer, never logged
      EXPECT_STREQ(zeAnalyzeNetlist::getLogBuf(),
                   "saveTemperature: no teperature data found in directory mem. \n");
    }
  }
  // Without output files the argument is not needed.
  useMemory()
      ->addDataset("variables", "variables")
      ->addValue("temp:value", MemoryValue::scalarValue("temp", 125.0));
  session.writeOutputFiles = false;
  double temperature = 0.0;
  EXPECT_EQ(session.processSaveTemperatureCmd(nullptr, temperature), 0);
  EXPECT_EQ(temperature, 125.0);
}

TEST_F(SimDataCommands, SaveAnalysisInfo) {
  struct Entry {  // a dataset; a null axis means no sweep
    const char* name;
    const char* type;
    const char* axis = nullptr;
    double start = 0.0, stop = 0.0;
  };
  const std::string noData = "ERROR: saveAnalysisInfo: no tran/dc data found in directory mem.\n";
  const std::tuple<std::vector<Entry>, std::string, std::string> cases[] = {
      {{{"info", "info"}, {"variables", "variables"}}, "#SimDataIsInvalid\n", noData},
      {{},
       "#SimDataIsInvalid\n",
       "ERROR: saveAnalysisInfo: mem is not a valid result dir.\n" + noData},
      // Datasets without a name, and info datasets, are left out; a transient without a sweep
      // is "dc".
      {{{nullptr, "tran", "time", 5.0, 6.0}, {"DC_Info", "DC_Info"}, {"named tran", "tran"}},
       "#SimDataIsValid\n#AnalysisType\nnamed tran\ntran\ndc\n",
       ""},
  };
  for (const auto& [datasets, file, log] : cases) {
    SCOPED_TRACE(file);
    MemoryResultsDir* memory = useMemory();
    for (const Entry& e : datasets) {
      MemoryDataset* dataset = memory->addDataset(e.name, e.type);
      if (e.axis != nullptr) {
        dataset->setSweep(sweep(e.axis, e.start, e.stop));
      }
    }
    const ArgList args{dir.file("info.txt")};
    std::vector<std::string> info;
    const Outcome outcome = run([&] { return session.processSaveAnalysisInfoCmd(&args, info); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(readFile(dir.file("info.txt")), file);
    EXPECT_EQ(outcome.logged, log);
    EXPECT_EQ(outcome.echoed, log);
  }
  EXPECT_EQ(session.startTime, -1.0);
  EXPECT_EQ(session.stopTime, -1.0);

  // With the database option every transient-typed dataset takes the "tran" path, sweep or
  // not (the range itself comes from the database reader).
  useMemory()->addDataset("logic", "logic simulation");
  ArgList withDatabase{dir.file("info.txt"), "-muroDBFile", dir.file("none.db")};
  std::vector<std::string> info;
  run([&] { return session.processSaveAnalysisInfoCmd(&withDatabase, info); });
  const std::string written = readFile(dir.file("info.txt"));
  EXPECT_EQ(written.rfind("#SimDataIsValid\n#AnalysisType\nlogic\nlogic simulation\ntran\n", 0), 0u)
      << written;

  // Without output files the lines go to the caller and the time range to the session; the
  // file name is still required.
  useMemory()->addDataset("tran", "tran")->setSweep(sweep("time", 0.0, 1e-6));
  session.writeOutputFiles = false;
  std::filesystem::remove(dir.file("info.txt"));
  const ArgList args{dir.file("info.txt")}, none;
  info.clear();
  EXPECT_EQ(session.processSaveAnalysisInfoCmd(&args, info), 0);
  EXPECT_FALSE(std::filesystem::exists(dir.file("info.txt")));
  EXPECT_EQ(info, (std::vector<std::string>{"tran", "tran", "tran",
                                            "#TimeRange 0.000000e+00 1.000000e-06"}));
  EXPECT_EQ(session.startTime, 0.0);
  EXPECT_EQ(session.stopTime, 1e-6);
  EXPECT_EQ(run([&] { return session.processSaveAnalysisInfoCmd(&none, info); }).logged,
            "ERROR: kra2: saveAnalysisInfo command requires a file name.\n");

  // The run loop's window lookup uses the waveform's own axis and the session's window.
  auto wave = MemoryValue::waveform("w", simdata::timeAxis({0, 1e-7, 2e-7, 3e-7}),
                                    MemoryVector::zeros("y", 4));
  session.startTime = 1e-7;
  session.stopTime = 2.5e-7;
  int startIndex = 0, stopIndex = 0;
  session.getTimeRangeIndices(wave.get(), startIndex, stopIndex);
  EXPECT_EQ(startIndex, 1);
  EXPECT_EQ(stopIndex, 2);
}

}  // namespace