// The readers checked through their canonical dump: every folder of tests/data/readers holds an
// `input` (a file, or a folder of results) and the expected `expected.dump`, or `expected.err`
// (the reader's error text) when opening must fail. Folders under tests/data/readers/samples
// name, in a file `sample`, an input of the shared samples folder instead; they are skipped when
// that folder is missing (KRA2_SAMPLES_DIR in the environment overrides where it is).
// The case name chooses the reader: raw_* the raw backend, psf_* the PSF backend, others
// whichever recognises the input. KRA2_BLESS=1 rewrites the expected files from what the
// readers give (check every change by hand before committing it).

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "simdata/psfBackend.h"
#include "simdata/rawBackend.h"
#include "simdata/resultsDump.h"
#include "support/testFiles.h"

namespace fs = std::filesystem;
using testing_support::readFile;
using testing_support::writeFile;

namespace {

const fs::path kCases = fs::path(KRA2_SOURCE_DIR) / "tests/data/readers";

struct ReaderCase {
  std::string name;
  fs::path dir;
  bool fromSamples = false;
};

// CTest lists every case under its folder's name rather than the bytes of this struct.
void PrintTo(const ReaderCase& c, std::ostream* out) { *out << c.dir.string(); }

std::vector<ReaderCase> listCases() {
  std::vector<ReaderCase> cases;
  for (const bool samples : {false, true}) {
    const fs::path root = samples ? kCases / "samples" : kCases;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(root, ignored)) {
      if (entry.is_directory() && entry.path().filename() != "samples") {
        cases.push_back({(samples ? "samples_" : "") + entry.path().filename().string(),
                         entry.path(), samples});
      }
    }
  }
  std::sort(cases.begin(), cases.end(),
            [](const ReaderCase& a, const ReaderCase& b) { return a.name < b.name; });
  return cases;
}

fs::path samplesDir() {
  const char* overridden = std::getenv("KRA2_SAMPLES_DIR");
  return overridden != nullptr ? fs::path(overridden) : fs::path(KRA2_SAMPLES_DIR);
}

/// The text with every occurrence of `prefix` removed (absolute paths in error texts).
std::string withoutPrefix(std::string text, const std::string& prefix) {
  for (size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, at)) {
    text.erase(at, prefix.size());
  }
  return text;
}

std::unique_ptr<simdata::ResultsDir> openWith(const std::string& caseName,
                                              const std::string& path) {
  const std::string bare = caseName.substr(caseName.rfind("samples_", 0) == 0 ? 8 : 0);
  if (bare.rfind("raw_", 0) == 0) {
    return simdata::RawBackend().open(path);
  }
  if (bare.rfind("psf_", 0) == 0) {
    return simdata::PsfBackend().open(path);
  }
  return simdata::openResults(path);
}

class ReaderCases : public testing::TestWithParam<ReaderCase> {};

TEST_P(ReaderCases, DumpOrErrorAsExpected) {
  const ReaderCase& c = GetParam();
  fs::path input = c.dir / "input";
  std::string base = c.dir.string() + "/";
  if (c.fromSamples) {
    if (!fs::is_directory(samplesDir())) {
      GTEST_SKIP() << "samples folder missing: " << samplesDir();
    }
    std::string relative = readFile((c.dir / "sample").string());
    relative.erase(relative.find_last_not_of("\n ") + 1);
    input = samplesDir() / relative;
    base = samplesDir().string() + "/";
  }
  simdata::initialise();
  simdata::resetError();
  const auto results = openWith(c.name, input.string());
  std::string actual;
  std::string expectedName = "expected.dump";
  if (results == nullptr) {
    expectedName = "expected.err";
    actual = withoutPrefix(simdata::lastErrorText(), base) + "\n";
  } else {
    if (simdata::lastErrorCode() != 0) {
      actual = "warning " + std::to_string(simdata::lastErrorCode()) + ": " +
               withoutPrefix(simdata::lastErrorText(), base) + "\n";
    }
    simdata::DumpOptions options;
    options.headTail = c.fromSamples ? 3 : 0;
    const std::string bulk = simdata::dump(*results, options);
    options.readEach = true;
    EXPECT_EQ(simdata::dump(*results, options), bulk) << "one by one differs from bulk reads";
    actual += bulk;
  }
  simdata::resetError();
  const fs::path expected = c.dir / expectedName;
  const char* bless = std::getenv("KRA2_BLESS");
  if (bless != nullptr && std::string(bless) == "1") {
    fs::remove(c.dir / "expected.dump");
    fs::remove(c.dir / "expected.err");
    writeFile(expected.string(), actual);
    GTEST_SKIP() << "blessed " << expected;
  }
  ASSERT_TRUE(fs::exists(expected)) << "missing " << expected << "; the reader gave:\n" << actual;
  EXPECT_EQ(actual, readFile(expected.string()));
}

INSTANTIATE_TEST_SUITE_P(, ReaderCases, testing::ValuesIn(listCases()),
                         [](const testing::TestParamInfo<ReaderCase>& param) {
                           std::string name = param.param.name;
                           for (char& ch : name) {
                             ch = std::isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                           }
                           return name;
                         });

}  // namespace
