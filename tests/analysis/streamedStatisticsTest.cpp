// The fast loops and the streamed measures against the general loops of the statistics
// kernels: random waveforms, axes, windows and settings, compared bit for bit. The random
// windows and ranges reach every edge (before, after and across the axis, one point, past the
// data, empty) and the chunks come in every size from one point up.

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "analysis/detail/statisticsPaths.h"
#include "analysis/streamedStatistics.h"
#include "support/voltageFields.h"

namespace {

using analysis::IndexRange;
using analysis::InstanceTraits;
using analysis::Samples;
using analysis::StatisticsSettings;
using analysis::StreamedInstance;
using analysis::StreamedKind;
using analysis::StreamedMeasures;
using analysis::detail::KernelPath;

/// Every field of two records and two directions, bit for bit (NaN payloads and the sign of
/// zero included); an empty text when they agree.
std::string differences(const voltageData& a, int directionA, const voltageData& b,
                        int directionB) {
  std::string text;
  for (const auto& [name, field] : testing_support::voltageFields()) {
    if (std::bit_cast<uint64_t>(a.*field) != std::bit_cast<uint64_t>(b.*field)) {
      text += name + " " + std::to_string(a.*field) + " vs " + std::to_string(b.*field) + "; ";
    }
  }
  if (directionA != directionB) {
    text += "direction " + std::to_string(directionA) + " vs " + std::to_string(directionB);
  }
  return text;
}

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  int below(int n) { return static_cast<int>(engine_() % static_cast<uint64_t>(n)); }
  double uniform(double lo, double hi) {
    return std::uniform_real_distribution<double>(lo, hi)(engine_);
  }
  bool chance(double p) { return uniform(0.0, 1.0) < p; }

  /// A time axis: increasing steps, sometimes repeated times, sometimes out of order.
  std::vector<double> axis(int n) {
    std::vector<double> x(static_cast<size_t>(n));
    double t = chance(0.3) ? 0.0 : uniform(-1e-9, 1e-9);
    const bool disorder = chance(0.2);
    for (double& v : x) {
      v = t;
      t += chance(0.05) ? 0.0 : uniform(1e-12, 1e-10);
      if (disorder && chance(0.1)) {
        t -= uniform(0.0, 3e-10);
      }
    }
    return x;
  }

  /// A waveform: a smooth swing with noise, some exact zeros and repeats, rarely an
  /// infinity (whose differences are NaN).
  std::vector<double> waveform(int n, bool infinities) {
    std::vector<double> y(static_cast<size_t>(n));
    const double level = uniform(-1.0, 1.0);
    const double swing = uniform(0.0, 0.05);
    for (int p = 0; p < n; ++p) {
      double v = level + swing * std::sin(p * uniform(0.01, 0.02)) + uniform(-1e-3, 1e-3);
      if (chance(0.02)) {
        v = 0.0;
      }
      if (p > 0 && chance(0.05)) {
        v = y[static_cast<size_t>(p - 1)];
      }
      if (infinities && chance(0.01)) {
        v = chance(0.5) ? std::numeric_limits<double>::infinity()
                        : -std::numeric_limits<double>::infinity();
      }
      y[static_cast<size_t>(p)] = v;
    }
    return y;
  }

  /// Settings of the plain modes: any ignore setting, AC area measure or none, recovery
  /// weighting of either kind, and a window that may lie anywhere around the axis.
  StatisticsSettings settings(const std::vector<double>& x) {
    StatisticsSettings s;
    const int ignore[] = {0, -1, 1, 2};
    s.ignoreSign = ignore[below(4)];
    s.acAnalysis = chance(0.5);
    s.recoveryFactor = chance(0.3) ? 1.0f : 0.0f;
    s.emRecoveryFactorGiven = chance(0.3);
    s.emRecoveryFactor = static_cast<float>(uniform(0.0, 1.0));
    const double lo = x.empty() ? 0.0 : x.front();
    const double hi = x.empty() ? 1.0 : x.back();
    const double span = hi - lo + 1e-12;
    s.startTime = chance(0.4) ? 0.0 : uniform(lo - 0.2 * span, hi + 0.1 * span);
    s.stopTime = chance(0.3) ? 1.0 : uniform(s.startTime - 0.1 * span, hi + 0.2 * span);
    return s;
  }

