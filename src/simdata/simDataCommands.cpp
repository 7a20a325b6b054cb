// Simulation-data commands: open results, select and list analyses and signals, extract the
// temperature, and describe the results to the tools around the analysis (a chained netlist
// and the analysis-info file).

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "app/analyzeNetlist.h"
#include "simdata/analysisFilter.h"
#include "simdata/timeRange.h"

namespace {

constexpr const char* kMustOpen = "%s: Must open simulation data directory first (openSimData)\n";
constexpr const char* kMustOpenLower =
    "%s: must open simulation data directory first (openSimData)\n";
constexpr const char* kMustSelect = "%s: Must select analysis first (selectAnalysis)\n";
constexpr const char* kNoSignals = "%s: Error getting signal names.\n";
constexpr const char* kNeedsFileName = "%s: %s command requires a file name.\n";
constexpr const char* kCannotWrite = "%s: can not write the output file %s.\n";
constexpr const char* kNotValidDir = "%s: %s is not a valid result dir.\n";

/// Signals read per bulk read of displaySignals -v.
constexpr int kSignalBatch = 10000;

bool hasDatasets(const simdata::ResultsDir& dir) {
  const simdata::DatasetArray* datasets = dir.datasets();
  return datasets != nullptr && datasets->count() > 0;
}

/// The signal list of the selected analysis, or null after logging that it cannot be read.
const simdata::SignalList* signalsOrFail(zeAnalyzeNetlist& session, Echo echo) {
  const simdata::SignalList* signals = session.analysis->signals();
  if (signals == nullptr) {
    session.logMsg(kError, echo, kNoSignals, kProgramName);
    session.printLastError();
  }
  return signals;
}

/// Opens the output file `fileName` of `command` when the session writes output files (else
/// leaves `file` closed); false after logging that it cannot be written.
bool openCommandOutput(zeAnalyzeNetlist& session, const char* command, const char* fileName,
                       OutputFile& file) {
  if (!session.writeOutputFiles) {
    return true;
  }
  file = OutputFile(fileName, "w+");
  if (!file) {
    session.logMsg(kError, Echo::yes, kCannotWrite, command, fileName);
    return false;
  }
  return true;
}

/// The temperature stored as "temp:value" in the "variables" dataset, if there is one.
bool findTemperature(const simdata::ResultsDir& dir, double& temperature) {
  simdata::Dataset* variables = dir.findDataset("variables");
  if (variables == nullptr) {
    return false;
  }
  const std::unique_ptr<simdata::Value> value = variables->readValue("temp:value");
  if (!value) {
    return false;
  }
  if (value->kind() == simdata::kScalarValue) {
    temperature = value->scalar();
    return true;
  }
  if (value->kind() == simdata::kDataVectorValue && value->yVector() != nullptr) {
    temperature = simdata::getDataVectorAt(value->yVector(), 0);
    return true;
  }
  return false;
}

}  // namespace

bool zeAnalyzeNetlist::analysisSelected() {
  if (!resultsDir) {
    logMsg(kError, Echo::yes, kMustOpen, kProgramName);
    return false;
  }
  if (analysis == nullptr) {
    logMsg(kError, Echo::yes, kMustSelect, kProgramName);
    return false;
  }
  return true;
}

int zeAnalyzeNetlist::processOpenSimDataCmd(const ArgList* args) {
  simdata::resetError();
  const char* path = argAt(args, 0);
  if (path == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s command requires a directory name.\n", kProgramName,
           "openSimData");
    return 1;
  }
  if (!simdata::isResultsDirectory(path)) {
    logMsg(kError, Echo::yes, "%s is not a results directory\n", path);
    return 1;
  }
  std::unique_ptr<simdata::ResultsDir> opened = simdata::openResults(path);
  if (!opened) {
    logMsg(kError, Echo::yes, "%s: %s command failed.\n", kProgramName, "openSimData");
    printLastError();
    return 1;
  }
  printLastError();
  // The selection survives a new openSimData. When it belongs to the directory being
  // replaced, that directory is kept aside until the next selection instead of being freed
  // under it. A directory already kept aside is the one the selection belongs to (a selection
  // lets it go), so it stays and the current one, from which nothing is selected, goes.
  if (analysis != nullptr && !replacedResultsDir) {
    replacedResultsDir = std::move(resultsDir);
  }
  resultsDir = std::move(opened);
  logMsg(kInfo, Echo::no, "Successfully opened results at %s.\n", path);
  if (const char* reader = simdata::readerName(path)) {
    logMsg(kInfo, Echo::no, "Reader Name %s.\n", reader);
  }
  return 0;
}

