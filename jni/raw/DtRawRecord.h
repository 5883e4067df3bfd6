// DtRawRecord.h - what a reader needs of one KPZ raw file, from one parse of
// its head: where its preview and its thumbnail lie (or why each cannot be
// had), its orientation, model and original date-time; or, when the head
// does not parse or cannot be read, one failure (DtRawFailure) in place of
// all of it.
//
// Layer: jni/raw, over the facade (DtRaw), the failure words (DtRawErrorText)
// and the read-at interface (jni/util/io/DtNlReadAt). Every reader of a file
// goes through here: the JNI gallery entries (KpzGalleryReader), the kit and
// through it the kpz tool, the Python package (a path, a buffer, a file
// object, a remote file's head already in memory) and kpz.distributed. A
// picture is located on one set of terms, the kpz tool's: at least one
// byte, wholly inside the file, a preview's offset below 2 GiB (read as a
// signed 32-bit number, as getScreennailNative reads it), a thumbnail of at
// most DtRawErrorText::THUMBNAIL_MAX_SIZE bytes. So nothing is allocated or
// read for a size the file does not hold.
//
// The head is the file's first HEAD_SIZE bytes with zeros after the end of a
// shorter file, exactly as DtRaw::Initialize lays out its copy, so a file
// parses alike by path, descriptor and buffer.
//
//   DtNlFdReadAt file;
//   DtRawFailure why;
//   std::unique_ptr<UINT8[]> head(new UINT8[DtRawRecord::HEAD_SIZE]);
//   if (!DtRawRecord::OpenPath(&file, "a.kpz", &why)) { ... why.m_words ... }
//   const DtRawExpected<DtRawRecord> record = DtRawRecord::Read(file, head.get());
//   if (!record) { ... record.Failure() ... }
//   const DtRawExpected<DtRawRecord::Range> preview = record->Locate(DtRawRecord::PicturePreview);
//
// A plain record: no pointers, copyable; every operation is static or const
// and safe on any thread.
#ifndef KPZ_RAW_DTRAWRECORD_H
#define KPZ_RAW_DTRAWRECORD_H

#include <cstddef>
#include <cstdint>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawExpected.h"
#include "raw/DtRawFailure.h"
#include "util/DtNlTypes.h"

class DtNlReadAt;
class DtNlFdReadAt;
class DtRaw;
class DtRawHeadIo;

class DtRawRecord {
 public:
  // Bytes of the head: DtRaw::READ_SIZE.
  static constexpr UINT HEAD_SIZE = 0x10000;

  // Bytes kept of the model, as the kpz tool offers them to DtRaw::GetModelName.
  static constexpr UINT MODEL_SIZE = 256;

  enum Picture : INT32 { PicturePreview, PictureThumbnail };

  // Where a picture lies: m_length bytes (at least 1) at m_offset, wholly
  // inside the file.
  struct Range {
    Picture m_picture = PicturePreview;
    std::uint64_t m_offset = 0;
    UINT32 m_length = 0;
  };

  // ---- opening -------------------------------------------------------------

  // Opens `path` into *file (read-only, without waiting on a named pipe) and
  // refuses what is not a regular file. False with *why set (KindUnreadable):
  // the system's error in DtRawErrorText::ReadError's words, a directory
  // (EISDIR, DtRawErrorText::Directory()), a device, pipe or socket
  // (DtRawErrorText::NotRegular(); m_errno ESPIPE for a pipe or socket, else 0).
  [[nodiscard]] static bool OpenPath(DtNlFdReadAt* file, const char* path, DtRawFailure* why);

  // As OpenPath over the descriptor `fd`: borrowed (never closed) unless
  // `owned` (then *file closes it, also when this fails). A negative
  // descriptor fails as EBADF.
  [[nodiscard]] static bool OpenFd(DtNlFdReadAt* file, int fd, DtRawFailure* why,
                                   bool owned = false);

  // ---- the parse -----------------------------------------------------------

  // What a parse fills: the pictures' ranges and the orientation always;
  // the model and the original date-time only with FieldsAll (decoding the
  // date-time costs about as much as the rest of a lookup, and locating a
  // picture does not need it).
  enum Fields : INT32 { FieldsPictures, FieldsAll };

