#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "support/text.h"

namespace {

using Handler = void (*)(zeAnalyzeNetlist& session, const ArgList* args, int& ignoreSign);

struct Command {
  const char* word;
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

// The table is tested in this order; the first case-insensitive match runs.
const Command kCommands[] = {
    {"saveTemperature", [](zeAnalyzeNetlist& s, const ArgList* a,
                           int&) { s.processSaveTemperatureCmd(a, s.temperature); }},
    {"lengthDataInput", withArgs<&zeAnalyzeNetlist::processLengthDataInputCmd>},
    {"setLayersStack", withArgs<&zeAnalyzeNetlist::processSetLayersStackCmd>},
    {"powerGridLayers", withArgs<&zeAnalyzeNetlist::processPowerGridLayersCmd>},
    {"powerGridRulesInput", withArgs<&zeAnalyzeNetlist::processPowerGridRulesInputCmd>},
    {"powerGridRulesOutput", withArgs<&zeAnalyzeNetlist::processPowerGridRulesOutputCmd>},
    {"saveTMeshData", withArgs<&zeAnalyzeNetlist::processSaveTMeshDataCmd>},
    {"cadGrid", withArgs<&zeAnalyzeNetlist::processCadGridCmd>},
    {"evalCurrentDirection",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.evalCurrentDirection = true; }},
    {"lengthDataOutput", withArgs<&zeAnalyzeNetlist::processLengthDataOutputCmd>},
    {"calculateLength",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.processCalculateLengthCmd(); }},
    {"evalTotalSum", [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.evalTotalSum = true; }},
    {"readMuroDBIR", withTwoArgs<&zeAnalyzeNetlist::processReadMuroDBIR>},
    {"readMuroDBEM", withArgs<&zeAnalyzeNetlist::processReadMuroDBEM>},
    {"readMuroDBInfo", withTwoArgs<&zeAnalyzeNetlist::processReadMuroDBInfo>},
    {"readMuroDBTime", withTwoArgs<&zeAnalyzeNetlist::processReadMuroDBTime>},
    {"done", [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.processCleanup(); }},
    {"simDataType",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       const char* format = argAt(a, 0);
       if (format != nullptr && strcasecmp(format, "QXF") == 0) {
         s.logMsg(kInfo, Echo::no, "Simulation data is in QXF format\n");
         s.setDataType(zeNetlist::eQXF);
       }
     }},
    {"openSimData", withArgs<&zeAnalyzeNetlist::processOpenSimDataCmd>},
    {"saveAnalysisInfo",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       std::vector<std::string> info;
       s.processSaveAnalysisInfoCmd(a, info);
     }},
    {"loadNetlist",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       timedCommand(s, "loadNetlist", [&] { s.processLoadNetlistCmd(a); });
     }},
    {"selectAnalysis", withArgs<&zeAnalyzeNetlist::processSelectAnalysisCmd>},
    {"durationTime",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       const char* value = argAt(a, 0);
       if (value != nullptr && std::strcmp(value, "nil") != 0) {
         s.durationTime = std::strtod(value, nullptr);
       } else {
         s.logMsg(kError, Echo::yes, "Using default value 0.0 as duration time.\n");
       }
     }},
    {"recoveryFactorFlag",
     [](zeAnalyzeNetlist& s, const ArgList*, int&) {
       s.recoveryFactorFlag = true;
       analysis::processSettings().recoveryFactor = 1.0f;
     }},
    {"emRecoveryFactor",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       const char* value = argAt(a, 0);
       if (value != nullptr && std::strcmp(value, "nil") != 0) {
         analysis::processSettings().emRecoveryFactorGiven = true;
         analysis::processSettings().emRecoveryFactor =
             static_cast<float>(std::strtod(value, nullptr));
       } else {
         // This command's default message also speaks of duration time; the wording is kept.
         s.logMsg(kError, Echo::yes, "Using default value 1 as duration time.\n");
       }
     }},
    {"ACAnlaysis", [](zeAnalyzeNetlist& s, const ArgList*, int&) { s.setACAnalysis(true); }},
    {"ignore",
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
    {"run",
     [](zeAnalyzeNetlist& s, const ArgList* a, int& ignoreSign) {
       timedCommand(s, "run", [&] { s.processRunCmd(a, ignoreSign); });
     }},
    {"saveResult",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       std::vector<zeInstance> saved;
       s.processSaveResultsCmd(a, saved);
     }},
    {"displayAnalysis", withArgs<&zeAnalyzeNetlist::processDisplayAnalysisCmd>},
    // Timed under the name "loadNetlist": the reuse is intended.
    {"displaySignals",
     [](zeAnalyzeNetlist& s, const ArgList* a, int&) {
       timedCommand(s, "loadNetlist", [&] { s.processDisplaySignalCmd(a); });
     }},
    {"createNetlist", withArgs<&zeAnalyzeNetlist::processCreateNetlistCmd>},
};

}  // namespace

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
    if (strcasecmp(commandWord_, "done") == 0) {
      args_.reset();
      return 0;
    }
  }
}

void zeAnalyzeNetlist::runCommand(const char* word) {
  for (const Command& command : kCommands) {
    if (strcasecmp(word, command.word) == 0) {
      command.run(*this, args_.get(), ignoreSign_);
      return;
    }
  }
  logMsg(kError, Echo::yes, "Unknown command (%s). The following are legal commands:\n", word);
  logMsg(kPlain, Echo::yes, "\t%s\n\t%s\n\t%s\n\t%s\n\t%s\n\t%s\n", "openSimData", "loadNetlist",
         "selectAnalysis", "run", "saveResult", "done");
}
