// KpzGalleryReader.h - what a gallery needs of one KPZ raw file, from one
// read of its head: the orientation, the preview's and the thumbnail's sizes,
// the model and the original date-time, the thumbnail's bytes, the preview's
// bytes into a caller's memory, and, when any of it fails, why, in kinds and
// in the kpz tool's words.
//
// Layer: the top one (jni/), beside the screennail entries, over the one
// record parse (jni/raw/DtRawRecord) and the read-at interface
// (jni/util/io/DtNlReadAt); free of JNI, so that the JNI methods
// (KpzInterfaceGalleryJni.cpp) only move its answers into Java objects, and
// tests can drive it directly. Its failures are DtRawFailure's: one list of
// kinds, numbered as the Java enum KpzException.Kind, in the kpz tool's words.
//
// The file is opened by path, or taken as a caller's descriptor (borrowed:
// read only with pread, so its offset never moves, and never closed). Open
// reads the head once (the first 64 KiB, zeros after a shorter file's end)
// and parses it into a DtRawRecord; every later answer comes from that
// record. A picture is located on the record's terms (the kpz tool's), so
// nothing is ever allocated or read for a size the file does not hold, nor
// for a huge thumbnail; a thumbnail that lies in the head is copied from it
// without another read.
//
//   KpzGalleryReader reader;
//   DtRawFailure why;
//   KpzGalleryReader::Info info;
//   if (reader.OpenPath("/sdcard/DCIM/a.kpz", &why) && reader.GetInfo(&info)) { ... }
//   KpzGalleryReader::Picture thumb;
//   if (reader.Locate(KpzGalleryReader::PictureThumbnail, &thumb, &why)) {
//     std::vector<UINT8> jpeg(thumb.m_length);
//     reader.Read(thumb, jpeg.data(), &why);
//   }
//
// Owns the head buffer and, through its DtNlFdReadAt, a descriptor it opened
// itself (closed by the destructor); no global state. One object per call
// and thread; separate objects may run on separate threads at once, also
// over one descriptor.
#ifndef KPZ_JNI_KPZGALLERYREADER_H
#define KPZ_JNI_KPZGALLERYREADER_H

#include <cstdint>
#include <memory>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawFailure.h"
#include "raw/DtRawRecord.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlReadAt.h"

class KpzGalleryReader {
 public:
  // Bytes of the head: DtRaw::READ_SIZE.
  static constexpr UINT HEAD_SIZE = DtRawRecord::HEAD_SIZE;

  // Bytes offered to DtRaw::GetModelName, as the kpz tool offers them.
  static constexpr UINT MODEL_SIZE = DtRawRecord::MODEL_SIZE;

  // The library's one failure record (kind, errno, code, words); its own
  // name here keeps the library's exported signatures.
  struct Failure : public DtRawFailure {};

  // Numbered as DtRawRecord::Picture.
  enum PictureKind : INT32 { PicturePreview, PictureThumbnail };

  // Where a picture lies: m_length bytes (at least 1) at m_offset, wholly
  // inside the file.
  struct Picture {
    PictureKind m_kind = PicturePreview;
    std::uint64_t m_offset = 0;
    UINT32 m_length = 0;
  };

  struct Info {
    UINT16 m_orientation = 1;            // Exif orientation 1-8 (1 when not recorded)
    bool m_orientationRecorded = false;  // IFD0 records one
    UINT16 m_previewWidth = 0;           // pixels; 0 when not recorded or no usable preview
    UINT16 m_previewHeight = 0;
    UINT32 m_previewLength = 0;    // bytes; 0 when there is no usable preview
    UINT32 m_thumbnailLength = 0;  // bytes; 0 when there is no usable thumbnail (none,
                                   // empty, outside the file or too large)
    bool m_hasModel = false;
    char m_model[MODEL_SIZE] = {};  // zero-terminated, as the file records it
    bool m_hasDateTime = false;
    DtRawDateTime m_dateTime;  // the original date-time, as recorded
  };

  KpzGalleryReader();
  ~KpzGalleryReader();
  KpzGalleryReader(const KpzGalleryReader&) = delete;
  KpzGalleryReader& operator=(const KpzGalleryReader&) = delete;

  // Opens `path` read-only (without waiting on a named pipe), reads its head
  // and parses it. False with *why set when the file cannot be opened or read
  // (KindUnreadable), is a directory or not a regular file (KindUnreadable,
  // in the tool's words for it) or does not parse (KindNotKpz, with the
  // reason in the words).
  bool OpenPath(const char* path, Failure* why);

  // As OpenPath over the caller's descriptor `fd`, which is only borrowed.
  // A negative descriptor fails as EBADF; a pipe or socket as ESPIPE.
  bool OpenFd(int fd, Failure* why);

  // The file's info. Only after a successful Open.
  void GetInfo(Info* info);

  // Locates the picture of `kind` (DtRawRecord::Locate). False with *why
  // set: KindNoPreview / KindNoThumbnail when none is recorded or it is
  // empty, KindDamaged when it does not lie inside the file, lies beyond
  // 2 GiB (a preview), is larger than DtRawErrorText::THUMBNAIL_MAX_SIZE (a
  // thumbnail) or its location cannot be read; KindUnreadable before a
  // successful Open.
  bool Locate(PictureKind kind, Picture* picture, Failure* why);

  // Reads `picture` (from Locate) into `out`, which holds at least
  // picture.m_length bytes: from the head when it lies there, else through
  // the descriptor. False with *why set when the read fails (KindUnreadable
  // with the errno) or the file ends first (KindDamaged).
  bool Read(const Picture& picture, UINT8* out, Failure* why);

  // The head, when it lies there wholly: a pointer to the picture's bytes in
  // it; null otherwise.
  const UINT8* InHead(const Picture& picture) const;

  // The word for `kind` in the words: "preview" or "thumbnail".
  static const char* Name(PictureKind kind);

 private:
  // Takes `fd` (closed by the destructor when `owned`) and refuses what is
  // not a regular file; then readHead and parse.
  bool openDescriptor(int fd, bool owned, Failure* why);
  bool readHead(Failure* why);
  bool parse(Failure* why);

  DtNlFdReadAt m_file;
  std::unique_ptr<UINT8[]> m_head;
  UINT m_headRead;  // bytes of the head that came from the file
  bool m_parsed;
  DtRawRecord m_record;
  Info m_info;
};

#endif  // KPZ_JNI_KPZGALLERYREADER_H
