#include "db/byteStream.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstring>

namespace kraDB {

namespace {
constexpr size_t kChunk = 1 << 16;
}

bool ByteReader::open(const std::string& path) {
  close();
  file_.reset(std::fopen(path.c_str(), "rb"));
  if (!file_) {
    return false;
  }
  struct stat info {};
  if (fstat(fileno(file_.get()), &info) != 0 || !S_ISREG(info.st_mode)) {
    file_.reset();
    return false;
  }
  std::setvbuf(file_.get(), nullptr, _IONBF, 0);
  size_ = static_cast<int64_t>(info.st_size);
  buffer_.resize(kChunk);
  return true;
}

void ByteReader::close() {
  file_.reset();
  size_ = 0;
  bufferStart_ = 0;
  cursor_ = 0;
  filled_ = 0;
  exhausted_ = false;
}

bool ByteReader::seek(int64_t offset) {
  if (!file_) {
    return false;
  }
  if (offset >= bufferStart_ && offset <= bufferStart_ + static_cast<int64_t>(filled_)) {
    cursor_ = static_cast<size_t>(offset - bufferStart_);
    return true;
  }
  cursor_ = 0;
  filled_ = 0;
  if (offset < 0 || offset > size_ || fseeko(file_.get(), offset, SEEK_SET) != 0) {
    bufferStart_ = size_;
    exhausted_ = true;
    return false;
  }
  bufferStart_ = offset;
  exhausted_ = false;
  return true;
}

bool ByteReader::refill() {
  if (!file_ || exhausted_) {
    return false;
  }
  bufferStart_ += static_cast<int64_t>(filled_);
  cursor_ = 0;
  filled_ = std::fread(buffer_.data(), 1, buffer_.size(), file_.get());
  if (filled_ == 0) {
    exhausted_ = true;
  }
  return filled_ > 0;
}

size_t ByteReader::read(uint8_t* out, size_t count) {
  size_t done = 0;
  while (done < count) {
    if (cursor_ == filled_ && !refill()) {
      break;
    }
    const size_t take = std::min(count - done, filled_ - cursor_);
    std::memcpy(out + done, buffer_.data() + cursor_, take);
    cursor_ += take;
    done += take;
  }
  return done;
}

bool ByteReader::atEnd() { return cursor_ == filled_ && !refill(); }

ByteWriter::~ByteWriter() { close(); }

bool ByteWriter::open(const std::string& path) {
  close();
  failed_ = false;
  file_.reset(std::fopen(path.c_str(), "wb"));
  if (!file_) {
    return false;
  }
  std::setvbuf(file_.get(), nullptr, _IONBF, 0);
  buffer_.reserve(kChunk);
  flushedEnd_ = 0;
  return true;
}

void ByteWriter::write(const uint8_t* data, size_t count) {
  if (!file_) {
    failed_ = true;
    return;
  }
  if (buffer_.size() + count > kChunk) {
    flush();
  }
  if (count >= kChunk) {
    if (std::fwrite(data, 1, count, file_.get()) != count) {
      failed_ = true;
    }
    flushedEnd_ += static_cast<int64_t>(count);
    return;
  }
  buffer_.insert(buffer_.end(), data, data + count);
}

void ByteWriter::flush() {
  if (!file_ || buffer_.empty()) {
    return;
  }
  if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_.get()) != buffer_.size()) {
    failed_ = true;
  }
  flushedEnd_ += static_cast<int64_t>(buffer_.size());
  buffer_.clear();
}

void ByteWriter::seek(int64_t offset) {
  flush();
  if (!file_ || fseeko(file_.get(), offset, SEEK_SET) != 0) {
    failed_ = true;
    return;
  }
  flushedEnd_ = offset;
}

void ByteWriter::close() {
  if (!file_) {
    return;
  }
  flush();
  if (std::fclose(file_.release()) != 0) {
    failed_ = true;
  }
}

}  // namespace kraDB
