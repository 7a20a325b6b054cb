#include "analysis/netlist.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "support/text.h"

bool isGnd(const std::string& name) { return name == "0"; }

namespace {

/// A line holds at most kLineBytes - 1 characters before its line feed; a longer line is a
/// format error.
constexpr int kLineBytes = 4096;

/// Makes room for the lines still to come in `file` (counted from its current position,
/// which is restored), so that loading a large netlist does not move every instance loaded
/// so far again and again. At most a few million are reserved ahead: a file of blank lines
/// must not claim memory it will never fill. Files that cannot seek are left alone.
void reserveForLines(FILE* file, std::vector<zeInstance>& instances) {
  constexpr size_t kMostAhead = size_t{1} << 22;
  const long start = std::ftell(file);
  if (start < 0) {
    return;
  }
  size_t lines = 0;
  char block[1 << 16];
  size_t got = 0;
  while ((got = std::fread(block, 1, sizeof block, file)) > 0 && lines < kMostAhead) {
    for (const char* c = block; (c = static_cast<const char*>(std::memchr(
                                     c, '\n', static_cast<size_t>(block + got - c)))) != nullptr;
         ++c) {
      ++lines;
    }
  }
  std::clearerr(file);
  if (std::fseek(file, start, SEEK_SET) != 0) {
    return;
  }
  try {
    instances.reserve(instances.size() + std::min(lines + 1, kMostAhead));
  } catch (const std::bad_alloc&) {
    // Loading goes on without the room made ahead.
  }
}

/// What one netlist line may hold.
struct LineFields {
  std::string name;
  std::string node1;
  std::string node2;
  float recoveryFactor = 0.0f;
  int orientation = -1;
  std::string first;   // first operand text of a peak-current line
  std::string second;  // second operand text
  std::string value;   // the value column: the instance's resistance
  std::string ignored;
};

/// The text field a grammar letter names (see scanFields); letters outside "n12abv" name a
/// text that is read and not used.
std::string& textField(LineFields& fields, char kind) {
  constexpr std::string_view kKinds = "n12abv";
  std::string* const targets[] = {&fields.name,  &fields.node1,  &fields.node2,
                                  &fields.first, &fields.second, &fields.value};
  const size_t at = kKinds.find(kind);
  return at == std::string_view::npos ? fields.ignored : *targets[at];
}

/// The conversions of a line grammar, in order: one letter per field.
///   n name, 1 node1, 2 node2, r recovery factor (float), o orientation (int),
///   a first operand text, b second operand text, v the value (resistance) text, t a text
///   that is read and not used.
/// Fields are separated by white space and converted as scanf's %s, %f and %d would (numbers
/// by strtof and strtol, so a number may end inside a word and the rest of it is the next
/// field); the result is the number of fields converted before the first that fails. `line`
/// ends in a zero byte, which the number conversions rely on.
int scanFields(std::string_view line, const char* grammar, LineFields& fields) {
  size_t pos = 0;
  int converted = 0;
  for (const char* kind = grammar; *kind != '\0'; ++kind) {
    pos = support::skipBlanks(line, pos);
    if (pos == line.size()) {
      return converted;
    }
    if (*kind != 'r' && *kind != 'o') {
      textField(fields, *kind) = support::nextWord(line, pos);
      ++converted;
      continue;
    }
    const char* cursor = line.data() + pos;
    char* end = nullptr;
    if (*kind == 'r') {
      fields.recoveryFactor = std::strtof(cursor, &end);
    } else {
      // Out-of-range integers are clamped rather than left undefined.
      fields.orientation =
          static_cast<int>(std::clamp<long>(std::strtol(cursor, &end, 10), INT_MIN, INT_MAX));
    }
    if (end == cursor) {
      return converted;
    }
    pos = static_cast<size_t>(end - line.data());
    ++converted;
  }
  return converted;
}

/// Escaped identifiers of the simulator's names end in a blank.
void applyBackslashRule(std::string& node, bool keepBackslashNames) {
  if (!keepBackslashNames && node.find('\\') != std::string::npos) {
    node.push_back(' ');
  }
}

/// A resistance is a whole number text in ohms: positive gives it, zero says the instance is a
/// current already, anything else (negative, not a number, trailing letters) gives NaN.
double resistanceOf(const std::string& text) {
  const char* start = text.c_str();
  char* end = nullptr;
  const double value = std::strtod(start, &end);
  if (end == start || *end != '\0' || !std::isfinite(value) || value < 0.0) {
    return std::nan("");
  }
  return value;
}

void reportFormatError(const char* fileName, int lineNumber) {
  if (fileName != nullptr) {
    std::printf("\nIncorrect netlist file format (%s: line %d)\n", fileName, lineNumber);
  } else {
    std::printf("\nIncorrect netlist file format (line %d)\n", lineNumber);
  }
}

}  // namespace

