// Instance-analysis commands: loadNetlist, windowMode, run, saveResult and saveResultTable,
// the run's log lines, and the reading of source and resistor values.

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>
#include <string>

#include "analysis/detail/sessionStatistics.h"
#include "analysis/exactWindow.h"
#include "analysis/netlist.h"
#include "analysis/resultTable.h"
#include "analysis/runLoop.h"
#include "analysis/sharedRun.h"
#include "analysis/sources.h"
#include "app/analyzeNetlist.h"

namespace {

bool sourceValuesEnabled() { return std::getenv(analysis::kSourceValuesVariable) != nullptr; }

/// The run's log lines: the lookup messages of every batch and its progress line. It also
/// copies the resistor powers of each batch when source values are read.
class RunLog : public analysis::RunObserver {
 public:
  explicit RunLog(zeAnalyzeNetlist& session)
      : session_(session), detailed_(std::getenv("KRA2_INTERNAL_DEBUG") != nullptr) {}

  void batchStarting(int first, int count) override {
    if (sourceValuesEnabled()) {
      session_.getWattSignals(first, count, session_.instances.instances);
    }
  }
  void batchLookedUp(std::span<const std::string* const> missing, bool countMismatch) override {
    if (!missing.empty()) {
      session_.logMsg(kWarning, Echo::no, "No simulation data available for signals:\n");
      for (const std::string* name : missing) {
        session_.logMsg(kPlain, Echo::no, "\t%s\n", name->c_str());
      }
    }
    if (countMismatch) {
      session_.logMsg(kError, Echo::no, "Invalid condition occured in signal reading\n");
    }
  }
  void batchReadFailed() override {
    session_.logMsg(kError, Echo::no, "Failed to read some of the signal values\n");
  }
  void batchDone(int end, int failed, int total) override {
    if (!detailed_) {
      session_.logMsg(kStatus, Echo::yes, "instances (analyzed: %-6d  failed: %-6d  total: %-6d)\n",
                      end, failed, total);
      return;
    }
    const time_t now = std::time(nullptr);
    session_.logMsg(kStatus, Echo::yes,
                    "instances (analyzed: %-6d(%6.2f)%%  failed: %-6d  total: %-6d) time( incr: "
                    "%d sec,\ttotal: %d sec)\n",
                    end, static_cast<double>(end) / total * 100, failed, total,
                    static_cast<int>(now - lastProgress_), static_cast<int>(now - runStart_));
    lastProgress_ = now;
  }

 private:
  zeAnalyzeNetlist& session_;
  const bool detailed_;
  const time_t runStart_ = std::time(nullptr);
  time_t lastProgress_ = runStart_;
};

}  // namespace

int zeAnalyzeNetlist::processLoadNetlistCmd(const ArgList* args) {
  simdata::resetError();
  const char* fileName = argAt(args, 0);
  if (fileName == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s command requires a file name.\n", kProgramName,
           "loadNetlist");
    return 1;
  }
  support::FilePtr file(std::fopen(fileName, "r"));
  if (!file) {
    logMsg(kError, Echo::yes, "%s: netlist file %s not found.\n", kProgramName, fileName);
    return 1;
  }
  analysis::applyLineFormatEnvironment(instances);
  const char* option = argAt(args, 1);
  const bool resistance = option != nullptr && std::strcmp(option, "-resistance") == 0;
  if (resistance && (instances.hasRecoveryFactor || durationTime != 0.0)) {
    // Those line formats already give the fourth field another meaning.
    logMsg(kError, Echo::yes,
           "%s: loadNetlist %s -resistance: the fourth field is already the %s; the netlist is "
           "not loaded.\n",
           kProgramName, fileName,
           instances.hasRecoveryFactor ? "recovery factor" : "duration threshold");
    return 1;
  }
  instances.resistanceColumn = resistance;
  // A format error is reported by the loader on standard output; the command goes on.
  if (durationTime == 0.0) {
    instances.loadNetlist(file.get(), fileName);
  } else {
    instances.loadNetlistPeakCurrents(file.get(), fileName);
  }
  instances.resistanceColumn = false;
  return 0;
}

int zeAnalyzeNetlist::processRunCmd(const ArgList* args, int ignoreSign) {
  simdata::resetError();
  if (argAt(args, 1) == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s command requires start & stop time.\n", kProgramName, "run");
    return 1;
  }
  startTime = std::strtod(argAt(args, 0), nullptr);
  const double stopGiven = std::strtod(argAt(args, 1), nullptr);
  // So that a sample exactly at the stop time is inside the window.
  stopTime = stopGiven + 1e-12;
  const bool selected = analysisSelected();
  // Every process of a shared run gets here; they agree before any of them reads.
  if (runExchange != nullptr && !runExchange->agree(analysis::readinessOf(
                                    selected ? analysis : nullptr, instances.instances))) {
    return 1;
  }
  if (!selected) {
    return 1;
  }
  analysis::StatisticsSettings settings = analysis::detail::settingsOf(*this, ignoreSign);
  if (settings.windowMode == analysis::WindowMode::kExact &&
      !exactWindowReady(settings, stopGiven)) {
    return 1;
  }
  lastRun = {true, startTime, stopGiven, settings.windowMode};
  RunLog log(*this);
  analysis->prepare();
  if (sourceValuesEnabled()) {
    populateResToWatt();
  }
  const int failed = runExchange != nullptr
                         ? analysis::runSharedInstances(*analysis, instances.instances, settings,
                                                        log, *runExchange)
                         : analysis::runInstances(*analysis, instances.instances, settings, log);
  if (failed >= 1) {
    logMsg(kWarning, Echo::yes, "%d instances failed, please see the log file.\n", failed);
  }
  if (!powerGridRulesInputFile.empty()) {
    return processPowerGridAnalysis(nullptr);
  }
  return 0;
}

