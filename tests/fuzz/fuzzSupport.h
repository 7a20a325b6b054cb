#pragma once
// Shared pieces of the fuzz targets: a private scratch folder, file writing, and silencing the
// standard output that the session echoes to.

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

namespace fuzzing {

/// A fresh folder under the temporary directory, made once per process and removed at exit.
inline const std::filesystem::path& scratchDir() {
  // Never destroyed: the exit handler that removes the folder runs after static destructors.
  static const std::filesystem::path* const dir = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "kra2-fuzz-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      std::abort();
    }
    return new std::filesystem::path(pattern);
  }();
  static const bool removeAtExit = [] {
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(*dir, ignored);
    });
    return true;
  }();
  static_cast<void>(removeAtExit);
  return *dir;
}

/// Writes bytes to a file, replacing it.
inline void writeFile(const std::filesystem::path& path, const uint8_t* data, size_t size) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    std::perror(path.c_str());
    std::abort();
  }
  if (size > 0 && std::fwrite(data, 1, size, file) != size) {
    std::perror(path.c_str());
    std::abort();
  }
  std::fclose(file);
}

inline void writeFile(const std::filesystem::path& path, std::string_view text) {
  writeFile(path, reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

/// The session and the loaders print to standard output; the fuzzer reports on standard error.
inline void silenceStdout() {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    std::abort();
  }
}

}  // namespace fuzzing
