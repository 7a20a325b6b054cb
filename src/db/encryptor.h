#pragma once
// The per-block key and the chained byte scrambling of the database's record blocks.

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kraDB {

class ByteReader;
class ByteWriter;

/// Scrambles the bytes of one record block with the block's key. The key travels in the file
/// in front of the block, so every reader can undo it; it only keeps records from being read
/// as plain text.
///
/// For each byte the position advances first and selects the key byte, wrapping to 0 at the
/// key length: the key is used in the order K[1], ..., K[n-1], K[0], K[1], ... Files made by
/// other producers depend on this order. The chain is the XOR of all plain bytes so far, so a
/// change to one byte changes every later scrambled byte of the block.
class Encryptor {
 public:
  /// A fresh key: the C library generator is seeded with the current time in whole seconds
  /// for every key (so keys made within one second are equal), then n = rand() % 150 + 100
  /// and n further rand() values give the key bytes.
  Encryptor();
  /// A given key, for tests and reproducible files. An empty key scrambles with zeros.
  explicit Encryptor(std::vector<uint8_t> key);
  /// Reads a block key: a 4-byte little-endian length, then the key bytes. A length that runs
  /// past the end of the file gives the bytes that are there (see complete()).
  explicit Encryptor(ByteReader& in);

  /// The key length a read key claimed (the length of a made or given key).
  uint32_t claimedLength() const { return claimedLength_; }
  /// False when the file ended before all the claimed key bytes (or the length) were read.
  bool complete() const { return complete_; }

  /// Writes the block key (length, then bytes; not scrambled).
  void write(ByteWriter& out) const;

  uint8_t encrypt(uint8_t plain) {
    const uint8_t k = nextKeyByte();
    chain_ ^= plain;
    return k ^ chain_;
  }
  uint8_t decrypt(uint8_t scrambled) {
    const uint8_t d = scrambled ^ nextKeyByte();
    const uint8_t plain = chain_ ^ d;
    chain_ = d;
    return plain;
  }
  void encrypt(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      data[i] = encrypt(data[i]);
    }
  }
  void decrypt(uint8_t* data, size_t count) {
    for (size_t i = 0; i < count; ++i) {
      data[i] = decrypt(data[i]);
    }
  }

  const std::vector<uint8_t>& key() const { return key_; }

 private:
  uint8_t nextKeyByte() {
    if (++position_ >= keyLength_) {
      position_ = 0;
    }
    return keyLength_ == 0 ? 0 : key_[position_];
  }

  uint32_t keyLength_ = 0;
  std::vector<uint8_t> key_;
  uint32_t claimedLength_ = 0;
  bool complete_ = true;
  uint32_t position_ = 0;
  uint8_t chain_ = 0;
};

}  // namespace kraDB
