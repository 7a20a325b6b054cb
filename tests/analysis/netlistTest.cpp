// The instance netlist loaders: the line grammars as a table
// (tests/data/analysis/netlist_grammar.txt), and the line format taken from the environment.
// The loadNetlist command's messages, long lines and appending loads are end-to-end cases
// (analysis_prerequisites, analysis_duration, bad_netlist_long_lines, analysis_save_before_run).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "analysis/netlist.h"
#include "app/analyzeNetlist.h"
#include "support/caseTable.h"
#include "support/testFiles.h"

namespace {

using testing_support::TableCase;

TEST(NetlistLoader, Grammar) {
  for (const TableCase& c : testing_support::readCaseTable("analysis/netlist_grammar.txt")) {
    SCOPED_TRACE(c.name);
    const std::map<std::string, double> settings = c.named("settings");
    zeNetlist netlist;
    netlist.hasRecoveryFactor = settings.count("recovery") != 0;
    netlist.hasExtendedFields = settings.count("extended") != 0;
    netlist.keepBackslashNames = settings.count("keepBackslash") != 0;
    netlist.resistanceColumn = settings.count("resistance") != 0;
    netlist.valueColumn =
        settings.count("valueColumn") ? static_cast<float>(settings.at("valueColumn")) : 0.0f;
    std::string text = c.text("text");
    FILE* file = text.empty() ? std::tmpfile() : fmemopen(text.data(), text.size(), "r");
    const std::string name = c.word("file", "n.net");
    const char* fileName = name == "-" ? nullptr : name.c_str();
    testing::internal::CaptureStdout();
    const int result = settings.count("peakCurrents")
                           ? netlist.loadNetlistPeakCurrents(file, fileName)
                           : netlist.loadNetlist(file, fileName);
    std::fclose(file);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed, c.text("printed"));
    const bool loaded = printed.find("Incorrect") == std::string::npos;
    EXPECT_EQ(result, loaded ? 0 : 1);
    EXPECT_EQ(netlist.loaded, loaded);
    ASSERT_EQ(netlist.instances.size(), c.all("instance").size());
    for (size_t i = 0; i < netlist.instances.size(); ++i) {
      const zeInstance& instance = netlist.instances[i];
      EXPECT_EQ((std::vector<std::string>{instance.name, instance.node1, instance.node2}),
                c.all("instance")[i]);
    }
    for (const auto& [key, value] : c.named("first")) {
      const zeInstance& first = netlist.instances.at(0);
      if (key == "resistance") {
        EXPECT_TRUE(std::isnan(value) ? std::isnan(first.resistance) : first.resistance == value)
            << first.resistance;
        continue;
      }
      EXPECT_EQ(key == "recoveryFactor"   ? first.recoveryFactor
                : key == "orientation"    ? first.orientation
                : key == "thresholdValue" ? first.thresholdValue
                                          : first.thresholdScale,
                value)
          << key;
    }
  }
  EXPECT_TRUE(isGnd("0"));
  for (const char* name : {"00", "gnd", ""}) {
    EXPECT_FALSE(isGnd(name)) << name;
  }
}

TEST(NetlistLoader, LineFormatFromTheEnvironment) {
  testing_support::ScratchDir dir;
  testing_support::writeFile(dir.file("rf.net"), "R1 a\\b c 0.5 p q 2 r\n");
  testing_support::writeFile(dir.file("value.net"), "R2 a\\b c 7\nR3 a b\n");
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
  const auto load = [&](const char* file) {
    const ArgList args = {dir.file(file)};
    testing::internal::CaptureStdout();
    EXPECT_EQ(session.processLoadNetlistCmd(&args), 0);
    return testing::internal::GetCapturedStdout();
  };
  setenv(analysis::kRecoveryFactorColumnVariable, "1", 1);
  setenv(analysis::kExtendedFieldsVariable, "yes", 1);
  setenv(analysis::kKeepBackslashNamesVariable, "on", 1);
  EXPECT_EQ(load("rf.net"), "");
  ASSERT_EQ(session.instances.instances.size(), 1u);
  EXPECT_EQ(session.instances.instances[0].recoveryFactor, 0.5);
  EXPECT_EQ(session.instances.instances[0].orientation, 2);
  EXPECT_EQ(session.instances.instances[0].node1, "a\\b");

  setenv(analysis::kRecoveryFactorColumnVariable, "0", 1);
  setenv(analysis::kExtendedFieldsVariable, "off", 1);
  setenv(analysis::kValueColumnVariable, "3", 1);
  setenv(analysis::kKeepBackslashNamesVariable, "", 1);
  EXPECT_EQ(load("value.net"),
            "\nIncorrect netlist file format (" + dir.file("value.net") + ": line 2)\n");
  EXPECT_EQ(session.instances.valueColumn, 3.0f);
  ASSERT_EQ(session.instances.instances.size(), 2u);
  EXPECT_EQ(session.instances.instances[1].node1, "a\\b ");
  for (const char* variable :
       {analysis::kRecoveryFactorColumnVariable, analysis::kExtendedFieldsVariable,
        analysis::kValueColumnVariable, analysis::kKeepBackslashNamesVariable}) {
    unsetenv(variable);
  }
}

}  // namespace
