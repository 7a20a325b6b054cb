#pragma once
// The text listings that the database commands write for other tools.

#include <cstdint>
#include <cstdio>
#include <string>

namespace kraDB {

class kraDBFile;

/// Appends a real as printf's "%g" writes it.
void appendG(std::string& out, double value);

/// Writes one line per IR record, "name  peak  avg  rms  tpeak min  tmin" (the first three
/// statistics in the reverse of their file order, as the tools that read the listing expect),
/// streaming record by record. Returns the number of lines.
int64_t writeIRListing(kraDBFile& db, std::FILE* out);

/// Writes the time-window description of a database: valid simulation data of type tran and
/// its range, or "NaN NaN" when either end is negative.
void writeTimeListing(double startTime, double stopTime, std::FILE* out);

/// Writes version, architecture and, for versions above 3.9, the recovery factor.
void writeInfoListing(float version, int architecture, std::FILE* out);

}  // namespace kraDB
