#include <strings.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "app/commandTable.h"
#include "simdata/fileChanges.h"
#include "support/text.h"

namespace {

using Handler = void (*)(zeAnalyzeNetlist& session, const ArgList* args, int& ignoreSign);

/// One command of the command file: its word, a reference line for the help text, and what
/// runs it. The help is printed from this table, so the two cannot drift apart.
struct Command {
  const char* word;
  const char* arguments;
  const char* summary;
  Handler run;
};

/// Runs a handler between two wall-clock readings and reports the time under `name`.
template <typename Call>
void timedCommand(zeAnalyzeNetlist& session, const char* name, Call call) {
  session.commandStart = std::time(nullptr);
  call();
  session.commandEnd = std::time(nullptr);
  session.report_time(name);
}

/// A handler that takes the first two arguments (null where absent).
template <int (zeAnalyzeNetlist::*kHandler)(const char*, const char*)>
void withTwoArgs(zeAnalyzeNetlist& session, const ArgList* args, int&) {
  (session.*kHandler)(argAt(args, 0), argAt(args, 1));
}

/// A handler that takes the argument list alone.
template <int (zeAnalyzeNetlist::*kHandler)(const ArgList*)>
void withArgs(zeAnalyzeNetlist& session, const ArgList* args, int&) {
  (session.*kHandler)(args);
}

/// A handler timed under `kName` (see timedCommand) that takes the argument list alone.
template <int (zeAnalyzeNetlist::*kHandler)(const ArgList*), const char* kName>
void timedWithArgs(zeAnalyzeNetlist& session, const ArgList* args, int&) {
  timedCommand(session, kName, [&] { (session.*kHandler)(args); });
}

/// A handler that also fills a list for its other callers; the command file drops it.
template <typename Item, int (zeAnalyzeNetlist::*kHandler)(const ArgList*, std::vector<Item>&)>
void withDroppedList(zeAnalyzeNetlist& session, const ArgList* args, int&) {
  std::vector<Item> dropped;
  (session.*kHandler)(args, dropped);
}

/// The first argument of a setting that takes a number, or null when it is absent or "nil".
const char* numberArgument(const ArgList* args) {
  const char* value = argAt(args, 0);
  return value != nullptr && std::strcmp(value, "nil") != 0 ? value : nullptr;
}

constexpr char kLoadNetlist[] = "loadNetlist";
constexpr char kCheckEM[] = "checkEM";

// The table is tested in this order; the first case-insensitive match runs.
const Command kCommands[] = {
    {"saveTemperature", "<file>",
     "writes the temperature of the 'variables' analysis to <file> (needs openSimData)",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       // The session's temperature changes only when one is found.
       double found = std::nan("");
       s.processSaveTemperatureCmd(a, found);
       if (!std::isnan(found)) {
         s.temperature = found;
         s.temperatureFound = true;
       }
     }},
    {"lengthDataInput", "<file>", "names the length-data input that calculateLength reads",
     withArgs<&zeAnalyzeNetlist::processLengthDataInputCmd>},
    {"setLayersStack", "<via> <above> <below> ...",
     "appends layer triples: via layer, metal above, metal below",
     withArgs<&zeAnalyzeNetlist::processSetLayersStackCmd>},
    {"powerGridLayers", "<layer> ...", "records power-grid layer names",
     withArgs<&zeAnalyzeNetlist::processPowerGridLayersCmd>},
    {"powerGridRulesInput", "<pg-data>",
     "names the PG data read by the power-grid analysis after run and readMuroDBEM",
     withArgs<&zeAnalyzeNetlist::processPowerGridRulesInputCmd>},
    {"powerGridRulesOutput", "<file>", "names the file the power-grid analysis writes",
     withArgs<&zeAnalyzeNetlist::processPowerGridRulesOutputCmd>},
    {"saveTMeshData", "<file>", "readMuroDBEM also writes signed peaks and averages to <file>",
     withArgs<&zeAnalyzeNetlist::processSaveTMeshDataCmd>},
    {"cadGrid", "<value>", "grid tolerance of the power-grid analysis (above 0.001: 1/DBU instead)",
     withArgs<&zeAnalyzeNetlist::processCadGridCmd>},
    {"evalCurrentDirection", "", "adds current directions to calculateLength and readMuroDBEM",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.evalCurrentDirection = true; }},
    {"lengthDataOutput", "<file>", "names the length-data output that calculateLength writes",
     withArgs<&zeAnalyzeNetlist::processLengthDataOutputCmd>},
    {"calculateLength", "",
     "reads lengthDataInput, computes metal and via lengths, writes lengthDataOutput",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.processCalculateLengthCmd(); }},
    {"evalTotalSum", "", "calculateLength gives each metal group the sum of its lengths",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.evalTotalSum = true; }},
    {"readMuroDBIR", "<db> <out>", "lists the IR records of an EMIR database in <out>",
     withTwoArgs<&zeAnalyzeNetlist::processReadMuroDBIR>},
    {"readMuroDBEM", "<db> <out> <network> <pRes> [<hier>]",
     "relates the EM records of <db> to the resistors of <network>; writes <out>",
     withArgs<&zeAnalyzeNetlist::processReadMuroDBEM>},
    {"readMuroDBInfo", "<db> <out>",
     "writes the version and architecture of an EMIR database to <out>",
     withTwoArgs<&zeAnalyzeNetlist::processReadMuroDBInfo>},
    {"readMuroDBTime", "<db> <out>", "writes the time window of an EMIR database to <out>",
     withTwoArgs<&zeAnalyzeNetlist::processReadMuroDBTime>},
    {"done", "", "ends the command file (so do an empty line and the end of the file)",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.processCleanup(); }},
    {"simDataType", "QXF", "marks the simulation data as QXF",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       const char* format = argAt(a, 0);
       if (format != nullptr && strcasecmp(format, "QXF") == 0) {
         s.logMsg(kInfo, Echo::no, "Simulation data is in QXF format\n");
         s.setDataType(zeNetlist::eQXF);
       }
     }},
    {"openSimData", "<path>", "opens a results file or folder",
     withArgs<&zeAnalyzeNetlist::processOpenSimDataCmd>},
    {"saveAnalysisInfo", "<file> [-muroDBFile <db>]",
     "writes each analysis with its kind and time range to <file> (needs openSimData)",
     withDroppedList<std::string, &zeAnalyzeNetlist::processSaveAnalysisInfoCmd>},
    {"loadNetlist", "<file>",
     "reads the instances to check (name node1 node2 per line); a second file appends",
     timedWithArgs<&zeAnalyzeNetlist::processLoadNetlistCmd, kLoadNetlist>},
    {"selectAnalysis", "<name>",
     "selects the analysis that later commands read (needs openSimData)",
     withArgs<&zeAnalyzeNetlist::processSelectAnalysisCmd>},
    {"durationTime", "<seconds>",
     "peaks must outlast this duration; loadNetlist then reads five columns",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       if (const char* value = numberArgument(a)) {
         s.durationTime = std::strtod(value, nullptr);
       } else {
         s.logMsg(kError, Echo::yes, "Using default value 0.0 as duration time.\n");
       }
     }},
    {"recoveryFactorFlag", "",
     "run weighs reverse currents with each instance's recovery factor (1 unless the netlist gives "
     "one)",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) {
       s.recoveryFactorFlag = true;
       analysis::processSettings().recoveryFactor = 1.0f;
     }},
    {"emRecoveryFactor", "<factor>",
     "run weighs reverse currents with <factor> (unless recoveryFactorFlag is given)",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       if (const char* value = numberArgument(a)) {
         analysis::processSettings().emRecoveryFactorGiven = true;
         analysis::processSettings().emRecoveryFactor =
             static_cast<float>(std::strtod(value, nullptr));
       } else {
         // This command's default message also speaks of duration time; the wording is kept.
         s.logMsg(kError, Echo::yes, "Using default value 1 as duration time.\n");
       }
     }},
    {"ACAnlaysis", "", "run also measures duty ratio and pulse width (the word is spelt so)",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.setACAnalysis(true); }},
    {"ignore", "negative_currents|positive_currents",
     "run keeps avgPositive after ignore negative_currents, avgNegative after ignore "
     "positive_currents, both after both",
     [](zeAnalyzeNetlist&, const ArgList* a, int& ignoreSign) {
       const char* which = argAt(a, 0);
       if (which == nullptr) {
         return;
       }
       if (strcasecmp(which, "negative_currents") == 0) {
         ignoreSign = -1;
       } else if (strcasecmp(which, "positive_currents") == 0) {
         ignoreSign = ignoreSign == -1 ? 2 : 1;
       }
     }},
    {"run", "<start> <stop>",
     "computes every instance's statistics over the window in seconds (needs selectAnalysis)",
     [](zeAnalyzeNetlist& s, const ArgList* a, int& ignoreSign) {
       timedCommand(s, "run", [&] { s.processRunCmd(a, ignoreSign); });
     }},
    {"saveResult", "<file>",
     "writes one tab-separated line per instance to <file> (needs loadNetlist)",
     withDroppedList<zeInstance, &zeAnalyzeNetlist::processSaveResultsCmd>},
    {"windowMode", "exact|legacy",
     "run measures straight lines between samples over exactly [start, stop], or by samples",
     withArgs<&zeAnalyzeNetlist::processWindowModeCmd>},
    {"saveResultTable", "<file.csv>",
     "writes the results as CSV with a header row and their provenance (needs loadNetlist)",
     withArgs<&zeAnalyzeNetlist::processSaveResultTableCmd>},
    {"emTemperature", "<degC>",
     "deg C of checkEM's derating (else saveTemperature's, else the rules' reference)",
     withArgs<&zeAnalyzeNetlist::processEmTemperatureCmd>},
    {"checkEM", "<rules.toml> <output> [<emir-db>]",
     "checks the run's (or <emir-db>'s) currents against EM rules; writes the verdicts worst first",
     timedWithArgs<&zeAnalyzeNetlist::processCheckEMCmd, kCheckEM>},
    {"displayAnalysis", "", "logs the type and name of every analysis (needs openSimData)",
     withArgs<&zeAnalyzeNetlist::processDisplayAnalysisCmd>},
    // Timed under the name "loadNetlist": the reuse is intended.
    {"displaySignals", "[-v]",
     "logs the signals of the selected analysis; -v reads all their values",
     timedWithArgs<&zeAnalyzeNetlist::processDisplaySignalCmd, kLoadNetlist>},
    {"createNetlist", "<file>",
     "writes a netlist that chains the selected analysis' signals to <file>",
     withArgs<&zeAnalyzeNetlist::processCreateNetlistCmd>},
};

}  // namespace

