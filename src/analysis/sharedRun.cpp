// The shared run: batches dealt out in rounds, their records exchanged, every batch reported
// in order on every process.

#include "analysis/sharedRun.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "analysis/detail/runBatches.h"

namespace analysis {

namespace {

/// How the measuring of a batch ended, as its process reports it.
enum class BatchStatus : uint8_t { kMeasured = 0, kReadFailed = 1, kFailed = 2 };

/// The fields of an instance a run stores, in the order they travel.
constexpr size_t kRecordDoubles = 11;
constexpr size_t kRecordBytes = 1 + sizeof(int32_t) + kRecordDoubles * sizeof(double);

double* recordField(voltageData& data, size_t k) {
  double* const fields[kRecordDoubles] = {&data.peak,      &data.peakValue,   &data.avg,
                                          &data.rawAvg,    &data.avgPositive, &data.avgNegative,
                                          &data.rms,       &data.absAvg,      &data.peakTime,
                                          &data.dutyRatio, &data.pulseWidth};
  return fields[k];
}

/// Appends plain bytes to a message.
template <typename T>
void put(std::vector<char>& out, const T& value) {
  const char* bytes = reinterpret_cast<const char*>(&value);
  out.insert(out.end(), bytes, bytes + sizeof value);
}

/// Reads a message written by put; every read is checked against the message's end.
class MessageReader {
 public:
  explicit MessageReader(const std::vector<char>& bytes) : bytes_(bytes) {}
  template <typename T>
  T take() {
    T value{};
    if (bytes_.size() - place_ < sizeof value) {
      throw std::runtime_error("a batch message ended early");
    }
    std::memcpy(&value, bytes_.data() + place_, sizeof value);
    place_ += sizeof value;
    return value;
  }
  std::string takeText(size_t length) {
    if (bytes_.size() - place_ < length) {
      throw std::runtime_error("a batch message ended early");
    }
    std::string text(bytes_.data() + place_, length);
    place_ += length;
    return text;
  }

