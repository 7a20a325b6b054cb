#include "simdata/viewValues.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace simdata {

namespace {

int32_t toInt32(double v) {
  if (!(v > -2147483648.0)) {
    return v < 0.0 ? INT32_MIN : 0;
  }
  return v < 2147483647.0 ? static_cast<int32_t>(v) : INT32_MAX;
}

int8_t toInt8(double v) {
  if (!(v > -128.0)) {
    return v < 0.0 ? INT8_MIN : 0;
  }
  return v < 127.0 ? static_cast<int8_t>(v) : INT8_MAX;
}

}  // namespace

ViewVector::ViewVector(std::string name, std::string units, int type,
                       std::shared_ptr<const void> owner, std::span<const double> values,
                       bool mayHoldNaN)
    : name_(std::move(name)),
      units_(std::move(units)),
      type_(type),
      owner_(std::move(owner)),
      values_(values),
      mayHoldNaN_(mayHoldNaN) {}

ViewVector::ViewVector(std::string name, std::string units, std::shared_ptr<const void> owner,
                       std::span<const float> values)
    : name_(std::move(name)),
      units_(std::move(units)),
      type_(kFloat32),
      owner_(std::move(owner)),
      values_(values) {}

int ViewVector::length() const {
  return std::visit([](auto values) { return static_cast<int>(values.size()); }, values_);
}

double ViewVector::doubleAt(int i) const {
  return std::visit(
      [i](auto values) {
        return i >= 0 && static_cast<size_t>(i) < values.size()
                   ? static_cast<double>(values[static_cast<size_t>(i)])
                   : 0.0;
      },
      values_);
}

float ViewVector::floatAt(int i) const {
  if (const auto* floats = std::get_if<std::span<const float>>(&values_)) {
    return i >= 0 && static_cast<size_t>(i) < floats->size() ? (*floats)[static_cast<size_t>(i)]
                                                             : 0.0f;
  }
  return static_cast<float>(doubleAt(i));
}

int32_t ViewVector::intAt(int i) const { return toInt32(doubleAt(i)); }

int8_t ViewVector::int8At(int i) const { return toInt8(doubleAt(i)); }

std::span<const double> ViewVector::doubles() const {
  const auto* doubles = std::get_if<std::span<const double>>(&values_);
  return doubles != nullptr && type_ == kFloat64 ? *doubles : std::span<const double>();
}

std::span<const float> ViewVector::floats() const {
  const auto* floats = std::get_if<std::span<const float>>(&values_);
  return floats != nullptr ? *floats : std::span<const float>();
}

std::shared_ptr<const ViewVector> ViewVector::slice(size_t first, size_t count) const {
  return std::visit(
      [&](auto values) -> std::shared_ptr<const ViewVector> {
        first = std::min(first, values.size());
        count = std::min(count, values.size() - first);
        auto part = std::make_shared<ViewVector>(*this);
        part->values_ = values.subspan(first, count);
        return part;
      },
      values_);
}

std::unique_ptr<ViewValue> ViewValue::scalarValue(std::string name,
                                                  std::shared_ptr<const ValueLabels> labels,
                                                  double v) {
  auto value = std::unique_ptr<ViewValue>(new ViewValue(std::move(name), std::move(labels)));
  value->dimension_ = 0;
  value->kind_ = kScalarValue;
  value->scalar_ = v;
  return value;
}

std::unique_ptr<ViewValue> ViewValue::waveform(std::string name,
                                               std::shared_ptr<const ValueLabels> labels,
                                               std::shared_ptr<const DataVector> x,
                                               std::shared_ptr<const DataVector> y) {
  auto value = std::unique_ptr<ViewValue>(new ViewValue(std::move(name), std::move(labels)));
  value->dimension_ = 1;
  value->kind_ = kDataVectorValue;
  value->x_ = std::move(x);
  value->y_ = std::move(y);
  return value;
}

std::unique_ptr<ViewValue> ViewValue::nested(std::string name,
                                             std::shared_ptr<const ValueLabels> labels,
                                             std::vector<std::unique_ptr<ViewValue>> inner) {
  auto value = std::unique_ptr<ViewValue>(new ViewValue(std::move(name), std::move(labels)));
  value->dimension_ = 1 + (inner.empty() ? 1 : inner.front()->dimension());
  value->kind_ = kDataVectorValue;
  value->inner_ = std::move(inner);
  return value;
}

const Value* ViewValue::waveAt(int i) const {
  return i >= 0 && static_cast<size_t>(i) < inner_.size() ? inner_[static_cast<size_t>(i)].get()
                                                          : nullptr;
}

const char* unitsOfTypeWord(std::string_view type) {
  if (type == "time") {
    return "s";
  }
  if (type == "voltage") {
    return "V";
  }
  if (type == "current" || type == "device_current" || type == "subckt_current") {
    return "A";
  }
  if (type == "frequency") {
    return "Hz";
  }
  return "";
}

std::unique_ptr<Value> FileDataset::readValue(std::string_view name) {
  const Signal* signal = signals_.find(name);
  if (signal == nullptr) {
    setLastError(errorCode_, "no signal named " + std::string(name) + " in dataset " + name_);
    return nullptr;
  }
  return valueOfSignal(signal->id);
}

int64_t FileDataset::idOf(const Signal* signal) const {
  if (signal == nullptr || signal->id < 0 || signal->id >= signals_.count()) {
    return -1;
  }
  const Signal* own = signals_.at(static_cast<int>(signal->id));
  return own == signal || own->name2 == signal->name2 ? signal->id : -1;
}

Range extentOf(const DataVector& values) {
  Range range{kFloat64, 0.0, 0.0};
  bool first = true;
  for (int i = 0; i < values.length(); ++i) {
    const double v = values.doubleAt(i);
    if (std::isnan(v)) {
      continue;
    }
    range.min = first ? v : std::min(range.min, v);
    range.max = first ? v : std::max(range.max, v);
    first = false;
  }
  return range;
}

}  // namespace simdata
