// Opening and running on the results of different writers, at the same shape: N node
// voltages by T time points, written as
//   ngspice   binary raw, float64 values stored point by point;
//   fast      binary raw of the writer with UTF-16 headers, float32 values stored variable by
//             variable ("fastaccess"), a float64 time axis;
//   psf       a PSF ASCII transient ("%.15e" values), one file of a results directory.
// Each case runs in its own process (a fork), driving the session's handlers as the command
// file would: openSimData, selectAnalysis, loadNetlist of N-1 resistors chaining the nodes, and
// run over the whole window. Wall time of each phase and the peak resident memory are printed.
// Files are written first (so they are in the page cache: warm-cache figures) and removed at the
// end unless --keep.
//
//   kra2_dialect_bench [--cases ngspice,fast,psf] [--signals N] [--points T]
//                      [--psf-signals N] [--psf-points T] [--dir DIR] [--keep]
//
// Defaults: 50000 x 5000 for the binary cases (2 GB of float64, 1 GB of float32) and
// 2000 x 1650 for PSF (about 100 MB of text).

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "app/analyzeNetlist.h"
#include "simdata/resultsReader.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double timeAt(int p) { return 1e-12 * p; }

float sampleAt(int signal, int point) {
  return static_cast<float>(1.0 - 1e-6 * signal - 1e-4 * ((point * 7 + signal) % 100) / 100.0);
}

struct Shape {
  int signals = 0;
  int points = 0;
};

std::string utf16(const std::string& text) {
  std::string out;
  out.reserve(text.size() * 2);
  for (char c : text) {
    out += c;
    out += '\0';
  }
  return out;
}

std::string rawHeader(const Shape& shape, const char* flags, const char* command, bool upper) {
  std::string text = "Title: bench\nDate: today\nPlotname: Transient Analysis\nFlags: ";
  text += flags;
  text += "\nNo. Variables: " + std::to_string(shape.signals + 1) +
          "\nNo. Points: " + std::to_string(shape.points) + "\n";
  if (command != nullptr) {
    text += std::string("Offset:   0.0\nCommand: ") + command + "\n";
  }
  text += "Variables:\n\t0\ttime\ttime\n";
  for (int s = 1; s <= shape.signals; ++s) {
    text +=
        "\t" + std::to_string(s) + (upper ? "\tV(n" : "\tv(n") + std::to_string(s) + ")\tvoltage\n";
  }
  return text + "Binary:\n";
}

bool writeNgspice(const std::string& path, const Shape& shape) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return false;
  }
  const std::string header = rawHeader(shape, "real", nullptr, false);
  std::fwrite(header.data(), 1, header.size(), file);
  std::vector<double> record(static_cast<size_t>(shape.signals) + 1);
  for (int p = 0; p < shape.points; ++p) {
    record[0] = timeAt(p);
    for (int s = 1; s <= shape.signals; ++s) {
      record[static_cast<size_t>(s)] = sampleAt(s, p);
    }
    std::fwrite(record.data(), sizeof(double), record.size(), file);
  }
  return std::fclose(file) == 0;
}

bool writeFastAccess(const std::string& path, const Shape& shape) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return false;
  }
  const std::string header = utf16(
      rawHeader(shape, "real forward fastaccess", "Linear Technology Corporation LTspice", true));
  std::fwrite(header.data(), 1, header.size(), file);
  std::vector<double> time(static_cast<size_t>(shape.points));
  for (int p = 0; p < shape.points; ++p) {
    time[static_cast<size_t>(p)] = timeAt(p);
  }
  std::fwrite(time.data(), sizeof(double), time.size(), file);
  std::vector<float> column(static_cast<size_t>(shape.points));
  for (int s = 1; s <= shape.signals; ++s) {
    for (int p = 0; p < shape.points; ++p) {
      column[static_cast<size_t>(p)] = sampleAt(s, p);
    }
    std::fwrite(column.data(), sizeof(float), column.size(), file);
  }
  return std::fclose(file) == 0;
}

bool writePsf(const std::string& path, const Shape& shape) {
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return false;
  }
  std::fputs(
      "HEADER\n\"PSFversion\" \"1.00\"\n\"analysis type\" \"tran\"\n\"analysis name\" \"tran\"\n"
      "TYPE\n\"sweep\" FLOAT DOUBLE PROP(\n\"key\" \"sweep\"\n)\n\"V\" FLOAT DOUBLE PROP(\n"
      "\"units\" \"V\"\n\"key\" \"node\"\n\"tolerance\" 1.00000e-06\n)\nSWEEP\n\"time\" \"sweep\" "
      "PROP(\n\"sweep_direction\" 0\n\"units\" \"s\"\n\"plot\" 0\n\"grid\" 1\n)\nTRACE\n",
      file);
  for (int s = 1; s <= shape.signals; ++s) {
    std::fprintf(file, "\"n%d\" \"V\"\n", s);
  }
  std::fputs("VALUE\n", file);
  for (int p = 0; p < shape.points; ++p) {
    std::fprintf(file, "\"time\" %.15e\n", timeAt(p));
    for (int s = 1; s <= shape.signals; ++s) {
      std::fprintf(file, "\"n%d\" %.15e\n", s, static_cast<double>(sampleAt(s, p)));
    }
  }
  std::fputs("END\n", file);
  return std::fclose(file) == 0;
}

bool writeNetlist(const std::string& path, const Shape& shape) {
  FILE* file = std::fopen(path.c_str(), "w");
  if (file == nullptr) {
    return false;
  }
  for (int s = 1; s < shape.signals; ++s) {
    std::fprintf(file, "R%d n%d n%d\n", s, s, s + 1);
  }
  return std::fclose(file) == 0;
}

