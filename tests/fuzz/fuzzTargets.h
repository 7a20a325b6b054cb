#pragma once
// The fuzz targets, one table of them, and the pieces they share. Each target takes one input
// and must neither crash, hang, leak nor read out of bounds; a target that can also check a
// property of what it got (an error message names its input, say) does so with expect().

#include <cstdint>
#include <filesystem>
#include <string_view>

namespace fuzzing {

/// One fuzz target: its name (the executable is kra2_fuzz_<name>, its seeds are under
/// seeds/<name>/), what it needs once per process, and its entry point.
struct FuzzTarget {
  std::string_view name;
  void (*initialise)();
  void (*run)(std::string_view input);
};

/// The target of that name, or null.
const FuzzTarget* findTarget(std::string_view name);

/// A fresh folder under the temporary directory, made once per process and removed at exit.
const std::filesystem::path& scratchDir();
/// Writes bytes to a file, replacing it.
void writeFile(const std::filesystem::path& path, std::string_view bytes);
/// The session and the loaders print to standard output; the fuzzer reports on standard error.
void silenceStdout();
/// Aborts, naming the property, when a target finds it broken.
void expect(bool holds, const char* property);

void initialiseSession();
void fuzzCommandFile(std::string_view input);
void fuzzRawFile(std::string_view input);

}  // namespace fuzzing
