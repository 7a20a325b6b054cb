#include "em/geometry.h"

#include <istream>
#include <memory>
#include <new>

#include "pgnet/network.h"

namespace em {

Geometry::Geometry() = default;
Geometry::~Geometry() = default;
Geometry::Geometry(Geometry&&) noexcept = default;
Geometry& Geometry::operator=(Geometry&&) noexcept = default;

const Piece* Geometry::find(std::string_view name) const {
  const auto it = pieces_.find(name);
  return it == pieces_.end() ? nullptr : &it->second;
}

uint32_t Geometry::layerId(std::string_view layer) {
  auto [it, isNew] = layerIds_.try_emplace(layer, 0);
  if (isNew) {
    it->second = static_cast<uint32_t>(layers_.size());
    layers_.emplace_back(layer);
  }
  return it->second;
}

bool loadGeometry(std::istream& in, const GeometryOptions& options, Geometry& geometry,
                  std::string& error) {
  auto network = std::make_unique<zeNetwork>(1.0, false);
  network->setLayerStack(options.layerStack);
  network->evalTotalSum = options.totalSum;
  if (!network->readLengthNodes(in)) {
    error = network->errorMessage;
    return false;
  }
  // The length calculation gives a via the layer of its nearer metal; the rules are looked
  // up under the via's own layer, so the layers are numbered first. Names and layers are
  // views of texts the network keeps.
  Geometry loaded;
  std::vector<uint32_t> ownLayers;
  ownLayers.reserve(network->nodes.size());
  for (const kraNode* node : network->nodes) {
    ownLayers.push_back(loaded.layerId(node->layer));
  }
  try {
    network->calculateLengths();
  } catch (const std::bad_alloc&) {
    error = "Error in calculating length data.\nOut of memory.";
    return false;
  }
  loaded.pieces_.reserve(network->nodes.size());
  size_t at = 0;
  for (const kraNode* node : network->nodes) {
    loaded.pieces_.emplace(node->name,
                           Piece{ownLayers[at++], {node->isVia(), node->width, node->totalLength}});
  }
  loaded.network_ = std::move(network);
  geometry = std::move(loaded);
  return true;
}

}  // namespace em
