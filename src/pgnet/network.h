#pragma once
// The power-grid network: nodes, nets, segments and power grids, with the metal-length
// calculation, the length/PG data files and the segment filters that work on it.

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "pgnet/edge.h"
#include "pgnet/edgeIndex.h"
#include "pgnet/node.h"
#include "pgnet/nodeIndex.h"
#include "pgnet/nodeSet.h"
#include "pgnet/powerGrid.h"
#include "pgnet/powerGridInput.h"
#include "pgnet/segment.h"
#include "support/chunkedStore.h"

namespace pgnet {

/// The fields of one data-file line, as zeNetwork::createNode takes them.
struct NodeFields {
  std::string_view name;
  std::string_view net1;
  std::string_view net2;
  double length = 0.0;
  double width = 0.0;
  std::string_view layer;
  /// The file's via-type word ("nil" for metal).
  std::string_view viaType;
  double x = -1.0;
  double y = -1.0;
};

namespace detail {
struct EdgeFrame;
struct PathFrame;

/// Hash of texts that also looks up by view, without making a string.
struct TextHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};
}  // namespace detail

}  // namespace pgnet

class kraDBNetwork;

class zeNetwork {
 public:
  /// cadGrid = 1 / the design's DBU; debug when KRA2_INTERNAL_DEBUG is set.
  zeNetwork();
  zeNetwork(double cadGridValue, bool debugOn);
  ~zeNetwork();
  zeNetwork(const zeNetwork&) = delete;
  zeNetwork& operator=(const zeNetwork&) = delete;

  // --- building ---
  /// Makes a node and enters it in the name index and in both of its nets (made on first
  /// use). A name seen before is replaced in the index; the earlier node stays in its nets.
  kraNode* createNode(const pgnet::NodeFields& fields);
  /// The net of that name, made empty on first use.
  kraEdge* getEdge(std::string_view name);
  /// The node of that name in the index, or null.
  kraNode* findNode(std::string_view name) const { return nodes.find(name); }
  /// Number of nodes made, replaced ones included.
  size_t createdNodeCount() const { return store_.size(); }

  // --- layers ---
  /// Reads the list as triples: via layer, metal layer above, metal layer below. Both maps are
  /// emptied first; names after the last complete triple are ignored.
  void setLayerStack(const std::vector<std::string>& list);
  bool isTopLayer(std::string_view viaLayer, std::string_view layer) const;
  bool isBottomLayer(std::string_view viaLayer, std::string_view layer) const;

  // --- lengths ---
  /// a == b, or |a - b| <= tolerance.
  static bool compareFloatValue(double a, double b, double tolerance);
  /// True when no other node of the net has exactly the node's layer; false for null.
  static bool isLeafNode(const kraEdge* edge, const kraNode* node);
  /// Leaf on edge1, else leaf on edge2.
  static bool isLeafNode(const kraNode* node);
  /// The far end of the longest same-layer path that leaves fromNode through `edge`; the
  /// longest branch length (ties keep the earlier branch) is stored into `length` when it
  /// beats its value, then fromNode's own length is added. Null for a null edge or node.
  /// Assumes the same-layer group is free of loops (loops never reach it).
  kraNode* longestPath(kraEdge* edge, kraNode* fromNode, double& length);
  /// Longest leaf-to-leaf path of the working set, stored as every member's totalLength.
  void findMaxLength();
  /// Sum of the working set's lengths, stored as every member's totalLength.
  void addAllLength();
  /// Computes the totalLength of the metal group of a node (nothing for vias).
  void processMetalSegment(kraNode* node);
  /// The totalLength of the narrowest metal node of the net (other than the via), handed out
  /// through `nearest`; -1.0 and `nearest` untouched when there is none.
  double getMetalLength(kraEdge* edge, kraNode* via, kraNode*& nearest) const;
  /// Via length from its nearest metal, its top/bottom metal nodes and its new layer.
  void processVia(kraNode* via);
  void findNet1IsTopNet(kraNode* via);
  /// findNet1IsTopNet for every via in name order.
  void evalTopNet();
  /// The length calculation of a whole file: metal groups, top nets (when evalCurrentDirection
  /// is set), then vias, each in name order.
  void calculateLengths();

