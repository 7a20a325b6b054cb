// The scale benchmark: kra2's main flow (open, load netlist, run over the whole window,
// save) on a large binary raw file, against two references measured in the same
// invocation on the same file:
//   floor     one minimal pass that reads every sample of the file once and sums it;
//   baseline  a short numpy script computing peak, trapezoid average, RMS and absolute
//             average per instance (numpyBaseline.py).
// Every program runs as its own process; wall time, CPU time (user + system, all threads)
// and peak resident memory are taken from the kernel's accounting of that process. The
// phases of kra2 are measured by this program itself in a child process that drives the
// session's command handlers one phase at a time (the same handlers the command file
// reaches); the real kra2 executable then runs the whole command file for the total.
//
//   kra2_scale_bench [--nodes N] [--points T] [--dir DIR] [--keep] [--no-numpy]
//                    [--no-binary] [--numpy-limit SECONDS] [--compare] [--repeat N]
//
// --compare also runs the phases reading the results batch by batch (KRA2_STREAMED_RUN=off),
// with the column store where the memory budget puts it (in memory for the default size)
// and in a temporary file, for the choice of the way a run reads its data.
//
// Defaults: 100000 nodes by 1000 points (an 800 MB file) in $TMPDIR (or /tmp), removed at
// the end unless --keep; each program but numpy runs 3 times (--repeat) and its best run
// is reported. A folder that already holds data of the same shape is reused.

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "app/analyzeNetlist.h"
#include "bench/scale/scaleData.h"
#include "simdata/resultsReader.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double cpuSeconds(const rusage& usage) {
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

/// One measured stretch of work.
struct Figures {
  double wall = 0.0;
  double cpu = 0.0;
  double peakMB = 0.0;  // peak resident memory
  bool ok = true;
  int tag = 0;  // which repetition it was
};

// ---- child modes -------------------------------------------------------------------------

/// The floor: map the file, find the data, add up every sample once. Eight running sums so
/// that the pass is bound by memory, not by the latency of one chain of additions.
int floorPass(const char* path) {
  const int fd = open(path, O_RDONLY);
  struct stat info {};
  if (fd < 0 || fstat(fd, &info) != 0) {
    std::perror(path);
    return 1;
  }
  const size_t size = static_cast<size_t>(info.st_size);
  void* map = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  close(fd);
  if (map == MAP_FAILED) {
    std::perror("mmap");
    return 1;
  }
  madvise(map, size, MADV_SEQUENTIAL);
  const char* bytes = static_cast<const char*>(map);
  const char* marker = static_cast<const char*>(memmem(bytes, size, "Binary:\n", 8));
  if (marker == nullptr) {
    std::fprintf(stderr, "%s: no binary data\n", path);
    return 1;
  }
  const char* data = marker + 8;
  const size_t count = static_cast<size_t>(bytes + size - data) / sizeof(double);
  double sums[8] = {};
  size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    // One 8-byte copy per sample compiles to a plain load (a 64-byte copy into an array
    // became a slow string move).
    for (size_t k = 0; k < 8; ++k) {
      double v;
      std::memcpy(&v, data + (i + k) * sizeof(double), sizeof v);
      sums[k] += v;
    }
  }
  for (; i < count; ++i) {
    double v;
    std::memcpy(&v, data + i * sizeof(double), sizeof v);
    sums[0] += v;
  }
  double total = 0.0;
  for (double s : sums) {
    total += s;
  }
  std::printf("floor: %zu samples, sum %.17g\n", count, total);
  munmap(map, size);
  return 0;
}

/// Resets the kernel's peak-resident mark of this process to the current size; false when
/// the kernel does not allow it (the peaks are then cumulative).
bool resetPeakResident() {
  FILE* file = std::fopen("/proc/self/clear_refs", "w");
  if (file == nullptr) {
    return false;
  }
  const bool ok = std::fputs("5", file) >= 0;
  return std::fclose(file) == 0 && ok;
}

double peakResidentMB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) {
      return std::strtod(line.c_str() + 6, nullptr) / 1024.0;
    }
  }
  return 0.0;
}

