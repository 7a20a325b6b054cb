// The EMIR database at scale: `kra2db write` of N IR records from a record file, `kra2db dump`
// back to text, and kra2's `readMuroDBIR` listing them. Each program runs under /usr/bin/time
// and its wall time and peak resident memory are shown. The dump must give back every record
// exactly and the listing must hold every record, or the benchmark fails.
//
//   kra2_db_roundtrip_bench [records ...]   (default: 100000 1000000)

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "childRun.h"

namespace {

using bench::appendShortest;
using bench::ChildRun;
using bench::runChild;

struct Record {
  std::string name;
  double values[6];
};

Record makeRecord(std::mt19937_64& random, long i) {
  Record record;
  record.name = "blk" + std::to_string(i / 10000) + "/net" + std::to_string(i % 97) + "/n" +
                std::to_string(i);
  std::uniform_real_distribution<double> volts(0.0, 0.1);
  std::uniform_real_distribution<double> times(0.0, 2e-6);
  const double avg = volts(random);
  record.values[0] = avg * 1.1;  // rms
  record.values[1] = avg;        // avg
  record.values[2] = avg * 2.5;  // peak
  record.values[3] = times(random);
  record.values[4] = -avg * 0.01;  // min
  record.values[5] = times(random);
  return record;
}

bool sameFile(const std::string& path, const std::string& expected) {
  std::ifstream in(path, std::ios::binary);
  std::string actual((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return actual == expected;
}

bool benchmark(long records, const std::string& dir) {
  const std::string irFile = dir + "/ir.tsv";
  const std::string db = dir + "/bench.db";
  std::string input;
  std::string dumpRecords;
  std::string listing;
  {
    std::mt19937_64 random(20240601);
    char line[512];
    for (long i = 0; i < records; ++i) {
      const Record r = makeRecord(random, i);
      std::string text = r.name;
      for (double v : r.values) {
        text += '\t';
        appendShortest(text, v);
      }
      text += '\n';
      input += text;
      dumpRecords += "IR\t" + text;
      std::snprintf(line, sizeof line, "%s  %g  %g  %g  %g %g  %g\n", r.name.c_str(), r.values[2],
                    r.values[1], r.values[0], r.values[3], r.values[4], r.values[5]);
      listing += line;
    }
    std::ofstream(irFile, std::ios::binary) << input;
  }

  const ChildRun write = runChild({KRA2DB_PATH, "write", "-q", db, "--ir", irFile}, dir);
  const ChildRun dump = runChild({KRA2DB_PATH, "dump", db}, dir, dir + "/dump.txt");
  std::ofstream(dir + "/cmd") << "readMuroDBIR " << db << " " << dir << "/listing.txt\n";
  const ChildRun list = runChild({KRA2_PATH, "-cmd", dir + "/cmd", "-log", dir + "/kra2.log"}, dir);

  // The dump is the header part and then exactly the input's records.
  std::ifstream dumped(dir + "/dump.txt", std::ios::binary);
  std::string dumpText((std::istreambuf_iterator<char>(dumped)), std::istreambuf_iterator<char>());
  const size_t firstRecord = dumpText.find("\nIR\t");
  const bool dumpOk = write.status == 0 && dump.status == 0 && firstRecord != std::string::npos &&
                      dumpText.compare(firstRecord + 1, std::string::npos, dumpRecords) == 0;
  const bool listingOk = list.status == 0 && sameFile(dir + "/listing.txt", listing);

  const double dbMB = static_cast<double>(std::filesystem::file_size(db)) / 1e6;
  std::printf("%9ld records, database %.1f MB, input %.1f MB\n", records, dbMB,
              static_cast<double>(input.size()) / 1e6);
  std::printf("  kra2db write       %7.3f s  peak %7.1f MB\n", write.seconds, write.peakMB);
  std::printf("  kra2db dump        %7.3f s  peak %7.1f MB  round trip %s\n", dump.seconds,
              dump.peakMB, dumpOk ? "exact" : "FAILED");
  std::printf("  kra2 readMuroDBIR  %7.3f s  peak %7.1f MB  listing %s\n", list.seconds,
              list.peakMB, listingOk ? "complete" : "FAILED");
  return dumpOk && listingOk;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<long> sizes;
  for (int i = 1; i < argc; ++i) {
    sizes.push_back(std::strtol(argv[i], nullptr, 10));
  }
  if (sizes.empty()) {
    sizes = {100000, 1000000};
  }
  std::string pattern = (std::filesystem::temp_directory_path() / "kra2-dbbench-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  bool ok = true;
  for (long records : sizes) {
    ok = benchmark(records, pattern) && ok;
  }
  std::filesystem::remove_all(pattern);
  return ok ? 0 : 1;
}
