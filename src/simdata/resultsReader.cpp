#include "simdata/resultsReader.h"

#include <strings.h>

#include <cctype>
#include <cmath>
#include <cstdio>

namespace simdata {

double getDataVectorAt(const DataVector* vector, int index) {
  if (vector == nullptr) {
    return 0.0;
  }
  switch (vector->elementType()) {
    case kFloat64: {
      double v = vector->doubleAt(index);
      return std::isnan(v) ? 0.0 : v;
    }
    case kInt32:
      return static_cast<double>(vector->intAt(index));
    case kFloat32: {
      float v = vector->floatAt(index);
      return std::isnan(v) ? 0.0 : static_cast<double>(v);
    }
    case kInt8:
      return static_cast<double>(vector->int8At(index));
    case 2:
    case 3:
    case 4:
    case 6:
    case 7:
    case 12:
      return 0.0;
    default:
      std::fputs(" UNKNOWN TYPE. ", stdout);
      return 0.0;
  }
}

const Value* getWaveform(const Value* value) {
  while (value != nullptr && value->dimension() >= 2) {
    value = value->waveCount() > 0 ? value->waveAt(0) : nullptr;
  }
  return value;
}

namespace {

void printLabel(const char* label, const char* text) {
  std::printf("%s%s\n", label, text != nullptr ? text : "NULL");
}

}  // namespace

void printValueInfo(const Value* value) {
  if (value == nullptr) {
    return;
  }
  printLabel("Waveform name: ", value->name());
  printLabel("Waveform displayTitle: ", value->displayTitle());
  printLabel("Waveform data set name: ", value->datasetName());
  printLabel("Waveform results directory name: ", value->resultsDirName());
  if (value->dimension() >= 1) {
    const DataVector* x = value->xVector();
    const DataVector* y = value->yVector();
    printLabel("    XVector name: ", x ? x->name() : nullptr);
    printLabel("    XVector baseUnits: ", x ? x->baseUnits() : nullptr);
    printLabel("    YVector name: ", y ? y->name() : nullptr);
    printLabel("    YVector baseUnits: ", y ? y->baseUnits() : nullptr);
  }
}

namespace {

std::string foldCase(std::string_view text) {
  std::string folded(text);
  for (char& c : folded) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return folded;
}

}  // namespace

void SignalList::add(Signal signal) {
  signals_.push_back(std::move(signal));
  indexed_ = false;
  foldedIndexed_ = false;
}

const Signal* SignalList::at(int i) const {
  if (i < 0 || i >= count()) {
    return nullptr;
  }
  return &signals_[i];
}

void SignalList::buildIndex() const {
  exact_ = support::FlatNameMap();
  exact_.reserve(signals_.size() * 2);
  // The first signal holding a name wins, for either of its names.
  for (int i = 0; i < count(); ++i) {
    exact_.insert(signals_[i].name1, i);
    exact_.insert(signals_[i].name2, i);
  }
  indexed_ = true;
}

void SignalList::buildFoldedIndex() const {
  folded_.clear();
  folded_.reserve(signals_.size() * 2);
  for (int i = 0; i < count(); ++i) {
    folded_.emplace(foldCase(signals_[i].name1), i);
    folded_.emplace(foldCase(signals_[i].name2), i);
  }
  foldedIndexed_ = true;
}

const Signal* SignalList::find(std::string_view name) const {
  return find(name, support::hashName(name));
}

const Signal* SignalList::find(std::string_view name, size_t hash) const {
  if (!indexed_) {
    buildIndex();
  }
  if (const int* position = exact_.find(name, hash)) {
    return &signals_[static_cast<size_t>(*position)];
  }
  if (!foldedIndexed_) {
    buildFoldedIndex();
  }
  if (auto it = folded_.find(foldCase(name)); it != folded_.end()) {
    return &signals_[it->second];
  }
  return nullptr;
}

const Value* ValueArray::at(int i) const {
  if (i < 0 || i >= count()) {
    return nullptr;
  }
  return values_[i].get();
}

const Signal* Dataset::findSignal(std::string_view name) {
  const SignalList* list = signals();
  return list != nullptr ? list->find(name) : nullptr;
}

Dataset* DatasetArray::find(std::string_view name) const {
  for (Dataset* dataset : datasets_) {
    const char* datasetName = dataset->name();
    if (datasetName != nullptr && name == datasetName) {
      return dataset;
    }
  }
  return nullptr;
}

Dataset* ResultsDir::findDataset(std::string_view name) const {
  const DatasetArray* array = datasets();
  Dataset* dataset = array != nullptr ? array->find(name) : nullptr;
  if (dataset == nullptr) {
    setLastError(3, "no dataset named " + std::string(name) + " in " + this->name());
  }
  return dataset;
}

namespace {

struct ErrorState {
  uint16_t code = 0;
  std::string text;
};

ErrorState& errorState() {
  static ErrorState state;
  return state;
}

std::vector<std::unique_ptr<Backend>>& backends() {
  static std::vector<std::unique_ptr<Backend>> registered;
  return registered;
}

const Backend* backendFor(const std::string& path) {
  for (const auto& backend : backends()) {
    if (backend->recognises(path)) {
      return backend.get();
    }
  }
  return nullptr;
}

}  // namespace

uint16_t lastErrorCode() { return errorState().code; }

const char* lastErrorText() { return errorState().code != 0 ? errorState().text.c_str() : nullptr; }

void resetError() {
  errorState().code = 0;
  errorState().text.clear();
}

void setLastError(uint16_t code, std::string text) {
  errorState().code = code;
  errorState().text = std::move(text);
}

void registerBackend(std::unique_ptr<Backend> backend) { backends().push_back(std::move(backend)); }

bool isResultsDirectory(const std::string& path) { return backendFor(path) != nullptr; }

const char* readerName(const std::string& path) {
  const Backend* backend = backendFor(path);
  return backend != nullptr ? backend->readerName() : nullptr;
}

std::unique_ptr<ResultsDir> openResults(const std::string& path) {
  const Backend* backend = backendFor(path);
  if (backend == nullptr) {
    setLastError(1, "no reader recognises " + path);
    return nullptr;
  }
  return backend->open(path);
}

}  // namespace simdata
