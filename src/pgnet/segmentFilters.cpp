#include "pgnet/segmentFilters.h"

#include <cmath>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "pgnet/network.h"

using pgnet::detail::EdgeFrame;

namespace {

constexpr size_t kNoStrip = static_cast<size_t>(-1);

void clearMarks(const kraSegment* segment) {
  for (kraNode* node : segment->nodes()) {
    node->marked = false;
  }
}

// Walks depth first, in the order of the recursive definition, through `edge` from `fromNode`
// and on through the other net of every node it takes: `take` is offered each node of the
// segment, other than the frame's own, that is not marked at the moment it is looked at, and
// must mark it.
template <class Take>
void walkSegment(const kraSegment* segment, kraEdge* edge, kraNode* fromNode,
                 std::vector<EdgeFrame>& stack, Take take) {
  if (edge == nullptr) {
    return;
  }
  pgnet::detail::walkEdges(edge, fromNode, stack, [&](const EdgeFrame&, kraNode* node) {
    if (node->marked || !segment->contains(node)) {
      return false;
    }
    take(node);
    return true;
  });
}

}  // namespace

// --- straight strips ---

kraStraightSegmentFinder::kraStraightSegmentFinder(const kraSegment* segment, double tolerance,
                                                   kraFilterType type)
    : segment_(segment), tolerance_(tolerance) {
  if (segment_ == nullptr || segment_->size() == 0) {
    return;
  }
  if (type == kraPositionFilter) {
    findStrips(kSameX);
    backupStripsAsSegment();
    findStrips(kSameY);
    backupStripsAsSegment();
  } else if (type == kraWidthFilter) {
    findStrips(kSameWidth);
    backupStripsAsSegment();
  }
}

double kraStraightSegmentFinder::keyOf(const kraNode* node) const {
  switch (mode_) {
    case kSameX:
      return node->x;
    case kSameWidth:
      return node->width;
    case kSameY:
    default:
      return node->y;
  }
}

bool kraStraightSegmentFinder::isOnStraightLine(const kraNode* a, const kraNode* b) const {
  return zeNetwork::compareFloatValue(keyOf(a), keyOf(b), 0.5 * tolerance_);
}

void kraStraightSegmentFinder::findStrips(Mode mode) {
  mode_ = mode;
  clearMarks(segment_);
  strips_.clear();
  stripByKey_.clear();
  identifyStrip(segment_->getAnyNode());
}

void kraStraightSegmentFinder::identifyStrip(kraNode* node) {
  addNodeInStrip(node);
  auto take = [this](kraNode* next) { addNodeInStrip(next); };
  walkSegment(segment_, node->edge1, node, stack_, take);
  walkSegment(segment_, node->edge2, node, stack_, take);
}

void kraStraightSegmentFinder::addNodeInStrip(kraNode* node) {
  if (node->marked) {
    return;
  }
  // The node joins the first strip (lowest index) whose first node matches. First nodes of
  // different strips never match each other, so only the few strips whose first value lies
  // within twice the half tolerance of the node's value need a look; a non-finite value or
  // window falls back to trying every strip in order.
  const double key = keyOf(node);
  const double half = 0.5 * tolerance_;
  const double window = 2.0 * (half > 0.0 ? half : 0.0);
  size_t match = kNoStrip;
  if (std::isfinite(key) && std::isfinite(window)) {
    auto it = stripByKey_.lower_bound(key - window);
    const auto last = stripByKey_.upper_bound(key + window);
    for (; it != last; ++it) {
      if (it->second < match && isOnStraightLine(node, strips_[it->second].front())) {
        match = it->second;
      }
    }
  } else {
    for (size_t i = 0; i < strips_.size(); ++i) {
      if (isOnStraightLine(node, strips_[i].front())) {
        match = i;
        break;
      }
    }
  }
  node->marked = true;
  if (match != kNoStrip) {
    strips_[match].push_back(node);
    return;
  }
  strips_.push_back({node});
  if (!std::isnan(key)) {
    stripByKey_.emplace(key, strips_.size() - 1);
  }
}

