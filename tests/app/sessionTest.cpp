#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "app/analyzeNetlist.h"
#include "db/designGlobals.h"
#include "support/testFiles.h"

using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

TEST(Session, OutLogPrefixesBySeverityAndEchoes) {
  ScratchDir dir;
  writeFile(dir.file("cmd"), "");
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  testing::internal::CaptureStdout();
  session.out_log(0, "a\n", Echo::yes);
  session.out_log(1, "b\n", Echo::no);
  session.out_log(2, "c\n", Echo::yes);
  session.out_log(3, "d\n", Echo::no);
  session.out_log(4, "e\n", Echo::yes);
  session.out_log(-1, "f\n", Echo::no);
  session.out_log(9, "g\n", Echo::no);
  session.out_log(0, nullptr, Echo::yes);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "INFO: a\nERROR: c\ne\n");
  session.processCleanup();
  EXPECT_EQ(readFile(dir.file("log")), "INFO: a\nWARNING: b\nERROR: c\nSTATUS: d\ne\nf\ng\n");
}

TEST(Session, InitReportsMissingAndUnreadableCommandFiles) {
  ScratchDir dir;
  {
    zeAnalyzeNetlist session;
    testing::internal::CaptureStdout();
    EXPECT_EQ(session.init(nullptr, dir.file("log").c_str(), false), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: kra2: command file name is missing\n");
  }
  EXPECT_EQ(readFile(dir.file("log")), "ERROR: kra2: command file name is missing\n");
  {
    zeAnalyzeNetlist session;
    testing::internal::CaptureStdout();
    const std::string missing = dir.file("nope");
    EXPECT_EQ(session.init(missing.c_str(), dir.file("log").c_str(), false), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: kra2: command file " + missing + " not found.\n");
  }
}

TEST(Session, InitWithoutFilesOnlyReadsTheEnvironment) {
  setenv("_kraUseOldACPeakMethod", "", 1);
  zeAnalyzeNetlist session;
  EXPECT_EQ(session.init(nullptr, nullptr, true), 0);
  EXPECT_TRUE(session.useOldACPeakMethod);
  unsetenv("_kraUseOldACPeakMethod");
  EXPECT_EQ(session.init(nullptr, nullptr, true), 0);
  EXPECT_FALSE(session.useOldACPeakMethod);
}

TEST(Session, DbuScaleFollowsTheDesignUnit) {
  zeAnalyzeNetlist session;
  EXPECT_EQ(session.dbuScale, 0.001);
}

TEST(Session, ReportTimeUsesWholeSeconds) {
  zeAnalyzeNetlist session;
  session.init(nullptr, nullptr, true);
  testing::internal::CaptureStdout();
  session.commandStart = 100;
  session.commandEnd = 100;
  session.report_time("run");
  session.commandEnd = 103;
  session.report_time(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "INFO: ** run command done ( time 0 sec )\n"
            "INFO: ** kra2 analysis done ( time 3 sec )\n");
}

TEST(DesignGlobals, DbuAndGridResolution) {
  EXPECT_EQ(hlm::global::getDBU(), 1000.0);
  EXPECT_EQ(hlm::global::getGridResolution(), 2000.0);
  hlm::global::setDBU(0.0);
  EXPECT_EQ(hlm::global::getDBU(), 1000.0);
  hlm::global::setDBU(2000);
  EXPECT_EQ(hlm::global::getGridResolution(), 4000.0);
  hlm::global::setDBU(1000.0);
  hlm::global::addHighRModel("rhigh");
  hlm::global::addHighRModel("rhigh");
  std::set<std::string> models;
  hlm::global::getHighRModel(models);
  EXPECT_EQ(models.size(), 1u);
  hlm::global::clearHighRModel();
  hlm::BBox box = hlm::global::getDesignBox();
  EXPECT_EQ(box.llx, INT64_MAX);
  EXPECT_EQ(box.ury, INT64_MIN);
}

}  // namespace
