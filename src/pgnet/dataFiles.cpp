// The length-data and PG-data files of the network.

#include <array>
#include <istream>
#include <new>
#include <ostream>
#include <stdexcept>
#include <string>

#include "pgnet/detail/lineReader.h"
#include "pgnet/network.h"

namespace {

// The PG data reader reports its errors with the length-data wording too.
constexpr const char* kParseErrorText = "Error in calculating length data.\nAt parsing line ";
constexpr const char* kNoNode = "##nil##";
// A grid too large for this machine ends the read like a bad line, not the program.
const std::string kOutOfMemoryText = "Error in calculating length data.\nOut of memory at line ";

// Both files keep writing a line at a time, flushed, so that a partly written file always
// ends with a complete line.
void writeLine(std::ostream& out, const std::string& line) {
  out.write(line.data(), static_cast<std::streamsize>(line.size()));
  out.flush();
}

}  // namespace

template <size_t kFields, class MakeNode>
bool zeNetwork::readNodeLines(std::istream& in, MakeNode makeNode) {
  pgnet::detail::LineReader reader(in);
  std::array<std::string_view, kFields> fields;
  std::string_view line;
  uint64_t lineNumber = 0;
  try {
    while (reader.next(line)) {
      ++lineNumber;
      if (pgnet::detail::splitFields(line, fields.data(), kFields) < kFields || !makeNode(fields)) {
        errorMessage = kParseErrorText;
        errorMessage += std::to_string(lineNumber);
        errorMessage += ':';
        errorMessage += line;
        return false;
      }
    }
  } catch (const std::bad_alloc&) {
    errorMessage = kOutOfMemoryText + std::to_string(lineNumber) + '.';
    return false;
  } catch (const std::length_error&) {
    errorMessage = kOutOfMemoryText + std::to_string(lineNumber) + '.';
    return false;
  }
  return true;
}

bool zeNetwork::readLengthNodes(std::istream& in) {
  // name net1 net2 length width layer viaType
  return readNodeLines<7>(in, [this](const std::array<std::string_view, 7>& f) {
    pgnet::NodeFields node;
    if (!pgnet::detail::parseDouble(f[3], node.length) ||
        !pgnet::detail::parseDouble(f[4], node.width)) {
      return false;
    }
    node.name = f[0];
    node.net1 = f[1];
    node.net2 = f[2];
    node.layer = f[5];
    node.viaType = f[6];
    createNode(node);
    return true;
  });
}

bool zeNetwork::readLengthData(std::istream& in) {
  if (!readLengthNodes(in)) {
    return false;
  }
  try {
    calculateLengths();
  } catch (const std::bad_alloc&) {
    errorMessage = "Error in calculating length data.\nOut of memory.";
    return false;
  }
  return true;
}

bool zeNetwork::readPGData(std::istream& in) {
  // name layer net1 net2 x y width length viaType
  return readNodeLines<9>(in, [this](const std::array<std::string_view, 9>& f) {
    pgnet::NodeFields node;
    if (!pgnet::detail::parseDouble(f[4], node.x) || !pgnet::detail::parseDouble(f[5], node.y) ||
        !pgnet::detail::parseDouble(f[6], node.width) ||
        !pgnet::detail::parseDouble(f[7], node.length)) {
      return false;
    }
    node.name = f[0];
    node.layer = f[1];
    node.net1 = f[2];
    node.net2 = f[3];
    node.viaType = f[8];
    createNode(node);
    return true;
  });
}

bool zeNetwork::writeLengthData(std::ostream& out) const {
  std::string line;
  for (const kraNode* node : nodes) {
    line.assign(node->name);
    line += '\t';
    pgnet::detail::appendDouble(line, node->totalLength);
    if (!node->isVia()) {
      line += "\tM\n";
      writeLine(out, line);
      continue;
    }
    line += "\tV\t";
    line += node->layer;
    line += '\t';
    line += node->topMetalNode != nullptr ? node->topMetalNode->name : kNoNode;
    line += '\t';
    line += node->bottomMetalNode != nullptr ? node->bottomMetalNode->name : kNoNode;
    if (evalCurrentDirection) {
      line += '\t';
      line += std::to_string(node->net1IsTopNet);
    }
    line += '\n';
    writeLine(out, line);
  }
  return true;
}

bool zeNetwork::writePGData(std::ostream& out) const {
  std::string line;
  for (const std::unique_ptr<kraPowerGrid>& grid : powerGrids) {
    line.clear();
    pgnet::detail::appendDouble(line, grid->lv2v);
    line += '\t';
    pgnet::detail::appendDouble(line, grid->currentDiff);
    line += '\t';
    for (const kraNode* node : grid->nodes) {
      line += node->name;
      line += '\t';
    }
    line += '\n';
    writeLine(out, line);
  }
  return true;
}
