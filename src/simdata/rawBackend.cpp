#include "simdata/rawBackend.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <vector>

#include "simdata/columnStore.h"
#include "simdata/rawHeaderText.h"
#include "simdata/viewValues.h"
#include "support/text.h"

namespace simdata {

namespace raw {

using support::lowerAscii;

std::string_view analysisTitle(std::string_view plotname) {
  // "Step Analysis: Step 1 of 3 params:  name = VGS value = 0.8  AC Analysis": the title
  // follows the value of the last parameter.
  const size_t params = plotname.find(" params:");
  if (params == std::string_view::npos) {
    return plotname;
  }
  const size_t value = plotname.rfind("value = ");
  if (value == std::string_view::npos || value < params) {
    return plotname;
  }
  const size_t valueEnd = plotname.find_first_of(" \t", value + 8);
  if (valueEnd == std::string_view::npos) {
    return plotname;
  }
  const size_t title = plotname.find_first_not_of(" \t", valueEnd);
  return title == std::string_view::npos ? plotname : plotname.substr(title);
}

std::string analysisKind(std::string_view plotname) {
  const std::string name = lowerAscii(analysisTitle(plotname));
  // Matched on substrings, most specific first: some writers put words around the title
  // ("DC operating point", "Noise Spectral Density Curves").
  static const std::pair<const char*, const char*> kKinds[] = {
      {"transient", "tran"},   {"operating point", "op"}, {"dc transfer", "dc"},
      {"ac analysis", "ac"},   {"noise", "noise"},        {"transfer function", "tf"},
      {"sensitivity", "sens"}, {"pole-zero", "pz"},       {"distortion", "disto"},
  };
  for (const auto& [text, kind] : kKinds) {
    if (name.find(text) != std::string::npos) {
      return kind;
    }
  }
  const size_t start = name.find_first_not_of(" \t");
  if (start == std::string::npos) {
    return "plot";
  }
  const size_t end = name.find_first_of(" \t", start);
  return name.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

std::string analysisTypeOfKind(const std::string& kind) {
  if (kind == "op" || kind == "dc") {
    return "dc";
  }
  return kind;
}

bool plotHasAxis(const Plot& plot) {
  const std::string kind = analysisKind(plot.plotname);
  return kind != "op" && kind != "tf" &&
         lowerAscii(plot.plotname).find("integrated noise") == std::string::npos;
}

std::string bareName(std::string_view name) {
  if (name.size() >= 4 && (name[0] == 'v' || name[0] == 'V') && name[1] == '(' &&
      name.back() == ')') {
    return std::string(name.substr(2, name.size() - 3));
  }
  return std::string(name);
}

}  // namespace raw

namespace {

namespace fs = std::filesystem;

/// One plot of a raw file as a dataset.
class RawDataset : public FileDataset {
 public:
  RawDataset(std::shared_ptr<const raw::RawFile> file, size_t plotIndex, std::string name,
             std::string type, const std::string& dirName)
      : FileDataset(std::move(name), std::move(type), raw::kRawErrorCode),
        file_(std::move(file)),
        plot_(file_->plots()[plotIndex]),
        hasAxis_(raw::plotHasAxis(plot_)),
        waveforms_(hasAxis_ || (plot_.stepped() && plot_.points > 1)) {
    labels_ = std::make_shared<ValueLabels>(ValueLabels{plot_.plotname, name_, dirName});
    for (int v = 0; v < plot_.variableCount(); ++v) {
      const raw::Variable& variable = plot_.variables[static_cast<size_t>(v)];
      signals_.add(Signal{raw::bareName(variable.name), variable.name, variable.type, v});
    }
  }

  std::unique_ptr<ValueArray> read(const SignalArray& signals) override {
    std::vector<int> columns(static_cast<size_t>(signals.count()));
    for (int i = 0; i < signals.count(); ++i) {
      columns[static_cast<size_t>(i)] = static_cast<int>(idOf(signals.at(i)));
    }
    std::vector<std::unique_ptr<Value>> values = readColumns(columns);
    if (values.size() != columns.size()) {
      return nullptr;  // the last error says why
    }
    auto array = std::make_unique<ValueArray>();
    for (auto& value : values) {
      array->add(std::move(value));
    }
    return array;
  }

  void expectBulkReads(int count) override { storeWanted_ = storeWanted_ || count > 1; }

