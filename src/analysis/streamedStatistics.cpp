#include "analysis/streamedStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "analysis/detail/statisticsParts.h"
#include "support/threadPool.h"

namespace analysis {

using detail::AreaSums;
using detail::PeakTracker;
using detail::PlainLoopState;
using detail::ThresholdPulses;

namespace {

/// Units (one instance or a pair) advanced per piece of work handed to a thread.
constexpr size_t kUnitsPerPiece = 128;

/// Two instances side by side: every operation of the loops below works on both lanes at
/// once, each lane doing exactly what the one-instance loop does (IEEE additions,
/// multiplications and comparisons give the same bits whatever the vector width).
using Lanes = double __attribute__((vector_size(16)));
using LaneMask = int64_t __attribute__((vector_size(16)));

Lanes bothLanes(double value) { return Lanes{value, value}; }
/// `value` where the mask is set, +0.0 elsewhere.
Lanes onlyWhere(LaneMask mask, Lanes value) {
  return reinterpret_cast<Lanes>(reinterpret_cast<LaneMask>(value) & mask);
}
Lanes magnitude(Lanes value) {
  return reinterpret_cast<Lanes>(reinterpret_cast<LaneMask>(value) &
                                 LaneMask{INT64_MAX, INT64_MAX});
}

/// PlainLoopState for two instances, one per lane. The value and time of a new peak are
/// written straight to the instances' states (a new peak is rare), so that the sums that
/// change at every step have the registers to themselves.
struct PairLoopState {
  PlainLoopState* a;
  PlainLoopState* b;
  Lanes peak;
  Lanes avg, rawAvg, avgPositive, avgNegative, rms, absAvg;
  Lanes positiveArea, negativeArea, positiveTime, negativeTime;

  PairLoopState(PlainLoopState& first, PlainLoopState& second)
      : a(&first),
        b(&second),
        peak{first.plain.peak, second.plain.peak},
        avg{first.avg, second.avg},
        rawAvg{first.rawAvg, second.rawAvg},
        avgPositive{first.avgPositive, second.avgPositive},
        avgNegative{first.avgNegative, second.avgNegative},
        rms{first.rms, second.rms},
        absAvg{first.absAvg, second.absAvg},
        positiveArea{first.positiveArea, second.positiveArea},
        negativeArea{first.negativeArea, second.negativeArea},
        positiveTime{first.positiveTime, second.positiveTime},
        negativeTime{first.negativeTime, second.negativeTime} {}

  /// Writes the sums back to both states.
  void store() const {
    storeLane(0, *a);
    storeLane(1, *b);
  }

  void storeLane(int lane, PlainLoopState& to) const {
    to.plain.peak = peak[lane];
    to.avg = avg[lane];
    to.rawAvg = rawAvg[lane];
    to.avgPositive = avgPositive[lane];
    to.avgNegative = avgNegative[lane];
    to.rms = rms[lane];
    to.absAvg = absAvg[lane];
    to.positiveArea = positiveArea[lane];
    to.negativeArea = negativeArea[lane];
    to.positiveTime = positiveTime[lane];
    to.negativeTime = negativeTime[lane];
  }

  /// PlainLoopState::observe in each lane.
  void observe(Lanes magnitudes, Lanes raw, double time) {
    const LaneMask higher = magnitudes >= peak;
    if (higher[0] != 0 || higher[1] != 0) {
      peak = higher ? magnitudes : peak;
      if (higher[0] != 0) {
        a->plain.peakValue = raw[0];
        a->plain.peakTime = time;
      }
      if (higher[1] != 0) {
        b->plain.peakValue = raw[1];
        b->plain.peakTime = time;
      }
    }
  }

