// KpzPictureJob.cpp - one input of a picture command, from its source to its
// written output and the lines that tell it (kit/kpz). See KpzPictureJob.h.

#include "kpz/KpzPictureJob.h"

#include "kpz/KpzClaimWindow.h"
#include "kpz/KpzOutputFile.h"
#include "kpz/KpzShownName.h"
#include "kpz/KpzSource.h"

KpzPictureJob::Done KpzPictureJob::Run(const std::string& input, const std::string& output,
                                       const Options& options, const Refusal& refusal) {
  Done done;
  KpzSource source;
  const KpzExtraction::Outcome got =
      KpzExtraction::Extract(input, &source, options.extraction, /*wantBytes=*/false);
  if (!got.ok()) {
    done.outcome = KpzBatch::Failure(got.status, input, got.words);
    return done;
  }
  const std::string refused = refusal ? refusal() : std::string();
  if (!refused.empty()) {
    done.outcome = KpzBatch::Failure(KpzExitStatus::Output, input, refused);
    done.outcome.reason = KpzClaimWindow::kTakenReason;
    return done;
  }
  std::string why;
  const KpzOutputFile::Status status =
      got.turned ? KpzOutputFile::Put(output, source, got.bytes, options.sync, &why)
                 : KpzOutputFile::Copy(output, source, got.range.offset, got.range.length,
                                       KpzPictureReader::Name(options.extraction.kind),
                                       options.sync, &why);
  switch (status) {
    case KpzOutputFile::Status::Done:
      break;
    case KpzOutputFile::Status::InputFailed:
      done.outcome = KpzBatch::Failure(KpzExitStatus::Input, input, why);
      return done;
    case KpzOutputFile::Status::WouldReplaceInput:
      done.outcome = KpzBatch::Failure(KpzExitStatus::Usage, output, why);
      return done;
    case KpzOutputFile::Status::OutputFailed:
      done.outcome = KpzBatch::Failure(KpzExitStatus::Output,
                                       output == "-" ? "(standard output)" : output, why);
      return done;
  }
  done.wrote = true;
  KpzBatch::Outcome& o = done.outcome;
  if (output != "-") {
    o.out = WroteLine(output, got.turned ? got.bytes.size() : got.range.length);
  }
  // A trimmed picture is smaller than the stored one: always said.
  if (!got.remark.empty() &&
      (options.verbose || (got.turned && got.turn.treatment == KpzUpright::Treatment::Trimmed))) {
    o.err = "kpz: " + KpzShownName::Of(input) + ": " + got.remark + "\n";
  }
  o.note = got.note;
  return done;
}

const char* KpzPictureJob::Suffix(Kind kind) {
  return kind == Kind::Preview ? ".preview.jpg" : ".thumb.jpg";
}

std::string KpzPictureJob::WroteLine(const std::string& output, std::uint64_t bytes) {
  return "wrote " + KpzShownName::Of(output) + " (" + std::to_string(bytes) + " bytes)\n";
}
