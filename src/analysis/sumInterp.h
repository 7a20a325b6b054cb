#pragma once
// Sum of two sampled waveforms on a merged time axis, used by the power-grid view to
// combine the waveforms that feed one of its instances.

#include "simdata/memoryResults.h"
#include "simdata/resultsReader.h"

namespace analysis {

/// Trace switches of the power-grid view: tracing is on when pgvTraceFlag is 1 or
/// pgvTraceLevel is 2. They start at 1 and 100, so tracing is on until the view changes them.
extern int pgvTraceFlag;
extern int pgvTraceLevel;

/// Writes y1 + y2 on the union of the axes x1 and x2 into outY (and the times into outX when
/// storeTime is set). Either y may be absent; x1 must be present. Points before `minTime`
/// (compared as a number with the times in seconds) are not stored. Nothing is written when
/// no point after the first was stored. The output vectors must hold every index written:
/// at most length(y1) + length(y2) entries.
void sumInterp(int minTime, const simdata::DataVector* y1, const simdata::DataVector* y2,
               const simdata::DataVector* x1, const simdata::DataVector* x2,
               simdata::MemoryVector* outY, simdata::MemoryVector* outX, bool storeTime);

}  // namespace analysis
