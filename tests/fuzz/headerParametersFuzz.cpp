// Fuzz target: the tag-text parser of the database header and the splitter under it.

#include <cstdint>
#include <string_view>

#include "db/headerParameters.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  kraDB::HeaderParameters params;
  if (kraDB::readHeaderParameters(text, params)) {
    kraDB::versionOf(params);
    kraDB::taggedArchitecture(params);
  }
  kraDB::splitAtAny(text, "<>;");
  return 0;
}
