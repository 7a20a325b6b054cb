// The raw-file parser, part two: the data of a plot. Binary data is located and checked
// (its values stay in the mapped file) unless its records differ in size; text data is
// tokenised and decoded. Values a simulator should never write are reported as warnings.

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>

#include "simdata/detail/rawParser.h"

namespace simdata::raw::detail {

namespace {

std::string describe(double value) {
  return std::isnan(value) ? "NaN" : value > 0 ? "+infinity" : "-infinity";
}

std::string shortNumber(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

/// Whether point p of a plot lists variable v (unpadded plots leave short vectors out).
bool listed(const Variable& variable, bool unpadded, int p) {
  return !unpadded || variable.length < 0 || p < variable.length;
}

}  // namespace

void Parser::readData(Plot& plot, int points, int number, Flags flags) {
  if (plot.layout != DataLayout::kBinary) {
    readAscii(plot, points, number, flags.unpadded);
  } else if (flags.unpadded && hasShortVectors(plot, points)) {
    readUnpaddedBinary(plot, points, number);
  } else {
    readBinary(plot, points, number);
  }
}

/// Values a simulator should never write, reported but kept: a time axis that runs
/// backwards within a run or holds NaN or infinities, and NaN or infinite values in text
/// data (decoded anyway; mapped binary values are not scanned, that would be a pass over the
/// whole file).
void Parser::checkValues(const Plot& plot, int number) {
  if (plot.points <= 0 || plot.variables.empty()) {
    return;
  }
  const std::string where = "plot " + std::to_string(number) + ": ";
  if (support::lowerAscii(plot.variables.front().type) == "time") {
    checkTimeAxis(plot, where);
  }
  if (plot.decoded) {
    countNonFinite(plot, where);
  }
}

/// The scale's value at point p, decoded or read from the mapped data.
double Parser::scaleAt(const Plot& plot, size_t p) const {
  if (plot.decoded) {
    return (*plot.decoded)[p];
  }
  const Variable& scale = plot.variables.front();
  const double value = loadElement(
      bytes_.data() + plot.dataOffset + scale.offset + p * plot.stride(0), scale.element);
  return plot.absoluteScale ? std::fabs(value) : value;
}

void Parser::checkTimeAxis(const Plot& plot, const std::string& where) {
  const size_t points = static_cast<size_t>(plot.points);
  size_t nextStep = 1;  // stepped plots: a new run may start anywhere the scale restarts
  for (size_t p = 0; p < points; ++p) {
    const double t = scaleAt(plot, p);
    if (!std::isfinite(t)) {
      warnings_.push_back(where + "the time axis holds " + describe(t) + " at point " +
                          std::to_string(p));
      return;
    }
    if (nextStep < plot.stepStarts.size() && static_cast<size_t>(plot.stepStarts[nextStep]) == p) {
      ++nextStep;
      continue;
    }
    if (p > 0 && t < scaleAt(plot, p - 1)) {
      warnings_.push_back(where + "the time axis goes backwards at point " + std::to_string(p) +
                          " (" + shortNumber(t) + " after " + shortNumber(scaleAt(plot, p - 1)) +
                          ")");
      return;
    }
  }
}

void Parser::countNonFinite(const Plot& plot, const std::string& where) {
  const size_t points = static_cast<size_t>(plot.points);
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

/// Whether a variable announces fewer values than the plot has points ("dims=").
bool Parser::hasShortVectors(const Plot& plot, int points) const {
  return std::any_of(plot.variables.begin(), plot.variables.end(),
                     [&](const Variable& v) { return v.length >= 0 && v.length < points; });
}

/// Decoded data takes 8 bytes per value and point. When padding short vectors of an
/// unpadded plot would blow that far beyond the file's own size, the plot is refused
/// rather than allocated.
void Parser::checkPaddedSize(const Plot& plot, int points, int number) const {
  const double bytes = 8.0 * static_cast<double>(plot.variableCount()) * points;
  if (bytes > 16.0 * static_cast<double>(bytes_.size()) + 64.0 * 1024 * 1024) {
    fail(plot.headerOffset, Place::kLineIfText,
         "plot " + std::to_string(number) + " is unpadded and padding its " +
             std::to_string(plot.variableCount()) + " short vectors to " + std::to_string(points) +
             " points would take far more memory than the file");
  }
}

/// Counts the whole records of a plot announced with 0 points (an interrupted run): up to
/// the end of the file or the header of a further plot.
int Parser::countRecords(const Plot& plot, int number) const {
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

void Parser::readBinary(Plot& plot, int points, int number) {
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
void Parser::readUnpaddedBinary(Plot& plot, int points, int number) {
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
void Parser::findSteps(Plot& plot) const {
  if (plot.points <= 0) {
    return;
  }
  const size_t points = static_cast<size_t>(plot.points);
  const double first = scaleAt(plot, 0);
  plot.stepStarts.push_back(0);
  for (size_t p = 1; p < points; ++p) {
    if (scaleAt(plot, p) == first) {
      plot.stepStarts.push_back(static_cast<int>(p));
    }
  }
}

/// Start and end of the next whitespace-separated token, or false at the end of the data.
bool Parser::nextToken(size_t& start, size_t& end) {
  skipSpace();
  if (atEnd()) {
    return false;
  }
  start = pos_;
  while (pos_ < bytes_.size() && !support::isBlank(bytes_[pos_])) {
    ++pos_;
  }
  end = pos_;
  return true;
}

void Parser::failValue(size_t at, int point, int variable, std::string_view token,
                       const char* what) const {
  fail(at, Place::kLineIfText,
       std::string(what) + " for variable " + std::to_string(variable) + " of point " +
           std::to_string(point) + ", found '" + excerpt(token) + "'");
}

/// Reads one value token (a real, or "re,im" with optional blanks after the comma).
double Parser::readValue(const Plot& plot, int point, int variable) {
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
void Parser::readPointIndex(int point, int announced) {
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

void Parser::readAscii(Plot& plot, int points, int number, bool unpadded) {
  if (points <= 0) {
    readAsciiUncounted(plot, unpadded);
    return;
  }
  const size_t variables = static_cast<size_t>(plot.variableCount());
  // Every value takes at least two bytes of text, so a count the rest of the file cannot hold
  // is refused before anything is allocated for it.
  const size_t remaining = bytes_.size() - pos_;
  const size_t perPoint = unpadded ? 1 : variables + 1;
  if (static_cast<size_t>(points) > (remaining + 1) / 2 / perPoint) {
    fail(bytes_.size(), Place::kLineIfText,
         "the data of plot " + std::to_string(number) + " is truncated: " + std::to_string(points) +
             " points of " + std::to_string(variables) + " variables cannot fit in the remaining " +
             std::to_string(remaining) + " bytes");
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
          listed(plot.variables[v], unpadded, p) ? readValue(plot, p, static_cast<int>(v)) : 0.0;
    }
  }
  finishDecoded(plot, points, std::move(decoded));
}

/// A count of 0 with data behind it (an interrupted run, or a writer that leaves the count of
/// all but its last plot at 0): points are read while they come.
void Parser::readAsciiUncounted(Plot& plot, bool unpadded) {
  const size_t variables = static_cast<size_t>(plot.variableCount());
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

void Parser::finishDecoded(Plot& plot, int points, std::shared_ptr<std::vector<double>> decoded) {
  if (plot.absoluteScale) {
    for (size_t p = 0; p < static_cast<size_t>(points); ++p) {
      (*decoded)[p] = std::fabs((*decoded)[p]);
    }
  }
  plot.points = points;
  plot.decoded = std::move(decoded);
}

}  // namespace simdata::raw::detail
