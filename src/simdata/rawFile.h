#pragma once
// SPICE raw files: the header parser, the plot descriptors it produces, and access to the
// data of a plot. A raw file is a sequence of plots, each a text header ("Key: value"
// lines), a variable list, and the data, either as text ("Values:") or as little-endian
// float64 records ("Binary:"). Parsing is split into header -> plot descriptor -> data
// access so that further dialects and layouts (variable-major data, float32 values, a
// transposed column store) can be added beside the ones read today.

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

/// How the data section of a plot is written.
enum class DataLayout { kAscii, kBinary };

/// Whether every value of a plot is one real or a (real, imaginary) pair.
enum class Numbers { kReal, kComplex };

struct Variable {
  std::string name;                  ///< as written, e.g. "v(n1)" or "time"
  std::string type;                  ///< the type word, e.g. "voltage"
  std::vector<std::string> options;  ///< further words, e.g. "grid=3", "dims=1"
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
  /// Binary data: byte offset of the first record and the size of one record.
  size_t dataOffset = 0;
  size_t recordBytes = 0;
  /// Text data is decoded while parsing (it has to be tokenised to be checked anyway): the
  /// real parts, variable-major, variable v at [v * points, (v + 1) * points).
  std::shared_ptr<const std::vector<double>> decoded;

  int variableCount() const { return static_cast<int>(variables.size()); }
  /// Bytes one value takes in a binary record.
  size_t valueBytes() const { return numbers == Numbers::kComplex ? 16 : 8; }
};

/// Parses every plot of a raw file held in `bytes`. On failure returns false and sets `error`
/// to a text naming `path` and the line (in text parts) or byte offset of the fault.
bool parsePlots(std::string_view bytes, const std::string& path, std::vector<Plot>& plots,
                std::string& error);

/// A mapped raw file and its plots.
class RawFile {
 public:
  /// Maps and parses the file; null with `error` set when it cannot be read.
  static std::shared_ptr<const RawFile> open(const std::string& path, std::string& error);

  const std::string& path() const { return path_; }
  const std::vector<Plot>& plots() const { return plots_; }
  /// The mapped bytes of the whole file.
  std::string_view bytes() const { return map_.view(); }

  /// The real part of variable `v` at point `p` of a plot of this file (0.0 out of range).
  double valueAt(const Plot& plot, int v, int p) const;

  /// Copies the real parts of the listed variables of a plot into `outputs` (one array of
  /// `plot.points` doubles per variable). Binary data is point-major, so all columns are
  /// gathered in a single pass over the records rather than one strided pass per column.
  void gather(const Plot& plot, std::span<const int> columns,
              std::span<double* const> outputs) const;

 private:
  RawFile() = default;
  std::string path_;
  MappedFile map_;
  std::vector<Plot> plots_;
};

}  // namespace simdata::raw
