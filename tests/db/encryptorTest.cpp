#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <random>
#include <vector>

#include "db/byteStream.h"
#include "db/encryptor.h"
#include "support/testFiles.h"

namespace {

using kraDB::Encryptor;

std::vector<uint8_t> scramble(Encryptor key, std::vector<uint8_t> bytes) {
  key.encrypt(bytes.data(), bytes.size());
  return bytes;
}

TEST(Encryptor, KeyBytesAreUsedFromIndexOneAndWrapToIndexZero) {
  // With plain zeros the chain stays 0, so every scrambled byte is the key byte itself.
  std::vector<uint8_t> key(100);
  for (size_t i = 0; i < key.size(); ++i) {
    key[i] = static_cast<uint8_t>(i + 1);  // K[j] = j + 1
  }
  const std::vector<uint8_t> out = scramble(Encryptor(key), std::vector<uint8_t>(201, 0));
  EXPECT_EQ(out[0], 2);     // 1st byte: K[1]
  EXPECT_EQ(out[98], 100);  // 99th byte: K[99]
  EXPECT_EQ(out[99], 1);    // 100th byte: K[0]
  EXPECT_EQ(out[100], 2);   // 101st byte: K[1] again
  EXPECT_EQ(out[199], 1);   // 200th byte: K[0]
  EXPECT_EQ(out[200], 2);
}

TEST(Encryptor, ChainXorsEveryPlainByteIntoTheRest) {
  // Key {0x11, 0x22, 0x33}: the key bytes run 0x22, 0x33, 0x11, ...; worked by hand:
  // x=0x01: c=0x01, out 0x22^0x01; x=0x80: c=0x81, out 0x33^0x81; x=0x00: c=0x81, out
  // 0x11^0x81; x=0xff: c=0x7e, out 0x22^0x7e.
  const std::vector<uint8_t> out =
      scramble(Encryptor({0x11, 0x22, 0x33}), {0x01, 0x80, 0x00, 0xff});
  EXPECT_EQ(out, (std::vector<uint8_t>{0x23, 0xb2, 0x90, 0x5c}));
}

TEST(Encryptor, OneChangedByteChangesEveryLaterScrambledByte) {
  std::mt19937 random(7);
  std::vector<uint8_t> key(137);
  for (auto& byte : key) {
    byte = static_cast<uint8_t>(random());
  }
  std::vector<uint8_t> plain(600);
  for (auto& byte : plain) {
    byte = static_cast<uint8_t>(random());
  }
  for (size_t changed : {size_t{0}, size_t{136}, size_t{137}, size_t{599}}) {
    SCOPED_TRACE(changed);
    std::vector<uint8_t> other = plain;
    other[changed] ^= 0x5a;
    const auto a = scramble(Encryptor(key), plain);
    const auto b = scramble(Encryptor(key), other);
    for (size_t i = 0; i < plain.size(); ++i) {
      if (i < changed) {
        ASSERT_EQ(a[i], b[i]) << i;
      } else {
        ASSERT_NE(a[i], b[i]) << i;
      }
    }
  }
}

TEST(Encryptor, UnscramblingRestoresEveryByteWhateverTheChunking) {
  std::mt19937 random(11);
  for (size_t keyLength : {size_t{1}, size_t{2}, size_t{100}, size_t{249}, size_t{1000}}) {
    SCOPED_TRACE(keyLength);
    std::vector<uint8_t> key(keyLength);
    for (auto& byte : key) {
      byte = static_cast<uint8_t>(random());
    }
    std::vector<uint8_t> plain(5000);
    for (auto& byte : plain) {
      byte = static_cast<uint8_t>(random());
    }
    std::vector<uint8_t> data = scramble(Encryptor(key), plain);
    ASSERT_NE(data, plain);
    // One byte at a time, then in uneven chunks: the state runs across calls.
    Encryptor single(key);
    std::vector<uint8_t> byByte(data.size());
    for (size_t i = 0; i < data.size(); ++i) {
      byByte[i] = single.decrypt(data[i]);
    }
    EXPECT_EQ(byByte, plain);
    Encryptor chunked(key);
    for (size_t at = 0, step = 1; at < data.size(); at += step, step = step * 3 % 257 + 1) {
      chunked.decrypt(data.data() + at, std::min(step, data.size() - at));
    }
    EXPECT_EQ(data, plain);
  }
}

TEST(Encryptor, EmptyKeyScramblesWithZeros) {
  // Only a damaged file gives an empty key; the chain alone is applied.
  EXPECT_EQ(scramble(Encryptor(std::vector<uint8_t>{}), {0x01, 0x02, 0x04}),
            (std::vector<uint8_t>{0x01, 0x03, 0x07}));
}

TEST(Encryptor, FreshKeysHaveTheWriterLengthsAndRepeatWithinOneSecond) {
  for (int attempt = 0; attempt < 5; ++attempt) {
    const std::time_t before = std::time(nullptr);
    const Encryptor a;
    const Encryptor b;
    const std::time_t after = std::time(nullptr);
    EXPECT_GE(a.key().size(), 100u);
    EXPECT_LE(a.key().size(), 249u);
    if (before == after) {
      // Seeded with the time in whole seconds for every key: both keys are the same.
      EXPECT_EQ(a.key(), b.key());
      return;
    }
  }
  GTEST_SKIP() << "the clock kept crossing second boundaries";
}

TEST(Encryptor, KeyIsWrittenAsLengthAndBytesAndReadBack) {
  testing_support::ScratchDir dir;
  const std::string path = dir.file("key");
  {
    kraDB::ByteWriter out;
    ASSERT_TRUE(out.open(path));
    Encryptor({0xaa, 0xbb, 0xcc}).write(out);
    out.close();
    ASSERT_FALSE(out.failed());
  }
  EXPECT_EQ(testing_support::readFile(path), std::string("\x03\0\0\0\xaa\xbb\xcc", 7));
  kraDB::ByteReader in;
  ASSERT_TRUE(in.open(path));
  EXPECT_EQ(Encryptor(in).key(), (std::vector<uint8_t>{0xaa, 0xbb, 0xcc}));
}

TEST(Encryptor, KeyLengthPastTheEndOfTheFileKeepsOnlyTheBytesThere) {
  testing_support::ScratchDir dir;
  const struct {
    const char* label;
    std::string bytes;
    std::vector<uint8_t> key;
  } cases[] = {
      {"largest length", std::string("\xff\xff\xff\xff\x01\x02", 6), {0x01, 0x02}},
      {"length 10, 3 bytes", std::string("\x0a\0\0\0\x01\x02\x03", 7), {0x01, 0x02, 0x03}},
      {"cut inside the length", std::string("\x05\0", 2), {}},
      {"nothing", std::string(), {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    testing_support::writeFile(dir.file("key"), c.bytes);
    kraDB::ByteReader in;
    ASSERT_TRUE(in.open(dir.file("key")));
    EXPECT_EQ(Encryptor(in).key(), c.key);
    EXPECT_TRUE(in.atEnd());
  }
}

}  // namespace
