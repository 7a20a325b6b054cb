#pragma once
// Line and field reading for the network's data files.

#include <cstddef>
#include <istream>
#include <string>
#include <string_view>
#include <vector>

namespace pgnet::detail {

/// Reads lines that end in a line feed straight from a stream's buffer, in large chunks.
/// A last line without a line feed is never returned. A line longer than kMaxLineBytes is
/// cut to that length (the rest up to its line feed is skipped), so memory stays bounded
/// whatever the input.
class LineReader {
 public:
  static constexpr size_t kMaxLineBytes = 1 << 20;

  explicit LineReader(std::istream& in);
  /// The next line without its line feed, valid until the next call; false at the end.
  bool next(std::string_view& line);

 private:
  bool refill();

  std::istream& in_;
  std::vector<char> chunk_;
  size_t begin_ = 0;
  size_t end_ = 0;
  std::string carry_;
  bool atEnd_ = false;
};

/// Splits a line at runs of white space (blank, tab, CR, LF, VT, FF) into at most `maxFields`
/// fields; returns how many were found.
size_t splitFields(std::string_view line, std::string_view* fields, size_t maxFields);

/// Reads a whole field as a double exactly as a stream extraction in the classic locale would
/// (so "1", "0.5", "+2e-3" and "5." are numbers and "inf", "0x10", "1e999" are not), and
/// rejects text left over after the number.
bool parseDouble(std::string_view field, double& value);

/// Appends a double as a stream writes it with default formatting (six significant digits,
/// the shorter of fixed and scientific).
void appendDouble(std::string& out, double value);

}  // namespace pgnet::detail