  InstanceTraits traits() {
    InstanceTraits t;
    t.orientation = below(3) - 1;
    t.directionKnown = below(2);
    t.recoveryFactor = chance(0.5) ? 1.0 : uniform(0.0, 1.0);
    return t;
  }

  IndexRange range(int n) {
    IndexRange r;
    r.start = below(n + 2);
    r.stop = chance(0.1) ? INT_MAX : below(n + 3) - 1;
    return r;
  }

 private:
  std::mt19937_64 engine_;
};

TEST(FastLoops, GiveTheBitsOfTheGeneralLoops) {
  Random random(20260101);
  for (int trial = 0; trial < 3000; ++trial) {
    SCOPED_TRACE("trial " + std::to_string(trial));
    const int n = 1 + random.below(trial % 10 == 0 ? 4 : 300);
    const std::vector<double> x = random.axis(n);
    const std::vector<double> y1 = random.waveform(n, trial % 7 == 0);
    const std::vector<double> y2 = random.waveform(n, trial % 11 == 0);
    const StatisticsSettings settings = random.settings(x);
    const InstanceTraits traits = random.traits();
    const IndexRange range = random.range(n);
    const double ref = random.chance(0.5) ? 0.0 : random.uniform(-1.0, 1.0);

    voltageData fast = freshVoltageData();
    voltageData general = freshVoltageData();
    int fastDirection =
        analysis::detail::measureTwoWaveforms(KernelPath::kFast, settings, traits, Samples(x),
                                              Samples(x), Samples(y1), Samples(y2), fast);
    int generalDirection =
        analysis::detail::measureTwoWaveforms(KernelPath::kGeneral, settings, traits, Samples(x),
                                              Samples(x), Samples(y1), Samples(y2), general);
    EXPECT_EQ(differences(fast, fastDirection, general, generalDirection), "") << "two";

    fast = freshVoltageData();
    general = freshVoltageData();
    fastDirection = analysis::detail::measureOneWaveform(KernelPath::kFast, settings, traits, range,
                                                         Samples(x), Samples(y1), ref, fast);
    generalDirection = analysis::detail::measureOneWaveform(
        KernelPath::kGeneral, settings, traits, range, Samples(x), Samples(y1), ref, general);
    EXPECT_EQ(differences(fast, fastDirection, general, generalDirection), "") << "one";

    // The general walk of two axes that hold the same times takes the "equal times" branch
    // at every point: no interpolation, so it gives the bits of the one-axis walk.
    std::vector<double> strict = x;
    for (size_t i = 1; i < strict.size(); ++i) {
      strict[i] = std::max(strict[i], strict[i - 1] + 1e-12);
    }
    const std::vector<double> copy = strict;
    voltageData shared = freshVoltageData();
    voltageData separate = freshVoltageData();
    const int sharedDirection = analysis::measureTwoWaveforms(
        settings, traits, Samples(strict), Samples(strict), Samples(y1), Samples(y2), shared);
    const int separateDirection = analysis::measureTwoWaveforms(
        settings, traits, Samples(strict), Samples(copy), Samples(y1), Samples(y2), separate);
    EXPECT_EQ(differences(shared, sharedDirection, separate, separateDirection), "") << "axes";
  }
}

TEST(StreamedMeasures, OnlyThePlainModesStream) {
  using analysis::AcPeakMethod;
  const std::pair<StatisticsSettings, bool> cases[] = {
      {{}, true},
      {{.acAnalysis = true}, true},
      {{.acPeakMethod = AcPeakMethod::kHalfPeakPulses}, true},  // matters only with AC on
      {{.acAnalysis = true, .acPeakMethod = AcPeakMethod::kHalfPeakPulses}, false},
      {{.durationTime = 1e-9}, false},
      {{.acPulseThreshold = 0.5}, false}};
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(analysis::streamable(cases[i].first), cases[i].second);
  }
}

