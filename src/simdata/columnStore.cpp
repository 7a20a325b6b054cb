#include "simdata/columnStore.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>

#include "simdata/detail/littleEndian.h"
#include "simdata/mappedFile.h"
#include "support/parallel.h"

namespace simdata::raw {

namespace {

using simdata::detail::loadDouble;

/// Tile of the transposition: a run of records by a run of columns. Within a tile every
/// output column receives a run of consecutive values while the tile's slices of the
/// records stay cached (about 64 KB of records and as much of output).
constexpr size_t kTilePoints = 32;
constexpr size_t kTileColumns = 256;
/// Records transposed between two releases of their pages when building in memory.
constexpr size_t kChunkBytes = size_t{32} << 20;

size_t pageSize() {
  static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  return size;
}

/// Memory mapped for a large buffer, with large pages asked for, unmapped when it goes.
class AnonymousMemory {
 public:
  explicit AnonymousMemory(size_t bytes) : bytes_(std::max<size_t>(bytes, 1)) {
    void* address = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE,
                         MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (address != MAP_FAILED) {
      madvise(address, bytes_, MADV_HUGEPAGE);
      data_ = address;
    }
  }
  ~AnonymousMemory() {
    if (data_ != nullptr) {
      munmap(data_, bytes_);
    }
  }
  AnonymousMemory(const AnonymousMemory&) = delete;
  AnonymousMemory& operator=(const AnonymousMemory&) = delete;
  void* data() const { return data_; }

 private:
  size_t bytes_;
  void* data_ = nullptr;
};

/// Maps the pages of [begin, end) of a file mapping in one call rather than one fault at a
/// time (a hint: kernels without it simply fault the pages in as they are read).
void populatePages(const char* begin, const char* end) {
#ifdef MADV_POPULATE_READ
  const uintptr_t page = pageSize();
  const uintptr_t first = reinterpret_cast<uintptr_t>(begin) & ~(page - 1);
  const uintptr_t last = reinterpret_cast<uintptr_t>(end);
  if (last > first) {
    madvise(reinterpret_cast<void*>(first), last - first, MADV_POPULATE_READ);
  }
#else
  static_cast<void>(begin);
  static_cast<void>(end);
#endif
}

/// Copies records [p0, p1) of columns [c0, c1) into `out`, where column c's values start
/// at out + (c - c0) * points (point p at index p), and marks columns that hold a NaN.
void transpose(const RecordLayout& records, size_t p0, size_t p1, size_t c0, size_t c1, double* out,
               uint8_t* nan) {
  for (size_t t0 = p0; t0 < p1; t0 += kTilePoints) {
    const size_t t1 = std::min(p1, t0 + kTilePoints);
    for (size_t c = c0; c < c1; ++c) {
      const char* at = records.base + c * records.valueBytes;
      double* column = out + (c - c0) * records.points;
      bool hasNaN = false;
      for (size_t p = t0; p < t1; ++p) {
        const double v = loadDouble(at + p * records.recordBytes);
        column[p] = v;
        hasNaN |= v != v;
      }
      if (hasNaN) {
        nan[c] = 1;
      }
    }
  }
}

/// Available memory as the kernel estimates it, or 0 when unknown.
size_t availableMemory() {
  std::ifstream meminfo("/proc/meminfo");
  std::string key;
  size_t kilobytes = 0;
  std::string unit;
  while (meminfo >> key >> kilobytes >> unit) {
    if (key == "MemAvailable:") {
      return kilobytes * 1024;
    }
  }
  return 0;
}

/// Copies records [p0, p1) of the columns listed in `order` (positions into `columns`,
/// sorted by column) to their chunk buffers, chunk position k at out + k * stride, NaN as 0.0.
void transposeChunk(const RecordLayout& records, size_t p0, size_t p1, std::span<const int> columns,
                    std::span<const size_t> order, double* out, size_t stride) {
  for (size_t t0 = p0; t0 < p1; t0 += kTilePoints) {
    const size_t t1 = std::min(p1, t0 + kTilePoints);
    for (const size_t k : order) {
      const char* at = records.base + static_cast<size_t>(columns[k]) * records.valueBytes;
      double* column = out + k * stride - p0;
      for (size_t p = t0; p < t1; ++p) {
        const double v = loadDouble(at + p * records.recordBytes);
        column[p] = v != v ? 0.0 : v;
      }
    }
  }
}

}  // namespace

void streamColumns(const RecordLayout& records, std::span<const int> columns,
                   const ChunkVisitor& visit, bool releaseRecords, size_t chunkBytes) {
  const size_t count = columns.size();
  for (const int column : columns) {
    if (column < 0 || static_cast<size_t>(column) >= records.columns) {
      return;  // callers pass columns of these records only
    }
  }
  // Visit the columns in record order so each record is read front to back.
  std::vector<size_t> order(count);
  for (size_t k = 0; k < count; ++k) {
    order[k] = k;
  }
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return columns[a] < columns[b]; });
  const size_t chunkPoints = std::clamp<size_t>(
      chunkBytes / std::max<size_t>(count * sizeof(double), 1), kTilePoints, 4096);
  const size_t stride = std::min(chunkPoints, records.points);
  // Every element is written by the transposition before it is visited, so the buffer is
  // not cleared first; large pages spare most of its page faults.
  AnonymousMemory buffer(count * stride * sizeof(double));
  double* chunk = static_cast<double*>(buffer.data());
  if (chunk == nullptr) {
    throw std::bad_alloc();
  }
  std::vector<const double*> values(count);
  for (size_t k = 0; k < count; ++k) {
    values[k] = chunk + k * stride;
  }
  const size_t tiles = (count + kTileColumns - 1) / kTileColumns;
  for (size_t p0 = 0; p0 < records.points; p0 += stride) {
    const size_t p1 = std::min(records.points, p0 + stride);
    populatePages(records.base + p0 * records.recordBytes, records.base + p1 * records.recordBytes);
    support::parallelFor(tiles, 4, [&](size_t first, size_t last) {
      const std::span<const size_t> tile(
          order.data() + first * kTileColumns,
          std::min(count, last * kTileColumns) - first * kTileColumns);
      transposeChunk(records, p0, p1, columns, tile, chunk, stride);
    });
    visit(p0, p1 - p0, values);
    if (releaseRecords) {
      releaseMappedPages(records.base + p0 * records.recordBytes,
                         records.base + p1 * records.recordBytes);
    }
  }
}

