// KpzPictureReader.h - the kit's face of the one record parse
// (jni/raw/DtRawRecord): the preview (screennail) or the thumbnail JPEG of a
// KPZ raw file opened by the kit (KpzSource), located on the record's terms
// and described in its words.
//
// Part of the kit (kit/kpz), above the library's static layers. The file is
// opened and its head read by KpzSource, so a read error is told apart from
// a file that is not laid out as a KPZ file; the head is parsed once into a
// DtRawRecord, whose Locate accepts a picture on the terms every front end
// shares (its offset taken as a signed 32-bit number for a preview, all of
// its bytes inside the file, a thumbnail of at most
// DtRawErrorText::THUMBNAIL_MAX_SIZE bytes). A failure is the record's one
// DtRawFailure (kind, errno, code, words).
//
//   KpzSource src;
//   KpzPictureReader::Picture pic;
//   std::string why;
//   if (src.Open("a.kpz", &why) &&
//       KpzPictureReader::Find(src, KpzPictureReader::Kind::Preview, &pic, &why)) {
//     ... the preview is pic.length bytes at pic.offset of src.Fd() ...
//   }
//
// Holds nothing; every operation is a static function, and each parse uses
// its own DtRaw, so calls on different threads are independent. The
// library's diagnostic lines go to standard error as usual; hiding them is
// the caller's business (KpzQuietStderr, once per run).
#ifndef KPZ_KIT_KPZ_KPZPICTUREREADER_H
#define KPZ_KIT_KPZ_KPZPICTUREREADER_H

#include <cstdint>
#include <string>

#include "raw/DtRawExpected.h"
#include "raw/DtRawFailure.h"
#include "raw/DtRawRecord.h"
#include "util/DtNlTypes.h"

class KpzSource;

class KpzPictureReader {
 public:
  enum class Kind {
    Preview,   // the screennail, the large preview JPEG
    Thumbnail  // the small JPEG of IFD1
  };

  // Where a picture lies in its file.
  struct Picture {
    std::uint64_t offset = 0;
    std::uint32_t length = 0;  // at least 1
  };

  // The one parse of the opened `source`'s head (the pictures and the
  // orientation: DtRawRecord::FieldsPictures).
  static DtRawExpected<DtRawRecord> Parse(KpzSource& source);

  // Locates the picture of `kind` in `record`. True when it holds at least
  // one byte, lies wholly inside the file and, for a thumbnail, is at most
  // DtRawErrorText::THUMBNAIL_MAX_SIZE bytes long. False otherwise, with
  // *error set to the failure's words ("no preview stored in this file",
  // "preview extends past the end of the file") and, when given, *why to
  // the failure.
  static bool Find(const DtRawRecord& record, Kind kind, Picture* picture, std::string* error,
                   DtRawFailure* why = nullptr);

  // Parse, then Find: also fails when the head does not parse (KindNotKpz,
  // in DtRawErrorText::Stopped's words).
  static bool Find(KpzSource& source, Kind kind, Picture* picture, std::string* error,
                   DtRawFailure* why = nullptr);

  // The word for `kind` in messages: "preview" or "thumbnail".
  static const char* Name(Kind kind);

  // The record's name of `kind`.
  static DtRawRecord::Picture Which(Kind kind) {
    return kind == Kind::Preview ? DtRawRecord::PicturePreview : DtRawRecord::PictureThumbnail;
  }
};

#endif  // KPZ_KIT_KPZ_KPZPICTUREREADER_H
