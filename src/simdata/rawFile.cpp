#include "simdata/rawFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <numeric>
#include <optional>

#include "simdata/rawHeaderText.h"
#include "support/text.h"

namespace simdata::raw {

namespace {

using support::isBlank;
using support::lowerAscii;
using support::splitWords;
using support::trim;

/// A short printable excerpt of file text for messages.
std::string excerpt(std::string_view text) {
  constexpr size_t kMax = 40;
  std::string out;
  for (size_t i = 0; i < text.size() && i < kMax; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    out += c == '\t' ? ' ' : (c >= 0x20 && c < 0x7f) ? static_cast<char>(c) : '?';
  }
  if (text.size() > kMax) {
    out += "...";
  }
  return out;
}

/// Header keys written by the simulators we read; a plot starts at any of them.
bool isKnownKey(const std::string& key) {
  static const char* const kKeys[] = {"title",  "date",          "command",    "plotname",
                                      "flags",  "no. variables", "no. points", "dimensions",
                                      "option", "offset",        "output",     "backannotation",
                                      "version"};
  return std::any_of(std::begin(kKeys), std::end(kKeys),
                     [&](const char* known) { return key == known; });
}

/// A header key is short plain text; anything else before a colon means the bytes are not
/// a header at all (a binary or foreign file).
bool looksLikeKey(std::string_view key) {
  if (key.empty() || key.size() > 64) {
    return false;
  }
  return std::all_of(key.begin(), key.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == ' ' ||
           c == '.' || c == '_' || c == '-' || c == '\t';
  });
}

double loadDouble(const char* bytes) {
  uint64_t bits;
  std::memcpy(&bits, bytes, sizeof bits);
  if constexpr (std::endian::native == std::endian::big) {
    bits = __builtin_bswap64(bits);
  }
  return std::bit_cast<double>(bits);
}

float loadFloat(const char* bytes) {
  uint32_t bits;
  std::memcpy(&bits, bytes, sizeof bits);
  if constexpr (std::endian::native == std::endian::big) {
    bits = __builtin_bswap32(bits);
  }
  return std::bit_cast<float>(bits);
}

/// One stored value as a double (the real part of a complex pair).
double loadElement(const char* bytes, Element element) {
  return element == Element::kFloat32 ? static_cast<double>(loadFloat(bytes)) : loadDouble(bytes);
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

class Parser {
 public:
  explicit Parser(std::string_view bytes) : bytes_(bytes) {}

  void run(std::vector<Plot>& plots) {
    skipSpace();
    if (atEnd()) {
      fail(pos_, Place::kLineIfText, "no plot in the file (it is empty)");
    }
    while (!atEnd()) {
      Plot plot;
      parsePlot(plot, static_cast<int>(plots.size()) + 1);
      plots.push_back(std::move(plot));
      const size_t afterData = pos_;
      skipSpace();
      if (!atEnd() && !atHeaderLine(pos_)) {
        // Some writers leave bytes after the data (a zero record, a text table): the plot
        // count says where the data ends, and what follows is no plot.
        const Place place = afterData >= firstBinary_ ? Place::kByteOffset : Place::kLineIfText;
        warnings_.push_back(locate(ParseError(
            pos_, place,
            std::to_string(bytes_.size() - afterData) + " bytes after the data of plot " +
                std::to_string(plots.size()) + " do not start a plot and were ignored")));
        pos_ = bytes_.size();
      }
    }
  }

  /// The text of a message with its place: "line N: ..." or "byte offset N: ...".
  std::string locate(const ParseError& error) const {
    if (error.place == Place::kLineIfText && error.offset <= firstBinary_) {
      const size_t end = std::min(error.offset, bytes_.size());
      const size_t line =
          1 + static_cast<size_t>(std::count(bytes_.begin(), bytes_.begin() + end, '\n'));
      return "line " + std::to_string(line) + ": " + error.message;
    }
    return "byte offset " + std::to_string(error.offset) + ": " + error.message;
  }

  std::vector<std::string>& warnings() { return warnings_; }

 private:
  [[noreturn]] void fail(size_t at, Place where, std::string text) const {
    throw ParseError(at, where, std::move(text));
  }

  bool atEnd() const { return pos_ >= bytes_.size(); }

  void skipSpace() {
    while (pos_ < bytes_.size() && isBlank(bytes_[pos_])) {
      ++pos_;
    }
  }

  /// True when the text at byte `at` is a "Key:" line of a plot header (in either encoding).
  bool atHeaderLine(size_t at) const {
    const HeaderEncoding encoding = detectHeaderEncoding(bytes_, at);
    const size_t window = encoding == HeaderEncoding::kUtf16le ? 160 : 80;
    HeaderLines lines(bytes_.substr(0, std::min(bytes_.size(), at + window)), at, encoding);
    std::string_view line;
    size_t start = 0;
    if (!lines.next(line, start)) {
      return false;
    }
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
      return false;
    }
    const std::string_view key = trim(line.substr(0, colon));
    return looksLikeKey(key) && isKnownKey(lowerAscii(key));
  }

  static std::optional<int> parseCount(std::string_view text) {
    text = trim(text);
    if (text.empty() || text.size() > 10) {
      return std::nullopt;
    }
    long long value = 0;
    for (char c : text) {
      if (c < '0' || c > '9') {
        return std::nullopt;
      }
      value = value * 10 + (c - '0');
    }
    if (value > INT_MAX) {
      return std::nullopt;
    }
    return static_cast<int>(value);
  }

  /// The number of values a "dims=d1,d2,..." option announces (their product), capped at
  /// INT_MAX; null when the option is malformed.
  static std::optional<int> dimsLength(std::string_view option) {
    long long product = 1;
    for (std::string_view rest = option; !rest.empty();) {
      const size_t comma = rest.find(',');
      const auto count = parseCount(rest.substr(0, comma));
      if (!count) {
        return std::nullopt;
      }
      product = std::min<long long>(product * *count, INT_MAX);
      rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    }
    return static_cast<int>(product);
  }

  void parsePlot(Plot& plot, int number) {
    plot.headerOffset = pos_;
    const HeaderEncoding encoding = detectHeaderEncoding(bytes_, pos_);
    plot.utf16Header = encoding == HeaderEncoding::kUtf16le;
    HeaderLines lines(bytes_, pos_, encoding);
    std::optional<int> variableCount;
    std::optional<int> pointCount;
    bool havePlotname = false;
    std::string firstVariable;
    size_t firstVariableAt = 0;
    for (;;) {
      std::string_view line;
      size_t lineStart = 0;
      if (!lines.next(line, lineStart)) {
        fail(lines.position(), Place::kLineIfText,
             "the header of plot " + std::to_string(number) + " ends before 'Variables:'");
      }
      if (trim(line).empty()) {
        continue;
      }
      const size_t colon = line.find(':');
      const std::string_view rawKey =
          colon == std::string_view::npos ? std::string_view() : trim(line.substr(0, colon));
      if (colon == std::string_view::npos || !looksLikeKey(rawKey)) {
        if (trim(line).front() == '.') {
          continue;  // parameter and alias lines of some writers carry no key
        }
        fail(lineStart, Place::kLineIfText,
             "expected a header line 'Key: value', found '" + excerpt(line) + "'");
      }
      const std::string key = lowerAscii(rawKey);
      const std::string_view value = trim(line.substr(colon + 1));
      if (key == "variables") {
        firstVariable = value;
        firstVariableAt = lineStart;
        break;
      }
      if (key == "title") {
        plot.title = value;
      } else if (key == "date") {
        plot.date = value;
      } else if (key == "command") {
        if (plot.command.empty()) {
          plot.command = value;
        }
      } else if (key == "plotname") {
        plot.plotname = value;
        havePlotname = true;
      } else if (key == "flags") {
        for (std::string_view word : splitWords(value)) {
          plot.flags.emplace_back(word);
        }
      } else if (key == "no. variables") {
        variableCount = parseCount(value);
        if (!variableCount || *variableCount == 0) {
          fail(lineStart, Place::kLineIfText,
               "'No. Variables' must be a positive count, found '" + excerpt(value) + "'");
        }
      } else if (key == "no. points") {
        pointCount = parseCount(value);
        if (!pointCount) {
          fail(lineStart, Place::kLineIfText,
               "'No. Points' must be a count, found '" + excerpt(value) + "'");
        }
      }
    }
    if (!havePlotname) {
      fail(firstVariableAt, Place::kLineIfText, "the header has no 'Plotname:' line");
    }
    if (!variableCount) {
      fail(firstVariableAt, Place::kLineIfText, "the header has no 'No. Variables:' line");
    }
    if (!pointCount) {
      fail(firstVariableAt, Place::kLineIfText, "the header has no 'No. Points:' line");
    }
    parseVariables(lines, plot, *variableCount, firstVariable, firstVariableAt);
    parseMarker(lines, plot);
    pos_ = lines.position();
    const Flags flags = applyFlags(plot);
    if (plot.layout == DataLayout::kBinary) {
      if (flags.unpadded && hasShortVectors(plot, *pointCount)) {
        readUnpaddedBinary(plot, *pointCount, number);
      } else {
        readBinary(plot, *pointCount, number);
      }
    } else {
      readAscii(plot, *pointCount, number, flags.unpadded);
    }
    if (flags.stepped) {
      findSteps(plot);
    }
    checkValues(plot, number);
  }

  /// Values a simulator should never write, reported but kept: a time axis that runs
  /// backwards within a run or holds NaN or infinities, and NaN or infinite values in text
  /// data (decoded anyway; mapped binary values are not scanned, that would be a pass over the
  /// whole file).
  void checkValues(const Plot& plot, int number) {
    if (plot.points <= 0 || plot.variables.empty()) {
      return;
    }
    const std::string where = "plot " + std::to_string(number) + ": ";
    const size_t points = static_cast<size_t>(plot.points);
    const Variable& scale = plot.variables.front();
    if (lowerAscii(scale.type) == "time") {
      auto timeAt = [&](size_t p) {
        if (plot.decoded) {
          return (*plot.decoded)[p];
        }
        const double value = loadElement(
            bytes_.data() + plot.dataOffset + scale.offset + p * plot.stride(0), scale.element);
        return plot.absoluteScale ? std::fabs(value) : value;
      };
      size_t nextStep = 1;  // stepped plots: a new run may start anywhere the scale restarts
      for (size_t p = 0; p < points; ++p) {
        const double t = timeAt(p);
        if (!std::isfinite(t)) {
          warnings_.push_back(where + "the time axis holds " + describe(t) + " at point " +
                              std::to_string(p));
          break;
        }
        if (nextStep < plot.stepStarts.size() &&
            static_cast<size_t>(plot.stepStarts[nextStep]) == p) {
          ++nextStep;
          continue;
        }
        if (p > 0 && t < timeAt(p - 1)) {
          warnings_.push_back(where + "the time axis goes backwards at point " + std::to_string(p) +
                              " (" + shortNumber(t) + " after " + shortNumber(timeAt(p - 1)) + ")");
          break;
        }
      }
    }
    if (!plot.decoded) {
      return;
    }
    size_t nan = 0;
    size_t infinite = 0;
    size_t firstVariable = 0;
    size_t firstPoint = 0;
    for (size_t v = 0; v < plot.variables.size(); ++v) {
      const double* column = plot.decoded->data() + v * points;
      for (size_t p = 0; p < points; ++p) {
        if (std::isfinite(column[p])) {
          continue;
        }
        if (nan + infinite == 0 || (p < firstPoint)) {
          firstVariable = v;
          firstPoint = p;
        }
        ++(std::isnan(column[p]) ? nan : infinite);
      }
    }
    if (nan + infinite > 0) {
      warnings_.push_back(where + std::to_string(nan) + " NaN and " + std::to_string(infinite) +
                          " infinite values, the first at point " + std::to_string(firstPoint) +
                          " of " + plot.variables[firstVariable].name);
    }
  }

  static std::string describe(double value) {
    return std::isnan(value) ? "NaN" : value > 0 ? "+infinity" : "-infinity";
  }

  static std::string shortNumber(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
  }

  struct Flags {
    bool unpadded = false;
    bool stepped = false;
  };

  /// Reads the flags and settles how each value is stored: float64 everywhere, except in
  /// the files of the writer recognised by its UTF-16 header or its "Command:" line, which
  /// stores real values after the first variable as float32 unless the plot says "double".
  /// Complex plots store every value, the scale included, as two float64.
  Flags applyFlags(Plot& plot) const {
    Flags flags;
    bool doubles = false;
    for (const std::string& word : plot.flags) {
      const std::string flag = lowerAscii(word);
      if (flag == "complex") {
        plot.numbers = Numbers::kComplex;
      } else if (flag == "real") {
        plot.numbers = Numbers::kReal;
      } else if (flag == "double") {
        doubles = true;
      } else if (flag == "fastaccess") {
        plot.variableMajor = true;
      } else if (flag == "stepped") {
        flags.stepped = true;
      } else if (flag == "unpadded") {
        flags.unpadded = true;
      }
    }
    const bool singles =
        plot.utf16Header || lowerAscii(plot.command).find("ltspice") != std::string::npos;
    for (size_t v = 0; v < plot.variables.size(); ++v) {
      Variable& variable = plot.variables[v];
      variable.element = plot.numbers == Numbers::kComplex ? Element::kComplex
                         : singles && !doubles && v > 0    ? Element::kFloat32
                                                           : Element::kFloat64;
    }
    // Its time values carry a sign flag that is no part of the value.
    plot.absoluteScale =
        singles && lowerAscii(plot.plotname).find("transient") != std::string::npos;
    return flags;
  }

  /// Whether a variable announces fewer values than the plot has points ("dims=").
  bool hasShortVectors(const Plot& plot, int points) const {
    return std::any_of(plot.variables.begin(), plot.variables.end(),
                       [&](const Variable& v) { return v.length >= 0 && v.length < points; });
  }

  void addVariable(Plot& plot, std::string_view line, size_t lineStart) {
    const int index = plot.variableCount();
    const std::vector<std::string_view> words = splitWords(line);
    if (words.size() < 3) {
      fail(lineStart, Place::kLineIfText,
           "expected 'index name type' for variable " + std::to_string(index) + ", found '" +
               excerpt(trim(line)) + "'");
    }
    if (parseCount(words[0]) != index) {
      fail(lineStart, Place::kLineIfText,
           "variable " + std::to_string(index) + " is numbered '" + excerpt(words[0]) + "'");
    }
    Variable variable;
    variable.name = words[1];
    variable.type = words[2];
    variable.length = -1;
    for (size_t i = 3; i < words.size(); ++i) {
      variable.options.emplace_back(words[i]);
      if (lowerAscii(words[i]).starts_with("dims=")) {
        const auto length = dimsLength(words[i].substr(5));
        if (!length) {
          fail(lineStart, Place::kLineIfText,
               "variable " + std::to_string(index) + " has a malformed option '" +
                   excerpt(words[i]) + "'");
        }
        variable.length = *length;
      }
    }
    plot.variables.push_back(std::move(variable));
  }

  void parseVariables(HeaderLines& lines, Plot& plot, int count, std::string_view first,
                      size_t firstAt) {
    if (!trim(first).empty()) {
      addVariable(plot, first, firstAt);
    }
    while (plot.variableCount() < count) {
      std::string_view line;
      size_t lineStart = 0;
      if (!lines.next(line, lineStart)) {
        fail(lines.position(), Place::kLineIfText,
             "the variable list ends after " + std::to_string(plot.variableCount()) + " of " +
                 std::to_string(count) + " variables");
      }
      const std::string_view text = trim(line);
      if (text.empty()) {
        continue;
      }
      const std::string head = lowerAscii(text.substr(0, 7));
      if (head == "values:" || head == "binary:") {
        fail(lineStart, Place::kLineIfText,
             "the header announces " + std::to_string(count) + " variables but lists " +
                 std::to_string(plot.variableCount()));
      }
      addVariable(plot, line, lineStart);
    }
  }

  void parseMarker(HeaderLines& lines, Plot& plot) {
    for (;;) {
      std::string_view line;
      size_t lineStart = 0;
      if (!lines.next(line, lineStart)) {
        fail(lines.position(), Place::kLineIfText, "the file ends before 'Values:' or 'Binary:'");
      }
      const std::string_view text = trim(line);
      if (text.empty()) {
        continue;
      }
      const std::string marker = text.size() == 7 ? lowerAscii(text) : std::string();
      if (marker == "values:") {
        if (lines.encoding() == HeaderEncoding::kUtf16le) {
          fail(lineStart, Place::kLineIfText,
               "text values after a UTF-16 header are not read (only binary data is)");
        }
        plot.layout = DataLayout::kAscii;
        return;
      }
      if (marker == "binary:") {
        plot.layout = DataLayout::kBinary;
        return;
      }
      fail(lineStart, Place::kLineIfText,
           "expected 'Values:' or 'Binary:' after " + std::to_string(plot.variableCount()) +
               " variables, found '" + excerpt(trim(line)) + "'");
    }
  }

  /// Decoded data takes 8 bytes per value and point. When padding short vectors of an
  /// unpadded plot would blow that far beyond the file's own size, the plot is refused
  /// rather than allocated.
  void checkPaddedSize(const Plot& plot, int points, int number) const {
    const double bytes = 8.0 * static_cast<double>(plot.variableCount()) * points;
    if (bytes > 16.0 * static_cast<double>(bytes_.size()) + 64.0 * 1024 * 1024) {
      fail(plot.headerOffset, Place::kLineIfText,
           "plot " + std::to_string(number) + " is unpadded and padding its " +
               std::to_string(plot.variableCount()) + " short vectors to " +
               std::to_string(points) + " points would take far more memory than the file");
    }
  }

  /// Counts the whole records of a plot announced with 0 points (an interrupted run): up to
  /// the end of the file or the header of a further plot.
  int countRecords(const Plot& plot, int number) const {
    const size_t remaining = bytes_.size() - pos_;
    size_t count = 0;
    while (remaining - count * plot.recordBytes >= plot.recordBytes &&
           count < static_cast<size_t>(INT_MAX) && !atHeaderLine(pos_ + count * plot.recordBytes)) {
      ++count;
    }
    const size_t end = pos_ + count * plot.recordBytes;
    if (end < bytes_.size() && !atHeaderLine(end)) {
      fail(bytes_.size(), Place::kByteOffset,
           "binary data of plot " + std::to_string(number) +
               " (announced with 0 points) ends inside a record");
    }
    return static_cast<int>(count);
  }

  void readBinary(Plot& plot, int points, int number) {
    plot.dataOffset = pos_;
    firstBinary_ = std::min(firstBinary_, pos_);
    plot.recordBytes = 0;
    for (const Variable& variable : plot.variables) {
      plot.recordBytes += elementBytes(variable.element);
    }
    if (points == 0 && !plot.variableMajor) {
      points = countRecords(plot, number);
    }
    const size_t remaining = bytes_.size() - pos_;
    const size_t complete = remaining / plot.recordBytes;
    if (complete < static_cast<size_t>(points)) {
      fail(bytes_.size(), Place::kByteOffset,
           "binary data of plot " + std::to_string(number) +
               " is truncated: " + std::to_string(complete) + " complete of " +
               std::to_string(points) + " points of " + std::to_string(plot.recordBytes) +
               " bytes from byte offset " + std::to_string(plot.dataOffset));
    }
    plot.points = points;
    size_t offset = 0;
    for (Variable& variable : plot.variables) {
      variable.offset = offset;
      const size_t size = elementBytes(variable.element);
      offset += plot.variableMajor ? size * static_cast<size_t>(points) : size;
    }
    pos_ = plot.dataOffset + static_cast<size_t>(plot.points) * plot.recordBytes;
  }

  /// Unpadded binary data: a variable shorter than the plot is absent from the records after
  /// its last value, so records differ in size; the values are decoded, short vectors padded
  /// with zeros.
  void readUnpaddedBinary(Plot& plot, int points, int number) {
    plot.dataOffset = pos_;
    firstBinary_ = std::min(firstBinary_, pos_);
    const size_t remaining = bytes_.size() - pos_;
    size_t total = 0;
    for (const Variable& variable : plot.variables) {
      const size_t length =
          static_cast<size_t>(std::min(variable.length < 0 ? points : variable.length, points));
      const size_t bytes = length * elementBytes(variable.element);
      if (bytes > remaining - total) {
        fail(bytes_.size(), Place::kByteOffset,
             "binary data of plot " + std::to_string(number) + " is truncated: variable " +
                 variable.name + " needs bytes beyond the end of the file");
      }
      total += bytes;
    }
    checkPaddedSize(plot, points, number);
    const size_t count = static_cast<size_t>(points);
    auto decoded = std::make_shared<std::vector<double>>(plot.variables.size() * count, 0.0);
    const char* at = bytes_.data() + pos_;
    for (size_t p = 0; p < count; ++p) {
      for (size_t v = 0; v < plot.variables.size(); ++v) {
        const Variable& variable = plot.variables[v];
        if (variable.length >= 0 && p >= static_cast<size_t>(variable.length)) {
          continue;
        }
        (*decoded)[v * count + p] = loadElement(at, variable.element);
        at += elementBytes(variable.element);
      }
    }
    finishDecoded(plot, points, std::move(decoded));
    pos_ += total;
  }

  /// The scale's first value starts a run of a stepped plot wherever it comes back.
  void findSteps(Plot& plot) const {
    if (plot.points <= 0) {
      return;
    }
    const size_t points = static_cast<size_t>(plot.points);
    auto scaleAt = [&](size_t p) {
      if (plot.decoded) {
        return (*plot.decoded)[p];
      }
      const Variable& scale = plot.variables.front();
      const double value = loadElement(
          bytes_.data() + plot.dataOffset + scale.offset + p * plot.stride(0), scale.element);
      return plot.absoluteScale ? std::fabs(value) : value;
    };
    const double first = scaleAt(0);
    plot.stepStarts.push_back(0);
    for (size_t p = 1; p < points; ++p) {
      if (scaleAt(p) == first) {
        plot.stepStarts.push_back(static_cast<int>(p));
      }
    }
  }

  /// Start and end of the next whitespace-separated token, or false at the end of the data.
  bool nextToken(size_t& start, size_t& end) {
    skipSpace();
    if (atEnd()) {
      return false;
    }
    start = pos_;
    while (pos_ < bytes_.size() && !isBlank(bytes_[pos_])) {
      ++pos_;
    }
    end = pos_;
    return true;
  }

  [[noreturn]] void failValue(size_t at, int point, int variable, std::string_view token,
                              const char* what) const {
    fail(at, Place::kLineIfText,
         std::string(what) + " for variable " + std::to_string(variable) + " of point " +
             std::to_string(point) + ", found '" + excerpt(token) + "'");
  }

  /// Reads one value token (a real, or "re,im" with optional blanks after the comma).
  double readValue(const Plot& plot, int point, int variable) {
    size_t start = 0;
    size_t end = 0;
    if (!nextToken(start, end)) {
      fail(bytes_.size(), Place::kLineIfText,
           "the data ends inside point " + std::to_string(point) + " (at variable " +
               std::to_string(variable) + " of " + std::to_string(plot.variableCount()) + ")");
    }
    const char* first = bytes_.data() + start;
    const char* last = bytes_.data() + end;
    double real = 0.0;
    if (plot.numbers == Numbers::kReal) {
      if (support::readDouble(first, last, real) != last) {
        failValue(start, point, variable, {first, static_cast<size_t>(last - first)},
                  "expected a number");
      }
      return real;
    }
    const char* stop = support::readDouble(first, last, real);
    if (stop == nullptr || stop == last || *stop != ',') {
      failValue(start, point, variable, {first, static_cast<size_t>(last - first)},
                "expected a complex number 're,im'");
    }
    const char* imagFirst = stop + 1;
    const char* imagLast = last;
    if (imagFirst == last) {
      size_t imagStart = 0;
      size_t imagEnd = 0;
      if (!nextToken(imagStart, imagEnd)) {
        fail(bytes_.size(), Place::kLineIfText,
             "the data ends inside point " + std::to_string(point));
      }
      imagFirst = bytes_.data() + imagStart;
      imagLast = bytes_.data() + imagEnd;
    }
    double imag = 0.0;
    if (support::readDouble(imagFirst, imagLast, imag) != imagLast) {
      failValue(static_cast<size_t>(imagFirst - bytes_.data()), point, variable,
                {imagFirst, static_cast<size_t>(imagLast - imagFirst)},
                "expected the imaginary part");
    }
    return real;
  }

  /// Reads the index token of a point, which must equal the running point number.
  void readPointIndex(int point, int announced) {
    size_t start = 0;
    size_t end = 0;
    if (!nextToken(start, end)) {
      fail(bytes_.size(), Place::kLineIfText,
           "the data ends after " + std::to_string(point) + " of " + std::to_string(announced) +
               " points");
    }
    const std::string_view token = bytes_.substr(start, end - start);
    if (parseCount(token) != point) {
      fail(start, Place::kLineIfText,
           "expected the index of point " + std::to_string(point) + ", found '" + excerpt(token) +
               "' (does the header announce the right number of variables?)");
    }
  }

  /// Whether point p of a plot lists variable v (unpadded plots leave short vectors out).
  static bool listed(const Variable& variable, bool unpadded, int p) {
    return !unpadded || variable.length < 0 || p < variable.length;
  }

  void readAscii(Plot& plot, int points, int number, bool unpadded) {
    const size_t variables = static_cast<size_t>(plot.variableCount());
    if (points > 0) {
      // Every value takes at least two bytes of text, so a count the rest of the file cannot
      // hold is refused before anything is allocated for it.
      const size_t remaining = bytes_.size() - pos_;
      const size_t perPoint = unpadded ? 1 : variables + 1;
      if (static_cast<size_t>(points) > (remaining + 1) / 2 / perPoint) {
        fail(bytes_.size(), Place::kLineIfText,
             "the data of plot " + std::to_string(number) + " is truncated: " +
                 std::to_string(points) + " points of " + std::to_string(variables) +
                 " variables cannot fit in the remaining " + std::to_string(remaining) + " bytes");
      }
      if (unpadded) {
        checkPaddedSize(plot, points, number);
      }
      auto decoded = std::make_shared<std::vector<double>>(variables * static_cast<size_t>(points));
      double* out = decoded->data();
      for (int p = 0; p < points; ++p) {
        readPointIndex(p, points);
        for (size_t v = 0; v < variables; ++v) {
          out[v * static_cast<size_t>(points) + static_cast<size_t>(p)] =
              listed(plot.variables[v], unpadded, p) ? readValue(plot, p, static_cast<int>(v))
                                                     : 0.0;
        }
      }
      finishDecoded(plot, points, std::move(decoded));
      return;
    }
    // A count of 0 with data behind it (an interrupted run, or a writer that leaves the count
    // of all but its last plot at 0): read points while they come.
    std::vector<double> rows;
    int count = 0;
    for (;;) {
      skipSpace();
      if (atEnd() || bytes_[pos_] < '0' || bytes_[pos_] > '9' || count == INT_MAX) {
        break;
      }
      readPointIndex(count, count + 1);
      for (size_t v = 0; v < variables; ++v) {
        rows.push_back(listed(plot.variables[v], unpadded, count)
                           ? readValue(plot, count, static_cast<int>(v))
                           : 0.0);
      }
      ++count;
    }
    auto decoded = std::make_shared<std::vector<double>>(rows.size());
    for (size_t p = 0; p < static_cast<size_t>(count); ++p) {
      for (size_t v = 0; v < variables; ++v) {
        (*decoded)[v * static_cast<size_t>(count) + p] = rows[p * variables + v];
      }
    }
    finishDecoded(plot, count, std::move(decoded));
  }

  static void finishDecoded(Plot& plot, int points, std::shared_ptr<std::vector<double>> decoded) {
    if (plot.absoluteScale) {
      for (size_t p = 0; p < static_cast<size_t>(points); ++p) {
        (*decoded)[p] = std::fabs((*decoded)[p]);
      }
    }
    plot.points = points;
    plot.decoded = std::move(decoded);
  }

  std::string_view bytes_;
  size_t pos_ = 0;
  size_t firstBinary_ = SIZE_MAX;
  std::vector<std::string> warnings_;
};

}  // namespace

