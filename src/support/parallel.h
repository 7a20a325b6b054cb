#pragma once
// Data-parallel loops on OpenMP threads. Work is cut into pieces of consecutive indices and
// the pieces are dealt to the threads by a fixed rule (round robin, static schedule), each
// index handled exactly once, so a loop whose body writes only its own outputs gives the
// same results whatever the number of threads.

#include <cstddef>
#include <functional>

namespace support {

/// Environment variable that sets the number of threads (a positive integer).
inline constexpr const char* kThreadsVariable = "KRA2_THREADS";

/// The number of threads to use: KRA2_THREADS when it holds a positive number (at most
/// 256), else the number of processors this process may run on.
int threadCount();

/// Calls body(begin, end) for the pieces [k * grain, min((k + 1) * grain, count)) of
/// [0, count) and returns when all are done, on threadCount() threads (read once per
/// process). The first exception thrown by a piece is rethrown here once every piece has
/// finished. A loop started from inside a piece runs serially on its caller.
void parallelFor(size_t count, size_t grain, const std::function<void(size_t, size_t)>& body);

}  // namespace support
