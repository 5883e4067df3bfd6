// KpzPyModule.cpp - the extension module kpz._kpz: the kpz tool's kit
// (kit/kpz, target kpz_kit) for Python.
//
// A front end beside the kpz command-line tool: the same classes find and
// read the pictures (KpzSource, KpzPictureReader), turn them upright
// (KpzUpright), read the metadata (KpzMetadataReader, KpzInfoJson) and write
// a new orientation (KpzRotator), so both give the same bytes, the same
// metadata and the same words. The Python package (python/kpz) wraps this
// module; users import `kpz`, never `kpz._kpz`.
//
// Sources. Every function takes a path (str or os.PathLike), a bytes-like
// object (the file's whole content, used in place: one C-contiguous run of
// bytes) or a binary file object (read/seek). A file object is asked for
// its size (seek(0, 2)), its first 64 KiB and then the picture's range only;
// what it returns is checked (an int size a file can have, read() results
// that are bytes-like and no longer than asked, copied by their strides).
//
// Threads. The interpreter lock is released around every call into the
// library, the kit and TurboJPEG, and around every copy of a picture; each
// call uses its own library objects, so any number of threads may call.
//
// Errors are raised as the classes of kpz._errors (KpzError and its
// subclasses) and, for a file that cannot be read, as the OSError subclass
// for its errno, with `filename`; each carries `words`, the kpz tool's words,
// and `code` (an OSError's is its errno). Integer arguments are taken as any
// Python int, so one out of range is a ValueError in words, never a failed
// conversion.
//
// The library's diagnostic lines do not reach the process's standard error:
// they go to the Python logger "kpz.library" at DEBUG level, or nowhere
// (KpzPyLibraryLines.h).
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KpzPyLibraryLines.h"
#include "kpz/KpzErrorText.h"
#include "kpz/KpzExtraction.h"
#include "kpz/KpzInfoJson.h"
#include "kpz/KpzMetadata.h"
#include "kpz/KpzMetadataReader.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzRotation.h"
#include "kpz/KpzRotator.h"
#include "raw/DtRawErrorText.h"
#include "kpz/KpzSource.h"
#include "kpz/KpzUpright.h"
#include "raw/DtRawError.h"
#include "raw/DtRawFailure.h"

namespace py = pybind11;

// KpzPyKit.cpp: the tool's conventions, on the submodule kpz._kpz.kit.
void KpzPyRegisterKit(py::module_& m);
// KpzPyExtraction.cpp: the head-only extraction and the exit statuses, on it too.
void KpzPyRegisterExtraction(py::module_& kit);

namespace {

// One call's library lines (KpzPyLibraryLines.h).
using LibraryLines = KpzPyLibraryLines;

// ---- errors -----------------------------------------------------------------

// A failure that is no failure of the library's kinds (metadata, a new
// orientation, a file object's odd answers): kpz._errors' class `cls`.
[[noreturn]] void raiseKpz(const char* cls, const std::string& words, py::object code,
                           py::object filename) {
  py::object type = py::module_::import("kpz._errors").attr(cls);
  py::object exc = type(words, code, filename);
  PyErr_SetObject(type.ptr(), exc.ptr());
  throw py::error_already_set();
}

// A failure of the library's `kind` (DtRawFailure, numbered as Java's
// KpzException.Kind), raised as kpz._errors._error_for makes it: the one
// table from a kind to Python's class is there (_CLASS_OF_KIND), and every
// exception carries the kind's name as `kind` ("not_kpz", "damaged",
// "no_preview", "no_thumbnail", "unreadable"). `err` is the system's errno
// or 0, `code` the library's result where one applies.
[[noreturn]] void raiseFailure(DtRawFailure::Kind kind, int err, int code,
                               const std::string& words, py::object filename) {
  py::object exc = py::module_::import("kpz._errors")
                       .attr("_error_for")(static_cast<int>(kind), words, code, filename, err);
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(exc.ptr())), exc.ptr());
  throw py::error_already_set();
}

