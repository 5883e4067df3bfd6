// KpzPyRaise.h - how the module kpz._kpz raises: a failure of the library's
// kinds as kpz._errors makes it, the module's other errors in words, and the
// type names those words use.
//
// Part of the Python module kpz._kpz (python/src), for its source files
// alike (KpzPyModule, KpzPyExtraction, KpzPyStreamReadAt). Every function
// that raises sets the Python error and throws pybind11::error_already_set;
// call them with the interpreter lock held.
//
//   if (!got.ok()) KpzPyRaiseFailure(got.kind, got.err, got.code, got.words, filename);
#ifndef KPZ_PYTHON_SRC_KPZPYRAISE_H
#define KPZ_PYTHON_SRC_KPZPYRAISE_H

#include <pybind11/pybind11.h>

#include <string>

#include "raw/DtRawFailure.h"

// The name of `obj`'s type, for words ("int", "bytes", ...).
std::string KpzPyTypeName(const pybind11::handle& obj);

// Raises `type` with `words`, the pending Python error as its __cause__.
[[noreturn]] void KpzPyRaiseFromPending(PyObject* type, const std::string& words);

// Raises the class `cls` of kpz._errors (KpzError, OrientationError, ...)
// for a failure that is none of the library's kinds, with its words, code
// and filename.
[[noreturn]] void KpzPyRaiseKpz(const char* cls, const std::string& words, pybind11::object code,
                                pybind11::object filename);

// A failure of the library's `kind` (DtRawFailure, numbered as Java's
// KpzException.Kind), raised as kpz._errors._error_for makes it: the one
// table from a kind to Python's class is there (_CLASS_OF_KIND), and every
// exception carries the kind's name as `kind` ("not_kpz", "damaged",
// "no_preview", "no_thumbnail", "unreadable"). `err` is the system's errno
// or 0, `code` the library's result where one applies.
[[noreturn]] void KpzPyRaiseFailure(DtRawFailure::Kind kind, int err, int code,
                                    const std::string& words, pybind11::object filename);

#endif  // KPZ_PYTHON_SRC_KPZPYRAISE_H
