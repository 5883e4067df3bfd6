// DtNlFileIterator.cpp - directory listing walk over readdir.
#include "util/io/DtNlFileIterator.h"

#include "util/DtNlLogger.h"

DtNlFileIterator::DtNlFileIterator() : dir(nullptr) {}

DtNlFileIterator::~DtNlFileIterator() { close(); }

int DtNlFileIterator::Next(char** name) {
  DTNL_ASSERT(__LINE__, name != nullptr, "");
  *name = nullptr;
  if (dir == nullptr) {
    return 0;
  }
  struct dirent* entry = ::readdir(dir);
  if (entry == nullptr) {
    close();
    return 0;
  }
  *name = entry->d_name;
  return 1;
}

int DtNlFileIterator::Next(DtNlString* name) {
  DTNL_ASSERT(__LINE__, name != nullptr, "");
  char* entryName = nullptr;
  if (Next(&entryName) == 0) {
    return 0;
  }
  *name = entryName;
  return 1;
}

void DtNlFileIterator::close() {
  if (dir != nullptr) {
    ::closedir(dir);
    dir = nullptr;
  }
}
