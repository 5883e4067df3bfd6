// KpzExtraction.h - the one way from a source to its preview or thumbnail,
// which every front end calls.
//
// Part of the kit (kit/kpz), above KpzSource, KpzPictureReader and
// KpzUpright. The steps (open the source and read its head, find the
// picture, read the orientation, read the picture, turn it) are assembled
// here once; the kpz tool, the Python package and kpz.distributed only say
// where the result goes. A failure comes back as a value: its kind, the
// exit status, the errno where the system gave one, the library's result
// code where one applies, and the words kpz prints.
//
//   KpzExtraction::Options want;               // the preview, as stored
//   KpzSource source;
//   KpzExtraction::Outcome got = KpzExtraction::Open(path, &source);
//   if (got.ok()) got = KpzExtraction::Extract(source, want, /*wantBytes=*/false);
//   if (!got.ok()) { print "kpz: " + path + ": " + got.words; exit(got.status) }
//   // the stored picture: got.range.length bytes at got.range.offset of source
//   // (got.bytes holds the turned picture when got.turned)
//
// Every source that reads at an offset (jni/util/io/DtNlReadAt: a file
// opened by Open into a DtNlFdReadAt, bytes in memory, a Python file object)
// takes one road: Extract over the stream reads the head, locates the
// picture, reads it and turns it as asked.
//
// The head-only form serves readers that fetch ranges themselves (a remote
// file read in two ranged requests): Locate over the head held in memory
// (DtNlMemReadAt with the file's size beyond it) gives the picture's range
// and the orientation, or the failure, without any other read.
//
// Holds nothing; every operation is a static function; calls on different
// threads are independent (each uses its own DtRaw).
#ifndef KPZ_KIT_KPZ_KPZEXTRACTION_H
#define KPZ_KIT_KPZ_KPZEXTRACTION_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kpz/KpzExitStatus.h"
#include "kpz/KpzPictureReader.h"
#include "kpz/KpzUpright.h"
#include "raw/DtRawFailure.h"
#include "raw/DtRawRecord.h"
#include "util/DtNlTypes.h"

class DtNlFdReadAt;
class DtNlReadAt;
class KpzSource;

class KpzExtraction {
 public:
  using Kind = KpzPictureReader::Kind;

  struct Options {
    Kind kind = Kind::Preview;
    bool upright = false;  // turn the picture as the file's orientation asks
    KpzUpright::Edges edges = KpzUpright::Edges::Reencode;
    // Called by Extract once the picture is located, before anything of it
    // is read (the kpz tool asks the system to read ahead there); may be
    // empty.
    std::function<void(const KpzSource& source, const KpzPictureReader::Picture& range)> located;
  };

  // A coarse sorting of `kind` (Unreadable: KindUnreadable; NotKpz:
  // KindNotKpz; NoPicture: KindNoPreview and KindNoThumbnail; BadPicture:
  // KindDamaged). Front ends map `kind` itself, each with one table.
  enum class Failure {
    None,
    Unreadable,  // the source cannot be opened or read (errno in `err` when the system's)
    NotKpz,      // its head does not parse as a KPZ file (`code`: the parse's result)
    NoPicture,   // no such picture is recorded, or it is empty
    BadPicture,  // it lies outside the file or out of reach, its location cannot be read,
                 // or it cannot be turned
  };

  struct Outcome {
    DtRawFailure::Kind kind = DtRawFailure::KindNone;  // the one failure kind
    Failure failure = Failure::None;                   // FailureOf(kind)
    KpzExitStatus status = KpzExitStatus::Ok;
    int err = 0;        // the errno of an Unreadable failure; 0 when not the system's
    int code = 0;       // the library's result code, where one applies
    std::string words;  // the failure in kpz's words ("file not found", ...)

