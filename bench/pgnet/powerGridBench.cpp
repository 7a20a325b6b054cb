// The power-grid analysis at scale, in this process, step by step: a PG data file holding
// one straight strip of many pieces with a square via every `spacing` pieces, and a mesh of
// M1 rows and M2 columns joined by vias at every crossing. The strip's currents are set so
// that every stretch between two neighbouring vias is one power grid, so the number of grids
// on the strip is known; the mesh gets random directions and shows the cost of many short
// strips.
//
//   kra2_pgnet_power_grid_bench [stripPieces [meshSize [spacing]]]   (default: 1000000 300 100)

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "pgnet/network.h"

namespace {

double since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Source {
  std::string text;
  std::vector<std::string> names;
  std::vector<int> directions;
  std::vector<double> currents;

  void line(const std::string& name, const char* layer, const std::string& net1,
            const std::string& net2, double x, double y, const char* via, int direction,
            double current) {
    text += name + ' ' + layer + ' ' + net1 + ' ' + net2 + ' ' + std::to_string(x) + ' ' +
            std::to_string(y) + " 1 1 " + via + '\n';
    names.push_back(name);
    directions.push_back(direction);
    currents.push_back(current);
  }
};

}  // namespace

int main(int argc, char** argv) {
  const long pieces = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000000;
  const long mesh = argc > 2 ? std::strtol(argv[2], nullptr, 10) : 300;
  const long spacing = argc > 3 ? std::strtol(argv[3], nullptr, 10) : 100;
  if (pieces < 1 || mesh < 0 || spacing < 2) {
    std::fprintf(stderr, "usage: %s [stripPieces >= 1 [meshSize >= 0 [spacing >= 2]]]\n", argv[0]);
    return 2;
  }
  Source source;
  // The strip on M1 at y = -1: piece i joins s<i> and s<i+1>; a square via (seen from below,
  // flag 0 gives in/out direction 5) stands on s<k * spacing>. Each stretch starts with a
  // piece flowing with the walk and ends with one flowing against it.
  for (long i = 0; i < pieces; ++i) {
    if (i % spacing == 0) {
      source.line("sv" + std::to_string(i), "V1", "s" + std::to_string(i), "su" + std::to_string(i),
                  static_cast<double>(i), -1, "squareVia", 0, 1.0);
    }
    const bool last = (i + 1) % spacing == 0;
    source.line("sp" + std::to_string(i), "M1", "s" + std::to_string(i),
                "s" + std::to_string(i + 1), i + 0.5, -1, "nil", last ? 0 : 1, last ? 1.0 : 2.0);
  }
  if (pieces % spacing == 0) {
    source.line("sv" + std::to_string(pieces), "V1", "s" + std::to_string(pieces), "su_end",
                static_cast<double>(pieces), -1, "squareVia", 0, 1.0);
  }
  const long grids = pieces / spacing;
  // The mesh: row r on M1 and column c on M2, a plain or square via at each crossing.
  std::mt19937 random(7);
  for (long r = 0; r < mesh; ++r) {
    for (long c = 0; c + 1 < mesh; ++c) {
      const std::string a = "h" + std::to_string(r) + "_" + std::to_string(c);
      const std::string b = "h" + std::to_string(r) + "_" + std::to_string(c + 1);
      source.line("mh" + std::to_string(r) + "_" + std::to_string(c), "M1", a, b, c + 0.5,
                  static_cast<double>(r), "nil", static_cast<int>(random() % 2), 1.0 + c);
      const std::string p = "v" + std::to_string(c) + "_" + std::to_string(r);
      const std::string q = "v" + std::to_string(c) + "_" + std::to_string(r + 1);
      if (r + 1 < mesh) {
        source.line("mv" + std::to_string(c) + "_" + std::to_string(r), "M2", p, q,
                    static_cast<double>(c), r + 0.5, "nil", static_cast<int>(random() % 2),
                    1.0 + r);
      }
    }
    for (long c = 0; c < mesh; ++c) {
      source.line("x" + std::to_string(r) + "_" + std::to_string(c), "V1",
                  "h" + std::to_string(r) + "_" + std::to_string(c),
                  "v" + std::to_string(c) + "_" + std::to_string(r), static_cast<double>(c),
                  static_cast<double>(r), random() % 3 == 0 ? "V" : "squareVia",
                  static_cast<int>(random() % 2), 1.0);
    }
  }

  pgnet::PGSessionData data;
  data.cadGrid = 0.001;
  for (size_t i = 0; i < source.names.size(); ++i) {
    data.instances.push_back({source.names[i], source.directions[i], source.currents[i]});
  }
  std::istringstream in(std::move(source.text));

  auto start = std::chrono::steady_clock::now();
  zeNetwork network(0.001, false);
  network.setLayerStack({"V1", "M2", "M1"});
  if (!network.readPGData(in)) {
    std::fprintf(stderr, "%s\n", network.errorMessage.c_str());
    return 1;
  }
  const double readSeconds = since(start);
  // The steps of processPG one by one, to show where the time goes.
  struct Phase {
    const char* name;
    double seconds;
  };
  std::vector<Phase> phases;
  auto phase = [&](const char* name, auto step) {
    const auto at = std::chrono::steady_clock::now();
    step();
    phases.push_back({name, since(at)});
  };
  network.cadGrid = data.cadGrid;
  phase("copy currents", [&] { network.copyCurrentDirectionData(data.instances); });
  phase("metal segments", [&] { network.findMetalSegments(); });
  phase("position strips", [&] { network.filterStraightSegment(kraPositionFilter); });
  phase("width strips", [&] { network.filterStraightSegment(kraWidthFilter); });
  phase("jog filter", [&] { network.filterSegmentsWithJogOrBranch(); });
  phase("walks and grids", [&] {
    for (const char* layer : {"M1", "M2"}) {
      network.pgProcessMetalSegment(layer);
    }
  });
  start = std::chrono::steady_clock::now();
  std::ostringstream out;
  network.writePGData(out);
  const double writeSeconds = since(start);

  long stripGrids = 0;
  for (const auto& grid : network.powerGrids) {
    stripGrids += grid->nodes.front()->name.starts_with("sp") ? 1 : 0;
  }
  std::printf("%zu nodes (strip of %ld pieces, mesh %ld x %ld)\n", network.createdNodeCount(),
              pieces, mesh, mesh);
  std::printf("  readPGData        %7.2f s\n", readSeconds);
  for (const Phase& p : phases) {
    std::printf("  %-17s %7.2f s\n", p.name, p.seconds);
  }
  std::printf("  (%zu strips kept, %zu power grids)\n", network.segments.size(),
              network.powerGrids.size());
  std::printf("  writePGData       %7.2f s\n", writeSeconds);
  std::printf("  strip grids       %ld of %ld expected\n", stripGrids, grids);
  return stripGrids == grids ? 0 : 1;
}
