#pragma once
// From the values read for a batch of signals to the statistics of one instance: picks the
// waveforms of the two nodes, views their data vectors as plain arrays and calls the
// kernels of statistics.h.

#include <functional>
#include <vector>

#include "analysis/netlist.h"
#include "analysis/statistics.h"
#include "simdata/resultsReader.h"

namespace analysis {

/// Buffers for data vectors that are not stored as doubles (or hold NaN); reused between
/// instances so that converting does not allocate every time. It also remembers the last
/// time axis viewed in place: the waveforms of one analysis share it, so it is checked once.
/// A scratch must not outlive the values it was used with.
struct WaveScratch {
  std::vector<double> x1;
  std::vector<double> x2;
  std::vector<double> y1;
  std::vector<double> y2;
  const simdata::DataVector* axis = nullptr;
  Samples axisSamples;
};

/// A data vector as kernel samples: its own doubles when it has them and they hold no NaN,
/// else its elements read as doubles into `scratch`. Absent for a null vector.
Samples samplesOf(const simdata::DataVector* vector, std::vector<double>& scratch);

/// The sample index range [start, stop] of a waveform for the run's time window.
using TimeRangeLookup = std::function<void(const simdata::Value* waveform, int& start, int& stop)>;

/// Whether reading the values of a batch writes to standard output (a data vector of an
/// unknown element type is reported on every element read); such a batch is measured in
/// netlist order on one thread so that the output stays the same.
bool printsWhileReading(const simdata::ValueArray* values);

/// Which waveforms a transient measure of an instance takes.
enum class WaveformCase {
  kNone,         ///< no first node and no second value: nothing is measured
  kFirstAlone,   ///< the first node against ground or the fixed value
  kSecondAlone,  ///< the second node alone, its current flowing the other way round
  kBoth,         ///< the difference of both nodes on their merged time axes
};

/// The case of an instance and the orientation to measure it with.
struct InstanceCase {
  WaveformCase waveforms = WaveformCase::kNone;
  int orientation = -1;
};

/// The case of an instance from its two signal indices (-1 on the first node: ground; -1 or
/// -3 on the second: no second waveform) and its orientation, which is flipped (1 and 0
/// swapped, anything else -1) when the second node is measured alone.
InstanceCase classifyInstance(int idx1, int idx2, int orientation);

/// The statistics inputs of an instance, with the orientation to use.
InstanceTraits traitsOf(const zeInstance& instance, int orientation);

/// DC difference of the values at idx1 and idx2 (an index of -1 or -3 on the second node
/// means no second value): peak = |a - b|, peakValue = a. Writes nothing else.
void dcDifference(const simdata::ValueArray* values, int idx1, int idx2, voltageData& out);

/// Transient statistics of an instance: the first node alone, the second node alone (with
/// the orientation mapped), or the difference of both on their merged time axes. Returns
/// the direction.
int transientDifference(const simdata::ValueArray* values, int idx1, int idx2,
                        const StatisticsSettings& settings, const InstanceTraits& instance,
                        double ref, const TimeRangeLookup& timeRange, WaveScratch& scratch,
                        voltageData& out);

}  // namespace analysis
