#pragma once
// The EM check of one piece of the grid: its limits in amps from the rules, its ratios and
// its verdict. Plain functions of their inputs, so that any caller (the checkEM command, the
// Python module, tests) gets the same numbers.

#include <cmath>
#include <limits>
#include <string_view>

#include "em/rules.h"

namespace em {

/// Boltzmann's constant in eV/K.
inline constexpr double kBoltzmannEv = 8.617333262e-5;
/// deg C to kelvin.
inline constexpr double kCelsiusToKelvin = 273.15;
inline constexpr double kNoValue = std::numeric_limits<double>::quiet_NaN();

/// The verdict of one instance; the order is the report's order of the summary counts.
enum class Verdict { kFail, kPass, kImmortal, kNoRule, kNoGeometry, kNotAnalysed };
inline constexpr int kVerdicts = 6;
/// "FAIL", "PASS", "IMMORTAL", "NO_RULE", "NO_GEOMETRY", "NOT_ANALYSED".
std::string_view verdictName(Verdict verdict);

/// Factor on the average limit at `temperatureC` for limits that hold at the rules' reference
/// temperature (Black's equation): exp((Ea / (n k)) (1/T - 1/Tr)), temperatures in kelvin.
double deratingFactor(const Rules& rules, double temperatureC);

/// Magnitudes of an instance's currents in amps.
struct Currents {
  double avg = 0.0;
  double rms = 0.0;
  double peak = 0.0;
};

/// What the length data says of a piece: via or metal, drawn width (um), strip length (um).
struct Shape {
  bool via = false;
  double width = 0.0;
  double length = 0.0;
};

/// The check of one piece: NaN marks a value that does not apply (no limit of that kind, no
/// effective width of a via).
struct Check {
  double effectiveWidth = kNoValue;  // um, metal only
  double limitAvg = kNoValue;        // A, derated
  double limitRms = kNoValue;        // A
  double limitPeak = kNoValue;       // A
  double ratioAvg = kNoValue;
  double ratioRms = kNoValue;
  double ratioPeak = kNoValue;
  /// The largest ratio that decides the verdict (the average's is left out of an immortal
  /// piece); NaN when no limit applies.
  double worst = kNoValue;
  /// (|avg| in mA / effective width) x strip length, metal only.
  double blechProduct = kNoValue;
  Verdict verdict = Verdict::kPass;
};

/// Checks a metal piece. The caller makes sure that width + widthBias > 0.
Check checkMetal(const Currents& currents, const Shape& shape, const MetalRule& rule,
                 double derating);
/// Checks a via.
Check checkVia(const Currents& currents, const ViaRule& rule, double derating);

}  // namespace em
