#pragma once
// The raw-file parser, shared by its three parts: the plot header (rawHeader.cpp), the data
// values (rawValues.cpp) and the entry point with data access (rawFile.cpp).

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simdata/detail/littleEndian.h"
#include "simdata/detail/textExcerpt.h"
#include "simdata/rawFile.h"
#include "simdata/rawHeaderText.h"
#include "support/text.h"

namespace simdata::raw::detail {

/// One stored value as a double (the real part of a complex pair).
inline double loadElement(const char* bytes, Element element) {
  return element == Element::kFloat32 ? static_cast<double>(simdata::detail::loadFloat(bytes))
                                      : simdata::detail::loadDouble(bytes);
}

/// A short printable excerpt of file text for messages.
inline std::string excerpt(std::string_view text) {
  return simdata::detail::excerpt(text, simdata::detail::TabShown::kAsBlank);
}

/// Where a parse error lies: a line number while the file so far is text, a byte offset once
/// binary data has been passed (line numbers mean nothing there).
enum class Place { kLineIfText, kByteOffset };

struct ParseError : std::exception {
  ParseError(size_t at, Place where, std::string text)
      : offset(at), place(where), message(std::move(text)) {}
  const char* what() const noexcept override { return message.c_str(); }
  size_t offset;
  Place place;
  std::string message;
};

/// Reads the plots of a raw file; throws ParseError at the first fault.
class Parser {
 public:
  explicit Parser(std::string_view bytes) : bytes_(bytes) {}

  void run(std::vector<Plot>& plots);
  /// The text of a message with its place: "line N: ..." or "byte offset N: ...".
  std::string locate(const ParseError& error) const;
  std::vector<std::string>& warnings() { return warnings_; }

 private:
  /// What the header says before the variable list.
  struct HeaderCounts {
    std::optional<int> variables;
    std::optional<int> points;
    bool havePlotname = false;
    std::string firstVariable;  // the text after "Variables:"
    size_t firstVariableAt = 0;
  };
  /// How the flags ask the data to be read.
  struct Flags {
    bool unpadded = false;
    bool stepped = false;
  };

  [[noreturn]] void fail(size_t at, Place where, std::string text) const {
    throw ParseError(at, where, std::move(text));
  }
  bool atEnd() const { return pos_ >= bytes_.size(); }
  void skipSpace() { pos_ = support::skipBlanks(bytes_, pos_); }

  // rawHeader.cpp
  bool atHeaderLine(size_t at) const;
  static std::optional<int> parseCount(std::string_view text);
  static std::optional<int> dimsLength(std::string_view option);
  void parsePlot(Plot& plot, int number);
  HeaderCounts readHeaderKeys(HeaderLines& lines, Plot& plot, int number) const;
  void applyHeaderKey(const std::string& key, std::string_view value, size_t lineStart, Plot& plot,
                      HeaderCounts& counts) const;
  Flags applyFlags(Plot& plot) const;
  void addVariable(Plot& plot, std::string_view line, size_t lineStart) const;
  void parseVariables(HeaderLines& lines, Plot& plot, int count, std::string_view first,
                      size_t firstAt) const;
  void parseMarker(HeaderLines& lines, Plot& plot) const;

  // rawValues.cpp
  void readData(Plot& plot, int points, int number, Flags flags);
  void checkValues(const Plot& plot, int number);
  void checkTimeAxis(const Plot& plot, const std::string& where);
  void countNonFinite(const Plot& plot, const std::string& where);
  double scaleAt(const Plot& plot, size_t p) const;
  bool hasShortVectors(const Plot& plot, int points) const;
  void checkPaddedSize(const Plot& plot, int points, int number) const;
  int countRecords(const Plot& plot, int number) const;
  void readBinary(Plot& plot, int points, int number);
  void readUnpaddedBinary(Plot& plot, int points, int number);
  void findSteps(Plot& plot) const;
  bool nextToken(size_t& start, size_t& end);
  [[noreturn]] void failValue(size_t at, int point, int variable, std::string_view token,
                              const char* what) const;
  double readValue(const Plot& plot, int point, int variable);
  void readPointIndex(int point, int announced);
  void readAscii(Plot& plot, int points, int number, bool unpadded);
  void readAsciiUncounted(Plot& plot, bool unpadded);
  static void finishDecoded(Plot& plot, int points, std::shared_ptr<std::vector<double>> decoded);

  std::string_view bytes_;
  size_t pos_ = 0;
  size_t firstBinary_ = SIZE_MAX;
  std::vector<std::string> warnings_;
};

}  // namespace simdata::raw::detail
