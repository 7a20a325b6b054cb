#include "db/oldDbFile.h"

#include <cstring>
#include <stdexcept>
#include <string_view>

#include "db/byteStream.h"
#include "db/dbFile.h"

namespace kraDB {

std::string legacyReadError(const std::string& path) {
  return "The file '" + path +
         "' is in the legacy EMIR database format (version below 4.9), which is not "
         "supported.\n";
}

std::string legacyWriteError(const std::string& path) {
  return "Cannot write '" + path +
         "': the legacy EMIR database format (version below 4.9) is not supported.\n";
}

kraOldDbFile::kraOldDbFile(const std::string& path, double temperature, double startTime,
                           double stopTime)
    : path_(path), temperature_(temperature), startTime_(startTime), stopTime_(stopTime) {
  throw std::runtime_error(legacyWriteError(path));
}

namespace {

/// Whether a file has the first text line of a legacy database ("begin..." or a line of 77
/// asterisks) where a 64-bit or a 32-bit producer puts it (byte 96 or 48).
bool hasLegacyMarker(ByteReader& in) {
  uint8_t head[96 + 77] = {};
  const size_t got = in.read(head, sizeof head);
  const auto markerAt = [&](size_t at) {
    const auto* text = reinterpret_cast<const char*>(head + at);
    return (got >= at + 5 && std::memcmp(text, "begin", 5) == 0) ||
           (got >= at + 77 && std::string_view(text, 77) == std::string(77, '*'));
  };
  return markerAt(48) || markerAt(96);
}

}  // namespace

kraOldDbFile::kraOldDbFile(const std::string& path, float version) : path_(path) {
  ByteReader probe;
  if (!probe.open(path)) {
    throw std::runtime_error(openError(path));
  }
  // Without tags (version -1) and without the first line of a legacy file, the file is
  // neither format: an empty, cut or foreign file is said to be no database rather than an
  // old one.
  if (version < 0.0f && !hasLegacyMarker(probe)) {
    throw std::runtime_error(notDatabaseError(path));
  }
  throw std::runtime_error(legacyReadError(path));
}

// No object of this class can exist; these only keep the interface whole.
void kraOldDbFile::addIR(const std::string&, double, double, double, double, double, double) {
  throw std::runtime_error(legacyWriteError(path_));
}

void kraOldDbFile::addEM(const std::string&, double, double, double, double, double, int64_t,
                         int64_t) {
  throw std::runtime_error(legacyWriteError(path_));
}

std::unique_ptr<IRRecord> kraOldDbFile::getNextIR() {
  throw std::runtime_error(legacyReadError(path_));
}

std::unique_ptr<kraDBEMNode> kraOldDbFile::getNextEM() {
  throw std::runtime_error(legacyReadError(path_));
}

}  // namespace kraDB
