// PSF results directories beyond what their dumps show (tests/data/readers/psf_results_dir):
// recognition, opening through the index file, and what the session reads from them
// (temperature, resistor powers, source values, a run).

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "analysis/sources.h"
#include "app/analyzeNetlist.h"
#include "simdata/psfBackend.h"
#include "simdata/resultsDump.h"
#include "support/testFiles.h"

using testing_support::readFile;
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

/// A session with the results directory open.
class PsfSession : public testing::Test {
 protected:
  void SetUp() override {
    simdata::initialise();
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
    const ArgList open{kResults};
    testing::internal::CaptureStdout();
    ASSERT_EQ(session.processOpenSimDataCmd(&open), 0);
    testing::internal::GetCapturedStdout();
  }
  void TearDown() override { unsetenv(analysis::kSourceValuesVariable); }
  ScratchDir dir;
  zeAnalyzeNetlist session;
};

TEST_F(PsfSession, TemperatureResistorPowersAndSources) {
  const ArgList save{dir.file("temperature.txt")};
  double temperature = 0.0;
  EXPECT_EQ(session.processSaveTemperatureCmd(&save, temperature), 0);
  EXPECT_EQ(temperature, 85.0);
  EXPECT_EQ(readFile(dir.file("temperature.txt")), "Temperature 85.000000\n");

  session.populateResToWatt();
  EXPECT_EQ(session.resToWatt, (std::map<std::string, double>{{"R1", 0.001}, {"R7", 0.004}}));

  setenv(analysis::kSourceValuesVariable, "1", 1);
  zeVsrc sources;
  EXPECT_EQ(session.processVsrcCmd(sources), 0);
  ASSERT_EQ(sources.sources().size(), 1u);
  EXPECT_EQ(sources.sources().at("V0")->voltage, 1.2);
  EXPECT_EQ(sources.sources().at("V0")->current, -0.03);
}

TEST_F(PsfSession, RunOverATransient) {
  writeFile(dir.file("net"), "R1 vdd n1\n");
  const ArgList select{"tran-tran"};
  const ArgList net{dir.file("net")};
  const ArgList window{"0", "3e-9"};
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.processSelectAnalysisCmd(&select), 0);
  EXPECT_EQ(session.isSweepData, 1);
  EXPECT_EQ(session.processLoadNetlistCmd(&net), 0);
  EXPECT_EQ(session.processRunCmd(&window, 0), 0);
  testing::internal::GetCapturedStdout();
  const zeInstance& instance = session.instances.instances.at(0);
  EXPECT_TRUE(instance.valid);
  // vdd - n1 is 0, 0.1, 0.2, 0.05: the largest drop is 0.2 V at 2 ns.
  EXPECT_NEAR(instance.data.peak, 0.2, 1e-12);
  EXPECT_NEAR(instance.data.peakTime, 2e-9, 1e-21);
}

}  // namespace
