// Fuzz target: the instance netlist loaders under every line grammar. The first byte chooses
// the grammar settings and the loader; the rest is the netlist file.

#include <cstdint>
#include <cstdio>

#include "analysis/netlist.h"
#include "fuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzing::silenceStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const uint8_t options = data[0];
  std::FILE* file = size > 1 ? fmemopen(const_cast<uint8_t*>(data + 1), size - 1, "r")
                             : std::fopen("/dev/null", "r");
  if (file == nullptr) {
    return 0;
  }
  zeNetlist netlist;
  netlist.hasRecoveryFactor = (options & 1) != 0;
  netlist.hasExtendedFields = (options & 2) != 0;
  netlist.valueColumn = (options & 4) != 0 ? 4.0f : 0.0f;
  netlist.keepBackslashNames = (options & 8) != 0;
  const char* name = (options & 32) != 0 ? nullptr : "fuzz.net";
  if ((options & 16) != 0) {
    netlist.loadNetlistPeakCurrents(file, name);
  } else {
    netlist.loadNetlist(file, name);
  }
  std::fclose(file);
  // The result writer sees whatever the loader kept.
  std::FILE* sink = std::fopen("/dev/null", "w");
  netlist.saveResults(sink);
  std::fclose(sink);
  return 0;
}
