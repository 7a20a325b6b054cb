// Raw-file dialects on small files made here, one per quirk: UTF-16 headers, float32 values,
// the double flag, variable-major data, signed time values, stepped runs, CRLF text, shared
// titles and counted points of multi-plot files, unpadded vectors, bytes after the data.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "analysis/instanceMeasure.h"
#include "app/analyzeNetlist.h"
#include "simdata/rawBackend.h"
#include "simdata/rawFile.h"
#include "simdata/viewValues.h"
#include "support/testFiles.h"

using simdata::raw::Element;
using simdata::raw::parsePlots;
using simdata::raw::Plot;
using simdata::raw::RawFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

/// UTF-16LE bytes of UTF-8 text (code points below U+10000 are enough here).
std::string utf16(const std::string& utf8) {
  std::string out;
  for (size_t i = 0; i < utf8.size();) {
    const unsigned char c = static_cast<unsigned char>(utf8[i]);
    char32_t code = c;
    size_t extra = 0;
    if (c >= 0xE0) {
      code = c & 0x0F;
      extra = 2;
    } else if (c >= 0xC0) {
      code = c & 0x1F;
      extra = 1;
    }
    for (size_t k = 1; k <= extra; ++k) {
      code = (code << 6) | (static_cast<unsigned char>(utf8[i + k]) & 0x3F);
    }
    i += 1 + extra;
    out += static_cast<char>(code & 0xFF);
    out += static_cast<char>(code >> 8);
  }
  return out;
}

std::string f64(double v) {
  char bytes[8];
  std::memcpy(bytes, &v, 8);
  return std::string(bytes, 8);
}

std::string f32(float v) {
  char bytes[4];
  std::memcpy(bytes, &v, 4);
  return std::string(bytes, 4);
}

/// A time value with the sign flag the writer sets on some points.
std::string flaggedTime(double t) { return f64(-t); }

/// The header of a transient of the UTF-16 writer with variables time, V(out), I(R1).
std::string ltHeader(const std::string& flags, int points,
                     const std::string& plotname = "Transient Analysis") {
  return "Title: * C:\\demo\\rc ½.asc\nDate: Thu Jan  1 00:00:00 2025\nPlotname: " + plotname +
         "\nFlags: " + flags + "\nNo. Variables: 3\nNo. Points: " + std::string(10, ' ') +
         std::to_string(points) +
         "\nOffset:   0.0000000000000000e+00\nCommand: Linear Technology Corporation LTspice "
         "XVII\nBackannotation: u1 1 2\nVariables:\n\t0\ttime\ttime\n\t1\tV(out)\tvoltage\n"
         "\t2\tI(R1)\tdevice_current\nBinary:\n";
}

const double kTimes[] = {0.0, 1e-9, 2e-9, 3e-9};
const float kOut[] = {1.0f, 0.75f, 0.5f, 0.25f};
const float kCurrent[] = {1e-3f, -2e-3f, 3e-3f, -4e-3f};

/// Four points, time float64 (points 1 and 3 flagged), the others float32, point by point.
std::string ltTransient() {
  std::string data;
  for (int p = 0; p < 4; ++p) {
    data += p % 2 == 1 ? flaggedTime(kTimes[p]) : f64(kTimes[p]);
    data += f32(kOut[p]) + f32(kCurrent[p]);
  }
  return utf16(ltHeader("real forward", 4)) + data;
}

/// The same data variable by variable.
std::string ltTransientFast() {
  std::string data;
  for (int p = 0; p < 4; ++p) {
    data += p % 2 == 1 ? flaggedTime(kTimes[p]) : f64(kTimes[p]);
  }
  for (float v : kOut) {
    data += f32(v);
  }
  for (float v : kCurrent) {
    data += f32(v);
  }
  return utf16(ltHeader("real forward fastaccess", 4)) + data;
}

std::vector<Plot> parseOk(const std::string& bytes, std::vector<std::string>* warnings = nullptr) {
  std::vector<Plot> plots;
  std::string error;
  EXPECT_TRUE(parsePlots(bytes, "mem.raw", plots, error, warnings)) << error;
  return plots;
}

