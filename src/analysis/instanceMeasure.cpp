#include "analysis/instanceMeasure.h"

#include <algorithm>
#include <cmath>

#include "analysis/exactWindow.h"

namespace analysis {

namespace {

bool noSecondValue(int idx2) { return idx2 == -1 || idx2 == -3; }

/// A DC value: a scalar, or element 0 of a data vector; false for any other kind.
bool dcValue(const simdata::Value* value, double& result) {
  if (value == nullptr) {
    return false;
  }
  if (value->kind() == simdata::kScalarValue) {
    result = value->scalar();
    return true;
  }
  if (value->kind() == simdata::kDataVectorValue) {
    result = simdata::getDataVectorAt(value->yVector(), 0);
    return true;
  }
  return false;
}

struct WaveformSamples {
  const simdata::Value* waveform = nullptr;
  Samples x;
  Samples y;
};

/// The samples of a time axis, remembered when they are the vector's own memory.
Samples axisSamplesOf(const simdata::DataVector* axis, std::vector<double>& xScratch,
                      WaveScratch& scratch) {
  if (axis != nullptr && axis == scratch.axis) {
    return scratch.axisSamples;
  }
  const Samples samples = samplesOf(axis, xScratch);
  if (axis != nullptr && samples.data() != xScratch.data()) {
    scratch.axis = axis;
    scratch.axisSamples = samples;
  }
  return samples;
}

WaveformSamples waveformAt(const simdata::ValueArray* values, int index,
                           std::vector<double>& xScratch, std::vector<double>& yScratch,
                           WaveScratch& scratch) {
  WaveformSamples result;
  result.waveform = simdata::getWaveform(values->at(index));
  if (result.waveform != nullptr) {
    result.x = axisSamplesOf(result.waveform->xVector(), xScratch, scratch);
    result.y = samplesOf(result.waveform->yVector(), yScratch);
  }
  return result;
}

/// One waveform against `ref`, measured as the settings' window mode says (an exact window
/// needs no index range).
int measureOne(const StatisticsSettings& settings, const InstanceTraits& instance, IndexRange range,
               Samples x, Samples y, double ref, voltageData& out) {
  if (settings.windowMode == WindowMode::kExact) {
    return measureOneWaveformExact(settings, instance, x, y, ref, out);
  }
  return measureOneWaveform(settings, instance, range, x, y, ref, out);
}

}  // namespace

Samples samplesOf(const simdata::DataVector* vector, std::vector<double>& scratch) {
  if (vector == nullptr) {
    return Samples();
  }
  const int length = std::max(vector->length(), 0);
  const std::span<const double> view = vector->doubles();
  if (length > 0 && vector->elementType() == simdata::kFloat64 &&
      view.size() == static_cast<size_t>(length)) {
    const bool hasNaN = vector->mayHoldNaN() &&
                        std::any_of(view.begin(), view.end(), [](double v) { return v != v; });
    if (!hasNaN) {
      return Samples(view);
    }
    // The reader reads NaN as 0.0.
    scratch.assign(view.begin(), view.end());
    std::replace_if(
        scratch.begin(), scratch.end(), [](double v) { return v != v; }, 0.0);
    return Samples(scratch);
  }
  scratch.resize(length);
  const std::span<const float> floats = vector->floats();
  if (vector->elementType() == simdata::kFloat32 && floats.size() == static_cast<size_t>(length)) {
    // Widened in one loop rather than one virtual call per sample; NaN reads as 0.0.
    std::transform(floats.begin(), floats.end(), scratch.begin(),
                   [](float v) { return v != v ? 0.0 : static_cast<double>(v); });
    return Samples(scratch);
  }
  for (int i = 0; i < length; ++i) {
    scratch[i] = simdata::getDataVectorAt(vector, i);
  }
  return Samples(scratch);
}

bool printsWhileReading(const simdata::ValueArray* values) {
  if (values == nullptr) {
    return false;
  }
  auto unknownType = [](const simdata::DataVector* vector) {
    if (vector == nullptr) {
      return false;
    }
    switch (vector->elementType()) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
      case 5:
      case 6:
      case 7:
      case 9:
      case 12:
        return false;
      default:
        return true;
    }
  };
  auto unknownVectors = [&](const simdata::Value* value) {
    return value != nullptr && value->kind() == simdata::kDataVectorValue &&
           (unknownType(value->xVector()) || unknownType(value->yVector()));
  };
  for (int i = 0; i < values->count(); ++i) {
    // The value itself for a DC point, its innermost waveform for a transient.
    if (unknownVectors(values->at(i)) || unknownVectors(simdata::getWaveform(values->at(i)))) {
      return true;
    }
  }
  return false;
}

