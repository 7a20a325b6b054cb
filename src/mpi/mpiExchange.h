#pragma once
// The exchange of a shared run over MPI: the processes of MPI_COMM_WORLD agree at fixed
// points of the command file (its start, every run, its end) and pass the run's records.

#include <mpi.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/sharedRun.h"

namespace mpi {

/// The first ERROR messages a process logged, so that process 0 can tell why another one
/// could not follow it: the first message that process logged and process 0 did not.
class ErrorNotes {
 public:
  /// Keeps the text of an ERROR message (the first kKept of them).
  void note(const char* text);
  const std::vector<std::string>& texts() const { return texts_; }

 private:
  static constexpr size_t kKept = 100;
  std::vector<std::string> texts_;
};

/// Where the processes of the job meet.
enum class Checkpoint : uint64_t { kStart = 1, kRun = 2, kEnd = 3 };

class MpiExchange : public analysis::RunExchange {
 public:
  /// `notes` are this process's ERROR messages (kept up to date by its session).
  MpiExchange(MPI_Comm comm, const ErrorNotes& notes);

  int processes() const override { return size_; }
  int rank() const override { return rank_; }
  bool agree(const analysis::RunReadiness& mine) override;
  std::vector<std::vector<char>> allGather(std::span<const char> mine) override;

  /// Every process reaches `point` with its readiness; returns whether process 0 is ready.
  /// Throws analysis::SharedRunFailure on every process, naming the first process that is
  /// not at the same point, not ready, or holding other sizes while process 0 is ready.
  bool meet(Checkpoint point, const analysis::RunReadiness& mine);
  /// Process 0's value of `value`, on every process.
  int broadcast(int value);

 private:
  /// Why process `failed` could not follow process 0 (called on every process).
  std::string causeOf(int failed, const std::string& fallback);

  MPI_Comm comm_;
  int size_ = 1;
  int rank_ = 0;
  const ErrorNotes& notes_;
};

}  // namespace mpi
