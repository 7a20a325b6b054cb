#pragma once
// Short printable excerpts of file text for the readers' messages.

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace simdata::detail {

/// What a tab becomes in an excerpt: the raw reader shows it as a blank, the PSF reader as any
/// other unprintable byte (both forms appear in messages users already see).
enum class TabShown { kAsBlank, kAsUnprintable };

/// The first 40 bytes of `text` with unprintable bytes as '?', and "..." when cut.
inline std::string excerpt(std::string_view text, TabShown tab) {
  constexpr size_t kMax = 40;
  std::string out;
  for (size_t i = 0; i < text.size() && i < kMax; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\t' && tab == TabShown::kAsBlank) {
      out += ' ';
    } else {
      out += (c >= 0x20 && c < 0x7f) ? static_cast<char>(c) : '?';
    }
  }
  if (text.size() > kMax) {
    out += "...";
  }
  return out;
}

/// "line N: message", N counting from 1 the lines of `bytes` before byte `offset`.
inline std::string atLine(std::string_view bytes, size_t offset, const std::string& message) {
  const size_t end = std::min(offset, bytes.size());
  const size_t line = 1 + static_cast<size_t>(std::count(bytes.begin(), bytes.begin() + end, '\n'));
  return "line " + std::to_string(line) + ": " + message;
}

}  // namespace simdata::detail
