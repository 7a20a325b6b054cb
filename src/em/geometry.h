#pragma once
// The geometry the EM check needs of every piece of the grid, from a length-data file: the
// layer as the file names it (vias keep their own layer), via or metal, the drawn width, and
// the strip length that the length calculation gives (totalLength).

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "em/limits.h"

class zeNetwork;

namespace em {

/// One piece: its layer (an index into Geometry::layers) and its shape.
struct Piece {
  uint32_t layer = 0;
  Shape shape;
};

/// How the length calculation runs: the same settings as calculateLength.
struct GeometryOptions {
  /// Triples of via layer, metal above, metal below (setLayersStack).
  std::vector<std::string> layerStack;
  /// Every metal group takes the sum of its lengths (evalTotalSum).
  bool totalSum = false;
};

class Geometry {
 public:
  Geometry();
  ~Geometry();
  Geometry(Geometry&&) noexcept;
  Geometry& operator=(Geometry&&) noexcept;

  /// The piece of exactly this name, or null.
  const Piece* find(std::string_view name) const;
  const std::string& layerName(uint32_t layer) const { return layers_[layer]; }
  size_t layerCount() const { return layers_.size(); }
  size_t size() const { return pieces_.size(); }

 private:
  friend bool loadGeometry(std::istream& in, const GeometryOptions& options, Geometry& geometry,
                           std::string& error);
  /// The layer's number, given on first use.
  uint32_t layerId(std::string_view layer);

  /// Owns the names that the pieces are found by.
  std::unique_ptr<zeNetwork> network_;
  std::vector<std::string> layers_;
  std::unordered_map<std::string_view, uint32_t> layerIds_;
  std::unordered_map<std::string_view, Piece> pieces_;
};

/// Reads length data (the lengthDataInput format) and runs the length calculation. False,
/// with the reader's message in `error`, at the first line that does not parse. A name given
/// twice keeps its last line, as in the length calculation.
bool loadGeometry(std::istream& in, const GeometryOptions& options, Geometry& geometry,
                  std::string& error);

}  // namespace em
