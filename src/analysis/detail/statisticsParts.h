#pragma once
// The pieces the statistics loops are built from: the peak rules, the trapezoid sums, the
// AC threshold pulses and the rules applied once a loop has run. Shared by the kernels of
// statistics.cpp and the streamed measures of streamedStatistics.cpp, so that both do the
// same arithmetic in the same order.

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "analysis/statistics.h"

namespace analysis::detail {

/// Thresholds of the two pulse kinds of one instance.
struct Thresholds {
  double duration = 0.0;  // a duration pulse lasts while the magnitude is above this
  double ac = 0.0;        // an AC threshold pulse lasts while the magnitude is at least this
};

inline Thresholds thresholdsFor(const StatisticsSettings& settings,
                                const InstanceTraits& instance) {
  Thresholds thresholds;
  if (settings.durationTime != 0.0) {
    thresholds.duration = instance.thresholdValue * instance.thresholdScale;
  }
  if (settings.durationTime == 0.0 && settings.acPulseThreshold >= 0.0) {
    thresholds.ac = settings.acPulseThreshold * instance.thresholdValue;
  }
  return thresholds;
}

/// A pulse being measured: whether it is open, when it began, and its largest magnitude so far
/// with the time of its first occurrence.
struct OpenPulse {
  void begin(double startTime, double magnitude, double time) {
    open = true;
    start = startTime;
    maxMagnitude = magnitude;
    maxTime = time;
  }
  void observe(double magnitude, double time) {
    if (magnitude > maxMagnitude) {
      maxMagnitude = magnitude;
      maxTime = time;
    }
  }

  bool open = false;
  double start = 0.0;
  double maxMagnitude = 0.0;
  double maxTime = 0.0;
};

/// The peak rules: the plain rule (ties go to the later sample) or, with a duration time,
/// pulses above the threshold that must outlast the duration to hold the peak.
class PeakTracker {
 public:
  PeakTracker(double durationTime, double threshold, const voltageData& out)
      : duration_(durationTime),
        threshold_(threshold),
        peak_(out.peak),
        peakValue_(out.peakValue) {}

  /// kDuration: whether a duration time is set (decided once per measure).
  template <bool kDuration>
  void observe(double magnitude, double raw, double time) {
    if constexpr (!kDuration) {
      plain(magnitude, raw, time);
      return;
    }
    if (magnitude > threshold_) {
      if (!pulse_.open) {
        pulse_.begin(time, magnitude, time);
      } else {
        pulse_.observe(magnitude, time);
      }
    } else if (pulse_.open) {
      pulse_.open = false;
      if (time - pulse_.start > duration_ && pulse_.maxMagnitude >= peak_) {
        peak_ = pulse_.maxMagnitude;
        peakTime_ = pulse_.maxTime;
        // The raw value of the closing sample, not of the maximum: intended.
        peakValue_ = raw;
      }
    } else {
      plain(magnitude, raw, time);
    }
  }

  /// The state of the plain rule, for loops that keep it in locals while they run.
  struct Plain {
    double peak;
    double peakValue;
    double peakTime;
  };
  Plain plainState() const { return {peak_, peakValue_, peakTime_}; }
  void setPlainState(const Plain& state) {
    peak_ = state.peak;
    peakValue_ = state.peakValue;
    peakTime_ = state.peakTime;
  }

  /// Writes the peak and its raw value; a pulse still open is never accepted.
  void store(voltageData& out) const {
    out.peak = peak_;
    out.peakValue = peakValue_;
  }
  double peakTime() const { return peakTime_; }

 private:
  void plain(double magnitude, double raw, double time) {
    if (magnitude >= peak_) {
      peak_ = magnitude;
      peakValue_ = raw;
      peakTime_ = time;
    }
  }

  double duration_;
  double threshold_;
  double peak_;
  double peakValue_;
  double peakTime_ = 0.0;
  OpenPulse pulse_;  // a duration pulse
};

/// Polarity averages accumulated, from the ignore setting: both for 2, the positive one for
/// -1 (negative currents ignored), the negative one for 1, none otherwise.
constexpr int kSplitPositive = 1;
constexpr int kSplitNegative = 2;

inline int splitOf(int ignoreSign) {
  switch (ignoreSign) {
    case 2:
      return kSplitPositive | kSplitNegative;
    case -1:
      return kSplitPositive;
    case 1:
      return kSplitNegative;
    default:
      return 0;
  }
}

/// The trapezoid sums of one measure. The record's fields are continued from the values the
/// caller handed in.
struct AreaSums {
  explicit AreaSums(const voltageData& out)
      : avg(out.avg),
        rawAvg(out.rawAvg),
        avgPositive(out.avgPositive),
        avgNegative(out.avgNegative),
        rms(out.rms),
        absAvg(out.absAvg) {}

