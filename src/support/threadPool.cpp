#include "support/threadPool.h"

#include <sched.h>

#include <algorithm>
#include <cstdlib>

namespace support {

namespace {

constexpr int kMaxThreads = 256;

/// The calling thread is running a piece of a loop (nested loops run serially).
thread_local bool insidePiece = false;

}  // namespace

int threadCount() {
  if (const char* value = std::getenv(kThreadsVariable)) {
    char* end = nullptr;
    const long count = std::strtol(value, &end, 10);
    if (end != value && *end == '\0' && count > 0) {
      return static_cast<int>(std::min<long>(count, kMaxThreads));
    }
  }
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof set, &set) == 0) {
    return std::clamp(CPU_COUNT(&set), 1, kMaxThreads);
  }
  return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMaxThreads);
}

ThreadPool::ThreadPool(int threads) {
  const int workers = std::clamp(threads, 1, kMaxThreads) - 1;
  workers_.reserve(static_cast<size_t>(workers));
  for (int i = 0; i < workers; ++i) {
    workers_.emplace_back([this] { workerMain(); });
  }
}

ThreadPool::~ThreadPool() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  for (std::thread& worker : workers_) {
    worker.join();
  }
}

ThreadPool& ThreadPool::shared() {
  static ThreadPool pool(threadCount());
  return pool;
}

void ThreadPool::runPieces(std::unique_lock<std::mutex>& lock) {
  Loop& loop = *loop_;
  while (loop.next < loop.count) {
    const size_t begin = loop.next;
    const size_t end = begin + std::min(loop.grain, loop.count - begin);
    loop.next = end;
    ++loop.pending;
    lock.unlock();
    std::exception_ptr failure;
    insidePiece = true;
    try {
      (*loop.body)(begin, end);
    } catch (...) {
      failure = std::current_exception();
    }
    insidePiece = false;
    lock.lock();
    if (failure && !loop.failure) {
      loop.failure = failure;
      loop.next = loop.count;  // hand out nothing more
    }
    if (--loop.pending == 0 && loop.next >= loop.count) {
      done_.notify_all();
    }
  }
}

void ThreadPool::workerMain() {
  std::unique_lock<std::mutex> lock(mutex_);
  unsigned long seen = generation_;
  for (;;) {
    wake_.wait(lock, [&] { return stopping_ || (loop_ != nullptr && generation_ != seen); });
    if (stopping_) {
      return;
    }
    seen = generation_;
    runPieces(lock);
  }
}

void ThreadPool::parallelFor(size_t count, size_t grain,
                             const std::function<void(size_t, size_t)>& body) {
  if (count == 0) {
    return;
  }
  grain = std::max<size_t>(grain, 1);
  std::unique_lock<std::mutex> lock(mutex_);
  if (workers_.empty() || insidePiece || loop_ != nullptr || count <= grain) {
    lock.unlock();
    for (size_t begin = 0; begin < count; begin += grain) {
      body(begin, begin + std::min(grain, count - begin));
    }
    return;
  }
  Loop loop;
  loop.body = &body;
  loop.count = count;
  loop.grain = grain;
  loop_ = &loop;
  ++generation_;
  wake_.notify_all();
  runPieces(lock);
  done_.wait(lock, [&] { return loop.pending == 0 && loop.next >= loop.count; });
  loop_ = nullptr;
  const std::exception_ptr failure = loop.failure;
  lock.unlock();
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace support
