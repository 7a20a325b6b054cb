// Fuzz target: the EMIR database reader (header text, pointer table, block keys, scrambled
// records) and the probes that look at a file before it is opened (version, architecture).
// The input is written to a file, since the reader works on paths.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>

#include "db/dbFile.h"
#include "db/dbListings.h"
#include "db/headerParameters.h"
#include "fuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string path = (fuzzing::scratchDir() / "input.db").string();
  fuzzing::writeFile(path, data, size);

  kraDB::HeaderParameters params;
  kraDB::readDBParameters(path, params);
  kraDB::versionOf(params);
  kraDB::taggedArchitecture(params);
  kraDB::guessLegacyArchitecture(path);

  std::FILE* sink = std::fopen("/dev/null", "w");
  try {
    kraDB::kraDBFile db(path);
    if (size % 2 == 0) {
      // The listing reads every IR record; the EM block is read after it, as callers do.
      kraDB::writeIRListing(db, sink);
      while (std::unique_ptr<kraDB::kraDBEMNode> record = db.getNextEM()) {
        std::fprintf(sink, "%s %g %g %lld\n", record->name.c_str(), record->peak, record->avgPos,
                     static_cast<long long>(record->term1));
      }
      db.getNextIR();
    } else {
      // EM first: the blocks may lie in either order and overlap in a hostile file.
      while (db.getNextEM()) {
      }
      while (db.getNextIR()) {
      }
    }
  } catch (const std::exception&) {
  }
  std::fclose(sink);
  return 0;
}