void kraStraightSegmentFinder::backupStripsAsSegment() {
  for (std::vector<kraNode*>& strip : strips_) {
    if (strip.size() >= 2) {
      results_.push_back(std::make_unique<kraSegment>(std::move(strip), false));
    }
  }
  strips_.clear();
  stripByKey_.clear();
}

// --- connected parts ---

kraSegmentSeprator::kraSegmentSeprator(const kraSegment* segment) : segment_(segment) {
  if (segment_ == nullptr) {
    return;
  }
  clearMarks(segment_);
  for (kraNode* node : segment_->nodes()) {
    if (!node->marked) {
      identifySegment(node);
      backupStripsAsSegment();
    }
  }
}

void kraSegmentSeprator::identifySegment(kraNode* node) {
  auto take = [this](kraNode* next) {
    component_.push_back(next);
    next->marked = true;
  };
  take(node);
  walkSegment(segment_, node->edge1, node, stack_, take);
  walkSegment(segment_, node->edge2, node, stack_, take);
}

void kraSegmentSeprator::backupStripsAsSegment() {
  if (component_.size() >= 2) {
    results_.push_back(std::make_unique<kraSegment>(std::move(component_), false));
  }
  component_.clear();
}

// --- jogs and branches ---

namespace {

enum CheckState : uint8_t { kUnseen = 0, kInProgress = 1, kPassed = 2, kFailed = 3 };

struct JogFrame {
  kraEdge* edge;
  kraNode* from;
  size_t next;
  size_t inside;
  size_t outside;
  ptrdiff_t slot;
};

}  // namespace

kraJogOrBranchFilter::kraJogOrBranchFilter(const kraSegment* segment) : segment_(segment) {
  if (segment_ == nullptr || segment_->size() == 0) {
    return;
  }
  kraNode* first = segment_->getAnyNode();
  if (!checkBanchOrJog(first->edge1, first)) {
    result_ = false;
  }
  if (!checkBanchOrJog(first->edge2, first)) {
    result_ = false;
  }
}

ptrdiff_t kraJogOrBranchFilter::slotOf(const kraEdge* edge, const kraNode* node) const {
  const ptrdiff_t index = segment_->indexOf(node);
  return index < 0 ? -1 : 2 * index + (edge == node->edge1 ? 0 : 1);
}

bool kraJogOrBranchFilter::checkBanchOrJog(kraEdge* edge, kraNode* fromNode) {
  if (edge == nullptr || fromNode == nullptr || edge->nodes().empty()) {
    return true;
  }
  if (segment_ == nullptr) {
    return true;
  }
  // One frame per pending call of the recursive check. Its result depends on nothing but
  // (net, node), so finished calls are remembered; a call met again while it is still in
  // progress can only come round a cycle, where the recursion would never end, and is taken
  // as passing. Acyclic strips never meet either case and get the recursive results.
  states_.resize(2 * segment_->size(), kUnseen);
  std::vector<JogFrame> stack;
  auto open = [&](kraEdge* net, kraNode* node) {
    const ptrdiff_t slot = slotOf(net, node);
    if (slot >= 0) {
      states_[slot] = kInProgress;
    }
    stack.push_back({net, node, 0, 0, 0, slot});
  };
  open(edge, fromNode);
  bool childResult = false;
  bool childReturned = false;
  for (;;) {
    JogFrame& frame = stack.back();
    bool finished = false;
    bool passed = true;
    // A node inside the segment counts once its far side passed; a failed far side, or
    // nodes both inside and outside, fail the frame.
    auto countInside = [&](bool farSidePassed) {
      if (!farSidePassed || (++frame.inside > 0 && frame.outside > 0)) {
        finished = true;
        passed = false;
      }
    };
    if (childReturned) {
      childReturned = false;
      countInside(childResult);
    }
    bool descended = false;
    const std::span<kraNode* const> list = frame.edge->nodes();
    while (!finished && !descended) {
      if (frame.next == list.size()) {
        finished = true;
        break;
      }
      kraNode* node = list[frame.next++];
      if (node == frame.from || node->layer != frame.from->layer) {
        continue;
      }
      if (segment_->contains(node)) {
        kraEdge* further = node->otherEdge(frame.edge);
        bool nodePassed = true;
        if (further != nullptr && !further->nodes().empty()) {
          const ptrdiff_t slot = slotOf(further, node);
          const uint8_t state = slot >= 0 ? states_[slot] : uint8_t{kUnseen};
          if (state == kUnseen) {
            open(further, node);
            descended = true;
            break;
          }
          nodePassed = state != kFailed;
        }
        countInside(nodePassed);
      } else {
        ++frame.outside;
        if (frame.inside > 0) {
          finished = true;
          passed = false;
        }
      }
    }
    if (descended) {
      continue;
    }
    if (frame.slot >= 0) {
      states_[frame.slot] = passed ? kPassed : kFailed;
    }
    stack.pop_back();
    if (stack.empty()) {
      return passed;
    }
    childResult = passed;
    childReturned = true;
  }
}

