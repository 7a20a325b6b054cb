#include <gtest/gtest.h>

#include <string>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "support/testFiles.h"

using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

struct RunResult {
  std::string log;
  std::string stdoutText;
};

/// Runs a command file through a fresh session; `inspect` sees the session before cleanup
/// would destroy it (the session outlives processCommandFile).
template <typename Inspect>
RunResult runCommands(const std::string& commands, Inspect inspect) {
  ScratchDir dir;
  writeFile(dir.file("cmd"), commands);
  zeAnalyzeNetlist session;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  session.processCommandFile();
  RunResult result{"", testing::internal::GetCapturedStdout()};
  result.log = readFile(dir.file("log"));
  inspect(session);
  return result;
}

RunResult runCommands(const std::string& commands) {
  return runCommands(commands, [](zeAnalyzeNetlist&) {});
}

const char* kUnknownTail =
    "\topenSimData\n\tloadNetlist\n\tselectAnalysis\n\trun\n\tsaveResult\n\tdone\n";

TEST(Interpreter, CommandWordsIgnoreCaseButACAnlaysisIsSpelledExactly) {
  analysis::processSettings() = {};
  RunResult result = runCommands("EVALTOTALSUM\nacanlaysis\nACAnalysis\nevalcurrentdirection x\n",
                                 [](zeAnalyzeNetlist& s) {
                                   EXPECT_TRUE(s.evalTotalSum);
                                   EXPECT_TRUE(s.evalCurrentDirection);
                                 });
  EXPECT_TRUE(analysis::processSettings().ACAnalysis);
  EXPECT_EQ(result.log, std::string("ERROR: Unknown command (ACAnalysis). The following are legal "
                                    "commands:\n") +
                            kUnknownTail);
  EXPECT_EQ(result.stdoutText, result.log);
  analysis::processSettings() = {};
}

TEST(Interpreter, CommentsAreRecognisedOnlyAtTheStartOfTheFirstWord) {
  RunResult result = runCommands("#saveResult out\n   # spaced comment\nfoo # not a comment\n");
  EXPECT_EQ(result.log, std::string("ERROR: Unknown command (foo). The following are legal "
                                    "commands:\n") +
                            kUnknownTail);
}

TEST(Interpreter, EmptyLineEndsTheCommandFile) {
  RunResult result = runCommands("evalTotalSum\n   \t\nbogus\n",
                                 [](zeAnalyzeNetlist& s) { EXPECT_TRUE(s.evalTotalSum); });
  EXPECT_EQ(result.log, "");
  RunResult first = runCommands("\nbogus\n");
  EXPECT_EQ(first.log, "");
}

TEST(Interpreter, DoneStopsReadingAndClosesTheFiles) {
  runCommands("done\nbogus\n", [](zeAnalyzeNetlist& s) {
    EXPECT_FALSE(s.logFile);
    EXPECT_FALSE(s.cmdFile);
  });
}

TEST(Interpreter, DurationTimeTakesANumberOrLogsTheDefault) {
  struct Case {
    const char* commands;
    double expected;
    const char* log;
  };
  const Case cases[] = {
      {"durationTime 1e-9\n", 1e-9, ""},
      {"durationTime 1e-9\ndurationTime nil\n", 1e-9,
       "ERROR: Using default value 0.0 as duration time.\n"},
      {"durationTime\n", 0.0, "ERROR: Using default value 0.0 as duration time.\n"},
      {"durationTime NIL\n", 0.0, ""},
      {"durationTime abc\n", 0.0, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.commands);
    RunResult result = runCommands(
        c.commands, [&](zeAnalyzeNetlist& s) { EXPECT_EQ(s.durationTime, c.expected); });
    EXPECT_EQ(result.log, c.log);
  }
}

TEST(Interpreter, EmRecoveryFactorAndRecoveryFlag) {
  analysis::processSettings() = {};
  RunResult result = runCommands("emRecoveryFactor nil\nemRecoveryFactor 0.3\nrecoveryFactorFlag\n",
                                 [](zeAnalyzeNetlist& s) { EXPECT_TRUE(s.recoveryFactorFlag); });
  EXPECT_EQ(result.log, "ERROR: Using default value 1 as duration time.\n");
  EXPECT_TRUE(analysis::processSettings().emRecoveryFactorGiven);
  EXPECT_EQ(analysis::processSettings().emRecoveryFactor, 0.3f);
  EXPECT_EQ(analysis::processSettings().recoveryFactor, 1.0f);
  analysis::processSettings() = {};
}