bool Plot::uniformRecords() const {
  if (layout != DataLayout::kBinary || decoded || variableMajor) {
    return false;
  }
  const Element first = variables.empty() ? Element::kFloat64 : variables.front().element;
  return first != Element::kFloat32 &&
         std::all_of(variables.begin(), variables.end(),
                     [&](const Variable& v) { return v.element == first; });
}

bool parsePlots(std::string_view bytes, const std::string& path, std::vector<Plot>& plots,
                std::string& error, std::vector<std::string>* warnings) {
  Parser parser(bytes);
  try {
    parser.run(plots);
  } catch (const ParseError& failure) {
    error = path + ": " + parser.locate(failure);
    plots.clear();
    return false;
  } catch (const std::bad_alloc&) {
    error = path + ": not enough memory to read the file";
    plots.clear();
    return false;
  }
  if (warnings != nullptr) {
    for (const std::string& warning : parser.warnings()) {
      warnings->push_back(path + ": " + warning);
    }
  }
  return true;
}

std::shared_ptr<const RawFile> RawFile::open(const std::string& path, std::string& error) {
  std::shared_ptr<RawFile> file(new RawFile());
  file->path_ = path;
  std::string mapError;
  if (!file->map_.open(path, mapError)) {
    error = path + ": " + mapError;
    return nullptr;
  }
  if (!parsePlots(file->map_.view(), path, file->plots_, error, &file->warnings_)) {
    return nullptr;
  }
  return file;
}

