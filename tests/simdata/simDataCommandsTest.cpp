#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"
#include "support/testFiles.h"

using simdata::MemoryDataset;
using simdata::MemoryResultsDir;
using simdata::MemoryValue;
using simdata::MemoryVector;
using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

/// A session with a log file, and helpers to see what each command logged and echoed.
class SimDataCommands : public testing::Test {
 protected:
  void SetUp() override {
    simdata::initialise();
    writeFile(dir.file("cmd"), "");
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  }

  /// What the log received since the last call.
  std::string newLog() {
    std::fflush(session.logFile.get());
    const std::string all = readFile(dir.file("log"));
    std::string fresh = all.substr(seen_);
    seen_ = all.size();
    return fresh;
  }

  struct Outcome {
    int result;
    std::string echoed;
    std::string logged;
  };
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

  static simdata::Sweep timeSweep(double start, double stop) {
    simdata::Sweep sweep;
    sweep.add({"time", simdata::Range{simdata::kFloat64, start, stop}});
    return sweep;
  }

  static void addSignals(MemoryDataset* dataset, const std::vector<std::string>& names) {
    auto axis = simdata::timeAxis({0.0, 1.0});
    for (const std::string& name : names) {
      dataset->addSignal({name, "v(" + name + ")", "voltage"},
                         MemoryValue::waveform(name, axis, MemoryVector::zeros("y", 2)));
    }
  }

  ScratchDir dir;
  zeAnalyzeNetlist session;

 private:
  size_t seen_ = 0;
};

const std::string kMustOpen =
    "ERROR: kra2: Must open simulation data directory first (openSimData)\n";

TEST_F(SimDataCommands, EveryCommandNeedsOpenResultsFirst) {
  const ArgList net{dir.file("net.txt")};
  const ArgList temp{dir.file("temp.txt")};
  const ArgList info{dir.file("info.txt")};
  const ArgList tran{"tran"};
  std::vector<std::string> infoLines;
  double temperature = -1.0;
  struct Case {
    const char* name;
    std::function<int()> command;
    std::string message;
    bool echoed;
  };
  const Case cases[] = {
      {"selectAnalysis", [&] { return session.processSelectAnalysisCmd(&tran); }, kMustOpen, true},
      {"displayAnalysis", [&] { return session.processDisplayAnalysisCmd(nullptr); }, kMustOpen,
       false},
      {"displaySignals", [&] { return session.processDisplaySignalCmd(nullptr); }, kMustOpen, true},
      {"createNetlist", [&] { return session.processCreateNetlistCmd(&net); }, kMustOpen, true},
      {"saveTemperature", [&] { return session.processSaveTemperatureCmd(&temp, temperature); },
       "ERROR: saveTemperature: must open simulation data directory first (openSimData)\n", true},
      {"saveAnalysisInfo", [&] { return session.processSaveAnalysisInfoCmd(&info, infoLines); },
       "ERROR: saveAnalysisInfo: must open simulation data directory first (openSimData)\n", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome outcome = run(c.command);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.logged, c.message);
    EXPECT_EQ(outcome.echoed, c.echoed ? c.message : "");
  }
  EXPECT_EQ(session.analysis, nullptr);
  EXPECT_EQ(temperature, -1.0);
  // The output files are opened before the check, so they are left behind empty.
  for (const char* name : {"net.txt", "temp.txt", "info.txt"}) {
    EXPECT_TRUE(std::filesystem::exists(dir.file(name))) << name;
    EXPECT_EQ(readFile(dir.file(name)), "") << name;
  }
}

TEST_F(SimDataCommands, MissingArguments) {
  const ArgList empty;
  std::vector<std::string> infoLines;
  double temperature = 0.0;
  struct Case {
    const char* name;
    std::function<int()> command;
    std::string message;
  };
  const Case cases[] = {
      {"openSimData", [&] { return session.processOpenSimDataCmd(nullptr); },
       "ERROR: kra2: openSimData command requires a directory name.\n"},
      {"openSimData, empty list", [&] { return session.processOpenSimDataCmd(&empty); },
       "ERROR: kra2: openSimData command requires a directory name.\n"},
      {"selectAnalysis", [&] { return session.processSelectAnalysisCmd(nullptr); },
       "ERROR: kra2: selectAnalysis command requires a analysis name.\n"},
      {"saveTemperature", [&] { return session.processSaveTemperatureCmd(nullptr, temperature); },
       "ERROR: kra2: saveTemperature command requires a file name.\n"},
      {"createNetlist", [&] { return session.processCreateNetlistCmd(&empty); },
       "ERROR: kra2: createNetlist command requires a file name.\n"},
      {"saveAnalysisInfo", [&] { return session.processSaveAnalysisInfoCmd(nullptr, infoLines); },
       "ERROR: kra2: saveAnalysisInfo command requires a file name.\n"},
      {"saveAnalysisInfo, files off",
       [&] {
         session.writeOutputFiles = false;
         const int result = session.processSaveAnalysisInfoCmd(&empty, infoLines);
         session.writeOutputFiles = true;
         return result;
       },
       "ERROR: kra2: saveAnalysisInfo command requires a file name.\n"},
  };
  useMemory()->addDataset("tran", "tran");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Outcome outcome = run(c.command);
    EXPECT_EQ(outcome.result, 1);
    EXPECT_EQ(outcome.logged, c.message);
    EXPECT_EQ(outcome.echoed, c.message);
  }
}

