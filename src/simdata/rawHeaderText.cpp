#include "simdata/rawHeaderText.h"

#include <cstdint>
#include <cstring>

namespace simdata::raw {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

char16_t unitAt(std::string_view bytes, size_t at) {
  return static_cast<char16_t>(static_cast<unsigned char>(bytes[at]) |
                               (static_cast<unsigned char>(bytes[at + 1]) << 8));
}

}  // namespace

HeaderEncoding detectHeaderEncoding(std::string_view bytes, size_t at) {
  return at + 1 < bytes.size() && bytes[at] != '\0' && bytes[at + 1] == '\0'
             ? HeaderEncoding::kUtf16le
             : HeaderEncoding::kEightBit;
}

void appendUtf8(std::string& out, char32_t c) {
  if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
    c = kReplacement;
  }
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

HeaderLines::HeaderLines(std::string_view bytes, size_t at, HeaderEncoding encoding)
    : bytes_(bytes), pos_(at), encoding_(encoding) {}

bool HeaderLines::atEnd() const {
  // A lone byte left over from UTF-16 text ends the header as well.
  return encoding_ == HeaderEncoding::kUtf16le ? pos_ + 1 >= bytes_.size() : pos_ >= bytes_.size();
}

bool HeaderLines::next(std::string_view& line, size_t& lineStart) {
  if (atEnd()) {
    return false;
  }
  lineStart = pos_;
  if (encoding_ == HeaderEncoding::kEightBit) {
    const void* found = std::memchr(bytes_.data() + pos_, '\n', bytes_.size() - pos_);
    const size_t end = found != nullptr
                           ? static_cast<size_t>(static_cast<const char*>(found) - bytes_.data())
                           : bytes_.size();
    line = bytes_.substr(pos_, end - pos_);
    pos_ = end < bytes_.size() ? end + 1 : end;
  } else {
    decoded_.clear();
    size_t at = pos_;
    bool ended = false;
    while (at + 1 < bytes_.size()) {
      const char16_t unit = unitAt(bytes_, at);
      at += 2;
      if (unit == u'\n') {
        ended = true;
        break;
      }
      if (unit >= 0xD800 && unit <= 0xDBFF && at + 1 < bytes_.size()) {
        const char16_t low = unitAt(bytes_, at);
        if (low >= 0xDC00 && low <= 0xDFFF) {
          at += 2;
          appendUtf8(decoded_, 0x10000 + ((static_cast<char32_t>(unit) - 0xD800) << 10) +
                                   (static_cast<char32_t>(low) - 0xDC00));
          continue;
        }
      }
      appendUtf8(decoded_, unit);
    }
    pos_ = ended ? at : bytes_.size();
    line = decoded_;
  }
  if (!line.empty() && line.back() == '\r') {
    line.remove_suffix(1);
  }
  return true;
}

}  // namespace simdata::raw