  // Reads the head of `stream` into `head` (HEAD_SIZE bytes, the caller's;
  // zeros after the data's end) and parses it, or parses the stream's own
  // memory without a copy when it holds the whole head (DtNlReadAt::View;
  // `head` is then left as it was). A failed read is KindUnreadable
  // (ReadError's words); a head that does not parse, KindNotKpz with the
  // parse's result code, and the words, reason, part and offset of where
  // and why the parser recorded that it stopped (DtRawErrorText::Stopped,
  // read from the parse's own head channel, DtRawHeadIo: the head is not
  // walked again). A code that is not about the layout, such as a failed
  // allocation, is KindUnreadable in the code's own words.
  static DtRawExpected<DtRawRecord> Read(DtNlReadAt& stream, UINT8* head,
                                         Fields fields = FieldsAll);

  // Parses `head`, the first `length` bytes of a file of `fileSize` bytes
  // (the rest of HEAD_SIZE is taken as zeros). `length` beyond HEAD_SIZE is
  // taken as HEAD_SIZE. For readers that fetched the head themselves.
  static DtRawExpected<DtRawRecord> Parse(const UINT8* head, std::size_t length,
                                          std::uint64_t fileSize, Fields fields = FieldsAll);

  // Has the parse of `raw`'s next Initialize or InitializeBuf run through
  // the head channel `io` (borrowed: it must outlive that call; null: the
  // facade's own channel), which records where and why it stops (DtRawErrorText::Stopped
  // reads that) and, when asked (DtRawHeadIo::KeepPlaces), where the entries
  // it kept lie. For a caller that works through the facade (its getters, or
  // its write-back, which needs its file mode) and takes the failure's words
  // and the entries' places from that same one parse.
  // `raw` is finalized first (a parse finalizes it anyway); the channel is
  // lent through the facade's engine (DtRawHeadEng), for one parse: a later
  // Initialize after Finalize parses as ever.
  static void ParseThrough(DtRaw* raw, DtRawHeadIo* io);

  // ---- the answers ---------------------------------------------------------

  // The picture `which` on the terms above, or why it cannot be had:
  // KindNoPreview / KindNoThumbnail when none is recorded or it is empty,
  // KindDamaged when its location cannot be read, it does not lie inside the
  // file, lies beyond 2 GiB (a preview) or is larger than
  // DtRawErrorText::THUMBNAIL_MAX_SIZE (a thumbnail).
  DtRawExpected<Range> Locate(Picture which) const;

  // Reads `range` of `stream` into `out` (at least range.m_length bytes).
  // False with *why set when the read fails (KindUnreadable with the errno)
  // or the data ends first (KindDamaged), in PictureReadError's words.
  [[nodiscard]] static bool ReadPicture(DtNlReadAt& stream, const Range& range, UINT8* out,
                                        DtRawFailure* why);

  // The word for `which`: "preview" or "thumbnail".
  static const char* Name(Picture which);

  std::uint64_t m_fileSize = 0;
  UINT m_headRead = 0;                 // bytes of the head that are the file's
  UINT16 m_orientation = 1;            // Exif orientation 1-8 (1 when not recorded)
  bool m_orientationRecorded = false;  // IFD0 records one
  int m_rotationResult = 0;            // DtRaw::GetRotationInfo's result (0, -100 none, ...)
  UINT8 m_rotationCode = 0;            // its rotation code when the result is 0
  INT32 m_orientationStored = -1;      // IFD0's orientation value as stored (any 16-bit
                                       // number, 0 and 9 upwards too); -1 when none is
  UINT16 m_previewWidth = 0;           // pixels as recorded; 0 when not recorded
  UINT16 m_previewHeight = 0;
  bool m_hasModel = false;        // (FieldsAll only)
  char m_model[MODEL_SIZE] = {};  // zero-terminated, as the file records it
  bool m_hasDateTime = false;     // (FieldsAll only)
  DtRawDateTime m_dateTime;       // the original date-time, as recorded

 private:
  // What the facade's getters answered, for Locate.
  int m_previewResult = 0;
  UINT32 m_previewOffset = 0;
  UINT32 m_previewSize = 0;
  int m_thumbnailResult = 0;
  UINT32 m_thumbnailOffset = 0;
  UINT32 m_thumbnailSize = 0;

  static DtRawExpected<DtRawRecord> parseFull(UINT8* head, UINT headRead, std::uint64_t fileSize,
                                              Fields fields);
};

#endif  // KPZ_RAW_DTRAWRECORD_H
