#pragma once
// The EM check of a whole list of instances: each is matched with its geometry by exact name
// and with the rule of its layer, checked, and the list is put worst first.

#include <array>
#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "em/geometry.h"
#include "em/limits.h"
#include "em/rules.h"

struct zeInstance;

namespace em {

/// One instance to check: its name and its currents in amps; `analysed` false for an
/// instance whose currents are not known (it is reported NOT_ANALYSED).
struct Subject {
  std::string_view name;
  Currents currents;
  bool analysed = true;
};

/// An instance's current-like statistics in amps: divided by its resistance when the netlist
/// gave one, as they are otherwise (the instance measures a branch current already).
struct InstanceCurrents {
  double peak = 0.0;
  double avg = 0.0;
  double rms = 0.0;
  double absAvg = 0.0;
  double avgPositive = 0.0;
  double avgNegative = 0.0;
  double peakValue = 0.0;
  /// False for an invalid instance or one whose netlist value is not a resistance.
  bool usable = true;
};
InstanceCurrents currentsOf(const zeInstance& instance);
/// The subject of a run's instance (the name views the instance's).
Subject subjectOf(const zeInstance& instance);

/// One line of the report: the subject (by its position in the input), its piece (null
/// without geometry) and its check.
struct Row {
  size_t subject = 0;
  const Piece* piece = nullptr;
  Check check;
};

/// What the check found besides the rows, for the log.
struct Findings {
  std::array<size_t, kVerdicts> counts{};
  /// Layers met in the geometry without a rule, with how many instances each.
  std::map<std::string, size_t> layersWithoutRule;
  /// Metal layers whose width_bias leaves some piece without positive width: the count of
  /// such pieces and the first of them.
  struct BadWidth {
    size_t count = 0;
    std::string firstName;
    double firstWidth = 0.0;
  };
  std::map<std::string, BadWidth> nonPositiveWidths;
  size_t withoutGeometry = 0;
  std::string firstWithoutGeometry;
};

struct Outcome {
  /// Worst first: descending worst ratio, then the instances without a ratio; ties keep the
  /// input order.
  std::vector<Row> rows;
  Findings findings;
};

/// Checks every subject at `temperatureC`.
Outcome checkAll(std::span<const Subject> subjects, const Geometry& geometry, const Rules& rules,
                 double temperatureC);

}  // namespace em
