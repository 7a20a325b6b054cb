#include "analysis/runLoop.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <new>
#include <utility>

#include "analysis/detail/runBatches.h"
#include "analysis/instanceMeasure.h"
#include "simdata/timeRange.h"
#include "support/parallel.h"

namespace analysis {

namespace {

using detail::InstanceOutcome;

/// Instances measured per piece of work handed to a thread.
constexpr size_t kInstancesPerPiece = 64;

/// Measures one instance of a batch from the batch's values (no shared state: this runs on
/// any thread).
void measureInstance(const zeInstance& instance, const simdata::ValueArray* values,
                     const StatisticsSettings& settings, bool dcPoint,
                     const TimeRangeLookup& timeRange, WaveScratch& scratch,
                     InstanceOutcome& outcome) {
  if (!instance.valid) {
    return;
  }
  outcome = detail::freshOutcome();
  const double ref = instance.sigIndex2 == -3 ? instance.fixedValue : 0.0;
  if (dcPoint) {
    dcDifference(values, instance.sigIndex1, instance.sigIndex2, outcome.data);
    const double d = std::fabs(ref - outcome.data.peak);
    outcome.data.peak = d;
    outcome.data.avg = d;
    outcome.data.rms = d;
    outcome.data.absAvg = d;
    outcome.data.rawAvg = outcome.data.peakValue;
    outcome.direction = -1;
  } else {
    outcome.direction = transientDifference(values, instance.sigIndex1, instance.sigIndex2,
                                            settings, traitsOf(instance, instance.orientation), ref,
                                            timeRange, scratch, outcome.data);
  }
}

/// Measures the instances [begin, begin + outcomes.size()) from the batch's values.
void measureBatch(const std::vector<zeInstance>& list, int begin, const simdata::ValueArray* values,
                  const StatisticsSettings& settings, bool dcPoint,
                  std::vector<InstanceOutcome>& outcomes) {
  // The instances of a batch are independent: each outcome is computed on its own and the
  // outcomes are stored in netlist order afterwards, so the computing is shared out among
  // threads in runs of consecutive instances, and the results do not depend on how.
  auto measureRun = [&](size_t runBegin, size_t runEnd) {
    // The index range of a waveform depends only on its time vector and the window, and the
    // waveforms of one analysis usually share their time vector: remember the last one.
    const simdata::DataVector* rangeAxis = nullptr;
    IndexRange axisRange;
    const TimeRangeLookup timeRange = [&](const simdata::Value* waveform, int& start, int& stop) {
      const simdata::DataVector* axis = waveform != nullptr ? waveform->xVector() : nullptr;
      if (axis != nullptr && axis == rangeAxis) {
        start = axisRange.start;
        stop = axisRange.stop;
        return;
      }
      simdata::timeRangeIndices(axis, settings.startTime, settings.stopTime, start, stop);
      if (axis != nullptr) {
        rangeAxis = axis;
        axisRange = {start, stop};
      }
    };
    WaveScratch scratch;
    for (size_t k = runBegin; k < runEnd; ++k) {
      measureInstance(list[static_cast<size_t>(begin) + k], values, settings, dcPoint, timeRange,
                      scratch, outcomes[k]);
    }
  };
  if (printsWhileReading(values)) {
    // Reading such values writes to standard output: keep the netlist's order.
    measureRun(0, outcomes.size());
  } else {
    support::parallelFor(outcomes.size(), kInstancesPerPiece, measureRun);
  }
}

}  // namespace

namespace detail {

int readBatch(simdata::Dataset& dataset, int first, int count, std::vector<zeInstance>& list,
              const simdata::SignalList& signals, const StatisticsSettings& settings,
              RunObserver& observer) {
  simdata::SignalArray array(signals.count());
  for (int i = 0; i < signals.count(); ++i) {
    array.add(signals.at(i));
  }
  const std::unique_ptr<simdata::ValueArray> values = dataset.read(array);
  if (!values || values->count() != signals.count()) {
    observer.batchReadFailed();
    return count;
  }
  const int begin = std::max(first, 0);
  const int end = std::min(first + count, static_cast<int>(list.size()));
  std::vector<InstanceOutcome> outcomes(static_cast<size_t>(std::max(end - begin, 0)));
  measureBatch(list, begin, values.get(), settings, dataset.sweep() == nullptr, outcomes);
  int failed = 0;
  for (int i = begin; i < end; ++i) {
    zeInstance& instance = list[static_cast<size_t>(i)];
    if (!instance.valid) {
      ++failed;
      continue;
    }
    detail::storeOutcome(std::move(outcomes[static_cast<size_t>(i - begin)]), settings.ignoreSign,
                         instance);
  }
  return failed;
}

}  // namespace detail

int runInstances(simdata::Dataset& dataset, std::vector<zeInstance>& instances,
                 const StatisticsSettings& settings, RunObserver& observer) {
  const int total = static_cast<int>(instances.size());
  // Data stored point by point is measured in one pass when the settings allow; otherwise
  // every batch reads its signals.
  std::unique_ptr<detail::StreamedRun> streamed;
  try {
    streamed = detail::streamRun(dataset, instances, settings);
  } catch (const std::bad_alloc&) {
    streamed.reset();  // not enough memory for one pass: batch by batch needs less
  }
  if (!streamed) {
    dataset.expectBulkReads(std::max(1, (total + kRunBatchSize - 1) / kRunBatchSize));
  }
  int failed = 0;
  size_t batch = 0;
  for (int first = 0;; first += kRunBatchSize, ++batch) {
    const bool lastBatch = first + kRunBatchSize >= total;
    const int count = lastBatch ? total - first : kRunBatchSize;
    const int end = lastBatch ? total : first + kRunBatchSize;
    observer.batchStarting(first, count);
    if (streamed) {
      detail::reportLookup(observer, streamed->batches[batch]);
      failed +=
          detail::storeStreamed(*streamed->measures, first, end, settings.ignoreSign, instances);
    } else {
      const detail::BatchLookup lookup =
          detail::lookUpBatch(dataset, first, count, instances, true);
      detail::reportLookup(observer, lookup);
      failed +=
          detail::readBatch(dataset, first, count, instances, *lookup.signals, settings, observer);
    }
    observer.batchDone(end, failed, total);
    if (lastBatch) {
      return failed;
    }
  }
}

}  // namespace analysis