  /// Real point-major records of a plain plot (not stepped, no sign-flagged scale) stream.
  bool streamsSignals() const override {
    return hasAxis_ && plot_.uniformRecords() && plot_.numbers == raw::Numbers::kReal &&
           !plot_.absoluteScale && !plot_.stepped() && plot_.points > 0;
  }

  bool streamSignals(const SignalArray& signals, const PointChunkVisitor& visit) override {
    if (!streamsSignals()) {
      return false;
    }
    std::vector<int> columns(static_cast<size_t>(signals.count()));
    for (int i = 0; i < signals.count(); ++i) {
      columns[static_cast<size_t>(i)] = static_cast<int>(idOf(signals.at(i)));
      if (columns[static_cast<size_t>(i)] < 0) {
        return false;
      }
    }
    // Each chunk is checked before it is used: a file cut short reads as zeros past its end.
    raw::streamColumns(recordLayout(), columns,
                       [&](size_t first, size_t count, std::span<const double* const> values) {
                         file_->checkUnchanged();
                         visit(first, count, values);
                       });
    return true;
  }

  std::optional<StoredColumn> storedColumn(const Signal* signal) const override {
    return storedVariable(idOf(signal));
  }
  std::optional<StoredColumn> storedScale() const override {
    return hasAxis_ && !plot_.absoluteScale ? storedVariable(0) : std::nullopt;
  }

  /// The scale's extent (over every run of a stepped plot, which also gets a "step"
  /// dimension counting its runs).
  const Sweep* sweep() const override {
    if (!hasAxis_) {
      return nullptr;
    }
    if (!sweep_) {
      const Range range = extentOf(*scaleVector());
      sweep_.emplace();
      sweep_->add(SweepDimension{plot_.variables.front().name, range});
      if (plot_.stepped()) {
        sweep_->add(SweepDimension{
            "step", Range{kInt32, 1.0, static_cast<double>(plot_.stepStarts.size())}});
      }
    }
    return &*sweep_;
  }

 private:
  /// Memory holding one column's values, as doubles or as float32, and its owner.
  struct Column {
    std::shared_ptr<const void> owner;
    std::span<const double> doubles;
    std::span<const float> floats;
    bool mayHoldNaN = true;
  };

  /// An array for gathered values, not zero-filled first: the gather writes every element.
  template <typename T>
  struct Buffer {
    std::shared_ptr<T[]> data;
    size_t size = 0;
  };
  template <typename T>
  Buffer<T> newBuffer() const {
    const size_t size = static_cast<size_t>(plot_.points);
    return Buffer<T>{std::make_shared_for_overwrite<T[]>(size), size};
  }
  static Column columnOf(const Buffer<double>& buffer) {
    return Column{buffer.data, {buffer.data.get(), buffer.size}, {}};
  }
  static Column columnOf(const Buffer<float>& buffer) {
    return Column{buffer.data, {}, {buffer.data.get(), buffer.size}};
  }

  std::unique_ptr<Value> valueOfSignal(int64_t id) const override {
    std::vector<std::unique_ptr<Value>> values = readColumns({static_cast<int>(id)});
    return values.empty() ? nullptr : std::move(values.front());
  }

  /// A variable of mapped binary data stored as float64 (or complex), viewed in place; the
  /// runs of a stepped plot are not one waveform, so they are read as values instead.
  std::optional<StoredColumn> storedVariable(int64_t id) const {
    if (id < 0 || plot_.decoded || plot_.layout != raw::DataLayout::kBinary || plot_.stepped() ||
        plot_.variables[static_cast<size_t>(id)].element == raw::Element::kFloat32) {
      return std::nullopt;
    }
    const raw::Variable& variable = plot_.variables[static_cast<size_t>(id)];
    return StoredColumn{file_, file_->bytes().data() + plot_.dataOffset + variable.offset,
                        static_cast<size_t>(plot_.points), plot_.stride(static_cast<int>(id))};
  }

