// Length and layer commands: file names and layer settings of the session, and the length
// calculation over a length-data file.

#include <fstream>
#include <locale>
#include <sstream>
#include <string>

#include "app/analyzeNetlist.h"
#include "app/outputFile.h"
#include "db/designGlobals.h"
#include "pgnet/dbNetwork.h"
#include "pgnet/network.h"

namespace {

constexpr const char* kOpenForReading = "%s: Unable to open file %s for reading, in command %s.\n";
constexpr const char* kOpenForWriting = "%s: Unable to open file %s for writing, in command %s.\n";

/// True when the command has an argument; otherwise logs that `command` requires `what`.
bool hasArguments(zeAnalyzeNetlist& session, const ArgList* args, const char* command,
                  const char* what) {
  if (args != nullptr && !args->empty()) {
    return true;
  }
  session.logMsg(kError, Echo::yes, "%s: %s command requires %s\n", kProgramName, command, what);
  return false;
}

/// A command that names a file: its first argument becomes `path`.
int setPath(zeAnalyzeNetlist& session, const ArgList* args, const char* command, const char* what,
            std::string& path) {
  if (!hasArguments(session, args, command, what)) {
    return 1;
  }
  path = (*args)[0];
  return 0;
}

/// The two files of a network command and the command each message names.
struct NetworkFiles {
  const std::string& inputPath;
  const char* inputCommand;
  const std::string& outputPath;
  const char* outputCommand;
};

/// Opens a network command's input and output (never over a results file the process has
/// mapped); false, with the error logged, when either cannot be opened.
bool openNetworkFiles(zeAnalyzeNetlist& session, const NetworkFiles& files, std::ifstream& input,
                      std::ofstream& output) {
  input.open(files.inputPath, std::ios::in | std::ios::binary);
  if (!input.is_open()) {
    session.logMsg(kError, Echo::yes, kOpenForReading, kProgramName, files.inputPath.c_str(),
                   files.inputCommand);
    return false;
  }
  if (mayOverwrite(files.outputPath.c_str())) {
    output.open(outputTarget(files.outputPath.c_str()),
                std::ios::out | std::ios::trunc | std::ios::binary);
  }
  if (!output.is_open()) {
    session.logMsg(kError, Echo::yes, kOpenForWriting, kProgramName, files.outputPath.c_str(),
                   files.outputCommand);
    return false;
  }
  return true;
}

}  // namespace

int zeAnalyzeNetlist::processLengthDataInputCmd(const ArgList* args) {
  return setPath(*this, args, "lengthDataInput", "an input file  name.", lengthDataInputFile);
}

int zeAnalyzeNetlist::processLengthDataOutputCmd(const ArgList* args) {
  return setPath(*this, args, "lengthDataOutput", "an output file  name.", lengthDataOutputFile);
}

int zeAnalyzeNetlist::processSetLayersStackCmd(const ArgList* args) {
  // The message names lengthDataInput; that is its established wording.
  if (!hasArguments(*this, args, "lengthDataInput", "layers stack as list of layers.")) {
    return 1;
  }
  layerStack.insert(layerStack.end(), args->begin(), args->end());
  return 0;
}

int zeAnalyzeNetlist::processPowerGridLayersCmd(const ArgList* args) {
  if (!hasArguments(*this, args, "powerGridLayers", "list of power-grid layers as list.")) {
    return 1;
  }
  powerGridLayers.insert(args->begin(), args->end());
  return 0;
}

int zeAnalyzeNetlist::processPowerGridRulesInputCmd(const ArgList* args) {
  return setPath(*this, args, "powerGridRulesInput",
                 "input file name  for  power-grid rule processing.", powerGridRulesInputFile);
}

int zeAnalyzeNetlist::processPowerGridRulesOutputCmd(const ArgList* args) {
  return setPath(*this, args, "powerGridRulesOutput",
                 "output file name  for  power-grid rule processing.", powerGridRulesOutputFile);
}

int zeAnalyzeNetlist::processSaveTMeshDataCmd(const ArgList* args) {
  return setPath(*this, args, "saveTMeshData", "output file name  for saving Mesh data. ",
                 tMeshDataFile);
}

int zeAnalyzeNetlist::processCadGridCmd(const ArgList* args) {
  if (!hasArguments(*this, args, "cadGrid", "cadGrid value.")) {
    return 1;
  }
  std::istringstream text((*args)[0]);
  text.imbue(std::locale::classic());
  double value = 0.0;
  text >> value;
  // Only grids finer than 0.001 can be set; anything coarser falls back to the design's grid.
  if (value > 0.001) {
    value = 1.0 / hlm::global::getDBU();
  }
  dbuScale = value;
  return 0;
}

int zeAnalyzeNetlist::processCalculateLengthCmd() {
  std::ifstream input;
  std::ofstream output;
  // The input's message names the output command too; that is its established wording.
  if (!openNetworkFiles(
          *this,
          {lengthDataInputFile, "lengthDataOutput", lengthDataOutputFile, "lengthDataOutput"},
          input, output)) {
    return 1;
  }
  zeNetwork network;
  network.setLayerStack(layerStack);
  network.evalCurrentDirection = evalCurrentDirection;
  network.evalTotalSum = evalTotalSum;
  if (!network.readLengthData(input)) {
    logMsg(kError, Echo::yes, "%s\n", network.errorMessage.c_str());
    return 1;
  }
  network.writeLengthData(output);
  return closeOutput(output, lengthDataOutputFile) ? 0 : 1;
}

int zeAnalyzeNetlist::processPowerGridAnalysis(kraDBNetwork* dbNetwork) {
  std::ifstream input;
  std::ofstream output;
  if (!openNetworkFiles(*this,
                        {powerGridRulesInputFile, "powerGridRulesInput", powerGridRulesOutputFile,
                         "powerGridRulesOutput"},
                        input, output)) {
    return 1;
  }
  zeNetwork network;
  network.setLayerStack(layerStack);
  if (!network.readPGData(input)) {
    logMsg(kError, Echo::yes, "%s\n", network.errorMessage.c_str());
    return 1;
  }
  // After a run the currents are the instances' average currents with their directions;
  // the EM command gives them through its database network instead.
  pgnet::PGSessionData data;
  data.cadGrid = dbuScale;
  if (dbNetwork == nullptr) {
    data.instances.reserve(instances.instances.size());
    for (const zeInstance& instance : instances.instances) {
      data.instances.push_back({instance.name, instance.direction, instance.data.avg});
    }
  }
  if (network.processPG(&data, dbNetwork)) {
    network.writePGData(output);
  }
  return closeOutput(output, powerGridRulesOutputFile) ? 0 : 1;
}
