// PSF results directories: dataset names from the index files, the design variables, data
// files that cannot be read, and what the session reads from them (temperature, resistor
// powers, source values, a run); then the public PSF samples, when they are there.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "analysis/sources.h"
#include "app/analyzeNetlist.h"
#include "simdata/psfBackend.h"
#include "support/testFiles.h"

using simdata::Dataset;
using simdata::PsfBackend;
using testing_support::readFile;
using testing_support::ScratchDir;
using testing_support::writeFile;

namespace {

const char* const kIndexType =
    "TYPE\n\"analysisInst\" STRUCT(\n\"analysisType\" STRING *\n\"dataFile\" STRING *\n"
    "\"format\" STRING *\n\"parent\" STRING *\n\"sweepVariable\" ARRAY ( * ) STRING *\n"
    "\"description\" STRING *\n)\n";

std::string indexEntry(const std::string& name, const std::string& type, const std::string& file) {
  return "\"" + name + "\" \"analysisInst\" (\n\"" + type + "\"\n\"" + file +
         "\"\n\"PSF\"\n\"\"\n()\n\"\"\n) PROP(\n\"data_type\" \"scalar\"\n)\n";
}

/// A transient of two nodes over 4 points, as a simulator writes it.
const char* const kTransient =
    "HEADER\n\"PSFversion\" \"1.00\"\n\"analysis type\" \"tran\"\n"
    "\"analysis description\" \"Transient Analysis `tran': time = (0 s -> 3 ns)\"\n"
    "TYPE\n\"sweep\" FLOAT DOUBLE PROP(\n\"key\" \"sweep\"\n)\n"
    "\"V\" FLOAT DOUBLE PROP(\n\"units\" \"V\"\n)\n"
    "SWEEP\n\"time\" \"sweep\" PROP(\n\"units\" \"s\"\n)\n"
    "TRACE\n\"group\" GROUP 2\n\"vdd\" \"V\"\n\"n1\" \"V\"\n"
    "VALUE\n"
    "\"time\" 0.00000\n\"group\" 1.00000\n1.00000\n"
    "\"time\" 1.00000e-09\n\"group\" 1.00000\n0.900000\n"
    "\"time\" 2.00000e-09\n\"group\" 1.00000\n0.800000\n"
    "\"time\" 3.00000e-09\n\"group\" 1.00000\n0.950000\nEND\n";

/// Element information of a resistor and a source at the operating point.
const char* const kElements =
    "HEADER\n\"analysis type\" \"info\"\n"
    "TYPE\n\"resistor\" STRUCT(\n\"v\" FLOAT DOUBLE\n\"i\" FLOAT DOUBLE\n\"pwr\" FLOAT DOUBLE\n)\n"
    "\"vsource\" STRUCT(\n\"v\" FLOAT DOUBLE\n\"i\" FLOAT DOUBLE\n\"pwr\" FLOAT DOUBLE\n)\n"
    "VALUE\n\"R1\" \"resistor\" (\n0.1\n0.01\n0.001\n)\n"
    "\"I0.R7\" \"resistor\" (\n0.2\n0.02\n0.004\n)\n"
    "\"V0\" \"vsource\" (\n1.2\n-0.03\n-0.036\n)\nEND\n";

const char* const kVariables =
    "HEADER\n\"PSFversion\" \"1.00\"\nTYPE\n\"variable\" STRUCT(\n\"value\" FLOAT DOUBLE\n) PROP(\n"
    "\"key\" \"element\"\n)\nVALUE\n\"VDC1\" \"variable\" ( 0.5 ) PROP( )\n"
    "\"temp\" \"variable\" ( 85 ) PROP( )\nEND\n";

/// A results directory: two index files, a transient, element information, the design
/// variables, a binary data file, a listed file that is missing, an unlisted ASCII file, run
/// files and a file that is no PSF at all.
void writeResults(const ScratchDir& dir) {
  writeFile(dir.file("logFile"), std::string("HEADER\n\"PSFversion\" \"1.00\"\n") + kIndexType +
                                     "VALUE\n" + indexEntry("tran-tran", "tran", "tran.tran") +
                                     indexEntry("dcOp-dc", "dc", "dcOp.dc") +
                                     indexEntry("ac-ac", "ac", "ac.ac") +
                                     indexEntry("element-info", "info", "element.info") + "END\n");
  writeFile(dir.file("artistLogFile"),
            std::string("HEADER\n") + kIndexType + "VALUE\n" +
                indexEntry("variables", "design_variables", "variables_file") + "END\n");
  writeFile(dir.file("tran.tran"), kTransient);
  writeFile(dir.file("element.info"), kElements);
  writeFile(dir.file("variables_file"), kVariables);
  writeFile(dir.file("dcOp.dc"), std::string("\0\0\x04\0\0\0\0\x15PSF binary", 18));
  writeFile(dir.file("extra.info"), "HEADER\n\"analysis type\" \"info\"\nEND\n");
  writeFile(dir.file("runObjFile"), "HEADER\n\"netlistDir\" \"../netlist\"\nEND\n");
  writeFile(dir.file("simRunData"), "HEADER\n\"temperature\" \"27\"\nEND\n");
  writeFile(dir.file("netlist"), "* not a PSF file\n");
}

TEST(PsfBackend, DatasetsAreNamedFromTheIndexFiles) {
  ScratchDir dir;
  writeResults(dir);
  PsfBackend backend;
  EXPECT_TRUE(backend.recognises(dir.path().string()));
  EXPECT_TRUE(backend.recognises(dir.file("tran.tran")));
  EXPECT_FALSE(backend.recognises(dir.file("netlist")));
  EXPECT_FALSE(backend.recognises(dir.file("dcOp.dc")));
  std::filesystem::create_directory(dir.file("plain"));
  writeFile(dir.file("plain/notes"), "text\n");
  EXPECT_FALSE(backend.recognises(dir.file("plain")));

  // Opening the directory or its index file gives the same datasets: the listed ones in index
  // order, then unlisted PSF ASCII files; the unreadable ones are reported once.
  for (const std::string& path : {dir.path().string(), dir.file("logFile")}) {
    SCOPED_TRACE(path);
    simdata::resetError();
    auto results = backend.open(path);
    ASSERT_TRUE(results);
    EXPECT_EQ(simdata::lastErrorCode(), simdata::psf::kPsfSkippedCode);
    EXPECT_EQ(std::string(simdata::lastErrorText()),
              dir.path().string() +
                  ": 2 datasets not read: dcOp-dc (dcOp.dc: binary PSF, not read), ac-ac (ac.ac: "
                  "missing)");
    const simdata::DatasetArray* datasets = results->datasets();
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"tran-tran", "tran"},
        {"element-info", "info"},
        {"variables", "design_variables"},
        {"extra.info", "info"}};
    ASSERT_EQ(datasets->count(), static_cast<int>(expected.size()));
    for (int i = 0; i < datasets->count(); ++i) {
      EXPECT_EQ(datasets->at(i)->name(), expected[static_cast<size_t>(i)].first);
      EXPECT_EQ(datasets->at(i)->analysisType(), expected[static_cast<size_t>(i)].second);
    }
  }
  simdata::resetError();
  // A data file on its own is one dataset named after the file.
  auto single = backend.open(dir.file("variables_file"));
  ASSERT_TRUE(single);
  ASSERT_EQ(single->datasets()->count(), 1);
  EXPECT_STREQ(single->datasets()->at(0)->name(), "variables");
}

