// KpzPyExtraction.cpp - the kit's head-only extraction for Python readers
// that fetch ranges themselves (kpz._kpz.kit.locate), and the exit statuses
// every front end shares (kpz._kpz.kit.ExitStatus).
//
//   from kpz._kpz import kit
//   got = kit.locate(head, file_size, "preview", upright=False)
//   if not got.ok: print("kpz: %s: %s" % (url, got.words)); exit(got.status)
//   picture = fetch(url, got.offset, got.length)         # the caller's read
//   if got.turns: status, picture, note, words = kit.upright(head, picture, kind)
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "kpz/KpzExitStatus.h"
#include "kpz/KpzExtraction.h"

namespace py = pybind11;

// Called by the module kpz._kpz on its submodule `kit`.
void KpzPyRegisterExtraction(py::module_& kit);

namespace {

const char* failureName(KpzExtraction::Failure f) {
  switch (f) {
    case KpzExtraction::Failure::None:
      return "";
    case KpzExtraction::Failure::Unreadable:
      return "unreadable";
    case KpzExtraction::Failure::NotKpz:
      return "not_kpz";
    case KpzExtraction::Failure::NoPicture:
      return "no_picture";
    case KpzExtraction::Failure::BadPicture:
      break;
  }
  return "bad_picture";
}

KpzExtraction::Options optionsOf(const std::string& kind, bool upright) {
  if (kind != "preview" && kind != "thumbnail") {
    throw py::value_error("kind is 'preview' or 'thumbnail', not '" + kind + "'");
  }
  KpzExtraction::Options o;
  o.kind = kind == "preview" ? KpzExtraction::Kind::Preview : KpzExtraction::Kind::Thumbnail;
  o.upright = upright;
  return o;
}

// What Python sees of a located picture.
struct Located {
  KpzExtraction::Outcome outcome;
  KpzExtraction::Options options;
};

}  // namespace

void KpzPyRegisterExtraction(py::module_& kit) {
  py::enum_<KpzExitStatus>(kit, "ExitStatus",
                           "The exit statuses of kpz and kpz.distributed: OK 0, INPUT 1 (an input "
                           "cannot be read or holds no such picture), USAGE 2 (wrong arguments), "
                           "OUTPUT 3 (an output cannot be written).")
      .value("OK", KpzExitStatus::Ok)
      .value("INPUT", KpzExitStatus::Input)
      .value("USAGE", KpzExitStatus::Usage)
      .value("OUTPUT", KpzExitStatus::Output);

  py::class_<Located>(kit, "Located",
                      "Where a file's picture lies, found from its first bytes (kit.locate).")
      .def_property_readonly("ok", [](const Located& l) { return l.outcome.ok(); })
      .def_property_readonly(
          "failure", [](const Located& l) { return failureName(l.outcome.failure); },
          "'' when found, else 'not_kpz', 'no_picture' or 'bad_picture'.")
      .def_property_readonly("status", [](const Located& l) { return KpzExitCode(l.outcome.status); },
                             "The exit status kpz gives the file (0 when found).")
      .def_property_readonly("code", [](const Located& l) { return l.outcome.code; },
                             "The library's result code of a parse that failed, else 0.")
      .def_property_readonly("words", [](const Located& l) { return l.outcome.words; },
                             "The failure in kpz's words, '' when found.")
      .def_property_readonly("offset", [](const Located& l) { return l.outcome.range.offset; })
      .def_property_readonly("length", [](const Located& l) { return l.outcome.range.length; })
      .def_property_readonly("turns", [](const Located& l) { return l.outcome.turns; },
                             "With upright: the file asks for a turn (kit.upright does it).")
      .def_property_readonly("remark", [](const Located& l) { return l.outcome.remark; },
                             "With upright and no turn: why not, in words.");

  kit.def(
      "locate",
      [](const py::bytes& head, std::uint64_t fileSize, const std::string& kind, bool upright) {
        const KpzExtraction::Options options = optionsOf(kind, upright);
        const char* data = PyBytes_AS_STRING(head.ptr());
        const std::size_t length = static_cast<std::size_t>(PyBytes_GET_SIZE(head.ptr()));
        Located l;
        l.options = options;
        {
          py::gil_scoped_release unlocked;
          l.outcome = KpzExtraction::Locate(reinterpret_cast<const UINT8*>(data), length,
                                            fileSize, options);
        }
        return l;
      },
      py::arg("head"), py::arg("file_size"), py::arg("kind") = "preview", py::kw_only(),
      py::arg("upright") = false,
      "Where the picture of `kind` lies in a file of `file_size` bytes whose first bytes are "
      "`head` (its first 64 KiB, or the whole of a shorter file), and with `upright` whether "
      "it must be turned; nothing is read. The result's `ok`, `words` and `status` are what kpz "
      "says of the same file.");
}
