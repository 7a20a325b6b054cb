// The EM check at scale: N instances (default 1,000,000) with their geometry in length data
// and the rules of four metal layers and a via layer. Each repetition times the phases of
// checkEM on data already in memory: reading the length data (with the length calculation),
// matching and checking every instance, and writing the report; the median and the spread
// (fastest, slowest) of the repetitions are printed, wall clock and, for the whole, CPU time.
//
//   kra2_em_check_bench [instances [repetitions]]   (defaults: 1000000, 5)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>
#include <string>
#include <vector>

#include "em/check.h"
#include "em/geometry.h"
#include "em/report.h"
#include "em/rules.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// CPU seconds of this process (the check is single-threaded): less sensitive than the wall
/// clock to other jobs on a shared machine.
double cpuSeconds() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

constexpr const char* kRules = R"(reference_temperature = 105.0
activation_energy = 0.9
current_exponent = 2.0
[layers.M1]
width_bias = -0.01
avg = 1.0
rms = 4.0
peak = 20.0
blech = 0.2
[layers.M2]
avg = 1.5
rms = 5.0
peak = 25.0
blech = 0.3
[layers.M3]
avg = 2.0
rms = 6.0
[layers.M4]
peak = 30.0
[vias.V1]
avg = 0.1
rms = 0.4
peak = 2.0
)";

/// Strips of eight pieces on M1..M4, every tenth piece a V1 via; one name in a thousand is
/// left out of the geometry so that the NO_GEOMETRY path is timed too.
struct Data {
  std::string lengthData;
  std::vector<std::string> names;
  std::vector<em::Subject> subjects;
};

Data makeData(size_t count) {
  Data data;
  data.names.reserve(count);
  uint64_t state = 12345;
  const auto next = [&state] {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<double>(state >> 11) / 9007199254740992.0;
  };
  for (size_t i = 0; i < count; ++i) {
    data.names.push_back("R" + std::to_string(i));
    if (i % 1000 == 999) {
      continue;
    }
    const size_t strip = i / 8;
    const bool via = i % 10 == 0;
    const std::string layer = via ? "V1" : "M" + std::to_string(1 + strip % 4);
    data.lengthData += data.names.back() + " s" + std::to_string(strip) + "_" +
                       std::to_string(i % 8) + " s" + std::to_string(strip) + "_" +
                       std::to_string(i % 8 + 1) + " " + std::to_string(0.5 + next()) + " " +
                       std::to_string(0.1 + next()) + " " + layer + (via ? " V\n" : " nil\n");
  }
  data.subjects.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    const double avg = 1e-4 * next();
    data.subjects.push_back(
        {data.names[i], {avg, avg * (1.0 + next()), avg * (2.0 + 4 * next())}, i % 5000 != 17});
  }
  return data;
}

struct Times {
  std::vector<double> values;
  void print(const char* what) {
    std::sort(values.begin(), values.end());
    std::printf("  %-28s median %8.3f s   spread %8.3f .. %8.3f s\n", what,
                values[values.size() / 2], values.front(), values.back());
  }
};

}  // namespace

int main(int argc, char** argv) {
  const size_t count = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1000000;
  const int repetitions = argc > 2 ? std::atoi(argv[2]) : 5;
  em::Rules rules;
  std::string error;
  if (!em::parseRules(kRules, "bench.toml", rules, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  const Clock::time_point made = Clock::now();
  const Data data = makeData(count);
  std::printf("checkEM on %zu instances (%zu bytes of length data, made in %.2f s), %d runs\n",
              count, data.lengthData.size(), secondsSince(made), repetitions);
  Times load, check, write, total, cpu;
  size_t failures = 0;
  for (int r = 0; r < repetitions; ++r) {
    const Clock::time_point start = Clock::now();
    const double cpuStart = cpuSeconds();
    std::istringstream in(data.lengthData);
    em::Geometry geometry;
    if (!em::loadGeometry(in, {{"V1", "M2", "M1"}, false}, geometry, error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      return 1;
    }
    load.values.push_back(secondsSince(start));
    const Clock::time_point checked = Clock::now();
    const em::Outcome outcome = em::checkAll(data.subjects, geometry, rules, 125.0);
    check.values.push_back(secondsSince(checked));
    const Clock::time_point written = Clock::now();
    std::FILE* out = std::tmpfile();
    em::writeReport(out, {"bench", "tran", 0, 1e-8, "legacy", 125, "emTemperature", "bench.toml"},
                    data.subjects, geometry, outcome);
    std::fclose(out);
    write.values.push_back(secondsSince(written));
    total.values.push_back(secondsSince(start));
    cpu.values.push_back(cpuSeconds() - cpuStart);
    failures = outcome.findings.counts[static_cast<size_t>(em::Verdict::kFail)];
  }
  std::printf("  (%zu FAIL verdicts)\n", failures);
  load.print("length data and lengths");
  check.print("match, check, sort");
  write.print("report");
  total.print("checkEM in all");
  cpu.print("checkEM in all, CPU");
  return 0;
}
