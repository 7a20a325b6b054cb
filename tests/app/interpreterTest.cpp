// What the setting commands leave behind where no output shows it; their messages, the
// command words, comments, line ends and the line buffer are end-to-end cases (cmd_*).

#include <gtest/gtest.h>

#include <string>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "support/testFiles.h"

namespace {

TEST(Interpreter, SettingCommands) {
  struct Case {
    const char* commands;
    double durationTime;
    bool emGiven;
    float emFactor;
    float recoveryFactor;
    zeNetlist::eSimDataType dataType;
  };
  const Case cases[] = {
      {"durationTime 1e-9\ndurationTime nil\ndurationTime\n", 1e-9, false, 1, 0,
       zeNetlist::eDefault},
      {"durationTime 1e-9\ndurationTime NIL\n", 0, false, 1, 0, zeNetlist::eDefault},
      {"durationTime abc\n", 0, false, 1, 0, zeNetlist::eDefault},
      {"emRecoveryFactor nil\nemRecoveryFactor 0.3\nrecoveryFactorFlag x\n", 0, true, 0.3f, 1,
       zeNetlist::eDefault},
      {"emRecoveryFactor\n", 0, false, 1, 0, zeNetlist::eDefault},
      {"simDataType qxf\n", 0, false, 1, 0, zeNetlist::eQXF},
      {"simDataType QXF\nsimDataType other\nsimDataType\n", 0, false, 1, 0, zeNetlist::eQXF},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.commands);
    testing_support::ScratchDir dir;
    testing_support::writeFile(dir.file("cmd"), c.commands);
    analysis::processSettings() = {};
    zeAnalyzeNetlist session;
    testing::internal::CaptureStdout();
    ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
    EXPECT_EQ(session.processCommandFile(), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(session.durationTime, c.durationTime);
    EXPECT_EQ(analysis::processSettings().emRecoveryFactorGiven, c.emGiven);
    EXPECT_EQ(analysis::processSettings().emRecoveryFactor, c.emFactor);
    EXPECT_EQ(analysis::processSettings().recoveryFactor, c.recoveryFactor);
    EXPECT_EQ(session.recoveryFactorFlag, c.recoveryFactor != 0);
    EXPECT_EQ(session.dataType, c.dataType);
  }
  analysis::processSettings() = {};
  zeAnalyzeNetlist unopened;
  EXPECT_EQ(unopened.processCommandFile(), 1);
}

}  // namespace
