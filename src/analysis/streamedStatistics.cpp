#include "analysis/streamedStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "analysis/detail/statisticsParts.h"
#include "analysis/exactStreamed.h"
#include "support/parallel.h"

namespace analysis {

using detail::AreaSums;
using detail::PeakTracker;
using detail::PlainLoopState;
using detail::ThresholdPulses;

namespace {

/// Units (one to four instances) advanced per piece of work handed to a thread.
constexpr size_t kUnitsPerPiece = 128;

/// Several instances side by side, one per vector lane: every operation of the loops below
/// works on all lanes at once, each lane doing exactly what the one-instance loop does (IEEE
/// additions, multiplications and comparisons give the same bits whatever the vector width).
/// Two lanes fit the baseline instruction set; four lanes are used on processors with 256-bit
/// vectors. The helpers are always inlined, so wide vectors never cross a call.
template <int kLanes>
struct LaneTypes {
  typedef double Values __attribute__((vector_size(kLanes * sizeof(double))));
  typedef int64_t Mask __attribute__((vector_size(kLanes * sizeof(double))));
};
template <int kLanes>
using Lanes = typename LaneTypes<kLanes>::Values;
template <int kLanes>
using LaneMask = typename LaneTypes<kLanes>::Mask;

#define KRA2_LANE_INLINE __attribute__((always_inline)) inline

template <int kLanes>
KRA2_LANE_INLINE Lanes<kLanes> allLanes(double value) {
  Lanes<kLanes> lanes;
  for (int lane = 0; lane < kLanes; ++lane) {
    lanes[lane] = value;
  }
  return lanes;
}
/// Element j of each lane's column.
template <int kLanes>
KRA2_LANE_INLINE Lanes<kLanes> gather(const double* const (&columns)[kLanes], size_t j) {
  Lanes<kLanes> lanes;
  for (int lane = 0; lane < kLanes; ++lane) {
    lanes[lane] = columns[lane][j];
  }
  return lanes;
}
/// `value` where the mask is set, +0.0 elsewhere.
template <int kLanes>
KRA2_LANE_INLINE Lanes<kLanes> onlyWhere(LaneMask<kLanes> mask, Lanes<kLanes> value) {
  return reinterpret_cast<Lanes<kLanes>>(reinterpret_cast<LaneMask<kLanes>>(value) & mask);
}
template <int kLanes>
KRA2_LANE_INLINE Lanes<kLanes> magnitude(Lanes<kLanes> value) {
  return reinterpret_cast<Lanes<kLanes>>(reinterpret_cast<LaneMask<kLanes>>(value) &
                                         (LaneMask<kLanes>{} + INT64_MAX));
}

/// Whether any lane of the mask is set (one test, not one branch per lane).
template <int kLanes, int... kLane>
KRA2_LANE_INLINE bool anyLane(LaneMask<kLanes> mask, std::integer_sequence<int, kLane...>) {
  return (mask[kLane] | ...) != 0;
}

/// PlainLoopState for kLanes instances, one per lane. The value and time of a new peak are
/// written straight to the instances' states (a new peak is rare), so that the sums that
/// change at every step have the registers to themselves.
template <int kLanes>
struct LaneLoopState {
  using V = Lanes<kLanes>;
  using M = LaneMask<kLanes>;
  PlainLoopState* states[kLanes];
  V peak;
  V avg, rawAvg, avgPositive, avgNegative, rms, absAvg;
  V positiveArea, negativeArea, positiveTime, negativeTime;

  KRA2_LANE_INLINE explicit LaneLoopState(PlainLoopState* const (&from)[kLanes]) {
    for (int lane = 0; lane < kLanes; ++lane) {
      PlainLoopState& state = *from[lane];
      states[lane] = &state;
      peak[lane] = state.plain.peak;
      avg[lane] = state.avg;
      rawAvg[lane] = state.rawAvg;
      avgPositive[lane] = state.avgPositive;
      avgNegative[lane] = state.avgNegative;
      rms[lane] = state.rms;
      absAvg[lane] = state.absAvg;
      positiveArea[lane] = state.positiveArea;
      negativeArea[lane] = state.negativeArea;
      positiveTime[lane] = state.positiveTime;
      negativeTime[lane] = state.negativeTime;
    }
  }

