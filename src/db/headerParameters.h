#pragma once
// The tagged text header at the start of an EMIR database: its parser, the probe that reads it
// from a file before the file is opened as a database, and the version and architecture rules
// derived from it.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kraDB {

using HeaderParameters = std::map<std::string, std::string>;

/// Bytes of the header text block; the probe and the reader look at no more than this.
inline constexpr size_t kHeaderBlockSize = 1024;

/// Files whose version is below this are in the legacy format.
inline constexpr double kCurrentFormatVersion = 4.9;

/// True when a stored version selects the legacy format. The float is widened before the
/// comparison, so 4.9f (4.9000001) is current and 4.89999f legacy; version -1 is legacy.
inline bool isLegacyVersion(float version) {
  return static_cast<double>(version) < kCurrentFormatVersion;
}

/// Splits `text` at every character of `delimiters` and drops empty parts.
std::vector<std::string> splitAtAny(std::string_view text, std::string_view delimiters);

/// Parses the tag text "<><><>;<key>value<\key>;...<\><\><\>;\n" into `params` (a later
/// equal key overwrites an earlier one). False when the opening or closing tags are missing.
bool readHeaderParameters(std::string_view text, HeaderParameters& params);

/// The header text of a file: its first 1024 bytes up to the first zero byte. Empty when the
/// file cannot be opened; `opened` tells the two apart.
std::string readHeaderText(const std::string& path, bool* opened = nullptr);

/// Reads the tag text at the start of a database file. False when the file cannot be opened
/// or carries no tag text.
bool readDBParameters(const std::string& path, HeaderParameters& params);

/// The format version of a database, -1 when it has no tag text. Throws std::runtime_error
/// for a database made by a 32-bit producer, which this program does not read.
float dbGetVersion(const std::string& path);

/// The "version" tag as the program reads it (strtod narrowed to float), -1 without one.
float versionOf(const HeaderParameters& params);

/// The "architecture" tag when it reads (strtol, base 10) as a number of 0 or more. Text that
/// is not a number reads as 0, as strtol does.
std::optional<int> taggedArchitecture(const HeaderParameters& params);

/// The exception text for a database made by a 32-bit producer.
inline constexpr const char* k32BitDatabaseError =
    "Error: 32-bit version of muro-db is not supported. Generate 64-bit version of muro-db and "
    "rerun the tool\n";

/// Bytes startsWithLegacyMarker reads.
inline constexpr size_t kLegacyMarkerBytes = 77;
/// Whether `bytes` (kLegacyMarkerBytes of them) begin with the first text line of a legacy
/// database: "begin..." or a line of 77 asterisks.
bool startsWithLegacyMarker(const char* bytes);

/// Guesses the producer architecture of a legacy database from where its first text line
/// stands: 64 or 32, -1 when no marker is found. Empty when the file cannot be opened.
std::optional<int> guessLegacyArchitecture(const std::string& path);

}  // namespace kraDB
