// KpzExtraction.cpp - from a source to its picture, once for every front
// end. See the header.
#include "kpz/KpzExtraction.h"

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "kpz/KpzSource.h"
#include "util/io/DtNlReadAt.h"

KpzExtraction::Failure KpzExtraction::FailureOf(DtRawFailure::Kind kind) {
  switch (kind) {
    case DtRawFailure::KindNone:
      return Failure::None;
    case DtRawFailure::KindNotKpz:
      return Failure::NotKpz;
    case DtRawFailure::KindNoPreview:
    case DtRawFailure::KindNoThumbnail:
      return Failure::NoPicture;
    case DtRawFailure::KindDamaged:
      return Failure::BadPicture;
    case DtRawFailure::KindUnreadable:
    default:
      return Failure::Unreadable;
  }
}

KpzExtraction::Outcome KpzExtraction::failed(const DtRawFailure& why) {
  Outcome o;
  o.kind = why.m_kind;
  o.failure = FailureOf(why.m_kind);
  // Every failure to get a picture of an input is the input's: one status.
  o.status = KpzExitStatus::Input;
  o.err = why.m_errno;
  o.code = why.m_code;
  o.words = why.m_words;
  return o;
}

KpzExtraction::Outcome KpzExtraction::failed(DtRawFailure::Kind kind, int err,
                                             std::string words) {
  Outcome o;
  o.kind = kind;
  o.failure = FailureOf(kind);
  o.status = KpzExitStatus::Input;
  o.err = err;
  o.words = std::move(words);
  return o;
}

KpzExtraction::Outcome KpzExtraction::Open(const std::string& path, KpzSource* source) {
  std::string why;
  if (!source->Open(path, &why)) {
    return failed(DtRawFailure::KindUnreadable, source->Errno(), std::move(why));
  }
  return Outcome();
}

KpzExtraction::Outcome KpzExtraction::Extract(KpzSource& source, const Options& options,
                                              bool wantBytes) {
  const DtRawExpected<DtRawRecord> record = KpzPictureReader::Parse(source);
  if (!record) {
    return failed(record.Failure());
  }
  Outcome o = locate(*record, options);
  if (!o.ok()) {
    return o;
  }
  if (options.located) {
    options.located(source, o.range);
  }
  if (!o.turns && !wantBytes) {
    return o;
  }
  const char* name = KpzPictureReader::Name(options.kind);
  std::vector<UINT8> stored;
  try {
    stored.resize(o.range.length);  // at most the file's size: Find checked the range
  } catch (const std::bad_alloc&) {
    return failed(DtRawFailure::KindUnreadable, 0,
                  std::string("not enough memory to read the ") + name +
                      (o.turns ? " and turn it" : ""));
  }
  std::string why;
  if (!source.ReadAt(o.range.offset, o.range.length, stored.data(), name, &why)) {
    // As DtRawRecord::ReadPicture sorts it: the file ended first (errno 0)
    // is damage, an error of the system makes it unreadable.
    const int err = source.Errno();
    return failed(err != 0 ? DtRawFailure::KindUnreadable : DtRawFailure::KindDamaged, err,
                  std::move(why));
  }
  if (!o.turns) {
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

KpzExtraction::Outcome KpzExtraction::Open(const std::string& path, DtNlFdReadAt* file) {
  DtRawFailure why;
  if (!DtRawRecord::OpenPath(file, path.c_str(), &why)) {
    return failed(why);
  }
  // The head and one picture are all that is read (KpzSource::ReadHead).
  file->AdviseReadOnly();
  return Outcome();
}

KpzExtraction::Outcome KpzExtraction::Locate(DtNlReadAt& stream, const Options& options) {
  // The head is parsed where it lies when the stream holds it in memory.
  std::unique_ptr<UINT8[]> head;
  const bool inMemory = stream.Size() >= DtRawRecord::HEAD_SIZE &&
                        stream.View(0, DtRawRecord::HEAD_SIZE) != nullptr;
  if (!inMemory) {
    head.reset(new (std::nothrow) UINT8[DtRawRecord::HEAD_SIZE]);
    if (!head) {
      return failed(DtRawFailure::KindUnreadable, ENOMEM, KpzSource::ReadErrorWords(ENOMEM));
    }
  }
  const DtRawExpected<DtRawRecord> record =
      DtRawRecord::Read(stream, head.get(), DtRawRecord::FieldsPictures);
  if (!record) {
    return failed(record.Failure());
  }
  return locate(*record, options);
}

KpzExtraction::Outcome KpzExtraction::Extract(DtNlReadAt& stream, const Options& options,
                                              const Destination& into) {
  Outcome o = Locate(stream, options);  // the head is released before the picture is read
  if (!o.ok()) {
    return o;
  }
  DtRawRecord::Range range;
  range.m_picture = KpzPictureReader::Which(options.kind);
  range.m_offset = o.range.offset;
  range.m_length = o.range.length;
  const char* name = KpzPictureReader::Name(options.kind);
  std::vector<UINT8> stored;
  UINT8* to = nullptr;
  if (!o.turns && into) {
    to = into(o.range.length);
  } else {
    try {
      stored.resize(o.range.length);  // at most the file's size: Locate checked the range
      to = stored.data();
    } catch (const std::bad_alloc&) {
      to = nullptr;
    }
  }
  if (to == nullptr) {
    return failed(DtRawFailure::KindUnreadable, 0,
                  std::string("not enough memory to read the ") + name +
                      (o.turns ? " and turn it" : ""));
  }
  DtRawFailure why;
  if (!DtRawRecord::ReadPicture(stream, range, to, &why)) {
    Outcome f = failed(why);
    f.range = o.range;  // where the picture lies, for the caller's words
    return f;
  }
  if (!o.turns) {
    o.bytes = std::move(stored);  // empty when it went `into`
    return o;
  }
  Turn(stored.data(), stored.size(), options, &o);
  return o;
}

KpzExtraction::Outcome KpzExtraction::locate(const DtRawRecord& record, const Options& options) {
  Outcome o;
  const DtRawExpected<DtRawRecord::Range> range =
      record.Locate(KpzPictureReader::Which(options.kind));
  if (!range) {
    return failed(range.Failure());
  }
  o.range.offset = range->m_offset;
  o.range.length = range->m_length;
  if (options.upright) {
    o.orientation = KpzUpright::OrientationOf(record);
    o.turns = KpzUpright::Turns(o.orientation);
    if (!o.turns) {
      // Not turned: only the remark ("preview not turned: ...").
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
    *outcome = failed(DtRawFailure::KindDamaged, 0, std::move(applied.error));
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
