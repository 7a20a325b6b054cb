#pragma once
// C streams owned by RAII: no path through a command or a reader leaks a handle.

#include <cstdio>
#include <memory>

namespace support {

/// Closes a C stream when it goes out of scope.
struct FileCloser {
  void operator()(std::FILE* file) const {
    if (file != nullptr) {
      std::fclose(file);
    }
  }
};

/// An owned C stream.
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

}  // namespace support
