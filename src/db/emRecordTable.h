#pragma once
// The EM records of a database held for matching against the resistors of a network: a
// compact copy of each record, the distinct names in ascending byte order (a later record
// with an equal name replaces the earlier one), and the name lookups the EM command makes.
//
// Record names are hierarchical, dot-separated texts. The lookups are exact names, names
// that start with a text, names that contain ".X." for a text X, and names that have X as one
// of their dot-separated parts; each answers in ascending name order without a scan of every
// record per question.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "db/dbRecords.h"
#include "support/chunkedStore.h"

namespace kraDB {

/// One EM record without the slots the reader leaves unused; the name views the table's
/// text store.
struct EMRecord : EMValues {
  std::string_view name;
};

class EMRecordTable {
 public:
  /// Rank answered when no record matches.
  static constexpr uint32_t kNone = UINT32_MAX;

  EMRecordTable() = default;
  EMRecordTable(const EMRecordTable&) = delete;
  EMRecordTable& operator=(const EMRecordTable&) = delete;

  /// Keeps a copy of a record, in reading order. Throws std::length_error beyond 2^32 - 2
  /// records.
  void add(const kraDBEMNode& record);
  /// Orders the distinct names; of records with equal names only the last added stays.
  /// Call once, after the last add and before any lookup.
  void finish();

  /// Records added, replaced ones included.
  size_t addedCount() const { return records_.size(); }
  /// Distinct names (after finish).
  size_t size() const { return sorted_.size(); }
  /// The record of a rank: ranks number the distinct names in ascending byte order.
  const EMRecord& at(uint32_t rank) const { return *sorted_[rank]; }
  const EMRecord* recordAt(uint32_t rank) const { return rank == kNone ? nullptr : sorted_[rank]; }

  /// The rank of exactly this name, or kNone.
  uint32_t find(std::string_view name) const;
  /// The first rank whose name starts with `prefix`, or kNone.
  uint32_t findFirstWithPrefix(std::string_view prefix) const;
  /// For each text X, the first rank whose name contains "." + X + ".", or kNone.
  std::vector<uint32_t> findFirstContainingDotted(const std::vector<std::string>& texts) const;
  /// For each text, the last rank whose name, split at every ".", has the text as one of its
  /// parts (empty parts included), or kNone.
  std::vector<uint32_t> findLastWithPart(const std::vector<std::string_view>& parts) const;

 private:
  support::ChunkedStore<EMRecord, 4096> records_;
  support::TextStore names_{1 << 20};
  std::vector<const EMRecord*> sorted_;
};

}  // namespace kraDB
