#pragma once
// The violations report of the EM check (tab-separated, worst first, numbers in the shortest
// form that reads back to the same double) and the summary lines for the log.

#include <cstdio>
#include <span>
#include <string>
#include <vector>

#include "em/check.h"

namespace em {

/// Where the currents came from and under which conditions, for the report's first line.
struct Provenance {
  /// The results (or database) path.
  std::string source;
  /// The analysis name, or "database".
  std::string analysis;
  /// The window in seconds as the run stored it.
  double windowStart = 0.0;
  double windowStop = 0.0;
  /// The window mode of the run ("legacy" or "exact"), or "database".
  std::string mode;
  double temperatureC = 0.0;
  /// Which setting gave the temperature: "emTemperature", "saveTemperature", "database" or
  /// "reference".
  std::string temperatureFrom;
  std::string rules;
};

/// The shortest text that reads back to the same double; "NaN" for NaN.
std::string formatNumber(double value);

/// Writes the two header lines and one line per row. False when a write failed.
bool writeReport(std::FILE* file, const Provenance& provenance, std::span<const Subject> subjects,
                 const Geometry& geometry, const Outcome& outcome);

/// The log's summary: one line with the count of each verdict, then up to `worstCount` lines
/// of the worst instances with their ratios (each line ends in a line feed).
std::vector<std::string> summaryLines(std::span<const Subject> subjects, const Outcome& outcome,
                                      size_t worstCount = 5);

}  // namespace em
