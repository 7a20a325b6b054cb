#pragma once
// The analysis time window: taken from a dataset's sweep, and turned into sample indices of
// one waveform's time axis.

#include <optional>

#include "simdata/resultsReader.h"

namespace simdata {

struct TimeRange {
  double start = 0.0;
  double stop = 0.0;
};

/// The range of the last sweep dimension named "time" (any case) that has a range: integer
/// (code 1), 32-bit float (code 5) and double (code 0) limits are taken as they are, any
/// other type gives 0.0 .. 1.0. Nothing when the sweep is null or has no such dimension.
std::optional<TimeRange> sweepTimeRange(const Sweep* sweep);

/// Sample indices of a time axis for a window: `startIndex` is the last sample at or before
/// `start` (0 when none), `stopIndex` the last sample at or before `stop`, or the axis length
/// when every sample lies after it. The axis need not be sorted: the last index that satisfies
/// each test wins. A null axis leaves 0 and 2147483647.
void timeRangeIndices(const DataVector* axis, double start, double stop, int& startIndex,
                      int& stopIndex);

}  // namespace simdata
