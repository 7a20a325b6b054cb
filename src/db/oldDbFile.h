#pragma once
// Databases in the legacy format (versions below 4.9, and files without the tag header). This
// build does not read or write that format: each constructor throws a std::runtime_error that
// names the file, so the database commands report it like any other database error. No object
// of this class ever exists; it is the one place that refuses the format.

#include <string>

namespace kraDB {

class kraOldDbFile {
 public:
  /// Writer. Always throws: the legacy format is not written.
  [[noreturn]] kraOldDbFile(const std::string& path, double temperature, double startTime,
                            double stopTime);
  /// Reader. Throws "Error in opening EMIR database file ..." when the file cannot be opened,
  /// otherwise the not-supported error.
  [[noreturn]] kraOldDbFile(const std::string& path, float version);
};

/// The texts of the errors above.
std::string legacyReadError(const std::string& path);
std::string legacyWriteError(const std::string& path);

}  // namespace kraDB
