// Instance-analysis commands: loadNetlist, run and saveResult, the run's batch loop, and the
// reading of source and resistor values.

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <unordered_map>

#include "analysis/detail/sessionStatistics.h"
#include "analysis/instanceMeasure.h"
#include "analysis/netlist.h"
#include "analysis/sources.h"
#include "app/analyzeNetlist.h"
#include "support/threadPool.h"

namespace {

/// Instances handled per batch: bounds the signals read and held at once.
constexpr int kBatchSize = 5000;

constexpr const char* kMustOpen = "%s: Must open simulation data directory first (openSimData)\n";
constexpr const char* kMustSelect = "%s: Must select analysis first (selectAnalysis)\n";

/// Prefix of a second node name that stands for a fixed value ("#@#v1.2").
constexpr std::string_view kFixedValuePrefix = "#@#v";

bool sourceValuesEnabled() { return std::getenv(analysis::kSourceValuesVariable) != nullptr; }

/// Instances measured per piece of work handed to a thread.
constexpr size_t kInstancesPerPiece = 64;

/// What the analysis of one instance produced, before it is stored.
struct InstanceOutcome {
  voltageData data;
  int direction = -1;
  std::shared_ptr<PwcAcEDataList> acPulses;
};

/// Measures one instance of a batch from the batch's values (no session state: this runs on
/// any thread).
void measureInstance(const zeInstance& instance, const simdata::ValueArray* values,
                     const analysis::StatisticsSettings& settings, bool dcPoint,
                     const analysis::TimeRangeLookup& timeRange, analysis::WaveScratch& scratch,
                     InstanceOutcome& outcome) {
  if (!instance.valid) {
    return;
  }
  outcome.data = freshVoltageData();
  outcome.acPulses = std::make_shared<PwcAcEDataList>();
  outcome.data.acPulses = outcome.acPulses.get();
  const double ref = instance.sigIndex2 == -3 ? instance.fixedValue : 0.0;
  if (dcPoint) {
    analysis::dcDifference(values, instance.sigIndex1, instance.sigIndex2, outcome.data);
    const double d = std::fabs(ref - outcome.data.peak);
    outcome.data.peak = d;
    outcome.data.avg = d;
    outcome.data.rms = d;
    outcome.data.absAvg = d;
    outcome.data.rawAvg = outcome.data.peakValue;
    outcome.direction = -1;
  } else {
    outcome.direction = analysis::transientDifference(
        values, instance.sigIndex1, instance.sigIndex2, settings,
        analysis::traitsOf(instance, instance.orientation), ref, timeRange, scratch,
        outcome.data);
  }
}

}  // namespace

int zeAnalyzeNetlist::processLoadNetlistCmd(const ArgList* args) {
  simdata::resetError();
  const char* fileName = argAt(args, 0);
  if (fileName == nullptr) {
    logMsg(kError, true, "%s: %s command requires a file name.\n", kProgramName, "loadNetlist");
    return 1;
  }
  FilePtr file(std::fopen(fileName, "r"));
  if (!file) {
    logMsg(kError, true, "%s: netlist file %s not found.\n", kProgramName, fileName);
    return 1;
  }
  analysis::applyLineFormatEnvironment(instances);
  // A format error is reported by the loader on standard output; the command goes on.
  if (durationTime == 0.0) {
    instances.loadNetlist(file.get(), fileName);
  } else {
    instances.loadNetlistPeakCurrents(file.get(), fileName);
  }
  return 0;
}

