// The statistics operations of the session: thin adapters from reader values and session
// settings to the kernels of analysis/statistics.h.

#include "analysis/detail/sessionStatistics.h"
#include "analysis/instanceMeasure.h"
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

void zeAnalyzeNetlist::getVoltageDiff(const simdata::ValueArray* values, int idx1, int idx2,
                                      voltageData& out) {
  analysis::dcDifference(values, idx1, idx2, out);
}

void zeAnalyzeNetlist::getVoltageDiff(const simdata::ValueArray* values, int idx1, int idx2,
                                      voltageData& out, zeInstance inst, int ignoreSign,
                                      int orientation, int& direction, double ref) {
  analysis::WaveScratch scratch;
  const analysis::TimeRangeLookup timeRange = [this](const simdata::Value* waveform, int& start,
                                                     int& stop) {
    getTimeRangeIndices(waveform, start, stop);
  };
  direction = analysis::transientDifference(
      values, idx1, idx2, analysis::detail::settingsOf(*this, ignoreSign),
      analysis::traitsOf(inst, orientation), ref, timeRange, scratch, out);
}

void zeAnalyzeNetlist::getMaxAvgRmsDiff(int start, int stop, const simdata::DataVector* x,
                                        const simdata::DataVector* y, voltageData& out,
                                        zeInstance inst, int ignoreSign, int orientation,
                                        int& direction, double ref) {
  std::vector<double> xScratch;
  std::vector<double> yScratch;
  direction = analysis::measureOneWaveform(
      analysis::detail::settingsOf(*this, ignoreSign), analysis::traitsOf(inst, orientation),
      {start, stop}, analysis::samplesOf(x, xScratch), analysis::samplesOf(y, yScratch), ref, out);
}

void zeAnalyzeNetlist::getMaxAvgRmsDiffNew(const simdata::DataVector* x1,
                                           const simdata::DataVector* x2,
                                           const simdata::DataVector* y1,
                                           const simdata::DataVector* y2, voltageData& out,
                                           zeInstance inst, int ignoreSign, int orientation,
                                           int& direction) {
  analysis::WaveScratch scratch;
  direction = analysis::measureTwoWaveforms(
      analysis::detail::settingsOf(*this, ignoreSign), analysis::traitsOf(inst, orientation),
      analysis::samplesOf(x1, scratch.x1), analysis::samplesOf(x2, scratch.x2),
      analysis::samplesOf(y1, scratch.y1), analysis::samplesOf(y2, scratch.y2), out);
}

void zeAnalyzeNetlist::getACDutyRatio(const simdata::DataVector* x1, const simdata::DataVector* x2,
                                      const simdata::DataVector* y1, const simdata::DataVector* y2,
                                      double& dutySum, double peakTime, double& pulseWidth,
                                      voltageData& out) {
  analysis::WaveScratch scratch;
  analysis::halfPeakDutyTwoWaveforms(
      analysis::detail::settingsOf(*this, 0), analysis::samplesOf(x1, scratch.x1),
      analysis::samplesOf(x2, scratch.x2), analysis::samplesOf(y1, scratch.y1),
      analysis::samplesOf(y2, scratch.y2), dutySum, peakTime, pulseWidth, out);
}

void zeAnalyzeNetlist::addPwcAcEData(PwcAcEDataList* list, const kraDB::PwcAcEData& record) {
  analysis::recordAcPulse(analysis::detail::settingsOf(*this, 0), list, record);
}
