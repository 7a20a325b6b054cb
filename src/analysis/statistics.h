#pragma once
// Waveform statistics kernels: peak, averages, RMS, duty ratio and pulse widths of the
// difference of node waveforms over a time window. They read plain arrays and a settings
// record only (no session, no I/O), so they can be tested alone and run on any thread.
//
// The order of every floating-point operation is part of the result: sign-off compares
// these numbers to the last bit, so do not "simplify" an expression here.

#include <span>

#include "analysis/voltageData.h"

namespace analysis {

/// One vector of samples as the kernels read it. Reads outside [0, size) give 0.0, as element
/// access of the results reader does; an absent vector (no data at all) is distinct from an
/// empty one. The caller hands NaN-free values (the reader turns NaN into 0.0).
class Samples {
 public:
  Samples() = default;
  explicit Samples(std::span<const double> values)
      : data_(values.data()), size_(static_cast<int>(values.size())), present_(true) {}

  bool present() const { return present_; }
  int size() const { return size_; }
  const double* data() const { return data_; }
  double operator[](int i) const {
    return static_cast<unsigned>(i) < static_cast<unsigned>(size_) ? data_[i] : 0.0;
  }

 private:
  const double* data_ = nullptr;
  int size_ = 0;
  bool present_ = false;
};

/// How the AC pulse width and duty ratio are measured.
enum class AcPeakMethod {
  kAreaOverPeak,    // width of a rectangle of height peak with the same area
  kHalfPeakPulses,  // pulses above half the peak, with interpolated edges
};

/// How a run's window is measured.
enum class WindowMode {
  kLegacy,  // sample indices, the step after the stop sample integrated too (the default)
  kExact,   // straight lines between samples, exactly [start, stop] (exactWindow.h)
};

/// The run-wide inputs of the statistics.
struct StatisticsSettings {
  /// Minimum length of a pulse that may hold the peak; 0 disables duration pulses.
  double durationTime = 0.0;
  /// Time window of the two-waveform measure.
  double startTime = 0.0;
  double stopTime = 0.0;
  /// 0 none, -1 negative currents ignored, 1 positive currents ignored, 2 both.
  int ignoreSign = 0;
  bool acAnalysis = false;
  AcPeakMethod acPeakMethod = AcPeakMethod::kAreaOverPeak;
  /// Non-zero: weight by the instance's own recovery factor.
  float recoveryFactor = 0.0f;
  bool emRecoveryFactorGiven = false;
  float emRecoveryFactor = 1.0f;
  /// A value >= 0 turns on AC threshold pulses (threshold = this x first threshold operand).
  double acPulseThreshold = -1.0;
  /// Whether AC pulse records are appended to voltageData::acPulses.
  bool collectAcPulses = false;
  /// kExact: stopTime is the window's end as it is, with no tolerance added.
  WindowMode windowMode = WindowMode::kLegacy;
};

/// The per-instance inputs of the statistics.
struct InstanceTraits {
  /// Operands whose product is the duration-pulse threshold.
  double thresholdValue = 0.0;
  double thresholdScale = 0.0;
  /// -1 none; 1 inverts the direction; any other value gives the plain direction.
  int orientation = -1;
  /// 0: the direction is decided from the sign of the average.
  int directionKnown = 0;
  double recoveryFactor = 1.0;
};

/// Sample indices of a one-waveform measure: [start, stop] plus the step after stop.
struct IndexRange {
  int start = 0;
  int stop = 0;
};

/// One waveform y against the reference `ref`, on its own axis x, over `range`. Adds to and
/// overwrites `out`, appends AC pulses to `out.acPulses`; returns the direction (-1, 0, 1).
/// The step that starts at sample `stop` is integrated too while the range length uses
/// x[stop]: this one-step overrun is part of the defined result.
int measureOneWaveform(const StatisticsSettings& settings, const InstanceTraits& instance,
                       IndexRange range, Samples x, Samples y, double ref, voltageData& out);

/// The difference y1 - y2 of two waveforms on different time axes, merged on the fly, over
/// [settings.startTime, settings.stopTime]; the step that crosses the stop time is
/// integrated whole. Returns the direction.
int measureTwoWaveforms(const StatisticsSettings& settings, const InstanceTraits& instance,
                        Samples x1, Samples x2, Samples y1, Samples y2, voltageData& out);

/// The half-peak pulse measure of two waveforms on the merged axis: adds pulse widths to
/// `dutySum` and sets `pulseWidth` to the width of the pulse around `peakTime`.
void halfPeakDutyTwoWaveforms(const StatisticsSettings& settings, Samples x1, Samples x2,
                              Samples y1, Samples y2, double& dutySum, double peakTime,
                              double& pulseWidth, voltageData& out);

/// Appends `record` to `list` when pulse collection is on and a list is given.
void recordAcPulse(const StatisticsSettings& settings, PwcAcEDataList* list,
                   const kraDB::PwcAcEData& record);

}  // namespace analysis
