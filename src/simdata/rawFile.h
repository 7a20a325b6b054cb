#pragma once
// SPICE raw files: the header parser, the plot descriptors it produces, and access to the
// data of a plot. A raw file is a sequence of plots, each a text header ("Key: value"
// lines, 8-bit or UTF-16), a variable list, and the data, either as text ("Values:") or as
// little-endian binary values ("Binary:"). The simulators differ in the details (see
// parsePlots): binary values are float64, float32 or complex pairs per variable, stored point
// by point or, in "fastaccess" files, variable by variable; "stepped" plots concatenate runs.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simdata/mappedFile.h"

namespace simdata::raw {

/// Error code the raw reader leaves behind when a file cannot be read.
inline constexpr uint16_t kRawErrorCode = 30;
/// Code of the warning left behind by a file that was read but had something to report
/// (bytes after the last plot).
inline constexpr uint16_t kRawWarningCode = 33;

/// How the data section of a plot is written.
enum class DataLayout { kAscii, kBinary };

/// Whether every value of a plot is one real or a (real, imaginary) pair.
enum class Numbers { kReal, kComplex };

/// How one value of a variable is stored in binary data.
enum class Element : uint8_t { kFloat64, kFloat32, kComplex };

/// Bytes of one stored value.
inline size_t elementBytes(Element element) {
  return element == Element::kFloat32 ? 4 : element == Element::kComplex ? 16 : 8;
}

struct Variable {
  std::string name;                  ///< as written, e.g. "v(n1)" or "time"
  std::string type;                  ///< the type word, e.g. "voltage"
  std::vector<std::string> options;  ///< further words, e.g. "grid=3", "dims=1"
  /// Binary data: how each value is stored, and the byte offset of the variable's first value
  /// from the start of the data (within the first record, or the start of its column).
  Element element = Element::kFloat64;
  size_t offset = 0;
  /// Values that are data (from "dims="); the rest of the plot's points hold padding zeros.
  int length = 0;
};

/// One plot of a raw file: its header fields, its variables, and where its data lies.
struct Plot {
  std::string title;
  std::string date;
  std::string plotname;
  std::string command;
  std::vector<std::string> flags;
  Numbers numbers = Numbers::kReal;
  DataLayout layout = DataLayout::kAscii;
  std::vector<Variable> variables;
  /// Number of points (records); every variable has one value per point.
  int points = 0;
  /// Byte offset of the plot's first header line in the file.
  size_t headerOffset = 0;
  /// The header was UTF-16 text; the writer then stores real values other than the first
  /// variable's as float32 (unless the plot says "double").
  bool utf16Header = false;
  /// Binary data: byte offset of the first value and the size of one record (a point's
  /// values of all variables).
  size_t dataOffset = 0;
  size_t recordBytes = 0;
  /// Binary data stored variable by variable ("fastaccess") instead of point by point.
  bool variableMajor = false;
  /// The time values of the plot carry a sign flag that is no part of the value: the scale
  /// is read as its absolute value.
  bool absoluteScale = false;
  /// "stepped" plots: the first point of every run (the first is 0); empty otherwise. A run
  /// starts where the scale returns to its first value.
  std::vector<int> stepStarts;
  /// Text data, and binary data whose records differ in size ("unpadded"), is decoded while
  /// parsing (it has to be read through to be checked anyway): the real parts,
  /// variable-major, variable v at [v * points, (v + 1) * points).
  std::shared_ptr<const std::vector<double>> decoded;

  int variableCount() const { return static_cast<int>(variables.size()); }
  bool stepped() const { return !stepStarts.empty(); }
  /// Bytes between two values of variable v in binary data.
  size_t stride(int v) const {
    return variableMajor ? elementBytes(variables[static_cast<size_t>(v)].element) : recordBytes;
  }
  /// Whether every variable is stored alike, point by point, in mapped binary data (the
  /// shape a column store transposes).
  bool uniformRecords() const;
  /// Bytes one value takes in a binary record when the records are uniform.
  size_t valueBytes() const { return numbers == Numbers::kComplex ? 16 : 8; }
};

/// Parses every plot of a raw file held in `bytes`. On failure returns false and sets `error`
/// to a text naming `path` and the line (in text parts) or byte offset of the fault.
/// Bytes after the last plot that do not start another plot are left alone; each such finding
/// is added to `warnings` when given.
bool parsePlots(std::string_view bytes, const std::string& path, std::vector<Plot>& plots,
                std::string& error, std::vector<std::string>* warnings = nullptr);

/// A mapped raw file and its plots.
class RawFile {
 public:
  /// Maps and parses the file; null with `error` set when it cannot be read. Throws
  /// FileChanged when the file changed while it was parsed.
  static std::shared_ptr<const RawFile> open(const std::string& path, std::string& error);

  const std::string& path() const { return path_; }
  const std::vector<Plot>& plots() const { return plots_; }
  /// The mapped bytes of the whole file.
  std::string_view bytes() const { return map_.view(); }
  /// Throws FileChanged when the file is no longer as it was opened (shorter, longer,
  /// rewritten or replaced): what was read from it since may be wrong.
  void checkUnchanged() const;
  /// What the parser found worth reporting although the file was read (see parsePlots).
  const std::vector<std::string>& warnings() const { return warnings_; }

  /// The real part of variable `v` at point `p` of a plot of this file (0.0 out of range),
  /// widened from float32 where stored so.
  double valueAt(const Plot& plot, int v, int p) const;

  /// Copies the real parts of the listed variables of a plot into `outputs` (one array of
  /// `plot.points` doubles per variable). Point-major binary data is gathered in a single pass
  /// over the records rather than one strided pass per column.
  void gather(const Plot& plot, std::span<const int> columns,
              std::span<double* const> outputs) const;
  /// The same for variables stored as float32, copied without widening (half the memory).
  /// Columns stored otherwise are left alone.
  void gatherFloats(const Plot& plot, std::span<const int> columns,
                    std::span<float* const> outputs) const;

 private:
  RawFile() = default;
  std::string path_;
  MappedFile map_;
  std::vector<Plot> plots_;
  std::vector<std::string> warnings_;
};

}  // namespace simdata::raw
