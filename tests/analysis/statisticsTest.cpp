// Kernel tests on small waveforms whose statistics were worked out by hand (the step-by-step
// sums are in the comments).

#include <gtest/gtest.h>

#include <cmath>
#include <string_view>
#include <utility>
#include <vector>

#include "analysis/statistics.h"

namespace analysis {
namespace {

using Vec = std::vector<double>;
using Want = std::vector<std::pair<std::string_view, double>>;

inline void addFields(Want&) {}
template <typename... Rest>
void addFields(Want& want, std::string_view name, double value, Rest... rest) {
  want.emplace_back(name, value);
  addFields(want, rest...);
}
/// want("peak", 2, "avg", 0.5): the fields a case checks, by name.
template <typename... Args>
Want want(Args... args) {
  Want fields;
  addFields(fields, args...);
  return fields;
}

/// Checks the named fields of `out`, exactly: the hand-worked values are the kernel's bits.
void expectFields(const voltageData& out, const Want& fields) {
  static const std::pair<std::string_view, double voltageData::*> kFields[] = {
      {"peak", &voltageData::peak},
      {"peakValue", &voltageData::peakValue},
      {"avg", &voltageData::avg},
      {"rawAvg", &voltageData::rawAvg},
      {"rms", &voltageData::rms},
      {"avgPositive", &voltageData::avgPositive},
      {"absAvg", &voltageData::absAvg},
      {"avgNegative", &voltageData::avgNegative},
      {"peakTime", &voltageData::peakTime},
      {"dutyRatio", &voltageData::dutyRatio},
      {"pulseWidth", &voltageData::pulseWidth}};
  for (const auto& [name, value] : fields) {
    bool known = false;
    for (const auto& [fieldName, field] : kFields) {
      if (fieldName == name) {
        known = true;
        EXPECT_EQ(out.*field, value) << name;
      }
    }
    EXPECT_TRUE(known) << name;
  }
}

void expectPulse(const kraDB::PwcAcEData& got, const kraDB::PwcAcEData& expected) {
  EXPECT_EQ(got.start, expected.start);
  EXPECT_EQ(got.end, expected.end);
  EXPECT_EQ(got.maximum, expected.maximum);
  EXPECT_EQ(got.maximumTime, expected.maximumTime);
  EXPECT_EQ(got.fifth, expected.fifth);
}

struct OneCase {
  const char* name;
  StatisticsSettings settings;
  InstanceTraits instance;
  IndexRange range;
  Vec x, y;
  double ref;
  Want fields;
  int direction;
};

TEST(OneWaveform, HandWorkedCases) {
  const Vec x4 = {0, 1, 2, 3};
  const Vec x5 = {0, 1, 2, 3, 4};
  // Triangle: steps [0,1] area 1, [1,2] area 0 (mid 0 counts positive), [2,3] area -1;
  // squares 2 + 4 + 2 = 8; magnitudes 1 + 2 + 1 = 4.
  const Vec triangle = {0, 2, -2, 0};
  const Vec constant = {2, 2, 2, 2, 2};
  // Square wave: positive area 1, negative area -1, range length 4.
  const Vec square = {1, 1, -1, -1, 1};
  const Vec tail = {1, 2, 3, -5};
  const OneCase cases[] = {
      // |2| at t=1 and |-2| at t=2 tie: the later sample wins. No AC measure: duty ratio 1.
      OneCase("triangle", {.ignoreSign = 2}, {}, {0, 3}, x4, triangle, 0.0,
              want("peak", 2, "peakTime", 2, "peakValue", -2, "avg", 0, "rawAvg", 0, "rms",
                   std::sqrt(8.0 / 3.0), "absAvg", 4.0 / 3.0, "avgPositive", 0.5, "avgNegative", 1,
                   "dutyRatio", 1, "pulseWidth", 0),
              1),
      OneCase("polarity: none", {.ignoreSign = 0}, {}, {0, 3}, x4, triangle, 0.0,
              want("avgPositive", 0, "avgNegative", 0), 1),
      OneCase("polarity: negative ignored", {.ignoreSign = -1}, {}, {0, 3}, x4, triangle, 0.0,
              want("avgPositive", 0.5, "avgNegative", 0), 1),
      OneCase("polarity: positive ignored", {.ignoreSign = 1}, {}, {0, 3}, x4, triangle, 0.0,
              want("avgPositive", 0, "avgNegative", 1), 1),
      OneCase("polarity: unknown setting", {.ignoreSign = 7}, {}, {0, 3}, x4, triangle, 0.0,
              want("avgPositive", 0, "avgNegative", 0), 1),
      // The step after `stop` is integrated while the length ends at x[stop], so a constant
      // gives |c| (stop - start + 1) / (stop - start) unless stop is the last index; the
      // positive time has the overrun too.
      OneCase("constant, whole range", {.ignoreSign = 2}, {}, {0, 4}, x5, constant, 0.0,
              want("avg", 2, "rawAvg", 2, "absAvg", 2, "avgPositive", 2, "rms", 2), 1),
      OneCase("constant, one-step overrun", {.ignoreSign = 2}, {}, {1, 2}, x5, constant, 0.0,
              want("avg", 4, "rawAvg", 4, "absAvg", 4, "avgPositive", 2, "rms", std::sqrt(8.0)), 1),
      OneCase("constant, overrun from 0", {}, {}, {0, 2}, x5, constant, 0.0,
              want("avg", 3, "rms", std::sqrt(6.0), "peakValue", 2), 1),
      // d = 0.5 -0.25 0.5: the peak is the last 0.5 (tie); step areas 0.125 and 0.125.
      OneCase("reference subtracted, raw average kept", {}, {}, {0, 2}, {0, 1, 2}, {1.75, 1, 1.75},
              1.25,
              want("peak", 0.5, "peakValue", 1.75, "peakTime", 2, "avg", 0.125, "rawAvg", 1.375,
                   "absAvg", 0.375),
              1),
      OneCase("single sample at the last index", {}, {}, {3, 3}, x4, tail, 0.0,
              want("peak", 5, "peakValue", -5, "peakTime", 3, "avg", 0, "rms", 0, "dutyRatio", 0),
              1),
      OneCase("range past the data", {}, {}, {4, 9}, x4, tail, 0.0,
              want("peak", 0, "avg", 0, "rms", 0, "peakTime", 0), 1),
      OneCase("reversed range", {}, {}, {2, 1}, x4, tail, 0.0, want("peak", 0, "avg", 0), 1),
      OneCase("largest stop", {}, {}, {100, 2147483647}, x4, tail, 0.0, want("peak", 0), 1),
      // A stop past the data reads x[stop] as 0: the length is negative, nothing normalised.
      OneCase("stop beyond the data", {}, {}, {0, 3}, {1, 2, 3}, {1, 1, 1}, 0.0,
              want("avg", 2, "rms", 2), 1),
      OneCase("no recovery", {}, {.recoveryFactor = 0.5}, {0, 4}, x5, square, 0.0, want("avg", 0),
              1),
      OneCase("instance recovery factor", {.recoveryFactor = 1}, {.recoveryFactor = 0.5}, {0, 4},
              x5, square, 0.0, want("avg", 0.125), 1),
      OneCase("instance factor wins over em",
              {.recoveryFactor = 1, .emRecoveryFactorGiven = true, .emRecoveryFactor = 0.25},
              {.recoveryFactor = 0.5}, {0, 4}, x5, square, 0.0, want("avg", 0.125), 1),
      OneCase("em recovery factor", {.emRecoveryFactorGiven = true, .emRecoveryFactor = 0.25},
              {.recoveryFactor = 0.5}, {0, 4}, x5, square, 0.0, want("avg", 0.1875), 1),
      OneCase("instance factor in double precision", {.recoveryFactor = 1}, {.recoveryFactor = 0.1},
              {0, 4}, x5, square, 0.0, want("avg", (1.0 - 0.1) / 4), 1),
      // Area of |d| 1 + 2 + 1 = 4 over peak 2: width 2 seconds, duty 2 / 3.
      OneCase("AC area over peak", {.acAnalysis = true}, {}, {0, 3}, x4, {0, 2, 2, 0}, 0.0,
              want("pulseWidth", 2, "dutyRatio", 2.0 / 3.0), 1),
      OneCase("AC without a peak", {.acAnalysis = true}, {}, {0, 3}, x4, {0, 0, 0, 0}, 0.0,
              want("pulseWidth", 0, "dutyRatio", 1), 1)};
  for (const OneCase& c : cases) {
    SCOPED_TRACE(c.name);
    voltageData out{};
    const int direction =
        measureOneWaveform(c.settings, c.instance, c.range, Samples(c.x), Samples(c.y), c.ref, out);
    expectFields(out, c.fields);
    EXPECT_EQ(direction, c.direction);
  }
  // Absent values: nothing measured, the duty sum 0 is still normalised.
  voltageData out{};
  out.dutyRatio = 7.0;
  EXPECT_EQ(measureOneWaveform({}, {}, {0, 3}, Samples(x4), Samples(), 0.0, out), 1);
  expectFields(out, want("peak", 0, "dutyRatio", 0));
}

TEST(OneWaveform, DirectionAndOrientation) {
  const Vec x = {0, 1};
  const Vec up = {1, 1};
  const Vec down = {-1, -1};
  const Vec flat = {0, 0};
  struct Case {
    const Vec* y;
    int directionKnown;
    int orientation;
    int direction;
  };
  // Unknown direction: from the sign (a zero average is not negative); orientation 1 inverts,
  // any other value but -1 gives the plain sign even when the direction is known.
  const Case cases[] = {{&up, 0, -1, 1},  {&down, 0, -1, 0}, {&flat, 0, -1, 1}, {&up, 0, 1, 0},
                        {&down, 0, 1, 1}, {&flat, 0, 1, 0},  {&up, 1, 5, 1},    {&down, 1, 0, 0},
                        {&up, 1, -1, -1}, {&down, 1, -1, -1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (*c.y)[0] << " known " << c.directionKnown << " orientation " << c.orientation);
    voltageData out{};
    const InstanceTraits instance{.orientation = c.orientation, .directionKnown = c.directionKnown};
    EXPECT_EQ(measureOneWaveform({}, instance, {0, 1}, Samples(x), Samples(*c.y), 0.0, out),
              c.direction);
  }
}

TEST(OneWaveform, DurationPulsesMustOutlastTheDuration) {
  const StatisticsSettings settings{.durationTime = 1.5};
  const InstanceTraits instance{.thresholdValue = 2.0, .thresholdScale = 0.5};  // threshold 1
  const Vec x = {0, 1, 2, 3, 4, 5, 6, 7};
  const Vec y = {0.5, 5, 0, 0.8, -3, 3, -0.25, 2};
  // t=0 plain peak 0.5; the pulse at t=1 closes at t=2 after 1 <= 1.5 and is dropped; t=3
  // (0.8) wins by the plain rule; the pulse opened at t=4 (max 3, an equal 3 at t=5 does not
  // move its time) closes at t=6 after 2 > 1.5 and holds the peak with the raw value of the
  // closing sample; the pulse open at t=7 is never accepted.
  const std::pair<int, Want> cases[] = {{1, want("peak", 0.5, "peakTime", 0, "peakValue", 0.5)},
                                        {3, want("peak", 0.8, "peakTime", 3, "peakValue", 0.8)},
                                        {7, want("peak", 3, "peakTime", 4, "peakValue", -0.25)}};
  for (const auto& [stop, fields] : cases) {
    SCOPED_TRACE(stop);
    voltageData out{};
    measureOneWaveform(settings, instance, {0, stop}, Samples(x), Samples(y), 0.0, out);
    expectFields(out, fields);
  }
}

struct PulseCase {
  const char* name;
  Vec x, y1, y2;
  Want fields;
  kraDB::PwcAcEData pulse;
};

TEST(OneWaveform, AcHalfPeakPulses) {
  const StatisticsSettings settings{
      .acAnalysis = true, .acPeakMethod = AcPeakMethod::kHalfPeakPulses, .collectAcPulses = true};
  // y2 holds the reference: the raw magnitude is compared with half the peak of d.
  const PulseCase cases[] = {
      // Half peak 2: rise between (1, 1) and (2, 4) at 1 + 1/3, fall between (3, 3) and
      // (4, 0) at 3 + 1/3.
      PulseCase("interpolated edges", {0, 1, 2, 3, 4}, {0, 1, 4, 3, 0}, {0},
                want("pulseWidth", 2, "dutyRatio", 0.5),
                {1.3333333333333333, 3.3333333333333335, 4, 2, 2.0}),
      // The first sample of the range is its own predecessor; a pulse open at the end
      // closes at x[stop].
      PulseCase("open at the end", {0, 1, 2}, {0, 4, 4}, {0},
                want("pulseWidth", 1.5, "dutyRatio", 0.75), {0.5, 2, 4, 1, 1.5}),
      // Every raw sample is above half of the peak of d (4 against the reference 5).
      PulseCase("raw magnitude", {0, 1, 2, 3}, {5, 5, 9, 5}, {5},
                want("pulseWidth", 3, "dutyRatio", 1), {0, 3, 9, 2, 3})};
  for (const PulseCase& c : cases) {
    SCOPED_TRACE(c.name);
    PwcAcEDataList pulses;
    voltageData out{};
    out.acPulses = &pulses;
    const int last = static_cast<int>(c.x.size()) - 1;
    measureOneWaveform(settings, {}, {0, last}, Samples(c.x), Samples(c.y1), c.y2[0], out);
    expectFields(out, c.fields);
    ASSERT_EQ(pulses.size(), 1u);
    expectPulse(pulses[0], c.pulse);
  }
}

TEST(OneWaveform, AcThresholdPulsesWhenSwitchedOn) {
  StatisticsSettings settings{.acPulseThreshold = 0.5};
  const InstanceTraits instance{.thresholdValue = 4.0};  // threshold 2
  const Vec x = {0, 1, 2, 3, 4, 5};
  const Vec y = {0, 3, 1, 3, 3, 0};
  PwcAcEDataList pulses;
  const auto measure = [&] {
    pulses.clear();
    voltageData out{};
    out.acPulses = &pulses;
    measureOneWaveform(settings, instance, {0, 5}, Samples(x), Samples(y), 0.0, out);
  };
  measure();
  EXPECT_TRUE(pulses.empty());  // not collected
  settings.collectAcPulses = true;
  measure();
  // Pulse 1: step [1,2] (9 + 1) / 2 = 5, closed at t=2. Pulse 2: steps [3,4] 9 and [4,5] 4.5,
  // still open after the loop and flushed with end 5.
  ASSERT_EQ(pulses.size(), 2u);
  expectPulse(pulses[0], {1, 2, 3, 1, 5.0 / 9.0});
  expectPulse(pulses[1], {3, 5, 3, 3, 1.5});
  // A duration time turns the AC threshold into 0: every step opens the pulse.
  settings.durationTime = 10.0;
  measure();
  ASSERT_EQ(pulses.size(), 1u);
  EXPECT_EQ(pulses[0].start, 0.0);
  EXPECT_EQ(pulses[0].end, 5.0);

  // Records are appended only with the switch on and a list given.
  settings.collectAcPulses = false;
  recordAcPulse(settings, &pulses, {1, 2, 3, 4, 5});
  settings.collectAcPulses = true;
  recordAcPulse(settings, nullptr, {1, 2, 3, 4, 5});
  EXPECT_EQ(pulses.size(), 1u);
  recordAcPulse(settings, &pulses, {1, 2, 3, 4, 5});
  ASSERT_EQ(pulses.size(), 2u);
  EXPECT_EQ(pulses[1].fifth, 5.0);
}

struct TwoCase {
  const char* name;
  StatisticsSettings settings;
  InstanceTraits instance;
  Vec x1, y1, x2, y2;
  Want fields;
  int direction;
};

TEST(TwoWaveforms, HandWorkedCases) {
  const Vec x4 = {0, 1, 2, 3};
  const Vec x5 = {0, 1, 2, 3, 4};
  // Shared axis: d = 1 3 -1 1. Steps: areas 2, 1, 0; raw (y1) areas 2, 2, 1; squares 5, 5, 1;
  // magnitudes 2, 2, 1. The last point is never a peak candidate.
  const Vec shared1 = {1, 3, 1, 1};
  const Vec shared2 = {0, 0, 2, 0};
  // Axes 0 2 4 and 0 1 3 4, window [0.5, 2.5]. Merged points: (0, 0, 1), (1, 2, 3) with y1
  // interpolated, (2, 4, 4) with y2 interpolated, (3, 2, 5) with y1 interpolated, (4, 0, 1).
  // The step from t=0 starts before the window and is skipped; the step [2, 3] crosses the
  // stop time and is integrated whole: d = -1 at t=1, 0 at t=2, areas -0.5 and -1.5 over
  // [1, 3]; d = -3 at t=3 is the end point and not a candidate.
  const Vec xa = {0, 2, 4};
  const Vec ya = {0, 4, 0};
  const Vec xb = {0, 1, 3, 4};
  const Vec yb = {1, 3, 5, 1};
  const StatisticsSettings window{.startTime = 0.5, .stopTime = 2.5, .ignoreSign = 2};
  const TwoCase cases[] = {
      // Without AC analysis no duty ratio is written and the width is marked as not measured.
      TwoCase("shared axis", {.stopTime = 10, .ignoreSign = 2}, {}, x4, shared1, x4, shared2,
              want("peak", 3, "peakValue", 3, "peakTime", 1, "avg", 1, "rawAvg", 5.0 / 3.0,
                   "absAvg", 5.0 / 3.0, "rms", std::sqrt(11.0 / 3.0), "avgPositive", 1,
                   "avgNegative", 0, "dutyRatio", 0, "pulseWidth", 1e99),
              1),
      TwoCase("different axes, window between samples", window, {}, xa, ya, xb, yb,
              want("peak", 1, "peakValue", 2, "peakTime", 1, "avg", 1, "rawAvg", 3, "absAvg", 1,
                   "rms", std::sqrt(2.5), "avgPositive", 0, "avgNegative", 1),
              0),
      TwoCase("swapped waveforms mirror the difference", window, {}, xb, yb, xa, ya,
              want("peak", 1, "peakValue", 3, "avg", 1), 1),
      // d = 2 1 1 1: areas 1.5, 1, 1 over 3.
      TwoCase("second waveform ends first and holds its value", {.stopTime = 100}, {}, x4,
              {2, 2, 2, 2}, {0, 1}, {0, 1}, want("avg", 3.5 / 3.0, "peak", 2, "peakTime", 0), 1),
      // 0.1f is 0.100000001490116119384765625.
      TwoCase("recovery factor rounded to single precision", {.stopTime = 10, .recoveryFactor = 1},
              {.recoveryFactor = 0.1}, x5, {1, 1, -1, -1, 1}, x5, {0, 0, 0, 0, 0},
              want("avg", 0.22499999962747097), 1),
      TwoCase("AC area over peak", {.stopTime = 10, .acAnalysis = true}, {}, x4, shared1, x4,
              shared2, want("pulseWidth", 5.0 / 3.0, "dutyRatio", 5.0 / 9.0), 1),
      // The pulse opens at t=1 (4) and closes at t=3 (|d| 0.75 <= 1) after 2 > 0.5, taking
      // the raw value of the closing point.
      TwoCase("duration pulse", {.durationTime = 0.5, .stopTime = 10},
              {.thresholdValue = 1, .thresholdScale = 1}, x5, {0.5, 4, 3, 1.25, 0}, x5,
              {0, 0, 0, 0.5, 0}, want("peak", 4, "peakTime", 1, "peakValue", 1.25), 1)};
  for (const TwoCase& c : cases) {
    SCOPED_TRACE(c.name);
    voltageData out{};
    const int direction = measureTwoWaveforms(c.settings, c.instance, Samples(c.x1), Samples(c.x2),
                                              Samples(c.y1), Samples(c.y2), out);
    expectFields(out, c.fields);
    EXPECT_EQ(direction, c.direction);
  }
  // An absent waveform measures nothing, AC analysis or not.
  voltageData out{};
  EXPECT_EQ(measureTwoWaveforms({.acAnalysis = true}, {}, Samples(x4), Samples(x4),
                                Samples(shared1), Samples(), out),
            1);
  expectFields(out, want("peak", 0, "avg", 0, "pulseWidth", 1e99, "dutyRatio", 0));
}

TEST(TwoWaveforms, AcHalfPeakPulses) {
  const StatisticsSettings settings{.stopTime = 10,
                                    .acAnalysis = true,
                                    .acPeakMethod = AcPeakMethod::kHalfPeakPulses,
                                    .collectAcPulses = true};
  const PulseCase cases[] = {
      // m = 1 3 1 at the step starts, half peak 1.5: rise 0 + 1 x 0.5 / 2 = 0.25, fall
      // 1 + 1 x (-1.5) / (-2) = 1.75.
      PulseCase("closed pulse", {0, 1, 2, 3}, {1, 3, 1, 1}, {0, 0, 2, 0},
                want("pulseWidth", 1.5, "dutyRatio", 0.5), {0.25, 1.75, 3, 1, 1.5}),
      // d = 0 3 3: the pulse opens at t=1 (rise 0.5) and is still open at the last time 2;
      // it does not set the width.
      PulseCase("open at the end", {0, 1, 2}, {0, 3, 3}, {0, 0, 0},
                want("pulseWidth", 0, "dutyRatio", 0.75), {0.5, 2, 3, 1, 1.5})};
  for (const PulseCase& c : cases) {
    SCOPED_TRACE(c.name);
    PwcAcEDataList pulses;
    voltageData out{};
    out.acPulses = &pulses;
    measureTwoWaveforms(settings, {}, Samples(c.x), Samples(c.x), Samples(c.y1), Samples(c.y2),
                        out);
    expectFields(out, c.fields);
    ASSERT_EQ(pulses.size(), 1u);
    expectPulse(pulses[0], c.pulse);
  }
}

}  // namespace
}  // namespace analysis