/// The phases of kra2, one command handler call each, in this process; one line per phase
/// to `out`: "name wall cpu peakMB".
int phaseRunner(const bench::ScaleFiles& files, const char* out) {
  simdata::initialise();
  auto session = std::make_unique<zeAnalyzeNetlist>();
  session->init(nullptr, nullptr, true);
  std::string stop;
  {
    std::ifstream run(files.runCmd);
    std::string word, start;
    run >> word >> start >> stop;
  }
  const ArgList open = {files.raw};
  const ArgList select = {"tran"};
  const ArgList load = {files.netlist};
  const ArgList run = {"0", stop};
  const ArgList save = {files.result};
  std::vector<zeInstance> unused;
  const bool resettable = resetPeakResident();
  FILE* report = std::fopen(out, "w");
  if (report == nullptr) {
    std::perror(out);
    return 1;
  }
  auto phase = [&](const char* name, auto call) {
    resetPeakResident();
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const Clock::time_point start = Clock::now();
    call();
    const double wall = secondsSince(start);
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    std::fprintf(report, "%s %.6f %.6f %.3f\n", name, wall, cpuSeconds(after) - cpuSeconds(before),
                 peakResidentMB());
  };
  phase("open", [&] {
    session->processOpenSimDataCmd(&open);
    session->processSelectAnalysisCmd(&select);
  });
  phase("load", [&] { session->processLoadNetlistCmd(&load); });
  phase("run", [&] { session->processRunCmd(&run, 0); });
  phase("save", [&] { session->processSaveResultsCmd(&save, unused); });
  phase("close", [&] { session.reset(); });
  std::fprintf(report, "resettable %d\n", resettable ? 1 : 0);
  return std::fclose(report) == 0 ? 0 : 1;
}

// ---- the driver --------------------------------------------------------------------------

/// Runs a program as a child process (stdout and stderr to `logPath`) and measures it.
Figures measure(const std::vector<std::string>& argv, const std::string& logPath,
                const std::vector<std::string>& unsetVariables = {}) {
  std::vector<std::string> environment;
  for (char** e = environ; *e != nullptr; ++e) {
    const std::string entry = *e;
    const bool dropped =
        std::any_of(unsetVariables.begin(), unsetVariables.end(),
                    [&](const std::string& name) { return entry.rfind(name + "=", 0) == 0; });
    if (!dropped) {
      environment.push_back(entry);
    }
  }
  std::vector<char*> args;
  for (const std::string& a : argv) {
    args.push_back(const_cast<char*>(a.c_str()));
  }
  args.push_back(nullptr);
  std::vector<char*> env;
  for (std::string& e : environment) {
    env.push_back(e.data());
  }
  env.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                   0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  Figures figures;
  const Clock::time_point start = Clock::now();
  pid_t pid = 0;
  if (posix_spawn(&pid, args[0], &actions, nullptr, args.data(), env.data()) != 0) {
    std::perror(args[0]);
    figures.ok = false;
    return figures;
  }
  posix_spawn_file_actions_destroy(&actions);
  int status = 0;
  rusage usage{};
  wait4(pid, &status, 0, &usage);
  figures.wall = secondsSince(start);
  figures.cpu = cpuSeconds(usage);
  figures.peakMB = static_cast<double>(usage.ru_maxrss) / 1024.0;
  figures.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (!figures.ok) {
    std::fprintf(stderr, "%s failed (status %d), see %s\n", args[0], status, logPath.c_str());
  }
  return figures;
}

std::string selfPath() { return fs::read_symlink("/proc/self/exe").string(); }

std::string shapeStamp(const bench::ScaleShape& shape) {
  return std::to_string(shape.nodes) + "x" + std::to_string(shape.points) + " v1\n";
}

std::string readText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

