#include "em/limits.h"

#include <algorithm>

namespace em {

namespace {

/// Rules give mA; the check works in A.
constexpr double kMilliampsPerAmp = 1000.0;

double ratio(double current, double limit) {
  return std::isnan(limit) ? kNoValue : current / limit;
}

/// The larger of two ratios, where NaN (no limit) loses to any number.
double larger(double a, double b) { return std::isnan(a) || b > a ? b : a; }

/// Fills the ratios, the worst ratio and the verdict from the limits and the Blech product.
void decide(const Currents& currents, bool immortal, Check& check) {
  check.ratioAvg = ratio(std::fabs(currents.avg), check.limitAvg);
  check.ratioRms = ratio(std::fabs(currents.rms), check.limitRms);
  check.ratioPeak = ratio(std::fabs(currents.peak), check.limitPeak);
  check.worst = larger(check.ratioRms, check.ratioPeak);
  if (!immortal) {
    check.worst = larger(check.worst, check.ratioAvg);
  }
  if (check.worst > 1.0) {
    check.verdict = Verdict::kFail;
  } else if (immortal && check.ratioAvg > 1.0) {
    check.verdict = Verdict::kImmortal;
  } else {
    check.verdict = Verdict::kPass;
  }
}

/// A limit value (mA, or mA/um times `scale` um) in amps; NaN without a limit.
double amps(const std::optional<double>& value, double scale) {
  return value ? *value * scale / kMilliampsPerAmp : kNoValue;
}

}  // namespace

std::string_view verdictName(Verdict verdict) {
  constexpr std::string_view kNames[kVerdicts] = {"FAIL",    "PASS",        "IMMORTAL",
                                                  "NO_RULE", "NO_GEOMETRY", "NOT_ANALYSED"};
  return kNames[static_cast<int>(verdict)];
}

double deratingFactor(const Rules& rules, double temperatureC) {
  const double t = temperatureC + kCelsiusToKelvin;
  const double tr = rules.referenceTemperature + kCelsiusToKelvin;
  return std::exp(rules.activationEnergy / (rules.currentExponent * kBoltzmannEv) *
                  (1.0 / t - 1.0 / tr));
}

Check checkMetal(const Currents& currents, const Shape& shape, const MetalRule& rule,
                 double derating) {
  Check check;
  const double w = shape.width + rule.widthBias;
  check.effectiveWidth = w;
  check.limitAvg = amps(rule.perWidth.avg, w) * derating;
  check.limitRms = amps(rule.perWidth.rms, w);
  check.limitPeak = amps(rule.perWidth.peak, w);
  check.blechProduct = std::fabs(currents.avg) * kMilliampsPerAmp / w * shape.length;
  const bool immortal = rule.blech && check.blechProduct < *rule.blech;
  decide(currents, immortal, check);
  return check;
}

Check checkVia(const Currents& currents, const ViaRule& rule, double derating) {
  Check check;
  check.limitAvg = amps(rule.perVia.avg, 1.0) * derating;
  check.limitRms = amps(rule.perVia.rms, 1.0);
  check.limitPeak = amps(rule.perVia.peak, 1.0);
  decide(currents, false, check);
  return check;
}

}  // namespace em
