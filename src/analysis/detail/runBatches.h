#pragma once
// The parts of the run shared by its batch-by-batch and its streamed reading.

#include <memory>
#include <string>
#include <vector>

#include "analysis/runLoop.h"
#include "analysis/streamedStatistics.h"

namespace analysis::detail {

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
/// result, so a batch may be looked up more than once. `keepList` false leaves the batch's
/// signal list empty (only its count is kept), for callers that need the dataset's signals
/// alone.
BatchLookup lookUpBatch(simdata::Dataset& dataset, int first, int count,
                        std::vector<zeInstance>& list, bool keepList);

/// Tells the observer what a batch's lookup found.
void reportLookup(RunObserver& observer, const BatchLookup& lookup);

/// What the analysis of one instance produced, before it is stored.
struct InstanceOutcome {
  voltageData data;
  int direction = -1;
  std::shared_ptr<PwcAcEDataList> acPulses;
};

/// A fresh outcome: a fresh record with its own empty pulse list.
InstanceOutcome freshOutcome();

/// Stores what the analysis of an instance produced: the polarity averages only as the
/// ignore setting asks.
void storeOutcome(InstanceOutcome&& outcome, int ignoreSign, zeInstance& instance);

/// Reads the values of one batch's signals in one call and measures and stores its
/// instances; returns the number that failed (the whole batch when the read failed, which the
/// observer is told).
int readBatch(simdata::Dataset& dataset, int first, int count, std::vector<zeInstance>& list,
              const simdata::SignalList& signals, const StatisticsSettings& settings,
              RunObserver& observer);

/// A run measured in one pass over the data: the lookups of every batch (reported when the
/// run reaches the batch) and the measures of every instance.
struct StreamedRun {
  std::vector<BatchLookup> batches;
  std::unique_ptr<StreamedMeasures> measures;
};

/// Looks up every batch and measures every instance in one pass over the dataset, when it
/// can stream and the settings and the environment allow. Null when the run is to be read
/// batch by batch instead (the lookups done so far are then simply done again).
std::unique_ptr<StreamedRun> streamRun(simdata::Dataset& dataset, std::vector<zeInstance>& list,
                                       const StatisticsSettings& settings);

/// Stores the streamed measures of instances [first, end); returns the number that failed.
int storeStreamed(const StreamedMeasures& measures, int first, int end, int ignoreSign,
                  std::vector<zeInstance>& list);

}  // namespace analysis::detail