 private:
  const std::vector<char>& bytes_;
  size_t place_ = 0;
};

/// Notes a failed bulk read instead of reporting it: the report waits for the batch's turn.
class ReadFailureNote : public RunObserver {
 public:
  void batchStarting(int, int) override {}
  void batchLookedUp(std::span<const std::string* const>, bool) override {}
  void batchReadFailed() override { failed = true; }
  void batchDone(int, int, int) override {}
  bool failed = false;
};

/// A batch of the run: its first instance, its size and its end.
struct BatchSpan {
  int first = 0;
  int count = 0;
  int end = 0;
};

BatchSpan batchSpan(int batch, int total) {
  const int first = batch * kRunBatchSize;
  const bool lastBatch = first + kRunBatchSize >= total;
  return {first, lastBatch ? total - first : kRunBatchSize,
          lastBatch ? total : first + kRunBatchSize};
}

/// Measures one batch on this process and writes its message: the status, then (measured)
/// every instance's validity, direction and record, or (failed) the cause.
std::vector<char> measureBatch(simdata::Dataset& dataset, const BatchSpan& span,
                               std::vector<zeInstance>& instances,
                               const StatisticsSettings& settings,
                               std::optional<detail::BatchLookup>& lookup) {
  std::vector<char> message;
  std::string cause;
  try {
    lookup = detail::lookUpBatch(dataset, span.first, span.count, instances, true);
    ReadFailureNote note;
    detail::readBatch(dataset, span.first, span.count, instances, *lookup->signals, settings, note);
    if (note.failed) {
      put(message, BatchStatus::kReadFailed);
      return message;
    }
    message.reserve(1 + static_cast<size_t>(std::max(span.count, 0)) * kRecordBytes);
    put(message, BatchStatus::kMeasured);
    for (int i = span.first; i < span.end; ++i) {
      zeInstance& instance = instances[static_cast<size_t>(i)];
      put(message, static_cast<uint8_t>(instance.valid ? 1 : 0));
      put(message, static_cast<int32_t>(instance.direction));
      for (size_t k = 0; k < kRecordDoubles; ++k) {
        put(message, *recordField(instance.data, k));
      }
    }
    return message;
  } catch (const std::bad_alloc&) {
    cause = "out of memory";
  } catch (const std::exception& error) {
    cause = error.what();
  }
  message.clear();
  put(message, BatchStatus::kFailed);
  put(message, static_cast<uint32_t>(cause.size()));
  message.insert(message.end(), cause.begin(), cause.end());
  return message;
}

/// Stores the records of a batch measured by process `owner` into this process's instances;
/// returns the number of the batch's instances that failed.
int storeBatch(const std::vector<char>& message, int owner, const BatchSpan& span,
               bool measuredHere, std::vector<zeInstance>& instances) {
  MessageReader reader(message);
  if (reader.take<BatchStatus>() == BatchStatus::kReadFailed) {
    return span.count;
  }
  int failed = 0;
  for (int i = span.first; i < span.end; ++i) {
    zeInstance& instance = instances[static_cast<size_t>(i)];
    const bool valid = reader.take<uint8_t>() != 0;
    const int32_t direction = reader.take<int32_t>();
    double fields[kRecordDoubles];
    for (double& field : fields) {
      field = reader.take<double>();
    }
    if (valid != instance.valid) {
      throw SharedRunFailure(owner, "its simulation data hold other signals than rank 0's");
    }
    if (!valid) {
      ++failed;
      continue;
    }
    if (!measuredHere) {
      for (size_t k = 0; k < kRecordDoubles; ++k) {
        *recordField(instance.data, k) = fields[k];
      }
      instance.direction = direction;
      // Pulse records stay with the process that measured them; no output holds them.
      instance.acPulses = std::make_shared<PwcAcEDataList>();
    }
  }
  return failed;
}

/// Throws on every process when a process of the round failed to measure its batch.
void checkRound(const std::vector<std::vector<char>>& messages) {
  for (size_t owner = 0; owner < messages.size(); ++owner) {
    if (messages[owner].empty()) {
      continue;
    }
    MessageReader reader(messages[owner]);
    if (reader.take<BatchStatus>() == BatchStatus::kFailed) {
      const auto length = reader.take<uint32_t>();
      throw SharedRunFailure(static_cast<int>(owner), reader.takeText(length));
    }
  }
}

}  // namespace

RunReadiness readinessOf(simdata::Dataset* dataset, const std::vector<zeInstance>& instances) {
  RunReadiness readiness;
  readiness.ready = dataset != nullptr;
  readiness.instances = instances.size();
  const simdata::SignalList* signals = dataset != nullptr ? dataset->signals() : nullptr;
  readiness.signals = signals != nullptr ? static_cast<uint64_t>(signals->count()) : 0;
  return readiness;
}

int runSharedInstances(simdata::Dataset& dataset, std::vector<zeInstance>& instances,
                       const StatisticsSettings& settings, RunObserver& observer,
                       RunExchange& exchange) {
  const int total = static_cast<int>(instances.size());
  const int batches = std::max(1, (total + kRunBatchSize - 1) / kRunBatchSize);
  const int processes = std::max(1, exchange.processes());
  const int me = exchange.rank();
  dataset.expectBulkReads(std::max(1, (batches - me + processes - 1) / processes));
  int failed = 0;
  for (int roundStart = 0; roundStart < batches; roundStart += processes) {
    const int mine = roundStart + me;
    std::optional<detail::BatchLookup> myLookup;
    std::vector<char> message;
    if (mine < batches) {
      message = measureBatch(dataset, batchSpan(mine, total), instances, settings, myLookup);
    }
    const std::vector<std::vector<char>> messages = exchange.allGather(message);
    checkRound(messages);
    for (int owner = 0; owner < processes && roundStart + owner < batches; ++owner) {
      const int batch = roundStart + owner;
      const BatchSpan span = batchSpan(batch, total);
      observer.batchStarting(span.first, span.count);
      if (batch == mine) {
        detail::reportLookup(observer, *myLookup);
      } else {
        detail::reportLookup(
            observer, detail::lookUpBatch(dataset, span.first, span.count, instances, false));
      }
      const std::vector<char>& record = messages[static_cast<size_t>(owner)];
      if (MessageReader(record).take<BatchStatus>() == BatchStatus::kReadFailed) {
        observer.batchReadFailed();
      }
      failed += storeBatch(record, owner, span, batch == mine, instances);
      observer.batchDone(span.end, failed, total);
    }
  }
  return failed;
}

}  // namespace analysis
