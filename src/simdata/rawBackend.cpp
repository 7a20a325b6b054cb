#include "simdata/rawBackend.h"

#include "simdata/columnStore.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <optional>
#include <vector>

namespace simdata {

namespace raw {

namespace {

std::string lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return out;
}

}  // namespace

std::string analysisKind(std::string_view plotname) {
  const std::string name = lower(plotname);
  // Matched on substrings, most specific first: some writers put a prefix before the title
  // ("Step Analysis: ... AC Analysis", "DC operating point").
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
         lower(plot.plotname).find("integrated noise") == std::string::npos;
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

const char* unitsOfType(const std::string& type) {
  if (type == "time") {
    return "s";
  }
  if (type == "voltage") {
    return "V";
  }
  if (type == "current") {
    return "A";
  }
  if (type == "frequency") {
    return "Hz";
  }
  return "";
}

/// A column of a plot: a view into decoded text data, or an array gathered from binary
/// records. The owner keeps the memory alive for as long as any value uses it.
class RawVector : public DataVector {
 public:
  RawVector(std::string name, const char* units, int type, std::shared_ptr<const void> owner,
            std::span<const double> view, bool mayHoldNaN = true)
      : name_(std::move(name)),
        units_(units),
        type_(type),
        owner_(std::move(owner)),
        view_(view),
        mayHoldNaN_(mayHoldNaN) {}

  int length() const override { return static_cast<int>(view_.size()); }
  const char* name() const override { return name_.c_str(); }
  const char* baseUnits() const override { return units_; }
  int elementType() const override { return type_; }
  double doubleAt(int i) const override {
    return i >= 0 && static_cast<size_t>(i) < view_.size() ? view_[static_cast<size_t>(i)] : 0.0;
  }
  float floatAt(int i) const override { return static_cast<float>(doubleAt(i)); }
  int32_t intAt(int i) const override {
    const double v = doubleAt(i);
    if (!(v > -2147483648.0)) {
      return v < 0.0 ? INT32_MIN : 0;
    }
    return v < 2147483647.0 ? static_cast<int32_t>(v) : INT32_MAX;
  }
  int8_t int8At(int i) const override {
    const double v = doubleAt(i);
    if (!(v > -128.0)) {
      return v < 0.0 ? INT8_MIN : 0;
    }
    return v < 127.0 ? static_cast<int8_t>(v) : INT8_MAX;
  }
  std::span<const double> doubles() const override {
    return type_ == kFloat64 ? view_ : std::span<const double>();
  }
  bool mayHoldNaN() const override { return mayHoldNaN_; }
  /// The values whatever the type code (real parts of complex data).
  std::span<const double> view() const { return view_; }

 private:
  std::string name_;
  const char* units_;
  int type_;
  std::shared_ptr<const void> owner_;
  std::span<const double> view_;
  bool mayHoldNaN_;
};

/// Texts every value of a dataset shares.
struct ValueLabels {
  std::string displayTitle;
  std::string datasetName;
  std::string dirName;
};

class RawValue : public Value {
 public:
  static std::unique_ptr<RawValue> waveform(std::string name,
                                            std::shared_ptr<const ValueLabels> labels,
                                            std::shared_ptr<const RawVector> x,
                                            std::shared_ptr<const RawVector> y) {
    auto value = std::unique_ptr<RawValue>(new RawValue(std::move(name), std::move(labels)));
    value->dimension_ = 1;
    value->kind_ = kDataVectorValue;
    value->x_ = std::move(x);
    value->y_ = std::move(y);
    return value;
  }
  static std::unique_ptr<RawValue> scalarValue(std::string name,
                                               std::shared_ptr<const ValueLabels> labels,
                                               double v) {
    auto value = std::unique_ptr<RawValue>(new RawValue(std::move(name), std::move(labels)));
    value->dimension_ = 0;
    value->kind_ = kScalarValue;
    value->scalar_ = v;
    return value;
  }

  const char* name() const override { return name_.c_str(); }
  const char* displayTitle() const override { return labels_->displayTitle.c_str(); }
  const char* datasetName() const override { return labels_->datasetName.c_str(); }
  const char* resultsDirName() const override { return labels_->dirName.c_str(); }
  int dimension() const override { return dimension_; }
  int kind() const override { return kind_; }
  double scalar() const override { return scalar_; }
  const DataVector* xVector() const override { return x_.get(); }
  const DataVector* yVector() const override { return y_.get(); }
  int waveCount() const override { return 0; }
  const Value* waveAt(int) const override { return nullptr; }

 private:
  RawValue(std::string name, std::shared_ptr<const ValueLabels> labels)
      : name_(std::move(name)), labels_(std::move(labels)) {}
  std::string name_;
  std::shared_ptr<const ValueLabels> labels_;
  int dimension_ = 0;
  int kind_ = kScalarValue;
  double scalar_ = 0.0;
  std::shared_ptr<const RawVector> x_, y_;
};

/// One plot of a raw file as a dataset.
class RawDataset : public Dataset {
 public:
  RawDataset(std::shared_ptr<const raw::RawFile> file, size_t plotIndex, std::string name,
             std::string type, const std::string& dirName)
      : file_(std::move(file)),
        plot_(file_->plots()[plotIndex]),
        name_(std::move(name)),
        type_(std::move(type)),
        hasAxis_(raw::plotHasAxis(plot_)),
        elementType_(plot_.numbers == raw::Numbers::kComplex ? kComplex : kFloat64) {
    labels_ = std::make_shared<ValueLabels>(ValueLabels{plot_.plotname, name_, dirName});
    for (int v = 0; v < plot_.variableCount(); ++v) {
      const raw::Variable& variable = plot_.variables[static_cast<size_t>(v)];
      signals_.add(Signal{raw::bareName(variable.name), variable.name, variable.type, v});
    }
  }

  const char* name() const override { return name_.c_str(); }
  const char* analysisType() const override { return type_.c_str(); }
  const SignalList* signals() override { return &signals_; }

  std::unique_ptr<Value> readValue(std::string_view name) override {
    const Signal* signal = signals_.find(name);
    if (signal == nullptr) {
      setLastError(raw::kRawErrorCode,
                   "no signal named " + std::string(name) + " in dataset " + name_);
      return nullptr;
    }
    std::vector<std::unique_ptr<Value>> values = readColumns({static_cast<int>(signal->id)});
    return values.empty() ? nullptr : std::move(values.front());
  }

  std::unique_ptr<ValueArray> read(const SignalArray& signals) override {
    std::vector<int> columns(static_cast<size_t>(signals.count()));
    for (int i = 0; i < signals.count(); ++i) {
      columns[static_cast<size_t>(i)] = columnOf(signals.at(i));
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

  const Sweep* sweep() const override {
    if (!hasAxis_) {
      return nullptr;
    }
    if (!sweep_) {
      const std::span<const double> scale = scaleVector()->view();
      Range range{kFloat64, 0.0, 0.0};
      bool first = true;
      for (double v : scale) {
        if (std::isnan(v)) {
          continue;
        }
        range.min = first ? v : std::min(range.min, v);
        range.max = first ? v : std::max(range.max, v);
        first = false;
      }
      sweep_.emplace();
      sweep_->add(SweepDimension{plot_.variables.front().name, range});
    }
    return &*sweep_;
  }

 private:
  struct Column {
    std::shared_ptr<const void> owner;
    std::span<const double> view;
    bool mayHoldNaN = true;
  };

  /// An array for gathered values, not zero-filled first: the gather writes every element.
  struct Buffer {
    std::shared_ptr<double[]> data;
    size_t size;
    Column column() const { return Column{data, {data.get(), size}}; }
  };
  Buffer newBuffer() const {
    const size_t size = static_cast<size_t>(plot_.points);
    return Buffer{std::make_shared_for_overwrite<double[]>(size), size};
  }

  /// The column a signal of this dataset names, or -1. Signals copied out of the list (as the
  /// run loop does) are recognised by their id and checked by name.
  int columnOf(const Signal* signal) const {
    if (signal == nullptr || signal->id < 0 || signal->id >= signals_.count()) {
      return -1;
    }
    const Signal* own = signals_.at(static_cast<int>(signal->id));
    if (own != signal && own->name2 != signal->name2) {
      return -1;
    }
    return static_cast<int>(signal->id);
  }

  std::shared_ptr<const RawVector> makeVector(int column, Column data) const {
    const raw::Variable& variable = plot_.variables[static_cast<size_t>(column)];
    return std::make_shared<const RawVector>(variable.name, unitsOfType(variable.type),
                                             elementType_, std::move(data.owner), data.view,
                                             data.mayHoldNaN);
  }

  /// Text data is already decoded: a column is a view into it.
  Column decodedColumn(int column) const {
    const size_t points = static_cast<size_t>(plot_.points);
    return Column{plot_.decoded,
                  std::span<const double>(
                      plot_.decoded->data() + static_cast<size_t>(column) * points, points)};
  }

  /// The column store of a binary plot that is read in several batches: built at the
  /// first bulk read after such reads were announced. Null when not wanted or when it cannot
  /// be built (the records are then gathered batch by batch).
  const raw::ColumnStore* columnStore() const {
    if (!store_ && storeWanted_ && !storeFailed_ && plot_.layout == raw::DataLayout::kBinary &&
        plot_.points > 0) {
      raw::RecordLayout records;
      records.base = file_->bytes().data() + plot_.dataOffset;
      records.points = static_cast<size_t>(plot_.points);
      records.columns = static_cast<size_t>(plot_.variableCount());
      records.recordBytes = plot_.recordBytes;
      records.valueBytes = plot_.valueBytes();
      std::string error;
      store_ = raw::ColumnStore::build(records, raw::columnStoreSettings(), error);
      storeFailed_ = !store_;
    }
    return store_.get();
  }

  /// A column of the store in memory, viewed in place.
  Column storedColumn(int column) const {
    return Column{store_, store_->view(static_cast<size_t>(column)),
                  store_->holdsNaN(static_cast<size_t>(column))};
  }

  /// The scale (variable 0), read once and shared by every value of the dataset.
  const std::shared_ptr<const RawVector>& scaleVector() const {
    if (!scale_) {
      if (plot_.layout == raw::DataLayout::kAscii) {
        scale_ = makeVector(0, decodedColumn(0));
      } else if (store_ && store_->inMemory()) {
        scale_ = makeVector(0, storedColumn(0));
      } else {
        const Buffer buffer = newBuffer();
        const int column = 0;
        double* out = buffer.data.get();
        file_->gather(plot_, {&column, 1}, {&out, 1});
        scale_ = makeVector(0, buffer.column());
      }
    }
    return scale_;
  }

  /// One value per column (null for a column of -1); empty, with the last error set, when
  /// the data cannot be read.
  std::vector<std::unique_ptr<Value>> readColumns(const std::vector<int>& columns) const {
    std::vector<std::unique_ptr<Value>> values(columns.size());
    const auto& variables = plot_.variables;
    if (!hasAxis_) {
      for (size_t i = 0; i < columns.size(); ++i) {
        if (columns[i] >= 0 && plot_.points > 0) {
          values[i] = RawValue::scalarValue(variables[static_cast<size_t>(columns[i])].name,
                                            labels_, file_->valueAt(plot_, columns[i], 0));
        }
      }
      return values;
    }
    std::map<int, std::shared_ptr<const RawVector>> vectors;
    const raw::ColumnStore* store = plot_.layout == raw::DataLayout::kBinary ? columnStore() : nullptr;
    if (plot_.layout == raw::DataLayout::kAscii) {
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
    } else {
      // Every wanted column of the batch (and the scale, when it has not been read yet) is
      // gathered in one pass over the records.
      std::vector<int> wanted;
      for (int column : columns) {
        if (column > 0) {
          wanted.push_back(column);
        }
      }
      std::sort(wanted.begin(), wanted.end());
      wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
      const bool readScale = !scale_;
      if (readScale) {
        wanted.insert(wanted.begin(), 0);
      }
      std::vector<Buffer> buffers(wanted.size());
      std::vector<double*> outputs(wanted.size());
      for (size_t k = 0; k < wanted.size(); ++k) {
        buffers[k] = newBuffer();
        outputs[k] = buffers[k].data.get();
      }
      if (store != nullptr) {
        std::string error;
        if (!store->read(wanted, outputs, error)) {
          setLastError(raw::kRawErrorCode, file_->path() + ": " + error);
          return {};
        }
      } else {
        file_->gather(plot_, wanted, outputs);
      }
      for (size_t k = 0; k < wanted.size(); ++k) {
        auto vector = makeVector(wanted[k], buffers[k].column());
        if (wanted[k] == 0) {
          scale_ = std::move(vector);
        } else {
          vectors[wanted[k]] = std::move(vector);
        }
      }
    }
    const std::shared_ptr<const RawVector>& x = scaleVector();
    for (size_t i = 0; i < columns.size(); ++i) {
      const int column = columns[i];
      if (column < 0) {
        continue;
      }
      values[i] = RawValue::waveform(variables[static_cast<size_t>(column)].name, labels_, x,
                                     column == 0 ? x : vectors[column]);
    }
    return values;
  }

  std::shared_ptr<const raw::RawFile> file_;
  const raw::Plot& plot_;
  std::string name_;
  std::string type_;
  bool hasAxis_;
  int elementType_;
  std::shared_ptr<const ValueLabels> labels_;
  SignalList signals_;
  mutable std::shared_ptr<const RawVector> scale_;
  bool storeWanted_ = false;
  mutable bool storeFailed_ = false;
  mutable std::shared_ptr<const raw::ColumnStore> store_;
  mutable std::optional<Sweep> sweep_;
};

class RawResultsDir : public ResultsDir {
 public:
  explicit RawResultsDir(std::string name) : name_(std::move(name)) {}
  void add(std::unique_ptr<RawDataset> dataset) {
    array_.add(dataset.get());
    datasets_.push_back(std::move(dataset));
  }
  const char* name() const override { return name_.c_str(); }
  const DatasetArray* datasets() const override { return &array_; }

 private:
  std::string name_;
  std::vector<std::unique_ptr<RawDataset>> datasets_;
  DatasetArray array_;
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
  char head[16] = {};
  const size_t got = std::fread(head, 1, sizeof head - 1, file);
  std::fclose(file);
  std::string text(head, got);
  for (char& c : text) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
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
  auto dir = std::make_unique<RawResultsDir>(path);
  std::map<std::string, int> seen;
  for (const std::string& name : files) {
    std::string message;
    std::shared_ptr<const raw::RawFile> file = raw::RawFile::open(name, message);
    if (!file) {
      setLastError(raw::kRawErrorCode, message);
      return nullptr;
    }
    for (size_t i = 0; i < file->plots().size(); ++i) {
      const std::string kind = raw::analysisKind(file->plots()[i].plotname);
      const int count = ++seen[kind];
      std::string datasetName = count == 1 ? kind : kind + std::to_string(count);
      dir->add(std::make_unique<RawDataset>(file, i, std::move(datasetName),
                                            raw::analysisTypeOfKind(kind), path));
    }
  }
  return dir;
}

}  // namespace simdata
