#include "pgnet/dbNetwork.h"

#include <algorithm>
#include <istream>
#include <stdexcept>
#include <streambuf>

#include "support/text.h"

// --- nodes ---

bool kraDBNode::isN1toN2() const {
  if (record == nullptr) {
    return true;
  }
  const bool negative = record->avg < 0.0;
  return negative == swapped;
}

void kraDBNode::evalCurrDir() {
  if (record == nullptr) {
    return;
  }
  if (reversible != 0) {
    if (type == -1) {
      return;
    }
    if (type == 1) {
      currDir = isN1toN2() ? 0 : 1;
      return;
    }
  }
  currDir = isN1toN2() ? 1 : 0;
}

// --- reading ---

namespace {

/// White-space separated words straight from a stream's buffer, with the line of each.
class WordReader {
 public:
  enum Result { kWord, kEnd, kTooLong };

  explicit WordReader(std::streambuf* buffer) : buffer_(buffer) {}

  Result next(std::string& word) {
    word.clear();
    if (buffer_ == nullptr) {
      return kEnd;
    }
    int c;
    for (;;) {
      c = buffer_->sbumpc();
      if (c == std::char_traits<char>::eof()) {
        return kEnd;
      }
      if (c == '\n') {
        ++line_;
      }
      if (!support::isBlank(static_cast<char>(c))) {
        break;
      }
    }
    wordLine_ = line_;
    for (;;) {
      if (word.size() == kraDBNetwork::kMaxWordBytes) {
        return kTooLong;
      }
      word.push_back(static_cast<char>(c));
      c = buffer_->sgetc();
      if (c == std::char_traits<char>::eof() || support::isBlank(static_cast<char>(c))) {
        return kWord;
      }
      buffer_->sbumpc();
    }
  }
  /// Line of the last word returned (from 1).
  uint64_t wordLine() const { return wordLine_; }
  /// The line the reader stands on.
  uint64_t line() const { return line_; }

 private:
  std::streambuf* buffer_;
  uint64_t line_ = 1;
  uint64_t wordLine_ = 1;
};

std::string quoted(const std::string& word) {
  constexpr size_t kShown = 40;
  return "'" + (word.size() > kShown ? word.substr(0, kShown) + "..." : word) + "'";
}

}  // namespace

bool kraDBNetwork::loadData(std::istream& in, DBNetworkColumns columns) {
  errorMessage.clear();
  WordReader reader(in.rdbuf());
  std::string name;
  std::string net1;
  std::string net2;
  std::string word;
  auto fail = [&](uint64_t line, const std::string& problem) {
    errorMessage = "line " + std::to_string(line) + ": " + problem;
    return false;
  };
  // One field of a node: a word, or the reason the node cannot be completed.
  auto field = [&](std::string& into, const char* what) {
    const WordReader::Result result = reader.next(into);
    if (result == WordReader::kWord) {
      return true;
    }
    if (result == WordReader::kTooLong) {
      fail(reader.line(), std::string("the ") + what + " is longer than " +
                              std::to_string(kMaxWordBytes) + " bytes");
    } else {
      fail(reader.line(),
           "the input ends before the " + std::string(what) + " of node " + quoted(name));
    }
    return false;
  };
  auto number = [&](int32_t& into, const char* what) {
    if (!field(word, what)) {
      return false;
    }
    if (!support::parseInteger(word, into)) {
      fail(reader.wordLine(), std::string("the ") + what + " " + quoted(word) + " of node " +
                                  quoted(name) + " is not a whole number");
      return false;
    }
    return true;
  };
  for (;;) {
    const WordReader::Result result = reader.next(name);
    if (result == WordReader::kEnd) {
      return true;
    }
    if (result == WordReader::kTooLong) {
      return fail(reader.line(),
                  "a name is longer than " + std::to_string(kMaxWordBytes) + " bytes");
    }
    int32_t flag = 0;
    if (!number(flag, "flag")) {
      return false;
    }
    if (columns == DBNetworkColumns::kNamesOnly) {
      addNode(name, flag);
      continue;
    }
    int32_t type = 0;
    int32_t reversible = 0;
    if (!field(net1, "first net") || !field(net2, "second net") || !number(type, "type") ||
        !number(reversible, "reversible flag")) {
      return false;
    }
    addNode(name, flag, net1, net2, type, reversible);
  }
}

