// The length and layer commands on a session.

#include <gtest/gtest.h>

#include <string>

#include "app/analyzeNetlist.h"
#include "db/designGlobals.h"
#include "support/testFiles.h"

using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

TEST(LengthCommands, CadGridKeepsOnlyFineGrids) {
  const double designGrid = 1.0 / hlm::global::getDBU();
  const struct {
    const char* text;
    double expected;
  } cases[] = {
      {"0.0005", 0.0005},    {"0.001", 0.001},  {"0.0010001", designGrid},
      {"0.01", designGrid},  {"5", designGrid}, {"abc", 0.0},
      {"-2", -2.0},          {"1e-9", 1e-9},    {"2e-4xyz", 2e-4},
      {"1e999", designGrid},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    zeAnalyzeNetlist session;
    session.dbuScale = 42.0;
    ArgList args{c.text};
    EXPECT_EQ(session.processCadGridCmd(&args), 0);
    EXPECT_EQ(session.dbuScale, c.expected);
  }
}

TEST(LengthCommands, EmptyArgumentListsAreRefusedLikeMissingOnes) {
  // The texts themselves are checked end to end, where missing arguments come as no list.
  ScratchDir dir;
  writeFile(dir.file("cmd"), "");
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  const ArgList empty;
  using Handler = int (zeAnalyzeNetlist::*)(const ArgList*);
  for (Handler handler :
       {&zeAnalyzeNetlist::processLengthDataInputCmd, &zeAnalyzeNetlist::processLengthDataOutputCmd,
        &zeAnalyzeNetlist::processSetLayersStackCmd, &zeAnalyzeNetlist::processPowerGridLayersCmd,
        &zeAnalyzeNetlist::processPowerGridRulesInputCmd,
        &zeAnalyzeNetlist::processPowerGridRulesOutputCmd,
        &zeAnalyzeNetlist::processSaveTMeshDataCmd, &zeAnalyzeNetlist::processCadGridCmd}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ((session.*handler)(nullptr), 1);
    const std::string missing = testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    EXPECT_EQ((session.*handler)(&empty), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), missing);
    EXPECT_EQ(missing.rfind("ERROR: kra2: ", 0), 0u) << missing;
  }
  session.processCleanup();
}

}  // namespace
