#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "simdata/rawBackend.h"
#include "support/testFiles.h"

using simdata::Dataset;
using simdata::RawBackend;
using simdata::ResultsDir;
using simdata::Signal;
using simdata::SignalArray;
using simdata::Value;
using testing_support::ScratchDir;

namespace {

std::string fixture(const std::string& name) {
  return std::string(KRA2_SOURCE_DIR) + "/tests/data/ngspice/" + name;
}

void copyFixture(const std::string& name, const ScratchDir& dir, const std::string& as = "") {
  std::filesystem::copy_file(fixture(name), dir.file(as.empty() ? name : as));
}

TEST(RawNaming, KindsTypesAndBareNames) {
  struct KindCase {
    const char* plotname;
    const char* kind;
    const char* type;
  };
  const KindCase kinds[] = {
      {"Transient Analysis", "tran", "tran"},
      {"DC operating point", "op", "dc"},
      {"DC transfer characteristic", "dc", "dc"},
      {"AC Analysis", "ac", "ac"},
      // The title follows the last parameter value, whatever the parameter is called.
      {"Step Analysis: Step 1 of 2 params:  name = transient value = 1  Noise Spectral Density",
       "noise", "noise"},
      {"DC Sweep: Step 2 of 6 params:  name = V1 value = 0  DC transfer characteristic", "dc",
       "dc"},
      {"Step Analysis: Step 1 of 2 params:  name = A value = 1 name = B value = 2  SP Analysis",
       "sp", "sp"},
      {"Noise Spectral Density Curves", "noise", "noise"},
      {"Transfer Function", "tf", "tf"},
      {"SP Analysis", "sp", "sp"},
      {"  ", "plot", "plot"},
  };
  for (const KindCase& c : kinds) {
    SCOPED_TRACE(c.plotname);
    const std::string kind = simdata::raw::analysisKind(c.plotname);
    EXPECT_EQ(kind, c.kind);
    EXPECT_EQ(simdata::raw::analysisTypeOfKind(kind), c.type);
  }
  const std::pair<const char*, const char*> names[] = {
      {"v(n1)", "n1"}, {"V(N001)", "N001"}, {"i(vdd)", "i(vdd)"},         {"time", "time"},
      {"v()", "v()"},  {"v(a", "v(a"},      {"vdd#branch", "vdd#branch"}, {"v(a,b)", "a,b"},
  };
  for (const auto& [written, bare] : names) {
    EXPECT_EQ(simdata::raw::bareName(written), bare) << written;
  }
}

// Files in name order, plots in file order; a kind seen before gets 2, 3, ...
TEST(RawBackend, RecognisesFoldersAndNamesTheirDatasetsByKindAcrossFiles) {
  ScratchDir dir;
  RawBackend backend;
  std::filesystem::create_directory(dir.file("plain"));
  testing_support::writeFile(dir.file("plain/notes.txt"), "Title: x\n");
  EXPECT_FALSE(backend.recognises(dir.file("plain")));
  EXPECT_FALSE(backend.recognises(dir.file("missing")));
  for (const char* name : {"rc_two_tran.raw", "rc_batch.raw", "rc_tran.bin.raw"}) {
    copyFixture(name, dir);
  }
  copyFixture("rc_op.raw", dir, "rc_op.RAW");
  copyFixture("rc_op.raw", dir, "plain/named.out");
  testing_support::writeFile(dir.file("ignored.txt"), "not raw");
  EXPECT_FALSE(backend.recognises(dir.file("ignored.txt")));
  EXPECT_TRUE(backend.recognises(dir.file("plain/named.out")));
  EXPECT_TRUE(backend.recognises(dir.path().string()));
  auto results = backend.open(dir.path().string());
  ASSERT_TRUE(results);
  EXPECT_EQ(results->name(), dir.path().string());
  const simdata::DatasetArray* datasets = results->datasets();
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"dc", "dc"},      {"op", "dc"},      {"tran", "tran"},  // rc_batch.raw
      {"op2", "dc"},                                           // rc_op.RAW
      {"tran2", "tran"},                                       // rc_tran.bin.raw
      {"tran3", "tran"}, {"tran4", "tran"},                    // rc_two_tran.raw
  };
  ASSERT_EQ(datasets->count(), static_cast<int>(expected.size()));
  for (int i = 0; i < datasets->count(); ++i) {
    EXPECT_EQ(datasets->at(i)->name(), expected[i].first);
    EXPECT_EQ(datasets->at(i)->analysisType(), expected[i].second);
  }
  // The second of the two appended runs has twice the capacitance, so its output rises
  // more slowly: compare the two at the same time point.
  auto a = results->findDataset("tran3")->readValue("out");
  auto b = results->findDataset("tran4")->readValue("out");
  ASSERT_TRUE(a && b);
  const int p = 10;
  ASSERT_EQ(a->xVector()->doubleAt(p), b->xVector()->doubleAt(p));
  EXPECT_GT(a->yVector()->doubleAt(p), b->yVector()->doubleAt(p));
  EXPECT_GT(b->yVector()->doubleAt(p), 0.0);
}

