// kra2.check_em: the EM verdicts of measured instances, by the same functions as the checkEM
// command (currents from the statistics and the netlist's resistance, TOML rules, geometry
// from length data), rows worst first as the violations report lists them.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include "analysis/netlist.h"
#include "bindings.h"
#include "em/check.h"
#include "em/report.h"

namespace py = pybind11;

namespace kra2py {

namespace {

std::vector<double> columnOf(const py::dict& measured, const char* name, size_t rows) {
  if (!measured.contains(name)) {
    throw py::key_error(std::string("the measured instances have no column ") + name);
  }
  auto values =
      py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(measured[name]);
  if (!values || static_cast<size_t>(values.size()) != rows) {
    throw py::value_error(std::string("column ") + name + " must hold one number per instance");
  }
  return {values.data(), values.data() + rows};
}

/// The instances of a measure result, as far as the check reads them.
std::vector<zeInstance> instancesOf(const py::dict& measured) {
  const auto names = measured["name"].cast<std::vector<std::string>>();
  const std::vector<double> peak = columnOf(measured, "peak", names.size());
  const std::vector<double> avg = columnOf(measured, "avg", names.size());
  const std::vector<double> rms = columnOf(measured, "rms", names.size());
  const std::vector<double> valid = measured.contains("valid")
                                        ? columnOf(measured, "valid", names.size())
                                        : std::vector<double>(names.size(), 1.0);
  const std::vector<double> resistance = measured.contains("resistance")
                                             ? columnOf(measured, "resistance", names.size())
                                             : std::vector<double>(names.size(), 0.0);
  std::vector<zeInstance> instances(names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    instances[i].name = names[i];
    instances[i].data.peak = peak[i];
    instances[i].data.avg = avg[i];
    instances[i].data.rms = rms[i];
    instances[i].valid = valid[i] != 0.0;
    instances[i].resistance = resistance[i];
  }
  return instances;
}

py::dict checkEm(const py::dict& measured, const std::string& rulesPath,
                 const std::string& lengthData, double temperature,
                 const std::vector<std::string>& layerStack, bool totalSum) {
  const std::vector<zeInstance> instances = instancesOf(measured);
  em::Rules rules;
  std::string error;
  if (!em::readRules(rulesPath, rules, error)) {
    throw Error(withoutLineEnd("kra2: " + error));
  }
  std::ifstream input(lengthData);
  if (!input) {
    throw Error("kra2: Unable to open file " + lengthData + " for reading, in command checkEM.");
  }
  em::Geometry geometry;
  if (!em::loadGeometry(input, {layerStack, totalSum}, geometry, error)) {
    throw Error(withoutLineEnd(error));
  }
  std::vector<em::Subject> subjects;
  for (const zeInstance& instance : instances) {
    subjects.push_back(em::subjectOf(instance));
  }
  const em::Outcome outcome = em::checkAll(subjects, geometry, rules, temperature);

  const size_t rows = outcome.rows.size();
  std::vector<std::string> names, layers, kinds, verdicts;
  const char* kNumbers[] = {"width",    "length",   "Iavg",      "Irms",
                            "Ipeak",    "limitAvg", "limitRms",  "limitPeak",
                            "ratioAvg", "ratioRms", "ratioPeak", "ratioWorst"};
  std::vector<py::array_t<double>> numbers;
  for (size_t k = 0; k < std::size(kNumbers); ++k) {
    numbers.emplace_back(rows);
  }
  for (size_t r = 0; r < rows; ++r) {
    const em::Row& row = outcome.rows[r];
    const em::Subject& subject = subjects[row.subject];
    const em::Check& c = row.check;
    names.emplace_back(subject.name);
    layers.push_back(row.piece != nullptr ? geometry.layerName(row.piece->layer) : "-");
    kinds.push_back(row.piece == nullptr ? "-" : row.piece->shape.via ? "via" : "metal");
    verdicts.emplace_back(em::verdictName(c.verdict));
    const bool known = c.verdict != em::Verdict::kNotAnalysed;
    const double values[] = {row.piece != nullptr ? row.piece->shape.width : em::kNoValue,
                             row.piece != nullptr ? row.piece->shape.length : em::kNoValue,
                             known ? std::fabs(subject.currents.avg) : em::kNoValue,
                             known ? std::fabs(subject.currents.rms) : em::kNoValue,
                             known ? std::fabs(subject.currents.peak) : em::kNoValue,
                             c.limitAvg,
                             c.limitRms,
                             c.limitPeak,
                             c.ratioAvg,
                             c.ratioRms,
                             c.ratioPeak,
                             c.worst};
    for (size_t k = 0; k < std::size(kNumbers); ++k) {
      numbers[k].mutable_data()[r] = values[k];
    }
  }
  py::dict out;
  out["name"] = names;
  out["layer"] = layers;
  out["kind"] = kinds;
  for (size_t k = 0; k < std::size(kNumbers); ++k) {
    out[kNumbers[k]] = numbers[k];
  }
  out["verdict"] = verdicts;
  py::dict counts;
  for (int v = 0; v < em::kVerdicts; ++v) {
    counts[py::str(std::string(em::verdictName(static_cast<em::Verdict>(v))))] =
        outcome.findings.counts[static_cast<size_t>(v)];
  }
  out["counts"] = counts;
  return out;
}

}  // namespace

void bindEmCheck(py::module_& module) {
  module.def("check_em", &checkEm, py::arg("measured"), py::arg("rules"), py::arg("length_data"),
             py::arg("temperature"), py::kw_only(),
             py::arg("layer_stack") = std::vector<std::string>(), py::arg("total_sum") = false,
             "The EM verdicts of measured instances (a kra2.measure result), as checkEM gives "
             "them: a dict of columns, rows worst first, and the count of each verdict.");
}

}  // namespace kra2py
