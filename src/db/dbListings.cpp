#include "db/dbListings.h"

#include <charconv>
#include <cstring>
#include <string>
#include <utility>

#include "db/dbFile.h"
#include "db/dbRecords.h"

namespace kraDB {

void appendG(std::string& out, double value) {
  // Six significant digits in the style of printf's %g (the standard defines to_chars with a
  // precision that way), without printf's per-call format parsing.
  char text[32];
  out.append(text,
             std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6).ptr);
}

int64_t writeIRListing(kraDBFile& db, std::FILE* out) {
  constexpr size_t kFlushAt = 1 << 16;
  IRRecord record;
  std::string text;
  text.reserve(kFlushAt + 1024);
  int64_t lines = 0;
  while (db.readNextIR(record)) {
    // The line is "%s  %g  %g  %g  %g %g  %g\n" over name, peak, avg, rms, tpeak, min, tmin;
    // like %s, the name ends at its first zero byte.
    text.append(record.name.c_str(), std::strlen(record.name.c_str()));
    const std::pair<const char*, double> columns[] = {{"  ", record.peak}, {"  ", record.avg},
                                                      {"  ", record.rms},  {"  ", record.tpeak},
                                                      {" ", record.min},   {"  ", record.tmin}};
    for (const auto& [separator, value] : columns) {
      text += separator;
      appendG(text, value);
    }
    text += '\n';
    ++lines;
    if (text.size() >= kFlushAt) {
      std::fwrite(text.data(), 1, text.size(), out);
      text.clear();
    }
  }
  std::fwrite(text.data(), 1, text.size(), out);
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