  /// PlainLoopState::step in each lane (the split sums are taken or left as the branches of
  /// the one-lane step take or leave them).
  template <int kSplit>
  void step(double stepLength, Lanes raw, Lanes d, Lanes absD, Lanes squareD, Lanes rawNext,
            Lanes dNext, Lanes absNext, Lanes squareNext) {
    const Lanes dt = bothLanes(stepLength);
    const Lanes mid = (d + dNext) / 2;
    const Lanes area = dt * mid;
    avg += area;
    rawAvg += (rawNext + raw) / 2 * dt;
    const LaneMask positive = mid >= 0;
    positiveArea += onlyWhere(positive, area);
    negativeArea += onlyWhere(~positive, area);
    if constexpr ((kSplit & detail::kSplitPositive) != 0) {
      avgPositive = positive ? avgPositive + area : avgPositive;
      positiveTime = positive ? positiveTime + dt : positiveTime;
    }
    if constexpr ((kSplit & detail::kSplitNegative) != 0) {
      // Not "~positive": a NaN midpoint is neither.
      const LaneMask negative = mid < 0;
      avgNegative = negative ? avgNegative + area : avgNegative;
      negativeTime = negative ? negativeTime + dt : negativeTime;
    }
    rms += dt * (squareD + squareNext) / 2;
    absAvg += dt * (absD + absNext) / 2;
  }
};

/// The running values of a fresh record, as the kernels start them.
PlainLoopState freshLoopState() {
  const voltageData fresh = freshVoltageData();
  return PlainLoopState(PeakTracker(0.0, 0.0, fresh), AreaSums(fresh));
}

}  // namespace

struct StreamedMeasures::State {
  State() : loop(freshLoopState()) {}
  PlainLoopState loop;
  // The current point of the loop: raw value, difference, its magnitude and square.
  double raw = 0.0;
  double d = 0.0;
  double absD = 0.0;
  double squareD = 0.0;
  bool started = false;
};

bool streamable(const StatisticsSettings& settings) {
  return settings.durationTime == 0.0 && !(settings.acPulseThreshold >= 0.0) &&
         !(settings.acAnalysis && settings.acPeakMethod == AcPeakMethod::kHalfPeakPulses);
}

StreamedMeasures::StreamedMeasures(const StatisticsSettings& settings, std::vector<double> axis,
                                   IndexRange range, std::vector<StreamedInstance> instances)
    : settings_(settings),
      axis_(std::move(axis)),
      range_(range),
      instances_(std::move(instances)),
      placeOf_(instances_.size(), SIZE_MAX) {
  const size_t n = axis_.size();
  dt_.assign(n, 0.0);
  for (size_t j = 1; j < n; ++j) {
    dt_[j] = axis_[j] - axis_[j - 1];
  }
  // measureOneWaveform: observe(i), then step i -> i + 1 while i + 1 < n, going on while
  // i + 1 <= stop.
  const long long stop = range_.stop;
  rangeMeasured_ =
      range_.start >= 0 && static_cast<size_t>(range_.start) < n && range_.start <= range_.stop;
  if (rangeMeasured_) {
    const long long last = static_cast<long long>(n) - 1;
    observeEnd_ = static_cast<size_t>(std::min(stop, last) + 1);
    stepEnd_ = static_cast<size_t>(std::min(stop + 1, last) + 1);
  }
  // walkWindow with SharedAxisWalk: a step is visited when its left point is not before the
  // start time; the walk ends after the first step whose right point passes the stop time.
  visit_.assign(std::max<size_t>(n, 1), 0);
  if (n > 0) {
    lastTime_ = axis_[0];
  }
  for (size_t j = 1; j < n; ++j) {
    visit_[j] = !(axis_[j - 1] < settings_.startTime);
    if (visit_[j] && !visitedAny_) {
      windowStart_ = axis_[j - 1];
      visitedAny_ = true;
    }
    lastTime_ = axis_[j];
    walkEnd_ = j + 1;
    if (axis_[j] > settings_.stopTime) {
      break;
    }
  }
  visitFrom_ = 1;
  while (visitFrom_ < walkEnd_ && !visit_[visitFrom_]) {
    ++visitFrom_;
  }
  for (size_t j = visitFrom_; j < walkEnd_; ++j) {
    visitContiguous_ = visitContiguous_ && visit_[j] != 0;
  }

  std::vector<size_t> order;
  for (size_t k = 0; k < instances_.size(); ++k) {
    const StreamedKind kind = instances_[k].kind;
    // A one-waveform loop over an empty range never runs.
    if (kind == StreamedKind::kTwoWaveforms ||
        (kind == StreamedKind::kOneWaveform && rangeMeasured_)) {
      order.push_back(k);
    }
  }
  std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    const StreamedInstance& x = instances_[a];
    const StreamedInstance& y = instances_[b];
    if (x.kind != y.kind) {
      return x.kind < y.kind;
    }
    return x.slot1 != y.slot1 ? x.slot1 < y.slot1 : x.slot2 != y.slot2 ? x.slot2 < y.slot2 : a < b;
  });
  ordered_.reserve(order.size());
  for (size_t place = 0; place < order.size(); ++place) {
    placeOf_[order[place]] = place;
    ordered_.push_back(instances_[order[place]]);
  }
  states_.resize(order.size());
  // Neighbours of the same kind are advanced in pairs.
  for (size_t place = 0; place < ordered_.size();) {
    const bool pair =
        place + 1 < ordered_.size() && ordered_[place].kind == ordered_[place + 1].kind;
    units_.push_back(place);
    pairStarts_.push_back(pair);
    place += pair ? 2 : 1;
  }
}