TEST(Interpreter, IgnoreCombinesInOrder) {
  struct Case {
    const char* commands;
    int expected;
  };
  const Case cases[] = {
      {"ignore negative_currents\nignore positive_currents\n", 2},
      {"ignore positive_currents\nignore negative_currents\n", -1},
      {"ignore POSITIVE_CURRENTS\n", 1},
      {"ignore\nignore other\n", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.commands);
    runCommands(c.commands,
                [&](zeAnalyzeNetlist& s) { EXPECT_EQ(s.currentIgnoreSign(), c.expected); });
  }
}

TEST(Interpreter, SimDataTypeSelectsQxfQuietlyOtherwise) {
  RunResult qxf = runCommands("simDataType qxf\n",
                              [](zeAnalyzeNetlist& s) { EXPECT_EQ(s.dataType, zeNetlist::eQXF); });
  EXPECT_EQ(qxf.log, "INFO: Simulation data is in QXF format\n");
  EXPECT_EQ(qxf.stdoutText, "");
  RunResult other = runCommands("simDataType other\nsimDataType\n", [](zeAnalyzeNetlist& s) {
    EXPECT_EQ(s.dataType, zeNetlist::eDefault);
  });
  EXPECT_EQ(other.log, "");
}

TEST(Interpreter, LongLineIsReadAsTwoLines) {
  // 4095 characters fill the buffer; the rest of the line is read as the next line.
  std::string line = "evalTotalSum " + std::string(4095 - 13, 'x') + "evalCurrentDirection\n";
  RunResult result = runCommands(line, [](zeAnalyzeNetlist& s) {
    EXPECT_TRUE(s.evalTotalSum);
    EXPECT_TRUE(s.evalCurrentDirection);
  });
  EXPECT_EQ(result.log, "");
}

TEST(Interpreter, LinesThatFitTheBufferExactlyOrHoldZeroBytes) {
  // A line of exactly 4095 characters keeps its line feed: it does not leave an empty line
  // behind (which would end the command file).
  const std::string full = "evalTotalSum" + std::string(4095 - 12, ' ') + "\n";
  ASSERT_EQ(full.size(), 4096u);
  struct Case {
    const char* what;
    std::string commands;
    bool totalSum;
    bool currentDirection;
    std::string log;
  };
  const std::string zeroLine = std::string("evalTotalSum\0 x\n", 16);
  const Case cases[] = {
      {"4095 characters", full + "evalCurrentDirection\n", true, true, ""},
      {"4095 characters, last line", full, true, false, ""},
      {"zero byte after the word", zeroLine + "evalCurrentDirection\n", false, true,
       "ERROR: kra2: command file CMD, line 1: the line holds a zero byte and is skipped.\n"},
      {"zero byte first, CR-LF ends", std::string("\0run\r\n", 6) + "#c\r\nevalTotalSum\r\n", true,
       false,
       "ERROR: kra2: command file CMD, line 1: the line holds a zero byte and is skipped.\n"},
      {"line numbers count line feeds, not pieces",
       "evalTotalSum " + std::string(5000, 'x') + "\n" + zeroLine, true, false,
       // The second piece holds the 918 characters that did not fit after "evalTotalSum ".
       "ERROR: Unknown command (" + std::string(918, 'x') +
           "). The following are legal commands:\n" + kUnknownTail +
           "ERROR: kra2: command file CMD, line 2: the line holds a zero byte and is skipped.\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScratchDir dir;
    writeFile(dir.file("cmd"), c.commands);
    zeAnalyzeNetlist session;
    testing::internal::CaptureStdout();
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
    session.processCommandFile();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(session.evalTotalSum, c.totalSum);
    EXPECT_EQ(session.evalCurrentDirection, c.currentDirection);
    std::string expected = c.log;
    for (size_t at; (at = expected.find("CMD")) != std::string::npos;) {
      expected.replace(at, 3, dir.file("cmd"));
    }
    EXPECT_EQ(readFile(dir.file("log")), expected);
  }
}

TEST(Interpreter, CrLfLineEndsAreWhiteSpace) {
  runCommands("evalTotalSum\r\nevalCurrentDirection\r\n", [](zeAnalyzeNetlist& s) {
    EXPECT_TRUE(s.evalTotalSum);
    EXPECT_TRUE(s.evalCurrentDirection);
  });
}

TEST(Interpreter, ProcessCommandFileWithoutAFileFails) {
  zeAnalyzeNetlist session;
  EXPECT_EQ(session.processCommandFile(), 1);
}

}  // namespace
