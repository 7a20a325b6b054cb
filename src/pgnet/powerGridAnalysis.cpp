// Current directions on the straight strips of the network and the power grids between their
// terminal vias.
//
// Along the walk of a strip, a via's in/out direction (5 or 6) is the sense of its current
// seen from the strip's side of the via: the same via current reads one way from the metal
// above and the other way from the metal below. A metal node's in/out direction says whether
// its current flows with the walk (3) or against it (4). A power grid is a run of strip
// between two single terminal vias of one in/out direction, with only vias of the other
// direction (or none) on the nets in between, whose two end pieces carry current in opposite
// senses along the walk.

#include <cmath>
#include <ostream>
#include <set>

#include "pgnet/dbNetwork.h"
#include "pgnet/network.h"

namespace {

/// The first via of a net in set order, or null.
kraNode* firstVia(const kraEdge* edge) {
  if (edge == nullptr) {
    return nullptr;
  }
  for (kraNode* node : edge->nodes()) {
    if (node->isVia()) {
      return node;
    }
  }
  return nullptr;
}

void appendVias(const kraEdge* edge, std::vector<kraNode*>& out) {
  if (edge == nullptr) {
    return;
  }
  for (kraNode* node : edge->nodes()) {
    if (node->isVia()) {
      out.push_back(node);
    }
  }
}

}  // namespace

void kraPowerGrid::setLv2v(const kraNode* startVia, const kraNode* endVia) {
  if (startVia == nullptr || endVia == nullptr) {
    return;
  }
  // Exact comparisons: vias on one vertical line are measured along y however close their
  // x would be within the grid tolerance.
  if (startVia->x == endVia->x) {
    lv2v = std::fabs(startVia->y - endVia->y);
  } else if (startVia->y == endVia->y) {
    lv2v = std::fabs(startVia->x - endVia->x);
  } else {
    const double dx = startVia->x - endVia->x;
    const double dy = startVia->y - endVia->y;
    lv2v = std::sqrt(dx * dx + dy * dy);
  }
}

bool zeNetwork::processPG(const pgnet::PGSessionData* session, const kraDBNetwork* dbNetwork) {
  if (session == nullptr) {
    return false;
  }
  cadGrid = session->cadGrid;
  if (dbNetwork != nullptr) {
    copyCurrentDirectionData(*dbNetwork);
  } else {
    copyCurrentDirectionData(session->instances);
  }
  findMetalSegments();
  filterSegmentsByPhysicalProperties();
  std::set<std::string_view> layers;
  for (const std::unique_ptr<kraSegment>& segment : segments) {
    if (!segment->getLayer().empty()) {
      layers.insert(segment->getLayer());
    }
  }
  for (std::string_view layer : layers) {
    pgProcessMetalSegment(layer);
  }
  return true;
}

void zeNetwork::copyCurrentDirectionData(const kraDBNetwork& dbNetwork) {
  for (size_t i = 0; i < dbNetwork.size(); ++i) {
    const kraDBNode& source = dbNetwork[i];
    kraNode* node = findNode(source.name);
    if (node == nullptr) {
      continue;
    }
    node->setCurrentDir(source.currDir);
    if (source.record != nullptr) {
      node->current = std::fabs(source.record->avg);
    }
  }
}

void zeNetwork::copyCurrentDirectionData(std::span<const pgnet::InstanceCurrent> instances) {
  for (const pgnet::InstanceCurrent& instance : instances) {
    kraNode* node = findNode(instance.name);
    if (node == nullptr) {
      continue;
    }
    node->setCurrentDir(instance.direction);
    node->current = instance.current;
  }
}

void zeNetwork::pgProcessMetalSegment(std::string_view layer) {
  for (const std::unique_ptr<kraSegment>& segment : segments) {
    if (segment->getLayer() != layer) {
      continue;
    }
    populateNodeStack(segment.get());
    evalViaCurrentInOutDir();
    evalMetalCurrentInOutDir();
    pgProcessStrip(kraViaInOutFirst);
    pgProcessStrip(kraViaInOutSecond);
  }
}

void zeNetwork::populateNodeStack(const kraSegment* segment) {
  walk.clear();
  if (segment == nullptr || segment->size() == 0) {
    return;
  }
  kraNode* start = segment->getAnyNode();
  const kraEdgeNodePair leaf = segment->getLeafNode({start, start->edge1});
  walk.push_back(leaf);
  walk.push_back(leaf.getOppositePair());
  // A strip that closes on itself would lead the walk round for ever: it ends where it meets
  // a node it has taken already. Open strips never do.
  std::vector<bool> taken(segment->size(), false);
  if (const ptrdiff_t at = segment->indexOf(leaf.node); at >= 0) {
    taken[static_cast<size_t>(at)] = true;
  }
  for (;;) {
    const kraEdgeNodePair next = segment->getNextNode(walk.back());
    if (next.node == nullptr) {
      break;
    }
    const ptrdiff_t at = segment->indexOf(next.node);
    if (at < 0 || taken[static_cast<size_t>(at)]) {
      break;
    }
    taken[static_cast<size_t>(at)] = true;
    walk.push_back(next);
  }
}