// A failed KpzSource::Open: the system's error, or the kit's refusal of a
// device, pipe or socket (which has no errno of its own): unreadable.
[[noreturn]] void raiseOpen(const KpzSource& source, const std::string& words,
                            py::object filename) {
  raiseFailure(DtRawFailure::KindUnreadable, source.Errno(), 0, words, std::move(filename));
}

// ---- integer arguments ------------------------------------------------------

// The name of `obj`'s type, for words.
std::string typeName(const py::handle& obj) { return Py_TYPE(obj.ptr())->tp_name; }

// An int argument as given from Python: an int or an object with __index__
// (not a bool; TypeError in words for anything else).
struct IntArgument {
  py::object number;      // the int itself, for words
  long long value = 0;    // valid unless `overflow`
  bool overflow = false;  // no long long holds it
};

IntArgument intArgument(const py::handle& obj, const char* what) {
  if (PyBool_Check(obj.ptr()) || PyIndex_Check(obj.ptr()) == 0) {
    throw py::type_error(std::string("kpz: ") + what + " is an int, not '" + typeName(obj) + "'");
  }
  IntArgument arg;
  arg.number = py::reinterpret_steal<py::object>(PyNumber_Index(obj.ptr()));
  if (!arg.number) {
    throw py::error_already_set();
  }
  int overflow = 0;
  arg.value = PyLong_AsLongLongAndOverflow(arg.number.ptr(), &overflow);
  if (arg.value == -1 && PyErr_Occurred() != nullptr) {
    throw py::error_already_set();
  }
  arg.overflow = overflow != 0;
  return arg;
}

// A rotation code 0..7 given from Python. Any other int, however large, is
// a ValueError in the same words.
unsigned char rotationCode(const py::handle& obj) {
  const IntArgument code = intArgument(obj, "a rotation code");
  if (code.overflow || !KpzRotation::IsCode(code.value)) {
    throw py::value_error("kpz: " +
                          KpzRotation::NotACodeWords(py::str(code.number).cast<std::string>()));
  }
  return static_cast<unsigned char>(code.value);
}

// The kit's words for an errno given from Python; one no C int can hold is
// worded as the system words a number it does not know.
std::string readErrorWords(const py::handle& obj) {
  const IntArgument err = intArgument(obj, "an errno");
  if (err.overflow || err.value < INT_MIN || err.value > INT_MAX) {
    return "the file cannot be read (unknown error " + py::str(err.number).cast<std::string>() +
           ")";
  }
  return KpzSource::ReadErrorWords(static_cast<int>(err.value));
}

// ---- sources ----------------------------------------------------------------

// Raises `type` with `words`, the pending Python error as its __cause__.
[[noreturn]] void raiseFromPending(PyObject* type, const std::string& words) {
  py::error_already_set cause;  // takes the pending error
  py::raise_from(cause, type, words.c_str());
  throw py::error_already_set();
}

// Takes the buffer of a bytes-like source into *view. Such a source is the
// file's whole content and is used where it lies, without a copy (a camera
// file is tens of megabytes), so it must be one C-contiguous run of bytes:
// PyBUF_SIMPLE asks for exactly that (buf and len only). Whatever its format
// ('B', 'i', 'd', ...) and shape (0-d, several dimensions), a C-contiguous
// buffer's bytes are the content, as bytes(source) takes them. A strided or
// reversed view is refused with BufferError in words instead of being
// copied whole behind the caller's back: bytes(source) makes the copy.
void takeWholeBuffer(const py::handle& obj, Py_buffer* view) {
  if (PyObject_GetBuffer(obj.ptr(), view, PyBUF_SIMPLE) == 0) {
    return;
  }
  if (!PyErr_ExceptionMatches(PyExc_BufferError)) {
    throw py::error_already_set();
  }
  // Refused: if the buffer's own description shows a layout that is not
  // C-contiguous, say so; any other refusal passes through as it is.
  py::error_already_set refusal;
  Py_buffer full;
  if (PyObject_GetBuffer(obj.ptr(), &full, PyBUF_FULL_RO) != 0) {
    PyErr_Clear();
    refusal.restore();
    throw py::error_already_set();
  }
  const bool contiguous = PyBuffer_IsContiguous(&full, 'C') == 1;
  PyBuffer_Release(&full);
  refusal.restore();
  if (contiguous) {
    throw py::error_already_set();
  }
  raiseFromPending(PyExc_BufferError,
                   "kpz: a bytes-like source must be one C-contiguous run of bytes, and this '" +
                       typeName(obj) +
                       "' is not (a slice with a step, a reversed or transposed view): "
                       "pass bytes(source)");
}