std::string parseError(const std::string& bytes) {
  std::vector<Plot> plots;
  std::string error;
  EXPECT_FALSE(parsePlots(bytes, "mem.raw", plots, error));
  return error;
}

/// A file written to a scratch folder and opened as results.
struct OpenedFile {
  ScratchDir dir;
  std::unique_ptr<simdata::ResultsDir> results;
  explicit OpenedFile(const std::string& bytes) {
    writeFile(dir.file("x.raw"), bytes);
    simdata::resetError();
    results = simdata::RawBackend().open(dir.file("x.raw"));
  }
};

TEST(RawDialects, Utf16HeaderFloat32ValuesAndFlaggedTimes) {
  const std::vector<Plot> plots = parseOk(ltTransient());
  ASSERT_EQ(plots.size(), 1u);
  const Plot& plot = plots[0];
  EXPECT_TRUE(plot.utf16Header);
  EXPECT_EQ(plot.title, "* C:\\demo\\rc ½.asc");  // decoded, not byte-dropped
  EXPECT_EQ(plot.command, "Linear Technology Corporation LTspice XVII");
  ASSERT_EQ(plot.variableCount(), 3);
  EXPECT_EQ(plot.variables[0].element, Element::kFloat64);
  EXPECT_EQ(plot.variables[1].element, Element::kFloat32);
  EXPECT_EQ(plot.variables[2].element, Element::kFloat32);
  EXPECT_EQ(plot.recordBytes, 16u);
  EXPECT_TRUE(plot.absoluteScale);

  OpenedFile file(ltTransient());
  ASSERT_TRUE(file.results) << simdata::lastErrorText();
  // Recognised by its UTF-16 header even without the usual file name.
  writeFile(file.dir.file("results.bin"), ltTransient());
  EXPECT_TRUE(simdata::RawBackend().recognises(file.dir.file("results.bin")));
  simdata::Dataset* tran = file.results->findDataset("tran");
  ASSERT_TRUE(tran);
  EXPECT_EQ(tran->signals()->at(2)->typeName, "device_current");
  auto out = tran->readValue("out");
  auto current = tran->readValue("I(R1)");
  ASSERT_TRUE(out && current);
  const simdata::DataVector* x = out->xVector();
  const simdata::DataVector* y = out->yVector();
  EXPECT_EQ(x->elementType(), simdata::kFloat64);
  ASSERT_EQ(x->doubles().size(), 4u);
  EXPECT_EQ(y->elementType(), simdata::kFloat32);
  EXPECT_TRUE(y->doubles().empty());
  EXPECT_STREQ(current->yVector()->baseUnits(), "A");
  for (int p = 0; p < 4; ++p) {
    SCOPED_TRACE(p);
    EXPECT_EQ(x->doubles()[p], kTimes[p]);  // the flag is gone
    EXPECT_EQ(y->floatAt(p), kOut[p]);
    EXPECT_EQ(simdata::getDataVectorAt(y, p), static_cast<double>(kOut[p]));
    EXPECT_EQ(current->yVector()->floatAt(p), kCurrent[p]);
  }
  EXPECT_EQ(tran->sweep()->range(0)->min, 0.0);
  EXPECT_EQ(tran->sweep()->range(0)->max, 3e-9);
  ASSERT_EQ(y->floats().size(), 4u);
  EXPECT_EQ(y->floats()[3], 0.25f);
  // The statistics see the float32 values widened.
  std::vector<double> scratch;
  const analysis::Samples samples = analysis::samplesOf(y, scratch);
  ASSERT_EQ(samples.size(), 4);
  EXPECT_EQ(samples[1], 0.75);
  EXPECT_EQ(samples[3], 0.25);
}

// Float32 vectors reach the statistics as doubles, NaN read as 0.0 as getDataVectorAt reads it.
TEST(RawDialects, Float32VectorsWidenForTheStatistics) {
  const std::vector<float> values = {1.5f, std::nanf(""), -2.25f};
  const simdata::ViewVector vector("v", "V", nullptr, values);
  std::vector<double> scratch;
  const analysis::Samples samples = analysis::samplesOf(&vector, scratch);
  ASSERT_EQ(samples.size(), 3);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(samples[i], simdata::getDataVectorAt(&vector, i)) << i;
  }
  EXPECT_EQ(samples[1], 0.0);
  EXPECT_EQ(samples[2], -2.25);
}

