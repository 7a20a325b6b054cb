// Raw-file dialects on small files made here, one per quirk: UTF-16 headers, float32 values,
// the double flag, variable-major data, signed time values, stepped runs, shared titles and
// counted points of multi-plot files, bytes after the data.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
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
using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

/// UTF-16LE bytes of UTF-8 text (code points below U+0800 are enough here).
std::string utf16(const std::string& utf8) {
  std::string out;
  for (size_t i = 0; i < utf8.size(); ++i) {
    unsigned code = static_cast<unsigned char>(utf8[i]);
    if (code >= 0xC0) {
      code = ((code & 0x1F) << 6) | (static_cast<unsigned char>(utf8[++i]) & 0x3F);
    }
    out += static_cast<char>(code & 0xFF);
    out += static_cast<char>(code >> 8);
  }
  return out;
}

template <typename T>
std::string bytesOf(T v) {
  return std::string(reinterpret_cast<const char*>(&v), sizeof v);
}

/// The header of a transient of the UTF-16 writer with variables time, V(out), I(R1).
std::string ltHeader(const std::string& flags, int points) {
  return "Title: * C:\\demo\\rc ½.asc\nDate: Thu Jan  1 00:00:00 2025\nPlotname: Transient "
         "Analysis\nFlags: " +
         flags + "\nNo. Variables: 3\nNo. Points: " + std::string(10, ' ') +
         std::to_string(points) +
         "\nOffset:   0.0000000000000000e+00\nCommand: Linear Technology Corporation LTspice "
         "XVII\nBackannotation: u1 1 2\nVariables:\n\t0\ttime\ttime\n\t1\tV(out)\tvoltage\n"
         "\t2\tI(R1)\tdevice_current\nBinary:\n";
}

const double kTimes[] = {0.0, 1e-9, 2e-9, 3e-9};
const float kOut[] = {1.0f, 0.75f, 0.5f, 0.25f};
const float kCurrent[] = {1e-3f, -2e-3f, 3e-3f, -4e-3f};

/// Four points of that transient: time float64 and the others float32 (float64 under the
/// "double" flag), point by point or, under "fastaccess", variable by variable. Without
/// "double" the times of points 1 and 3 carry the writer's sign flag.
std::string ltTransient(const std::string& flags) {
  const bool doubles = flags.find("double") != std::string::npos;
  const auto time = [&](int p) { return bytesOf(!doubles && p % 2 == 1 ? -kTimes[p] : kTimes[p]); };
  const auto value = [&](float v) { return doubles ? bytesOf(double{v}) : bytesOf(v); };
  std::string data;
  for (int p = 0; p < 4; ++p) {
    data += time(p);
    if (flags.find("fastaccess") == std::string::npos) {
      data += value(kOut[p]) + value(kCurrent[p]);
    }
  }
  if (flags.find("fastaccess") != std::string::npos) {
    for (float v : kOut) {
      data += value(v);
    }
    for (float v : kCurrent) {
      data += value(v);
    }
  }
  return utf16(ltHeader(flags, 4)) + data;
}