// One source as given: a path, a buffer or a file object.
class Source {
 public:
  enum class Type { Path, Buffer, Stream };

  explicit Source(const py::handle& obj) : m_obj(py::reinterpret_borrow<py::object>(obj)) {
    if (PyUnicode_Check(obj.ptr()) || PyObject_HasAttrString(obj.ptr(), "__fspath__") == 1) {
      m_type = Type::Path;
      py::object fspath = py::reinterpret_steal<py::object>(PyOS_FSPath(obj.ptr()));
      if (!fspath) {
        throw py::error_already_set();
      }
      m_filename = fspath;
      py::object encoded = fspath;
      if (PyUnicode_Check(fspath.ptr())) {
        encoded = py::reinterpret_steal<py::object>(PyUnicode_EncodeFSDefault(fspath.ptr()));
        if (!encoded) {
          throw py::error_already_set();
        }
      }
      char* data = nullptr;
      Py_ssize_t size = 0;
      if (PyBytes_AsStringAndSize(encoded.ptr(), &data, &size) != 0) {
        throw py::error_already_set();
      }
      m_path.assign(data, static_cast<std::size_t>(size));
      if (m_path.find('\0') != std::string::npos) {
        throw py::value_error("embedded null byte in the path");
      }
      return;
    }
    if (PyObject_CheckBuffer(obj.ptr()) == 1) {
      m_type = Type::Buffer;
      std::unique_ptr<Py_buffer> view(new Py_buffer());
      takeWholeBuffer(obj, view.get());
      m_view = std::move(view);
      m_filename = py::none();
      return;
    }
    if (PyObject_HasAttrString(obj.ptr(), "read") == 1 &&
        PyObject_HasAttrString(obj.ptr(), "seek") == 1) {
      m_type = Type::Stream;
      // A text-mode file decodes what it reads (and fails at the first
      // byte that is no character): refused before anything is read.
      if (py::isinstance(obj, py::module_::import("io").attr("TextIOBase"))) {
        throw py::type_error(kTextMode);
      }
      py::object name = py::getattr(obj, "name", py::none());
      m_filename = (PyUnicode_Check(name.ptr()) || PyBytes_Check(name.ptr())) ? name : py::none();
      return;
    }
    throw py::type_error(
        std::string("kpz: a source is a path (str or os.PathLike), a bytes-like object or a "
                    "binary file object with read() and seek(), not '") +
        Py_TYPE(obj.ptr())->tp_name + "'");
  }
  ~Source() {
    if (m_view) {
      PyBuffer_Release(m_view.get());
    }
  }
  Source(const Source&) = delete;
  Source& operator=(const Source&) = delete;

  static constexpr const char* kTextMode =
      "kpz: the file object is in text mode: open it in binary mode ('rb')";

  Type type() const { return m_type; }
  const std::string& path() const { return m_path; }
  py::object filename() const { return m_filename; }
  const UINT8* data() const { return static_cast<const UINT8*>(m_view->buf); }
  std::size_t size() const { return static_cast<std::size_t>(m_view->len); }
  const py::object& object() const { return m_obj; }

 private:
  Type m_type = Type::Path;
  py::object m_obj;
  py::object m_filename;
  std::string m_path;
  std::unique_ptr<Py_buffer> m_view;
};

