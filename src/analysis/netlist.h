#pragma once
// The instance netlist: what is to be checked, one instance (typically a resistor) per line.

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "analysis/voltageData.h"

/// One instance of the netlist with its signal indices and its statistics.
struct zeInstance {
  std::string name;
  std::string node1;
  std::string node2;
  /// Position of the node's signal in the batch's signal list; -1 no signal (ground),
  /// -2 not found, -3 (second node only) a fixed value.
  int sigIndex1 = -2;
  int sigIndex2 = -2;
  voltageData data = freshVoltageData();
  /// The two operands whose product is the duration-pulse threshold.
  double thresholdValue = 0.0;
  double thresholdScale = 0.0;
  /// False when a node's signal is missing: the instance is not analysed.
  bool valid = true;
  /// From the integer column of the extended line formats; -1 when none.
  int orientation = -1;
  /// Sign of the current flow set by the analysis: 1 from node 1 to node 2.
  int direction = -1;
  /// 0: the analysis decides the direction from the sign of the average.
  int directionKnown = 0;
  /// Value of a second node named "#@#v<value>" (sigIndex2 = -3).
  double fixedValue = 0.0;
  double recoveryFactor = 1.0;
  /// AC pulse records; copies of an instance share the list.
  std::shared_ptr<PwcAcEDataList> acPulses;
  /// Power of the resistor read from the results (see getWattSignals).
  double power = 0.0;
  /// Resistance in ohms from the netlist's value column: 0 when the line gives none (the
  /// instance's statistics are currents already), NaN when its value is not a resistance.
  double resistance = 0.0;
};

/// True exactly when the node name is "0".
bool isGnd(const std::string& name);

/// The ordered list of instances with the line-format settings of the netlist file.
class zeNetlist {
 public:
  enum eSimDataType { eDefault = 0, eQXF = 1 };

  /// The plain loader; 0 at end of file, 1 on a format error (reported on stdout).
  int loadNetlist(FILE* file, const char* fileName);
  /// The loader of a run with a duration time; same results.
  int loadNetlistPeakCurrents(FILE* file, const char* fileName);
  /// Writes one result line per instance; nothing for a null file or an empty netlist.
  int saveResults(FILE* file) const;

  std::vector<zeInstance> instances;
  /// Set when a loader reaches the end of its file.
  bool loaded = false;
  /// Line-format settings: no command sets them; they start clear (three-field lines) and
  /// come from the environment (see README) when a netlist is loaded.
  bool hasRecoveryFactor = false;
  bool hasExtendedFields = false;
  float valueColumn = 0.0f;
  bool keepBackslashNames = false;
  /// Set by `loadNetlist <file> -resistance` for that file: a fourth field, the resistance.
  bool resistanceColumn = false;

 private:
  /// The conversions of the plain loader's lines under the current settings.
  const char* lineGrammar() const;
  int readLines(FILE* file, const char* fileName, const char* grammar, bool peakCurrents);
};

namespace analysis {

/// Environment variables that set the line-format settings of instance netlists (no command
/// of the command language sets them). A variable that is absent leaves its setting alone.
inline constexpr const char* kRecoveryFactorColumnVariable = "KRA2_NETLIST_RECOVERY_FACTOR";
inline constexpr const char* kExtendedFieldsVariable = "KRA2_NETLIST_EXTENDED_FIELDS";
inline constexpr const char* kValueColumnVariable = "KRA2_NETLIST_VALUE_COLUMN";
inline constexpr const char* kKeepBackslashNamesVariable = "KRA2_NETLIST_KEEP_BACKSLASH_NAMES";

/// Applies those variables: the flags are set by any value but "", "0", "no", "false" and
/// "off"; the value column takes the variable's number.
void applyLineFormatEnvironment(zeNetlist& netlist);

}  // namespace analysis
