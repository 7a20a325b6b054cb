// The libFuzzer entry points of one target, chosen when this file is compiled
// (KRA2_FUZZ_TARGET names it).

#include <cstdint>
#include <string_view>

#include "fuzzTargets.h"

namespace {

const fuzzing::FuzzTarget& target() {
  static const fuzzing::FuzzTarget* const found = fuzzing::findTarget(KRA2_FUZZ_TARGET);
  fuzzing::expect(found != nullptr, "KRA2_FUZZ_TARGET names a target");
  return *found;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  target().initialise();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  target().run(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
