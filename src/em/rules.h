#pragma once
// Electromigration rules: per metal layer, limits per micron of effective width; per via
// layer, limits per via; and Black's-equation constants that carry the average limits from
// the temperature they hold at to the temperature of the analysis. Read from a TOML file.

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace em {

/// The three kinds of limit; a missing one means no limit of that kind.
struct Limits {
  std::optional<double> avg;
  std::optional<double> rms;
  std::optional<double> peak;
};

/// A metal layer's rule: limits in mA per um of effective width (drawn width + widthBias).
struct MetalRule {
  /// um added to the drawn width.
  double widthBias = 0.0;
  Limits perWidth;
  /// mA: below this value of (average current density in mA/um) x (strip length in um) a
  /// piece is immortal for the average check.
  std::optional<double> blech;
};

/// A via layer's rule: limits in mA per via node.
struct ViaRule {
  Limits perVia;
};

/// A whole rules file.
struct Rules {
  /// The file the rules came from, as named to the reader; messages name it.
  std::string path;
  /// deg C at which the limits hold.
  double referenceTemperature = 0.0;
  /// eV.
  double activationEnergy = 0.0;
  /// n of Black's equation.
  double currentExponent = 1.0;
  std::map<std::string, MetalRule, std::less<>> layers;
  std::map<std::string, ViaRule, std::less<>> vias;
};

/// Parses the text of a rules file. False, with a message naming `path`, the table and the
/// key, for a syntax error, an unknown or missing key, a value that is not a number, or a
/// limit that is not positive; `rules` is then left unchanged.
bool parseRules(std::string_view text, const std::string& path, Rules& rules, std::string& error);

/// Reads and parses the file at `path`; an unreadable file is an error too.
bool readRules(const std::string& path, Rules& rules, std::string& error);

}  // namespace em