// What a file object's read(n) returned, appended to *out: at most `room`
// bytes (ValueError for more), 0 for the end (b"", or None from a
// non-blocking stream without data). The result may be any bytes-like
// object; it is copied by its strides in its logical order, as bytes(chunk)
// takes it (PyBUF_FULL_RO and PyBuffer_ToContiguous), so a strided,
// reversed, 0-d or multi-dimensional view gives its own bytes and never a
// byte outside it. A read's result is copied anyway, so nothing is refused
// for its layout. Text (str) and anything without a buffer is a TypeError.
std::size_t appendChunk(const py::object& chunk, std::size_t n, std::size_t room,
                        std::string* out) {
  if (chunk.is_none()) {
    return 0;
  }
  if (PyUnicode_Check(chunk.ptr())) {
    throw py::type_error(Source::kTextMode);
  }
  if (PyObject_CheckBuffer(chunk.ptr()) != 1) {
    throw py::type_error("kpz: the file object's read(" + std::to_string(n) + ") returned '" +
                         typeName(chunk) + "', not bytes");
  }
  Py_buffer view;
  if (PyObject_GetBuffer(chunk.ptr(), &view, PyBUF_FULL_RO) != 0) {
    throw py::error_already_set();
  }
  const std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&view, PyBuffer_Release);
  const std::size_t got = static_cast<std::size_t>(view.len);
  if (got > room) {
    throw py::value_error("kpz: the file object's read(" + std::to_string(n) +
                          ") returned more bytes than asked for (" + std::to_string(got) + ")");
  }
  const std::size_t at = out->size();
  out->resize(at + got);
  if (got > 0 && PyBuffer_ToContiguous(&(*out)[at], &view, view.len, 'C') != 0) {
    out->resize(at);
    throw py::error_already_set();
  }
  return got;
}

// stream.read(n); a text-mode stream's failure to decode is a TypeError.
py::object callRead(const py::object& stream, std::size_t n) {
  PyObject* result = PyObject_CallMethod(stream.ptr(), "read", "n", static_cast<Py_ssize_t>(n));
  if (result == nullptr) {
    if (PyErr_ExceptionMatches(PyExc_UnicodeDecodeError)) {
      raiseFromPending(PyExc_TypeError, Source::kTextMode);
    }
    throw py::error_already_set();
  }
  return py::reinterpret_steal<py::object>(result);
}

// Calls stream.read() until `n` bytes came or it gives b"" (or None for a
// non-blocking stream without data); appends to *out.
void readStream(const py::object& stream, std::size_t n, std::string* out) {
  while (out->size() < n) {  // each pass appends at least one byte or ends
    const std::size_t room = n - out->size();
    if (appendChunk(callRead(stream, room), room, room, out) == 0) {
      break;
    }
  }
}

// Words for a stream that ended at byte `end`, before its reported `size`.
std::string endedEarly(std::uint64_t end, std::uint64_t size) {
  return "the file object ended at byte " + std::to_string(end) + ", before the " +
         std::to_string(size) + " bytes its seek(0, 2) reported: it is truncated or its size is wrong";
}

// A file size as a stream's seek(0, 2) (or tell()) returned it: an int
// (TypeError otherwise) from 0 to 2**63 - 1 (ValueError otherwise), the
// sizes a file can have.
std::uint64_t sizeFrom(const py::object& value, const char* call) {
  if (!PyLong_Check(value.ptr()) || PyBool_Check(value.ptr())) {
    throw py::type_error(std::string("kpz: the file object's ") + call + " returned '" +
                         typeName(value) + "', not an int (the file's size)");
  }
  int overflow = 0;
  const long long size = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (size == -1 && PyErr_Occurred() != nullptr) {
    throw py::error_already_set();
  }
  if (overflow != 0 || size < 0) {
    throw py::value_error(std::string("kpz: the file object's ") + call + " returned " +
                          py::repr(value).cast<std::string>() +
                          ", which is no file size (0 to 2**63 - 1 bytes)");
  }
  return static_cast<std::uint64_t>(size);
}

// The size of a stream: seek(0, 2)'s result, or tell() when it gives none.
std::uint64_t streamSize(const py::object& stream) {
  py::object end = stream.attr("seek")(0, 2);
  if (!end.is_none()) {
    return sizeFrom(end, "seek(0, 2)");
  }
  return sizeFrom(stream.attr("tell")(), "tell() after seek(0, 2)");
}

