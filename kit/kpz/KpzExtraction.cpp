// KpzExtraction.cpp - from a source to its picture, once for every front
// end. See the header.
#include "kpz/KpzExtraction.h"

#include <new>
#include <utility>

#include "kpz/KpzSource.h"

namespace {

KpzExtraction::Failure failureOf(KpzPictureReader::Failure found) {
  switch (found) {
    case KpzPictureReader::Failure::None:
      return KpzExtraction::Failure::None;
    case KpzPictureReader::Failure::NotKpz:
      return KpzExtraction::Failure::NotKpz;
    case KpzPictureReader::Failure::NoPicture:
      return KpzExtraction::Failure::NoPicture;
    case KpzPictureReader::Failure::Unusable:
    case KpzPictureReader::Failure::Location:
      break;
  }
  return KpzExtraction::Failure::BadPicture;
}

}  // namespace

KpzExtraction::Outcome KpzExtraction::failed(Failure failure, KpzExitStatus status, int err,
                                             int code, std::string words) {
  Outcome o;
  o.failure = failure;
  o.status = status;
  o.err = err;
  o.code = code;
  o.words = std::move(words);
  return o;
}

KpzExtraction::Outcome KpzExtraction::Open(const std::string& path, KpzSource* source) {
  std::string why;
  if (!source->Open(path, &why)) {
    return failed(Failure::Unreadable, KpzExitStatus::Input, source->Errno(), 0, std::move(why));
  }
  return Outcome();
}

KpzExtraction::Outcome KpzExtraction::Extract(KpzSource& source, const Options& options,
                                              bool wantBytes) {
  Outcome o;
  KpzPictureReader::Problem problem;
  std::string why;
  if (!KpzPictureReader::Find(source, options.kind, &o.range, &why, &problem)) {
    return failed(failureOf(problem.failure), KpzExitStatus::Input, 0, problem.code,
                  std::move(why));
  }
  if (options.located) {
    options.located(source, o.range);
  }
  if (options.upright) {
    o.orientation = KpzUpright::ReadOrientation(source.Head(), KpzSource::kHeadSize);
    o.turns = KpzUpright::Turns(o.orientation);
  }
  if (!o.turns && !wantBytes) {
    if (options.upright) {
      // Not turned: only the remark ("preview not turned: ...").
      o.remark = KpzUpright::Apply(o.orientation, nullptr, 0, options.edges,
                                   KpzPictureReader::Name(options.kind))
                     .remark;
    }
    return o;
  }
  const char* name = KpzPictureReader::Name(options.kind);
  std::vector<UINT8> stored;
  try {
    stored.resize(o.range.length);  // at most the file's size: Find checked the range
  } catch (const std::bad_alloc&) {
    return failed(Failure::Unreadable, KpzExitStatus::Input, 0, 0,
                  std::string("not enough memory to read the ") + name +
                      (o.turns ? " and turn it" : ""));
  }
  if (!source.ReadAt(o.range.offset, o.range.length, stored.data(), name, &why)) {
    const int err = source.Errno();
    return failed(err != 0 ? Failure::Unreadable : Failure::BadPicture, KpzExitStatus::Input, err,
                  0, std::move(why));
  }
  if (!o.turns) {
    if (options.upright) {
      o.remark = KpzUpright::Apply(o.orientation, nullptr, 0, options.edges, name).remark;
    }
    o.bytes = std::move(stored);
    return o;
  }
  Turn(stored.data(), stored.size(), options, &o);
  return o;
}

KpzExtraction::Outcome KpzExtraction::Extract(const std::string& path, KpzSource* source,
                                              const Options& options, bool wantBytes) {
  Outcome opened = Open(path, source);
  if (!opened.ok()) {
    return opened;
  }
  return Extract(*source, options, wantBytes);
}

KpzExtraction::Outcome KpzExtraction::Locate(const UINT8* head, std::size_t length,
                                             std::uint64_t fileSize, const Options& options) {
  KpzSource source;
  source.OpenMemory(head, length, fileSize);
  Outcome o;
  KpzPictureReader::Problem problem;
  std::string why;
  if (!KpzPictureReader::Find(source, options.kind, &o.range, &why, &problem)) {
    return failed(failureOf(problem.failure), KpzExitStatus::Input, 0, problem.code,
                  std::move(why));
  }
  if (options.upright) {
    o.orientation = KpzUpright::ReadOrientation(source.Head(), KpzSource::kHeadSize);
    o.turns = KpzUpright::Turns(o.orientation);
    if (!o.turns) {
      o.remark = KpzUpright::Apply(o.orientation, nullptr, 0, options.edges,
                                   KpzPictureReader::Name(options.kind))
                     .remark;
    }
  }
  return o;
}

void KpzExtraction::Turn(const UINT8* jpeg, std::size_t size, const Options& options,
                         Outcome* outcome) {
  KpzUpright::Applied applied = KpzUpright::Apply(outcome->orientation, jpeg, size, options.edges,
                                                  KpzPictureReader::Name(options.kind));
  if (applied.turns && !applied.result.ok) {
    *outcome = failed(Failure::BadPicture, KpzExitStatus::Input, 0, 0, std::move(applied.error));
    return;
  }
  outcome->remark = std::move(applied.remark);
  if (!applied.turns) {
    return;
  }
  outcome->turned = true;
  outcome->note = KpzUpright::SummaryNote(applied.result);
  outcome->bytes = std::move(applied.result.jpeg);
  outcome->turn = std::move(applied.result);
}
