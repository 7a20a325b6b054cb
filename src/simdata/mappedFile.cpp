#include "simdata/mappedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace simdata {

MappedFile::~MappedFile() { unmap(); }

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  if (this != &other) {
    unmap();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

void MappedFile::unmap() {
  if (data_ != nullptr) {
    munmap(const_cast<char*>(data_), size_);
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
  return true;
}

}  // namespace simdata