std::vector<app::CommandHelp> app::commandReference() {
  std::vector<CommandHelp> reference;
  for (const Command& command : kCommands) {
    reference.push_back({command.word, command.arguments, command.summary});
  }
  return reference;
}

namespace {

/// Reads the next line of at most size - 1 characters, up to and including its line feed, and
/// gives its length (zero bytes included). A line feed right after a full buffer still belongs
/// to the line. False at the end of the file or on a read error with nothing read.
bool readCommandLine(std::FILE* file, char* buffer, size_t size, size_t& length, bool& endsLine) {
  length = 0;
  endsLine = false;
  int c = EOF;
  while (length + 1 < size && (c = std::getc(file)) != EOF) {
    buffer[length++] = static_cast<char>(c);
    if (c == '\n') {
      endsLine = true;
      break;
    }
  }
  if (length + 1 == size && !endsLine) {
    // Without this a line of exactly the buffer's length would leave its line feed behind as an
    // empty line, and an empty line ends the command file.
    c = std::getc(file);
    if (c == '\n') {
      endsLine = true;
    } else if (c != EOF) {
      std::ungetc(c, file);
    }
  }
  buffer[length] = '\0';
  if (length == 0 || std::ferror(file) != 0) {
    return false;
  }
  return true;
}

}  // namespace

