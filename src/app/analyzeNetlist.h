#pragma once
// The analysis session: the state that commands share and the command handlers. Handlers
// are declared here and defined in the subsystem that owns the command (*Commands.cpp).

#include <cstdio>
#include <ctime>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/netlist.h"
#include "analysis/settings.h"
#include "analysis/voltageData.h"
#include "app/argList.h"
#include "app/log.h"
#include "app/outputFile.h"
#include "simdata/resultsReader.h"
#include "support/file.h"

class zeVsrc;
class kraDBNetwork;
namespace em {
class Geometry;
struct Findings;
struct Rules;
}  // namespace em
namespace analysis {
class RunExchange;
}

class zeAnalyzeNetlist {
 public:
  zeAnalyzeNetlist();
  ~zeAnalyzeNetlist();
  zeAnalyzeNetlist(const zeAnalyzeNetlist&) = delete;
  zeAnalyzeNetlist& operator=(const zeAnalyzeNetlist&) = delete;

  // --- session, log and interpreter ---
  int init(const char* cmdFileName, const char* logFileName, bool noFiles);
  void out_log(int severity, const char* text, Echo echo);
  /// Formats into the shared message buffer and logs it.
  void logMsg(int severity, Echo echo, const char* format, ...)
      __attribute__((format(printf, 4, 5)));
  void report_time(const char* name);
  void printLastError();
  static char* getLogBuf();
  int processCommandFile();
  void collectInput();
  void processCleanup();
  /// Writes out what the log and standard output hold so far: done after every command, so
  /// that a process killed later leaves everything said up to then on disk.
  void flushLog();
  void setDataType(zeNetlist::eSimDataType type) { dataType = type; }
  void setACAnalysis(bool on);
  /// The interpreter's ignore setting for the command file being read.
  int currentIgnoreSign() const { return ignoreSign_; }
  /// Logs kWriteErrorText for a file that could not be written completely (ERROR, echoed).
  void logWriteError(const std::string& path);
  /// Closes a command's output file; false, with the write error logged, when the file was
  /// not written completely. The run goes on either way.
  bool closeOutput(OutputFile& file);
  /// The same for an output written through a file stream.
  bool closeOutput(std::ofstream& stream, const std::string& path);

  // --- simulation data ---
  int processOpenSimDataCmd(const ArgList* args);
  int processSelectAnalysisCmd(const ArgList* args);
  int processDisplayAnalysisCmd(const ArgList* args);
  int processDisplaySignalCmd(const ArgList* args);
  int processSaveTemperatureCmd(const ArgList* args, double& temperatureOut);
  void getStartStopTimeRange(const simdata::Sweep* sweep);
  void getTimeRangeIndices(const simdata::Value* waveform, int& startIndex, int& stopIndex);
  int processCreateNetlistCmd(const ArgList* args);
  int processSaveAnalysisInfoCmd(const ArgList* args, std::vector<std::string>& info);

  // --- instance analysis ---
  int processLoadNetlistCmd(const ArgList* args);
  int processRunCmd(const ArgList* args, int ignoreSign);
  int processSaveResultsCmd(const ArgList* args, std::vector<zeInstance>& out);
  /// windowMode exact|legacy: how later runs measure their window.
  int processWindowModeCmd(const ArgList* args);
  /// saveResultTable <file.csv>: the results as CSV with their provenance.
  int processSaveResultTableCmd(const ArgList* args);
  /// Whether a run may measure exact windows with these settings (else logs why not); sets
  /// the settings' stop time to `stop`, the window's end as the command gave it.
  bool exactWindowReady(analysis::StatisticsSettings& settings, double stop);
  int processVsrcCmd(zeVsrc& sources);
  void populateResToWatt();
  void getWattSignals(int first, int count, std::vector<zeInstance>& list);

  // --- EMIR database ---
  int processReadMuroDBIR(const char* dbPath, const char* outPath);
  int processReadMuroDBEM(const ArgList* args);
  int processReadMuroDBInfo(const char* dbPath, const char* outPath);
  int processReadMuroDBTime(const char* dbPath, const char* outPath);
  int getArchitecture(const std::string& path);
  int guessArchitecture(const std::string& path);
  void updateStartStopTimeFromDBFile(const char* path);

