// KpzMain.cpp - the kpz command-line tool: shows the metadata of KPZ camera
// raw files, takes their preview (screennail) or thumbnail JPEG out, and
// turns their pictures by rewriting the orientation in place.
//
// Part of tools/kpz, linked with the library's static layers (not the JNI
// entry). The commands and their rules are in kHelpFooter below, which is also
// what `kpz --help` prints.
//
//   kpz info a.kpz               # the metadata as a table
//   kpz info -r --json shots/    # every .kpz below shots/, one JSON object per line
//   kpz preview                  # the bundled sample -> ./sample.preview.jpg
//   kpz preview a.kpz -o -       # the preview of a.kpz on standard output
//   kpz preview --upright a.kpz  # the preview turned the right way up
//   kpz thumbnail shots/ -o out  # out/<name>.thumb.jpg for every shots/<name>.kpz
//   kpz rotate a.kpz --cw        # a.kpz: normal -> rotated 90° clockwise
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#if defined(__GLIBC__)  // known once a C library header is in (<cstdio> above)
#include <malloc.h>
#endif

#include "kpz/KpzBatch.h"
#include "kpz/KpzClaimWindow.h"
#include "kpz/KpzConsole.h"
#include "kpz/KpzExitStatus.h"
#include "kpz/KpzExtraction.h"
#include "kpz/KpzInfoJson.h"
#include "kpz/KpzInfoText.h"
#include "kpz/KpzInputCount.h"
#include "kpz/KpzInputList.h"
#include "kpz/KpzInterrupt.h"
#include "kpz/KpzInputWalk.h"
#include "kpz/KpzMetadata.h"
#include "kpz/KpzMetadataReader.h"
#include "kpz/KpzOutputFile.h"
#include "kpz/KpzPictureJob.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzPrefetch.h"
#include "kpz/KpzReadHint.h"
#include "kpz/KpzRotation.h"
#include "kpz/KpzRotator.h"
#include "kpz/KpzSample.h"
#include "kpz/KpzServeProgram.h"
#include "kpz/KpzShownName.h"
#include "kpz/KpzSource.h"
#include "kpz/KpzSummary.h"
#include "kpz/serve/KpzServeCommand.h"
#include "kpz/KpzUpright.h"

#ifndef KPZ_VERSION
#define KPZ_VERSION "unknown"
#endif
#ifndef KPZ_SAMPLE_PATH
#define KPZ_SAMPLE_PATH "samples/sample.kpz"
#endif