/// The child: one case through the session's handlers; prints one line of figures.
int runCase(const char* label, const std::string& results, double megabytes,
            const std::string& dataset, const std::string& netlist, const Shape& shape) {
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    return 1;
  }
  simdata::initialise();
  zeAnalyzeNetlist session;
  if (session.init(nullptr, nullptr, true) != 0) {
    return 1;
  }
  const ArgList open{results};
  const ArgList select{dataset};
  const ArgList load{netlist};
  char stop[32];
  std::snprintf(stop, sizeof stop, "%.6e", timeAt(shape.points - 1));
  const ArgList window{"0", stop};
  Clock::time_point start = Clock::now();
  const bool opened = session.processOpenSimDataCmd(&open) == 0;
  const double openSeconds = secondsSince(start);
  start = Clock::now();
  const bool selected = opened && session.processSelectAnalysisCmd(&select) == 0;
  const bool loaded = selected && session.processLoadNetlistCmd(&load) == 0;
  const double loadSeconds = secondsSince(start);
  start = Clock::now();
  const bool ran = loaded && session.processRunCmd(&window, 0) == 0;
  const double runSeconds = secondsSince(start);
  int failed = 0;
  for (const zeInstance& instance : session.instances.instances) {
    failed += instance.valid ? 0 : 1;
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::fprintf(stderr,
               "%-8s %10.1f MB  open %7.2f s  select+load %6.2f s  run %7.2f s  "
               "peak RSS %7.0f MB  instances %d failed %d%s\n",
               label, megabytes, openSeconds, loadSeconds, runSeconds,
               static_cast<double>(usage.ru_maxrss) / 1024.0,
               static_cast<int>(session.instances.instances.size()), failed,
               ran ? "" : "  (FAILED)");
  return ran ? 0 : 1;
}

int inChild(const char* label, const std::string& results, double megabytes,
            const std::string& dataset, const std::string& netlist, const Shape& shape) {
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    std::_Exit(runCase(label, results, megabytes, dataset, netlist, shape));
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Shape binary{50000, 5000};
  Shape text{2000, 1650};
  std::string cases = "ngspice,fast,psf";
  std::string dir = (fs::temp_directory_path() / "kra2-dialect-bench").string();
  bool keep = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const char* next = i + 1 < argc ? argv[i + 1] : nullptr;
    if (arg == "--keep") {
      keep = true;
    } else if (next != nullptr && arg == "--cases") {
      cases = argv[++i];
    } else if (next != nullptr && arg == "--signals") {
      binary.signals = std::atoi(argv[++i]);
    } else if (next != nullptr && arg == "--points") {
      binary.points = std::atoi(argv[++i]);
    } else if (next != nullptr && arg == "--psf-signals") {
      text.signals = std::atoi(argv[++i]);
    } else if (next != nullptr && arg == "--psf-points") {
      text.points = std::atoi(argv[++i]);
    } else if (next != nullptr && arg == "--dir") {
      dir = argv[++i];
    } else {
      std::fprintf(stderr,
                   "usage: %s [--cases ngspice,fast,psf] [--signals N] [--points T] "
                   "[--psf-signals N] [--psf-points T] [--dir DIR] [--keep]\n",
                   argv[0]);
      return 2;
    }
  }
  std::error_code error;
  fs::create_directories(dir, error);
  const auto wants = [&](const char* name) { return cases.find(name) != std::string::npos; };
  int failures = 0;
  const std::string binaryNet = dir + "/binary.net";
  if ((wants("ngspice") || wants("fast")) && !writeNetlist(binaryNet, binary)) {
    std::fprintf(stderr, "cannot write %s\n", binaryNet.c_str());
    return 1;
  }
  std::fprintf(stderr, "binary cases: %d signals x %d points; PSF: %d signals x %d points\n",
               binary.signals, binary.points, text.signals, text.points);
  struct Case {
    const char* name;
    const char* gate;  // the --cases word that selects it
    std::string path;
    std::string dataset;
    bool (*write)(const std::string&, const Shape&);
    Shape shape;
    std::string netlist;
  };
  const std::string textNet = dir + "/text.net";
  const Case all[] = {
      {"ngspice", "ngspice", dir + "/ngspice.raw", "tran", writeNgspice, binary, binaryNet},
      {"fast", "fast", dir + "/fast.raw", "tran", writeFastAccess, binary, binaryNet},
      {"psf", "psf", dir + "/psf/tran.tran", "tran.tran", writePsf, text, textNet},
      // The PSF shape as ngspice binary, for comparison.
      {"ngspice", "psf", dir + "/ngspice-small.raw", "tran", writeNgspice, text, textNet},
  };
  for (const Case& c : all) {
    if (!wants(c.gate)) {
      continue;
    }
    fs::create_directories(fs::path(c.path).parent_path(), error);
    if (c.netlist == textNet && !fs::exists(textNet) && !writeNetlist(textNet, text)) {
      return 1;
    }
    const Clock::time_point start = Clock::now();
    if (!c.write(c.path, c.shape)) {
      std::fprintf(stderr, "cannot write %s\n", c.path.c_str());
      return 1;
    }
    std::fprintf(stderr, "%-8s written in %.1f s\n", c.name, secondsSince(start));
    const bool folder = std::string(c.name) == "psf";
    failures +=
        inChild(c.name, folder ? fs::path(c.path).parent_path().string() : c.path,
                static_cast<double>(fs::file_size(c.path)) / 1e6, c.dataset, c.netlist, c.shape);
    if (!keep) {
      fs::remove(c.path, error);
    }
  }
  if (!keep) {
    fs::remove_all(dir, error);
  }
  return failures == 0 ? 0 : 1;
}
