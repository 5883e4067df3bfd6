// KpzPyStreamReadAt.cpp - a Python binary file object read at an offset.
// See KpzPyStreamReadAt.h.
#include "KpzPyStreamReadAt.h"

#include <cerrno>
#include <new>
#include <utility>

#include "KpzPyRaise.h"

namespace py = pybind11;

namespace {

[[noreturn]] void raiseWords(PyObject* type, const std::string& words) {
  PyErr_SetString(type, words.c_str());
  throw py::error_already_set();
}

// A file size as the object's seek(0, 2) (or tell()) returned it: an int
// (TypeError otherwise) from 0 to 2**63 - 1 (ValueError otherwise), the
// sizes a file can have.
std::uint64_t sizeFrom(const py::object& value, const char* call) {
  if (!PyLong_Check(value.ptr()) || PyBool_Check(value.ptr())) {
    raiseWords(PyExc_TypeError, std::string("kpz: the file object's ") + call + " returned '" +
                                    KpzPyTypeName(value) + "', not an int (the file's size)");
  }
  int overflow = 0;
  const long long size = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (size == -1 && PyErr_Occurred() != nullptr) {
    throw py::error_already_set();
  }
  if (overflow != 0 || size < 0) {
    raiseWords(PyExc_ValueError, std::string("kpz: the file object's ") + call + " returned " +
                                     py::repr(value).cast<std::string>() +
                                     ", which is no file size (0 to 2**63 - 1 bytes)");
  }
  return static_cast<std::uint64_t>(size);
}

// Whether the class of `stream` reads into a buffer itself. The io base
// classes' own readinto only fails (RawIOBase) or calls read() and copies
// (BufferedIOBase): an object that inherits it is read with read(), whose
// answers are checked here in words.
bool readsInto(const py::object& stream) {
  py::object own = py::getattr(
      py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(Py_TYPE(stream.ptr()))),
      "readinto", py::none());
  if (own.is_none() || PyCallable_Check(own.ptr()) == 0) {
    return false;
  }
  const py::module_ io = py::module_::import("io");
  return !own.is(io.attr("RawIOBase").attr("readinto")) &&
         !own.is(io.attr("BufferedIOBase").attr("readinto"));
}

// A call of stream.<method>(arg); a text-mode stream's failure to decode is
// a TypeError in words.
py::object call(const py::object& stream, const char* method, PyObject* arg) {
  py::object name = py::str(method);
  PyObject* result = PyObject_CallMethodOneArg(stream.ptr(), name.ptr(), arg);
  if (result == nullptr) {
    if (PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) {
      KpzPyRaiseFromPending(PyExc_TypeError, KpzPyStreamReadAt::kTextMode);
    }
    throw py::error_already_set();
  }
  return py::reinterpret_steal<py::object>(result);
}

}  // namespace

KpzPyStreamReadAt::KpzPyStreamReadAt(py::object stream)
    : m_stream(std::move(stream)), m_readinto(false), m_size(0), m_endedEarly(false), m_endedAt(0) {
  py::object end = m_stream.attr("seek")(0, 2);
  m_size = !end.is_none() ? sizeFrom(end, "seek(0, 2)")
                          : sizeFrom(m_stream.attr("tell")(), "tell() after seek(0, 2)");
  m_readinto = readsInto(m_stream);
}

KpzPyStreamReadAt::~KpzPyStreamReadAt() = default;

std::string KpzPyStreamReadAt::EndedEarlyWords(std::uint64_t end, std::uint64_t size) {
  return "the file object ended at byte " + std::to_string(end) + ", before the " +
         std::to_string(size) +
         " bytes its seek(0, 2) reported: it is truncated or its size is wrong";
}

void KpzPyStreamReadAt::RaisePending() {
  if (!m_pending) {
    return;
  }
  std::unique_ptr<py::error_already_set> pending = std::move(m_pending);
  pending->restore();
  throw py::error_already_set();
}

int KpzPyStreamReadAt::GetData(std::uint64_t offset, std::size_t length, UINT8* out,
                               std::size_t* got) {
  *got = 0;
  if (length == 0) {
    return 0;
  }
  py::gil_scoped_acquire locked;
  if (m_pending) {
    return EIO;
  }
  try {
    return readLocked(offset, length, out, got);
  } catch (py::error_already_set& e) {
    m_pending.reset(new (std::nothrow) py::error_already_set(std::move(e)));
  } catch (const py::builtin_exception& e) {
    e.set_error();
    m_pending.reset(new (std::nothrow) py::error_already_set());
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
    m_pending.reset(new (std::nothrow) py::error_already_set());
  }
  if (!m_pending) {
    // Not even the exception could be kept: there was no memory for it.
    PyErr_Clear();
  }
  return EIO;
}

