// KpzPyExtraction.cpp - the kit's head-only extraction for Python readers
// that fetch ranges themselves (kpz._kpz.kit.locate: one parse of a head
// already in memory, the picture's range, the orientation and the turn
// from that one parse), and the exit statuses every front end shares
// (kpz._kpz.kit.ExitStatus).
//
//   from kpz._kpz import kit
//   got = kit.locate(head, file_size, "preview", upright=True)
//   if not got.ok: print("kpz: %s: %s" % (url, got.words)); exit(got.status)
//   picture = fetch(url, got.offset, got.length)         # the caller's read
//   if got.turns: status, picture, note, words = got.turn(picture)
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "kpz/KpzExitStatus.h"
#include "kpz/KpzExtraction.h"
#include "kpz/KpzUpright.h"
#include "raw/DtRawFailure.h"

namespace py = pybind11;

// Called by the module kpz._kpz on its submodule `kit`.
void KpzPyRegisterExtraction(py::module_& kit);

namespace {

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
          "kind",
          [](const Located& l) {
            return l.outcome.ok() ? std::string() : std::string(DtRawFailure::Name(l.outcome.kind));
          },
          "'' when found, else the failure's kind as the library sorts it for every front end: "
          "'not_kpz', 'damaged', 'no_preview', 'no_thumbnail' or 'unreadable'.")
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
                             "With upright and no turn: why not, in words.")
      .def(
          "turn",
          [](const Located& l, const py::bytes& stored, const std::string& edges) {
            if (edges != "reencode" && edges != "trim") {
              throw py::value_error("edges is 'reencode' or 'trim', not '" + edges + "'");
            }
            if (!l.outcome.ok()) {
              throw py::value_error("kpz: nothing was located to turn: " + l.outcome.words);
            }
            if (!l.outcome.turns) {
              return py::make_tuple(0, stored, "", l.outcome.remark);
            }
            const char* data = PyBytes_AS_STRING(stored.ptr());
            const std::size_t size = static_cast<std::size_t>(PyBytes_GET_SIZE(stored.ptr()));
            KpzExtraction::Outcome o = l.outcome;
            KpzExtraction::Options options = l.options;
            options.edges = edges == "trim" ? KpzUpright::Edges::Trim : KpzUpright::Edges::Reencode;
            {
              py::gil_scoped_release unlocked;
              KpzExtraction::Turn(reinterpret_cast<const UINT8*>(data), size, options, &o);
            }
            if (!o.ok()) {
              return py::make_tuple(KpzExitCode(o.status), py::bytes(), "", o.words);
            }
            return py::make_tuple(
                0, py::bytes(reinterpret_cast<const char*>(o.bytes.data()), o.bytes.size()),
                o.note, o.remark);
          },
          py::arg("stored"), py::arg("edges") = "reencode",
          "What `kpz preview --upright` does with the located picture once its bytes "
          "(`stored`) are at hand, from the orientation this parse read (locate with upright). "
          "Returns (status, jpeg, note, words): status 0 with the JPEG to write (the stored "
          "bytes when no turn is asked for), `note` the remark the run's summary counts "
          "('re-encoded at quality 95: ...', '' for a lossless turn or none; pass it to "
          "Summary.add_note(name, note) as the tool does), `words` what -v tells; or status 1 "
          "(exit status 1) with `words` why the picture cannot be turned.");

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
