// The PSF ASCII parser against damage: every prefix and corrupted copies of a file that uses
// every construct. What it reads from whole files is checked by the psf_* reader cases.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simdata/psfFile.h"

using simdata::psf::parsePsf;
using simdata::psf::PsfData;
using simdata::psf::Quantity;

namespace {

const char* const kTypes =
    "TYPE\n\"sweep\" FLOAT DOUBLE PROP(\n\"key\" \"sweep\"\n)\n"
    "\"V\" FLOAT DOUBLE PROP(\n\"units\" \"V\"\n\"key\" \"node\"\n\"tolerance\" 1.00000e-06\n)\n"
    "\"I\" FLOAT DOUBLE PROP(\n\"units\" \"A\"\n)\n"
    "\"Z\" COMPLEX DOUBLE\n";

// Every prefix and corrupted copies fail cleanly or parse (run under the sanitizers in CI).
TEST(PsfFile, SurvivesTruncationAndCorruption) {
  const std::string text =
      std::string("HEADER\n\"a\" 1\n") + kTypes +
      "\"r\" STRUCT(\n\"x\" FLOAT DOUBLE\n\"s\" STRING *\n\"l\" ARRAY ( * ) STRING *\n)\n"
      "SWEEP\n\"t\" \"sweep\"\nTRACE\n\"g\" GROUP 2\n\"a\" \"V\"\n\"b\" \"Z\"\n\"rr\" \"r\"\n"
      "VALUE\n\"t\" 0\n\"g\" 1 (2 3)\n\"rr\" (4 \"x\" (\"p\" \"q\"))\n"
      "\"t\" 1\n\"g\" 5 (6 7)\n\"rr\" (8 \"y\" ())\nEND\n";
  {
    PsfData whole;
    std::string error;
    ASSERT_TRUE(parsePsf(text, "whole.psf", whole, error)) << error;
    ASSERT_EQ(whole.sweepValues.size(), 2u);
  }
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
