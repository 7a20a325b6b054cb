#pragma once
// Buffered binary file streams for the database: large reads and writes through our own
// buffer (the C library's is switched off), so a record costs a few memory copies, never a
// system call.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/file.h"

namespace kraDB {

/// A file read forwards in large chunks. Reads past the end are short, never errors; a seek
/// outside the file leaves the stream at its end.
class ByteReader {
 public:
  /// Opens a regular file; false (and a closed stream) otherwise.
  bool open(const std::string& path);
  void close();
  bool isOpen() const { return file_ != nullptr; }
  /// Length of the file when it was opened.
  int64_t size() const { return size_; }
  /// Offset of the next byte to be read.
  int64_t tell() const { return bufferStart_ + static_cast<int64_t>(cursor_); }
  /// Moves to an absolute offset; false, and nothing more to read, when it is not in the file.
  bool seek(int64_t offset);
  /// Copies up to `count` bytes; fewer only at the end of the file.
  size_t read(uint8_t* out, size_t count);
  /// True when no byte is left.
  bool atEnd();

 private:
  bool refill();

  support::FilePtr file_;
  std::vector<uint8_t> buffer_;
  int64_t size_ = 0;
  int64_t bufferStart_ = 0;  // file offset of buffer_[0]
  size_t cursor_ = 0;        // next byte in buffer_
  size_t filled_ = 0;        // valid bytes in buffer_
  bool exhausted_ = false;   // the file has no bytes after the buffer
};

/// A file written through a buffer. Write errors are remembered, not thrown: the owner asks
/// `failed()` after `close()`.
class ByteWriter {
 public:
  ~ByteWriter();
  /// Creates or truncates the file; false when it cannot be opened.
  bool open(const std::string& path);
  bool isOpen() const { return file_ != nullptr; }
  int64_t tell() const { return flushedEnd_ + static_cast<int64_t>(buffer_.size()); }
  void write(const uint8_t* data, size_t count);
  /// Flushes and moves to an absolute offset for overwriting.
  void seek(int64_t offset);
  /// Flushes and closes; a failure at any point so far sets `failed()`.
  void close();
  bool failed() const { return failed_; }

 private:
  void flush();

  support::FilePtr file_;
  std::vector<uint8_t> buffer_;
  int64_t flushedEnd_ = 0;  // file offset where buffer_ will be written
  bool failed_ = false;
};

/// Little-endian encodings of the integer and real fields.
inline void storeLE64(uint64_t value, uint8_t* out) {
  for (int i = 0; i < 8; ++i) {
    out[i] = static_cast<uint8_t>(value >> (8 * i));
  }
}
inline uint64_t loadLE64(const uint8_t* in) {
  uint64_t value = 0;
  for (int i = 7; i >= 0; --i) {
    value = (value << 8) | in[i];
  }
  return value;
}

}  // namespace kraDB