  /// Writes the sums back to the instances' states.
  KRA2_LANE_INLINE void store() const {
    for (int lane = 0; lane < kLanes; ++lane) {
      PlainLoopState& to = *states[lane];
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
  }

  /// PlainLoopState::observe in each lane.
  KRA2_LANE_INLINE void observe(V magnitudes, V raw, double time) {
    const M higher = magnitudes >= peak;
    if (anyLane<kLanes>(higher, std::make_integer_sequence<int, kLanes>())) {
      peak = higher ? magnitudes : peak;
      for (int lane = 0; lane < kLanes; ++lane) {
        if (higher[lane] != 0) {
          states[lane]->plain.peakValue = raw[lane];
          states[lane]->plain.peakTime = time;
        }
      }
    }
  }

  /// PlainLoopState::step in each lane (the split sums are taken or left as the branches of
  /// the one-lane step take or leave them).
  template <int kSplit>
  KRA2_LANE_INLINE void step(double stepLength, V raw, V d, V absD, V squareD, V rawNext, V dNext,
                             V absNext, V squareNext) {
    const V dt = allLanes<kLanes>(stepLength);
    const V mid = (d + dNext) / 2;
    const V area = dt * mid;
    avg += area;
    rawAvg += (rawNext + raw) / 2 * dt;
    const M positive = mid >= 0;
    positiveArea += onlyWhere<kLanes>(positive, area);
    negativeArea += onlyWhere<kLanes>(~positive, area);
    if constexpr ((kSplit & detail::kSplitPositive) != 0) {
      avgPositive = positive ? avgPositive + area : avgPositive;
      positiveTime = positive ? positiveTime + dt : positiveTime;
    }
    if constexpr ((kSplit & detail::kSplitNegative) != 0) {
      // Not "~positive": a NaN midpoint is neither.
      const M negative = mid < 0;
      avgNegative = negative ? avgNegative + area : avgNegative;
      negativeTime = negative ? negativeTime + dt : negativeTime;
    }
    rms += dt * (squareD + squareNext) / 2;
    absAvg += dt * (absD + absNext) / 2;
  }
};

/// Whether this processor has 256-bit vectors (four lanes of doubles), and the code
/// generation for them. No fused multiply-add is enabled: it would round differently.
#if defined(__x86_64__)
#define KRA2_FOUR_LANES_TARGET __attribute__((target("avx2")))
bool hasFourLanes() { return __builtin_cpu_supports("avx2"); }
#else
#define KRA2_FOUR_LANES_TARGET
bool hasFourLanes() { return false; }
#endif

/// The running values of a fresh record, as the kernels start them.
PlainLoopState freshLoopState() {
  const voltageData fresh = freshVoltageData();
  return PlainLoopState(PeakTracker(0.0, 0.0, fresh), AreaSums(fresh));
}

}  // namespace

struct StreamedMeasures::State {
  State() : loop(freshLoopState()) {}
  PlainLoopState loop;
  // The current point of the loop: raw value and difference (its magnitude and square are
  // worked out again from the difference: the same bits).
  double raw = 0.0;
  double d = 0.0;
  bool started = false;
};

bool streamable(const StatisticsSettings& settings) {
  return settings.durationTime == 0.0 && !(settings.acPulseThreshold >= 0.0) &&
         !(settings.acAnalysis && settings.acPeakMethod == AcPeakMethod::kHalfPeakPulses);
}

StreamedMeasures::StreamedMeasures(const StatisticsSettings& settings, std::vector<double> axis,
                                   IndexRange range, std::vector<StreamedInstance> instances,
                                   int widestLanes)
    : settings_(settings),
      axis_(std::move(axis)),
      range_(range),
      instances_(std::move(instances)),
      placeOf_(instances_.size(), SIZE_MAX) {
  if (settings_.windowMode == WindowMode::kExact) {
    exact_ = std::make_unique<ExactStreamedWindows>(settings_, axis_, instances_);
    return;
  }
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

  // Sorted by kind, then signals, then position, through one packed key per instance (the
  // comparisons then touch a compact array instead of the instances).
  std::vector<std::pair<uint64_t, size_t>> keyed;
  for (size_t k = 0; k < instances_.size(); ++k) {
    const StreamedInstance& instance = instances_[k];
    // A one-waveform loop over an empty range never runs.
    if (instance.kind == StreamedKind::kTwoWaveforms ||
        (instance.kind == StreamedKind::kOneWaveform && rangeMeasured_)) {
      const uint64_t kind = static_cast<uint64_t>(instance.kind);
      const uint64_t slot1 = static_cast<uint32_t>(instance.slot1);
      const uint64_t slot2 = static_cast<uint32_t>(instance.slot2 + 1);
      keyed.emplace_back(kind << 62 | (slot1 & 0x7fffffff) << 31 | (slot2 & 0x7fffffff), k);
    }
  }
  std::sort(keyed.begin(), keyed.end());
  std::vector<size_t> order(keyed.size());
  for (size_t place = 0; place < keyed.size(); ++place) {
    order[place] = keyed[place].second;
  }
  ordered_.reserve(order.size());
  for (size_t place = 0; place < order.size(); ++place) {
    placeOf_[order[place]] = place;
    ordered_.push_back(instances_[order[place]]);
  }
  states_.resize(order.size());
  // Neighbours of the same kind are advanced side by side, as many as the lanes allow.
  const size_t widest = widestLanes >= 4 && hasFourLanes() ? 4 : widestLanes >= 2 ? 2 : 1;
  for (size_t place = 0; place < ordered_.size();) {
    size_t lanes = 1;
    while (lanes < widest && place + lanes * 2 <= ordered_.size() &&
           std::all_of(ordered_.begin() + static_cast<std::ptrdiff_t>(place + 1),
                       ordered_.begin() + static_cast<std::ptrdiff_t>(place + lanes * 2),
                       [&](const StreamedInstance& x) { return x.kind == ordered_[place].kind; })) {
      lanes *= 2;
    }
    units_.push_back(place);
    unitLanes_.push_back(static_cast<uint8_t>(lanes));
    place += lanes;
  }
}

StreamedMeasures::~StreamedMeasures() = default;

template <int kSplit, int kLanes>
KRA2_LANE_INLINE void StreamedMeasures::advanceLanes(size_t place, size_t first, size_t count,
                                                     std::span<const double* const> slotValues) {
  using V = Lanes<kLanes>;
  State* states[kLanes];
  PlainLoopState* loops[kLanes];
  const double* y1[kLanes];
  const double* y2[kLanes];
  V ref;
  V raw;
  V d;
  for (int lane = 0; lane < kLanes; ++lane) {
    State& state = states_[place + static_cast<size_t>(lane)];
    const StreamedInstance& instance = ordered_[place + static_cast<size_t>(lane)];
    states[lane] = &state;
    loops[lane] = &state.loop;
    y1[lane] = slotValues[static_cast<size_t>(instance.slot1)] - first;
    // One-waveform instances read their first waveform in place of a second one.
    const int slot2 = instance.slot2 >= 0 ? instance.slot2 : instance.slot1;
    y2[lane] = slotValues[static_cast<size_t>(slot2)] - first;
    ref[lane] = instance.ref;
    raw[lane] = state.raw;
    d[lane] = state.d;
  }
  const size_t end = first + count;
  // The loops of oneWaveformPlainLoop and sharedAxisPlainWalk (statistics.cpp), resumed at
  // the chunk's first point, one instance per lane.
  LaneLoopState<kLanes> loop(loops);
  bool started = states[0]->started;
  if (ordered_[place].kind == StreamedKind::kOneWaveform) {
    const size_t start = static_cast<size_t>(range_.start);
    if (!started) {
      if (start >= end) {
        return;  // the range starts in a later chunk
      }
      raw = gather<kLanes>(y1, start);
      d = raw - ref;
      loop.observe(magnitude<kLanes>(d), raw, axis_[start]);
      started = true;
    }
    const size_t to = std::min(end, stepEnd_);
    // Only the raw value and the difference are carried from step to step; their magnitude
    // and square are worked out again (the same bits), which keeps the running sums in
    // registers.
    for (size_t j = std::max(first, start + 1); j < to; ++j) {
      const V rawNext = gather<kLanes>(y1, j);
      const V dNext = rawNext - ref;
      const V absNext = magnitude<kLanes>(dNext);
      loop.template step<kSplit>(dt_[j], raw, d, magnitude<kLanes>(d), d * d, rawNext, dNext,
                                 absNext, dNext * dNext);
      raw = rawNext;
      d = dNext;
      if (j < observeEnd_) {
        loop.observe(absNext, raw, axis_[j]);
      }
    }
  } else {
    auto setCurrent = [&](size_t i) __attribute__((always_inline)) {
      raw = gather<kLanes>(y1, i);
      d = raw - gather<kLanes>(y2, i);
    };
    if (!started) {
      setCurrent(0);
      started = true;
    }
    // Only the raw value and the difference are carried from step to step (see above).
    auto visit = [&](size_t j) __attribute__((always_inline)) {
      const V rawNext = gather<kLanes>(y1, j);
      const V dNext = rawNext - gather<kLanes>(y2, j);
      const V absCurrent = magnitude<kLanes>(d);
      loop.observe(absCurrent, raw, axis_[j - 1]);
      loop.template step<kSplit>(dt_[j], raw, d, absCurrent, d * d, rawNext, dNext,
                                 magnitude<kLanes>(dNext), dNext * dNext);
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
  loop.store();
  for (int lane = 0; lane < kLanes; ++lane) {
    State& state = *states[lane];
    state.raw = raw[lane];
    state.d = d[lane];
    state.started = started;
  }
}

template <int kSplit>
void StreamedMeasures::advance(size_t place, size_t first, size_t count,
                               std::span<const double* const> slotValues) {
  advanceLanes<kSplit, 1>(place, first, count, slotValues);
}

template <int kSplit>
void StreamedMeasures::advancePair(size_t place, size_t first, size_t count,
                                   std::span<const double* const> slotValues) {
  advanceLanes<kSplit, 2>(place, first, count, slotValues);
}

template <int kSplit>
KRA2_FOUR_LANES_TARGET void StreamedMeasures::advanceQuad(
    size_t place, size_t first, size_t count, std::span<const double* const> slotValues) {
  advanceLanes<kSplit, 4>(place, first, count, slotValues);
}

void StreamedMeasures::feed(size_t first, size_t count, std::span<const double* const> slotValues) {
  if (exact_) {
    exact_->feed(first, count, slotValues);
    return;
  }
  if (count == 0 || first + count > axis_.size()) {
    return;
  }
  auto run = [&]<int kSplit>() {
    support::parallelFor(units_.size(), kUnitsPerPiece, [&](size_t begin, size_t end) {
      for (size_t u = begin; u < end; ++u) {
        const size_t place = units_[u];
        switch (unitLanes_[u]) {
          case 4:
            advanceQuad<kSplit>(place, first, count, slotValues);
            break;
          case 2:
            advancePair<kSplit>(place, first, count, slotValues);
            break;
          default:
            advance<kSplit>(place, first, count, slotValues);
            break;
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
  if (exact_) {
    return exact_->finish(k, out);
  }
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
