#include "simdata/resultsReader.h"

namespace simdata {

bool initialise() {
  static bool done = false;
  if (done) {
    return true;
  }
  done = true;
  return true;
}

}  // namespace simdata
