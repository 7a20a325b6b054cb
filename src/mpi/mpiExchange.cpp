#include "mpi/mpiExchange.h"

#include <algorithm>
#include <climits>
#include <stdexcept>

namespace mpi {

namespace {

/// What a process says at a checkpoint.
struct Position {
  uint64_t point = 0;
  uint64_t ready = 0;
  uint64_t instances = 0;
  uint64_t signals = 0;
};

const char* pointName(uint64_t point) {
  switch (static_cast<Checkpoint>(point)) {
    case Checkpoint::kStart:
      return "the start of the command file";
    case Checkpoint::kRun:
      return "a run";
    case Checkpoint::kEnd:
      return "the end of the command file";
  }
  return "an unknown point";
}

std::vector<char> joined(const std::vector<std::string>& texts) {
  std::vector<char> bytes;
  for (const std::string& text : texts) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    bytes.push_back('\0');
  }
  return bytes;
}

std::vector<std::string> split(const std::vector<char>& bytes) {
  std::vector<std::string> texts;
  std::string text;
  for (char c : bytes) {
    if (c == '\0') {
      texts.push_back(std::move(text));
      text.clear();
    } else {
      text.push_back(c);
    }
  }
  return texts;
}

void check(int status, const char* what) {
  if (status != MPI_SUCCESS) {
    throw std::runtime_error(std::string("MPI ") + what + " failed");
  }
}

}  // namespace

void ErrorNotes::note(const char* text) {
  if (texts_.size() < kKept && text != nullptr) {
    std::string kept(text);
    while (!kept.empty() && (kept.back() == '\n' || kept.back() == '\r')) {
      kept.pop_back();
    }
    texts_.push_back(std::move(kept));
  }
}

MpiExchange::MpiExchange(MPI_Comm comm, const ErrorNotes& notes) : comm_(comm), notes_(notes) {
  MPI_Comm_size(comm_, &size_);
  MPI_Comm_rank(comm_, &rank_);
}

bool MpiExchange::agree(const analysis::RunReadiness& mine) { return meet(Checkpoint::kRun, mine); }

bool MpiExchange::meet(Checkpoint point, const analysis::RunReadiness& mine) {
  const Position here{static_cast<uint64_t>(point), mine.ready ? 1U : 0U, mine.instances,
                      mine.signals};
  std::vector<Position> all(static_cast<size_t>(size_));
  check(MPI_Allgather(&here, sizeof here, MPI_BYTE, all.data(), sizeof here, MPI_BYTE, comm_),
        "Allgather");
  const Position& first = all[0];
  for (int k = 1; k < size_; ++k) {
    const Position& other = all[static_cast<size_t>(k)];
    if (other.point != first.point) {
      throw analysis::SharedRunFailure(
          k, causeOf(k, std::string("it reached ") + pointName(other.point) +
                            " while rank 0 is at " + pointName(first.point)));
    }
    if (first.ready == 0) {
      continue;  // process 0 goes no further: neither do the others
    }
    if (other.ready == 0) {
      throw analysis::SharedRunFailure(
          k, causeOf(k, point == Checkpoint::kStart ? "it cannot read the command file"
                                                    : "it has no simulation data to run on"));
    }
    if (other.instances != first.instances || other.signals != first.signals) {
      throw analysis::SharedRunFailure(
          k, "it holds " + std::to_string(other.instances) + " instances and " +
                 std::to_string(other.signals) + " signals where rank 0 holds " +
                 std::to_string(first.instances) + " and " + std::to_string(first.signals));
    }
  }
  return first.ready != 0;
}

std::string MpiExchange::causeOf(int failed, const std::string& fallback) {
  const std::vector<std::vector<char>> all = allGather(joined(notes_.texts()));
  const std::vector<std::string> theirs = split(all[static_cast<size_t>(failed)]);
  const std::vector<std::string> ours = split(all[0]);
  for (size_t k = 0; k < theirs.size(); ++k) {
    if (k >= ours.size() || theirs[k] != ours[k]) {
      return theirs[k];
    }
  }
  return fallback;
}

std::vector<std::vector<char>> MpiExchange::allGather(std::span<const char> mine) {
  if (mine.size() > static_cast<size_t>(INT_MAX)) {
    throw std::length_error("a message of a shared run is over 2 GB");
  }
  const int count = static_cast<int>(mine.size());
  std::vector<int> counts(static_cast<size_t>(size_));
  check(MPI_Allgather(&count, 1, MPI_INT, counts.data(), 1, MPI_INT, comm_), "Allgather");
  std::vector<int> offsets(static_cast<size_t>(size_));
  long long total = 0;
  for (size_t k = 0; k < counts.size(); ++k) {
    offsets[k] = static_cast<int>(total);
    total += counts[k];
    if (total > INT_MAX) {
      throw std::length_error("the messages of a shared run's round are over 2 GB");
    }
  }
  std::vector<char> gathered(static_cast<size_t>(total));
  check(MPI_Allgatherv(mine.data(), count, MPI_BYTE, gathered.data(), counts.data(), offsets.data(),
                       MPI_BYTE, comm_),
        "Allgatherv");
  std::vector<std::vector<char>> messages(static_cast<size_t>(size_));
  for (size_t k = 0; k < messages.size(); ++k) {
    messages[k].assign(gathered.begin() + offsets[k], gathered.begin() + offsets[k] + counts[k]);
  }
  return messages;
}

int MpiExchange::broadcast(int value) {
  check(MPI_Bcast(&value, 1, MPI_INT, 0, comm_), "Bcast");
  return value;
}

}  // namespace mpi
