#pragma once
// Exact windows in a streamed run: every instance keeps its ExactWindow between chunks of
// points and is fed the same points, in the same order, as the batch reads feed it, so the
// two ways of running give the same bits.

#include <cstddef>
#include <span>
#include <vector>

#include "analysis/exactWindow.h"
#include "analysis/streamedStatistics.h"

namespace analysis {

class ExactStreamedWindows {
 public:
  /// `axis`: the shared time axis of the streamed signals; `instances`: what each instance
  /// measures. Both must outlive this object.
  ExactStreamedWindows(const StatisticsSettings& settings, std::span<const double> axis,
                       std::span<const StreamedInstance> instances);

  /// Feeds points [first, first + count): slotValues[s] holds the `count` values of slot s.
  void feed(size_t first, size_t count, std::span<const double* const> slotValues);

  /// The statistics of instance k once every point was fed; returns the direction.
  int finish(size_t k, voltageData& out) const;

 private:
  StatisticsSettings settings_;
  std::span<const double> axis_;
  std::span<const StreamedInstance> instances_;
  std::vector<ExactWindow> windows_;
};

}  // namespace analysis
