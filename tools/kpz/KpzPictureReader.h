// KpzPictureReader.h - takes the preview (screennail) or the thumbnail JPEG out
// of a KPZ raw file for the kpz command-line tool.
//
// Part of the kpz tool (tools/kpz), above the library's static layers: it uses
// the DtRaw facade and a DtNlFileIo channel, never the JNI entry. The preview
// is read the way the JNI entry reads it (DtRaw::Initialize,
// GetScreennailInfo, Finalize, then the file opened again, a seek to the
// offset and one read), so both hand out the same bytes; the thumbnail comes
// from DtRaw::GetThumbnailData. Unlike the entry, a picture that would extend
// past the end of the file is refused before anything is allocated, and every
// failure is described in words.
//
//   std::vector<UINT8> jpeg;
//   std::string why;
//   if (!KpzPictureReader::Read("a.kpz", KpzPictureReader::Kind::Preview, &jpeg, &why)) {
//     std::fprintf(stderr, "kpz: a.kpz: %s\n", why.c_str());
//   }
//
// Holds nothing; every operation is a static function, and each read uses its
// own DtRaw and channel, so reads on different threads are independent. The
// library's diagnostic lines go to standard error as usual; hiding them is
// the caller's business (KpzQuietStderr, once per run).
#ifndef KPZ_TOOLS_KPZ_KPZPICTUREREADER_H
#define KPZ_TOOLS_KPZ_KPZPICTUREREADER_H

#include <string>
#include <vector>

#include "util/DtNlTypes.h"

class KpzPictureReader {
 public:
  enum class Kind {
    Preview,   // the screennail, the large preview JPEG
    Thumbnail  // the small JPEG of IFD1
  };

  // Reads the picture of `kind` from the KPZ file at `path` into *out
  // (replacing its content). True on success, with at least one byte in *out.
  // False otherwise, with *out emptied and *error set to a short lower-case
  // phrase such as "file not found", "no preview stored in this file" or
  // "preview extends past the end of the file".
  static bool Read(const std::string& path, Kind kind, std::vector<UINT8>* out,
                   std::string* error);

  // The word for `kind` in messages: "preview" or "thumbnail".
  static const char* Name(Kind kind);

 private:
  static bool readPreview(const std::string& path, std::vector<UINT8>* out, std::string* error);
  static bool readThumbnail(const std::string& path, std::vector<UINT8>* out,
                            std::string* error);
};

#endif  // KPZ_TOOLS_KPZ_KPZPICTUREREADER_H
