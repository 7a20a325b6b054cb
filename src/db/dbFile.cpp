#include "db/dbFile.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "db/headerParameters.h"
#include "db/oldDbFile.h"

namespace kraDB {

namespace {

/// Text is scrambled and unscrambled through a buffer of this size.
constexpr size_t kStringChunk = 256;
/// The fixed part of a record after its name: six f64 (IR), or five f64 and two int64 (EM).
constexpr size_t kRecordTail = 48;
constexpr size_t kEMRecordTail = 56;

double doubleAt(const uint8_t* bytes) { return std::bit_cast<double>(loadLE64(bytes)); }
int64_t int64At(const uint8_t* bytes) { return static_cast<int64_t>(loadLE64(bytes)); }

/// The statistics both record kinds' fixed parts start with.
void statisticsAt(const uint8_t* bytes, RecordStatistics& out) {
  out.rms = doubleAt(bytes);
  out.avg = doubleAt(bytes + 8);
  out.peak = doubleAt(bytes + 16);
  out.tpeak = doubleAt(bytes + 24);
}
void putDouble(double value, uint8_t* out) { storeLE64(std::bit_cast<uint64_t>(value), out); }
void putInt64(int64_t value, uint8_t* out) { storeLE64(static_cast<uint64_t>(value), out); }

}  // namespace

std::string formatHeaderText(float version) {
  std::ostringstream text;
  text << "<><><>;<architecture>" << 64 << "<\\architecture>;<version>"
       << static_cast<double>(version) << "<\\version>;<\\><\\><\\>;\n";
  return text.str();
}

const std::array<char, kNoticeSize>& noticeField() {
  static const std::array<char, kNoticeSize> notice = [] {
    static constexpr char kText[] = " Copyright (c) 2025 kra2 EMIR/IR database writer";
    static_assert(sizeof kText - 1 == kNoticeSize, "the notice field is 48 bytes");
    std::array<char, kNoticeSize> bytes{};
    std::memcpy(bytes.data(), kText, kNoticeSize);
    return bytes;
  }();
  return notice;
}

std::string openError(const std::string& path) {
  return "Error in opening EMIR database file '" + path + "'\n";
}

std::string notDatabaseError(const std::string& path) {
  // The wording, without a blank after the quote and with two after "a", is kept as users
  // and scripts know it.
  return "The file '" + path + "'is not a  EMIR database file.\n";
}

kraDBFile::kraDBFile(const std::string& path, double temperature, double startTime, double stopTime,
                     float version)
    : version_(version), temperature_(temperature), startTime_(startTime), stopTime_(stopTime) {
  if (isLegacyVersion(version_)) {
    kraOldDbFile{path, temperature, startTime, stopTime};
  }
  openWRFile(path);
  printHeader();
  printBlockPointer(nullptr, nullptr);
}

kraDBFile::kraDBFile(const std::string& path, double temperature, double startTime, double stopTime,
                     float version, Encryptor irKey, Encryptor emKey)
    : version_(version), temperature_(temperature), startTime_(startTime), stopTime_(stopTime) {
  if (isLegacyVersion(version_)) {
    kraOldDbFile{path, temperature, startTime, stopTime};
  }
  openWRFile(path);
  printHeader();
  printBlockPointer(&irKey, &emKey);
}

kraDBFile::kraDBFile(const std::string& path) : path_(path) {
  version_ = dbGetVersion(path);
  if (isLegacyVersion(version_)) {
    kraOldDbFile{path, version_};
  }
  openRDFile(path);
  readHeader(path);
  readBlockPointer();
}

kraDBFile::~kraDBFile() { closeFile(); }

void kraDBFile::openWRFile(const std::string& path) {
  if (!out_.open(path)) {
    throw std::runtime_error(openError(path));
  }
}

void kraDBFile::openRDFile(const std::string& path) {
  if (!in_.open(path)) {
    throw std::runtime_error(openError(path));
  }
}

void kraDBFile::printHeader() {
  std::array<uint8_t, kHeaderBlockSize> header{};
  const std::string text = formatHeaderText(version_);
  std::memcpy(header.data(), text.data(), std::min(text.size(), header.size() - 1));
  out_.write(header.data(), header.size());
  out_.write(reinterpret_cast<const uint8_t*>(noticeField().data()), kNoticeSize);
  uint8_t conditions[24];
  putDouble(temperature_, conditions);
  putDouble(startTime_, conditions + 8);
  putDouble(stopTime_, conditions + 16);
  out_.write(conditions, sizeof conditions);
}

void kraDBFile::printBlockPointer(Encryptor* irKey, Encryptor* emKey) {
  tablePosition_ = out_.tell();
  Encryptor* given[kBlockTypes] = {irKey, emKey};
  for (int type = eIR; type <= eEM; ++type) {
    recordCount_[type] = 0;
    blockOffset_[type] = 0;
    encryptor_[type] = given[type] != nullptr ? std::make_unique<Encryptor>(std::move(*given[type]))
                                              : std::make_unique<Encryptor>();
    const uint8_t zeros[16] = {};
    out_.write(zeros, sizeof zeros);
  }
}

void kraDBFile::readRaw(int64_t& field) {
  // A field cut short by the end of the file keeps the rest of its previous bytes.
  uint8_t bytes[8];
  putInt64(field, bytes);
  in_.read(bytes, sizeof bytes);
  field = int64At(bytes);
}

void kraDBFile::readRaw(double& field) {
  int64_t bits = std::bit_cast<int64_t>(field);
  readRaw(bits);
  field = std::bit_cast<double>(bits);
}

void kraDBFile::readHeader(const std::string& path) {
  if (in_.size() < static_cast<int64_t>(kHeaderBlockSize)) {
    throw std::runtime_error(notDatabaseError(path));
  }
  std::array<uint8_t, kHeaderBlockSize> header{};
  const size_t got = in_.read(header.data(), header.size());
  const auto* zero = static_cast<const uint8_t*>(std::memchr(header.data(), 0, got));
  HeaderParameters params;
  // A text that fills the whole block without a terminating zero runs into the data after it:
  // such a file is not taken for a database.
  if (zero == nullptr ||
      !readHeaderParameters(std::string_view(reinterpret_cast<const char*>(header.data()),
                                             static_cast<size_t>(zero - header.data())),
                            params)) {
    throw std::runtime_error(notDatabaseError(path));
  }
  if (params.count("version") != 0) {
    version_ = versionOf(params);
  }
  in_.seek(kConditionsOffset);  // the notice field is skipped unchecked
  readRaw(temperature_);
  readRaw(startTime_);
  readRaw(stopTime_);
}

void kraDBFile::readBlockPointer() {
  for (int type = eIR; type <= eEM; ++type) {
    blockOffset_[type] = 0;
    recordCount_[type] = 0;
    readRaw(blockOffset_[type]);
    readRaw(recordCount_[type]);
    recordsRead_[type] = 0;
    blockEnded_[type] = false;
    encryptor_[type].reset();
  }
}

void kraDBFile::initWRBlock(eKRADBType type) {
  currentType_ = type;
  if (recordCount_[type] == 0) {
    blockOffset_[type] = out_.tell();
    encryptor_[type]->write(out_);
  }
  ++recordCount_[type];
}

namespace {

const char* blockName(eKRADBType type) { return type == eIR ? "IR" : "EM"; }

}  // namespace

void kraDBFile::noteDamage(const std::string& detail) {
  if (damage_.empty()) {
    damage_ = "The file '" + path_ + "' is damaged: " + detail + ".\n";
  }
}

bool kraDBFile::initRDBlock(eKRADBType type) {
  currentType_ = type;
  const std::string block = blockName(type);
  if (recordCount_[type] < 0 && !blockEnded_[type]) {
    noteDamage("its block table claims " + std::to_string(recordCount_[type]) + " " + block +
               " records");
    blockEnded_[type] = true;
  }
  if (blockEnded_[type] || recordsRead_[type] >= recordCount_[type]) {
    return false;
  }
  if (recordsRead_[type] == 0) {
    const int64_t offset = blockOffset_[type];
    if (offset < 0 || offset >= in_.size()) {
      noteDamage("its " + block + " block starts at byte offset " + std::to_string(offset) +
                 ", outside the file (" + std::to_string(in_.size()) + " bytes)");
      blockEnded_[type] = true;
      return false;
    }
    in_.seek(offset);
    encryptor_[type] = std::make_unique<Encryptor>(in_);
    if (!encryptor_[type]->complete()) {
      noteDamage("it ends inside the key of its " + block + " block (" +
                 std::to_string(encryptor_[type]->claimedLength()) +
                 " key bytes claimed at byte offset " + std::to_string(offset) + ")");
      blockEnded_[type] = true;
      return false;
    }
  }
  // The pointer table may claim more records than the file holds: no record from nothing.
  if (in_.atEnd()) {
    noteDamage("it ends after " + std::to_string(recordsRead_[type]) + " of the " +
               std::to_string(recordCount_[type]) + " " + block +
               " records its block table claims");
    blockEnded_[type] = true;
    return false;
  }
  ++recordsRead_[type];
  shortRead_ = false;
  return true;
}

void kraDBFile::checkRecordEnd(int64_t recordStart) {
  if (shortRead_) {
    noteDamage("it ends inside " + std::string(blockName(currentType_)) + " record " +
               std::to_string(recordsRead_[currentType_]) + " of " +
               std::to_string(recordCount_[currentType_]) + " (which starts at byte offset " +
               std::to_string(recordStart) + ")");
    blockEnded_[currentType_] = true;
  }
}

uint8_t kraDBFile::encrypt(uint8_t plain) {
  Encryptor* key = encryptor_[currentType_].get();
  return key != nullptr ? key->encrypt(plain) : plain;
}

uint8_t kraDBFile::decrypt(uint8_t scrambled) {
  Encryptor* key = encryptor_[currentType_].get();
  return key != nullptr ? key->decrypt(scrambled) : scrambled;
}

void kraDBFile::putScrambled(const uint8_t* data, size_t count) {
  uint8_t chunk[kStringChunk];
  Encryptor& key = *encryptor_[currentType_];
  while (count > 0) {
    const size_t take = std::min(count, sizeof chunk);
    std::memcpy(chunk, data, take);
    key.encrypt(chunk, take);
    out_.write(chunk, take);
    data += take;
    count -= take;
  }
}

void kraDBFile::putL(int64_t value) {
  uint8_t bytes[8];
  putInt64(value, bytes);
  putScrambled(bytes, sizeof bytes);
}

void kraDBFile::putF(double value) {
  uint8_t bytes[8];
  putDouble(value, bytes);
  putScrambled(bytes, sizeof bytes);
}

void kraDBFile::putS(const std::string& text) {
  putL(static_cast<int64_t>(text.size()));
  putScrambled(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

void kraDBFile::getScrambled(uint8_t* data, size_t count) {
  std::memset(data, 0, count);
  const size_t got = in_.read(data, count);
  encryptor_[currentType_]->decrypt(data, got);
  shortRead_ = shortRead_ || got < count;
}

int64_t kraDBFile::getL() {
  uint8_t bytes[8];
  getScrambled(bytes, sizeof bytes);
  return int64At(bytes);
}

void kraDBFile::getS(std::string& text) {
  text.clear();
  const int64_t at = in_.tell();
  int64_t remaining = getL();
  // A negative length reads nothing; a length past the end of the file reads what is there.
  if (remaining < 0) {
    noteDamage("a text length of " + std::to_string(remaining) + " in " + blockName(currentType_) +
               " record " + std::to_string(recordsRead_[currentType_]) + " (at byte offset " +
               std::to_string(at) + ")");
  }
  uint8_t chunk[kStringChunk];
  while (remaining > 0) {
    const size_t want = static_cast<size_t>(std::min<int64_t>(remaining, kStringChunk));
    const size_t got = in_.read(chunk, want);
    encryptor_[currentType_]->decrypt(chunk, got);
    text.append(reinterpret_cast<const char*>(chunk), got);
    if (got < want) {
      shortRead_ = true;
      break;
    }
    remaining -= static_cast<int64_t>(got);
  }
}

void kraDBFile::addIR(const std::string& name, double rms, double avg, double peak, double tpeak,
                      double min, double tmin) {
  initWRBlock(eIR);
  putS(name);
  uint8_t tail[kRecordTail];
  const double values[6] = {rms, avg, peak, tpeak, min, tmin};
  for (size_t i = 0; i < 6; ++i) {
    putDouble(values[i], tail + 8 * i);
  }
  putScrambled(tail, sizeof tail);
}

void kraDBFile::addEM(const std::string& name, double rms, double avg, double peak, double tpeak,
                      double avgPos, int64_t term1, int64_t term2) {
  initWRBlock(eEM);
  putS(name);
  uint8_t tail[kEMRecordTail];
  const double values[5] = {rms, avg, peak, tpeak, avgPos};
  for (size_t i = 0; i < 5; ++i) {
    putDouble(values[i], tail + 8 * i);
  }
  putInt64(term1, tail + 40);
  putInt64(term2, tail + 48);
  putScrambled(tail, sizeof tail);
}

bool kraDBFile::readRecord(eKRADBType type, std::string& name, uint8_t* tail, size_t tailBytes) {
  if (!initRDBlock(type)) {
    return false;
  }
  const int64_t start = in_.tell();
  getS(name);
  getScrambled(tail, tailBytes);
  checkRecordEnd(start);
  return true;
}

bool kraDBFile::readNextIR(IRRecord& out) {
  uint8_t tail[kRecordTail];
  if (!readRecord(eIR, out.name, tail, sizeof tail)) {
    return false;
  }
  statisticsAt(tail, out);
  out.min = doubleAt(tail + 32);
  out.tmin = doubleAt(tail + 40);
  out.reserved = 0;
  return true;
}

bool kraDBFile::readNextEM(kraDBEMNode& out) {
  uint8_t tail[kEMRecordTail];
  if (!readRecord(eEM, out.name, tail, sizeof tail)) {
    return false;
  }
  statisticsAt(tail, out);
  out.avgPos = doubleAt(tail + 32);
  out.avgNeg = 0.0;
  out.term1 = int64At(tail + 40);
  out.term2 = int64At(tail + 48);
  out.index = -1;
  out.aux1 = out.aux2 = out.aux3 = 0;
  return true;
}

std::unique_ptr<IRRecord> kraDBFile::getNextIR() {
  auto record = std::make_unique<IRRecord>();
  return readNextIR(*record) ? std::move(record) : nullptr;
}

std::unique_ptr<kraDBEMNode> kraDBFile::getNextEM() {
  auto record = std::make_unique<kraDBEMNode>();
  return readNextEM(*record) ? std::move(record) : nullptr;
}

void kraDBFile::closeFile() {
  if (out_.isOpen()) {
    out_.seek(tablePosition_);
    uint8_t table[32];
    putInt64(blockOffset_[eIR], table);
    putInt64(recordCount_[eIR], table + 8);
    putInt64(blockOffset_[eEM], table + 16);
    putInt64(recordCount_[eEM], table + 24);
    out_.write(table, sizeof table);
    out_.close();
  }
  if (in_.isOpen()) {
    in_.close();
  }
}

}  // namespace kraDB
