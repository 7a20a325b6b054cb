// kra2.open: a results directory and its analyses, with the values of signals as numpy
// arrays. Values stored as float64 in a mapped file are viewed in place (a strided, read-only
// array whose base holds the mapping); others are read through the results reader.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bindings.h"
#include "simdata/resultsReader.h"
#include "support/parallel.h"

namespace py = pybind11;

namespace kra2py {

namespace {

/// A read-only float64 array over `count` values `stride` bytes apart from `first`, kept
/// valid by `base`.
py::array viewOf(const char* first, size_t count, size_t stride, py::handle base) {
  py::array array(py::dtype::of<double>(), {count}, {stride}, first, base);
  array.attr("setflags")(py::arg("write") = false);
  return array;
}

py::array viewOf(const simdata::StoredColumn& column) {
  return viewOf(column.first, column.count, column.strideBytes, keepAlive(column.owner));
}

/// A float64 array of a data vector's elements: a view of its doubles when it has them, else
/// a copy of its elements as stored (widened from float32; NaN kept).
py::array arrayOf(const simdata::DataVector* vector, const std::shared_ptr<const void>& owner) {
  if (vector == nullptr) {
    return py::array_t<double>(size_t{0});
  }
  const std::span<const double> doubles = vector->doubles();
  if (!doubles.empty()) {
    return viewOf(reinterpret_cast<const char*>(doubles.data()), doubles.size(), sizeof(double),
                  keepAlive(owner));
  }
  py::array_t<double> copy(static_cast<size_t>(vector->length() > 0 ? vector->length() : 0));
  double* out = copy.mutable_data();
  for (int i = 0; i < vector->length(); ++i) {
    out[i] = vector->doubleAt(i);
  }
  return copy;
}

/// The reader's pending error as an exception, or `fallback` when there is none.
Error readerError(const std::string& fallback) {
  const char* text = simdata::lastErrorText();
  return Error(withoutLineEnd(simdata::lastErrorCode() != 0 && text != nullptr ? text : fallback));
}

/// One analysis (dataset) of an opened results directory; holds the directory.
class Analysis {
 public:
  Analysis(std::shared_ptr<simdata::ResultsDir> dir, simdata::Dataset* dataset)
      : dir_(std::move(dir)), dataset_(dataset) {}

  simdata::Dataset& dataset() const { return *dataset_; }
  std::string name() const { return text(dataset_->name()); }
  std::string kind() const { return text(dataset_->analysisType()); }
  bool swept() const { return dataset_->sweep() != nullptr; }

  std::vector<std::string> signals() const {
    std::vector<std::string> names;
    if (const simdata::SignalList* list = dataset_->signals()) {
      for (int i = 0; i < list->count(); ++i) {
        names.push_back(list->at(i)->name1);
      }
    }
    return names;
  }

  const simdata::Signal& signal(const std::string& name) const {
    const simdata::Signal* signal = dataset_->findSignal(name);
    if (signal == nullptr) {
      throw py::key_error("no signal named " + name + " in analysis " + this->name());
    }
    return *signal;
  }

  /// A signal's values: an array over the scale, or a float at an operating point.
  py::object value(const std::string& name) const {
    const simdata::Signal& signal = this->signal(name);
    if (swept()) {
      if (auto column = dataset_->storedColumn(&signal)) {
        return viewOf(*column);
      }
    }
    simdata::resetError();
    std::shared_ptr<const simdata::Value> value = dataset_->readValue(signal.name2);
    if (!value) {
      throw readerError("cannot read signal " + name);
    }
    if (value->kind() == simdata::kScalarValue) {
      return py::float_(value->scalar());
    }
    const simdata::Value* waveform = simdata::getWaveform(value.get());
    return arrayOf(waveform != nullptr ? waveform->yVector() : nullptr, value);
  }

