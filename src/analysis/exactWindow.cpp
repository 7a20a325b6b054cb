#include "analysis/exactWindow.h"

#include <algorithm>
#include <cmath>

#include "analysis/detail/statisticsParts.h"

namespace analysis {

namespace {

/// The value at time s of the straight line from (t0, v0) to (t1, v1), t0 < t1; the ends are
/// the samples themselves, not a rounded product.
double lineAt(double t0, double v0, double t1, double v1, double s) {
  if (s <= t0) {
    return v0;
  }
  if (s >= t1) {
    return v1;
  }
  return v0 + (v1 - v0) * ((s - t0) / (t1 - t0));
}

}  // namespace

void ExactWindow::candidate(double time, double raw, double diff) {
  const double magnitude = std::fabs(diff);
  if (magnitude >= peak_) {
    peak_ = magnitude;
    peakValue_ = raw;
    peakTime_ = time;
  }
  seen_ = true;
  lastRaw_ = raw;
  lastDiff_ = diff;
}

void ExactWindow::integrate(double t0, double r0, double d0, double t1, double r1, double d1) {
  const double from = std::max(t0, start_);
  const double to = std::min(t1, stop_);
  if (!(to > from)) {
    return;
  }
  const double a = lineAt(t0, d0, t1, d1, from);
  const double b = lineAt(t0, d0, t1, d1, to);
  const double dt = to - from;
  length_ += dt;
  area_ += dt * (a + b) / 2;
  rawArea_ += dt * (lineAt(t0, r0, t1, r1, from) + lineAt(t0, r0, t1, r1, to)) / 2;
  squareArea_ += dt * (a * a + a * b + b * b) / 3;
  if (a >= 0 && b >= 0) {
    positiveArea_ += dt * (a + b) / 2;
  } else if (a <= 0 && b <= 0) {
    negativeArea_ -= dt * (a + b) / 2;
  } else {
    // The line crosses zero inside the piece: two triangles.
    const double before = dt * (a / (a - b));
    const double after = dt - before;
    if (a > 0) {
      positiveArea_ += before * a / 2;
      negativeArea_ -= after * b / 2;
    } else {
      negativeArea_ -= before * a / 2;
      positiveArea_ += after * b / 2;
    }
  }
}

void ExactWindow::add(double time, double raw, double diff) {
  if (hasPrevious_ && time > previousTime_) {
    // Edges strictly inside the step are points of their own; edges on a sample are that
    // sample.
    if (previousTime_ < start_ && start_ < time) {
      candidate(start_, lineAt(previousTime_, previousRaw_, time, raw, start_),
                lineAt(previousTime_, previousDiff_, time, diff, start_));
    }
    if (previousTime_ < stop_ && stop_ < time) {
      candidate(stop_, lineAt(previousTime_, previousRaw_, time, raw, stop_),
                lineAt(previousTime_, previousDiff_, time, diff, stop_));
    }
    integrate(previousTime_, previousRaw_, previousDiff_, time, raw, diff);
  }
  if (start_ <= time && time <= stop_) {
    candidate(time, raw, diff);
  }
  hasPrevious_ = true;
  previousTime_ = time;
  previousRaw_ = raw;
  previousDiff_ = diff;
}

int ExactWindow::finish(const StatisticsSettings& settings, const InstanceTraits& instance,
                        voltageData& out) const {
  out.peak = peak_;
  out.peakValue = peakValue_;
  out.peakTime = peakTime_;
  out.dutyRatio = 1.0;
  out.pulseWidth = 1e99;
  double signedAvg = 0.0;
  if (length_ > 0) {
    signedAvg = area_ / length_;
    out.rawAvg = rawArea_ / length_;
    out.avgPositive = positiveArea_ / length_;
    out.avgNegative = negativeArea_ / length_;
    out.absAvg = (positiveArea_ + negativeArea_) / length_;
    // Rounding may leave a square integral of zero a hair below it.
    out.rms = squareArea_ > 0 ? std::sqrt(squareArea_ / length_) : 0.0;
  } else if (seen_) {
    // A window of zero length: the averages of an instant are its values.
    signedAvg = lastDiff_;
    out.rawAvg = lastRaw_;
    out.avgPositive = std::max(lastDiff_, 0.0);
    out.avgNegative = std::max(-lastDiff_, 0.0);
    out.absAvg = std::fabs(lastDiff_);
    out.rms = std::fabs(lastDiff_);
  }
  out.avg = std::fabs(signedAvg);
  double factor = 0.0;
  if (settings.recoveryFactor != 0.0f) {
    factor = instance.recoveryFactor;
  } else if (settings.emRecoveryFactorGiven) {
    factor = settings.emRecoveryFactor;
  }
  if ((settings.recoveryFactor != 0.0f || settings.emRecoveryFactorGiven) && length_ > 0) {
    // Reverse currents heal part of the damage of the forward ones.
    const double forward = std::max(positiveArea_, negativeArea_);
    const double reverse = std::min(positiveArea_, negativeArea_);
    out.avg = (forward - reverse * factor) / length_;
  }
  if (settings.acAnalysis && peak_ > 0) {
    // The width of a rectangle of height peak with the same area as the magnitude.
    out.pulseWidth = (positiveArea_ + negativeArea_) / peak_;
    out.dutyRatio = length_ > 0 ? out.pulseWidth / length_ : 1.0;
  }
  return detail::directionFor(instance, signedAvg);
}

int measureOneWaveformExact(const StatisticsSettings& settings, const InstanceTraits& instance,
                            Samples x, Samples y, double ref, voltageData& out) {
  ExactWindow window(settings.startTime, settings.stopTime);
  if (y.present()) {
    const int n = std::min(x.size(), y.size());
    for (int i = 0; i < n && window.open(); ++i) {
      window.add(x[i], y[i], y[i] - ref);
    }
  }
  return window.finish(settings, instance, out);
}

int measureTwoWaveformsExact(const StatisticsSettings& settings, const InstanceTraits& instance,
                             Samples x1, Samples x2, Samples y1, Samples y2, voltageData& out) {
  ExactWindow window(settings.startTime, settings.stopTime);
  const int n1 = std::min(x1.size(), y1.size());
  const int n2 = std::min(x2.size(), y2.size());
  if (y1.present() && y2.present() && n1 > 0 && n2 > 0) {
    // The value of a waveform at time t, `next` being its first sample not before t: the
    // sample itself, the line to it, or the nearest end held.
    auto valueAt = [](Samples x, Samples y, int n, int next, double t) {
      if (next >= n) {
        return y[n - 1];
      }
      if (next == 0 || !(x[next] > t)) {
        return y[next];
      }
      return lineAt(x[next - 1], y[next - 1], x[next], y[next], t);
    };
    int i = 0;
    int j = 0;
    while ((i < n1 || j < n2) && window.open()) {
      // The earlier head next; on equal times both waveforms step.
      const bool first = i < n1 && (j >= n2 || !(x2[j] < x1[i]));
      const bool second = j < n2 && (i >= n1 || !(x1[i] < x2[j]));
      const double t = first ? x1[i] : x2[j];
      const double a = valueAt(x1, y1, n1, i, t);
      const double b = valueAt(x2, y2, n2, j, t);
      window.add(t, a, a - b);
      i += first ? 1 : 0;
      j += second ? 1 : 0;
    }
  }
  return window.finish(settings, instance, out);
}

const char* exactWindowConflict(const StatisticsSettings& settings) {
  if (settings.durationTime != 0.0) {
    return "durationTime";
  }
  if (settings.acAnalysis && settings.acPeakMethod == AcPeakMethod::kHalfPeakPulses) {
    return "_kraUseOldACPeakMethod";
  }
  return nullptr;
}

}  // namespace analysis
