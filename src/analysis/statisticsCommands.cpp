// The statistics settings of the session as the kernels of analysis/statistics.h take them.

#include "analysis/detail/sessionStatistics.h"
#include "analysis/settings.h"
#include "app/analyzeNetlist.h"

namespace analysis::detail {

StatisticsSettings settingsOf(const zeAnalyzeNetlist& session, int ignoreSign) {
  const ProcessSettings& process = processSettings();
  StatisticsSettings settings;
  settings.durationTime = session.durationTime;
  settings.startTime = session.startTime;
  settings.stopTime = session.stopTime;
  settings.ignoreSign = ignoreSign;
  settings.acAnalysis = process.ACAnalysis;
  settings.acPeakMethod =
      session.useOldACPeakMethod ? AcPeakMethod::kHalfPeakPulses : AcPeakMethod::kAreaOverPeak;
  settings.recoveryFactor = process.recoveryFactor;
  settings.emRecoveryFactorGiven = process.emRecoveryFactorGiven;
  settings.emRecoveryFactor = process.emRecoveryFactor;
  settings.acPulseThreshold = session.acPulseThreshold;
  settings.collectAcPulses = session.collectAcPulses;
  return settings;
}

}  // namespace analysis::detail