  // --- power-grid network and lengths ---
  int processLengthDataInputCmd(const ArgList* args);
  int processLengthDataOutputCmd(const ArgList* args);
  int processSetLayersStackCmd(const ArgList* args);
  int processPowerGridLayersCmd(const ArgList* args);
  int processPowerGridRulesInputCmd(const ArgList* args);
  int processPowerGridRulesOutputCmd(const ArgList* args);
  int processSaveTMeshDataCmd(const ArgList* args);
  int processCadGridCmd(const ArgList* args);
  int processCalculateLengthCmd();
  int processPowerGridAnalysis(kraDBNetwork* dbNetwork);

  // --- EM check ---
  int processEmTemperatureCmd(const ArgList* args);
  int processCheckEMCmd(const ArgList* args);

  // --- state (names as the behaviour defines them) ---
  simdata::Dataset* analysis = nullptr;
  std::unique_ptr<simdata::ResultsDir> resultsDir;
  /// A directory replaced by openSimData while the selected analysis still belongs to it; kept
  /// until the next selection so that the selection never points into freed memory.
  std::unique_ptr<simdata::ResultsDir> replacedResultsDir;
  zeNetlist instances;
  zeNetlist::eSimDataType dataType = zeNetlist::eDefault;
  bool evalCurrentDirection = false;
  bool evalTotalSum = false;
  bool recoveryFactorFlag = false;
  int isSweepData = 1;
  double startTime = 0.0;
  double stopTime = 0.0;
  double durationTime = 0.0;
  std::string cmdFileName;
  support::FilePtr cmdFile;
  std::string logFileName;
  support::FilePtr logFile;
  time_t commandStart = 0;
  time_t commandEnd = 0;
  std::string lengthDataInputFile;
  std::string lengthDataOutputFile;
  std::vector<std::string> layerStack;
  std::set<std::string> powerGridLayers;
  std::string powerGridRulesInputFile;
  std::string powerGridRulesOutputFile;
  std::string tMeshDataFile;
  double dbuScale = 1.0;
  bool useOldACPeakMethod = false;
  bool writeOutputFiles = true;
  /// Never changed by a command; a negative value keeps AC threshold pulses off.
  double acPulseThreshold = -1.0;
  /// Never changed by a command; switches on the recording of AC pulse records.
  bool collectAcPulses = false;
  std::map<std::string, double> resToWatt;
  /// The temperature found by saveTemperature, owned by the interpreter.
  double temperature = 0.0;
  /// The window and mode of the last run.
  analysis::RunWindow lastRun;
  /// Set once saveTemperature found a temperature.
  bool temperatureFound = false;
  /// deg C of checkEM's derating, set by emTemperature.
  std::optional<double> emTemperature;

  /// Strict mode (-strict): warnings about input otherwise taken in silence, and the nearest
  /// command after an unknown word. Set before the command file runs.
  bool strict = false;
  /// Number of ERROR messages logged, for strict mode's exit status.
  int errorCount = 0;

  /// Set by a driver whose processes share each run (kra2-mpi); null runs alone.
  analysis::RunExchange* runExchange = nullptr;
  /// Set by such a driver to see every message logged (severity and text), so that it can
  /// tell why one of its processes could not follow the others.
  std::function<void(int severity, const char* text)> logListener;

 private:
  void runCommand(const char* word);
  // Strict mode's checks around a command (strictChecks.cpp).
  void warnBeforeCommand(const char* word);
  void warnAfterCommand(const char* word);
  void warnUnknownCommand(const char* word);
  void warnNumberArguments(const char* word);
  void warnUnreadLastLine(const std::string& path, const char* what);
  void warnRunWindow();
  void warnMissingNodes();
  static std::string_view nearestCommand(std::string_view word);
  bool loadedBefore_ = false;
  size_t instancesBefore_ = 0;
  /// Whether results are open and an analysis selected; logs the error that says which is
  /// missing otherwise.
  bool analysisSelected();
  /// checkEM's geometry from the length data; false, with the error logged, when it cannot
  /// be read.
  bool loadEmGeometry(em::Geometry& geometry);
  void logEmFindings(const em::Findings& findings, const em::Rules& rules);

  char line_[4096] = {};
  char commandWord_[2048] = {};
  std::unique_ptr<ArgList> args_;
  int ignoreSign_ = 0;
  /// Number of the command-file line being read, for messages.
  int cmdLineNumber_ = 0;
};