    KpzPictureReader::Picture range;        // where the stored picture lies
    KpzUpright::Orientation orientation;    // read when Options::upright
    bool turns = false;                     // the orientation asks for a turn (upright)
    bool turned = false;                    // `bytes` holds the turned picture
    std::vector<UINT8> bytes;               // the picture, when asked for or turned
    KpzUpright::Result turn;                // the turn's details (sizes, treatment)
    std::string remark;                     // the turn in words, for -v ("preview turned ...")
    std::string note;                       // the summary's note for the turn, or empty

    bool ok() const { return kind == DtRawFailure::KindNone; }
  };

  // The coarse sorting of `kind`.
  static Failure FailureOf(DtRawFailure::Kind kind);

  // Opens `path` into *source (its head read). A failure is Unreadable with
  // KpzSource::Open's words and errno.
  static Outcome Open(const std::string& path, KpzSource* source);

  // From an opened source: the picture of `options.kind` located and, with
  // `options.upright`, the orientation read and the picture turned when it
  // asks for a turn (then `bytes` holds the turned picture and `turned` is
  // set). With `wantBytes`, the stored picture is read into `bytes` when it
  // is not turned. A source opened from memory with only its first bytes
  // (OpenMemory with a file size beyond them) cannot be read: ask without
  // `wantBytes` and without `upright`, or use Locate.
  static Outcome Extract(KpzSource& source, const Options& options, bool wantBytes);

  // Open, then Extract: the file at `path`, opened into *source (which the
  // caller keeps, to copy the picture's range from it).
  static Outcome Extract(const std::string& path, KpzSource* source, const Options& options,
                         bool wantBytes);

  // Where Extract(DtNlReadAt&, ...) puts a stored picture's bytes: called
  // once, when the picture is located and will not be turned, with its
  // length; returns that many writable bytes (the caller's), or null when
  // they cannot be had (the extraction then fails: not enough memory).
  using Destination = std::function<UINT8*(std::size_t length)>;

  // Opens `path` into *file for Extract(DtNlReadAt&, ...): a regular file,
  // refused otherwise in the record's words (DtRawRecord::OpenPath: a
  // directory, device, pipe or socket without being read). A failure is
  // Unreadable with the errno where the system gave one.
  static Outcome Open(const std::string& path, DtNlFdReadAt* file);

  // From any source read at an offset: its head read and parsed
  // (DtRawRecord::Read: a failed read is Unreadable, a head that does not
  // parse NotKpz), the picture of `options.kind` located, read
  // (DtRawRecord::ReadPicture: a failed read is Unreadable with its errno,
  // data that ends first Damaged) and, with `options.upright`, turned when
  // the orientation asks for it (then `bytes` holds the turned picture and
  // `turned` is set). The stored picture goes where `into` says or, when
  // `into` is empty, into `bytes`. `options.located` is not called. When
  // the picture's read fails, `range` still tells where it lies (it is
  // empty for every failure before it).
  static Outcome Extract(DtNlReadAt& stream, const Options& options, const Destination& into);

  // The head-only form over any source read at an offset: its head read and
  // parsed as Extract reads it (DtRawRecord::Read), the picture of
  // `options.kind` located and, with `options.upright`, the orientation
  // read (`turns`: Turn does the turn once the picture's bytes are at
  // hand). Nothing else is read: a remote file's head already in memory
  // (DtNlMemReadAt with the file's size beyond the bytes held) is parsed
  // once, and the picture's range is the caller's to fetch.
  static Outcome Locate(DtNlReadAt& stream, const Options& options);

  // Turns the stored picture (`size` bytes at `jpeg`) of *outcome, a
  // successful Locate or Extract with `turns` set: on success `bytes`
  // holds the turned picture; on failure *outcome becomes a BadPicture
  // failure with the words of the turn.
  static void Turn(const UINT8* jpeg, std::size_t size, const Options& options, Outcome* outcome);

 private:
  static Outcome failed(const DtRawFailure& why);
  static Outcome failed(DtRawFailure::Kind kind, int err, std::string words);
  static Outcome locate(const DtRawRecord& record, const Options& options);
};

#endif  // KPZ_KIT_KPZ_KPZEXTRACTION_H