namespace {

const char* const kHelpFooter =
    "FILE is a KPZ raw file. Without FILE, info, preview and thumbnail use the\n"
    "bundled sample:\n"
    "  <prefix>/share/kpz/sample.kpz when installed, else the source tree's\n"
    "  samples/sample.kpz\n"
    "\n"
    "info: every value in words with units ('Exposure time  1/250 s',\n"
    "'F-number  f/5.6'); a value the file does not hold shows as 'not recorded'.\n"
    "An exposure time over 1 s reads as 1/0 (the exact time is not kept).\n"
    "--json prints one JSON object per file on one line (JSON Lines), with the\n"
    "raw numbers and each value's result code; its keys are told in KPZ-JSON.md\n"
    "(<prefix>/share/doc/kpz/ when installed, docs/ in the source tree).\n"
    "\n"
    "Many files: info, preview and thumbnail take any number of FILEs and\n"
    "directories. A directory gives its files ending in .kpz, in any case\n"
    "(--ext EXT[,EXT...] chooses others, '*' takes all; names beginning with '.'\n"
    "are skipped); -r enters its subdirectories too. Files are read in parallel\n"
    "(-j N, default: the number of processors) and results are printed in input\n"
    "order. Directories are walked as the run goes, so memory does not grow\n"
    "with the number of files. A progress bar is shown on standard error when it\n"
    "is a terminal and the run is long (over 50 files or over 1 s): files done\n"
    "of all, files per second and the time left ('250/1000 files, 12.5/s, 1:00\n"
    "left'). Files named are counted at once; directories are counted by a walk\n"
    "ahead of the work (it keeps only the count), and until it ends the bar shows\n"
    "the files found so far ('250/1000+ files'). With more than one file the\n"
    "run ends with a summary on standard error:\n"
    "  kpz: 1000 files: 990 done, 10 failed\n"
    "  kpz:   10 not a KPZ raw file (no TIFF header)\n"
    "One bad file never stops the others. -q (before or after the subcommand):\n"
    "no bar, no 'wrote' or '<old> -> <new>' lines, and no summary when every\n"
    "file was done; failures are still told. A line of standard output that\n"
    "cannot be written (a full disk) is that file's failure, exit status 3.\n"
    "\n"
    "SIGINT (Ctrl-C) or SIGTERM: no new file is started, the files in hand are\n"
    "finished (or their temporary files removed), the summary is printed with\n"
    "'kpz: interrupted by SIGINT', and kpz ends by that signal. A second signal\n"
    "ends it at once.\n"
    "\n"
    "Output of preview and thumbnail (-o): with one FILE, -o names the output\n"
    "file, '-' standard output. Without -o the name is made from FILE's name\n"
    "with its extension replaced: x.kpz -> x.preview.jpg (preview) or\n"
    "x.thumb.jpg (thumbnail); a name without extension gets the suffix\n"
    "appended. It lies in FILE's directory; for the bundled sample, in the\n"
    "current directory. With several FILEs or a directory, -o names an output\n"
    "DIRECTORY (made when missing) that receives x.preview.jpg or x.thumb.jpg\n"
    "for every input x.kpz; so does -o with one FILE when it is an existing\n"
    "directory or ends in '/', as for cp. When several inputs would give the same name, the\n"
    "first of them in input order that is written owns it; a later one fails\n"
    "('already written by'), and an input that cannot be read reports its own\n"
    "error and takes no name. An existing file of that name is replaced; the\n"
    "output is never FILE itself. A symbolic link is followed: its target is\n"
    "written (the link stays). A character device (/dev/null) or a FIFO is\n"
    "written through, never replaced (a FIFO waits for its reader); a block\n"
    "device or a socket is refused (exit status 3). After writing a file, kpz\n"
    "prints 'wrote <name> (<n> bytes)' on standard output. --skip-existing:\n"
    "an output already present and whole (a JPEG from its first marker to its\n"
    "last) is neither read nor written again; the summary counts it ('already\n"
    "present, not written again'); one present but cut is written again.\n"
    "\n"
    "Durability: a file is written whole or not at all (a temporary file in\n"
    "the same directory, '.<name>.kpz-<host>-<pid>.XXXXXX', renamed when\n"
    "complete), so no reader ever sees part of an output. A run killed outright\n"
    "(SIGKILL, a crash) may leave one; a later run with -o DIRECTORY removes\n"
    "those in it that are its own kind: that pattern, this machine, a process\n"
    "that is gone, unchanged for 10 minutes. Elsewhere, with no kpz running:\n"
    "  find DIR -name '.*.jpg.kpz-*-*.?\?\?\?\?\?' -type f -delete\n"
    "By default kpz does not wait for the disk, as cp does not:\n"
    "after a crash of the system or a power loss, an output written in the\n"
    "last moments may be missing or empty, or still the older file it\n"
    "replaced. With --sync each output file and its directory are flushed to\n"
    "the disk (fsync) before kpz reports it written, so a reported output\n"
    "survives a crash; this costs a disk flush per file. Standard output\n"
    "(-o -) is never synced.\n"
    "\n"
    "--upright (preview, thumbnail): the JPEG is written turned the right way\n"
    "up, as the file's orientation says, so that it shows upright in any\n"
    "viewer, also one that ignores Exif orientation. The turn is lossless (on\n"
    "the JPEG's DCT blocks, nothing decoded) whenever every edge it moves to\n"
    "the left or top is a whole number of 8- or 16-pixel blocks. When one is\n"
    "not, --edges chooses: 'reencode' (default) decodes, turns and encodes the\n"
    "picture again at quality 95 with the same chroma sampling, keeping its\n"
    "size; 'trim' stays lossless and cuts the partial blocks off those edges\n"
    "(fewer than 16 pixels each), saying how many on standard error. The run\n"
    "ends with a count of re-encoded or trimmed pictures; -v tells each file's\n"
    "treatment. A JPEG's own Exif orientation is set to 1 in the output; its\n"
    "other markers are kept. Orientation normal, not recorded or not one of\n"
    "1 to 8: the stored bytes are written unchanged (-v says why). A JPEG that\n"
    "cannot be turned (damaged data) fails that file with exit status 1.\n"
    "  kpz preview --upright a.kpz     # a.preview.jpg, upright\n"
    "\n"
    "rotate: turns the picture a quarter turn clockwise (--cw),\n"
    "counter-clockwise (--ccw) or half a turn (--180) from its present\n"
    "orientation, mirrored pictures staying mirrored, or sets rotation code N\n"
    "(--code N: 0 normal, 1 rotated 90° clockwise, 2 rotated 180°, 3 rotated\n"
    "90° counter-clockwise, 4 mirrored horizontally, 5 mirrored horizontally\n"
    "and rotated 90° counter-clockwise, 6 mirrored vertically, 7 mirrored\n"
    "horizontally and rotated 90° clockwise). Only the orientation values are\n"
    "rewritten, in place (the thumbnail's date-time is set equal to the\n"
    "picture's when they differ), and the file keeps its modification time.\n"
    "A read-only file is refused. Prints\n"
    "'<file>: <old> -> <new>'; --dry-run shows that without writing. Files are\n"
    "done one after another, in the order given.\n"
    "\n"
    "Errors are one line on standard error, 'kpz: <file>: <what went wrong>'.\n"
    "A name printed on a line (errors, 'wrote' lines, info's header, the\n"
    "summary) that holds control characters or bytes that are not UTF-8 is\n"
    "shown quoted, with C escapes: 'evil\\nname' for a newline, \\033 for ESC,\n"
    "\\377 for a stray byte, \\\\ and \\' inside; any other name as it is.\n"
    "--json escapes names as JSON does.\n"
    "The library's own diagnostic lines (standard error) are hidden unless\n"
    "--verbose is given; with several jobs the lines of different files may\n"
    "interleave, each line whole (-j 1 keeps them in file order).\n"
    "\n"
    "Exit status: 0 all done; 1 a FILE cannot be read, is not a KPZ raw file,\n"
    "holds no such picture or orientation, or the picture is cut off; 2 wrong\n"
    "arguments (told in a line 'kpz: ...'); 3 an output cannot be written (for rotate: the file cannot be\n"
    "changed). With several files: the highest status of any of them.";

// Each command's own help ends with its short rules; `kpz --help` has them all.
const char* const kInfoFooter =
    "FILE: a KPZ raw file, or a directory (its .kpz files); without FILE, the\n"
    "bundled sample. Every value in words with units; 'not recorded' for a value\n"
    "the file does not hold. --json: one JSON object per file and line (keys in\n"
    "KPZ-JSON.md, in <prefix>/share/doc/kpz/). Exit status: 0 done, 1 a FILE\n"
    "cannot be read or is not a\n"
    "KPZ raw file, 2 wrong arguments. 'kpz --help' tells all the rules.";
// The picture commands' footer, then each one's examples.
const char* const kPictureFooter =
    "FILE: a KPZ raw file, or a directory (its .kpz files); without FILE, the\n"
    "bundled sample. Without -o, x.kpz gives x.preview.jpg (preview) or\n"
    "x.thumb.jpg (thumbnail) next to it. -o names the output file ('-': standard\n"
    "output); with several FILEs, a directory, or when it is an existing\n"
    "directory or ends in '/', an output DIRECTORY (made when missing). A link\n"
    "is followed; /dev/null or a FIFO is written through; a block device or a\n"
    "socket is refused. Exit status: 0 done, 1 an input problem, 2 wrong\n"
    "arguments, 3 an output cannot be written. 'kpz --help' tells all the rules.\n";
const char* const kPreviewExamples =
    "  kpz preview a.kpz -o out/       # out/a.preview.jpg\n"
    "  kpz preview --upright a.kpz     # a.preview.jpg, upright\n"
    "  kpz preview -q --skip-existing shots/ -o out   # only what is not there yet";
const char* const kThumbnailExamples =
    "  kpz thumbnail a.kpz -o out/     # out/a.thumb.jpg\n"
    "  kpz thumbnail -r shots/ -o thumbs/   # every .kpz below shots/\n"
    "  kpz thumbnail a.kpz -o - > t.jpg     # on standard output";
const char* const kRotateFooter =
    "Rewrites only the orientation values, in place; the file keeps its\n"
    "modification time; a read-only file is refused. Codes: 0 normal, 1 rotated\n"
    "90° clockwise, 2 rotated 180°, 3 rotated 90° counter-clockwise, 4 mirrored\n"
    "horizontally, 5 mirrored horizontally and rotated 90° counter-clockwise,\n"
    "6 mirrored vertically, 7 mirrored horizontally and rotated 90° clockwise.\n"
    "Exit status: 0 done, 1 a FILE cannot be read, 2 wrong arguments, 3 a FILE\n"
    "cannot be changed. 'kpz --help' tells all the rules.";

// A usage error as kpz tells every error: each line begins with "kpz: ".
std::string usageMessage(const CLI::App* app, const CLI::Error& e) {
  std::string text;
  std::string what = e.what();
  const std::vector<std::string> rest = app->remaining();
  if (app->get_subcommands().empty()) {
    std::string names;
    for (const CLI::App* sub : app->get_subcommands({})) {
      names += (names.empty() ? "" : ", ") + sub->get_name();
    }
    if (!rest.empty() && !rest.front().empty() && rest.front()[0] != '-') {
      // A first word that names no subcommand: say so, and which there are.
      what = KpzShownName::Of(rest.front()) + " is not a kpz subcommand; the subcommands are " +
             names;
    } else if (dynamic_cast<const CLI::RequiredError*>(&e) != nullptr && rest.empty()) {
      what = "a subcommand is required: " + names;
    }
  }
  std::size_t start = 0;
  while (start < what.size()) {  // each pass takes one line
    std::size_t end = what.find('\n', start);
    if (end == std::string::npos) {
      end = what.size();
    }
    if (end > start) {
      text += "kpz: " + what.substr(start, end - start) + "\n";
    }
    start = end + 1;
  }
  std::string help = "kpz --help";
  const auto subs = app->get_subcommands();
  if (!subs.empty()) {
    help = "kpz " + subs.front()->get_name() + " --help";
  }
  return text + "kpz: run '" + help + "' for the options\n";
}

struct Command {
  std::vector<std::string> files;
  std::string output;
  bool verbose = false;
  bool quiet = false;
  bool skipExisting = false;
  bool recursive = false;
  bool json = false;
  bool dryRun = false;
  bool sync = false;
  bool upright = false;
  std::string edges = "reencode";
  bool clockwise = false;
  bool counterClockwise = false;
  bool halfTurn = false;
  int code = -1;
  unsigned int jobs = 0;  // 0: one per processor
  std::vector<std::string> extensions;
  // Borrowed from the CLI::App, which outlives every use.
  CLI::Option* outputOption = nullptr;
  CLI::Option* codeOption = nullptr;
  CLI::Option* edgesOption = nullptr;
};

CLI::App* addCommon(CLI::App& app, const char* name, const char* what, const std::string& footer,
                    Command* cmd) {
  CLI::App* sub = app.add_subcommand(name, what);
  sub->add_flag("-v,--verbose", cmd->verbose, "show the library's diagnostic lines");
  sub->add_flag("-q,--quiet", cmd->quiet,
                "no progress bar, no 'wrote' or '<old> -> <new>' lines, no summary when every "
                "file was done; failures are still told on standard error");
  sub->footer(footer);
  return sub;
}

void addBatchOptions(CLI::App* sub, Command* cmd) {
  sub->add_option("FILE", cmd->files,
                  "KPZ raw files or directories (default: the bundled sample)");
  sub->add_flag("-r,--recursive", cmd->recursive, "enter the subdirectories of directories");
  sub->add_option("--ext", cmd->extensions,
                  "file name extensions taken from directories (default: .kpz; '*': all)")
      ->delimiter(',')
      ->type_size(1)
      ->allow_extra_args(false);  // one value per --ext: FILEs may follow
  sub->add_option("-j,--jobs", cmd->jobs, "files read at once (default: the number of processors)")
      ->check(CLI::Validator(
          [](std::string& value) -> std::string {
            const bool digits = !value.empty() && value.size() <= 9 &&
                                value.find_first_not_of("0123456789") == std::string::npos;
            if (!digits) {
              return "'" + value + "' is not a number: -j takes a number of jobs from 1 to 1024";
            }
            const unsigned long n = std::stoul(value);
            return n >= 1 && n <= 1024 ? std::string()
                                       : value + " is not from 1 to 1024 (the jobs -j takes)";
          },
          "N from 1 to 1024"));
}

unsigned int jobsOf(const Command& cmd) {
  return cmd.jobs == 0 ? KpzBatch::DefaultJobs() : cmd.jobs;
}

KpzInputList::Options InputOptionsOf(const Command& cmd) {
  KpzInputList::Options options;
  options.recursive = cmd.recursive;
  options.extensions = cmd.extensions;
  return options;
}

// The files of a batch as the run finds them (KpzInputWalk), so that what
// the tool holds does not grow with their number: input i is taken from the
// walk when the batch asks for it (KpzBatch::RunWhile's more(i)), with
// `ahead` more after it, and kept in a ring of Window(jobs) + 1 + `ahead`
// places until it has been delivered.
class InputFeed {
 public:
  struct Item {
    KpzInputList::Entry entry;
    std::string output;    // the picture commands' output name
    bool present = false;  // this place holds a file found
  };
  // Told of each file found, in input order, one call at a time.
  using OnFound = std::function<void(std::size_t index, Item& item)>;

