#pragma once
// A read-only memory map of a whole file. Results files can be far larger than memory would
// comfortably hold twice, so readers look at the mapped bytes instead of copying them.

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "simdata/fileChanges.h"

namespace simdata {

/// Whether `path` names a file this process holds mapped. Such a file must not be truncated
/// or rewritten: reading a mapped page past the file's new end kills the process, so the
/// commands that write files refuse these paths.
bool isMappedForReading(const char* path);

/// Gives back the pages wholly inside [begin, end) of a read-only file mapping: they refill
/// from the file if read again, so a pass that reads a large file once does not keep all of it
/// resident.
void releaseMappedPages(const char* begin, const char* end);

class MappedFile {
 public:
  MappedFile() = default;
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;

  /// Maps the file; false with `error` set when it cannot be opened or mapped. An empty file
  /// maps to an empty view. A page found past the file's end when read (the file shrank) reads
  /// as zeros instead of killing the process, and faultOffset() tells.
  bool open(const std::string& path, std::string& error);
  /// The byte offset of the first page read past the file's end, or std::string::npos.
  size_t faultOffset() const;
  /// The file as it was when mapped.
  const FileStamp& stamp() const { return stamp_; }
  const char* data() const { return data_; }
  size_t size() const { return size_; }
  std::string_view view() const { return {data_ != nullptr ? data_ : "", size_}; }

 private:
  void unmap();
  const char* data_ = nullptr;
  size_t size_ = 0;
  FileStamp stamp_;
  int guardSlot_ = -1;
};

}  // namespace simdata
