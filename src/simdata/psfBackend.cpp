#include "simdata/psfBackend.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <set>
#include <vector>

#include "simdata/mappedFile.h"
#include "simdata/psfFile.h"
#include "simdata/viewValues.h"

namespace simdata {

namespace {

namespace fs = std::filesystem;

/// Index and run files of a results directory: they describe datasets, they are none.
constexpr const char* kIndexFiles[] = {"logFile", "artistLogFile"};
constexpr const char* kRunFiles[] = {"logFile", "artistLogFile", "runObjFile", "simRunData"};

bool isRunFile(const std::string& name) {
  return std::any_of(std::begin(kRunFiles), std::end(kRunFiles),
                     [&](const char* run) { return name == run; });
}

bool isRegularFile(const fs::path& path) {
  std::error_code error;
  return fs::is_regular_file(path, error);
}

/// Whether the file starts with the word HEADER (a PSF ASCII file; binary PSF does not).
bool fileStartsLikePsfAscii(const fs::path& path) {
  FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    return false;
  }
  char head[64];
  const size_t got = std::fread(head, 1, sizeof head, file);
  std::fclose(file);
  return psf::startsLikePsfAscii(std::string_view(head, got));
}

/// One PSF data file as a dataset. A swept file lists its sweep variable first (as raw files
/// list their scale), then its traces; a file without a sweep lists its numeric entries.
class PsfDataset : public FileDataset {
 public:
  PsfDataset(std::shared_ptr<const psf::PsfData> data, std::string name, std::string type,
             const std::string& dirName)
      : FileDataset(std::move(name), std::move(type), psf::kPsfErrorCode), data_(std::move(data)) {
    const psf::HeaderItem* description = data_->findHeader("analysis description");
    labels_ = std::make_shared<ValueLabels>(
        ValueLabels{description != nullptr && !description->isNumber ? description->text : name_,
                    name_, dirName});
    if (data_->swept) {
      signals_.add(Signal{data_->sweepName, data_->sweepWritten, data_->sweepTypeName, 0});
    }
    const int64_t first = data_->swept ? 1 : 0;
    for (size_t q = 0; q < data_->quantities.size(); ++q) {
      const psf::Quantity& quantity = data_->quantities[q];
      signals_.add(Signal{quantity.name, quantity.written, quantity.typeName,
                          first + static_cast<int64_t>(q)});
    }
  }

  std::unique_ptr<ValueArray> read(const SignalArray& signals) override {
    auto array = std::make_unique<ValueArray>();
    for (int i = 0; i < signals.count(); ++i) {
      const int64_t id = idOf(signals.at(i));
      array->add(id >= 0 ? valueOfSignal(id) : nullptr);
    }
    return array;
  }

  const Sweep* sweep() const override {
    if (!data_->swept) {
      return nullptr;
    }
    if (!sweep_) {
      const Range range = extentOf(*sweepVector());
      sweep_.emplace();
      sweep_->add(SweepDimension{data_->sweepName, range});
    }
    return &*sweep_;
  }

 private:
  const std::shared_ptr<const ViewVector>& sweepVector() const {
    if (!x_) {
      x_ = std::make_shared<const ViewVector>(data_->sweepName, data_->sweepUnits, kFloat64, data_,
                                              std::span<const double>(data_->sweepValues));
    }
    return x_;
  }

  std::unique_ptr<Value> valueOfSignal(int64_t id) const override {
    if (!data_->swept) {
      const psf::Quantity& quantity = data_->quantities[static_cast<size_t>(id)];
      return ViewValue::scalarValue(quantity.name, labels_, quantity.scalar);
    }
    const std::shared_ptr<const ViewVector>& x = sweepVector();
    if (id == 0) {
      return ViewValue::waveform(data_->sweepName, labels_, x, x);
    }
    const psf::Quantity& quantity = data_->quantities[static_cast<size_t>(id - 1)];
    auto y = std::make_shared<const ViewVector>(
        quantity.name, quantity.units, quantity.complex ? kComplex : kFloat64, data_,
        std::span<const double>(data_->columns[quantity.column]));
    return ViewValue::waveform(quantity.name, labels_, x, std::move(y));
  }

