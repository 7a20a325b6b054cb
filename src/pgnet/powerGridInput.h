#pragma once
// What the power-grid analysis takes from the analysis session, as plain data, so that the
// network needs nothing of the session itself.

#include <string_view>
#include <vector>

namespace pgnet {

/// The current of one instance after a run, matched to a network node by name.
struct InstanceCurrent {
  std::string_view name;
  /// 1: current from node 1 to node 2; 0: the reverse; anything else: unknown.
  int direction = -1;
  /// Taken as it is (no absolute value).
  double current = 0.0;
};

/// The session's part of a power-grid analysis.
struct PGSessionData {
  /// Position tolerance of the straight-strip filters.
  double cadGrid = 1.0;
  /// The instances, used when no database network gives the currents.
  std::vector<InstanceCurrent> instances;
};

}  // namespace pgnet
