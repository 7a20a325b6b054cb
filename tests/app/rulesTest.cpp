// Small naming and number-reading rules of several layers, as one table of hand-worked cases
// (tests/data/app/rules.txt): each line names a rule, an input and the result; this file
// only knows how to apply each rule and write its result as text.

#include <gtest/gtest.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

#include "analysis/instanceMeasure.h"
#include "analysis/settings.h"
#include "analysis/sources.h"
#include "app/analyzeNetlist.h"
#include "dbText.h"
#include "pgnet/emRelation.h"
#include "pgnet/network.h"
#include "simdata/analysisFilter.h"
#include "simdata/memoryResults.h"
#include "simdata/rawBackend.h"
#include "simdata/resultsReader.h"
#include "simdata/timeRange.h"
#include "support/caseTable.h"
#include "support/testFiles.h"
#include "support/text.h"

namespace {

constexpr double kUntouched = -12345.0;  // what a refused number leaves in place

/// The shortest text that reads back as the value; "nan" for any NaN.
template <typename Real>
std::string shortest(Real value) {
  char text[32];
  return std::isnan(value) ? "nan" : std::string(text, std::to_chars(text, text + 32, value).ptr);
}

/// A number read with the rules, or "refused" (with the value left in place).
std::string number(const std::string& text, support::NumberRules numberRules = {}) {
  double value = kUntouched;
  const bool ok = support::parseDouble(text, value, numberRules);
  return ok ? shortest(value) : value == kUntouched ? "refused" : "refused, value changed";
}

template <typename Int>
std::string integerOrRefused(const std::string& text) {
  Int value = -1;
  const bool ok = support::parseInteger(text, value);
  return ok ? std::to_string(value) : value == -1 ? "refused" : "refused, value changed";
}

std::string filtered(const std::string& type, bool includeAll) {
  includeAll ? setenv("_kraIncludeAllAnalysis", "", 1) : unsetenv("_kraIncludeAllAnalysis");
  const bool kept = simdata::analysisFilter(type);
  unsetenv("_kraIncludeAllAnalysis");
  return kept ? "kept" : "left out";
}

/// The time window of a sweep written as "name type min max, name none, ...".
std::string sweepTime(const std::string& text) {
  if (text == "null") {
    return simdata::sweepTimeRange(nullptr) ? "a window" : "none";
  }
  simdata::Sweep sweep;
  std::istringstream dimensions(text);
  for (std::string dimension; std::getline(dimensions, dimension, ',');) {
    std::istringstream words(dimension);
    std::string name, type;
    simdata::Range range;
    words >> name >> type >> range.min >> range.max;
    range.dataType = type == "none" ? 0 : std::stoi(type);
    sweep.add({name, type == "none" ? std::nullopt : std::optional(range)});
  }
  const auto window = simdata::sweepTimeRange(&sweep);
  return window ? shortest(window->start) + " " + shortest(window->stop) : "none";
}

/// The window indices on "start stop : axis", the same on a double and a float axis.
std::string timeIndices(const std::string& text) {
  std::istringstream words(text);
  double start = 0.0, stop = 0.0;
  std::string colon, word;
  words >> start >> stop >> colon;
  std::vector<double> axis;
  while (words >> word) {
    axis.push_back(std::strtod(word.c_str(), nullptr));
  }
  const simdata::MemoryVector doubles("time", "s", axis);
  const simdata::MemoryVector floats("time", "s", std::vector<float>(axis.begin(), axis.end()));
  std::string found[2];
  for (const simdata::MemoryVector* vector : {&doubles, &floats}) {
    int first = -5, last = -5;
    simdata::timeRangeIndices(text == "null" ? nullptr : vector, start, stop, first, last);
    found[vector == &floats] = std::to_string(first) + " " + std::to_string(last);
  }
  return found[0] == found[1] ? found[0] : found[0] + " but " + found[1] + " on floats";
}

/// What a command file of setting commands leaves in the session.
std::string settingCommands(const std::string& commands) {
  testing_support::ScratchDir dir;
  testing_support::writeFile(dir.file("cmd"), commands + "\n");
  analysis::processSettings() = {};
  zeAnalyzeNetlist session;
  testing::internal::CaptureStdout();
  EXPECT_EQ(session.init(dir.file("cmd").c_str(), dir.file("log").c_str(), false), 0);
  EXPECT_EQ(session.processCommandFile(), 0);
  testing::internal::GetCapturedStdout();
  const analysis::ProcessSettings settings = analysis::processSettings();
  analysis::processSettings() = {};
  return "duration=" + shortest(session.durationTime) +
         " emGiven=" + std::to_string(settings.emRecoveryFactorGiven) +
         " emFactor=" + shortest(settings.emRecoveryFactor) +
         " recovery=" + shortest(settings.recoveryFactor) +
         " flag=" + std::to_string(session.recoveryFactorFlag) +
         " qxf=" + std::to_string(session.dataType == zeNetlist::eQXF);
}

/// A reader vector written as "<type> <values>" (type f64, f32, i32, i8, complex or code<N>
/// for a double vector reporting type code N; "null" for none), read up to a ":".
std::shared_ptr<simdata::MemoryVector> vectorOf(std::istream& words) {
  std::string type, word;
  words >> type;
  std::vector<double> values;
  while (words >> word && word != ":") {
    values.push_back(std::strtod(word.c_str(), nullptr));
  }
  std::shared_ptr<simdata::MemoryVector> vector;
  if (type == "f32") {
    vector = std::make_shared<simdata::MemoryVector>(
        "v", "", std::vector<float>(values.begin(), values.end()));
  } else if (type == "i32" || type == "i8") {
    vector = type == "i8" ? std::make_shared<simdata::MemoryVector>(
                                "v", "", std::vector<int8_t>(values.begin(), values.end()))
                          : std::make_shared<simdata::MemoryVector>(
                                "v", "", std::vector<int32_t>(values.begin(), values.end()));
  } else if (type != "null") {
    vector = std::make_shared<simdata::MemoryVector>("v", "", values);
    if (type == "complex" || type.starts_with("code")) {
      vector->setTypeOverride(type == "complex" ? simdata::kComplex : std::stoi(type.substr(4)));
    }
  }
  return vector;
}

/// The samples the statistics take from a vector.
std::string samplesOf(const std::string& text) {
  std::istringstream words(text);
  const std::shared_ptr<simdata::MemoryVector> vector = vectorOf(words);
  std::vector<double> scratch;
  const analysis::Samples samples = analysis::samplesOf(vector.get(), scratch);
  EXPECT_EQ(samples[-1] + samples[samples.size()], 0.0);  // outside reads as 0
  std::string shown = samples.present() ? "" : "absent";
  for (int i = 0; i < samples.size(); ++i) {
    shown += (i > 0 ? " " : "") + shortest(samples[i]);
  }
  const bool own = samples.size() > 0 && samples.data() == vector->doubles().data();
  return shown + (own ? " own memory" : "");
}

/// One element of a vector ("<vector> : <index>") and what reading it prints.
std::string dataVectorAt(const std::string& text) {
  std::istringstream words(text);
  const std::shared_ptr<simdata::MemoryVector> vector = vectorOf(words);
  int index = 0;
  words >> index;
  testing::internal::CaptureStdout();
  const double value = simdata::getDataVectorAt(vector.get(), index);
  const std::string printed = testing::internal::GetCapturedStdout();
  return shortest(value) + (printed.empty() ? "" : " printed '" + printed + "'");
}

using Rule = std::function<std::string(const std::string&)>;

const std::map<std::string, Rule>& rules() {
  static const std::map<std::string, Rule> kRules = {
      {"analysisKind",
       [](const std::string& in) {
         const std::string kind = simdata::raw::analysisKind(in);
         return kind + " " + simdata::raw::analysisTypeOfKind(kind);
       }},
      {"bareName", [](const std::string& in) { return simdata::raw::bareName(in); }},
      {"hierarchyPrefix",
       [](const std::string& in) { return pgnet::normaliseHierarchyPrefix(in); }},
      {"resistorPrefix", [](const std::string& in) { return pgnet::normaliseResistorPrefix(in); }},
      {"resistorPowerKey", [](const std::string& in) { return analysis::resistorPowerKey(in); }},
      {"analysisFilter", [](const std::string& in) { return filtered(in, false); }},
      {"analysisFilterAll", [](const std::string& in) { return filtered(in, true); }},
      {"viaType",
       [](const std::string& in) {
         kraNode node;
         node.viaType = kraNode::getViaType(in);
         return std::to_string(node.viaType) + (node.isVia() ? " via" : "") +
                (node.isTerminalVia() ? " terminal" : "");
       }},
      {"sameWithin",
       [](const std::string& in) {
         double n[3] = {};
         EXPECT_EQ(std::sscanf(in.c_str(), "%lf %lf %lf", &n[0], &n[1], &n[2]), 3);
         return zeNetwork::compareFloatValue(n[0], n[1], n[2]) ? "same" : "different";
       }},
      {"layerStack",
       [](const std::string& in) {
         zeNetwork network(1.0, false);
         network.setLayerStack({"OLD", "X", "Y"});
         std::istringstream words(in);
         network.setLayerStack({std::istream_iterator<std::string>(words), {}});
         std::string upper, lower;
         for (const auto& [via, metal] : network.upperLayerOf) {
           upper += via + "=" + metal + " ";
         }
         for (const auto& [via, metal] : network.lowerLayerOf) {
           lower += via + "=" + metal + " ";
         }
         EXPECT_EQ(network.isTopLayer("V1", "M2"), upper.starts_with("V1=M2"));
         EXPECT_EQ(network.isBottomLayer("V1", "M1"), lower.starts_with("V1=M1"));
         return upper.empty() ? upper : upper + "/ " + lower.substr(0, lower.size() - 1);
       }},
      {"sourceFlag",
       [](const std::string& in) {
         const std::vector<std::string_view> words = support::splitWords(in);
         kraNode node;
         node.viaType = kraNode::getViaType(words.at(0));
         node.currentDir = kraViaInOutSecond;
         node.setCurrentDir(std::stoi(std::string(words.at(1))));
         return std::to_string(node.currentDir);
       }},
      {"cadGrid",
       [](const std::string& in) {
         zeAnalyzeNetlist session;
         session.dbuScale = 42.0;  // so that a grid left unset shows
         const ArgList args{in};
         EXPECT_EQ(session.processCadGridCmd(&args), 0);
         return shortest(session.dbuScale);
       }},
      {"parseDouble", [](const std::string& in) { return number(in); }},
      {"parseDecimal",
       [](const std::string& in) {
         return number(in, {.infinityAndNaN = false, .outOfRangeAsStrtod = false});
       }},
      {"readDouble",
       [](const std::string& in) {
         double value = 0.0;
         const char* end = support::readDouble(in.data(), in.data() + in.size(), value);
         return std::to_string(end == nullptr ? 0 : end - in.data());
       }},
      {"dbReal",
       [](const std::string& in) {
         double value = 0.0;
         return kra2db::parseReal(in, value) ? shortest(value) : "refused";
       }},
      {"dbInt64",
       [](const std::string& in) {
         int64_t value = 0;
         return kra2db::parseInt64(in, value) ? std::to_string(value) : "refused";
       }},
      {"sweepTime", sweepTime},
      {"samplesOf", samplesOf},
      {"dataVectorAt", dataVectorAt},
      {"timeIndices", timeIndices},
      {"settingCommands", settingCommands},
      {"parseInteger", integerOrRefused<int32_t>},
      {"parseInteger64", integerOrRefused<int64_t>},
  };
  return kRules;
}

TEST(Rules, CasesOfTheTable) {
  std::ifstream in(KRA2_SOURCE_DIR "/tests/data/app/rules.txt");
  int cases = 0;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (line.empty() || line[0] == '#') {
      continue;
    }
    SCOPED_TRACE("rules.txt:" + std::to_string(number) + ": " + line);
    const size_t bar1 = line.find(" | ");
    const size_t bar2 = line.find(" | ", bar1 + 1);
    ASSERT_NE(bar2, std::string::npos);
    const std::string rule = line.substr(0, bar1);
    ASSERT_TRUE(rules().count(rule));
    EXPECT_EQ(rules().at(rule)(testing_support::unescape(line.substr(bar1 + 3, bar2 - bar1 - 3))),
              testing_support::unescape(line.substr(bar2 + 3)));
    ++cases;
  }
  EXPECT_GT(cases, 100);
}

}  // namespace