// A source opened: its head read, so the kit can parse it. For a stream,
// the head is read and held here.
struct Opened {
  KpzSource source;
  std::string streamHead;
  std::uint64_t streamSize = 0;  // as the stream reports it
};

// Opens `src` into *out, raising the matching error when it cannot be read.
void openSource(const Source& src, Opened* out) {
  switch (src.type()) {
    case Source::Type::Path: {
      bool ok = false;
      std::string why;
      {
        py::gil_scoped_release unlocked;
        ok = out->source.Open(src.path(), &why);
      }
      if (!ok) {
        raiseOpen(out->source, why, src.filename());
      }
      return;
    }
    case Source::Type::Buffer:
      // The head is copied (64 KiB at most): not worth a release.
      out->source.OpenMemory(src.data(), src.size(), src.size());
      return;
    case Source::Type::Stream: {
      const std::uint64_t size = streamSize(src.object());
      src.object().attr("seek")(0);
      readStream(src.object(), KpzSource::kHeadSize, &out->streamHead);
      const std::uint64_t head = out->streamHead.size();
      if (head < KpzSource::kHeadSize && head < size) {
        // Parsed, its missing bytes would read as zeros: words about them
        // would not be true. Say what is wrong instead.
        raiseKpz("KpzError", endedEarly(head, size), py::none(), src.filename());
      }
      out->streamSize = size;
      out->source.OpenMemory(reinterpret_cast<const UINT8*>(out->streamHead.data()),
                             out->streamHead.size(), size);
      return;
    }
  }
}

// A new bytes object of `length` bytes, not yet filled.
py::bytes newBytes(std::size_t length) {
  PyObject* raw = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(length));
  if (raw == nullptr) {
    throw py::error_already_set();
  }
  return py::reinterpret_steal<py::bytes>(raw);
}

// Reads the located picture's bytes from `src`.
py::bytes readPicture(const Source& src, Opened& opened, const KpzPictureReader::Picture& pic,
                      const char* name) {
  switch (src.type()) {
    case Source::Type::Path: {
      py::bytes out = newBytes(pic.length);
      UINT8* dest = reinterpret_cast<UINT8*>(PyBytes_AS_STRING(out.ptr()));
      bool ok = false;
      std::string why;
      {
        py::gil_scoped_release unlocked;
        ok = opened.source.ReadAt(pic.offset, pic.length, dest, name, &why);
      }
      if (!ok) {
        // As DtRawRecord::ReadPicture sorts it.
        const int err = opened.source.Errno();
        raiseFailure(err != 0 ? DtRawFailure::KindUnreadable : DtRawFailure::KindDamaged, err, 0,
                     why, src.filename());
      }
      return out;
    }
    case Source::Type::Buffer: {
      // Find checked that the range lies inside the buffer.
      py::bytes out = newBytes(pic.length);
      char* dest = PyBytes_AS_STRING(out.ptr());
      const UINT8* from = src.data() + pic.offset;
      {
        py::gil_scoped_release unlocked;
        std::memcpy(dest, from, pic.length);
      }
      return out;
    }
    case Source::Type::Stream: {
      src.object().attr("seek")(static_cast<unsigned long long>(pic.offset));
      // One read of the whole range; a stream that gives it whole in one
      // bytes object is handed on without a copy.
      py::object chunk = callRead(src.object(), pic.length);
      if (PyBytes_CheckExact(chunk.ptr()) &&
          static_cast<std::size_t>(PyBytes_GET_SIZE(chunk.ptr())) == pic.length) {
        return py::reinterpret_borrow<py::bytes>(chunk);
      }
      std::string data;
      if (appendChunk(chunk, pic.length, pic.length, &data) > 0) {
        readStream(src.object(), pic.length, &data);
      }
      if (data.size() != pic.length) {
        // Find checked the range against the size the stream reported.
        raiseFailure(DtRawFailure::KindDamaged, 0, 0,
                     std::string(name) + " extends past the end of the file: " +
                         endedEarly(pic.offset + data.size(), opened.streamSize),
                     src.filename());
      }
      return py::bytes(data);
    }
  }
  return py::bytes();
}

