// KpzPyRaise.cpp - how the module kpz._kpz raises. See KpzPyRaise.h.
#include "KpzPyRaise.h"

#include <utility>

namespace py = pybind11;

std::string KpzPyTypeName(const py::handle& obj) { return Py_TYPE(obj.ptr())->tp_name; }

void KpzPyRaiseFromPending(PyObject* type, const std::string& words) {
  py::error_already_set cause;  // takes the pending error
  py::raise_from(cause, type, words.c_str());
  throw py::error_already_set();
}

void KpzPyRaiseKpz(const char* cls, const std::string& words, py::object code,
                   py::object filename) {
  py::object type = py::module_::import("kpz._errors").attr(cls);
  py::object exc = type(words, std::move(code), std::move(filename));
  PyErr_SetObject(type.ptr(), exc.ptr());
  throw py::error_already_set();
}

void KpzPyRaiseFailure(DtRawFailure::Kind kind, int err, int code, const std::string& words,
                       py::object filename) {
  py::object exc =
      py::module_::import("kpz._errors")
          .attr("_error_for")(static_cast<int>(kind), words, code, std::move(filename), err);
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc.ptr())), exc.ptr());
  throw py::error_already_set();
}
