#pragma once
// Process-wide design settings shared by the database and network code: database unit, grid
// resolution, shrink, design box, library/cell/view names, version, high-resistance models.

#include <cstdint>
#include <limits>
#include <set>
#include <string>

namespace hlm {

/// A box in database units; the empty box is inverted so that the first point defines it.
struct BBox {
  int64_t llx = std::numeric_limits<int64_t>::max();
  int64_t lly = std::numeric_limits<int64_t>::max();
  int64_t urx = std::numeric_limits<int64_t>::min();
  int64_t ury = std::numeric_limits<int64_t>::min();
};

class global {
 public:
  static double getDBU() { return dbu; }
  /// Ignored for exactly 0.0; otherwise also sets the grid resolution to twice the value.
  static void setDBU(double v);
  static double getGridResolution() { return gridResolution; }
  static double getLayoutShrink() { return layoutShrink; }
  static void setLayoutShrink(double v) { layoutShrink = v; }
  static const std::string& getVersion() { return version; }
  /// Ignored for a null text.
  static void setVersion(const char* text);
  static BBox getDesignBox() { return designBox; }
  static void setDesignBox(const BBox& box) { designBox = box; }
  static const std::string& getLibName() { return libname; }
  static void setLibName(const std::string& name) { libname = name; }
  static const std::string& getCellName() { return cellname; }
  static void setCellName(const std::string& name) { cellname = name; }
  static const std::string& getViewName() { return viewname; }
  static void setViewName(const std::string& name) { viewname = name; }
  static void addHighRModel(const std::string& name) { highRModels.insert(name); }
  static void clearHighRModel() { highRModels.clear(); }
  static void getHighRModel(std::set<std::string>& out) { out = highRModels; }
  static bool getBufferLog() { return bufferLog; }

 private:
  friend class bufferLog;
  static double dbu;
  static double gridResolution;
  static double layoutShrink;
  static std::string version;
  static BBox designBox;
  static std::string libname;
  static std::string cellname;
  static std::string viewname;
  static std::set<std::string> highRModels;
  static bool bufferLog;
};

/// A log object whose buffering flag is mirrored into the process-wide setting.
class bufferLog {
 public:
  void setBufferLog(bool on) {
    buffered_ = on;
    global::bufferLog = on;
  }
  bool isBuffered() const { return buffered_; }

 private:
  bool buffered_ = false;
};

}  // namespace hlm
