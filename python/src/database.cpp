// The EMIR database from Python: a reader that hands back the records of both blocks column
// by column, and a writer from such columns. kra2.db turns the columns into numpy structured
// arrays.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "bindings.h"
#include "db/dbFile.h"

namespace py = pybind11;

namespace kra2py {

namespace {

/// Float columns of a record type, in file order.
const std::vector<std::string> kIrFields = {"rms", "avg", "peak", "tpeak", "min", "tmin"};
const std::vector<std::string> kEmFields = {"rms", "avg", "peak", "tpeak", "avgPos"};

/// A database failure as the log shows it ("kra2: <text>").
[[noreturn]] void raiseDatabaseError(const std::exception& error) {
  throw Error(withoutLineEnd(std::string("kra2: ") + error.what()));
}

/// Record names as texts; bytes that are not UTF-8 survive as escapes (and are written back
/// as they were read, see kra2.db.write).
py::list textsOf(const std::vector<std::string>& names) {
  py::list out;
  for (const std::string& name : names) {
    PyObject* text =
        PyUnicode_DecodeUTF8(name.data(), static_cast<Py_ssize_t>(name.size()), "surrogateescape");
    if (text == nullptr) {
      throw py::error_already_set();
    }
    out.append(py::reinterpret_steal<py::object>(text));
  }
  return out;
}

template <typename T>
py::array_t<T> arrayOf(const std::vector<T>& values) {
  py::array_t<T> out(values.size());
  std::copy(values.begin(), values.end(), out.mutable_data());
  return out;
}

/// Reads every record: {"temperature", "start", "stop", "version", "ir": {...}, "em": {...}},
/// each block a dict of its columns ("name" as a list of texts).
py::dict readDatabase(const std::string& path) {
  py::dict out;
  std::vector<std::string> irNames, emNames;
  std::vector<std::vector<double>> ir(kIrFields.size()), em(kEmFields.size());
  std::vector<int64_t> term1, term2;
  std::string damage;
  try {
    kraDB::kraDBFile db(path);
    out["temperature"] = db.getTemperature();
    out["start"] = db.getStartTime();
    out["stop"] = db.getStopTime();
    out["version"] = static_cast<double>(db.getVersion());
    py::gil_scoped_release release;
    IRRecord record;
    while (db.readNextIR(record)) {
      irNames.push_back(record.name);
      const double values[] = {record.rms,   record.avg, record.peak,
                               record.tpeak, record.min, record.tmin};
      for (size_t f = 0; f < kIrFields.size(); ++f) {
        ir[f].push_back(values[f]);
      }
    }
    kraDB::kraDBEMNode node;
    while (db.readNextEM(node)) {
      emNames.push_back(node.name);
      const double values[] = {node.rms, node.avg, node.peak, node.tpeak, node.avgPos};
      for (size_t f = 0; f < kEmFields.size(); ++f) {
        em[f].push_back(values[f]);
      }
      term1.push_back(node.term1);
      term2.push_back(node.term2);
    }
    damage = db.damage();
  } catch (const std::exception& error) {
    raiseDatabaseError(error);
  }
  if (!damage.empty()) {
    throw Error(withoutLineEnd("kra2: " + damage));
  }
  py::dict irColumns, emColumns;
  irColumns["name"] = textsOf(irNames);
  for (size_t f = 0; f < kIrFields.size(); ++f) {
    irColumns[py::str(kIrFields[f])] = arrayOf(ir[f]);
  }
  emColumns["name"] = textsOf(emNames);
  for (size_t f = 0; f < kEmFields.size(); ++f) {
    emColumns[py::str(kEmFields[f])] = arrayOf(em[f]);
  }
  emColumns["term1"] = arrayOf(term1);
  emColumns["term2"] = arrayOf(term2);
  out["ir"] = irColumns;
  out["em"] = emColumns;
  return out;
}

/// The float64 column `field` of a block given as a dict of columns.
std::vector<double> floatColumn(const py::dict& block, const std::string& field, size_t rows) {
  if (!block.contains(field)) {
    throw py::key_error("missing column " + field);
  }
  auto values =
      py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(block[py::str(field)]);
  if (!values || static_cast<size_t>(values.size()) != rows) {
    throw py::value_error("column " + field + " must hold one number per name");
  }
  return {values.data(), values.data() + rows};
}

std::vector<int64_t> intColumn(const py::dict& block, const std::string& field, size_t rows) {
  const std::vector<double> values = floatColumn(block, field, rows);
  return {values.begin(), values.end()};
}

/// Writes a database of the current format: the IR records, then the EM records.
void writeDatabase(const std::string& path, const py::dict& ir, const py::dict& em,
                   double temperature, double start, double stop) {
  const auto names = [](const py::dict& block) {
    return block.contains("name") ? block["name"].cast<std::vector<std::string>>()
                                  : std::vector<std::string>();
  };
  const std::vector<std::string> irNames = names(ir), emNames = names(em);
  std::vector<std::vector<double>> irValues, emValues;
  for (const std::string& field : kIrFields) {
    irValues.push_back(irNames.empty() ? std::vector<double>()
                                       : floatColumn(ir, field, irNames.size()));
  }
  for (const std::string& field : kEmFields) {
    emValues.push_back(emNames.empty() ? std::vector<double>()
                                       : floatColumn(em, field, emNames.size()));
  }
  std::vector<int64_t> term1, term2;
  if (!emNames.empty()) {
    term1 = intColumn(em, "term1", emNames.size());
    term2 = intColumn(em, "term2", emNames.size());
  }
  bool failed = false;
  try {
    py::gil_scoped_release release;
    kraDB::kraDBFile db(path, temperature, start, stop, kraDB::kWriterVersion);
    for (size_t i = 0; i < irNames.size(); ++i) {
      db.addIR(irNames[i], irValues[0][i], irValues[1][i], irValues[2][i], irValues[3][i],
               irValues[4][i], irValues[5][i]);
    }
    for (size_t i = 0; i < emNames.size(); ++i) {
      db.addEM(emNames[i], emValues[0][i], emValues[1][i], emValues[2][i], emValues[3][i],
               emValues[4][i], term1[i], term2[i]);
    }
    db.closeFile();
    failed = db.failed();
  } catch (const std::exception& error) {
    raiseDatabaseError(error);
  }
  if (failed) {
    throw Error("kra2: cannot write EMIR database file '" + path + "'");
  }
}

}  // namespace

void bindDatabase(py::module_& module) {
  module.def("db_read", &readDatabase, py::arg("path"));
  module.def("db_write", &writeDatabase, py::arg("path"), py::arg("ir"), py::arg("em"),
             py::arg("temperature"), py::arg("start"), py::arg("stop"));
}

}  // namespace kra2py