void zeNetwork::evalViaCurrentInOutDir() {
  if (debug) {
    *debugOut << "\n\nSegment current dir finding:\n\n";
  }
  for (const kraEdgeNodePair& entry : walk) {
    if (debug) {
      entry.dump(*debugOut);
    }
    if (entry.edge == nullptr) {
      continue;
    }
    const std::string_view layer = entry.node->layer;
    for (kraNode* via : entry.edge->nodes()) {
      if (!via->isVia()) {
        continue;
      }
      // The same via current has one sense seen from the metal above and the other seen
      // from the metal below; from any other layer it has none.
      kraCurrDirType inOut = kraNoDir;
      if (isTopLayer(via->layer, layer)) {
        inOut = via->currentDir == kraViaN1toN2   ? kraViaInOutFirst
                : via->currentDir == kraViaN2toN1 ? kraViaInOutSecond
                                                  : kraNoDir;
      } else if (isBottomLayer(via->layer, layer)) {
        inOut = via->currentDir == kraViaN1toN2   ? kraViaInOutSecond
                : via->currentDir == kraViaN2toN1 ? kraViaInOutFirst
                                                  : kraNoDir;
      }
      via->inOutDir = inOut;
      if (debug) {
        *debugOut << via->name << "  #via : " << via->layer << ":" << static_cast<int>(inOut)
                  << '\n';
      }
    }
  }
}

void zeNetwork::evalMetalCurrentInOutDir() {
  // Entry 0 is the first node seen from outside the strip; from entry 1 on, each entry's net
  // is the one after its node in walk order.
  for (size_t i = 1; i < walk.size(); ++i) {
    kraNode* node = walk[i].node;
    node->inOutDir =
        walk[i].edge == node->edge2 ? node->currentDir : getOppositeCurrDir(node->currentDir);
    if (debug) {
      *debugOut << node->name << " : " << static_cast<int>(node->currentDir) << " : "
                << static_cast<int>(node->inOutDir) << '\n';
    }
  }
}

bool zeNetwork::pgCheckTerminalVias(const kraEdge* edge, kraCurrDirType dir) const {
  if (edge == nullptr) {
    return false;
  }
  const kraNode* only = nullptr;
  for (const kraNode* node : edge->nodes()) {
    if (!node->isVia()) {
      continue;
    }
    if (only != nullptr) {
      return false;
    }
    only = node;
  }
  return only != nullptr && only->isTerminalVia() && only->inOutDir == dir;
}

bool zeNetwork::pgIsValidNonTerminalVias(const kraEdge* edge, kraCurrDirType dir) const {
  if (edge == nullptr) {
    return true;
  }
  for (const kraNode* node : edge->nodes()) {
    if (node->isVia() && node->inOutDir != dir) {
      if (debug) {
        *debugOut << "Invalid Via current direction :" << node->name << " : "
                  << static_cast<int>(node->inOutDir) << '\n';
      }
      return false;
    }
  }
  return true;
}

bool zeNetwork::pgIsValidI1I2CurrDir(size_t i1, size_t i2) const {
  const kraCurrDirType d1 = walk[i1].node->inOutDir;
  const kraCurrDirType d2 = walk[i2].node->inOutDir;
  if (d1 == kraNoDir || d2 == kraNoDir) {
    return false;
  }
  return d1 == getOppositeCurrDir(d2);
}

void zeNetwork::pgProcessStrip(kraCurrDirType dir) {
  const kraCurrDirType opposite = getOppositeCurrDir(dir);
  if (debug) {
    *debugOut << "\n\n processing for current dir : " << static_cast<int>(dir) << "\n\n\n";
  }
  const size_t n = walk.size();
  if (n < 2) {
    return;
  }
  // A run ends at the first terminal via of the direction after its start, so the next start
  // lies beyond that end: the search is one pass over the walk.
  for (size_t i = 1; i < n; ++i) {
    if (!pgCheckTerminalVias(walk[i - 1].edge, dir)) {
      continue;
    }
    if (debug) {
      *debugOut << "Found start terminal via " << i << " : " << walk[i].node->name << '\n';
    }
    size_t end = n;
    for (size_t k = i; k < n; ++k) {
      if (pgCheckTerminalVias(walk[k].edge, dir)) {
        end = k;
        break;
      }
      if (!pgIsValidNonTerminalVias(walk[k].edge, opposite)) {
        break;
      }
    }
    if (end == n) {
      continue;
    }
    if (debug) {
      *debugOut << "Found end terminal via " << end << " : " << walk[end].node->name << '\n';
    }
    if (pgIsValidI1I2CurrDir(i, end)) {
      if (debug) {
        *debugOut << "Current direction matched";
      }
      addPowerGrid(i, end, dir);
    }
  }
}

bool zeNetwork::addPowerGrid(size_t i1, size_t i2, kraCurrDirType dir) {
  const double c1 = walk[i1].node->current;
  const double c2 = walk[i2].node->current;
  if (c1 == 0.0 || c2 == 0.0) {
    return false;
  }
  auto grid = std::make_unique<kraPowerGrid>();
  const double a1 = std::fabs(c1);
  const double a2 = std::fabs(c2);
  grid->currentDiff = std::fabs(a1 - a2) / (a1 > a2 ? a1 : a2);
  grid->lv2v = 0.0;
  // Direction 6 lists the two terminal vias after the first and the last metal node;
  // direction 5 lists the vias of every net inside the run after the node before it.
  const kraNode* startVia = nullptr;
  const kraNode* endVia = nullptr;
  for (size_t k = i1; k <= i2; ++k) {
    grid->nodes.push_back(walk[k].node);
    if (k == i1) {
      const kraEdge* before = i1 > 0 ? walk[i1 - 1].edge : nullptr;
      startVia = firstVia(before);
      if (dir == kraViaInOutSecond) {
        appendVias(before, grid->nodes);
      }
    }
    if (k == i2) {
      endVia = firstVia(walk[k].edge);
      if (dir == kraViaInOutSecond) {
        appendVias(walk[k].edge, grid->nodes);
      }
    } else if (dir == kraViaInOutFirst) {
      appendVias(walk[k].edge, grid->nodes);
    }
  }
  grid->setLv2v(startVia, endVia);
  powerGrids.push_back(std::move(grid));
  return true;
}
