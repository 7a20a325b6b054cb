#include "simdata/rawFile.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <climits>
#include <cstring>
#include <exception>
#include <numeric>
#include <optional>

namespace simdata::raw {

namespace {

bool isSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && isSpace(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isSpace(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return out;
}

std::vector<std::string_view> splitWords(std::string_view text) {
  std::vector<std::string_view> words;
  size_t i = 0;
  while (i < text.size()) {
    while (i < text.size() && isSpace(text[i])) {
      ++i;
    }
    const size_t start = i;
    while (i < text.size() && !isSpace(text[i])) {
      ++i;
    }
    if (i > start) {
      words.push_back(text.substr(start, i - start));
    }
  }
  return words;
}

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
      skipSpace();
      if (!atEnd() && !atHeaderLine()) {
        fail(pos_, Place::kLineIfText,
             "unexpected text after the data of plot " + std::to_string(plots.size()) +
                 " (does the header announce too few points?)");
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

 private:
  [[noreturn]] void fail(size_t at, Place where, std::string text) const {
    throw ParseError(at, where, std::move(text));
  }

  bool atEnd() const { return pos_ >= bytes_.size(); }

  void skipSpace() {
    while (pos_ < bytes_.size() && isSpace(bytes_[pos_])) {
      ++pos_;
    }
  }

  /// The next line without its end (and without a carriage return before it).
  std::string_view readLine(size_t& start) {
    start = pos_;
    const void* found = std::memchr(bytes_.data() + pos_, '\n', bytes_.size() - pos_);
    const size_t end = found != nullptr
                           ? static_cast<size_t>(static_cast<const char*>(found) - bytes_.data())
                           : bytes_.size();
    std::string_view line = bytes_.substr(pos_, end - pos_);
    pos_ = end < bytes_.size() ? end + 1 : end;
    if (!line.empty() && line.back() == '\r') {
      line.remove_suffix(1);
    }
    return line;
  }

  /// True when the text at the current position is a "Key:" line of a plot header.
  bool atHeaderLine() const {
    const std::string_view rest = bytes_.substr(pos_, 80);
    const size_t colon = rest.find(':');
    if (colon == std::string_view::npos) {
      return false;
    }
    const std::string_view key = trim(rest.substr(0, colon));
    return looksLikeKey(key) && isKnownKey(lower(key));
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

  void parsePlot(Plot& plot, int number) {
    plot.headerOffset = pos_;
    if (pos_ + 1 < bytes_.size() && bytes_[pos_ + 1] == '\0') {
      fail(pos_, Place::kLineIfText, "UTF-16 encoded headers are not supported");
    }
    std::optional<int> variableCount;
    std::optional<int> pointCount;
    bool havePlotname = false;
    std::string_view firstVariable;
    size_t firstVariableAt = 0;
    for (;;) {
      if (atEnd()) {
        fail(pos_, Place::kLineIfText,
             "the header of plot " + std::to_string(number) + " ends before 'Variables:'");
      }
      size_t lineStart = 0;
      const std::string_view line = readLine(lineStart);
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
      const std::string key = lower(rawKey);
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
          const std::string flag = lower(word);
          if (flag == "complex") {
            plot.numbers = Numbers::kComplex;
          } else if (flag == "real") {
            plot.numbers = Numbers::kReal;
          }
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
    parseVariables(plot, *variableCount, firstVariable, firstVariableAt);
    parseMarker(plot);
    checkPadding(plot, *pointCount);
    if (plot.layout == DataLayout::kBinary) {
      readBinary(plot, *pointCount, number);
    } else {
      readAscii(plot, *pointCount, number);
    }
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
    for (size_t i = 3; i < words.size(); ++i) {
      variable.options.emplace_back(words[i]);
    }
    plot.variables.push_back(std::move(variable));
  }

  void parseVariables(Plot& plot, int count, std::string_view first, size_t firstAt) {
    if (!first.empty()) {
      addVariable(plot, first, firstAt);
    }
    while (plot.variableCount() < count) {
      if (atEnd()) {
        fail(pos_, Place::kLineIfText,
             "the variable list ends after " + std::to_string(plot.variableCount()) + " of " +
                 std::to_string(count) + " variables");
      }
      size_t lineStart = 0;
      const std::string_view line = readLine(lineStart);
      const std::string_view text = trim(line);
      if (text.empty()) {
        continue;
      }
      const std::string head = lower(text.substr(0, 7));
      if (head == "values:" || head == "binary:") {
        fail(lineStart, Place::kLineIfText,
             "the header announces " + std::to_string(count) + " variables but lists " +
                 std::to_string(plot.variableCount()));
      }
      addVariable(plot, line, lineStart);
    }
  }

  void parseMarker(Plot& plot) {
    for (;;) {
      if (atEnd()) {
        fail(pos_, Place::kLineIfText, "the file ends before 'Values:' or 'Binary:'");
      }
      size_t lineStart = 0;
      const std::string_view line = readLine(lineStart);
      const std::string_view text = trim(line);
      if (text.empty()) {
        continue;
      }
      const std::string marker = text.size() == 7 ? lower(text) : std::string();
      if (marker == "values:") {
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

  /// Unpadded plots leave short vectors out of the later records, so records differ in size;
  /// that layout is not read yet.
  void checkPadding(const Plot& plot, int points) const {
    const bool unpadded = std::any_of(plot.flags.begin(), plot.flags.end(),
                                      [](const std::string& f) { return lower(f) == "unpadded"; });
    if (!unpadded) {
      return;
    }
    for (const Variable& variable : plot.variables) {
      for (const std::string& option : variable.options) {
        if (option.starts_with("dims=")) {
          const auto length = parseCount(std::string_view(option).substr(5));
          if (!length || *length < points) {
            fail(plot.headerOffset, Place::kLineIfText,
                 "unpadded plots with short vectors are not supported (variable " + variable.name +
                     ")");
          }
        }
      }
    }
  }

  void readBinary(Plot& plot, int points, int number) {
    plot.dataOffset = pos_;
    firstBinary_ = std::min(firstBinary_, pos_);
    plot.recordBytes = static_cast<size_t>(plot.variableCount()) * plot.valueBytes();
    const size_t remaining = bytes_.size() - pos_;
    const size_t complete = remaining / plot.recordBytes;
    if (points == 0) {
      // An interrupted batch run leaves the count at 0 with data behind it: count the records.
      if (remaining == 0 || atHeaderLine()) {
        plot.points = 0;
        return;
      }
      if (remaining % plot.recordBytes != 0 || complete > static_cast<size_t>(INT_MAX)) {
        fail(bytes_.size(), Place::kByteOffset,
             "binary data of plot " + std::to_string(number) +
                 " (announced with 0 points) ends inside a record");
      }
      plot.points = static_cast<int>(complete);
    } else {
      if (complete < static_cast<size_t>(points)) {
        fail(bytes_.size(), Place::kByteOffset,
             "binary data of plot " + std::to_string(number) +
                 " is truncated: " + std::to_string(complete) + " complete of " +
                 std::to_string(points) + " points of " + std::to_string(plot.recordBytes) +
                 " bytes from byte offset " + std::to_string(plot.dataOffset));
      }
      plot.points = points;
    }
    pos_ = plot.dataOffset + static_cast<size_t>(plot.points) * plot.recordBytes;
  }

  /// Start and end of the next whitespace-separated token, or false at the end of the data.
  bool nextToken(size_t& start, size_t& end) {
    skipSpace();
    if (atEnd()) {
      return false;
    }
    start = pos_;
    while (pos_ < bytes_.size() && !isSpace(bytes_[pos_])) {
      ++pos_;
    }
    end = pos_;
    return true;
  }

  static bool parseDouble(const char* first, const char* last, double& value, const char*& stop) {
    if (first < last && *first == '+') {
      ++first;
    }
    const auto result = std::from_chars(first, last, value);
    stop = result.ptr;
    if (result.ec == std::errc::result_out_of_range) {
      // Denormal or overflowing text: keep what strtod-like readers would give.
      std::string text(first, static_cast<size_t>(result.ptr - first));
      value = std::strtod(text.c_str(), nullptr);
      return result.ptr != first;
    }
    return result.ec == std::errc();
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
    const char* stop = nullptr;
    if (plot.numbers == Numbers::kReal) {
      if (!parseDouble(first, last, real, stop) || stop != last) {
        failValue(start, point, variable, {first, static_cast<size_t>(last - first)},
                  "expected a number");
      }
      return real;
    }
    if (!parseDouble(first, last, real, stop) || stop == last || *stop != ',') {
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
    if (!parseDouble(imagFirst, imagLast, imag, stop) || stop != imagLast) {
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

  void readAscii(Plot& plot, int points, int number) {
    const size_t variables = static_cast<size_t>(plot.variableCount());
    if (points > 0) {
      // Every value takes at least two bytes of text, so a count the rest of the file cannot
      // hold is refused before anything is allocated for it.
      const size_t remaining = bytes_.size() - pos_;
      if (static_cast<size_t>(points) > (remaining + 1) / 2 / (variables + 1)) {
        fail(bytes_.size(), Place::kLineIfText,
             "the data of plot " + std::to_string(number) + " is truncated: " +
                 std::to_string(points) + " points of " + std::to_string(variables) +
                 " variables cannot fit in the remaining " + std::to_string(remaining) + " bytes");
      }
      auto decoded = std::make_shared<std::vector<double>>(variables * static_cast<size_t>(points));
      double* out = decoded->data();
      for (int p = 0; p < points; ++p) {
        readPointIndex(p, points);
        for (size_t v = 0; v < variables; ++v) {
          out[v * static_cast<size_t>(points) + static_cast<size_t>(p)] =
              readValue(plot, p, static_cast<int>(v));
        }
      }
      plot.points = points;
      plot.decoded = std::move(decoded);
      return;
    }
    // A count of 0 with data behind it (an interrupted run): read points while they come.
    std::vector<double> rows;
    int count = 0;
    for (;;) {
      skipSpace();
      if (atEnd() || bytes_[pos_] < '0' || bytes_[pos_] > '9' || count == INT_MAX) {
        break;
      }
      readPointIndex(count, count + 1);
      for (size_t v = 0; v < variables; ++v) {
        rows.push_back(readValue(plot, count, static_cast<int>(v)));
      }
      ++count;
    }
    auto decoded = std::make_shared<std::vector<double>>(rows.size());
    for (size_t p = 0; p < static_cast<size_t>(count); ++p) {
      for (size_t v = 0; v < variables; ++v) {
        (*decoded)[v * static_cast<size_t>(count) + p] = rows[p * variables + v];
      }
    }
    plot.points = count;
    plot.decoded = std::move(decoded);
  }

  std::string_view bytes_;
  size_t pos_ = 0;
  size_t firstBinary_ = SIZE_MAX;
};

}  // namespace

bool parsePlots(std::string_view bytes, const std::string& path, std::vector<Plot>& plots,
                std::string& error) {
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
  if (!parsePlots(file->map_.view(), path, file->plots_, error)) {
    return nullptr;
  }
  return file;
}

double RawFile::valueAt(const Plot& plot, int v, int p) const {
  if (v < 0 || v >= plot.variableCount() || p < 0 || p >= plot.points) {
    return 0.0;
  }
  if (plot.layout == DataLayout::kAscii) {
    return (*plot.decoded)[static_cast<size_t>(v) * static_cast<size_t>(plot.points) +
                           static_cast<size_t>(p)];
  }
  return loadDouble(map_.data() + plot.dataOffset + static_cast<size_t>(p) * plot.recordBytes +
                    static_cast<size_t>(v) * plot.valueBytes());
}

void RawFile::gather(const Plot& plot, std::span<const int> columns,
                     std::span<double* const> outputs) const {
  const size_t points = static_cast<size_t>(plot.points);
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.layout == DataLayout::kAscii) {
    for (size_t k = 0; k < count; ++k) {
      if (columns[k] < 0 || columns[k] >= plot.variableCount()) {
        continue;  // callers pass columns of this plot only
      }
      const double* column = plot.decoded->data() + static_cast<size_t>(columns[k]) * points;
      std::copy(column, column + points, outputs[k]);
    }
    return;
  }
  // Visit the columns in record order so each record is read front to back.
  std::vector<size_t> order(count);
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return columns[a] < columns[b]; });
  std::vector<size_t> offsets(count);
  std::vector<double*> targets(count);
  for (size_t k = 0; k < count; ++k) {
    offsets[k] = static_cast<size_t>(columns[order[k]]) * plot.valueBytes();
    targets[k] = outputs[order[k]];
  }
  if (count > 0 && (columns[order.front()] < 0 || columns[order.back()] >= plot.variableCount())) {
    return;  // callers pass columns of this plot only
  }
  // One pass over the records, in tiles of a few dozen points by a few hundred columns (a
  // blocked transpose): within a tile each output receives a run of consecutive values while
  // the tile's record lines stay cached. Writing one value to each of ten thousand outputs per
  // record instead misses the cache and the TLB on nearly every store (2-3 times slower).
  constexpr size_t kTilePoints = 32;
  constexpr size_t kTileColumns = 256;
  const char* base = map_.data() + plot.dataOffset;
  for (size_t p0 = 0; p0 < points; p0 += kTilePoints) {
    const size_t p1 = std::min(points, p0 + kTilePoints);
    for (size_t k0 = 0; k0 < count; k0 += kTileColumns) {
      const size_t k1 = std::min(count, k0 + kTileColumns);
      for (size_t k = k0; k < k1; ++k) {
        double* out = targets[k];
        const char* at = base + offsets[k];
        for (size_t p = p0; p < p1; ++p) {
          out[p] = loadDouble(at + p * plot.recordBytes);
        }
      }
    }
  }
}

}  // namespace simdata::raw
