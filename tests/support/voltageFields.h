#pragma once
// The measured fields of a statistics record by name, for the tests that set, compare or print
// records field by field.

#include <map>
#include <string>

#include "analysis/voltageData.h"

namespace testing_support {

/// Every double field of voltageData that the statistics write.
inline const std::map<std::string, double voltageData::*>& voltageFields() {
  static const std::map<std::string, double voltageData::*> fields = {
      {"peak", &voltageData::peak},
      {"peakValue", &voltageData::peakValue},
      {"avg", &voltageData::avg},
      {"rawAvg", &voltageData::rawAvg},
      {"avgPositive", &voltageData::avgPositive},
      {"avgNegative", &voltageData::avgNegative},
      {"rms", &voltageData::rms},
      {"absAvg", &voltageData::absAvg},
      {"peakTime", &voltageData::peakTime},
      {"dutyRatio", &voltageData::dutyRatio},
      {"pulseWidth", &voltageData::pulseWidth}};
  return fields;
}

}  // namespace testing_support