  InputFeed(const Command& cmd, std::vector<std::string> args, unsigned int jobs,
            std::size_t ahead, OnFound found = nullptr)
      : m_walk(std::move(args), InputOptionsOf(cmd)),
        m_ring(KpzBatch::Window(jobs) + 1 + ahead),
        m_ahead(ahead),
        m_onFound(std::move(found)) {}

  // Finds the first file; false when the arguments give none, which has
  // been reported.
  bool Start(const Command& cmd) {
    pull();
    if (m_fetched == 0) {
      std::fprintf(stderr, "kpz: %s\n", KpzInputList::NoFilesWords(cmd.extensions).c_str());
      return false;
    }
    return true;
  }

  // KpzBatch::More: input i is there (found with the `ahead` after it).
  bool More(std::size_t i) {
    while (!m_ended && m_fetched < i + 1 + m_ahead) {  // each pass finds one or ends
      pull();
    }
    for (std::size_t j = m_fetched; j <= i + m_ahead; ++j) {
      m_ring[j % m_ring.size()].present = false;  // past the end
    }
    return i < m_fetched;
  }

  // Input i, from More(i) until it has been delivered; inputs i + 1 ..
  // i + ahead too (present or not) while input i's task runs.
  const Item& At(std::size_t i) const { return m_ring[i % m_ring.size()]; }