const char* zeNetlist::lineGrammar() const {
  if (hasRecoveryFactor) {
    return hasExtendedFields ? "n12rttot" : "n12r";
  }
  if (hasExtendedFields) {
    return "n12vtot";
  }
  return valueColumn == 0.0f && !resistanceColumn ? "n12" : "n12v";
}

int zeNetlist::readLines(FILE* file, const char* fileName, const char* grammar, bool peakCurrents) {
  if (file == nullptr) {
    return 1;
  }
  const int required = static_cast<int>(std::strlen(grammar));
  const bool hasOrientation = std::strchr(grammar, 'o') != nullptr;
  const bool hasRecovery = std::strchr(grammar, 'r') != nullptr;
  const bool hasValue = std::strchr(grammar, 'v') != nullptr;
  char line[kLineBytes];
  LineFields fields;
  int lineNumber = 0;
  reserveForLines(file, instances);
  while (std::fgets(line, sizeof line, file) != nullptr) {
    ++lineNumber;
    const size_t length = std::strlen(line);
    if (length == sizeof line - 1 && line[length - 1] != '\n') {
      // The buffer is full: a line feed (or the end of the file) must follow, else the line is
      // longer than a netlist line may be. Read in pieces, its first piece would pass for a
      // complete instance and the rest would fail on the wrong line.
      const int next = std::getc(file);
      if (next != '\n' && next != EOF) {
        reportFormatError(fileName, lineNumber);
        return 1;
      }
    }
    if (scanFields({line, length}, grammar, fields) < required) {
      reportFormatError(fileName, lineNumber);
      return 1;
    }
    zeInstance& instance = instances.emplace_back();
    instance.name = fields.name;
    instance.node1 = fields.node1;
    instance.node2 = fields.node2;
    applyBackslashRule(instance.node1, keepBackslashNames);
    applyBackslashRule(instance.node2, keepBackslashNames);
    if (hasRecovery) {
      instance.recoveryFactor = fields.recoveryFactor;
    }
    if (hasOrientation) {
      instance.orientation = fields.orientation;
    }
    if (hasValue) {
      instance.resistance = resistanceOf(fields.value);
    }
    if (peakCurrents) {
      instance.thresholdValue = std::strtod(fields.first.c_str(), nullptr);
      instance.thresholdScale = std::strtod(fields.second.c_str(), nullptr);
    }
  }
  loaded = true;
  return 0;
}

int zeNetlist::loadNetlist(FILE* file, const char* fileName) {
  return readLines(file, fileName, lineGrammar(), false);
}

int zeNetlist::loadNetlistPeakCurrents(FILE* file, const char* fileName) {
  std::fputs("\nInside loadNetlistPeakCurrents function", stdout);
  return readLines(file, fileName, hasExtendedFields ? "n12abo" : "n12ab", true);
}

namespace analysis {

namespace {

void applyFlag(const char* variable, bool& flag) {
  const char* value = std::getenv(variable);
  if (value == nullptr) {
    return;
  }
  flag = !(value[0] == '\0' || std::strcmp(value, "0") == 0 || strcasecmp(value, "no") == 0 ||
           strcasecmp(value, "false") == 0 || strcasecmp(value, "off") == 0);
}

}  // namespace

void applyLineFormatEnvironment(zeNetlist& netlist) {
  applyFlag(kRecoveryFactorColumnVariable, netlist.hasRecoveryFactor);
  applyFlag(kExtendedFieldsVariable, netlist.hasExtendedFields);
  applyFlag(kKeepBackslashNamesVariable, netlist.keepBackslashNames);
  if (const char* value = std::getenv(kValueColumnVariable)) {
    netlist.valueColumn = std::strtof(value, nullptr);
  }
}

}  // namespace analysis