void zeAnalyzeNetlist::collectInput() {
  args_.reset();
  size_t lineLength = 0;
  bool endsLine = false;
  if (!cmdFile || !readCommandLine(cmdFile.get(), line_, sizeof line_, lineLength, endsLine)) {
    std::strcpy(commandWord_, "done");
    return;
  }
  const int lineNumber = ++cmdLineNumber_;
  if (!endsLine) {
    --cmdLineNumber_;  // the rest of this line is read next, under the same number
  }
  if (std::memchr(line_, '\0', lineLength) != nullptr) {
    // A zero byte would silently cut the line short (or make it look empty, which ends the
    // command file): the line is reported and skipped like a comment.
    logMsg(kError, Echo::yes,
           "%s: command file %s, line %d: the line holds a zero byte and is skipped.\n",
           kProgramName, cmdFileName.c_str(), lineNumber);
    std::strcpy(commandWord_, "#");
    return;
  }
  const std::string_view line(line_, lineLength);
  size_t pos = 0;
  const std::string_view command = support::nextWord(line, pos);
  if (command.empty()) {
    // An empty or all-blank line ends the command file like "done".
    std::strcpy(commandWord_, "done");
    return;
  }
  // A command word longer than its buffer is cut; no command is that long.
  const size_t kept = std::min(command.size(), sizeof commandWord_ - 1);
  std::memcpy(commandWord_, command.data(), kept);
  commandWord_[kept] = '\0';
  for (std::string_view word = support::nextWord(line, pos); !word.empty();
       word = support::nextWord(line, pos)) {
    if (!args_) {
      args_ = std::make_unique<ArgList>();
    }
    args_->emplace_back(word);
  }
}

int zeAnalyzeNetlist::processCommandFile() {
  if (!cmdFile) {
    return 1;
  }
  durationTime = 0.0;
  ignoreSign_ = 0;
  cmdLineNumber_ = 0;
  args_.reset();
  for (;;) {
    collectInput();
    if (commandWord_[0] == '#') {
      continue;
    }
    runCommand(commandWord_);
    flushLog();
    if (strcasecmp(commandWord_, "done") == 0) {
      args_.reset();
      return 0;
    }
  }
}

void zeAnalyzeNetlist::runCommand(const char* word) {
  for (const Command& command : kCommands) {
    if (strcasecmp(word, command.word) == 0) {
      if (strict) {
        warnBeforeCommand(word);
      }
      try {
        command.run(*this, args_.get(), ignoreSign_);
      } catch (const simdata::FileChanged& changed) {
        // A results file changed under the command: its reads are void, the session is not.
        logMsg(kError, Echo::yes, "%s\n", changed.what());
      }
      if (strict && strcasecmp(word, "done") != 0) {
        warnAfterCommand(word);
      }
      return;
    }
  }
  logMsg(kError, Echo::yes, "Unknown command (%s). The following are legal commands:\n", word);
  logMsg(kPlain, Echo::yes, "\t%s\n\t%s\n\t%s\n\t%s\n\t%s\n\t%s\n", "openSimData", "loadNetlist",
         "selectAnalysis", "run", "saveResult", "done");
  if (strict) {
    warnUnknownCommand(word);
  }
}
