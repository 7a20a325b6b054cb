#pragma once
// The statistics of many instances measured in one pass over point-major data. A binary raw
// file holds all signals of a time point together, so instead of gathering every batch's
// signals from the whole file, a run can hand its instances here and feed the data chunk of
// points by chunk of points: each instance keeps the running state of its loop between
// chunks. The state, the order of the steps and the arithmetic are those of the kernels of
// statistics.h (shared through detail/statisticsParts.h), so the results are the same to the
// last bit. Only the plain modes stream: duration pulses, AC threshold pulses and the
// half-peak AC measure walk the data in ways a single pass does not give.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "analysis/statistics.h"

namespace analysis {

class ExactStreamedWindows;

/// What a streamed instance measures.
enum class StreamedKind : uint8_t {
  kNothing,       // no waveform: the record stays as it started, direction -1
  kOneWaveform,   // waveform 1 against a reference, over the run's index range
  kTwoWaveforms,  // waveform 1 minus waveform 2 on the shared axis, over the time window
};

/// One instance of a streamed run.
struct StreamedInstance {
  StreamedKind kind = StreamedKind::kNothing;
  /// Positions of the waveforms among the streamed signals (slot2: kTwoWaveforms only).
  int slot1 = -1;
  int slot2 = -1;
  /// Subtracted from waveform 1 (kOneWaveform).
  double ref = 0.0;
  /// The second node measured alone: its raw average and peak value are zeroed afterwards.
  bool secondNodeAlone = false;
  InstanceTraits traits;
};

/// Environment variable that turns streamed runs off ("0", "no", "false" or "off"), so that
/// the two ways of running can be compared.
inline constexpr const char* kStreamedRunVariable = "KRA2_STREAMED_RUN";

/// Whether runs with these settings may be streamed.
bool streamable(const StatisticsSettings& settings);

class StreamedMeasures {
 public:
  /// `axis`: the whole shared time axis as the kernels read it (NaN as 0.0); `range`: its
  /// sample index range for the run's window (start >= 0). Every point of the axis must then
  /// be fed, in order. `widestLanes` caps how many instances advance side by side (1, 2 or
  /// 4; four only where the processor has the vectors for it): the results are the same.
  StreamedMeasures(const StatisticsSettings& settings, std::vector<double> axis, IndexRange range,
                   std::vector<StreamedInstance> instances, int widestLanes = 4);

  ~StreamedMeasures();
  StreamedMeasures(const StreamedMeasures&) = delete;
  StreamedMeasures& operator=(const StreamedMeasures&) = delete;

  size_t size() const { return instances_.size(); }
  size_t points() const { return axis_.size(); }

  /// Feeds points [first, first + count): slotValues[s] holds the `count` values of slot s
  /// (NaN as 0.0). Instances are advanced in parallel.
  void feed(size_t first, size_t count, std::span<const double* const> slotValues);

  /// The statistics of instance k once every point was fed, into `out` (which must start as
  /// the run's fresh record does); returns the direction.
  int finish(size_t k, voltageData& out) const;

 private:
  /// The loop state of one instance between chunks (defined with the loops).
  struct State;

  /// Advances the kLanes instances (of one kind) from `place` on over the chunk's points,
  /// side by side; the one-, two- and four-lane functions below are its instances.
  template <int kSplit, int kLanes>
  void advanceLanes(size_t place, size_t first, size_t count,
                    std::span<const double* const> slotValues);
  template <int kSplit>
  void advance(size_t place, size_t first, size_t count, std::span<const double* const> slotValues);
  template <int kSplit>
  void advancePair(size_t place, size_t first, size_t count,
                   std::span<const double* const> slotValues);
  template <int kSplit>
  void advanceQuad(size_t place, size_t first, size_t count,
                   std::span<const double* const> slotValues);

  StatisticsSettings settings_;
  std::vector<double> axis_;
  IndexRange range_;
  // What the loops do is the same for every instance, since all share the axis, so it is
  // worked out once. Step j goes from point j - 1 to point j; its length is dt_[j].
  std::vector<double> dt_;
  // One-waveform loops: whether the range holds samples, the points whose peak is tested
  // ([range.start, observeEnd_)) and the steps taken ([range.start + 1, stepEnd_)).
  bool rangeMeasured_ = false;
  size_t observeEnd_ = 0;
  size_t stepEnd_ = 0;
  // Two-waveform walks: the steps taken ([1, walkEnd_)), which of them are visited (inside
  // the window), the first visited one and whether the visited ones follow on from it to
  // the end; the window's start and the last time reached.
  size_t walkEnd_ = 1;
  std::vector<uint8_t> visit_;
  size_t visitFrom_ = 1;
  bool visitContiguous_ = true;
  bool visitedAny_ = false;
  double windowStart_ = 0.0;
  double lastTime_ = 0.0;
  std::vector<StreamedInstance> instances_;
  /// The instances with something to measure in the order they are advanced (by their
  /// signals, so that each chunk is read front to back), their states in that order, and
  /// each instance's place in it.
  std::vector<StreamedInstance> ordered_;
  std::vector<State> states_;
  std::vector<size_t> placeOf_;
  /// Units of work: the first place of each, and how many instances it advances at once.
  std::vector<size_t> units_;
  std::vector<uint8_t> unitLanes_;
  /// Exact windows (WindowMode::kExact) take the place of the loops above.
  std::unique_ptr<ExactStreamedWindows> exact_;
};

}  // namespace analysis
