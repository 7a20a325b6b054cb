#pragma once
// An in-memory results backend: unit tests and embedders build any dataset shape (scalars,
// nested sweeps, float/int element types, a "variables" dataset) without files.

#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "simdata/resultsReader.h"
#include "simdata/viewValues.h"

namespace simdata {

/// A data vector that owns its elements in one of the supported element types.
class MemoryVector : public DataVector {
 public:
  using Storage = std::variant<std::vector<double>, std::vector<float>, std::vector<int32_t>,
                               std::vector<int8_t>>;
  MemoryVector(std::string name, std::string baseUnits, Storage data);
  /// A double vector of `length` zeros, for routines that write their results.
  static std::shared_ptr<MemoryVector> zeros(std::string name, int length);
  /// Overrides the reported type code (for example an "other kind" or unknown code).
  void setTypeOverride(int code) { typeOverride_ = code; }
  void set(int i, double v);

  int length() const override;
  const char* name() const override { return name_.c_str(); }
  const char* baseUnits() const override { return baseUnits_.c_str(); }
  int elementType() const override;
  double doubleAt(int i) const override;
  float floatAt(int i) const override;
  int32_t intAt(int i) const override;
  int8_t int8At(int i) const override;
  std::span<const double> doubles() const override;

 private:
  template <typename T>
  T elementAs(int i) const;
  std::string name_;
  std::string baseUnits_;
  Storage data_;
  int typeOverride_ = -1;
};

/// A scalar, a waveform, or a value of nested sweeps.
class MemoryValue : public StoredValue {
 public:
  static std::unique_ptr<MemoryValue> scalarValue(std::string name, double v);
  static std::unique_ptr<MemoryValue> waveform(std::string name,
                                               std::shared_ptr<const DataVector> x,
                                               std::shared_ptr<const DataVector> y);
  /// A value of dimension 1 + the inner values' dimension.
  static std::unique_ptr<MemoryValue> nested(std::string name,
                                             std::vector<std::shared_ptr<const Value>> inner);
  /// A value whose dimension is below 1 (no data).
  static std::unique_ptr<MemoryValue> empty(std::string name);
  void setNames(std::string displayTitle, std::string datasetName, std::string dirName);
  std::unique_ptr<MemoryValue> clone() const { return std::make_unique<MemoryValue>(*this); }

  const char* displayTitle() const override { return displayTitle_.c_str(); }
  const char* datasetName() const override { return datasetName_.c_str(); }
  const char* resultsDirName() const override { return dirName_.c_str(); }
  int waveCount() const override { return static_cast<int>(inner_.size()); }
  const Value* waveAt(int i) const override;

 private:
  std::string displayTitle_, datasetName_, dirName_;
  std::vector<std::shared_ptr<const Value>> inner_;
};

/// A dataset whose signals map to in-memory values.
class MemoryDataset : public Dataset {
 public:
  /// `name` or `analysisType` may be absent (null) to model incomplete datasets.
  MemoryDataset(const char* name, const char* analysisType);
  void setSweep(Sweep sweep) {
    sweep_ = std::move(sweep);
    hasSweep_ = true;
  }
  /// Adds a signal and the value read for it.
  void addSignal(Signal signal, std::unique_ptr<MemoryValue> value);
  /// Adds a named value that is not a signal (such as "temp:value").
  void addValue(const std::string& name, std::unique_ptr<MemoryValue> value);
  /// Makes the next bulk read fail (for testing the failure path).
  void failReads(bool fail) { failReads_ = fail; }
  int bulkReads() const { return bulkReads_; }

  const char* name() const override { return hasName_ ? name_.c_str() : nullptr; }
  const char* analysisType() const override { return hasType_ ? type_.c_str() : nullptr; }
  const SignalList* signals() override { return &signals_; }
  std::unique_ptr<Value> readValue(std::string_view name) override;
  std::unique_ptr<ValueArray> read(const SignalArray& signals) override;
  const Sweep* sweep() const override { return hasSweep_ ? &sweep_ : nullptr; }

 private:
  std::string name_, type_;
  bool hasName_, hasType_;
  SignalList signals_;
  std::vector<std::unique_ptr<MemoryValue>> signalValues_;
  std::vector<std::pair<std::string, std::unique_ptr<MemoryValue>>> namedValues_;
  Sweep sweep_;
  bool hasSweep_ = false;
  bool failReads_ = false;
  int bulkReads_ = 0;
};

/// A results directory holding in-memory datasets.
class MemoryResultsDir : public ResultsDir {
 public:
  explicit MemoryResultsDir(std::string name) : name_(std::move(name)) {}
  MemoryDataset* addDataset(const char* name, const char* analysisType);
  /// Models a directory whose dataset array is missing altogether.
  void setNoDatasetArray() { noArray_ = true; }
  const char* name() const override { return name_.c_str(); }
  const DatasetArray* datasets() const override { return noArray_ ? nullptr : &array_; }

 private:
  std::string name_;
  std::vector<std::unique_ptr<MemoryDataset>> owned_;
  DatasetArray array_;
  bool noArray_ = false;
};

/// A transient dataset helper: a time axis shared by every waveform added with `addWave`.
std::shared_ptr<MemoryVector> timeAxis(std::vector<double> times);

}  // namespace simdata
