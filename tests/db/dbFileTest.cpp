#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "db/dbFile.h"
#include "db/headerParameters.h"
#include "db/oldDbFile.h"
#include "support/testFiles.h"

namespace {

using kraDB::Encryptor;
using kraDB::kraDBFile;
using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

const std::string kStandard =
    "<><><>;<architecture>64<\\architecture>;<version>5<\\version>;<\\><\\><\\>;\n";

std::string bytesOf(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) {
    out.push_back(static_cast<char>(v));
  }
  return out;
}

std::string le64(uint64_t value) {
  std::string out;
  for (int i = 0; i < 8; ++i) {
    out.push_back(static_cast<char>(value >> (8 * i)));
  }
  return out;
}
std::string f64(double value) { return le64(std::bit_cast<uint64_t>(value)); }
std::string le32(uint32_t value) { return le64(value).substr(0, 4); }

/// The plain (unscrambled) bytes of an IR record.
std::string plainIR(const std::string& name, const std::vector<double>& values) {
  std::string out = le64(name.size()) + name;
  for (double v : values) {
    out += f64(v);
  }
  return out;
}

/// A record block made by hand: key length, key, then `plain` scrambled with that key.
std::string block(const std::vector<uint8_t>& key, const std::string& plain) {
  std::vector<uint8_t> bytes(plain.begin(), plain.end());
  Encryptor(key).encrypt(bytes.data(), bytes.size());
  return le32(static_cast<uint32_t>(key.size())) + std::string(key.begin(), key.end()) +
         std::string(bytes.begin(), bytes.end());
}

/// A whole database made by hand around the given blocks and pointer table.
std::string database(int64_t irOffset, int64_t irCount, int64_t emOffset, int64_t emCount,
                     const std::string& blocks, const std::string& header = kStandard) {
  std::string bytes = header;
  bytes.resize(1024, '\0');
  bytes += std::string(48, ' ') + f64(25.0) + f64(1e-9) + f64(2e-6);
  bytes += le64(irOffset) + le64(irCount) + le64(emOffset) + le64(emCount);
  return bytes + blocks;
}

std::vector<IRRecord> readAllIR(kraDBFile& db) {
  std::vector<IRRecord> records;
  while (auto record = db.getNextIR()) {
    records.push_back(*record);
  }
  return records;
}

std::vector<kraDB::kraDBEMNode> readAllEM(kraDBFile& db) {
  std::vector<kraDB::kraDBEMNode> records;
  while (auto record = db.getNextEM()) {
    records.push_back(*record);
  }
  return records;
}

/// A record as text with every number as its bits, so that NaN payloads and signed zeros
/// compare too, and the fields not stored in the file with their start values.
std::string bitsOf(double value) {
  char text[20];
  std::snprintf(text, sizeof text, " %016llx",
                static_cast<unsigned long long>(std::bit_cast<uint64_t>(value)));
  return text;
}
std::string dump(const IRRecord& r) {
  return r.name + "|" + bitsOf(r.rms) + bitsOf(r.avg) + bitsOf(r.peak) + bitsOf(r.tpeak) +
         bitsOf(r.min) + bitsOf(r.tmin) + " " + std::to_string(r.reserved);
}
std::string dump(const kraDB::kraDBEMNode& r) {
  return r.name + "|" + bitsOf(r.rms) + bitsOf(r.avg) + bitsOf(r.peak) + bitsOf(r.tpeak) +
         bitsOf(r.avgPos) + bitsOf(r.avgNeg) + " " + std::to_string(r.term1) + " " +
         std::to_string(r.term2) + " " + std::to_string(r.index) + " " + std::to_string(r.aux1) +
         " " + std::to_string(r.aux2) + " " + std::to_string(r.aux3);
}

std::string errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(no error)";
}

