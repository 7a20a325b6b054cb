#pragma once
// The database-side network: the resistors named in the network input of the EM command,
// each tied to the EM record that holds its current, and the evaluation of which way that
// current flows between the resistor's two nets.

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "db/emRecordTable.h"
#include "support/chunkedStore.h"

/// One resistor of the network input. Owned by its kraDBNetwork; texts view the network's
/// text store.
class kraDBNode {
 public:
  /// Whether the current flows from net1 to net2: true without a record; otherwise the sign
  /// of the record's average current read through `swapped` (a negative current on a node
  /// whose net1 is the record's second node flows from net1 to net2).
  bool isN1toN2() const;
  /// Sets currDir from isN1toN2 (1 or 0). Nothing without a record. A reversible node of
  /// type -1 keeps its direction and one of type 1 takes the reverse; other types of
  /// reversible nodes are treated like fixed ones.
  void evalCurrDir();

  std::string_view name;
  /// Empty for name-only nodes.
  std::string_view net1;
  std::string_view net2;
  /// -1 for name-only nodes.
  int32_t type = -1;
  /// 0 for name-only nodes.
  int32_t reversible = 0;
  /// 1: current from node 1 to node 2; 0: the reverse; -1: unknown.
  int32_t currDir = -1;
  /// The record of this node's current and its two node numbers; not owned.
  const kraDB::EMRecord* record = nullptr;
  /// Set when net1 corresponds to the record's second node.
  bool swapped = false;
  /// The flag read with the node: its records are found by name prefix.
  bool flagged = false;
};

/// How the EM command's network input names each resistor.
enum class DBNetworkColumns {
  /// "name flag"
  kNamesOnly,
  /// "name flag net1 net2 type reversible"
  kWithNets,
};

/// How many nodes each attachment step of the EM command gave a record.
struct AttachCounts {
  size_t byName = 0;
  size_t byResistorPrefix = 0;
  size_t byPrefix = 0;
  size_t bySubstring = 0;
  size_t byPart = 0;
  size_t without = 0;
};

class kraDBNetwork {
 public:
  static constexpr uint32_t kNoNet = UINT32_MAX;

  kraDBNetwork() = default;
  kraDBNetwork(const kraDBNetwork&) = delete;
  kraDBNetwork& operator=(const kraDBNetwork&) = delete;

  /// Reads white-space separated words until the input ends: per node a name and an integer
  /// flag, with kWithNets also net1, net2, type and reversible (integers). False at the first
  /// word that does not read (a number that is not a whole 32-bit integer, a word longer than
  /// kMaxWordBytes, or the input ending inside a node), with errorMessage naming its line;
  /// the nodes read before it stay.
  bool loadData(std::istream& in, DBNetworkColumns columns);
  /// Appends a node; a non-zero flag marks it flagged and sets hasFlaggedNodes.
  kraDBNode& addNode(std::string_view name, int32_t flag, std::string_view net1 = {},
                     std::string_view net2 = {}, int32_t type = -1, int32_t reversible = 0);

  size_t size() const { return nodes_.size(); }
  kraDBNode& operator[](size_t i) { return nodes_[i]; }
  const kraDBNode& operator[](size_t i) const { return nodes_[i]; }

  /// Node indices in ascending byte order of their names (equal names in list order).
  std::vector<uint32_t> sortedByName() const;

  /// Gives nodes their records, each node at most one, in the EM command's three steps:
  /// 1. unflagged nodes by the name hierPrefix + name, else hierPrefix + name + resPrefix;
  /// 2. flagged nodes by the first record name that starts with hierPrefix + name + ".",
  ///    else the first that contains "." + hierPrefix + name + ".";
  /// 3. only when step 1 left a node without a record: unflagged nodes without one by the
  ///    last record name that has the node's name as one of its dot-separated parts.
  /// "First" and "last" are in ascending name order; a record may serve several nodes.
  /// Nodes that already hold a record are skipped. `order` lists the nodes to consider.
  AttachCounts attachRecords(const kraDB::EMRecordTable& table, std::string_view hierPrefix,
                             std::string_view resPrefix, std::span<const uint32_t> order);

  /// Fills the two maps: every node under each of its non-empty nets, and every node with a
  /// record under each of the record's two node numbers.
  void createNetwork();
  /// Sets `swapped` of every node with a record: net1 matched with the record's first node,
  /// then with its second, then net2 with the second, then with the first; the first pairing
  /// that matches (isMatching over the two maps) decides. Empty nets and negative numbers are
  /// not tried; with no match swapped stays false. Needs createNetwork first.
  void checkNetMapping();
  /// createNetwork, checkNetMapping, then each node's evalCurrDir in list order.
  void evalCurrDir();
  /// True when some element of setA other than `index` is also in setB (both ascending).
  static bool isMatching(uint32_t index, std::span<const uint32_t> setA,
                         std::span<const uint32_t> setB);

  /// Indices of the nodes on a net (ascending); empty for an unknown net.
  std::span<const uint32_t> nodesOnNet(std::string_view net) const;
  /// Indices of the nodes whose record uses a node number (ascending).
  std::span<const uint32_t> nodesUsingNumber(int64_t number) const;

  /// Longest word loadData accepts.
  static constexpr size_t kMaxWordBytes = 1 << 20;

  /// Set when any node was read with a non-zero flag.
  bool hasFlaggedNodes = false;
  /// Why loadData stopped early: "line N: ..." .
  std::string errorMessage;

 private:
  std::span<const uint32_t> netMembers(uint32_t netId) const;

  support::ChunkedStore<kraDBNode> nodes_;
  support::TextStore texts_;
  /// Net map: names in ascending order (the position is the net's id), and the members of
  /// net k at [netStart_[k], netStart_[k + 1]) of netMembers_.
  std::vector<std::string_view> netNames_;
  std::vector<uint32_t> netStart_;
  std::vector<uint32_t> netMembers_;
  /// Net ids of node i's net1 and net2 at 2i and 2i + 1 (kNoNet for an empty net).
  std::vector<uint32_t> nodeNets_;
  /// Number map as parallel arrays ordered by (number, node).
  std::vector<int64_t> numberKeys_;
  std::vector<uint32_t> numberMembers_;
};
