// Process entry: the command line and the one session of the run.

#include <cstdio>
#include <exception>
#include <memory>

#include "app/analyzeNetlist.h"
#include "app/commandLine.h"
#include "simdata/resultsReader.h"

namespace {

/// Runs the command file; the exit status is 0 unless strict mode asks for 2 (no readable
/// command file) or 1 (an ERROR was logged).
int runSession(const app::CommandLine& line) {
  auto session = std::make_unique<zeAnalyzeNetlist>();
  session->strict = line.strict;
  if (session->init(line.cmdFileName, line.logFileName, false) != 0) {
    return line.strict ? 2 : 0;
  }
  session->processCommandFile();
  return line.strict && session->errorCount > 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  app::preferSleepingThreads(argv);
  const app::CommandLine line = app::readCommandLine(argc, argv);
  if (line.answered) {
    return *line.answered;
  }
  if (!simdata::initialise() && simdata::lastErrorCode() != 0) {
    const char* text = simdata::lastErrorText();
    std::printf("%s\n", text != nullptr ? text : "");
  }
  try {
    return runSession(line);
  } catch (const std::exception& error) {
    std::printf("%s: %s\n", "kra2", error.what());
  } catch (...) {
  }
  return line.strict ? 1 : 0;
}
