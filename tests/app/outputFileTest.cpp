#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "app/analyzeNetlist.h"
#include "app/outputFile.h"
#include "support/testFiles.h"

using testing_support::readFile;
using testing_support::ScratchDir;

namespace {

TEST(OutputFile, CloseTellsWhetherEveryByteReachedTheFile) {
  ScratchDir dir;
  // A few bytes fail only when the stream's buffer is flushed at the close; a megabyte fails
  // while it is written, long before the close.
  struct Case {
    const char* what;
    std::string path;
    size_t bytes;
    bool complete;
  };
  const Case cases[] = {
      {"small file", dir.file("small.txt"), 10, true},
      {"large file", dir.file("large.txt"), 1 << 20, true},
      {"small on a full disk", "/dev/full", 10, false},
      {"large on a full disk", "/dev/full", 1 << 20, false},
      {"nothing on a full disk", "/dev/full", 0, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    OutputFile file(c.path.c_str(), "w+");
    ASSERT_TRUE(file.isOpen());
    EXPECT_EQ(file.path(), c.path);
    const std::string text(c.bytes, 'x');
    std::fwrite(text.data(), 1, text.size(), file.get());
    EXPECT_EQ(file.close(), c.complete);
    EXPECT_FALSE(file.isOpen());
    EXPECT_TRUE(file.close()) << "a second close has nothing left to fail";
    if (c.path != "/dev/full") {
      EXPECT_EQ(readFile(c.path), text);
    }
  }
}

TEST(OutputFile, UnopenedAndMovedFiles) {
  ScratchDir dir;
  OutputFile missing(dir.file("no/such/folder/x").c_str(), "w");
  EXPECT_FALSE(missing.isOpen());
  EXPECT_TRUE(missing.close());
  OutputFile none(nullptr, "w");
  EXPECT_FALSE(none);

  OutputFile first(dir.file("a.txt").c_str(), "w");
  std::fputs("kept", first.get());
  OutputFile second = std::move(first);
  EXPECT_FALSE(first.isOpen());
  ASSERT_TRUE(second.isOpen());
  EXPECT_EQ(second.path(), dir.file("a.txt"));
  // Assigning over an open file closes it first, with its bytes.
  second = OutputFile(dir.file("b.txt").c_str(), "w");
  EXPECT_EQ(readFile(dir.file("a.txt")), "kept");
  EXPECT_TRUE(second.close());
}

TEST(OutputFile, SessionReportsIncompleteFilesByName) {
  zeAnalyzeNetlist session;
  ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
  {
    OutputFile full("/dev/full", "w");
    std::fputs("lost\n", full.get());
    testing::internal::CaptureStdout();
    EXPECT_FALSE(session.closeOutput(full));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: kra2: error writing output file /dev/full.\n");
  }
  {
    std::ofstream stream("/dev/full");
    stream << "lost\n";
    testing::internal::CaptureStdout();
    EXPECT_FALSE(session.closeOutput(stream, "/dev/full"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "ERROR: kra2: error writing output file /dev/full.\n");
  }
  {
    ScratchDir dir;
    OutputFile fine(dir.file("fine").c_str(), "w");
    std::fputs("kept\n", fine.get());
    testing::internal::CaptureStdout();
    EXPECT_TRUE(session.closeOutput(fine));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(readFile(dir.file("fine")), "kept\n");
  }
}

}  // namespace
