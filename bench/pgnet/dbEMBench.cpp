// readMuroDBEM at scale: N EM records written with `kra2db write` and a network input of N
// resistors, a tenth of them flagged, matched by kra2 under a hierarchy prefix. The blocks of
// ten records cycle through the ways a resistor finds its record: by name, by name and
// resistor prefix, and (for instances placed under another level) by dotted part, their
// flagged instance by prefix or by substring. Every resistor ends up with exactly one record,
// so the listing is known in advance and compared line by line. kra2 runs under
// /usr/bin/time, once with names only and once with nets and current directions.
//
//   kra2_pgnet_dbem_bench [--keep] [resistors ...]   (default: 1000000)
//
// --keep leaves the inputs (em.db, names.txt, nets.txt, cmd) in the folder it names, for
// profiling kra2 on them.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "childRun.h"

namespace {

using bench::appendShortest;
using bench::ChildRun;
using bench::runChild;

void appendG(std::string& out, double value) {
  char text[64];
  std::snprintf(text, sizeof text, "%g", value);
  out += text;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

struct Resistor {
  std::string node;
  int flag = 0;
  std::string record;
  double rms, avg, peak, tpeak, avgPos;
};

/// Resistor k of block b = k / 10; j = k % 10 is the block's flagged instance for j = 0.
Resistor makeResistor(std::mt19937_64& random, long k) {
  const long b = k / 10;
  const long j = k % 10;
  const std::string block = "blk" + std::to_string(b);
  const std::string piece = ".R" + std::to_string(j);
  Resistor r;
  switch (b % 4) {
    case 1:  // records carry the resistor-name suffix ".p"
      r.record = "top." + block + piece + ".p";
      r.node = j == 0 ? block : block + piece;
      break;
    case 2: {  // the instance sits under another level: flagged by substring, pieces by part
      const std::string part = "Rb" + std::to_string(b) + "x" + std::to_string(j);
      r.record = "chip.top." + block + "." + part;
      r.node = j == 0 ? block : part;
      break;
    }
    default:
      r.record = "top." + block + piece;
      r.node = j == 0 ? block : block + piece;
      break;
  }
  r.flag = j == 0 ? 1 : 0;
  std::uniform_real_distribution<double> amps(-0.01, 0.01);
  std::uniform_real_distribution<double> times(0.0, 2e-6);
  r.avg = amps(random);
  r.rms = std::abs(r.avg) * 1.2;
  r.peak = r.avg * 3;
  r.tpeak = times(random);
  r.avgPos = std::max(r.avg, 0.0) + 0.001;
  return r;
}

bool benchmark(long count, const std::string& dir) {
  std::vector<Resistor> resistors;
  resistors.reserve(static_cast<size_t>(count));
  std::mt19937_64 random(20240611);
  for (long k = 0; k < count; ++k) {
    resistors.push_back(makeResistor(random, k));
  }
  // Records and network lines in unrelated orders.
  std::vector<long> recordOrder(static_cast<size_t>(count));
  std::iota(recordOrder.begin(), recordOrder.end(), 0);
  std::vector<long> nodeOrder = recordOrder;
  std::shuffle(recordOrder.begin(), recordOrder.end(), random);
  std::shuffle(nodeOrder.begin(), nodeOrder.end(), random);

  // Resistor k joins nets n<k> and n<k+1> and its record numbers them k and k+1, so the net
  // mapping finds every resistor unswapped and the direction is the sign of its average.
  std::string em;
  std::string names;
  std::string withNets;
  for (long k : recordOrder) {
    const Resistor& r = resistors[static_cast<size_t>(k)];
    em += r.record;
    for (double v : {r.rms, r.avg, r.peak, r.tpeak, r.avgPos}) {
      em += '\t';
      appendShortest(em, v);
    }
    em += '\t' + std::to_string(k) + '\t' + std::to_string(k + 1) + '\n';
  }
  for (long k : nodeOrder) {
    const Resistor& r = resistors[static_cast<size_t>(k)];
    const std::string head = r.node + ' ' + std::to_string(r.flag);
    names += head + '\n';
    withNets += head + " n" + std::to_string(k) + " n" + std::to_string(k + 1) + " 0 0\n";
  }
  std::ofstream(dir + "/em.tsv", std::ios::binary) << em;
  std::ofstream(dir + "/names.txt", std::ios::binary) << names;
  std::ofstream(dir + "/nets.txt", std::ios::binary) << withNets;
  em = names = withNets = std::string();

  // The listing: one line per resistor in name order, from its own record.
  std::vector<std::pair<std::string, size_t>> byName;
  byName.reserve(resistors.size());
  for (size_t k = 0; k < resistors.size(); ++k) {
    byName.emplace_back(resistors[k].node, k);
  }
  std::sort(byName.begin(), byName.end());
  auto listing = [&](bool directions) {
    std::string text;
    for (const auto& [name, k] : byName) {
      const Resistor& r = resistors[k];
      text += name + "  ";
      appendG(text, std::abs(r.peak));
      text += "  ";
      appendG(text, std::abs(r.avg));
      text += "  ";
      appendG(text, r.rms);
      text += "  ";
      appendG(text, r.tpeak);
      text += ' ';
      appendG(text, std::abs(r.avgPos));
      text += ' ';
      appendG(text, std::abs(r.avgPos - r.avg));
      text += directions ? (r.avg < 0 ? " 0\n" : " 1\n") : " -1\n";
    }
    return text;
  };

  const std::string db = dir + "/em.db";
  const ChildRun write = runChild({KRA2DB_PATH, "write", "-q", db, "--em", dir + "/em.tsv"}, dir);
  std::printf("%9ld resistors, %ld flagged; database %.1f MB (kra2db write %.2f s)\n", count,
              (count + 9) / 10, static_cast<double>(std::filesystem::file_size(db)) / 1e6,
              write.seconds);
  bool ok = write.status == 0;
  for (bool directions : {false, true}) {
    const std::string out = dir + "/em.txt";
    std::ofstream(dir + "/cmd") << (directions ? "evalCurrentDirection\n" : "") << "readMuroDBEM "
                                << db << " " << out << " " << dir
                                << (directions ? "/nets.txt" : "/names.txt") << " p top\n";
    const ChildRun run =
        runChild({KRA2_PATH, "-cmd", dir + "/cmd", "-log", dir + "/kra2.log"}, dir);
    const bool same = run.status == 0 && readFile(out) == listing(directions);
    std::printf("  readMuroDBEM %-26s %7.2f s  peak %7.1f MB  listing %s\n",
                directions ? "with nets and directions" : "names only", run.seconds, run.peakMB,
                same ? "as expected" : "DIFFERS");
    ok = ok && same;
  }
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<long> sizes;
  bool keep = false;
  for (int i = 1; i < argc; ++i) {
    if (std::string(argv[i]) == "--keep") {
      keep = true;
    } else {
      sizes.push_back(std::strtol(argv[i], nullptr, 10));
    }
  }
  if (sizes.empty()) {
    sizes = {1000000};
  }
  std::string pattern = (std::filesystem::temp_directory_path() / "kra2-dbembench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  bool ok = true;
  for (long count : sizes) {
    ok = benchmark(count, pattern) && ok;
  }
  if (keep) {
    std::printf("inputs kept in %s\n", pattern.c_str());
  } else {
    std::filesystem::remove_all(pattern);
  }
  return ok ? 0 : 1;
}
