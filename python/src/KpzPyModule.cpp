// KpzPyModule.cpp - the extension module kpz._kpz: the kpz tool's kit
// (kit/kpz, target kpz_kit) for Python.
//
// A front end beside the kpz command-line tool: the same classes find and
// read the pictures (KpzExtraction over the read-at interface), turn them
// upright (KpzUpright), read the metadata (KpzMetadataReader, KpzInfoJson)
// and write a new orientation (KpzRotator), so both give the same bytes, the
// same metadata and the same words. The Python package (python/kpz) wraps
// this module; users import `kpz`, never `kpz._kpz`.
//
// Sources. Every function takes a path (str or os.PathLike), a bytes-like
// object (the file's whole content, used in place: one C-contiguous run of
// bytes) or a binary file object (read/seek). Each becomes a DtNlReadAt (a
// descriptor the kit opened, the buffer's memory, KpzPyStreamReadAt) and a
// picture takes the one road of KpzExtraction::Extract. A file object is
// asked for its size (seek(0, 2)), its first 64 KiB and then the picture's
// range only; what it returns is checked (KpzPyStreamReadAt.h). A file's
// first bytes with its size (a remote file's head) are one more such source:
// memory holding only those bytes, parsed once, the picture's range and
// orientation given back in a Picture (KpzPyExtraction.h) for the caller to
// fetch and turn. `picture` is the one entry point for a picture.
//
// Threads. The interpreter lock is released around every call into the
// library, the kit and TurboJPEG, and around every copy of a picture, and
// taken again only inside a file object's own calls; each call uses its own
// library objects, so any number of threads may call.
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
// (KpzPyLibraryLines.h); a head located from memory (file_size) always
// drops them: that is the remote reader's hot path, which asks no logger.
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

#include "KpzPyExtraction.h"
#include "KpzPyLibraryLines.h"
#include "KpzPyRaise.h"
#include "KpzPyStreamReadAt.h"
#include "kpz/KpzErrorText.h"
#include "kpz/KpzExtraction.h"
#include "kpz/KpzInfoJson.h"
#include "kpz/KpzMetadata.h"
#include "kpz/KpzMetadataReader.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzRotation.h"
#include "kpz/KpzRotator.h"
#include "kpz/KpzSource.h"
#include "kpz/KpzUpright.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"
#include "raw/DtRawFailure.h"
#include "util/io/DtNlReadAt.h"

namespace py = pybind11;

// KpzPyKit.cpp: the tool's conventions, on the submodule kpz._kpz.kit.
void KpzPyRegisterKit(py::module_& m);