  std::shared_ptr<const psf::PsfData> data_;
  mutable std::shared_ptr<const ViewVector> x_;
  mutable std::optional<Sweep> sweep_;
};

/// Reads a whole PSF ASCII file; null with `error` set when it cannot be read. Throws
/// FileChanged when the file changed while it was read.
std::shared_ptr<const psf::PsfData> readPsfFile(const std::string& path, std::string& error) {
  MappedFile map;
  std::string mapError;
  if (!map.open(path, mapError)) {
    error = path + ": " + mapError;
    return nullptr;
  }
  auto data = std::make_shared<psf::PsfData>();
  const bool parsed = psf::parsePsf(map.view(), path, *data, error);
  throwIfChanged(path, map.stamp(), map.faultOffset());
  return parsed ? data : nullptr;
}

std::string analysisTypeOf(const psf::PsfData& data, const std::string& fileName) {
  if (fileName == "variables_file") {
    return "design_variables";
  }
  const psf::HeaderItem* type = data.findHeader("analysis type");
  if (type != nullptr && !type->isNumber) {
    return type->text;
  }
  const size_t dot = fileName.find('.');
  return dot == std::string::npos ? std::string() : fileName.substr(dot + 1);
}

/// A dataset an index names: its name, analysis type and data file.
struct IndexEntry {
  std::string name;
  std::string type;
  std::string dataFile;
};

/// The datasets the index files of a directory list, in index order; false with `error` set
/// when an index file cannot be read.
bool readIndex(const fs::path& folder, std::vector<IndexEntry>& entries, std::string& error) {
  for (const char* indexName : kIndexFiles) {
    const fs::path index = folder / indexName;
    if (!isRegularFile(index) || !fileStartsLikePsfAscii(index)) {
      continue;
    }
    const auto data = readPsfFile(index.string(), error);
    if (!data) {
      return false;
    }
    for (const psf::Record& record : data->records) {
      const std::string* dataFile = record.text("dataFile");
      if (dataFile == nullptr || dataFile->empty()) {
        continue;
      }
      const std::string* type = record.text("analysisType");
      entries.push_back(IndexEntry{record.name, type != nullptr ? *type : "", *dataFile});
    }
  }
  return true;
}

/// Files of a folder in file-name order.
std::vector<std::string> fileNamesIn(const fs::path& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    std::error_code statusError;
    if (it->is_regular_file(statusError)) {
      names.push_back(it->path().filename().string());
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

/// A data file named in an index must be a plain file name inside the directory.
bool isPlainFileName(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

std::unique_ptr<ResultsDir> openFolder(const std::string& path) {
  const fs::path folder(path);
  std::vector<IndexEntry> entries;
  std::string error;
  if (!readIndex(folder, entries, error)) {
    setLastError(psf::kPsfErrorCode, error);
    return nullptr;
  }
  auto dir = std::make_unique<OwningResultsDir>(path);
  std::set<std::string> used;
  std::vector<std::string> skipped;
  for (const IndexEntry& entry : entries) {
    const fs::path file = folder / entry.dataFile;
    if (!isPlainFileName(entry.dataFile) || !isRegularFile(file)) {
      skipped.push_back(entry.name + " (" + entry.dataFile + ": missing)");
      continue;
    }
    used.insert(entry.dataFile);
    if (!fileStartsLikePsfAscii(file)) {
      skipped.push_back(entry.name + " (" + entry.dataFile + ": binary PSF, not read)");
      continue;
    }
    auto data = readPsfFile(file.string(), error);
    if (!data) {
      setLastError(psf::kPsfErrorCode, error);
      return nullptr;
    }
    dir->add(std::make_unique<PsfDataset>(std::move(data), entry.name, entry.type, path));
  }
  for (const std::string& name : fileNamesIn(folder)) {
    const fs::path file = folder / name;
    if (used.count(name) != 0 || isRunFile(name) || !fileStartsLikePsfAscii(file)) {
      continue;
    }
    auto data = readPsfFile(file.string(), error);
    if (!data) {
      setLastError(psf::kPsfErrorCode, error);
      return nullptr;
    }
    std::string type = analysisTypeOf(*data, name);
    dir->add(std::make_unique<PsfDataset>(std::move(data), psf::datasetNameOfFile(name),
                                          std::move(type), path));
  }
  if (!skipped.empty()) {
    std::string text = path + ": " + std::to_string(skipped.size()) +
                       (skipped.size() == 1 ? " dataset" : " datasets") + " not read: ";
    for (size_t i = 0; i < skipped.size(); ++i) {
      text += (i == 0 ? "" : ", ") + skipped[i];
    }
    setLastError(psf::kPsfSkippedCode, std::move(text));
  }
  return dir;
}

}  // namespace

namespace psf {

std::string datasetNameOfFile(const std::string& fileName) {
  return fileName == "variables_file" ? "variables" : fileName;
}

}  // namespace psf

bool PsfBackend::recognises(const std::string& path) const {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error) {
    return false;
  }
  if (fs::is_regular_file(status)) {
    return fileStartsLikePsfAscii(path);
  }
  if (!fs::is_directory(status)) {
    return false;
  }
  const fs::path folder(path);
  if (std::any_of(std::begin(kRunFiles), std::end(kRunFiles),
                  [&](const char* name) { return isRegularFile(folder / name); })) {
    return true;
  }
  const std::vector<std::string> names = fileNamesIn(folder);
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    return fileStartsLikePsfAscii(folder / name);
  });
}

std::unique_ptr<ResultsDir> PsfBackend::open(const std::string& path) const {
  std::error_code error;
  if (fs::is_directory(path, error)) {
    return openFolder(path);
  }
  const fs::path file(path);
  const std::string fileName = file.filename().string();
  if (isRunFile(fileName)) {
    const fs::path parent = file.has_parent_path() ? file.parent_path() : fs::path(".");
    return openFolder(parent.string());
  }
  std::string message;
  auto data = readPsfFile(path, message);
  if (!data) {
    setLastError(psf::kPsfErrorCode, message);
    return nullptr;
  }
  auto dir = std::make_unique<OwningResultsDir>(path);
  std::string type = analysisTypeOf(*data, fileName);
  dir->add(std::make_unique<PsfDataset>(std::move(data), psf::datasetNameOfFile(fileName),
                                        std::move(type), path));
  return dir;
}

}  // namespace simdata
