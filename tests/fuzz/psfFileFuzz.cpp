// Fuzz target: the PSF ASCII parser (HEADER, TYPE, SWEEP, TRACE and VALUE sections).

#include <cstdint>
#include <string>
#include <string_view>

#include "simdata/psfFile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  simdata::psf::PsfData parsed;
  std::string error;
  simdata::psf::parsePsf(bytes, "input.psf", parsed, error);
  simdata::psf::startsLikePsfAscii(bytes);
  return 0;
}