// A failed extraction raised as its kind (raiseFailure's table).
[[noreturn]] void raiseExtraction(const KpzExtraction::Outcome& got, py::object filename) {
  raiseFailure(got.kind, got.err, got.code, got.words, std::move(filename));
}

py::bytes bytesOf(const std::vector<UINT8>& data) {
  py::bytes out = newBytes(data.size());
  std::memcpy(PyBytes_AS_STRING(out.ptr()), data.data(), data.size());
  return out;
}

// The picture of `kind` as the kit's extraction gives it: a path is opened,
// located, read and turned by KpzExtraction without the lock; a buffer or a
// stream is located from its head (KpzExtraction::Locate), its range read
// here and turned by KpzExtraction::Turn.
py::bytes picture(const py::object& logger, const py::handle& obj, KpzPictureReader::Kind kind,
                  bool upright) {
  LibraryLines lines(logger);
  Source src(obj);
  Opened opened;
  KpzExtraction::Options options;
  options.kind = kind;
  options.upright = upright;
  KpzExtraction::Outcome got;
  if (src.type() == Source::Type::Path) {
    py::gil_scoped_release unlocked;
    got = KpzExtraction::Extract(src.path(), &opened.source, options, /*wantBytes=*/false);
  } else if (src.type() == Source::Type::Buffer) {
    py::gil_scoped_release unlocked;
    got = KpzExtraction::Locate(src.data(), src.size(), src.size(), options);
  } else {
    openSource(src, &opened);
    py::gil_scoped_release unlocked;
    got = KpzExtraction::Locate(reinterpret_cast<const UINT8*>(opened.streamHead.data()),
                                opened.streamHead.size(), opened.streamSize, options);
  }
  if (!got.ok()) {
    raiseExtraction(got, src.filename());
  }
  if (got.turned) {
    return bytesOf(got.bytes);
  }
  py::bytes stored = readPicture(src, opened, got.range, KpzPictureReader::Name(kind));
  if (!got.turns) {
    return stored;
  }
  {
    py::gil_scoped_release unlocked;
    KpzExtraction::Turn(reinterpret_cast<const UINT8*>(PyBytes_AS_STRING(stored.ptr())),
                        static_cast<std::size_t>(PyBytes_GET_SIZE(stored.ptr())), options, &got);
  }
  if (!got.ok()) {
    raiseExtraction(got, src.filename());
  }
  return bytesOf(got.bytes);
}

// The metadata of `obj` as the line `kpz info --json` prints, or the error.
std::string infoJson(const py::object& logger, const py::handle& obj) {
  LibraryLines lines(logger);
  Source src(obj);
  KpzMetadata md;
  if (src.type() == Source::Type::Path) {
    // As `kpz info` reads a path: opened once by the kit (a pipe or device
    // refused without waiting), the library's file mode over that very
    // file, the kit's words.
    KpzSource source;
    std::string why;
    bool opened = false;
    bool ok = false;
    {
      py::gil_scoped_release unlocked;
      opened = source.Open(src.path(), &why);
      if (opened) {
        ok = KpzMetadataReader::ReadOpened(source, src.path(), &md);
      }
    }
    if (!opened) {
      raiseOpen(source, why, src.filename());
    }
    if (!ok) {
      raiseKpz("NotKpzError", md.error, py::int_(md.initResult), src.filename());
    }
  } else {
    Opened opened;
    openSource(src, &opened);
    bool ok = false;
    {
      py::gil_scoped_release unlocked;
      ok = KpzMetadataReader::ReadHead(opened.source, std::string(), &md);
    }
    if (!ok) {
      raiseKpz("NotKpzError", md.error, py::int_(md.initResult), src.filename());
    }
  }
  std::string line;
  {
    py::gil_scoped_release unlocked;
    line = KpzInfoJson::Line(md);
  }
  return line;
}

