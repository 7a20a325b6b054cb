// The public raw-file samples of the shared samples folder, when it is there: every file
// opens, lists the datasets and signals its writer put in it, and holds the values its
// description quotes. The files are read where they lie, never copied into the project.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "simdata/rawBackend.h"
#include "simdata/rawFile.h"

using simdata::Dataset;
using simdata::raw::Plot;
using simdata::raw::RawFile;

namespace {

std::string sample(const std::string& relative) {
  return std::string(KRA2_SAMPLES_DIR) + "/" + relative;
}

#define REQUIRE_SAMPLES()                                        \
  if (!std::filesystem::is_directory(KRA2_SAMPLES_DIR)) {        \
    GTEST_SKIP() << "no samples folder at " << KRA2_SAMPLES_DIR; \
  }

std::shared_ptr<const RawFile> openRaw(const std::string& relative) {
  std::string error;
  auto file = RawFile::open(sample(relative), error);
  EXPECT_TRUE(file) << error;
  return file;
}

std::unique_ptr<simdata::ResultsDir> openResults(const std::string& relative) {
  simdata::resetError();
  auto results = simdata::RawBackend().open(sample(relative));
  EXPECT_TRUE(results) << (simdata::lastErrorText() ? simdata::lastErrorText() : "");
  return results;
}

/// A whole column through the raw file (real parts, float32 widened).
std::vector<double> column(const RawFile& file, const Plot& plot, int v) {
  std::vector<double> out(static_cast<size_t>(plot.points));
  double* target = out.data();
  file.gather(plot, {&v, 1}, {&target, 1});
  return out;
}

int variableIndex(const Plot& plot, const std::string& name) {
  for (int v = 0; v < plot.variableCount(); ++v) {
    if (plot.variables[static_cast<size_t>(v)].name == name) {
      return v;
    }
  }
  ADD_FAILURE() << "no variable " << name;
  return 0;
}

/// Expects every variable of two plots of one run (text and binary forms, or two layouts)
/// to agree within `relative` (plus `absolute`) at every `step`-th point.
void expectSameColumns(const RawFile& a, const RawFile& b, double relative, double absolute,
                       size_t step = 1) {
  const Plot& pa = a.plots().at(0);
  const Plot& pb = b.plots().at(0);
  ASSERT_EQ(pa.variableCount(), pb.variableCount());
  for (int v = 0; v < pa.variableCount(); ++v) {
    const std::vector<double> x = column(a, pa, v);
    const std::vector<double> y = column(b, pb, v);
    ASSERT_EQ(x.size(), y.size());
    for (size_t p = 0; p < x.size(); p += step) {
      ASSERT_NEAR(x[p], y[p], relative * std::fabs(y[p]) + absolute) << v << " " << p;
    }
  }
}

// The plots, variables and points each sample's description lists. A "*" in a name stands
// for both forms, "ascii" and "bin".
TEST(RawSamples, EverySampleOpensWithItsDatasets) {
  REQUIRE_SAMPLES();
  struct Listing {
    const char* file;
    std::vector<std::tuple<std::string, int, int>> datasets;  // name, signals, points
    bool warns = false;
  };
  const Listing listings[] = {
      {"ngspice/pgmesh_tran.*.raw", {{"tran", 19, 156}}},
      {"ngspice/pgmesh_op.*.raw", {{"op", 18, 1}}},
      {"ngspice/pgmesh_batch.*.raw", {{"dc", 19, 5}, {"op", 18, 1}, {"tran", 19, 156}}},
      {"ngspice/pgmesh_op_savecurrents.ascii.raw", {{"op", 65, 1}}},
      {"ngspice/pgmesh_steps.*.raw", {{"tran", 5, 83}, {"tran2", 5, 83}}},
      {"ngspice/spicelib/dc_ngspice.*.raw", {{"dc", 3, 6}}},
      {"ngspice/spicelib/dc_c_ngspice.*.raw", {{"dc", 4, 6}}},
      {"ngspice/spicelib/op_multi_ngspice.*.raw", {{"op", 3, 1}, {"op2", 3, 1}, {"op3", 3, 1}}},
      {"ngspice/spicelib/ac_ngspice.*.raw", {{"ac", 4, 51}}},
      {"ngspice/spicelib/noise_multi.*.raw", {{"noise", 3, 401}, {"noise2", 2, 1}}},
      {"ltspice/spicelib/TRAN.raw", {{"tran", 6, 23}}},
      {"ltspice/spicelib/TRAN.op.raw", {{"op", 5, 1}}},
      {"ltspice/spicelib/TRAN-STEP.raw", {{"tran", 6, 120}}},
      {"ltspice/spicelib/AC.raw", {{"ac", 6, 51}}},
      {"ltspice/spicelib/AC-STEP.raw", {{"ac", 6, 202}}},
      {"ltspice/spicelib/DC_op_point-STEP.raw", {{"op", 18, 10}}},
      {"ltspice/spicelib/DC_sweep.raw", {{"dc", 7, 5}}, true},
      {"ltspice/spicelib/Noise.raw", {{"noise", 5, 334}}},
      {"ltspice/spicelib/Batch_Test_1.raw", {{"tran", 16, 527}}},
      {"ltspice/spicelib/tran_ltspice.bin.raw", {{"tran", 6, 21}}},
      {"ltspice/spicelib/tran_ltspice.fast.bin.raw", {{"tran", 6, 21}}},
      {"ltspice/spicelib/dc_ltspice.*.raw", {{"dc", 4, 6}}},
      {"ltspice/spicelib/ac_ltspice.*.raw", {{"ac", 6, 51}}},
      {"ltspice/ltspice_pytool/rl_circuit_tran.raw", {{"tran", 6, 3377}}},
      {"ltspice/ltspice_pytool/rl_circuit_tran64b.raw", {{"tran", 6, 3377}}},
      {"ltspice/ltspice_pytool/reverse_x_analysis.raw", {{"dc", 12, 1428}}},
      {"xyce/spicelib/tran_xyce.*.raw", {{"tran", 4, 63}}},
      {"xyce/spicelib/dc_xyce.*.raw", {{"dc", 3, 6}}},
      {"xyce/spicelib/ac_xyce.*.raw", {{"ac", 4, 51}}},
      {"xyce/spicelib/sens_xyce.*.raw", {{"tran", 4, 11}}, true},
  };
  for (const Listing& listing : listings) {
    std::string name = listing.file;
    const size_t star = name.find('*');
    for (const char* form : {"ascii", "bin"}) {
      if (star != std::string::npos) {
        name = std::string(listing.file).replace(star, 1, form);
      } else if (std::string(form) == "bin") {
        break;
      }
      SCOPED_TRACE(name);
      auto file = openRaw(name);
      auto results = openResults(name);
      ASSERT_TRUE(file && results);
      EXPECT_EQ(simdata::lastErrorCode(), listing.warns ? simdata::raw::kRawWarningCode : 0);
      EXPECT_EQ(file->warnings().size(), listing.warns ? 1u : 0u);
      const simdata::DatasetArray* datasets = results->datasets();
      ASSERT_EQ(datasets->count(), static_cast<int>(listing.datasets.size()));
      for (size_t d = 0; d < listing.datasets.size(); ++d) {
        const auto& [dataset, signals, points] = listing.datasets[d];
        EXPECT_EQ(datasets->at(static_cast<int>(d))->name(), dataset);
        EXPECT_EQ(datasets->at(static_cast<int>(d))->signals()->count(), signals);
        EXPECT_EQ(file->plots()[d].points, points);
      }
    }
  }
  simdata::resetError();
}

// The notes on the mesh: lowest v(n1_1) 0.99355 V at 1.42 ns, v(n3_2) 0.99889 V at the
// operating point, i(vdd) from -86 mA to -10 mA; the two forms agree to the last digits.
TEST(RawSamples, NgspiceMeshHoldsTheQuotedValues) {
  REQUIRE_SAMPLES();
  auto ascii = openRaw("ngspice/pgmesh_tran.ascii.raw");
  auto binary = openRaw("ngspice/pgmesh_tran.bin.raw");
  ASSERT_TRUE(ascii && binary);
  const Plot& b = binary->plots()[0];
  const std::vector<double> time = column(*binary, b, 0);
  const std::vector<double> node = column(*binary, b, variableIndex(b, "v(n1_1)"));
  const auto lowest = std::min_element(node.begin(), node.end());
  EXPECT_NEAR(*lowest, 0.99355, 5e-6);
  EXPECT_NEAR(time[static_cast<size_t>(lowest - node.begin())], 1.42e-9, 1e-15);
  const std::vector<double> supply = column(*binary, b, variableIndex(b, "i(vdd)"));
  EXPECT_NEAR(*std::min_element(supply.begin(), supply.end()), -0.0861, 1e-4);
  EXPECT_NEAR(*std::max_element(supply.begin(), supply.end()), -0.010, 1e-6);
  expectSameColumns(*ascii, *binary, 1e-15, 1e-30);
  for (const char* name : {"ngspice/pgmesh_op.ascii.raw", "ngspice/pgmesh_op.bin.raw"}) {
    auto op = openRaw(name);
    const Plot& plot = op->plots()[0];
    EXPECT_EQ(plot.variables[0].name, "v(vdd)");  // no axis: just the first quantity
    EXPECT_NEAR(op->valueAt(plot, variableIndex(plot, "v(n3_2)"), 0), 0.99889, 5e-6);
  }
  // The DC sweep of ILEAK 0 .. 20 mA comes first in the batch file.
  auto batch = openRaw("ngspice/pgmesh_batch.bin.raw");
  const Plot& dc = batch->plots()[0];
  EXPECT_EQ(dc.variables[0].name, "i(i-sweep)");
  EXPECT_EQ(column(*batch, dc, 0), (std::vector<double>{0, 0.005, 0.01, 0.015, 0.02}));
  // The one-element vector of each appended run: 5 mA, then 15 mA, padded with zeros.
  for (const char* name : {"ngspice/pgmesh_steps.ascii.raw", "ngspice/pgmesh_steps.bin.raw"}) {
    SCOPED_TRACE(name);
    auto steps = openRaw(name);
    for (size_t run = 0; run < 2; ++run) {
      const Plot& plot = steps->plots()[run];
      EXPECT_EQ(plot.variables[4].length, 1);
      const std::vector<double> leak = column(*steps, plot, 4);
      EXPECT_EQ(leak[0], run == 0 ? 5e-3 : 1.5e-2);
      EXPECT_EQ(*std::max_element(leak.begin() + 1, leak.end()), 0.0);
    }
  }
}

TEST(RawSamples, NgspiceComplexAndNoisePlots) {
  REQUIRE_SAMPLES();
  for (const char* name :
       {"ngspice/spicelib/ac_ngspice.ascii.raw", "ngspice/spicelib/ac_ngspice.bin.raw"}) {
    SCOPED_TRACE(name);
    auto results = openResults(name);
    Dataset* ac = results->findDataset("ac");
    auto value = ac->readValue(ac->signals()->at(1)->name2);
    ASSERT_TRUE(value);
    // The scale's imaginary part is uninitialised memory in these files; only its real part
    // is the frequency, and the axis is real.
    const simdata::DataVector* x = value->xVector();
    EXPECT_EQ(x->elementType(), simdata::kFloat64);
    EXPECT_EQ(x->doubles().front(), 1.0);
    EXPECT_EQ(value->yVector()->elementType(), simdata::kComplex);
    auto file = openRaw(name);
    EXPECT_EQ(file->plots()[0].variables[0].options, std::vector<std::string>{"grid=3"});
  }
  auto noise = openResults("ngspice/spicelib/noise_multi.bin.raw");
  EXPECT_TRUE(noise->findDataset("noise")->sweep());
  EXPECT_EQ(noise->findDataset("noise2")->sweep(), nullptr);  // integrated noise: no axis
}

TEST(RawSamples, LtspiceFloat32TimesStepsAndLayouts) {
  REQUIRE_SAMPLES();
  // 9 of the 23 time values carry a sign flag: read as an increasing axis up to 5 ms.
  auto tran = openRaw("ltspice/spicelib/TRAN.raw");
  const Plot& plot = tran->plots()[0];
  EXPECT_TRUE(plot.utf16Header);
  const std::vector<double> time = column(*tran, plot, 0);
  EXPECT_TRUE(std::is_sorted(time.begin(), time.end()));
  EXPECT_EQ(time.back(), 0.005);
  auto results = openResults("ltspice/spicelib/TRAN.raw");
  auto out = results->findDataset("tran")->readValue("out");
  ASSERT_TRUE(out);
  EXPECT_EQ(out->yVector()->elementType(), simdata::kFloat32);
  EXPECT_EQ(out->yVector()->floatAt(22), 0.9932621121406555f);
  EXPECT_EQ(out->xVector()->doubleAt(19), 0.004858948508749919);

  // Stepped runs: restarts at 0, 45, 93, 106; two runs of 101; 28 runs of 51 going down.
  struct Steps {
    const char* file;
    const char* dataset;
    std::vector<int> starts;
  };
  std::vector<int> reverse;
  for (int s = 0; s < 28; ++s) {
    reverse.push_back(51 * s);
  }
  const Steps steps[] = {
      {"ltspice/spicelib/TRAN-STEP.raw", "tran", {0, 45, 93, 106}},
      {"ltspice/spicelib/AC-STEP.raw", "ac", {0, 101}},
      {"ltspice/ltspice_pytool/reverse_x_analysis.raw", "dc", reverse},
  };
  for (const Steps& s : steps) {
    SCOPED_TRACE(s.file);
    EXPECT_EQ(openRaw(s.file)->plots()[0].stepStarts, s.starts);
    auto stepped = openResults(s.file);
    Dataset* dataset = stepped->findDataset(s.dataset);
    auto value = dataset->readValue(dataset->signals()->at(1)->name2);
    ASSERT_TRUE(value);
    EXPECT_EQ(value->dimension(), 2);
    ASSERT_EQ(value->waveCount(), static_cast<int>(s.starts.size()));
    const int firstLength = s.starts.size() > 1 ? s.starts[1] : 0;
    EXPECT_EQ(simdata::getWaveform(value.get())->xVector()->length(), firstLength);
  }
  auto reversed = openResults("ltspice/ltspice_pytool/reverse_x_analysis.raw");
  const simdata::Sweep* sweep = reversed->findDataset("dc")->sweep();
  EXPECT_EQ(sweep->range(0)->min, 0.0);
  EXPECT_EQ(sweep->range(0)->max, 50.0);
  EXPECT_EQ(sweep->range(1)->maxInt(), 28);
  auto run =
      reversed->findDataset("dc")->readValue(reversed->findDataset("dc")->signals()->at(1)->name2);
  EXPECT_EQ(run->waveAt(0)->xVector()->doubleAt(0), 50.0);
  EXPECT_EQ(run->waveAt(0)->xVector()->doubleAt(50), 0.0);

  // A stepped operating point: one point per step, over the stepped source vin = 1 .. 10.
  auto op = openResults("ltspice/spicelib/DC_op_point-STEP.raw");
  Dataset* point = op->findDataset("op");
  EXPECT_EQ(point->sweep(), nullptr);
  auto mid = point->readValue(point->signals()->at(1)->name2);
  ASSERT_EQ(mid->dimension(), 1);
  ASSERT_EQ(mid->xVector()->length(), 10);
  EXPECT_EQ(mid->xVector()->doubleAt(9), 10.0);

  // The same data point by point and variable by variable.
  auto normal = openRaw("ltspice/spicelib/tran_ltspice.bin.raw");
  auto fast = openRaw("ltspice/spicelib/tran_ltspice.fast.bin.raw");
  EXPECT_TRUE(fast->plots()[0].variableMajor);
  expectSameColumns(*normal, *fast, 0.0, 0.0);
  // The same circuit with every value float64: equal to float32 precision; the flagged time
  // of point 1 is 1.57e-6 in both.
  auto singles = openRaw("ltspice/ltspice_pytool/rl_circuit_tran.raw");
  auto doubles = openRaw("ltspice/ltspice_pytool/rl_circuit_tran64b.raw");
  EXPECT_EQ(doubles->plots()[0].recordBytes, 48u);
  EXPECT_EQ(singles->valueAt(singles->plots()[0], 0, 1), 1.5733597039962542e-06);
  expectSameColumns(*singles, *doubles, 1e-6, 1e-12, 97);
}

TEST(RawSamples, LtspiceTextTwinsAndHeaderQuirks) {
  REQUIRE_SAMPLES();
  // Text (CRLF) and binary forms of one run agree to float32 precision.
  for (const char* stem : {"ltspice/spicelib/dc_ltspice", "ltspice/spicelib/ac_ltspice"}) {
    SCOPED_TRACE(stem);
    auto text = openRaw(std::string(stem) + ".ascii.raw");
    EXPECT_FALSE(text->plots()[0].utf16Header);
    expectSameColumns(*text, *openRaw(std::string(stem) + ".bin.raw"), 1e-6, 1e-15);
  }
  auto noise = openRaw("ltspice/spicelib/Noise.raw");
  EXPECT_EQ(noise->plots()[0].plotname, "Noise Spectral Density - (V/Hz½ or A/Hz½)");
  auto batch = openResults("ltspice/spicelib/Batch_Test_1.raw");
  const simdata::Signal* pin = batch->findDataset("tran")->findSignal("Ix(u1:1)");
  ASSERT_TRUE(pin);
  EXPECT_EQ(pin->typeName, "subckt_current");
  // The zero record after the five points of this file is left alone.
  auto sweep = openRaw("ltspice/spicelib/DC_sweep.raw");
  EXPECT_NE(sweep->warnings().front().find("32 bytes after the data of plot 1"), std::string::npos);
}

TEST(RawSamples, XyceNamesPlotNamesAndTrailingTables) {
  REQUIRE_SAMPLES();
  auto tran = openResults("xyce/spicelib/tran_xyce.bin.raw");
  const simdata::SignalList* signals = tran->findDataset("tran")->signals();
  ASSERT_EQ(signals->count(), 4);
  EXPECT_EQ(signals->at(1)->name1, "IN");
  EXPECT_EQ(signals->at(3)->name1, "VIN#branch");
  // Eight printed digits in the text form.
  for (const char* stem :
       {"xyce/spicelib/tran_xyce", "xyce/spicelib/ac_xyce", "xyce/spicelib/sens_xyce"}) {
    SCOPED_TRACE(stem);
    expectSameColumns(*openRaw(std::string(stem) + ".ascii.raw"),
                      *openRaw(std::string(stem) + ".bin.raw"), 1e-8, 1e-15);
  }
  // The mangled text plot name still names a DC sweep over "sweep" from 0 to 5.
  auto dc = openResults("xyce/spicelib/dc_xyce.ascii.raw");
  const simdata::Sweep* sweep = dc->findDataset("dc")->sweep();
  EXPECT_STREQ(sweep->name(0), "sweep");
  EXPECT_EQ(sweep->range(0)->max, 5.0);
  auto sens = openRaw("xyce/spicelib/sens_xyce.bin.raw");
  EXPECT_EQ(sens->plots()[0].points, 11);
  EXPECT_NE(sens->warnings().front().find("317 bytes after the data of plot 1"), std::string::npos);
}

}  // namespace
