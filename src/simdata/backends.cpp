#include <memory>

#include "simdata/psfBackend.h"
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
  registerBackend(std::make_unique<PsfBackend>());
  return true;
}

}  // namespace simdata
