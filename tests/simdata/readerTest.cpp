#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "simdata/analysisFilter.h"
#include "simdata/memoryResults.h"
#include "simdata/resultsReader.h"
#include "simdata/timeRange.h"

using simdata::MemoryValue;
using simdata::MemoryVector;

namespace {

TEST(GetDataVectorAt, EveryTypeCode) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  MemoryVector doubles("d", "", std::vector<double>{2.5, nan});
  MemoryVector floats("f", "", std::vector<float>{-1.25f, std::numeric_limits<float>::quiet_NaN()});
  MemoryVector ints("i", "", std::vector<int32_t>{-7, 2147483647});
  MemoryVector bytes("b", "", std::vector<int8_t>{-128, 5});
  struct Case {
    const MemoryVector* vector;
    int index;
    double expected;
  };
  const Case cases[] = {
      {&doubles, 0, 2.5}, {&doubles, 1, 0.0},       {&floats, 0, -1.25}, {&floats, 1, 0.0},
      {&ints, 0, -7.0},   {&ints, 1, 2147483647.0}, {&bytes, 0, -128.0}, {&bytes, 1, 5.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.vector->name()) + std::to_string(c.index));
    testing::internal::CaptureStdout();
    EXPECT_EQ(simdata::getDataVectorAt(c.vector, c.index), c.expected);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  }
  EXPECT_EQ(simdata::getDataVectorAt(nullptr, 0), 0.0);
  // The other kinds read as 0.0 silently; unknown codes say so on standard output.
  for (int code = 2; code <= 20; ++code) {
    SCOPED_TRACE(code);
    if (code == 5 || code == 9) {
      continue;
    }
    MemoryVector other("o", "", std::vector<double>{3.0});
    other.setTypeOverride(code);
    const bool unknown = code == 8 || code == 10 || code == 11 || code >= 13;
    testing::internal::CaptureStdout();
    EXPECT_EQ(simdata::getDataVectorAt(&other, 0), 0.0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), unknown ? " UNKNOWN TYPE. " : "");
  }
}

TEST(GetWaveform, DescendsToTheFirstInnerWaveform) {
  auto axis = simdata::timeAxis({0.0, 1.0});
  auto first = std::shared_ptr<const simdata::Value>(
      MemoryValue::waveform("first", axis, MemoryVector::zeros("y", 2)));
  auto second = std::shared_ptr<const simdata::Value>(
      MemoryValue::waveform("second", axis, MemoryVector::zeros("y", 2)));
  auto inner = std::shared_ptr<const simdata::Value>(MemoryValue::nested("inner", {first, second}));
  auto outer = MemoryValue::nested("outer", {inner});
  EXPECT_EQ(outer->dimension(), 3);
  EXPECT_EQ(simdata::getWaveform(outer.get()), first.get());
  EXPECT_EQ(simdata::getWaveform(inner.get()), first.get());
  EXPECT_EQ(simdata::getWaveform(first.get()), first.get());
  EXPECT_EQ(simdata::getWaveform(MemoryValue::nested("hollow", {}).get()), nullptr);
  EXPECT_EQ(simdata::getWaveform(nullptr), nullptr);
}

TEST(TimeRange, FromSweepDimensions) {
  using simdata::Range;
  using simdata::Sweep;
  using simdata::SweepDimension;
  struct Case {
    const char* name;
    std::vector<SweepDimension> dimensions;
    bool found;
    double start, stop;
  };
  const Case cases[] = {
      {"double", {{"time", Range{simdata::kFloat64, 1e-9, 2.5e-9}}}, true, 1e-9, 2.5e-9},
      {"int, any case", {{"TIME", Range{simdata::kInt32, 2.7, 9.9}}}, true, 2.0, 9.0},
      {"float", {{"Time", Range{simdata::kFloat32, 0.1, 0.3}}}, true, double(0.1f), double(0.3f)},
      {"other type", {{"time", Range{simdata::kInt8, 5.0, 6.0}}}, true, 0.0, 1.0},
      {"no range", {{"time", std::nullopt}}, false, 0, 0},
      {"not time", {{"frequency", Range{simdata::kFloat64, 1.0, 2.0}}}, false, 0, 0},
      {"last time wins, rangeless ignored",
       {{"time", Range{simdata::kFloat64, 1.0, 2.0}},
        {"time", Range{simdata::kFloat64, 3.0, 4.0}},
        {"time", std::nullopt}},
       true,
       3.0,
       4.0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Sweep sweep;
    for (const SweepDimension& dimension : c.dimensions) {
      sweep.add(dimension);
    }
    const auto range = simdata::sweepTimeRange(&sweep);
    ASSERT_EQ(range.has_value(), c.found);
    if (range) {
      EXPECT_EQ(range->start, c.start);
      EXPECT_EQ(range->stop, c.stop);
    }
  }
  EXPECT_FALSE(simdata::sweepTimeRange(nullptr));
}

TEST(TimeRange, IndicesOfAWindow) {
  struct Case {
    const char* name;
    std::vector<double> axis;
    double start, stop;
    int startIndex, stopIndex;
  };
  const Case cases[] = {
      {"inside", {0, 1, 2, 3}, 1.5, 2.5, 1, 2},
      {"stop before every sample", {0, 1, 2, 3}, 1.5, -1.0, 1, 4},
      {"on samples", {0, 1, 2, 3}, 1.0, 3.0, 1, 3},
      {"start before every sample", {1, 2, 3}, 0.5, 10.0, 0, 2},
      {"unsorted: the last match wins", {0, 3, 1, 2}, 1.5, 2.5, 2, 3},
      {"NaN reads as 0", {std::nan(""), 5.0}, 1.0, 1.0, 0, 0},
      {"empty", {}, 0.0, 1.0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MemoryVector axis("time", "s", c.axis);
    int startIndex = -5;
    int stopIndex = -5;
    simdata::timeRangeIndices(&axis, c.start, c.stop, startIndex, stopIndex);
    EXPECT_EQ(startIndex, c.startIndex);
    EXPECT_EQ(stopIndex, c.stopIndex);
    // The same through element access (a float axis has no contiguous double view).
    std::vector<float> narrowed(c.axis.begin(), c.axis.end());
    MemoryVector floatAxis("time", "s", narrowed);
    simdata::timeRangeIndices(&floatAxis, c.start, c.stop, startIndex, stopIndex);
    EXPECT_EQ(startIndex, c.startIndex);
    EXPECT_EQ(stopIndex, c.stopIndex);
  }
  int startIndex = -5;
  int stopIndex = -5;
  simdata::timeRangeIndices(nullptr, 0.0, 1.0, startIndex, stopIndex);
  EXPECT_EQ(startIndex, 0);
  EXPECT_EQ(stopIndex, 2147483647);
}

}  // namespace
