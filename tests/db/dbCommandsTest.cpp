// The session's database commands and probes, through the session object.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "app/analyzeNetlist.h"
#include "db/dbFile.h"
#include "support/testFiles.h"

namespace {

using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

/// Sets an environment variable for the life of the object.
class EnvGuard {
 public:
  EnvGuard(const char* name, const char* value) : name_(name) { setenv(name, value, 1); }
  ~EnvGuard() { unsetenv(name_); }
  EnvGuard(const EnvGuard&) = delete;
  EnvGuard& operator=(const EnvGuard&) = delete;

 private:
  const char* name_;
};

std::string taggedHeader(const std::string& tags, size_t size = 1200) {
  std::string bytes = "<><><>;" + tags + "<\\><\\><\\>;\n";
  bytes.resize(size, '\0');
  return bytes;
}

/// A file of 3000 bytes whose legacy marker says 64-bit, after the given first bytes.
std::string legacy64(const std::string& start = "") {
  std::string bytes(3000, 'x');
  bytes.replace(0, start.size(), start);
  bytes.replace(96, 5, "begin");
  return bytes;
}

class DbCommands : public testing::Test {
 protected:
  void SetUp() override {
    unsetenv("KRA_DISABLE_ARCHITECTURE_FINDING");
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
  }
  ScratchDir dir;
  zeAnalyzeNetlist session;
};

TEST_F(DbCommands, MissingArgumentsAreReportedByEachCommand) {
  using Handler = int (zeAnalyzeNetlist::*)(const char*, const char*);
  const struct {
    const char* name;
    Handler handler;
  } commands[] = {{"readMuroDBIR", &zeAnalyzeNetlist::processReadMuroDBIR},
                  {"readMuroDBTime", &zeAnalyzeNetlist::processReadMuroDBTime},
                  {"readMuroDBInfo", &zeAnalyzeNetlist::processReadMuroDBInfo}};
  const std::string out = dir.file("out.txt");
  for (const auto& command : commands) {
    for (auto args : {std::pair<const char*, const char*>{nullptr, nullptr},
                      {"x.db", nullptr},
                      {nullptr, out.c_str()}}) {
      SCOPED_TRACE(std::string(command.name) + (args.first ? " db" : "") +
                   (args.second ? " out" : ""));
      testing::internal::CaptureStdout();
      EXPECT_EQ((session.*command.handler)(args.first, args.second), 1);
      EXPECT_EQ(
          testing::internal::GetCapturedStdout(),
          std::string("ERROR: kra2: ") + command.name + " command requires a directory name.\n");
      EXPECT_FALSE(std::filesystem::exists(out));
    }
  }
}

TEST_F(DbCommands, ReadMuroDBTimeTakesTheWindowIntoTheSession) {
  const struct {
    double start, stop;
    const char* range;
  } cases[] = {
      {0.0, 1e-6, "#TimeRange 0.000000e+00 1.000000e-06\n"},
      {2.5e-9, 3.25e-3, "#TimeRange 2.500000e-09 3.250000e-03\n"},
      {-1e-9, 1e-6, "#TimeRange NaN NaN\n"},
      {0.0, -2.0, "#TimeRange NaN NaN\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.range);
    const std::string db = dir.file("t.db");
    { kraDB::kraDBFile writer(db, 25.0, c.start, c.stop, 5.0f); }
    EXPECT_EQ(session.processReadMuroDBTime(db.c_str(), dir.file("time.txt").c_str()), 0);
    EXPECT_EQ(readFile(dir.file("time.txt")),
              std::string("#SimDataIsValid\n#AnalysisType\ntran\n") + c.range);
    // Negative values are taken as they are.
    EXPECT_EQ(session.startTime, c.start);
    EXPECT_EQ(session.stopTime, c.stop);
  }
}

TEST_F(DbCommands, DatabaseErrorsAreLoggedWithTheirText) {
  const std::string missing = dir.file("missing.db");
  const std::string out = dir.file("out.txt");
  session.startTime = 7.0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.processReadMuroDBIR(missing.c_str(), out.c_str()), 0);
  EXPECT_EQ(session.processReadMuroDBTime(missing.c_str(), out.c_str()), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: kra2: Error in opening EMIR database file '" + missing + "'\n \n" +
                "ERROR: kra2: Error in opening EMIR database file '" + missing + "'\n \n");
  // The database is opened first: no output file, and the session keeps its window.
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(session.startTime, 7.0);
}

TEST_F(DbCommands, UpdateStartStopTimeFromDBFile) {
  session.startTime = 3.0;
  session.stopTime = 4.0;
  session.updateStartStopTimeFromDBFile(nullptr);
  EXPECT_EQ(session.startTime, 3.0);
  EXPECT_EQ(session.stopTime, 4.0);

  const std::string db = dir.file("w.db");
  { kraDB::kraDBFile writer(db, 25.0, 1e-9, 5e-6, 5.0f); }
  session.updateStartStopTimeFromDBFile(db.c_str());
  EXPECT_EQ(session.startTime, 1e-9);
  EXPECT_EQ(session.stopTime, 5e-6);

  // A current-format file without conditions gives the reader's start values.
  writeFile(dir.file("bare.db"), taggedHeader("<version>5<\\version>;", 1024));
  session.updateStartStopTimeFromDBFile(dir.file("bare.db").c_str());
  EXPECT_EQ(session.startTime, 0.0);
  EXPECT_EQ(session.stopTime, 1e-7);

  const std::string missing = dir.file("missing.db");
  testing::internal::CaptureStdout();
  session.updateStartStopTimeFromDBFile(missing.c_str());
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: kra2: Error in opening EMIR database file '" + missing + "'\n \n");
  EXPECT_EQ(session.startTime, 0.0);
  EXPECT_EQ(session.stopTime, 1e-7);
}

TEST_F(DbCommands, ArchitectureComesFromTheTagOrTheGuess) {
  const struct {
    const char* label;
    std::string bytes;  // empty: no file
    bool disableGuess;
    int architecture;
  } cases[] = {
      {"tag 64", taggedHeader("<architecture>64<\\architecture>;"), false, 64},
      {"tag 32 is reported, not rejected",
       taggedHeader("<architecture>32<\\architecture>;<version>5<\\version>;"), false, 32},
      {"tag -5 falls back to the guess",
       legacy64(taggedHeader("<architecture>-5<\\architecture>;", 90)), false, 64},
      {"no tag falls back to the guess", legacy64(taggedHeader("<version>5<\\version>;", 90)),
       false, 64},
      {"no tag, guessing disabled", legacy64(taggedHeader("<version>5<\\version>;", 90)), true, -1},
      {"tag-less file is not guessed", legacy64(), false, -1},
      {"missing file", "", false, -1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    const std::string path = dir.file(c.bytes.empty() ? "missing.db" : "arch.db");
    if (!c.bytes.empty()) {
      writeFile(path, c.bytes);
    }
    std::unique_ptr<EnvGuard> guard;
    if (c.disableGuess) {
      guard = std::make_unique<EnvGuard>("KRA_DISABLE_ARCHITECTURE_FINDING", "");
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(session.getArchitecture(path), c.architecture);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  }
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.getArchitecture(""), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: kra2: readMuroDBInfo command requires a directory name.\n");
}

TEST_F(DbCommands, GuessLogsOnlyAnUnreadableFile) {
  const std::string missing = dir.file("missing.db");
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.guessArchitecture(missing), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "ERROR: Error in reading muro database " + missing + " .\n");

  EnvGuard guard("KRA_DISABLE_ARCHITECTURE_FINDING", "0");
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.guessArchitecture(missing), -1);  // the file is not even opened
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(DbCommands, ReadMuroDBInfoGuessesEvenWithoutAHeader) {
  const struct {
    const char* label;
    std::string bytes;
    const char* listing;
  } cases[] = {
      {"current", taggedHeader("<architecture>64<\\architecture>;<version>5<\\version>;"),
       "version\t5.000000\narchitecture\t64\nrecoveryFactor\t1\n"},
      {"tag-less legacy", legacy64(), "version\t-1.000000\narchitecture\t64\n"},
      {"old version, no architecture", legacy64(taggedHeader("<version>3.8999<\\version>;", 90)),
       "version\t3.899900\narchitecture\t64\n"},
      // 3.9 read as a float is slightly above 3.9.
      {"version 3.9", taggedHeader("<version>3.9<\\version>;"),
       "version\t3.900000\narchitecture\t-1\nrecoveryFactor\t1\n"},
      {"version just above 3.9", taggedHeader("<version>3.90001<\\version>;"),
       "version\t3.900010\narchitecture\t-1\nrecoveryFactor\t1\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    writeFile(dir.file("info.db"), c.bytes);
    EXPECT_EQ(
        session.processReadMuroDBInfo(dir.file("info.db").c_str(), dir.file("info.txt").c_str()),
        0);
    EXPECT_EQ(readFile(dir.file("info.txt")), c.listing);
  }
}

}  // namespace
