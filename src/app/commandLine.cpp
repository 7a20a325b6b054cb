// The command line of kra2 and kra2-mpi: the usage, the -v banner, the help text, and the
// files and options of a session.

#include "app/commandLine.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "app/commandTable.h"
#include "app/version.h"

namespace app {

namespace {

constexpr const char* kUsage = "kra2 -cmd <cmd-file> -log <log-file> ";

/// The fields the -v banner is built from.
struct ToolVersion {
  char executable[101];
  char product[101];
  char bitness[101];
  char description[101];
  char version[101];
  char buildDate[101];
  char banner[1025];
};

void copyField(char (&field)[101], const char* text) {
  std::snprintf(field, sizeof field, "%s", text);
}

void printBanner() {
  ToolVersion tool{};
  copyField(tool.executable, "kra2");
  copyField(tool.product, "simulation data reader");
  copyField(tool.bitness, sizeof(void*) == 8 ? "64-bit" : "32-bit");
  copyField(tool.description, "muro/telo wrapper over simulation data");
  copyField(tool.version, KRA2_VERSION_TEXT);
  copyField(tool.buildDate, KRA2_BUILD_DATE_TEXT);
  const std::string dashes(65, '-');
  std::snprintf(tool.banner, sizeof tool.banner,
                "%s\nName        : %s - %s - (%s)\nDescription : %s\nVersion     : %s\n"
                "Build Date  : %s\n%s\n%s\n\n%s\n",
                dashes.c_str(), tool.executable, tool.product, tool.bitness, tool.description,
                tool.version, tool.buildDate, dashes.c_str(),
                "Copyright (c) 2026 the kra2 developers.",
                "This program is provided under the terms of its licence, without warranty.");
  std::printf("%s\n", tool.banner);
}

void printUsage() { std::printf("Usage: %s\n", kUsage); }

/// The help text: usage, options, and one line per command of the interpreter's table.
void printHelp() {
  printUsage();
  std::printf(
      "\nOptions:\n"
      "  -cmd <cmd-file>  the command file (a bare argument names it too)\n"
      "  -log <log-file>  the log file (default kra2.log, overwritten)\n"
      "  -strict          exit 1 when an ERROR was logged, 2 when the command file cannot be\n"
      "                   read; warn about input that is otherwise taken in silence\n"
      "  -v               the version banner (alone)\n"
      "  -h, --help       this text (alone)\n"
      "  --version        the version in one line (alone)\n"
      "\nCommands (one per line; the word ignores case; '#' starts a comment line; done, an\n"
      "empty line or the end of the file ends the run):\n");
  for (const app::CommandHelp& command : app::commandReference()) {
    const std::string_view gap = command.arguments.empty() ? "" : " ";
    std::printf("  %.*s%.*s%.*s\n      %.*s\n", static_cast<int>(command.word.size()),
                command.word.data(), static_cast<int>(gap.size()), gap.data(),
                static_cast<int>(command.arguments.size()), command.arguments.data(),
                static_cast<int>(command.summary.size()), command.summary.data());
  }
}

/// Takes -strict out of the arguments wherever it stands; the rest keep their meaning.
bool takeStrictOption(int& argc, char** argv) {
  char** kept = std::remove_if(argv + 1, argv + argc,
                               [](const char* arg) { return std::strcmp(arg, "-strict") == 0; });
  const bool found = kept != argv + argc;
  argc = static_cast<int>(kept - argv);
  return found;
}

}  // namespace

void preferSleepingThreads(char** argv) {
  if (std::getenv("OMP_WAIT_POLICY") != nullptr) {
    return;
  }
  setenv("OMP_WAIT_POLICY", "passive", 0);
  execv("/proc/self/exe", argv);
}

CommandLine readCommandLine(int argc, char** argv) {
  CommandLine line;
  line.answered = 0;
  line.strict = takeStrictOption(argc, argv);
  if (argc == 1) {
    printUsage();
    return line;
  }
  if (argc == 2 && std::strcmp(argv[1], "-v") == 0) {
    printBanner();
    return line;
  }
  if (argc == 2 && (std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)) {
    printHelp();
    return line;
  }
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("kra2 %s\n", KRA2_VERSION_TEXT);
    return line;
  }
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "-log") == 0) {
      if (i + 1 == argc) {
        std::printf("Error: Missing log-file argument\n\n");
        printUsage();
        return line;
      }
      line.logFileName = argv[++i];
    } else if (std::strcmp(argv[i], "-cmd") == 0) {
      if (i + 1 == argc) {
        std::printf("Error: Missing cmd-file argument\n\n");
        printUsage();
        return line;
      }
      line.cmdFileName = argv[++i];
    } else {
      line.cmdFileName = argv[i];
    }
  }
  line.answered.reset();
  return line;
}

}  // namespace app
