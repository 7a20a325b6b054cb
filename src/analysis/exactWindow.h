#pragma once
// Exact windows: a waveform taken as the straight lines between its samples and measured over
// exactly [start, stop], with interpolated values at both edges. The averages are the exact
// integrals of those lines divided by the window's length, so a window that ends between two
// coarse steps no longer averages over a step the divisor leaves out.
//
// The kernel takes its samples one at a time in time order, so the batch reads and the
// streamed pass feed it the same points in the same order and get the same bits.

#include "analysis/statistics.h"

namespace analysis {

/// The integrals of one piecewise-linear waveform over a window, gathered sample by sample.
/// Outside its samples a waveform is not defined: the part of the window the samples do not
/// cover is left out (and out of the length divided by).
class ExactWindow {
 public:
  ExactWindow() = default;
  /// The window [start, stop] in seconds.
  ExactWindow(double start, double stop) : start_(start), stop_(stop) {}

  /// Takes the next sample: its time (samples come in time order; a step back in time adds
  /// nothing), the raw value of the first waveform and the difference measured.
  void add(double time, double raw, double diff);

  /// Whether a later sample can still change the result.
  bool open() const { return !(previousTime_ > stop_); }

  /// Writes peak, peakValue, peakTime, avg, rawAvg, avgPositive, avgNegative, rms, absAvg,
  /// dutyRatio and pulseWidth into `out` and returns the direction (-1, 0, 1), applying the
  /// settings' recovery weighting and AC measure (area over peak).
  int finish(const StatisticsSettings& settings, const InstanceTraits& instance,
             voltageData& out) const;

 private:
  /// A point that may hold the peak: a sample inside the window or an edge of it.
  void candidate(double time, double raw, double diff);
  /// Integrates the straight line from (t0, r0, d0) to (t1, r1, d1) over its part inside
  /// the window.
  void integrate(double t0, double r0, double d0, double t1, double r1, double d1);

  double start_ = 0.0;
  double stop_ = 0.0;
  bool hasPrevious_ = false;
  double previousTime_ = 0.0;
  double previousRaw_ = 0.0;
  double previousDiff_ = 0.0;
  // Integrals over the covered part of the window; `negativeArea` is a magnitude.
  double length_ = 0.0;
  double area_ = 0.0;
  double rawArea_ = 0.0;
  double positiveArea_ = 0.0;
  double negativeArea_ = 0.0;
  double squareArea_ = 0.0;
  // The peak (the later of equal magnitudes) and the last point seen inside the window,
  // whose values stand for the averages of a window of zero length.
  bool seen_ = false;
  double peak_ = 0.0;
  double peakValue_ = 0.0;
  double peakTime_ = 0.0;
  double lastRaw_ = 0.0;
  double lastDiff_ = 0.0;
};

/// The exact counterpart of measureOneWaveform: y - ref on the axis x over the window
/// [settings.startTime, settings.stopTime] (taken as it is, no tolerance added).
int measureOneWaveformExact(const StatisticsSettings& settings, const InstanceTraits& instance,
                            Samples x, Samples y, double ref, voltageData& out);

/// The exact counterpart of measureTwoWaveforms: y1 - y2 on the union of both axes, each
/// waveform interpolated between its samples (and held beyond its last one).
int measureTwoWaveformsExact(const StatisticsSettings& settings, const InstanceTraits& instance,
                             Samples x1, Samples x2, Samples y1, Samples y2, voltageData& out);

/// The command whose setting exact windows cannot be combined with, or null when there is
/// none: duration pulses (durationTime) and the half-peak AC measure
/// (_kraUseOldACPeakMethod) pick samples in ways a continuous waveform does not define.
const char* exactWindowConflict(const StatisticsSettings& settings);

}  // namespace analysis
