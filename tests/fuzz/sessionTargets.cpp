// Fuzz targets that drive a whole session through a command file: the command-file reader
// with every command behind it, and the SPICE raw reader with everything that reads results
// through it.

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "fuzzTargets.h"
#include "simdata/rawFile.h"
#include "simdata/resultsReader.h"

namespace fuzzing {
namespace {

/// The folder the process started in, to return to after each input (the fuzzer resolves its
/// own relative paths against it).
int startFolder = -1;

/// Empties `dir` (made when missing) and fills it with copies of the fixture files.
void freshFolder(const std::filesystem::path& dir, bool withFixtures) {
  std::error_code error;
  std::filesystem::remove_all(dir, error);
  std::filesystem::create_directories(dir);
  if (withFixtures) {
    std::filesystem::copy(KRA2_FUZZ_FIXTURES_DIR, dir);
  }
}

/// Runs `commands` as the command file of a fresh session in `dir`, with fresh settings.
void runCommandFile(const std::filesystem::path& dir, std::string_view commands) {
  writeFile(dir / "cmd", commands);
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
}

/// The session's commands for one dataset of the raw target, in one of six variants: plain,
/// AC peaks, each ignore setting, duration pulses over a netlist chaining the signals with
/// pulse fields, recovery factors.
std::string analysisCommands(simdata::Dataset& dataset, int index, size_t variant) {
  static const char* const settings[] = {"",
                                         "ACAnlaysis\n",
                                         "ignore negative_currents\n",
                                         "ignore negative_currents\nignore positive_currents\n",
                                         "durationTime 1e-9\n",
                                         "recoveryFactorFlag\nemRecoveryFactor 0.5\n"};
  const std::string net = "net" + std::to_string(index);
  std::string commands = std::string("selectAnalysis ") + dataset.name() +
                         "\ndisplaySignals\ndisplaySignals -v\n" + settings[variant % 6];
  if (variant % 6 == 4) {
    const simdata::SignalList* signals = dataset.signals();
    std::string chain;
    for (int i = 1; signals != nullptr && i + 1 < signals->count(); ++i) {
      chain += "R" + std::to_string(i) + " " + signals->at(i)->name1 + " " +
               signals->at(i + 1)->name1 + " 0.5 1\n";
    }
    writeFile(scratchDir() / "raw" / net, chain);
  } else {
    commands += "createNetlist " + net + "\n";
  }
  return commands + "loadNetlist " + net + "\nrun -1e300 1e300\nrun 1e-9 2e-9\nsaveResult result\n";
}

}  // namespace

void initialiseSession() {
  silenceStdout();
  simdata::initialise();
  startFolder = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (startFolder < 0) {
    std::perror("open .");
    std::abort();
  }
}

// The input is run in a private folder holding a few well-formed inputs (results, netlist,
// database, network data), so that commands get past their first open. File names cannot
// leave that folder: every "/" becomes "_" and every ".." becomes "._".
void fuzzCommandFile(std::string_view bytes) {
  std::string commands(bytes);
  for (size_t i = 0; i < commands.size(); ++i) {
    if (commands[i] == '/' || (commands[i] == '.' && i > 0 && commands[i - 1] == '.')) {
      commands[i] = '_';
    }
  }
  const std::filesystem::path dir = scratchDir() / "run";
  freshFolder(dir, true);
  runCommandFile(dir, commands);
}

// A raw input that parses is opened by a session, listed, and every dataset of it analysed
// (the variant chosen by the input's length), so that odd values (NaN, infinities, an axis
// that runs backwards) reach the statistics too.
void fuzzRawFile(std::string_view bytes) {
  std::vector<simdata::raw::Plot> plots;
  std::string error;
  if (!simdata::raw::parsePlots(bytes, "input.raw", plots, error)) {
    expect(error.starts_with("input.raw: "), "a raw error names the file");
    return;
  }
  const std::filesystem::path dir = scratchDir() / "raw";
  freshFolder(dir, false);
  writeFile(dir / "input.raw", bytes);
  const std::unique_ptr<simdata::ResultsDir> results = simdata::openResults(dir / "input.raw");
  const simdata::DatasetArray* datasets = results ? results->datasets() : nullptr;
  std::string commands =
      "openSimData input.raw\ndisplayAnalysis\nsaveAnalysisInfo info\nsaveTemperature t\n";
  for (int i = 0; datasets != nullptr && i < datasets->count(); ++i) {
    if (datasets->at(i)->name() != nullptr) {
      commands += analysisCommands(*datasets->at(i), i, bytes.size() + static_cast<size_t>(i));
    }
  }
  runCommandFile(dir, commands);
}

}  // namespace fuzzing