  // The files found so far, and whether that is all of them (any thread).
  std::size_t Found() const { return m_found.load(); }
  bool Finished() const { return m_finished.load(); }

 private:
  void pull() {
    Item& item = m_ring[m_fetched % m_ring.size()];
    if (!m_walk.Next(&item.entry)) {
      m_ended = true;
      m_finished.store(true);
      return;
    }
    item.present = true;
    item.output.clear();
    if (m_onFound) {
      m_onFound(m_fetched, item);
    }
    ++m_fetched;
    m_found.store(m_fetched);
  }

  KpzInputWalk m_walk;
  std::vector<Item> m_ring;
  std::size_t m_ahead;
  OnFound m_onFound;
  std::size_t m_fetched = 0;  // files found: inputs 0 .. m_fetched - 1
  bool m_ended = false;
  std::atomic<std::size_t> m_found{0};
  std::atomic<bool> m_finished{false};
};

// What a batch runs over: whether there is an input i (KpzBatch::More), its
// name (until it has been delivered), the number found so far and whether
// that is all.
// `count`, when given, counts the files ahead of the work, for the bar's
// total.
struct BatchInputs {
  KpzBatch::More more;
  std::function<const std::string&(std::size_t)> name;
  std::function<std::size_t()> found;
  std::function<bool()> finished;
  const KpzInputCount* count = nullptr;
};

BatchInputs inputsOf(InputFeed& feed, const KpzInputCount& count) {
  return {[&feed](std::size_t i) { return feed.More(i); },
          [&feed](std::size_t i) -> const std::string& { return feed.At(i).entry.path; },
          [&feed] { return feed.Found(); }, [&feed] { return feed.Finished(); }, &count};
}

// How a batch tells its outcomes.
struct BatchStyle {
  bool separateOutputs = false;  // a blank line between two outputs (info's tables)
  bool verbose = false;
  bool quiet = false;        // -q: no bar; no summary when all were done
  bool outIsReport = false;  // the standard output lines only report ('wrote', 'old -> new'): -q drops them
  std::string noun = "file";  // names the files' pictures in the summary's remarks ("preview")
  // Told, on the task's thread, of an input not started after a signal.
  std::function<void(std::size_t)> notStarted;
};

// A failure of `file`, told on one line: "kpz: <file>: <why>", the name
// shown as KpzShownName shows it.
KpzBatch::Outcome failure(KpzExitStatus status, const std::string& file, const std::string& why) {
  return KpzBatch::Failure(status, file, why);
}

// Runs `task` over `inputs`, printing the outcomes in order, the progress
// bar and, for more than one file, the summary. A task that threw
// (KpzBatch) is told on its file's line like any failure. `delivered`, when
// given, is told of each input once its outcome is printed. A line of
// standard output that cannot be written is its input's output failure.
// After SIGINT or SIGTERM (KpzInterrupt) no new input is started: the
// inputs in hand end, and the summary says the run was interrupted.
int runBatch(KpzConsole& console, const BatchInputs& inputs, unsigned int jobs,
             const KpzBatch::Task& task, const BatchStyle& style,
             const std::function<void(std::size_t)>& delivered = nullptr) {
  const bool separateOutputs = style.separateOutputs;
  const bool quiet = style.quiet;
  const std::string& noun = style.noun;
  console.SetQuiet(quiet);
  std::size_t count = 0;
  KpzSummary summary;
  bool printed = false;
  bool saidItsOwn = false;  // a file's own line on standard error told its remark
  bool barSaidMore = false;  // the bar's last total was the number found so far
  // Inputs taken into the window before a signal but not begun when it
  // came are not started: their outcome is kNotStarted, neither told nor
  // counted.
  constexpr int kNotStarted = -1;
  KpzBatch::RunWhile(
      jobs, [&inputs](std::size_t i) { return KpzInterrupt::Caught() == 0 && inputs.more(i); },
      [&task, &style](std::size_t i) {
        if (KpzInterrupt::Caught() != 0) {
          if (style.notStarted) {
            style.notStarted(i);
          }
          KpzBatch::Outcome o;
          o.status = kNotStarted;
          return o;
        }
        return task(i);
      },
      [&](std::size_t i, KpzBatch::Outcome& o) {
        if (o.status == kNotStarted) {
          if (delivered) {
            delivered(i);
          }
          return;
        }
        if (o.status != 0 && o.err.empty()) {
          o.err = failure(KpzExitStatus::Input, inputs.name(i), o.reason).err;
        }
        std::string lost;
        if (!o.out.empty() && !(quiet && style.outIsReport) &&
            !console.Out(separateOutputs && printed ? "\n" + o.out : o.out, &lost)) {
          // Its line or record lost is this input's output failure.
          const KpzBatch::Outcome f = failure(KpzExitStatus::Output, inputs.name(i), lost);
          o.status = std::max(o.status, f.status);
          o.err += f.err;
          o.reason = f.reason;
        }
        printed = printed || !o.out.empty();
        console.Err(o.err);
        saidItsOwn = saidItsOwn || !o.err.empty();
        summary.Add(o.status, o.reason);
        if (o.status == 0 && !o.note.empty()) {
          summary.AddNote(noun, o.note);
        }
        count = i + 1;
        if (delivered) {
          delivered(i);
        }
      },
      [&](std::size_t done) {
        // The total: every file when the walk or the count ahead has found
        // them all, else the most either has found so far ("+").
        std::size_t total = inputs.found();
        barSaidMore = !inputs.finished();
        if (barSaidMore && inputs.count != nullptr) {
          total = std::max(total, inputs.count->Counted());
          barSaidMore = !inputs.count->Finished();
        }
        console.Progress(done, total, barSaidMore);
      });
  const int caught = KpzInterrupt::Caught();
  if (barSaidMore && caught == 0) {
    console.Progress(count, count);  // the end, with the total known
  }
  console.EndProgress();
  if ((count > 1 && !(quiet && summary.Failed() == 0)) || caught != 0) {
    console.Err(summary.Render());
  } else if (!style.verbose && !saidItsOwn && summary.HasNotes() && !quiet) {
    // One file: its remark still shows, unless its own line told it.
    console.Err(summary.RenderNotes());
  }
  if (caught != 0) {
    console.Err("kpz: interrupted by " + KpzInterrupt::Name(caught) +
                ": the files after these were not started\n");
  }
  return summary.ExitStatus();
}

int runInfo(const Command& cmd) {
  const std::vector<std::string> args =
      cmd.files.empty() ? std::vector<std::string>{KpzSample::Path(KPZ_SAMPLE_PATH)} : cmd.files;
  InputFeed feed(cmd, args, jobsOf(cmd), 0);
  if (!feed.Start(cmd)) {
    return KpzExitCode(KpzExitStatus::Input);
  }
  const KpzInputCount count(args, InputOptionsOf(cmd));
  const bool json = cmd.json;
  KpzConsole console(cmd.verbose);
  const auto task = [&feed, json](std::size_t i) {
    const KpzInputList::Entry& input = feed.At(i).entry;
    KpzMetadata md;
    bool ok = false;
    if (input.error.empty()) {
      ok = KpzMetadataReader::Read(input.path, &md);
    } else {
      md.file = input.path;
      md.error = input.error;
    }
    KpzBatch::Outcome o = ok ? KpzBatch::Outcome() : failure(KpzExitStatus::Input, md.file, md.error);
    if (json) {
      o.out = KpzInfoJson::Line(md);  // JSON escapes the name itself
    } else if (ok) {
      md.file = KpzShownName::Of(md.file);  // the table's header line
      o.out = KpzInfoText::Table(md);
    }
    return o;
  };
  BatchStyle style;
  style.separateOutputs = !json;
  style.verbose = cmd.verbose;
  style.quiet = cmd.quiet;
  return runBatch(console, inputsOf(feed, count), jobsOf(cmd), task, style);
}

int runPicture(KpzPictureReader::Kind kind, const Command& cmd) {
  if (cmd.edgesOption->count() > 0 && !cmd.upright) {
    std::fprintf(stderr, "kpz: --edges goes with --upright\n");
    return KpzExitCode(KpzExitStatus::Usage);
  }
  if (cmd.outputOption->count() > 0 && cmd.output.empty()) {
    std::fprintf(stderr, "kpz: -o needs a file name, or '-' for standard output\n");
    return KpzExitCode(KpzExitStatus::Usage);
  }
  const bool useSample = cmd.files.empty();
  const std::vector<std::string> args =
      useSample ? std::vector<std::string>{KpzSample::Path(KPZ_SAMPLE_PATH)} : cmd.files;
  // A pattern may match many files, as a directory may.
  const bool many = args.size() > 1 || KpzInputList::NamesDirectory(args) ||
                    KpzInputList::IsPattern(args.front());
  if (many && cmd.output == "-") {
    std::fprintf(stderr,
                 "kpz: -o - (standard output) takes one FILE; with several, -o names a "
                 "directory\n");
    return KpzExitCode(KpzExitStatus::Usage);
  }
  // -o names a directory with several inputs, and with one when it is an
  // existing directory or ends in '/', as for cp (KpzOutputFile).
  const bool toDirectory =
      !cmd.output.empty() && (many || KpzOutputFile::NamesDirectory(cmd.output));

  // Deliberate: with several inputs (or a directory) -o names a directory,
  // made when missing. When several inputs would give one output name, the
  // first of them in input order that writes it owns it; every later one
  // that could be read fails with "already written by", so no output is
  // silently replaced by another input's picture, and an input that fails
  // reports its own error and takes no name (KpzClaimWindow, which keeps
  // the names written as digests: a run of millions of files holds a few
  // dozen bytes per file).
  const char* suffix = KpzPictureJob::Suffix(kind);
  KpzClaimWindow claims;
  const auto found = [&](std::size_t i, InputFeed::Item& item) {
    const std::string& in = item.entry.path;
    if (toDirectory) {
      item.output = (std::filesystem::path(cmd.output) /
                     KpzOutputFile::DefaultPath(in, suffix, true)).string();
    } else if (!many) {
      item.output = cmd.output.empty() ? KpzOutputFile::DefaultPath(in, suffix, useSample)
                                       : cmd.output;
    } else {
      item.output = KpzOutputFile::DefaultPath(in, suffix, false);
    }
    claims.Add(i,
               item.entry.error.empty()
                   ? std::filesystem::path(item.output).lexically_normal().string()
                   : std::string(),
               in);
  };
  // Inputs i + 1 and i + 2 are looked at ahead (KpzPrefetch) when reading
  // ahead, below.
  InputFeed feed(cmd, args, jobsOf(cmd), 2, found);
  if (!feed.Start(cmd)) {
    return KpzExitCode(KpzExitStatus::Input);
  }
  const KpzInputCount count(args, InputOptionsOf(cmd));
  if (toDirectory) {
    std::string why;
    if (!KpzOutputFile::MakeDirectory(cmd.output, &why)) {
      std::fprintf(stderr, "kpz: %s\n", why.c_str());
      return KpzExitCode(KpzExitStatus::Output);
    }
    // What an earlier run killed outright left there (its temporaries only:
    // KpzOutputFile::IsStaleTemporary says which).
    KpzOutputFile::RemoveStale(cmd.output);
  }

  const bool sync = cmd.sync;
  const bool skipExisting = cmd.skipExisting;
#if defined(__GLIBC__)
  if (cmd.upright) {
    // Turning a preview allocates a few MB of DCT coefficients and frees
    // them again, file after file. By default glibc hands blocks that large
    // back to the kernel (mmap/munmap, heap trimming), so every file paid
    // again for faulting in and zeroing fresh pages: about 40 % of a turn.
    // Kept in the process, the next file reuses them.
    mallopt(M_MMAP_THRESHOLD, 64 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 256 * 1024 * 1024);
  }
#endif
  const bool verbose = cmd.verbose;
  const KpzUpright::Edges edges =
      cmd.edges == "trim" ? KpzUpright::Edges::Trim : KpzUpright::Edges::Reencode;
  const char* const name = KpzPictureReader::Name(kind);
  KpzConsole console(cmd.verbose);
  // One file at a time: the next input's head and picture come from the disk
  // while this one is written (KpzPrefetch). Not with --verbose, where the
  // library's lines of the early look would show twice.
  const bool readAhead = jobsOf(cmd) == 1 && !verbose;
  KpzPictureJob::Options want;
  want.extraction.kind = kind;
  want.extraction.upright = cmd.upright;
  want.extraction.edges = edges;
  want.sync = sync;
  want.verbose = verbose;
  const auto task = [&](std::size_t i) {
    KpzClaimWindow::Turn turn(claims, i);
    const InputFeed::Item& item = feed.At(i);
    const std::string& in = item.entry.path;
    const std::string& out = item.output;
    if (!item.entry.error.empty()) {
      return failure(KpzExitStatus::Input, in, item.entry.error);
    }
    // --skip-existing: an output present and whole is not written again
    // (nor its input read), unless an earlier input of this run took the name.
    bool rewritten = false;
    if (skipExisting && out != "-") {
      if (KpzOutputFile::IsWhole(out)) {
        const KpzClaimWindow::Earlier earlier = turn.WaitForEarlier();
        if (!earlier.taken) {
          KpzBatch::Outcome o;
          o.note = KpzOutputFile::kSkippedNote;
          return o;
        }
      } else {
        std::error_code ec;
        rewritten = std::filesystem::symlink_status(out, ec).type() ==
                    std::filesystem::file_type::regular;
      }
    }
    KpzPictureJob::Options options = want;
    const InputFeed::Item& next = feed.At(i + 1);
    const InputFeed::Item& after = feed.At(i + 2);
    if (readAhead && next.present && next.entry.error.empty()) {
      options.extraction.located = [&](const KpzSource& source,
                                       const KpzPictureReader::Picture& range) {
        KpzReadHint::WillNeed(source.Fd(), range.offset, range.length);  // first this one's
        KpzPrefetch::Picture(next.entry.path, kind);  // then the next, while this one is written
        if (after.present && after.entry.error.empty()) {
          KpzPrefetch::Head(after.entry.path);  // and the head that the next one will look at
        }
      };
    }
    // --upright: the turned picture is made before the output name is
    // claimed (the job asks for it once the picture is in hand), so that
    // files are turned in parallel.
    KpzPictureJob::Done done = KpzPictureJob::Run(in, out, options, [&turn, &out] {
      const KpzClaimWindow::Earlier earlier = turn.WaitForEarlier();
      if (!earlier.taken) {
        return std::string();
      }
      return earlier.named ? KpzClaimWindow::TakenWords(out, earlier.owner)
                           : KpzClaimWindow::TakenEarlierWords(out);
    });
    if (done.wrote) {
      turn.Wrote();
      if (rewritten) {
        done.outcome.note = KpzOutputFile::kRewrittenNote;
      }
    }
    return done.outcome;
  };
  BatchStyle style;
  style.verbose = verbose;
  style.quiet = cmd.quiet;
  style.outIsReport = true;
  style.noun = name;
  style.notStarted = [&claims](std::size_t i) {
    const KpzClaimWindow::Turn ended(claims, i);  // its turn ends, nothing written
  };
  return runBatch(console, inputsOf(feed, count), jobsOf(cmd), task, style,
                  [&claims](std::size_t i) { claims.Release(i); });
}

int runRotate(const Command& cmd) {
  const int chosen = (cmd.clockwise ? 1 : 0) + (cmd.counterClockwise ? 1 : 0) +
                     (cmd.halfTurn ? 1 : 0) + (cmd.codeOption->count() > 0 ? 1 : 0);
  if (chosen != 1) {
    std::fprintf(stderr, "kpz: rotate needs exactly one of --cw, --ccw, --180 or --code N\n");
    return KpzExitCode(KpzExitStatus::Usage);
  }
  KpzRotator::Change change;
  if (cmd.codeOption->count() > 0) {
    if (!KpzRotation::IsCode(cmd.code)) {
      std::fprintf(stderr, "kpz: --code takes a rotation code from %s\n", KpzRotation::kCodeRange);
      return KpzExitCode(KpzExitStatus::Usage);
    }
    change.setCode = true;
    change.code = static_cast<unsigned char>(cmd.code);
  } else if (cmd.clockwise) {
    change.turn = KpzRotation::Direction::Clockwise;
  } else if (cmd.counterClockwise) {
    change.turn = KpzRotation::Direction::CounterClockwise;
  } else {
    change.turn = KpzRotation::Direction::HalfTurn;
  }
  const std::vector<std::string>& files = cmd.files;
  const bool dryRun = cmd.dryRun;
  KpzConsole console(cmd.verbose);
  const auto task = [&files, &change, dryRun](std::size_t i) {
    const KpzRotator::Outcome r = KpzRotator::Rotate(files[i], change, dryRun);
    if (!r.ok) {
      return failure(r.failure == KpzRotator::Failure::Output ? KpzExitStatus::Output : KpzExitStatus::Input,
                     files[i], r.error);
    }
    KpzBatch::Outcome o;
    o.out = KpzRotator::Report(KpzShownName::Of(files[i]), r, dryRun);
    return o;
  };
  // One file after another: a file named twice is turned twice.
  const BatchInputs inputs{[&files](std::size_t i) { return i < files.size(); },
                           [&files](std::size_t i) -> const std::string& { return files[i]; },
                           [&files] { return files.size(); }, [] { return true; }};
  BatchStyle style;
  style.verbose = cmd.verbose;
  style.quiet = cmd.quiet;
  style.outIsReport = true;
  return runBatch(console, inputs, 1, task, style);
}

// The run's status once standard output is flushed: whatever is still in
// its buffers (the help, the version) lost is an output failure.
int finish(int status) {
  std::cout.flush();
  const bool lost = !std::cout.good() || std::fflush(stdout) != 0 || std::ferror(stdout) != 0;
  if (!lost) {
    return status;
  }
  const int err = errno;
  std::fprintf(stderr, "kpz: cannot write to standard output: %s\n",
               err != 0 ? std::strerror(err) : "write failed");
  return std::max(status, KpzExitCode(KpzExitStatus::Output));
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "kpz - shows the metadata of KPZ camera raw files, takes out their preview or thumbnail "
      "JPEG, and turns their pictures",
      "kpz");
  app.require_subcommand(1);
  app.footer(kHelpFooter);
  app.failure_message(usageMessage);
  app.set_version_flag("--version", "kpz " KPZ_VERSION, "print the version and exit");
  // Every subcommand's options with the rules: what the manual page is made of.
  app.set_help_all_flag("--help-all", "print the help of every subcommand too, and exit");
  // -v and -q are taken before the subcommand too ('kpz -v info a.kpz').
  bool allVerbose = false;
  bool allQuiet = false;
  app.add_flag("-v,--verbose", allVerbose, "show the library's diagnostic lines (any subcommand)");
  app.add_flag("-q,--quiet", allQuiet,
               "no progress bar and no report lines (any subcommand; see its -q)");