TEST(DbFile, SmallFileMatchesTheLayoutByteByByte) {
  ScratchDir dir;
  const std::string path = dir.file("small.db");
  {
    kraDBFile db(path, 25.0, 0.0, 1.0, 5.0f, Encryptor({0x11, 0x22, 0x33}), Encryptor({0x05}));
    db.addIR("A", 0.0, 1.0, 2.0, 0.0, -2.0, 0.5);
    db.addEM("", 0.0, 0.0, 0.0, 0.0, 0.0, 1, -1);
  }
  std::string expected = kStandard;
  expected.resize(1024, '\0');
  expected += std::string(kraDB::noticeField().data(), 48);
  expected += bytesOf({0, 0, 0, 0, 0, 0, 0x39, 0x40});  // temperature 25.0
  expected += bytesOf({0, 0, 0, 0, 0, 0, 0, 0});        // start 0.0
  expected += bytesOf({0, 0, 0, 0, 0, 0, 0xf0, 0x3f});  // stop 1.0
  expected += bytesOf({0x68, 0x04, 0, 0, 0, 0, 0, 0});  // IR block at 1128
  expected += bytesOf({1, 0, 0, 0, 0, 0, 0, 0});        // 1 IR record
  expected += bytesOf({0xa8, 0x04, 0, 0, 0, 0, 0, 0});  // EM block at 1192
  expected += bytesOf({1, 0, 0, 0, 0, 0, 0, 0});        // 1 EM record
  // IR block: key {11 22 33}, so the key bytes run 22 33 11 22 ... The chain c is the XOR of
  // the plain bytes so far and each byte is written as k ^ c (worked out by hand).
  expected += bytesOf({3, 0, 0, 0, 0x11, 0x22, 0x33});
  expected += bytesOf({0x23, 0x32, 0x10, 0x23, 0x32, 0x10, 0x23, 0x32});  // length 1, c=01
  expected += bytesOf({0x51});                                            // 'A', c=40
  expected += bytesOf({0x62, 0x73, 0x51, 0x62, 0x73, 0x51, 0x62, 0x73});  // rms 0
  expected += bytesOf({0x51, 0x62, 0x73, 0x51, 0x62, 0x73, 0xa1, 0xad});  // avg 1.0, c=8f
  expected += bytesOf({0xbc, 0x9e, 0xad, 0xbc, 0x9e, 0xad, 0xbc, 0xde});  // peak 2.0, c=cf
  expected += bytesOf({0xed, 0xfc, 0xde, 0xed, 0xfc, 0xde, 0xed, 0xfc});  // tpeak 0
  expected += bytesOf({0xde, 0xed, 0xfc, 0xde, 0xed, 0xfc, 0xde, 0x2d});  // min -2.0, c=0f
  expected += bytesOf({0x3c, 0x1e, 0x2d, 0x3c, 0x1e, 0x2d, 0xdc, 0xc1});  // tmin 0.5, c=d0
  // EM block: a one-byte key is used for every byte (K[0] at each wrap).
  expected += bytesOf({1, 0, 0, 0, 0x05});
  expected += std::string(48, '\x05');                                    // length 0, 5 zeros
  expected += bytesOf({0x04, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04, 0x04});  // term1 1, c=01
  expected += bytesOf({0xfb, 0x04, 0xfb, 0x04, 0xfb, 0x04, 0xfb, 0x04});  // term2 -1
  ASSERT_EQ(expected.size(), 1261u);
  const std::string actual = readFile(path);
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(static_cast<uint8_t>(actual[i]), static_cast<uint8_t>(expected[i])) << "byte " << i;
  }
}

