#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>

#include "db/designGlobals.h"

namespace {

using hlm::global;

// One test: the globals are process-wide. The rules worth checking are those of the setters:
// a unit of exactly 0 is ignored, the grid follows the unit, model names are a set.
TEST(DesignGlobals, SetterRules) {
  global::setDBU(0.0);
  EXPECT_EQ(global::getDBU(), 1000.0);
  EXPECT_EQ(global::getGridResolution(), 2000.0);
  global::setDBU(2000.0);
  EXPECT_EQ(global::getGridResolution(), 4000.0);
  global::setDBU(-0.5);  // only exactly 0.0 is ignored
  EXPECT_EQ(global::getGridResolution(), -1.0);
  global::setDBU(1000.0);

  global::setVersion("4.9");
  global::setVersion(nullptr);
  EXPECT_EQ(global::getVersion(), "4.9");

  global::addHighRModel("rhigh");
  global::addHighRModel("rhigh");
  global::addHighRModel("Rhigh");
  std::set<std::string> models = {"stale"};
  global::getHighRModel(models);
  EXPECT_EQ(models, (std::set<std::string>{"Rhigh", "rhigh"}));
  global::clearHighRModel();
  global::getHighRModel(models);
  EXPECT_TRUE(models.empty());
  EXPECT_EQ(global::getDesignBox().llx, INT64_MAX);  // an empty box until a design sets it
  EXPECT_EQ(global::getDesignBox().ury, INT64_MIN);

  hlm::bufferLog log;
  log.setBufferLog(true);
  EXPECT_TRUE(global::getBufferLog());
  log.setBufferLog(false);
  EXPECT_FALSE(global::getBufferLog());
}

}  // namespace
