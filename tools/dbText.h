#pragma once
// Text forms of database records for the kra2db tool: the tab-separated record files it
// writes databases from, and the dump it prints. Reals are printed in their shortest form
// that reads back to the same double, so a dump round-trips.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "db/dbRecords.h"

namespace kra2db {

/// Fields of an IR record line: name, rms, avg, peak, tpeak, min, tmin.
inline constexpr size_t kIRFields = 7;
/// Fields of an EM record line: name, rms, avg, peak, tpeak, avgPos, term1, term2.
inline constexpr size_t kEMFields = 8;

/// Splits a line at tabs, keeping empty fields.
std::vector<std::string_view> splitTabs(std::string_view line);

/// Reads a real ("1e-9", "-0.5", "+3", "inf", "nan"); blanks around it are allowed. False
/// for anything else.
bool parseReal(std::string_view text, double& value);
/// Reads a signed 64-bit integer in decimal; blanks around it are allowed.
bool parseInt64(std::string_view text, int64_t& value);

/// Parses one record line; on failure `error` says which field is wrong.
bool parseIRLine(std::string_view line, IRRecord& out, std::string& error);
bool parseEMLine(std::string_view line, kraDB::kraDBEMNode& out, std::string& error);

/// Appends the shortest text that reads back as the same double.
void appendReal(std::string& out, double value);

/// Dump lines, each ending in a line feed: "IR\tname\trms\tavg\tpeak\ttpeak\tmin\ttmin" and
/// "EM\tname\trms\tavg\tpeak\ttpeak\tavgPos\tterm1\tterm2".
void appendIRLine(std::string& out, const IRRecord& record);
void appendEMLine(std::string& out, const kraDB::kraDBEMNode& record);

/// Reads a text file line by line with a bound on the line length, so a file without line
/// feeds cannot make it allocate without limit.
class LineReader {
 public:
  static constexpr size_t kMaxLine = 1 << 20;

  /// Opens a file; "-" reads standard input.
  bool open(const std::string& path);
  /// The next line without its line feed (and without a carriage return before it). False at
  /// the end of the file, or when a line is longer than kMaxLine (then `tooLong()`).
  bool next(std::string_view& line);
  /// Number of the line last returned, from 1.
  int64_t lineNumber() const { return lineNumber_; }
  bool tooLong() const { return tooLong_; }
  /// True when reading failed with an I/O error (not at the end of the file).
  bool readError() const { return readError_; }

 private:
  struct Closer {
    void operator()(std::FILE* file) const;
  };
  std::unique_ptr<std::FILE, Closer> file_;
  std::vector<char> buffer_;
  size_t begin_ = 0;
  size_t end_ = 0;
  bool eof_ = false;
  bool tooLong_ = false;
  bool readError_ = false;
  int64_t lineNumber_ = 0;
};

}  // namespace kra2db
