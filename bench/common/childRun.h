#pragma once
// What the benchmarks that time whole programs share: running a program as a child and
// reading its wall time and peak memory.

#include <string>
#include <vector>

namespace bench {

struct ChildRun {
  double seconds = 0.0;
  double peakMB = 0.0;
  int status = -1;
};

/// Runs a program under /usr/bin/time, which forks it from a small process, so the peak
/// memory is the program's own and not inherited from the benchmark. Standard output goes to
/// `outPath` (discarded when empty); the timing is kept in `dir`.
ChildRun runChild(const std::vector<std::string>& argv, const std::string& dir,
                  const std::string& outPath = "");

/// The shortest text that reads back as `value`, appended to `out`.
void appendShortest(std::string& out, double value);

}  // namespace bench