  /// Variables stored as float32 are kept so (type code 5); the scale is always real (the
  /// real part of a complex scale); other variables of a complex plot are of an "other kind".
  std::shared_ptr<const ViewVector> makeVector(int column, Column data) const {
    const raw::Variable& variable = plot_.variables[static_cast<size_t>(column)];
    const char* units = unitsOfTypeWord(variable.type);
    if (!data.floats.empty() || (data.doubles.empty() && isSingle(column))) {
      return std::make_shared<const ViewVector>(variable.name, units, std::move(data.owner),
                                                data.floats);
    }
    const int type = column == 0 || plot_.numbers == raw::Numbers::kReal ? kFloat64 : kComplex;
    return std::make_shared<const ViewVector>(variable.name, units, type, std::move(data.owner),
                                              data.doubles, data.mayHoldNaN);
  }

  /// Whether a column is read as float32 from mapped binary data.
  bool isSingle(int column) const {
    return !plot_.decoded && plot_.layout == raw::DataLayout::kBinary &&
           plot_.variables[static_cast<size_t>(column)].element == raw::Element::kFloat32;
  }

  /// Decoded data: a column is a view into it.
  Column decodedColumn(int column) const {
    const size_t points = static_cast<size_t>(plot_.points);
    return Column{plot_.decoded,
                  std::span<const double>(
                      plot_.decoded->data() + static_cast<size_t>(column) * points, points),
                  {}};
  }

  /// The column store of a binary plot that is read in several batches: built at the
  /// first bulk read after such reads were announced. Null when not wanted or when it cannot
  /// be built (the records are then gathered batch by batch). Only records of uniform
  /// float64 (or complex) values are transposed; other layouts are read directly.
  const raw::ColumnStore* columnStore() const {
    if (!store_ && storeWanted_ && !storeFailed_ && plot_.uniformRecords() &&
        !plot_.absoluteScale && plot_.points > 0) {
      std::string error;
      store_ = raw::ColumnStore::build(recordLayout(), raw::columnStoreSettings(), error);
      storeFailed_ = !store_;
      file_->checkUnchanged();
    }
    return store_.get();
  }

  /// The plot's records as the column access reads them (uniform records only).
  raw::RecordLayout recordLayout() const {
    raw::RecordLayout records;
    records.base = file_->bytes().data() + plot_.dataOffset;
    records.points = static_cast<size_t>(plot_.points);
    records.columns = static_cast<size_t>(plot_.variableCount());
    records.recordBytes = plot_.recordBytes;
    records.valueBytes = plot_.valueBytes();
    return records;
  }

  /// A column of the store in memory, viewed in place.
  Column storedColumn(int column) const {
    return Column{store_,
                  store_->view(static_cast<size_t>(column)),
                  {},
                  store_->holdsNaN(static_cast<size_t>(column))};
  }

  /// The scale (variable 0), read once and shared by every value of the dataset.
  const std::shared_ptr<const ViewVector>& scaleVector() const {
    if (!scale_) {
      if (plot_.decoded) {
        scale_ = makeVector(0, decodedColumn(0));
      } else if (store_ && store_->inMemory()) {
        scale_ = makeVector(0, storedColumn(0));
      } else {
        const Buffer<double> buffer = newBuffer<double>();
        const int column = 0;
        double* out = buffer.data.get();
        file_->gather(plot_, {&column, 1}, {&out, 1});
        file_->checkUnchanged();
        scale_ = makeVector(0, columnOf(buffer));
      }
    }
    return scale_;
  }

  /// The scale of each run of a stepped plot, shared by every value of the dataset.
  const std::vector<std::shared_ptr<const ViewVector>>& stepScales() const {
    if (stepScales_.empty()) {
      const std::shared_ptr<const ViewVector>& scale = scaleVector();
      for (size_t s = 0; s < plot_.stepStarts.size(); ++s) {
        const auto [first, count] = stepExtent(s);
        stepScales_.push_back(scale->slice(first, count));
      }
    }
    return stepScales_;
  }

  /// First point and point count of run s of a stepped plot.
  std::pair<size_t, size_t> stepExtent(size_t s) const {
    const size_t first = static_cast<size_t>(plot_.stepStarts[s]);
    const size_t end = s + 1 < plot_.stepStarts.size()
                           ? static_cast<size_t>(plot_.stepStarts[s + 1])
                           : static_cast<size_t>(plot_.points);
    return {first, end - first};
  }

