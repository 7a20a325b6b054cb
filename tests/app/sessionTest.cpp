// What no command reaches: the severities no message uses, elapsed times that are not 0 (the
// end-to-end driver hides them), a command file read before init, and output files moved or
// closed twice. What the setting commands leave behind are cases of tests/data/app/rules.txt.
// Everything else of the session and the log is covered by the end-to-end cases (cli_*).

#include <gtest/gtest.h>

#include <string>

#include "app/analyzeNetlist.h"
#include "app/outputFile.h"
#include "support/testFiles.h"

using testing_support::readFile;
using testing_support::ScratchDir;

namespace {

TEST(Session, UnusedSeveritiesAndElapsedTime) {
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
  EXPECT_EQ(session.dbuScale, 0.001);
  testing::internal::CaptureStdout();
  session.out_log(-1, "f\n", Echo::yes);
  session.out_log(9, "g\n", Echo::yes);
  session.out_log(0, nullptr, Echo::yes);
  session.commandStart = 100;
  session.commandEnd = 103;
  session.report_time(nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "f\ng\nINFO: ** kra2 analysis done ( time 3 sec )\n");
}

TEST(Session, CommandFileNeedsInit) {
  zeAnalyzeNetlist unopened;
  EXPECT_EQ(unopened.processCommandFile(), 1);
}

TEST(Session, OutputFilesMovedOrClosedTwice) {
  ScratchDir dir;
  OutputFile missing(dir.file("no/such/folder/x").c_str(), "w");
  EXPECT_FALSE(missing.isOpen());
  EXPECT_TRUE(missing.close());
  OutputFile first(dir.file("a.txt").c_str(), "w");
  std::fputs("kept", first.get());
  OutputFile second = std::move(first);
  EXPECT_FALSE(first.isOpen());
  EXPECT_EQ(second.path(), dir.file("a.txt"));
  // Assigning over an open file closes it first, with its bytes.
  second = OutputFile(dir.file("b.txt").c_str(), "w");
  EXPECT_EQ(readFile(dir.file("a.txt")), "kept");
  // A megabyte fails while it is written, long before the close; a second close has nothing
  // left to fail.
  OutputFile full("/dev/full", "w+");
  const std::string text(1 << 20, 'x');
  std::fwrite(text.data(), 1, text.size(), full.get());
  EXPECT_FALSE(full.close());
  EXPECT_TRUE(full.close());
}

}  // namespace