int zeAnalyzeNetlist::processSelectAnalysisCmd(const ArgList* args) {
  simdata::resetError();
  if (!resultsDir) {
    logMsg(kError, Echo::yes, kMustOpen, kProgramName);
    return 1;
  }
  const char* name = argAt(args, 0);
  if (name == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s command requires a analysis name.\n", kProgramName,
           "selectAnalysis");
    return 1;
  }
  simdata::Dataset* dataset = resultsDir->findDataset(name);
  if (dataset == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s must specify valid dc/tran data\n", kProgramName,
           "selectAnalysis");
    printLastError();
    return 1;
  }
  analysis = dataset;
  replacedResultsDir.reset();
  isSweepData = dataset->sweep() != nullptr ? 1 : 0;
  return 0;
}

int zeAnalyzeNetlist::processDisplayAnalysisCmd(const ArgList*) {
  simdata::resetError();
  if (!resultsDir) {
    logMsg(kError, Echo::no, kMustOpen, kProgramName);
    return 1;
  }
  const simdata::DatasetArray* datasets = resultsDir->datasets();
  if (datasets == nullptr || datasets->count() == 0) {
    logMsg(kError, Echo::no, "%s: No dataset names.\n", kProgramName);
    return 1;
  }
  for (int i = 0; i < datasets->count(); ++i) {
    const simdata::Dataset* dataset = datasets->at(i);
    const char* name = dataset->name();
    const char* type = dataset->analysisType();
    if (name != nullptr && type != nullptr) {
      logMsg(kInfo, Echo::no, "%s\t%s\n", type, name);
    } else {
      // A dataset lacking a text repeats whatever the message buffer holds.
      out_log(kInfo, getLogBuf(), Echo::no);
    }
  }
  return 0;
}

int zeAnalyzeNetlist::processDisplaySignalCmd(const ArgList* args) {
  simdata::resetError();
  if (!analysisSelected()) {
    return 1;
  }
  const simdata::SignalList* signals = signalsOrFail(*this, Echo::no);
  if (signals == nullptr) {
    return 1;
  }
  const int count = signals->count();
  const char* option = argAt(args, 0);
  if (args == nullptr || args->size() != 1 || std::strcmp(option, "-v") != 0) {
    for (int i = 0; i < count; ++i) {
      const simdata::Signal* signal = signals->at(i);
      logMsg(kInfo, Echo::no, "%s [%d] %s [%d] (type: %s)\n", signal->name1.c_str(),
             static_cast<int>(signal->name1.size()), signal->name2.c_str(),
             static_cast<int>(signal->name2.size()), signal->typeName.c_str());
    }
    return 0;
  }
  logMsg(kInfo, Echo::no, "Reading Sim Data\n");
  // When the count is a multiple of the batch size, a last empty batch is read and reported.
  for (int start = 0; start <= count; start += kSignalBatch) {
    const int end = std::min(start + kSignalBatch, count);
    simdata::SignalArray batch(end - start);
    for (int i = start; i < end; ++i) {
      batch.add(signals->at(i));
    }
    std::unique_ptr<simdata::ValueArray> values = analysis->read(batch);
    logMsg(kInfo, Echo::no, "%d signals have been read\n", start);
    if (values) {
      for (int i = 1; i < values->count(); ++i) {
        values->release(i);
      }
    }
  }
  return 0;
}

int zeAnalyzeNetlist::processSaveTemperatureCmd(const ArgList* args, double& temperatureOut) {
  simdata::resetError();
  const char* fileName = argAt(args, 0);
  if (writeOutputFiles && fileName == nullptr) {
    logMsg(kError, Echo::yes, kNeedsFileName, kProgramName, "saveTemperature");
    return 1;
  }
  OutputFile file;
  if (!openCommandOutput(*this, "saveTemperature", fileName, file)) {
    return 1;
  }
  if (!resultsDir) {
    logMsg(kError, Echo::yes, kMustOpenLower, "saveTemperature");
    return 1;
  }
  double foundTemperature = 0.0;
  bool found = false;
  if (!hasDatasets(*resultsDir)) {
    logMsg(kError, Echo::yes, kNotValidDir, "saveTemperature", resultsDir->name());
  } else {
    found = findTemperature(*resultsDir, foundTemperature);
  }
  if (!found) {
    // This text only reaches the message buffer; it is never logged.
    std::snprintf(getLogBuf(), 4096, "%s: no teperature data found in directory %s. \n",
                  "saveTemperature", resultsDir->name());
    return 0;
  }
  temperatureOut = foundTemperature;
  if (file) {
    std::fprintf(file.get(), "Temperature %f\n", foundTemperature);
  }
  return closeOutput(file) ? 0 : 1;
}

