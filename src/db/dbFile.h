#pragma once
// The EMIR database file: writer and reader of the current format (version 4.9 and later),
// refusing files of older versions (see kraOldDbFile).
//
// Layout: a 1024-byte tag text block, a 48-byte notice field, temperature, start and stop
// time (f64), the block pointer table (IR offset, IR count, EM offset, EM count; int64,
// rewritten when the writer closes), then the IR and EM record blocks, each a block key
// followed by its records scrambled as one stream. All numbers are little-endian.

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "db/byteStream.h"
#include "db/dbRecords.h"
#include "db/encryptor.h"

namespace kraDB {

/// Offsets of the fixed fields.
inline constexpr int64_t kNoticeOffset = 1024;
inline constexpr size_t kNoticeSize = 48;
inline constexpr int64_t kConditionsOffset = 1072;
inline constexpr int64_t kBlockTableOffset = 1096;
inline constexpr int64_t kFirstBlockOffset = 1128;

/// Start values of a reader before the header is read: what a file without conditions gives.
inline constexpr double kDefaultTemperature = 110.0;
inline constexpr double kDefaultStartTime = 0.0;
inline constexpr double kDefaultStopTime = 1e-7;

/// The version a writer records unless told otherwise.
inline constexpr float kWriterVersion = 5.0f;

/// The tag text a writer puts at the start of a file (the architecture is always 64).
std::string formatHeaderText(float version);

/// The notice field a writer puts after the header block (readers skip it unchecked).
const std::array<char, kNoticeSize>& noticeField();

/// Exception texts.
std::string openError(const std::string& path);
std::string notDatabaseError(const std::string& path);

class kraDBFile {
 public:
  /// Writer: creates the file with its header and an empty pointer table, and makes a fresh
  /// random key for each block. A version below 4.9 is refused (kraOldDbFile).
  kraDBFile(const std::string& path, double temperature, double startTime, double stopTime,
            float version);
  /// Writer with given block keys instead of random ones (tests, reproducible files).
  kraDBFile(const std::string& path, double temperature, double startTime, double stopTime,
            float version, Encryptor irKey, Encryptor emKey);
  /// Reader: probes the version, then reads the header and the pointer table. Throws
  /// std::runtime_error for a file that cannot be opened, is not a database, or was made by
  /// a 32-bit producer.
  explicit kraDBFile(const std::string& path);
  /// Closes the file, rewriting the pointer table of a writer.
  ~kraDBFile();
  kraDBFile(const kraDBFile&) = delete;
  kraDBFile& operator=(const kraDBFile&) = delete;

  /// Appends a record. All records of one type must be written before the other type's:
  /// a block is one contiguous stream from its first record on.
  void addIR(const std::string& name, double rms, double avg, double peak, double tpeak, double min,
             double tmin);
  void addEM(const std::string& name, double rms, double avg, double peak, double tpeak,
             double avgPos, int64_t term1, int64_t term2);

  /// The next record of a type, null at the end of its block. Read one type to its end
  /// before the other. Reading stops at the end of the file whatever the pointer table
  /// claims; a record cut short by the end of the file has zeros for its missing bytes.
  std::unique_ptr<IRRecord> getNextIR();
  std::unique_ptr<kraDBEMNode> getNextEM();
  /// The same, filling a caller's record (keeps its string storage); false at the end.
  bool readNextIR(IRRecord& out);
  bool readNextEM(kraDBEMNode& out);

  /// Why reading stopped before the records the pointer table claims, or empty: a block that
  /// lies outside the file, a key or a record cut short by the end of the file, a negative
  /// count or text length. The first such fault of the file is kept; the records read up to
  /// it are still handed out (a cut record with zeros for its missing bytes).
  const std::string& damage() const { return damage_; }

  /// Rewrites the pointer table of a writer and closes; closes a reader. Idempotent.
  void closeFile();
  /// True when writing or closing the output failed.
  bool failed() const { return out_.failed(); }

  /// Scramble or unscramble one byte with the key of the current block type.
  uint8_t encrypt(uint8_t plain);
  uint8_t decrypt(uint8_t scrambled);

  float getVersion() const { return version_; }
  double getTemperature() const { return temperature_; }
  double getStartTime() const { return startTime_; }
  double getStopTime() const { return stopTime_; }
  /// The pointer table (as read, or as written so far).
  int64_t getRecordCount(eKRADBType type) const { return recordCount_[type]; }
  int64_t getBlockOffset(eKRADBType type) const { return blockOffset_[type]; }

 private:
  void openWRFile(const std::string& path);
  void openRDFile(const std::string& path);
  void printHeader();
  void printBlockPointer(Encryptor* irKey, Encryptor* emKey);
  void readHeader(const std::string& path);
  void readBlockPointer();
  void initWRBlock(eKRADBType type);
  bool initRDBlock(eKRADBType type);

  void putL(int64_t value);
  void putF(double value);
  void putS(const std::string& text);
  /// Writes `count` plain bytes scrambled with the current block's key.
  void putScrambled(const uint8_t* data, size_t count);
  int64_t getL();
  void getS(std::string& text);
  /// Reads up to `count` bytes and unscrambles them; missing bytes are left as zero.
  void getScrambled(uint8_t* data, size_t count);
  /// Reads an unscrambled field over `field`: bytes past the end of the file leave it as it
  /// was.
  void readRaw(int64_t& field);
  void readRaw(double& field);
  /// Records the first fault met while reading (see damage()).
  void noteDamage(const std::string& detail);
  /// Notes a record of the current type that the end of the file cut short.
  void checkRecordEnd(int64_t recordStart);
  /// Reads the next record of a `type` block: its name and its unscrambled fixed-size tail.
  /// False at the end of the block.
  bool readRecord(eKRADBType type, std::string& name, uint8_t* tail, size_t tailBytes);

  ByteWriter out_;
  ByteReader in_;
  float version_ = -1.0f;
  double temperature_ = kDefaultTemperature;
  double startTime_ = kDefaultStartTime;
  double stopTime_ = kDefaultStopTime;
  int64_t tablePosition_ = -1;
  std::array<int64_t, kBlockTypes> recordCount_{};
  std::array<int64_t, kBlockTypes> blockOffset_{};
  eKRADBType currentType_ = eIR;
  std::array<std::unique_ptr<Encryptor>, kBlockTypes> encryptor_;
  std::array<int64_t, kBlockTypes> recordsRead_{};
  /// Set once the end of the file was met inside a block: no more records of that type.
  std::array<bool, kBlockTypes> blockEnded_{};
  std::string path_;
  std::string damage_;
  /// Set when a read of the current record came up short.
  bool shortRead_ = false;
};

}  // namespace kraDB