StreamedMeasures::~StreamedMeasures() = default;

template <int kSplit>
void StreamedMeasures::advance(size_t place, size_t first, size_t count,
                               std::span<const double* const> slotValues) {
  State& state = states_[place];
  const StreamedInstance& instance = ordered_[place];
  const size_t end = first + count;
  // The loops of oneWaveformPlainLoop and sharedAxisPlainWalk (statistics.cpp), resumed at
  // the chunk's first point with the running values held in locals.
  PlainLoopState loop = state.loop;
  double raw = state.raw;
  double d = state.d;
  double absD = state.absD;
  double squareD = state.squareD;
  const double* axis = axis_.data();
  const double* dt = dt_.data();
  const double* y1 = slotValues[static_cast<size_t>(instance.slot1)] - first;
  if (instance.kind == StreamedKind::kOneWaveform) {
    const size_t start = static_cast<size_t>(range_.start);
    const double ref = instance.ref;
    if (!state.started) {
      if (start >= end) {
        return;  // the range starts in a later chunk
      }
      raw = y1[start];
      d = raw - ref;
      absD = std::fabs(d);
      squareD = d * d;
      loop.observe(absD, raw, axis[start]);
      state.started = true;
    }
    const size_t to = std::min(end, stepEnd_);
    for (size_t j = std::max(first, start + 1); j < to; ++j) {
      const double rawNext = y1[j];
      const double dNext = rawNext - ref;
      const double absNext = std::fabs(dNext);
      const double squareNext = dNext * dNext;
      loop.step<kSplit>(dt[j], raw, d, absD, squareD, rawNext, dNext, absNext, squareNext);
      raw = rawNext;
      d = dNext;
      absD = absNext;
      squareD = squareNext;
      if (j < observeEnd_) {
        loop.observe(absD, raw, axis[j]);
      }
    }
  } else {
    const double* y2 = slotValues[static_cast<size_t>(instance.slot2)] - first;
    auto setCurrent = [&](size_t i) __attribute__((always_inline)) {
      raw = y1[i];
      d = raw - y2[i];
      absD = std::fabs(d);
      squareD = d * d;
    };
    if (!state.started) {
      setCurrent(0);
      state.started = true;
    }
    auto visit = [&](size_t j) __attribute__((always_inline)) {
      const double rawNext = y1[j];
      const double dNext = rawNext - y2[j];
      const double absNext = std::fabs(dNext);
      const double squareNext = dNext * dNext;
      // The peak is tested at the left end of each step only.
      loop.observe(absD, raw, axis[j - 1]);
      loop.step<kSplit>(dt[j], raw, d, absD, squareD, rawNext, dNext, absNext, squareNext);
      raw = rawNext;
      d = dNext;
      absD = absNext;
      squareD = squareNext;
    };
    const size_t from = std::max<size_t>(first, 1);
    const size_t to = std::min(end, walkEnd_);
    if (visitContiguous_) {
      // Steps before the window only move the current point on.
      const size_t skipTo = std::min(to, visitFrom_);
      if (from < skipTo) {
        setCurrent(skipTo - 1);
      }
      for (size_t j = std::max(from, visitFrom_); j < to; ++j) {
        visit(j);
      }
    } else {
      for (size_t j = from; j < to; ++j) {
        if (visit_[j]) {
          visit(j);
        } else {
          setCurrent(j);
        }
      }
    }
  }
  state.loop = loop;
  state.raw = raw;
  state.d = d;
  state.absD = absD;
  state.squareD = squareD;
}

