// The run's batch lookup, the storing of outcomes and the streamed pass over the data.

#include "analysis/detail/runBatches.h"

#include <strings.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "analysis/instanceMeasure.h"
#include "simdata/timeRange.h"
#include "support/flatNameMap.h"
#include "support/parallel.h"

namespace analysis::detail {

namespace {

/// Prefix of a second node name that stands for a fixed value ("#@#v1.2").
constexpr std::string_view kFixedValuePrefix = "#@#v";

/// Whether the environment leaves streamed runs on (KRA2_STREAMED_RUN not "0", "no",
/// "false" or "off"): the switch lets the two ways of running be compared.
bool streamedRunEnabled() {
  const char* value = std::getenv(kStreamedRunVariable);
  if (value == nullptr) {
    return true;
  }
  return !(std::strcmp(value, "0") == 0 || strcasecmp(value, "no") == 0 ||
           strcasecmp(value, "false") == 0 || strcasecmp(value, "off") == 0);
}

/// The streamed measure of one instance whose signal indices are set; `slot` gives the
/// stream position of a batch signal index.
template <typename Slot>
StreamedInstance streamedMeasureOf(const zeInstance& instance, Slot&& slot) {
  StreamedInstance measure;
  const InstanceCase measured =
      classifyInstance(instance.sigIndex1, instance.sigIndex2, instance.orientation);
  switch (measured.waveforms) {
    case WaveformCase::kNone:
      return measure;
    case WaveformCase::kSecondAlone:
      measure.kind = StreamedKind::kOneWaveform;
      measure.slot1 = slot(instance.sigIndex2);
      measure.secondNodeAlone = true;
      break;
    case WaveformCase::kFirstAlone:
      measure.kind = StreamedKind::kOneWaveform;
      measure.slot1 = slot(instance.sigIndex1);
      measure.ref = instance.sigIndex2 == -3 ? instance.fixedValue : 0.0;
      break;
    case WaveformCase::kBoth:
      measure.kind = StreamedKind::kTwoWaveforms;
      measure.slot1 = slot(instance.sigIndex1);
      measure.slot2 = slot(instance.sigIndex2);
      break;
  }
  measure.traits = traitsOf(instance, measured.orientation);
  return measure;
}

/// The position of each signal in a dataset's signal list: the stable id that orders a
/// stream, whatever the order in which a backend placed the signals in memory.
class PositionOf {
 public:
  /// `list` holds every signal asked for later (they were found in it).
  explicit PositionOf(const simdata::SignalList* list) : list_(list) {}
  int operator()(const simdata::Signal* signal) const {
    if (positions_.empty()) {
      positions_.reserve(static_cast<size_t>(list_->count()));
      for (int i = 0; i < list_->count(); ++i) {
        positions_.emplace(list_->at(i), i);
      }
    }
    return positions_.at(signal);
  }

 private:
  const simdata::SignalList* list_;
  mutable std::unordered_map<const simdata::Signal*, int> positions_;
};

/// Puts the streamed signals (dataset positions) in the dataset's own order, which is the
/// order the data holds them in: the chunks are then read and used front to back. The
/// instances' slots follow.
void sortByPosition(std::vector<int>& positions, std::vector<StreamedInstance>& streamed) {
  std::vector<std::pair<int, int>> byPlace(positions.size());
  for (size_t k = 0; k < byPlace.size(); ++k) {
    byPlace[k] = {positions[k], static_cast<int>(k)};
  }
  std::sort(byPlace.begin(), byPlace.end());
  std::vector<int> newSlot(positions.size());
  for (size_t k = 0; k < byPlace.size(); ++k) {
    positions[k] = byPlace[k].first;
    newSlot[static_cast<size_t>(byPlace[k].second)] = static_cast<int>(k);
  }
  for (StreamedInstance& measure : streamed) {
    if (measure.slot1 >= 0) {
      measure.slot1 = newSlot[static_cast<size_t>(measure.slot1)];
    }
    if (measure.slot2 >= 0) {
      measure.slot2 = newSlot[static_cast<size_t>(measure.slot2)];
    }
  }
}

/// The shared axis of the streamed signals and its index range for the window, as the
/// batch reads see them; false when the first signal gives no usable axis.
bool streamAxis(simdata::Dataset& dataset, const simdata::Signal* first,
                const StatisticsSettings& settings, std::vector<double>& axis, IndexRange& range) {
  simdata::SignalArray one(1);
  one.add(first);
  const std::unique_ptr<simdata::ValueArray> values = dataset.read(one);
  const simdata::Value* waveform =
      values && values->count() == 1 ? simdata::getWaveform(values->at(0)) : nullptr;
  const simdata::DataVector* x = waveform != nullptr ? waveform->xVector() : nullptr;
  const simdata::DataVector* y = waveform != nullptr ? waveform->yVector() : nullptr;
  if (x == nullptr || y == nullptr || x->length() < 1 || x->length() != y->length()) {
    return false;
  }
  std::vector<double> scratch;
  const Samples samples = samplesOf(x, scratch);
  axis.assign(samples.data(), samples.data() + samples.size());
  simdata::timeRangeIndices(x, settings.startTime, settings.stopTime, range.start, range.stop);
  return range.start >= 0;
}

}  // namespace

BatchLookup lookUpBatch(simdata::Dataset& dataset, int first, int count,
                        std::vector<zeInstance>& list, bool keepList) {
  const int end = std::min(first + count, static_cast<int>(list.size()));
  BatchLookup lookup;
  lookup.signals = std::make_unique<simdata::SignalList>();
  const simdata::SignalList* datasetSignals = dataset.signals();
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
    zeInstance& instance = list[static_cast<size_t>(i)];
    instance.sigIndex1 = lookUp(instance, instance.node1, false);
    instance.sigIndex2 = lookUp(instance, instance.node2, true);
  }
  lookup.listed = keepList ? lookup.signals->count() : static_cast<int>(lookup.found.size());
  return lookup;
}

