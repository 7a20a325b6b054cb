#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "simdata/rawBackend.h"
#include "simdata/rawFile.h"
#include "support/testFiles.h"

using simdata::raw::DataLayout;
using simdata::raw::Numbers;
using simdata::raw::parsePlots;
using simdata::raw::Plot;
using simdata::raw::RawFile;
using testing_support::readFile;

namespace {

std::string fixture(const std::string& name) {
  return std::string(KRA2_SOURCE_DIR) + "/tests/data/ngspice/" + name;
}

/// A binary raw file: the header text followed by little-endian doubles.
std::string binaryPlot(const std::string& header, const std::vector<double>& values) {
  std::string bytes = header + "Binary:\n";
  for (double v : values) {
    char raw[8];
    std::memcpy(raw, &v, sizeof raw);
    bytes.append(raw, sizeof raw);
  }
  return bytes;
}

std::string header(const std::string& plotname, int variables, int points,
                   const std::string& flags = "real") {
  std::string text = "Title: test\nDate: today\nPlotname: " + plotname + "\nFlags: " + flags +
                     "\nNo. Variables: " + std::to_string(variables) +
                     "\nNo. Points: " + std::to_string(points) + "\nVariables:\n";
  for (int v = 0; v < variables; ++v) {
    text += "\t" + std::to_string(v) + "\t" + (v == 0 ? "time" : "v(n" + std::to_string(v) + ")") +
            "\t" + (v == 0 ? "time" : "voltage") + "\n";
  }
  return text;
}

std::vector<Plot> parseOk(const std::string& bytes) {
  std::vector<Plot> plots;
  std::string error;
  EXPECT_TRUE(parsePlots(bytes, "mem.raw", plots, error)) << error;
  return plots;
}

std::string parseError(const std::string& bytes) {
  std::vector<Plot> plots;
  std::string error;
  EXPECT_FALSE(parsePlots(bytes, "mem.raw", plots, error));
  EXPECT_TRUE(plots.empty());
  return error;
}

// The batch run (.dc v1 0 2 0.5, .op, .tran) and an AC sweep (ac dec 2 1k 1meg of a 1 + 0j
// source), written by ngspice.
TEST(RawFile, NgspiceBatchAndAcHoldTheCircuitValues) {
  std::string error;
  auto batch = RawFile::open(fixture("rc_batch.raw"), error);
  ASSERT_TRUE(batch) << error;
  ASSERT_EQ(batch->plots().size(), 3u);
  const Plot& dc = batch->plots()[0];
  EXPECT_EQ(batch->plots()[1].plotname, "Operating Point");
  // "No. Points: 5       ": the writer reserves eight columns.
  EXPECT_EQ(dc.points, 5);
  EXPECT_EQ(batch->plots()[1].points, 1);
  for (int p = 0; p < 5; ++p) {  // with no load at DC, v(out) follows the source exactly
    EXPECT_EQ(batch->valueAt(dc, 0, p), 0.5 * p);
    EXPECT_EQ(batch->valueAt(dc, 2, p), 0.5 * p);
  }
  const Plot& tran = batch->plots()[2];
  EXPECT_EQ(batch->valueAt(tran, 0, tran.points - 1), 3e-7);

  const Plot& op = batch->plots()[1];
  EXPECT_EQ(batch->valueAt(op, op.variableCount(), 0), 0.0);  // out of range
  EXPECT_EQ(batch->valueAt(op, 0, 1), 0.0);

  auto ac = RawFile::open(fixture("rc_ac.raw"), error);
  ASSERT_TRUE(ac) << error;
  const Plot& sweep = ac->plots().at(0);
  EXPECT_EQ(sweep.numbers, Numbers::kComplex);
  EXPECT_EQ(sweep.recordBytes, 64u);
  ASSERT_EQ(sweep.points, 7);
  EXPECT_EQ(sweep.variables[0].options, std::vector<std::string>{"grid=3"});
  EXPECT_NEAR(ac->valueAt(sweep, 0, 2), 1e4, 1e-8);
  EXPECT_NEAR(ac->valueAt(sweep, 0, 6), 1e6, 1e-6);
  EXPECT_EQ(ac->valueAt(sweep, 1, 3), 1.0);
}

// Text data as each writer prints it, and short vectors padded with zeros: the decoded real
// parts, variable by variable.
TEST(RawFile, DecodedValuesOfEveryWriter) {
  const std::string unpadded =
      "Title: t\nDate: d\nPlotname: Transient Analysis\nFlags: real unpadded\nNo. Variables: 3\n"
      "No. Points: 3\nVariables:\n\t0\ttime\ttime\n\t1\tv(a)\tvoltage\n"
      "\t2\tileak_value\tnotype dims=1\n";
  const std::vector<double> padded = {0, 1e-9, 2e-9, 1, 2, 3, 5e-3, 0, 0};
  struct Case {
    const char* name;
    std::string text;
    std::vector<double> decoded;
  };
  const Case cases[] = {
      {"keys in any order, unknown keys, CRLF, first variable on the Variables line",
       "Plotname: Transient Analysis\r\nNo. Points:   2  \r\nOffset: 0\r\nTitle: t\r\n"
       "No. Variables: 2\r\nCommand: ngspice-44\r\nVariables: 0 time time\r\n"
       "\t1\tv(a)\tvoltage\r\nVALUES:\r\n0\t\t0.0\r\n\t1.5\r\n1\t\t1e-9\r\n\t-2\r\n",
       {0.0, 1e-9, 1.5, -2.0}},
      {"keys in lower case, a parameter line without a key",
       "plotname: tran\n.param x=1\nno. variables: 1\nno. points: 1\nvariables:\n 0 t time\n"
       "values:\n0 7\n",
       {7.0}},
      {"announced with 0 points: the points present are counted",
       "Plotname: Transient Analysis\nNo. Variables: 2\nNo. Points: 0       \nVariables:\n"
       "\t0\ttime\ttime\n\t1\tv(a)\tvoltage\nValues:\n0\t\t0\n\t1\n1\t\t1\n\t2\n2\t\t2\n\t3\n",
       {0, 1, 2, 1, 2, 3}},
      {"no points at all",
       "Plotname: Operating Point\nNo. Variables: 1\nNo. Points: 0\nVariables:\n 0 v(a) "
       "voltage\nValues:\n",
       {}},
      {"CRLF lines, complex values written 're,<tab>im', three-digit exponents, a plus sign",
       "Title: * x\r\nDate: y\r\nPlotname: AC Analysis\r\nFlags: complex forward log\r\n"
       "No. Variables: 2\r\nNo. Points:           2\r\nOffset:   0\r\nCommand: Linear "
       "Technology Corporation LTspice\r\nVariables:\r\n\t0\tfrequency\tfrequency\r\n"
       "\t1\tV(out)\tvoltage\r\nValues:\r\n0\t\t1.000000000000000e+003,\t0.0e+000\r\n"
       "\t5.0e-001,-2.5e-001\r\n1\t\t2.0e+003,\t0.0e+000\r\n\t+2.5e-001,\t1\r\n",
       {1e3, 2e3, 0.5, 0.25}},
      {"blank after the comma, blank line after each point, 8 digits",
       "Title: x\nDate: y\nPlotname: AC Analysis\nFlags: complex\nNo. Variables: 2\n"
       "No. Points: 2                 \nVariables:\n\t0\tfrequency\tfrequency\n\t1\tOUT\tvoltage\n"
       "Values:\n0\t1.00000000e+00, 0.00000000e+00\n\t9.99960523e-01, -6.28293727e-03\n\n"
       "1\t1.25892541e+00, 0.00000000e+00\n\t9.99937435e-01, -7.90956676e-03\n\n",
       {1.0, 1.25892541, 9.99960523e-01, 9.99937435e-01}},
      {"unpadded text",
       unpadded + "Values:\n 0\t0\n\t1\n\t5e-3\n\n 1\t1e-9\n\t2\n\n 2\t2e-9\n\t3\n\n", padded},
      {"unpadded binary", binaryPlot(unpadded, {0, 1, 5e-3, 1e-9, 2, 2e-9, 3}), padded},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<Plot> plots = parseOk(c.text);
    ASSERT_EQ(plots.size(), 1u);
    ASSERT_TRUE(plots[0].decoded);
    EXPECT_EQ(*plots[0].decoded, c.decoded);
  }
}

TEST(RawFile, BinaryPlotsBackToBackAndCountedPoints) {
  const std::string first = binaryPlot(header("Transient Analysis", 3, 2), {0, 1, 2, 1e-9, 3, 4});
  const std::string second = binaryPlot(header("Operating Point", 2, 1), {5, 6});
  const std::vector<Plot> plots = parseOk(first + second);
  ASSERT_EQ(plots.size(), 2u);
  EXPECT_EQ(plots[1].headerOffset, first.size());
  EXPECT_EQ(plots[1].dataOffset, second.size() - 16 + first.size());

  // An interrupted batch run leaves "No. Points: 0" with whole records behind it, up to the
  // end of the file or the next plot; nothing at all is a plot of no points.
  const std::string zero = header("Transient Analysis", 2, 0);
  const std::pair<std::string, int> cases[] = {
      {binaryPlot(zero, {0, 1, 1, 2, 2, 3}), 3},
      {binaryPlot(zero, {0, 1, 1e-9, 2}) + second, 2},
      {binaryPlot(zero, {}) + second, 0},
  };
  for (const auto& [bytes, points] : cases) {
    SCOPED_TRACE(points);
    EXPECT_EQ(parseOk(bytes).at(0).points, points);
  }
  testing_support::ScratchDir dir;
  testing_support::writeFile(dir.file("x.raw"), cases[2].first);
  auto results = simdata::RawBackend().open(dir.file("x.raw"));
  ASSERT_TRUE(results);
  EXPECT_EQ(results->findDataset("tran")->readValue("n1")->yVector()->length(), 0);
  EXPECT_EQ(results->findDataset("op")->readValue("n1")->scalar(), 6.0);
}

TEST(RawFile, GatherReadsAnyColumnsInOnePass) {
  testing_support::ScratchDir dir;
  std::vector<double> values;
  for (int i = 0; i < 20; ++i) {
    values.push_back((i / 4) * 10.0 + i % 4);  // point p, variable v: 10 p + v
  }
  testing_support::writeFile(dir.file("g.raw"),
                             binaryPlot(header("Transient Analysis", 4, 5), values));
  std::string error;
  auto file = RawFile::open(dir.file("g.raw"), error);
  ASSERT_TRUE(file) << error;
  const Plot& plot = file->plots()[0];
  // Unsorted and repeated columns; an out-of-range column is refused as a whole.
  const int columns[] = {3, 1, 3, 0};
  std::vector<std::vector<double>> out(4, std::vector<double>(5, -1.0));
  double* targets[] = {out[0].data(), out[1].data(), out[2].data(), out[3].data()};
  file->gather(plot, columns, targets);
  for (int k = 0; k < 4; ++k) {
    for (int p = 0; p < 5; ++p) {
      EXPECT_EQ(out[k][p], p * 10.0 + columns[k]) << k << "," << p;
    }
  }
  const int bad[] = {1, 4};
  std::vector<double> untouched(5, -1.0);
  double* badTargets[] = {untouched.data(), untouched.data()};
  file->gather(plot, bad, badTargets);
  EXPECT_EQ(untouched, std::vector<double>(5, -1.0));
}

/// A text raw file: the header text followed by one row of values per point.
std::string asciiPlot(const std::string& header,
                      const std::vector<std::vector<const char*>>& rows) {
  std::string text = header + "Values:\n";
  for (size_t p = 0; p < rows.size(); ++p) {
    text += std::to_string(p);
    for (const char* value : rows[p]) {
      text += std::string("\t") + value + "\n";
    }
  }
  return text;
}

TEST(RawFile, OddValuesAreReportedAndKept) {
  const std::string tran2 = header("Transient Analysis", 2, 3);
  const std::string stepped = header("Transient Analysis", 2, 4, "real stepped");
  const std::string sweep =
      "Plotname: DC transfer characteristic\nNo. Variables: 2\nNo. Points: 3\nVariables:\n"
      "\t0\tv(in)\tvoltage\n\t1\tv(out)\tvoltage\n";
  struct Case {
    const char* name;
    std::string bytes;
    std::vector<std::string> warnings;
  };
  const Case cases[] = {
      {"time runs backwards (text)",
       asciiPlot(tran2, {{"0", "1"}, {"2e-9", "1"}, {"1e-9", "1"}}),
       {"mem.raw: plot 1: the time axis goes backwards at point 2 (1e-09 after 2e-09)"}},
      {"time runs backwards (binary)",
       binaryPlot(tran2, {0, 1, 2e-9, 1, 1e-9, 1}),
       {"mem.raw: plot 1: the time axis goes backwards at point 2 (1e-09 after 2e-09)"}},
      {"NaN on the time axis",
       asciiPlot(tran2, {{"0", "1"}, {"nan", "1"}, {"2e-9", "1"}}),
       {"mem.raw: plot 1: the time axis holds NaN at point 1",
        "mem.raw: plot 1: 1 NaN and 0 infinite values, the first at point 1 of time"}},
      {"infinite time in binary data",
       binaryPlot(tran2, {0, 1, -INFINITY, 1, 1, 1}),
       {"mem.raw: plot 1: the time axis holds -infinity at point 1"}},
      {"NaN and infinite values (text)",
       asciiPlot(tran2, {{"0", "1"}, {"1e-9", "inf"}, {"2e-9", "nan"}}),
       {"mem.raw: plot 1: 1 NaN and 1 infinite values, the first at point 1 of v(n1)"}},
      // Binary values other than the axis are not scanned (that would be a pass over the whole
      // file); they reach the results as they are.
      {"NaN values (binary)", binaryPlot(tran2, {0, NAN, 1e-9, 1, 2e-9, INFINITY}), {}},
      {"a stepped plot restarts its time axis",
       asciiPlot(stepped, {{"0", "1"}, {"1", "2"}, {"0", "3"}, {"1", "4"}}),
       {}},
      {"a DC sweep may run downwards",
       asciiPlot(sweep, {{"5", "1"}, {"2.5", "2"}, {"0", "3"}}),
       {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<Plot> plots;
    std::string error;
    std::vector<std::string> warnings;
    ASSERT_TRUE(parsePlots(c.bytes, "mem.raw", plots, error, &warnings)) << error;
    EXPECT_EQ(plots.size(), 1u);
    EXPECT_EQ(warnings, c.warnings);
  }
}

TEST(RawFile, MalformedFilesNameTheLineOrByteOffset) {
  const std::string good = header("Transient Analysis", 2, 2);
  const std::string binaryBody = binaryPlot(header("Transient Analysis", 2, 2), {0, 1, 1, 2});
  struct Case {
    const char* name;
    std::string text;
    const char* error;
  };
  const Case cases[] = {
      {"empty", "", "mem.raw: line 1: no plot in the file (it is empty)"},
      {"garbage", std::string("\x7f\x45LF\x02\x01\x01\0\0:\0\n", 12),
       "mem.raw: line 1: expected a header line 'Key: value', found '?ELF?????:?'"},
      {"UTF-16 header cut short", std::string("T\0i\0t\0l\0e\0:\0", 12),
       "mem.raw: line 1: the header of plot 1 ends before 'Variables:'"},
      {"header never ends", "Title: x\nPlotname: tran\n",
       "mem.raw: line 3: the header of plot 1 ends before 'Variables:'"},
      {"no plotname", "No. Variables: 1\nNo. Points: 1\nVariables:\n 0 t time\nValues:\n0 1\n",
       "mem.raw: line 3: the header has no 'Plotname:' line"},
      {"count not a number", "Plotname: tran\nNo. Variables: 2\nNo. Points: many\n",
       "mem.raw: line 3: 'No. Points' must be a count, found 'many'"},
      {"negative count", "Plotname: tran\nNo. Variables: -2\n",
       "mem.raw: line 2: 'No. Variables' must be a positive count, found '-2'"},
      {"huge count", "Plotname: tran\nNo. Variables: 1\nNo. Points: 99999999999\n",
       "mem.raw: line 3: 'No. Points' must be a count, found '99999999999'"},
      {"fewer variable lines than announced",
       "Plotname: tran\nNo. Variables: 3\nNo. Points: 1\nVariables:\n 0 t time\n 1 v(a) voltage\n"
       "Values:\n0 1 2\n",
       "mem.raw: line 7: the header announces 3 variables but lists 2"},
      {"more variable lines than announced",
       "Plotname: tran\nNo. Variables: 1\nNo. Points: 1\nVariables:\n 0 t time\n 1 v(a) voltage\n"
       "Values:\n0 1 2\n",
       "mem.raw: line 6: expected 'Values:' or 'Binary:' after 1 variables, found '1 v(a) "
       "voltage'"},
      {"variable numbered wrongly",
       "Plotname: tran\nNo. Variables: 2\nNo. Points: 1\nVariables:\n 0 t time\n 2 v(a) voltage\n",
       "mem.raw: line 6: variable 1 is numbered '2'"},
      {"variable without type",
       "Plotname: tran\nNo. Variables: 1\nNo. Points: 1\nVariables:\n 0 t\n",
       "mem.raw: line 5: expected 'index name type' for variable 0, found '0 t'"},
      {"text cut in the middle of a point", good + "Values:\n 0\t0.0\n\t1.0\n\n 1\t1e-9\n",
       "mem.raw: line 15: the data ends inside point 1 (at variable 1 of 2)"},
      {"text cut between points", good + "Values:\n 0\t0.0\n\t1.0\n\n",
       "mem.raw: line 14: the data ends after 1 of 2 points"},
      {"header announces fewer variables than each point holds",
       header("Transient Analysis", 2, 2) + "Values:\n0 0 1 7\n1 1 2 8\n",
       "mem.raw: line 11: expected the index of point 1, found '7'"},
      {"not a number", good + "Values:\n0 0 1\n1 1 x2\n",
       "mem.raw: line 12: expected a number for variable 1 of point 1, found 'x2'"},
      {"complex value without comma", header("AC Analysis", 2, 1, "complex") + "Values:\n0 1,0 2\n",
       "mem.raw: line 11: expected a complex number 're,im' for variable 1 of point 0"},
      {"binary cut in the middle", binaryBody.substr(0, binaryBody.size() - 5),
       "mem.raw: byte offset 172: binary data of plot 1 is truncated: 1 complete of 2 points of "
       "16 bytes from byte offset 145"},
      {"binary counted records ending inside a record",
       binaryPlot(header("Transient Analysis", 2, 0), {0, 1, 1}),
       "mem.raw: byte offset 169: binary data of plot 1 (announced with 0 points) ends inside a "
       "record"},
      {"text after a binary plot is placed by byte offset", binaryBody + "Title: x\nPlotname: y\n",
       "mem.raw: byte offset 198: the header of plot 2 ends before 'Variables:'"},
      {"unpadded text data cut short",
       "Plotname: tran\nFlags: real unpadded\nNo. Variables: 2\nNo. Points: 3\nVariables:\n"
       " 0 time time\n 1 x notype dims=1\nValues:\n0 0 5\n1 1\n",
       "mem.raw: line 11: the data ends after 2 of 3 points"},
      {"malformed dims option",
       "Plotname: tran\nNo. Variables: 2\nNo. Points: 3\nVariables:\n 0 time time\n"
       " 1 x notype dims=1,,2\n",
       "mem.raw: line 6: variable 1 has a malformed option 'dims=1,,2'"},
      {"missing marker", good, "mem.raw: line 10: the file ends before 'Values:' or 'Binary:'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string error = parseError(c.text);
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
  }
}

// Whatever the damage, the parser must fail cleanly or succeed: every prefix and some
// corrupted copies of real files (run under the sanitizers in CI).
TEST(RawFile, SurvivesTruncationAndCorruptionAtEveryOffset) {
  for (const char* name : {"rc_tran.ascii.raw", "rc_two_tran.raw", "rc_batch.raw", "rc_ac.raw"}) {
    SCOPED_TRACE(name);
    const std::string bytes = readFile(fixture(name));
    ASSERT_FALSE(bytes.empty());
    int failures = 0;
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
      std::vector<Plot> plots;
      std::string error;
      if (!parsePlots(std::string_view(bytes).substr(0, cut), "cut.raw", plots, error)) {
        ++failures;
        EXPECT_EQ(error.rfind("cut.raw: ", 0), 0u) << error;
      }
    }
    EXPECT_GT(failures, 0);
    std::string corrupt = bytes;
    for (size_t i = 0; i < corrupt.size(); i += 7) {
      const char saved = corrupt[i];
      corrupt[i] = static_cast<char>(saved ^ 0x5a);
      std::vector<Plot> plots;
      std::string error;
      parsePlots(corrupt, "bad.raw", plots, error);
      corrupt[i] = saved;
    }
  }
}

TEST(RawFile, OpenReportsFilesThatCannotBeRead) {
  std::string error;
  EXPECT_FALSE(RawFile::open("/nonexistent/x.raw", error));
  EXPECT_EQ(error, "/nonexistent/x.raw: cannot open: No such file or directory");
  testing_support::ScratchDir dir;
  testing_support::writeFile(dir.file("empty.raw"), "");
  EXPECT_FALSE(RawFile::open(dir.file("empty.raw"), error));
  EXPECT_EQ(error, dir.file("empty.raw") + ": line 1: no plot in the file (it is empty)");
}

}  // namespace
