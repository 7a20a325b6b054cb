// The extension module _kra2, which the Python package kra2 wraps. numpy is imported on the
// first use of an array only, so that `import kra2` works with an interpreter without it.

#include <pybind11/pybind11.h>

#include "bindings.h"
#include "simdata/resultsReader.h"

namespace kra2py {

std::string withoutLineEnd(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
    text.pop_back();
  }
  return text;
}

}  // namespace kra2py

PYBIND11_MODULE(_kra2, module) {
  module.doc() = "kra2: simulation results, waveform statistics and EMIR databases";
  simdata::initialise();
  pybind11::register_exception<kra2py::Error>(module, "Error", PyExc_RuntimeError);
  kra2py::bindResults(module);
  kra2py::bindMeasure(module);
  kra2py::bindDatabase(module);
  kra2py::bindEmCheck(module);
}