  /// One trapezoid step from (t, raw, d) to (tNext, rawNext, dNext), d being the difference.
  /// kSplit: which polarity averages the ignore setting accumulates.
  template <int kSplit>
  void step(double t, double raw, double d, double tNext, double rawNext, double dNext) {
    const double dt = tNext - t;
    const double mid = (d + dNext) / 2;
    const double area = dt * mid;
    avg += area;
    rawAvg += (rawNext + raw) / 2 * dt;
    if (mid >= 0) {
      positiveArea += area;
    } else {
      negativeArea += area;
    }
    addPolarityAverages<kSplit>(mid, area, dt);
    rms += dt * (d * d + dNext * dNext) / 2;
    absAvg += dt * (std::fabs(d) + std::fabs(dNext)) / 2;
  }

  /// The polarity averages of one step of midpoint `mid`, those the ignore setting
  /// accumulates. A NaN midpoint is neither positive nor negative.
  template <int kSplit>
  void addPolarityAverages(double mid, double area, double dt) {
    if constexpr ((kSplit & kSplitPositive) != 0) {
      if (mid >= 0) {
        avgPositive += area;
        positiveTime += dt;
      }
    }
    if constexpr ((kSplit & kSplitNegative) != 0) {
      if (mid < 0) {
        avgNegative += area;
        negativeTime += dt;
      }
    }
  }

  double avg;
  double rawAvg;
  double avgPositive;
  double avgNegative;
  double rms;
  double absAvg;
  double positiveArea = 0.0;
  double negativeArea = 0.0;
  double positiveTime = 0.0;
  double negativeTime = 0.0;
};

/// The running values of the plain peak rule and of the trapezoid sums, held in locals by
/// the fast loops below (kept in registers instead of being stored and reloaded each step).
/// Every step does the same operations in the same order as PeakTracker::observe<false> and
/// AreaSums::step, so the results are the same to the last bit. A step's right-hand
/// difference, magnitude and square are kept as the next step's left-hand ones: the same
/// operands give the same bits. The sums are AreaSums' own fields; `step` here replaces
/// AreaSums::step for these loops.
struct PlainLoopState : AreaSums {
  PlainLoopState(const PeakTracker& peak, const AreaSums& sums)
      : AreaSums(sums), plain(peak.plainState()) {}

  void storeInto(PeakTracker& peak, AreaSums& sums) const {
    peak.setPlainState(plain);
    sums = *this;
  }

  void observe(double magnitude, double raw, double time) {
    if (magnitude >= plain.peak) {
      plain.peak = magnitude;
      plain.peakValue = raw;
      plain.peakTime = time;
    }
  }

  /// AreaSums::step with the step's length (tNext - t) and the squares and magnitudes of
  /// both ends given.
  template <int kSplit>
  void step(double dt, double raw, double d, double absD, double squareD, double rawNext,
            double dNext, double absNext, double squareNext) {
    const double mid = (d + dNext) / 2;
    const double area = dt * mid;
    avg += area;
    rawAvg += (rawNext + raw) / 2 * dt;
    // Adding +0.0 leaves a sum that started at +0.0 unchanged (such a sum is never -0.0),
    // so the side that does not take the area may add zero instead of branching.
    const bool positive = mid >= 0;
    const uint64_t areaBits = std::bit_cast<uint64_t>(area);
    const uint64_t positiveMask = uint64_t{0} - static_cast<uint64_t>(positive);
    positiveArea += std::bit_cast<double>(areaBits & positiveMask);
    negativeArea += std::bit_cast<double>(areaBits & ~positiveMask);
    addPolarityAverages<kSplit>(mid, area, dt);
    rms += dt * (squareD + squareNext) / 2;
    absAvg += dt * (absD + absNext) / 2;
  }

  PeakTracker::Plain plain;
};

/// AC threshold pulses: runs of steps whose left magnitude is at least the threshold.
class ThresholdPulses {
 public:
  ThresholdPulses(const StatisticsSettings& settings, double threshold, PwcAcEDataList* list)
      : settings_(settings), threshold_(threshold), list_(list) {}

  /// kEnabled: whether AC threshold pulses are on (decided once per measure).
  template <bool kEnabled>
  void step(double t, double d, double tNext, double dNext) {
    if constexpr (!kEnabled) {
      return;
    }
    const double magnitude = std::fabs(d);
    if (magnitude >= threshold_) {
      if (!pulse_.open) {
        pulse_.begin(t, magnitude, t);
        integral_ = 0.0;
      } else {
        pulse_.observe(magnitude, t);
      }
      integral_ += (tNext - t) * (d * d + dNext * dNext) / 2;
      end_ = tNext;
    } else {
      flush();
    }
  }

