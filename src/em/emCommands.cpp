// EM commands: emTemperature and checkEM, which checks every instance's currents against EM
// rules with the geometry of the length data and writes the violations report.

#include <cmath>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include "analysis/settings.h"
#include "app/analyzeNetlist.h"
#include "app/outputFile.h"
#include "db/dbFile.h"
#include "db/emRecordTable.h"
#include "em/check.h"
#include "em/geometry.h"
#include "em/report.h"
#include "em/rules.h"

namespace {

constexpr const char* kCommand = "checkEM";

/// The currents of a database's EM records, one subject per distinct name in ascending order
/// (a later record of a name replaces an earlier one). The database stores the signed net
/// average (reverse currents fully heal: recovery factor 1) and the average of the positive
/// part over the same window; with emRecoveryFactor r the average is weighed again as
/// max(P, N) - r min(P, N), N = avgPos - avg being the negative part's magnitude.
void databaseSubjects(const kraDB::EMRecordTable& table, std::vector<em::Subject>& subjects) {
  const analysis::ProcessSettings& settings = analysis::processSettings();
  subjects.reserve(table.size());
  for (uint32_t rank = 0; rank < table.size(); ++rank) {
    const kraDB::EMRecord& record = table.at(rank);
    double avg = std::fabs(record.avg);
    if (settings.emRecoveryFactorGiven) {
      const double positive = std::fabs(record.avgPos);
      const double negative = std::fabs(record.avgPos - record.avg);
      avg = std::max(positive, negative) -
            std::min(positive, negative) * static_cast<double>(settings.emRecoveryFactor);
    }
    const em::Currents currents{avg, std::fabs(record.rms), std::fabs(record.peak)};
    const bool finite =
        std::isfinite(avg) && std::isfinite(currents.rms) && std::isfinite(currents.peak);
    subjects.push_back({record.name, currents, finite});
  }
}

}  // namespace

int zeAnalyzeNetlist::processEmTemperatureCmd(const ArgList* args) {
  const char* text = argAt(args, 0);
  char* end = nullptr;
  const double value = text != nullptr ? std::strtod(text, &end) : 0.0;
  if (text == nullptr || end == text || *end != '\0' || !std::isfinite(value) || value <= -273.15) {
    logMsg(kError, Echo::yes,
           "%s: %s command requires a temperature in degrees Celsius above -273.15.\n",
           kProgramName, "emTemperature");
    return 1;
  }
  emTemperature = value;
  return 0;
}

bool zeAnalyzeNetlist::loadEmGeometry(em::Geometry& geometry) {
  if (lengthDataInputFile.empty()) {
    logMsg(kError, Echo::yes, "%s: Must name the length data first (lengthDataInput)\n",
           kProgramName);
    return false;
  }
  std::ifstream input(lengthDataInputFile, std::ios::in | std::ios::binary);
  if (!input.is_open()) {
    logMsg(kError, Echo::yes, "%s: Unable to open file %s for reading, in command %s.\n",
           kProgramName, lengthDataInputFile.c_str(), kCommand);
    return false;
  }
  std::string error;
  if (!em::loadGeometry(input, {layerStack, evalTotalSum}, geometry, error)) {
    logMsg(kError, Echo::yes, "%s\n", error.c_str());
    return false;
  }
  return true;
}

void zeAnalyzeNetlist::logEmFindings(const em::Findings& findings, const em::Rules& rules) {
  if (findings.withoutGeometry > 0) {
    logMsg(kWarning, Echo::yes,
           "%s: %s: %zu instances are not in the length data %s (NO_GEOMETRY), the first %s.\n",
           kProgramName, kCommand, findings.withoutGeometry, lengthDataInputFile.c_str(),
           findings.firstWithoutGeometry.c_str());
  }
  for (const auto& [layer, count] : findings.layersWithoutRule) {
    logMsg(kWarning, Echo::yes, "%s: %s: layer %s of %zu instances has no rule in %s (NO_RULE).\n",
           kProgramName, kCommand, layer.c_str(), count, rules.path.c_str());
  }
  for (const auto& [layer, bad] : findings.nonPositiveWidths) {
    logMsg(kError, Echo::yes,
           "%s: EM rules file %s, table [layers.%s], key width_bias: the effective width of %zu "
           "instances is not positive (NO_RULE), the first %s of width %s um.\n",
           kProgramName, rules.path.c_str(), layer.c_str(), bad.count, bad.firstName.c_str(),
           em::formatNumber(bad.firstWidth).c_str());
  }
}

