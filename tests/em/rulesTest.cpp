// The EM rules reader on whole files (tests/data/em/rule_files.txt): accepted files with
// their values, refused ones with their messages, and the rules left alone by a refusal.

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "em/rules.h"
#include "support/caseTable.h"
#include "support/testFiles.h"

namespace {

using testing_support::TableCase;

/// The name=value words of one occurrence (after its first word when `skipFirst`).
std::map<std::string, double> valuesOf(const std::vector<std::string>& words, bool skipFirst) {
  std::map<std::string, double> out;
  for (size_t i = skipFirst ? 1 : 0; i < words.size(); ++i) {
    const size_t equals = words[i].find('=');
    out[words[i].substr(0, equals)] = testing_support::toNumber(words[i].substr(equals + 1));
  }
  return out;
}

void expectLimit(const std::map<std::string, double>& want, const char* key,
                 const std::optional<double>& got) {
  if (want.count(key) != 0) {
    EXPECT_EQ(got, std::optional(want.at(key))) << key;
  } else {
    EXPECT_FALSE(got.has_value()) << key;
  }
}

TEST(EmRules, Files) {
  const auto cases = testing_support::readCaseTable("em/rule_files.txt");
  ASSERT_GE(cases.size(), 10u);
  for (const TableCase& c : cases) {
    SCOPED_TRACE(c.name);
    em::Rules rules;
    rules.path = "untouched";
    std::string error;
    const bool read = em::parseRules(c.text("text"), "r.toml", rules, error);
    if (c.has("error")) {
      EXPECT_FALSE(read);
      EXPECT_EQ(error, c.text("error"));
      EXPECT_EQ(rules.path, "untouched");
      continue;
    }
    ASSERT_TRUE(read) << error;
    EXPECT_EQ(rules.path, "r.toml");
    const auto top = valuesOf(c.words("top"), false);
    EXPECT_EQ(rules.referenceTemperature, top.at("reference"));
    EXPECT_EQ(rules.activationEnergy, top.at("energy"));
    EXPECT_EQ(rules.currentExponent, top.at("exponent"));
    EXPECT_EQ(rules.layers.size(), c.all("metal").size());
    for (const auto& words : c.all("metal")) {
      ASSERT_EQ(rules.layers.count(words.at(0)), 1u) << words.at(0);
      const em::MetalRule& rule = rules.layers.at(words[0]);
      const auto want = valuesOf(words, true);
      EXPECT_EQ(rule.widthBias, want.at("width_bias"));
      expectLimit(want, "avg", rule.perWidth.avg);
      expectLimit(want, "rms", rule.perWidth.rms);
      expectLimit(want, "peak", rule.perWidth.peak);
      expectLimit(want, "blech", rule.blech);
    }
    EXPECT_EQ(rules.vias.size(), c.all("via").size());
    for (const auto& words : c.all("via")) {
      ASSERT_EQ(rules.vias.count(words.at(0)), 1u) << words.at(0);
      const auto want = valuesOf(words, true);
      expectLimit(want, "avg", rules.vias.at(words[0]).perVia.avg);
      expectLimit(want, "rms", rules.vias.at(words[0]).perVia.rms);
      expectLimit(want, "peak", rules.vias.at(words[0]).perVia.peak);
    }
  }
}

TEST(EmRules, FilesOnDisk) {
  testing_support::ScratchDir dir;
  testing_support::writeFile(
      dir.file("ok.toml"),
      "reference_temperature = 1\nactivation_energy = 1\ncurrent_exponent = 1\n");
  em::Rules rules;
  std::string error;
  EXPECT_TRUE(em::readRules(dir.file("ok.toml"), rules, error)) << error;
  EXPECT_EQ(rules.path, dir.file("ok.toml"));
  EXPECT_FALSE(em::readRules(dir.file("absent.toml"), rules, error));
  EXPECT_EQ(error, "EM rules file " + dir.file("absent.toml") + " cannot be read.");
}

}  // namespace
