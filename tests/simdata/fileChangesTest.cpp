// A binary raw file that changes after it was opened: every read that follows throws
// FileChanged naming the file and what changed, whether the data is streamed or read in
// batches, and a file cut short under a read never kills the process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "simdata/fileChanges.h"
#include "simdata/rawBackend.h"
#include "support/testFiles.h"

namespace {

using testing_support::ScratchDir;

/// A binary raw file of `signals` node voltages by `points` points (time p * 1e-9, node s at
/// point p: s + p / 100).
std::string binaryRaw(int signals, int points) {
  std::string text = "Title: t\nDate: d\nPlotname: Transient Analysis\nFlags: real\n";
  text += "No. Variables: " + std::to_string(signals + 1) +
          "\nNo. Points: " + std::to_string(points) + "\nVariables:\n\t0\ttime\ttime\n";
  for (int s = 1; s <= signals; ++s) {
    text += "\t" + std::to_string(s) + "\tv(n" + std::to_string(s) + ")\tvoltage\n";
  }
  text += "Binary:\n";
  for (int p = 0; p < points; ++p) {
    for (int s = 0; s <= signals; ++s) {
      const double value = s == 0 ? p * 1e-9 : s + p / 100.0;
      text.append(reinterpret_cast<const char*>(&value), 8);
    }
  }
  return text;
}

/// How the file is changed, and what the error must then say.
struct Change {
  const char* name;
  std::function<void(const std::string& path)> apply;
  const char* says;
  const char* ends = ")";
};

const Change kChanges[] = {
    {"cut short", [](const std::string& path) { ASSERT_EQ(truncate(path.c_str(), 8192), 0); },
     "changed while it was read (byte offset ", " bytes, now 8192)"},
    {"extended",
     [](const std::string& path) {
       FILE* file = std::fopen(path.c_str(), "ab");
       std::fputs("more", file);
       std::fclose(file);
     },
     "changed while it was read (it held 880"},
    {"rewritten in place",
     [](const std::string& path) {
       const timespec times[2] = {{0, UTIME_OMIT}, {1000000000, 0}};
       ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
     },
     "changed while it was read (it was modified)"},
    {"replaced",
     [](const std::string& path) {
       testing_support::writeFile(path + ".new", binaryRaw(10, 10000));
       ASSERT_EQ(std::rename((path + ".new").c_str(), path.c_str()), 0);
     },
     "changed while it was read (another file took its name)"},
    {"removed", [](const std::string& path) { ASSERT_EQ(unlink(path.c_str()), 0); },
     "changed while it was read (it was removed)"},
};

/// The text of the FileChanged that `read` throws, or "" when it throws none.
std::string changeReported(const std::function<void()>& read) {
  try {
    read();
  } catch (const simdata::FileChanged& changed) {
    return changed.what();
  }
  return "";
}

TEST(ChangedResultsFile, EveryReadAfterAChangeSaysSo) {
  ScratchDir dir;
  const std::string path = dir.file("r.raw");
  simdata::RawBackend backend;
  for (const Change& change : kChanges) {
    for (const bool streamed : {true, false}) {
      SCOPED_TRACE(std::string(change.name) + (streamed ? ", streamed" : ", in a batch"));
      // 10 000 points: a stream of three signals comes in three chunks.
      testing_support::writeFile(path, binaryRaw(10, 10000));
      auto results = backend.open(path);
      ASSERT_NE(results, nullptr);
      simdata::Dataset* tran = results->findDataset("tran");
      const simdata::SignalList* list = tran->signals();
      simdata::SignalArray some(3);
      for (int s : {1, 5, 10}) {
        some.add(list->at(s));
      }
      size_t chunks = 0;
      const std::string said = changeReported([&] {
        if (streamed) {
          // The file changes while the first chunk is used; the next one must not be fed.
          tran->streamSignals(some, [&](size_t, size_t, std::span<const double* const>) {
            if (chunks++ == 0) {
              change.apply(path);
            }
          });
        } else {
          ASSERT_NE(tran->read(some), nullptr);  // unchanged: read as usual
          change.apply(path);
          tran->read(some);
        }
      });
      EXPECT_EQ(said.rfind(path + ": " + change.says, 0), 0u) << said;
      EXPECT_TRUE(said.ends_with(change.ends)) << said;
      EXPECT_LE(chunks, 1u);
    }
  }
}

TEST(ChangedResultsFile, StampsOfAnUnchangedFileAgree) {
  ScratchDir dir;
  const std::string path = dir.file("f");
  testing_support::writeFile(path, "abc");
  struct stat info {};
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  const simdata::FileStamp stamp = simdata::FileStamp::of(info);
  EXPECT_EQ(simdata::changeOf(path, stamp), "");
  EXPECT_NO_THROW(simdata::throwIfChanged(path, stamp));
  EXPECT_THROW(simdata::throwIfChanged(path, stamp, 4096), simdata::FileChanged);
}

}  // namespace
