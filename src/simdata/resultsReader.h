#pragma once
// The results-reader interface: the object kinds the analysis needs of simulation results
// (results directory, datasets, signals, values, waveforms, data vectors, sweeps). Backends
// implement it; the rest of the program only sees these classes.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "support/flatNameMap.h"

namespace simdata {

/// Element type codes of data vectors and ranges.
enum ElementType : int {
  kFloat64 = 0,
  kInt32 = 1,
  kComplex = 2,  // one of the "other kinds": read as 0.0
  kFloat32 = 5,
  kInt8 = 9,
};

/// A typed array of numbers with a name and base units.
class DataVector {
 public:
  virtual ~DataVector() = default;
  virtual int length() const = 0;
  virtual const char* name() const = 0;
  virtual const char* baseUnits() const = 0;
  virtual int elementType() const = 0;
  /// Element access matching the type code; out-of-range indices read as 0.
  virtual double doubleAt(int i) const = 0;
  virtual float floatAt(int i) const = 0;
  virtual int32_t intAt(int i) const = 0;
  virtual int8_t int8At(int i) const = 0;
  /// The elements as contiguous doubles when the type is 64-bit float, else empty. Kernels
  /// run over this instead of one virtual call per sample.
  virtual std::span<const double> doubles() const { return {}; }
  /// The elements as contiguous 32-bit floats when the type is 32-bit float, else empty.
  virtual std::span<const float> floats() const { return {}; }
  /// False when the backend knows that no element is NaN, so that a reader of doubles()
  /// need not look for NaN (which reads as 0.0) itself.
  virtual bool mayHoldNaN() const { return true; }
};

/// Reads any element as a double: NaN floats become 0.0, "other kinds" read as 0.0, and
/// unknown codes print " UNKNOWN TYPE. " on standard output.
double getDataVectorAt(const DataVector* vector, int index);

enum ValueKind : int { kDataVectorValue = 0, kScalarValue = 1 };

/// The data of one signal or variable: a scalar, or a waveform of one or more dimensions.
class Value {
 public:
  virtual ~Value() = default;
  virtual const char* name() const = 0;
  virtual const char* displayTitle() const = 0;
  virtual const char* datasetName() const = 0;
  virtual const char* resultsDirName() const = 0;
  /// 1 for a plain waveform, 2 or more for nested sweeps, below 1 for no data.
  virtual int dimension() const = 0;
  virtual int kind() const = 0;
  virtual double scalar() const = 0;
  virtual const DataVector* xVector() const = 0;
  virtual const DataVector* yVector() const = 0;
  /// Inner values of a value of dimension 2 or more.
  virtual int waveCount() const = 0;
  virtual const Value* waveAt(int i) const = 0;
};

/// Descends to the first inner waveform until the value is one-dimensional.
const Value* getWaveform(const Value* value);

/// Diagnostic printout of a value's names and vectors on standard output.
void printValueInfo(const Value* value);

/// One signal entry: two name texts and a type name. `id` is the backend's own handle.
struct Signal {
  std::string name1;
  std::string name2;
  std::string typeName;
  int64_t id = -1;
};

/// The signals of a dataset, with lookup by either name (exact, then case-insensitive).
class SignalList {
 public:
  SignalList() = default;
  /// A copy builds its own index (the index views the names of the list it belongs to).
  SignalList(const SignalList& other) : signals_(other.signals_) {}
  SignalList& operator=(const SignalList& other) {
    if (this != &other) {
      signals_ = other.signals_;
      indexed_ = false;
      foldedIndexed_ = false;
    }
    return *this;
  }
  SignalList(SignalList&&) = default;
  SignalList& operator=(SignalList&&) = default;
  void add(Signal signal);
  int count() const { return static_cast<int>(signals_.size()); }
  const Signal* at(int i) const;
  const Signal* find(std::string_view name) const;
  /// The same with the name's support::hashName given (computed once by a caller that looks
  /// the name up in several places).
  const Signal* find(std::string_view name, size_t hash) const;

 private:
  void buildIndex() const;
  void buildFoldedIndex() const;
  std::vector<Signal> signals_;
  /// Name to position, built on the first lookup; the keys view the signals' names.
  mutable support::FlatNameMap exact_;
  /// Lower-cased name to position, built on the first lookup that is not exact.
  mutable std::unordered_map<std::string, int> folded_;
  mutable bool indexed_ = false;
  mutable bool foldedIndexed_ = false;
};

/// A caller-built set of signals to read together.
class SignalArray {
 public:
  explicit SignalArray(int capacity) { signals_.reserve(capacity > 0 ? capacity : 0); }
  void add(const Signal* signal) { signals_.push_back(signal); }
  int count() const { return static_cast<int>(signals_.size()); }
  const Signal* at(int i) const { return signals_[i]; }

 private:
  std::vector<const Signal*> signals_;
};

/// The values read for a signal array, one per element, owned by the caller.
class ValueArray {
 public:
  void add(std::unique_ptr<Value> value) { values_.push_back(std::move(value)); }
  int count() const { return static_cast<int>(values_.size()); }
  const Value* at(int i) const;
  void release(int i) { values_[i].reset(); }

