#include "pgnet/nodeIndex.h"

#include <algorithm>

#include "support/runs.h"

namespace pgnet {

kraNode* NodeIndex::find(std::string_view name) const {
  const std::vector<kraNode*>& list = items();
  auto it =
      std::lower_bound(list.begin(), list.end(), name,
                       [](const kraNode* node, std::string_view key) { return node->name < key; });
  return (it != list.end() && (*it)->name == name) ? *it : nullptr;
}

void NodeIndex::normalise() const {
  if (sorted_) {
    return;
  }
  // By name, then creation order; of each run of equal names only the last node stays.
  std::sort(entries_.begin(), entries_.end(), [](const kraNode* a, const kraNode* b) {
    const int order = a->name.compare(b->name);
    return order != 0 ? order < 0 : a->seq < b->seq;
  });
  support::keepLastOfEachRun(entries_,
                             [](const kraNode* a, const kraNode* b) { return a->name == b->name; });
  sorted_ = true;
}

}  // namespace pgnet