std::vector<Plot> parseOk(const std::string& bytes, std::vector<std::string>* warnings = nullptr) {
  std::vector<Plot> plots;
  std::string error;
  EXPECT_TRUE(parsePlots(bytes, "mem.raw", plots, error, warnings)) << error;
  return plots;
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

/// Every signal of a dataset in one bulk read.
std::unique_ptr<simdata::ValueArray> readAll(simdata::Dataset* dataset) {
  simdata::SignalArray batch(dataset->signals()->count());
  for (int k = 0; k < dataset->signals()->count(); ++k) {
    batch.add(dataset->signals()->at(k));
  }
  return dataset->read(batch);
}

TEST(RawDialects, Utf16TransientInEveryLayoutReadsTheSameValues) {
  struct Case {
    const char* flags;
    size_t recordBytes;
    size_t currentOffset;  // of I(R1)
    bool variableMajor;
    Element element;
    int elementType;
  };
  const Case cases[] = {
      {"real forward", 16, 12, false, Element::kFloat32, simdata::kFloat32},
      {"real forward fastaccess", 16, 4 * 8 + 4 * 4, true, Element::kFloat32, simdata::kFloat32},
      {"real forward double", 24, 16, false, Element::kFloat64, simdata::kFloat64},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.flags);
    const std::vector<Plot> plots = parseOk(ltTransient(c.flags));
    ASSERT_EQ(plots.size(), 1u);
    EXPECT_TRUE(plots[0].utf16Header);
    EXPECT_EQ(plots[0].recordBytes, c.recordBytes);
    EXPECT_EQ(plots[0].variableMajor, c.variableMajor);
    EXPECT_EQ(plots[0].variables[0].element, Element::kFloat64);
    EXPECT_EQ(plots[0].variables[2].element, c.element);
    EXPECT_EQ(plots[0].variables[2].offset, c.currentOffset);

    OpenedFile file(ltTransient(c.flags));
    ASSERT_TRUE(file.results) << simdata::lastErrorText();
    simdata::Dataset* tran = file.results->findDataset("tran");
    ASSERT_TRUE(tran);
    const auto values = readAll(tran);
    ASSERT_TRUE(values);
    EXPECT_EQ(values->at(1)->yVector()->elementType(), c.elementType);
    for (int p = 0; p < 4; ++p) {  // the sign flag of the time values is gone
      EXPECT_EQ(simdata::getDataVectorAt(values->at(0)->yVector(), p), kTimes[p]);
      EXPECT_EQ(simdata::getDataVectorAt(values->at(1)->yVector(), p), kOut[p]);
      EXPECT_EQ(simdata::getDataVectorAt(values->at(2)->yVector(), p), kCurrent[p]);
    }
    EXPECT_EQ(tran->sweep()->range(0)->max, 3e-9);
  }

  const Plot plot = parseOk(ltTransient("real forward"))[0];
  EXPECT_EQ(plot.title, "* C:\\demo\\rc ½.asc");  // decoded, not byte-dropped
  EXPECT_TRUE(plot.absoluteScale);
  OpenedFile file(ltTransient("real forward"));
  // Recognised by its UTF-16 header even without the usual file name.
  writeFile(file.dir.file("results.bin"), ltTransient("real forward"));
  EXPECT_TRUE(simdata::RawBackend().recognises(file.dir.file("results.bin")));
  simdata::Dataset* tran = file.results->findDataset("tran");
  EXPECT_EQ(tran->signals()->at(2)->typeName, "device_current");
  EXPECT_STREQ(tran->readValue("I(R1)")->yVector()->baseUnits(), "A");
  auto out = tran->readValue("out");
  const simdata::DataVector* y = out->yVector();
  EXPECT_EQ(out->xVector()->doubles().size(), 4u);
  EXPECT_TRUE(y->doubles().empty());
  ASSERT_EQ(y->floats().size(), 4u);
  EXPECT_EQ(y->floats()[3], 0.25f);
}

// Float32 vectors (as the raw backend offers them) reach the statistics as doubles, NaN read
// as 0.0 as getDataVectorAt reads it.
TEST(RawDialects, Float32VectorsWidenForTheStatistics) {
  const std::vector<float> values = {1.5f, std::nanf(""), -2.25f};
  const simdata::ViewVector vector("v", "V", nullptr, values);
  std::vector<double> scratch;
  const analysis::Samples samples = analysis::samplesOf(&vector, scratch);
  ASSERT_EQ(samples.size(), 3);
  EXPECT_EQ(samples[0], 1.5);
  EXPECT_EQ(samples[1], 0.0);
  EXPECT_EQ(samples[2], -2.25);
}

