#include "analysis/statistics.h"

#include <algorithm>
#include <cmath>

namespace analysis {

namespace {

/// Thresholds of the two pulse kinds of one instance.
struct Thresholds {
  double duration = 0.0;  // a duration pulse lasts while the magnitude is above this
  double ac = 0.0;        // an AC threshold pulse lasts while the magnitude is at least this
};

Thresholds thresholdsFor(const StatisticsSettings& settings, const InstanceTraits& instance) {
  Thresholds thresholds;
  if (settings.durationTime != 0.0) {
    thresholds.duration = instance.thresholdValue * instance.thresholdScale;
  }
  if (settings.durationTime == 0.0 && settings.acPulseThreshold >= 0.0) {
    thresholds.ac = settings.acPulseThreshold * instance.thresholdValue;
  }
  return thresholds;
}

/// Time at which the magnitude crosses `level` between the previous point and this one; the
/// point's own time when the magnitude did not change.
double crossingTime(double prevTime, double prevMagnitude, double time, double magnitude,
                    double level) {
  if (magnitude == prevMagnitude) {
    return time;
  }
  return prevTime + (time - prevTime) * (level - prevMagnitude) / (magnitude - prevMagnitude);
}

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
      if (!open_) {
        open_ = true;
        pulseStart_ = time;
        pulseMax_ = magnitude;
        pulseMaxTime_ = time;
      } else if (magnitude > pulseMax_) {
        pulseMax_ = magnitude;
        pulseMaxTime_ = time;
      }
    } else if (open_) {
      open_ = false;
      if (time - pulseStart_ > duration_ && pulseMax_ >= peak_) {
        peak_ = pulseMax_;
        peakTime_ = pulseMaxTime_;
        // The raw value of the closing sample, not of the maximum: intended.
        peakValue_ = raw;
      }
    } else {
      plain(magnitude, raw, time);
    }
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
  bool open_ = false;
  double pulseStart_ = 0.0;
  double pulseMax_ = 0.0;
  double pulseMaxTime_ = 0.0;
};

/// Polarity averages accumulated, from the ignore setting: both for 2, the positive one for
/// -1 (negative currents ignored), the negative one for 1, none otherwise.
constexpr int kSplitPositive = 1;
constexpr int kSplitNegative = 2;

