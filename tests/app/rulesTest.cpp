// Small naming and number-reading rules of several layers, as one table of hand-worked cases
// (tests/data/app/rules.txt): each line names a rule, an input and the result; this file
// only knows how to apply each rule and write its result as text.

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "analysis/sources.h"
#include "pgnet/emRelation.h"
#include "pgnet/network.h"
#include "simdata/analysisFilter.h"
#include "simdata/rawBackend.h"
#include "support/caseTable.h"
#include "support/text.h"

namespace {

constexpr double kUntouched = -12345.0;  // what a refused number leaves in place

/// The shortest text that reads back as the value; "nan" for any NaN.
std::string shortest(double value) {
  char text[32];
  return std::isnan(value) ? "nan" : std::string(text, std::to_chars(text, text + 32, value).ptr);
}

/// A number read with the rules, or "refused" (with the value left in place).
std::string number(const std::string& text, support::NumberRules numberRules = {}) {
  double value = kUntouched;
  const bool ok = support::parseDouble(text, value, numberRules);
  return ok ? shortest(value) : value == kUntouched ? "refused" : "refused, value changed";
}

template <typename Int>
std::string integerOrRefused(const std::string& text) {
  Int value = -1;
  const bool ok = support::parseInteger(text, value);
  return ok ? std::to_string(value) : value == -1 ? "refused" : "refused, value changed";
}

std::string filtered(const std::string& type, bool includeAll) {
  includeAll ? setenv("_kraIncludeAllAnalysis", "", 1) : unsetenv("_kraIncludeAllAnalysis");
  const bool kept = simdata::analysisFilter(type);
  unsetenv("_kraIncludeAllAnalysis");
  return kept ? "kept" : "left out";
}

using Rule = std::function<std::string(const std::string&)>;

const std::map<std::string, Rule>& rules() {
  static const std::map<std::string, Rule> kRules = {
      {"analysisKind",
       [](const std::string& in) {
         const std::string kind = simdata::raw::analysisKind(in);
         return kind + " " + simdata::raw::analysisTypeOfKind(kind);
       }},
      {"bareName", [](const std::string& in) { return simdata::raw::bareName(in); }},
      {"hierarchyPrefix",
       [](const std::string& in) { return pgnet::normaliseHierarchyPrefix(in); }},
      {"resistorPrefix", [](const std::string& in) { return pgnet::normaliseResistorPrefix(in); }},
      {"resistorPowerKey", [](const std::string& in) { return analysis::resistorPowerKey(in); }},
      {"analysisFilter", [](const std::string& in) { return filtered(in, false); }},
      {"analysisFilterAll", [](const std::string& in) { return filtered(in, true); }},
      {"viaType",
       [](const std::string& in) {
         kraNode node;
         node.viaType = kraNode::getViaType(in);
         return std::to_string(node.viaType) + (node.isVia() ? " via" : "") +
                (node.isTerminalVia() ? " terminal" : "");
       }},
      {"sameWithin",
       [](const std::string& in) {
         std::istringstream words(in);
         std::vector<double> n;
         for (std::string word; words >> word;) {
           n.push_back(std::strtod(word.c_str(), nullptr));
         }
         EXPECT_EQ(n.size(), 3u);
         n.resize(3);
         return zeNetwork::compareFloatValue(n[0], n[1], n[2]) ? "same" : "different";
       }},
      {"parseDouble", [](const std::string& in) { return number(in); }},
      {"parseDecimal",
       [](const std::string& in) {
         return number(in, {.infinityAndNaN = false, .outOfRangeAsStrtod = false});
       }},
      {"readDouble",
       [](const std::string& in) {
         double value = 0.0;
         const char* end = support::readDouble(in.data(), in.data() + in.size(), value);
         return std::to_string(end == nullptr ? 0 : end - in.data());
       }},
      {"parseInteger", integerOrRefused<int32_t>},
      {"parseInteger64", integerOrRefused<int64_t>},
  };
  return kRules;
}

TEST(Rules, CasesOfTheTable) {
  std::ifstream in(KRA2_SOURCE_DIR "/tests/data/app/rules.txt");
  int cases = 0;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty() || line[0] == '#') {
      continue;
    }
    std::vector<std::string> fields;
    for (size_t from = 0, bar = 0; bar != std::string::npos; from = bar + 1) {
      bar = line.find('|', from);
      fields.push_back(testing_support::unescape(
          std::string(support::trim(std::string_view(line).substr(from, bar - from)))));
    }
    SCOPED_TRACE("rules.txt:" + std::to_string(number) + ": " + line);
    ASSERT_EQ(fields.size(), 3u);
    ASSERT_TRUE(rules().count(fields[0]));
    EXPECT_EQ(rules().at(fields[0])(fields[1]), fields[2]);
    ++cases;
  }
  EXPECT_GT(cases, 100);
}

}  // namespace
