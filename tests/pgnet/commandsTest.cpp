// The length and layer commands on a session.

#include <gtest/gtest.h>

#include <string>

#include "app/analyzeNetlist.h"
#include "db/designGlobals.h"
#include "support/testFiles.h"

using testing_support::readFile;
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
  ScratchDir dir;
  writeFile(dir.file("cmd"), "");
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  const ArgList empty;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.processLengthDataInputCmd(&empty), 1);
  EXPECT_EQ(session.processLengthDataOutputCmd(&empty), 1);
  EXPECT_EQ(session.processSetLayersStackCmd(&empty), 1);
  EXPECT_EQ(session.processPowerGridLayersCmd(&empty), 1);
  EXPECT_EQ(session.processPowerGridRulesInputCmd(&empty), 1);
  EXPECT_EQ(session.processPowerGridRulesOutputCmd(&empty), 1);
  EXPECT_EQ(session.processSaveTMeshDataCmd(&empty), 1);
  EXPECT_EQ(session.processCadGridCmd(&empty), 1);
  const std::string printed = testing::internal::GetCapturedStdout();
  session.processCleanup();
  const std::string expected =
      "ERROR: kra2: lengthDataInput command requires an input file  name.\n"
      "ERROR: kra2: lengthDataOutput command requires an output file  name.\n"
      "ERROR: kra2: lengthDataInput command requires layers stack as list of layers.\n"
      "ERROR: kra2: powerGridLayers command requires list of power-grid layers as list.\n"
      "ERROR: kra2: powerGridRulesInput command requires input file name  for  power-grid "
      "rule processing.\n"
      "ERROR: kra2: powerGridRulesOutput command requires output file name  for  power-grid "
      "rule processing.\n"
      "ERROR: kra2: saveTMeshData command requires output file name  for saving Mesh data. \n"
      "ERROR: kra2: cadGrid command requires cadGrid value.\n";
  EXPECT_EQ(printed, expected);
  EXPECT_EQ(readFile(dir.file("log")), expected);
}

TEST(LengthCommands, SettingsAccumulateOrTakeTheFirstArgument) {
  zeAnalyzeNetlist session;
  const ArgList files{"first", "second"};
  EXPECT_EQ(session.processLengthDataInputCmd(&files), 0);
  EXPECT_EQ(session.processLengthDataOutputCmd(&files), 0);
  EXPECT_EQ(session.processPowerGridRulesInputCmd(&files), 0);
  EXPECT_EQ(session.processPowerGridRulesOutputCmd(&files), 0);
  EXPECT_EQ(session.processSaveTMeshDataCmd(&files), 0);
  EXPECT_EQ(session.lengthDataInputFile, "first");
  EXPECT_EQ(session.lengthDataOutputFile, "first");
  EXPECT_EQ(session.powerGridRulesInputFile, "first");
  EXPECT_EQ(session.powerGridRulesOutputFile, "first");
  EXPECT_EQ(session.tMeshDataFile, "first");

  const ArgList stack1{"V12", "M2", "M1"};
  const ArgList stack2{"V23", "M3"};
  EXPECT_EQ(session.processSetLayersStackCmd(&stack1), 0);
  EXPECT_EQ(session.processSetLayersStackCmd(&stack2), 0);
  EXPECT_EQ(session.layerStack, (std::vector<std::string>{"V12", "M2", "M1", "V23", "M3"}));

  const ArgList layers1{"M2", "M1", "M2"};
  const ArgList layers2{"M1", "M0"};
  EXPECT_EQ(session.processPowerGridLayersCmd(&layers1), 0);
  EXPECT_EQ(session.processPowerGridLayersCmd(&layers2), 0);
  EXPECT_EQ(session.powerGridLayers, (std::set<std::string>{"M0", "M1", "M2"}));
}

TEST(LengthCommands, CalculateLengthWritesTheOutputOrLeavesItEmpty) {
  ScratchDir dir;
  writeFile(dir.file("good"), "m1 a b 1 1 M1 nil\nm2 b c 2 1 M1 nil\n");
  writeFile(dir.file("bad"), "m1 a b 1 1 M1 nil\nm2 b c\n");
  zeAnalyzeNetlist session;
  session.lengthDataInputFile = dir.file("good");
  session.lengthDataOutputFile = dir.file("out");
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.processCalculateLengthCmd(), 0);
  EXPECT_EQ(readFile(dir.file("out")), "m1\t3\tM\nm2\t3\tM\n");
  session.lengthDataInputFile = dir.file("bad");
  EXPECT_EQ(session.processCalculateLengthCmd(), 1);
  EXPECT_EQ(readFile(dir.file("out")), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: Error in calculating length data.\nAt parsing line 2:m2 b c\n");
}

}  // namespace
