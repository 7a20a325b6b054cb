// Header texts, versions and architecture guesses: the cases are the lines of
// tests/data/db/header_parameters.txt, which says how they are written.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "db/dbFile.h"
#include "db/headerParameters.h"
#include "support/testFiles.h"

namespace {

using kraDB::HeaderParameters;

/// A text of the table: %XX escapes decoded, "-" for the empty text.
std::string unescape(const std::string& text) {
  return text == "-" ? std::string() : testing_support::unescapePercent(text);
}

/// "yes"/"no" and the parameters as key=value, blanks in values written %20.
std::string describe(bool accepted, const HeaderParameters& params) {
  std::string out = accepted ? "yes" : "no";
  for (const auto& [key, value] : params) {
    std::string shown = value;
    for (size_t at; (at = shown.find(' ')) != std::string::npos;) {
      shown.replace(at, 1, "%20");
    }
    out += " " + key + "=" + shown;
  }
  return out;
}

/// Writes the file of a "<text>[+<size>[x]]" input and returns its path ("-": none).
std::string fileOf(const std::string& input, const testing_support::ScratchDir& dir) {
  const std::string path = dir.file("case.db");
  std::remove(path.c_str());
  if (input == "-") {
    return path;
  }
  const size_t plus = input.rfind('+');
  std::string bytes = unescape(input.substr(0, plus));
  if (plus != std::string::npos) {
    const std::string size = input.substr(plus + 1);
    bytes.resize(std::stoul(size), size.back() == 'x' ? 'x' : '\0');
  }
  testing_support::writeFile(path, bytes);
  return path;
}

/// What the library makes of one case's inputs, written like the expected side.
std::string evaluate(const std::string& check, std::istringstream& in,
                     const testing_support::ScratchDir& dir) {
  std::string a, b, c;
  in >> a >> b >> c;
  HeaderParameters params;
  if (check == "split") {
    std::string parts;
    for (const std::string& part : kraDB::splitAtAny(unescape(a), unescape(b))) {
      parts += (parts.empty() ? "" : " ") + part;
    }
    return parts;
  }
  if (check == "format") {
    std::string text = kraDB::formatHeaderText(std::strtof(a.c_str(), nullptr));
    for (size_t at; (at = text.find('\n')) != std::string::npos;) {
      text.replace(at, 1, "%0a");
    }
    return text;
  }
  if (check == "parse") {
    const bool accepted = kraDB::readHeaderParameters(unescape(a), params);
    return describe(accepted, params);
  }
  if (check == "probe") {
    const bool accepted = kraDB::readDBParameters(fileOf(a, dir), params);
    return describe(accepted, params);
  }
  if (check == "version") {
    try {
      char text[32];
      std::snprintf(text, sizeof text, "%.9g", kraDB::dbGetVersion(fileOf(a, dir)));
      return text;
    } catch (const std::runtime_error& error) {
      return error.what() == std::string(kraDB::k32BitDatabaseError) ? "error32" : error.what();
    }
  }
  if (check == "legacy") {
    return kraDB::isLegacyVersion(std::strtof(a.c_str(), nullptr)) ? "yes" : "no";
  }
  if (check == "architecture") {
    if (a != "-") {
      params["architecture"] = unescape(a);
    }
    const std::optional<int> architecture = kraDB::taggedArchitecture(params);
    return architecture ? std::to_string(*architecture) : "none";
  }
  if (check == "guess") {
    const std::string path = fileOf("-", dir);
    if (a != "-") {
      std::string bytes(std::stoul(a), 'x');
      if (c != "-") {
        bytes.replace(std::stoul(b), c.size(), c);
      }
      testing_support::writeFile(path, bytes);
    }
    const std::optional<int> guess = kraDB::guessLegacyArchitecture(path);
    return guess ? std::to_string(*guess) : "none";
  }
  return "unknown check " + check;
}

TEST(HeaderParameters, CasesOfTheTable) {
  std::ifstream table(KRA2_SOURCE_DIR "/tests/data/db/header_parameters.txt");
  ASSERT_TRUE(table.is_open());
  testing_support::ScratchDir dir;
  int cases = 0;
  for (std::string line; std::getline(table, line);) {
    const size_t arrow = line.find(" ->");
    if (line.empty() || line[0] == '#' || arrow == std::string::npos) {
      continue;
    }
    SCOPED_TRACE(line);
    const std::string expected = line.substr(std::min(arrow + 4, line.size()));
    std::istringstream in(line.substr(0, arrow));
    std::string check;
    in >> check;
    const std::string actual = evaluate(check, in, dir);
    if (check == "version" && expected != "error32") {
      // Compared as floats, so that the last bit of the version counts.
      EXPECT_EQ(std::strtof(actual.c_str(), nullptr), std::strtof(expected.c_str(), nullptr))
          << actual;
    } else {
      EXPECT_EQ(actual, expected);
    }
    ++cases;
  }
  EXPECT_EQ(cases, 54);
}

}  // namespace
