// KpzPyExtraction.cpp - kpz._kpz.Picture, one extraction's outcome, and
// kpz._kpz.kit.ExitStatus. See KpzPyExtraction.h.
#include "KpzPyExtraction.h"

#include <cstddef>
#include <string>
#include <utility>

#include "KpzPyRaise.h"
#include "kpz/KpzExitStatus.h"

namespace py = pybind11;

void KpzPyRegisterExtraction(py::module_& m, py::module_& kit) {
  py::enum_<KpzExitStatus>(kit, "ExitStatus",
                           "The exit statuses of kpz and kpz.distributed: OK 0, INPUT 1 (an input "
                           "cannot be read or holds no such picture), USAGE 2 (wrong arguments), "
                           "OUTPUT 3 (an output cannot be written).")
      .value("OK", KpzExitStatus::Ok)
      .value("INPUT", KpzExitStatus::Input)
      .value("USAGE", KpzExitStatus::Usage)
      .value("OUTPUT", KpzExitStatus::Output);

  py::class_<KpzPyPicture>(
      m, "Picture",
      "One file's picture from one parse of its head (picture(..., detail=True), or "
      "picture(head, ..., file_size=n) for a head already in memory).")
      .def_property_readonly(
          "data", [](const KpzPyPicture& p) { return p.data; },
          "The picture as kpz writes it (turned with upright), or None when only its place "
          "was found (a head): fetch `length` bytes at `offset`, then turn().")
      .def_property_readonly(
          "offset", [](const KpzPyPicture& p) { return p.outcome.range.offset; },
          "Where the stored picture begins in the file.")
      .def_property_readonly(
          "length", [](const KpzPyPicture& p) { return p.outcome.range.length; },
          "The stored picture's length in bytes.")
      .def_property_readonly(
          "turns", [](const KpzPyPicture& p) { return p.outcome.turns; },
          "With upright: the file's orientation asks for a turn (made in `data` once it is "
          "there).")
      .def_property_readonly(
          "note", [](const KpzPyPicture& p) { return p.outcome.note; },
          "The summary's note of the turn ('re-encoded at quality 95: ...'), '' for a "
          "lossless turn or none; the tool counts it with Summary.add_note.")
      .def_property_readonly(
          "remark", [](const KpzPyPicture& p) { return p.outcome.remark; },
          "With upright: the turn, or why there is none, in the words -v tells.")
      .def(
          "turn",
          [](const KpzPyPicture& p, const py::bytes& stored) {
            KpzPyPicture done;
            done.outcome = p.outcome;
            done.options = p.options;
            if (!p.outcome.turns) {
              done.data = stored;
              return done;
            }
            const char* data = PyBytes_AS_STRING(stored.ptr());
            const std::size_t size = static_cast<std::size_t>(PyBytes_GET_SIZE(stored.ptr()));
            {
              py::gil_scoped_release unlocked;
              KpzExtraction::Turn(reinterpret_cast<const UINT8*>(data), size, p.options,
                                  &done.outcome);
            }
            const KpzExtraction::Outcome& o = done.outcome;
            if (!o.ok()) {
              KpzPyRaiseFailure(o.kind, o.err, o.code, o.words, py::none());
            }
            done.data =
                o.turned ? py::bytes(reinterpret_cast<const char*>(o.bytes.data()), o.bytes.size())
                         : py::bytes(stored);
            done.outcome.bytes.clear();
            done.outcome.bytes.shrink_to_fit();
            return done;
          },
          py::arg("stored"),
          "The picture kpz writes from the stored bytes this parse located, once they are "
          "at hand: turned as the orientation read with upright asks (the stored bytes "
          "when no turn is asked for). A Picture with `data` and `note`; BadPreviewError "
          "in kpz's words when the JPEG cannot be turned.");
}