void reportLookup(RunObserver& observer, const BatchLookup& lookup) {
  observer.batchLookedUp(lookup.missing, lookup.listed != lookup.handedOut);
}

InstanceOutcome freshOutcome() {
  InstanceOutcome outcome;
  outcome.data = freshVoltageData();
  outcome.acPulses = std::make_shared<PwcAcEDataList>();
  outcome.data.acPulses = outcome.acPulses.get();
  return outcome;
}

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

std::unique_ptr<StreamedRun> streamRun(simdata::Dataset& dataset, std::vector<zeInstance>& list,
                                       const StatisticsSettings& settings) {
  if (!dataset.streamsSignals() || dataset.sweep() == nullptr || !streamable(settings) ||
      !streamedRunEnabled()) {
    return nullptr;
  }
  auto run = std::make_unique<StreamedRun>();
  const int total = static_cast<int>(list.size());
  std::vector<StreamedInstance> streamed(list.size());
  // The dataset positions of the signals to stream, each once, and their stream slots.
  const PositionOf positionOf(dataset.signals());
  std::vector<int> slotPositions;
  std::unordered_map<int, int> slotOf;
  for (int first = 0;; first += kRunBatchSize) {
    const bool lastBatch = first + kRunBatchSize >= total;
    const int count = lastBatch ? total - first : kRunBatchSize;
    BatchLookup lookup = lookUpBatch(dataset, first, count, list, false);
    auto slot = [&](int index) {
      const int position = positionOf(lookup.found[static_cast<size_t>(index)]);
      const auto [it, added] = slotOf.emplace(position, static_cast<int>(slotPositions.size()));
      if (added) {
        slotPositions.push_back(position);
      }
      return it->second;
    };
    for (int i = std::max(first, 0); i < first + count; ++i) {
      const zeInstance& instance = list[static_cast<size_t>(i)];
      if (instance.valid) {
        streamed[static_cast<size_t>(i)] = streamedMeasureOf(instance, slot);
      }
    }
    lookup.signals.reset();
    lookup.found = {};
    run->batches.push_back(std::move(lookup));
    if (lastBatch) {
      break;
    }
  }
  sortByPosition(slotPositions, streamed);

  const simdata::SignalList* datasetSignals = dataset.signals();
  simdata::SignalArray array(static_cast<int>(slotPositions.size()));
  for (int position : slotPositions) {
    array.add(datasetSignals->at(position));
  }
  std::vector<double> axis;
  IndexRange range;
  if (array.count() > 0 && !streamAxis(dataset, array.at(0), settings, axis, range)) {
    return nullptr;
  }
  run->measures =
      std::make_unique<StreamedMeasures>(settings, std::move(axis), range, std::move(streamed));
  if (array.count() > 0) {
    size_t covered = 0;
    bool inOrder = true;
    StreamedMeasures& measures = *run->measures;
    const bool streamedAll = dataset.streamSignals(
        array, [&](size_t first, size_t count, std::span<const double* const> values) {
          inOrder = inOrder && first == covered && values.size() == slotPositions.size();
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

int storeStreamed(const StreamedMeasures& measures, int first, int end, int ignoreSign,
                  std::vector<zeInstance>& list) {
  const size_t from = static_cast<size_t>(std::max(first, 0));
  const size_t to = static_cast<size_t>(std::max(end, first));
  // Each instance's record is its own, so the records are finished on all threads.
  support::parallelFor(to - from, 256, [&](size_t begin, size_t stop) {
    for (size_t i = from + begin; i < from + stop; ++i) {
      zeInstance& instance = list[i];
      if (!instance.valid) {
        continue;
      }
      InstanceOutcome outcome = freshOutcome();
      outcome.direction = measures.finish(i, outcome.data);
      storeOutcome(std::move(outcome), ignoreSign, instance);
    }
  });
  return static_cast<int>(
      std::count_if(list.begin() + static_cast<std::ptrdiff_t>(from),
                    list.begin() + static_cast<std::ptrdiff_t>(to),
                    [](const zeInstance& instance) { return !instance.valid; }));
}

}  // namespace analysis::detail
