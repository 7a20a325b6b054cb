#include "pgnet/detail/lineReader.h"

#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <locale>
#include <sstream>

#include "support/text.h"

namespace pgnet::detail {

namespace {

constexpr size_t kChunkBytes = 1 << 20;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool parseWithStream(std::string_view field, double& value) {
  std::istringstream in{std::string(field)};
  in.imbue(std::locale::classic());
  double read = 0.0;
  in >> read;
  if (in.fail() || in.peek() != std::char_traits<char>::eof()) {
    return false;
  }
  value = read;
  return true;
}

}  // namespace

LineReader::LineReader(std::istream& in) : in_(in), chunk_(kChunkBytes) {}

bool LineReader::refill() {
  if (atEnd_ || !in_.good() || in_.rdbuf() == nullptr) {
    atEnd_ = true;
    return false;
  }
  const std::streamsize got =
      in_.rdbuf()->sgetn(chunk_.data(), static_cast<std::streamsize>(chunk_.size()));
  begin_ = 0;
  end_ = got > 0 ? static_cast<size_t>(got) : 0;
  if (end_ == 0) {
    atEnd_ = true;
    in_.setstate(std::ios::eofbit);
    return false;
  }
  return true;
}

bool LineReader::next(std::string_view& line) {
  carry_.clear();
  for (;;) {
    if (begin_ == end_ && !refill()) {
      return false;
    }
    const char* start = chunk_.data() + begin_;
    const size_t available = end_ - begin_;
    const void* feed = std::memchr(start, '\n', available);
    const size_t part =
        feed != nullptr ? static_cast<size_t>(static_cast<const char*>(feed) - start) : available;
    if (feed != nullptr && carry_.empty()) {
      begin_ += part + 1;
      line = std::string_view(start, part < kMaxLineBytes ? part : kMaxLineBytes);
      return true;
    }
    if (carry_.size() < kMaxLineBytes) {
      carry_.append(start, std::min(part, kMaxLineBytes - carry_.size()));
    }
    begin_ += part;
    if (feed != nullptr) {
      ++begin_;
      line = carry_;
      return true;
    }
  }
}

size_t splitFields(std::string_view line, std::string_view* fields, size_t maxFields) {
  return support::splitWords(line, std::span<std::string_view>(fields, maxFields));
}

bool parseDouble(std::string_view field, double& value) {
  // Plain decimal numbers, the usual case, are converted directly; anything else, and any
  // result near the ends of the double range, goes through a real stream extraction, which is
  // the definition of what is accepted.
  size_t i = 0;
  const size_t n = field.size();
  if (i < n && (field[i] == '+' || field[i] == '-')) {
    ++i;
  }
  size_t digits = 0;
  bool nonZero = false;
  while (i < n && isDigit(field[i])) {
    nonZero = nonZero || field[i] != '0';
    ++digits;
    ++i;
  }
  if (i < n && field[i] == '.') {
    ++i;
    while (i < n && isDigit(field[i])) {
      nonZero = nonZero || field[i] != '0';
      ++digits;
      ++i;
    }
  }
  bool plain = digits > 0;
  if (plain && i < n && (field[i] == 'e' || field[i] == 'E')) {
    ++i;
    if (i < n && (field[i] == '+' || field[i] == '-')) {
      ++i;
    }
    size_t exponentDigits = 0;
    while (i < n && isDigit(field[i])) {
      ++exponentDigits;
      ++i;
    }
    plain = exponentDigits > 0;
  }
  if (plain && i == n) {
    const char* first = field.data() + (field[0] == '+' ? 1 : 0);
    double read = 0.0;
    const auto [end, error] = std::from_chars(first, field.data() + n, read);
    if (error == std::errc() && end == field.data() + n && std::isfinite(read) &&
        (nonZero ? std::fabs(read) >= DBL_MIN : read == 0.0)) {
      value = read;
      return true;
    }
  }
  return parseWithStream(field, value);
}

void appendDouble(std::string& out, double value) {
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::general, 6);
  out.append(text, result.ptr);
}

}  // namespace pgnet::detail
