#include "simdata/timeRange.h"

#include <strings.h>

#include <cmath>
#include <span>

namespace simdata {

namespace {

// g++ 12 at -O2 miscompiles two float round trips stored as a pair: the SLP vectorizer keeps
// the original doubles (min 0.1 stays 0.1 instead of becoming 0.1f). Widening out of line
// keeps the narrowing visible.
[[gnu::noinline]] double widen(float value) { return static_cast<double>(value); }

}  // namespace

std::optional<TimeRange> sweepTimeRange(const Sweep* sweep) {
  if (sweep == nullptr) {
    return std::nullopt;
  }
  std::optional<TimeRange> result;
  for (int i = 0; i < sweep->dimensionCount(); ++i) {
    const char* name = sweep->name(i);
    const Range* range = sweep->range(i);
    if (name == nullptr || strcasecmp(name, "time") != 0 || range == nullptr) {
      continue;
    }
    switch (range->dataType) {
      case kInt32:
        result =
            TimeRange{static_cast<double>(range->minInt()), static_cast<double>(range->maxInt())};
        break;
      case kFloat32:
        result = TimeRange{widen(range->minFloat()), widen(range->maxFloat())};
        break;
      case kFloat64:
        result = TimeRange{range->min, range->max};
        break;
      default:
        result = TimeRange{0.0, 1.0};
        break;
    }
  }
  return result;
}

void timeRangeIndices(const DataVector* axis, double start, double stop, int& startIndex,
                      int& stopIndex) {
  startIndex = 0;
  stopIndex = 2147483647;
  if (axis == nullptr) {
    return;
  }
  const int length = axis->length();
  stopIndex = length;
  const std::span<const double> values = axis->doubles();
  if (values.size() == static_cast<size_t>(length) && length > 0) {
    for (int i = 0; i < length; ++i) {
      const double v = values[static_cast<size_t>(i)];
      const double x = std::isnan(v) ? 0.0 : v;
      if (start >= x) {
        startIndex = i;
      }
      if (stop >= x) {
        stopIndex = i;
      }
    }
    return;
  }
  for (int i = 0; i < length; ++i) {
    const double x = getDataVectorAt(axis, i);
    if (start >= x) {
      startIndex = i;
    }
    if (stop >= x) {
      stopIndex = i;
    }
  }
}

}  // namespace simdata