  /// The swept axis, or None at an operating point.
  py::object scale() const {
    if (!swept()) {
      return py::none();
    }
    if (auto column = dataset_->storedScale()) {
      return viewOf(*column);
    }
    const simdata::SignalList* list = dataset_->signals();
    if (list == nullptr || list->count() == 0) {
      return py::array_t<double>(size_t{0});
    }
    simdata::resetError();
    std::shared_ptr<const simdata::Value> value = dataset_->readValue(list->at(0)->name2);
    if (!value) {
      throw readerError("cannot read the scale of analysis " + name());
    }
    const simdata::Value* waveform = simdata::getWaveform(value.get());
    return arrayOf(waveform != nullptr ? waveform->xVector() : nullptr, value);
  }

  /// The listed signals (all when none are given) in one bulk read, one row per signal.
  py::array_t<double> read(const std::vector<std::string>& names) const {
    const std::vector<std::string> wanted = names.empty() ? signals() : names;
    simdata::SignalArray array(static_cast<int>(wanted.size()));
    for (const std::string& name : wanted) {
      array.add(&signal(name));
    }
    if (auto rows = readInPlace(array)) {
      return *rows;
    }
    simdata::resetError();
    dataset_->expectBulkReads(2);
    std::unique_ptr<simdata::ValueArray> values = dataset_->read(array);
    if (!values || values->count() != array.count()) {
      throw readerError("cannot read the signals of analysis " + name());
    }
    size_t points = 0;
    std::vector<const simdata::DataVector*> rows(wanted.size(), nullptr);
    for (int i = 0; i < values->count(); ++i) {
      const simdata::Value* waveform = simdata::getWaveform(values->at(i));
      if (waveform != nullptr && waveform->kind() == simdata::kDataVectorValue &&
          waveform->yVector() != nullptr) {
        rows[static_cast<size_t>(i)] = waveform->yVector();
        points = std::max(points, static_cast<size_t>(std::max(0, rows[i]->length())));
      }
    }
    py::array_t<double> out({wanted.size(), points});
    double* data = out.mutable_data();
    {
      py::gil_scoped_release release;
      for (size_t r = 0; r < rows.size(); ++r) {
        copyRow(rows[r], data + r * points, points);
      }
    }
    return out;
  }

 private:
  static std::string text(const char* value) { return value != nullptr ? value : ""; }

  /// The signals copied straight from where they lie in place, when every one does: point
  /// by point within blocks of rows, so that each record is read in short runs and each
  /// row written in order, the blocks shared among threads.
  std::optional<py::array_t<double>> readInPlace(const simdata::SignalArray& array) const {
    if (!swept()) {
      return std::nullopt;
    }
    std::vector<simdata::StoredColumn> columns;
    for (int i = 0; i < array.count(); ++i) {
      auto column = dataset_->storedColumn(array.at(i));
      if (!column || (i > 0 && column->count != columns.front().count)) {
        return std::nullopt;
      }
      columns.push_back(std::move(*column));
    }
    const size_t points = columns.empty() ? 0 : columns.front().count;
    py::array_t<double> out({columns.size(), points});
    double* data = out.mutable_data();
    py::gil_scoped_release release;
    constexpr size_t kRowsPerBlock = 64;
    support::parallelFor(columns.size(), kRowsPerBlock, [&](size_t begin, size_t end) {
      for (size_t p = 0; p < points; ++p) {
        for (size_t r = begin; r < end; ++r) {
          std::memcpy(data + r * points + p, columns[r].first + p * columns[r].strideBytes,
                      sizeof(double));
        }
      }
    });
    return out;
  }

  static void copyRow(const simdata::DataVector* vector, double* out, size_t points) {
    std::memset(out, 0, points * sizeof(double));
    if (vector == nullptr) {
      return;
    }
    const std::span<const double> doubles = vector->doubles();
    if (!doubles.empty()) {
      std::memcpy(out, doubles.data(), std::min(points, doubles.size()) * sizeof(double));
      return;
    }
    const size_t length = std::min(points, static_cast<size_t>(std::max(0, vector->length())));
    for (size_t i = 0; i < length; ++i) {
      out[i] = vector->doubleAt(static_cast<int>(i));
    }
  }

