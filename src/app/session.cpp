#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "db/designGlobals.h"

namespace {

char logBuffer[4096];

const char* severityPrefix(int severity) {
  switch (severity) {
    case kInfo:
      return "INFO: ";
    case kWarning:
      return "WARNING: ";
    case kError:
      return "ERROR: ";
    case kStatus:
      return "STATUS: ";
    default:
      return "";
  }
}

}  // namespace

const char* argAt(const ArgList* args, size_t i) {
  if (args == nullptr || i >= args->size()) {
    return nullptr;
  }
  return (*args)[i].c_str();
}

zeAnalyzeNetlist::zeAnalyzeNetlist() : dbuScale(1.0 / hlm::global::getDBU()) {}

zeAnalyzeNetlist::~zeAnalyzeNetlist() = default;

char* zeAnalyzeNetlist::getLogBuf() { return logBuffer; }

int zeAnalyzeNetlist::init(const char* cmdName, const char* logName, bool noFiles) {
  isSweepData = 1;
  startTime = 0.0;
  stopTime = 0.0;
  analysis = nullptr;
  resultsDir.reset();
  cmdFileName.clear();
  cmdFile.reset();
  logFileName.clear();
  logFile.reset();
  useOldACPeakMethod = false;
  dbuScale = 1.0 / hlm::global::getDBU();
  const bool oldPeakMethod = std::getenv("_kraUseOldACPeakMethod") != nullptr;
  if (noFiles) {
    useOldACPeakMethod = oldPeakMethod;
    return 0;
  }
  if (logName != nullptr) {
    logFileName = logName;
    logFile.reset(std::fopen(logName, "w+"));
  }
  if (cmdName == nullptr) {
    logMsg(kError, Echo::yes, "%s: command file name is missing\n", kProgramName);
    return 1;
  }
  cmdFileName = cmdName;
  cmdFile.reset(std::fopen(cmdName, "r"));
  if (!cmdFile) {
    logMsg(kError, Echo::yes, "%s: command file %s not found.\n", kProgramName, cmdName);
    return 1;
  }
  useOldACPeakMethod = oldPeakMethod;
  return 0;
}

void zeAnalyzeNetlist::out_log(int severity, const char* text, Echo echo) {
  if (text == nullptr) {
    return;
  }
  if (severity == kError) {
    ++errorCount;
  }
  if (logListener) {
    logListener(severity, text);
  }
  const char* prefix = severityPrefix(severity);
  if (logFile) {
    std::fputs(prefix, logFile.get());
    std::fputs(text, logFile.get());
  }
  if (echo == Echo::yes) {
    std::fputs(prefix, stdout);
    std::fputs(text, stdout);
  }
}

void zeAnalyzeNetlist::logMsg(int severity, Echo echo, const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(logBuffer, sizeof logBuffer, format, args);
  va_end(args);
  out_log(severity, logBuffer, echo);
}

void zeAnalyzeNetlist::report_time(const char* name) {
  const double seconds = static_cast<double>(commandEnd - commandStart);
  if (name != nullptr) {
    logMsg(kInfo, Echo::yes, "** %s command done ( time %g sec )\n", name, seconds);
  } else {
    logMsg(kInfo, Echo::yes, "** %s analysis done ( time %g sec )\n", kProgramName, seconds);
  }
}

void zeAnalyzeNetlist::printLastError() {
  const char* text = simdata::lastErrorText();
  if (simdata::lastErrorCode() != 0 && text != nullptr) {
    logMsg(kWarning, Echo::no, "%s\n", text);
  }
}

void zeAnalyzeNetlist::processCleanup() {
  cmdFile.reset();
  if (logFile) {
    // A log that could not be written completely is reported where it can still be seen.
    const bool writeFailed = std::ferror(logFile.get()) != 0;
    const bool closeFailed = std::fclose(logFile.release()) != 0;
    if (writeFailed || closeFailed) {
      logWriteError(logFileName);
    }
  }
  analysis = nullptr;
  resultsDir.reset();
}

void zeAnalyzeNetlist::flushLog() {
  if (logFile) {
    std::fflush(logFile.get());
  }
  std::fflush(stdout);
}

void zeAnalyzeNetlist::setACAnalysis(bool on) { analysis::processSettings().ACAnalysis = on; }

void zeAnalyzeNetlist::logWriteError(const std::string& path) {
  logMsg(kError, Echo::yes, kWriteErrorText, kProgramName, path.c_str());
}

bool zeAnalyzeNetlist::closeOutput(OutputFile& file) {
  const std::string path = file.path();
  if (!file.close()) {
    logWriteError(path);
    return false;
  }
  return true;
}

bool zeAnalyzeNetlist::closeOutput(std::ofstream& stream, const std::string& path) {
  // A failed write sets badbit and later writes do nothing; a failed close sets failbit.
  stream.close();
  if (stream.fail()) {
    logWriteError(path);
    return false;
  }
  return true;
}
