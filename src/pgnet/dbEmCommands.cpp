// The EM database command: the session's files and messages around the network's relation of
// EM records to resistors.

#include <exception>
#include <string>

#include "app/analyzeNetlist.h"
#include "db/dbFile.h"
#include "pgnet/emRelation.h"

namespace {

/// The session's side of the relation: its log, its output files and the database.
class EmCommandHost : public pgnet::EmRelationHost {
 public:
  EmCommandHost(zeAnalyzeNetlist& session, kraDB::kraDBFile& db, const char* outPath)
      : session_(session), db_(db), outPath_(outPath) {}

  void report(const std::string& message) override {
    session_.logMsg(kError, Echo::yes, "%s: %s", kProgramName, message.c_str());
  }

  bool openOutputs(std::FILE*& listing, std::FILE*& tmesh) override {
    out_ = OutputFile(outPath_, "w");
    if (!out_) {
      session_.logMsg(kError, Echo::yes, "%s: Unable to open output result file %s.\n",
                      kProgramName, outPath_);
      return false;
    }
    const std::string& tmeshPath = session_.tMeshDataFile;
    if (!tmeshPath.empty()) {
      tmesh_ = OutputFile(tmeshPath.c_str(), "w");
      if (!tmesh_) {
        session_.logMsg(kError, Echo::yes,
                        "%s: Unable to open file %s for writing, in command %s.\n", kProgramName,
                        tmeshPath.c_str(), "saveTMeshData");
        return false;
      }
    }
    listing = out_.get();
    tmesh = tmesh_.get();
    return true;
  }

  void readRecords(kraDB::EMRecordTable& records) override {
    kraDB::kraDBEMNode record;
    while (db_.readNextEM(record)) {
      records.add(record);
    }
    records.finish();
    if (!db_.damage().empty()) {
      // The records read before the fault are used; the message says what is missing.
      session_.logMsg(kError, Echo::yes, "%s: %s", kProgramName, db_.damage().c_str());
    }
    db_.closeFile();
  }

  /// Closes the outputs; false when one was not written completely (logged).
  bool closeOutputs() {
    bool written = session_.closeOutput(out_);
    if (tmesh_.isOpen()) {
      written = session_.closeOutput(tmesh_) && written;
    }
    return written;
  }

 private:
  zeAnalyzeNetlist& session_;
  kraDB::kraDBFile& db_;
  const char* outPath_;
  OutputFile out_;
  OutputFile tmesh_;
};

}  // namespace

int zeAnalyzeNetlist::processReadMuroDBEM(const ArgList* args) {
  const char* dbPath = argAt(args, 0);
  const char* outPath = argAt(args, 1);
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
  pgnet::EmRelationRequest request;
  request.networkPath = argAt(args, 2);
  request.resistorPrefix = resistorPrefix;
  if (hierarchy != nullptr) {
    request.hierarchy = hierarchy;
  }
  request.withDirections = evalCurrentDirection;
  try {
    kraDB::kraDBFile db(dbPath);
    EmCommandHost host(*this, db, outPath);
    pgnet::EmRelation relation;
    if (!pgnet::relateEmRecords(request, host, relation)) {
      return 1;
    }
    const bool written = host.closeOutputs();
    if (!powerGridRulesInputFile.empty()) {
      return processPowerGridAnalysis(&relation.network);
    }
    return written ? 0 : 1;
  } catch (const std::exception& error) {
    // Database errors end in a line feed of their own, as the other database commands say.
    logMsg(kError, Echo::yes, "%s: %s \n", kProgramName, error.what());
    return 1;
  }
}
