#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "analysis/sources.h"
#include "app/analyzeNetlist.h"
#include "simdata/memoryResults.h"

namespace {

using simdata::MemoryValue;

class SourceValues : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(session.init(nullptr, nullptr, true), 0);
    auto results = std::make_unique<simdata::MemoryResultsDir>("mem");
    op = results->addDataset("op", "op");
    session.resultsDir = std::move(results);
  }
  void TearDown() override { unsetenv(analysis::kSourceValuesVariable); }
  void add(const char* name, const char* type, double value) {
    op->addSignal({name, name, type, -1}, MemoryValue::scalarValue(name, value));
  }
  zeAnalyzeNetlist session;
  simdata::MemoryDataset* op = nullptr;
};

TEST_F(SourceValues, SourcesNeedTheVariable) {
  add("VDD:v", "vsource", 1.2);
  zeVsrc sources;
  EXPECT_EQ(session.processVsrcCmd(sources), 0);
  EXPECT_TRUE(sources.sources().empty());
}

TEST_F(SourceValues, VoltagesAndCurrentsOfSources) {
  setenv(analysis::kSourceValuesVariable, "1", 1);
  add("VDD:v", "vsource", 1.2);
  add("R1:v", "resistor", 9.0);  // not a source type
  add("VDD:i", "vsource", 0.5);
  add("I1:i", "isource", 1e-3);
  add("I1:q", "isource", 7.0);    // neither v nor i
  add("lonely", "isource", 7.0);  // one token
  add("S:v", "isource", 1.0);
  add("S:v:extra", "vsource", 2.0);
  op->addSignal({"W:v", "W:v", "vsource", -1},
                MemoryValue::waveform("W", simdata::timeAxis({0, 1}), simdata::timeAxis({1, 1})));
  zeVsrc sources;
  EXPECT_EQ(session.processVsrcCmd(sources), 0);
  const auto& map = sources.sources();
  ASSERT_EQ(map.size(), 3u);
  EXPECT_EQ(map.at("VDD")->voltage, 1.2);
  EXPECT_EQ(map.at("VDD")->current, 0.5);
  EXPECT_EQ(map.at("I1")->current, 1e-3);
  // Types are visited in order of first appearance (vsource, from VDD:v, then isource): the
  // isource signal of S is read last and wins although it comes first in the list.
  EXPECT_EQ(map.at("S")->voltage, 1.0);
  EXPECT_EQ(map.count("W"), 0u);  // not a scalar
}

TEST_F(SourceValues, ResistorPowersFilledOnce) {
  add("R1.pwr", "resistor", 1e-3);
  add("x:R7:pwr", "resistor", 2e-3);
  add("pwr", "resistor", 5.0);
  add("R8:cur", "resistor", 6.0);
  add("R9.pwr", "capacitor", 7.0);
  add("y:R7:pwr", "resistor", 4e-3);
  session.populateResToWatt();
  EXPECT_EQ(session.resToWatt, (std::map<std::string, double>{{"R1", 1e-3}, {"R7", 4e-3}}));

  add("R2.pwr", "resistor", 1.0);
  session.populateResToWatt();
  EXPECT_EQ(session.resToWatt.count("R2"), 0u);

  std::vector<zeInstance> list(4);
  list[0].name = "R1";
  list[1].name = "R7";
  list[2].name = "R5";
  list[2].power = 9.0;
  list[3].name = "R7";
  session.getWattSignals(1, 2, list);
  EXPECT_EQ(list[0].power, 0.0);  // outside the range
  EXPECT_EQ(list[1].power, 4e-3);
  EXPECT_EQ(list[2].power, 9.0);  // not in the table
  EXPECT_EQ(list[3].power, 0.0);
  session.getWattSignals(3, 100, list);
  EXPECT_EQ(list[3].power, 4e-3);
  session.getWattSignals(5, 1, list);  // nothing to do
}

}  // namespace
