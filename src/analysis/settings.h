#pragma once
// Process-wide analysis settings: set by the command interpreter, read by the statistics.

#include "analysis/statistics.h"

namespace analysis {

struct ProcessSettings {
  bool ACAnalysis = false;
  bool emRecoveryFactorGiven = false;
  float recoveryFactor = 0.0f;
  float emRecoveryFactor = 1.0f;
  /// Set by windowMode; legacy unless a command file asks for exact windows.
  WindowMode windowMode = WindowMode::kLegacy;
};

/// The one set of settings of this process.
ProcessSettings& processSettings();

/// The window of the last run as its command gave it, for the provenance of result tables.
struct RunWindow {
  bool ran = false;
  double start = 0.0;
  double stop = 0.0;
  WindowMode mode = WindowMode::kLegacy;
};

}  // namespace analysis