  std::shared_ptr<simdata::ResultsDir> dir_;
  simdata::Dataset* dataset_;
};

/// An opened results directory (or file).
class Results {
 public:
  explicit Results(const std::string& path) : path_(path) {
    simdata::resetError();
    if (!simdata::isResultsDirectory(path)) {
      throw Error(path + " is not a results directory");
    }
    dir_ = simdata::openResults(path);
    if (!dir_) {
      throw readerError("kra2: openSimData command failed.");
    }
    const char* name = simdata::readerName(path);
    reader_ = name != nullptr ? name : "";
    // What the reader found worth reporting although it read the path (the log's WARNING).
    const char* warning = simdata::lastErrorText();
    if (simdata::lastErrorCode() != 0 && warning != nullptr &&
        PyErr_WarnEx(PyExc_RuntimeWarning, warning, 1) != 0) {
      throw py::error_already_set();
    }
  }

  std::vector<std::string> analyses() const {
    std::vector<std::string> names;
    if (const simdata::DatasetArray* datasets = dir_->datasets()) {
      for (int i = 0; i < datasets->count(); ++i) {
        const char* name = datasets->at(i)->name();
        names.push_back(name != nullptr ? name : "");
      }
    }
    return names;
  }

  Analysis analysis(const std::string& name) const {
    simdata::Dataset* dataset = dir_->findDataset(name);
    if (dataset == nullptr) {
      throw py::key_error("no analysis named " + name + " in " + path_);
    }
    return Analysis(dir_, dataset);
  }

  const std::string& path() const { return path_; }
  const std::string& reader() const { return reader_; }

 private:
  std::string path_;
  std::string reader_;
  std::shared_ptr<simdata::ResultsDir> dir_;
};

}  // namespace

simdata::Dataset& datasetOf(const py::object& analysis) {
  return analysis.cast<const Analysis&>().dataset();
}

void bindResults(py::module_& module) {
  py::class_<Analysis>(module, "Analysis", "One analysis of opened results.")
      .def_property_readonly("name", &Analysis::name)
      .def_property_readonly("kind", &Analysis::kind, "analysis type: tran, dc, ac, ...")
      .def_property_readonly("swept", &Analysis::swept, "False at an operating point")
      .def_property_readonly("signals", &Analysis::signals)
      .def_property_readonly("scale", &Analysis::scale, "the swept axis (None when not swept)")
      .def("__getitem__", &Analysis::value, py::arg("signal"))
      .def("__contains__",
           [](const Analysis& a, const std::string& name) {
             return a.dataset().findSignal(name) != nullptr;
           })
      .def("__len__", [](const Analysis& a) { return a.signals().size(); })
      .def("read", &Analysis::read, py::arg("signals") = std::vector<std::string>(),
           "the listed signals (all by default) as one array, a row per signal")
      .def("__repr__", [](const Analysis& a) {
        return "<kra2.Analysis " + a.name() + " (" + a.kind() + ", " +
               std::to_string(a.signals().size()) + " signals)>";
      });
  py::class_<Results>(module, "Results", "Opened simulation results.")
      .def(py::init<const std::string&>(), py::arg("path"))
      .def_property_readonly("path", &Results::path)
      .def_property_readonly("reader", &Results::reader, "the format that read the path")
      .def_property_readonly("analyses", &Results::analyses)
      .def("__getitem__", &Results::analysis, py::arg("analysis"))
      .def("__contains__",
           [](const Results& r, const std::string& name) {
             for (const std::string& own : r.analyses()) {
               if (own == name) {
                 return true;
               }
             }
             return false;
           })
      .def("__repr__", [](const Results& r) { return "<kra2.Results " + r.path() + ">"; });
}

}  // namespace kra2py