TEST_F(SimDataCommands, OpenSimDataOnRawFiles) {
  const std::string data = std::string(KRA2_SOURCE_DIR) + "/tests/data/ngspice/";
  std::filesystem::create_directory(dir.file("plain"));
  std::filesystem::create_directory(dir.file("bad"));
  writeFile(dir.file("bad/broken.raw"), "Title: x\nPlotname: Transient Analysis\nNo. Points: x\n");

  const ArgList good{data + "rc_tran.bin.raw"};
  Outcome outcome = run([&] { return session.processOpenSimDataCmd(&good); });
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.echoed, "");
  EXPECT_EQ(outcome.logged, "INFO: Successfully opened results at " + good[0] +
                                ".\nINFO: Reader Name SPICE raw.\n");
  simdata::ResultsDir* opened = session.resultsDir.get();

  const ArgList plain{dir.file("plain")};
  outcome = run([&] { return session.processOpenSimDataCmd(&plain); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.logged, "ERROR: " + plain[0] + " is not a results directory\n");
  EXPECT_EQ(outcome.echoed, outcome.logged);
  EXPECT_EQ(session.resultsDir.get(), opened);

  const ArgList bad{dir.file("bad")};
  outcome = run([&] { return session.processOpenSimDataCmd(&bad); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.echoed, "ERROR: kra2: openSimData command failed.\n");
  EXPECT_EQ(outcome.logged,
            "ERROR: kra2: openSimData command failed.\nWARNING: " + dir.file("bad/broken.raw") +
                ": line 3: 'No. Points' must be a count, found 'x'\n");
  EXPECT_EQ(session.resultsDir.get(), opened);

  // The selection outlives a new openSimData and stays usable.
  const ArgList tran{"tran"};
  ASSERT_EQ(session.processSelectAnalysisCmd(&tran), 0);
  simdata::Dataset* selected = session.analysis;
  const ArgList other{data + "rc_op.raw"};
  ASSERT_EQ(run([&] { return session.processOpenSimDataCmd(&other); }).result, 0);
  EXPECT_EQ(session.analysis, selected);
  outcome = run([&] { return session.processDisplaySignalCmd(nullptr); });
  EXPECT_EQ(outcome.logged.substr(0, 41), "INFO: time [4] time [4] (type: time)\nINFO");
  const ArgList op{"op"};
  EXPECT_EQ(session.processSelectAnalysisCmd(&op), 0);
  EXPECT_EQ(session.isSweepData, 0);
  EXPECT_EQ(session.replacedResultsDir, nullptr);
}

TEST_F(SimDataCommands, SelectAnalysis) {
  MemoryResultsDir* memory = useMemory();
  memory->addDataset("tran", "tran")->setSweep(timeSweep(0.0, 1e-6));
  memory->addDataset("dc", "dc");
  const ArgList tran{"tran"};
  const ArgList dc{"dc"};
  const ArgList nope{"TRAN"};
  Outcome outcome = run([&] { return session.processSelectAnalysisCmd(&dc); });
  EXPECT_EQ(outcome.result, 0);
  EXPECT_EQ(outcome.logged, "");
  EXPECT_EQ(session.isSweepData, 0);
  EXPECT_EQ(session.processSelectAnalysisCmd(&tran), 0);
  EXPECT_EQ(session.isSweepData, 1);
  simdata::Dataset* selected = session.analysis;
  outcome = run([&] { return session.processSelectAnalysisCmd(&nope); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.echoed, "ERROR: kra2: selectAnalysis must specify valid dc/tran data\n");
  EXPECT_EQ(outcome.logged, outcome.echoed + "WARNING: no dataset named TRAN in mem\n");
  EXPECT_EQ(session.analysis, selected);
  EXPECT_EQ(session.isSweepData, 1);
}

TEST_F(SimDataCommands, DisplayAnalysisRepeatsTheBufferForIncompleteDatasets) {
  MemoryResultsDir* memory = useMemory();
  Outcome outcome = run([&] { return session.processDisplayAnalysisCmd(nullptr); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.logged, "ERROR: kra2: No dataset names.\n");
  EXPECT_EQ(outcome.echoed, "");
  memory->setNoDatasetArray();
  EXPECT_EQ(run([&] { return session.processDisplayAnalysisCmd(nullptr); }).logged,
            "ERROR: kra2: No dataset names.\n");

  memory = useMemory();
  memory->addDataset(nullptr, "tran");
  memory->addDataset("tran", "tran");
  memory->addDataset("x", nullptr);
  memory->addDataset("dc", "dc");
  session.logMsg(kStatus, false, "earlier line\n");
  outcome = run([&] { return session.processDisplayAnalysisCmd(nullptr); });
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

TEST_F(SimDataCommands, DisplaySignalsListsOrReadsInBatches) {
  MemoryResultsDir* memory = useMemory();
  MemoryDataset* tran = memory->addDataset("tran", "tran");
  tran->addSignal({"time", "time", "time"}, nullptr);
  tran->addSignal({"n1", "v(n1)", "voltage"}, nullptr);
  EXPECT_EQ(run([&] { return session.processDisplaySignalCmd(nullptr); }).logged,
            "ERROR: kra2: Must select analysis first (selectAnalysis)\n");
  session.analysis = tran;
  const std::string list =
      "INFO: time [4] time [4] (type: time)\nINFO: n1 [2] v(n1) [5] (type: voltage)\n";
  for (const ArgList& args : {ArgList{}, ArgList{"-V"}, ArgList{"-v", "x"}, ArgList{"v"}}) {
    SCOPED_TRACE(args.empty() ? "none" : args[0]);
    const Outcome outcome = run([&] { return session.processDisplaySignalCmd(&args); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.logged, list);
    EXPECT_EQ(outcome.echoed, "");
  }
  EXPECT_EQ(tran->bulkReads(), 0);

  struct Case {
    int signals;
    std::vector<int> batches;
    std::string log;
  };
  const Case cases[] = {
      {0, {0}, "INFO: Reading Sim Data\nINFO: 0 signals have been read\n"},
      {3, {3}, "INFO: Reading Sim Data\nINFO: 0 signals have been read\n"},
      {10000,
       {10000, 0},
       "INFO: Reading Sim Data\nINFO: 0 signals have been read\nINFO: 10000 signals have been "
       "read\n"},
      {10001,
       {10000, 1},
       "INFO: Reading Sim Data\nINFO: 0 signals have been read\nINFO: 10000 signals have been "
       "read\n"},
      {25000,
       {10000, 10000, 5000},
       "INFO: Reading Sim Data\nINFO: 0 signals have been read\nINFO: 10000 signals have been "
       "read\nINFO: 20000 signals have been read\n"},
  };
  const ArgList verbose{"-v"};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.signals);
    auto results = std::make_unique<CountingResults>();
    CountingDataset& dataset = results->dataset;
    results->array.add(&dataset);
    for (int i = 0; i < c.signals; ++i) {
      dataset.addSignal({"s" + std::to_string(i), "s", "voltage"}, nullptr);
    }
    session.analysis = &dataset;
    session.resultsDir = std::move(results);
    const Outcome outcome = run([&] { return session.processDisplaySignalCmd(&verbose); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(dataset.batches, c.batches);
    EXPECT_EQ(outcome.logged, c.log);
    session.analysis = nullptr;
  }
}

TEST_F(SimDataCommands, SaveTemperature) {
  struct Case {
    const char* name;
    std::function<void(MemoryResultsDir&)> build;
    int result;
    std::string file;
    std::string log;
    double temperature;
  };
  const double unchanged = -273.0;
  const Case cases[] = {
      {"scalar",
       [](MemoryResultsDir& m) {
         m.addDataset("variables", "variables")
             ->addValue("temp:value", MemoryValue::scalarValue("temp", 27.0));
       },
       0, "Temperature 27.000000\n", "", 27.0},
      {"data vector of int",
       [](MemoryResultsDir& m) {
         auto y = std::make_shared<MemoryVector>("t", "C", std::vector<int32_t>{85, 1});
         m.addDataset("variables", "variables")
             ->addValue("temp:value", MemoryValue::waveform("temp", y, y));
       },
       0, "Temperature 85.000000\n", "", 85.0},
      {"no variables dataset", [](MemoryResultsDir& m) { m.addDataset("tran", "tran"); }, 0, "", "",
       unchanged},
      {"variables without temp:value",
       [](MemoryResultsDir& m) { m.addDataset("variables", "variables"); }, 0, "", "", unchanged},
      {"no datasets", [](MemoryResultsDir&) {}, 0, "",
       "ERROR: saveTemperature: mem is not a valid result dir.\n", unchanged},
  };
  const ArgList out{dir.file("temp.txt")};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.build(*useMemory());
    double temperature = unchanged;
    writeFile(dir.file("temp.txt"), "old contents\n");
    const Outcome outcome =
        run([&] { return session.processSaveTemperatureCmd(&out, temperature); });
    EXPECT_EQ(outcome.result, c.result);
    EXPECT_EQ(outcome.logged, c.log);
    EXPECT_EQ(outcome.echoed, c.log);
    EXPECT_EQ(readFile(dir.file("temp.txt")), c.file);
    EXPECT_EQ(temperature, c.temperature);
    if (c.file.empty()) {
      // Formatted into the message buffer, never logged.
      EXPECT_STREQ(zeAnalyzeNetlist::getLogBuf(),
                   "saveTemperature: no teperature data found in directory mem. \n");
    }
  }

  const ArgList unwritable{dir.file("missing/temp.txt")};
  double temperature = 0.0;
  const Outcome outcome =
      run([&] { return session.processSaveTemperatureCmd(&unwritable, temperature); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.logged,
            "ERROR: saveTemperature: can not write the output file " + unwritable[0] + ".\n");

  // Without output files the argument is not needed and nothing is written.
  useMemory()
      ->addDataset("variables", "variables")
      ->addValue("temp:value", MemoryValue::scalarValue("temp", 125.0));
  session.writeOutputFiles = false;
  EXPECT_EQ(session.processSaveTemperatureCmd(nullptr, temperature), 0);
  EXPECT_EQ(temperature, 125.0);
  session.writeOutputFiles = true;
}

TEST_F(SimDataCommands, CreateNetlistChainsNeighbouringSignals) {
  const ArgList out{dir.file("net.txt")};
  MemoryResultsDir* memory = useMemory();
  MemoryDataset* four = memory->addDataset("tran", "tran");
  addSignals(four, {"time", "a", "b", "c"});
  MemoryDataset* two = memory->addDataset("tran2", "tran");
  addSignals(two, {"time", "a"});
  Outcome outcome = run([&] { return session.processCreateNetlistCmd(&out); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.logged, "ERROR: kra2: Must select analysis first (selectAnalysis)\n");
  EXPECT_EQ(readFile(out[0]), "");
  session.analysis = four;
  EXPECT_EQ(session.processCreateNetlistCmd(&out), 0);
  EXPECT_EQ(readFile(out[0]), "R1\ta\tb\nR2\tb\tc\n");
  session.analysis = two;
  EXPECT_EQ(session.processCreateNetlistCmd(&out), 0);
  EXPECT_EQ(readFile(out[0]), "");
  const ArgList unwritable{dir.file("missing/net.txt")};
  outcome = run([&] { return session.processCreateNetlistCmd(&unwritable); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.echoed, "ERROR: kra2: Unable to create netlist file " + unwritable[0] + ".\n");
}

TEST_F(SimDataCommands, SaveAnalysisInfo) {
  using Build = std::function<void(MemoryResultsDir&)>;
  struct Case {
    const char* name;
    Build build;
    ArgList extra;
    std::string file;
    std::string log;
  };
  const Case cases[] = {
      {"one transient",
       [](MemoryResultsDir& m) { m.addDataset("tran", "tran")->setSweep(timeSweep(0.0, 1e-6)); },
       {},
       "#SimDataIsValid\n#AnalysisType\ntran\ntran\ntran\n#TimeRange 0.000000e+00 1.000000e-06\n",
       ""},
      {"only scalar datasets",
       [](MemoryResultsDir& m) {
         m.addDataset("info", "info");
         m.addDataset("variables", "variables");
       },
       {},
       "#SimDataIsInvalid\n",
       "ERROR: saveAnalysisInfo: no tran/dc data found in directory mem.\n"},
      {"no datasets",
       [](MemoryResultsDir&) {},
       {},
       "#SimDataIsInvalid\n",
       "ERROR: saveAnalysisInfo: mem is not a valid result dir.\n"
       "ERROR: saveAnalysisInfo: no tran/dc data found in directory mem.\n"},
      {"mixed: the range carries over, incomplete and filtered datasets are skipped",
       [](MemoryResultsDir& m) {
         m.addDataset("op", "dc");
         m.addDataset(nullptr, "tran")->setSweep(timeSweep(5.0, 6.0));
         m.addDataset("DC_Info", "DC_Info");
         m.addDataset("first", "tran")->setSweep(timeSweep(1e-9, 2e-9));
         simdata::Sweep frequency;
         frequency.add({"frequency", simdata::Range{simdata::kFloat64, 1.0, 1e6}});
         m.addDataset("second", "ac")->setSweep(frequency);
         m.addDataset("named tran", "tran");
       },
       {},
       "#SimDataIsValid\n#AnalysisType\nop\ndc\ndc\nfirst\ntran\ntran\n"
       "#TimeRange 1.000000e-09 2.000000e-09\nsecond\nac\ntran\n"
       "#TimeRange 1.000000e-09 2.000000e-09\nnamed tran\ntran\ndc\n",
       ""},
      {"a sweep without time gives no range",
       [](MemoryResultsDir& m) {
         simdata::Sweep sweep;
         sweep.add({"v(v-sweep)", simdata::Range{simdata::kFloat64, 0.0, 2.0}});
         m.addDataset("dc", "dc")->setSweep(sweep);
       },
       {},
       "#SimDataIsValid\n#AnalysisType\ndc\ndc\ntran\n#TimeRange NaN NaN\n",
       ""},
      {"a database option of two words is ignored",
       [](MemoryResultsDir& m) { m.addDataset("tran", "tran"); },
       {"-muroDBFile"},
       "#SimDataIsValid\n#AnalysisType\ntran\ntran\ndc\n",
       ""},
      {"a database option in the wrong case is ignored",
       [](MemoryResultsDir& m) { m.addDataset("tran", "tran"); },
       {"-murodbfile", "x.db"},
       "#SimDataIsValid\n#AnalysisType\ntran\ntran\ndc\n",
       ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.build(*useMemory());
    ArgList args{dir.file("info.txt")};
    args.insert(args.end(), c.extra.begin(), c.extra.end());
    std::vector<std::string> info;
    const Outcome outcome = run([&] { return session.processSaveAnalysisInfoCmd(&args, info); });
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(readFile(dir.file("info.txt")), c.file);
    EXPECT_EQ(outcome.logged, c.log);
    EXPECT_EQ(outcome.echoed, c.log);
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

  // Without output files the lines go to the caller and the time range to the session.
  useMemory()->addDataset("tran", "tran")->setSweep(timeSweep(0.0, 1e-6));
  session.writeOutputFiles = false;
  std::filesystem::remove(dir.file("info.txt"));
  const ArgList args{dir.file("info.txt")};
  EXPECT_EQ(session.processSaveAnalysisInfoCmd(&args, info), 0);
  session.writeOutputFiles = true;
  EXPECT_FALSE(std::filesystem::exists(dir.file("info.txt")));
  EXPECT_EQ(info, (std::vector<std::string>{"tran", "tran", "tran",
                                            "#TimeRange 0.000000e+00 1.000000e-06"}));
  EXPECT_EQ(session.startTime, 0.0);
  EXPECT_EQ(session.stopTime, 1e-6);

  const ArgList unwritable{dir.file("missing/info.txt")};
  const Outcome outcome =
      run([&] { return session.processSaveAnalysisInfoCmd(&unwritable, info); });
  EXPECT_EQ(outcome.result, 1);
  EXPECT_EQ(outcome.echoed,
            "ERROR: saveAnalysisInfo: can not write the output file " + unwritable[0] + ".\n");
}

TEST_F(SimDataCommands, SessionTimeRangeOperations) {
  session.startTime = 7.0;
  session.stopTime = 8.0;
  session.getStartStopTimeRange(nullptr);
  EXPECT_EQ(session.startTime, 7.0);
  const simdata::Sweep sweep = timeSweep(1.5, 2.5);
  session.getStartStopTimeRange(&sweep);
  EXPECT_EQ(session.startTime, 1.5);
  EXPECT_EQ(session.stopTime, 2.5);
  auto wave =
      MemoryValue::waveform("w", simdata::timeAxis({0, 1, 2, 3}), MemoryVector::zeros("y", 4));
  int startIndex = 0;
  int stopIndex = 0;
  session.getTimeRangeIndices(wave.get(), startIndex, stopIndex);
  EXPECT_EQ(startIndex, 1);
  EXPECT_EQ(stopIndex, 2);
  session.stopTime = -1.0;
  session.getTimeRangeIndices(wave.get(), startIndex, stopIndex);
  EXPECT_EQ(stopIndex, 4);
  session.getTimeRangeIndices(nullptr, startIndex, stopIndex);
  EXPECT_EQ(startIndex, 0);
  EXPECT_EQ(stopIndex, 2147483647);
}

}  // namespace