// Writes rotation `code` (0..7, checked by rotationCode) into the file at
// `path` as `kpz rotate --code` does.
py::dict setOrientation(const py::object& logger, const py::handle& obj, unsigned char code) {
  LibraryLines lines(logger);
  Source src(obj);
  if (src.type() != Source::Type::Path) {
    throw py::type_error("kpz: set_orientation writes into a file and needs its path");
  }
  // Opened once by the kit: the library writes that very file, whatever
  // the name leads to meanwhile.
  KpzSource source;
  std::string why;
  bool opened = false;
  KpzRotator::Outcome outcome;
  {
    py::gil_scoped_release unlocked;
    opened = source.Open(src.path(), &why);
    if (opened) {
      KpzRotator::Change change;
      change.setCode = true;
      change.code = code;
      outcome = KpzRotator::Rotate(source, change, false);
    }
  }
  if (!opened) {
    raiseOpen(source, why, src.filename());
  }
  if (!outcome.ok) {
    py::object rc = outcome.result != 0 ? py::object(py::int_(outcome.result)) : py::none();
    raiseKpz(outcome.failure == KpzRotator::Failure::Output ? "OrientationWriteError"
                                                           : "OrientationError",
             outcome.error, rc, src.filename());
  }
  py::dict result;
  result["before"] = outcome.before;
  result["after"] = outcome.after;
  result["written"] = outcome.written;
  return result;
}

}  // namespace

PYBIND11_MODULE(_kpz, m) {
  m.doc() =
      "The native part of the kpz package: the kpz tool's kit for Python. Use the kpz package; "
      "its functions document the contracts.";
  // The logger the library's lines go to, held by the functions below.
  const py::object logger = py::module_::import("logging").attr("getLogger")("kpz.library");
  m.def(
      "screennail",
      [logger](const py::handle& source, bool upright) {
        return picture(logger, source, KpzPictureReader::Kind::Preview, upright);
      },
      py::arg("source"), py::kw_only(), py::arg("upright") = false);
  m.def(
      "thumbnail",
      [logger](const py::handle& source, bool upright) {
        return picture(logger, source, KpzPictureReader::Kind::Thumbnail, upright);
      },
      py::arg("source"), py::kw_only(), py::arg("upright") = false);
  m.def(
      "info_json", [logger](const py::handle& source) { return infoJson(logger, source); },
      py::arg("source"));
  m.def(
      "set_orientation",
      [logger](const py::handle& path, const py::handle& code) {
        return setOrientation(logger, path, rotationCode(code));
      },
      py::arg("path"), py::arg("code"));
  m.def(
      "orientation_words",
      [](const py::handle& code) { return KpzRotation::Words(rotationCode(code)); },
      py::arg("code"));
  m.def(
      "jpeg_size",
      [](const py::bytes& jpeg) -> py::object {
        const char* data = PyBytes_AS_STRING(jpeg.ptr());
        const std::size_t size = static_cast<std::size_t>(PyBytes_GET_SIZE(jpeg.ptr()));
        int width = 0;
        int height = 0;
        bool ok = false;
        {
          py::gil_scoped_release unlocked;
          ok = KpzUpright::PictureSize(reinterpret_cast<const UINT8*>(data), size, &width, &height);
        }
        if (!ok) {
          return py::none();
        }
        return py::make_tuple(width, height);
      },
      py::arg("jpeg"));
  m.def("read_error_words", &readErrorWords, py::arg("errno"));
  m.def(
      "source_kind",
      [](const py::handle& obj) {
        const Source src(obj);
        static const char* const kinds[] = {"path", "buffer", "stream"};
        py::object name = src.filename();
        if (!name.is_none()) {
          name = py::module_::import("os").attr("fsdecode")(name);
        }
        return py::make_tuple(kinds[static_cast<int>(src.type())], name);
      },
      py::arg("source"));
  m.attr("HEAD_SIZE") = KpzSource::kHeadSize;
  m.attr("THUMBNAIL_MAX_SIZE") = DtRawErrorText::THUMBNAIL_MAX_SIZE;
  m.attr("__version__") = KPZ_VERSION;  // the project's version (python/CMakeLists.txt)
  py::module_ kit = m.def_submodule("kit", "The kpz tool's conventions (KpzPyKit.cpp).");
  KpzPyRegisterKit(kit);
  KpzPyRegisterExtraction(kit);
}
