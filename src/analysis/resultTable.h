#pragma once
// The result table of saveResultTable: the run's results as CSV for spreadsheets and data
// frames. Comment lines (starting with '#') say where the numbers came from; a header row
// names the columns; every number is written in the shortest form that reads back to the
// same double, so a reader gets exactly what was computed.

#include <cstdio>
#include <string>
#include <vector>

#include "analysis/netlist.h"
#include "analysis/settings.h"

namespace analysis {

/// Where the numbers of a result table came from.
struct TableProvenance {
  std::string results;   ///< the results path opened
  std::string analysis;  ///< the analysis selected
  RunWindow window;      ///< the last run's window and mode (ran false: no run yet)
};

/// Writes the whole table to `file`: comments, header row and one row per instance in
/// netlist order. False when a write failed.
bool writeResultTable(std::FILE* file, const std::vector<zeInstance>& instances,
                      const TableProvenance& provenance);

/// A double in its shortest round-trip form ("0.1", "1e+99", "inf", "nan").
std::string shortestNumber(double value);

/// A text field as CSV writes it: quoted (with quotes doubled) when it holds a separator, a
/// quote, a '#', a line break or blanks at either end.
std::string csvField(const std::string& text);

}  // namespace analysis