  Command info;
  CLI::App* infoCmd = addCommon(app, "info", "show the metadata, as a table or as JSON", kInfoFooter, &info);
  addBatchOptions(infoCmd, &info);
  infoCmd->add_flag("--json", info.json, "one JSON object per file and line (JSON Lines)");

  Command preview;
  Command thumbnail;
  const struct {
    const char* name;
    const char* what;
    const char* defaultName;
    Command* cmd;
    const char* examples;
  } pictures[] = {
      {"preview", "write the preview (the large JPEG the camera stored in the file)",
       "FILE's name with .preview.jpg", &preview, kPreviewExamples},
      {"thumbnail", "write the thumbnail (the small JPEG of the file's IFD1)",
       "FILE's name with .thumb.jpg", &thumbnail, kThumbnailExamples},
  };
  for (const auto& p : pictures) {
    CLI::App* sub =
        addCommon(app, p.name, p.what, std::string(kPictureFooter) + p.examples, p.cmd);
    addBatchOptions(sub, p.cmd);
    p.cmd->outputOption = sub->add_option(
        "-o,--output", p.cmd->output,
        std::string("where to write the JPEG: a file, '-' for standard output; with several "
                    "FILEs or a directory, or when it is a directory or ends in '/', an output "
                    "directory (default: ") +
            p.defaultName + ")");
    sub->add_flag("--sync", p.cmd->sync,
                  "flush each output file and its directory to the disk before reporting it "
                  "written (slower; see 'Durability' in 'kpz --help')");
    sub->add_flag("--skip-existing", p.cmd->skipExisting,
                  "an output already present and whole (a JPEG from its first to its last "
                  "marker) is not written again; the summary counts it");
    sub->add_flag("--upright", p.cmd->upright,
                  "write the JPEG turned the right way up, as the file's orientation says "
                  "(lossless where its edges allow; see '--upright' in 'kpz --help')");
    p.cmd->edgesOption =
        sub->add_option("--edges", p.cmd->edges,
                        "with --upright, for edges that are not whole 8- or 16-pixel blocks: "
                        "'reencode' (default: size kept, encoded again at quality 95) or 'trim' "
                        "(lossless, the partial blocks cut off)")
            ->check(CLI::IsMember({"reencode", "trim"}));
  }

