// Fuzz target: the command-file reader and dispatcher with every command behind it. The input
// is run as a command file in a private folder that holds a few well-formed inputs (results,
// netlist, database, network data). File names cannot leave that folder: every "/" of the
// input becomes "_" and every ".." becomes "._" before the file is written.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "fuzzFixtures.h"
#include "fuzzSupport.h"
#include "simdata/resultsReader.h"

namespace {

std::string confined(const uint8_t* data, size_t size) {
  std::string text(reinterpret_cast<const char*>(data), size);
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '/') {
      text[i] = '_';
    } else if (text[i] == '.' && i > 0 && text[i - 1] == '.') {
      text[i] = '_';
    }
  }
  return text;
}

void emptyFolder(const std::filesystem::path& dir) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(dir, error)) {
    std::filesystem::remove_all(entry.path(), error);
  }
}

}  // namespace

namespace {

/// The folder the process started in, to return to after each input (the fuzzer resolves its
/// own relative paths against it).
int startFolder = -1;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzing::silenceStdout();
  simdata::initialise();
  std::filesystem::create_directories(fuzzing::scratchDir() / "run");
  fuzzing::databaseBytes();  // written once, before the folder is used
  startFolder = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (startFolder < 0) {
    std::perror("open .");
    std::abort();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::filesystem::path dir = fuzzing::scratchDir() / "run";
  emptyFolder(dir);
  fuzzing::writeFixtures(dir);
  fuzzing::writeFile(dir / "cmd", confined(data, size));
  analysis::processSettings() = analysis::ProcessSettings{};
  if (chdir(dir.c_str()) != 0) {
    std::perror("chdir");
    std::abort();
  }
  {
    zeAnalyzeNetlist session;
    if (session.init("cmd", "kra2.log", false) == 0) {
      session.processCommandFile();
    }
  }
  if (fchdir(startFolder) != 0) {
    std::perror("fchdir");
    std::abort();
  }
  return 0;
}
