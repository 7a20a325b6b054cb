#include "app/outputFile.h"

#include <cerrno>
#include <utility>

#include "simdata/mappedFile.h"

bool mayOverwrite(const char* path) {
  if (simdata::isMappedForReading(path)) {
    errno = ETXTBSY;
    return false;
  }
  return true;
}

namespace {

bool outputsDiscarded = false;

}  // namespace

void discardOutputs() { outputsDiscarded = true; }

const char* outputTarget(const char* path) { return outputsDiscarded ? "/dev/null" : path; }

OutputFile::OutputFile(const char* path, const char* mode)
    : path_(path != nullptr ? path : ""),
      file_(path != nullptr && mayOverwrite(path) ? std::fopen(outputTarget(path), mode)
                                                  : nullptr) {}

OutputFile::~OutputFile() { close(); }

OutputFile::OutputFile(OutputFile&& other) noexcept
    : path_(std::move(other.path_)), file_(std::exchange(other.file_, nullptr)) {}

OutputFile& OutputFile::operator=(OutputFile&& other) noexcept {
  if (this != &other) {
    close();
    path_ = std::move(other.path_);
    file_ = std::exchange(other.file_, nullptr);
  }
  return *this;
}

bool OutputFile::close() {
  if (file_ == nullptr) {
    return true;
  }
  // The error flag covers writes whose buffer was flushed earlier; fclose covers the last
  // buffer. Both are needed: a small file fails only at the close, a large one before it.
  const bool writeFailed = std::ferror(file_) != 0;
  const bool closeFailed = std::fclose(std::exchange(file_, nullptr)) != 0;
  return !writeFailed && !closeFailed;
}
