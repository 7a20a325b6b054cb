#pragma once
// The run over the instances of a netlist, without a session: the signals of every batch
// looked up by node name, their values read (in one streamed pass over the data when the
// dataset and the settings allow, else batch by batch) and each instance's statistics
// stored in it. What the run has to say goes to an observer, which writes the log.

#include <span>
#include <string>
#include <vector>

#include "analysis/netlist.h"
#include "analysis/statistics.h"
#include "simdata/resultsReader.h"

namespace analysis {

/// Instances handled per batch: bounds the signals read and held at once.
inline constexpr int kRunBatchSize = 5000;

/// What a run reports, batch by batch and in this order for each batch.
class RunObserver {
 public:
  virtual ~RunObserver() = default;
  /// Batch [first, first + count) is about to be looked up (or, streamed, stored).
  virtual void batchStarting(int first, int count) = 0;
  /// The batch's node names without a signal (once per node occurrence) and whether the
  /// signals listed differ in number from the indices handed out.
  virtual void batchLookedUp(std::span<const std::string* const> missing, bool countMismatch) = 0;
  /// The bulk read of the batch's values failed: the whole batch fails.
  virtual void batchReadFailed() = 0;
  /// The batch ending at `end` is done; `failed` counts the failures of the run so far.
  virtual void batchDone(int end, int failed, int total) = 0;
};

/// Runs every instance over `dataset` with `settings` (which carry the time window and the
/// ignore setting) and returns the number of instances that failed (a missing signal, or a
/// batch whose read failed). Instances already invalid stay invalid.
int runInstances(simdata::Dataset& dataset, std::vector<zeInstance>& instances,
                 const StatisticsSettings& settings, RunObserver& observer);

}  // namespace analysis
