// KpzMetadataReader.h - reads every metadata value of one KPZ raw file for the
// kpz tool's `info` command.
//
// Part of the kit (kit/kpz), above the library's raw
// facade: one DtRaw per call, initialised from the path, asked every getter
// once and finalised, so calls on different threads are independent. The
// library's diagnostic lines go to standard error as usual; hiding them is
// the caller's business (KpzQuietStderr).
//
//   KpzMetadata md;
//   if (!KpzMetadataReader::Read("a.kpz", &md)) {
//     std::fprintf(stderr, "kpz: a.kpz: %s\n", md.error.c_str());
//   }
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZMETADATAREADER_H
#define KPZ_KIT_KPZ_KPZMETADATAREADER_H

#include <string>

#include "kpz/KpzMetadata.h"

class KpzSource;

class KpzMetadataReader {
 public:
  // Bytes offered to GetMakerName / GetModelName: longer names are cut to
  // one less than this.
  static constexpr unsigned int kNameBuffer = 256;

  // Replaces *out with the metadata of the file at `path`. True when the
  // file could be initialised (each value then carries its own result);
  // false with out->error in words and every value left at its default
  // when it cannot be opened (KpzSource::Open's words, out->openErrno its
  // errno; out->initialized false: a directory, a device, pipe or socket is
  // not read) or DtRaw::Initialize fails (a read error in its own words, a
  // file laid out otherwise as not a KPZ raw file). The name is opened once
  // (ReadOpened).
  static bool Read(const std::string& path, KpzMetadata* out);

  // The same for a file opened by KpzSource::Open: the library reads that
  // very file (KpzSource::LibraryPath), whatever the name leads to by now.
  // out->file is `name`. A value whose place lies past the end of a cut
  // file is told as not recorded (pastEnd), here and in ReadHead.
  static bool ReadOpened(KpzSource& source, const std::string& name, KpzMetadata* out);

  // The same from a source whose head is already read (a file opened by
  // KpzSource::Open, or content at hand through KpzSource::OpenMemory): the
  // head is parsed in the library's buffer mode, which sees the bytes its
  // file mode would copy and answers every getter alike. out->file is
  // `name`. False when the head does not parse, with out->error in
  // KpzErrorText::Stopped's words, from that parse's own record.
  static bool ReadHead(KpzSource& source, const std::string& name, KpzMetadata* out);
};

#endif  // KPZ_KIT_KPZ_KPZMETADATAREADER_H
