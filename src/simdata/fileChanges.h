#pragma once
// Results files are read long after they were opened: a simulator run again may truncate,
// extend or replace one while a command reads it. Such a change ends the reading command with
// an error that names the file; it never kills the process or feeds stale bytes on silently.

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <stdexcept>
#include <string>

namespace simdata {

/// Thrown by a read that finds its results file changed since it was opened. The text is
/// "<file>: changed while it was read (<what changed>)"; the command interpreter logs it as an
/// ERROR and goes on with the next command.
class FileChanged : public std::runtime_error {
 public:
  FileChanged(const std::string& path, const std::string& what);
};

/// What identifies the contents of a file at one moment.
struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};

  static FileStamp of(const struct stat& info);
};

/// Empty while the file at `path` still carries `stamp`; otherwise what changed ("it held 10
/// bytes, now 4", "it was modified", "another file took its name", "it was removed").
std::string changeOf(const std::string& path, const FileStamp& stamp);

/// Throws FileChanged when the file at `path` no longer carries `stamp`, or when a mapped
/// read found a page past its end (`faultOffset`, the byte offset of that page, else npos).
void throwIfChanged(const std::string& path, const FileStamp& stamp,
                    size_t faultOffset = std::string::npos);

}  // namespace simdata
