#pragma once
// Scalar values of sources and resistors in the simulation results: the voltage and current
// of every voltage or current source, and the dissipated power of resistors.

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "simdata/resultsReader.h"

/// Voltage and current of the sources of a results directory, by source name.
class zeVsrc {
 public:
  struct oneSource_t {
    double voltage = 0.0;
    double current = 0.0;
  };
  using SourceMap = std::map<std::string, std::shared_ptr<oneSource_t>>;

  /// Sets the voltage of source `name`, creating its record when absent.
  void addVoltage(std::string name, double value);
  /// Sets the current of source `name`, creating its record when absent.
  void addCurrent(std::string name, double value);
  const SourceMap& sources() const { return sources_; }

 private:
  oneSource_t& record(std::string&& name);
  SourceMap sources_;
};

namespace analysis {

/// Environment variable that turns on reading source and resistor values from the results.
inline constexpr const char* kSourceValuesVariable = "ENABLE_VFI_L_RON_DATA_READING_FROM_QXF";

/// Splits at every character of `separators`; n separators give n + 1 tokens, empty ones
/// included.
std::vector<std::string_view> splitAnyOf(std::string_view text, std::string_view separators);

/// The resistor name of a power signal name: the second-to-last token after splitting at
/// blank, tab, double quote, ':' and '.'; empty when the name has fewer than two tokens.
std::string resistorPowerKey(std::string_view signalName);

/// The signals of a dataset whose type name is in `typeNames`, grouped by type in order of
/// the types' first appearance, each group in list order.
std::vector<const simdata::Signal*> signalsOfTypes(const simdata::SignalList& signals,
                                                   const std::vector<std::string>& typeNames);

/// Records the scalar voltage ("<source>:v") and current ("<source>:i") of every voltage and
/// current source of the dataset. Values that are not scalars are skipped.
void readSourceValues(simdata::Dataset& dataset, zeVsrc& sources);

/// Records the scalar power of every resistor signal whose name contains "pwr", keyed by
/// resistorPowerKey; a later signal with the same key replaces an earlier one.
void readResistorPowers(simdata::Dataset& dataset, std::map<std::string, double>& powers);

}  // namespace analysis