int KpzPyStreamReadAt::readLocked(std::uint64_t offset, std::size_t length, UINT8* out,
                                  std::size_t* got) {
  if (offset >= m_size) {
    return 0;  // the end of the data
  }
  const std::uint64_t left = m_size - offset;  // subtraction form: offset < m_size
  const std::size_t want = left < length ? static_cast<std::size_t>(left) : length;
  py::object at = py::reinterpret_steal<py::object>(PyLong_FromUnsignedLongLong(offset));
  if (!at) {
    throw py::error_already_set();
  }
  call(m_stream, "seek", at.ptr());
  std::size_t done = 0;
  while (done < want) {  // each pass reads at least one byte or ends the loop
    const std::size_t n =
        m_readinto ? readIntoOnce(out + done, want - done) : readOnce(out + done, want - done);
    if (n == 0) {
      break;
    }
    done += n;
    *got = done;
  }
  if (done < want) {
    // Below the size the object reported: its bytes are not to be had, and
    // zeros in their place would be read as the file's.
    m_endedEarly = true;
    m_endedAt = offset + done;
    return ENODATA;
  }
  return 0;
}

// One readinto() of at most `room` bytes straight into `out`: the count, 0
// for the end (0, or None from a non-blocking object without data).
std::size_t KpzPyStreamReadAt::readIntoOnce(UINT8* out, std::size_t room) {
  py::object view = py::reinterpret_steal<py::object>(PyMemoryView_FromMemory(
      reinterpret_cast<char*>(out), static_cast<Py_ssize_t>(room), PyBUF_WRITE));
  if (!view) {
    throw py::error_already_set();
  }
  py::object result = call(m_stream, "readinto", view.ptr());
  // The memory is lent for this call only: an object that still holds the
  // view's buffer once readinto() returned could write to it later.
  PyObject* released = PyObject_CallMethod(view.ptr(), "release", nullptr);
  if (released == nullptr) {
    KpzPyRaiseFromPending(
        PyExc_BufferError,
        "kpz: the file object kept a view of the buffer its readinto() was given");
  }
  Py_DECREF(released);
  if (result.is_none()) {
    return 0;
  }
  if (!PyLong_Check(result.ptr()) || PyBool_Check(result.ptr())) {
    raiseWords(PyExc_TypeError, "kpz: the file object's readinto() of " + std::to_string(room) +
                                    " bytes returned '" + KpzPyTypeName(result) + "', not an int");
  }
  int overflow = 0;
  const long long n = PyLong_AsLongLongAndOverflow(result.ptr(), &overflow);
  if (n == -1 && PyErr_Occurred() != nullptr) {
    throw py::error_already_set();
  }
  if (overflow != 0 || n < 0 || static_cast<unsigned long long>(n) > room) {
    raiseWords(PyExc_ValueError, "kpz: the file object's readinto() of " + std::to_string(room) +
                                     " bytes returned " + py::repr(result).cast<std::string>() +
                                     ", which is no count of bytes it read");
  }
  return static_cast<std::size_t>(n);
}

// One read(room), its result copied to `out`: at most `room` bytes
// (ValueError for more), 0 for the end (b"", or None from a non-blocking
// object without data). The result may be any bytes-like object; it is
// copied by its strides in its logical order, as bytes(chunk) takes it
// (PyBUF_FULL_RO and PyBuffer_ToContiguous), so a strided, reversed, 0-d or
// multi-dimensional view gives its own bytes and never a byte outside it.
// Text (str) and anything without a buffer is a TypeError.
std::size_t KpzPyStreamReadAt::readOnce(UINT8* out, std::size_t room) {
  py::object n = py::reinterpret_steal<py::object>(PyLong_FromSize_t(room));
  if (!n) {
    throw py::error_already_set();
  }
  py::object chunk = call(m_stream, "read", n.ptr());
  if (chunk.is_none()) {
    return 0;
  }
  if (PyUnicode_Check(chunk.ptr())) {
    raiseWords(PyExc_TypeError, kTextMode);
  }
  const std::string asked = "kpz: the file object's read(" + std::to_string(room) + ") returned ";
  if (PyObject_CheckBuffer(chunk.ptr()) != 1) {
    raiseWords(PyExc_TypeError, asked + "'" + KpzPyTypeName(chunk) + "', not bytes");
  }
  Py_buffer view;
  if (PyObject_GetBuffer(chunk.ptr(), &view, PyBUF_FULL_RO) != 0) {
    throw py::error_already_set();
  }
  const std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&view, PyBuffer_Release);
  const std::size_t got = static_cast<std::size_t>(view.len);
  if (got > room) {
    raiseWords(PyExc_ValueError, asked + "more bytes than asked for (" + std::to_string(got) + ")");
  }
  if (got > 0 && PyBuffer_ToContiguous(out, &view, view.len, 'C') != 0) {
    throw py::error_already_set();
  }
  return got;
}
