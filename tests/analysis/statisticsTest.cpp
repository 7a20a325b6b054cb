// Kernel tests on small waveforms whose statistics were worked out by hand (the step-by-step
// sums are in the comments).

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "analysis/statistics.h"

namespace analysis {
namespace {

using Vec = std::vector<double>;

Samples view(const Vec& values) { return Samples(values); }

voltageData zeroed() { return voltageData{}; }

StatisticsSettings polaritySettings(int ignoreSign) {
  StatisticsSettings settings;
  settings.ignoreSign = ignoreSign;
  return settings;
}

// x = 0 1 2 3, y = 0 2 -2 0. Steps: [0,1] area 1, [1,2] area 0 (mid 0 counts positive),
// [2,3] area -1. Squares: 2 + 4 + 2 = 8; magnitudes: 1 + 2 + 1 = 4.
TEST(OneWaveform, TriangleSumsTiesAndNormalisation) {
  const Vec x = {0, 1, 2, 3};
  const Vec y = {0, 2, -2, 0};
  voltageData out = zeroed();
  const int direction =
      measureOneWaveform(polaritySettings(2), {}, {0, 3}, view(x), view(y), 0.0, out);
  EXPECT_EQ(out.peak, 2.0);
  // |2| at t=1 and |-2| at t=2 tie: the later sample wins.
  EXPECT_EQ(out.peakTime, 2.0);
  EXPECT_EQ(out.peakValue, -2.0);
  EXPECT_EQ(out.avg, 0.0);
  EXPECT_EQ(out.rawAvg, 0.0);
  EXPECT_DOUBLE_EQ(out.rms, std::sqrt(8.0 / 3.0));
  EXPECT_DOUBLE_EQ(out.absAvg, 4.0 / 3.0);
  // Positive time 2 (the zero-mid step included), negative time 1.
  EXPECT_EQ(out.avgPositive, 0.5);
  EXPECT_EQ(out.avgNegative, 1.0);
  EXPECT_EQ(out.dutyRatio, 1.0);  // no AC measure
  EXPECT_EQ(out.pulseWidth, 0.0);
  EXPECT_EQ(direction, 1);  // a zero average is not negative
}

TEST(OneWaveform, PolaritySplitFollowsTheIgnoreSetting) {
  const Vec x = {0, 1, 2, 3};
  const Vec y = {0, 2, -2, 0};
  struct Case {
    int ignoreSign;
    double avgPositive;
    double avgNegative;
  };
  const Case cases[] = {{0, 0.0, 0.0}, {-1, 0.5, 0.0}, {1, 0.0, 1.0}, {2, 0.5, 1.0}, {7, 0, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ignoreSign);
    voltageData out = zeroed();
    measureOneWaveform(polaritySettings(c.ignoreSign), {}, {0, 3}, view(x), view(y), 0.0, out);
    EXPECT_EQ(out.avgPositive, c.avgPositive);
    EXPECT_EQ(out.avgNegative, c.avgNegative);
  }
}

TEST(OneWaveform, ConstantWaveformAndTheOneStepOverrun) {
  const Vec x = {0, 1, 2, 3, 4};
  const Vec y = {2, 2, 2, 2, 2};
  struct Case {
    IndexRange range;
    double avg;  // |c| (stop - start + 1) / (stop - start) while stop is not the last index
    double rms2;
  };
  const Case cases[] = {{{0, 4}, 2.0, 4.0}, {{1, 2}, 4.0, 8.0}, {{0, 2}, 3.0, 6.0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.range.stop);
    voltageData out = zeroed();
    measureOneWaveform(polaritySettings(2), {}, c.range, view(x), view(y), 0.0, out);
    EXPECT_EQ(out.avg, c.avg);
    EXPECT_EQ(out.rawAvg, c.avg);
    EXPECT_EQ(out.absAvg, c.avg);
    EXPECT_EQ(out.avgPositive, 2.0);  // area over positive time: the overrun is in both
    EXPECT_DOUBLE_EQ(out.rms * out.rms, c.rms2);
    EXPECT_EQ(out.peakValue, 2.0);
  }
}

TEST(OneWaveform, ReferenceIsSubtractedButRawAverageKeepsTheNode) {
  const Vec x = {0, 1, 2};
  const Vec y = {1.75, 1.0, 1.75};
  voltageData out = zeroed();
  const int direction =
      measureOneWaveform(polaritySettings(0), {}, {0, 2}, view(x), view(y), 1.25, out);
  // d = 0.5, -0.25, 0.5: the peak is the last 0.5 (tie); step areas 0.125 and 0.125.
  EXPECT_EQ(out.peak, 0.5);
  EXPECT_EQ(out.peakValue, 1.75);
  EXPECT_EQ(out.peakTime, 2.0);
  EXPECT_EQ(out.avg, 0.125);
  EXPECT_EQ(out.rawAvg, 1.375);
  EXPECT_EQ(out.absAvg, 0.375);
  EXPECT_EQ(direction, 1);
}

TEST(OneWaveform, EmptyAndSingleSampleRanges) {
  const Vec x = {0, 1, 2, 3};
  const Vec y = {1, 2, 3, -5};
  {
    SCOPED_TRACE("single sample at the last index");
    voltageData out = zeroed();
    measureOneWaveform(polaritySettings(2), {}, {3, 3}, view(x), view(y), 0.0, out);
    EXPECT_EQ(out.peak, 5.0);
    EXPECT_EQ(out.peakValue, -5.0);
    EXPECT_EQ(out.peakTime, 3.0);
    EXPECT_EQ(out.avg, 0.0);
    EXPECT_EQ(out.rms, 0.0);
    EXPECT_EQ(out.absAvg, 0.0);
    EXPECT_EQ(out.dutyRatio, 0.0);  // range length 0: nothing normalised
  }
  const IndexRange empties[] = {{4, 9}, {2, 1}, {100, 2147483647}};
  for (const IndexRange& range : empties) {
    SCOPED_TRACE(range.start);
    voltageData out = zeroed();
    const int direction =
        measureOneWaveform(polaritySettings(2), {}, range, view(x), view(y), 0.0, out);
    EXPECT_EQ(out.peak, 0.0);
    EXPECT_EQ(out.avg, 0.0);
    EXPECT_EQ(out.rms, 0.0);
    EXPECT_EQ(out.peakTime, 0.0);
    EXPECT_EQ(direction, 1);
  }
  {
    SCOPED_TRACE("absent values");
    voltageData out = zeroed();
    out.dutyRatio = 7.0;
    const int direction =
        measureOneWaveform(polaritySettings(2), {}, {0, 3}, view(x), Samples(), 0.0, out);
    EXPECT_EQ(out.peak, 0.0);
    EXPECT_EQ(out.dutyRatio, 0.0);  // duty sum 0 over the range length 3
    EXPECT_EQ(direction, 1);
  }
}

TEST(OneWaveform, StopBeyondTheDataReadsTheRangeEndAsZero) {
  // A stop index past the data (every sample after the stop time) makes x[stop] read as 0:
  // the range length is then negative and nothing is normalised.
  const Vec x = {1, 2, 3};
  const Vec y = {1, 1, 1};
  voltageData out = zeroed();
  measureOneWaveform(polaritySettings(0), {}, {0, 3}, view(x), view(y), 0.0, out);
  EXPECT_EQ(out.avg, 2.0);
  EXPECT_EQ(out.rms, 2.0);  // the integral of d^2, not yet a root
}

TEST(OneWaveform, DurationPulsesMustOutlastTheDuration) {
  StatisticsSettings settings = polaritySettings(0);
  settings.durationTime = 1.5;
  InstanceTraits instance;
  instance.thresholdValue = 2.0;
  instance.thresholdScale = 0.5;  // threshold 1
  const Vec x = {0, 1, 2, 3, 4, 5, 6, 7};
  const Vec y = {0.5, 5, 0, 0.8, -3, 3, -0.25, 2};
  // t=0 plain peak 0.5; the pulse at t=1 closes at t=2 after 1 <= 1.5 and is dropped; t=3
  // (0.8) wins by the plain rule; the pulse opened at t=4 (max 3, an equal 3 at t=5 does not
  // move its time) closes at t=6 after 2 > 1.5 and holds the peak with the raw value of the
  // closing sample; the pulse open at t=7 is never accepted.
  struct Case {
    int stop;  // the last sample whose peak rule runs
    double peak;
    double peakTime;
    double peakValue;
  };
  const Case cases[] = {{1, 0.5, 0.0, 0.5}, {3, 0.8, 3.0, 0.8}, {7, 3.0, 4.0, -0.25}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.stop);
    voltageData out = zeroed();
    measureOneWaveform(settings, instance, {0, c.stop}, view(x), view(y), 0.0, out);
    EXPECT_EQ(out.peak, c.peak);
    EXPECT_EQ(out.peakTime, c.peakTime);
    EXPECT_EQ(out.peakValue, c.peakValue);
  }
}

TEST(OneWaveform, RecoveryWeighting) {
  // x = 0..4, y = 1 1 -1 -1 1: positive area 1, negative area -1, range length 4.
  const Vec x = {0, 1, 2, 3, 4};
  const Vec y = {1, 1, -1, -1, 1};
  struct Case {
    const char* name;
    float recoveryFactor;
    bool emGiven;
    float emFactor;
    double instanceFactor;
    double avg;
  };
  const Case cases[] = {
      {"none", 0.0f, false, 1.0f, 0.5, 0.0},
      {"instance factor", 1.0f, false, 1.0f, 0.5, 0.125},
      {"instance factor wins over em", 1.0f, true, 0.25f, 0.5, 0.125},
      {"em factor", 0.0f, true, 0.25f, 0.5, 0.1875},
      {"instance factor in double precision", 1.0f, false, 1.0f, 0.1, (1.0 - 0.1) / 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    StatisticsSettings settings;
    settings.recoveryFactor = c.recoveryFactor;
    settings.emRecoveryFactorGiven = c.emGiven;
    settings.emRecoveryFactor = c.emFactor;
    InstanceTraits instance;
    instance.recoveryFactor = c.instanceFactor;
    voltageData out = zeroed();
    measureOneWaveform(settings, instance, {0, 4}, view(x), view(y), 0.0, out);
    EXPECT_EQ(out.avg, c.avg);
  }
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
  const Case cases[] = {
      {&up, 0, -1, 1},  {&up, 0, 1, 0},    {&up, 0, 0, 1},   {&up, 0, 5, 1},   {&up, 1, -1, -1},
      {&up, 1, 1, 0},   {&down, 0, -1, 0}, {&down, 0, 1, 1}, {&down, 0, 0, 0}, {&down, 1, -1, -1},
      {&down, 1, 0, 0}, {&flat, 0, -1, 1}, {&flat, 0, 1, 0}, {&flat, 1, 3, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message()
                 << (*c.y)[0] << " known " << c.directionKnown << " orientation " << c.orientation);
    InstanceTraits instance;
    instance.directionKnown = c.directionKnown;
    instance.orientation = c.orientation;
    voltageData out = zeroed();
    EXPECT_EQ(measureOneWaveform({}, instance, {0, 1}, view(x), view(*c.y), 0.0, out), c.direction);
  }
}

TEST(OneWaveform, AcAreaOverPeak) {
  StatisticsSettings settings;
  settings.acAnalysis = true;
  const Vec x = {0, 1, 2, 3};
  const Vec y = {0, 2, 2, 0};
  voltageData out = zeroed();
  measureOneWaveform(settings, {}, {0, 3}, view(x), view(y), 0.0, out);
  // Area of |d| is 1 + 2 + 1 = 4, peak 2: width 2 (seconds), duty 2 / 3.
  EXPECT_EQ(out.pulseWidth, 2.0);
  EXPECT_DOUBLE_EQ(out.dutyRatio, 2.0 / 3.0);
  // A flat zero waveform has no peak: no measure, duty ratio 1.
  const Vec zero = {0, 0, 0, 0};
  voltageData none = zeroed();
  measureOneWaveform(settings, {}, {0, 3}, view(x), view(zero), 0.0, none);
  EXPECT_EQ(none.dutyRatio, 1.0);
  EXPECT_EQ(none.pulseWidth, 0.0);
}

TEST(OneWaveform, AcHalfPeakPulses) {
  StatisticsSettings settings;
  settings.acAnalysis = true;
  settings.acPeakMethod = AcPeakMethod::kHalfPeakPulses;
  settings.collectAcPulses = true;
  struct Case {
    const char* name;
    Vec x;
    Vec y;
    double ref;
    double pulseWidth;
    double dutyRatio;
    kraDB::PwcAcEData pulse;
  };
  const Case cases[] = {
      // Half peak 2: rise between (1, 1) and (2, 4) at 1 + 1/3, fall between (3, 3) and
      // (4, 0) at 3 + 1/3.
      {"interpolated edges",
       {0, 1, 2, 3, 4},
       {0, 1, 4, 3, 0},
       0.0,
       2.0,
       0.5,
       {1.3333333333333333, 3.3333333333333335, 4, 2, 2.0}},
      // The first sample of the range is its own predecessor; a pulse open at the end
      // closes at x[stop].
      {"open at the end", {0, 1, 2}, {0, 4, 4}, 0.0, 1.5, 0.75, {0.5, 2, 4, 1, 1.5}},
      // The raw magnitude is compared, without the reference: every raw sample is above
      // half of the peak of d.
      {"raw magnitude", {0, 1, 2, 3}, {5, 5, 9, 5}, 5.0, 3.0, 1.0, {0, 3, 9, 2, 3}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PwcAcEDataList pulses;
    voltageData out = zeroed();
    out.acPulses = &pulses;
    const int last = static_cast<int>(c.x.size()) - 1;
    measureOneWaveform(settings, {}, {0, last}, view(c.x), view(c.y), c.ref, out);
    EXPECT_EQ(out.pulseWidth, c.pulseWidth);
    EXPECT_EQ(out.dutyRatio, c.dutyRatio);
    ASSERT_EQ(pulses.size(), 1u);
    EXPECT_EQ(pulses[0].start, c.pulse.start);
    EXPECT_EQ(pulses[0].end, c.pulse.end);
    EXPECT_EQ(pulses[0].maximum, c.pulse.maximum);
    EXPECT_EQ(pulses[0].maximumTime, c.pulse.maximumTime);
    EXPECT_EQ(pulses[0].fifth, c.pulse.fifth);
  }
}

TEST(OneWaveform, AcThresholdPulsesWhenSwitchedOn) {
  StatisticsSettings settings;
  settings.acPulseThreshold = 0.5;
  InstanceTraits instance;
  instance.thresholdValue = 4.0;  // threshold 2
  const Vec x = {0, 1, 2, 3, 4, 5};
  const Vec y = {0, 3, 1, 3, 3, 0};
  // Pulse 1: step [1,2] (9 + 1) / 2 = 5, closed at t=2. Pulse 2: steps [3,4] 9 and [4,5] 4.5,
  // still open after the loop and flushed with end 5.
  for (bool collect : {false, true}) {
    SCOPED_TRACE(collect);
    settings.collectAcPulses = collect;
    PwcAcEDataList pulses;
    voltageData out = zeroed();
    out.acPulses = &pulses;
    measureOneWaveform(settings, instance, {0, 5}, view(x), view(y), 0.0, out);
    if (!collect) {
      EXPECT_TRUE(pulses.empty());
      continue;
    }
    ASSERT_EQ(pulses.size(), 2u);
    EXPECT_EQ(pulses[0].start, 1.0);
    EXPECT_EQ(pulses[0].end, 2.0);
    EXPECT_EQ(pulses[0].maximum, 3.0);
    EXPECT_EQ(pulses[0].maximumTime, 1.0);
    EXPECT_EQ(pulses[0].fifth, 5.0 / 9.0);
    EXPECT_EQ(pulses[1].start, 3.0);
    EXPECT_EQ(pulses[1].end, 5.0);
    EXPECT_EQ(pulses[1].maximumTime, 3.0);
    EXPECT_EQ(pulses[1].fifth, 1.5);
  }
  // A duration time turns the AC threshold into 0: every step opens the pulse.
  settings.durationTime = 10.0;
  PwcAcEDataList pulses;
  voltageData out = zeroed();
  out.acPulses = &pulses;
  measureOneWaveform(settings, instance, {0, 5}, view(x), view(y), 0.0, out);
  ASSERT_EQ(pulses.size(), 1u);
  EXPECT_EQ(pulses[0].start, 0.0);
  EXPECT_EQ(pulses[0].end, 5.0);
}

TEST(RecordAcPulse, NeedsTheSwitchAndAList) {
  StatisticsSettings settings;
  PwcAcEDataList pulses;
  recordAcPulse(settings, &pulses, {1, 2, 3, 4, 5});
  EXPECT_TRUE(pulses.empty());
  settings.collectAcPulses = true;
  recordAcPulse(settings, nullptr, {1, 2, 3, 4, 5});
  recordAcPulse(settings, &pulses, {1, 2, 3, 4, 5});
  ASSERT_EQ(pulses.size(), 1u);
  EXPECT_EQ(pulses[0].fifth, 5.0);
}

// Two waveforms on one axis: d = 1 3 -1 1 at t = 0 1 2 3. Steps: areas 2, 1, 0; raw
// (y1) areas 2, 2, 1; squares 5, 5, 1; magnitudes 2, 2, 1. The last point is never a peak
// candidate.
TEST(TwoWaveforms, SharedAxis) {
  const Vec x = {0, 1, 2, 3};
  const Vec y1 = {1, 3, 1, 1};
  const Vec y2 = {0, 0, 2, 0};
  StatisticsSettings settings = polaritySettings(2);
  settings.startTime = 0.0;
  settings.stopTime = 10.0;
  voltageData out = zeroed();
  const int direction =
      measureTwoWaveforms(settings, {}, view(x), view(x), view(y1), view(y2), out);
  EXPECT_EQ(out.peak, 3.0);
  EXPECT_EQ(out.peakValue, 3.0);
  EXPECT_EQ(out.peakTime, 1.0);
  EXPECT_EQ(out.avg, 1.0);
  EXPECT_DOUBLE_EQ(out.rawAvg, 5.0 / 3.0);
  EXPECT_DOUBLE_EQ(out.absAvg, 5.0 / 3.0);
  EXPECT_DOUBLE_EQ(out.rms, std::sqrt(11.0 / 3.0));
  EXPECT_EQ(out.avgPositive, 1.0);  // area 3 over positive time 3
  EXPECT_EQ(out.avgNegative, 0.0);
  EXPECT_EQ(direction, 1);
  // Without AC analysis: no duty ratio written, pulse width marked as not measured.
  EXPECT_EQ(out.dutyRatio, 0.0);
  EXPECT_EQ(out.pulseWidth, 1e99);

  // Copies of the axis take the general merge; the result is the same bit for bit.
  const Vec xCopy = x;
  voltageData merged = zeroed();
  measureTwoWaveforms(settings, {}, view(x), view(xCopy), view(y1), view(y2), merged);
  EXPECT_EQ(merged.avg, out.avg);
  EXPECT_EQ(merged.rawAvg, out.rawAvg);
  EXPECT_EQ(merged.rms, out.rms);
  EXPECT_EQ(merged.absAvg, out.absAvg);
}

// x1 = 0 2 4, y1 = 0 4 0; x2 = 0 1 3 4, y2 = 1 3 5 1; window [0.5, 2.5]. Merged points:
// (0, 0, 1), (1, 2, 3) with y1 interpolated, (2, 4, 4) with y2 interpolated (3 + 2/2 x 1),
// (3, 2, 5) with y1 interpolated, (4, 0, 1). The step from t=0 starts before the window and
// is skipped; the step [2, 3] crosses the stop time and is integrated whole.
TEST(TwoWaveforms, DifferentAxesWithAWindowBetweenSamples) {
  const Vec x1 = {0, 2, 4};
  const Vec y1 = {0, 4, 0};
  const Vec x2 = {0, 1, 3, 4};
  const Vec y2 = {1, 3, 5, 1};
  StatisticsSettings settings = polaritySettings(2);
  settings.startTime = 0.5;
  settings.stopTime = 2.5;
  voltageData out = zeroed();
  const int direction =
      measureTwoWaveforms(settings, {}, view(x1), view(x2), view(y1), view(y2), out);
  // d = -1 at t=1, 0 at t=2; d = -3 at t=3 is the end point and not a candidate.
  EXPECT_EQ(out.peak, 1.0);
  EXPECT_EQ(out.peakValue, 2.0);
  EXPECT_EQ(out.peakTime, 1.0);
  // Areas -0.5 and -1.5 over [1, 3].
  EXPECT_EQ(out.avg, 1.0);
  EXPECT_EQ(direction, 0);
  EXPECT_EQ(out.rawAvg, 3.0);                 // (2 + 4) / 2 + (4 + 2) / 2 over 2
  EXPECT_EQ(out.absAvg, 1.0);                 // 0.5 + 1.5 over 2
  EXPECT_DOUBLE_EQ(out.rms, std::sqrt(2.5));  // 0.5 + 4.5 over 2
  EXPECT_EQ(out.avgPositive, 0.0);
  EXPECT_EQ(out.avgNegative, 1.0);  // 2 over negative time 2
  // Swapping the roles of the waveforms mirrors the difference.
  voltageData swapped = zeroed();
  EXPECT_EQ(measureTwoWaveforms(settings, {}, view(x2), view(x1), view(y2), view(y1), swapped), 1);
  EXPECT_EQ(swapped.avg, 1.0);
  EXPECT_EQ(swapped.peak, 1.0);
  EXPECT_EQ(swapped.peakValue, 3.0);
}

TEST(TwoWaveforms, OneWaveformEndsFirstAndItsLastValueIsHeld) {
  const Vec x1 = {0, 1, 2, 3};
  const Vec y1 = {2, 2, 2, 2};
  const Vec x2 = {0, 1};
  const Vec y2 = {0, 1};
  StatisticsSettings settings;
  settings.stopTime = 100.0;
  voltageData out = zeroed();
  measureTwoWaveforms(settings, {}, view(x1), view(x2), view(y1), view(y2), out);
  // d = 2 1 1 1: areas 1.5, 1, 1 over 3.
  EXPECT_DOUBLE_EQ(out.avg, 3.5 / 3.0);
  EXPECT_EQ(out.peak, 2.0);
  EXPECT_EQ(out.peakTime, 0.0);
}

TEST(TwoWaveforms, AbsentWaveformMeasuresNothing) {
  const Vec x = {0, 1};
  const Vec y = {1, 2};
  voltageData out = zeroed();
  StatisticsSettings settings;
  settings.acAnalysis = true;
  EXPECT_EQ(measureTwoWaveforms(settings, {}, view(x), view(x), view(y), Samples(), out), 1);
  EXPECT_EQ(out.peak, 0.0);
  EXPECT_EQ(out.avg, 0.0);
  EXPECT_EQ(out.pulseWidth, 1e99);
  EXPECT_EQ(out.dutyRatio, 0.0);
}

TEST(TwoWaveforms, AcMeasures) {
  const Vec x = {0, 1, 2, 3};
  const Vec y1 = {1, 3, 1, 1};
  const Vec y2 = {0, 0, 2, 0};
  StatisticsSettings settings;
  settings.acAnalysis = true;
  settings.stopTime = 10.0;
  settings.collectAcPulses = true;
  {
    SCOPED_TRACE("area over peak");
    voltageData out = zeroed();
    measureTwoWaveforms(settings, {}, view(x), view(x), view(y1), view(y2), out);
    EXPECT_DOUBLE_EQ(out.pulseWidth, 5.0 / 3.0);
    EXPECT_DOUBLE_EQ(out.dutyRatio, 5.0 / 9.0);
  }
  {
    // m = 1 3 1 at the step starts, half peak 1.5: rise 0 + 1 x 0.5 / 2 = 0.25, fall
    // 1 + 1 x (-1.5) / (-2) = 1.75.
    SCOPED_TRACE("half-peak pulses");
    settings.acPeakMethod = AcPeakMethod::kHalfPeakPulses;
    PwcAcEDataList pulses;
    voltageData out = zeroed();
    out.acPulses = &pulses;
    measureTwoWaveforms(settings, {}, view(x), view(x), view(y1), view(y2), out);
    EXPECT_EQ(out.pulseWidth, 1.5);
    EXPECT_EQ(out.dutyRatio, 0.5);
    ASSERT_EQ(pulses.size(), 1u);
    EXPECT_EQ(pulses[0].start, 0.25);
    EXPECT_EQ(pulses[0].end, 1.75);
    EXPECT_EQ(pulses[0].maximum, 3.0);
    EXPECT_EQ(pulses[0].maximumTime, 1.0);
  }
  {
    // d = 0 3 3: the pulse opens at t=1 (rise 0.5) and is still open at the last time 2.
    SCOPED_TRACE("half-peak pulse open at the end");
    const Vec x3 = {0, 1, 2};
    const Vec a = {0, 3, 3};
    const Vec b = {0, 0, 0};
    PwcAcEDataList pulses;
    voltageData out = zeroed();
    out.acPulses = &pulses;
    measureTwoWaveforms(settings, {}, view(x3), view(x3), view(a), view(b), out);
    EXPECT_EQ(out.pulseWidth, 0.0);  // not touched by a pulse that never closed
    EXPECT_EQ(out.dutyRatio, 0.75);
    ASSERT_EQ(pulses.size(), 1u);
    EXPECT_EQ(pulses[0].end, 2.0);
    EXPECT_EQ(pulses[0].fifth, 1.5);
  }
}

TEST(TwoWaveforms, RecoveryFactorIsRoundedToSinglePrecision) {
  const Vec x = {0, 1, 2, 3, 4};
  const Vec y1 = {1, 1, -1, -1, 1};
  const Vec y2 = {0, 0, 0, 0, 0};
  StatisticsSettings settings;
  settings.recoveryFactor = 1.0f;
  settings.stopTime = 10.0;
  InstanceTraits instance;
  instance.recoveryFactor = 0.1;
  voltageData out = zeroed();
  measureTwoWaveforms(settings, instance, view(x), view(x), view(y1), view(y2), out);
  // 0.1f is 0.100000001490116119384765625.
  EXPECT_EQ(out.avg, 0.22499999962747097);
}

TEST(TwoWaveforms, DurationPulseTakesTheRawValueOfTheClosingPoint) {
  StatisticsSettings settings;
  settings.stopTime = 10.0;
  settings.durationTime = 0.5;
  InstanceTraits instance;
  instance.thresholdValue = 1.0;
  instance.thresholdScale = 1.0;
  const Vec x = {0, 1, 2, 3, 4};
  const Vec y1 = {0.5, 4, 3, 1.25, 0};
  const Vec y2 = {0, 0, 0, 0.5, 0};
  voltageData out = zeroed();
  measureTwoWaveforms(settings, instance, view(x), view(x), view(y1), view(y2), out);
  // The pulse opens at t=1 (4) and closes at t=3 (|d| 0.75 <= 1) after 2 > 0.5.
  EXPECT_EQ(out.peak, 4.0);
  EXPECT_EQ(out.peakTime, 1.0);
  EXPECT_EQ(out.peakValue, 1.25);
}

}  // namespace
}  // namespace analysis