TEST(RawDialects, FastAccessAndDoubleFlagHoldTheSameValues) {
  const std::vector<Plot> variableMajor = parseOk(ltTransientFast());
  ASSERT_EQ(variableMajor.size(), 1u);
  EXPECT_TRUE(variableMajor[0].variableMajor);
  EXPECT_EQ(variableMajor[0].variables[2].offset, 4u * 8 + 4u * 4);

  std::string doubles = utf16(ltHeader("real forward double", 4));
  for (int p = 0; p < 4; ++p) {
    doubles += f64(kTimes[p]) + f64(kOut[p]) + f64(kCurrent[p]);
  }
  const std::vector<Plot> allDoubles = parseOk(doubles);
  EXPECT_EQ(allDoubles[0].recordBytes, 24u);
  EXPECT_EQ(allDoubles[0].variables[1].element, Element::kFloat64);

  // Gathered through the backend: every layout reads the same numbers.
  const std::string fast = ltTransientFast();
  for (const std::string* bytes : {&std::as_const(doubles), &fast}) {
    OpenedFile file(*bytes);
    ASSERT_TRUE(file.results);
    simdata::Dataset* tran = file.results->findDataset("tran");
    simdata::SignalArray batch(3);
    for (int i = 0; i < 3; ++i) {
      batch.add(tran->signals()->at(i));
    }
    auto values = tran->read(batch);
    ASSERT_TRUE(values);
    for (int p = 0; p < 4; ++p) {
      EXPECT_EQ(simdata::getDataVectorAt(values->at(0)->yVector(), p), kTimes[p]);
      EXPECT_EQ(simdata::getDataVectorAt(values->at(1)->yVector(), p), kOut[p]);
      EXPECT_EQ(simdata::getDataVectorAt(values->at(2)->yVector(), p), kCurrent[p]);
    }
    EXPECT_EQ(values->at(1)->yVector()->elementType(),
              bytes == &doubles ? simdata::kFloat64 : simdata::kFloat32);
  }
}

