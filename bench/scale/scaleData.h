#pragma once
// Deterministic data of the scale benchmark: a binary raw file laid out as ngspice writes it
// (a time axis and N node voltages by T points, real doubles, point-major records), the
// instance netlist of N resistors between those nodes, and the command files that open,
// select, load, run over the whole window and save.

#include <cstdint>
#include <string>

namespace bench {

struct ScaleShape {
  int64_t nodes = 100000;
  int64_t points = 1000;
};

/// Where the files of one data set lie (all in one folder).
struct ScaleFiles {
  explicit ScaleFiles(const std::string& folder);
  std::string folder;
  std::string raw;
  std::string netlist;
  std::string result;
  /// One command file per phase, and all of them together.
  std::string openCmd;
  std::string loadCmd;
  std::string runCmd;
  std::string saveCmd;
  std::string allCmd;
};

/// Bytes of the raw file's data section (the records).
int64_t dataBytes(const ScaleShape& shape);

/// Name of node k (1-based): "n<k>"; the raw file lists it as "v(n<k>)".
std::string nodeName(int64_t k);

/// The time of point p: a non-uniform but increasing axis starting at 0.
double timeAt(int64_t p);

/// Writes the raw file, the netlist and the command files; false with a message on stderr
/// when a file cannot be written. The same shape always gives the same bytes.
bool writeScaleData(const ScaleShape& shape, const ScaleFiles& files);

}  // namespace bench
