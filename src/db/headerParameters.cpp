#include "db/headerParameters.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "support/file.h"

namespace kraDB {

namespace {

constexpr std::string_view kOpeningTags = "<><><>;";
constexpr std::string_view kClosingTags = "<\\><\\><\\>;\n";

using File = support::FilePtr;

/// Reads up to `size` bytes at `offset` into a zeroed buffer.
void readAt(std::FILE* file, long offset, char* buffer, size_t size) {
  std::memset(buffer, 0, size);
  if (std::fseek(file, offset, SEEK_SET) == 0) {
    const size_t got = std::fread(buffer, 1, size, file);
    static_cast<void>(got);  // a short read leaves zeros, which match no marker
  }
}

}  // namespace

bool startsWithLegacyMarker(const char* bytes) {
  static const std::string kStars(kLegacyMarkerBytes, '*');
  return std::memcmp(bytes, "begin", 5) == 0 ||
         std::memcmp(bytes, kStars.data(), kLegacyMarkerBytes) == 0;
}

std::vector<std::string> splitAtAny(std::string_view text, std::string_view delimiters) {
  std::array<bool, 256> isDelimiter{};
  for (char c : delimiters) {
    isDelimiter[static_cast<unsigned char>(c)] = true;
  }
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || isDelimiter[static_cast<unsigned char>(text[i])]) {
      if (i > start) {
        parts.emplace_back(text.substr(start, i - start));
      }
      start = i + 1;
    }
  }
  return parts;
}

bool readHeaderParameters(std::string_view text, HeaderParameters& params) {
  if (text.substr(0, kOpeningTags.size()) != kOpeningTags) {
    return false;
  }
  const size_t end = text.find(kClosingTags);
  if (end == std::string_view::npos) {
    return false;
  }
  for (const std::string& piece : splitAtAny(text.substr(0, end), ";")) {
    // "<key>value<\key>" gives key, value and the closing tag, which is not checked.
    std::vector<std::string> parts = splitAtAny(piece, "<>");
    if (parts.size() == 3) {
      params[parts[0]] = std::move(parts[1]);
    }
  }
  return true;
}

std::string readHeaderText(const std::string& path, bool* opened) {
  File file(std::fopen(path.c_str(), "rb"));
  if (opened != nullptr) {
    *opened = file != nullptr;
  }
  if (!file) {
    return {};
  }
  std::array<char, kHeaderBlockSize> buffer{};
  const size_t got = std::fread(buffer.data(), 1, buffer.size(), file.get());
  const char* zero = static_cast<const char*>(std::memchr(buffer.data(), 0, got));
  return std::string(buffer.data(),
                     zero != nullptr ? static_cast<size_t>(zero - buffer.data()) : got);
}

bool readDBParameters(const std::string& path, HeaderParameters& params) {
  bool opened = false;
  const std::string text = readHeaderText(path, &opened);
  return opened && readHeaderParameters(text, params);
}

float versionOf(const HeaderParameters& params) {
  const auto found = params.find("version");
  return found == params.end() ? -1.0f
                               : static_cast<float>(std::strtod(found->second.c_str(), nullptr));
}

float dbGetVersion(const std::string& path) {
  HeaderParameters params;
  if (!readDBParameters(path, params)) {
    return -1.0f;
  }
  const float version = versionOf(params);
  const auto architecture = params.find("architecture");
  if (architecture != params.end() && architecture->second == "32") {
    throw std::runtime_error(k32BitDatabaseError);
  }
  return version;
}

std::optional<int> taggedArchitecture(const HeaderParameters& params) {
  const auto found = params.find("architecture");
  if (found == params.end()) {
    return std::nullopt;
  }
  const long value = std::strtol(found->second.c_str(), nullptr, 10);
  if (value < 0) {
    return std::nullopt;
  }
  return static_cast<int>(value);
}

std::optional<int> guessLegacyArchitecture(const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    return std::nullopt;
  }
  // The length is taken as a signed 32-bit number, as legacy producers wrote it.
  std::fseek(file.get(), 0, SEEK_END);
  const auto size = static_cast<int32_t>(std::ftell(file.get()));
  std::array<char, 2048> probe{};
  // A 64-bit producer's internal header ends at byte 96, a 32-bit producer's at byte 48.
  if (size > 2144) {
    readAt(file.get(), 96, probe.data(), probe.size());
    if (startsWithLegacyMarker(probe.data())) {
      return 64;
    }
  }
  if (size >= 2097) {
    readAt(file.get(), 48, probe.data(), probe.size());
    if (startsWithLegacyMarker(probe.data())) {
      return 32;
    }
  }
  return -1;
}

}  // namespace kraDB
