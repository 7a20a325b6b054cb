// The main flow on a synthetic power grid: a binary raw file of an N x N mesh (one waveform
// per node), its resistors as the instance netlist, then loadNetlist, run and saveResult
// through the session, and the statistics kernel alone. Writes its data into a temporary
// folder.
//
//   kra2_analysis_bench [mesh side [points]]   (defaults: 100, i.e. 19800 resistors, 1000 points)

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "analysis/statistics.h"
#include "app/analyzeNetlist.h"
#include "simdata/resultsReader.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string node(int i, int j) { return "n" + std::to_string(i) + "_" + std::to_string(j); }

double time(int point) { return 1e-11 * point + 1e-14 * (point % 7); }

double sample(int node, int point) {
  return 1.0 - 1e-4 * (node % 97) - 0.01 * std::sin(1e-2 * point * (1 + node % 5));
}

void writeRaw(const std::string& path, int side, int points) {
  const int nodes = side * side;
  std::string text = "Title: bench grid\nDate: today\nPlotname: Transient Analysis\nFlags: real\n";
  text += "No. Variables: " + std::to_string(nodes + 1) + "\n";
  text += "No. Points: " + std::to_string(points) + "\nVariables:\n\t0\ttime\ttime\n";
  for (int k = 0; k < nodes; ++k) {
    text += "\t" + std::to_string(k + 1) + "\tv(" + node(k / side, k % side) + ")\tvoltage\n";
  }
  text += "Binary:\n";
  FILE* file = std::fopen(path.c_str(), "wb");
  std::fwrite(text.data(), 1, text.size(), file);
  std::vector<double> row(nodes + 1);
  for (int p = 0; p < points; ++p) {
    row[0] = time(p);
    for (int k = 0; k < nodes; ++k) {
      row[k + 1] = sample(k, p);
    }
    std::fwrite(row.data(), sizeof(double), row.size(), file);
  }
  std::fclose(file);
}

int writeNetlist(const std::string& path, int side) {
  FILE* file = std::fopen(path.c_str(), "w");
  int count = 0;
  for (int i = 0; i < side; ++i) {
    for (int j = 0; j < side; ++j) {
      if (j + 1 < side) {
        std::fprintf(file, "rh%d_%d %s %s\n", i, j, node(i, j).c_str(), node(i, j + 1).c_str());
        ++count;
      }
      if (i + 1 < side) {
        std::fprintf(file, "rv%d_%d %s %s\n", i, j, node(i, j).c_str(), node(i + 1, j).c_str());
        ++count;
      }
    }
  }
  std::fclose(file);
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  const int side = argc > 1 ? std::atoi(argv[1]) : 100;
  const int points = argc > 2 ? std::atoi(argv[2]) : 1000;
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("kra2-analysis-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  const std::string raw = (dir / "grid.raw").string();
  const std::string net = (dir / "grid.net").string();
  const std::string result = (dir / "result.txt").string();

  Clock::time_point start = Clock::now();
  writeRaw(raw, side, points);
  const int instances = writeNetlist(net, side);
  std::printf("grid %dx%d: %d resistors, %d points, raw file %.1f MB (written in %.2f s)\n", side,
              side, instances, points, std::filesystem::file_size(raw) / 1e6, secondsSince(start));

  simdata::initialise();
  zeAnalyzeNetlist session;
  session.init(nullptr, nullptr, true);
  const ArgList open = {raw};
  const ArgList select = {"tran"};
  const ArgList load = {net};
  const ArgList run = {"0", "1"};
  const ArgList save = {result};
  std::vector<zeInstance> unused;

  start = Clock::now();
  session.processOpenSimDataCmd(&open);
  session.processSelectAnalysisCmd(&select);
  std::printf("open + select: %.3f s\n", secondsSince(start));
  start = Clock::now();
  session.processLoadNetlistCmd(&load);
  std::printf("loadNetlist: %.3f s\n", secondsSince(start));
  start = Clock::now();
  session.processRunCmd(&run, 2);  // prints its progress lines
  const double runSeconds = secondsSince(start);
  start = Clock::now();
  session.processSaveResultsCmd(&save, unused);
  const double saveSeconds = secondsSince(start);
  std::printf("run: %.3f s (%.0f instances/s, %.0f M samples/s)\n", runSeconds,
              instances / runSeconds, 2.0 * instances * points / runSeconds / 1e6);
  std::printf("saveResult: %.3f s (%.1f MB)\n", saveSeconds,
              std::filesystem::file_size(result) / 1e6);

  // The two-waveform kernel alone on one shared axis.
  std::vector<double> x(points), y1(points), y2(points);
  for (int p = 0; p < points; ++p) {
    x[p] = time(p);
    y1[p] = sample(1, p);
    y2[p] = sample(2, p);
  }
  analysis::StatisticsSettings settings;
  settings.stopTime = 1.0;
  settings.ignoreSign = 2;
  const int repeats = 20000;
  double sink = 0.0;
  start = Clock::now();
  for (int r = 0; r < repeats; ++r) {
    voltageData out{};
    analysis::measureTwoWaveforms(settings, {}, analysis::Samples(x), analysis::Samples(x),
                                  analysis::Samples(y1), analysis::Samples(y2), out);
    sink += out.avg;
  }
  const double kernelSeconds = secondsSince(start);
  std::printf("kernel: %.1f ns per step (%d steps x %d, checksum %g)\n",
              kernelSeconds / repeats / (points - 1) * 1e9, points - 1, repeats, sink);
  std::filesystem::remove_all(dir);
  return 0;
}
