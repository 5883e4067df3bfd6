// KpzPyKit.cpp - the kpz tool's conventions for Python (kpz._kpz.kit): how
// `kpz preview`/`kpz thumbnail` name their outputs, expand their inputs,
// draw their progress bar and sum a run up. Front ends written in Python
// (kpz.distributed) call these, so that their names, lines and words are
// the tool's own and live in one place.
//
//   from kpz._kpz import kit
//   kit.default_path("dir/x.kpz", ".preview.jpg", True)   # "x.preview.jpg"
//   s = kit.Summary(); s.add(0, ""); s.add(1, "not a KPZ raw file"); s.render()
//   kit.shown_name("evil\nname")                         # "'evil\\nname'"
//   kit.make_output_directory("out")                      # None, or kpz's words
//   kit.output_is_whole("out/x.preview.jpg")              # --skip-existing
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kpz/KpzClaimWindow.h"
#include "kpz/KpzClock.h"
#include "kpz/KpzInputCount.h"
#include "kpz/KpzInputList.h"
#include "kpz/KpzInputWalk.h"
#include "kpz/KpzNameSet.h"
#include "kpz/KpzOutputFile.h"
#include "kpz/KpzPictureJob.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzProgressBar.h"
#include "kpz/KpzShownName.h"
#include "kpz/KpzSummary.h"

namespace py = pybind11;

namespace {

// kit.InputCount: the count ahead, stopped by close() (or when collected);
// what it had counted stays readable after.
class PyInputCount {
 public:
  PyInputCount(const std::vector<std::string>& args, const KpzInputList::Options& options)
      : m_count(std::make_unique<KpzInputCount>(args, options)) {}
  std::size_t counted() const { return m_count ? m_count->Counted() : m_counted; }
  bool finished() const { return m_count ? m_count->Finished() : m_finished; }
  void close() {
    if (m_count) {
      m_counted = m_count->Counted();
      m_finished = m_count->Finished();
      m_count.reset();  // stops the walk between two files and waits for it
    }
  }

 private:
  std::unique_ptr<KpzInputCount> m_count;
  std::size_t m_counted = 0;
  bool m_finished = false;
};

// The time a Python callable gives, in seconds (time.monotonic, or a test's
// own clock), as the kit's clock. Called with the interpreter lock held (by
// the bar's methods, which Python calls).
class PyClock : public KpzClock {
 public:
  explicit PyClock(py::object now) : m_now(std::move(now)) {}
  TimePoint Now() const override {
    const double seconds = m_now().cast<double>();
    const double ns = seconds * 1e9;
    const double limit = 9.0e18;  // within a nanosecond count
    const double bounded = ns > limit ? limit : (ns < -limit ? -limit : ns);
    return TimePoint(std::chrono::nanoseconds(std::llround(bounded)));
  }

 private:
  py::object m_now;
};

// kit.ProgressBar: the kit's bar for a Python stream, whose bytes Python
// writes (KpzProgressBar::Next, Clearing); its clock lives as long as it.
class PyProgressBar {
 public:
  PyProgressBar(bool enabled, py::object clock)
      : m_clock(std::move(clock)), m_bar(-1, enabled, m_clock) {}
  KpzProgressBar& bar() { return m_bar; }

 private:
  PyClock m_clock;  // declared first: outlives m_bar
  KpzProgressBar m_bar;
};

// A Python int as a long long, clamped at the type's ends (never an
// overflow error).
long long clampedInt(const py::int_& value) {
  int overflow = 0;
  const long long v = PyLong_AsLongLongAndOverflow(value.ptr(), &overflow);
  if (overflow != 0) {
    return overflow > 0 ? LLONG_MAX : LLONG_MIN;
  }
  if (v == -1 && PyErr_Occurred()) {
    throw py::error_already_set();
  }
  return v;
}

// The bytes of a file name given as str (encoded as the file system encodes
// names: UTF-8, undecodable bytes kept by surrogateescape, as os.fsencode
// does) or as bytes.
std::string nameBytes(const py::handle& name) {
  if (PyBytes_Check(name.ptr())) {
    return std::string(PyBytes_AS_STRING(name.ptr()),
                       static_cast<std::size_t>(PyBytes_GET_SIZE(name.ptr())));
  }
  if (!PyUnicode_Check(name.ptr())) {
    throw py::type_error("a file name is str or bytes");
  }
  const py::object encoded =
      py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(name.ptr(), "utf-8",
                                                                  "surrogateescape"));
  if (!encoded) {
    throw py::error_already_set();
  }
  return std::string(PyBytes_AS_STRING(encoded.ptr()),
                     static_cast<std::size_t>(PyBytes_GET_SIZE(encoded.ptr())));
}

