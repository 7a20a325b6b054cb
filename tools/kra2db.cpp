// kra2db: writes EMIR databases from tab-separated record files and prints what a database
// holds, for users who hand databases between tools and for the tests of kra2.

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "db/dbFile.h"
#include "db/headerParameters.h"
#include "dbText.h"

namespace {

constexpr const char* kRecordLayouts =
    R"(Record files (for write): plain text, one record per line, fields separated by
single tabs; empty lines and lines starting with '#' are skipped.
  IR file (--ir):  name  rms  avg  peak  tpeak  min  tmin
                   (a node's voltage-drop statistics; tpeak and tmin are times
                   in seconds)
  EM file (--em):  name  rms  avg  peak  tpeak  avgPos  term1  term2
                   (a resistor's current statistics; avgPos is the average of
                   the positive part of the current; term1 and term2 are the
                   resistor's two terminal node numbers, 64-bit integers)
Reals are read exactly ("1e-9", "-0.25", "inf", "nan"); "-" as a file name
reads standard input.

Dump (dump, info): tab-separated lines
  parameter  KEY  VALUE      every tag of the header text
  version    V               the format version as read
  temperature, startTime, stopTime  the conditions
  block  IR|EM  OFFSET  COUNT       the block pointer table
  IR  name  rms  avg  peak  tpeak  min  tmin              (dump only)
  EM  name  rms  avg  peak  tpeak  avgPos  term1  term2   (dump only)
Reals are printed in their shortest form that reads back to the same value, so
the record lines of a dump, without their first field, are valid record files.)";

[[noreturn]] void fail(std::string message) {
  // Database errors end in a line feed of their own; the message is one line.
  while (!message.empty() && message.back() == '\n') {
    message.pop_back();
  }
  std::fprintf(stderr, "kra2db: error: %s\n", message.c_str());
  std::exit(1);
}

double realOption(const std::string& text, const char* name) {
  double value = 0.0;
  if (!kra2db::parseReal(text, value)) {
    fail(std::string("--") + name + " is not a number: '" + text + "'");
  }
  return value;
}

/// Streams one record file into the database; returns the number of records.
template <typename Record, typename Parse, typename Add>
int64_t copyRecords(const std::string& path, const char* kind, Parse parse, Add add) {
  kra2db::LineReader reader;
  if (!reader.open(path)) {
    throw std::runtime_error("cannot open " + std::string(kind) + " record file '" + path +
                             "': " + std::strerror(errno));
  }
  Record record;
  std::string error;
  std::string_view line;
  int64_t count = 0;
  while (reader.next(line)) {
    if (line.empty() || line.front() == '#') {
      continue;
    }
    if (!parse(line, record, error)) {
      throw std::runtime_error(path + ":" + std::to_string(reader.lineNumber()) + ": " + error);
    }
    add(record);
    ++count;
  }
  if (reader.tooLong()) {
    throw std::runtime_error(path + ":" + std::to_string(reader.lineNumber()) +
                             ": line longer than " + std::to_string(kra2db::LineReader::kMaxLine) +
                             " bytes");
  }
  if (reader.readError()) {
    throw std::runtime_error("error reading '" + path + "'");
  }
  return count;
}

struct WriteOptions {
  std::string output;
  std::string irFile;
  std::string emFile;
  std::string temperature = "110";
  std::string start = "0";
  std::string stop = "1e-7";
  std::string version = "5";
  bool emFirst = false;
  bool quiet = false;
  /// Fixed block keys of this many bytes instead of random ones; negative for random keys.
  int keyLength = -1;
};

/// A reproducible block key: byte i is (37 i + 11) mod 256.
kraDB::Encryptor fixedKey(int length) {
  std::vector<uint8_t> key(static_cast<size_t>(length));
  for (size_t i = 0; i < key.size(); ++i) {
    key[i] = static_cast<uint8_t>(37 * i + 11);
  }
  return kraDB::Encryptor(std::move(key));
}

int runWrite(const WriteOptions& options) {
  const double temperature = realOption(options.temperature, "temperature");
  const double start = realOption(options.start, "start");
  const double stop = realOption(options.stop, "stop");
  const double version = realOption(options.version, "version");
  if (!std::isfinite(version)) {
    fail("--version must be a finite number");
  }
  int64_t irCount = 0;
  int64_t emCount = 0;
  try {
    std::unique_ptr<kraDB::kraDBFile> file =
        options.keyLength < 0
            ? std::make_unique<kraDB::kraDBFile>(options.output, temperature, start, stop,
                                                 static_cast<float>(version))
            : std::make_unique<kraDB::kraDBFile>(
                  options.output, temperature, start, stop, static_cast<float>(version),
                  fixedKey(options.keyLength), fixedKey(options.keyLength));
    kraDB::kraDBFile& db = *file;
    try {
      auto writeIR = [&] {
        if (!options.irFile.empty()) {
          irCount = copyRecords<IRRecord>(
              options.irFile, "IR", kra2db::parseIRLine, [&](const IRRecord& r) {
                db.addIR(r.name, r.rms, r.avg, r.peak, r.tpeak, r.min, r.tmin);
              });
        }
      };
      auto writeEM = [&] {
        if (!options.emFile.empty()) {
          emCount = copyRecords<kraDB::kraDBEMNode>(
              options.emFile, "EM", kra2db::parseEMLine, [&](const kraDB::kraDBEMNode& r) {
                db.addEM(r.name, r.rms, r.avg, r.peak, r.tpeak, r.avgPos, r.term1, r.term2);
              });
        }
      };
      if (options.emFirst) {
        writeEM();
        writeIR();
      } else {
        writeIR();
        writeEM();
      }
      db.closeFile();
      if (db.failed()) {
        throw std::runtime_error("writing '" + options.output + "' failed");
      }
    } catch (...) {
      db.closeFile();
      std::remove(options.output.c_str());
      throw;
    }
  } catch (const std::exception& error) {
    fail(error.what());
  }
  if (!options.quiet) {
    std::fprintf(stderr, "kra2db: wrote %s: %lld IR and %lld EM records\n", options.output.c_str(),
                 static_cast<long long>(irCount), static_cast<long long>(emCount));
  }
  return 0;
}

/// Prints the header part of a dump; returns the open database for the records.
void printHeader(const std::string& path, kraDB::kraDBFile& db, std::string& out) {
  kraDB::HeaderParameters params;
  kraDB::readDBParameters(path, params);
  for (const auto& [key, value] : params) {
    out += "parameter\t" + key + "\t" + value + "\n";
  }
  out += "version\t";
  kra2db::appendReal(out, static_cast<double>(db.getVersion()));
  out += "\ntemperature\t";
  kra2db::appendReal(out, db.getTemperature());
  out += "\nstartTime\t";
  kra2db::appendReal(out, db.getStartTime());
  out += "\nstopTime\t";
  kra2db::appendReal(out, db.getStopTime());
  out += "\n";
  for (auto type : {kraDB::eIR, kraDB::eEM}) {
    out += type == kraDB::eIR ? "block\tIR\t" : "block\tEM\t";
    out += std::to_string(db.getBlockOffset(type)) + "\t" +
           std::to_string(db.getRecordCount(type)) + "\n";
  }
}

void flush(std::string& out) {
  if (std::fwrite(out.data(), 1, out.size(), stdout) != out.size()) {
    fail("cannot write to standard output");
  }
  out.clear();
}

int runDump(const std::string& path, bool withRecords) {
  try {
    kraDB::kraDBFile db(path);
    std::string out;
    printHeader(path, db, out);
    if (withRecords) {
      int64_t counts[2] = {0, 0};
      IRRecord ir;
      while (db.readNextIR(ir)) {
        kra2db::appendIRLine(out, ir);
        ++counts[kraDB::eIR];
        if (out.size() > (1 << 16)) {
          flush(out);
        }
      }
      kraDB::kraDBEMNode em;
      while (db.readNextEM(em)) {
        kra2db::appendEMLine(out, em);
        ++counts[kraDB::eEM];
        if (out.size() > (1 << 16)) {
          flush(out);
        }
      }
      flush(out);
      for (auto type : {kraDB::eIR, kraDB::eEM}) {
        if (counts[type] < db.getRecordCount(type)) {
          std::fprintf(stderr,
                       "kra2db: warning: %s block of %s claims %lld records, the file holds "
                       "%lld\n",
                       type == kraDB::eIR ? "IR" : "EM", path.c_str(),
                       static_cast<long long>(db.getRecordCount(type)),
                       static_cast<long long>(counts[type]));
        }
      }
    }
    flush(out);
    if (std::fflush(stdout) != 0) {
      fail("cannot write to standard output");
    }
  } catch (const std::exception& error) {
    std::string text = error.what();
    while (!text.empty() && text.back() == '\n') {
      text.pop_back();
    }
    fail(text);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"kra2db: write EMIR databases from text record files and print their contents."};
  app.require_subcommand(1);

  WriteOptions write;
  CLI::App* writeCmd = app.add_subcommand(
      "write", "Write a database from IR and EM record files (IR block first by default).");
  writeCmd->add_option("OUT.db", write.output, "database file to create")->required();
  writeCmd->add_option("--ir", write.irFile, "IR record file");
  writeCmd->add_option("--em", write.emFile, "EM record file");
  writeCmd->add_option("-t,--temperature", write.temperature, "temperature (default 110)");
  writeCmd->add_option("--start", write.start, "start time in seconds (default 0)");
  writeCmd->add_option("--stop", write.stop, "stop time in seconds (default 1e-7)");
  writeCmd->add_option("--version", write.version,
                       "format version written to the header, 4.9 or later (default 5)");
  writeCmd->add_flag("--em-first", write.emFirst, "write the EM block before the IR block");
  writeCmd->add_flag("-q,--quiet", write.quiet, "no summary on standard error");
  writeCmd
      ->add_option("--key-length", write.keyLength,
                   "fixed block keys of N bytes (byte i is (37 i + 11) mod 256) instead of "
                   "random ones, for files that come out the same on every run")
      ->check(CLI::Range(0, 1 << 20));
  writeCmd->footer(kRecordLayouts);

  std::string dumpPath;
  CLI::App* dumpCmd = app.add_subcommand(
      "dump", "Print the header, the conditions and every record as tab-separated text.");
  dumpCmd->add_option("DB", dumpPath, "database file")->required();
  dumpCmd->footer(kRecordLayouts);

  std::string infoPath;
  CLI::App* infoCmd =
      app.add_subcommand("info", "Print the header, the conditions and the block pointer table.");
  infoCmd->add_option("DB", infoPath, "database file")->required();

  app.footer(kRecordLayouts);
  CLI11_PARSE(app, argc, argv);

  if (writeCmd->parsed()) {
    return runWrite(write);
  }
  if (dumpCmd->parsed()) {
    return runDump(dumpPath, true);
  }
  return runDump(infoPath, false);
}
