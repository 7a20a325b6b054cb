// The table of fuzz targets, the targets that exercise one parser each, and the shared pieces.
// The targets that drive a whole session are in sessionTargets.cpp.

#include "fuzzTargets.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "analysis/netlist.h"
#include "db/dbFile.h"
#include "db/dbListings.h"
#include "db/emRecordTable.h"
#include "db/headerParameters.h"
#include "pgnet/emRelation.h"
#include "pgnet/network.h"
#include "simdata/psfFile.h"

namespace fuzzing {
namespace {

/// An output stream that drops everything.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

/// A C stream that drops everything, closed when it goes out of scope.
struct NullFile {
  std::FILE* file = std::fopen("/dev/null", "w");
  ~NullFile() { std::fclose(file); }
};

// The PSF ASCII parser (HEADER, TYPE, SWEEP, TRACE and VALUE sections).
void fuzzPsfFile(std::string_view input) {
  simdata::psf::PsfData parsed;
  std::string error;
  if (!simdata::psf::parsePsf(input, "input.psf", parsed, error)) {
    expect(error.starts_with("input.psf: line "), "a PSF error names the file and line");
  } else if (parsed.swept) {
    for (const simdata::psf::Quantity& quantity : parsed.quantities) {
      expect(parsed.columns.at(quantity.column).size() == parsed.sweepValues.size(),
             "every column of a swept file has one value per sweep point");
    }
  }
  simdata::psf::startsLikePsfAscii(input);
}

// The instance netlist loaders under every line grammar, and the result writer over whatever
// they kept. The first byte chooses the grammar settings and the loader.
void fuzzNetlist(std::string_view input) {
  if (input.empty()) {
    return;
  }
  const uint8_t options = static_cast<uint8_t>(input[0]);
  input.remove_prefix(1);
  std::FILE* file = input.empty() ? std::fopen("/dev/null", "r")
                                  : fmemopen(const_cast<char*>(input.data()), input.size(), "r");
  zeNetlist netlist;
  netlist.hasRecoveryFactor = (options & 1) != 0;
  netlist.hasExtendedFields = (options & 2) != 0;
  netlist.valueColumn = (options & 4) != 0 ? 4.0f : 0.0f;
  netlist.keepBackslashNames = (options & 8) != 0;
  const char* name = (options & 32) != 0 ? nullptr : "fuzz.net";
  const int result = (options & 16) != 0 ? netlist.loadNetlistPeakCurrents(file, name)
                                         : netlist.loadNetlist(file, name);
  expect((result == 0 || result == 1) && netlist.loaded == (result == 0),
         "a netlist loads whole or reports a format error");
  std::fclose(file);
  netlist.saveResults(NullFile().file);
}

// The EMIR database reader (header text, pointer table, block keys, scrambled records) and the
// probes that look at a file before it is opened. The reader works on paths.
void fuzzDatabase(std::string_view input) {
  const std::string path = (scratchDir() / "input.db").string();
  writeFile(path, input);
  kraDB::HeaderParameters params;
  kraDB::readDBParameters(path, params);
  kraDB::versionOf(params);
  kraDB::taggedArchitecture(params);
  kraDB::guessLegacyArchitecture(path);
  const NullFile sink;
  size_t records = 0;
  try {
    kraDB::kraDBFile db(path);
    if (input.size() % 2 == 0) {
      // The listing reads every IR record; the EM block is read after it, as callers do.
      kraDB::writeIRListing(db, sink.file);
      for (auto record = db.getNextEM(); record; record = db.getNextEM(), ++records) {
        std::fprintf(sink.file, "%s %g %lld\n", record->name.c_str(), record->peak,
                     static_cast<long long>(record->term1));
      }
      db.getNextIR();
    } else {
      // EM first: the blocks may lie in either order and overlap in a hostile file.
      for (; db.getNextEM(); ++records) {
      }
      for (; db.getNextIR(); ++records) {
      }
    }
  } catch (const std::exception&) {
  }
  expect(records <= input.size(), "every record is made of bytes of the file");
}

// The tag-text parser of the database header and the splitter under it.
void fuzzHeaderParameters(std::string_view input) {
  kraDB::HeaderParameters params;
  if (kraDB::readHeaderParameters(input, params)) {
    kraDB::versionOf(params);
    kraDB::taggedArchitecture(params);
  }
  kraDB::splitAtAny(input, "<>;");
}

// The length-data and PG-data readers with the work that follows each: the length calculation
// and its output, or the segment search and filters. The first byte chooses kind and flags.
void fuzzNetworkData(uint8_t options, std::istream& in) {
  NullBuffer nullBuffer;
  std::ostream sink(&nullBuffer);
  zeNetwork network(0.001, false);
  network.debugOut = &sink;
  network.setLayerStack({"V1", "M2", "M1", "V2", "M3", "M2"});
  network.evalCurrentDirection = (options & 2) != 0;
  network.evalTotalSum = (options & 4) != 0;
  const bool lengths = (options & 1) == 0;
  const bool read = lengths ? network.readLengthData(in) : network.readPGData(in);
  if (read && lengths) {
    network.writeLengthData(sink);
  } else if (read) {
    network.findMetalSegments();
    network.filterSegmentsByPhysicalProperties();
    network.dump(sink);
    network.writePGData(sink);
  }
  expect(read || network.errorMessage.starts_with("Error in calculating length data.\n"),
         "a network data error says what failed");
}

/// A few records whose names and node numbers the fuzzer can meet with short words.
const kraDB::EMRecordTable& dbNetworkRecords() {
  static const std::unique_ptr<kraDB::EMRecordTable> table = [] {
    auto built = std::make_unique<kraDB::EMRecordTable>();
    int64_t term = 0;
    for (const char* name : {"R1", "R2", "x.R1.a", "top.R3", "a.b.c", "R1.p", "", "n"}) {
      kraDB::kraDBEMNode node;
      node.name = name;
      node.avg = term % 3 == 0 ? -1e-3 : 2e-3;
      node.avgPos = 1e-3;
      node.peak = 3e-3;
      node.term1 = term;
      node.term2 = term % 2 == 0 ? term + 1 : -1;
      built->add(node);
      ++term;
    }
    built->finish();
    return built;
  }();
  return *table;
}

// The database-side network of the EM command: loading, attaching EM records by name, prefix,
// substring and dotted part, net mapping and current directions, and the listing. The first
// byte chooses the columns (bit 0), directions (bit 1) and the prefixes (bits 2, 3).
void fuzzDbNetwork(uint8_t options, std::istream& in) {
  kraDBNetwork network;
  network.loadData(in,
                   (options & 1) != 0 ? DBNetworkColumns::kWithNets : DBNetworkColumns::kNamesOnly);
  const std::string hierarchy =
      pgnet::normaliseHierarchyPrefix((options & 4) != 0 ? "/top/" : "##nil##");
  const std::string resistor = pgnet::normaliseResistorPrefix((options & 8) != 0 ? "p" : "");
  const std::vector<uint32_t> order = network.sortedByName();
  network.attachRecords(dbNetworkRecords(), hierarchy, resistor, order);
  if ((options & 2) != 0) {
    network.evalCurrDir();
  }
  const NullFile sink;
  pgnet::writeEMListing(network, order, sink.file, sink.file);
}

void nothing() {}

/// A target whose first input byte chooses its options, run on the rest as a stream.
template <void (*target)(uint8_t, std::istream&)>
void withOptions(std::string_view input) {
  if (!input.empty()) {
    std::istringstream in(std::string(input.substr(1)));
    target(static_cast<uint8_t>(input[0]), in);
  }
}

const FuzzTarget kTargets[] = {
    {"command_file", initialiseSession, fuzzCommandFile},
    {"raw_file", initialiseSession, fuzzRawFile},
    {"psf_file", nothing, fuzzPsfFile},
    {"netlist", silenceStdout, fuzzNetlist},
    {"database", nothing, fuzzDatabase},
    {"header_parameters", nothing, fuzzHeaderParameters},
    {"network_data", nothing, withOptions<fuzzNetworkData>},
    {"db_network", nothing, withOptions<fuzzDbNetwork>},
};

}  // namespace

const FuzzTarget* findTarget(std::string_view name) {
  for (const FuzzTarget& target : kTargets) {
    if (target.name == name) {
      return &target;
    }
  }
  return nullptr;
}

const std::filesystem::path& scratchDir() {
  // Never destroyed: the exit handler that removes the folder runs after static destructors.
  static const std::filesystem::path* const dir = [] {
    std::string pattern = (std::filesystem::temp_directory_path() / "kra2-fuzz-XXXXXX").string();
    expect(mkdtemp(pattern.data()) != nullptr, "a scratch folder can be made");
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(*dir, ignored);
    });
    return new std::filesystem::path(pattern);
  }();
  return *dir;
}

void writeFile(const std::filesystem::path& path, std::string_view bytes) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  // An empty input may come without a buffer, which fwrite must not be given.
  expect(file != nullptr &&
             (bytes.empty() || std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size()),
         "scratch files can be written");
  std::fclose(file);
}

void silenceStdout() {
  expect(std::freopen("/dev/null", "w", stdout) != nullptr, "a silent stdout");
}

void expect(bool holds, const char* property) {
  if (!holds) {
    std::fprintf(stderr, "property broken: %s\n", property);
    std::abort();
  }
}

}  // namespace fuzzing