  void flush() {
    if (!pulse_.open) {
      return;
    }
    pulse_.open = false;
    const double max = pulse_.maxMagnitude;
    const double shape = max != 0.0 ? integral_ / (max * max) : 0.0;
    recordAcPulse(settings_, list_, {pulse_.start, end_, max, pulse_.maxTime, shape});
  }

 private:
  const StatisticsSettings& settings_;
  double threshold_;
  PwcAcEDataList* list_;
  OpenPulse pulse_;
  double end_ = 0.0;
  double integral_ = 0.0;
};

/// Calls `run.template operator()<kDuration, kAcPulses, kSplit>()` with the modes of the
/// settings, so that the per-step loops carry no mode tests.
template <typename Run>
void withModes(const StatisticsSettings& settings, Run&& run) {
  const bool duration = settings.durationTime != 0.0;
  const bool acPulses = settings.acPulseThreshold >= 0.0;
  auto bySplit = [&]<bool kDuration, bool kAcPulses>() {
    switch (splitOf(settings.ignoreSign)) {
      case 0:
        run.template operator()<kDuration, kAcPulses, 0>();
        break;
      case kSplitPositive:
        run.template operator()<kDuration, kAcPulses, kSplitPositive>();
        break;
      case kSplitNegative:
        run.template operator()<kDuration, kAcPulses, kSplitNegative>();
        break;
      default:
        run.template operator()<kDuration, kAcPulses, kSplitPositive | kSplitNegative>();
        break;
    }
  };
  if (duration) {
    if (acPulses) {
      bySplit.template operator()<true, true>();
    } else {
      bySplit.template operator()<true, false>();
    }
  } else if (acPulses) {
    bySplit.template operator()<false, true>();
  } else {
    bySplit.template operator()<false, false>();
  }
}

/// Direction from the sign of the signed average, then the orientation rule.
inline int directionFor(const InstanceTraits& instance, double signedAvg) {
  int direction = -1;
  if (instance.directionKnown == 0) {
    direction = signedAvg < 0 ? 0 : 1;
  }
  if (instance.orientation == 1) {
    direction = signedAvg >= 0 ? 0 : 1;
  } else if (instance.orientation != -1) {
    direction = signedAvg < 0 ? 0 : 1;
  }
  return direction;
}

/// Reverse currents heal part of the damage of the forward ones.
inline void applyRecovery(const StatisticsSettings& settings, double instanceFactor,
                          const AreaSums& sums, voltageData& out) {
  double factor = 0.0;
  if (settings.recoveryFactor != 0.0f) {
    factor = instanceFactor;
  } else if (settings.emRecoveryFactorGiven) {
    factor = settings.emRecoveryFactor;
  } else {
    return;
  }
  const double forward = std::max(sums.positiveArea, std::fabs(sums.negativeArea));
  const double reverse = std::min(sums.positiveArea, std::fabs(sums.negativeArea));
  out.avg = forward - reverse * factor;
}

/// The end of a one-waveform measure once its loop has run: `measured` says whether the
/// loop ran (y present and the range not empty). Flushes the AC threshold pulses, stores the
/// peak, measures the AC pulses, sets the direction and normalises; returns the direction.
int finishOneWaveform(const StatisticsSettings& settings, const InstanceTraits& instance,
                      bool measured, IndexRange range, Samples x, Samples y, PeakTracker& peak,
                      AreaSums& sums, ThresholdPulses& acPulses, voltageData& out);

/// The half-peak pulse measure of one waveform's raw magnitude over [start, stop] (no
/// overrun here): adds pulse widths to `dutySum` and sets out.pulseWidth to the width of the
/// pulse around `peakTime`.
void halfPeakDutyOneWaveform(const StatisticsSettings& settings, int start, int stop, Samples x,
                             Samples y, double peakTime, double& dutySum, voltageData& out);

/// The end of a two-waveform measure once its walk has run (after the AC threshold pulses
/// were flushed): stores the peak, measures the AC pulses, sets the direction and
/// normalises over [windowStart, lastTime]; returns the direction.
int finishTwoWaveforms(const StatisticsSettings& settings, const InstanceTraits& instance,
                       Samples x1, Samples x2, Samples y1, Samples y2, const PeakTracker& peak,
                       AreaSums& sums, double windowStart, double lastTime, voltageData& out);

}  // namespace analysis::detail