int zeAnalyzeNetlist::processRunCmd(const ArgList* args, int ignoreSign) {
  simdata::resetError();
  if (argAt(args, 1) == nullptr) {
    logMsg(kError, true, "%s: %s command requires start & stop time.\n", kProgramName, "run");
    return 1;
  }
  startTime = std::strtod(argAt(args, 0), nullptr);
  // So that a sample exactly at the stop time is inside the window.
  stopTime = std::strtod(argAt(args, 1), nullptr) + 1e-12;
  if (!resultsDir) {
    logMsg(kError, true, kMustOpen, kProgramName);
    return 1;
  }
  if (analysis == nullptr) {
    logMsg(kError, true, kMustSelect, kProgramName);
    return 1;
  }

  std::vector<zeInstance>& list = instances.instances;
  const int total = static_cast<int>(list.size());
  const time_t runStart = std::time(nullptr);
  time_t lastProgress = runStart;
  const bool detailedProgress = std::getenv("KRA2_INTERNAL_DEBUG") != nullptr;
  analysis->expectBulkReads(std::max(1, (total + kBatchSize - 1) / kBatchSize));
  analysis->prepare();
  if (sourceValuesEnabled()) {
    populateResToWatt();
  }

  int failed = 0;
  for (int first = 0;; first += kBatchSize) {
    const bool lastBatch = first + kBatchSize >= total;
    const int count = lastBatch ? total - first : kBatchSize;
    const int end = lastBatch ? total : first + kBatchSize;
    if (sourceValuesEnabled()) {
      getWattSignals(first, count, list);
    }
    std::unique_ptr<simdata::SignalList> signals = getNetlistSignals(first, count, list);
    failed += analyseNetlist(first, count, list, signals.get(), ignoreSign);
    if (detailedProgress) {
      const time_t now = std::time(nullptr);
      logMsg(kStatus, true,
             "instances (analyzed: %-6d(%6.2f)%%  failed: %-6d  total: %-6d) time( incr: %d "
             "sec,\ttotal: %d sec)\n",
             end, static_cast<double>(end) / total * 100, failed, total,
             static_cast<int>(now - lastProgress), static_cast<int>(now - runStart));
      lastProgress = now;
    } else {
      logMsg(kStatus, true, "instances (analyzed: %-6d  failed: %-6d  total: %-6d)\n", end, failed,
             total);
    }
    if (lastBatch) {
      break;
    }
  }
  if (failed >= 1) {
    logMsg(kWarning, true, "%d instances failed, please see the log file.\n", failed);
  }
  if (!powerGridRulesInputFile.empty()) {
    return processPowerGridAnalysis(nullptr);
  }
  return 0;
}

std::unique_ptr<simdata::SignalList> zeAnalyzeNetlist::getNetlistSignals(
    int first, int count, std::vector<zeInstance>& list) {
  const int end = std::min(first + count, static_cast<int>(list.size()));
  auto signals = std::make_unique<simdata::SignalList>();
  // Node names of this batch to their position in the batch's signal list: a node shared
  // by several instances is looked up and read once. The keys view the instances' names,
  // which stay put while the batch is handled.
  std::unordered_map<std::string_view, int> indexOf;
  indexOf.reserve(static_cast<size_t>(std::max(count, 0)) * 2);
  std::vector<const std::string*> missing;
  int nextIndex = 0;

  auto lookUp = [&](zeInstance& instance, const std::string& name, bool secondNode) {
    if (auto it = indexOf.find(name); it != indexOf.end()) {
      return it->second;
    }
    if (name == "0") {
      return -1;
    }
    if (secondNode && std::string_view(name).starts_with(kFixedValuePrefix)) {
      instance.fixedValue = std::strtod(name.c_str() + kFixedValuePrefix.size(), nullptr);
      return -3;
    }
    const simdata::Signal* signal = analysis != nullptr ? analysis->findSignal(name) : nullptr;
    if (signal == nullptr) {
      if (isGnd(name)) {
        return -1;
      }
      instance.valid = false;
      missing.push_back(&name);
      return -2;
    }
    signals->add(*signal);
    indexOf.emplace(name, nextIndex);
    return nextIndex++;
  };

  for (int i = std::max(first, 0); i < end; ++i) {
    zeInstance& instance = list[i];
    instance.sigIndex1 = lookUp(instance, instance.node1, false);
    instance.sigIndex2 = lookUp(instance, instance.node2, true);
  }
  if (!missing.empty()) {
    logMsg(kWarning, false, "No simulation data available for signals:\n");
    for (const std::string* name : missing) {
      logMsg(kPlain, false, "\t%s\n", name->c_str());
    }
  }
  if (signals->count() != nextIndex) {
    logMsg(kError, false, "Invalid condition occured in signal reading\n");
  }
  return signals;
}

