// From reader values to kernel inputs: nested sweeps, the dispatch by signal index and the DC
// difference. Element types and NaN (samplesOf) are cases of tests/data/app/rules.txt.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "analysis/instanceMeasure.h"
#include "simdata/memoryResults.h"

namespace analysis {
namespace {

using simdata::MemoryValue;
using simdata::MemoryVector;

std::shared_ptr<MemoryVector> doubles(std::vector<double> values) {
  return std::make_shared<MemoryVector>("v", "", std::move(values));
}

class Dispatch : public testing::Test {
 protected:
  void SetUp() override {
    time = doubles({0, 1, 2});
    // 0: a = 1 3 1; 1: b = 0 1 0; 2: a as floats inside a two-level sweep.
    values.add(MemoryValue::waveform("a", time, doubles({1, 3, 1})));
    values.add(MemoryValue::waveform("b", time, doubles({0, 1, 0})));
    std::vector<std::shared_ptr<const simdata::Value>> inner;
    inner.push_back(MemoryValue::waveform(
        "a0", time, std::make_shared<MemoryVector>("a", "", std::vector<float>{1, 3, 1})));
    inner.push_back(MemoryValue::waveform("a1", time, doubles({9, 9, 9})));
    values.add(MemoryValue::nested("swept", std::move(inner)));
    // 3: a on a time axis of its own, twice as slow.
    values.add(MemoryValue::waveform("slow", doubles({0, 2, 4}), doubles({1, 3, 1})));
    settings.stopTime = 10.0;
    timeRange = [this](const simdata::Value* waveform, int& start, int& stop) {
      lookedUp.push_back(waveform);
      start = 0;
      stop = 2;
    };
  }
  int measure(int idx1, int idx2, const InstanceTraits& traits, double ref, voltageData& out) {
    return transientDifference(&values, idx1, idx2, settings, traits, ref, timeRange, scratch, out);
  }
  std::shared_ptr<MemoryVector> time;
  simdata::ValueArray values;
  StatisticsSettings settings;
  TimeRangeLookup timeRange;
  std::vector<const simdata::Value*> lookedUp;
  WaveScratch scratch;
};

TEST_F(Dispatch, ByIndexKind) {
  InstanceTraits traits;
  {
    SCOPED_TRACE("no node has a signal");
    voltageData out{};
    out.peak = 5;
    EXPECT_EQ(measure(-1, -1, traits, 0.0, out), -1);
    EXPECT_EQ(measure(-1, -3, traits, 0.0, out), -1);
    EXPECT_EQ(out.peak, 5.0);
    EXPECT_EQ(transientDifference(nullptr, 0, 1, settings, traits, 0, timeRange, scratch, out), -1);
    EXPECT_TRUE(lookedUp.empty());
  }
  // The first node against the reference 0.5 (a - 0.5 = 0.5 2.5 0.5), then the second node
  // alone, which ignores it and keeps no raw values: {idx1, idx2, peak, avg, rawAvg, peakValue}.
  const double alone[][6] = {{0, -3, 2.5, 1.5, 2.0, 3.0}, {-1, 0, 3.0, 2.0, 0.0, 0.0}};
  for (const auto& [idx1, idx2, peak, avg, rawAvg, peakValue] : alone) {
    SCOPED_TRACE(idx1);
    voltageData out{};
    lookedUp.clear();
    EXPECT_EQ(measure(static_cast<int>(idx1), static_cast<int>(idx2), traits, 0.5, out), 1);
    ASSERT_EQ(lookedUp.size(), 1u);
    EXPECT_EQ(lookedUp[0], values.at(0));
    EXPECT_EQ((std::vector<double>{out.peak, out.avg, out.rawAvg, out.peakValue}),
              (std::vector<double>{peak, avg, rawAvg, peakValue}));
  }
  {
    SCOPED_TRACE("both nodes, the reference unused");
    voltageData out{};
    EXPECT_EQ(measure(0, 1, traits, 100.0, out), 1);
    EXPECT_EQ(out.peak, 2.0);
    EXPECT_EQ(out.avg, 1.5);
    EXPECT_EQ(lookedUp.size(), 1u);  // the merged measure uses the window, not indices
  }
  {
    SCOPED_TRACE("nested sweep: the first inner waveform, read from floats");
    voltageData nested{};
    voltageData plain{};
    measure(2, 1, traits, 0.0, nested);
    measure(0, 1, traits, 0.0, plain);
    EXPECT_EQ(nested.avg, plain.avg);
    EXPECT_EQ(nested.rms, plain.rms);
    EXPECT_EQ(nested.peak, plain.peak);
  }
  {
    SCOPED_TRACE("a different time axis after the shared one");
    voltageData shared{};
    voltageData slow{};
    measure(0, -1, traits, 0.0, shared);
    measure(3, -1, traits, 0.0, slow);
    EXPECT_EQ(shared.peakTime, 1.0);
    EXPECT_EQ(slow.peakTime, 2.0);
    voltageData mixed{};
    measure(3, 1, traits, 0.0, mixed);  // a - b on the union of both axes
    // Points 0 1 2 4: a = 1 2 3 1 (2 interpolated at t=1), b = 0 1 0 0 (held after t=2).
    EXPECT_EQ(mixed.peak, 3.0);
    EXPECT_EQ(mixed.peakTime, 2.0);
  }
  {
    SCOPED_TRACE("a node whose signal was not found reads as no data");
    voltageData out{};
    EXPECT_EQ(measure(-2, 1, traits, 0.0, out), 1);
    EXPECT_EQ(out.peak, 0.0);
  }
}

TEST_F(Dispatch, OrientationOfTheSecondNodeAloneIsMapped) {
  // The first node alone: 1 inverts. The second node alone: 1 gives the plain direction,
  // 0 the inverted one, anything else none.
  struct Case {
    int idx1;
    int idx2;
    int orientation;
    int direction;
  };
  const Case cases[] = {{0, -1, 1, 0}, {0, -1, 0, 1},  {-1, 0, 1, 1},
                        {-1, 0, 0, 0}, {-1, 0, 4, -1}, {-1, 0, -1, -1}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.idx1 << " " << c.idx2 << " " << c.orientation);
    InstanceTraits traits;
    traits.orientation = c.orientation;
    traits.directionKnown = 1;  // so that only the orientation decides
    voltageData out{};
    EXPECT_EQ(measure(c.idx1, c.idx2, traits, 0.0, out), c.direction);
  }
}

TEST(DcDifference, ScalarsVectorsAndMissingValues) {
  simdata::ValueArray values;
  values.add(MemoryValue::scalarValue("a", 1.25));
  values.add(MemoryValue::waveform("b", doubles({0}), doubles({0.25, 9})));
  values.add(nullptr);
  struct Case {
    int idx1;
    int idx2;
    double peak;
    double peakValue;
  };
  const Case cases[] = {{0, 1, 1.0, 1.25},   {1, 0, 1.0, 0.25},  {0, -1, 1.25, 1.25},
                        {0, -3, 1.25, 1.25}, {-1, 1, 0.25, 0.0}, {0, 2, 1.25, 1.25},
                        {2, 0, 1.25, 0.0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.idx1 << " " << c.idx2);
    voltageData out{};
    out.avg = 7;
    dcDifference(&values, c.idx1, c.idx2, out);
    EXPECT_EQ(out.peak, c.peak);
    EXPECT_EQ(out.peakValue, c.peakValue);
    EXPECT_EQ(out.avg, 7.0);  // nothing else written
  }
  voltageData untouched{};
  untouched.peak = 3;
  dcDifference(nullptr, 0, 1, untouched);
  EXPECT_EQ(untouched.peak, 3.0);
}

}  // namespace
}  // namespace analysis
