#include "simdata/fileChanges.h"

#include <cerrno>

namespace simdata {

FileChanged::FileChanged(const std::string& path, const std::string& what)
    : std::runtime_error(path + ": changed while it was read (" + what + ")") {}

FileStamp FileStamp::of(const struct stat& info) {
  FileStamp stamp;
  stamp.device = info.st_dev;
  stamp.inode = info.st_ino;
  stamp.size = info.st_size;
  stamp.modified = info.st_mtim;
  return stamp;
}

std::string changeOf(const std::string& path, const FileStamp& stamp) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) {
    return errno == ENOENT ? "it was removed" : "it cannot be looked at any more";
  }
  if (info.st_dev != stamp.device || info.st_ino != stamp.inode) {
    return "another file took its name";
  }
  if (info.st_size != stamp.size) {
    return "it held " + std::to_string(stamp.size) + " bytes, now " + std::to_string(info.st_size);
  }
  if (info.st_mtim.tv_sec != stamp.modified.tv_sec ||
      info.st_mtim.tv_nsec != stamp.modified.tv_nsec) {
    return "it was modified";
  }
  return {};
}

void throwIfChanged(const std::string& path, const FileStamp& stamp, size_t faultOffset) {
  std::string change = changeOf(path, stamp);
  if (faultOffset != std::string::npos) {
    const std::string where = "byte offset " + std::to_string(faultOffset) + " is past its end";
    change = change.empty() ? where : where + "; " + change;
  }
  if (!change.empty()) {
    throw FileChanged(path, change);
  }
}

}  // namespace simdata