double RawFile::valueAt(const Plot& plot, int v, int p) const {
  if (v < 0 || v >= plot.variableCount() || p < 0 || p >= plot.points) {
    return 0.0;
  }
  if (plot.decoded) {
    return (*plot.decoded)[static_cast<size_t>(v) * static_cast<size_t>(plot.points) +
                           static_cast<size_t>(p)];
  }
  const Variable& variable = plot.variables[static_cast<size_t>(v)];
  const double value = loadElement(
      map_.data() + plot.dataOffset + variable.offset + static_cast<size_t>(p) * plot.stride(v),
      variable.element);
  return v == 0 && plot.absoluteScale ? std::fabs(value) : value;
}

namespace {

/// Copies values of one column (`count` values `stride` bytes apart) into doubles.
void copyColumn(const char* at, size_t stride, Element element, size_t count, double* out) {
  if (element == Element::kFloat32) {
    for (size_t p = 0; p < count; ++p) {
      out[p] = static_cast<double>(loadFloat(at + p * stride));
    }
  } else {
    for (size_t p = 0; p < count; ++p) {
      out[p] = loadDouble(at + p * stride);
    }
  }
}

void copyColumn(const char* at, size_t stride, Element, size_t count, float* out) {
  for (size_t p = 0; p < count; ++p) {
    out[p] = loadFloat(at + p * stride);
  }
}

/// Gathers columns of binary data into typed outputs. Point-major records are visited in
/// tiles of a few dozen points by a few hundred columns (a blocked transpose): within a tile
/// each output receives a run of consecutive values while the tile's records stay cached.
/// Writing one value to each of ten thousand outputs per record instead misses the cache and
/// the TLB on nearly every store (2-3 times slower). Columns stored one after the other are
/// copied one by one.
/// Gives back the pages wholly inside [begin, end) of the read-only file mapping: they refill
/// from the file if read again, and a run that reads every column once does not keep the
/// whole file resident.
void releasePages(const char* begin, const char* end) {
  static const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t first = (reinterpret_cast<uintptr_t>(begin) + page - 1) & ~(page - 1);
  const uintptr_t last = reinterpret_cast<uintptr_t>(end) & ~(page - 1);
  if (last > first) {
    madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
  }
}

template <typename T>
void gatherBinary(const char* base, const Plot& plot, std::span<const int> columns,
                  std::span<T* const> outputs) {
  const size_t points = static_cast<size_t>(plot.points);
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.variableMajor) {
    for (size_t k = 0; k < count; ++k) {
      const Variable& variable = plot.variables[static_cast<size_t>(columns[k])];
      const char* first = base + variable.offset;
      copyColumn(first, plot.stride(columns[k]), variable.element, points, outputs[k]);
      releasePages(first, first + points * plot.stride(columns[k]));
    }
    return;
  }
  // Visit the columns in record order so each record is read front to back.
  std::vector<size_t> order(count);
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return columns[a] < columns[b]; });
  constexpr size_t kTilePoints = 32;
  constexpr size_t kTileColumns = 256;
  for (size_t p0 = 0; p0 < points; p0 += kTilePoints) {
    const size_t p1 = std::min(points, p0 + kTilePoints);
    for (size_t k0 = 0; k0 < count; k0 += kTileColumns) {
      const size_t k1 = std::min(count, k0 + kTileColumns);
      for (size_t k = k0; k < k1; ++k) {
        const Variable& variable = plot.variables[static_cast<size_t>(columns[order[k]])];
        copyColumn(base + variable.offset + p0 * plot.recordBytes, plot.recordBytes,
                   variable.element, p1 - p0, outputs[order[k]] + p0);
      }
    }
  }
}

