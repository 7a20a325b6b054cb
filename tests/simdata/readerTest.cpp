// Reading values: the first inner waveform of nested values. Elements of every type code, the
// time window of a sweep and its indices on an axis are cases of tests/data/app/rules.txt.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "simdata/memoryResults.h"
#include "simdata/resultsReader.h"

using simdata::MemoryValue;
using simdata::MemoryVector;

namespace {

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