TEST(PsfBackend, SweptTracesAreWaveformsAndRecordsAreScalars) {
  ScratchDir dir;
  writeResults(dir);
  auto results = PsfBackend().open(dir.path().string());
  ASSERT_TRUE(results);
  Dataset* tran = results->findDataset("tran-tran");
  ASSERT_TRUE(tran->sweep());
  EXPECT_EQ(tran->sweep()->range(0)->max, 3e-9);
  const simdata::SignalList* signals = tran->signals();
  ASSERT_EQ(signals->count(), 3);  // the sweep variable first, like the scale of a raw file
  EXPECT_EQ(signals->at(0)->name1, "time");
  EXPECT_EQ(signals->at(2)->name1, "n1");
  EXPECT_EQ(signals->at(2)->typeName, "V");
  simdata::SignalArray batch(2);
  batch.add(signals->at(2));
  batch.add(signals->at(1));
  auto values = tran->read(batch);
  ASSERT_EQ(values->count(), 2);
  const simdata::Value* n1 = values->at(0);
  EXPECT_STREQ(n1->displayTitle(), "Transient Analysis `tran': time = (0 s -> 3 ns)");
  EXPECT_STREQ(n1->yVector()->baseUnits(), "V");
  EXPECT_STREQ(n1->xVector()->baseUnits(), "s");
  EXPECT_EQ(n1->xVector(), values->at(1)->xVector());
  ASSERT_EQ(n1->yVector()->doubles().size(), 4u);
  EXPECT_EQ(n1->yVector()->doubles()[2], 0.8);

  Dataset* elements = results->findDataset("element-info");
  EXPECT_EQ(elements->sweep(), nullptr);
  const simdata::Signal* power = elements->findSignal("I0.R7:pwr");
  ASSERT_TRUE(power);
  EXPECT_EQ(power->typeName, "resistor");
  auto value = elements->readValue("I0.R7:pwr");
  EXPECT_EQ(value->kind(), simdata::kScalarValue);
  EXPECT_EQ(value->scalar(), 0.004);
  EXPECT_EQ(elements->readValue("nothere"), nullptr);
}

