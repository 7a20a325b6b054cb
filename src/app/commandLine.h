#pragma once
// The command line shared by kra2 and kra2-mpi.

#include <optional>

namespace app {

/// What the command line asks for.
struct CommandLine {
  /// Set when the command line was answered already (the usage, the banner, the help, a
  /// missing file argument): the exit status.
  std::optional<int> answered;
  /// The command file (null when none is named) and the log file.
  const char* cmdFileName = nullptr;
  const char* logFileName = "kra2.log";
  /// -strict, anywhere among the arguments.
  bool strict = false;
};

/// Idle OpenMP threads spin before they sleep by default. On a farm machine shared with other
/// jobs that spinning steals the time slices the working threads need (a run took a third as
/// long again under load), so the program asks for sleeping threads unless the user chose
/// otherwise. libgomp reads its environment once, before main, so the choice takes effect by
/// starting the program again with it; where that fails the run goes on spinning, which is
/// only slower. Call it first thing in main.
void preferSleepingThreads(char** argv);

/// Reads the command line (taking -strict out of argv); prints what it asks for when that is
/// the usage, the banner or the help.
CommandLine readCommandLine(int argc, char** argv);

}  // namespace app