namespace {

// One call's library lines (KpzPyLibraryLines.h).
using LibraryLines = KpzPyLibraryLines;

// ---- errors -----------------------------------------------------------------

// A failed KpzSource::Open: the system's error, or the kit's refusal of a
// device, pipe or socket (which has no errno of its own): unreadable.
[[noreturn]] void raiseOpen(const KpzSource& source, const std::string& words,
                            py::object filename) {
  KpzPyRaiseFailure(DtRawFailure::KindUnreadable, source.Errno(), 0, words, std::move(filename));
}

// ---- integer arguments ------------------------------------------------------

// An int argument as given from Python: an int or an object with __index__
// (not a bool; TypeError in words for anything else).
struct IntArgument {
  py::object number;      // the int itself, for words
  long long value = 0;    // valid unless `overflow`
  bool overflow = false;  // no long long holds it
};

IntArgument intArgument(const py::handle& obj, const char* what) {
  if (PyBool_Check(obj.ptr()) || PyIndex_Check(obj.ptr()) == 0) {
    throw py::type_error(std::string("kpz: ") + what + " is an int, not '" + KpzPyTypeName(obj) +
                         "'");
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
  KpzPyRaiseFromPending(
      PyExc_BufferError,
      "kpz: a bytes-like source must be one C-contiguous run of bytes, and this '" +
          KpzPyTypeName(obj) +
          "' is not (a slice with a step, a reversed or transposed view): "
          "pass bytes(source)");
}

// One source as given: a path, a buffer or a file object.
class Source {
 public:
  enum class Type { Path, Buffer, Stream };

  explicit Source(const py::handle& obj) : m_obj(py::reinterpret_borrow<py::object>(obj)) {
    // bytes, bytearray and memoryview themselves (no path, whatever their
    // subclasses may add) go straight to the buffer, without looking for
    // a __fspath__ they do not have.
    const bool plainBuffer = PyBytes_CheckExact(obj.ptr()) || PyByteArray_CheckExact(obj.ptr()) ||
                             PyMemoryView_Check(obj.ptr());
    if (!plainBuffer &&
        (PyUnicode_Check(obj.ptr()) || PyObject_HasAttrString(obj.ptr(), "__fspath__") == 1)) {
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
        throw py::type_error(KpzPyStreamReadAt::kTextMode);
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

// A failed extraction raised as its kind (raiseFailure's table).
[[noreturn]] void raiseExtraction(const KpzExtraction::Outcome& got, py::object filename) {
  KpzPyRaiseFailure(got.kind, got.err, got.code, got.words, std::move(filename));
}

// A new bytes object of `length` bytes, not yet filled.
py::bytes newBytes(std::size_t length) {
  PyObject* raw = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(length));
  if (raw == nullptr) {
    throw py::error_already_set();
  }
  return py::reinterpret_steal<py::bytes>(raw);
}

py::bytes bytesOf(const std::vector<UINT8>& data) {
  py::bytes out = newBytes(data.size());
  std::memcpy(PyBytes_AS_STRING(out.ptr()), data.data(), data.size());
  return out;
}

// The bytes object a stored picture is read into: made when the extraction
// asks for it (KpzExtraction::Destination), with the lock taken for that
// moment only, so the picture is read straight into what Python gets. A
// failed allocation is kept and raised as the MemoryError it is.
class PictureBytes {
 public:
  PictureBytes() = default;
  PictureBytes(const PictureBytes&) = delete;
  PictureBytes& operator=(const PictureBytes&) = delete;

  KpzExtraction::Destination Destination() {
    return [this](std::size_t length) { return allocate(length); };
  }

  // The lock held: raises the failed allocation, if any.
  void RaisePending() {
    if (m_failed) {
      std::unique_ptr<py::error_already_set> failed = std::move(m_failed);
      failed->restore();
      throw py::error_already_set();
    }
  }

  py::bytes Bytes() const { return py::reinterpret_borrow<py::bytes>(m_bytes); }

 private:
  UINT8* allocate(std::size_t length) {
    py::gil_scoped_acquire locked;
    PyObject* raw = PyBytes_FromStringAndSize(nullptr, static_cast<Py_ssize_t>(length));
    if (raw == nullptr) {
      m_failed.reset(new (std::nothrow) py::error_already_set());
      if (!m_failed) {
        PyErr_Clear();
      }
      return nullptr;
    }
    m_bytes = py::reinterpret_steal<py::object>(raw);
    return reinterpret_cast<UINT8*>(PyBytes_AS_STRING(raw));
  }

  py::object m_bytes;
  std::unique_ptr<py::error_already_set> m_failed;
};

// A file object that ended before the size it reported, raised in words
// that say so: in its head a KpzError (nothing was parsed from bytes that
// never came), in its picture the picture's damage.
[[noreturn]] void raiseEndedEarly(const KpzPyStreamReadAt& stream,
                                  const KpzExtraction::Outcome& got, KpzPictureReader::Kind kind,
                                  py::object filename) {
  const std::string words = KpzPyStreamReadAt::EndedEarlyWords(stream.EndedAt(), stream.Size());
  if (got.range.length == 0) {
    KpzPyRaiseKpz("KpzError", words, py::none(), std::move(filename));
  }
  KpzPyRaiseFailure(
      DtRawFailure::KindDamaged, 0, 0,
      std::string(KpzPictureReader::Name(kind)) + " extends past the end of the file: " + words,
      std::move(filename));
}

// A file's head given as bytes with `fileSize` (a remote file's first
// bytes, fetched by the caller): one more source read at an offset, memory
// that holds only those bytes (DtNlMemReadAt), parsed once by the kit's
// head-only form. Nothing else is read: the Picture tells the range to
// fetch and, with upright, carries the orientation its turn() applies.
py::object locateInHead(const Source& src, const py::handle& fileSize,
                        const KpzExtraction::Options& options) {
  const IntArgument size = intArgument(fileSize, "file_size");
  if (src.type() != Source::Type::Buffer) {
    throw py::type_error(
        "kpz: file_size goes with a file's first bytes given as bytes, not with a path or a "
        "file object (which tell their own size)");
  }
  if (size.overflow || size.value < 0) {
    throw py::value_error("kpz: file_size " + py::str(size.number).cast<std::string>() +
                          " is no file size (0 to 2**63 - 1 bytes)");
  }
  const std::uint64_t total = static_cast<std::uint64_t>(size.value);
  // Bytes past the file's size are none of the file's.
  const std::size_t held = src.size() < total ? src.size() : static_cast<std::size_t>(total);
  KpzPyPicture located;
  located.options = options;
  located.data = py::none();
  {
    py::gil_scoped_release unlocked;
    DtNlMemReadAt head(src.data(), held, total);
    located.outcome = KpzExtraction::Locate(head, options);
  }
  if (!located.outcome.ok()) {
    raiseExtraction(located.outcome, src.filename());
  }
  return py::cast(std::move(located));
}

// The picture of `kind` by the kit's one extraction over the read-at
// interface, whatever the source: a path opened by the kit (DtNlFdReadAt),
// a buffer where it lies (DtNlMemReadAt), a file object (KpzPyStreamReadAt,
// which takes the lock only for its own calls), or with `fileSize` a head
// (locateInHead). The lock is released around the whole extraction. The
// picture's bytes, or with `detail` a Picture that also tells its range
// and the note of its turn.
py::object picture(const py::object& logger, const py::handle& obj, KpzPictureReader::Kind kind,
                   bool upright, const py::handle& fileSize, bool detail) {
  Source src(obj);
  KpzExtraction::Options options;
  options.kind = kind;
  options.upright = upright;
  if (!fileSize.is_none()) {
    // The remote reader's hot path, a parse of memory: its library lines
    // are dropped unread, as no listener is asked for (asking the logger
    // would cost that call a few percent).
    return locateInHead(src, fileSize, options);
  }
  LibraryLines lines(logger);
  PictureBytes stored;
  KpzExtraction::Outcome got;
  switch (src.type()) {
    case Source::Type::Path: {
      py::gil_scoped_release unlocked;
      DtNlFdReadAt file;
      got = KpzExtraction::Open(src.path(), &file);
      if (got.ok()) {
        got = KpzExtraction::Extract(file, options, stored.Destination());
      }
      break;
    }
    case Source::Type::Buffer: {
      DtNlMemReadAt memory(src.data(), src.size());
      py::gil_scoped_release unlocked;
      got = KpzExtraction::Extract(memory, options, stored.Destination());
      break;
    }
    case Source::Type::Stream: {
      KpzPyStreamReadAt stream(src.object());
      {
        py::gil_scoped_release unlocked;
        got = KpzExtraction::Extract(stream, options, stored.Destination());
      }
      stream.RaisePending();
      if (stream.EndedEarly()) {
        raiseEndedEarly(stream, got, kind, src.filename());
      }
      break;
    }
  }
  stored.RaisePending();
  if (!got.ok()) {
    raiseExtraction(got, src.filename());
  }
  py::bytes data = got.turned ? bytesOf(got.bytes) : stored.Bytes();
  if (!detail) {
    return py::object(std::move(data));
  }
  KpzPyPicture p;
  p.outcome = std::move(got);
  p.outcome.bytes = std::vector<UINT8>();  // now in `data`
  p.options = options;
  p.data = std::move(data);
  return py::cast(std::move(p));
}

// The metadata of `obj` as the line `kpz info --json` prints, or the error.
std::string infoJson(const py::object& logger, const py::handle& obj) {
  LibraryLines lines(logger);
  Source src(obj);
  KpzMetadata md;
  bool ok = false;
  if (src.type() == Source::Type::Path) {
    // As `kpz info` reads a path: opened once by the kit (a pipe or device
    // refused without waiting), the library's file mode over that very
    // file, the kit's words.
    KpzSource source;
    std::string why;
    bool opened = false;
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
  } else if (src.type() == Source::Type::Buffer) {
    KpzSource source;
    {
      py::gil_scoped_release unlocked;
      source.OpenMemory(src.data(), src.size(), src.size());
      ok = KpzMetadataReader::ReadHead(source, std::string(), &md);
    }
  } else {
    // The head through the read-at interface, as the record reads it.
    KpzPyStreamReadAt stream(src.object());
    const std::uint64_t size = stream.Size();
    const std::size_t want =
        size < KpzSource::kHeadSize ? static_cast<std::size_t>(size) : KpzSource::kHeadSize;
    std::unique_ptr<UINT8[]> head(new UINT8[KpzSource::kHeadSize]);
    KpzSource source;
    int err = 0;
    {
      py::gil_scoped_release unlocked;
      std::size_t got = 0;
      err = stream.GetData(0, want, head.get(), &got);
      if (err == 0) {
        source.OpenMemory(head.get(), got, size);
        ok = KpzMetadataReader::ReadHead(source, std::string(), &md);
      }
    }
    stream.RaisePending();
    if (stream.EndedEarly()) {
      KpzPyRaiseKpz("KpzError", KpzPyStreamReadAt::EndedEarlyWords(stream.EndedAt(), size),
                    py::none(), src.filename());
    }
    if (err != 0) {
      KpzPyRaiseFailure(DtRawFailure::KindUnreadable, err, 0, KpzSource::ReadErrorWords(err),
                        src.filename());
    }
  }
  if (!ok) {
    KpzPyRaiseKpz("NotKpzError", md.error, py::int_(md.initResult), src.filename());
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
    KpzPyRaiseKpz(outcome.failure == KpzRotator::Failure::Output ? "OrientationWriteError"
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
      "picture",
      [logger](const py::handle& source, const std::string& kind, bool upright,
               const py::handle& fileSize, bool detail) {
        if (kind != "preview" && kind != "thumbnail") {
          throw py::value_error("kind is 'preview' or 'thumbnail', not '" + kind + "'");
        }
        return picture(
            logger, source,
            kind == "preview" ? KpzPictureReader::Kind::Preview : KpzPictureReader::Kind::Thumbnail,
            upright, fileSize, detail);
      },
      py::arg("source"), py::arg("kind") = "preview", py::kw_only(), py::arg("upright") = false,
      py::arg("file_size") = py::none(), py::arg("detail") = false);
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
  KpzPyRegisterExtraction(m, kit);
}