ColumnStoreSettings columnStoreSettings() {
  ColumnStoreSettings settings;
  settings.memoryBudget = availableMemory() / 2;
  if (const char* value = std::getenv(kColumnStoreMemoryVariable)) {
    char* end = nullptr;
    const double megabytes = std::strtod(value, &end);
    if (end != value && megabytes >= 0) {
      settings.memoryBudget = static_cast<size_t>(megabytes * 1048576.0);
    }
  }
  const char* tmp = std::getenv("TMPDIR");
  settings.folder = tmp != nullptr && *tmp != '\0' ? tmp : "/tmp";
  settings.passBytes = std::clamp(settings.memoryBudget / 4, size_t{64} << 20, size_t{1} << 30);
  return settings;
}

std::shared_ptr<const ColumnStore> ColumnStore::build(const RecordLayout& records,
                                                      const ColumnStoreSettings& settings,
                                                      std::string& error) {
  std::shared_ptr<ColumnStore> store(new ColumnStore());
  store->columns_ = records.columns;
  store->points_ = records.points;
  if (records.columns > 0 && records.points > SIZE_MAX / 8 / records.columns) {
    error = "the plot is too large for a column store";
    return nullptr;
  }
  try {
    store->nan_.assign(records.columns, 0);
  } catch (const std::bad_alloc&) {
    error = "not enough memory for the column store";
    return nullptr;
  }
  const size_t bytes = records.columns * records.points * sizeof(double);
  const bool ok = bytes <= settings.memoryBudget ? store->buildInMemory(records, settings, error)
                                                 : store->buildInFile(records, settings, error);
  if (!ok) {
    return nullptr;
  }
  return store;
}

bool ColumnStore::buildInMemory(const RecordLayout& records, const ColumnStoreSettings& settings,
                                std::string& error) {
  const size_t bytes = std::max<size_t>(columns_ * points_ * sizeof(double), 1);
  void* address = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (address == MAP_FAILED) {
    error = std::string("not enough memory for the column store: ") + std::strerror(errno);
    return false;
  }
  // Fewer page faults and TLB misses when the kernel grants large pages.
  madvise(address, bytes, MADV_HUGEPAGE);
  memory_ = static_cast<double*>(address);
  mappedBytes_ = bytes;
  // Chunks of records; within a chunk the column tiles are shared out. Each chunk's pages
  // are given back once it is transposed, so the records and the store are not both
  // resident in full.
  const size_t chunkPoints =
      std::clamp<size_t>(kChunkBytes / std::max<size_t>(records.recordBytes, 1), kTilePoints, 1024);
  const size_t tiles = (columns_ + kTileColumns - 1) / kTileColumns;
  for (size_t p0 = 0; p0 < points_; p0 += chunkPoints) {
    const size_t p1 = std::min(points_, p0 + chunkPoints);
    support::parallelFor(tiles, 8, [&](size_t first, size_t last) {
      const size_t c0 = first * kTileColumns;
      const size_t c1 = std::min(columns_, last * kTileColumns);
      transpose(records, p0, p1, c0, c1, memory_ + c0 * points_, nan_.data());
    });
    if (settings.releaseRecords) {
      releaseMappedPages(records.base + p0 * records.recordBytes,
                         records.base + p1 * records.recordBytes);
    }
  }
  return true;
}

