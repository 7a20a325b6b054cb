#include "db/designGlobals.h"

namespace hlm {

double global::dbu = 1000.0;
double global::gridResolution = 2000.0;
double global::layoutShrink = 1.0;
std::string global::version = "1";
BBox global::designBox;
std::string global::libname;
std::string global::cellname;
std::string global::viewname;
std::set<std::string> global::highRModels;
bool global::bufferLog = false;

void global::setDBU(double v) {
  if (v == 0.0) {
    return;
  }
  dbu = v;
  gridResolution = v + v;
}

void global::setVersion(const char* text) {
  if (text != nullptr) {
    version = text;
  }
}

}  // namespace hlm