InstanceTraits traitsOf(const zeInstance& instance, int orientation) {
  InstanceTraits traits;
  traits.thresholdValue = instance.thresholdValue;
  traits.thresholdScale = instance.thresholdScale;
  traits.orientation = orientation;
  traits.directionKnown = instance.directionKnown;
  traits.recoveryFactor = instance.recoveryFactor;
  return traits;
}

InstanceCase classifyInstance(int idx1, int idx2, int orientation) {
  if (idx1 == -1) {
    if (noSecondValue(idx2)) {
      return {WaveformCase::kNone, orientation};
    }
    return {WaveformCase::kSecondAlone, orientation == 1 ? 0 : orientation == 0 ? 1 : -1};
  }
  return {noSecondValue(idx2) ? WaveformCase::kFirstAlone : WaveformCase::kBoth, orientation};
}

void dcDifference(const simdata::ValueArray* values, int idx1, int idx2, voltageData& out) {
  if (values == nullptr) {
    return;
  }
  double a = 0.0;
  if (idx1 != -1 && !dcValue(values->at(idx1), a)) {
    a = 0.0;
  }
  double d = a;
  double b = 0.0;
  // The fixed value of a -3 node is not subtracted here; the run loop handles it.
  if (!noSecondValue(idx2) && dcValue(values->at(idx2), b)) {
    d = a - b;
  }
  out.peak = std::fabs(d);
  out.peakValue = a;
}

int transientDifference(const simdata::ValueArray* values, int idx1, int idx2,
                        const StatisticsSettings& settings, const InstanceTraits& instance,
                        double ref, const TimeRangeLookup& timeRange, WaveScratch& scratch,
                        voltageData& out) {
  if (values == nullptr) {
    return -1;
  }
  const InstanceCase measured = classifyInstance(idx1, idx2, instance.orientation);
  InstanceTraits traits = instance;
  traits.orientation = measured.orientation;
  switch (measured.waveforms) {
    case WaveformCase::kNone:
      return -1;
    case WaveformCase::kSecondAlone: {
      const WaveformSamples wave = waveformAt(values, idx2, scratch.x2, scratch.y2, scratch);
      IndexRange range;
      timeRange(wave.waveform, range.start, range.stop);
      const int direction = measureOne(settings, traits, range, wave.x, wave.y, 0.0, out);
      // They would describe the wrong node.
      out.rawAvg = 0.0;
      out.peakValue = 0.0;
      return direction;
    }
    case WaveformCase::kFirstAlone: {
      const WaveformSamples wave = waveformAt(values, idx1, scratch.x1, scratch.y1, scratch);
      IndexRange range;
      timeRange(wave.waveform, range.start, range.stop);
      return measureOne(settings, traits, range, wave.x, wave.y, ref, out);
    }
    case WaveformCase::kBoth:
      break;
  }
  const WaveformSamples wave1 = waveformAt(values, idx1, scratch.x1, scratch.y1, scratch);
  WaveformSamples wave2;
  wave2.waveform = simdata::getWaveform(values->at(idx2));
  if (wave2.waveform != nullptr) {
    // Waveforms of one analysis usually share their time vector: view it once.
    const simdata::DataVector* x2 = wave2.waveform->xVector();
    wave2.x = wave1.waveform != nullptr && x2 == wave1.waveform->xVector()
                  ? wave1.x
                  : axisSamplesOf(x2, scratch.x2, scratch);
    wave2.y = samplesOf(wave2.waveform->yVector(), scratch.y2);
  }
  if (settings.windowMode == WindowMode::kExact) {
    return measureTwoWaveformsExact(settings, traits, wave1.x, wave2.x, wave1.y, wave2.y, out);
  }
  return measureTwoWaveforms(settings, traits, wave1.x, wave2.x, wave1.y, wave2.y, out);
}

}  // namespace analysis
