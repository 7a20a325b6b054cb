#pragma once
// Small text helpers shared by the readers of every input format: white-space tests, trimming,
// splitting into words without copies, and number reading. The white space is the C locale's
// (blank, tab, line feed, carriage return, vertical tab, form feed); the program never changes
// its locale, so these agree with isspace and the scanf family without a library call per
// character.

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace support {

/// The white-space characters of the C locale.
inline constexpr std::string_view kBlanks = " \t\n\r\v\f";

/// Whether `c` is white space in the C locale.
constexpr bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

/// `text` without leading white space (or leading characters of `blanks` when given).
constexpr std::string_view trimLeft(std::string_view text, std::string_view blanks = kBlanks) {
  const size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos ? std::string_view() : text.substr(first);
}

/// `text` without trailing white space (or trailing characters of `blanks` when given).
constexpr std::string_view trimRight(std::string_view text, std::string_view blanks = kBlanks) {
  const size_t last = text.find_last_not_of(blanks);
  return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

/// `text` without white space at either end (or characters of `blanks` when given).
constexpr std::string_view trim(std::string_view text, std::string_view blanks = kBlanks) {
  return trimRight(trimLeft(text, blanks), blanks);
}

/// A copy of `text` with ASCII capitals made small (other bytes kept as they are).
inline std::string lowerAscii(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return out;
}

/// The first byte of `text` at or after `pos` that is not white space (text.size() if none).
constexpr size_t skipBlanks(std::string_view text, size_t pos) {
  while (pos < text.size() && isBlank(text[pos])) {
    ++pos;
  }
  return pos;
}

/// The next white-space separated word of `text` from byte `pos` on; `pos` moves past it.
/// Empty (with `pos` at the end) when only white space is left.
constexpr std::string_view nextWord(std::string_view text, size_t& pos) {
  pos = skipBlanks(text, pos);
  const size_t start = pos;
  while (pos < text.size() && !isBlank(text[pos])) {
    ++pos;
  }
  return text.substr(start, pos - start);
}

/// Fills `words` with the first white-space separated words of `text`; returns how many
/// were found (at most words.size()).
constexpr size_t splitWords(std::string_view text, std::span<std::string_view> words) {
  size_t count = 0;
  size_t pos = 0;
  while (count < words.size()) {
    const std::string_view word = nextWord(text, pos);
    if (word.empty()) {
      break;
    }
    words[count++] = word;
  }
  return count;
}

/// Every white-space separated word of `text`, as views into it.
inline std::vector<std::string_view> splitWords(std::string_view text) {
  std::vector<std::string_view> words;
  size_t pos = 0;
  for (std::string_view word = nextWord(text, pos); !word.empty(); word = nextWord(text, pos)) {
    words.push_back(word);
  }
  return words;
}

/// What a number reader accepts beyond plain decimal numbers ("12", "-0.5", "+3.e-2", ".5").
struct NumberRules {
  /// "inf", "infinity", "nan" and "nan(...)" in any case, with an optional sign.
  bool infinityAndNaN = true;
  /// Magnitudes beyond the double range: when false they are refused; when true they read as
  /// strtod gives them (infinity above the range, zero or the nearest denormal below).
  bool outOfRangeAsStrtod = true;
};

/// Reads a decimal number at the start of [first, last): an optional '+' or '-', digits with
/// an optional point and exponent, as std::from_chars reads them in the general format (never
/// hexadecimal, no leading white space). Returns the end of the number, or null when there is
/// none (`value` is then unchanged). What follows the number is left to the caller.
inline const char* readDouble(const char* first, const char* last, double& value,
                              NumberRules rules = {}) {
  const char* start = first;
  if (first < last && *first == '+') {
    ++first;
    if (first < last && (*first == '-' || *first == '+')) {
      return nullptr;
    }
  }
  double read = 0.0;
  const auto [end, error] = std::from_chars(first, last, read);
  if (error == std::errc::result_out_of_range && rules.outOfRangeAsStrtod) {
    const std::string text(start, end);
    value = std::strtod(text.c_str(), nullptr);
    return end;
  }
  if (error != std::errc()) {
    return nullptr;
  }
  if (!rules.infinityAndNaN) {
    const char c = *(first < last && *first == '-' ? first + 1 : first);
    if (c != '.' && (c < '0' || c > '9')) {
      return nullptr;
    }
  }
  value = read;
  return end;
}

/// Reads the whole of `text` as a number (see readDouble); false when it is not one or text is
/// left after it.
inline bool parseDouble(std::string_view text, double& value, NumberRules rules = {}) {
  const char* last = text.data() + text.size();
  double read = 0.0;
  if (readDouble(text.data(), last, read, rules) != last || text.empty()) {
    return false;
  }
  value = read;
  return true;
}

/// Reads the whole of `text` as a decimal integer of type Int: an optional '+' or '-' and
/// digits, in Int's range. False otherwise (`value` is then unchanged).
template <typename Int>
bool parseInteger(std::string_view text, Int& value) {
  if (!text.empty() && text.front() == '+') {
    text.remove_prefix(1);
    if (!text.empty() && text.front() == '-') {
      return false;
    }
  }
  const char* last = text.data() + text.size();
  Int read{};
  const auto [end, error] = std::from_chars(text.data(), last, read);
  if (error != std::errc() || end != last || text.empty()) {
    return false;
  }
  value = read;
  return true;
}

}  // namespace support