template <int kSplit>
void StreamedMeasures::advancePair(size_t place, size_t first, size_t count,
                                   std::span<const double* const> slotValues) {
  State& stateA = states_[place];
  State& stateB = states_[place + 1];
  const StreamedInstance& a = ordered_[place];
  const StreamedInstance& b = ordered_[place + 1];
  const size_t end = first + count;
  // advance() for two instances of the same kind, lane 0 and lane 1.
  PairLoopState loop(stateA.loop, stateB.loop);
  Lanes raw{stateA.raw, stateB.raw};
  Lanes d{stateA.d, stateB.d};
  Lanes absD{stateA.absD, stateB.absD};
  Lanes squareD{stateA.squareD, stateB.squareD};
  const double* axis = axis_.data();
  const double* dt = dt_.data();
  const double* a1 = slotValues[static_cast<size_t>(a.slot1)] - first;
  const double* b1 = slotValues[static_cast<size_t>(b.slot1)] - first;
  bool started = stateA.started;
  if (a.kind == StreamedKind::kOneWaveform) {
    const size_t start = static_cast<size_t>(range_.start);
    const Lanes ref{a.ref, b.ref};
    if (!started) {
      if (start >= end) {
        return;  // the range starts in a later chunk
      }
      raw = Lanes{a1[start], b1[start]};
      d = raw - ref;
      absD = magnitude(d);
      squareD = d * d;
      loop.observe(absD, raw, axis[start]);
      started = true;
    }
    const size_t to = std::min(end, stepEnd_);
    // Only the raw value and the difference are carried from step to step; their magnitude
    // and square are worked out again (the same bits), which keeps the running sums in
    // registers.
    for (size_t j = std::max(first, start + 1); j < to; ++j) {
      const Lanes rawNext{a1[j], b1[j]};
      const Lanes dNext = rawNext - ref;
      const Lanes absNext = magnitude(dNext);
      loop.step<kSplit>(dt[j], raw, d, magnitude(d), d * d, rawNext, dNext, absNext, dNext * dNext);
      raw = rawNext;
      d = dNext;
      if (j < observeEnd_) {
        loop.observe(absNext, raw, axis[j]);
      }
    }
  } else {
    const double* a2 = slotValues[static_cast<size_t>(a.slot2)] - first;
    const double* b2 = slotValues[static_cast<size_t>(b.slot2)] - first;
    auto setCurrent = [&](size_t i) __attribute__((always_inline)) {
      raw = Lanes{a1[i], b1[i]};
      d = raw - Lanes{a2[i], b2[i]};
      absD = magnitude(d);
      squareD = d * d;
    };
    if (!started) {
      setCurrent(0);
      started = true;
    }
    // Only the raw value and the difference are carried from step to step (see above).
    auto visit = [&](size_t j) __attribute__((always_inline)) {
      const Lanes rawNext{a1[j], b1[j]};
      const Lanes dNext = rawNext - Lanes{a2[j], b2[j]};
      const Lanes absCurrent = magnitude(d);
      loop.observe(absCurrent, raw, axis[j - 1]);
      loop.step<kSplit>(dt[j], raw, d, absCurrent, d * d, rawNext, dNext, magnitude(dNext),
                        dNext * dNext);
      raw = rawNext;
      d = dNext;
    };
    const size_t from = std::max<size_t>(first, 1);
    const size_t to = std::min(end, walkEnd_);
    if (visitContiguous_) {
      const size_t skipTo = std::min(to, visitFrom_);
      if (from < skipTo) {
        setCurrent(skipTo - 1);
      }
      for (size_t j = std::max(from, visitFrom_); j < to; ++j) {
        visit(j);
      }
    } else {
      for (size_t j = from; j < to; ++j) {
        if (visit_[j]) {
          visit(j);
        } else {
          setCurrent(j);
        }
      }
    }
  }
  absD = magnitude(d);
  squareD = d * d;
  loop.store();
  State* states[2] = {&stateA, &stateB};
  for (int lane = 0; lane < 2; ++lane) {
    State& state = *states[lane];
    state.raw = raw[lane];
    state.d = d[lane];
    state.absD = absD[lane];
    state.squareD = squareD[lane];
    state.started = started;
  }
}

