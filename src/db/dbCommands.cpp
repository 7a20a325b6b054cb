// EMIR database commands. Not yet part of this build.

#include "app/analyzeNetlist.h"

int zeAnalyzeNetlist::processReadMuroDBIR(const char*, const char*) {
  return logUnavailable("readMuroDBIR");
}
int zeAnalyzeNetlist::processReadMuroDBEM(const ArgList*) { return logUnavailable("readMuroDBEM"); }
int zeAnalyzeNetlist::processReadMuroDBInfo(const char*, const char*) {
  return logUnavailable("readMuroDBInfo");
}
int zeAnalyzeNetlist::processReadMuroDBTime(const char*, const char*) {
  return logUnavailable("readMuroDBTime");
}
int zeAnalyzeNetlist::getArchitecture(const std::string&) { return -1; }
int zeAnalyzeNetlist::guessArchitecture(const std::string&) { return -1; }
void zeAnalyzeNetlist::updateStartStopTimeFromDBFile(const char*) {}