int zeAnalyzeNetlist::analyseNetlist(int first, int count, std::vector<zeInstance>& list,
                                     const simdata::SignalList* signals, int ignoreSign) {
  if (signals == nullptr || analysis == nullptr) {
    return count;
  }
  simdata::SignalArray array(signals->count());
  for (int i = 0; i < signals->count(); ++i) {
    array.add(signals->at(i));
  }
  const std::unique_ptr<simdata::ValueArray> values = analysis->read(array);
  if (!values || values->count() != signals->count()) {
    logMsg(kError, false, "Failed to read some of the signal values\n");
    return count;
  }

  const int begin = std::max(first, 0);
  const int end = std::min(first + count, static_cast<int>(list.size()));
  const analysis::StatisticsSettings settings = analysis::detail::settingsOf(*this, ignoreSign);
  const bool dcPoint = analysis->sweep() == nullptr;

  // The instances of a batch are independent: each outcome is computed on its own and the
  // outcomes are stored in netlist order afterwards, so the computing is shared out among
  // threads in runs of consecutive instances, and the results do not depend on how.
  std::vector<InstanceOutcome> outcomes(static_cast<size_t>(std::max(end - begin, 0)));
  auto measureRun = [&](size_t runBegin, size_t runEnd) {
    // The index range of a waveform depends only on its time vector and the window, and the
    // waveforms of one analysis usually share their time vector: remember the last one.
    const simdata::DataVector* rangeAxis = nullptr;
    analysis::IndexRange axisRange;
    const analysis::TimeRangeLookup timeRange = [&](const simdata::Value* waveform, int& start,
                                                    int& stop) {
      const simdata::DataVector* axis = waveform != nullptr ? waveform->xVector() : nullptr;
      if (axis != nullptr && axis == rangeAxis) {
        start = axisRange.start;
        stop = axisRange.stop;
        return;
      }
      getTimeRangeIndices(waveform, start, stop);
      if (axis != nullptr) {
        rangeAxis = axis;
        axisRange = {start, stop};
      }
    };
    analysis::WaveScratch scratch;
    for (size_t k = runBegin; k < runEnd; ++k) {
      measureInstance(list[static_cast<size_t>(begin) + k], values.get(), settings, dcPoint,
                      timeRange, scratch, outcomes[k]);
    }
  };
  if (analysis::printsWhileReading(values.get())) {
    // Reading such values writes to standard output: keep the netlist's order.
    measureRun(0, outcomes.size());
  } else {
    support::ThreadPool::shared().parallelFor(outcomes.size(), kInstancesPerPiece, measureRun);
  }

  int failed = 0;
  for (int i = begin; i < end; ++i) {
    zeInstance& instance = list[i];
    if (!instance.valid) {
      ++failed;
      continue;
    }
    InstanceOutcome& outcome = outcomes[i - begin];
    voltageData& stored = instance.data;
    const voltageData& data = outcome.data;
    stored.peak = data.peak;
    stored.peakValue = data.peakValue;
    stored.avg = data.avg;
    stored.rawAvg = data.rawAvg;
    stored.rms = data.rms;
    stored.absAvg = data.absAvg;
    stored.peakTime = data.peakTime;
    stored.dutyRatio = data.dutyRatio;
    stored.pulseWidth = data.pulseWidth;
    if (ignoreSign == 2 || ignoreSign == -1) {
      stored.avgPositive = data.avgPositive;
    }
    if (ignoreSign == 2 || ignoreSign == 1) {
      stored.avgNegative = data.avgNegative;
    }
    instance.direction = outcome.direction;
    instance.acPulses = std::move(outcome.acPulses);
  }
  return failed;
}

int zeAnalyzeNetlist::processSaveResultsCmd(const ArgList* args, std::vector<zeInstance>& out) {
  simdata::resetError();
  OutputFile file;
  if (writeOutputFiles) {
    const char* fileName = argAt(args, 0);
    if (fileName == nullptr) {
      // The message names the command "saveResults": kept as it is.
      logMsg(kError, true, "%s: saveResults command requires a file name.\n", kProgramName);
      return 1;
    }
    // Created (or emptied) before the checks below.
    file = OutputFile(fileName, "w+");
    if (!file) {
      logMsg(kError, true, "%s: Unable to open output result file %s.\n", kProgramName, fileName);
      return 1;
    }
  }
  if (!resultsDir) {
    logMsg(kError, true, kMustOpen, kProgramName);
    return 1;
  }
  if (analysis == nullptr) {
    logMsg(kError, true, kMustSelect, kProgramName);
    return 1;
  }
  if (!instances.loaded) {
    logMsg(kError, true, "%s: Must load netlist first (loadNetlist)\n", kProgramName);
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