kraDBNode& kraDBNetwork::addNode(std::string_view name, int32_t flag, std::string_view net1,
                                 std::string_view net2, int32_t type, int32_t reversible) {
  if (nodes_.size() >= kNoNet / 2) {
    throw std::length_error("too many network nodes");
  }
  kraDBNode& node = *nodes_.add();
  node.name = texts_.keep(name);
  node.net1 = texts_.keep(net1);
  node.net2 = texts_.keep(net2);
  node.type = type;
  node.reversible = reversible;
  if (flag != 0) {
    node.flagged = true;
    hasFlaggedNodes = true;
  }
  return node;
}

std::vector<uint32_t> kraDBNetwork::sortedByName() const {
  std::vector<uint32_t> order(nodes_.size());
  for (uint32_t i = 0; i < order.size(); ++i) {
    order[i] = i;
  }
  std::stable_sort(order.begin(), order.end(),
                   [this](uint32_t a, uint32_t b) { return nodes_[a].name < nodes_[b].name; });
  return order;
}

// --- records ---

AttachCounts kraDBNetwork::attachRecords(const kraDB::EMRecordTable& table,
                                         std::string_view hierPrefix, std::string_view resPrefix,
                                         std::span<const uint32_t> order) {
  AttachCounts counts;
  std::string key;
  bool missed = false;
  for (uint32_t i : order) {
    kraDBNode& node = nodes_[i];
    if (node.flagged || node.record != nullptr) {
      continue;
    }
    key.assign(hierPrefix).append(node.name);
    uint32_t rank = table.find(key);
    if (rank != kraDB::EMRecordTable::kNone) {
      ++counts.byName;
    } else if (!resPrefix.empty()) {
      key.append(resPrefix);
      rank = table.find(key);
      counts.byResistorPrefix += rank != kraDB::EMRecordTable::kNone ? 1 : 0;
    }
    node.record = table.recordAt(rank);
    missed = missed || node.record == nullptr;
  }

  // Flagged nodes name an instance whose resistors' records begin with its path: the first
  // record under it, else the first record anywhere that has the path as a dotted part.
  std::vector<uint32_t> unplaced;
  std::vector<std::string> paths;
  for (uint32_t i : order) {
    kraDBNode& node = nodes_[i];
    if (!node.flagged || node.record != nullptr) {
      continue;
    }
    key.assign(hierPrefix).append(node.name).append(".");
    node.record = table.recordAt(table.findFirstWithPrefix(key));
    if (node.record != nullptr) {
      ++counts.byPrefix;
    } else {
      unplaced.push_back(i);
      key.pop_back();
      paths.push_back(key);
    }
  }
  const std::vector<uint32_t> inside = table.findFirstContainingDotted(paths);
  for (size_t k = 0; k < unplaced.size(); ++k) {
    nodes_[unplaced[k]].record = table.recordAt(inside[k]);
    counts.bySubstring += inside[k] != kraDB::EMRecordTable::kNone ? 1 : 0;
  }

  if (missed) {
    unplaced.clear();
    std::vector<std::string_view> names;
    for (uint32_t i : order) {
      const kraDBNode& node = nodes_[i];
      if (!node.flagged && node.record == nullptr) {
        unplaced.push_back(i);
        names.push_back(node.name);
      }
    }
    const std::vector<uint32_t> byPart = table.findLastWithPart(names);
    for (size_t k = 0; k < unplaced.size(); ++k) {
      nodes_[unplaced[k]].record = table.recordAt(byPart[k]);
      counts.byPart += byPart[k] != kraDB::EMRecordTable::kNone ? 1 : 0;
    }
  }
  for (uint32_t i : order) {
    counts.without += nodes_[i].record == nullptr ? 1 : 0;
  }
  return counts;
}

// --- net mapping ---

