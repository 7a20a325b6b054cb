// EMIR database commands and the session's database probes.

#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "app/analyzeNetlist.h"
#include "db/dbFile.h"
#include "db/dbListings.h"
#include "db/emRecordTable.h"
#include "db/headerParameters.h"
#include "pgnet/dbNetwork.h"

namespace {

constexpr const char* kNeedsName = "%s: %s command requires a directory name.\n";
constexpr const char* kNoOutput = "%s: Unable to open output result file %s.\n";
constexpr const char* kOpenForReading = "%s: Unable to open file %s for reading, in command %s.\n";
constexpr const char* kOpenForWriting = "%s: Unable to open file %s for writing, in command %s.\n";
// Database errors end in a line feed of their own; the blank and second line feed after them
// are part of how the commands have always reported them.
constexpr const char* kDatabaseError = "%s: %s \n";

}  // namespace

int zeAnalyzeNetlist::processReadMuroDBIR(const char* dbPath, const char* outPath) {
  if (dbPath == nullptr || outPath == nullptr) {
    logMsg(kError, Echo::yes, kNeedsName, kProgramName, "readMuroDBIR");
    return 1;
  }
  try {
    kraDB::kraDBFile db(dbPath);
    OutputFile out(outPath, "w");
    if (!out) {
      logMsg(kError, Echo::yes, kNoOutput, kProgramName, outPath);
      return 1;
    }
    kraDB::writeIRListing(db, out.get());
    if (!db.damage().empty()) {
      // The listing holds the records read before the fault; the message says what is missing.
      logMsg(kError, Echo::yes, "%s: %s", kProgramName, db.damage().c_str());
    }
    if (!closeOutput(out)) {
      return 1;
    }
  } catch (const std::exception& error) {
    logMsg(kError, Echo::yes, kDatabaseError, kProgramName, error.what());
  }
  return 0;
}

int zeAnalyzeNetlist::processReadMuroDBTime(const char* dbPath, const char* outPath) {
  if (dbPath == nullptr || outPath == nullptr) {
    logMsg(kError, Echo::yes, kNeedsName, kProgramName, "readMuroDBTime");
    return 1;
  }
  try {
    kraDB::kraDBFile db(dbPath);
    OutputFile out(outPath, "w");
    if (!out) {
      logMsg(kError, Echo::yes, kNoOutput, kProgramName, outPath);
      return 1;
    }
    startTime = db.getStartTime();
    stopTime = db.getStopTime();
    kraDB::writeTimeListing(startTime, stopTime, out.get());
    if (!closeOutput(out)) {
      return 1;
    }
  } catch (const std::exception& error) {
    logMsg(kError, Echo::yes, kDatabaseError, kProgramName, error.what());
    return 1;
  }
  return 0;
}

int zeAnalyzeNetlist::processReadMuroDBInfo(const char* dbPath, const char* outPath) {
  if (dbPath == nullptr || outPath == nullptr) {
    logMsg(kError, Echo::yes, kNeedsName, kProgramName, "readMuroDBInfo");
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

int zeAnalyzeNetlist::processReadMuroDBEM(const ArgList* args) {
  const char* dbPath = argAt(args, 0);
  const char* outPath = argAt(args, 1);
  const char* networkPath = argAt(args, 2);
  const char* resistorPrefix = argAt(args, 3);
  const char* hierarchy = argAt(args, 4);
  if (resistorPrefix == nullptr) {
    logMsg(kError, Echo::yes,
           "%s: %s command requires minimum four arguments as 'resultDir outputfile inputfile "
           "pResName'  name.\n",
           kProgramName, "readMuroDBEM");
    return 1;
  }
  // An unknown architecture (-1) is accepted; only a known one other than 64-bit is refused.
  const int architecture = getArchitecture(dbPath);
  if (architecture > 0 && architecture != 64) {
    logMsg(kError, Echo::yes, "Architecture mismatch! The DB architecture is %d.\n", architecture);
    return 1;
  }
  try {
    kraDB::kraDBFile db(dbPath);
    kraDBNetwork network;
    std::ifstream networkInput(networkPath, std::ios::in | std::ios::binary);
    if (!networkInput.is_open()) {
      // The command still writes its (empty) listing, as it always has; the message says why.
      logMsg(kError, Echo::yes, kOpenForReading, kProgramName, networkPath, "readMuroDBEM");
    } else if (!network.loadData(networkInput, evalCurrentDirection
                                                   ? DBNetworkColumns::kWithNets
                                                   : DBNetworkColumns::kNamesOnly)) {
      logMsg(kError, Echo::yes,
             "%s: Error in network input file %s, %s; the nodes before it are used.\n",
             kProgramName, networkPath, network.errorMessage.c_str());
    }
    networkInput.close();
    OutputFile out(outPath, "w");
    if (!out) {
      logMsg(kError, Echo::yes, kNoOutput, kProgramName, outPath);
      return 1;
    }
    OutputFile tmesh;
    if (!tMeshDataFile.empty()) {
      tmesh = OutputFile(tMeshDataFile.c_str(), "w");
      if (!tmesh) {
        logMsg(kError, Echo::yes, kOpenForWriting, kProgramName, tMeshDataFile.c_str(),
               "saveTMeshData");
        return 1;
      }
    }
    kraDB::EMRecordTable records;
    kraDB::kraDBEMNode record;
    while (db.readNextEM(record)) {
      records.add(record);
    }
    records.finish();
    if (!db.damage().empty()) {
      // The records read before the fault are used; the message says what is missing.
      logMsg(kError, Echo::yes, "%s: %s", kProgramName, db.damage().c_str());
    }
    db.closeFile();
    const std::string hierarchyPrefix =
        hierarchy != nullptr ? pgnet::normaliseHierarchyPrefix(hierarchy) : std::string();
    const std::string resistorSuffix = pgnet::normaliseResistorPrefix(resistorPrefix);
    const std::vector<uint32_t> order = network.sortedByName();
    network.attachRecords(records, hierarchyPrefix, resistorSuffix, order);
    if (evalCurrentDirection) {
      network.evalCurrDir();
    }
    pgnet::writeEMListing(network, order, out.get(), tmesh.get());
    bool written = closeOutput(out);
    if (tmesh.isOpen()) {
      written = closeOutput(tmesh) && written;
    }
    if (!powerGridRulesInputFile.empty()) {
      return processPowerGridAnalysis(&network);
    }
    return written ? 0 : 1;
  } catch (const std::exception& error) {
    logMsg(kError, Echo::yes, kDatabaseError, kProgramName, error.what());
    return 1;
  }
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
