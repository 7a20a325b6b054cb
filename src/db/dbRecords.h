#pragma once
// The records of an EMIR database as the reader hands them out.

#include <cstdint>
#include <string>

namespace kraDB {

/// The values both record kinds start with, in file order: the RMS, average and peak of the
/// quantity (a node's voltage drop, a resistor's current) and the time of the peak.
struct RecordStatistics {
  double rms = 0.0;
  double avg = 0.0;
  double peak = 0.0;
  double tpeak = 0.0;
};

/// What an EM record holds after its statistics, in file order.
struct EMValues : RecordStatistics {
  /// Average of the positive part of the current.
  double avgPos = 0.0;
  /// The resistor's two terminal node numbers, passed on as the producer wrote them.
  int64_t term1 = 0;
  int64_t term2 = 0;
};

}  // namespace kraDB

/// One node's voltage-drop statistics (an IR record), fields in file order.
struct IRRecord : kraDB::RecordStatistics {
  std::string name;
  double min = 0.0;
  double tmin = 0.0;
  /// Not stored in the file; left at 0 for the record's users.
  int64_t reserved = 0;
};

namespace kraDB {

/// The two record blocks; the value indexes every per-type table of a database file.
enum eKRADBType : int { eIR = 0, eEM = 1 };
inline constexpr int kBlockTypes = 2;

/// One resistor's current statistics (an EM record), fields in file order.
struct kraDBEMNode : EMValues {
  std::string name;
  /// Average of the negative part; the current format does not store it (left 0), users
  /// derive its magnitude as avgPos - avg.
  double avgNeg = 0.0;
  /// Not stored in the file; start values for the record's users.
  int64_t index = -1;
  int64_t aux1 = 0;
  int64_t aux2 = 0;
  int64_t aux3 = 0;
};

}  // namespace kraDB
