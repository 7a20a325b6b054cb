// The PSF ASCII parser on small files written here for each feature and quirk of the format.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "simdata/psfFile.h"

using simdata::psf::parsePsf;
using simdata::psf::PsfData;
using simdata::psf::Quantity;

namespace {

PsfData parseOk(const std::string& text) {
  PsfData data;
  std::string error;
  EXPECT_TRUE(parsePsf(text, "mem.psf", data, error)) << error;
  return data;
}

const Quantity* find(const PsfData& data, const std::string& name) {
  for (const Quantity& quantity : data.quantities) {
    if (quantity.name == name) {
      return &quantity;
    }
  }
  ADD_FAILURE() << "no quantity " << name;
  return nullptr;
}

const std::vector<double>& columnOf(const PsfData& data, const std::string& name) {
  static const std::vector<double> none;
  const Quantity* quantity = find(data, name);
  return quantity != nullptr ? data.columns[quantity->column] : none;
}

const char* const kTypes =
    "TYPE\n\"sweep\" FLOAT DOUBLE PROP(\n\"key\" \"sweep\"\n)\n"
    "\"V\" FLOAT DOUBLE PROP(\n\"units\" \"V\"\n\"key\" \"node\"\n\"tolerance\" 1.00000e-06\n)\n"
    "\"I\" FLOAT DOUBLE PROP(\n\"units\" \"A\"\n)\n"
    "\"Z\" COMPLEX DOUBLE\n";

TEST(PsfFile, SweptTracesGroupsAndNumberForms) {
  const std::string text =
      std::string(
          "HEADER\n\"PSFversion\" \"1.00\"\n\"analysis type\" \"tran\"\n\"temp\" 25.0000\n") +
      kTypes +
      "SWEEP\n\"time\" \"sweep\" PROP(\n\"units\" \"s\"\n\"grid\" 1\n)\n"
      "TRACE\n\"V1:p\" \"I\" PROP(\n\"units\" \"mA\"\n)\n"
      "\"group\" GROUP 2\n\"I48.LOGIC_OUT\\<3\\>\" \"V\"\n\"vdd!\" \"V\"\n"
      "\"z\" \"Z\"\n"
      "VALUE\n"
      "\"time\" 0e+00\n\"V1:p\" 778810.\n\"group\" .1e-2\n-2.5\n\"z\" (1 -2)\n"
      "\"time\" 1e-09\n\"V1:p\" nan\n\"group\" inf\n-inf\n\"z\" (3.5 4) PROP( )\n"
      "END\n";
  const PsfData data = parseOk(text);
  EXPECT_TRUE(data.swept);
  EXPECT_EQ(data.sweepName, "time");
  EXPECT_EQ(data.sweepUnits, "s");
  EXPECT_EQ(data.sweepValues, (std::vector<double>{0.0, 1e-9}));
  ASSERT_EQ(data.quantities.size(), 4u);
  EXPECT_EQ(data.findHeader("analysis type")->text, "tran");
  EXPECT_TRUE(data.findHeader("temp")->isNumber);
  EXPECT_EQ(data.findHeader("temp")->number, 25.0);

  const Quantity* current = find(data, "V1:p");
  EXPECT_EQ(current->typeName, "I");
  EXPECT_EQ(current->units, "mA");  // the trace's own PROP wins over its type's
  const std::vector<double>& values = columnOf(data, "V1:p");
  EXPECT_EQ(values[0], 778810.0);
  EXPECT_TRUE(std::isnan(values[1]));
  // Group members take the group's values in member order; escapes are removed from names.
  const Quantity* bus = find(data, "I48.LOGIC_OUT<3>");
  EXPECT_EQ(bus->written, "I48.LOGIC_OUT\\<3\\>");
  EXPECT_EQ(bus->units, "V");
  EXPECT_EQ(columnOf(data, "I48.LOGIC_OUT<3>"), (std::vector<double>{1e-3, INFINITY}));
  EXPECT_EQ(columnOf(data, "vdd!"), (std::vector<double>{-2.5, -INFINITY}));
  EXPECT_TRUE(find(data, "z")->complex);
  EXPECT_EQ(columnOf(data, "z"), (std::vector<double>{1.0, 3.5}));
}

TEST(PsfFile, RecordEntriesAndUnsweptValues) {
  const std::string text =
      "HEADER\n\"design\" \"(\\\"hj03\\\" \\\"psftest\\\")\"\n"
      "TYPE\n\"V\" FLOAT DOUBLE PROP(\n\"units\" \"V\"\n)\n\"I\" FLOAT DOUBLE\n"
      "\"resistor\" STRUCT(\n\"r\" FLOAT DOUBLE\n\"pwr\" FLOAT DOUBLE PROP(\n\"units\" \"W\"\n)\n"
      "\"model\" STRING *\n\"phi     \" FLOAT DOUBLE\n\"pins\" ARRAY ( * ) STRING *\n) PROP(\n"
      "\"key\" \"element\"\n)\n"
      "\"inner\" STRUCT(\n\"v\" FLOAT DOUBLE\n\"sub\" STRUCT(\n\"a\" INT LONG\n\"b\" COMPLEX "
      "DOUBLE\n)\n)\n"
      "VALUE\n"
      "\"out\" \"V\" 1.5\n"
      "\"Vsupply:p\" \"I\" -1.05e-06 PROP(\n\"units\" \"A\"\n)\n"
      "\"R1\" \"resistor\" (\n1000\n2.5e-3\n\"rpoly (a)\"\n0.7\n( \"1\" \"2\" )\n) PROP(\n"
      "\"model\" \"rpoly\"\n)\n"
      "\"X\" \"inner\" ( 1 ( 2 (3 4) ) )\n"
      "END\n";
  const PsfData data = parseOk(text);
  EXPECT_FALSE(data.swept);
  EXPECT_EQ(data.findHeader("design")->text, "(\"hj03\" \"psftest\")");
  const std::vector<std::pair<std::string, double>> expected = {
      {"out", 1.5}, {"Vsupply:p", -1.05e-06}, {"R1:r", 1000}, {"R1:pwr", 2.5e-3}, {"R1:phi", 0.7},
      {"X:v", 1},   {"X:sub:a", 2},           {"X:sub:b", 3}};
  ASSERT_EQ(data.quantities.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(expected[i].first);
    EXPECT_EQ(data.quantities[i].name, expected[i].first);
    EXPECT_EQ(data.quantities[i].scalar, expected[i].second);
  }
  EXPECT_EQ(find(data, "R1:pwr")->typeName, "resistor");
  EXPECT_EQ(find(data, "R1:pwr")->units, "W");
  EXPECT_EQ(find(data, "out")->units, "V");
  EXPECT_EQ(find(data, "Vsupply:p")->units, "A");  // from the entry's PROP
  EXPECT_TRUE(find(data, "X:sub:b")->complex);
  ASSERT_EQ(data.records.size(), 1u);
  EXPECT_EQ(data.records[0].name, "R1");
  ASSERT_TRUE(data.records[0].text("model"));
  EXPECT_EQ(*data.records[0].text("model"), "rpoly (a)");
}

TEST(PsfFile, SectionCombinationsOfRealFiles) {
  struct Case {
    const char* name;
    std::string text;
    bool swept;
    size_t points;
    size_t quantities;
  };
  const Case cases[] = {
      {"header only", "HEADER\n\"PSFversion\" \"1.00\"\n\"analysis type\" \"info\"\nEND\n", false,
       0, 0},
      {"END right after HEADER, no header entries", "HEADER END", false, 0, 0},
      {"empty TRACE: only sweep values",
       std::string("HEADER\n") + kTypes +
           "SWEEP\n\"f\" \"sweep\"\nTRACE\nVALUE\n\"f\" 1\n\"f\" 2\n\"f\" 3\nEND\n",
       true, 3, 0},
      {"swept without TRACE: traces named in the first point",
       std::string("HEADER\n") + kTypes +
           "SWEEP\n\"v\" \"sweep\"\nVALUE\n\"v\" 0\n\"a\" 1\n\"b\" \"V\" 2\n\"z\" (1 1)\n"
           "\"v\" 1\n\"a\" 3\n\"b\" 4\n\"z\" (2 2)\nEND",
       true, 2, 3},
      {"all on one line, CRLF elsewhere",
       "HEADER \"a\" 1\r\nTYPE \"V\" FLOAT DOUBLE SWEEP \"t\" \"V\" TRACE \"x\" \"V\" VALUE "
       "\"t\" 0 \"x\" 1 \"t\" 1 \"x\" 2 END\r\n",
       true, 2, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const PsfData data = parseOk(c.text);
    EXPECT_EQ(data.swept, c.swept);
    EXPECT_EQ(data.sweepValues.size(), c.points);
    EXPECT_EQ(data.quantities.size(), c.quantities);
    for (const Quantity& quantity : data.quantities) {
      EXPECT_EQ(data.columns.at(quantity.column).size(), c.points);
    }
  }
  const PsfData undeclared = parseOk(cases[3].text);
  EXPECT_TRUE(find(undeclared, "z")->complex);
  EXPECT_EQ(find(undeclared, "b")->typeName, "V");
  EXPECT_EQ(columnOf(undeclared, "b"), (std::vector<double>{2, 4}));
}

TEST(PsfFile, MalformedFilesNameTheLine) {
  const std::string head = std::string("HEADER\n") + kTypes;
  const std::string swept =
      head + "SWEEP\n\"t\" \"sweep\"\nTRACE\n\"a\" \"V\"\n\"b\" \"V\"\nVALUE\n";
  std::string deep = "HEADER\nTYPE\n";
  for (int i = 0; i < 20; ++i) {
    deep += "\"s" + std::to_string(i) + "\" STRUCT(\n";
  }
  struct Case {
    const char* name;
    std::string text;
    const char* error;
  };
  const Case cases[] = {
      {"empty", "",
       "mem.psf: line 1: not a PSF ASCII file: it does not start with HEADER (found "
       "the end of the file)"},
      {"string not closed", "HEADER\n\"PSFversion\" \"1.00\n",
       "mem.psf: line 2: a string that starts here is not closed"},
      {"header value missing", "HEADER\n\"a\" END\n",
       "mem.psf: line 2: expected the value of header entry \"a\", found 'END'"},
      {"no END", head, "mem.psf: line 15: expected a section (TYPE, SWEEP, TRACE, VALUE) or END"},
      {"type without kind", "HEADER\nTYPE\n\"x\" PROP( )\nEND\n",
       "mem.psf: line 3: type \"x\" has no kind"},
      {"record types nested too deeply", deep, "record types nested deeper than 16 levels"},
      {"undefined type", head + "VALUE\n\"a\" \"Q\" 1\nEND\n",
       "mem.psf: line 16: type \"Q\" is not defined in the TYPE section"},
      {"group with fewer members than announced",
       head + "SWEEP\n\"t\" \"sweep\"\nTRACE\n\"g\" GROUP 3\n\"a\" \"V\"\nVALUE\n",
       "mem.psf: line 20: GROUP \"g\" announces 3 members but lists 1"},
      {"group count out of range", head + "SWEEP\n\"t\" \"sweep\"\nTRACE\n\"g\" GROUP 1e300\n",
       "mem.psf: line 18: expected the member count of GROUP \"g\", found '1e300'"},
      {"value before the first sweep value", swept + "\"a\" 1\n",
       "mem.psf: line 21: the value of \"a\" comes before the first sweep value"},
      {"trace missing from a point", swept + "\"t\" 0\n\"a\" 1\n\"t\" 1\n",
       "mem.psf: line 23: point 0 (t = 0) has no value for \"b\""},
      {"trace missing from the last point", swept + "\"t\" 0\n\"a\" 1\n\"b\" 2\n\"t\" 1\nEND\n",
       "mem.psf: line 25: point 1 (t = 1) has no value for \"a\""},
      {"trace twice in a point", swept + "\"t\" 0\n\"a\" 1\n\"a\" 2\n",
       "mem.psf: line 23: \"a\" has two values in point 0"},
      {"unknown trace", swept + "\"t\" 0\n\"c\" 1\n",
       "mem.psf: line 22: \"c\" is neither the sweep variable nor a trace listed in TRACE"},
      {"not a number", swept + "\"t\" 0\n\"a\" 1.2.3\n",
       "mem.psf: line 22: expected a number for \"a\", found '1.2.3'"},
      {"complex value cut", head + "VALUE\n\"z\" \"Z\" (1 \n",
       "mem.psf: line 17: expected the imaginary part of a complex value, found the end of the "
       "file"},
      {"record with too few fields",
       "HEADER\nTYPE\n\"r\" STRUCT(\n\"a\" FLOAT DOUBLE\n\"b\" FLOAT DOUBLE\n)\nVALUE\n\"R\" \"r\" "
       "(\n1\n)\nEND",
       "mem.psf: line 10: the value of \"R\" has fewer than its 2 fields"},
      {"list not closed", "HEADER\nTYPE\n\"a\" ARRAY ( * ) STRING *\nVALUE\n\"x\" \"a\" ( \"p\"",
       "mem.psf: line 5: the list that opens here is not closed"},
      {"second sweep variable", head + "SWEEP\n\"t\" \"sweep\"\n\"u\" \"sweep\"\n",
       "mem.psf: line 17: a second sweep variable (\"u\"): files swept over several variables are "
       "not read"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PsfData data;
    std::string error;
    EXPECT_FALSE(parsePsf(c.text, "mem.psf", data, error));
    EXPECT_NE(error.find(c.error), std::string::npos) << error;
    EXPECT_TRUE(data.quantities.empty());
  }
}

// Every prefix and corrupted copies fail cleanly or parse (run under the sanitizers in CI).
TEST(PsfFile, SurvivesTruncationAndCorruption) {
  const std::string text =
      std::string("HEADER\n\"a\" 1\n") + kTypes +
      "\"r\" STRUCT(\n\"x\" FLOAT DOUBLE\n\"s\" STRING *\n\"l\" ARRAY ( * ) STRING *\n)\n"
      "SWEEP\n\"t\" \"sweep\"\nTRACE\n\"g\" GROUP 2\n\"a\" \"V\"\n\"b\" \"Z\"\n\"rr\" \"r\"\n"
      "VALUE\n\"t\" 0\n\"g\" 1 (2 3)\n\"rr\" (4 \"x\" (\"p\" \"q\"))\n"
      "\"t\" 1\n\"g\" 5 (6 7)\n\"rr\" (8 \"y\" ())\nEND\n";
  ASSERT_EQ(parseOk(text).sweepValues.size(), 2u);
  for (size_t cut = 0; cut < text.size(); ++cut) {
    PsfData data;
    std::string error;
    if (!parsePsf(std::string_view(text).substr(0, cut), "cut.psf", data, error)) {
      EXPECT_EQ(error.rfind("cut.psf: line ", 0), 0u) << error;
    }
  }
  std::string corrupt = text;
  for (size_t i = 0; i < corrupt.size(); ++i) {
    for (char replacement : {'(', ')', '"', '\\', ' ', '9'}) {
      const char saved = corrupt[i];
      corrupt[i] = replacement;
      PsfData data;
      std::string error;
      if (parsePsf(corrupt, "bad.psf", data, error) && data.swept) {
        for (const Quantity& quantity : data.quantities) {
          EXPECT_EQ(data.columns.at(quantity.column).size(), data.sweepValues.size());
        }
      }
      corrupt[i] = saved;
    }
  }
}

}  // namespace
