#pragma once
// Column access to binary raw data. A binary plot is written point by point, so the values
// of one signal lie a whole record apart, and reading the signals of a run batch by batch
// passes over the whole file for every batch. Two ways around that:
//  - a stream: one pass over the records, handing out chunks of points transposed signal by
//    signal, for readers that can consume the data in point order (streamColumns);
//  - a column store: the plot transposed once, signal by signal, into memory when the values
//    fit the memory budget, else into a temporary file (unlinked as soon as it is created,
//    so it goes away with the store or the process, whatever happens). Reads are then views
//    into memory, or one contiguous read per signal from the file.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace simdata::raw {

/// Point-major records as a binary plot holds them: `points` records of `recordBytes`
/// bytes from `base`, the real part of variable v at byte v * valueBytes of a record,
/// little-endian float64.
struct RecordLayout {
  const char* base = nullptr;
  size_t points = 0;
  size_t columns = 0;
  size_t recordBytes = 0;
  size_t valueBytes = 8;
};

/// Receives the chunks of a stream: values[k] holds `count` values of the k-th column from
/// point `first`.
using ChunkVisitor =
    std::function<void(size_t first, size_t count, std::span<const double* const> values)>;

/// Visits the listed columns of the records in one pass, chunk of points by chunk of points
/// in order, with NaN read as 0.0. Each chunk is transposed on all threads into a
/// buffer that is reused; with `releaseRecords` the pages of the records are given back once
/// their chunk is visited, so the pass keeps only about `chunkBytes` of values resident (the
/// records must then be a read-only file mapping, which refills from the file; other memory
/// would lose its contents).
void streamColumns(const RecordLayout& records, std::span<const int> columns,
                   const ChunkVisitor& visit, bool releaseRecords = true,
                   size_t chunkBytes = size_t{32} << 20);

/// Where and how a store is built.
struct ColumnStoreSettings {
  /// Value bytes kept in memory at most; a larger store goes to a temporary file.
  size_t memoryBudget = 0;
  /// Folder of the temporary file.
  std::string folder = "/tmp";
  /// Bytes of values transposed per pass when writing a file (bounds the memory used).
  size_t passBytes = size_t{256} << 20;
  /// Whether the pages of the records may be given back (MADV_DONTNEED) once transposed:
  /// they are a read-only file mapping that refills from the file when read again.
  bool releaseRecords = true;
};

/// Environment variable: the memory budget of column stores in megabytes (0: always a file).
inline constexpr const char* kColumnStoreMemoryVariable = "KRA2_COLUMN_STORE_MEMORY";

/// The settings of this machine: half of the available memory as the budget (or
/// KRA2_COLUMN_STORE_MEMORY), $TMPDIR (or /tmp) as the folder.
ColumnStoreSettings columnStoreSettings();

class ColumnStore {
 public:
  /// Transposes every column of the records; null with `error` set when the memory or the
  /// temporary file cannot be had.
  static std::shared_ptr<const ColumnStore> build(const RecordLayout& records,
                                                  const ColumnStoreSettings& settings,
                                                  std::string& error);
  ~ColumnStore();
  ColumnStore(const ColumnStore&) = delete;
  ColumnStore& operator=(const ColumnStore&) = delete;

  bool inMemory() const { return memory_ != nullptr; }
  size_t columns() const { return columns_; }
  size_t points() const { return points_; }
  /// Column c in memory; empty for a store in a file or a column out of range.
  std::span<const double> view(size_t column) const;
  /// Whether column c holds a NaN (true for a column out of range).
  bool holdsNaN(size_t column) const;
  /// Copies each listed column into its output (points() doubles each); false with `error`
  /// set when the file cannot be read.
  bool read(std::span<const int> columns, std::span<double* const> outputs,
            std::string& error) const;

 private:
  ColumnStore() = default;
  bool buildInMemory(const RecordLayout& records, const ColumnStoreSettings& settings,
                     std::string& error);
  bool buildInFile(const RecordLayout& records, const ColumnStoreSettings& settings,
                   std::string& error);

  size_t columns_ = 0;
  size_t points_ = 0;
  double* memory_ = nullptr;
  size_t mappedBytes_ = 0;
  int fd_ = -1;
  std::vector<uint8_t> nan_;
};

}  // namespace simdata::raw
