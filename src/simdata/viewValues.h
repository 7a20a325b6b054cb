#pragma once
// Values and data vectors that view memory a backend keeps (decoded text, gathered columns, a
// mapped file) instead of copying it. A vector holds a shared owner of that memory, so a value
// stays valid after its dataset has moved on to other batches. Used by the file backends.

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "simdata/resultsReader.h"

namespace simdata {

/// A data vector over doubles or 32-bit floats held by `owner`. The type code is the one the
/// reader reports: kFloat64 or kFloat32 for the matching storage, or an "other kind" (complex
/// data viewed through its real parts), which getDataVectorAt reads as 0.0.
class ViewVector : public DataVector {
 public:
  /// `mayHoldNaN` false promises that no element is NaN (see DataVector::mayHoldNaN).
  ViewVector(std::string name, std::string units, int type, std::shared_ptr<const void> owner,
             std::span<const double> values, bool mayHoldNaN = true);
  ViewVector(std::string name, std::string units, std::shared_ptr<const void> owner,
             std::span<const float> values);

  int length() const override;
  const char* name() const override { return name_.c_str(); }
  const char* baseUnits() const override { return units_.c_str(); }
  int elementType() const override { return type_; }
  double doubleAt(int i) const override;
  float floatAt(int i) const override;
  int32_t intAt(int i) const override;
  int8_t int8At(int i) const override;
  std::span<const double> doubles() const override;
  std::span<const float> floats() const override;
  bool mayHoldNaN() const override { return mayHoldNaN_; }

  /// The elements `first` .. `first + count - 1` as a vector of their own (same owner).
  std::shared_ptr<const ViewVector> slice(size_t first, size_t count) const;

 private:
  std::string name_;
  std::string units_;
  int type_;
  std::shared_ptr<const void> owner_;
  std::variant<std::span<const double>, std::span<const float>> values_;
  bool mayHoldNaN_ = true;
};

/// Texts that every value of a dataset shares.
struct ValueLabels {
  std::string displayTitle;
  std::string datasetName;
  std::string dirName;
};

/// The parts of a value that every value class here keeps alike: its name, dimension, kind,
/// scalar and x and y vectors (the texts of its dataset and its inner values differ).
class StoredValue : public Value {
 public:
  const char* name() const override { return name_.c_str(); }
  int dimension() const override { return dimension_; }
  int kind() const override { return kind_; }
  double scalar() const override { return scalar_; }
  const DataVector* xVector() const override { return x_.get(); }
  const DataVector* yVector() const override { return y_.get(); }

 protected:
  std::string name_;
  int dimension_ = 1;
  int kind_ = kDataVectorValue;
  double scalar_ = 0.0;
  std::shared_ptr<const DataVector> x_, y_;
};

/// A scalar, a waveform (x and y vectors), or a value of dimension 2 whose inner waveforms
/// are the runs of a stepped analysis.
class ViewValue : public StoredValue {
 public:
  static std::unique_ptr<ViewValue> scalarValue(std::string name,
                                                std::shared_ptr<const ValueLabels> labels,
                                                double v);
  static std::unique_ptr<ViewValue> waveform(std::string name,
                                             std::shared_ptr<const ValueLabels> labels,
                                             std::shared_ptr<const DataVector> x,
                                             std::shared_ptr<const DataVector> y);
  static std::unique_ptr<ViewValue> nested(std::string name,
                                           std::shared_ptr<const ValueLabels> labels,
                                           std::vector<std::unique_ptr<ViewValue>> inner);

  const char* displayTitle() const override { return labels_->displayTitle.c_str(); }
  const char* datasetName() const override { return labels_->datasetName.c_str(); }
  const char* resultsDirName() const override { return labels_->dirName.c_str(); }
  int waveCount() const override { return static_cast<int>(inner_.size()); }
  const Value* waveAt(int i) const override;

 private:
  ViewValue(std::string name, std::shared_ptr<const ValueLabels> labels)
      : labels_(std::move(labels)) {
    name_ = std::move(name);
  }
  std::shared_ptr<const ValueLabels> labels_;
  std::vector<std::unique_ptr<ViewValue>> inner_;
};

/// The base units of a quantity from its type word ("time" -> "s", "voltage" -> "V", ...).
const char* unitsOfTypeWord(std::string_view type);

/// What the datasets of the file backends share: a name, an analysis type, the labels of their
/// values, and a signal list whose signal ids stand for the backend's own columns.
class FileDataset : public Dataset {
 public:
  const char* name() const override { return name_.c_str(); }
  const char* analysisType() const override { return type_.c_str(); }
  const SignalList* signals() override { return &signals_; }
  /// The value of the signal called `name`, or null with the last error set (under the
  /// backend's error code) naming the signal and the dataset.
  std::unique_ptr<Value> readValue(std::string_view name) override;

 protected:
  FileDataset(std::string name, std::string type, uint16_t errorCode)
      : name_(std::move(name)), type_(std::move(type)), errorCode_(errorCode) {}
  /// The value of the signal with id `id` of this dataset's list (null when it cannot be read).
  virtual std::unique_ptr<Value> valueOfSignal(int64_t id) const = 0;
  /// The id of a signal of this dataset, or -1. Signals copied out of the list (as the run loop
  /// keeps them) are recognised by their id and checked by name.
  int64_t idOf(const Signal* signal) const;

  std::string name_;
  std::string type_;
  std::shared_ptr<const ValueLabels> labels_;
  SignalList signals_;

 private:
  uint16_t errorCode_;
};

/// The smallest and largest element of a vector as a float64 range, NaN skipped (0 to 0 when
/// every element is NaN or there is none).
Range extentOf(const DataVector& values);

/// A results directory that owns its datasets and lists them in the order they were added.
class OwningResultsDir : public ResultsDir {
 public:
  explicit OwningResultsDir(std::string name) : name_(std::move(name)) {}
  void add(std::unique_ptr<Dataset> dataset) {
    array_.add(dataset.get());
    datasets_.push_back(std::move(dataset));
  }
  const char* name() const override { return name_.c_str(); }
  const DatasetArray* datasets() const override { return &array_; }

 private:
  std::string name_;
  std::vector<std::unique_ptr<Dataset>> datasets_;
  DatasetArray array_;
};

}  // namespace simdata
