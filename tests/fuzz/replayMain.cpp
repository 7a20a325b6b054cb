// Runs a fuzz target on saved inputs without the fuzzer:
//   kra2_fuzz_replay <target> <file or folder>...
// every file named, and every file of every folder named (in name order). The normal and the
// sanitizer builds run the saved findings and the seeds this way in `make test`, so that a
// fixed finding stays fixed.
//
// Each input is also replayed damaged, the way files arrive cut off or corrupted: cut at every
// offset, with each of its first kFlippedPrefix bytes inverted, and with kSampledEdits single
// bytes replaced at positions drawn from a generator seeded by the input's size. The set is
// the same on every run, so a failure repeats.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzzTargets.h"

namespace {

constexpr size_t kFlippedPrefix = 64;
constexpr size_t kSampledEdits = 64;

std::vector<std::filesystem::path> inputFiles(int argc, char** argv) {
  std::vector<std::filesystem::path> inputs;
  for (int i = 2; i < argc; ++i) {
    const std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      std::vector<std::filesystem::path> files;
      for (const auto& entry : std::filesystem::directory_iterator(path)) {
        if (entry.is_regular_file()) {
          files.push_back(entry.path());
        }
      }
      std::sort(files.begin(), files.end());
      inputs.insert(inputs.end(), files.begin(), files.end());
    } else {
      inputs.push_back(path);
    }
  }
  return inputs;
}

size_t replay(const fuzzing::FuzzTarget& target, const std::string& bytes) {
  size_t runs = 0;
  const auto run = [&](const std::string& input, size_t size) {
    // A copy of exactly `size` bytes, so that the sanitizers see any read past its end.
    const std::vector<char> exact(input.begin(), input.begin() + static_cast<ptrdiff_t>(size));
    target.run(std::string_view(exact.data(), exact.size()));
    ++runs;
  };
  run(bytes, bytes.size());
  for (size_t cut = 0; cut < bytes.size(); ++cut) {
    run(bytes, cut);
  }
  std::string damaged = bytes;
  for (size_t at = 0; at < std::min(bytes.size(), kFlippedPrefix); ++at) {
    damaged[at] = static_cast<char>(~bytes[at]);
    run(damaged, damaged.size());
    damaged[at] = bytes[at];
  }
  std::mt19937 random(static_cast<uint32_t>(bytes.size()));
  for (size_t edit = 0; !bytes.empty() && edit < kSampledEdits; ++edit) {
    const size_t at = random() % bytes.size();
    damaged[at] = static_cast<char>(random());
    run(damaged, damaged.size());
    damaged[at] = bytes[at];
  }
  return runs;
}

}  // namespace

int main(int argc, char** argv) {
  const fuzzing::FuzzTarget* target = argc > 1 ? fuzzing::findTarget(argv[1]) : nullptr;
  if (target == nullptr) {
    std::fprintf(stderr, "usage: %s <target> <file or folder>...\n", argv[0]);
    return 2;
  }
  target->initialise();
  const std::vector<std::filesystem::path> inputs = inputFiles(argc, argv);
  size_t runs = 0;
  for (const std::filesystem::path& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", input.c_str());
      return 1;
    }
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "replaying %s (%zu bytes), cut and damaged\n", input.c_str(),
                 bytes.size());
    runs += replay(*target, bytes);
  }
  std::fprintf(stderr, "%zu inputs replayed in %zu runs\n", inputs.size(), runs);
  return 0;
}
