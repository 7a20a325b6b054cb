#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "analysis/netlist.h"
#include "app/analyzeNetlist.h"
#include "support/testFiles.h"

namespace {

using testing_support::ScratchDir;
using testing_support::writeFile;

/// Runs one of the loaders on `text` and returns what it printed.
std::string load(zeNetlist& netlist, const std::string& text, const char* fileName,
                 bool peakCurrents, int* result) {
  std::string copy = text;
  FILE* file = fmemopen(copy.empty() ? nullptr : copy.data(), copy.size(), "r");
  if (file == nullptr) {
    file = std::tmpfile();
  }
  testing::internal::CaptureStdout();
  *result = peakCurrents ? netlist.loadNetlistPeakCurrents(file, fileName)
                         : netlist.loadNetlist(file, fileName);
  std::fclose(file);
  return testing::internal::GetCapturedStdout();
}

TEST(NetlistLoader, GrammarBySettings) {
  struct Case {
    const char* name;
    bool recovery, extended;
    float valueColumn;
    const char* line;
    bool accepted;
    double recoveryFactor;
    int orientation;
  };
  const Case cases[] = {
      {"three fields", false, false, 0, "R1 a b\n", true, 1.0, -1},
      {"three fields, extra words ignored", false, false, 0, "R1 a b c d e\n", true, 1.0, -1},
      {"blank line", false, false, 0, " \t\n", false, 0, 0},
      {"value column", false, false, 2.5f, "R1 a b 10\n", true, 1.0, -1},
      {"value column missing", false, false, 2.5f, "R1 a b\n", false, 0, 0},
      {"recovery factor", true, false, 0, "R1 a b 0.5\n", true, 0.5, -1},
      {"recovery factor in single precision", true, false, 0, "R1 a b 0.1", true, 0.1f, -1},
      {"recovery factor not a number", true, false, 0, "R1 a b x\n", false, 0, 0},
      {"recovery and extended", true, true, 0, "R1 a b 0.25 p q 3 r\n", true, 0.25, 3},
      {"extended", false, true, 0, "R1 a b 12 q -4 r\n", true, 1.0, -4},
      {"extended, orientation not a number", false, true, 0, "R1 a b 12 q x r\n", false, 0, 0},
      {"extended, number runs into text", false, true, 0, "R1 a b 12 q 7r\n", true, 1.0, 7},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    zeNetlist netlist;
    netlist.hasRecoveryFactor = c.recovery;
    netlist.hasExtendedFields = c.extended;
    netlist.valueColumn = c.valueColumn;
    int result = -1;
    const std::string printed = load(netlist, c.line, "n.net", false, &result);
    EXPECT_EQ(result, c.accepted ? 0 : 1);
    EXPECT_EQ(printed, c.accepted ? "" : "\nIncorrect netlist file format (n.net: line 1)\n");
    EXPECT_EQ(netlist.loaded, c.accepted);
    ASSERT_EQ(netlist.instances.size(), c.accepted ? 1u : 0u);
    if (c.accepted) {
      const zeInstance& instance = netlist.instances[0];
      EXPECT_EQ(instance.name + " " + instance.node1 + " " + instance.node2, "R1 a b");
      EXPECT_EQ(instance.recoveryFactor, c.recoveryFactor);
      EXPECT_EQ(instance.orientation, c.orientation);
    }
  }
}

TEST(NetlistLoader, FormatErrorKeepsEarlierLinesAndNamesTheLine) {
  zeNetlist netlist;
  int result = -1;
  std::string printed = load(netlist, "R1 a b\nR2 c d\nR3 e\nR4 f g\n", "grid.net", false, &result);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(printed, "\nIncorrect netlist file format (grid.net: line 3)\n");
  EXPECT_EQ(netlist.instances.size(), 2u);
  EXPECT_FALSE(netlist.loaded);

  zeNetlist unnamed;
  printed = load(unnamed, "\n", nullptr, false, &result);
  EXPECT_EQ(printed, "\nIncorrect netlist file format (line 1)\n");
}

TEST(NetlistLoader, EmptyFileLoadsNothingAndSecondLoadAppends) {
  zeNetlist netlist;
  int result = -1;
  load(netlist, "", "empty.net", false, &result);
  EXPECT_EQ(result, 0);
  EXPECT_TRUE(netlist.loaded);
  EXPECT_TRUE(netlist.instances.empty());
  load(netlist, "R1 a b\nR2 b c", "one.net", false, &result);
  load(netlist, "R1 a b\n", "two.net", false, &result);
  ASSERT_EQ(netlist.instances.size(), 3u);
  EXPECT_EQ(netlist.instances[1].name, "R2");
  EXPECT_EQ(netlist.instances[1].node2, "c");  // last line without a line end
  EXPECT_EQ(netlist.instances[2].name, "R1");  // no de-duplication
  // Only the node "0" is ground.
  EXPECT_TRUE(isGnd("0"));
  for (const char* name : {"00", "gnd", ""}) {
    EXPECT_FALSE(isGnd(name)) << name;
  }
}

TEST(NetlistLoader, BackslashNamesGetATrailingBlank) {
  struct Case {
    bool keep;
    const char* node1;
    const char* node2;
  };
  const Case cases[] = {{false, "I5.\\_1\\:VSS ", "plain"}, {true, "I5.\\_1\\:VSS", "plain"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.keep);
    zeNetlist netlist;
    netlist.keepBackslashNames = c.keep;
    int result = -1;
    load(netlist, "R\\1 I5.\\_1\\:VSS plain\nR2 a b\\\n", "n.net", false, &result);
    ASSERT_EQ(netlist.instances.size(), 2u);
    EXPECT_EQ(netlist.instances[0].name, "R\\1");  // the instance name is left alone
    EXPECT_EQ(netlist.instances[0].node1, c.node1);
    EXPECT_EQ(netlist.instances[0].node2, c.node2);
    EXPECT_EQ(netlist.instances[1].node2, c.keep ? "b\\" : "b\\ ");
  }
}

TEST(NetlistLoader, LinesUpTo4095CharactersAreReadWholeLongerOnesAreFormatErrors) {
  // A line of n characters: "R1 a b " padded with a long last field, then a line feed.
  const auto lineOf = [](size_t n) { return "R1 a b " + std::string(n - 7, 'x') + "\n"; };
  struct Case {
    const char* what;
    std::string text;
    int result;
    const char* printed;
    size_t instances;
  };
  const Case cases[] = {
      {"4094 characters", lineOf(4094) + "R2 c d\n", 0, "", 2},
      {"4095 characters", lineOf(4095) + "R2 c d\n", 0, "", 2},
      {"4095 characters, no line feed at the end", lineOf(4095).substr(0, 4095), 0, "", 1},
      {"4096 characters", "R0 p q\n" + lineOf(4096) + "R2 c d\n", 1,
       "\nIncorrect netlist file format (long.net: line 2)\n", 1},
      {"5000 characters", lineOf(5000), 1, "\nIncorrect netlist file format (long.net: line 1)\n",
       0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    zeNetlist netlist;
    int result = -1;
    EXPECT_EQ(load(netlist, c.text, "long.net", false, &result), c.printed);
    EXPECT_EQ(result, c.result);
    ASSERT_EQ(netlist.instances.size(), c.instances);
    EXPECT_EQ(netlist.loaded, c.result == 0);
    if (c.instances == 2) {
      EXPECT_EQ(netlist.instances[1].name, "R2");
    }
  }
}

TEST(NetlistLoader, RandomInputNeverCrashesAndAlwaysNamesTheLine) {
  // Random bytes, blanks and line ends under every line format; run under the sanitizers in
  // CI. Either the whole input loads or the message names a line within it.
  std::mt19937 random(11);
  const char alphabet[] = "ab01 \t\n\\#@v.-+e9\0\x7f\xff";
  for (int round = 0; round < 400; ++round) {
    std::string text(random() % 9000, '\0');
    int lines = 1;
    for (char& c : text) {
      c = alphabet[random() % (sizeof alphabet - 1)];
      lines += c == '\n';
    }
    zeNetlist netlist;
    netlist.hasRecoveryFactor = (round & 1) != 0;
    netlist.hasExtendedFields = (round & 2) != 0;
    netlist.valueColumn = (round & 4) != 0 ? 1.0f : 0.0f;
    int result = -1;
    const std::string printed = load(netlist, text, "r.net", (round & 8) != 0, &result);
    ASSERT_TRUE(result == 0 || result == 1);
    if (result == 1) {
      const size_t at = printed.find("(r.net: line ");
      ASSERT_NE(at, std::string::npos);
      const int line = std::atoi(printed.c_str() + at + 13);
      EXPECT_GE(line, 1);
      EXPECT_LE(line, lines + static_cast<int>(text.size() / 4095));
    }
    EXPECT_EQ(netlist.loaded, result == 0);
  }
}

TEST(NetlistLoader, PeakCurrentLines) {
  struct Case {
    bool extended;
    const char* line;
    bool accepted;
    double first;
    double second;
    int orientation;
  };
  const Case cases[] = {
      {false, "R1 a b 2e-3 1.5\n", true, 2e-3, 1.5, -1}, {false, "R1 a b 2e-3\n", false, 0, 0, 0},
      {false, "R1 a b abc 4\n", true, 0.0, 4.0, -1},  // text that is no number reads as 0
      {true, "R1 a b 1 2 5\n", true, 1.0, 2.0, 5},       {true, "R1 a b 1 2\n", false, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.line);
    zeNetlist netlist;
    netlist.hasExtendedFields = c.extended;
    int result = -1;
    const std::string printed = load(netlist, c.line, "p.net", true, &result);
    const std::string banner = "\nInside loadNetlistPeakCurrents function";
    if (!c.accepted) {
      EXPECT_EQ(printed, banner + "\nIncorrect netlist file format (p.net: line 1)\n");
      EXPECT_EQ(result, 1);
      continue;
    }
    EXPECT_EQ(printed, banner);
    ASSERT_EQ(netlist.instances.size(), 1u);
    EXPECT_EQ(netlist.instances[0].thresholdValue, c.first);
    EXPECT_EQ(netlist.instances[0].thresholdScale, c.second);
    EXPECT_EQ(netlist.instances[0].orientation, c.orientation);
  }
}

class LoadNetlistCommand : public testing::Test {
 protected:
  void SetUp() override {
    writeFile(dir.file("cmd"), "");
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  }
  void TearDown() override {
    for (const char* variable :
         {analysis::kRecoveryFactorColumnVariable, analysis::kExtendedFieldsVariable,
          analysis::kValueColumnVariable, analysis::kKeepBackslashNamesVariable}) {
      unsetenv(variable);
    }
  }
  int run(const ArgList& args, std::string* printed) {
    testing::internal::CaptureStdout();
    const int result = session.processLoadNetlistCmd(&args);
    *printed = testing::internal::GetCapturedStdout();
    return result;
  }
  ScratchDir dir;
  zeAnalyzeNetlist session;
};

TEST_F(LoadNetlistCommand, ArgumentAndFileErrors) {
  std::string printed;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.processLoadNetlistCmd(nullptr), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: kra2: loadNetlist command requires a file name.\n");
  const std::string missing = dir.file("none.net");
  EXPECT_EQ(run({missing}, &printed), 1);
  EXPECT_EQ(printed, "ERROR: kra2: netlist file " + missing + " not found.\n");
}

TEST_F(LoadNetlistCommand, FormatErrorStillSucceedsAndDurationChoosesTheLoader) {
  writeFile(dir.file("bad.net"), "R1 a b\nR2\n");
  std::string printed;
  EXPECT_EQ(run({dir.file("bad.net")}, &printed), 0);
  EXPECT_EQ(printed, "\nIncorrect netlist file format (" + dir.file("bad.net") + ": line 2)\n");
  EXPECT_EQ(session.instances.instances.size(), 1u);

  writeFile(dir.file("peak.net"), "R3 a b 0.5 2\n");
  session.durationTime = 1e-9;
  EXPECT_EQ(run({dir.file("peak.net")}, &printed), 0);
  EXPECT_EQ(printed, "\nInside loadNetlistPeakCurrents function");
  ASSERT_EQ(session.instances.instances.size(), 2u);
  EXPECT_EQ(session.instances.instances[1].thresholdScale, 2.0);
  EXPECT_TRUE(session.instances.loaded);
}

TEST_F(LoadNetlistCommand, LineFormatFromTheEnvironment) {
  writeFile(dir.file("rf.net"), "R1 a\\b c 0.5 p q 2 r\n");
  setenv(analysis::kRecoveryFactorColumnVariable, "1", 1);
  setenv(analysis::kExtendedFieldsVariable, "yes", 1);
  setenv(analysis::kKeepBackslashNamesVariable, "on", 1);
  std::string printed;
  EXPECT_EQ(run({dir.file("rf.net")}, &printed), 0);
  EXPECT_EQ(printed, "");
  ASSERT_EQ(session.instances.instances.size(), 1u);
  EXPECT_EQ(session.instances.instances[0].recoveryFactor, 0.5);
  EXPECT_EQ(session.instances.instances[0].orientation, 2);
  EXPECT_EQ(session.instances.instances[0].node1, "a\\b");

  setenv(analysis::kRecoveryFactorColumnVariable, "0", 1);
  setenv(analysis::kExtendedFieldsVariable, "off", 1);
  setenv(analysis::kValueColumnVariable, "3", 1);
  setenv(analysis::kKeepBackslashNamesVariable, "", 1);
  writeFile(dir.file("value.net"), "R2 a\\b c 7\nR3 a b\n");
  EXPECT_EQ(run({dir.file("value.net")}, &printed), 0);
  EXPECT_EQ(printed, "\nIncorrect netlist file format (" + dir.file("value.net") + ": line 2)\n");
  EXPECT_EQ(session.instances.valueColumn, 3.0f);
  ASSERT_EQ(session.instances.instances.size(), 2u);
  EXPECT_EQ(session.instances.instances[1].node1, "a\\b ");
}

}  // namespace
