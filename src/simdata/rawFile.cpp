// Raw files: parsing a whole file into plots (the parser lives in rawHeader.cpp and
// rawValues.cpp) and reading the values of a plot from the mapping.

#include "simdata/rawFile.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "simdata/detail/rawParser.h"

namespace simdata::raw {

using raw::detail::loadElement;
using simdata::detail::loadDouble;
using simdata::detail::loadFloat;

bool Plot::uniformRecords() const {
  if (layout != DataLayout::kBinary || decoded || variableMajor) {
    return false;
  }
  const Element first = variables.empty() ? Element::kFloat64 : variables.front().element;
  return first != Element::kFloat32 &&
         std::all_of(variables.begin(), variables.end(),
                     [&](const Variable& v) { return v.element == first; });
}

bool parsePlots(std::string_view bytes, const std::string& path, std::vector<Plot>& plots,
                std::string& error, std::vector<std::string>* warnings) {
  detail::Parser parser(bytes);
  try {
    parser.run(plots);
  } catch (const detail::ParseError& failure) {
    error = path + ": " + parser.locate(failure);
    plots.clear();
    return false;
  } catch (const std::bad_alloc&) {
    error = path + ": not enough memory to read the file";
    plots.clear();
    return false;
  }
  if (warnings != nullptr) {
    for (const std::string& warning : parser.warnings()) {
      warnings->push_back(path + ": " + warning);
    }
  }
  return true;
}

std::shared_ptr<const RawFile> RawFile::open(const std::string& path, std::string& error) {
  std::shared_ptr<RawFile> file(new RawFile());
  file->path_ = path;
  std::string mapError;
  if (!file->map_.open(path, mapError)) {
    error = path + ": " + mapError;
    return nullptr;
  }
  const bool parsed = parsePlots(file->map_.view(), path, file->plots_, error, &file->warnings_);
  // A file cut short while it was parsed reads as zeros at the end: that, not the parse
  // error the zeros may have caused, is what to report.
  file->checkUnchanged();
  return parsed ? file : nullptr;
}

void RawFile::checkUnchanged() const { throwIfChanged(path_, map_.stamp(), map_.faultOffset()); }

double RawFile::valueAt(const Plot& plot, int v, int p) const {
  if (v < 0 || v >= plot.variableCount() || p < 0 || p >= plot.points) {
    return 0.0;
  }
  if (plot.decoded) {
    return (*plot.decoded)[static_cast<size_t>(v) * static_cast<size_t>(plot.points) +
                           static_cast<size_t>(p)];
  }
  const Variable& variable = plot.variables[static_cast<size_t>(v)];
  const double value = loadElement(
      map_.data() + plot.dataOffset + variable.offset + static_cast<size_t>(p) * plot.stride(v),
      variable.element);
  return v == 0 && plot.absoluteScale ? std::fabs(value) : value;
}

namespace {

/// Copies values of one column (`count` values `stride` bytes apart) into doubles.
void copyColumn(const char* at, size_t stride, Element element, size_t count, double* out) {
  if (element == Element::kFloat32) {
    for (size_t p = 0; p < count; ++p) {
      out[p] = static_cast<double>(loadFloat(at + p * stride));
    }
  } else {
    for (size_t p = 0; p < count; ++p) {
      out[p] = loadDouble(at + p * stride);
    }
  }
}

void copyColumn(const char* at, size_t stride, Element, size_t count, float* out) {
  for (size_t p = 0; p < count; ++p) {
    out[p] = loadFloat(at + p * stride);
  }
}

/// Gathers columns of binary data into typed outputs. Point-major records are visited in
/// tiles of a few dozen points by a few hundred columns (a blocked transpose): within a tile
/// each output receives a run of consecutive values while the tile's records stay cached.
/// Writing one value to each of ten thousand outputs per record instead misses the cache and
/// the TLB on nearly every store (2-3 times slower). Columns stored one after the other are
/// copied one by one.
template <typename T>
void gatherBinary(const char* base, const Plot& plot, std::span<const int> columns,
                  std::span<T* const> outputs) {
  const size_t points = static_cast<size_t>(plot.points);
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.variableMajor) {
    for (size_t k = 0; k < count; ++k) {
      const Variable& variable = plot.variables[static_cast<size_t>(columns[k])];
      const char* first = base + variable.offset;
      copyColumn(first, plot.stride(columns[k]), variable.element, points, outputs[k]);
      releaseMappedPages(first, first + points * plot.stride(columns[k]));
    }
    return;
  }
  // Visit the columns in record order so each record is read front to back.
  std::vector<size_t> order(count);
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return columns[a] < columns[b]; });
  constexpr size_t kTilePoints = 32;
  constexpr size_t kTileColumns = 256;
  for (size_t p0 = 0; p0 < points; p0 += kTilePoints) {
    const size_t p1 = std::min(points, p0 + kTilePoints);
    for (size_t k0 = 0; k0 < count; k0 += kTileColumns) {
      const size_t k1 = std::min(count, k0 + kTileColumns);
      for (size_t k = k0; k < k1; ++k) {
        const Variable& variable = plot.variables[static_cast<size_t>(columns[order[k]])];
        copyColumn(base + variable.offset + p0 * plot.recordBytes, plot.recordBytes,
                   variable.element, p1 - p0, outputs[order[k]] + p0);
      }
    }
  }
}

bool columnsValid(const Plot& plot, std::span<const int> columns, size_t count) {
  return std::all_of(columns.begin(), columns.begin() + static_cast<std::ptrdiff_t>(count),
                     [&](int c) { return c >= 0 && c < plot.variableCount(); });
}

}  // namespace

void RawFile::gather(const Plot& plot, std::span<const int> columns,
                     std::span<double* const> outputs) const {
  const size_t points = static_cast<size_t>(plot.points);
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.decoded) {
    for (size_t k = 0; k < count; ++k) {
      if (columns[k] < 0 || columns[k] >= plot.variableCount()) {
        continue;  // callers pass columns of this plot only
      }
      const double* column = plot.decoded->data() + static_cast<size_t>(columns[k]) * points;
      std::copy(column, column + points, outputs[k]);
    }
    return;
  }
  if (!columnsValid(plot, columns, count)) {
    return;  // callers pass columns of this plot only
  }
  gatherBinary<double>(map_.data() + plot.dataOffset, plot, columns.first(count),
                       outputs.first(count));
  if (plot.absoluteScale) {
    for (size_t k = 0; k < count; ++k) {
      if (columns[k] == 0) {
        std::transform(outputs[k], outputs[k] + points, outputs[k],
                       [](double v) { return std::fabs(v); });
      }
    }
  }
}

void RawFile::gatherFloats(const Plot& plot, std::span<const int> columns,
                           std::span<float* const> outputs) const {
  const size_t count = std::min(columns.size(), outputs.size());
  if (plot.decoded || !columnsValid(plot, columns, count)) {
    return;
  }
  std::vector<int> singles;
  std::vector<float*> targets;
  for (size_t k = 0; k < count; ++k) {
    if (plot.variables[static_cast<size_t>(columns[k])].element == Element::kFloat32) {
      singles.push_back(columns[k]);
      targets.push_back(outputs[k]);
    }
  }
  gatherBinary<float>(map_.data() + plot.dataOffset, plot, singles, targets);
}

}  // namespace simdata::raw
