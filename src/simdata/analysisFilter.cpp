#include "simdata/analysisFilter.h"

#include <cctype>
#include <cstdlib>
#include <string>

namespace simdata {

bool analysisFilter(std::string_view name) {
  if (std::getenv("_kraIncludeAllAnalysis") != nullptr) {
    return true;
  }
  std::string folded(name);
  for (char& c : folded) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return folded.find("info") == std::string::npos &&
         folded.find("variables") == std::string::npos &&
         folded.find("violations") == std::string::npos;
}

}  // namespace simdata
