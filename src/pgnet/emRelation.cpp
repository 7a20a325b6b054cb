#include "pgnet/emRelation.h"

#include <algorithm>
#include <cmath>
#include <fstream>

#include "db/dbListings.h"

std::string pgnet::normaliseHierarchyPrefix(std::string_view text) {
  if (text == kNoHierarchy) {
    return {};
  }
  std::string prefix(text);
  std::replace(prefix.begin(), prefix.end(), '/', '.');
  if (!prefix.empty() && prefix.front() == '.') {
    prefix.erase(0, 1);
  }
  if (prefix.empty() || prefix.back() != '.') {
    prefix += '.';
  }
  return prefix;
}

std::string pgnet::normaliseResistorPrefix(std::string_view text) {
  return text.empty() ? std::string() : "." + std::string(text);
}

size_t pgnet::writeEMListing(const kraDBNetwork& network, std::span<const uint32_t> order,
                             std::FILE* out, std::FILE* tmesh) {
  constexpr size_t kFlushAt = 1 << 16;
  std::string text;
  std::string mesh;
  size_t lines = 0;
  auto flush = [&](bool always) {
    if (always || text.size() >= kFlushAt) {
      std::fwrite(text.data(), 1, text.size(), out);
      text.clear();
    }
    if (tmesh != nullptr && (always || mesh.size() >= kFlushAt)) {
      std::fwrite(mesh.data(), 1, mesh.size(), tmesh);
      mesh.clear();
    }
  };
  for (uint32_t i : order) {
    const kraDBNode& node = network[i];
    const kraDB::EMRecord* record = node.record;
    if (record == nullptr) {
      continue;
    }
    // "%s  %g  %g  %g  %g %g %g %d": like %s, the name ends at its first zero byte.
    text.append(node.name.substr(0, node.name.find('\0')));
    text += "  ";
    kraDB::appendG(text, std::fabs(record->peak));
    text += "  ";
    kraDB::appendG(text, std::fabs(record->avg));
    text += "  ";
    kraDB::appendG(text, record->rms);
    text += "  ";
    kraDB::appendG(text, record->tpeak);
    text += ' ';
    kraDB::appendG(text, std::fabs(record->avgPos));
    text += ' ';
    // The magnitude of the negative-current average is not stored: it is avgPos - avg.
    kraDB::appendG(text, std::fabs(record->avgPos - record->avg));
    text += ' ';
    text += std::to_string(node.currDir);
    text += '\n';
    if (tmesh != nullptr) {
      kraDB::appendG(mesh, record->peak);
      mesh += ' ';
      kraDB::appendG(mesh, record->avg);
      mesh += '\n';
    }
    ++lines;
    flush(false);
  }
  flush(true);
  return lines;
}

namespace {

/// Loads the network input; a fault is reported and the nodes read before it are kept.
void loadNetworkInput(const pgnet::EmRelationRequest& request, pgnet::EmRelationHost& host,
                      kraDBNetwork& network) {
  std::ifstream input(request.networkPath, std::ios::in | std::ios::binary);
  if (!input.is_open()) {
    // The command still writes its (empty) listing, as it always has; the message says why.
    host.report("Unable to open file " + request.networkPath +
                " for reading, in command readMuroDBEM.\n");
    return;
  }
  const DBNetworkColumns columns =
      request.withDirections ? DBNetworkColumns::kWithNets : DBNetworkColumns::kNamesOnly;
  if (!network.loadData(input, columns)) {
    host.report("Error in network input file " + request.networkPath + ", " + network.errorMessage +
                "; the nodes before it are used.\n");
  }
}

}  // namespace

bool pgnet::relateEmRecords(const EmRelationRequest& request, EmRelationHost& host,
                            EmRelation& relation) {
  kraDBNetwork& network = relation.network;
  loadNetworkInput(request, host, network);
  std::FILE* listing = nullptr;
  std::FILE* tmesh = nullptr;
  if (!host.openOutputs(listing, tmesh)) {
    return false;
  }
  host.readRecords(relation.records);
  const std::string hierarchyPrefix =
      request.hierarchy ? normaliseHierarchyPrefix(*request.hierarchy) : std::string();
  const std::string resistorSuffix = normaliseResistorPrefix(request.resistorPrefix);
  const std::vector<uint32_t> order = network.sortedByName();
  network.attachRecords(relation.records, hierarchyPrefix, resistorSuffix, order);
  if (request.withDirections) {
    network.evalCurrDir();
  }
  writeEMListing(network, order, listing, tmesh);
  return true;
}
