#include "bench/scale/scaleData.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <numeric>
#include <vector>

namespace bench {

namespace {

uint64_t mix(uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}

/// Uniform in [0, 1) from a hash.
double unit(uint64_t x) { return static_cast<double>(mix(x) >> 11) * 0x1.0p-53; }

struct FileCloser {
  void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

File create(const std::string& path) {
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) {
    std::perror(path.c_str());
  }
  return file;
}

bool writeText(const std::string& path, const std::string& text) {
  File file = create(path);
  return file && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
}

constexpr int kBases = 16;

bool writeRaw(const ScaleShape& shape, const std::string& path) {
  File file = create(path);
  if (!file) {
    return false;
  }
  std::setvbuf(file.get(), nullptr, _IOFBF, size_t{1} << 22);
  std::string header = "Title: * scale benchmark power grid\nDate: Thu Jan  1 00:00:00  2026\n";
  header += "Plotname: Transient Analysis\nFlags: real\n";
  header += "No. Variables: " + std::to_string(shape.nodes + 1) + "\n";
  header += "No. Points: " + std::to_string(shape.points) + "\n";
  header += "Variables:\n\t0\ttime\ttime\n";
  for (int64_t k = 1; k <= shape.nodes; ++k) {
    header += "\t" + std::to_string(k) + "\tv(" + nodeName(k) + ")\tvoltage\n";
  }
  header += "Binary:\n";
  if (std::fwrite(header.data(), 1, header.size(), file.get()) != header.size()) {
    return false;
  }
  // Each node follows one of a few smooth droop shapes with its own depth, plus noise.
  std::vector<double> depth(static_cast<size_t>(shape.nodes) + 1);
  for (int64_t k = 1; k <= shape.nodes; ++k) {
    depth[static_cast<size_t>(k)] = 0.01 + 0.04 * unit(static_cast<uint64_t>(k) * 31 + 7);
  }
  const double window = timeAt(shape.points - 1) > 0 ? timeAt(shape.points - 1) : 1.0;
  std::vector<double> record(static_cast<size_t>(shape.nodes) + 1);
  double basis[kBases];
  for (int64_t p = 0; p < shape.points; ++p) {
    const double t = timeAt(p);
    for (int j = 0; j < kBases; ++j) {
      const double cycles = 1.5 + 0.75 * j;
      basis[j] = 0.5 - 0.5 * std::cos(2 * M_PI * cycles * t / window + 0.7 * j);
    }
    record[0] = t;
    const uint64_t pointKey = static_cast<uint64_t>(p) * 0x9e3779b97f4a7c15ULL;
    for (int64_t k = 1; k <= shape.nodes; ++k) {
      const uint64_t bits = mix(pointKey ^ static_cast<uint64_t>(k));
      const double noise = (static_cast<double>(bits >> 11) * 0x1.0p-53 - 0.5) * 2e-4;
      record[static_cast<size_t>(k)] =
          1.0 - depth[static_cast<size_t>(k)] * basis[k % kBases] + noise;
    }
    if (std::fwrite(record.data(), sizeof(double), record.size(), file.get()) != record.size()) {
      std::perror(path.c_str());
      return false;
    }
  }
  return std::fflush(file.get()) == 0;
}

/// N resistors: each node to a nearby node, one in five to ground, in shuffled order (the
/// netlist's order has nothing to do with the simulator's signal order).
bool writeNetlist(const ScaleShape& shape, const std::string& path) {
  File file = create(path);
  if (!file) {
    return false;
  }
  std::setvbuf(file.get(), nullptr, _IOFBF, size_t{1} << 22);
  const int64_t n = shape.nodes;
  std::vector<int64_t> order(static_cast<size_t>(n));
  std::iota(order.begin(), order.end(), int64_t{0});
  for (int64_t i = n - 1; i > 0; --i) {
    const int64_t j =
        static_cast<int64_t>(mix(static_cast<uint64_t>(i) ^ 0x5eed) % static_cast<uint64_t>(i + 1));
    std::swap(order[static_cast<size_t>(i)], order[static_cast<size_t>(j)]);
  }
  std::string line;
  for (const int64_t b : order) {
    const uint64_t r = mix(static_cast<uint64_t>(b) ^ 0xabcdef);
    const int64_t node1 = b + 1;
    const int64_t node2 = (b + 1 + static_cast<int64_t>((r >> 8) % 97)) % n + 1;
    line = "R" + std::to_string(b) + " " + nodeName(node1) + " ";
    line += (r % 5 == 0 || node2 == node1) ? std::string("0") : nodeName(node2);
    line += '\n';
    if (std::fwrite(line.data(), 1, line.size(), file.get()) != line.size()) {
      return false;
    }
  }
  return std::fflush(file.get()) == 0;
}

}  // namespace

ScaleFiles::ScaleFiles(const std::string& dir)
    : folder(dir),
      raw(dir + "/grid.raw"),
      netlist(dir + "/grid.net"),
      result(dir + "/result.txt"),
      openCmd(dir + "/open.cmd"),
      loadCmd(dir + "/load.cmd"),
      runCmd(dir + "/run.cmd"),
      saveCmd(dir + "/save.cmd"),
      allCmd(dir + "/all.cmd") {}

int64_t dataBytes(const ScaleShape& shape) { return shape.points * (shape.nodes + 1) * 8; }

std::string nodeName(int64_t k) { return "n" + std::to_string(k); }

double timeAt(int64_t p) {
  return 1e-11 * static_cast<double>(p) + 1e-13 * static_cast<double>(p % 5);
}

bool writeScaleData(const ScaleShape& shape, const ScaleFiles& files) {
  char stop[64];
  std::snprintf(stop, sizeof stop, "%.17g", timeAt(shape.points - 1));
  const std::string open = "openSimData " + files.raw + "\nselectAnalysis tran\n";
  const std::string load = "loadNetlist " + files.netlist + "\n";
  const std::string run = std::string("run 0 ") + stop + "\n";
  const std::string save = "saveResult " + files.result + "\n";
  return writeRaw(shape, files.raw) && writeNetlist(shape, files.netlist) &&
         writeText(files.openCmd, open) && writeText(files.loadCmd, load) &&
         writeText(files.runCmd, run) && writeText(files.saveCmd, save) &&
         writeText(files.allCmd, open + load + run + save + "done\n");
}

}  // namespace bench
