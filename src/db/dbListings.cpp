#include "db/dbListings.h"

#include "db/dbFile.h"
#include "db/dbRecords.h"

namespace kraDB {

int64_t writeIRListing(kraDBFile& db, std::FILE* out) {
  IRRecord record;
  int64_t lines = 0;
  while (db.readNextIR(record)) {
    std::fprintf(out, "%s  %g  %g  %g  %g %g  %g\n", record.name.c_str(), record.peak,
                 record.avg, record.rms, record.tpeak, record.min, record.tmin);
    ++lines;
  }
  return lines;
}

void writeTimeListing(double startTime, double stopTime, std::FILE* out) {
  std::fputs("#SimDataIsValid\n", out);
  std::fputs("#AnalysisType\n", out);
  std::fputs("tran\n", out);
  if (startTime >= 0 && stopTime >= 0) {
    std::fprintf(out, "#TimeRange %e %e\n", startTime, stopTime);
  } else {
    std::fprintf(out, "#TimeRange %s %s\n", "NaN", "NaN");
  }
}

void writeInfoListing(float version, int architecture, std::FILE* out) {
  std::fprintf(out, "version\t%f\n", static_cast<double>(version));
  std::fprintf(out, "architecture\t%d\n", architecture);
  if (static_cast<double>(version) > 3.9) {
    std::fputs("recoveryFactor\t1\n", out);
  }
}

}  // namespace kraDB
