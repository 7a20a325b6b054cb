#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <set>
#include <string>

#include "app/analyzeNetlist.h"
#include "db/designGlobals.h"

namespace {

using hlm::global;

// One test: the globals are process-wide, and the start values are checked before any change.
TEST(DesignGlobals, StartValuesAndSetters) {
  EXPECT_EQ(global::getDBU(), 1000.0);
  EXPECT_EQ(global::getGridResolution(), 2000.0);
  EXPECT_EQ(global::getLayoutShrink(), 1.0);
  EXPECT_EQ(global::getVersion(), "1");
  const hlm::BBox box = global::getDesignBox();
  EXPECT_EQ(box.llx, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(box.lly, 9223372036854775807);
  EXPECT_EQ(box.urx, std::numeric_limits<int64_t>::min());
  EXPECT_EQ(box.ury, std::numeric_limits<int64_t>::min());
  EXPECT_EQ(global::getLibName(), "");
  EXPECT_FALSE(global::getBufferLog());
  {
    zeAnalyzeNetlist session;
    EXPECT_EQ(session.dbuScale, 0.001);
  }

  global::setDBU(0.0);
  EXPECT_EQ(global::getDBU(), 1000.0);
  EXPECT_EQ(global::getGridResolution(), 2000.0);
  global::setDBU(2000.0);
  EXPECT_EQ(global::getDBU(), 2000.0);
  EXPECT_EQ(global::getGridResolution(), 4000.0);
  global::setDBU(-0.5);  // only exactly 0.0 is ignored
  EXPECT_EQ(global::getGridResolution(), -1.0);
  global::setDBU(1000.0);

  global::setVersion(nullptr);
  EXPECT_EQ(global::getVersion(), "1");
  global::setVersion("4.9");
  EXPECT_EQ(global::getVersion(), "4.9");

  global::setDesignBox({-5, -6, 7, 8});
  const hlm::BBox set = global::getDesignBox();
  EXPECT_EQ(set.llx, -5);
  EXPECT_EQ(set.lly, -6);
  EXPECT_EQ(set.urx, 7);
  EXPECT_EQ(set.ury, 8);

  global::addHighRModel("rhigh");
  global::addHighRModel("rhigh");
  global::addHighRModel("Rhigh");
  std::set<std::string> models = {"stale"};
  global::getHighRModel(models);
  EXPECT_EQ(models, (std::set<std::string>{"Rhigh", "rhigh"}));
  global::clearHighRModel();
  global::getHighRModel(models);
  EXPECT_TRUE(models.empty());

  hlm::bufferLog log;
  log.setBufferLog(true);
  EXPECT_TRUE(log.isBuffered());
  EXPECT_TRUE(global::getBufferLog());
  log.setBufferLog(false);
  EXPECT_FALSE(global::getBufferLog());
}

}  // namespace
