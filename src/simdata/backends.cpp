#include <memory>

#include "simdata/rawBackend.h"
#include "simdata/resultsReader.h"

namespace simdata {

bool initialise() {
  static bool done = false;
  if (done) {
    return true;
  }
  done = true;
  registerBackend(std::make_unique<RawBackend>());
  return true;
}

}  // namespace simdata
