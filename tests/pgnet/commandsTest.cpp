// The grid setting of the power-grid analysis: only fine grids are kept. The messages of the
// length and layer commands are checked end to end (pgnet_length_messages).

#include <gtest/gtest.h>

#include <string>

#include "app/analyzeNetlist.h"
#include "db/designGlobals.h"

namespace {

TEST(LengthCommands, CadGridKeepsOnlyFineGrids) {
  const double designGrid = 1.0 / hlm::global::getDBU();
  const struct {
    const char* text;
    double expected;
  } cases[] = {
      {"0.0005", 0.0005},    {"0.001", 0.001},  {"0.0010001", designGrid},
      {"0.01", designGrid},  {"5", designGrid}, {"abc", 0.0},
      {"-2", -2.0},          {"1e-9", 1e-9},    {"2e-4xyz", 2e-4},
      {"1e999", designGrid},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    zeAnalyzeNetlist session;
    session.dbuScale = 42.0;
    ArgList args{c.text};
    EXPECT_EQ(session.processCadGridCmd(&args), 0);
    EXPECT_EQ(session.dbuScale, c.expected);
  }
}

}  // namespace
