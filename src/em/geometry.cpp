#include "em/geometry.h"

#include <istream>
#include <new>

#include "pgnet/network.h"

namespace em {

const Piece* Geometry::find(std::string_view name) const {
  const auto it = pieces_.find(name);
  return it == pieces_.end() ? nullptr : &it->second;
}

void Geometry::add(std::string_view name, std::string_view layer, const Shape& shape) {
  auto [layerIt, isNew] = layerIds_.try_emplace(std::string(layer), 0);
  if (isNew) {
    layerIt->second = static_cast<uint32_t>(layers_.size());
    layers_.emplace_back(layer);
  }
  pieces_.insert_or_assign(std::string(name), Piece{layerIt->second, shape});
}

bool loadGeometry(std::istream& in, const GeometryOptions& options, Geometry& geometry,
                  std::string& error) {
  zeNetwork network(1.0, false);
  network.setLayerStack(options.layerStack);
  network.evalTotalSum = options.totalSum;
  if (!network.readLengthNodes(in)) {
    error = network.errorMessage;
    return false;
  }
  // The length calculation gives a via the layer of its nearer metal; the rules are looked
  // up under the via's own layer, so the layers are taken first.
  std::vector<std::string_view> ownLayers;
  ownLayers.reserve(network.nodes.size());
  for (const kraNode* node : network.nodes) {
    ownLayers.push_back(node->layer);
  }
  try {
    network.calculateLengths();
  } catch (const std::bad_alloc&) {
    error = "Error in calculating length data.\nOut of memory.";
    return false;
  }
  size_t at = 0;
  for (const kraNode* node : network.nodes) {
    geometry.add(node->name, ownLayers[at++], {node->isVia(), node->width, node->totalLength});
  }
  return true;
}

}  // namespace em
