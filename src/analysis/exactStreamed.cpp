#include "analysis/exactStreamed.h"

#include "support/parallel.h"

namespace analysis {

namespace {

/// Instances advanced per piece of work handed to a thread.
constexpr size_t kInstancesPerPiece = 256;

}  // namespace

ExactStreamedWindows::ExactStreamedWindows(const StatisticsSettings& settings,
                                           std::span<const double> axis,
                                           std::span<const StreamedInstance> instances)
    : settings_(settings),
      axis_(axis),
      instances_(instances),
      windows_(instances.size(), ExactWindow(settings.startTime, settings.stopTime)) {}

void ExactStreamedWindows::feed(size_t first, size_t count,
                                std::span<const double* const> slotValues) {
  if (count == 0 || first + count > axis_.size()) {
    return;
  }
  // Each instance's window is its own: the instances are shared out among threads and the
  // result does not depend on how.
  support::parallelFor(instances_.size(), kInstancesPerPiece, [&](size_t begin, size_t end) {
    for (size_t k = begin; k < end; ++k) {
      const StreamedInstance& instance = instances_[k];
      ExactWindow& window = windows_[k];
      if (instance.kind == StreamedKind::kNothing || !window.open()) {
        continue;
      }
      const double* y1 = slotValues[static_cast<size_t>(instance.slot1)];
      const double* y2 = instance.kind == StreamedKind::kTwoWaveforms
                             ? slotValues[static_cast<size_t>(instance.slot2)]
                             : nullptr;
      for (size_t j = 0; j < count && window.open(); ++j) {
        const double raw = y1[j];
        window.add(axis_[first + j], raw, y2 != nullptr ? raw - y2[j] : raw - instance.ref);
      }
    }
  });
}

int ExactStreamedWindows::finish(size_t k, voltageData& out) const {
  const StreamedInstance& instance = instances_[k];
  if (instance.kind == StreamedKind::kNothing) {
    return -1;
  }
  const int direction = windows_[k].finish(settings_, instance.traits, out);
  if (instance.secondNodeAlone) {
    // They would describe the wrong node.
    out.rawAvg = 0.0;
    out.peakValue = 0.0;
  }
  return direction;
}

}  // namespace analysis
