// The length calculation at scale. A generated length-data file holds a straight strip of
// many pieces, a mesh of crossing stripes joined by vias, a lattice (one big loop group) and a
// comb (a tree with one long tooth). kra2's calculateLength runs on it under /usr/bin/time,
// and every output line is checked against values worked out from the shapes. Then the same
// file goes through the network in this process, phase by phase, to show where the time goes
// and what flushing the output line by line costs.
//
//   kra2_pgnet_length_bench [stripPieces [meshSize]]   (default: 600000 400)

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "childRun.h"
#include "pgnet/network.h"

namespace {

using bench::ChildRun;
using bench::runChild;

std::string number(double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

std::string id(const char* prefix, long a, long b = -1) {
  std::string text = prefix + std::to_string(a);
  if (b >= 0) {
    text += '_' + std::to_string(b);
  }
  return text;
}

// The input file and, for every node name, its expected output line.
struct Grid {
  std::string input;
  std::vector<std::pair<std::string, std::string>> expected;
  long nodes = 0;

  void metal(const std::string& name, const std::string& net1, const std::string& net2,
             double length, double width, const char* layer, double total) {
    input += name + ' ' + net1 + ' ' + net2 + ' ' + number(length) + ' ' + number(width) + ' ' +
             layer + " nil\n";
    expected.emplace_back(name, name + '\t' + number(total) + "\tM\n");
    ++nodes;
  }
};

Grid makeGrid(long stripPieces, long mesh) {
  Grid grid;
  // The strip: one straight M1 run; its longest path is the whole run.
  for (long i = 0; i < stripPieces; ++i) {
    grid.metal(id("s", i), id("t", i), id("t", i + 1), 1.0, 0.1, "M1",
               static_cast<double>(stripPieces));
  }
  // The mesh: M2 rows and M3 columns crossing at vias. Each row or column is a straight group.
  const double rowLength = 2.0 * static_cast<double>(mesh - 1);
  const double columnLength = 3.0 * static_cast<double>(mesh - 1);
  for (long r = 0; r < mesh; ++r) {
    for (long c = 0; c + 1 < mesh; ++c) {
      grid.metal(id("ma", r, c), id("h", r, c), id("h", r, c + 1), 2.0, 0.1, "M2", rowLength);
    }
  }
  for (long r = 0; r + 1 < mesh; ++r) {
    for (long c = 0; c < mesh; ++c) {
      grid.metal(id("mb", r, c), id("u", r, c), id("u", r + 1, c), 3.0, 0.2, "M3", columnLength);
    }
  }
  // A via's first net carries its row (the first piece made on that net is the nearest
  // metal), its second net its column; the column is longer, so the via takes the column's
  // length and layer. M3 is above V23, M2 below; net 1 is the lower net.
  for (long r = 0; r < mesh; ++r) {
    for (long c = 0; c < mesh; ++c) {
      const std::string name = id("v", r, c);
      grid.input += name + ' ' + id("h", r, c) + ' ' + id("u", r, c) + " 0.05 0.1 V23 viaArray\n";
      const std::string row = id("ma", r, c > 0 ? c - 1 : 0);
      const std::string column = id("mb", r > 0 ? r - 1 : 0, c);
      grid.expected.emplace_back(
          name, name + '\t' + number(columnLength) + "\tV\tM3\t" + column + '\t' + row + "\t0\n");
      ++grid.nodes;
    }
  }
  // The lattice: M4 pieces around every cell of a grid; one group with loops, so summed.
  const long cells = std::max(2L, mesh / 3);
  const double latticeSum = 0.5 * 2.0 * static_cast<double>(cells) * static_cast<double>(cells - 1);
  for (long r = 0; r < cells; ++r) {
    for (long c = 0; c < cells; ++c) {
      if (c + 1 < cells) {
        grid.metal(id("qh", r, c), id("g", r, c), id("g", r, c + 1), 0.5, 0.1, "M4", latticeSum);
      }
      if (r + 1 < cells) {
        grid.metal(id("qv", r, c), id("g", r, c), id("g", r + 1, c), 0.5, 0.1, "M4", latticeSum);
      }
    }
  }
  // The comb: a spine of unit pieces with a tooth of 2 at every inner junction, except one
  // long tooth a third of the way along. The longest path runs from the long tooth to the
  // tooth at the far end: long + (spine - 1 - spine / 3) + 2.
  const long spine = std::max(4L, stripPieces / 6);
  const long longAt = spine / 3;
  const double longTooth = 0.6 * static_cast<double>(spine);
  const double combLength = longTooth + static_cast<double>(spine - 1 - longAt) + 2.0;
  for (long i = 0; i < spine; ++i) {
    grid.metal(id("ks", i), id("c", i), id("c", i + 1), 1.0, 0.1, "M5", combLength);
  }
  for (long i = 1; i < spine; ++i) {
    grid.metal(id("kt", i), id("c", i), id("d", i), i == longAt ? longTooth : 2.0, 0.1, "M5",
               combLength);
  }
  std::sort(grid.expected.begin(), grid.expected.end());
  return grid;
}

double since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool benchmark(long stripPieces, long mesh, const std::string& dir) {
  const Grid grid = makeGrid(stripPieces, mesh);
  const std::string input = dir + "/grid.len";
  std::ofstream(input, std::ios::binary) << grid.input;
  std::string expected;
  for (const auto& entry : grid.expected) {
    expected += entry.second;
  }
  std::ofstream(dir + "/cmd") << "setLayersStack V23 M3 M2\nevalCurrentDirection\n"
                              << "lengthDataInput " << input << "\nlengthDataOutput " << dir
                              << "/grid.out\ncalculateLength\n";
  const ChildRun run = runChild({KRA2_PATH, "-cmd", dir + "/cmd", "-log", dir + "/kra2.log"}, dir);
  std::ifstream produced(dir + "/grid.out", std::ios::binary);
  const std::string output((std::istreambuf_iterator<char>(produced)),
                           std::istreambuf_iterator<char>());
  const bool same = run.status == 0 && output == expected;

  std::printf("%ld nodes (strip %ld, mesh %ldx%ld), input %.1f MB\n", grid.nodes, stripPieces, mesh,
              mesh, static_cast<double>(grid.input.size()) / 1e6);
  std::printf("  kra2 calculateLength  %7.2f s  peak %7.1f MB  output %s\n", run.seconds,
              run.peakMB, same ? "as expected" : "WRONG");

  // The same work in this process, phase by phase.
  zeNetwork network(0.001, false);
  network.setLayerStack({"V23", "M3", "M2"});
  network.evalCurrentDirection = true;
  auto start = std::chrono::steady_clock::now();
  std::ifstream in(input, std::ios::binary);
  const bool read = network.readLengthData(in);
  const double readSeconds = since(start);
  start = std::chrono::steady_clock::now();
  {
    std::ofstream out(dir + "/flushed.out", std::ios::binary);
    network.writeLengthData(out);
  }
  const double flushedSeconds = since(start);
  start = std::chrono::steady_clock::now();
  {
    std::ofstream out(dir + "/whole.out", std::ios::binary);
    out.write(output.data(), static_cast<std::streamsize>(output.size()));
  }
  const double wholeSeconds = since(start);
  // The segment steps of the power-grid analysis on the same grid. Length data has no
  // positions (x = y = -1), so every group is one straight strip of its own.
  for (kraNode* node : network.nodes) {
    node->marked = false;
  }
  start = std::chrono::steady_clock::now();
  network.findMetalSegments();
  const size_t groups = network.segments.size();
  network.filterSegmentsByPhysicalProperties();
  const double segmentSeconds = since(start);
  std::printf("  read + lengths        %7.2f s%s\n", readSeconds, read ? "" : "  (read FAILED)");
  std::printf("  write, line flushes   %7.2f s  (%ld lines)\n", flushedSeconds,
              static_cast<long>(grid.expected.size()));
  std::printf("  same bytes at once    %7.2f s\n", wholeSeconds);
  std::printf("  segments + filters    %7.2f s  (%zu groups, %zu strips kept)\n", segmentSeconds,
              groups, network.segments.size());
  return same && read;
}

}  // namespace

int main(int argc, char** argv) {
  const long stripPieces = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 600000;
  const long mesh = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 400;
  if (stripPieces < 1 || mesh < 2) {
    std::fprintf(stderr, "usage: kra2_pgnet_length_bench [stripPieces>=1 [meshSize>=2]]\n");
    return 2;
  }
  std::string pattern = (std::filesystem::temp_directory_path() / "kra2-pgbench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  const bool ok = benchmark(stripPieces, mesh, pattern);
  std::filesystem::remove_all(pattern);
  return ok ? 0 : 1;
}
