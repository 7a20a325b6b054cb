#include "em/report.h"

#include <charconv>
#include <cmath>

namespace em {

namespace {

constexpr const char* kColumns =
    "#name\tlayer\tkind\twidth_um\tlength_um\tIavg_A\tIrms_A\tIpeak_A\tlimit_avg_A\tlimit_rms_A\t"
    "limit_peak_A\tratio_avg\tratio_rms\tratio_peak\tratio_worst\tverdict\n";

/// Lines are gathered and written in blocks of about this size.
constexpr size_t kBlockBytes = 1 << 16;

void appendNumber(std::string& out, double value) {
  if (std::isnan(value)) {
    out += "NaN";
    return;
  }
  char text[64];
  const auto result = std::to_chars(text, text + sizeof text, value);
  out.append(text, result.ptr);
}

void appendField(std::string& out, double value) {
  out += '\t';
  appendNumber(out, value);
}

/// A name as one field: a tab or line break (possible in a database's record names) would
/// split the line, so it is written as \t, \n or \r.
void appendName(std::string& out, std::string_view name) {
  for (const char c : name) {
    if (c == '\t' || c == '\n' || c == '\r') {
      out += '\\';
      out += c == '\t' ? 't' : c == '\n' ? 'n' : 'r';
    } else {
      out += c;
    }
  }
}

void appendRow(std::string& out, const Subject& subject, const Geometry& geometry, const Row& row) {
  appendName(out, subject.name);
  out += '\t';
  if (row.piece != nullptr) {
    out += geometry.layerName(row.piece->layer);
    out += row.piece->shape.via ? "\tvia" : "\tmetal";
    appendField(out, row.piece->shape.width);
    appendField(out, row.piece->shape.length);
  } else {
    out += "-\t-\tNaN\tNaN";
  }
  const bool known = row.check.verdict != Verdict::kNotAnalysed;
  for (const double current : {subject.currents.avg, subject.currents.rms, subject.currents.peak}) {
    appendField(out, known ? std::fabs(current) : kNoValue);
  }
  const Check& c = row.check;
  for (const double value :
       {c.limitAvg, c.limitRms, c.limitPeak, c.ratioAvg, c.ratioRms, c.ratioPeak, c.worst}) {
    appendField(out, value);
  }
  out += '\t';
  out += verdictName(c.verdict);
  out += '\n';
}

/// A ratio for the log: four digits, "-" for no ratio.
std::string briefRatio(double ratio) {
  if (std::isnan(ratio)) {
    return "-";
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.4g", ratio);
  return text;
}

bool flush(std::FILE* file, std::string& block) {
  const bool written = std::fwrite(block.data(), 1, block.size(), file) == block.size();
  block.clear();
  return written;
}

}  // namespace

std::string formatNumber(double value) {
  std::string text;
  appendNumber(text, value);
  return text;
}

bool writeReport(std::FILE* file, const Provenance& provenance, std::span<const Subject> subjects,
                 const Geometry& geometry, const Outcome& outcome) {
  std::string block = "# kra2 checkEM\tresults " + provenance.source + "\tanalysis " +
                      provenance.analysis + "\twindow " + formatNumber(provenance.windowStart) +
                      " " + formatNumber(provenance.windowStop) + " s\tmode " + provenance.mode +
                      "\ttemperature " + formatNumber(provenance.temperatureC) + " degC (" +
                      provenance.temperatureFrom + ")\trules " + provenance.rules + "\n";
  block += kColumns;
  bool written = true;
  for (const Row& row : outcome.rows) {
    appendRow(block, subjects[row.subject], geometry, row);
    if (block.size() >= kBlockBytes) {
      written = flush(file, block) && written;
    }
  }
  return flush(file, block) && written;
}

std::vector<std::string> summaryLines(std::span<const Subject> subjects, const Outcome& outcome,
                                      size_t worstCount) {
  std::vector<std::string> lines;
  size_t total = 0;
  std::string counts;
  for (int v = 0; v < kVerdicts; ++v) {
    const size_t count = outcome.findings.counts[static_cast<size_t>(v)];
    total += count;
    counts += (v == 0 ? " " : ", ") + std::string(verdictName(static_cast<Verdict>(v))) + " " +
              std::to_string(count);
  }
  lines.push_back("checkEM: " + std::to_string(total) + " instances:" + counts + "\n");
  for (size_t i = 0; i < outcome.rows.size() && i < worstCount; ++i) {
    const Row& row = outcome.rows[i];
    if (std::isnan(row.check.worst)) {
      break;
    }
    const Check& c = row.check;
    lines.push_back("checkEM: worst " + std::to_string(i + 1) + ": " +
                    std::string(subjects[row.subject].name) + " ratio " + briefRatio(c.worst) +
                    " (avg " + briefRatio(c.ratioAvg) + ", rms " + briefRatio(c.ratioRms) +
                    ", peak " + briefRatio(c.ratioPeak) + ") " +
                    std::string(verdictName(c.verdict)) + "\n");
  }
  return lines;
}

}  // namespace em
