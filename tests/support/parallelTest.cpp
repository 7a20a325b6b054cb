// Parallel loops: every index handled once in pieces of at most the grain, failures passed
// on, loops inside loops, and the thread count from the environment.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "support/parallel.h"

namespace {

TEST(ParallelFor, EveryIndexOnceInPiecesOfTheGrainAndLoopsInsideLoops) {
  const size_t cases[][2] = {{0, 1}, {1, 1}, {7, 3}, {1000, 1}, {999, 1000}, {5000, 13}, {100, 0}};
  for (const auto& [count, grain] : cases) {
    SCOPED_TRACE(std::to_string(count) + " indices in pieces of " + std::to_string(grain));
    std::vector<std::atomic<int>> seen(count * 3);
    support::parallelFor(count, grain, [&](size_t begin, size_t end) {
      ASSERT_LT(begin, end);
      ASSERT_LE(end - begin, std::max<size_t>(grain, 1));
      for (size_t i = begin; i < end; ++i) {
        support::parallelFor(3, 1, [&](size_t k, size_t) { seen[i * 3 + k].fetch_add(1); });
      }
    });
    for (size_t i = 0; i < seen.size(); ++i) {
      ASSERT_EQ(seen[i].load(), 1) << "index " << i;
    }
  }
}

TEST(ParallelFor, AFailureIsRethrownAndTheNextLoopRuns) {
  EXPECT_THROW(support::parallelFor(100, 1,
                                    [](size_t begin, size_t) {
                                      if (begin == 37) {
                                        throw std::runtime_error("piece 37");
                                      }
                                    }),
               std::runtime_error);
  std::atomic<int> after{0};
  support::parallelFor(
      50, 5, [&](size_t begin, size_t end) { after.fetch_add(static_cast<int>(end - begin)); });
  EXPECT_EQ(after.load(), 50);
}

TEST(ParallelFor, ThreadCountFromTheEnvironment) {
  const char* saved = std::getenv(support::kThreadsVariable);
  const std::string keep = saved != nullptr ? saved : "";
  unsetenv(support::kThreadsVariable);
  const int machine = support::threadCount();
  EXPECT_GE(machine, 1);
  const std::pair<const char*, int> cases[] = {{"3", 3},  {"1", 1},    {"1000", 256}, {"0", 0},
                                               {"-2", 0}, {"four", 0}, {"4x", 0},     {"", 0}};
  for (const auto& [value, expected] : cases) {
    SCOPED_TRACE(std::string("KRA2_THREADS=") + value);
    setenv(support::kThreadsVariable, value, 1);
    EXPECT_EQ(support::threadCount(), expected == 0 ? machine : expected);
  }
  if (saved != nullptr) {
    setenv(support::kThreadsVariable, keep.c_str(), 1);
  } else {
    unsetenv(support::kThreadsVariable);
  }
}

}  // namespace
