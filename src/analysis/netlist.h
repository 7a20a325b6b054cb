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
  bool valid = true;
  int orientation = -1;
  int direction = -1;
  int directionKnown = 0;
  double fixedValue = 0.0;
  double recoveryFactor = 1.0;
  std::shared_ptr<PwcAcEDataList> acPulses;
  double power = 0.0;
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
  bool loaded = false;
  bool hasRecoveryFactor = false;
  bool hasExtendedFields = false;
  float valueColumn = 0.0f;
  bool keepBackslashNames = false;
};
