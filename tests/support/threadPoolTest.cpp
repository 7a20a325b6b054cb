// The thread pool: every index handled once whatever the pieces, failures passed on, nested
// loops, and the thread count from the environment.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/threadPool.h"

namespace {

TEST(ThreadPool, EveryIndexIsHandledExactlyOnce) {
  struct Case {
    int threads;
    size_t count;
    size_t grain;
  };
  const Case cases[] = {{1, 1000, 7},  {4, 0, 1},      {4, 1, 1},     {4, 7, 3},  {4, 1000, 1},
                        {4, 1000, 64}, {3, 999, 1000}, {8, 5000, 13}, {2, 100, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.threads) + " threads, " + std::to_string(c.count) +
                 " indices in pieces of " + std::to_string(c.grain));
    support::ThreadPool pool(c.threads);
    EXPECT_EQ(pool.threads(), c.threads);
    std::vector<std::atomic<int>> seen(c.count);
    std::atomic<size_t> largest{0};
    pool.parallelFor(c.count, c.grain, [&](size_t begin, size_t end) {
      ASSERT_LT(begin, end);
      size_t size = end - begin;
      size_t known = largest.load();
      while (size > known && !largest.compare_exchange_weak(known, size)) {
      }
      for (size_t i = begin; i < end; ++i) {
        seen[i].fetch_add(1);
      }
    });
    for (size_t i = 0; i < c.count; ++i) {
      ASSERT_EQ(seen[i].load(), 1) << "index " << i;
    }
    EXPECT_LE(largest.load(), std::max<size_t>(c.grain, 1));
  }
}

TEST(ThreadPool, AFailureIsRethrownAndThePoolGoesOn) {
  support::ThreadPool pool(4);
  std::atomic<int> handled{0};
  EXPECT_THROW(pool.parallelFor(100, 1,
                                [&](size_t begin, size_t) {
                                  if (begin == 37) {
                                    throw std::runtime_error("piece 37");
                                  }
                                  handled.fetch_add(1);
                                }),
               std::runtime_error);
  EXPECT_LT(handled.load(), 100);
  std::atomic<int> after{0};
  pool.parallelFor(
      50, 5, [&](size_t begin, size_t end) { after.fetch_add(static_cast<int>(end - begin)); });
  EXPECT_EQ(after.load(), 50);
}

TEST(ThreadPool, ALoopInsideALoopRunsOnItsCaller) {
  support::ThreadPool pool(3);
  std::vector<std::atomic<int>> seen(20 * 30);
  pool.parallelFor(20, 1, [&](size_t outer, size_t) {
    const std::thread::id caller = std::this_thread::get_id();
    pool.parallelFor(30, 4, [&](size_t begin, size_t end) {
      EXPECT_EQ(std::this_thread::get_id(), caller);
      for (size_t i = begin; i < end; ++i) {
        seen[outer * 30 + i].fetch_add(1);
      }
    });
  });
  for (auto& count : seen) {
    ASSERT_EQ(count.load(), 1);
  }
}

TEST(ThreadPool, ThreadCountFromTheEnvironment) {
  const char* saved = std::getenv(support::kThreadsVariable);
  const std::string keep = saved != nullptr ? saved : "";
  struct Case {
    const char* value;
    int expected;  // 0: the processors of the machine
  };
  const Case cases[] = {{"3", 3},  {"1", 1},    {"1000", 256}, {"0", 0},
                        {"-2", 0}, {"four", 0}, {"4x", 0},     {"", 0}};
  unsetenv(support::kThreadsVariable);
  const int machine = support::threadCount();
  EXPECT_GE(machine, 1);
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("KRA2_THREADS=") + c.value);
    setenv(support::kThreadsVariable, c.value, 1);
    EXPECT_EQ(support::threadCount(), c.expected == 0 ? machine : c.expected);
  }
  if (saved != nullptr) {
    setenv(support::kThreadsVariable, keep.c_str(), 1);
  } else {
    unsetenv(support::kThreadsVariable);
  }
}

}  // namespace
