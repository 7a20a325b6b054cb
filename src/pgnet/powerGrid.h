#pragma once
// One run of metal between two terminal vias through which current flows consistently.

#include <vector>

#include "pgnet/node.h"

class kraPowerGrid {
 public:
  /// |(|c1| - |c2|)| divided by the larger of |c1| and |c2|.
  double currentDiff = 0.0;
  /// Distance between the start and the end via.
  double lv2v = 0.0;
  /// The metal nodes of the run and the vias listed with them, in walk order.
  std::vector<kraNode*> nodes;

  /// lv2v from the two end vias: the y distance on a common x, the x distance on a common
  /// y, else the straight distance; unchanged when either via is missing.
  void setLv2v(const kraNode* startVia, const kraNode* endVia);
};
