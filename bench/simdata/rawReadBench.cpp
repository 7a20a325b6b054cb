// Reading SPICE raw files: opening (header parse, text decoding) and bulk reads of signals in
// batches of 10000, as the run loop and displaySignals -v do. Writes its own data into a
// temporary folder.
//
//   kra2_raw_read_bench [signals [points]]   (defaults: 20000 signals, 1000 points)

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "simdata/rawBackend.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string header(int signals, int points, const char* marker) {
  std::string text = "Title: bench\nDate: today\nPlotname: Transient Analysis\nFlags: real\n";
  text += "No. Variables: " + std::to_string(signals + 1) + "\n";
  text += "No. Points: " + std::to_string(points) + "\nVariables:\n\t0\ttime\ttime\n";
  for (int s = 1; s <= signals; ++s) {
    text += "\t" + std::to_string(s) + "\tv(n" + std::to_string(s) + ")\tvoltage\n";
  }
  return text + marker + "\n";
}

double sample(int signal, int point) { return 1.0 - 1e-6 * signal - 1e-9 * point; }

void writeBinary(const std::string& path, int signals, int points) {
  FILE* file = std::fopen(path.c_str(), "wb");
  const std::string text = header(signals, points, "Binary:");
  std::fwrite(text.data(), 1, text.size(), file);
  std::vector<double> record(static_cast<size_t>(signals) + 1);
  for (int p = 0; p < points; ++p) {
    record[0] = p * 1e-12;
    for (int s = 1; s <= signals; ++s) {
      record[static_cast<size_t>(s)] = sample(s, p);
    }
    std::fwrite(record.data(), sizeof(double), record.size(), file);
  }
  std::fclose(file);
}

void writeAscii(const std::string& path, int signals, int points) {
  FILE* file = std::fopen(path.c_str(), "w");
  const std::string text = header(signals, points, "Values:");
  std::fwrite(text.data(), 1, text.size(), file);
  for (int p = 0; p < points; ++p) {
    std::fprintf(file, " %d\t%.15e\n", p, p * 1e-12);
    for (int s = 1; s <= signals; ++s) {
      std::fprintf(file, "\t%.15e\n", sample(s, p));
    }
    std::fputc('\n', file);
  }
  std::fclose(file);
}

double megabytes(const std::string& path) {
  return static_cast<double>(std::filesystem::file_size(path)) / 1e6;
}

/// Reads every signal in batches of 10000; returns a checksum so nothing is optimised away.
double readAll(simdata::Dataset& dataset, int batchSize) {
  const simdata::SignalList* list = dataset.signals();
  double sum = 0.0;
  for (int start = 0; start < list->count(); start += batchSize) {
    const int end = std::min(start + batchSize, list->count());
    simdata::SignalArray batch(end - start);
    for (int i = start; i < end; ++i) {
      batch.add(list->at(i));
    }
    auto values = dataset.read(batch);
    for (int i = 0; i < values->count(); ++i) {
      const auto data = values->at(i)->yVector()->doubles();
      sum += data.back();
    }
  }
  return sum;
}

void report(const char* what, double seconds, double mb) {
  std::printf("%-44s %8.3f s  %8.1f MB/s\n", what, seconds, mb / seconds);
}

}  // namespace

int main(int argc, char** argv) {
  const int signals = argc > 1 ? std::atoi(argv[1]) : 20000;
  const int points = argc > 2 ? std::atoi(argv[2]) : 1000;
  std::string pattern = (std::filesystem::temp_directory_path() / "kra2-bench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  const std::filesystem::path dir = pattern;
  const std::string binary = (dir / "bench.bin.raw").string();
  const std::string ascii = (dir / "bench.ascii.raw").string();
  const int asciiSignals = std::max(1, signals / 10);
  writeBinary(binary, signals, points);
  writeAscii(ascii, asciiSignals, points);
  std::printf("binary: %d signals x %d points, %.1f MB; text: %d signals, %.1f MB\n", signals,
              points, megabytes(binary), asciiSignals, megabytes(ascii));

  simdata::RawBackend backend;
  auto start = Clock::now();
  auto results = backend.open(binary);
  report("open binary (header only)", secondsSince(start), megabytes(binary));
  simdata::Dataset* tran = results->findDataset("tran");
  start = Clock::now();
  double check = readAll(*tran, 10000);
  report("read all signals, batches of 10000", secondsSince(start), megabytes(binary));
  start = Clock::now();
  check += readAll(*tran, 10000);
  const double batched = secondsSince(start);
  report("again (file in the page cache)", batched, megabytes(binary));
  // For comparison: one strided pass per signal, on a tenth of the signals.
  const int few = std::max(1, signals / 10);
  start = Clock::now();
  for (int s = 1; s <= few; ++s) {
    check += tran->readValue("n" + std::to_string(s))->yVector()->doubleAt(0);
  }
  const double perSignal = secondsSince(start);
  std::printf("%-44s %8.3f s  (%.1f x the batched time per signal)\n",
              "one read per signal, a tenth of them", perSignal,
              (perSignal / few) / (batched / (signals + 1)));

  start = Clock::now();
  auto text = backend.open(ascii);
  report("open text (tokenise and decode)", secondsSince(start), megabytes(ascii));
  start = Clock::now();
  check += readAll(*text->findDataset("tran"), 10000);
  report("read all text signals (views, no copy)", secondsSince(start), megabytes(ascii));

  std::printf("checksum %.6g\n", check);
  results.reset();
  text.reset();
  std::filesystem::remove_all(dir);
  return 0;
}
