#pragma once
// The PSF ASCII backend. A results directory holds one file per dataset plus index files:
// `logFile` (the analyses) and `artistLogFile` (the design variables) name each dataset and its
// data file. Every data file written as PSF ASCII is one dataset, named as the index names it,
// or after its file name when no index lists it ("variables" for `variables_file`). Data files
// the index lists but that are binary PSF, or missing, are reported in one warning and skipped.
// A single PSF ASCII file can be opened on its own; naming an index file opens its directory.

#include <memory>
#include <string>

#include "simdata/resultsReader.h"

namespace simdata {

// Declared as RawBackend is: a backend is its reader name, its recognition and its opening.
class PsfBackend : public Backend {
 public:
  const char* readerName() const override { return "PSF ASCII"; }
  /// A directory with an index file or a PSF ASCII file, or a PSF ASCII file.
  bool recognises(const std::string& path) const override;
  std::unique_ptr<ResultsDir> open(const std::string& path) const override;
};

namespace psf {

/// Error code of the warning that lists the datasets of a directory that were not read.
inline constexpr uint16_t kPsfSkippedCode = 32;

/// The dataset name of a data file that no index lists: "variables" for the design variables
/// file, else the file name itself.
std::string datasetNameOfFile(const std::string& fileName);

}  // namespace psf

}  // namespace simdata