bool ColumnStore::buildInFile(const RecordLayout& records, const ColumnStoreSettings& settings,
                              std::string& error) {
  std::string path = settings.folder + "/kra2-columns-XXXXXX";
  fd_ = mkostemp(path.data(), O_CLOEXEC);
  if (fd_ < 0) {
    error = "cannot create a temporary file in " + settings.folder + ": " + std::strerror(errno);
    return false;
  }
  unlink(path.c_str());
  // Passes over ranges of columns: each pass reads its slice of every record once and
  // writes one contiguous run of the file.
  const size_t columnBytes = std::max<size_t>(points_ * sizeof(double), 1);
  const size_t passColumns = std::clamp<size_t>(settings.passBytes / columnBytes, 1, columns_);
  std::vector<double> buffer;
  try {
    buffer.resize(passColumns * points_);
  } catch (const std::bad_alloc&) {
    error = "not enough memory for a pass of the column store";
    return false;
  }
  for (size_t c0 = 0; c0 < columns_; c0 += passColumns) {
    const size_t c1 = std::min(columns_, c0 + passColumns);
    const size_t tiles = (c1 - c0 + kTileColumns - 1) / kTileColumns;
    support::parallelFor(tiles, 1, [&](size_t first, size_t last) {
      const size_t t0 = c0 + first * kTileColumns;
      const size_t t1 = std::min(c1, c0 + last * kTileColumns);
      transpose(records, 0, points_, t0, t1, buffer.data() + (t0 - c0) * points_, nan_.data());
    });
    const char* from = reinterpret_cast<const char*>(buffer.data());
    size_t left = (c1 - c0) * points_ * sizeof(double);
    off_t offset = static_cast<off_t>(c0 * points_ * sizeof(double));
    while (left > 0) {
      const ssize_t written = pwrite(fd_, from, left, offset);
      if (written < 0 && errno == EINTR) {
        continue;
      }
      if (written <= 0) {
        error = "cannot write the column store in " + settings.folder + ": " +
                std::strerror(written < 0 ? errno : ENOSPC);
        return false;
      }
      from += written;
      left -= static_cast<size_t>(written);
      offset += written;
    }
    if (settings.releaseRecords) {
      releaseMappedPages(records.base, records.base + points_ * records.recordBytes);
    }
  }
  return true;
}

ColumnStore::~ColumnStore() {
  if (memory_ != nullptr) {
    munmap(memory_, mappedBytes_);
  }
  if (fd_ >= 0) {
    close(fd_);
  }
}

std::span<const double> ColumnStore::view(size_t column) const {
  if (memory_ == nullptr || column >= columns_) {
    return {};
  }
  return {memory_ + column * points_, points_};
}

bool ColumnStore::holdsNaN(size_t column) const { return column >= columns_ || nan_[column] != 0; }

bool ColumnStore::read(std::span<const int> columns, std::span<double* const> outputs,
                       std::string& error) const {
  const size_t count = std::min(columns.size(), outputs.size());
  const size_t columnBytes = points_ * sizeof(double);
  for (size_t k = 0; k < count; ++k) {
    const int column = columns[k];
    if (column < 0 || static_cast<size_t>(column) >= columns_) {
      continue;  // callers pass columns of this store only
    }
    if (memory_ != nullptr) {
      std::memcpy(outputs[k], memory_ + static_cast<size_t>(column) * points_, columnBytes);
      continue;
    }
    char* to = reinterpret_cast<char*>(outputs[k]);
    size_t left = columnBytes;
    off_t offset = static_cast<off_t>(static_cast<size_t>(column) * columnBytes);
    while (left > 0) {
      const ssize_t got = pread(fd_, to, left, offset);
      if (got < 0 && errno == EINTR) {
        continue;
      }
      if (got <= 0) {
        error = std::string("cannot read the column store: ") +
                (got < 0 ? std::strerror(errno) : "unexpected end of file");
        return false;
      }
      to += got;
      left -= static_cast<size_t>(got);
      offset += got;
    }
  }
  return true;
}

}  // namespace simdata::raw
