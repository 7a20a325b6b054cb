#pragma once
// One resistor-like piece of the power grid (a stretch of metal or a via) joining two nets.

#include <cstdint>
#include <iosfwd>
#include <string_view>

class kraEdge;

/// Via kinds of the via-type word of the data files; 0 is metal.
enum kraViaType : uint32_t {
  kraMetal = 0,
  kraV = 1,
  kraSingleSquareVia = 2,
  kraRectangleVia = 3,
  kraFracturedVia = 4,
  kraViaArray = 5,
  kraSquareVia = 6,
};

/// Direction of a node's current. Stored in one byte: print it through an int.
enum kraCurrDirType : uint8_t {
  kraNoDir = 0,
  kraViaN1toN2 = 1,
  kraViaN2toN1 = 2,
  kraMetalN1toN2 = 3,
  kraMetalN2toN1 = 4,
  kraViaInOutFirst = 5,
  kraViaInOutSecond = 6,
};

/// The reverse direction: swaps 1/2, 3/4 and 5/6; anything else gives 0.
kraCurrDirType getOppositeCurrDir(int dir);

/// Straight-strip criterion of the segment filters.
enum kraFilterType : int { kraPositionFilter = 0, kraWidthFilter = 1 };

/// A node of the network. Nodes are made only by zeNetwork::createNode and live as long as
/// their network; names and layers are views into texts the network keeps.
class kraNode {
 public:
  /// The via kind of a file's via-type word; exact, case-sensitive; unknown words are metal.
  static uint32_t getViaType(std::string_view word);

  bool isVia() const { return viaType != kraMetal; }
  /// Rectangle vias, via arrays and square vias; never metal.
  bool isTerminalVia() const;
  /// Maps a source direction flag (1: node 1 to node 2, 0: the reverse) to a via or metal
  /// direction; any other flag leaves currentDir as it is.
  void setCurrentDir(int flag);
  /// The node's other net: edge2 when `edge` is edge1, else edge1.
  kraEdge* otherEdge(const kraEdge* edge) const { return edge1 == edge ? edge2 : edge1; }
  /// "Name:", "X   :" and "Y   :" lines.
  void dump(std::ostream& out) const;

  std::string_view name;
  kraEdge* edge1 = nullptr;
  kraEdge* edge2 = nullptr;
  /// For a via, replaced by the nearer metal's layer once its length is computed.
  std::string_view layer;
  double length = 0.0;
  double width = 0.0;
  /// -1.0 until computed.
  double totalLength = -1.0;
  kraNode* topMetalNode = nullptr;
  kraNode* bottomMetalNode = nullptr;
  double x = -1.0;
  double y = -1.0;
  double current = 0.0;
  /// Creation order within the network; every ordered node set sorts by it.
  uint64_t seq = 0;
  uint32_t viaType = kraMetal;
  /// -1 unknown, 1 when edge1 is the via's upper net, 0 when it is the lower net.
  int32_t net1IsTopNet = -1;
  kraCurrDirType currentDir = kraNoDir;
  kraCurrDirType inOutDir = kraNoDir;
  /// Visit flag of the segment walks.
  bool marked = false;
};
