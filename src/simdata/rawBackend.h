#pragma once
// The SPICE raw backend: a results directory is a folder of *.raw files (read in file-name
// order) or one raw file. Every plot is one dataset, named after its analysis kind ("tran",
// "op", "dc", "ac", ...); a further plot of a kind already seen gets "2", "3", ... appended.

#include <memory>
#include <string>
#include <string_view>

#include "simdata/rawFile.h"
#include "simdata/resultsReader.h"

namespace simdata {

class RawBackend : public Backend {
 public:
  const char* readerName() const override { return "SPICE raw"; }
  /// A folder holding at least one *.raw file, a file named *.raw, or a file that starts
  /// with a raw-file header line.
  bool recognises(const std::string& path) const override;
  std::unique_ptr<ResultsDir> open(const std::string& path) const override;
};

namespace raw {

/// The analysis title within a plot name that carries a parameter-step prefix ("Step
/// Analysis: Step 1 of 3 params:  name = VGS value = 0.8  AC Analysis" -> "AC Analysis");
/// other names as they are.
std::string_view analysisTitle(std::string_view plotname);

/// The analysis kind of a plot from its Plotname: "Transient Analysis" -> "tran",
/// "Operating Point" -> "op", "DC transfer characteristic" -> "dc", "AC Analysis" -> "ac",
/// any noise plot -> "noise", ...; otherwise the lower-cased first word.
std::string analysisKind(std::string_view plotname);

/// The analysis type text of a kind: "tran" for transients, "dc" for operating points and
/// DC sweeps, else the kind itself.
std::string analysisTypeOfKind(const std::string& kind);

/// Whether a plot has a swept axis (variable 0): all but operating points, transfer
/// functions and integrated noise.
bool plotHasAxis(const Plot& plot);

/// The bare name of a variable: "v(n1)" -> "n1"; other names are kept as written.
std::string bareName(std::string_view name);

}  // namespace raw

}  // namespace simdata
