#include "em/rules.h"

#include <toml++/toml.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <sstream>

namespace em {

namespace {

/// Absolute zero in deg C: a reference temperature must lie above it.
constexpr double kAbsoluteZeroC = -273.15;

/// Where a value sits in the file, for messages.
struct Place {
  const std::string& path;
  std::string table;  // empty for the top level
};

/// Thrown inside the reader and turned into the error text; never leaves this file.
struct RuleError {
  std::string text;
};

[[noreturn]] void fail(const Place& place, std::string_view key, std::string_view what) {
  std::string text = "EM rules file " + place.path + ", ";
  text += place.table.empty() ? "top-level table" : "table [" + place.table + "]";
  text += ", key ";
  text += key;
  text += ": ";
  text += what;
  throw RuleError{std::move(text)};
}

std::string shortest(double value) {
  std::ostringstream text;
  text.precision(17);
  text << value;
  return text.str();
}

/// A finite number (integers are taken as numbers too).
double number(const Place& place, std::string_view key, const toml::node& node) {
  const std::optional<double> value = node.is_number() ? node.value<double>() : std::nullopt;
  if (!value) {
    fail(place, key, "must be a number.");
  }
  if (!std::isfinite(*value)) {
    fail(place, key, "must be a finite number.");
  }
  return *value;
}

/// A limit: a number greater than zero.
double limit(const Place& place, std::string_view key, const toml::node& node) {
  const double value = number(place, key, node);
  if (value < 0.0) {
    fail(place, key, "the limit is negative (" + shortest(value) + ").");
  }
  if (value == 0.0) {
    fail(place, key, "the limit is zero; leave the key out for no limit.");
  }
  return value;
}

/// The avg, rms or peak key into `limits`; false for any other key.
bool readLimit(const Place& place, std::string_view key, const toml::node& node, Limits& limits) {
  if (key == "avg") {
    limits.avg = limit(place, key, node);
  } else if (key == "rms") {
    limits.rms = limit(place, key, node);
  } else if (key == "peak") {
    limits.peak = limit(place, key, node);
  } else {
    return false;
  }
  return true;
}

MetalRule readMetal(const Place& place, const toml::table& table) {
  MetalRule rule;
  for (auto&& [key, node] : table) {
    const std::string_view name = key.str();
    if (readLimit(place, name, node, rule.perWidth)) {
      continue;
    }
    if (name == "width_bias") {
      rule.widthBias = number(place, name, node);
    } else if (name == "blech") {
      rule.blech = number(place, name, node);
      if (*rule.blech < 0.0) {
        fail(place, name, "the Blech product is negative (" + shortest(*rule.blech) + ").");
      }
    } else {
      fail(place, name, "unknown key (a metal layer takes width_bias, avg, rms, peak, blech).");
    }
  }
  return rule;
}

ViaRule readVia(const Place& place, const toml::table& table) {
  ViaRule rule;
  for (auto&& [key, node] : table) {
    if (!readLimit(place, key.str(), node, rule.perVia)) {
      fail(place, key.str(), "unknown key (a via layer takes avg, rms, peak).");
    }
  }
  return rule;
}

/// One table of layer tables ([layers.*] or [vias.*]).
template <class Rule, class ReadRule>
void readLayerTables(const std::string& path, std::string_view group, const toml::node& node,
                     std::map<std::string, Rule, std::less<>>& out, ReadRule readRule) {
  const Place top{path, ""};
  const toml::table* layers = node.as_table();
  if (layers == nullptr) {
    fail(top, group, "must be a table of layer tables.");
  }
  for (auto&& [key, layerNode] : *layers) {
    const Place place{path, std::string(group) + "." + std::string(key.str())};
    const toml::table* table = layerNode.as_table();
    if (table == nullptr) {
      fail(Place{path, std::string(group)}, key.str(), "must be a table of limits.");
    }
    out.emplace(std::string(key.str()), readRule(place, *table));
  }
}

Rules readTop(const std::string& path, const toml::table& top) {
  const Place place{path, ""};
  Rules rules;
  rules.path = path;
  bool hasReference = false, hasEnergy = false, hasExponent = false;
  for (auto&& [key, node] : top) {
    const std::string_view name = key.str();
    if (name == "reference_temperature") {
      rules.referenceTemperature = number(place, name, node);
      hasReference = true;
      if (rules.referenceTemperature <= kAbsoluteZeroC) {
        fail(place, name, "must lie above absolute zero (-273.15 deg C).");
      }
    } else if (name == "activation_energy") {
      rules.activationEnergy = number(place, name, node);
      hasEnergy = true;
      if (rules.activationEnergy < 0.0) {
        fail(place, name, "must not be negative.");
      }
    } else if (name == "current_exponent") {
      rules.currentExponent = number(place, name, node);
      hasExponent = true;
      if (rules.currentExponent <= 0.0) {
        fail(place, name, "must be positive.");
      }
    } else if (name == "layers") {
      readLayerTables(path, name, node, rules.layers, readMetal);
    } else if (name == "vias") {
      readLayerTables(path, name, node, rules.vias, readVia);
    } else {
      fail(place, name,
           "unknown key (the top level takes reference_temperature, activation_energy, "
           "current_exponent, [layers.*], [vias.*]).");
    }
  }
  if (!hasReference) {
    fail(place, "reference_temperature", "missing (deg C at which the limits hold).");
  }
  if (!hasEnergy) {
    fail(place, "activation_energy", "missing (eV, Black's equation).");
  }
  if (!hasExponent) {
    fail(place, "current_exponent", "missing (n of Black's equation).");
  }
  return rules;
}

}  // namespace

bool parseRules(std::string_view text, const std::string& path, Rules& rules, std::string& error) {
  try {
    const toml::table top = toml::parse(text, path);
    rules = readTop(path, top);
    return true;
  } catch (const toml::parse_error& syntax) {
    const toml::source_position& at = syntax.source().begin;
    error = "EM rules file " + path + ", line " + std::to_string(at.line) + ", column " +
            std::to_string(at.column) + ": " + std::string(syntax.description()) + ".";
  } catch (const RuleError& rule) {
    error = rule.text;
  }
  return false;
}

bool readRules(const std::string& path, Rules& rules, std::string& error) {
  std::ifstream file(path, std::ios::in | std::ios::binary);
  const std::string text =
      file.is_open() ? std::string(std::istreambuf_iterator<char>(file), {}) : std::string();
  if (!file.is_open() || file.bad()) {
    error = "EM rules file " + path + " cannot be read.";
    return false;
  }
  return parseRules(text, path, rules, error);
}

}  // namespace em
