#pragma once
// The walk of two waveforms over the union of their time axes, shared by the two-waveform
// measure and its half-peak pulses so that both visit the same points in the same order.

#include "analysis/statistics.h"

namespace analysis::detail {

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
        next = {t1, y1_[i_], towards(current.t, current.b, t2, y2_[j_], t1)};
        ++i_;
      } else if (t1 == t2) {
        next = {t1, y1_[i_], y2_[j_]};
        ++i_;
        ++j_;
      } else {
        next = {t2, towards(current.t, current.a, t1, y1_[i_], t2), y2_[j_]};
        ++j_;
      }
      return true;
    }
    // One waveform is exhausted: the other one's samples follow, the exhausted one holds.
    if (i_ < len1_) {
      next = {x1_[i_], y1_[i_], current.b};
      ++i_;
      return true;
    }
    if (j_ < len2_) {
      next = {x2_[j_], current.a, y2_[j_]};
      ++j_;
      return true;
    }
    return false;
  }

 private:
  /// The value at time `at` on the line from (fromTime, from) to (toTime, to).
  static double towards(double fromTime, double from, double toTime, double to, double at) {
    return from + (to - from) / (toTime - fromTime) * (at - fromTime);
  }

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
    next = {x_[i_], y1_.data()[i_], y2_.data()[i_]};
    ++i_;
    return true;
  }

 private:
  Samples x_, y1_, y2_;
  int len_;
  int i_ = 1;
};

inline bool sharesAxis(Samples x1, Samples x2, Samples y1, Samples y2) {
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

/// walkWindow over the shared axis when both waveforms have one, else over the merged one.
template <typename Visit>
double walkTwoWaveforms(Samples x1, Samples x2, Samples y1, Samples y2,
                        const StatisticsSettings& settings, double& windowStart, bool& visitedAny,
                        Visit visit) {
  if (sharesAxis(x1, x2, y1, y2)) {
    return walkWindow(SharedAxisWalk(x1, y1, y2), settings, windowStart, visitedAny, visit);
  }
  return walkWindow(MergedWalk(x1, x2, y1, y2), settings, windowStart, visitedAny, visit);
}

}  // namespace analysis::detail
