#pragma once
// A run shared among processes that each hold the same session (the ranks of a distributed
// job). The batches are dealt out in rounds: process p of P measures batch r * P + p of round
// r, reading only that batch's signals, exactly as a single process reads it batch by batch.
// The records of every batch then reach every process, which reports the round's batches to
// its observer in batch order. So every process ends with the same instances, and the
// reporting process's log and results are the bytes a single process would write.

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "analysis/runLoop.h"

namespace analysis {

/// What a process brings to a run: whether it can run at all (results open, analysis
/// selected) and the sizes every process must agree on.
struct RunReadiness {
  bool ready = false;
  uint64_t instances = 0;
  uint64_t signals = 0;
};

/// The readiness of a process with `dataset` selected (null when none) and `instances`.
RunReadiness readinessOf(simdata::Dataset* dataset, const std::vector<zeInstance>& instances);

/// How the processes of a shared run reach each other; a message-passing layer implements it.
class RunExchange {
 public:
  virtual ~RunExchange() = default;
  /// Number of processes taking part.
  virtual int processes() const = 0;
  /// This process's place among them; process 0 writes the log and the files.
  virtual int rank() const = 0;
  /// Called by every process before each run with its readiness; returns whether the run
  /// goes on, the same answer on every process (process 0's readiness decides). Throws
  /// SharedRunFailure on every process when another one cannot follow process 0 (process 0
  /// has then logged which and why).
  virtual bool agree(const RunReadiness& mine) = 0;
  /// Every process passes its bytes and gets every process's bytes, in process order.
  virtual std::vector<std::vector<char>> allGather(std::span<const char> mine) = 0;
};

/// A shared run that cannot go on because process `rank` failed; thrown on every process.
class SharedRunFailure : public std::runtime_error {
 public:
  SharedRunFailure(int failedRank, const std::string& cause)
      : std::runtime_error(cause), rank(failedRank) {}
  /// The process that failed.
  int rank;
};

/// Runs every instance as runInstances does, with the batches shared among the processes of
/// `exchange`; returns the number of instances that failed. Every process must call it with
/// the same dataset contents, instances and settings. Throws SharedRunFailure on every
/// process when one of them could not measure its batch.
int runSharedInstances(simdata::Dataset& dataset, std::vector<zeInstance>& instances,
                       const StatisticsSettings& settings, RunObserver& observer,
                       RunExchange& exchange);

}  // namespace analysis