void StreamedMeasures::feed(size_t first, size_t count, std::span<const double* const> slotValues) {
  if (count == 0 || first + count > axis_.size()) {
    return;
  }
  auto run = [&]<int kSplit>() {
    support::ThreadPool::shared().parallelFor(
        units_.size(), kUnitsPerPiece, [&](size_t begin, size_t end) {
          for (size_t u = begin; u < end; ++u) {
            const size_t place = units_[u];
            if (pairStarts_[u]) {
              advancePair<kSplit>(place, first, count, slotValues);
            } else {
              advance<kSplit>(place, first, count, slotValues);
            }
          }
        });
  };
  switch (detail::splitOf(settings_.ignoreSign)) {
    case 0:
      run.template operator()<0>();
      break;
    case detail::kSplitPositive:
      run.template operator()<detail::kSplitPositive>();
      break;
    case detail::kSplitNegative:
      run.template operator()<detail::kSplitNegative>();
      break;
    default:
      run.template operator()<detail::kSplitPositive | detail::kSplitNegative>();
      break;
  }
}

int StreamedMeasures::finish(size_t k, voltageData& out) const {
  const StreamedInstance& instance = instances_[k];
  if (instance.kind == StreamedKind::kNothing) {
    return -1;
  }
  // An instance whose loop never runs finishes from a fresh state.
  static const State kUntouched;
  const State& state = placeOf_[k] != SIZE_MAX ? states_[placeOf_[k]] : kUntouched;
  // The objects the kernels finish with, holding what the loop accumulated.
  const detail::Thresholds thresholds = detail::thresholdsFor(settings_, instance.traits);
  PeakTracker peak(settings_.durationTime, thresholds.duration, out);
  AreaSums sums(out);
  ThresholdPulses acPulses(settings_, thresholds.ac, out.acPulses);
  state.loop.storeInto(peak, sums);
  const Samples axis(axis_);
  if (instance.kind == StreamedKind::kOneWaveform) {
    const bool measured = rangeMeasured_;
    // The waveform itself is only read again by the half-peak measure, which does not stream.
    const int direction = detail::finishOneWaveform(settings_, instance.traits, measured, range_,
                                                    axis, Samples(), peak, sums, acPulses, out);
    if (instance.secondNodeAlone) {
      out.rawAvg = 0.0;
      out.peakValue = 0.0;
    }
    return direction;
  }
  acPulses.flush();
  return detail::finishTwoWaveforms(settings_, instance.traits, axis, axis, Samples(), Samples(),
                                    peak, sums, visitedAny_ ? windowStart_ : 0.0, lastTime_, out);
}

}  // namespace analysis
