// The raw-file parser, part one: the plot header (keys, flags, the variable list and the
// marker of the data that follows), and the loop over the plots of a file.

#include <algorithm>
#include <climits>
#include <iterator>

#include "simdata/detail/rawParser.h"

namespace simdata::raw::detail {

namespace {

using support::lowerAscii;
using support::splitWords;
using support::trim;

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

}  // namespace

void Parser::run(std::vector<Plot>& plots) {
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
    if (atEnd() || atHeaderLine(pos_)) {
      continue;
    }
    // Some writers leave bytes after the data (a zero record, a text table): the plot count
    // says where the data ends, and what follows is no plot.
    const Place place = afterData >= firstBinary_ ? Place::kByteOffset : Place::kLineIfText;
    warnings_.push_back(locate(
        ParseError(pos_, place,
                   std::to_string(bytes_.size() - afterData) + " bytes after the data of plot " +
                       std::to_string(plots.size()) + " do not start a plot and were ignored")));
    pos_ = bytes_.size();
  }
}

std::string Parser::locate(const ParseError& error) const {
  if (error.place == Place::kLineIfText && error.offset <= firstBinary_) {
    return simdata::detail::atLine(bytes_, error.offset, error.message);
  }
  return "byte offset " + std::to_string(error.offset) + ": " + error.message;
}

/// True when the text at byte `at` is a "Key:" line of a plot header (in either encoding).
bool Parser::atHeaderLine(size_t at) const {
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

std::optional<int> Parser::parseCount(std::string_view text) {
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
std::optional<int> Parser::dimsLength(std::string_view option) {
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

void Parser::parsePlot(Plot& plot, int number) {
  plot.headerOffset = pos_;
  const HeaderEncoding encoding = detectHeaderEncoding(bytes_, pos_);
  plot.utf16Header = encoding == HeaderEncoding::kUtf16le;
  HeaderLines lines(bytes_, pos_, encoding);
  const HeaderCounts counts = readHeaderKeys(lines, plot, number);
  if (!counts.havePlotname) {
    fail(counts.firstVariableAt, Place::kLineIfText, "the header has no 'Plotname:' line");
  }
  if (!counts.variables) {
    fail(counts.firstVariableAt, Place::kLineIfText, "the header has no 'No. Variables:' line");
  }
  if (!counts.points) {
    fail(counts.firstVariableAt, Place::kLineIfText, "the header has no 'No. Points:' line");
  }
  parseVariables(lines, plot, *counts.variables, counts.firstVariable, counts.firstVariableAt);
  parseMarker(lines, plot);
  pos_ = lines.position();
  const Flags flags = applyFlags(plot);
  readData(plot, *counts.points, number, flags);
  if (flags.stepped) {
    findSteps(plot);
  }
  checkValues(plot, number);
}

/// Reads the "Key: value" lines up to and including "Variables:".
Parser::HeaderCounts Parser::readHeaderKeys(HeaderLines& lines, Plot& plot, int number) const {
  HeaderCounts counts;
  for (;;) {
    std::string_view line;
    size_t lineStart = 0;
    if (!lines.next(line, lineStart)) {
      fail(lines.position(), Place::kLineIfText,
           "the header of plot " + std::to_string(number) + " ends before 'Variables:'");
    }
    const std::string_view text = trim(line);
    if (text.empty()) {
      continue;
    }
    const size_t colon = line.find(':');
    const std::string_view rawKey =
        colon == std::string_view::npos ? std::string_view() : trim(line.substr(0, colon));
    if (colon == std::string_view::npos || !looksLikeKey(rawKey)) {
      if (text.front() == '.') {
        continue;  // parameter and alias lines of some writers carry no key
      }
      fail(lineStart, Place::kLineIfText,
           "expected a header line 'Key: value', found '" + excerpt(line) + "'");
    }
    const std::string key = lowerAscii(rawKey);
    const std::string_view value = trim(line.substr(colon + 1));
    if (key == "variables") {
      counts.firstVariable = value;
      counts.firstVariableAt = lineStart;
      return counts;
    }
    applyHeaderKey(key, value, lineStart, plot, counts);
  }
}

void Parser::applyHeaderKey(const std::string& key, std::string_view value, size_t lineStart,
                            Plot& plot, HeaderCounts& counts) const {
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
    counts.havePlotname = true;
  } else if (key == "flags") {
    for (std::string_view word : splitWords(value)) {
      plot.flags.emplace_back(word);
    }
  } else if (key == "no. variables") {
    counts.variables = parseCount(value);
    if (!counts.variables || *counts.variables == 0) {
      fail(lineStart, Place::kLineIfText,
           "'No. Variables' must be a positive count, found '" + excerpt(value) + "'");
    }
  } else if (key == "no. points") {
    counts.points = parseCount(value);
    if (!counts.points) {
      fail(lineStart, Place::kLineIfText,
           "'No. Points' must be a count, found '" + excerpt(value) + "'");
    }
  }
}

/// Reads the flags and settles how each value is stored: float64 everywhere, except in
/// the files of the writer recognised by its UTF-16 header or its "Command:" line, which
/// stores real values after the first variable as float32 unless the plot says "double".
/// Complex plots store every value, the scale included, as two float64.
Parser::Flags Parser::applyFlags(Plot& plot) const {
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
  plot.absoluteScale = singles && lowerAscii(plot.plotname).find("transient") != std::string::npos;
  return flags;
}

void Parser::addVariable(Plot& plot, std::string_view line, size_t lineStart) const {
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
    if (!lowerAscii(words[i]).starts_with("dims=")) {
      continue;
    }
    const auto length = dimsLength(words[i].substr(5));
    if (!length) {
      fail(lineStart, Place::kLineIfText,
           "variable " + std::to_string(index) + " has a malformed option '" + excerpt(words[i]) +
               "'");
    }
    variable.length = *length;
  }
  plot.variables.push_back(std::move(variable));
}

void Parser::parseVariables(HeaderLines& lines, Plot& plot, int count, std::string_view first,
                            size_t firstAt) const {
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

void Parser::parseMarker(HeaderLines& lines, Plot& plot) const {
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
    if (marker == "binary:") {
      plot.layout = DataLayout::kBinary;
      return;
    }
    if (marker != "values:") {
      fail(lineStart, Place::kLineIfText,
           "expected 'Values:' or 'Binary:' after " + std::to_string(plot.variableCount()) +
               " variables, found '" + excerpt(trim(line)) + "'");
    }
    if (lines.encoding() == HeaderEncoding::kUtf16le) {
      fail(lineStart, Place::kLineIfText,
           "text values after a UTF-16 header are not read (only binary data is)");
    }
    plot.layout = DataLayout::kAscii;
    return;
  }
}

}  // namespace simdata::raw::detail