int zeAnalyzeNetlist::processCheckEMCmd(const ArgList* args) {
  const char* rulesPath = argAt(args, 0);
  const char* outputPath = argAt(args, 1);
  const char* databasePath = argAt(args, 2);
  if (outputPath == nullptr) {
    logMsg(kError, Echo::yes, "%s: %s command requires a rules file and an output file name.\n",
           kProgramName, kCommand);
    return 1;
  }
  em::Rules rules;
  std::string error;
  if (!em::readRules(rulesPath, rules, error)) {
    logMsg(kError, Echo::yes, "%s: %s\n", kProgramName, error.c_str());
    return 1;
  }
  if (databasePath == nullptr) {
    if (!analysisSelected()) {
      return 1;
    }
    if (!instances.loaded) {
      logMsg(kError, Echo::yes, "%s: Must load netlist first (loadNetlist)\n", kProgramName);
      return 1;
    }
    if (!lastRun.ran) {
      logMsg(kError, Echo::yes, "%s: Must run the analysis first (run)\n", kProgramName);
      return 1;
    }
  }
  em::Geometry geometry;
  if (!loadEmGeometry(geometry)) {
    return 1;
  }
  em::Provenance provenance;
  provenance.rules = rulesPath;
  std::vector<em::Subject> subjects;
  kraDB::EMRecordTable records;
  // The temperature of the results or of the database, when known.
  bool hasFound = temperatureFound;
  double found = temperature;
  if (databasePath != nullptr) {
    try {
      kraDB::kraDBFile database(databasePath);
      kraDB::kraDBEMNode record;
      while (database.readNextEM(record)) {
        records.add(record);
      }
      records.finish();
      hasFound = true;
      found = database.getTemperature();
      provenance.source = databasePath;
      provenance.analysis = "database";
      provenance.windowStart = database.getStartTime();
      provenance.windowStop = database.getStopTime();
      provenance.mode = "database";
    } catch (const std::exception& failure) {
      std::string text = failure.what();
      while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
      }
      logMsg(kError, Echo::yes, "%s: %s\n", kProgramName, text.c_str());
      return 1;
    }
    databaseSubjects(records, subjects);
  } else {
    subjects.reserve(instances.instances.size());
    for (const zeInstance& instance : instances.instances) {
      subjects.push_back(em::subjectOf(instance));
    }
    provenance.source = resultsDir->name();
    provenance.analysis = analysis->name();
    provenance.windowStart = lastRun.start;
    provenance.windowStop = lastRun.stop;
    provenance.mode = lastRun.mode == analysis::WindowMode::kExact ? "exact" : "legacy";
  }
  provenance.temperatureC = emTemperature ? *emTemperature
                            : hasFound    ? found
                                          : rules.referenceTemperature;
  provenance.temperatureFrom = emTemperature ? "emTemperature"
                               : hasFound    ? (databasePath ? "database" : "saveTemperature")
                                             : "reference";
  const em::Outcome outcome = em::checkAll(subjects, geometry, rules, provenance.temperatureC);
  OutputFile output;
  if (mayOverwrite(outputPath)) {
    output = OutputFile(outputPath, "w+");
  }
  if (!output) {
    logMsg(kError, Echo::yes, "%s: Unable to open output result file %s.\n", kProgramName,
           outputPath);
    return 1;
  }
  em::writeReport(output.get(), provenance, subjects, geometry, outcome);
  const bool written = closeOutput(output);
  logEmFindings(outcome.findings, rules);
  for (const std::string& line : em::summaryLines(subjects, outcome)) {
    logMsg(kInfo, Echo::yes, "%s", line.c_str());
  }
  return written ? 0 : 1;
}
