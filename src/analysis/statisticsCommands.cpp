// The statistics settings of the session as the kernels of analysis/statistics.h take them.

#include "analysis/detail/sessionStatistics.h"
#include "analysis/settings.h"
#include "app/analyzeNetlist.h"

namespace analysis::detail {

StatisticsSettings settingsOf(const zeAnalyzeNetlist& session, int ignoreSign) {
  const ProcessSettings& process = processSettings();
  return {
      .durationTime = session.durationTime,
      .startTime = session.startTime,
      .stopTime = session.stopTime,
      .ignoreSign = ignoreSign,
      .acAnalysis = process.ACAnalysis,
      .acPeakMethod =
          session.useOldACPeakMethod ? AcPeakMethod::kHalfPeakPulses : AcPeakMethod::kAreaOverPeak,
      .recoveryFactor = process.recoveryFactor,
      .emRecoveryFactorGiven = process.emRecoveryFactorGiven,
      .emRecoveryFactor = process.emRecoveryFactor,
      .acPulseThreshold = session.acPulseThreshold,
      .collectAcPulses = session.collectAcPulses,
      .windowMode = process.windowMode,
  };
}

}  // namespace analysis::detail
