// KpzPyKit.cpp - the kpz tool's conventions for Python (kpz._kpz.kit): how
// `kpz preview`/`kpz thumbnail` name their outputs, expand their inputs,
// draw their progress bar and sum a run up. Front ends written in Python
// (kpz.distributed) call these, so that their names, lines and words are
// the tool's own and live in one place.
//
//   from kpz._kpz import kit
//   kit.default_path("dir/x.kpz", ".preview.jpg", True)   # "x.preview.jpg"
//   s = kit.Summary(); s.add(0, ""); s.add(1, "not a KPZ raw file"); s.render()
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kpz/KpzInputList.h"
#include "kpz/KpzOutputFile.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzProgressBar.h"
#include "kpz/KpzSource.h"
#include "kpz/KpzSummary.h"

namespace py = pybind11;

// Called by the module kpz._kpz on its submodule `kit`.
void KpzPyRegisterKit(py::module_& m);

void KpzPyRegisterKit(py::module_& m) {
  m.doc() = "The kpz tool's conventions: output names, input lists, progress bar, summary.";

  m.def("default_path", &KpzOutputFile::DefaultPath, py::arg("input"), py::arg("suffix"),
        py::arg("in_current_directory"),
        "The output name kpz gives `input`: its file name with the last extension replaced by "
        "`suffix` (appended when it has none), in the input's directory, or bare when "
        "`in_current_directory` is true.");

  m.def(
      "write_file",
      [](const std::string& path, const py::bytes& data, bool sync) {
        const char* begin = PyBytes_AS_STRING(data.ptr());
        const std::size_t size = static_cast<std::size_t>(PyBytes_GET_SIZE(data.ptr()));
        std::string error;
        {
          py::gil_scoped_release unlocked;
          const std::vector<UINT8> bytes(reinterpret_cast<const UINT8*>(begin),
                                         reinterpret_cast<const UINT8*>(begin) + size);
          if (!KpzOutputFile::Write(path, bytes, sync, &error) && error.empty()) {
            error = "cannot write the file";
          }
        }
        return error;
      },
      py::arg("path"), py::arg("data"), py::arg("sync") = false,
      "Writes `data` to the local file `path` as kpz writes an output: whole or not at all (a "
      "temporary file in the same directory, renamed when complete); with `sync`, flushed to the "
      "disk first. Returns \"\" when written, else what failed in kpz's words.");

  m.def(
      "copy_picture",
      [](const std::string& input, const std::string& output, const std::string& kind, bool sync) {
        if (kind != "preview" && kind != "thumbnail") {
          throw py::value_error("kind is 'preview' or 'thumbnail', not '" + kind + "'");
        }
        const KpzPictureReader::Kind k =
            kind == "preview" ? KpzPictureReader::Kind::Preview : KpzPictureReader::Kind::Thumbnail;
        int status = 0;
        std::uint64_t written = 0;
        std::string why;
        std::string file = input;
        {
          py::gil_scoped_release unlocked;
          KpzSource source;
          KpzPictureReader::Picture picture;
          if (!source.Open(input, &why) || !KpzPictureReader::Find(source, k, &picture, &why)) {
            status = 1;
          } else {
            switch (KpzOutputFile::Copy(output, source, picture.offset, picture.length,
                                        KpzPictureReader::Name(k), sync, &why)) {
              case KpzOutputFile::Status::Done:
                written = picture.length;
                break;
              case KpzOutputFile::Status::InputFailed:
                status = 1;
                break;
              case KpzOutputFile::Status::WouldReplaceInput:
                status = 2;
                file = output;
                break;
              case KpzOutputFile::Status::OutputFailed:
                status = 3;
                file = output;
                break;
            }
          }
        }
        return py::make_tuple(status, written, why, file);
      },
      py::arg("input"), py::arg("output"), py::arg("kind"), py::arg("sync") = false,
      "Writes the preview or thumbnail (`kind`) of the local file `input` to `output` as "
      "`kpz preview`/`kpz thumbnail` writes one file: copied file to file, whole or not at all. "
      "Returns (status, bytes written, words, file): status 0 done, else kpz's exit status "
      "(1 input, 2 the output would replace the input, 3 output), with the words kpz prints "
      "after 'kpz: FILE: ' and the FILE it names.");

  m.def(
      "expand_inputs",
      [](const std::vector<std::string>& args, bool recursive,
         const std::vector<std::string>& extensions) {
        KpzInputList::Options options;
        options.recursive = recursive;
        options.extensions = extensions;
        std::vector<KpzInputList::Entry> entries;
        {
          py::gil_scoped_release unlocked;
          entries = KpzInputList::Expand(args, options);
        }
        std::vector<std::pair<std::string, std::string>> out;
        out.reserve(entries.size());
        for (auto& e : entries) {
          out.emplace_back(std::move(e.path), std::move(e.error));
        }
        return out;
      },
      py::arg("args"), py::arg("recursive") = false,
      py::arg("extensions") = std::vector<std::string>{},
      "The files named by `args` as kpz expands them (directories give their files with the "
      "wanted extensions, -r enters subdirectories), in argument order: a list of (path, error) "
      "pairs; a non-empty error stands for a directory that could not be read. kpz prints the "
      "lines about unreadable arguments on standard error itself.");
  m.def("names_directory", &KpzInputList::NamesDirectory, py::arg("args"),
        "True when one of `args` names a directory.");
  m.def("normalise_extensions", &KpzInputList::Normalise, py::arg("extensions"),
        "The extensions as kpz compares them: lower case with a leading dot, '*' kept, '.kpz' "
        "when none is left.");
  m.def("extension_matches", &KpzInputList::Matches, py::arg("name"), py::arg("normalised"),
        "True when the file name `name` ends in one of the `normalised` extensions.");

  m.def("progress_text", &KpzProgressBar::Render, py::arg("done"), py::arg("total"),
        py::arg("width"),
        "The progress bar's text for `done` of `total` files on `width` columns.");
  m.def("progress_is_long", &KpzProgressBar::IsLong, py::arg("total"), py::arg("elapsed_ms"),
        "True when a run of `total` files that has lasted `elapsed_ms` is long enough for a bar.");
  m.attr("PROGRESS_REDRAW_MS") = KpzProgressBar::kRedrawMs;

  py::class_<KpzSummary>(m, "Summary", "The summary kpz prints after a run of several files.")
      .def(py::init<>())
      .def("add", &KpzSummary::Add, py::arg("status"), py::arg("reason"),
           "Counts one file: done when `status` is 0, else failed for `reason`.")
      .def("add_note", &KpzSummary::AddNote, py::arg("noun"), py::arg("note"),
           "Counts a remark about a file done.")
      .def_property_readonly("files", &KpzSummary::Files)
      .def_property_readonly("done", &KpzSummary::Done)
      .def_property_readonly("failed", &KpzSummary::Failed)
      .def_property_readonly("exit_status", &KpzSummary::ExitStatus,
                             "0 when nothing failed, else the highest status added.")
      .def("render", &KpzSummary::Render, "The summary's lines, each ending with a newline.")
      .def("render_notes", &KpzSummary::RenderNotes, "Only the remarks' lines.");
}
