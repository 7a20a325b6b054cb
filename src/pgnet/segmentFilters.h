#pragma once
// The steps that narrow a metal segment down to the straight strips that the power-grid
// rules check: strips of one position or width, their connected parts, and the jog/branch test.

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "pgnet/detail/walkFrames.h"
#include "pgnet/node.h"
#include "pgnet/segment.h"

/// Cuts one segment into strips of nodes on one vertical line and on one horizontal line
/// (position filter) or of one width (width filter). A node joins the first strip, in creation
/// order of the strips, whose first node matches it within half the tolerance; strips of a
/// single node are dropped. Uses the nodes' marks.
class kraStraightSegmentFinder {
 public:
  /// The criterion of one strip pass.
  enum Mode : int { kSameY = 0, kSameX = 1, kSameWidth = 2 };

  kraStraightSegmentFinder(const kraSegment* segment, double tolerance, kraFilterType type);
  kraStraightSegmentFinder(const kraStraightSegmentFinder&) = delete;
  kraStraightSegmentFinder& operator=(const kraStraightSegmentFinder&) = delete;

  /// The strips found, as segments; the caller may move them out.
  kraSegmentList& results() { return results_; }
  /// Same x (mode 1), same width (mode 2) or same y (mode 0) within half the tolerance.
  bool isOnStraightLine(const kraNode* a, const kraNode* b) const;

 private:
  void findStrips(Mode mode);
  void identifyStrip(kraNode* node);
  void addNodeInStrip(kraNode* node);
  void backupStripsAsSegment();
  double keyOf(const kraNode* node) const;

  std::vector<std::vector<kraNode*>> strips_;
  /// First-node value of each strip whose value can match at all, to find the strips a node
  /// may join without trying them all (a mesh cut into strips has thousands).
  std::map<double, size_t> stripByKey_;
  const kraSegment* segment_;
  Mode mode_ = kSameY;
  kraSegmentList results_;
  double tolerance_;
  std::vector<pgnet::detail::EdgeFrame> stack_;
};

/// Splits one segment into its connected parts; parts of a single node are dropped. Uses the
/// nodes' marks. (The class name is spelt so.)
class kraSegmentSeprator {
 public:
  explicit kraSegmentSeprator(const kraSegment* segment);
  kraSegmentSeprator(const kraSegmentSeprator&) = delete;
  kraSegmentSeprator& operator=(const kraSegmentSeprator&) = delete;

  kraSegmentList& results() { return results_; }

 private:
  void identifySegment(kraNode* node);
  void backupStripsAsSegment();

  kraSegmentList results_;
  const kraSegment* segment_;
  std::vector<kraNode*> component_;
  std::vector<pgnet::detail::EdgeFrame> stack_;
};

/// Decides whether a strip is kept: it must not, at any net it reaches from its first node,
/// both continue and branch or jog off on the same layer.
class kraJogOrBranchFilter {
 public:
  explicit kraJogOrBranchFilter(const kraSegment* segment);

  /// True when the segment is kept.
  bool result() const { return result_; }
  /// False when, walking from `fromNode` through `edge` and on through the strip, some net
  /// carries same-layer nodes both inside and outside the strip. (Spelt so.) Nets reached
  /// twice on one path (a strip with a cycle) are taken as passing, so the check ends.
  bool checkBanchOrJog(kraEdge* edge, kraNode* fromNode);

 private:
  ptrdiff_t slotOf(const kraEdge* edge, const kraNode* node) const;

  const kraSegment* segment_;
  bool result_ = true;
  /// Per (segment node, net side): unseen, in progress, passed or failed.
  std::vector<uint8_t> states_;
};
