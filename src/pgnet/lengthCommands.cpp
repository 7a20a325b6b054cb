// Length and layer commands. Not yet part of this build.

#include "app/analyzeNetlist.h"

int zeAnalyzeNetlist::processLengthDataInputCmd(const ArgList*) {
  return logUnavailable("lengthDataInput");
}
int zeAnalyzeNetlist::processLengthDataOutputCmd(const ArgList*) {
  return logUnavailable("lengthDataOutput");
}
int zeAnalyzeNetlist::processSetLayersStackCmd(const ArgList*) {
  return logUnavailable("setLayersStack");
}
int zeAnalyzeNetlist::processPowerGridLayersCmd(const ArgList*) {
  return logUnavailable("powerGridLayers");
}
int zeAnalyzeNetlist::processPowerGridRulesInputCmd(const ArgList*) {
  return logUnavailable("powerGridRulesInput");
}
int zeAnalyzeNetlist::processPowerGridRulesOutputCmd(const ArgList*) {
  return logUnavailable("powerGridRulesOutput");
}
int zeAnalyzeNetlist::processSaveTMeshDataCmd(const ArgList*) {
  return logUnavailable("saveTMeshData");
}
int zeAnalyzeNetlist::processCadGridCmd(const ArgList*) { return logUnavailable("cadGrid"); }
int zeAnalyzeNetlist::processCalculateLengthCmd() { return logUnavailable("calculateLength"); }
int zeAnalyzeNetlist::processPowerGridAnalysis(kraDBNetwork*) {
  return logUnavailable("powerGridRulesInput");
}
