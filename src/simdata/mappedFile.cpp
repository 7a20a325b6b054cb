#include "simdata/mappedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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
      device_(other.device_),
      inode_(other.inode_) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  if (this != &other) {
    unmap();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    device_ = other.device_;
    inode_ = other.inode_;
  }
  return *this;
}

void MappedFile::unmap() {
  if (data_ != nullptr) {
    munmap(const_cast<char*>(data_), size_);
    forgetMapped(device_, inode_);
  }
  data_ = nullptr;
  size_ = 0;
}

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
  device_ = info.st_dev;
  inode_ = info.st_ino;
  noteMapped(device_, inode_);
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