 private:
  std::vector<std::unique_ptr<Value>> values_;
};

/// Extent of one sweep dimension.
struct Range {
  int dataType = kFloat64;
  double min = 0.0;
  double max = 0.0;
  int minInt() const { return static_cast<int>(min); }
  int maxInt() const { return static_cast<int>(max); }
  float minFloat() const { return static_cast<float>(min); }
  float maxFloat() const { return static_cast<float>(max); }
};

struct SweepDimension {
  std::string name;
  std::optional<Range> range;
};

/// The swept dimensions of a dataset.
class Sweep {
 public:
  void add(SweepDimension dimension) { dimensions_.push_back(std::move(dimension)); }
  int dimensionCount() const { return static_cast<int>(dimensions_.size()); }
  const char* name(int i) const { return dimensions_[i].name.c_str(); }
  const Range* range(int i) const {
    return dimensions_[i].range ? &*dimensions_[i].range : nullptr;
  }

 private:
  std::vector<SweepDimension> dimensions_;
};

/// Values of one signal where a dataset keeps them in memory (a mapped file), for callers
/// that look at them in place instead of reading a value: `count` float64 values (the real
/// parts of complex ones) `strideBytes` apart from `first`, exactly as stored (NaN stays NaN),
/// valid while `owner` is held.
struct StoredColumn {
  std::shared_ptr<const void> owner;
  const char* first = nullptr;
  size_t count = 0;
  size_t strideBytes = 0;
};

/// One analysis of a results directory.
class Dataset {
 public:
  virtual ~Dataset() = default;
  virtual const char* name() const = 0;
  virtual const char* analysisType() const = 0;
  virtual const SignalList* signals() = 0;
  /// Reads one named value (a variable or signal), or null when there is none.
  virtual std::unique_ptr<Value> readValue(std::string_view name) = 0;
  /// Reads every signal of the array; null on failure with the last error set.
  virtual std::unique_ptr<ValueArray> read(const SignalArray& signals) = 0;
  /// The sweep, or null for a dataset without a swept axis.
  virtual const Sweep* sweep() const = 0;
  /// Lets the dataset prepare for a run of bulk reads.
  virtual void prepare() {}
  /// Tells the dataset how many bulk reads of many signals are about to come, so that it can
  /// choose how to serve them (data stored point by point is worth transposing once when
  /// it is read in several batches).
  virtual void expectBulkReads(int count) { static_cast<void>(count); }
  /// Whether streamSignals can visit this dataset: data stored point by point whose signals
  /// all share the dataset's axis.
  virtual bool streamsSignals() const { return false; }
  /// Visits the values of the signals in one pass over the data, chunk of points by chunk
  /// of points: visit(first, count, values) receives in values[k] the `count` values of
  /// signal k from point `first`, read as getDataVectorAt reads them (NaN as 0.0). Chunks
  /// come in order and cover every point of the axis. Returns false, without visiting, when
  /// the dataset cannot stream (the caller then reads in batches).
  using PointChunkVisitor =
      std::function<void(size_t first, size_t count, std::span<const double* const> values)>;
  virtual bool streamSignals(const SignalArray& signals, const PointChunkVisitor& visit) {
    static_cast<void>(signals);
    static_cast<void>(visit);
    return false;
  }
  /// Where a signal's values lie in place, or nothing when they are not stored as float64 in
  /// memory the dataset keeps (the caller then reads the value).
  virtual std::optional<StoredColumn> storedColumn(const Signal* signal) const {
    static_cast<void>(signal);
    return std::nullopt;
  }
  /// The same for the swept axis (time of a transient).
  virtual std::optional<StoredColumn> storedScale() const { return std::nullopt; }
  /// Looks a signal up by either of its names.
  const Signal* findSignal(std::string_view name);
};

/// The datasets of a results directory.
class DatasetArray {
 public:
  void add(Dataset* dataset) { datasets_.push_back(dataset); }
  int count() const { return static_cast<int>(datasets_.size()); }
  Dataset* at(int i) const { return datasets_[i]; }
  Dataset* find(std::string_view name) const;

 private:
  std::vector<Dataset*> datasets_;
};

/// An opened directory (or file) of simulation results.
class ResultsDir {
 public:
  virtual ~ResultsDir() = default;
  virtual const char* name() const = 0;
  /// The dataset array, or null when the directory has none.
  virtual const DatasetArray* datasets() const = 0;
  Dataset* findDataset(std::string_view name) const;
};

/// A results format the reader understands.
class Backend {
 public:
  virtual ~Backend() = default;
  virtual const char* readerName() const = 0;
  virtual bool recognises(const std::string& path) const = 0;
  /// Opens the path, or returns null with the last error set.
  virtual std::unique_ptr<ResultsDir> open(const std::string& path) const = 0;
};

/// Registers the built-in backends; called once at program start.
bool initialise();
void registerBackend(std::unique_ptr<Backend> backend);
bool isResultsDirectory(const std::string& path);
/// The name of the format that handles the path, or null.
const char* readerName(const std::string& path);
std::unique_ptr<ResultsDir> openResults(const std::string& path);

/// The reader's pending error: a code (0 = none) and a text.
uint16_t lastErrorCode();
const char* lastErrorText();
void resetError();
void setLastError(uint16_t code, std::string text);

/// An ordered list of owned texts; also the argument list of a command line.
using StringVector = std::vector<std::string>;

}  // namespace simdata
