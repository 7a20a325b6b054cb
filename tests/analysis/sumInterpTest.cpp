#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "analysis/sumInterp.h"
#include "support/caseTable.h"

namespace analysis {
namespace {

using simdata::MemoryVector;
using Vec = std::vector<double>;

std::shared_ptr<MemoryVector> vec(Vec values) {
  return std::make_shared<MemoryVector>("v", "", std::move(values));
}

Vec contents(const MemoryVector& vector) {
  Vec values;
  for (int i = 0; i < vector.length(); ++i) {
    values.push_back(vector.doubleAt(i));
  }
  return values;
}

/// Tracing off unless a test turns it on; the start values are put back afterwards.
class SumInterp : public testing::Test {
 protected:
  void SetUp() override {
    pgvTraceFlag = 0;
    pgvTraceLevel = 100;
  }
  void TearDown() override {
    pgvTraceFlag = 1;
    pgvTraceLevel = 100;
  }
};

TEST_F(SumInterp, MergesAxesAndHoldsTheLastValue) {
  for (const auto& c : testing_support::readCaseTable("analysis/sum_interp_cases.txt")) {
    SCOPED_TRACE(c.name);
    auto outY = vec({-1, -1, -1, -1, -1});
    auto outX = vec({-1, -1, -1, -1, -1});
    sumInterp(static_cast<int>(c.number("minTime")), vec(c.numbers("y1")).get(),
              vec(c.numbers("y2")).get(), vec(c.numbers("x1")).get(), vec(c.numbers("x2")).get(),
              outY.get(), outX.get(), true);
    EXPECT_EQ(contents(*outX), c.numbers("times"));
    EXPECT_EQ(contents(*outY), c.numbers("sums"));
  }
}

TEST_F(SumInterp, AbsentSecondWaveformAndTimesNotStored) {
  auto outY = vec({-1, -1, -1});
  auto outX = vec({-1, -1, -1});
  sumInterp(0, vec({1, 2, 3}).get(), nullptr, vec({0, 1, 2}).get(), nullptr, outY.get(), outX.get(),
            false);
  EXPECT_EQ(contents(*outY), (Vec{1, 2, 3}));
  EXPECT_EQ(contents(*outX), (Vec{-1, -1, -1}));

  // A single point writes nothing, not even entry 0.
  auto single = vec({-1});
  sumInterp(0, vec({5}).get(), nullptr, vec({0}).get(), nullptr, single.get(), nullptr, true);
  EXPECT_EQ(contents(*single), (Vec{-1}));

  // Nothing at all: no crash, nothing written.
  sumInterp(0, nullptr, nullptr, nullptr, nullptr, single.get(), nullptr, true);
  EXPECT_EQ(contents(*single), (Vec{-1}));
}

TEST_F(SumInterp, TraceTexts) {
  auto outY = vec({0, 0, 0, 0});
  auto outX = vec({0, 0, 0, 0});
  // Level 2 traces every interpolation too, and turns tracing on by itself.
  pgvTraceFlag = 0;
  pgvTraceLevel = 2;
  testing::internal::CaptureStdout();
  sumInterp(0, vec({0, 1, 4}).get(), vec({2, 6}).get(), vec({0, 1, 4}).get(), vec({0, 2}).get(),
            outY.get(), outX.get(), true);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Common time = 0  \n"
            "time = 0 v1=0 v2=2 setval= 2\n"
            "using t1 time 1 ..less than  t2 :2\n"
            " next  = 6 interp= 4\n"
            "t : 1.000000e+00 v1:1.000000e+00 + v2:4.000000e+00 : 5.000000e+00\n"
            " next  = 4 interp= 2\n"
            "using t2 time 2 ..less than  t1 :4\n"
            "t : 2.000000e+00 v1:2.000000e+00 + v2:6.000000e+00 : 8.000000e+00\n"
            "using t1 time..end of t2 :4\n"
            "t : 4.000000e+00 v1:4.000000e+00 + v2:6.000000e+00 : 1.000000e+01\n"
            " : 0 : 1 : 2 : 3 DVEC1 :3 DVEC2 :2\n"
            " XVEC1 :3  XVEC2 :2\n"
            "CT :4\n");
}

}  // namespace
}  // namespace analysis
