#pragma once
// The text of a raw-file plot header, read line by line. Most writers use 8-bit text; one
// writes the header of its binary files (up to and including the "Binary:" line) as UTF-16
// little-endian without a byte-order mark. The encoding is recognised per plot from its first
// two bytes (a zero second byte means UTF-16, since every header starts with an ASCII key) and
// UTF-16 lines are decoded to UTF-8, so the header parser sees the same text either way.

#include <cstddef>
#include <string>
#include <string_view>

namespace simdata::raw {

enum class HeaderEncoding { kEightBit, kUtf16le };

/// The encoding of the header that starts at byte `at`.
HeaderEncoding detectHeaderEncoding(std::string_view bytes, size_t at);

/// Reads lines of header text from a byte position on.
class HeaderLines {
 public:
  HeaderLines(std::string_view bytes, size_t at, HeaderEncoding encoding);

  /// The next line without its line feed (and a carriage return before it), and the byte
  /// offset where it starts; false at the end of the bytes. A decoded UTF-16 line lives in
  /// this object until the next call.
  bool next(std::string_view& line, size_t& lineStart);
  /// The first byte after the last line read (after its line feed).
  size_t position() const { return pos_; }
  bool atEnd() const;
  HeaderEncoding encoding() const { return encoding_; }

 private:
  std::string_view bytes_;
  size_t pos_;
  HeaderEncoding encoding_;
  std::string decoded_;
};

/// Appends the UTF-8 form of a code point (invalid ones as U+FFFD).
void appendUtf8(std::string& out, char32_t codePoint);

}  // namespace simdata::raw
