#pragma once
// The adaptor for databases in the legacy format (versions below 4.9, and files without the
// tag header). This build does not read or write that format: every constructor throws a
// std::runtime_error that names the file, so the database commands report it like any other
// database error. The interface is the one the current-format file delegates to.

#include <cstdint>
#include <memory>
#include <string>

#include "db/dbRecords.h"

namespace kraDB {

class kraOldDbFile {
 public:
  /// Writer. Always throws: the legacy format is not written.
  kraOldDbFile(const std::string& path, double temperature, double startTime, double stopTime);
  /// Reader. Throws "Error in opening EMIR database file ..." when the file cannot be opened,
  /// otherwise the not-supported error.
  kraOldDbFile(const std::string& path, float version);

  void addIR(const std::string& name, double rms, double avg, double peak, double tpeak, double min,
             double tmin);
  void addEM(const std::string& name, double rms, double avg, double peak, double tpeak,
             double avgPos, int64_t term1, int64_t term2);
  std::unique_ptr<IRRecord> getNextIR();
  std::unique_ptr<kraDBEMNode> getNextEM();

  double getTemperature() const { return temperature_; }
  double getStartTime() const { return startTime_; }
  double getStopTime() const { return stopTime_; }

 private:
  std::string path_;
  double temperature_ = 110.0;
  double startTime_ = 0.0;
  double stopTime_ = 1e-7;
};

/// The texts of the errors above.
std::string legacyReadError(const std::string& path);
std::string legacyWriteError(const std::string& path);

}  // namespace kraDB
