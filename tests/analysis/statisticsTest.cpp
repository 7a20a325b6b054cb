// The waveform statistics on small waveforms worked out by hand: the cases are in
// tests/data/analysis/statistics_cases.txt (the sample rule) and exact_window_cases.txt
// (windowMode exact), this file only runs them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "analysis/exactWindow.h"
#include "analysis/statistics.h"
#include "support/caseTable.h"
#include "support/voltageFields.h"

namespace analysis {
namespace {

using testing_support::TableCase;

StatisticsSettings settingsOf(const TableCase& c) {
  static const std::map<std::string, void (*)(StatisticsSettings&, double)> setters = {
      {"durationTime", [](StatisticsSettings& s, double v) { s.durationTime = v; }},
      {"startTime", [](StatisticsSettings& s, double v) { s.startTime = v; }},
      {"stopTime", [](StatisticsSettings& s, double v) { s.stopTime = v; }},
      {"ignoreSign", [](StatisticsSettings& s, double v) { s.ignoreSign = static_cast<int>(v); }},
      {"acAnalysis", [](StatisticsSettings& s, double v) { s.acAnalysis = v != 0; }},
      {"halfPeakPulses",
       [](StatisticsSettings& s, double) { s.acPeakMethod = AcPeakMethod::kHalfPeakPulses; }},
      {"recoveryFactor",
       [](StatisticsSettings& s, double v) { s.recoveryFactor = static_cast<float>(v); }},
      {"emRecoveryFactorGiven",
       [](StatisticsSettings& s, double v) { s.emRecoveryFactorGiven = v != 0; }},
      {"emRecoveryFactor",
       [](StatisticsSettings& s, double v) { s.emRecoveryFactor = static_cast<float>(v); }},
      {"acPulseThreshold", [](StatisticsSettings& s, double v) { s.acPulseThreshold = v; }},
      {"collectAcPulses", [](StatisticsSettings& s, double v) { s.collectAcPulses = v != 0; }},
      {"windowMode", [](StatisticsSettings& s, double v) {
         s.windowMode = v != 0 ? WindowMode::kExact : WindowMode::kLegacy;
       }}};
  StatisticsSettings s;
  for (const auto& [name, value] : c.named("settings")) {
    EXPECT_TRUE(setters.count(name)) << name;
    if (setters.count(name)) {
      setters.at(name)(s, value);
    }
  }
  return s;
}

InstanceTraits instanceOf(const TableCase& c) {
  InstanceTraits t;
  for (const auto& [name, value] : c.named("instance")) {
    if (name == "thresholdValue") {
      t.thresholdValue = value;
    } else if (name == "thresholdScale") {
      t.thresholdScale = value;
    } else if (name == "orientation") {
      t.orientation = static_cast<int>(value);
    } else if (name == "directionKnown") {
      t.directionKnown = static_cast<int>(value);
    } else {
      EXPECT_EQ(name, "recoveryFactor");
      t.recoveryFactor = value;
    }
  }
  return t;
}

double voltageData::*field(const std::string& name) {
  EXPECT_TRUE(testing_support::voltageFields().count(name)) << name;
  return testing_support::voltageFields().count(name) ? testing_support::voltageFields().at(name)
                                                      : &voltageData::peak;
}

/// The key's numbers, or absent values when the case says "absent".
Samples samplesOf(const TableCase& c, const std::string& key, std::vector<double>& storage) {
  if (c.word(key) == "absent") {
    return Samples();
  }
  storage = c.numbers(key);
  return Samples(storage);
}

/// Measures a case with the kernels its window mode selects; returns the direction.
int measureCase(const TableCase& c, voltageData& out) {
  std::vector<double> x, y, x2, y2;
  const StatisticsSettings settings = settingsOf(c);
  const bool exact = settings.windowMode == WindowMode::kExact;
  if (c.word("measure") == "one") {
    if (exact) {
      return measureOneWaveformExact(settings, instanceOf(c), samplesOf(c, "x", x),
                                     samplesOf(c, "y", y), c.number("ref"), out);
    }
    std::vector<double> range = c.numbers("range");
    EXPECT_EQ(range.size(), 2u);
    range.resize(2);
    return measureOneWaveform(settings, instanceOf(c),
                              {static_cast<int>(range[0]), static_cast<int>(range[1])},
                              samplesOf(c, "x", x), samplesOf(c, "y", y), c.number("ref"), out);
  }
  EXPECT_EQ(c.word("measure"), "two");
  auto measure = exact ? measureTwoWaveformsExact : measureTwoWaveforms;
  return measure(settings, instanceOf(c), samplesOf(c, "x", x), samplesOf(c, "x2", x2),
                 samplesOf(c, "y", y), samplesOf(c, "y2", y2), out);
}

void runCaseTable(const std::string& file) {
  for (const TableCase& c : testing_support::readCaseTable("analysis/" + file)) {
    SCOPED_TRACE(file + ":" + std::to_string(c.line) + ": " + c.name);
    PwcAcEDataList pulses;
    voltageData out{};
    out.acPulses = &pulses;
    for (const auto& [name, value] : c.named("preset")) {
      out.*field(name) = value;
    }
    const int direction = measureCase(c, out);
    // Hand values of rationals are their nearest doubles: a case may allow the last bits.
    const double tolerance = c.number("tolerance");
    for (const auto& [name, value] : c.named("want")) {
      if (tolerance == 0.0) {
        EXPECT_EQ(out.*field(name), value) << name;
      } else {
        EXPECT_NEAR(out.*field(name), value, tolerance * std::max(std::fabs(value), 1.0)) << name;
      }
    }
    EXPECT_EQ(direction, c.number("direction", 1));
    ASSERT_EQ(pulses.size(), c.all("pulse").size());
    for (size_t i = 0; i < pulses.size(); ++i) {
      const kraDB::PwcAcEData& got = pulses[i];
      EXPECT_EQ((std::vector<double>{got.start, got.end, got.maximum, got.maximumTime, got.fifth}),
                testing_support::toNumbers(c.all("pulse")[i]))
          << "pulse " << i;
    }
  }
}

TEST(Statistics, HandWorkedCases) { runCaseTable("statistics_cases.txt"); }

TEST(Statistics, HandWorkedExactWindows) { runCaseTable("exact_window_cases.txt"); }

TEST(Statistics, PulseRecordsNeedTheSwitchAndAList) {
  StatisticsSettings settings;
  PwcAcEDataList pulses;
  recordAcPulse(settings, &pulses, {1, 2, 3, 4, 5});
  settings.collectAcPulses = true;
  recordAcPulse(settings, nullptr, {1, 2, 3, 4, 5});
  EXPECT_TRUE(pulses.empty());
  recordAcPulse(settings, &pulses, {1, 2, 3, 4, 5});
  ASSERT_EQ(pulses.size(), 1u);
  EXPECT_EQ(pulses[0].fifth, 5.0);
}

}  // namespace
}  // namespace analysis