// How kpz expands its arguments: -r, --ext.
KpzInputList::Options inputOptions(bool recursive, const std::vector<std::string>& extensions) {
  KpzInputList::Options options;
  options.recursive = recursive;
  options.extensions = extensions;
  return options;
}

std::string bytesOf(const py::bytes& b) {
  return std::string(PyBytes_AS_STRING(b.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(b.ptr())));
}

}  // namespace

// Called by the module kpz._kpz on its submodule `kit`.
void KpzPyRegisterKit(py::module_& m);

void KpzPyRegisterKit(py::module_& m) {
  m.doc() = "The kpz tool's conventions: output names, input lists, progress bar, summary.";

  m.def(
      "shown_name", [](const py::handle& name) { return KpzShownName::Of(nameBytes(name)); },
      py::arg("name"),
      "`name` (str, or bytes as os.fsencode gives) as kpz shows a file name on a line: "
      "unchanged when it is printable UTF-8 and does not begin with a single quote; otherwise "
      "between single quotes with C escapes: \\n \\t \\r \\a \\b \\f \\v for those "
      "characters, \\033 (three octal digits) for every other control character, for each "
      "byte of a C1 control or of U+2028/U+2029 and for each byte that is not UTF-8 (a str's "
      "surrogate escapes are such bytes), and \\\\ and \\' for a backslash and a quote. "
      "The result never holds a control character, so one event stays one line.");

  m.def(
      "make_output_directory",
      [](const std::string& path) -> py::object {
        std::string why;
        bool made = false;
        {
          py::gil_scoped_release unlocked;
          made = KpzOutputFile::MakeDirectory(path, &why);
        }
        if (made) {
          return py::none();
        }
        return py::str(why);
      },
      py::arg("path"),
      "Makes the output directory `path` and its missing parents, as kpz makes the directory "
      "of -o. None when it exists or was made; else the words kpz prints after 'kpz: ' (exit "
      "status 3): '<path>: cannot make the output directory: Not a directory', the path without "
      "trailing '/' and shown as shown_name shows it.");

  m.def(
      "output_is_whole",
      [](const std::string& path) {
        py::gil_scoped_release unlocked;
        return KpzOutputFile::IsWhole(path);
      },
      py::arg("path"),
      "True when the local `path` (links followed) counts as an output already present: a "
      "regular file of at least 4 bytes that begins with a JPEG's SOI (FF D8) and a marker's FF "
      "and ends with EOI (FF D9), nothing after it. The bytes in between are not read. A missing "
      "file, a folder, a dangling link, a FIFO, an empty, cut or foreign file is not whole.");

  m.def(
      "jpeg_ends_whole",
      [](const py::bytes& head, const py::bytes& tail, std::uint64_t size) {
        const std::string h = bytesOf(head);
        const std::string t = bytesOf(tail);
        return KpzOutputFile::JpegEndsWhole(reinterpret_cast<const UINT8*>(h.data()), h.size(),
                                            reinterpret_cast<const UINT8*>(t.data()), t.size(),
                                            size);
      },
      py::arg("head"), py::arg("tail"), py::arg("size"),
      "output_is_whole's checks for an output read from afar: `head` its first bytes (at least "
      "3), `tail` its last bytes (at least 2), `size` its size in bytes (neither part longer). "
      "True when size >= 4, head begins FF D8 FF and tail ends FF D9.");

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
      "disk first. A link's target is written (the link kept); a character device or FIFO is "
      "written through, never replaced; a block device, socket or directory is refused. Returns "
      "\"\" when written, else what failed in kpz's words.");

  m.def(
      "picture_job",
      [](const std::string& input, const std::string& output, const std::string& kind,
         bool upright, bool sync, const std::string& refusal) {
        if (kind != "preview" && kind != "thumbnail") {
          throw py::value_error("kind is 'preview' or 'thumbnail', not '" + kind + "'");
        }
        KpzPictureJob::Options options;
        options.extraction.kind =
            kind == "preview" ? KpzPictureReader::Kind::Preview : KpzPictureReader::Kind::Thumbnail;
        options.extraction.upright = upright;
        options.sync = sync;
        KpzPictureJob::Done done;
        {
          py::gil_scoped_release unlocked;
          done = KpzPictureJob::Run(input, output, options, [&refusal] { return refusal; });
        }
        const KpzBatch::Outcome& o = done.outcome;
        return py::make_tuple(o.status, o.out, o.err, o.reason, o.note, done.wrote);
      },
      py::arg("input"), py::arg("output"), py::arg("kind"), py::arg("upright") = false,
      py::arg("sync") = false, py::arg("refusal") = "",
      "One input of `kpz preview|thumbnail`, as kpz runs it: the picture (`kind`) of the local "
      "file `input` taken out (turned the right way up with `upright`) and written to `output`, "
      "whole or not at all (flushed to the disk with `sync`); `refusal`, when not '', refuses "
      "the output name in those words (an earlier input wrote it) once the picture is read. "
      "Returns (status, out, err, reason, note, wrote): kpz's exit status, its 'wrote' line, "
      "its lines for standard error, the summary's reason and note, and whether the output "
      "was written.");
  m.def("wrote_line", &KpzPictureJob::WroteLine, py::arg("output"), py::arg("size"),
        "kpz's line for an output written: 'wrote OUTPUT (SIZE bytes)\\n', the name shown as "
        "shown_name shows it.");
  m.def(
      "picture_suffix",
      [](const std::string& kind) -> std::string {
        if (kind != "preview" && kind != "thumbnail") {
          throw py::value_error("kind is 'preview' or 'thumbnail', not '" + kind + "'");
        }
        return KpzPictureJob::Suffix(kind == "preview" ? KpzPictureReader::Kind::Preview
                                                       : KpzPictureReader::Kind::Thumbnail);
      },
      py::arg("kind"), "The suffix of an output name of `kind`: '.preview.jpg' or '.thumb.jpg'.");
  m.def("normalise_extensions", &KpzInputList::Normalise, py::arg("extensions"),
        "The extensions as kpz compares them: lower case with a leading dot, '*' kept, '.kpz' "
        "when none is left.");
  m.def("extension_matches", &KpzInputList::Matches, py::arg("name"), py::arg("normalised"),
        "True when the file name `name` ends in one of the `normalised` extensions.");

  m.def("no_files_words", &KpzInputList::NoFilesWords, py::arg("extensions"),
        "What kpz says after 'kpz: ' (exit status 1) when its arguments gave no file: 'no files "
        "to work on: the directories named hold no file ending in .kpz', the `extensions` as "
        "normalise_extensions makes them, each shown as shown_name shows it.");
  m.def("already_written_words", &KpzClaimWindow::TakenWords, py::arg("output"),
        py::arg("owner"),
        "What kpz says after 'kpz: INPUT: ' (exit status 3) of an input whose output name "
        "`output` the earlier input `owner` wrote: 'not written: OUTPUT is already written by "
        "OWNER', both names shown as shown_name shows them.");
  m.def("already_written_earlier_words", &KpzClaimWindow::TakenEarlierWords, py::arg("output"),
        "The same words when the owner's name is no longer at hand: 'not written: OUTPUT is "
        "already written by an earlier input'.");
  m.attr("ALREADY_WRITTEN_REASON") = KpzClaimWindow::kTakenReason;

  py::class_<KpzInputWalk>(
      m, "InputWalk",
      "The files named by `args` as kpz expands them (directories give their files with the "
      "wanted extensions, -r enters subdirectories), in argument order, one at a time: "
      "iterating gives (path, error) pairs, listing one directory at a time (the interpreter lock released), "
      "so that a run over millions of files in folders holds a few thousand names.\n\n"
      "    for path, error in kit.InputWalk(['shots/'], recursive=True): ...")
      .def(py::init([](std::vector<std::string> args, bool recursive,
                       const std::vector<std::string>& extensions) {
             return std::make_unique<KpzInputWalk>(std::move(args),
                                                   inputOptions(recursive, extensions));
           }),
           py::arg("args"), py::arg("recursive") = false,
           py::arg("extensions") = std::vector<std::string>{})
      .def("__iter__", [](py::object self) { return self; })
      .def("__next__", [](KpzInputWalk& walk) {
        KpzInputList::Entry e;
        bool got = false;
        {
          py::gil_scoped_release unlocked;
          got = walk.Next(&e);
        }
        if (!got) {
          throw py::stop_iteration();
        }
        return std::make_pair(std::move(e.path), std::move(e.error));
      });

  py::class_<PyInputCount>(
      m, "InputCount",
      "The count of the files that `args` name, as InputWalk gives them, ahead of the work, "
      "for a progress bar's total: files named are counted at once; otherwise a second walk "
      "of the same arguments runs on a thread of its own (not holding the interpreter lock) "
      "and keeps only its count. close() (or leaving a with block) stops it and waits.\n\n"
      "    with kit.InputCount(['shots/'], recursive=True) as count: ... count.counted")
      .def(py::init([](const std::vector<std::string>& args, bool recursive,
                       const std::vector<std::string>& extensions) {
             return std::make_unique<PyInputCount>(args, inputOptions(recursive, extensions));
           }),
           py::arg("args"), py::arg("recursive") = false,
           py::arg("extensions") = std::vector<std::string>{})
      .def_property_readonly("counted", &PyInputCount::counted, "The files counted so far.")
      .def_property_readonly("finished", &PyInputCount::finished,
                             "True once `counted` is all of them.")
      .def("close", &PyInputCount::close, py::call_guard<py::gil_scoped_release>(),
           "Stops the count (between two files) and waits for it; `counted` stays.")
      .def("__enter__", [](py::object self) { return self; })
      .def("__exit__", [](PyInputCount& c, const py::args&) {
        py::gil_scoped_release unlocked;
        c.close();
      });

  py::class_<KpzNameSet>(
      m, "NameSet",
      "A set of names kept as 96-bit digests, 12 to 32 bytes a name whatever its length: the "
      "output names a long run has written. Two names are taken for one only when both of "
      "their hashes agree (about one chance in 10^15 among ten million names).")
      .def(py::init<>())
      .def("add", &KpzNameSet::Insert, py::arg("name"), "Adds `name`; True when it was not there.")
      .def("__contains__", &KpzNameSet::Contains, py::arg("name"))
      .def("__len__", &KpzNameSet::Size)
      .def_property_readonly("nbytes", &KpzNameSet::Bytes, "The bytes its table holds.");

  m.attr("PROGRESS_REDRAW_MS") = KpzProgressBar::kRedrawMs;
  py::class_<PyProgressBar>(
      m, "ProgressBar",
      "kpz's progress bar for a stream Python writes: ProgressBar(enabled, clock), clock() the "
      "time in seconds. next() and clearing() give the bytes to write, at the moments kpz "
      "draws and clears its own bar (not before the run is long, at most every "
      "PROGRESS_REDRAW_MS, the end always).")
      .def(py::init<bool, py::object>(), py::arg("enabled"), py::arg("clock"))
      .def(
          "next",
          [](PyProgressBar& self, std::size_t done, std::size_t total, bool more,
             const py::int_& width) {
            return self.bar().Next(done, total, more, clampedInt(width));
          },
          py::arg("done"), py::arg("total"), py::arg("more") = false, py::arg("width") = 0,
          "The bytes that draw the bar now for `done` of `total` files (`more`: the total is "
          "the number found so far) on a line of `width` columns (0 or less: unknown, 80), or "
          "'' when nothing is to be drawn.")
      .def(
          "clearing", [](PyProgressBar& self) { return self.bar().Clearing(); },
          "The bytes that take the bar off the line ('\\r', ESC [K) when it is shown, else ''.")
      .def_property_readonly(
          "shown", [](PyProgressBar& self) { return self.bar().IsShown(); },
          "True while the bar is on the line.");
  m.attr("SKIPPED_NOTE") = KpzOutputFile::kSkippedNote;
  m.attr("REWRITTEN_NOTE") = KpzOutputFile::kRewrittenNote;

  py::class_<KpzSummary>(m, "Summary", "The summary kpz prints after a run of several files.")
      .def(py::init<>())
      .def("add", &KpzSummary::Add, py::arg("status"), py::arg("reason"),
           "Counts one file: done when `status` is 0, else failed for `reason`.")
      .def("add_note", &KpzSummary::AddNote, py::arg("noun"), py::arg("note"),
           "Counts a remark about a file done: `noun` names the picture ('preview'), `note` "
           "what was done to it. For --upright, the note of a turn (Picture.note: the "
           "tool's KpzUpright::SummaryNote); render() then ends with 'kpz:   2 previews re-encoded "
           "at quality 95: edges not a whole number of 16-pixel blocks'. An empty note is "
           "not counted.")
      .def_property_readonly("files", &KpzSummary::Files)
      .def_property_readonly("done", &KpzSummary::Done)
      .def_property_readonly("failed", &KpzSummary::Failed)
      .def_property_readonly("exit_status", &KpzSummary::ExitStatus,
                             "0 when nothing failed, else the highest status added.")
      .def("render", &KpzSummary::Render, "The summary's lines, each ending with a newline.")
      .def("render_notes", &KpzSummary::RenderNotes, "Only the remarks' lines.");
}