TEST(DbFile, RecordsRoundTripBitExactInEitherBlockOrder) {
  ScratchDir dir;
  std::mt19937_64 random(3);
  using limits = std::numeric_limits<double>;
  const double specials[] = {0.0,
                             -0.0,
                             limits::infinity(),
                             -limits::infinity(),
                             limits::quiet_NaN(),
                             limits::denorm_min(),
                             limits::max(),
                             1e-300};
  std::vector<IRRecord> irs;
  std::vector<kraDB::kraDBEMNode> ems;
  for (size_t length : {0, 1, 7, 255, 256, 257, 300, 513, 20}) {
    IRRecord ir;
    kraDB::kraDBEMNode em;
    for (size_t i = 0; i < length; ++i) {
      ir.name.push_back(static_cast<char>(random()));  // any byte, zero included
      em.name.push_back(static_cast<char>('a' + i % 26));
    }
    double* irFields[] = {&ir.rms, &ir.avg, &ir.peak, &ir.tpeak, &ir.min, &ir.tmin};
    double* emFields[] = {&em.rms, &em.avg, &em.peak, &em.tpeak, &em.avgPos};
    for (size_t f = 0; f < 6; ++f) {
      *irFields[f] = (length + f) % 3 == 0 ? specials[(length + f) % 8]
                                           : std::bit_cast<double>(random() & ~(1ull << 62));
    }
    for (size_t f = 0; f < 5; ++f) {
      *emFields[f] = specials[(length * 5 + f) % 8];
    }
    em.term1 = static_cast<int64_t>(random());
    em.term2 = length % 2 == 0 ? std::numeric_limits<int64_t>::min() : -1;
    irs.push_back(ir);
    ems.push_back(em);
  }
  for (bool emFirst : {false, true}) {
    SCOPED_TRACE(emFirst ? "EM block first" : "IR block first");
    const std::string path = dir.file("round.db");
    {
      kraDBFile db(path, 85.5, -1e-9, 3e-6, 5.0f);
      for (bool writeEM : {emFirst, !emFirst}) {
        for (size_t k = 0; k < irs.size(); ++k) {
          const IRRecord& r = irs[k];
          const kraDB::kraDBEMNode& e = ems[k];
          if (writeEM) {
            db.addEM(e.name, e.rms, e.avg, e.peak, e.tpeak, e.avgPos, e.term1, e.term2);
          } else {
            db.addIR(r.name, r.rms, r.avg, r.peak, r.tpeak, r.min, r.tmin);
          }
        }
      }
      db.closeFile();
      EXPECT_FALSE(db.failed());
    }
    kraDBFile db(path);
    EXPECT_EQ(db.getVersion(), 5.0f);
    EXPECT_EQ(db.getTemperature(), 85.5);
    EXPECT_EQ(db.getStartTime(), -1e-9);
    EXPECT_EQ(db.getStopTime(), 3e-6);
    EXPECT_EQ(db.getRecordCount(kraDB::eIR), 9);
    EXPECT_EQ(db.getRecordCount(kraDB::eEM), 9);
    EXPECT_EQ(db.getBlockOffset(emFirst ? kraDB::eEM : kraDB::eIR), kraDB::kFirstBlockOffset);
    // Reading EM before IR works too: each block is found through the pointer table.
    const auto gotEM = readAllEM(db);
    const auto gotIR = readAllIR(db);
    ASSERT_EQ(gotIR.size(), irs.size());
    ASSERT_EQ(gotEM.size(), ems.size());
    for (size_t i = 0; i < irs.size(); ++i) {
      SCOPED_TRACE(i);
      EXPECT_EQ(dump(gotIR[i]), dump(irs[i]));
      EXPECT_EQ(dump(gotEM[i]), dump(ems[i]));
    }
    // Null stays null.
    EXPECT_EQ(db.getNextIR(), nullptr);
    EXPECT_EQ(db.getNextEM(), nullptr);
  }
}

TEST(DbFile, LongNameIsOneLengthAndItsBytesWhateverTheChunks) {
  ScratchDir dir;
  const std::string path = dir.file("long.db");
  const std::vector<uint8_t> key(100, 0x3c);
  const std::string name(300, 'n');
  {
    kraDBFile db(path, 25.0, 0.0, 1.0, 5.0f, Encryptor(key), Encryptor({1}));
    db.addIR(name, 1, 2, 3, 4, 5, 6);
    db.addEM("r", 1, 2, 3, 4, 5, 6, 7);
  }
  kraDBFile db(path);
  EXPECT_EQ(db.getBlockOffset(kraDB::eEM) - db.getBlockOffset(kraDB::eIR), 4 + 100 + 8 + 300 + 48);
  // The block equals the hand-made one: chunking through 256 bytes is not visible.
  const std::string bytes = readFile(path);
  EXPECT_EQ(bytes.substr(1128, 460), block(key, plainIR(name, {1, 2, 3, 4, 5, 6})));
  auto record = db.getNextIR();
  ASSERT_NE(record, nullptr);
  EXPECT_EQ(record->name, name);
  EXPECT_EQ(record->tmin, 6.0);
}

TEST(DbFile, EmptyBlocksKeepAZeroPointerTable) {
  ScratchDir dir;
  const std::string path = dir.file("empty.db");
  { kraDBFile db(path, 25.0, 0.0, 1.0, 5.0f); }
  const std::string bytes = readFile(path);
  ASSERT_EQ(bytes.size(), 1128u);
  EXPECT_EQ(bytes.substr(1096), std::string(32, '\0'));
  kraDBFile db(path);
  EXPECT_EQ(db.getNextIR(), nullptr);
  EXPECT_EQ(db.getNextEM(), nullptr);
}

