#include "db/oldDbFile.h"

#include <stdexcept>

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

kraOldDbFile::kraOldDbFile(const std::string& path, float) : path_(path) {
  ByteReader probe;
  if (!probe.open(path)) {
    throw std::runtime_error(openError(path));
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
