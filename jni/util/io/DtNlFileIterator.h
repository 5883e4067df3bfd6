// DtNlFileIterator.h - walks the entries of one directory listing.
//
// Layer: util/io. DtNlFile::GetList opens the listing into an iterator; Next
// hands out the entry names in the order readdir gives them, '.' and '..'
// included. At the end of the listing (or on a read error) the stream is
// closed and Next returns 0; further calls keep returning 0.
//
//   DtNlFileIterator it;
//   if (DtNlFile("/sdcard/DCIM").GetList(&it).IsSuccess()) {
//     char* name = nullptr;
//     while (it.Next(&name) != 0) { use(name); }
//   }
//
// Pointer members: `dir` is owned (closed by close() and the destructor);
// copying is therefore deleted.
#ifndef KPZ_UTIL_IO_DTNLFILEITERATOR_H
#define KPZ_UTIL_IO_DTNLFILEITERATOR_H

#include <dirent.h>

#include "util/DtNlString.h"

class DtNlFileIterator {
 public:
  DtNlFileIterator();  // closed
  ~DtNlFileIterator();  // close()
  DtNlFileIterator(const DtNlFileIterator&) = delete;
  DtNlFileIterator& operator=(const DtNlFileIterator&) = delete;

  // Next entry: *name = its name (valid until the next call or close()) and
  // returns 1. At the end, on a read error or when closed: closes the stream,
  // sets *name to null and returns 0. `name` must not be null.
  int Next(char** name);
  // As above, assigning the name to *name; *name is left unchanged when 0 is
  // returned. `name` must not be null.
  int Next(DtNlString* name);
  // closedir when open; the iterator is closed afterwards.
  void close();

 private:
  friend class DtNlFile;  // GetList hands over the opened stream

  DIR* dir;  // owned; null when closed
};

#endif  // KPZ_UTIL_IO_DTNLFILEITERATOR_H
