#include "simdata/mappedFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

namespace simdata {

namespace {

/// The files mapped at present (a file mapped twice is listed twice).
struct MappedFiles {
  std::mutex mutex;
  std::vector<std::pair<dev_t, ino_t>> files;
};

MappedFiles& mappedFiles() {
  static MappedFiles registry;
  return registry;
}

void noteMapped(dev_t device, ino_t inode) {
  MappedFiles& registry = mappedFiles();
  const std::lock_guard<std::mutex> lock(registry.mutex);
  registry.files.emplace_back(device, inode);
}

void forgetMapped(dev_t device, ino_t inode) {
  MappedFiles& registry = mappedFiles();
  const std::lock_guard<std::mutex> lock(registry.mutex);
  const auto it =
      std::find(registry.files.begin(), registry.files.end(), std::make_pair(device, inode));
  if (it != registry.files.end()) {
    registry.files.erase(it);
  }
}

/// Mappings watched for reads past the end of their file. A file that shrinks under its
/// mapping makes every read of a page past its new end raise SIGBUS, which would kill the
/// process; the handler below puts a page of zeros in place of such a page instead and notes
/// the offset, and the reader, which checks after its reads, reports the file as changed.
/// The table is read inside the signal handler, so it is a fixed array of atomics.
struct GuardSlot {
  std::atomic<uintptr_t> begin{0};  // 0: free; 1: being filled in
  std::atomic<uintptr_t> end{0};
  std::atomic<size_t> firstFault{std::string::npos};
};
constexpr size_t kGuardSlots = 512;
GuardSlot guardSlots[kGuardSlots];
struct sigaction previousBusAction {};
size_t guardPageSize = 4096;

void onBusError(int, siginfo_t* info, void*) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(info->si_addr);
  for (GuardSlot& slot : guardSlots) {
    const uintptr_t begin = slot.begin.load(std::memory_order_acquire);
    if (begin > 1 && address >= begin && address < slot.end.load(std::memory_order_acquire)) {
      const uintptr_t page = address & ~(static_cast<uintptr_t>(guardPageSize) - 1);
      if (mmap(reinterpret_cast<void*>(page), guardPageSize, PROT_READ,
               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
        break;
      }
      size_t offset = page > begin ? page - begin : 0;
      size_t seen = slot.firstFault.load();
      while (offset < seen && !slot.firstFault.compare_exchange_weak(seen, offset)) {
      }
      return;  // the read is done again, on the zeros
    }
  }
  // Not a page of a watched mapping: the handler from before takes over and meets the fault
  // again when the read is done again (by default the process ends, as without this one).
  sigaction(SIGBUS, &previousBusAction, nullptr);
}

void installBusHandler() {
  static std::once_flag installed;
  std::call_once(installed, [] {
    guardPageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    struct sigaction action {};
    action.sa_sigaction = onBusError;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &previousBusAction);
  });
}

/// Watches [data, data + size); -1 when every slot is taken (the mapping is then unwatched).
int takeGuardSlot(const char* data, size_t size) {
  installBusHandler();
  for (size_t k = 0; k < kGuardSlots; ++k) {
    uintptr_t free = 0;
    if (guardSlots[k].begin.compare_exchange_strong(free, 1)) {
      guardSlots[k].firstFault.store(std::string::npos);
      guardSlots[k].end.store(reinterpret_cast<uintptr_t>(data) + size);
      guardSlots[k].begin.store(reinterpret_cast<uintptr_t>(data), std::memory_order_release);
      return static_cast<int>(k);
    }
  }
  return -1;
}

void releaseGuardSlot(int slot) {
  if (slot >= 0) {
    guardSlots[slot].begin.store(0, std::memory_order_release);
  }
}

size_t guardedFaultOffset(int slot) {
  return slot >= 0 ? guardSlots[slot].firstFault.load() : std::string::npos;
}

}  // namespace

bool isMappedForReading(const char* path) {
  struct stat info {};
  if (path == nullptr || ::stat(path, &info) != 0) {
    return false;
  }
  MappedFiles& registry = mappedFiles();
  const std::lock_guard<std::mutex> lock(registry.mutex);
  return std::find(registry.files.begin(), registry.files.end(),
                   std::make_pair(info.st_dev, info.st_ino)) != registry.files.end();
}

MappedFile::~MappedFile() { unmap(); }

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      stamp_(other.stamp_),
      guardSlot_(std::exchange(other.guardSlot_, -1)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  if (this != &other) {
    unmap();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    stamp_ = other.stamp_;
    guardSlot_ = std::exchange(other.guardSlot_, -1);
  }
  return *this;
}

void MappedFile::unmap() {
  if (data_ != nullptr) {
    releaseGuardSlot(guardSlot_);
    guardSlot_ = -1;
    munmap(const_cast<char*>(data_), size_);
    forgetMapped(stamp_.device, stamp_.inode);
  }
  data_ = nullptr;
  size_ = 0;
}

size_t MappedFile::faultOffset() const { return guardedFaultOffset(guardSlot_); }

bool MappedFile::open(const std::string& path, std::string& error) {
  unmap();
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    error = std::string("cannot open: ") + std::strerror(errno);
    return false;
  }
  struct stat info {};
  if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
    error = "not a regular file";
    ::close(fd);
    return false;
  }
  stamp_ = FileStamp::of(info);
  const size_t size = static_cast<size_t>(info.st_size);
  if (size == 0) {
    ::close(fd);
    return true;
  }
  void* address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  const int mapErrno = errno;
  ::close(fd);
  if (address == MAP_FAILED) {
    error = std::string("cannot map: ") + std::strerror(mapErrno);
    return false;
  }
  data_ = static_cast<const char*>(address);
  size_ = size;
  guardSlot_ = takeGuardSlot(data_, size_);
  noteMapped(stamp_.device, stamp_.inode);
  return true;
}

void releaseMappedPages(const char* begin, const char* end) {
  static const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t first = (reinterpret_cast<uintptr_t>(begin) + page - 1) & ~(page - 1);
  const uintptr_t last = reinterpret_cast<uintptr_t>(end) & ~(page - 1);
  if (last > first) {
    madvise(reinterpret_cast<void*>(first), last - first, MADV_DONTNEED);
  }
}

}  // namespace simdata