// A float32 file and the same values stored as float64 must give the same statistics.
TEST(RawDialects, RunOverFloat32ValuesMatchesFloat64) {
  std::vector<std::vector<double>> results;
  for (const char* flags : {"real forward", "real forward double"}) {
    ScratchDir dir;
    writeFile(dir.file("x.raw"), ltTransient(flags));
    writeFile(dir.file("net"), "R1 out 0\nR2 out I(R1)\n");
    simdata::initialise();
    zeAnalyzeNetlist session;
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
    const ArgList open{dir.file("x.raw")}, select{"tran"}, net{dir.file("net")},
        window{"0", "3e-9"};
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
  std::string data;
  float level = 0.0f;
  for (const int length : {3, 2, 4}) {
    for (int p = 0; p < length; ++p) {
      data += bytesOf(p == 1 ? -kTimes[p] : kTimes[p]) + bytesOf(level) + bytesOf(-level);
      level += 1.0f;
    }
  }
  const std::string bytes = utf16(ltHeader("real forward stepped", 9)) + data;
  EXPECT_EQ(parseOk(bytes)[0].stepStarts, (std::vector<int>{0, 3, 5}));

  OpenedFile file(bytes);
  ASSERT_TRUE(file.results);
  simdata::Dataset* tran = file.results->findDataset("tran");
  const simdata::Sweep* sweep = tran->sweep();
  ASSERT_EQ(sweep->dimensionCount(), 2);
  EXPECT_EQ(sweep->range(0)->max, 3e-9);
  EXPECT_STREQ(sweep->name(1), "step");
  EXPECT_EQ(sweep->range(1)->dataType, simdata::kInt32);
  EXPECT_EQ(sweep->range(1)->maxInt(), 3);
  const auto values = readAll(tran);
  const simdata::Value* out = values->at(1);
  EXPECT_EQ(out->dimension(), 2);
  ASSERT_EQ(out->waveCount(), 3);
  const int lengths[] = {3, 2, 4};
  const float firsts[] = {0.0f, 3.0f, 5.0f};
  for (int s = 0; s < 3; ++s) {
    SCOPED_TRACE(s);
    const simdata::Value* run = out->waveAt(s);
    ASSERT_EQ(run->xVector()->length(), lengths[s]);
    ASSERT_EQ(run->yVector()->length(), lengths[s]);
    EXPECT_EQ(run->xVector()->doubleAt(1), 1e-9);
    EXPECT_EQ(run->yVector()->floatAt(0), firsts[s]);
    // Runs of different signals share their time vector.
    EXPECT_EQ(run->xVector(), values->at(2)->waveAt(s)->xVector());
  }
  // Readers of one waveform see the first run.
  const simdata::Value* first = simdata::getWaveform(out);
  ASSERT_EQ(first->yVector()->length(), 3);
  EXPECT_EQ(first->yVector()->floatAt(2), 2.0f);
}

TEST(RawDialects, SteppedOperatingPointIsAWaveformOverTheSteps) {
  const std::string header =
      "Title: * op\nDate: x\nPlotname: Operating Point\nFlags: real stepped\nNo. Variables: 2\n"
      "No. Points:            3\nOffset:   0\nCommand: Linear Technology Corporation LTspice\n"
      "Variables:\n\t0\tvin\tvoltage\n\t1\tV(mid)\tvoltage\nBinary:\n";
  OpenedFile file(utf16(header) + bytesOf(1.0) + bytesOf(0.5f) + bytesOf(2.0) + bytesOf(1.0f) +
                  bytesOf(3.0) + bytesOf(1.5f));
  ASSERT_TRUE(file.results);
  simdata::Dataset* op = file.results->findDataset("op");
  EXPECT_EQ(op->sweep(), nullptr);
  const auto values = readAll(op);
  const simdata::Value* mid = values->at(1);
  EXPECT_EQ(mid->kind(), simdata::kDataVectorValue);
  ASSERT_EQ(mid->yVector()->length(), 3);
  EXPECT_EQ(mid->xVector()->doubleAt(2), 3.0);
  EXPECT_EQ(mid->yVector()->floatAt(2), 1.5f);
  // A DC measure reads the first step.
  voltageData data0{};
  analysis::dcDifference(values.get(), 1, -1, data0);
  EXPECT_EQ(data0.peakValue, 0.5);
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

TEST(RawDialects, BytesAfterTheLastPlotAreReportedAndIgnored) {
  const std::string head =
      "Title: t\nDate: d\nPlotname: DC transfer characteristic\nFlags: real\nNo. Variables: 2\n"
      "No. Points: 1\nVariables:\n\t0\tv(v-sweep)\tvoltage\n\t1\tv(a)\tvoltage\n";
  const std::pair<std::string, std::string> cases[] = {
      {head + "Binary:\n" + bytesOf(-1.0) + bytesOf(2.0) + std::string(16, '\0'),
       "mem.raw: byte offset 170: 16 bytes after the data of plot 1 do not start a plot and were "
       "ignored"},
      {head + "Values:\n0\t-1.0\n\t2.0\n\nTIME,V(1)\n0.25,0.25\n",
       "mem.raw: line 14: 22 bytes after the data of plot 1 do not start a plot and were "
       "ignored"},
  };
  for (const auto& [bytes, warning] : cases) {
    SCOPED_TRACE(warning);
    std::vector<std::string> warnings;
    const std::vector<Plot> plots = parseOk(bytes, &warnings);
    ASSERT_EQ(plots.size(), 1u);
    EXPECT_EQ(plots[0].points, 1);
    EXPECT_EQ(warnings, std::vector<std::string>{warning});
    // The open succeeds and leaves the finding as a warning; the DC sweep may go negative.
    OpenedFile file(bytes);
    ASSERT_TRUE(file.results);
    EXPECT_EQ(simdata::lastErrorCode(), simdata::raw::kRawWarningCode);
    EXPECT_EQ(file.results->findDataset("dc")->readValue("v-sweep")->yVector()->doubleAt(0), -1.0);
  }
  simdata::resetError();
}

TEST(RawDialects, MalformedDialectFilesNameTheLineOrOffset) {
  std::string badVariable = ltHeader("real forward", 1);
  badVariable.replace(badVariable.find("\t2\tI(R1)"), 8, "\t2\t");
  std::string textAfterUtf16 = ltHeader("real forward", 1);
  textAfterUtf16.replace(textAfterUtf16.find("Binary:"), 7, "Values:");
  const std::string points = ltTransient("real forward");
  const std::string fast = ltTransient("real forward fastaccess");
  const std::string cut = "binary data of plot 1 is truncated: 3 complete of 4 points of 16 bytes";
  const std::pair<std::string, std::string> cases[] = {
      {utf16(badVariable),
       "mem.raw: line 13: expected 'index name type' for variable 2, found '2  device_current'"},
      {utf16(textAfterUtf16), "mem.raw: line 14: text values after a UTF-16 header are not read"},
      {points.substr(0, points.size() - 3), cut},
      {fast.substr(0, fast.size() - 1), cut},
      {"Plotname: tran\nFlags: real unpadded\nNo. Variables: 2\nNo. Points: 3\nVariables:\n"
       " 0 time time\n 1 x notype dims=1\nBinary:\n" +
           bytesOf(0.0) + bytesOf(7.0) + bytesOf(1.0),
       "mem.raw: byte offset 142: binary data of plot 1 is truncated: variable x needs bytes "
       "beyond the end of the file"},
      {utf16("Title: x\nPlotname: y") + "P",
       "mem.raw: line 2: the header of plot 1 ends before 'Variables:'"},
  };
  for (const auto& [bytes, message] : cases) {
    SCOPED_TRACE(message);
    std::vector<Plot> plots;
    std::string error;
    EXPECT_FALSE(parsePlots(bytes, "mem.raw", plots, error));
    EXPECT_NE(error.find(message), std::string::npos) << error;
  }
}

// Every prefix and corrupted copies of the dialect files fail cleanly or parse, and copies
// that parse are opened and read through (run under the sanitizers in CI).
TEST(RawDialects, SurviveTruncationAndCorruption) {
  const std::string stepped = utf16(ltHeader("real forward stepped fastaccess", 4)) + bytesOf(0.0) +
                              bytesOf(-1e-9) + bytesOf(0.0) + bytesOf(1e-9) +
                              std::string(32, '\x3f');
  for (const std::string& bytes :
       {ltTransient("real forward"), ltTransient("real forward fastaccess"), stepped}) {
    for (size_t cut = 0; cut <= bytes.size(); ++cut) {
      std::vector<Plot> plots;
      std::string error;
      if (!parsePlots(std::string_view(bytes).substr(0, cut), "cut.raw", plots, error)) {
        EXPECT_EQ(error.rfind("cut.raw: ", 0), 0u) << error;
      }
    }
    ScratchDir dir;
    std::string corrupt = bytes;
    for (size_t i = 0; i < corrupt.size(); i += 3) {
      const char saved = corrupt[i];
      corrupt[i] = static_cast<char>(saved ^ 0x41);
      writeFile(dir.file("x.raw"), corrupt);
      const auto results = simdata::RawBackend().open(dir.file("x.raw"));
      const simdata::DatasetArray* datasets = results ? results->datasets() : nullptr;
      for (int d = 0; datasets != nullptr && d < datasets->count(); ++d) {
        const auto values = readAll(datasets->at(d));
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