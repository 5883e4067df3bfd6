// KpzPrefetch.h - starts reading the next input's head and picture from the
// disk while the kpz tool is still writing the current one.
//
// Part of the kpz command-line tool (tools/kpz), above KpzSource,
// KpzPictureReader and KpzReadHint. With one file at a time (-j 1) and a cold
// page cache, each file waits for the disk twice (its head, then its
// picture) and the disk waits while the tool writes the output. Picture()
// reads the next input's head (one 64 KiB read), locates its picture as the
// real reading will, and asks the system for the picture's bytes
// (POSIX_FADV_WILLNEED), then closes the file: those bytes come in while the
// current output is written, and the real reading finds them in the page
// cache. It writes nothing and reports nothing: an input it cannot read or
// locate is left to the real reading, which reports it. The library may log
// while locating, so callers use it only while the library's lines are
// hidden (without --verbose), or the lines would show twice.
//
//   KpzPrefetch::Picture(inputs[i + 1].path, KpzPictureReader::Kind::Preview);
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_TOOLS_KPZ_KPZPREFETCH_H
#define KPZ_TOOLS_KPZ_KPZPREFETCH_H

#include <string>

#include "kpz/KpzPictureReader.h"

class KpzPrefetch {
 public:
  // Reads the head of `path` and asks for its picture of `kind`; true when
  // the hint was given (false: the file could not be read or located, or
  // the system refused the hint; nothing else follows from it).
  static bool Picture(const std::string& path, KpzPictureReader::Kind kind);

  // Asks for the head of `path` (its first 64 KiB) without waiting for it:
  // for the input after the next, whose head Picture() will read. True when
  // the hint was given.
  static bool Head(const std::string& path);
};

#endif  // KPZ_TOOLS_KPZ_KPZPREFETCH_H