  /// Reads the listed columns (scale excluded) from binary data in one pass per storage
  /// kind, via the column store when there is one.
  bool readBinaryColumns(const std::vector<int>& columns, const raw::ColumnStore* store,
                         std::map<int, std::shared_ptr<const ViewVector>>& vectors) const {
    std::vector<int> wanted;
    for (int column : columns) {
      if (column > 0) {
        wanted.push_back(column);
      }
    }
    std::sort(wanted.begin(), wanted.end());
    wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
    if (!scale_) {
      wanted.insert(wanted.begin(), 0);
    }
    std::vector<int> doubleColumns;
    std::vector<int> floatColumns;
    for (int column : wanted) {
      (isSingle(column) ? floatColumns : doubleColumns).push_back(column);
    }
    std::vector<Buffer<double>> doubleBuffers(doubleColumns.size());
    std::vector<double*> doubleOutputs(doubleColumns.size());
    for (size_t k = 0; k < doubleColumns.size(); ++k) {
      doubleBuffers[k] = newBuffer<double>();
      doubleOutputs[k] = doubleBuffers[k].data.get();
    }
    if (store != nullptr) {
      std::string error;
      if (!store->read(doubleColumns, doubleOutputs, error)) {
        setLastError(raw::kRawErrorCode, file_->path() + ": " + error);
        return false;
      }
    } else {
      file_->gather(plot_, doubleColumns, doubleOutputs);
    }
    std::vector<Buffer<float>> floatBuffers(floatColumns.size());
    std::vector<float*> floatOutputs(floatColumns.size());
    for (size_t k = 0; k < floatColumns.size(); ++k) {
      floatBuffers[k] = newBuffer<float>();
      floatOutputs[k] = floatBuffers[k].data.get();
    }
    file_->gatherFloats(plot_, floatColumns, floatOutputs);
    file_->checkUnchanged();
    for (size_t k = 0; k < doubleColumns.size(); ++k) {
      auto vector = makeVector(doubleColumns[k], columnOf(doubleBuffers[k]));
      if (doubleColumns[k] == 0) {
        scale_ = std::move(vector);
      } else {
        vectors[doubleColumns[k]] = std::move(vector);
      }
    }
    for (size_t k = 0; k < floatColumns.size(); ++k) {
      vectors[floatColumns[k]] = makeVector(floatColumns[k], columnOf(floatBuffers[k]));
    }
    return true;
  }

  /// A waveform over the scale, or for a stepped plot a value of dimension 2 whose inner
  /// waveforms are its runs (readers of the first run see the first step).
  std::unique_ptr<Value> makeValue(int column, const std::shared_ptr<const ViewVector>& y) const {
    const std::string& name = plot_.variables[static_cast<size_t>(column)].name;
    if (!hasAxis_ || !plot_.stepped()) {
      return ViewValue::waveform(name, labels_, scaleVector(), y);
    }
    const auto& scales = stepScales();
    std::vector<std::unique_ptr<ViewValue>> runs;
    runs.reserve(scales.size());
    for (size_t s = 0; s < scales.size(); ++s) {
      const auto [first, count] = stepExtent(s);
      runs.push_back(ViewValue::waveform(name, labels_, scales[s],
                                         column == 0 ? scales[s] : y->slice(first, count)));
    }
    return ViewValue::nested(name, labels_, std::move(runs));
  }

  /// One value per column (null for a column of -1); empty, with the last error set, when
  /// the data cannot be read. Operating points give scalars, except stepped ones, whose
  /// values are waveforms over the stepped quantity (one point per step).
  std::vector<std::unique_ptr<Value>> readColumns(const std::vector<int>& columns) const {
    std::vector<std::unique_ptr<Value>> values(columns.size());
    const auto& variables = plot_.variables;
    if (!waveforms_) {
      for (size_t i = 0; i < columns.size(); ++i) {
        if (columns[i] >= 0 && plot_.points > 0) {
          values[i] = ViewValue::scalarValue(variables[static_cast<size_t>(columns[i])].name,
                                             labels_, file_->valueAt(plot_, columns[i], 0));
        }
      }
      if (!plot_.decoded) {
        file_->checkUnchanged();
      }
      return values;
    }
    std::map<int, std::shared_ptr<const ViewVector>> vectors;
    const raw::ColumnStore* store = columnStore();
    if (plot_.decoded) {
      for (int column : columns) {
        if (column > 0 && !vectors.count(column)) {
          vectors[column] = makeVector(column, decodedColumn(column));
        }
      }
    } else if (store != nullptr && store->inMemory()) {
      for (int column : columns) {
        if (column > 0 && !vectors.count(column)) {
          vectors[column] = makeVector(column, storedColumn(column));
        }
      }
    } else if (!readBinaryColumns(columns, store, vectors)) {
      return {};
    }
    for (size_t i = 0; i < columns.size(); ++i) {
      const int column = columns[i];
      if (column >= 0) {
        values[i] = makeValue(column, column == 0 ? scaleVector() : vectors[column]);
      }
    }
    return values;
  }

