#pragma once
// The statistics record of one instance and the AC pulse record appended during AC analysis.

#include <memory>
#include <vector>

namespace kraDB {

/// One AC pulse.
struct PwcAcEData {
  /// When the pulse begins and ends.
  double start = 0.0;
  double end = 0.0;
  /// Its largest magnitude and when that was first reached.
  double maximum = 0.0;
  double maximumTime = 0.0;
  /// The width for half-peak pulses; the integral of d^2 / maximum^2 for threshold pulses.
  double fifth = 0.0;
};

}  // namespace kraDB

using PwcAcEDataList = std::vector<kraDB::PwcAcEData>;

/// Statistics of the difference of two node waveforms over a time window.
struct voltageData {
  double peak = 0.0;
  double peakValue = 0.0;
  double avg = 0.0;
  double rawAvg = 0.0;
  double avgPositive = 0.0;
  double avgNegative = 0.0;
  double rms = 0.0;
  double absAvg = 0.0;
  double peakTime = 0.0;
  double dutyRatio = 0.0;
  double pulseWidth = 0.0;
  PwcAcEDataList* acPulses = nullptr;  // not owned, may be null
};

/// The value a record starts with before a run measures it: duty ratio 1, pulse width 1e99.
inline voltageData freshVoltageData() {
  voltageData data;
  data.dutyRatio = 1.0;
  data.pulseWidth = 1e99;
  return data;
}
