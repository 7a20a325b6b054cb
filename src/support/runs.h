#pragma once
// Sorted lists in which a later entry replaces an earlier one of the same key.

#include <cstddef>
#include <vector>

namespace support {

/// Of each run of neighbours that `same` calls equal, keeps only the last, in place.
template <class T, class Same>
void keepLastOfEachRun(std::vector<T>& items, Same same) {
  size_t kept = 0;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i + 1 < items.size() && same(items[i + 1], items[i])) {
      continue;
    }
    items[kept++] = items[i];
  }
  items.resize(kept);
}

}  // namespace support
