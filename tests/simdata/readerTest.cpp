// Reading values: element types and the first inner waveform of nested values. The time
// window of a sweep and its indices on an axis are cases of tests/data/app/rules.txt.

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "simdata/memoryResults.h"
#include "simdata/resultsReader.h"

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

}  // namespace