bool columnsValid(const Plot& plot, std::span<const int> columns, size_t count) {
  return std::all_of(columns.begin(), columns.begin() + static_cast<std::ptrdiff_t>(count),
                     [&](int c) { return c >= 0 && c < plot.variableCount(); });
}

}  // namespace

void RawFile::gather(const Plot& plot, std::span<const int> columns,
                     std::span<double* const> outputs) const {
  const size_t points = static_cast<size_t>(plot.points);
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.decoded) {
    for (size_t k = 0; k < count; ++k) {
      if (columns[k] < 0 || columns[k] >= plot.variableCount()) {
        continue;  // callers pass columns of this plot only
      }
      const double* column = plot.decoded->data() + static_cast<size_t>(columns[k]) * points;
      std::copy(column, column + points, outputs[k]);
    }
    return;
  }
  if (!columnsValid(plot, columns, count)) {
    return;  // callers pass columns of this plot only
  }
  gatherBinary<double>(map_.data() + plot.dataOffset, plot, columns.first(count),
                       outputs.first(count));
  if (plot.absoluteScale) {
    for (size_t k = 0; k < count; ++k) {
      if (columns[k] == 0) {
        std::transform(outputs[k], outputs[k] + points, outputs[k],
                       [](double v) { return std::fabs(v); });
      }
    }
  }
}

void RawFile::gatherFloats(const Plot& plot, std::span<const int> columns,
                           std::span<float* const> outputs) const {
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.decoded || !columnsValid(plot, columns, count)) {
    return;
  }
  std::vector<int> singles;
  std::vector<float*> targets;
  for (size_t k = 0; k < count; ++k) {
    if (plot.variables[static_cast<size_t>(columns[k])].element == Element::kFloat32) {
      singles.push_back(columns[k]);
      targets.push_back(outputs[k]);
    }
  }
  gatherBinary<float>(map_.data() + plot.dataOffset, plot, singles, targets);
}

}  // namespace simdata::raw
