#include "analysis/resultTable.h"

#include <cctype>
#include <charconv>
#include <cstdio>

namespace analysis {

namespace {

/// The columns after the names and the validity flag, in saveResult's order.
constexpr const char* kHeader =
    "name,node1,node2,valid,peak,avg,rms,peakTime,dutyRatio,absAvg,avgPositive,avgNegative,"
    "direction,pulseWidth,peakValue,rawAvg\n";

/// A pulse width at or above this was never measured.
constexpr double kNotMeasured = 1e99;

const char* modeName(WindowMode mode) { return mode == WindowMode::kExact ? "exact" : "legacy"; }

/// The comment lines that say where the numbers came from and what their units are.
void addProvenance(const TableProvenance& provenance, std::string& out) {
  out += "# kra2 result table\n";
  out += "# results: " + provenance.results + "\n";
  out += "# analysis: " + provenance.analysis + "\n";
  if (provenance.window.ran) {
    out += "# window: " + shortestNumber(provenance.window.start) + " " +
           shortestNumber(provenance.window.stop) + " s\n";
    out += std::string("# mode: ") + modeName(provenance.window.mode) + "\n";
  } else {
    out += "# window: none (no run yet)\n";
    out += "# mode: none\n";
  }
  out +=
      "# units: peak avg rms absAvg avgPositive avgNegative peakValue rawAvg in the unit of the "
      "measured waveforms (V between voltage nodes, A for a branch current); peakTime and "
      "pulseWidth in s; dutyRatio 1; direction 0 or 1 (-1: not set); valid 1 or 0 (0: not "
      "analysed, numbers empty); pulseWidth empty when not measured\n";
}

void addRow(const zeInstance& instance, std::string& out) {
  out += csvField(instance.name) + "," + csvField(instance.node1) + "," + csvField(instance.node2) +
         ",";
  const voltageData& data = instance.data;
  auto number = [&](double value, bool last = false) {
    if (instance.valid) {
      out += shortestNumber(value);
    }
    out += last ? "\n" : ",";
  };
  out += instance.valid ? "1," : "0,";
  number(data.peak);
  number(data.avg);
  number(data.rms);
  number(data.peakTime);
  number(data.dutyRatio);
  number(data.absAvg);
  number(data.avgPositive);
  number(data.avgNegative);
  out += std::to_string(instance.direction) + ",";
  if (instance.valid && data.pulseWidth < kNotMeasured) {
    out += shortestNumber(data.pulseWidth);
  }
  out += ",";
  number(data.peakValue);
  number(data.rawAvg, true);
}

}  // namespace

std::string shortestNumber(double value) {
  char text[64];
  const std::to_chars_result written = std::to_chars(text, text + sizeof text, value);
  return std::string(text, written.ptr);
}

std::string csvField(const std::string& text) {
  const bool quoted = text.find_first_of(",\"#\r\n") != std::string::npos ||
                      (!text.empty() && (std::isspace(static_cast<unsigned char>(text.front())) ||
                                         std::isspace(static_cast<unsigned char>(text.back()))));
  if (!quoted) {
    return text;
  }
  std::string field = "\"";
  for (const char c : text) {
    field += c;
    if (c == '"') {
      field += '"';
    }
  }
  return field + "\"";
}

bool writeResultTable(std::FILE* file, const std::vector<zeInstance>& instances,
                      const TableProvenance& provenance) {
  // Written in blocks, so that a large netlist's table is never held whole.
  constexpr size_t kBlock = 1 << 20;
  std::string out;
  bool written = true;
  auto flush = [&] {
    written = std::fwrite(out.data(), 1, out.size(), file) == out.size() && written;
    out.clear();
  };
  addProvenance(provenance, out);
  out += kHeader;
  for (const zeInstance& instance : instances) {
    addRow(instance, out);
    if (out.size() >= kBlock) {
      flush();
    }
  }
  flush();
  return written;
}

}  // namespace analysis
