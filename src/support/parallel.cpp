#include "support/parallel.h"

#include <sched.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <thread>

#ifdef _OPENMP
#include <omp.h>
#endif

namespace support {

namespace {

constexpr int kMaxThreads = 256;

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

void parallelFor(size_t count, size_t grain, const std::function<void(size_t, size_t)>& body) {
  grain = std::max<size_t>(grain, 1);
  const long pieces = static_cast<long>((count + grain - 1) / grain);
  std::exception_ptr failure;
#ifdef _OPENMP
  static const int threads = threadCount();
  const bool spread = pieces > 1 && threads > 1 && omp_in_parallel() == 0;
#pragma omp parallel for schedule(static, 1) num_threads(threads) if (spread)
#endif
  for (long k = 0; k < pieces; ++k) {
    const size_t begin = static_cast<size_t>(k) * grain;
    try {
      body(begin, std::min(count, begin + grain));
    } catch (...) {
#ifdef _OPENMP
#pragma omp critical(kra2_parallel_failure)
#endif
      if (!failure) {
        failure = std::current_exception();
      }
    }
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace support
