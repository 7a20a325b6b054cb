#include "simdata/memoryResults.h"

#include <type_traits>

namespace simdata {

MemoryVector::MemoryVector(std::string name, std::string baseUnits, Storage data)
    : name_(std::move(name)), baseUnits_(std::move(baseUnits)), data_(std::move(data)) {}

std::shared_ptr<MemoryVector> MemoryVector::zeros(std::string name, int length) {
  return std::make_shared<MemoryVector>(std::move(name), "",
                                        std::vector<double>(length > 0 ? length : 0, 0.0));
}

int MemoryVector::length() const {
  return std::visit([](const auto& v) { return static_cast<int>(v.size()); }, data_);
}

int MemoryVector::elementType() const {
  if (typeOverride_ >= 0) {
    return typeOverride_;
  }
  switch (data_.index()) {
    case 0:
      return kFloat64;
    case 1:
      return kFloat32;
    case 2:
      return kInt32;
    default:
      return kInt8;
  }
}

template <typename T>
T MemoryVector::elementAs(int i) const {
  return std::visit(
      [i](const auto& v) -> T {
        if (i < 0 || static_cast<size_t>(i) >= v.size()) {
          return T{};
        }
        return static_cast<T>(v[i]);
      },
      data_);
}

double MemoryVector::doubleAt(int i) const { return elementAs<double>(i); }
float MemoryVector::floatAt(int i) const { return elementAs<float>(i); }
int32_t MemoryVector::intAt(int i) const { return elementAs<int32_t>(i); }
int8_t MemoryVector::int8At(int i) const { return elementAs<int8_t>(i); }

std::span<const double> MemoryVector::doubles() const {
  if (typeOverride_ >= 0 && typeOverride_ != kFloat64) {
    return {};
  }
  if (const auto* v = std::get_if<std::vector<double>>(&data_)) {
    return {v->data(), v->size()};
  }
  return {};
}

void MemoryVector::set(int i, double v) {
  std::visit(
      [i, v](auto& data) {
        using Element = typename std::decay_t<decltype(data)>::value_type;
        if (i >= 0 && static_cast<size_t>(i) < data.size()) {
          data[i] = static_cast<Element>(v);
        }
      },
      data_);
}

std::unique_ptr<MemoryValue> MemoryValue::scalarValue(std::string name, double v) {
  auto value = std::make_unique<MemoryValue>();
  value->name_ = std::move(name);
  value->kind_ = kScalarValue;
  value->dimension_ = 0;
  value->scalar_ = v;
  return value;
}

std::unique_ptr<MemoryValue> MemoryValue::waveform(std::string name,
                                                   std::shared_ptr<const DataVector> x,
                                                   std::shared_ptr<const DataVector> y) {
  auto value = std::make_unique<MemoryValue>();
  value->name_ = std::move(name);
  value->x_ = std::move(x);
  value->y_ = std::move(y);
  return value;
}

std::unique_ptr<MemoryValue> MemoryValue::nested(std::string name,
                                                 std::vector<std::shared_ptr<const Value>> inner) {
  auto value = std::make_unique<MemoryValue>();
  value->name_ = std::move(name);
  int innerDimension = inner.empty() || !inner.front() ? 1 : inner.front()->dimension();
  value->dimension_ = innerDimension + 1;
  value->inner_ = std::move(inner);
  return value;
}

std::unique_ptr<MemoryValue> MemoryValue::empty(std::string name) {
  auto value = std::make_unique<MemoryValue>();
  value->name_ = std::move(name);
  value->dimension_ = 0;
  return value;
}

void MemoryValue::setNames(std::string displayTitle, std::string datasetName, std::string dirName) {
  displayTitle_ = std::move(displayTitle);
  datasetName_ = std::move(datasetName);
  dirName_ = std::move(dirName);
}

const Value* MemoryValue::waveAt(int i) const {
  if (i < 0 || i >= waveCount()) {
    return nullptr;
  }
  return inner_[i].get();
}

MemoryDataset::MemoryDataset(const char* name, const char* analysisType)
    : name_(name ? name : ""),
      type_(analysisType ? analysisType : ""),
      hasName_(name != nullptr),
      hasType_(analysisType != nullptr) {}

void MemoryDataset::addSignal(Signal signal, std::unique_ptr<MemoryValue> value) {
  signal.id = static_cast<int64_t>(signalValues_.size());
  signals_.add(std::move(signal));
  signalValues_.push_back(std::move(value));
}

void MemoryDataset::addValue(const std::string& name, std::unique_ptr<MemoryValue> value) {
  namedValues_.emplace_back(name, std::move(value));
}

std::unique_ptr<Value> MemoryDataset::readValue(std::string_view name) {
  for (const auto& [valueName, value] : namedValues_) {
    if (valueName == name && value) {
      return value->clone();
    }
  }
  if (const Signal* signal = signals_.find(name)) {
    const auto& value = signalValues_[signal->id];
    return value ? value->clone() : nullptr;
  }
  return nullptr;
}

std::unique_ptr<ValueArray> MemoryDataset::read(const SignalArray& signals) {
  ++bulkReads_;
  if (failReads_) {
    setLastError(2, "bulk read refused");
    return nullptr;
  }
  auto values = std::make_unique<ValueArray>();
  for (int i = 0; i < signals.count(); ++i) {
    const Signal* signal = signals.at(i);
    const bool known = signal != nullptr && signal->id >= 0 &&
                       static_cast<size_t>(signal->id) < signalValues_.size() &&
                       signalValues_[signal->id];
    values->add(known ? signalValues_[signal->id]->clone() : nullptr);
  }
  return values;
}

MemoryDataset* MemoryResultsDir::addDataset(const char* name, const char* analysisType) {
  owned_.push_back(std::make_unique<MemoryDataset>(name, analysisType));
  array_.add(owned_.back().get());
  return owned_.back().get();
}

std::shared_ptr<MemoryVector> timeAxis(std::vector<double> times) {
  return std::make_shared<MemoryVector>("time", "s", std::move(times));
}

}  // namespace simdata
