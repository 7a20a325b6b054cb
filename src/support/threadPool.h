#pragma once
// A small pool of worker threads for data-parallel loops. Work is handed out in pieces of
// consecutive indices; each index is handled exactly once, so a loop whose body writes only
// its own outputs gives the same results whatever the number of threads.

#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace support {

/// Environment variable that sets the number of threads (a positive integer).
inline constexpr const char* kThreadsVariable = "KRA2_THREADS";

/// The number of threads to use: KRA2_THREADS when it holds a positive number (at most
/// 256), else the number of processors this process may run on.
int threadCount();

class ThreadPool {
 public:
  /// A pool of `threads` threads in all, the calling thread included (so `threads - 1`
  /// workers are started); 1 or less runs everything on the caller.
  explicit ThreadPool(int threads);
  ~ThreadPool();
  ThreadPool(const ThreadPool&) = delete;
  ThreadPool& operator=(const ThreadPool&) = delete;

  /// The pool of the process, sized by threadCount() when first used.
  static ThreadPool& shared();

  int threads() const { return static_cast<int>(workers_.size()) + 1; }

  /// Calls body(begin, end) for consecutive pieces of [0, count) of at most `grain` indices
  /// and returns when all are done; the caller works too. The first exception thrown by a
  /// piece is rethrown here once every piece has finished. A call from inside a body (or
  /// while another loop runs) runs serially on the caller.
  void parallelFor(size_t count, size_t grain, const std::function<void(size_t, size_t)>& body);

 private:
  struct Loop {
    const std::function<void(size_t, size_t)>* body = nullptr;
    size_t count = 0;
    size_t grain = 1;
    size_t next = 0;     // first index not handed out yet
    size_t pending = 0;  // pieces handed out and not finished
    std::exception_ptr failure;
  };

  void workerMain();
  /// Takes and runs pieces of the current loop until none is left; called with the lock held.
  void runPieces(std::unique_lock<std::mutex>& lock);

  std::vector<std::thread> workers_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::condition_variable done_;
  Loop* loop_ = nullptr;
  unsigned long generation_ = 0;
  bool stopping_ = false;
};

}  // namespace support
