#include "em/check.h"

#include <algorithm>

#include "analysis/netlist.h"

namespace em {

namespace {

/// The rule of each layer of the geometry, resolved once: metal and via rules by layer index.
struct LayerRules {
  std::vector<const MetalRule*> metal;
  std::vector<const ViaRule*> via;
};

LayerRules resolve(const Geometry& geometry, const Rules& rules) {
  LayerRules resolved;
  resolved.metal.resize(geometry.layerCount(), nullptr);
  resolved.via.resize(geometry.layerCount(), nullptr);
  for (uint32_t layer = 0; layer < geometry.layerCount(); ++layer) {
    const std::string& name = geometry.layerName(layer);
    if (const auto it = rules.layers.find(name); it != rules.layers.end()) {
      resolved.metal[layer] = &it->second;
    }
    if (const auto it = rules.vias.find(name); it != rules.vias.end()) {
      resolved.via[layer] = &it->second;
    }
  }
  return resolved;
}

Check verdictOnly(Verdict verdict) {
  Check check;
  check.verdict = verdict;
  return check;
}

Check checkOne(const Subject& subject, const Piece* piece, const Geometry& geometry,
               const LayerRules& rules, double derating, Findings& findings) {
  if (!subject.analysed) {
    return verdictOnly(Verdict::kNotAnalysed);
  }
  if (piece == nullptr) {
    if (findings.withoutGeometry++ == 0) {
      findings.firstWithoutGeometry = subject.name;
    }
    return verdictOnly(Verdict::kNoGeometry);
  }
  const std::string& layer = geometry.layerName(piece->layer);
  if (piece->shape.via) {
    if (const ViaRule* rule = rules.via[piece->layer]) {
      return checkVia(subject.currents, *rule, derating);
    }
  } else if (const MetalRule* rule = rules.metal[piece->layer]) {
    const double width = piece->shape.width + rule->widthBias;
    if (width > 0.0) {
      return checkMetal(subject.currents, piece->shape, *rule, derating);
    }
    Findings::BadWidth& bad = findings.nonPositiveWidths[layer];
    if (bad.count++ == 0) {
      bad.firstName = subject.name;
      bad.firstWidth = piece->shape.width;
    }
    return verdictOnly(Verdict::kNoRule);
  }
  ++findings.layersWithoutRule[layer];
  return verdictOnly(Verdict::kNoRule);
}

}  // namespace

InstanceCurrents currentsOf(const zeInstance& instance) {
  InstanceCurrents currents;
  const voltageData& data = instance.data;
  const double r = instance.resistance;
  currents.usable = instance.valid && !std::isnan(r);
  const double scale = r > 0.0 ? r : 1.0;
  currents.peak = data.peak / scale;
  currents.avg = data.avg / scale;
  currents.rms = data.rms / scale;
  currents.absAvg = data.absAvg / scale;
  currents.avgPositive = data.avgPositive / scale;
  currents.avgNegative = data.avgNegative / scale;
  currents.peakValue = data.peakValue / scale;
  return currents;
}

Subject subjectOf(const zeInstance& instance) {
  const InstanceCurrents currents = currentsOf(instance);
  const bool finite =
      std::isfinite(currents.avg) && std::isfinite(currents.rms) && std::isfinite(currents.peak);
  return {instance.name, {currents.avg, currents.rms, currents.peak}, currents.usable && finite};
}

Outcome checkAll(std::span<const Subject> subjects, const Geometry& geometry, const Rules& rules,
                 double temperatureC) {
  Outcome outcome;
  const LayerRules layerRules = resolve(geometry, rules);
  const double derating = deratingFactor(rules, temperatureC);
  outcome.rows.reserve(subjects.size());
  for (size_t i = 0; i < subjects.size(); ++i) {
    const Piece* piece = subjects[i].analysed ? geometry.find(subjects[i].name) : nullptr;
    Row row{i, piece,
            checkOne(subjects[i], piece, geometry, layerRules, derating, outcome.findings)};
    ++outcome.findings.counts[static_cast<size_t>(row.check.verdict)];
    outcome.rows.push_back(row);
  }
  // Rows with a worst ratio come first, largest first; the rest keep the input order. The
  // order is found on indices, so that each row moves once.
  std::vector<uint32_t> order(outcome.rows.size());
  for (uint32_t i = 0; i < order.size(); ++i) {
    order[i] = i;
  }
  const std::vector<Row>& rows = outcome.rows;
  std::stable_sort(order.begin(), order.end(), [&rows](uint32_t a, uint32_t b) {
    const double worstA = rows[a].check.worst;
    const double worstB = rows[b].check.worst;
    if (std::isnan(worstA) || std::isnan(worstB)) {
      return !std::isnan(worstA) && std::isnan(worstB);
    }
    return worstA > worstB;
  });
  std::vector<Row> sorted;
  sorted.reserve(rows.size());
  for (const uint32_t i : order) {
    sorted.push_back(rows[i]);
  }
  outcome.rows = std::move(sorted);
  return outcome;
}

}  // namespace em