int zeAnalyzeNetlist::processSaveResultsCmd(const ArgList* args, std::vector<zeInstance>& out) {
  simdata::resetError();
  OutputFile file;
  if (writeOutputFiles) {
    const char* fileName = argAt(args, 0);
    if (fileName == nullptr) {
      // The message names the command "saveResults": kept as it is.
      logMsg(kError, Echo::yes, "%s: saveResults command requires a file name.\n", kProgramName);
      return 1;
    }
    // Created (or emptied) before the checks below.
    file = OutputFile(fileName, "w+");
    if (!file) {
      logMsg(kError, Echo::yes, "%s: Unable to open output result file %s.\n", kProgramName,
             fileName);
      return 1;
    }
  }
  if (!analysisSelected()) {
    return 1;
  }
  if (!instances.loaded) {
    logMsg(kError, Echo::yes, "%s: Must load netlist first (loadNetlist)\n", kProgramName);
    return 1;
  }
  if (file) {
    instances.saveResults(file.get());
    if (!closeOutput(file)) {
      return 1;
    }
  }
  if (!writeOutputFiles) {
    out.insert(out.end(), instances.instances.begin(), instances.instances.end());
  }
  return 0;
}

bool zeAnalyzeNetlist::exactWindowReady(analysis::StatisticsSettings& settings, double stop) {
  if (const char* conflict = analysis::exactWindowConflict(settings)) {
    logMsg(kError, Echo::yes, "%s: windowMode exact cannot be combined with %s; run not done.\n",
           kProgramName, conflict);
    return false;
  }
  if (stop < settings.startTime) {
    logMsg(kError, Echo::yes,
           "%s: run with windowMode exact needs a stop time not before the start time.\n",
           kProgramName);
    return false;
  }
  // An exact window ends where the command says: no tolerance is added.
  settings.stopTime = stop;
  return true;
}

int zeAnalyzeNetlist::processWindowModeCmd(const ArgList* args) {
  const char* mode = argAt(args, 0);
  analysis::WindowMode& setting = analysis::processSettings().windowMode;
  if (mode != nullptr && strcasecmp(mode, "exact") == 0) {
    setting = analysis::WindowMode::kExact;
  } else if (mode != nullptr && strcasecmp(mode, "legacy") == 0) {
    setting = analysis::WindowMode::kLegacy;
  } else {
    logMsg(kError, Echo::yes, "%s: %s command requires exact or legacy.\n", kProgramName,
           "windowMode");
    return 1;
  }
  logMsg(kInfo, Echo::no, "Window mode: %s\n",
         setting == analysis::WindowMode::kExact ? "exact" : "legacy");
  return 0;
}

int zeAnalyzeNetlist::processSaveResultTableCmd(const ArgList* args) {
  simdata::resetError();
  const char* fileName = argAt(args, 0);
  if (fileName == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s command requires a file name.\n", kProgramName,
           "saveResultTable");
    return 1;
  }
  if (!analysisSelected()) {
    return 1;
  }
  if (!instances.loaded) {
    logMsg(kError, Echo::yes, "%s: Must load netlist first (loadNetlist)\n", kProgramName);
    return 1;
  }
  if (!writeOutputFiles) {
    return 0;
  }
  OutputFile file(fileName, "w+");
  if (!file) {
    logMsg(kError, Echo::yes, "%s: Unable to open output result file %s.\n", kProgramName,
           fileName);
    return 1;
  }
  const analysis::TableProvenance provenance{resultsDir->name(), analysis->name(), lastRun};
  analysis::writeResultTable(file.get(), instances.instances, provenance);
  return closeOutput(file) ? 0 : 1;
}

int zeAnalyzeNetlist::processVsrcCmd(zeVsrc& sources) {
  if (!sourceValuesEnabled()) {
    return 0;
  }
  simdata::resetError();
  const simdata::DatasetArray* datasets = resultsDir ? resultsDir->datasets() : nullptr;
  if (datasets == nullptr || datasets->count() < 1) {
    return 0;
  }
  for (int i = 0; i < datasets->count(); ++i) {
    if (simdata::Dataset* dataset = datasets->at(i)) {
      analysis::readSourceValues(*dataset, sources);
    }
  }
  return 0;
}

void zeAnalyzeNetlist::populateResToWatt() {
  // Filled once per session.
  if (!resToWatt.empty()) {
    return;
  }
  const simdata::DatasetArray* datasets = resultsDir ? resultsDir->datasets() : nullptr;
  if (datasets == nullptr || datasets->count() < 1) {
    return;
  }
  for (int i = 0; i < datasets->count(); ++i) {
    if (simdata::Dataset* dataset = datasets->at(i)) {
      analysis::readResistorPowers(*dataset, resToWatt);
    }
  }
}

void zeAnalyzeNetlist::getWattSignals(int first, int count, std::vector<zeInstance>& list) {
  const int last = std::min(first + count, static_cast<int>(list.size()));
  for (int k = std::max(first, 0); k < last; ++k) {
    if (auto it = resToWatt.find(list[k].name); it != resToWatt.end()) {
      list[k].power = it->second;
    }
  }
}