  std::shared_ptr<const raw::RawFile> file_;
  const raw::Plot& plot_;
  bool hasAxis_;
  bool waveforms_;
  mutable std::shared_ptr<const ViewVector> scale_;
  mutable std::vector<std::shared_ptr<const ViewVector>> stepScales_;
  bool storeWanted_ = false;
  mutable bool storeFailed_ = false;
  mutable std::shared_ptr<const raw::ColumnStore> store_;
  mutable std::optional<Sweep> sweep_;
};

bool hasRawExtension(const fs::path& path) {
  const std::string extension = path.extension().string();
  return extension.size() == 4 && extension[0] == '.' &&
         std::tolower(static_cast<unsigned char>(extension[1])) == 'r' &&
         std::tolower(static_cast<unsigned char>(extension[2])) == 'a' &&
         std::tolower(static_cast<unsigned char>(extension[3])) == 'w';
}

/// Whether a file starts with a header line of a raw file.
bool startsLikeRaw(const std::string& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return false;
  }
  char head[32] = {};
  const size_t got = std::fread(head, 1, sizeof head, file);
  std::fclose(file);
  std::string text;
  // A UTF-16 header has a zero after every character of its first key.
  const bool utf16 = raw::detectHeaderEncoding({head, got}, 0) == raw::HeaderEncoding::kUtf16le;
  for (size_t i = 0; i < got; i += utf16 ? 2 : 1) {
    text += static_cast<char>(std::tolower(static_cast<unsigned char>(head[i])));
  }
  return text.starts_with("title:") || text.starts_with("plotname:");
}

/// The raw files of a folder in file-name order.
std::vector<fs::path> rawFilesIn(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code statusError;
    if (it->is_regular_file(statusError) && hasRawExtension(it->path())) {
      files.push_back(it->path());
    }
  }
  std::sort(files.begin(), files.end(),
            [](const fs::path& a, const fs::path& b) { return a.filename() < b.filename(); });
  return files;
}

}  // namespace

bool RawBackend::recognises(const std::string& path) const {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error) {
    return false;
  }
  if (fs::is_directory(status)) {
    return !rawFilesIn(path).empty();
  }
  if (fs::is_regular_file(status)) {
    return hasRawExtension(path) || startsLikeRaw(path);
  }
  return false;
}

std::unique_ptr<ResultsDir> RawBackend::open(const std::string& path) const {
  std::error_code error;
  std::vector<std::string> files;
  if (fs::is_directory(path, error)) {
    for (const fs::path& file : rawFilesIn(path)) {
      files.push_back(file.string());
    }
    if (files.empty()) {
      setLastError(raw::kRawErrorCode, path + ": no raw files in the folder");
      return nullptr;
    }
  } else {
    files.push_back(path);
  }
  auto dir = std::make_unique<OwningResultsDir>(path);
  std::map<std::string, int> seen;
  std::string warnings;
  for (const std::string& name : files) {
    std::string message;
    std::shared_ptr<const raw::RawFile> file = raw::RawFile::open(name, message);
    if (!file) {
      setLastError(raw::kRawErrorCode, message);
      return nullptr;
    }
    for (const std::string& warning : file->warnings()) {
      warnings += (warnings.empty() ? "" : "; ") + warning;
    }
    for (size_t i = 0; i < file->plots().size(); ++i) {
      const std::string kind = raw::analysisKind(file->plots()[i].plotname);
      const int count = ++seen[kind];
      std::string datasetName = count == 1 ? kind : kind + std::to_string(count);
      dir->add(std::make_unique<RawDataset>(file, i, std::move(datasetName),
                                            raw::analysisTypeOfKind(kind), path));
    }
  }
  if (!warnings.empty()) {
    setLastError(raw::kRawWarningCode, std::move(warnings));
  }
  return dir;
}

}  // namespace simdata
