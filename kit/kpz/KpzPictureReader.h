// KpzPictureReader.h - finds the preview (screennail) or the thumbnail JPEG
// of a KPZ raw file for the kpz command-line tool, and reads it.
//
// Part of the kit (kit/kpz), above the library's static layers: the
// DtRaw facade locates the picture, never the JNI entry. The file is opened
// and its head read by the tool (KpzSource), so a read error is told apart
// from a file that is not laid out as a KPZ file; the head is parsed with
// DtRaw::InitializeBuf, which sees exactly the bytes DtRaw::Initialize would
// copy. The preview is then accepted on the JNI entry's terms (its offset
// taken as a signed 32-bit number, all of its bytes inside the file), so
// both hand out the same bytes; unlike the entry, a picture that would
// extend past the end of the file is refused before anything is read, and
// every failure is described in words.
//
//   KpzSource src;
//   KpzPictureReader::Picture pic;
//   std::string why;
//   if (src.Open("a.kpz", &why) &&
//       KpzPictureReader::Find(src, KpzPictureReader::Kind::Preview, &pic, &why)) {
//     ... the preview is pic.length bytes at pic.offset of src.Fd() ...
//   }
//
// Holds nothing; every operation is a static function, and each call uses
// its own DtRaw, so calls on different threads are independent. The
// library's diagnostic lines go to standard error as usual; hiding them is
// the caller's business (KpzQuietStderr, once per run).
#ifndef KPZ_KIT_KPZ_KPZPICTUREREADER_H
#define KPZ_KIT_KPZ_KPZPICTUREREADER_H

#include <cstdint>
#include <string>

#include "util/DtNlTypes.h"

class KpzSource;

class KpzPictureReader {
 public:
  enum class Kind {
    Preview,   // the screennail, the large preview JPEG
    Thumbnail  // the small JPEG of IFD1
  };

  // Why Find failed, for front ends that sort failures into kinds (the
  // words are in Find's *error either way).
  enum class Failure {
    None,
    NotKpz,     // the head does not parse as a KPZ file; `code` is the parse's result
    NoPicture,  // no such picture is recorded (`code` -100), or it is empty (`code` 0)
    Unusable,   // it extends past the end of the file, lies beyond 2 GiB (a preview) or
                // is larger than DtRawErrorText::THUMBNAIL_MAX_SIZE (a thumbnail) (`code` 0)
    Location    // its location cannot be read; `code` is the getter's result
  };
  struct Problem {
    Failure failure = Failure::None;
    int code = 0;
  };

  // Where a picture lies in its file.
  struct Picture {
    std::uint64_t offset = 0;
    std::uint32_t length = 0;  // at least 1
  };

  // Locates the picture of `kind` in the opened `source`. True when it holds
  // at least one byte, lies wholly inside the file and, for a thumbnail, is
  // at most DtRawErrorText::THUMBNAIL_MAX_SIZE bytes long. False otherwise, with
  // *error set to a short lower-case phrase such as "no preview stored in
  // this file", "preview extends past the end of the file" or, when the head
  // cannot be parsed, KpzErrorText::Parse's words.
  // When `problem` is given, it is set to the kind of failure (None on
  // success).
  static bool Find(KpzSource& source, Kind kind, Picture* picture, std::string* error,
                   Problem* problem = nullptr);

  // The word for `kind` in messages: "preview" or "thumbnail".
  static const char* Name(Kind kind);
};

#endif  // KPZ_KIT_KPZ_KPZPICTUREREADER_H
