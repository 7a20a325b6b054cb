#include "db/encryptor.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>

#include "db/byteStream.h"

namespace kraDB {

Encryptor::Encryptor() {
  // Seeding for every key is part of the format's behaviour: both keys of a file written
  // within one second come out equal.
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  keyLength_ = static_cast<uint32_t>(std::rand() % 150 + 100);
  claimedLength_ = keyLength_;
  key_.reserve(keyLength_);
  for (uint32_t i = 0; i < keyLength_; ++i) {
    key_.push_back(static_cast<uint8_t>(std::rand() & 0xff));
  }
}

Encryptor::Encryptor(std::vector<uint8_t> key)
    : keyLength_(static_cast<uint32_t>(key.size())),
      key_(std::move(key)),
      claimedLength_(keyLength_) {}

Encryptor::Encryptor(ByteReader& in) {
  uint8_t length[4] = {};
  complete_ = in.read(length, sizeof length) == sizeof length;
  const uint32_t claimed = static_cast<uint32_t>(length[0]) | (uint32_t{length[1]} << 8) |
                           (uint32_t{length[2]} << 16) | (uint32_t{length[3]} << 24);
  // Grow by what is actually read, so a damaged length cannot size an allocation.
  uint8_t chunk[4096];
  uint32_t remaining = claimed;
  while (remaining > 0) {
    const size_t want = std::min<size_t>(remaining, sizeof chunk);
    const size_t got = in.read(chunk, want);
    key_.insert(key_.end(), chunk, chunk + got);
    if (got < want) {
      complete_ = false;
      break;
    }
    remaining -= static_cast<uint32_t>(got);
  }
  keyLength_ = static_cast<uint32_t>(key_.size());
  claimedLength_ = claimed;
}

void Encryptor::write(ByteWriter& out) const {
  const uint8_t length[4] = {
      static_cast<uint8_t>(keyLength_), static_cast<uint8_t>(keyLength_ >> 8),
      static_cast<uint8_t>(keyLength_ >> 16), static_cast<uint8_t>(keyLength_ >> 24)};
  out.write(length, sizeof length);
  out.write(key_.data(), key_.size());
}

}  // namespace kraDB