/// Feeds the slots to the measures in chunks of random sizes.
void feedInChunks(StreamedMeasures& measures, const std::vector<std::vector<double>>& slots,
                  Random& random, int maxChunk) {
  const size_t n = measures.points();
  for (size_t first = 0; first < n;) {
    const size_t count = std::min(n - first, static_cast<size_t>(1 + random.below(maxChunk)));
    std::vector<const double*> values;
    for (const auto& slot : slots) {
      values.push_back(slot.data() + first);
    }
    measures.feed(first, count, values);
    first += count;
  }
}

TEST(StreamedMeasures, GiveTheBitsOfTheGeneralKernels) {
  Random random(424242);
  for (int trial = 0; trial < 400; ++trial) {
    SCOPED_TRACE("trial " + std::to_string(trial));
    const int n = 1 + random.below(trial % 5 == 0 ? 5 : 400);
    const std::vector<double> x = random.axis(n);
    const StatisticsSettings settings = random.settings(x);
    ASSERT_TRUE(analysis::streamable(settings));
    IndexRange range = random.range(n);
    range.start = std::min(range.start, n);  // a run's range never starts before 0
    std::vector<std::vector<double>> slots(static_cast<size_t>(1 + random.below(6)));
    for (auto& slot : slots) {
      slot = random.waveform(n, trial % 9 == 0);
    }
    std::vector<StreamedInstance> instances(static_cast<size_t>(random.below(40)));
    for (StreamedInstance& instance : instances) {
      const int kind = random.below(10);
      instance.kind = kind == 0  ? StreamedKind::kNothing
                      : kind < 4 ? StreamedKind::kOneWaveform
                                 : StreamedKind::kTwoWaveforms;
      instance.slot1 = random.below(static_cast<int>(slots.size()));
      instance.slot2 = instance.kind == StreamedKind::kTwoWaveforms
                           ? random.below(static_cast<int>(slots.size()))
                           : -1;
      instance.ref = random.chance(0.5) ? 0.0 : random.uniform(-1.0, 1.0);
      instance.secondNodeAlone = instance.kind == StreamedKind::kOneWaveform && random.chance(0.3);
      if (instance.secondNodeAlone) {
        instance.ref = 0.0;
      }
      instance.traits = random.traits();
    }
    // One instance at a time, two and four side by side (where the processor has them).
    for (const int lanes : {1, 2, 4}) {
      SCOPED_TRACE("lanes " + std::to_string(lanes));
      StreamedMeasures measures(settings, x, range, instances, lanes);
      feedInChunks(measures, slots, random, trial % 3 == 0 ? 3 : 200);

      for (size_t k = 0; k < instances.size(); ++k) {
        SCOPED_TRACE("instance " + std::to_string(k));
        const StreamedInstance& instance = instances[k];
        voltageData streamed = freshVoltageData();
        const int streamedDirection = measures.finish(k, streamed);
        voltageData expected = freshVoltageData();
        int expectedDirection = -1;
        const Samples y1(slots[static_cast<size_t>(std::max(instance.slot1, 0))]);
        if (instance.kind == StreamedKind::kOneWaveform) {
          expectedDirection =
              analysis::detail::measureOneWaveform(KernelPath::kGeneral, settings, instance.traits,
                                                   range, Samples(x), y1, instance.ref, expected);
          if (instance.secondNodeAlone) {
            expected.rawAvg = 0.0;
            expected.peakValue = 0.0;
          }
        } else if (instance.kind == StreamedKind::kTwoWaveforms) {
          expectedDirection = analysis::detail::measureTwoWaveforms(
              KernelPath::kGeneral, settings, instance.traits, Samples(x), Samples(x), y1,
              Samples(slots[static_cast<size_t>(instance.slot2)]), expected);
        }
        EXPECT_EQ(differences(streamed, streamedDirection, expected, expectedDirection), "");
      }
    }
  }
}

}  // namespace