// A float32 file and the same values stored as float64 must give the same statistics.
TEST(RawDialects, RunOverFloat32ValuesMatchesFloat64) {
  std::string doubles = utf16(ltHeader("real forward double", 4));
  for (int p = 0; p < 4; ++p) {
    doubles += f64(kTimes[p]) + f64(kOut[p]) + f64(kCurrent[p]);
  }
  std::vector<std::vector<double>> results;
  for (const std::string& bytes : {ltTransient(), doubles}) {
    ScratchDir dir;
    writeFile(dir.file("x.raw"), bytes);
    writeFile(dir.file("net"), "R1 out 0\nR2 out I(R1)\n");
    simdata::initialise();
    zeAnalyzeNetlist session;
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
    const ArgList open{dir.file("x.raw")};
    const ArgList select{"tran"};
    const ArgList net{dir.file("net")};
    const ArgList window{"0", "3e-9"};
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

TEST(RawDialects, SteppedRunsAreValuesOfDimensionTwo) {
  // Three runs of 3, 2 and 4 points; the time of the second point of each run is flagged.
  const std::vector<std::vector<double>> runs = {{0, 1e-9, 2e-9}, {0, 1e-9}, {0, 1e-9, 2e-9, 3e-9}};
  std::string data;
  float level = 0.0f;
  for (const auto& run : runs) {
    for (size_t p = 0; p < run.size(); ++p) {
      data += (p == 1 ? flaggedTime(run[p]) : f64(run[p])) + f32(level) + f32(-level);
      level += 1.0f;
    }
  }
  const std::string bytes = utf16(ltHeader("real forward stepped", 9)) + data;
  const std::vector<Plot> plots = parseOk(bytes);
  EXPECT_EQ(plots[0].stepStarts, (std::vector<int>{0, 3, 5}));

  OpenedFile file(bytes);
  ASSERT_TRUE(file.results);
  simdata::Dataset* tran = file.results->findDataset("tran");
  ASSERT_TRUE(tran);
  const simdata::Sweep* sweep = tran->sweep();
  ASSERT_EQ(sweep->dimensionCount(), 2);
  EXPECT_STREQ(sweep->name(0), "time");
  EXPECT_EQ(sweep->range(0)->max, 3e-9);
  EXPECT_STREQ(sweep->name(1), "step");
  EXPECT_EQ(sweep->range(1)->dataType, simdata::kInt32);
  EXPECT_EQ(sweep->range(1)->maxInt(), 3);

  simdata::SignalArray batch(2);
  batch.add(tran->findSignal("out"));
  batch.add(tran->findSignal("I(R1)"));
  auto values = tran->read(batch);
  ASSERT_TRUE(values);
  const simdata::Value* out = values->at(0);
  EXPECT_EQ(out->dimension(), 2);
  ASSERT_EQ(out->waveCount(), 3);
  const size_t lengths[] = {3, 2, 4};
  const float firsts[] = {0.0f, 3.0f, 5.0f};
  for (int s = 0; s < 3; ++s) {
    SCOPED_TRACE(s);
    const simdata::Value* run = out->waveAt(s);
    ASSERT_TRUE(run);
    EXPECT_EQ(run->dimension(), 1);
    ASSERT_EQ(run->xVector()->length(), static_cast<int>(lengths[s]));
    ASSERT_EQ(run->yVector()->length(), static_cast<int>(lengths[s]));
    EXPECT_EQ(run->xVector()->doubleAt(1), 1e-9);
    EXPECT_EQ(run->yVector()->floatAt(0), firsts[s]);
    // Runs of different signals share their time vector.
    EXPECT_EQ(run->xVector(), values->at(1)->waveAt(s)->xVector());
  }
  // Readers of one waveform see the first run.
  const simdata::Value* first = simdata::getWaveform(out);
  ASSERT_EQ(first->yVector()->length(), 3);
  EXPECT_EQ(first->yVector()->floatAt(2), 2.0f);
}

TEST(RawDialects, SteppedOperatingPointIsAWaveformOverTheSteps) {
  std::string header =
      "Title: * op\nDate: x\nPlotname: Operating Point\nFlags: real stepped\nNo. Variables: 2\n"
      "No. Points:            3\nOffset:   0\nCommand: Linear Technology Corporation LTspice\n"
      "Variables:\n\t0\tvin\tvoltage\n\t1\tV(mid)\tvoltage\nBinary:\n";
  std::string data = f64(1.0) + f32(0.5f) + f64(2.0) + f32(1.0f) + f64(3.0) + f32(1.5f);
  OpenedFile file(utf16(header) + data);
  ASSERT_TRUE(file.results);
  simdata::Dataset* op = file.results->findDataset("op");
  ASSERT_TRUE(op);
  EXPECT_EQ(op->sweep(), nullptr);
  simdata::SignalArray batch(1);
  batch.add(op->findSignal("mid"));
  auto values = op->read(batch);
  const simdata::Value* mid = values->at(0);
  ASSERT_TRUE(mid);
  EXPECT_EQ(mid->kind(), simdata::kDataVectorValue);
  EXPECT_EQ(mid->dimension(), 1);
  ASSERT_EQ(mid->yVector()->length(), 3);
  EXPECT_EQ(mid->xVector()->doubleAt(2), 3.0);
  EXPECT_EQ(mid->yVector()->floatAt(2), 1.5f);
  // A DC measure reads the first step.
  voltageData data0{};
  analysis::dcDifference(values.get(), 0, -1, data0);
  EXPECT_EQ(data0.peakValue, 0.5);
}

TEST(RawDialects, TextDataOfEveryWriter) {
  struct Case {
    const char* name;
    std::string text;
    std::vector<double> decoded;
  };
  const Case cases[] = {
      {"CRLF lines, complex scale written 're,<tab>im', three-digit exponents",
       "Title: * x\r\nDate: y\r\nPlotname: AC Analysis\r\nFlags: complex forward log\r\n"
       "No. Variables: 2\r\nNo. Points:           2\r\nOffset:   0\r\nCommand: Linear "
       "Technology Corporation LTspice\r\nVariables:\r\n\t0\tfrequency\tfrequency\r\n"
       "\t1\tV(out)\tvoltage\r\nValues:\r\n0\t\t1.000000000000000e+003,\t0.0e+000\r\n"
       "\t5.0e-001,-2.5e-001\r\n1\t\t2.0e+003,\t0.0e+000\r\n\t2.5e-001,-1.0e-001\r\n",
       {1e3, 2e3, 0.5, 0.25}},
      {"blank after the comma, blank line after each point, 8 digits",
       "Title: x\nDate: y\nPlotname: AC Analysis\nFlags: complex\nNo. Variables: 2\n"
       "No. Points: 2                 \nVariables:\n\t0\tfrequency\tfrequency\n\t1\tOUT\tvoltage\n"
       "Values:\n0\t1.00000000e+00, 0.00000000e+00\n\t9.99960523e-01, -6.28293727e-03\n\n"
       "1\t1.25892541e+00, 0.00000000e+00\n\t9.99937435e-01, -7.90956676e-03\n\n",
       {1.0, 1.25892541, 9.99960523e-01, 9.99937435e-01}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<Plot> plots = parseOk(c.text);
    ASSERT_EQ(plots.size(), 1u);
    EXPECT_EQ(*plots[0].decoded, c.decoded);
  }
}

TEST(RawDialects, PlotsSharingOneTitleWithStepPrefixesAndCountedPoints) {
  // A title and date for the whole file, then plots that start at Plotname; the first plot
  // announces 0 points although two follow.
  const std::string text =
      "Title: * sweep\nDate: today\n"
      "Plotname: Step Analysis: Step 1 of 2 params:  name = VGS value = 0.8  AC Analysis\n"
      "Flags: complex\nNo. Variables: 2\nNo. Points: 0                 \nVariables:\n"
      "\t0\tfrequency\tfrequency\n\t1\tOUT\tvoltage\nValues:\n"
      "0\t1.0e+00, 0.0e+00\n\t2.0e+00, 0.0e+00\n\n1\t1.0e+01, 0.0e+00\n\t3.0e+00, 0.0e+00\n\n"
      "Plotname: Step Analysis: Step 2 of 2 params:  name = VGS value = 0.9  AC Analysis\n"
      "Flags: complex\nNo. Variables: 2\nNo. Points: 1                 \nVariables:\n"
      "\t0\tfrequency\tfrequency\n\t1\tOUT\tvoltage\nValues:\n"
      "0\t1.0e+00, 0.0e+00\n\t4.0e+00, 0.0e+00\n\n";
  const std::vector<Plot> plots = parseOk(text);
  ASSERT_EQ(plots.size(), 2u);
  EXPECT_EQ(plots[0].points, 2);
  EXPECT_EQ(plots[1].points, 1);
  EXPECT_EQ(plots[1].title, "");
  EXPECT_EQ(*plots[0].decoded, (std::vector<double>{1.0, 10.0, 2.0, 3.0}));
  OpenedFile file(text);
  ASSERT_TRUE(file.results);
  ASSERT_EQ(file.results->datasets()->count(), 2);
  EXPECT_STREQ(file.results->datasets()->at(0)->name(), "ac");
  EXPECT_STREQ(file.results->datasets()->at(1)->name(), "ac2");
  // The complex scale is read as a real axis; the other values are of an "other kind".
  auto out = file.results->findDataset("ac")->readValue("OUT");
  EXPECT_EQ(out->xVector()->elementType(), simdata::kFloat64);
  EXPECT_EQ(out->xVector()->doubles()[1], 10.0);
  EXPECT_EQ(out->yVector()->elementType(), simdata::kComplex);
}

TEST(RawDialects, BinaryPlotsAnnouncedWithZeroPoints) {
  const std::string head =
      "Title: t\nDate: d\nPlotname: Transient Analysis\nFlags: real\nNo. Variables: 2\n"
      "No. Points: 0       \nVariables:\n\t0\ttime\ttime\n\t1\tv(a)\tvoltage\nBinary:\n";
  const std::string op =
      "Title: t\nDate: d\nPlotname: Operating Point\nFlags: real\nNo. Variables: 1\n"
      "No. Points: 1       \nVariables:\n\t0\tv(a)\tvoltage\nBinary:\n" +
      f64(0.7);
  // Whole records up to the next plot are counted; nothing at all is a plot of no points.
  const std::string counted = head + f64(0) + f64(1) + f64(1e-9) + f64(2) + op;
  const std::string empty = head + op;
  for (const auto& [bytes, points] : {std::pair{counted, 2}, std::pair{empty, 0}}) {
    const std::vector<Plot> plots = parseOk(bytes);
    ASSERT_EQ(plots.size(), 2u);
    EXPECT_EQ(plots[0].points, points);
    EXPECT_EQ(plots[1].points, 1);
  }
  OpenedFile file(empty);
  ASSERT_TRUE(file.results);
  auto a = file.results->findDataset("tran")->readValue("a");
  ASSERT_TRUE(a);
  EXPECT_EQ(a->yVector()->length(), 0);
  EXPECT_EQ(file.results->findDataset("op")->readValue("a")->scalar(), 0.7);
}

TEST(RawDialects, BytesAfterTheLastPlotAreReportedAndIgnored) {
  const std::string head =
      "Title: t\nDate: d\nPlotname: DC transfer characteristic\nFlags: real\nNo. Variables: 2\n"
      "No. Points: 1\nVariables:\n\t0\tv(v-sweep)\tvoltage\n\t1\tv(a)\tvoltage\n";
  const std::string zeros = head + "Binary:\n" + f64(-1.0) + f64(2.0) + std::string(16, '\0');
  const std::string table = head + "Values:\n0\t-1.0\n\t2.0\n\nTIME,V(1)\n0.25,0.25\n";
  struct Case {
    const std::string* bytes;
    std::string warning;
  };
  const Case cases[] = {
      {&zeros,
       "mem.raw: byte offset 170: 16 bytes after the data of plot 1 do not start a "
       "plot and were ignored"},
      {&table,
       "mem.raw: line 14: 22 bytes after the data of plot 1 do not start a plot and were "
       "ignored"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.warning);
    std::vector<std::string> warnings;
    const std::vector<Plot> plots = parseOk(*c.bytes, &warnings);
    ASSERT_EQ(plots.size(), 1u);
    EXPECT_EQ(plots[0].points, 1);
    EXPECT_EQ(warnings, std::vector<std::string>{c.warning});
    // The open succeeds and leaves the finding as a warning; the DC sweep may go negative.
    OpenedFile file(*c.bytes);
    ASSERT_TRUE(file.results);
    EXPECT_EQ(simdata::lastErrorCode(), simdata::raw::kRawWarningCode);
    EXPECT_EQ(file.results->findDataset("dc")->readValue("v-sweep")->yVector()->doubleAt(0), -1.0);
  }
  simdata::resetError();
}

TEST(RawDialects, UnpaddedShortVectorsArePaddedWithZeros) {
  const std::string head =
      "Title: t\nDate: d\nPlotname: Transient Analysis\nFlags: real unpadded\nNo. Variables: 3\n"
      "No. Points: 3\nVariables:\n\t0\ttime\ttime\n\t1\tv(a)\tvoltage\n"
      "\t2\tileak_value\tnotype dims=1\n";
  const std::string text =
      head + "Values:\n 0\t0\n\t1\n\t5e-3\n\n 1\t1e-9\n\t2\n\n 2\t2e-9\n\t3\n\n";
  const std::string binary =
      head + "Binary:\n" + f64(0) + f64(1) + f64(5e-3) + f64(1e-9) + f64(2) + f64(2e-9) + f64(3);
  for (const std::string* bytes : {&text, &binary}) {
    const std::vector<Plot> plots = parseOk(*bytes);
    ASSERT_EQ(plots.size(), 1u);
    EXPECT_EQ(plots[0].variables[2].length, 1);
    EXPECT_EQ(*plots[0].decoded, (std::vector<double>{0, 1e-9, 2e-9, 1, 2, 3, 5e-3, 0, 0}));
  }
}

TEST(RawDialects, MalformedDialectFilesNameTheLineOrOffset) {
  std::string badVariable = ltHeader("real forward", 1);
  badVariable.replace(badVariable.find("\t2\tI(R1)"), 8, "\t2\t");
  std::string textAfterUtf16 = ltHeader("real forward", 1);
  textAfterUtf16.replace(textAfterUtf16.find("Binary:"), 7, "Values:");
  const std::string fast = ltTransientFast();
  const std::string unpadded =
      "Plotname: tran\nFlags: real unpadded\nNo. Variables: 2\nNo. Points: 3\nVariables:\n"
      " 0 time time\n 1 x notype dims=1\nBinary:\n" +
      f64(0) + f64(7) + f64(1);
  struct Case {
    const char* name;
    std::string bytes;
    const char* error;
  };
  const Case cases[] = {
      {"UTF-16 variable line without type", utf16(badVariable),
       "mem.raw: line 13: expected 'index name type' for variable 2, found '2  device_current'"},
      {"text values after a UTF-16 header", utf16(textAfterUtf16),
       "mem.raw: line 14: text values after a UTF-16 header are not read"},
      {"float32 records cut short", ltTransient().substr(0, ltTransient().size() - 3),
       "binary data of plot 1 is truncated: 3 complete of 4 points of 16 bytes"},
      {"variable-major data cut short", fast.substr(0, fast.size() - 1),
       "binary data of plot 1 is truncated: 3 complete of 4 points of 16 bytes"},
      {"unpadded binary cut short", unpadded,
       "mem.raw: byte offset 142: binary data of plot 1 is truncated: variable x needs bytes "
       "beyond the end of the file"},
      {"UTF-16 header with an odd byte", utf16("Title: x\nPlotname: y") + "P",
       "mem.raw: line 2: the header of plot 1 ends before 'Variables:'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string error = parseError(c.bytes);
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
  }
}

// Every prefix and corrupted copies of the dialect files fail cleanly or parse (run under the
// sanitizers in CI).
TEST(RawDialects, SurviveTruncationAndCorruption) {
  std::string stepped = ltHeader("real forward stepped fastaccess", 4);
  stepped = utf16(stepped) + f64(0) + f64(-1e-9) + f64(0) + f64(1e-9) + std::string(32, '\x3f');
  for (const std::string& bytes : {ltTransient(), ltTransientFast(), stepped}) {
    for (size_t cut = 0; cut <= bytes.size(); ++cut) {
      std::vector<Plot> plots;
      std::string error;
      if (!parsePlots(std::string_view(bytes).substr(0, cut), "cut.raw", plots, error)) {
        EXPECT_EQ(error.rfind("cut.raw: ", 0), 0u) << error;
      }
    }
    // Copies that still parse are opened and read through.
    ScratchDir dir;
    std::string corrupt = bytes;
    for (size_t i = 0; i < corrupt.size(); i += 3) {
      const char saved = corrupt[i];
      corrupt[i] = static_cast<char>(saved ^ 0x41);
      writeFile(dir.file("x.raw"), corrupt);
      const auto results = simdata::RawBackend().open(dir.file("x.raw"));
      const simdata::DatasetArray* datasets = results ? results->datasets() : nullptr;
      for (int d = 0; datasets != nullptr && d < datasets->count(); ++d) {
        simdata::Dataset* dataset = datasets->at(d);
        simdata::SignalArray batch(dataset->signals()->count());
        for (int k = 0; k < dataset->signals()->count(); ++k) {
          batch.add(dataset->signals()->at(k));
        }
        auto values = dataset->read(batch);
        for (int k = 0; values && k < values->count(); ++k) {
          const simdata::Value* wave = simdata::getWaveform(values->at(k));
          if (wave != nullptr && wave->yVector() != nullptr) {
            simdata::getDataVectorAt(wave->yVector(), wave->yVector()->length() - 1);
          }
        }
      }
      corrupt[i] = saved;
    }
  }
}

}  // namespace
