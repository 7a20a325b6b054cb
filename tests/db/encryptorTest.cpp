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
using Bytes = std::vector<uint8_t>;

Bytes scramble(Encryptor key, Bytes bytes) {
  key.encrypt(bytes.data(), bytes.size());
  return bytes;
}

TEST(Encryptor, HandWorkedBytes) {
  // Key {0x11, 0x22, 0x33}: the key bytes run 0x22, 0x33, 0x11, ...; the chain c is the XOR of
  // the plain bytes so far and each byte is written as k ^ c: x=0x01: c=0x01, out 0x22^0x01;
  // x=0x80: c=0x81, out 0x33^0x81; x=0x00: c=0x81, out 0x11^0x81; x=0xff: c=0x7e, out 0x22^0x7e.
  EXPECT_EQ(scramble(Encryptor({0x11, 0x22, 0x33}), {0x01, 0x80, 0x00, 0xff}),
            (Bytes{0x23, 0xb2, 0x90, 0x5c}));
  // Only a damaged file gives an empty key; the chain alone is applied.
  EXPECT_EQ(scramble(Encryptor(Bytes{}), {0x01, 0x02, 0x04}), (Bytes{0x01, 0x03, 0x07}));
  // With plain zeros the chain stays 0 and every byte is the key byte: with K[j] = j + 1 and
  // 100 key bytes, byte n (from 1) uses K[n % 100].
  Bytes key(100);
  for (size_t i = 0; i < key.size(); ++i) {
    key[i] = static_cast<uint8_t>(i + 1);
  }
  const Bytes out = scramble(Encryptor(key), Bytes(201, 0));
  const std::pair<size_t, uint8_t> expected[] = {{0, 2},   {98, 100}, {99, 1},
                                                 {100, 2}, {199, 1},  {200, 2}};
  for (const auto& [at, value] : expected) {
    EXPECT_EQ(out[at], value) << at;
  }
}

TEST(Encryptor, UnscramblingRestoresEveryByteWhateverTheChunking) {
  std::mt19937 random(11);
  for (size_t keyLength : {size_t{1}, size_t{2}, size_t{100}, size_t{249}, size_t{1000}}) {
    SCOPED_TRACE(keyLength);
    Bytes key(keyLength);
    for (auto& byte : key) {
      byte = static_cast<uint8_t>(random());
    }
    Bytes plain(5000);
    for (auto& byte : plain) {
      byte = static_cast<uint8_t>(random());
    }
    Bytes data = scramble(Encryptor(key), plain);
    ASSERT_NE(data, plain);
    // One byte at a time, then in uneven chunks: the state runs across calls.
    Encryptor single(key);
    Bytes byByte(data.size());
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

TEST(Encryptor, KeyIsWrittenAsLengthAndBytesAndReadBackWhateverTheFileHolds) {
  testing_support::ScratchDir dir;
  const std::string path = dir.file("key");
  const Bytes large(1 << 16, 0x5a);  // a write larger than the buffer goes straight out
  {
    kraDB::ByteWriter out;
    ASSERT_TRUE(out.open(path));
    Encryptor({0xaa, 0xbb, 0xcc}).write(out);
    out.write(large.data(), large.size());
    out.close();
    ASSERT_FALSE(out.failed());
  }
  EXPECT_EQ(testing_support::readFile(path),
            std::string("\x03\0\0\0\xaa\xbb\xcc", 7) + std::string(large.begin(), large.end()));
  // A length past the end of the file keeps only the bytes there.
  const struct {
    const char* label;
    std::string bytes;
    Bytes key;
  } cases[] = {
      {"as written", std::string("\x03\0\0\0\xaa\xbb\xcc", 7), {0xaa, 0xbb, 0xcc}},
      {"largest length", std::string("\xff\xff\xff\xff\x01\x02", 6), {0x01, 0x02}},
      {"length 10, 3 bytes", std::string("\x0a\0\0\0\x01\x02\x03", 7), {0x01, 0x02, 0x03}},
      {"cut inside the length", std::string("\x05\0", 2), {}},
      {"nothing", std::string(), {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.label);
    testing_support::writeFile(path, c.bytes);
    kraDB::ByteReader in;
    ASSERT_TRUE(in.open(path));
    EXPECT_EQ(Encryptor(in).key(), c.key);
    EXPECT_TRUE(in.atEnd());
  }
}

}  // namespace
