#pragma once
// Process-wide analysis settings: set by the command interpreter, read by the statistics.

namespace analysis {

struct ProcessSettings {
  bool ACAnalysis = false;
  bool emRecoveryFactorGiven = false;
  float recoveryFactor = 0.0f;
  float emRecoveryFactor = 1.0f;
};

/// The one set of settings of this process.
ProcessSettings& processSettings();

}  // namespace analysis