TEST(DbFile, ReaderDefaultsCoverMissingConditions) {
  ScratchDir dir;
  std::string header = kStandard;
  header.resize(1024, '\0');
  const struct {
    const char* label;
    std::string bytes;
    double temperature, start, stop;
  } cases[] = {
      {"header only", header, 110.0, 0.0, 1e-7},
      {"temperature only", header + std::string(48, ' ') + f64(25.0), 25.0, 0.0, 1e-7},
      {"all conditions", header + std::string(48, ' ') + f64(25.0) + f64(-1.0) + f64(-2.0), 25.0,
       -1.0, -2.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    writeFile(dir.file("db"), c.bytes);
    kraDBFile db(dir.file("db"));
    EXPECT_EQ(db.getTemperature(), c.temperature);
    EXPECT_EQ(db.getStartTime(), c.start);
    EXPECT_EQ(db.getStopTime(), c.stop);
    EXPECT_EQ(db.getNextIR(), nullptr);
    EXPECT_EQ(db.getNextEM(), nullptr);
  }
}

TEST(DbFile, OpeningErrorsCarryTheirTexts) {
  ScratchDir dir;
  /// The error texts by kind, for the file's path.
  enum Kind { kOpen, kNotDatabase, kLegacy };
  const auto text = [](Kind kind, const std::string& path) -> std::string {
    if (kind == kLegacy) {
      return kraDB::legacyReadError(path);
    }
    return kind == kOpen ? "Error in opening EMIR database file '" + path + "'\n"
                         : "The file '" + path + "'is not a  EMIR database file.\n";
  };
  // Missing, short, tag-less and legacy files, a legacy version and a 32-bit producer are
  // checked end to end (db_ir_messages, kra2db_*); these are the ones they do not reach.
  const struct {
    const char* name;
    std::string bytes;
    Kind kind;
  } cases[] = {
      {"no zero in the header", kStandard + std::string(1124 - kStandard.size(), 'x'),
       kNotDatabase},
      {"tag-less legacy of a 32-bit producer", std::string(48, 'x') + std::string(77, '*') + "\n",
       kLegacy},
      {"empty", "", kNotDatabase},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = dir.file(c.name);
    writeFile(path, c.bytes);
    EXPECT_EQ(errorOf([&] { kraDBFile db(path); }), text(c.kind, path));
  }
  EXPECT_EQ(errorOf([&] { kraDBFile db(dir.path().string()); }), text(kOpen, dir.path().string()));
  const std::string unwritable = dir.file("no/such/dir/out.db");
  EXPECT_EQ(errorOf([&] { kraDBFile db(unwritable, 25, 0, 1, 5.0f); }),
            "Error in opening EMIR database file '" + unwritable + "'\n");
}

/// The record the format defines when only the first `available` plain bytes of `plain` are
/// in the file: the name stops at the end of the file, missing bytes of numbers are zero.
IRRecord expectedCut(const std::string& plain, size_t available) {
  std::string present = plain.substr(0, available);
  IRRecord record;
  std::string lengthBytes = present.substr(0, 8);
  lengthBytes.resize(8, '\0');
  uint64_t length = 0;
  std::memcpy(&length, lengthBytes.data(), 8);
  if (present.size() > 8) {
    record.name = present.substr(8, length);
  }
  std::string tail = present.size() > 8 + length ? present.substr(8 + length) : std::string();
  tail.resize(48, '\0');
  double* fields[] = {&record.rms,   &record.avg, &record.peak,
                      &record.tpeak, &record.min, &record.tmin};
  for (size_t i = 0; i < 6; ++i) {
    std::memcpy(fields[i], tail.data() + 8 * i, 8);
  }
  return record;
}

TEST(DbFile, FileCutInsideTheLastRecordGivesAPartialRecordAndNoMore) {
  ScratchDir dir;
  const std::vector<double> last = {1.5, -2.25, 1.0000000000000002, 3e-9, -7.0, 4e-12};
  const std::string lastPlain = plainIR("node_3", last);
  const std::string full = dir.file("full.db");
  {
    kraDBFile db(full, 25.0, 0.0, 1.0, 5.0f);
    db.addIR("node_1", 1, 2, 3, 4, 5, 6);
    db.addIR("node_2", 7, 8, 9, 10, 11, 12);
    db.addIR("node_3", last[0], last[1], last[2], last[3], last[4], last[5]);
  }
  const std::string bytes = readFile(full);
  {
    kraDBFile db(full);
    EXPECT_EQ(readAllIR(db).size(), 3u);
    EXPECT_EQ(db.damage(), "");
  }
  const std::string lastStart = std::to_string(bytes.size() - lastPlain.size());
  for (size_t cut = 1; cut <= lastPlain.size(); ++cut) {
    SCOPED_TRACE("cut " + std::to_string(cut));
    writeFile(dir.file("cut.db"), bytes.substr(0, bytes.size() - cut));
    kraDBFile db(dir.file("cut.db"));
    EXPECT_EQ(db.getRecordCount(kraDB::eIR), 3);  // the table still claims three
    const auto records = readAllIR(db);
    const size_t available = lastPlain.size() - cut;
    ASSERT_EQ(records.size(), available == 0 ? 2u : 3u);
    EXPECT_EQ(records[1].name, "node_2");
    EXPECT_EQ(records[1].tmin, 12.0);
    if (available > 0) {
      EXPECT_EQ(dump(records[2]), dump(expectedCut(lastPlain, available)));
    }
    EXPECT_EQ(db.getNextIR(), nullptr);
    EXPECT_EQ(db.damage(),
              "The file '" + dir.file("cut.db") + "' is damaged: " +
                  (available == 0
                       ? std::string("it ends after 2 of the 3 IR records its block table claims")
                       : "it ends inside IR record 3 of 3 (which starts at byte offset " +
                             lastStart + ")") +
                  ".\n");
  }
}

TEST(DbFile, DamagedTablesAndLengthsNeverMakeRecordsFromNothing) {
  ScratchDir dir;
  const std::vector<uint8_t> key = {9, 8, 7, 6, 5};
  const std::string two = plainIR("a", {1, 2, 3, 4, 5, 6}) + plainIR("b", {7, 8, 9, 10, 11, 12});
  const int64_t first = kraDB::kFirstBlockOffset;
  /// A record whose name length is `length` followed by the given plain tail.
  auto withLength = [](int64_t length, const std::string& rest) {
    return le64(static_cast<uint64_t>(length)) + rest;
  };
  struct Damage {
    const char* label;
    std::string bytes;
    std::vector<std::string> names;
    double firstTmin;    // tmin of the first record read, when there is one
    std::string damage;  // what damage() says after the text "...' is damaged: "
  };
  const std::string sixNumbers = f64(1) + f64(2) + f64(3) + f64(4) + f64(5) + f64(6);
  const Damage cases[] = {
      Damage("table claims more records", database(first, 1000, 0, 0, block(key, two)), {"a", "b"},
             6, "it ends after 2 of the 1000 IR records its block table claims"),
      Damage("negative count", database(first, -3, 0, 0, block(key, two)), {}, 0,
             "its block table claims -3 IR records"),
      // 1128 bytes of header and table, then a block of 4 + 5 key bytes and two records of 57.
      Damage("offset at the end", database(first + 50, 2, 0, 0, block(key, two).substr(0, 50)), {},
             0, "its IR block starts at byte offset 1178, outside the file (1178 bytes)"),
      Damage("negative offset", database(-8, 2, 0, 0, block(key, two)), {}, 0,
             "its IR block starts at byte offset -8, outside the file (1251 bytes)"),
      // "<><>" read as a little-endian length is 0x3e3c3e3c.
      Damage("offset 0 reads the header as a key", database(0, 2, 0, 0, block(key, two)), {}, 0,
             "it ends inside the key of its IR block (1044135484 key bytes claimed at byte offset "
             "0)"),
      Damage("negative name length",
             database(first, 1, 0, 0, block(key, withLength(-5, sixNumbers))), {""}, 6,
             "a text length of -5 in IR record 1 (at byte offset 1137)"),
      Damage("largest name length",
             database(first, 5, 0, 0,
                      block(key, withLength(std::numeric_limits<int64_t>::max(), "xyz"))),
             {"xyz"}, 0, "it ends inside IR record 1 of 5 (which starts at byte offset 1137)")};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    writeFile(dir.file("bad.db"), c.bytes);
    kraDBFile db(dir.file("bad.db"));
    const auto records = readAllIR(db);
    std::vector<std::string> names;
    for (const auto& r : records) {
      names.push_back(r.name);
    }
    EXPECT_EQ(names, c.names);
    if (!records.empty()) {
      EXPECT_EQ(records[0].tmin, c.firstTmin);
    }
    EXPECT_EQ(db.getNextIR(), nullptr);
    EXPECT_EQ(db.getNextEM(), nullptr);
    EXPECT_EQ(db.damage(), "The file '" + dir.file("bad.db") + "' is damaged: " + c.damage + ".\n");
  }
}

}  // namespace
