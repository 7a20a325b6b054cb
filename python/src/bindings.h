#pragma once
// The parts of the Python extension _kra2, each binding one area of the engine.

#include <pybind11/pybind11.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace kra2py {

/// The error raised to Python as kra2.Error, carrying the text the log would show.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The log text of a failure without its line end (a Python message has none).
std::string withoutLineEnd(std::string text);

/// kra2.open, the results and analysis classes.
void bindResults(pybind11::module_& module);
/// kra2.measure.
void bindMeasure(pybind11::module_& module);
/// The database reader and writer (kra2.db builds its record arrays on them).
void bindDatabase(pybind11::module_& module);
/// kra2.check_em.
void bindEmCheck(pybind11::module_& module);

/// A Python object that holds `owner` until it is released: the base of an array that views
/// memory the owner keeps valid.
template <typename T>
pybind11::capsule keepAlive(std::shared_ptr<T> owner) {
  auto* held = new std::shared_ptr<T>(std::move(owner));
  return pybind11::capsule(held, [](void* p) { delete static_cast<std::shared_ptr<T>*>(p); });
}

}  // namespace kra2py
