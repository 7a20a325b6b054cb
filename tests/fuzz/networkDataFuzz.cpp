// Fuzz target: the length-data and PG-data readers of the power-grid network, with the work
// that follows each of them: the length calculation and the length-data output, or the
// segment search and filters. The first byte chooses the file kind and the flags.

#include <cstdint>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "pgnet/network.h"

namespace {

/// An output stream that drops everything.
class NullBuffer : public std::streambuf {
 protected:
  int overflow(int c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) {
    return 0;
  }
  const uint8_t options = data[0];
  std::istringstream in(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
  NullBuffer nullBuffer;
  std::ostream sink(&nullBuffer);

  zeNetwork network(0.001, false);
  network.debugOut = &sink;
  network.setLayerStack({"V1", "M2", "M1", "V2", "M3", "M2"});
  network.evalCurrentDirection = (options & 2) != 0;
  network.evalTotalSum = (options & 4) != 0;
  if ((options & 1) == 0) {
    if (network.readLengthData(in)) {
      network.writeLengthData(sink);
    }
  } else if (network.readPGData(in)) {
    network.findMetalSegments();
    network.filterSegmentsByPhysicalProperties();
    network.dump(sink);
    network.writePGData(sink);
  }
  return 0;
}
