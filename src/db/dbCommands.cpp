// EMIR database commands and the session's database probes.

#include <cstdlib>
#include <exception>
#include <string>

#include "app/analyzeNetlist.h"
#include "db/dbFile.h"
#include "db/dbListings.h"
#include "db/headerParameters.h"

namespace {

constexpr const char* kNeedsName = "%s: %s command requires a directory name.\n";
constexpr const char* kNoOutput = "%s: Unable to open output result file %s.\n";
// Database errors end in a line feed of their own; the blank and second line feed after them
// are part of how the commands have always reported them.
constexpr const char* kDatabaseError = "%s: %s \n";

}  // namespace

namespace {

/// False, with the message that `command` needs them logged, unless both names are given.
bool bothNamesGiven(zeAnalyzeNetlist& session, const char* dbPath, const char* outPath,
                    const char* command) {
  if (dbPath != nullptr && outPath != nullptr) {
    return true;
  }
  session.logMsg(kError, Echo::yes, kNeedsName, kProgramName, command);
  return false;
}

/// What the IR and time listings share: both names required (1 without them), the database
/// opened for reading, the output opened with mode "w" (one that cannot be opened is logged
/// and gives 1), `write` filling it, and 1 when the output was not written completely. A
/// database error is logged and gives `resultOnError`, which differs between the commands.
template <typename Write>
int writeDatabaseListing(zeAnalyzeNetlist& session, const char* dbPath, const char* outPath,
                         const char* command, int resultOnError, Write write) {
  if (!bothNamesGiven(session, dbPath, outPath, command)) {
    return 1;
  }
  try {
    kraDB::kraDBFile db(dbPath);
    OutputFile out(outPath, "w");
    if (!out) {
      session.logMsg(kError, Echo::yes, kNoOutput, kProgramName, outPath);
      return 1;
    }
    write(db, out.get());
    return session.closeOutput(out) ? 0 : 1;
  } catch (const std::exception& error) {
    session.logMsg(kError, Echo::yes, kDatabaseError, kProgramName, error.what());
    return resultOnError;
  }
}

}  // namespace

int zeAnalyzeNetlist::processReadMuroDBIR(const char* dbPath, const char* outPath) {
  // A database error still gives 0 here.
  return writeDatabaseListing(
      *this, dbPath, outPath, "readMuroDBIR", 0, [&](kraDB::kraDBFile& db, std::FILE* out) {
        kraDB::writeIRListing(db, out);
        if (!db.damage().empty()) {
          // The listing holds the records read before the fault; the
          // message says what is missing.
          logMsg(kError, Echo::yes, "%s: %s", kProgramName, db.damage().c_str());
        }
      });
}

int zeAnalyzeNetlist::processReadMuroDBTime(const char* dbPath, const char* outPath) {
  return writeDatabaseListing(*this, dbPath, outPath, "readMuroDBTime", 1,
                              [&](kraDB::kraDBFile& db, std::FILE* out) {
                                startTime = db.getStartTime();
                                stopTime = db.getStopTime();
                                kraDB::writeTimeListing(startTime, stopTime, out);
                              });
}

int zeAnalyzeNetlist::processReadMuroDBInfo(const char* dbPath, const char* outPath) {
  if (!bothNamesGiven(*this, dbPath, outPath, "readMuroDBInfo")) {
    return 1;
  }
  OutputFile out(outPath, "w");
  if (!out) {
    logMsg(kError, Echo::yes, kNoOutput, kProgramName, outPath);
    return 1;
  }
  // An unreadable header is not an error here: the version stays -1 and the architecture is
  // guessed from the file's layout.
  kraDB::HeaderParameters params;
  kraDB::readDBParameters(dbPath, params);
  const float version = kraDB::versionOf(params);
  const std::optional<int> tagged = kraDB::taggedArchitecture(params);
  const int architecture = tagged ? *tagged : guessArchitecture(dbPath);
  kraDB::writeInfoListing(version, architecture, out.get());
  return closeOutput(out) ? 0 : 1;
}

int zeAnalyzeNetlist::getArchitecture(const std::string& path) {
  if (path.empty()) {
    logMsg(kError, Echo::yes, kNeedsName, kProgramName, "readMuroDBInfo");
    return 1;
  }
  kraDB::HeaderParameters params;
  if (!kraDB::readDBParameters(path, params)) {
    return -1;
  }
  const std::optional<int> tagged = kraDB::taggedArchitecture(params);
  return tagged ? *tagged : guessArchitecture(path);
}

int zeAnalyzeNetlist::guessArchitecture(const std::string& path) {
  if (std::getenv("KRA_DISABLE_ARCHITECTURE_FINDING") != nullptr) {
    return -1;
  }
  const std::optional<int> guess = kraDB::guessLegacyArchitecture(path);
  if (!guess) {
    logMsg(kError, Echo::yes, "Error in reading muro database %s .\n", path.c_str());
    return -1;
  }
  return *guess;
}

void zeAnalyzeNetlist::updateStartStopTimeFromDBFile(const char* path) {
  if (path == nullptr) {
    return;
  }
  // The caller is a command handler; a database error is reported like the database
  // commands report it and leaves the time window as it was.
  try {
    kraDB::kraDBFile db(path);
    startTime = db.getStartTime();
    stopTime = db.getStopTime();
  } catch (const std::exception& error) {
    logMsg(kError, Echo::yes, kDatabaseError, kProgramName, error.what());
  }
}
