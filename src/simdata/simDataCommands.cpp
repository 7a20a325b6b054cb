// Simulation-data commands. Not yet part of this build.

#include "app/analyzeNetlist.h"

int zeAnalyzeNetlist::processOpenSimDataCmd(const ArgList*) { return logUnavailable("openSimData"); }
int zeAnalyzeNetlist::processSelectAnalysisCmd(const ArgList*) {
  return logUnavailable("selectAnalysis");
}
int zeAnalyzeNetlist::processDisplayAnalysisCmd(const ArgList*) {
  return logUnavailable("displayAnalysis");
}
int zeAnalyzeNetlist::processDisplaySignalCmd(const ArgList*) {
  return logUnavailable("displaySignals");
}
int zeAnalyzeNetlist::processSaveTemperatureCmd(const ArgList*, double&) {
  return logUnavailable("saveTemperature");
}
void zeAnalyzeNetlist::getStartStopTimeRange(const simdata::Sweep*) {}
void zeAnalyzeNetlist::getTimeRangeIndices(const simdata::Value*, int& startIndex,
                                           int& stopIndex) {
  startIndex = 0;
  stopIndex = 2147483647;
}
int zeAnalyzeNetlist::processCreateNetlistCmd(const ArgList*) {
  return logUnavailable("createNetlist");
}
int zeAnalyzeNetlist::processSaveAnalysisInfoCmd(const ArgList*, std::vector<std::string>&) {
  return logUnavailable("saveAnalysisInfo");
}
