// The check of a list of instances: worst-first order with ties in input order, what it
// reports besides the rows, a via's rule found under its own layer, and currents in amps from
// a run's instances. The numbers are small enough to follow by hand in the comments.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "analysis/netlist.h"
#include "em/check.h"
#include "em/report.h"

namespace {

em::Rules rulesAt25() {
  em::Rules rules;
  rules.referenceTemperature = 25.0;
  rules.activationEnergy = 0.0;
  rules.currentExponent = 1.0;
  rules.layers["M1"].perWidth.avg = 1.0;  // 1 mA per um
  rules.layers["M2"].widthBias = -0.1;
  rules.layers["M2"].perWidth.avg = 1.0;
  rules.vias["V1"].perVia.peak = 1.0;  // 1 mA
  return rules;
}

TEST(EmCheck, OrderAndFindings) {
  // V joins A's net n2 and net n9: the length calculation renames its layer to M1, the rule
  // is still V1's. C's 0.05 um leave nothing after M2's -0.1 um bias.
  std::istringstream lengths(
      "A n1 n2 1 1 M1 nil\nB n3 n4 1 1 M1 nil\nB2 n5 n6 1 1 M1 nil\nC n7 n8 1 0.05 M2 nil\n"
      "D n9 n10 1 1 M9 nil\nV n2 n11 1 1 V1 V\n");
  em::Geometry geometry;
  std::string error;
  ASSERT_TRUE(em::loadGeometry(lengths, {{"V1", "M2", "M1"}, false}, geometry, error)) << error;
  const std::vector<em::Subject> subjects = {
      {"A", {0.5e-3, 0, 0}, true},  // ratio 0.5
      {"B", {2e-3, 0, 0}, true},    // ratio 2
      {"C", {1e-3, 0, 0}, true},    // w <= 0: NO_RULE
      {"D", {1e-3, 0, 0}, true},    // M9: NO_RULE
      {"E", {1e-3, 0, 0}, true},    // no geometry
      {"B2", {2e-3, 0, 0}, true},   // ratio 2, after B
      {"F", {0, 0, 0}, false},      // not analysed
      {"V", {0, 0, 3e-3}, true},    // via peak ratio 3
  };
  const em::Outcome outcome = em::checkAll(subjects, geometry, rulesAt25(), 25.0);
  std::vector<std::string> order;
  for (const em::Row& row : outcome.rows) {
    order.emplace_back(subjects[row.subject].name);
  }
  EXPECT_EQ(order, (std::vector<std::string>{"V", "B", "B2", "A", "C", "D", "E", "F"}));
  EXPECT_EQ(outcome.rows[0].check.worst, 3.0);
  EXPECT_EQ(outcome.rows[3].check.verdict, em::Verdict::kPass);
  const em::Findings& found = outcome.findings;
  EXPECT_EQ(found.counts, (std::array<size_t, em::kVerdicts>{3, 1, 0, 2, 1, 1}));
  EXPECT_EQ(found.layersWithoutRule, (std::map<std::string, size_t>{{"M9", 1}}));
  ASSERT_EQ(found.nonPositiveWidths.count("M2"), 1u);
  EXPECT_EQ(found.nonPositiveWidths.at("M2").count, 1u);
  EXPECT_EQ(found.nonPositiveWidths.at("M2").firstName, "C");
  EXPECT_EQ(found.nonPositiveWidths.at("M2").firstWidth, 0.05);
  EXPECT_EQ(found.withoutGeometry, 1u);
  EXPECT_EQ(found.firstWithoutGeometry, "E");
  EXPECT_EQ(geometry.find("V")->shape.via, true);
  EXPECT_EQ(geometry.layerName(geometry.find("V")->layer), "V1");
}

TEST(EmCheck, CurrentsOfInstances) {
  zeInstance resistor;
  resistor.name = "R";
  resistor.resistance = 2.0;
  resistor.data.avg = 4e-3;  // volts: 4 mV over 2 ohm
  resistor.data.rms = 6e-3;
  resistor.data.peak = 8e-3;
  resistor.data.avgNegative = 1e-3;
  const em::InstanceCurrents amps = em::currentsOf(resistor);
  EXPECT_TRUE(amps.usable);
  EXPECT_EQ(amps.avg, 2e-3);
  EXPECT_EQ(amps.rms, 3e-3);
  EXPECT_EQ(amps.peak, 4e-3);
  EXPECT_EQ(amps.avgNegative, 0.5e-3);

  zeInstance probe = resistor;  // no resistance: a branch current as it is
  probe.resistance = 0.0;
  EXPECT_EQ(em::currentsOf(probe).avg, 4e-3);

  zeInstance badValue = resistor;
  badValue.resistance = std::nan("");
  EXPECT_FALSE(em::currentsOf(badValue).usable);
  EXPECT_FALSE(em::subjectOf(badValue).analysed);
  zeInstance invalid = resistor;
  invalid.valid = false;
  EXPECT_FALSE(em::subjectOf(invalid).analysed);
  zeInstance infinite = resistor;
  infinite.data.rms = std::numeric_limits<double>::infinity();
  EXPECT_FALSE(em::subjectOf(infinite).analysed);
  EXPECT_TRUE(em::subjectOf(resistor).analysed);
}

TEST(EmReport, NamesStayOneFieldAndNumbersReadBack) {
  const em::Geometry none;
  const std::vector<em::Subject> subjects = {{"a\tb\nc", {0.1, 1.0 / 3.0, 2e-300}, true}};
  const em::Outcome outcome = em::checkAll(subjects, none, rulesAt25(), 25.0);
  std::FILE* file = std::tmpfile();
  ASSERT_TRUE(em::writeReport(file, {"r.raw", "tran", 0, 1e-9, "exact", 25, "reference", "x.toml"},
                              subjects, none, outcome));
  std::rewind(file);
  std::string text(4096, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  const size_t third = text.find('\n', text.find('\n') + 1) + 1;
  EXPECT_EQ(text.substr(0, text.find('\t')), "# kra2 checkEM");
  EXPECT_NE(text.find("\twindow 0 1e-09 s\tmode exact\ttemperature 25 degC (reference)\t"),
            std::string::npos);
  // Shortest round-trip texts: 0.1, 1/3 with its 16 digits, and a tiny value in exponent form.
  EXPECT_EQ(text.substr(third),
            "a\\tb\\nc\t-\t-\tNaN\tNaN\t0.1\t0.3333333333333333\t2e-300\tNaN\tNaN\tNaN\tNaN\t"
            "NaN\tNaN\tNaN\tNO_GEOMETRY\n");
  EXPECT_EQ(
      em::summaryLines(subjects, outcome),
      (std::vector<std::string>{"checkEM: 1 instances: FAIL 0, PASS 0, IMMORTAL 0, NO_RULE 0, "
                                "NO_GEOMETRY 1, NOT_ANALYSED 0\n"}));
}

}  // namespace
