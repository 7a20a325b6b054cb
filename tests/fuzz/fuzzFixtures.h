#pragma once
// Small well-formed input files that the command-file target finds in its folder, so that
// fuzzed command files reach the commands that read results, netlists, databases and network
// data instead of failing at the first open.

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "db/dbFile.h"
#include "fuzzSupport.h"

namespace fuzzing {

/// A transient plot and an operating point, as text.
inline const char* asciiRaw() {
  return "Title: rc\n"
         "Date: Thu Jan  1 00:00:00 2026\n"
         "Plotname: Transient Analysis\n"
         "Flags: real\n"
         "No. Variables: 4\n"
         "No. Points: 4\n"
         "Variables:\n"
         "\t0\ttime\ttime\n"
         "\t1\tv(in)\tvoltage\n"
         "\t2\tv(out)\tvoltage\n"
         "\t3\ti(v1)\tcurrent\n"
         "Values:\n"
         " 0\t0.0\n\t1.0\n\t0.0\n\t-1e-3\n"
         " 1\t1e-9\n\t1.0\n\t0.5\n\t-5e-4\n"
         " 2\t2e-9\n\t0.0\n\t0.75\n\t7.5e-4\n"
         " 3\t3e-9\n\t0.0\n\t0.25\n\t2.5e-4\n"
         "Title: rc\n"
         "Date: Thu Jan  1 00:00:00 2026\n"
         "Plotname: Operating Point\n"
         "Flags: real\n"
         "No. Variables: 2\n"
         "No. Points: 1\n"
         "Variables:\n"
         "\t0\tv(in)\tvoltage\n"
         "\t1\tv(out)\tvoltage\n"
         "Values:\n"
         " 0\t1.0\n\t0.5\n";
}

/// A transient plot with binary data.
inline std::string binaryRaw() {
  std::string text =
      "Title: rc\n"
      "Date: Thu Jan  1 00:00:00 2026\n"
      "Plotname: Transient Analysis\n"
      "Flags: real\n"
      "No. Variables: 3\n"
      "No. Points: 3\n"
      "Variables:\n"
      "\t0\ttime\ttime\n"
      "\t1\tv(a)\tvoltage\n"
      "\t2\tv(b)\tvoltage\n"
      "Binary:\n";
  const double values[] = {0.0, 1.0, 0.0, 1e-9, 0.5, 0.25, 2e-9, -0.5, 1.0};
  for (double v : values) {
    char bytes[8];
    std::memcpy(bytes, &v, 8);  // little-endian hosts only, like the fuzz build itself
    text.append(bytes, 8);
  }
  return text;
}

inline const char* netlist() { return "R1 in out\nR2 out 0\nR3 out #@#v0.5\nR4 a b\n"; }

/// name net1 net2 length width layer viaType
inline const char* lengthData() {
  return "m1 a b 10 1 M1 nil\n"
         "m2 b c 20 1 M1 nil\n"
         "m3 c d 5 2 M2 nil\n"
         "v1 b c 0 1 V1 via\n";
}

/// name layer net1 net2 x y width length viaType
inline const char* pgData() {
  return "m1 M1 a b 0 0 1 10 nil\n"
         "m2 M1 b c 10 0 1 20 nil\n"
         "v1 V1 b x 10 0 1 0 via\n";
}

/// A database with two IR and two EM records and fixed keys, written once.
inline const std::vector<uint8_t>& databaseBytes() {
  static const std::vector<uint8_t> bytes = [] {
    const std::filesystem::path path = scratchDir() / "fixture.db";
    {
      std::vector<uint8_t> irKey(100), emKey(120);
      for (size_t i = 0; i < irKey.size(); ++i) {
        irKey[i] = static_cast<uint8_t>(i * 37 + 11);
      }
      for (size_t i = 0; i < emKey.size(); ++i) {
        emKey[i] = static_cast<uint8_t>(i * 91 + 3);
      }
      kraDB::kraDBFile db(path.string(), 25.0, 0.0, 1e-8, kraDB::kWriterVersion,
                          kraDB::Encryptor(irKey), kraDB::Encryptor(emKey));
      db.addIR("n1", 0.1, 0.2, 0.3, 1e-9, 0.01, 2e-9);
      db.addIR("n2", 1.0, 2.0, 3.0, 4e-9, 0.5, 5e-9);
      db.addEM("R1", 1e-3, 2e-3, 3e-3, 1e-9, 2.5e-3, 1, 2);
      db.addEM("R2", 1e-3, -2e-3, 3e-3, 2e-9, 0.0, 2, 0);
    }
    std::vector<uint8_t> data;
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
      uint8_t chunk[4096];
      size_t got = 0;
      while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        data.insert(data.end(), chunk, chunk + got);
      }
      std::fclose(file);
    }
    std::filesystem::remove(path);
    return data;
  }();
  return bytes;
}

/// Writes every fixture into `dir`.
inline void writeFixtures(const std::filesystem::path& dir) {
  writeFile(dir / "rc.raw", asciiRaw());
  writeFile(dir / "rcb.raw", binaryRaw());
  writeFile(dir / "net", netlist());
  writeFile(dir / "len", lengthData());
  writeFile(dir / "pg", pgData());
  const std::vector<uint8_t>& db = databaseBytes();
  writeFile(dir / "em.db", db.data(), db.size());
}

}  // namespace fuzzing