void zeAnalyzeNetlist::getStartStopTimeRange(const simdata::Sweep* sweep) {
  if (const std::optional<simdata::TimeRange> range = simdata::sweepTimeRange(sweep)) {
    startTime = range->start;
    stopTime = range->stop;
  }
}

void zeAnalyzeNetlist::getTimeRangeIndices(const simdata::Value* waveform, int& startIndex,
                                           int& stopIndex) {
  simdata::timeRangeIndices(waveform != nullptr ? waveform->xVector() : nullptr, startTime,
                            stopTime, startIndex, stopIndex);
}

int zeAnalyzeNetlist::processCreateNetlistCmd(const ArgList* args) {
  simdata::resetError();
  const char* fileName = argAt(args, 0);
  if (fileName == nullptr) {
    logMsg(kError, Echo::yes, "%s: createNetlist command requires a file name.\n", kProgramName);
    return 1;
  }
  OutputFile file(fileName, "w+");
  if (!file) {
    logMsg(kError, Echo::yes, "%s: Unable to create netlist file %s.\n", kProgramName, fileName);
    return 1;
  }
  if (!analysisSelected()) {
    return 1;
  }
  const simdata::SignalList* signals = signalsOrFail(*this, Echo::yes);
  if (signals == nullptr) {
    return 1;
  }
  // One instance between each pair of neighbouring signals; signal 0 (the axis) is left out.
  for (int i = 1; i + 1 < signals->count(); ++i) {
    std::fprintf(file.get(), "R%d\t%s\t%s\n", i, signals->at(i)->name1.c_str(),
                 signals->at(i + 1)->name1.c_str());
  }
  return closeOutput(file) ? 0 : 1;
}

int zeAnalyzeNetlist::processSaveAnalysisInfoCmd(const ArgList* args,
                                                 std::vector<std::string>& info) {
  simdata::resetError();
  if (args == nullptr || args->empty()) {
    logMsg(kError, Echo::yes, kNeedsFileName, kProgramName, "saveAnalysisInfo");
    return 1;
  }
  OutputFile file;
  if (!openCommandOutput(*this, "saveAnalysisInfo", argAt(args, 0), file)) {
    return 1;
  }
  if (!resultsDir) {
    logMsg(kError, Echo::yes, kMustOpenLower, "saveAnalysisInfo");
    return 1;
  }
  startTime = -1.0;
  stopTime = -1.0;
  std::vector<std::string> lines;
  if (!hasDatasets(*resultsDir)) {
    logMsg(kError, Echo::yes, kNotValidDir, "saveAnalysisInfo", resultsDir->name());
  } else {
    const bool useDatabase = args->size() > 2 && (*args)[1] == "-muroDBFile";
    const simdata::DatasetArray* datasets = resultsDir->datasets();
    for (int i = 0; i < datasets->count(); ++i) {
      simdata::Dataset* dataset = datasets->at(i);
      const char* name = dataset->name();
      const char* type = dataset->analysisType();
      if (name == nullptr || type == nullptr || !simdata::analysisFilter(type)) {
        continue;
      }
      lines.emplace_back(name);
      lines.emplace_back(type);
      const simdata::Sweep* sweep = dataset->sweep();
      const bool transientByName =
          std::strcmp(type, "tran") == 0 || std::strcmp(type, "logic simulation") == 0;
      if (sweep == nullptr && !(useDatabase && transientByName)) {
        lines.emplace_back("dc");
        continue;
      }
      lines.emplace_back("tran");
      // The range carries over: a dataset without a usable range reports the earlier one.
      getStartStopTimeRange(sweep);
      if (useDatabase) {
        updateStartStopTimeFromDBFile((*args)[2].c_str());
      }
      char range[128];
      if (startTime < 0.0 || stopTime < 0.0) {
        std::snprintf(range, sizeof range, "#TimeRange %s %s", "NaN", "NaN");
      } else {
        std::snprintf(range, sizeof range, "#TimeRange %e %e", startTime, stopTime);
      }
      lines.emplace_back(range);
    }
  }
  if (!file) {
    info.insert(info.end(), lines.begin(), lines.end());
    return 0;
  }
  if (!lines.empty()) {
    std::fputs("#SimDataIsValid\n#AnalysisType\n", file.get());
  } else {
    std::fputs("#SimDataIsInvalid\n", file.get());
    logMsg(kError, Echo::yes, "%s: no tran/dc data found in directory %s.\n", "saveAnalysisInfo",
           resultsDir->name());
  }
  for (const std::string& line : lines) {
    std::fprintf(file.get(), "%s\n", line.c_str());
  }
  return closeOutput(file) ? 0 : 1;
}
