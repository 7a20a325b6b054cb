// PSF results directories beyond what their dumps show (tests/data/readers/psf_results_dir):
// recognition and opening through the index file. A session over them (the temperature, a
// run over a transient) is the end-to-end case simdata_psf_results; the resistor powers and
// source values the session takes from any results are SourceValues' cases, on the values
// the dump shows.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "simdata/psfBackend.h"
#include "simdata/resultsDump.h"
#include "support/testFiles.h"

using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

const std::string kResults =
    std::string(KRA2_SOURCE_DIR) + "/tests/data/readers/psf_results_dir/input";

TEST(PsfBackend, RecognisesDirectoriesAndOpensThemThroughTheIndexFile) {
  simdata::PsfBackend backend;
  EXPECT_TRUE(backend.recognises(kResults));
  EXPECT_TRUE(backend.recognises(kResults + "/tran.tran"));
  EXPECT_FALSE(backend.recognises(kResults + "/netlist"));
  EXPECT_FALSE(backend.recognises(kResults + "/dcOp.dc"));
  ScratchDir plain;
  writeFile(plain.file("notes"), "text\n");
  EXPECT_FALSE(backend.recognises(plain.path().string()));
  const auto direct = backend.open(kResults);
  const auto viaIndex = backend.open(kResults + "/logFile");
  ASSERT_TRUE(direct && viaIndex);
  EXPECT_EQ(simdata::lastErrorCode(), simdata::psf::kPsfSkippedCode);
  EXPECT_EQ(simdata::dump(*viaIndex), simdata::dump(*direct));
  simdata::resetError();
}

}  // namespace
