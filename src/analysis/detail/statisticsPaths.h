#pragma once
// The statistics kernels with a choice of loops, for the tests that check that the fast
// loops of the common cases give the same bits as the general ones.

#include "analysis/statistics.h"

namespace analysis::detail {

/// kFast: the loops specialised for the common cases where they apply (what the public
/// kernels use); kGeneral: always the general loops.
enum class KernelPath { kFast, kGeneral };

int measureOneWaveform(KernelPath path, const StatisticsSettings& settings,
                       const InstanceTraits& instance, IndexRange range, Samples x, Samples y,
                       double ref, voltageData& out);

int measureTwoWaveforms(KernelPath path, const StatisticsSettings& settings,
                        const InstanceTraits& instance, Samples x1, Samples x2, Samples y1,
                        Samples y2, voltageData& out);

}  // namespace analysis::detail
