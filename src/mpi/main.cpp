// kra2-mpi: the command file run by every process of an MPI job, with every run shared among
// them. Process 0 alone writes the log, standard output and the output files; the others run
// the same commands with their outputs going nowhere, so that every process holds the same
// session when the next run starts.

#include <mpi.h>

#include <cstdio>
#include <exception>
#include <memory>

#include "app/analyzeNetlist.h"
#include "app/commandLine.h"
#include "app/outputFile.h"
#include "mpi/mpiExchange.h"
#include "simdata/resultsReader.h"

namespace {

/// Runs the command file on this process; returns its exit status (process 0's, on every
/// process).
int runJob(const app::CommandLine& line, mpi::MpiExchange& exchange, mpi::ErrorNotes& notes) {
  auto session = std::make_unique<zeAnalyzeNetlist>();
  session->strict = line.strict;
  session->runExchange = &exchange;
  session->logListener = [&notes](int severity, const char* text) {
    if (severity == kError) {
      notes.note(text);
    }
  };
  const bool first = exchange.rank() == 0;
  try {
    const bool started =
        session->init(line.cmdFileName, first ? line.logFileName : nullptr, false) == 0;
    if (!exchange.meet(mpi::Checkpoint::kStart, {started, 0, 0})) {
      return line.strict ? 2 : 0;
    }
    session->processCommandFile();
    exchange.meet(mpi::Checkpoint::kEnd, {true, 0, 0});
    return exchange.broadcast(line.strict && session->errorCount > 0 ? 1 : 0);
  } catch (const analysis::SharedRunFailure& failure) {
    // Every process gets here together; process 0's message is the one written.
    session->logMsg(kError, Echo::yes, "%s: rank %d of %d stopped the job: %s\n", kProgramName,
                    failure.rank, exchange.processes(), failure.what());
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  // Before MPI starts: it may start the program again.
  app::preferSleepingThreads(argv);
  MPI_Init(&argc, &argv);
  int rank = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  if (rank != 0) {
    // Only process 0 speaks; the others' messages stay in their notes.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
      std::fclose(stdout);
    }
    discardOutputs();
  }
  const app::CommandLine line = app::readCommandLine(argc, argv);
  if (line.answered) {
    MPI_Finalize();
    return *line.answered;
  }
  if (!simdata::initialise() && simdata::lastErrorCode() != 0) {
    const char* text = simdata::lastErrorText();
    std::printf("%s\n", text != nullptr ? text : "");
  }
  int status = 0;
  try {
    mpi::ErrorNotes notes;
    mpi::MpiExchange exchange(MPI_COMM_WORLD, notes);
    status = runJob(line, exchange, notes);
  } catch (const std::exception& error) {
    // Only this process knows: the others may wait for it, so the whole job ends here.
    std::printf("%s: %s\n", "kra2", error.what());
    std::fflush(stdout);
    std::fprintf(stderr, "kra2-mpi: rank %d: %s\n", rank, error.what());
    MPI_Abort(MPI_COMM_WORLD, 1);
  }
  std::fflush(stdout);
  MPI_Finalize();
  return status;
}
