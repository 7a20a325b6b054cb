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

/// Where each field of a node stands in a line of one of the two files (-1: not there), in
/// this order.
struct NodeColumns {
  int name, net1, net2, layer, viaType;
  int length, width, x, y;
};

// name net1 net2 length width layer viaType
constexpr NodeColumns kLengthDataColumns{0, 1, 2, 5, 6, 3, 4, -1, -1};
// name layer net1 net2 x y width length viaType
constexpr NodeColumns kPGDataColumns{0, 2, 3, 1, 8, 7, 6, 4, 5};

/// Makes the node of one line's words; false when a number does not read.
bool createNodeFrom(zeNetwork& network, const std::string_view* words, const NodeColumns& columns) {
  pgnet::NodeFields node;
  auto number = [words](int column, double& value) {
    return column < 0 || pgnet::detail::parseDouble(words[column], value);
  };
  if (!number(columns.length, node.length) || !number(columns.width, node.width) ||
      !number(columns.x, node.x) || !number(columns.y, node.y)) {
    return false;
  }
  node.name = words[columns.name];
  node.net1 = words[columns.net1];
  node.net2 = words[columns.net2];
  node.layer = words[columns.layer];
  node.viaType = words[columns.viaType];
  network.createNode(node);
  return true;
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
  return readNodeLines<7>(in, [this](const std::array<std::string_view, 7>& f) {
    return createNodeFrom(*this, f.data(), kLengthDataColumns);
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
  return readNodeLines<9>(in, [this](const std::array<std::string_view, 9>& f) {
    return createNodeFrom(*this, f.data(), kPGDataColumns);
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
