// KpzGalleryReader.h - what a gallery needs of one KPZ raw file, from one
// read of its head: the orientation, the preview's and the thumbnail's sizes,
// the model and the original date-time, the thumbnail's bytes, the preview's
// bytes into a caller's memory, and, when any of it fails, why, in kinds and
// in the kpz tool's words.
//
// Layer: the top one (jni/), beside the screennail entries, above the raw
// facade (jni/raw/DtRaw, DtRawErrorText, DtRawLayoutCheck); free of JNI, so
// that the JNI methods (KpzInterfaceGalleryJni.cpp) only move its answers into
// Java objects, and tests can drive it directly.
//
// The file is opened by path, or taken as a caller's descriptor (borrowed:
// read only with pread, so its offset never moves, and never closed). Open
// reads the head once (the first 64 KiB, zeros after a shorter file's end)
// and parses it with DtRaw::InitializeBuf; every later answer comes from that
// parse. A picture is located on the kpz tool's terms (at least one byte,
// wholly inside the file, a preview's offset below 2 GiB, a thumbnail of at
// most DtRawErrorText::THUMBNAIL_MAX_SIZE bytes), so nothing is ever
// allocated or read for a size the file does not hold, nor for a huge
// thumbnail; a thumbnail that lies in the head is copied from it without
// another read.
//
//   KpzGalleryReader reader;
//   KpzGalleryReader::Failure why;
//   KpzGalleryReader::Info info;
//   if (reader.OpenPath("/sdcard/DCIM/a.kpz", &why) && reader.GetInfo(&info)) { ... }
//   KpzGalleryReader::Picture thumb;
//   if (reader.Locate(KpzGalleryReader::PictureThumbnail, &thumb, &why)) {
//     std::vector<UINT8> jpeg(thumb.m_length);
//     reader.Read(thumb, jpeg.data(), &why);
//   }
//
// Owns the head buffer and a descriptor it opened itself (closed by the
// destructor); no global state. One object per call and thread; separate
// objects may run on separate threads at once, also over one descriptor.
#ifndef KPZ_JNI_KPZGALLERYREADER_H
#define KPZ_JNI_KPZGALLERYREADER_H

#include <cstdint>
#include <memory>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawErrorText.h"
#include "util/DtNlTypes.h"

class KpzGalleryReader {
 public:
  // Bytes of the head: DtRaw::READ_SIZE.
  static constexpr UINT HEAD_SIZE = 0x10000;

  // Bytes offered to DtRaw::GetModelName, as the kpz tool offers them.
  static constexpr UINT MODEL_SIZE = 256;

  // The kinds of failure, numbered as the Java enum KpzException.Kind.
  enum Kind : INT32 {
    KindNone = -1,
    KindNotKpz = 0,       // laid out as something else, not a KPZ raw file
    KindDamaged = 1,      // a KPZ file cut short or with broken pointers, or a picture
                          // that does not lie inside the file
    KindNoPreview = 2,    // no preview recorded, or an empty one
    KindNoThumbnail = 3,  // no thumbnail recorded, or an empty one
    KindUnreadable = 4,   // cannot be opened or read (m_errno: the system's error, or 0)
  };

  struct Failure {
    Kind m_kind = KindNone;
    int m_errno = 0;
    char m_words[DtRawErrorText::WORDS_SIZE] = {};  // the kpz tool's words, zero-terminated
  };

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
  // in the tool's words for it) or does not parse (KindNotKpz or
  // KindDamaged, with the reason the layout check finds).
  bool OpenPath(const char* path, Failure* why);

  // As OpenPath over the caller's descriptor `fd`, which is only borrowed.
  // A negative descriptor fails as EBADF; a pipe or socket as ESPIPE.
  bool OpenFd(int fd, Failure* why);

  // The file's info. Only after a successful Open.
  void GetInfo(Info* info);

  // Locates the picture of `kind` on the kpz tool's terms. False with *why
  // set: KindNoPreview / KindNoThumbnail when none is recorded or it is
  // empty, KindDamaged when it does not lie inside the file, lies beyond
  // 2 GiB (a preview), is larger than DtRawErrorText::THUMBNAIL_MAX_SIZE (a
  // thumbnail) or its location cannot be read. Only after a
  // successful Open.
  bool Locate(PictureKind kind, Picture* picture, Failure* why);

  // Reads `picture` (from Locate) into `out`, which holds at least
  // picture.m_length bytes: from the head when it lies there, else with
  // pread. False with *why set when the read fails (KindUnreadable with the
  // errno) or the file ends first (KindDamaged).
  bool Read(const Picture& picture, UINT8* out, Failure* why);

  // The head, when it lies there wholly: a pointer to the picture's bytes in
  // it; null otherwise.
  const UINT8* InHead(const Picture& picture) const;

  // The word for `kind` in the words: "preview" or "thumbnail".
  static const char* Name(PictureKind kind);

 private:
  bool openDescriptor(int fd, bool owned, Failure* why);
  bool readHead(Failure* why);
  bool parse(Failure* why);

  int m_fd;
  bool m_ownsFd;
  std::uint64_t m_size;  // the file's size, from fstat
  UINT m_headRead;       // bytes of the head that came from the file
  std::unique_ptr<UINT8[]> m_head;
  bool m_parsed;
  // What the parse answered, kept for GetInfo and Locate.
  Info m_info;
  int m_previewResult;
  UINT32 m_previewOffset;
  UINT32 m_previewSize;
  int m_thumbnailResult;
  UINT32 m_thumbnailOffset;
  UINT32 m_thumbnailSize;
};

#endif  // KPZ_JNI_KPZGALLERYREADER_H
