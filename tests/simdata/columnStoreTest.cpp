// Column access to point-major records: the column store (in memory and in a temporary
// file) and the stream of point chunks, on hand-made records and through the raw backend.

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "simdata/columnStore.h"
#include "simdata/rawBackend.h"
#include "support/testFiles.h"

namespace {

using simdata::raw::ColumnStore;
using simdata::raw::ColumnStoreSettings;
using simdata::raw::RecordLayout;

/// Point-major records of `columns` variables by `points` points; value (c, p) is
/// c + p / 1000, except NaN at (2, 3) and at (c, p) = (5, last). `valueBytes` 16 stores a
/// (real, imaginary) pair per value with the imaginary part -1.
struct Records {
  Records(size_t columns, size_t points, size_t valueBytes) {
    layout.points = points;
    layout.columns = columns;
    layout.valueBytes = valueBytes;
    layout.recordBytes = columns * valueBytes;
    bytes.assign(points * layout.recordBytes, 0);
    for (size_t p = 0; p < points; ++p) {
      for (size_t c = 0; c < columns; ++c) {
        const double value = expected(c, p);
        char* at = bytes.data() + p * layout.recordBytes + c * valueBytes;
        std::memcpy(at, &value, 8);
        if (valueBytes == 16) {
          const double imaginary = -1.0;
          std::memcpy(at + 8, &imaginary, 8);
        }
      }
    }
    layout.base = bytes.data();
  }
  double expected(size_t c, size_t p) const {
    if ((c == 2 && p == 3) || (c == 5 && p + 1 == layout.points)) {
      return std::numeric_limits<double>::quiet_NaN();
    }
    return static_cast<double>(c) + static_cast<double>(p) / 1000.0;
  }
  std::vector<char> bytes;
  RecordLayout layout;
};

bool sameBits(double a, double b) {
  return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

/// Sets the column-store budget variable; unset again when the object dies.
struct ScopedBudget {
  ~ScopedBudget() { unsetenv(simdata::raw::kColumnStoreMemoryVariable); }
  void set(const char* megabytes) {
    setenv(simdata::raw::kColumnStoreMemoryVariable, megabytes, 1);
  }
};

TEST(ColumnStore, TransposesEveryColumnInMemoryAndInAFile) {
  struct Case {
    const char* name;
    size_t columns;
    size_t points;
    size_t valueBytes;
    size_t budget;
    size_t passBytes;
  };
  const Case cases[] = {
      {"in memory", 300, 70, 8, size_t{1} << 30, size_t{1} << 20},
      {"in a file, one pass", 300, 70, 8, 0, size_t{1} << 30},
      {"in a file, a pass per few columns", 300, 70, 8, 0, 3 * 70 * 8},
      {"complex pairs in a file", 9, 40, 16, 0, 1},
      {"complex pairs in memory", 9, 40, 16, size_t{1} << 30, 1},
      {"one point", 600, 1, 8, 0, 100},
  };
  testing_support::ScratchDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Records records(c.columns, c.points, c.valueBytes);
    ColumnStoreSettings settings;
    settings.memoryBudget = c.budget;
    settings.folder = dir.path().string();
    settings.passBytes = c.passBytes;
    settings.releaseRecords = false;  // the records are ordinary memory here
    std::string error;
    const auto store = ColumnStore::build(records.layout, settings, error);
    ASSERT_NE(store, nullptr) << error;
    EXPECT_EQ(store->inMemory(), c.budget > 0);
    EXPECT_EQ(store->columns(), c.columns);
    EXPECT_EQ(store->points(), c.points);
    std::vector<int> wanted;
    for (size_t col = 0; col < c.columns; col += 1 + col % 4) {
      wanted.push_back(static_cast<int>(col));
    }
    std::vector<std::vector<double>> outputs(wanted.size(), std::vector<double>(c.points, -7.0));
    std::vector<double*> pointers;
    for (auto& output : outputs) {
      pointers.push_back(output.data());
    }
    ASSERT_TRUE(store->read(wanted, pointers, error)) << error;
    for (size_t k = 0; k < wanted.size(); ++k) {
      const size_t col = static_cast<size_t>(wanted[k]);
      for (size_t p = 0; p < c.points; ++p) {
        ASSERT_TRUE(sameBits(outputs[k][p], records.expected(col, p))) << col << "," << p;
      }
      EXPECT_EQ(store->holdsNaN(col), col == 5 || (col == 2 && c.points > 3)) << col;
      if (store->inMemory()) {
        const auto view = store->view(col);
        ASSERT_EQ(view.size(), c.points);
        EXPECT_EQ(std::memcmp(view.data(), outputs[k].data(), c.points * 8), 0);
      } else {
        EXPECT_TRUE(store->view(col).empty());
      }
    }
    EXPECT_TRUE(store->view(c.columns).empty());
    EXPECT_TRUE(store->holdsNaN(c.columns));
  }
  // The temporary file is unlinked as soon as it is made: nothing is left in the folder.
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

TEST(ColumnStore, AFolderThatCannotHoldTheFileIsReportedAndTheBudgetIsInMegabytes) {
  const Records records(4, 5, 8);
  ColumnStoreSettings settings;
  settings.memoryBudget = 0;
  settings.folder = "/nonexistent/kra2-folder";
  settings.releaseRecords = false;
  std::string error;
  EXPECT_EQ(ColumnStore::build(records.layout, settings, error), nullptr);
  EXPECT_NE(error.find("/nonexistent/kra2-folder"), std::string::npos) << error;

  ScopedBudget budget;
  budget.set("3");
  EXPECT_EQ(simdata::raw::columnStoreSettings().memoryBudget, size_t{3} << 20);
  budget.set("0");
  EXPECT_EQ(simdata::raw::columnStoreSettings().memoryBudget, 0u);
}

TEST(StreamColumns, ChunksComeInOrderAndHoldTheColumns) {
  struct Case {
    const char* name;
    size_t valueBytes;
    size_t chunkBytes;
    std::vector<int> columns;
  };
  const Case cases[] = {
      {"one chunk", 8, size_t{1} << 30, {0, 5, 2, 299}},
      {"chunks of the smallest size", 8, 1, {7, 3, 3, 0, 2, 5}},
      {"many columns, several chunks", 8, 300 * 8 * 40, {}},
      {"complex pairs", 16, 1, {1, 2, 5, 8}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Records records(c.valueBytes == 16 ? 9 : 300, 100, c.valueBytes);
    std::vector<int> columns = c.columns;
    if (columns.empty()) {
      for (int col = 299; col >= 0; --col) {
        columns.push_back(col);
      }
    }
    size_t next = 0;
    size_t chunks = 0;
    simdata::raw::streamColumns(
        records.layout, columns,
        [&](size_t first, size_t count, std::span<const double* const> values) {
          ASSERT_EQ(first, next);
          ASSERT_GT(count, 0u);
          ASSERT_EQ(values.size(), columns.size());
          for (size_t k = 0; k < columns.size(); ++k) {
            for (size_t p = first; p < first + count; ++p) {
              const double expected = records.expected(static_cast<size_t>(columns[k]), p);
              // NaN is read as 0.0.
              ASSERT_TRUE(sameBits(values[k][p - first], std::isnan(expected) ? 0.0 : expected))
                  << columns[k] << "," << p;
            }
          }
          next = first + count;
          ++chunks;
        },
        false, c.chunkBytes);
    EXPECT_EQ(next, 100u);
    if (c.chunkBytes == 1) {
      EXPECT_GT(chunks, 1u);
    }
  }
  // A column outside the records visits nothing.
  const Records records(4, 5, 8);
  const int outside[] = {1, 4};
  simdata::raw::streamColumns(
      records.layout, outside,
      [&](size_t, size_t, std::span<const double* const>) { ADD_FAILURE() << "visited"; }, false);
}

/// A binary raw file of `signals` node voltages by `points` points: time p * 1e-9, node s
/// at point p s + p / 100 (NaN for node 2 at point 1).
std::string binaryRaw(int signals, int points) {
  std::string text = "Title: test\nDate: today\nPlotname: Transient Analysis\nFlags: real\n";
  text += "No. Variables: " + std::to_string(signals + 1) +
          "\nNo. Points: " + std::to_string(points) + "\nVariables:\n\t0\ttime\ttime\n";
  for (int s = 1; s <= signals; ++s) {
    text += "\t" + std::to_string(s) + "\tv(n" + std::to_string(s) + ")\tvoltage\n";
  }
  text += "Binary:\n";
  for (int p = 0; p < points; ++p) {
    for (int s = 0; s <= signals; ++s) {
      double value = s == 0 ? p * 1e-9 : s + p / 100.0;
      if (s == 2 && p == 1) {
        value = std::numeric_limits<double>::quiet_NaN();
      }
      text.append(reinterpret_cast<const char*>(&value), 8);
    }
  }
  return text;
}

TEST(RawColumnAccess, StreamsStoresAndBatchReadsAgree) {
  testing_support::ScratchDir dir;
  testing_support::writeFile(dir.file("grid.raw"), binaryRaw(40, 30));
  testing_support::writeFile(
      dir.file("text.raw"),
      "Title: t\nDate: d\nPlotname: Transient Analysis\nFlags: real\nNo. Variables: 2\n"
      "No. Points: 2\nVariables:\n\t0\ttime\ttime\n\t1\tv(a)\tvoltage\nValues:\n"
      "0\t0\n\t1\n1\t1e-9\n\t2\n");
  ScopedBudget budget;
  simdata::RawBackend backend;

  auto text = backend.open(dir.file("text.raw"));
  ASSERT_NE(text, nullptr);
  simdata::Dataset* textTran = text->findDataset("tran");
  ASSERT_NE(textTran, nullptr);
  EXPECT_FALSE(textTran->streamsSignals());  // text data is decoded already

  // Reference: a fresh dataset read batch by batch (each read gathers its own columns).
  auto reference = backend.open(dir.file("grid.raw"));
  simdata::Dataset* plain = reference->findDataset("tran");
  const simdata::SignalList* list = plain->signals();
  simdata::SignalArray all(list->count());
  for (int i = 0; i < list->count(); ++i) {
    all.add(list->at(i));
  }
  const auto expected = plain->read(all);
  ASSERT_NE(expected, nullptr);

  for (const char* megabytes : {"1024", "0"}) {
    SCOPED_TRACE(std::string("column store budget ") + megabytes + " MB");
    budget.set(megabytes);
    auto results = backend.open(dir.file("grid.raw"));
    simdata::Dataset* tran = results->findDataset("tran");
    ASSERT_TRUE(tran->streamsSignals());
    // Streamed values, NaN as 0.0.
    simdata::SignalArray some(3);
    some.add(list->at(7));
    some.add(list->at(2));
    some.add(list->at(0));
    std::vector<std::vector<double>> streamed(3);
    ASSERT_TRUE(
        tran->streamSignals(some, [&](size_t, size_t count, std::span<const double* const> values) {
          for (size_t k = 0; k < 3; ++k) {
            streamed[k].insert(streamed[k].end(), values[k], values[k] + count);
          }
        }));
    const int indices[] = {7, 2, 0};
    for (size_t k = 0; k < 3; ++k) {
      const auto wanted = expected->at(indices[k])->yVector()->doubles();
      ASSERT_EQ(streamed[k].size(), wanted.size());
      for (size_t p = 0; p < wanted.size(); ++p) {
        const double want = std::isnan(wanted[p]) ? 0.0 : wanted[p];
        EXPECT_TRUE(sameBits(streamed[k][p], want)) << indices[k] << "," << p;
      }
    }
    // Batch reads after announcing several: served by the column store.
    tran->expectBulkReads(3);
    for (int batch = 0; batch < 3; ++batch) {
      const auto values = tran->read(all);
      ASSERT_NE(values, nullptr);
      ASSERT_EQ(values->count(), expected->count());
      for (int i = 0; i < values->count(); ++i) {
        const auto got = values->at(i)->yVector()->doubles();
        const auto want = expected->at(i)->yVector()->doubles();
        ASSERT_EQ(got.size(), want.size());
        EXPECT_EQ(std::memcmp(got.data(), want.data(), got.size() * 8), 0) << "signal " << i;
        EXPECT_EQ(values->at(i)->yVector()->mayHoldNaN(), std::string(megabytes) == "0" || i == 2)
            << "signal " << i;
      }
    }
  }
}

}  // namespace
