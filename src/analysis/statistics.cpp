#include "analysis/statistics.h"

#include <algorithm>
#include <cmath>

#include "analysis/detail/mergedWalk.h"
#include "analysis/detail/statisticsParts.h"
#include "analysis/detail/statisticsPaths.h"

namespace analysis {

using detail::applyRecovery;
using detail::AreaSums;
using detail::directionFor;
using detail::halfPeakDutyOneWaveform;
using detail::MergedPoint;
using detail::PeakTracker;
using detail::PlainLoopState;
using detail::sharesAxis;
using detail::ThresholdPulses;
using detail::Thresholds;
using detail::thresholdsFor;
using detail::walkTwoWaveforms;
using detail::withModes;

namespace {

/// measureOneWaveform's loop without duration or AC threshold pulses, for 0 <= start < n
/// and an axis of at least n samples (so no read falls outside the vectors).
/// Its step hand-over (t, raw, d, |d|, d^2 kept for the next step) is written again in
/// sharedAxisPlainWalk on purpose: each loop keeps its own evaluation order and registers,
/// which the sums depend on to the last bit and the run's speed depends on.
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
/// Its step hand-over repeats oneWaveformPlainLoop's on purpose (same order of operations,
/// registers of its own); see there.
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

/// Copies the sums to the record; returns the direction the sign of their average gives.
int storeSums(const InstanceTraits& instance, const AreaSums& sums, voltageData& out) {
  const double signedAvg = sums.avg;
  const int direction = directionFor(instance, signedAvg);
  out.avg = std::fabs(signedAvg);
  out.rawAvg = sums.rawAvg;
  out.avgPositive = sums.avgPositive;
  out.avgNegative = sums.avgNegative;
  out.rms = sums.rms;
  out.absAvg = sums.absAvg;
  return direction;
}

/// Turns the integrals in the record into averages over `span` (> 0), each polarity average
/// over the time of its polarity, and the mean square into its root.
void normalise(const AreaSums& sums, double span, voltageData& out) {
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

  const int direction = storeSums(instance, sums, out);
  applyRecovery(settings, instance.recoveryFactor, sums, out);
  out.peakTime = peak.peakTime();

  if (x.present()) {
    const double span = x[stop] - x[start];
    if (span > 0) {
      normalise(sums, span, out);
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
  sums.avgNegative = std::fabs(sums.avgNegative);
  sums.rms = std::fabs(sums.rms);
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

  const int direction = storeSums(instance, sums, out);
  out.peakTime = peak.peakTime();
  // This measure rounds the instance's factor to single precision first.
  applyRecovery(settings, static_cast<float>(instance.recoveryFactor), sums, out);

  const double span = lastTime - windowStart;
  if (span > 0) {
    normalise(sums, span, out);
    if (dutySum >= 0) {
      out.dutyRatio = dutySum / span;
    }
  }
  return direction;
}

}  // namespace analysis
