#include "analysis/settings.h"

namespace analysis {

ProcessSettings& processSettings() {
  static ProcessSettings settings;
  return settings;
}

}  // namespace analysis
