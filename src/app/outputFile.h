#pragma once
// Output files of the commands. A C stream reports a full disk only through its error flag
// and the result of fclose, which are easy to drop; this wrapper keeps both, so that a file
// that could not be written completely is reported instead of lost silently.

#include <cstdio>
#include <string>

/// The one message for an output file that could not be written completely: the program name
/// and the file name.
inline constexpr const char* kWriteErrorText = "%s: error writing output file %s.\n";

/// Whether a command may open `path` for writing: not when it is a results file this process
/// reads through a memory map, which rewriting would pull from under the reader (the open
/// then fails like any other, with the command's own message, and the file is kept).
bool mayOverwrite(const char* path);

/// Sends every output file of this process to the null device from now on: the processes of
/// a shared run other than the first run every command, and the first alone writes.
void discardOutputs();

/// Where a command writes the output named `path`: the path itself, or the null device once
/// outputs are discarded.
const char* outputTarget(const char* path);

/// A file a command writes, opened with a stdio mode. Closing tells whether every byte written
/// reached the file; the destructor closes without telling (for paths that wrote nothing).
class OutputFile {
 public:
  OutputFile() = default;
  OutputFile(const char* path, const char* mode);
  ~OutputFile();
  OutputFile(OutputFile&& other) noexcept;
  OutputFile& operator=(OutputFile&& other) noexcept;
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  bool isOpen() const { return file_ != nullptr; }
  explicit operator bool() const { return isOpen(); }
  /// The stream to write to; null when the file is not open.
  std::FILE* get() const { return file_; }
  const std::string& path() const { return path_; }
  /// Flushes and closes. False when a write so far, the flush or the close failed; true for a
  /// file that is not open.
  bool close();

 private:
  std::string path_;
  std::FILE* file_ = nullptr;
};