  Command rotate;
  CLI::App* rotateCmd =
      addCommon(app, "rotate", "turn the picture by rewriting its orientation in place",
                kRotateFooter, &rotate);
  rotateCmd->add_option("FILE", rotate.files, "KPZ raw files to change")->required();
  rotateCmd->add_flag("--cw", rotate.clockwise, "a quarter turn clockwise");
  rotateCmd->add_flag("--ccw", rotate.counterClockwise, "a quarter turn counter-clockwise");
  rotateCmd->add_flag("--180", rotate.halfTurn, "half a turn");
  rotate.codeOption =
      rotateCmd->add_option("--code", rotate.code, "set rotation code N (0..7) outright");
  rotateCmd->add_flag("-n,--dry-run", rotate.dryRun, "show what would change; write nothing");

  KpzServeCommand serve(app);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    const int code = app.exit(e);  // prints the help, or the error on standard error
    return finish(KpzExitCode(code == 0 ? KpzExitStatus::Ok : KpzExitStatus::Usage));
  }
  for (Command* cmd : {&info, &preview, &thumbnail, &rotate}) {
    cmd->verbose = cmd->verbose || allVerbose;
    cmd->quiet = cmd->quiet || allQuiet;
  }
  if (serve.Chosen()) {
#ifdef KPZ_SERVE_PROGRAM
    // kpz: the server is a program of its own (see KpzServeProgram.h), given
    // this command line as it is.
    return finish(KpzServeProgram::Exec(KPZ_SERVE_PROGRAM, argv));
#else
    // kpz-serve: the server stops on SIGINT/SIGTERM itself (connections
    // drained within a bound), so it runs outside the batch commands'
    // interrupt handling.
    return finish(serve.Run());
#endif
  }
  int status = 0;
  {
    const KpzInterrupt interrupt;  // SIGINT, SIGTERM: the run stops and unwinds
    if (app.got_subcommand("info")) {
      status = runInfo(info);
    } else if (app.got_subcommand("preview")) {
      status = runPicture(KpzPictureReader::Kind::Preview, preview);
    } else if (app.got_subcommand("thumbnail")) {
      status = runPicture(KpzPictureReader::Kind::Thumbnail, thumbnail);
    } else {
      status = runRotate(rotate);
    }
  }
  status = finish(status);
  KpzInterrupt::EndBySignal();  // returns when no signal was caught
  return status;
}
