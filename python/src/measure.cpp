// kra2.measure: the statistics of every instance of a netlist over a time window, by the
// session-free run engine, with the numbers saveResult would write for the same run.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdio>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "analysis/exactWindow.h"
#include "analysis/netlist.h"
#include "analysis/runLoop.h"
#include "bindings.h"
#include "support/file.h"

namespace py = pybind11;

namespace kra2py {

simdata::Dataset& datasetOf(const py::object& analysis);

namespace {

/// Keeps what the run would log: the node names without a signal and a failed read.
class RunNotes : public analysis::RunObserver {
 public:
  void batchStarting(int, int) override {}
  void batchLookedUp(std::span<const std::string* const> missing, bool countMismatch) override {
    for (const std::string* name : missing) {
      missing_.push_back(*name);
    }
    mismatch_ = mismatch_ || countMismatch;
  }
  void batchReadFailed() override { readFailed_ = true; }
  void batchDone(int, int failed, int) override { failed_ = failed; }

  std::vector<std::string> missing_;
  bool mismatch_ = false;
  bool readFailed_ = false;
  int failed_ = 0;
};

/// The run's ignore setting from the words of the `ignore` commands, in command order.
int ignoreSignOf(const std::vector<std::string>& words) {
  int ignoreSign = 0;
  for (const std::string& word : words) {
    if (word == "negative_currents") {
      ignoreSign = -1;
    } else if (word == "positive_currents") {
      ignoreSign = ignoreSign == -1 ? 2 : 1;
    } else if (word == "both") {
      ignoreSign = 2;
    } else {
      throw py::value_error("ignore takes negative_currents, positive_currents or both, not " +
                            word);
    }
  }
  return ignoreSign;
}

analysis::WindowMode windowModeOf(const std::string& window) {
  if (window == "legacy") {
    return analysis::WindowMode::kLegacy;
  }
  if (window == "exact") {
    return analysis::WindowMode::kExact;
  }
  throw py::value_error("window takes legacy or exact, not " + window);
}

/// Loads the instances as loadNetlist does: from a netlist file, or from lines given as
/// sequences of fields ("name node1 node2 ..." in the netlist's layout).
zeNetlist loadInstances(const py::object& instances, bool durationGiven, bool resistance) {
  zeNetlist netlist;
  analysis::applyLineFormatEnvironment(netlist);
  netlist.resistanceColumn = resistance;
  std::string fileName;
  std::string text;
  support::FilePtr file;
  if (py::isinstance<py::str>(instances) || py::hasattr(instances, "__fspath__")) {
    fileName = py::str(py::module_::import("os").attr("fspath")(instances));
    file.reset(std::fopen(fileName.c_str(), "r"));
    if (!file) {
      throw Error("kra2: netlist file " + fileName + " not found.");
    }
  } else {
    for (const py::handle line : instances) {
      std::string joined;
      for (const py::handle field : line) {
        joined += (joined.empty() ? "" : " ") + std::string(py::str(field));
      }
      text += joined + "\n";
    }
    file.reset(fmemopen(text.data(), text.size(), "r"));
    if (!text.empty() && !file) {
      throw Error("cannot read the instances");
    }
  }
  const char* name = fileName.empty() ? nullptr : fileName.c_str();
  const int status = durationGiven ? netlist.loadNetlistPeakCurrents(file.get(), name)
                                   : netlist.loadNetlist(file.get(), name);
  if (status != 0 && file) {
    const std::string line = std::to_string(netlist.instances.size() + 1);
    throw Error("Incorrect netlist file format (" +
                (fileName.empty() ? "line " + line : fileName + ": line " + line) + ")");
  }
  return netlist;
}

template <typename T>
py::array_t<T> column(const std::vector<zeInstance>& instances, T (*field)(const zeInstance&)) {
  py::array_t<T> out(instances.size());
  T* data = out.mutable_data();
  for (size_t i = 0; i < instances.size(); ++i) {
    data[i] = field(instances[i]);
  }
  return out;
}

constexpr double kNaN = __builtin_nan("");

/// The columns of the result file, with the placeholders of an instance not analysed.
py::dict resultColumns(const std::vector<zeInstance>& list) {
  py::dict out;
  std::vector<std::string> names, nodes1, nodes2;
  for (const zeInstance& instance : list) {
    names.push_back(instance.name);
    nodes1.push_back(instance.node1);
    nodes2.push_back(instance.node2);
  }
  out["name"] = names;
  out["node1"] = nodes1;
  out["node2"] = nodes2;
  out["valid"] = column<bool>(list, [](const zeInstance& i) { return i.valid; });
  using Get = double (*)(const zeInstance&);
  const std::pair<const char*, Get> fields[] = {
      {"peak", [](const zeInstance& i) { return i.data.peak; }},
      {"avg", [](const zeInstance& i) { return i.data.avg; }},
      {"rms", [](const zeInstance& i) { return i.data.rms; }},
      {"peakTime", [](const zeInstance& i) { return i.data.peakTime; }},
      {"dutyRatio", [](const zeInstance& i) { return i.valid ? i.data.dutyRatio : 1.0; }},
      {"absAvg", [](const zeInstance& i) { return i.data.absAvg; }},
      {"avgPositive", [](const zeInstance& i) { return i.data.avgPositive; }},
      {"avgNegative", [](const zeInstance& i) { return i.data.avgNegative; }},
      // Microseconds, as the result file has them; 1e99 marks an instance not analysed.
      {"pulseWidth",
       [](const zeInstance& i) { return i.valid ? i.data.pulseWidth * 1000000.0 : 1e99; }},
      {"peakValue", [](const zeInstance& i) { return i.data.peakValue; }},
      {"rawAvg", [](const zeInstance& i) { return i.data.rawAvg; }},
  };
  for (const auto& [name, get] : fields) {
    const bool placeholder = std::string(name) != "dutyRatio" && std::string(name) != "pulseWidth";
    py::array_t<double> values(list.size());
    double* data = values.mutable_data();
    for (size_t i = 0; i < list.size(); ++i) {
      data[i] = !list[i].valid && placeholder ? kNaN : get(list[i]);
    }
    out[name] = values;
  }
  // Ohms from the netlist (0: none given, NaN: not a resistance), for kra2.check_em.
  out["resistance"] = column<double>(list, [](const zeInstance& i) { return i.resistance; });
  out["direction"] = column<int32_t>(
      list, [](const zeInstance& i) { return static_cast<int32_t>(i.valid ? i.direction : -1); });
  return out;
}

py::dict measure(const py::object& analysisObject, const py::object& instances, double start,
                 double stop, double duration, const py::object& ignore, bool ac, bool acHalfPeak,
                 bool recoveryFactor, std::optional<double> emRecoveryFactor,
                 const std::string& window, bool resistance) {
  simdata::Dataset& dataset = datasetOf(analysisObject);
  zeNetlist netlist = loadInstances(instances, duration != 0.0, resistance);
  analysis::StatisticsSettings settings;
  settings.durationTime = duration;
  settings.startTime = start;
  // As `run` does, so that a sample exactly at the stop time is inside the window.
  settings.stopTime = stop + 1e-12;
  settings.windowMode = windowModeOf(window);
  settings.ignoreSign = ignoreSignOf(ignore.is_none() ? std::vector<std::string>()
                                     : py::isinstance<py::str>(ignore)
                                         ? std::vector<std::string>{ignore.cast<std::string>()}
                                         : ignore.cast<std::vector<std::string>>());
  settings.acAnalysis = ac;
  settings.acPeakMethod =
      acHalfPeak ? analysis::AcPeakMethod::kHalfPeakPulses : analysis::AcPeakMethod::kAreaOverPeak;
  settings.recoveryFactor = recoveryFactor ? 1.0f : 0.0f;
  settings.emRecoveryFactorGiven = emRecoveryFactor.has_value();
  settings.emRecoveryFactor = static_cast<float>(emRecoveryFactor.value_or(1.0));
  if (settings.windowMode == analysis::WindowMode::kExact) {
    // The checks and messages of `run` in this mode; the window ends at `stop` as it is.
    if (const char* conflict = analysis::exactWindowConflict(settings)) {
      throw Error(std::string("kra2: windowMode exact cannot be combined with ") + conflict +
                  "; run not done.");
    }
    if (stop < start) {
      throw Error("kra2: run with windowMode exact needs a stop time not before the start time.");
    }
    settings.stopTime = stop;
  }
  RunNotes notes;
  simdata::resetError();
  {
    py::gil_scoped_release release;
    dataset.prepare();
    analysis::runInstances(dataset, netlist.instances, settings, notes);
  }
  if (notes.readFailed_) {
    const char* text = simdata::lastErrorText();
    throw Error(std::string("Failed to read some of the signal values") +
                (simdata::lastErrorCode() != 0 && text != nullptr ? ": " + std::string(text) : ""));
  }
  if (!notes.missing_.empty()) {
    std::string message = "No simulation data available for signals:";
    for (size_t i = 0; i < notes.missing_.size() && i < 10; ++i) {
      message += " " + notes.missing_[i];
    }
    if (notes.missing_.size() > 10) {
      message += " ... (" + std::to_string(notes.missing_.size()) + " in all)";
    }
    if (PyErr_WarnEx(PyExc_RuntimeWarning, message.c_str(), 1) != 0) {
      throw py::error_already_set();
    }
  }
  return resultColumns(netlist.instances);
}

}  // namespace

void bindMeasure(py::module_& module) {
  module.def("measure", &measure, py::arg("analysis"), py::arg("instances"), py::arg("start"),
             py::arg("stop"), py::kw_only(), py::arg("duration") = 0.0,
             py::arg("ignore") = py::none(), py::arg("ac") = false, py::arg("ac_half_peak") = false,
             py::arg("recovery_factor") = false, py::arg("em_recovery_factor") = py::none(),
             py::arg("window") = "legacy", py::arg("resistance") = false,
             "The statistics of every instance over [start, stop], as `run` and `saveResult` "
             "give them: a dict of arrays keyed by the result file's columns.");
}

}  // namespace kra2py
