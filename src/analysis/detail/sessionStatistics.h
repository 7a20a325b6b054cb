#pragma once
// The statistics settings of a session (for the analysis command files only).

#include "analysis/statistics.h"

class zeAnalyzeNetlist;

namespace analysis::detail {

/// The session's and the process's settings as the statistics kernels take them.
StatisticsSettings settingsOf(const zeAnalyzeNetlist& session, int ignoreSign);

}  // namespace analysis::detail