  // --- segments ---
  /// Collects the node's same-layer group into workingSet (marking it); true on a loop.
  bool identifySegmentAndFindLoop(kraNode* node);
  /// The same walk through one net from a node.
  bool identifySegmentAndFindLoop(kraEdge* edge, kraNode* fromNode);
  /// One segment per same-layer metal group, in name order of their first node.
  void findMetalSegments();
  /// Appends the segment when it has at least one node.
  void addSegment(std::unique_ptr<kraSegment> segment);
  /// Position strips, width strips, then the jog/branch filter (with debug dumps).
  void filterSegmentsByPhysicalProperties();
  void filterStraightSegment(kraFilterType type);
  /// Appends the straight strips of one segment to `out`.
  void findStraightSegments(const kraSegment* segment, kraFilterType type, kraSegmentList& out);
  /// Splits every segment into its connected parts of at least two nodes.
  void separateOutSegments();
  /// Keeps the segments that neither branch nor jog at their first node's nets.
  void filterSegmentsWithJogOrBranch();
  /// For each segment i: "\n\n\nSegment : i\n" and the segment's dump.
  void dump(std::ostream& out) const;

  // --- current directions and power grids (powerGridAnalysis.cpp) ---
  /// Takes cadGrid and, without a database network, the currents from the session data;
  /// finds and filters the metal segments and looks for power grids on the straight strips of
  /// each layer in ascending name order. False for null session data.
  bool processPG(const pgnet::PGSessionData* session, const kraDBNetwork* dbNetwork);
  /// For each database node in list order that names a node of the network: its direction
  /// and, when it has a record, the absolute value of the record's average current.
  void copyCurrentDirectionData(const kraDBNetwork& dbNetwork);
  /// For each instance in order that names a node: its direction and its current as it is.
  void copyCurrentDirectionData(std::span<const pgnet::InstanceCurrent> instances);
  /// Walk, in/out directions and both strip searches for each segment of the layer.
  void pgProcessMetalSegment(std::string_view layer);
  /// Builds `walk` for a segment: a leaf pair, its opposite, then next pairs to the far end.
  void populateNodeStack(const kraSegment* segment);
  void evalViaCurrentInOutDir();
  void evalMetalCurrentInOutDir();
  /// Exactly one via on the net, a terminal via whose inOutDir is `dir`.
  bool pgCheckTerminalVias(const kraEdge* edge, kraCurrDirType dir) const;
  /// Every via of the net (none included) has inOutDir `dir`.
  bool pgIsValidNonTerminalVias(const kraEdge* edge, kraCurrDirType dir) const;
  /// The nodes of walk entries i1 and i2 have non-zero, mutually opposite inOutDir.
  bool pgIsValidI1I2CurrDir(size_t i1, size_t i2) const;
  /// Finds the runs between terminal vias of direction `dir` (5 or 6) along the walk.
  void pgProcessStrip(kraCurrDirType dir);
  /// Adds the power grid of walk entries i1..i2; false when an end carries no current.
  bool addPowerGrid(size_t i1, size_t i2, kraCurrDirType dir);

  // --- files ---
  /// One node per line, then calculateLengths. False, with errorMessage set, at the first line
  /// that does not parse; nodes of earlier lines stay.
  bool readLengthData(std::istream& in);
  /// The nodes of length data without the length calculation (which renames via layers), for
  /// readers that need the layers as the file gives them.
  bool readLengthNodes(std::istream& in);
  /// One node per line; nothing is computed.
  bool readPGData(std::istream& in);
  /// One line per node in name order, flushed line by line.
  bool writeLengthData(std::ostream& out) const;
  /// One line per power grid, flushed line by line.
  bool writePGData(std::ostream& out) const;

  // --- state (names as the behaviour defines them) ---
  std::string errorMessage;
  pgnet::NodeIndex nodes;
  pgnet::EdgeIndex edges;
  pgnet::NodeSet workingSet;
  std::map<std::string, std::string, std::less<>> upperLayerOf;
  std::map<std::string, std::string, std::less<>> lowerLayerOf;
  kraSegmentList segments;
  std::vector<kraEdgeNodePair> walk;
  std::vector<std::unique_ptr<kraPowerGrid>> powerGrids;
  bool evalCurrentDirection = false;
  bool evalTotalSum = false;
  double cadGrid = 0.0;
  bool debug = false;
  /// Where debug dumps go; standard output unless a caller redirects them.
  std::ostream* debugOut;

 private:
  std::string_view internLayer(std::string_view layer);
  template <size_t kFields, class MakeNode>
  bool readNodeLines(std::istream& in, MakeNode makeNode);

  support::ChunkedStore<kraNode> store_;
  support::TextStore names_;
  std::unordered_set<std::string, pgnet::detail::TextHash, std::equal_to<>> layerNames_;
  std::vector<pgnet::detail::EdgeFrame> edgeFrames_;
  std::vector<pgnet::detail::PathFrame> pathFrames_;
};
