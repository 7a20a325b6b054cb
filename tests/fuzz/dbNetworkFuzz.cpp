// Fuzz target: the database-side network loader of the EM command (kraDBNetwork::loadData)
// and the work that follows it: attaching EM records by name, prefix, substring and dotted
// part, the net mapping and current directions, and the listing. The first byte chooses the
// columns (bit 0), whether directions are evaluated (bit 1) and the prefixes (bits 2, 3).

#include <cstdint>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "db/dbRecords.h"
#include "db/emRecordTable.h"
#include "pgnet/dbNetwork.h"

namespace {

/// A few records whose names and node numbers the fuzzer can meet with short words.
const kraDB::EMRecordTable& records() {
  static const std::unique_ptr<kraDB::EMRecordTable> table = [] {
    auto built = std::make_unique<kraDB::EMRecordTable>();
    const char* names[] = {"R1", "R2", "x.R1.a", "top.R3", "a.b.c", "R1.p", "", "n"};
    int64_t term = 0;
    for (const char* name : names) {
      kraDB::kraDBEMNode node;
      node.name = name;
      node.avg = term % 3 == 0 ? -1e-3 : 2e-3;
      node.avgPos = 1e-3;
      node.peak = 3e-3;
      node.term1 = term;
      node.term2 = term % 2 == 0 ? term + 1 : -1;
      built->add(node);
      ++term;
    }
    built->finish();
    return built;
  }();
  return *table;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const uint8_t options = data[0];
  std::istringstream in(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
  kraDBNetwork network;
  network.loadData(in,
                   (options & 1) != 0 ? DBNetworkColumns::kWithNets : DBNetworkColumns::kNamesOnly);
  const std::string hierarchy =
      pgnet::normaliseHierarchyPrefix((options & 4) != 0 ? "/top/" : "##nil##");
  const std::string resistor = pgnet::normaliseResistorPrefix((options & 8) != 0 ? "p" : "");
  const std::vector<uint32_t> order = network.sortedByName();
  network.attachRecords(records(), hierarchy, resistor, order);
  if ((options & 2) != 0) {
    network.evalCurrDir();
  }
  std::FILE* sink = std::fopen("/dev/null", "w");
  pgnet::writeEMListing(network, order, sink, sink);
  std::fclose(sink);
  return 0;
}
