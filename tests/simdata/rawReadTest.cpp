// What the reader cases of tests/data/readers cannot show: bulk reads of odd signal arrays,
// column gathers, float32 values through the statistics. The naming rules are cases of
// tests/data/app/rules.txt.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "analysis/instanceMeasure.h"
#include "app/analyzeNetlist.h"
#include "simdata/rawBackend.h"
#include "simdata/rawFile.h"
#include "simdata/viewValues.h"
#include "support/testFiles.h"

using simdata::raw::Plot;
using simdata::raw::RawFile;
using testing_support::readFile;
using testing_support::ScratchDir;

namespace {

std::string caseInput(const std::string& name) {
  return std::string(KRA2_SOURCE_DIR) + "/tests/data/readers/" + name + "/input";
}

std::unique_ptr<simdata::ValueArray> readAll(simdata::Dataset* dataset) {
  simdata::SignalArray batch(dataset->signals()->count());
  for (int k = 0; k < dataset->signals()->count(); ++k) {
    batch.add(dataset->signals()->at(k));
  }
  return dataset->read(batch);
}

// A copy of a signal (as the run loop keeps them), a repeat, the scale, a null entry and a
// signal of another dataset; one shared time axis for the whole read and for later reads.
TEST(RawBackend, BulkReadOfOddSignalArrays) {
  const std::string path = caseInput("raw_ngspice_tran_binary");
  auto results = simdata::RawBackend().open(path);
  ASSERT_TRUE(results);
  simdata::Dataset* tran = results->findDataset("tran");
  const simdata::SignalList* signals = tran->signals();
  EXPECT_EQ(tran->findSignal("V(OUT)"), signals->at(2));
  EXPECT_EQ(tran->findSignal("nothere"), nullptr);
  const simdata::Signal copy = *signals->at(1);
  const simdata::Signal foreign{"x", "v(x)", "voltage", 1};
  simdata::SignalArray batch(6);
  for (const simdata::Signal* signal : {signals->at(3), &copy, signals->at(3), signals->at(0),
                                        static_cast<const simdata::Signal*>(nullptr), &foreign}) {
    batch.add(signal);
  }
  auto values = tran->read(batch);
  ASSERT_EQ(values->count(), 6);
  EXPECT_EQ(values->at(4), nullptr);
  EXPECT_EQ(values->at(5), nullptr);
  const simdata::Value* current = values->at(0);
  ASSERT_TRUE(current && values->at(1) && values->at(2) && values->at(3));
  EXPECT_STREQ(current->resultsDirName(), path.c_str());
  EXPECT_EQ(current->xVector(), values->at(1)->xVector());
  EXPECT_EQ(current->xVector(), values->at(3)->yVector());
  EXPECT_EQ(tran->readValue("in")->xVector(), current->xVector());
  EXPECT_EQ(current->yVector()->doubles().size(), 69u);
  for (int p = 0; p < 69; ++p) {
    EXPECT_EQ(values->at(2)->yVector()->doubleAt(p), current->yVector()->doubleAt(p));
  }
  EXPECT_EQ(current->yVector()->doubleAt(-1), 0.0);
  EXPECT_EQ(current->yVector()->doubleAt(69), 0.0);

  // Complex values are an "other kind": no double view, read as 0.0, the real part reachable.
  auto ac = simdata::RawBackend().open(caseInput("raw_ngspice_ac"));
  const auto in = ac->findDataset("ac")->readValue("in");
  EXPECT_TRUE(in->yVector()->doubles().empty());
  EXPECT_EQ(in->yVector()->doubleAt(0), 1.0);
  EXPECT_EQ(simdata::getDataVectorAt(in->yVector(), 0), 0.0);
}

TEST(RawFile, GatherReadsAnyColumnsInOnePass) {
  // Two points of time, v(n1), v(n2) (raw_binary_two_plots): 0 1 2 and 1e-9 3 4.
  std::string error;
  auto file = RawFile::open(caseInput("raw_binary_two_plots"), error);
  ASSERT_TRUE(file) << error;
  const Plot& plot = file->plots()[0];
  const int columns[] = {2, 1, 2, 0};
  std::vector<std::vector<double>> out(4, std::vector<double>(2, -1.0));
  double* targets[] = {out[0].data(), out[1].data(), out[2].data(), out[3].data()};
  file->gather(plot, columns, targets);
  const std::vector<std::vector<double>> expected = {{2, 4}, {1, 3}, {2, 4}, {0, 1e-9}};
  EXPECT_EQ(out, expected);
  // An out-of-range column is refused as a whole.
  const int bad[] = {1, 3};
  std::vector<double> untouched(2, -1.0);
  double* badTargets[] = {untouched.data(), untouched.data()};
  file->gather(plot, bad, badTargets);
  EXPECT_EQ(untouched, std::vector<double>(2, -1.0));

  // Decoded values by variable and point (the backend itself only asks for point 0): v(a) of
  // raw_text_unpadded is 1 2 3, its short vector 5e-3 padded with zeros.
  auto decoded = RawFile::open(caseInput("raw_text_unpadded"), error);
  ASSERT_TRUE(decoded) << error;
  const Plot& unpadded = decoded->plots()[0];
  EXPECT_EQ(decoded->valueAt(unpadded, 1, 2), 3.0);
  EXPECT_EQ(decoded->valueAt(unpadded, 2, 0), 5e-3);
  EXPECT_EQ(decoded->valueAt(unpadded, 2, 1), 0.0);
}

// Float32 vectors reach the statistics as doubles, NaN read as 0.0 as getDataVectorAt reads it.
TEST(RawDialects, Float32VectorsWidenForTheStatistics) {
  const std::vector<float> values = {1.5f, std::nanf(""), -2.25f};
  const simdata::ViewVector vector("v", "V", nullptr, values);
  std::vector<double> scratch;
  const analysis::Samples samples = analysis::samplesOf(&vector, scratch);
  ASSERT_EQ(samples.size(), 3);
  EXPECT_EQ(samples[0], 1.5);
  EXPECT_EQ(samples[1], 0.0);
  EXPECT_EQ(samples[2], -2.25);

  // A DC measure of a stepped operating point reads the first step.
  auto file = simdata::RawBackend().open(caseInput("raw_lt_stepped_operating_point"));
  ASSERT_TRUE(file);
  const auto stepped = readAll(file->findDataset("op"));
  voltageData data0{};
  analysis::dcDifference(stepped.get(), 1, -1, data0);
  EXPECT_EQ(data0.peakValue, 0.5);
}

// A float32 file and the same values stored as float64 must give the same statistics.
TEST(RawDialects, RunOverFloat32ValuesMatchesFloat64) {
  std::vector<std::vector<double>> results;
  for (const char* name : {"raw_lt_utf16_transient", "raw_lt_utf16_transient_double"}) {
    ScratchDir dir;
    testing_support::writeFile(dir.file("net"), "R1 out 0\nR2 out I(R1)\n");
    simdata::initialise();
    zeAnalyzeNetlist session;
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
    const ArgList open{caseInput(name)}, select{"tran"}, net{dir.file("net")}, window{"0", "3e-9"};
    testing::internal::CaptureStdout();
    EXPECT_EQ(session.processOpenSimDataCmd(&open), 0);
    EXPECT_EQ(session.processSelectAnalysisCmd(&select), 0);
    EXPECT_EQ(session.processLoadNetlistCmd(&net), 0);
    EXPECT_EQ(session.processRunCmd(&window, 0), 0);
    testing::internal::GetCapturedStdout();
    std::vector<double> numbers;
    for (const zeInstance& instance : session.instances.instances) {
      numbers.insert(numbers.end(), {instance.data.peak, instance.data.avg, instance.data.rms,
                                     instance.data.peakTime});
    }
    results.push_back(numbers);
  }
  ASSERT_EQ(results[0].size(), 8u);
  EXPECT_EQ(results[0][0], 1.0);  // the peak of V(out), at t = 0
  EXPECT_EQ(results[0], results[1]);
}

}  // namespace