// --- network steps ---

void zeNetwork::addSegment(std::unique_ptr<kraSegment> segment) {
  if (segment != nullptr && segment->size() > 0) {
    segments.push_back(std::move(segment));
  }
}

void zeNetwork::findMetalSegments() {
  for (kraNode* node : nodes) {
    if (node->marked || node->isVia()) {
      continue;
    }
    workingSet.clear();
    const bool hasLoop = identifySegmentAndFindLoop(node);
    addSegment(std::make_unique<kraSegment>(workingSet, hasLoop));
  }
}

void zeNetwork::findStraightSegments(const kraSegment* segment, kraFilterType type,
                                     kraSegmentList& out) {
  kraStraightSegmentFinder finder(segment, cadGrid, type);
  for (std::unique_ptr<kraSegment>& strip : finder.results()) {
    out.push_back(std::move(strip));
  }
}

void zeNetwork::filterStraightSegment(kraFilterType type) {
  kraSegmentList strips;
  for (const std::unique_ptr<kraSegment>& segment : segments) {
    findStraightSegments(segment.get(), type, strips);
  }
  kraSegment::clearList(segments);
  segments = std::move(strips);
  separateOutSegments();
}

void zeNetwork::separateOutSegments() {
  kraSegmentList parts;
  for (const std::unique_ptr<kraSegment>& segment : segments) {
    kraSegmentSeprator separator(segment.get());
    for (std::unique_ptr<kraSegment>& part : separator.results()) {
      parts.push_back(std::move(part));
    }
  }
  kraSegment::clearList(segments);
  segments = std::move(parts);
}

void zeNetwork::filterSegmentsWithJogOrBranch() {
  kraSegmentList kept;
  for (std::unique_ptr<kraSegment>& segment : segments) {
    if (kraJogOrBranchFilter(segment.get()).result()) {
      kept.push_back(std::move(segment));
    }
  }
  segments = std::move(kept);
}

void zeNetwork::filterSegmentsByPhysicalProperties() {
  if (debug) {
    *debugOut << "\n\n  Start of filtering:\n\n";
    dump(*debugOut);
  }
  filterStraightSegment(kraPositionFilter);
  if (debug) {
    *debugOut << "\n\n  After position filtering:\n\n";
    dump(*debugOut);
  }
  filterStraightSegment(kraWidthFilter);
  if (debug) {
    *debugOut << "\n\n  After width filtering:\n\n";
    dump(*debugOut);
  }
  filterSegmentsWithJogOrBranch();
  if (debug) {
    *debugOut << "\n\n  After jog filtering:\n\n";
    dump(*debugOut);
  }
}

void zeNetwork::dump(std::ostream& out) const {
  for (size_t i = 0; i < segments.size(); ++i) {
    out << "\n\n\nSegment : " << i << '\n';
    segments[i]->dump(out);
  }
}
