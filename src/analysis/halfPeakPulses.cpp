// The half-peak pulse measure of the AC analysis: pulses of the magnitude at or above half
// the peak, their edges interpolated linearly, for one waveform and for two.

#include <cmath>

#include "analysis/detail/mergedWalk.h"
#include "analysis/detail/statisticsParts.h"
#include "analysis/statistics.h"

namespace analysis {

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

/// The pulses of one measure, fed point by point: adds every closed pulse's width to the duty
/// sum and records it as an AC pulse.
class HalfPeakPulses {
 public:
  HalfPeakPulses(const StatisticsSettings& settings, double peak, double& dutySum,
                 PwcAcEDataList* list)
      : settings_(settings), half_(peak * 0.5), dutySum_(dutySum), list_(list) {}

  /// Takes the point (time, magnitude) that follows (prevTime, prevMagnitude); true when it
  /// closes a pulse (then rise(), fall() and width() describe that pulse).
  bool step(double prevTime, double prevMagnitude, double time, double magnitude) {
    if (!pulse_.open) {
      if (magnitude >= half_) {
        pulse_.begin(crossingTime(prevTime, prevMagnitude, time, magnitude, half_), magnitude,
                     time);
      }
      return false;
    }
    pulse_.observe(magnitude, time);
    if (magnitude < half_) {
      close(crossingTime(prevTime, prevMagnitude, time, magnitude, half_));
      return true;
    }
    return false;
  }

  /// Ends the open pulse at `fall`.
  void close(double fall) {
    fall_ = fall;
    width_ = fall - pulse_.start;
    dutySum_ += width_;
    recordAcPulse(settings_, list_,
                  {pulse_.start, fall, pulse_.maxMagnitude, pulse_.maxTime, width_});
    pulse_.open = false;
  }

  bool open() const { return pulse_.open; }
  double rise() const { return pulse_.start; }
  double fall() const { return fall_; }
  double width() const { return width_; }

 private:
  const StatisticsSettings& settings_;
  double half_;
  double& dutySum_;
  PwcAcEDataList* list_;
  detail::OpenPulse pulse_;  // starts at its rise
  double fall_ = 0.0;
  double width_ = 0.0;
};

}  // namespace

void detail::halfPeakDutyOneWaveform(const StatisticsSettings& settings, int start, int stop,
                                     Samples x, Samples y, double peakTime, double& dutySum,
                                     voltageData& out) {
  HalfPeakPulses pulses(settings, out.peak, dutySum, out.acPulses);
  auto holdsPeak = [&] { return pulses.rise() <= peakTime && peakTime <= pulses.fall(); };
  const int n = y.size();
  for (int i = start; i < n && i <= stop; ++i) {
    // The raw sample, without the reference: deliberate.
    const double magnitude = std::fabs(y[i]);
    const double time = x[i];
    const double prevMagnitude = i == start ? magnitude : std::fabs(y[i - 1]);
    const double prevTime = i == start ? time : x[i - 1];
    if (pulses.step(prevTime, prevMagnitude, time, magnitude) && holdsPeak()) {
      out.pulseWidth = pulses.width();
    }
  }
  if (pulses.open()) {
    pulses.close(x[stop]);
    if (holdsPeak()) {
      out.pulseWidth = pulses.width();
    }
  }
}

void halfPeakDutyTwoWaveforms(const StatisticsSettings& settings, Samples x1, Samples x2,
                              Samples y1, Samples y2, double& dutySum, double peakTime,
                              double& pulseWidth, voltageData& out) {
  if (!y1.present() || !y2.present()) {
    return;
  }
  HalfPeakPulses pulses(settings, out.peak, dutySum, out.acPulses);
  double prevMagnitude = 0.0;
  double prevTime = 0.0;
  bool firstPoint = true;
  double windowStart = 0.0;
  bool visitedAny = false;
  const double lastTime =
      detail::walkTwoWaveforms(x1, x2, y1, y2, settings, windowStart, visitedAny,
                               [&](const detail::MergedPoint& point, const detail::MergedPoint&) {
                                 const double magnitude = std::fabs(point.a - point.b);
                                 if (firstPoint) {
                                   // The first point of the window is its own predecessor.
                                   firstPoint = false;
                                   prevMagnitude = magnitude;
                                   prevTime = point.t;
                                 }
                                 // Tested against the closing point's own time, not the
                                 // interpolated fall.
                                 if (pulses.step(prevTime, prevMagnitude, point.t, magnitude) &&
                                     pulses.rise() <= peakTime && peakTime <= point.t) {
                                   pulseWidth = pulses.width();
                                 }
                                 prevMagnitude = magnitude;
                                 prevTime = point.t;
                               });
  if (pulses.open()) {
    pulses.close(lastTime);
  }
}

}  // namespace analysis
