#include "db/emRecordTable.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "support/runs.h"

namespace kraDB {

namespace {

bool byName(const EMRecord* a, const EMRecord* b) { return a->name < b->name; }

/// Minimum of any range of a fixed list of values: the minimum of each block of 64 values,
/// and a sparse table over the block minimums. A range costs at most two partial blocks and
/// one table look-up.
class RangeMin {
 public:
  explicit RangeMin(std::vector<uint32_t> values) : values_(std::move(values)) {
    const size_t blocks = (values_.size() + kBlock - 1) / kBlock;
    if (blocks == 0) {
      return;
    }
    levels_.emplace_back(blocks);
    for (size_t b = 0; b < blocks; ++b) {
      const size_t end = std::min(values_.size(), (b + 1) * kBlock);
      levels_[0][b] = *std::min_element(values_.begin() + b * kBlock, values_.begin() + end);
    }
    for (size_t width = 2; width <= blocks; width *= 2) {
      const std::vector<uint32_t>& below = levels_.back();
      std::vector<uint32_t> level(blocks - width + 1);
      for (size_t b = 0; b < level.size(); ++b) {
        level[b] = std::min(below[b], below[b + width / 2]);
      }
      levels_.push_back(std::move(level));
    }
  }

  /// Minimum of the values at [lo, hi); hi must be greater than lo.
  uint32_t query(size_t lo, size_t hi) const {
    const size_t firstBlock = lo / kBlock;
    const size_t lastBlock = (hi - 1) / kBlock;
    if (firstBlock == lastBlock) {
      return *std::min_element(values_.begin() + lo, values_.begin() + hi);
    }
    uint32_t best = std::min(
        *std::min_element(values_.begin() + lo, values_.begin() + (firstBlock + 1) * kBlock),
        *std::min_element(values_.begin() + lastBlock * kBlock, values_.begin() + hi));
    if (firstBlock + 1 < lastBlock) {
      const size_t from = firstBlock + 1;
      const size_t count = lastBlock - from;
      size_t level = 0;
      while ((size_t{2} << level) <= count) {
        ++level;
      }
      const std::vector<uint32_t>& table = levels_[level];
      best = std::min({best, table[from], table[lastBlock - (size_t{1} << level)]});
    }
    return best;
  }

