// The limits, Blech immortality and verdict of one piece against hand-worked numbers
// (tests/data/em/limit_cases.txt).

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <optional>
#include <string>

#include "em/limits.h"
#include "support/caseTable.h"

namespace {

using testing_support::TableCase;

/// The name=value words of a key; "none" reads as NaN (no value).
std::map<std::string, double> values(const TableCase& c, const std::string& key) {
  std::map<std::string, double> out;
  for (const std::string& word : c.words(key)) {
    const size_t equals = word.find('=');
    const std::string text = word.substr(equals + 1);
    out[word.substr(0, equals)] = text == "none" ? std::nan("") : testing_support::toNumber(text);
  }
  return out;
}

std::optional<double> optionalOf(const std::map<std::string, double>& from, const char* key) {
  const auto it = from.find(key);
  return it == from.end() ? std::nullopt : std::optional(it->second);
}

/// Equal to a relative 1e-12 (the hand values carry 15 to 17 digits), or both NaN.
void expectNear(double expected, double actual, const std::string& what) {
  if (std::isnan(expected)) {
    EXPECT_TRUE(std::isnan(actual)) << what << " = " << actual;
  } else {
    EXPECT_NEAR(actual, expected, std::fabs(expected) * 1e-12) << what;
  }
}

TEST(EmLimits, HandWorkedCases) {
  const auto cases = testing_support::readCaseTable("em/limit_cases.txt");
  ASSERT_GE(cases.size(), 10u);
  for (const TableCase& c : cases) {
    SCOPED_TRACE(c.name);
    const auto constants = values(c, "rules");
    em::Rules rules;
    rules.referenceTemperature = constants.at("reference");
    rules.activationEnergy = constants.at("energy");
    rules.currentExponent = constants.at("exponent");
    const double derating = em::deratingFactor(rules, c.number("temperature"));
    expectNear(c.number("derating"), derating, "derating");

    const auto shape = values(c, "shape");
    const auto current = values(c, "currents");
    const em::Currents currents{current.at("avg"), current.at("rms"), current.at("peak")};
    em::Check check;
    if (c.has("via")) {
      const auto rule = values(c, "via");
      check = em::checkVia(
          currents, {{optionalOf(rule, "avg"), optionalOf(rule, "rms"), optionalOf(rule, "peak")}},
          derating);
    } else {
      const auto rule = values(c, "metal");
      em::MetalRule metal;
      metal.widthBias = optionalOf(rule, "width_bias").value_or(0.0);
      metal.perWidth = {optionalOf(rule, "avg"), optionalOf(rule, "rms"), optionalOf(rule, "peak")};
      metal.blech = optionalOf(rule, "blech");
      check =
          em::checkMetal(currents, {false, shape.at("width"), shape.at("length")}, metal, derating);
    }
    const auto limits = values(c, "limits");
    expectNear(limits.at("avg"), check.limitAvg, "limit avg");
    expectNear(limits.at("rms"), check.limitRms, "limit rms");
    expectNear(limits.at("peak"), check.limitPeak, "limit peak");
    const auto ratios = values(c, "ratios");
    expectNear(ratios.at("avg"), check.ratioAvg, "ratio avg");
    expectNear(ratios.at("rms"), check.ratioRms, "ratio rms");
    expectNear(ratios.at("peak"), check.ratioPeak, "ratio peak");
    expectNear(ratios.at("worst"), check.worst, "worst ratio");
    const std::string blech = c.word("blech");
    expectNear(blech == "none" ? std::nan("") : testing_support::toNumber(blech),
               check.blechProduct, "Blech product");
    EXPECT_EQ(em::verdictName(check.verdict), c.word("verdict"));
  }
}

}  // namespace