/// Compares the numpy results with kra2's result file: averages, RMS and absolute averages
/// must agree closely; peaks may differ where kra2's rule leaves the last sample out.
void crossCheck(const std::string& numpyOut, const std::string& kra2Out) {
  std::map<std::string, std::vector<double>> ours;
  {
    std::ifstream in(kra2Out);
    std::string line;
    while (std::getline(in, line)) {
      std::vector<std::string> fields;
      std::stringstream split(line);
      std::string field;
      while (std::getline(split, field, '\t')) {
        fields.push_back(field);
      }
      if (fields.size() >= 9) {
        ours[fields[0]] = {
            std::strtod(fields[3].c_str(), nullptr), std::strtod(fields[4].c_str(), nullptr),
            std::strtod(fields[5].c_str(), nullptr), std::strtod(fields[8].c_str(), nullptr)};
      }
    }
  }
  std::ifstream in(numpyOut);
  std::string name;
  double peak, avg, rms, absAvg;
  size_t compared = 0, peakDiffers = 0, missing = 0;
  double worst = 0.0;
  while (in >> name >> peak >> avg >> rms >> absAvg) {
    const auto it = ours.find(name);
    if (it == ours.end()) {
      ++missing;
      continue;
    }
    ++compared;
    const double theirs[4] = {peak, avg, rms, absAvg};
    for (int k = 1; k < 4; ++k) {
      const double scale = std::max(std::fabs(theirs[k]), 1e-300);
      worst = std::max(worst, std::fabs(theirs[k] - it->second[k]) / scale);
    }
    if (std::fabs(peak - it->second[0]) > 1e-12 * std::fabs(peak)) {
      ++peakDiffers;
    }
  }
  std::printf(
      "cross-check with numpy: %zu instances compared (%zu missing); avg, rms, absAvg "
      "agree to %.1e relative; %zu peaks differ (last-sample rule)\n",
      compared, missing, worst, peakDiffers);
}

/// The lines of a phase runner's report; "resettable" is present when the peaks are per phase.
std::map<std::string, Figures> readPhases(const std::string& path) {
  std::map<std::string, Figures> phases;
  std::ifstream in(path);
  std::string name;
  while (in >> name) {
    Figures f;
    if (name == "resettable") {
      int flag = 0;
      in >> flag;
      if (flag != 0) {
        phases[name] = f;
      }
      continue;
    }
    in >> f.wall >> f.cpu >> f.peakMB;
    phases[name] = f;
  }
  return phases;
}