 private:
  static constexpr size_t kBlock = 64;
  std::vector<uint32_t> values_;
  std::vector<std::vector<uint32_t>> levels_;
};

}  // namespace

void EMRecordTable::add(const kraDBEMNode& record) {
  if (records_.size() >= kNone - 1) {
    throw std::length_error("too many EM records");
  }
  EMRecord& kept = *records_.add();
  static_cast<EMValues&>(kept) = record;
  kept.name = names_.keep(record.name);
}

void EMRecordTable::finish() {
  sorted_.clear();
  sorted_.reserve(records_.size());
  for (size_t i = 0; i < records_.size(); ++i) {
    sorted_.push_back(&records_[i]);
  }
  // Equal names stay in reading order, so the last of each run is the one that stays.
  std::stable_sort(sorted_.begin(), sorted_.end(), byName);
  support::keepLastOfEachRun(
      sorted_, [](const EMRecord* a, const EMRecord* b) { return a->name == b->name; });
  sorted_.shrink_to_fit();
}

uint32_t EMRecordTable::find(std::string_view name) const {
  auto it =
      std::lower_bound(sorted_.begin(), sorted_.end(), name,
                       [](const EMRecord* r, std::string_view text) { return r->name < text; });
  if (it == sorted_.end() || (*it)->name != name) {
    return kNone;
  }
  return static_cast<uint32_t>(it - sorted_.begin());
}

uint32_t EMRecordTable::findFirstWithPrefix(std::string_view prefix) const {
  // Every name that starts with the prefix sorts at or after it, and the smallest of them
  // comes first.
  auto it =
      std::lower_bound(sorted_.begin(), sorted_.end(), prefix,
                       [](const EMRecord* r, std::string_view text) { return r->name < text; });
  if (it == sorted_.end() || !(*it)->name.starts_with(prefix)) {
    return kNone;
  }
  return static_cast<uint32_t>(it - sorted_.begin());
}

std::vector<uint32_t> EMRecordTable::findFirstContainingDotted(
    const std::vector<std::string>& texts) const {
  std::vector<uint32_t> found(texts.size(), kNone);
  if (texts.empty() || sorted_.empty()) {
    return found;
  }
  // A name contains ".X." exactly when one of its suffixes that start at a dot begins with
  // ".X.". Such a suffix has the first part of X right after its dot, followed by a dot, so
  // only suffixes whose next part is the first part of some X are indexed.
  std::unordered_set<std::string_view> firstParts;
  for (const std::string& text : texts) {
    firstParts.insert(std::string_view(text).substr(0, text.find('.')));
  }
  struct Suffix {
    uint32_t rank;
    size_t offset;
  };
  std::vector<Suffix> suffixes;
  for (uint32_t rank = 0; rank < sorted_.size(); ++rank) {
    const std::string_view name = sorted_[rank]->name;
    for (size_t dot = name.find('.'); dot != std::string_view::npos;) {
      const size_t next = name.find('.', dot + 1);
      if (next == std::string_view::npos) {
        break;
      }
      if (firstParts.count(name.substr(dot + 1, next - dot - 1)) != 0) {
        suffixes.push_back({rank, dot});
      }
      dot = next;
    }
  }
  auto textOf = [this](const Suffix& s) { return sorted_[s.rank]->name.substr(s.offset); };
  std::sort(suffixes.begin(), suffixes.end(), [&](const Suffix& a, const Suffix& b) {
    const int order = textOf(a).compare(textOf(b));
    return order != 0 ? order < 0 : a.rank < b.rank;
  });
  std::vector<uint32_t> ranks(suffixes.size());
  for (size_t i = 0; i < suffixes.size(); ++i) {
    ranks[i] = suffixes[i].rank;
  }
  const RangeMin lowest(std::move(ranks));
  std::string pattern;
  for (size_t t = 0; t < texts.size(); ++t) {
    pattern.assign(".").append(texts[t]).append(".");
    // The suffixes that begin with the pattern form one run, starting where it would sort.
    auto first = std::lower_bound(
        suffixes.begin(), suffixes.end(), pattern,
        [&](const Suffix& s, const std::string& p) { return textOf(s).compare(p) < 0; });
    auto last = std::partition_point(
        first, suffixes.end(), [&](const Suffix& s) { return textOf(s).starts_with(pattern); });
    if (first != last) {
      found[t] = lowest.query(static_cast<size_t>(first - suffixes.begin()),
                              static_cast<size_t>(last - suffixes.begin()));
    }
  }
  return found;
}

std::vector<uint32_t> EMRecordTable::findLastWithPart(
    const std::vector<std::string_view>& parts) const {
  std::vector<uint32_t> found(parts.size(), kNone);
  if (parts.empty()) {
    return found;
  }
  std::unordered_map<std::string_view, uint32_t> last;
  last.reserve(parts.size());
  // Most parts of most names have a length no question has: they need no hash.
  constexpr size_t kLengths = 256;
  std::vector<bool> asked(kLengths + 1, false);
  for (std::string_view part : parts) {
    last.emplace(part, kNone);
    asked[std::min(part.size(), kLengths)] = true;
  }
  for (uint32_t rank = 0; rank < sorted_.size(); ++rank) {
    const std::string_view name = sorted_[rank]->name;
    size_t start = 0;
    for (;;) {
      const size_t dot = name.find('.', start);
      const std::string_view part =
          name.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
      if (asked[std::min(part.size(), kLengths)]) {
        auto it = last.find(part);
        if (it != last.end()) {
          it->second = rank;
        }
      }
      if (dot == std::string_view::npos) {
        break;
      }
      start = dot + 1;
    }
  }
  for (size_t i = 0; i < parts.size(); ++i) {
    found[i] = last.find(parts[i])->second;
  }
  return found;
}

}  // namespace kraDB