void kraDBNetwork::createNetwork() {
  const uint32_t count = static_cast<uint32_t>(nodes_.size());
  // Net map: (net, 2 * node + side) sorted, so that each net's members come out ascending
  // and every node learns the id of each of its nets.
  struct NetRef {
    std::string_view net;
    uint32_t code;
  };
  std::vector<NetRef> refs;
  refs.reserve(2 * static_cast<size_t>(count));
  for (uint32_t i = 0; i < count; ++i) {
    const kraDBNode& node = nodes_[i];
    if (!node.net1.empty()) {
      refs.push_back({node.net1, 2 * i});
    }
    if (!node.net2.empty() && node.net2 != node.net1) {
      refs.push_back({node.net2, 2 * i + 1});
    }
  }
  std::sort(refs.begin(), refs.end(), [](const NetRef& a, const NetRef& b) {
    const int order = a.net.compare(b.net);
    return order != 0 ? order < 0 : a.code < b.code;
  });
  netNames_.clear();
  netStart_.clear();
  netMembers_.clear();
  netMembers_.reserve(refs.size());
  nodeNets_.assign(2 * static_cast<size_t>(count), kNoNet);
  for (const NetRef& ref : refs) {
    if (netNames_.empty() || netNames_.back() != ref.net) {
      netNames_.push_back(ref.net);
      netStart_.push_back(static_cast<uint32_t>(netMembers_.size()));
    }
    netMembers_.push_back(ref.code / 2);
    nodeNets_[ref.code] = static_cast<uint32_t>(netNames_.size() - 1);
  }
  netStart_.push_back(static_cast<uint32_t>(netMembers_.size()));
  for (uint32_t i = 0; i < count; ++i) {
    if (!nodes_[i].net2.empty() && nodes_[i].net2 == nodes_[i].net1) {
      nodeNets_[2 * i + 1] = nodeNets_[2 * i];
    }
  }
  refs = {};

  struct NumberRef {
    int64_t number;
    uint32_t node;
  };
  std::vector<NumberRef> numbers;
  for (uint32_t i = 0; i < count; ++i) {
    const kraDB::EMRecord* record = nodes_[i].record;
    if (record == nullptr) {
      continue;
    }
    numbers.push_back({record->term1, i});
    if (record->term2 != record->term1) {
      numbers.push_back({record->term2, i});
    }
  }
  std::sort(numbers.begin(), numbers.end(), [](const NumberRef& a, const NumberRef& b) {
    return a.number != b.number ? a.number < b.number : a.node < b.node;
  });
  numberKeys_.resize(numbers.size());
  numberMembers_.resize(numbers.size());
  for (size_t k = 0; k < numbers.size(); ++k) {
    numberKeys_[k] = numbers[k].number;
    numberMembers_[k] = numbers[k].node;
  }
}

std::span<const uint32_t> kraDBNetwork::netMembers(uint32_t netId) const {
  if (netId >= netNames_.size()) {
    return {};
  }
  return {netMembers_.data() + netStart_[netId], netStart_[netId + 1] - netStart_[netId]};
}

std::span<const uint32_t> kraDBNetwork::nodesOnNet(std::string_view net) const {
  auto it = std::lower_bound(netNames_.begin(), netNames_.end(), net);
  if (it == netNames_.end() || *it != net) {
    return {};
  }
  return netMembers(static_cast<uint32_t>(it - netNames_.begin()));
}

std::span<const uint32_t> kraDBNetwork::nodesUsingNumber(int64_t number) const {
  auto [first, last] = std::equal_range(numberKeys_.begin(), numberKeys_.end(), number);
  return {numberMembers_.data() + (first - numberKeys_.begin()), static_cast<size_t>(last - first)};
}

bool kraDBNetwork::isMatching(uint32_t index, std::span<const uint32_t> setA,
                              std::span<const uint32_t> setB) {
  // The question is symmetric but for the excluded index: look the smaller set up in the
  // larger one.
  if (setA.size() > setB.size()) {
    std::swap(setA, setB);
  }
  for (uint32_t element : setA) {
    if (element != index && std::binary_search(setB.begin(), setB.end(), element)) {
      return true;
    }
  }
  return false;
}

void kraDBNetwork::checkNetMapping() {
  struct Pairing {
    int side;
    bool secondNode;
    bool swapped;
  };
  static constexpr Pairing kPairings[] = {
      {0, false, false}, {0, true, true}, {1, true, false}, {1, false, true}};
  for (uint32_t i = 0; i < nodes_.size(); ++i) {
    kraDBNode& node = nodes_[i];
    if (node.record == nullptr) {
      continue;
    }
    node.swapped = false;
    for (const Pairing& pairing : kPairings) {
      const uint32_t net = 2 * static_cast<size_t>(i) < nodeNets_.size()
                               ? nodeNets_[2 * static_cast<size_t>(i) + pairing.side]
                               : kNoNet;
      const int64_t number = pairing.secondNode ? node.record->term2 : node.record->term1;
      if (net == kNoNet || number < 0) {
        continue;
      }
      if (isMatching(i, netMembers(net), nodesUsingNumber(number))) {
        node.swapped = pairing.swapped;
        break;
      }
    }
  }
}

void kraDBNetwork::evalCurrDir() {
  createNetwork();
  checkNetMapping();
  for (size_t i = 0; i < nodes_.size(); ++i) {
    nodes_[i].evalCurrDir();
  }
}