int splitOf(int ignoreSign) {
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
    rms += dt * (d * d + dNext * dNext) / 2;
    absAvg += dt * (std::fabs(d) + std::fabs(dNext)) / 2;
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
      if (!open_) {
        open_ = true;
        start_ = t;
        integral_ = 0.0;
        max_ = magnitude;
        maxTime_ = t;
      } else if (magnitude > max_) {
        max_ = magnitude;
        maxTime_ = t;
      }
      integral_ += (tNext - t) * (d * d + dNext * dNext) / 2;
      end_ = tNext;
    } else {
      flush();
    }
  }

  void flush() {
    if (!open_) {
      return;
    }
    open_ = false;
    const double shape = max_ != 0.0 ? integral_ / (max_ * max_) : 0.0;
    recordAcPulse(settings_, list_, {start_, end_, max_, maxTime_, shape});
  }

 private:
  const StatisticsSettings& settings_;
  double threshold_;
  PwcAcEDataList* list_;
  bool open_ = false;
  double start_ = 0.0;
  double end_ = 0.0;
  double integral_ = 0.0;
  double max_ = 0.0;
  double maxTime_ = 0.0;
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
int directionFor(const InstanceTraits& instance, double signedAvg) {
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
void applyRecovery(const StatisticsSettings& settings, double instanceFactor, const AreaSums& sums,
                   voltageData& out) {
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

/// A point of the merged time axis of two waveforms.
struct MergedPoint {
  double t = 0.0;
  double a = 0.0;
  double b = 0.0;
};

/// Walks the union of two time axes with two cursors, interpolating the waveform that has no
/// sample at a time linearly from the current point.
class MergedWalk {
 public:
  MergedWalk(Samples x1, Samples x2, Samples y1, Samples y2)
      : x1_(x1), x2_(x2), y1_(y1), y2_(y2), len1_(y1.size()), len2_(y2.size()) {}

  MergedPoint first() const { return {x1_[0], y1_[0], y2_[0]}; }

  /// The point after `current`, or false when both waveforms are exhausted.
  bool next(const MergedPoint& current, MergedPoint& next) {
    if (i_ < len1_ && j_ < len2_) {
      const double t1 = x1_[i_];
      const double t2 = x2_[j_];
      if (t1 < t2) {
        next.t = t1;
        next.a = y1_[i_];
        next.b = current.b + (y2_[j_] - current.b) / (t2 - current.t) * (t1 - current.t);
        ++i_;
      } else if (t1 == t2) {
        next.t = t1;
        next.a = y1_[i_];
        next.b = y2_[j_];
        ++i_;
        ++j_;
      } else {
        next.t = t2;
        next.b = y2_[j_];
        next.a = current.a + (y1_[i_] - current.a) / (t1 - current.t) * (t2 - current.t);
        ++j_;
      }
      return true;
    }
    if (i_ < len1_) {
      next.t = x1_[i_];
      next.a = y1_[i_];
      next.b = current.b;
      ++i_;
      return true;
    }
    if (j_ < len2_) {
      next.t = x2_[j_];
      next.b = y2_[j_];
      next.a = current.a;
      ++j_;
      return true;
    }
    return false;
  }

 private:
  Samples x1_, x2_, y1_, y2_;
  int len1_, len2_;
  int i_ = 1;
  int j_ = 1;
};

/// The same walk when both waveforms share one time axis and one length: every point is a
/// sample of both, so no interpolation happens and the result is the same bit for bit.
class SharedAxisWalk {
 public:
  SharedAxisWalk(Samples x, Samples y1, Samples y2) : x_(x), y1_(y1), y2_(y2), len_(y1.size()) {}

  MergedPoint first() const { return {x_[0], y1_[0], y2_[0]}; }

  bool next(const MergedPoint&, MergedPoint& next) {
    if (i_ >= len_) {
      return false;
    }
    // i_ < len_, the common length of both value vectors; only the axis may be shorter.
    next.t = x_[i_];
    next.a = y1_.data()[i_];
    next.b = y2_.data()[i_];
    ++i_;
    return true;
  }

 private:
  Samples x_, y1_, y2_;
  int len_;
  int i_ = 1;
};

bool sharesAxis(Samples x1, Samples x2, Samples y1, Samples y2) {
  return x1.data() == x2.data() && x1.size() == x2.size() && y1.size() == y2.size();
}

/// Visits the steps of the merged axis inside the time window: `visit(from, to)` for every
/// step whose left end is not before the start time, stopping after the step whose right
/// end passes the stop time. Returns the last time reached; `windowStart` receives the left
/// end of the first visited step.
template <typename Walk, typename Visit>
double walkWindow(Walk walk, const StatisticsSettings& settings, double& windowStart,
                  bool& visitedAny, Visit visit) {
  MergedPoint current = walk.first();
  MergedPoint next;
  double lastTime = current.t;
  while (walk.next(current, next)) {
    if (!(current.t < settings.startTime)) {
      if (!visitedAny) {
        windowStart = current.t;
        visitedAny = true;
      }
      visit(current, next);
    }
    lastTime = next.t;
    if (next.t > settings.stopTime) {
      break;
    }
    current = next;
  }
  return lastTime;
}

template <typename Visit>
double walkTwoWaveforms(Samples x1, Samples x2, Samples y1, Samples y2,
                        const StatisticsSettings& settings, double& windowStart, bool& visitedAny,
                        Visit visit) {
  if (sharesAxis(x1, x2, y1, y2)) {
    return walkWindow(SharedAxisWalk(x1, y1, y2), settings, windowStart, visitedAny, visit);
  }
  return walkWindow(MergedWalk(x1, x2, y1, y2), settings, windowStart, visitedAny, visit);
}

/// Half-peak pulses of one waveform's raw magnitude over [start, stop] (no overrun here).
void halfPeakDutyOneWaveform(const StatisticsSettings& settings, int start, int stop, Samples x,
                             Samples y, double peakTime, double& dutySum, voltageData& out) {
  const double half = out.peak * 0.5;
  const int n = y.size();
  bool open = false;
  double rise = 0.0;
  double maxMagnitude = 0.0;
  double maxTime = 0.0;
  auto close = [&](double fall) {
    const double width = fall - rise;
    dutySum += width;
    if (rise <= peakTime && peakTime <= fall) {
      out.pulseWidth = width;
    }
    recordAcPulse(settings, out.acPulses, {rise, fall, maxMagnitude, maxTime, width});
    open = false;
  };
  for (int i = start; i < n && i <= stop; ++i) {
    // The raw sample, without the reference: deliberate.
    const double magnitude = std::fabs(y[i]);
    const double time = x[i];
    const double prevMagnitude = i == start ? magnitude : std::fabs(y[i - 1]);
    const double prevTime = i == start ? time : x[i - 1];
    if (!open) {
      if (magnitude >= half) {
        open = true;
        rise = crossingTime(prevTime, prevMagnitude, time, magnitude, half);
        maxMagnitude = magnitude;
        maxTime = time;
      }
    } else {
      if (magnitude > maxMagnitude) {
        maxMagnitude = magnitude;
        maxTime = time;
      }
      if (magnitude < half) {
        close(crossingTime(prevTime, prevMagnitude, time, magnitude, half));
      }
    }
  }
  if (open) {
    close(x[stop]);
  }
}

}  // namespace

void recordAcPulse(const StatisticsSettings& settings, PwcAcEDataList* list,
                   const kraDB::PwcAcEData& record) {
  if (settings.collectAcPulses && list != nullptr) {
    list->push_back(record);
  }
}

int measureOneWaveform(const StatisticsSettings& settings, const InstanceTraits& instance,
                       IndexRange range, Samples x, Samples y, double ref, voltageData& out) {
  const Thresholds thresholds = thresholdsFor(settings, instance);
  PeakTracker peak(settings.durationTime, thresholds.duration, out);
  AreaSums sums(out);
  ThresholdPulses acPulses(settings, thresholds.ac, out.acPulses);
  double dutySum = 0.0;
  const int start = range.start;
  const int stop = range.stop;
  const int n = y.size();
  if (y.present() && start < n && start <= stop) {
    withModes(settings, [&]<bool kDuration, bool kAcPulses, int kSplit>() {
      for (int i = start;; ++i) {
        const double raw = y[i];
        const double d = raw - ref;
        const double t = x[i];
        peak.observe<kDuration>(std::fabs(d), raw, t);
        if (i + 1 >= n) {
          break;
        }
        const double tNext = x[i + 1];
        const double rawNext = y[i + 1];
        const double dNext = rawNext - ref;
        sums.step<kSplit>(t, raw, d, tNext, rawNext, dNext);
        acPulses.step<kAcPulses>(t, d, tNext, dNext);
        if (!(i + 1 <= stop)) {
          break;
        }
      }
    });
    acPulses.flush();
    peak.store(out);
    sums.rms = std::fabs(sums.rms);
    sums.absAvg = std::fabs(sums.absAvg);
    sums.avgPositive = std::fabs(sums.avgPositive);
    sums.avgNegative = std::fabs(sums.avgNegative);
    if (settings.acAnalysis && out.peak > 0) {
      if (settings.acPeakMethod == AcPeakMethod::kAreaOverPeak) {
        dutySum = std::fabs(sums.absAvg) / out.peak;
        out.pulseWidth = dutySum;
      } else {
        halfPeakDutyOneWaveform(settings, start, stop, x, y, peak.peakTime(), dutySum, out);
      }
    } else {
      dutySum = -1;
    }
  }

  const double signedAvg = sums.avg;
  const int direction = directionFor(instance, signedAvg);
  out.avg = std::fabs(signedAvg);
  out.rawAvg = sums.rawAvg;
  out.avgPositive = sums.avgPositive;
  out.avgNegative = sums.avgNegative;
  out.rms = sums.rms;
  out.absAvg = sums.absAvg;
  applyRecovery(settings, instance.recoveryFactor, sums, out);
  out.peakTime = peak.peakTime();

  if (x.present()) {
    const double span = x[stop] - x[start];
    if (span > 0) {
      if (sums.positiveTime != 0) {
        out.avgPositive /= sums.positiveTime;
      }
      if (sums.negativeTime != 0) {
        out.avgNegative /= sums.negativeTime;
      }
      out.avg /= span;
      out.rawAvg /= span;
      out.rms /= span;
      out.absAvg /= span;
      if (out.rms > 0) {
        out.rms = std::sqrt(out.rms);
      }
      out.dutyRatio = dutySum < 0 ? 1.0 : dutySum / span;
    }
  }
  return direction;
}

int measureTwoWaveforms(const StatisticsSettings& settings, const InstanceTraits& instance,
                        Samples x1, Samples x2, Samples y1, Samples y2, voltageData& out) {
  const Thresholds thresholds = thresholdsFor(settings, instance);
  PeakTracker peak(settings.durationTime, thresholds.duration, out);
  AreaSums sums(out);
  ThresholdPulses acPulses(settings, thresholds.ac, out.acPulses);
  double windowStart = 0.0;
  double lastTime = 0.0;
  bool visitedAny = false;
  if (y1.present() && y2.present()) {
    withModes(settings, [&]<bool kDuration, bool kAcPulses, int kSplit>() {
      auto step = [&](const MergedPoint& from, const MergedPoint& to) {
        const double d = from.a - from.b;
        // The peak is tested at the left end of each step only.
        peak.observe<kDuration>(std::fabs(d), from.a, from.t);
        const double dNext = to.a - to.b;
        sums.step<kSplit>(from.t, from.a, d, to.t, to.a, dNext);
        acPulses.step<kAcPulses>(from.t, d, to.t, dNext);
      };
      lastTime = walkTwoWaveforms(x1, x2, y1, y2, settings, windowStart, visitedAny, step);
    });
    acPulses.flush();
  }
  peak.store(out);

  sums.absAvg = std::fabs(sums.absAvg);
  out.absAvg = sums.absAvg;
  double dutySum = 0.0;
  if (!settings.acAnalysis || out.peak <= 0) {
    dutySum = -1;
    out.pulseWidth = 1e99;
  } else if (settings.acPeakMethod == AcPeakMethod::kAreaOverPeak) {
    dutySum = sums.absAvg / out.peak;
    out.pulseWidth = dutySum;
  } else {
    halfPeakDutyTwoWaveforms(settings, x1, x2, y1, y2, dutySum, peak.peakTime(), out.pulseWidth,
                             out);
  }

  const double signedAvg = sums.avg;
  const int direction = directionFor(instance, signedAvg);
  out.avg = std::fabs(signedAvg);
  out.rawAvg = sums.rawAvg;
  out.avgPositive = sums.avgPositive;
  out.avgNegative = std::fabs(sums.avgNegative);
  out.rms = std::fabs(sums.rms);
  out.peakTime = peak.peakTime();
  // This measure rounds the instance's factor to single precision first.
  applyRecovery(settings, static_cast<float>(instance.recoveryFactor), sums, out);

  const double span = lastTime - windowStart;
  if (span > 0) {
    if (sums.positiveTime != 0) {
      out.avgPositive /= sums.positiveTime;
    }
    if (sums.negativeTime != 0) {
      out.avgNegative /= sums.negativeTime;
    }
    out.avg /= span;
    out.rawAvg /= span;
    out.absAvg /= span;
    const double meanSquare = out.rms / span;
    out.rms = meanSquare > 0 ? std::sqrt(meanSquare) : meanSquare;
    if (dutySum >= 0) {
      out.dutyRatio = dutySum / span;
    }
  }
  return direction;
}

void halfPeakDutyTwoWaveforms(const StatisticsSettings& settings, Samples x1, Samples x2,
                              Samples y1, Samples y2, double& dutySum, double peakTime,
                              double& pulseWidth, voltageData& out) {
  if (!y1.present() || !y2.present()) {
    return;
  }
  const double half = out.peak * 0.5;
  bool open = false;
  double rise = 0.0;
  double maxMagnitude = 0.0;
  double maxTime = 0.0;
  double prevMagnitude = 0.0;
  double prevTime = 0.0;
  bool firstPoint = true;
  double windowStart = 0.0;
  bool visitedAny = false;
  const double lastTime = walkTwoWaveforms(
      x1, x2, y1, y2, settings, windowStart, visitedAny,
      [&](const MergedPoint& point, const MergedPoint&) {
        const double magnitude = std::fabs(point.a - point.b);
        if (firstPoint) {
          // The first point of the window is its own predecessor.
          firstPoint = false;
          prevMagnitude = magnitude;
          prevTime = point.t;
        }
        if (!open) {
          if (magnitude >= half) {
            open = true;
            rise = crossingTime(prevTime, prevMagnitude, point.t, magnitude, half);
            maxMagnitude = magnitude;
            maxTime = point.t;
          }
        } else {
          if (magnitude > maxMagnitude) {
            maxMagnitude = magnitude;
            maxTime = point.t;
          }
          if (magnitude < half) {
            const double fall = crossingTime(prevTime, prevMagnitude, point.t, magnitude, half);
            const double width = fall - rise;
            dutySum += width;
            // Tested against the closing point's own time, not the interpolated fall.
            if (rise <= peakTime && peakTime <= point.t) {
              pulseWidth = width;
            }
            recordAcPulse(settings, out.acPulses, {rise, fall, maxMagnitude, maxTime, width});
            open = false;
          }
        }
        prevMagnitude = magnitude;
        prevTime = point.t;
      });
  if (open) {
    const double width = lastTime - rise;
    dutySum += width;
    recordAcPulse(settings, out.acPulses, {rise, lastTime, maxMagnitude, maxTime, width});
  }
}

}  // namespace analysis
