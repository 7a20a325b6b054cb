#include "db/oldDbFile.h"

#include <stdexcept>

#include "db/byteStream.h"
#include "db/dbFile.h"
#include "db/headerParameters.h"

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

namespace {

/// Whether a file has the first text line of a legacy database where a 64-bit or a 32-bit
/// producer puts it (byte 96 or 48).
bool hasLegacyMarker(ByteReader& in) {
  // Bytes the file does not have stay zero, which no marker begins with.
  char head[96 + kLegacyMarkerBytes] = {};
  in.read(reinterpret_cast<uint8_t*>(head), sizeof head);
  return startsWithLegacyMarker(head + 48) || startsWithLegacyMarker(head + 96);
}

}  // namespace

kraOldDbFile::kraOldDbFile(const std::string& path, double, double, double) {
  throw std::runtime_error(legacyWriteError(path));
}

kraOldDbFile::kraOldDbFile(const std::string& path, float version) {
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

}  // namespace kraDB
