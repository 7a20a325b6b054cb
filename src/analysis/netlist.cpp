#include "analysis/netlist.h"

bool isGnd(const std::string& name) { return name == "0"; }

int zeNetlist::loadNetlist(FILE*, const char*) { return 1; }
int zeNetlist::loadNetlistPeakCurrents(FILE*, const char*) { return 1; }
int zeNetlist::saveResults(FILE*) const { return 0; }