TEST(RawBackend, TransientSignalsSweepAndBulkRead) {
  for (const char* name : {"rc_tran.ascii.raw", "rc_tran.bin.raw"}) {
    SCOPED_TRACE(name);
    auto results = RawBackend().open(fixture(name));
    ASSERT_TRUE(results);
    Dataset* tran = results->findDataset("tran");
    ASSERT_TRUE(tran);
    const simdata::Sweep* sweep = tran->sweep();
    ASSERT_EQ(sweep->dimensionCount(), 1);
    EXPECT_STREQ(sweep->name(0), "time");
    EXPECT_EQ(sweep->range(0)->min, 0.0);
    EXPECT_EQ(sweep->range(0)->max, 5.000000000000001e-07);  // the last time point as written

    const simdata::SignalList* signals = tran->signals();
    ASSERT_EQ(signals->count(), 4);
    const char* expected[][3] = {{"time", "time", "time"},
                                 {"in", "v(in)", "voltage"},
                                 {"out", "v(out)", "voltage"},
                                 {"i(v1)", "i(v1)", "current"}};
    for (int i = 0; i < 4; ++i) {
      EXPECT_EQ(signals->at(i)->name1, expected[i][0]);
      EXPECT_EQ(signals->at(i)->name2, expected[i][1]);
      EXPECT_EQ(signals->at(i)->typeName, expected[i][2]);
    }
    EXPECT_EQ(tran->findSignal("V(OUT)"), signals->at(2));
    EXPECT_EQ(tran->findSignal("nothere"), nullptr);

    // A copy of a signal (as the run loop keeps them), a repeat, the scale, a null entry and
    // a signal of another dataset.
    const Signal copy = *signals->at(1);
    const Signal foreign{"x", "v(x)", "voltage", 1};
    SignalArray batch(6);
    for (const Signal* signal : {signals->at(3), &copy, signals->at(3), signals->at(0),
                                 static_cast<const Signal*>(nullptr), &foreign}) {
      batch.add(signal);
    }
    auto values = tran->read(batch);
    ASSERT_EQ(values->count(), 6);
    EXPECT_EQ(values->at(4), nullptr);
    EXPECT_EQ(values->at(5), nullptr);
    const Value* current = values->at(0);
    const Value* input = values->at(1);
    ASSERT_TRUE(current && input && values->at(2) && values->at(3));
    EXPECT_STREQ(current->resultsDirName(), fixture(name).c_str());
    // One time axis for the whole read, and for later reads.
    EXPECT_EQ(current->xVector(), input->xVector());
    EXPECT_EQ(current->xVector(), values->at(3)->yVector());
    EXPECT_EQ(tran->readValue("in")->xVector(), current->xVector());
    EXPECT_STREQ(current->xVector()->baseUnits(), "s");
    EXPECT_STREQ(current->yVector()->baseUnits(), "A");
    // The source current is the resistor current: i(v1) = -(v(in) - v(out)) / 1k.
    const simdata::DataVector* y = current->yVector();
    ASSERT_EQ(y->doubles().size(), 69u);
    const auto out = tran->readValue("out");
    ASSERT_TRUE(out);
    for (int p = 0; p < 69; ++p) {
      const double expectedCurrent =
          -(input->yVector()->doubleAt(p) - out->yVector()->doubleAt(p)) / 1e3;
      EXPECT_NEAR(y->doubleAt(p), expectedCurrent, 1e-9);
      EXPECT_EQ(values->at(2)->yVector()->doubleAt(p), y->doubleAt(p));
    }
    // Values read off the text file by hand (point 1); the binary form agrees to its last
    // digits.
    const std::pair<const Value*, double> point1[] = {{values->at(3), 5.000000000000001e-11},
                                                      {input, 5.000000000000001e-03},
                                                      {out.get(), 2.498750624687657e-06}};
    for (const auto& [value, want] : point1) {
      EXPECT_NEAR(value->yVector()->doubleAt(1), want, 1e-14 * want);
    }
    EXPECT_EQ(y->doubleAt(-1), 0.0);
    EXPECT_EQ(y->doubleAt(69), 0.0);
  }
}

TEST(RawBackend, OperatingPointsAreScalarsAndComplexValuesAnOtherKind) {
  auto results = RawBackend().open(fixture("rc_op.raw"));
  ASSERT_TRUE(results);
  Dataset* op = results->findDataset("op");
  EXPECT_EQ(op->sweep(), nullptr);
  ASSERT_EQ(op->signals()->count(), 3);
  EXPECT_EQ(op->signals()->at(1)->name1, "mid");
  const double expected[] = {2.0, 1.5, -5e-4};
  for (int i = 0; i < 3; ++i) {
    const auto value = op->readValue(op->signals()->at(i)->name2);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->kind(), simdata::kScalarValue);
    EXPECT_EQ(value->scalar(), expected[i]);
  }

  auto ac = RawBackend().open(fixture("rc_ac.raw"));
  ASSERT_TRUE(ac);
  auto value = ac->findDataset("ac")->readValue("in");
  const simdata::DataVector* y = value->yVector();
  EXPECT_EQ(y->elementType(), simdata::kComplex);
  EXPECT_TRUE(y->doubles().empty());
  EXPECT_EQ(y->doubleAt(0), 1.0);  // the real part stays reachable
  EXPECT_EQ(simdata::getDataVectorAt(y, 0), 0.0);
}

TEST(RawBackend, OpenFailureLeavesAnErrorNamingTheFile) {
  ScratchDir dir;
  const std::string bytes = testing_support::readFile(fixture("rc_tran.bin.raw"));
  testing_support::writeFile(dir.file("a.raw"), bytes);
  testing_support::writeFile(dir.file("b.raw"), bytes.substr(0, 1000));
  simdata::resetError();
  EXPECT_EQ(RawBackend().open(dir.path().string()), nullptr);
  EXPECT_EQ(simdata::lastErrorCode(), simdata::raw::kRawErrorCode);
  EXPECT_EQ(std::string(simdata::lastErrorText()),
            dir.file("b.raw") +
                ": byte offset 1000: binary data of plot 1 is truncated: 22 complete of 69 points "
                "of 32 bytes from byte offset 267");
  simdata::resetError();
}

}  // namespace
