// Instance-analysis commands: loadNetlist, run and saveResult, the run's batch loop, and the
// reading of source and resistor values.

#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <new>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "analysis/detail/sessionStatistics.h"
#include "analysis/instanceMeasure.h"
#include "analysis/netlist.h"
#include "analysis/sources.h"
#include "analysis/streamedStatistics.h"
#include "app/analyzeNetlist.h"
#include "simdata/timeRange.h"
#include "support/flatNameMap.h"
#include "support/parallel.h"

namespace {

/// Instances handled per batch: bounds the signals read and held at once.
constexpr int kBatchSize = 5000;

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

/// Stores what the analysis of an instance produced: the polarity averages only as the ignore
/// setting asks.
void storeOutcome(InstanceOutcome&& outcome, int ignoreSign, zeInstance& instance) {
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

/// The signals of one batch as the run looks them up: the batch's signal list, the dataset's
/// own signal behind each entry, the names without a signal, and the indices handed out.
struct BatchLookup {
  std::unique_ptr<simdata::SignalList> signals;
  std::vector<const simdata::Signal*> found;
  std::vector<const std::string*> missing;
  int handedOut = 0;
  /// Signals in the list (kept when the list itself is dropped).
  int listed = 0;
};

/// Looks up the node signals of instances [first, first + count) and sets their signal
/// indices (and the fixed value and validity); the same instances always get the same
/// result, so a batch may be looked up more than once.
/// `keepList` false leaves the batch's signal list empty (only its count is kept), for
/// callers that need the dataset's signals alone.
BatchLookup lookUpBatch(simdata::Dataset* dataset, int first, int count,
                        std::vector<zeInstance>& list, bool keepList = true) {
  const int end = std::min(first + count, static_cast<int>(list.size()));
  BatchLookup lookup;
  lookup.signals = std::make_unique<simdata::SignalList>();
  const simdata::SignalList* datasetSignals = dataset != nullptr ? dataset->signals() : nullptr;
  // Node names of this batch to their position in the batch's signal list: a node shared
  // by several instances is looked up and read once. The keys view the instances' names,
  // which stay put while the batch is handled.
  support::FlatNameMap indexOf;
  indexOf.reserve(static_cast<size_t>(std::max(count, 0)) * 2);

  auto lookUp = [&](zeInstance& instance, const std::string& name, bool secondNode) {
    const size_t hash = support::hashName(name);
    if (const int* index = indexOf.find(name, hash)) {
      return *index;
    }
    if (name == "0") {
      return -1;
    }
    if (secondNode && std::string_view(name).starts_with(kFixedValuePrefix)) {
      instance.fixedValue = std::strtod(name.c_str() + kFixedValuePrefix.size(), nullptr);
      return -3;
    }
    // What Dataset::findSignal does, with the hash computed once.
    const simdata::Signal* signal =
        datasetSignals != nullptr ? datasetSignals->find(name, hash) : nullptr;
    if (signal == nullptr) {
      if (isGnd(name)) {
        return -1;
      }
      instance.valid = false;
      lookup.missing.push_back(&name);
      return -2;
    }
    if (keepList) {
      lookup.signals->add(*signal);
    }
    lookup.found.push_back(signal);
    indexOf.insert(name, hash, lookup.handedOut);
    return lookup.handedOut++;
  };

  for (int i = std::max(first, 0); i < end; ++i) {
    zeInstance& instance = list[i];
    instance.sigIndex1 = lookUp(instance, instance.node1, false);
    instance.sigIndex2 = lookUp(instance, instance.node2, true);
  }
  lookup.listed = keepList ? lookup.signals->count() : static_cast<int>(lookup.found.size());
  return lookup;
}

/// The messages of a batch's lookup: the names without a signal, and a count mismatch.
void logBatchLookup(zeAnalyzeNetlist& session, const BatchLookup& lookup) {
  if (!lookup.missing.empty()) {
    session.logMsg(kWarning, Echo::no, "No simulation data available for signals:\n");
    for (const std::string* name : lookup.missing) {
      session.logMsg(kPlain, Echo::no, "\t%s\n", name->c_str());
    }
  }
  if (lookup.listed != lookup.handedOut) {
    session.logMsg(kError, Echo::no, "Invalid condition occured in signal reading\n");
  }
}

/// Whether the environment leaves streamed runs on (KRA2_STREAMED_RUN not "0", "no",
/// "false" or "off"): the switch lets the two ways of running be compared.
bool streamedRunEnabled() {
  const char* value = std::getenv(analysis::kStreamedRunVariable);
  if (value == nullptr) {
    return true;
  }
  return !(std::strcmp(value, "0") == 0 || strcasecmp(value, "no") == 0 ||
           strcasecmp(value, "false") == 0 || strcasecmp(value, "off") == 0);
}

/// A run measured in one pass over the data: the lookups of every batch (their messages are
/// logged when the run loop reaches the batch) and the measures of every instance.
struct StreamedRun {
  std::vector<BatchLookup> batches;
  std::unique_ptr<analysis::StreamedMeasures> measures;
};

/// Looks up every batch of the run and measures every instance in one pass over the
/// selected analysis, when it can stream and the settings allow. Null when the run is to be
/// read batch by batch instead (the lookups done so far are then simply done again).
std::unique_ptr<StreamedRun> streamRun(simdata::Dataset& dataset, std::vector<zeInstance>& list,
                                       const analysis::StatisticsSettings& settings,
                                       double startTime, double stopTime) {
  if (!dataset.streamsSignals() || dataset.sweep() == nullptr || !analysis::streamable(settings) ||
      !streamedRunEnabled()) {
    return nullptr;
  }
  auto run = std::make_unique<StreamedRun>();
  const int total = static_cast<int>(list.size());
  std::vector<analysis::StreamedInstance> streamed(list.size());
  // The dataset's signals to stream, each once, and their positions in the stream.
  std::vector<const simdata::Signal*> slotSignals;
  std::unordered_map<const simdata::Signal*, int> slotOf;
  for (int first = 0;; first += kBatchSize) {
    const bool lastBatch = first + kBatchSize >= total;
    const int count = lastBatch ? total - first : kBatchSize;
    BatchLookup lookup = lookUpBatch(&dataset, first, count, list, false);
    auto slot = [&](int index) {
      const simdata::Signal* signal = lookup.found[static_cast<size_t>(index)];
      const auto [it, added] = slotOf.emplace(signal, static_cast<int>(slotSignals.size()));
      if (added) {
        slotSignals.push_back(signal);
      }
      return it->second;
    };
    for (int i = std::max(first, 0); i < first + count; ++i) {
      const zeInstance& instance = list[static_cast<size_t>(i)];
      if (!instance.valid) {
        continue;
      }
      // The cases of transientDifference (instanceMeasure.cpp).
      analysis::StreamedInstance& measure = streamed[static_cast<size_t>(i)];
      const bool noSecondValue = instance.sigIndex2 == -1 || instance.sigIndex2 == -3;
      if (instance.sigIndex1 == -1) {
        if (!noSecondValue) {
          // The second node alone: its current flows the other way round.
          const int orientation = instance.orientation == 1   ? 0
                                  : instance.orientation == 0 ? 1
                                                              : -1;
          measure.kind = analysis::StreamedKind::kOneWaveform;
          measure.slot1 = slot(instance.sigIndex2);
          measure.secondNodeAlone = true;
          measure.traits = analysis::traitsOf(instance, orientation);
        }
      } else if (noSecondValue) {
        measure.kind = analysis::StreamedKind::kOneWaveform;
        measure.slot1 = slot(instance.sigIndex1);
        measure.ref = instance.sigIndex2 == -3 ? instance.fixedValue : 0.0;
        measure.traits = analysis::traitsOf(instance, instance.orientation);
      } else {
        measure.kind = analysis::StreamedKind::kTwoWaveforms;
        measure.slot1 = slot(instance.sigIndex1);
        measure.slot2 = slot(instance.sigIndex2);
        measure.traits = analysis::traitsOf(instance, instance.orientation);
      }
    }
    lookup.signals.reset();
    lookup.found = {};
    run->batches.push_back(std::move(lookup));
    if (lastBatch) {
      break;
    }
  }

  // Stream the signals in the dataset's own order (the order of its signal list), which is
  // the order the data holds them in: the chunks are then read and used front to back.
  {
    std::vector<std::pair<uintptr_t, int>> byPlace(slotSignals.size());
    for (size_t k = 0; k < byPlace.size(); ++k) {
      byPlace[k] = {reinterpret_cast<uintptr_t>(slotSignals[k]), static_cast<int>(k)};
    }
    std::sort(byPlace.begin(), byPlace.end());
    std::vector<int> newSlot(slotSignals.size());
    std::vector<const simdata::Signal*> sorted(slotSignals.size());
    for (size_t k = 0; k < byPlace.size(); ++k) {
      const size_t slot = static_cast<size_t>(byPlace[k].second);
      newSlot[slot] = static_cast<int>(k);
      sorted[k] = slotSignals[slot];
    }
    slotSignals = std::move(sorted);
    for (analysis::StreamedInstance& measure : streamed) {
      if (measure.slot1 >= 0) {
        measure.slot1 = newSlot[static_cast<size_t>(measure.slot1)];
      }
      if (measure.slot2 >= 0) {
        measure.slot2 = newSlot[static_cast<size_t>(measure.slot2)];
      }
    }
  }

  // The shared axis and its index range for the window, as the batch reads see them.
  std::vector<double> axis;
  analysis::IndexRange range;
  if (!slotSignals.empty()) {
    simdata::SignalArray one(1);
    one.add(slotSignals.front());
    const std::unique_ptr<simdata::ValueArray> values = dataset.read(one);
    const simdata::Value* waveform =
        values && values->count() == 1 ? simdata::getWaveform(values->at(0)) : nullptr;
    const simdata::DataVector* x = waveform != nullptr ? waveform->xVector() : nullptr;
    const simdata::DataVector* y = waveform != nullptr ? waveform->yVector() : nullptr;
    if (x == nullptr || y == nullptr || x->length() < 1 || x->length() != y->length()) {
      return nullptr;
    }
    std::vector<double> scratch;
    const analysis::Samples samples = analysis::samplesOf(x, scratch);
    axis.assign(samples.data(), samples.data() + samples.size());
    simdata::timeRangeIndices(x, startTime, stopTime, range.start, range.stop);
    if (range.start < 0) {
      return nullptr;
    }
  }
  run->measures = std::make_unique<analysis::StreamedMeasures>(settings, std::move(axis), range,
                                                               std::move(streamed));
  if (!slotSignals.empty()) {
    simdata::SignalArray array(static_cast<int>(slotSignals.size()));
    for (const simdata::Signal* signal : slotSignals) {
      array.add(signal);
    }
    size_t covered = 0;
    bool inOrder = true;
    analysis::StreamedMeasures& measures = *run->measures;
    const bool streamedAll = dataset.streamSignals(
        array, [&](size_t first, size_t count, std::span<const double* const> values) {
          inOrder = inOrder && first == covered && values.size() == slotSignals.size();
          if (inOrder) {
            measures.feed(first, count, values);
            covered = first + count;
          }
        });
    if (!streamedAll || !inOrder || covered != measures.points()) {
      return nullptr;
    }
  }
  return run;
}

/// Stores the streamed measures of instances [first, end); returns the number that failed.
/// Each instance's record is its own, so the records are finished on all threads.
int storeStreamed(const analysis::StreamedMeasures& measures, int first, int end, int ignoreSign,
                  std::vector<zeInstance>& list) {
  const size_t from = static_cast<size_t>(std::max(first, 0));
  const size_t to = static_cast<size_t>(std::max(end, first));
  support::parallelFor(to - from, 256, [&](size_t begin, size_t stop) {
    for (size_t i = from + begin; i < from + stop; ++i) {
      zeInstance& instance = list[i];
      if (!instance.valid) {
        continue;
      }
      InstanceOutcome outcome;
      outcome.data = freshVoltageData();
      outcome.acPulses = std::make_shared<PwcAcEDataList>();
      outcome.data.acPulses = outcome.acPulses.get();
      outcome.direction = measures.finish(i, outcome.data);
      storeOutcome(std::move(outcome), ignoreSign, instance);
    }
  });
  return static_cast<int>(
      std::count_if(list.begin() + static_cast<std::ptrdiff_t>(from),
                    list.begin() + static_cast<std::ptrdiff_t>(to),
                    [](const zeInstance& instance) { return !instance.valid; }));
}

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
        analysis::traitsOf(instance, instance.orientation), ref, timeRange, scratch, outcome.data);
  }
}

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
    logMsg(kError, Echo::yes, "%s: %s command requires start & stop time.\n", kProgramName, "run");
    return 1;
  }
  startTime = std::strtod(argAt(args, 0), nullptr);
  // So that a sample exactly at the stop time is inside the window.
  stopTime = std::strtod(argAt(args, 1), nullptr) + 1e-12;
  if (!analysisSelected()) {
    return 1;
  }

  std::vector<zeInstance>& list = instances.instances;
  const int total = static_cast<int>(list.size());
  const time_t runStart = std::time(nullptr);
  time_t lastProgress = runStart;
  const bool detailedProgress = std::getenv("KRA2_INTERNAL_DEBUG") != nullptr;
  analysis->prepare();
  if (sourceValuesEnabled()) {
    populateResToWatt();
  }
  // Data stored point by point is measured in one pass when the settings allow; otherwise
  // every batch reads its signals.
  std::unique_ptr<StreamedRun> streamed;
  try {
    streamed = streamRun(*analysis, list, analysis::detail::settingsOf(*this, ignoreSign),
                         startTime, stopTime);
  } catch (const std::bad_alloc&) {
    streamed.reset();  // not enough memory for one pass: batch by batch needs less
  }
  if (!streamed) {
    analysis->expectBulkReads(std::max(1, (total + kBatchSize - 1) / kBatchSize));
  }

  int failed = 0;
  size_t batch = 0;
  for (int first = 0;; first += kBatchSize, ++batch) {
    const bool lastBatch = first + kBatchSize >= total;
    const int count = lastBatch ? total - first : kBatchSize;
    const int end = lastBatch ? total : first + kBatchSize;
    if (sourceValuesEnabled()) {
      getWattSignals(first, count, list);
    }
    if (streamed) {
      logBatchLookup(*this, streamed->batches[batch]);
      failed += storeStreamed(*streamed->measures, first, end, ignoreSign, list);
    } else {
      std::unique_ptr<simdata::SignalList> signals = getNetlistSignals(first, count, list);
      failed += analyseNetlist(first, count, list, signals.get(), ignoreSign);
    }
    if (detailedProgress) {
      const time_t now = std::time(nullptr);
      logMsg(kStatus, Echo::yes,
             "instances (analyzed: %-6d(%6.2f)%%  failed: %-6d  total: %-6d) time( incr: %d "
             "sec,\ttotal: %d sec)\n",
             end, static_cast<double>(end) / total * 100, failed, total,
             static_cast<int>(now - lastProgress), static_cast<int>(now - runStart));
      lastProgress = now;
    } else {
      logMsg(kStatus, Echo::yes, "instances (analyzed: %-6d  failed: %-6d  total: %-6d)\n", end,
             failed, total);
    }
    if (lastBatch) {
      break;
    }
  }
  if (failed >= 1) {
    logMsg(kWarning, Echo::yes, "%d instances failed, please see the log file.\n", failed);
  }
  if (!powerGridRulesInputFile.empty()) {
    return processPowerGridAnalysis(nullptr);
  }
  return 0;
}

std::unique_ptr<simdata::SignalList> zeAnalyzeNetlist::getNetlistSignals(
    int first, int count, std::vector<zeInstance>& list) {
  BatchLookup lookup = lookUpBatch(analysis, first, count, list);
  logBatchLookup(*this, lookup);
  return std::move(lookup.signals);
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
    logMsg(kError, Echo::no, "Failed to read some of the signal values\n");
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
    support::parallelFor(outcomes.size(), kInstancesPerPiece, measureRun);
  }

  int failed = 0;
  for (int i = begin; i < end; ++i) {
    zeInstance& instance = list[i];
    if (!instance.valid) {
      ++failed;
      continue;
    }
    storeOutcome(std::move(outcomes[i - begin]), ignoreSign, instance);
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