int usage() {
  std::fprintf(stderr,
               "usage: kra2_scale_bench [--nodes N] [--points T] [--dir DIR] [--keep] "
               "[--no-numpy] [--no-binary] [--numpy-limit SECONDS] [--compare] [--repeat N]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "--floor") == 0) {
    return floorPass(argv[2]);
  }
  if (argc == 4 && std::strcmp(argv[1], "--phases") == 0) {
    return phaseRunner(bench::ScaleFiles(argv[2]), argv[3]);
  }
  // The phase runner is this program, not the kra2 executable: give it the thread wait
  // policy kra2 chooses for itself so that both measure the same thing.
  setenv("OMP_WAIT_POLICY", "passive", 0);
  bench::ScaleShape shape;
  std::string dir;
  bool keep = false;
  bool numpy = true;
  bool binary = true;
  double numpyLimit = 0.0;
  bool compare = false;
  int repeat = 3;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool hasValue = i + 1 < argc;
    if (a == "--nodes" && hasValue) {
      shape.nodes = std::atoll(argv[++i]);
    } else if (a == "--points" && hasValue) {
      shape.points = std::atoll(argv[++i]);
    } else if (a == "--dir" && hasValue) {
      dir = argv[++i];
    } else if (a == "--keep") {
      keep = true;
    } else if (a == "--no-numpy") {
      numpy = false;
    } else if (a == "--no-binary") {
      binary = false;
    } else if (a == "--numpy-limit" && hasValue) {
      numpyLimit = std::atof(argv[++i]);
    } else if (a == "--compare") {
      compare = true;
    } else if (a == "--repeat" && hasValue) {
      repeat = std::max(1, std::atoi(argv[++i]));
    } else {
      return usage();
    }
  }
  if (shape.nodes < 2 || shape.points < 2) {
    return usage();
  }
  if (dir.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    dir = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/kra2-scale-" +
          std::to_string(shape.nodes) + "x" + std::to_string(shape.points);
  }
  fs::create_directories(dir);
  const bench::ScaleFiles files(dir);
  const std::string stamp = dir + "/shape.txt";
  const double fileMB = static_cast<double>(bench::dataBytes(shape)) / 1e6;
  if (readText(stamp) != shapeStamp(shape) || !fs::exists(files.raw)) {
    std::printf("writing %lld nodes x %lld points (%.0f MB of samples) to %s ...\n",
                static_cast<long long>(shape.nodes), static_cast<long long>(shape.points), fileMB,
                dir.c_str());
    std::fflush(stdout);
    const Clock::time_point start = Clock::now();
    fs::remove(stamp);
    if (!bench::writeScaleData(shape, files)) {
      return 1;
    }
    std::ofstream(stamp) << shapeStamp(shape);
    std::printf("written in %.1f s\n", secondsSince(start));
  }
  const double rawMB = static_cast<double>(fs::file_size(files.raw)) / 1e6;
  const std::string self = selfPath();
  const std::string childLog = dir + "/children.log";
  fs::remove(childLog);

  // Warm the page cache, then the measured runs.
  // Warm the page cache, then the measured runs: the best of `repeat` for each program but
  // numpy (on a shared machine the best run is the one least disturbed by other jobs).
  measure({self, "--floor", files.raw}, childLog);
  auto best = [&](auto run) {
    Figures chosen = run(0);
    for (int r = 1; r < repeat; ++r) {
      const Figures next = run(r);
      if (next.ok && next.wall < chosen.wall) {
        chosen = next;
      }
    }
    return chosen;
  };
  const Figures floor = best([&](int) { return measure({self, "--floor", files.raw}, childLog); });
  const std::string phasesOut = dir + "/phases.txt";
  const Figures phaseProcess = best([&](int r) {
    const std::string out = phasesOut + "." + std::to_string(r);
    Figures figures = measure({self, "--phases", dir, out}, childLog);
    figures.tag = r;
    return figures;
  });
  fs::rename(phasesOut + "." + std::to_string(phaseProcess.tag), phasesOut);
  const std::string phaseResult = dir + "/result.phases.txt";
  fs::rename(files.result, phaseResult);
  // The other ways of reading, phases run the same way, each with its own environment.
  struct Alternative {
    const char* name;
    const char* storeMemory;
    std::map<std::string, Figures> phases;
  };
  std::vector<Alternative> alternatives;
  if (compare) {
    alternatives.push_back({"run: batches, store by budget", nullptr, {}});
    alternatives.push_back({"run: batches, store in a file", "0", {}});
    for (Alternative& alternative : alternatives) {
      setenv("KRA2_STREAMED_RUN", "off", 1);
      if (alternative.storeMemory != nullptr) {
        setenv("KRA2_COLUMN_STORE_MEMORY", alternative.storeMemory, 1);
      }
      const std::string out = dir + "/phases.alternative.txt";
      best([&](int) { return measure({self, "--phases", dir, out}, childLog); });
      unsetenv("KRA2_STREAMED_RUN");
      unsetenv("KRA2_COLUMN_STORE_MEMORY");
      alternative.phases = readPhases(out);
      if (readText(files.result) != readText(phaseResult)) {
        std::printf("WARNING: %s gave another result file\n", alternative.name);
      }
    }
  }
  Figures whole;
  if (binary) {
    whole = best([&](int) {
      return measure({KRA2_PATH, "-cmd", files.allCmd, "-log", dir + "/kra2.log"}, childLog);
    });
  }
  Figures base;
  const std::string numpyOut = dir + "/numpy.txt";
  if (numpy) {
    std::vector<std::string> command = {"/usr/bin/python3", KRA2_SCALE_SCRIPT, files.raw,
                                        files.netlist, numpyOut};
    if (numpyLimit > 0) {
      command.push_back("--limit");
      command.push_back(std::to_string(numpyLimit));
    }
    // numpy's BLAS must pick its own settings for this machine.
    base = measure(command, childLog, {"OPENBLAS_CORETYPE", "OPENBLAS_L2_SIZE"});
  }

  // The report.
  const char* threads = std::getenv("KRA2_THREADS");
  char host[256] = "?";
  gethostname(host, sizeof host);
  double load[3] = {0, 0, 0};
  getloadavg(load, 3);
  std::printf("\nscale benchmark: %lld nodes x %lld points, raw file %.1f MB, %lld instances\n",
              static_cast<long long>(shape.nodes), static_cast<long long>(shape.points), rawMB,
              static_cast<long long>(shape.nodes));
  std::printf(
      "machine: %ld cores, load average %.2f %.2f %.2f (shared machine: other jobs run "
      "beside this one); KRA2_THREADS=%s\n\n",
      sysconf(_SC_NPROCESSORS_ONLN), load[0], load[1], load[2],
      threads != nullptr ? threads : "(unset)");
  std::printf("%-32s %10s %10s %12s %12s\n", "", "wall s", "cpu s", "peak RSS MB", "data MB/s");
  auto row = [&](const char* name, const Figures& f, bool rate) {
    if (rate && f.wall > 0) {
      std::printf("%-32s %10.3f %10.3f %12.1f %12.0f%s\n", name, f.wall, f.cpu, f.peakMB,
                  fileMB / f.wall, f.ok ? "" : "  FAILED");
    } else {
      std::printf("%-32s %10.3f %10.3f %12.1f %12s%s\n", name, f.wall, f.cpu, f.peakMB, "",
                  f.ok ? "" : "  FAILED");
    }
  };
  const std::map<std::string, Figures> phases = readPhases(phasesOut);
  const bool resettable = phases.count("resettable") != 0;
  row("floor (sum every sample)", floor, true);
  for (const char* name : {"open", "load", "run", "save", "close"}) {
    const std::string label = std::string("kra2 phase: ") + name;
    const auto it = phases.find(name);
    row(label.c_str(), it != phases.end() ? it->second : Figures{}, std::strcmp(name, "run") == 0);
  }
  row("kra2 phases, whole process", phaseProcess, true);
  if (binary) {
    row("kra2 executable, cmd file", whole, true);
  }
  if (numpy) {
    row("numpy baseline", base, true);
  }
  for (const Alternative& alternative : alternatives) {
    const auto it = alternative.phases.find("run");
    row(alternative.name, it != alternative.phases.end() ? it->second : Figures{}, true);
  }
  if (!resettable) {
    std::printf("(peak RSS of the phases is cumulative: the kernel refused to reset the mark)\n");
  }
  const Figures& kra2 = binary ? whole : phaseProcess;
  // The wall-time ratios are the targets; on a machine shared with other jobs they also
  // measure how much of the machine each program got, so the CPU-time ratios are shown
  // beside them (kra2's CPU time counts every thread it runs).
  std::printf("\nkra2/floor    = %.2f wall, %.2f cpu  (target: at most 3)\n",
              kra2.wall / floor.wall, kra2.cpu / floor.cpu);
  if (numpy) {
    const double baseWallMeasured = base.wall;
    std::string note;
    if (numpyLimit > 0) {
      const std::string output = readText(childLog);
      const size_t at = output.rfind("instances ");
      long long done = 0, total = 0;
      if (at != std::string::npos &&
          std::sscanf(output.c_str() + at, "instances %lld of %lld", &done, &total) == 2 &&
          done > 0 && done < total) {
        base.wall *= static_cast<double>(total) / static_cast<double>(done);
        note = "  (numpy stopped after " + std::to_string(done) + " of " + std::to_string(total) +
               " instances: its time is extrapolated)";
      }
    }
    const double scale = base.wall > 0 && baseWallMeasured > 0 ? base.wall / baseWallMeasured : 1.0;
    std::printf("baseline/kra2 = %.1f wall, %.1f cpu  (target: at least 10)%s\n",
                base.wall / kra2.wall, base.cpu * scale / kra2.cpu, note.c_str());
  }
  std::printf("peak RSS      = %.0f MB = raw file + %.0f MB  (target: below file + 500 MB)\n",
              kra2.peakMB, kra2.peakMB - rawMB);
  if (binary && readText(phaseResult) != readText(files.result)) {
    std::printf("WARNING: the phase runner's result file differs from the executable's\n");
  }
  if (numpy) {
    crossCheck(numpyOut, binary ? files.result : phaseResult);
  }
  if (!keep) {
    fs::remove_all(dir);
  }
  return floor.ok && phaseProcess.ok && whole.ok && base.ok ? 0 : 1;
}
