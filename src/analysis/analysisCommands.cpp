// Instance-analysis commands. Not yet part of this build.

#include "app/analyzeNetlist.h"

int zeAnalyzeNetlist::processLoadNetlistCmd(const ArgList*) { return logUnavailable("loadNetlist"); }
int zeAnalyzeNetlist::processRunCmd(const ArgList*, int) { return logUnavailable("run"); }
int zeAnalyzeNetlist::processSaveResultsCmd(const ArgList*, std::vector<zeInstance>&) {
  return logUnavailable("saveResult");
}
