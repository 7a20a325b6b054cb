#include "analysis/statistics.h"

#include <algorithm>
#include <cmath>

#include "analysis/detail/statisticsParts.h"
#include "analysis/detail/statisticsPaths.h"

namespace analysis {

using detail::applyRecovery;
using detail::AreaSums;
using detail::directionFor;
using detail::PeakTracker;
using detail::PlainLoopState;
using detail::ThresholdPulses;
using detail::Thresholds;
using detail::thresholdsFor;
using detail::withModes;

namespace {

/// Time at which the magnitude crosses `level` between the previous point and this one; the
/// point's own time when the magnitude did not change.
double crossingTime(double prevTime, double prevMagnitude, double time, double magnitude,
                    double level) {
  if (magnitude == prevMagnitude) {
    return time;
  }
  return prevTime + (time - prevTime) * (level - prevMagnitude) / (magnitude - prevMagnitude);
}

/// measureOneWaveform's loop without duration or AC threshold pulses, for 0 <= start < n
/// and an axis of at least n samples (so no read falls outside the vectors).
template <int kSplit>
void oneWaveformPlainLoop(const double* x, const double* y, int n, int start, int stop, double ref,
                          PeakTracker& peak, AreaSums& sums) {
  PlainLoopState state(peak, sums);
  double raw = y[start];
  double d = raw - ref;
  double absD = std::fabs(d);
  double squareD = d * d;
  double t = x[start];
  for (int i = start;; ++i) {
    state.observe(absD, raw, t);
    if (i + 1 >= n) {
      break;
    }
    const double tNext = x[i + 1];
    const double rawNext = y[i + 1];
    const double dNext = rawNext - ref;
    const double absNext = std::fabs(dNext);
    const double squareNext = dNext * dNext;
    state.step<kSplit>(tNext - t, raw, d, absD, squareD, rawNext, dNext, absNext, squareNext);
    if (!(i + 1 <= stop)) {
      break;
    }
    t = tNext;
    raw = rawNext;
    d = dNext;
    absD = absNext;
    squareD = squareNext;
  }
  state.storeInto(peak, sums);
}

/// measureTwoWaveforms' walk of two waveforms on one shared axis (walkWindow with
/// SharedAxisWalk) without duration or AC threshold pulses, for len >= 1 and an axis of at
/// least len samples. Returns the last time reached.
template <int kSplit>
double sharedAxisPlainWalk(const double* x, const double* y1, const double* y2, int len,
                           const StatisticsSettings& settings, PeakTracker& peak, AreaSums& sums,
                           double& windowStart, bool& visitedAny) {
  PlainLoopState state(peak, sums);
  double t = x[0];
  double a = y1[0];
  double d = a - y2[0];
  double absD = std::fabs(d);
  double squareD = d * d;
  double lastTime = t;
  const double startTime = settings.startTime;
  const double stopTime = settings.stopTime;
  for (int i = 1; i < len; ++i) {
    const double tNext = x[i];
    const double aNext = y1[i];
    const double dNext = aNext - y2[i];
    const double absNext = std::fabs(dNext);
    const double squareNext = dNext * dNext;
    if (!(t < startTime)) {
      if (!visitedAny) {
        windowStart = t;
        visitedAny = true;
      }
      // The peak is tested at the left end of each step only.
      state.observe(absD, a, t);
      state.step<kSplit>(tNext - t, a, d, absD, squareD, aNext, dNext, absNext, squareNext);
    }
    lastTime = tNext;
    if (tNext > stopTime) {
      break;
    }
    t = tNext;
    a = aNext;
    d = dNext;
    absD = absNext;
    squareD = squareNext;
  }
  state.storeInto(peak, sums);
  return lastTime;
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
  return detail::measureOneWaveform(detail::KernelPath::kFast, settings, instance, range, x, y, ref,
                                    out);
}

int measureTwoWaveforms(const StatisticsSettings& settings, const InstanceTraits& instance,
                        Samples x1, Samples x2, Samples y1, Samples y2, voltageData& out) {
  return detail::measureTwoWaveforms(detail::KernelPath::kFast, settings, instance, x1, x2, y1, y2,
                                     out);
}

int detail::measureOneWaveform(KernelPath path, const StatisticsSettings& settings,
                               const InstanceTraits& instance, IndexRange range, Samples x,
                               Samples y, double ref, voltageData& out) {
  const Thresholds thresholds = thresholdsFor(settings, instance);
  PeakTracker peak(settings.durationTime, thresholds.duration, out);
  AreaSums sums(out);
  ThresholdPulses acPulses(settings, thresholds.ac, out.acPulses);
  const int start = range.start;
  const int stop = range.stop;
  const int n = y.size();
  const bool measured = y.present() && start < n && start <= stop;
  if (measured) {
    withModes(settings, [&]<bool kDuration, bool kAcPulses, int kSplit>() {
      if constexpr (!kDuration && !kAcPulses) {
        if (path == detail::KernelPath::kFast && start >= 0 && x.size() >= n) {
          oneWaveformPlainLoop<kSplit>(x.data(), y.data(), n, start, stop, ref, peak, sums);
          return;
        }
      }
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
  }
  return detail::finishOneWaveform(settings, instance, measured, range, x, y, peak, sums, acPulses,
                                   out);
}

int detail::finishOneWaveform(const StatisticsSettings& settings, const InstanceTraits& instance,
                              bool measured, IndexRange range, Samples x, Samples y,
                              PeakTracker& peak, AreaSums& sums, ThresholdPulses& acPulses,
                              voltageData& out) {
  const int start = range.start;
  const int stop = range.stop;
  double dutySum = 0.0;
  if (measured) {
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

int detail::measureTwoWaveforms(KernelPath path, const StatisticsSettings& settings,
                                const InstanceTraits& instance, Samples x1, Samples x2, Samples y1,
                                Samples y2, voltageData& out) {
  const Thresholds thresholds = thresholdsFor(settings, instance);
  PeakTracker peak(settings.durationTime, thresholds.duration, out);
  AreaSums sums(out);
  ThresholdPulses acPulses(settings, thresholds.ac, out.acPulses);
  double windowStart = 0.0;
  double lastTime = 0.0;
  bool visitedAny = false;
  if (y1.present() && y2.present()) {
    withModes(settings, [&]<bool kDuration, bool kAcPulses, int kSplit>() {
      if constexpr (!kDuration && !kAcPulses) {
        // The common case of a raw file: every signal on the plot's one time axis.
        if (path == detail::KernelPath::kFast && sharesAxis(x1, x2, y1, y2) && y1.size() >= 1 &&
            x1.size() >= y1.size()) {
          lastTime = sharedAxisPlainWalk<kSplit>(x1.data(), y1.data(), y2.data(), y1.size(),
                                                 settings, peak, sums, windowStart, visitedAny);
          return;
        }
      }
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
  return detail::finishTwoWaveforms(settings, instance, x1, x2, y1, y2, peak, sums, windowStart,
                                    lastTime, out);
}

int detail::finishTwoWaveforms(const StatisticsSettings& settings, const InstanceTraits& instance,
                               Samples x1, Samples x2, Samples y1, Samples y2,
                               const PeakTracker& peak, AreaSums& sums, double windowStart,
                               double lastTime, voltageData& out) {
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