/// A session with the results directory open.
class PsfSession : public testing::Test {
 protected:
  void SetUp() override {
    simdata::initialise();
    writeResults(dir);
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
    const ArgList open{dir.path().string()};
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

// ---- The public samples ----

std::string sample(const std::string& relative) {
  return std::string(KRA2_SAMPLES_DIR) + "/psfascii/" + relative;
}

#define REQUIRE_SAMPLES()                                        \
  if (!std::filesystem::is_directory(KRA2_SAMPLES_DIR)) {        \
    GTEST_SKIP() << "no samples folder at " << KRA2_SAMPLES_DIR; \
  }

std::unique_ptr<simdata::ResultsDir> openSample(const std::string& relative) {
  simdata::resetError();
  auto results = PsfBackend().open(sample(relative));
  EXPECT_TRUE(results) << (simdata::lastErrorText() ? simdata::lastErrorText() : "");
  return results;
}

/// Dataset, signal count (the sweep variable included), sweep points (0: not swept).
struct Expected {
  const char* dataset;
  int signals;
  int points;
};

TEST(PsfSamples, EveryFileAndDirectoryOpens) {
  REQUIRE_SAMPLES();
  struct Folder {
    const char* path;
    std::vector<Expected> datasets;
    int skipped;
  };
  const Folder folders[] = {
      {"psf_utils",
       {{"bus_chevrons.tran", 2, 3},
        {"dcOpInfo.info.psfascii", 101 + 3 + 3, 0},
        {"dcswp.dc", 4, 301},
        {"empty.pnoise", 1, 90},
        {"escaped-strings.dc", 13, 0},
        {"fracpole.ac", 10, 121},
        {"fracpole.dc", 9, 0},
        {"header.psf", 0, 0},
        {"joop-banaan.dc", 13, 0},
        {"joop-banaan.tran", 13, 55},  // 12 traces in TRACE, and the sweep
        {"rushikesh-dhanaji-phadtare.tran", 6, 238}},
       0},
      {"psf_utils/pnoise_dir", {}, 7},
      {"pycircuit/dcop_dir",
       {{"designParamVals-info", 4, 0},
        {"primitives-info.primitives", 0, 0},
        {"subckts-info.subckts", 0, 0}},
       4},
      {"pycircuit/parsweep_run", {{"variables", 2, 0}}, 2},
      {"pycircuit/converted",
       {{"model.asc", -1, 0},
        {"opBegin.asc", -1, 0},
        {"pss0.fd.pss.asc", 30, 2},
        {"srcSweep.asc", 4, 4},
        {"stb.stb.asc", 2, 41}},
       0},
  };
  for (const Folder& folder : folders) {
    SCOPED_TRACE(folder.path);
    auto results = openSample(folder.path);
    ASSERT_TRUE(results);
    if (folder.skipped > 0) {
      EXPECT_EQ(simdata::lastErrorCode(), simdata::psf::kPsfSkippedCode);
      EXPECT_NE(std::string(simdata::lastErrorText())
                    .find(std::to_string(folder.skipped) + " datasets not read"),
                std::string::npos);
    } else {
      EXPECT_EQ(simdata::lastErrorCode(), 0);
    }
    const simdata::DatasetArray* datasets = results->datasets();
    ASSERT_EQ(datasets->count(), static_cast<int>(folder.datasets.size()));
    for (size_t d = 0; d < folder.datasets.size(); ++d) {
      const Expected& expected = folder.datasets[d];
      Dataset* dataset = datasets->at(static_cast<int>(d));
      SCOPED_TRACE(expected.dataset);
      EXPECT_STREQ(dataset->name(), expected.dataset);
      if (expected.signals >= 0) {
        EXPECT_EQ(dataset->signals()->count(), expected.signals);
      }
      const simdata::Sweep* sweep = dataset->sweep();
      EXPECT_EQ(sweep != nullptr, expected.points > 0);
      if (sweep != nullptr) {
        auto axis = dataset->readValue(sweep->name(0));
        ASSERT_TRUE(axis);
        EXPECT_EQ(axis->xVector()->length(), expected.points);
      }
    }
  }
  simdata::resetError();
}

TEST(PsfSamples, ValuesAsWritten) {
  REQUIRE_SAMPLES();
  // An escaped bus bit, three points.
  auto bus = openSample("psf_utils/bus_chevrons.tran");
  auto bit = bus->datasets()->at(0)->readValue("I48.LOGIC_OUT<3>");
  ASSERT_TRUE(bit);
  EXPECT_EQ(bit->yVector()->doubleAt(1), 8e-4);
  EXPECT_EQ(bit->xVector()->doubleAt(1), 1e-9);
  // A group of five: point 0 holds 0.371200 3.29982 -1.36789e-07 0.00000 3.30000.
  auto group = openSample("psf_utils/rushikesh-dhanaji-phadtare.tran");
  Dataset* tran = group->datasets()->at(0);
  const std::pair<const char*, double> first[] = {
      {"net1", 0.3712}, {"net2", 3.29982}, {"V0:p", -1.36789e-07}, {"V1:p", 0.0}, {"vdd!", 3.3}};
  for (const auto& [name, value] : first) {
    EXPECT_EQ(tran->readValue(name)->yVector()->doubleAt(0), value) << name;
  }
  // Complex group members keep their real parts, written like 778810.
  auto ac = openSample("psf_utils/fracpole.ac");
  auto pole = ac->datasets()->at(0)->readValue("FP2.1");
  EXPECT_EQ(pole->yVector()->elementType(), simdata::kComplex);
  EXPECT_EQ(pole->yVector()->doubleAt(0), 778810.0);
  EXPECT_EQ(pole->xVector()->doubleAt(0), 0.0001);
  // An operating point: scalars with their type names.
  auto dc = openSample("psf_utils/joop-banaan.dc");
  auto vref = dc->datasets()->at(0)->readValue("vref_o");
  EXPECT_EQ(vref->kind(), simdata::kScalarValue);
  EXPECT_EQ(vref->scalar(), 0.2);
  EXPECT_EQ(dc->datasets()->at(0)->findSignal("Vsupply800m:p")->typeName, "I");
  // Record entries of operating-point information: NAME:field of the record's type, bare
  // nan and inf among the values.
  auto info = openSample("psf_utils/dcOpInfo.info.psfascii");
  Dataset* op = info->datasets()->at(0);
  EXPECT_EQ(op->findSignal("V0:v")->typeName, "vsource");
  EXPECT_EQ(op->readValue("V0:i")->scalar(), 2.27129e-12);
  EXPECT_EQ(op->findSignal("NM0:ids")->typeName, "bsim3v3");
  EXPECT_EQ(op->readValue("NM0:ids")->scalar(), 1.50477e-07);  // the record's first field
  int nans = 0;
  for (int i = 0; i < op->signals()->count(); ++i) {
    nans += std::isnan(op->readValue(op->signals()->at(i)->name1)->scalar()) ? 1 : 0;
  }
  EXPECT_GT(nans, 0);
  // The temperature of a design-parameter record; the design variables.
  auto params = openSample("pycircuit/dcop_dir");
  EXPECT_EQ(params->findDataset("designParamVals-info")->readValue("top-level:temp")->scalar(),
            27.0);
  auto variables = openSample("pycircuit/parsweep_run");
  const simdata::Signal* vdc = variables->findDataset("variables")->findSignal("VDC1:value");
  ASSERT_TRUE(vdc);
  EXPECT_EQ(vdc->typeName, "variable");
  // Node records, resistor records, field names with trailing blanks.
  auto converted = openSample("pycircuit/converted");
  Dataset* opBegin = converted->findDataset("opBegin.asc");
  EXPECT_EQ(opBegin->readValue("OUTP<0>:v")->scalar(), 0.900832);
  EXPECT_EQ(opBegin->findSignal("XIRXRFMIXTRIM0.XR7.XR.R1:r")->typeName, "RESISTOR");
  EXPECT_EQ(opBegin->readValue("XIRXRFMIXTRIM0.XR7.XR.R1:r")->scalar(), 3342.93);
  EXPECT_TRUE(opBegin->findSignal("XIRXRFMIXTRIM0.XM1PDAC1.XMN.MAIN:phi"));
  Dataset* sweep = converted->findDataset("srcSweep.asc");
  EXPECT_EQ(sweep->readValue("VOUT")->yVector()->doubleAt(0), -6.0);
  EXPECT_EQ(sweep->readValue("R0")->yVector()->doubleAt(1), -0.004);
  Dataset* stb = converted->findDataset("stb.stb.asc");
  auto gain = stb->readValue("loopGain");
  EXPECT_EQ(gain->yVector()->doubleAt(20), 1.73120);  // at vdc = 0
  EXPECT_EQ(gain->xVector()->doubleAt(20), 0.0);
}

}  // namespace
