// KpzPictureJob.h - one input of a picture command (preview, thumbnail): its
// picture taken out, its output name claimed, the picture written, and the
// outcome told as every front end tells it.
//
// Part of the kit (kit/kpz), above KpzExtraction, KpzOutputFile and
// KpzBatch. The kpz tool runs it as a batch task; the Python package runs it
// for each local input of a batch (kit.picture_job). What it decides once
// for all of them: the output's default suffix, the exit status of each
// failure (the input's, the output's, an output that would replace its
// input), the 'wrote <name> (<n> bytes)' line, the remark of a turned
// picture and the summary's note.
//
//   KpzPictureJob::Options want;                  // the preview, as stored
//   KpzPictureJob::Done done = KpzPictureJob::Run("a.kpz", "out/a.preview.jpg", want,
//       [&] { return claims.Refusal(); });        // "" to write, else the words refusing
//   // done.outcome: status, the line for standard output, the error line, reason, note
//
// Holds nothing; every operation is a static function; calls on different
// threads are independent.
#ifndef KPZ_KIT_KPZ_KPZPICTUREJOB_H
#define KPZ_KIT_KPZ_KPZPICTUREJOB_H

#include <cstdint>
#include <functional>
#include <string>

#include "kpz/KpzBatch.h"
#include "kpz/KpzExitStatus.h"
#include "kpz/KpzExtraction.h"

class KpzPictureJob {
 public:
  using Kind = KpzPictureReader::Kind;

  struct Options {
    KpzExtraction::Options extraction;  // kind, upright, edges; `located` a hook
    bool sync = false;     // the output flushed to the disk before it is reported written
    bool verbose = false;  // every remark of a turn told, not only a trimmed picture's
  };

  // Asked once the picture is in hand, just before it is written (it may
  // wait for earlier inputs of the same output name): the words refusing
  // the output name to this input (KpzClaimWindow::TakenWords), or "" to
  // write it.
  using Refusal = std::function<std::string()>;

  // What one input came to, and whether its output was written.
  struct Done {
    KpzBatch::Outcome outcome;
    bool wrote = false;
  };

  // Takes the picture of `input` out and writes it to `output` ("-":
  // standard output). A failure to read is the input's (its error line
  // names the input, exit status 1); an output refused by `refusal` is
  // told with those words (status 3, the summary's reason
  // KpzClaimWindow::kTakenReason); an output that would replace its input
  // is a usage error (status 2, the line names the output); one that cannot
  // be written is the output's (status 3, the line names the output, or
  // '(standard output)'). A written output gives the 'wrote' line (none for
  // standard output), the remark of a trimmed turn on standard error (every
  // remark with `verbose`) and the turn's note.
  static Done Run(const std::string& input, const std::string& output, const Options& options,
                  const Refusal& refusal);

  // The output name's suffix of a kind: ".preview.jpg" or ".thumb.jpg".
  static const char* Suffix(Kind kind);

  // "wrote <output> (<bytes> bytes)\n", the name shown as KpzShownName
  // shows it.
  static std::string WroteLine(const std::string& output, std::uint64_t bytes);
};

#endif  // KPZ_KIT_KPZ_KPZPICTUREJOB_H
