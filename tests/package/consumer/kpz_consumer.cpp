// A program outside the library's tree that uses the installed library: it
// prints the preview (screennail) size and the model name of a KPZ file.
//
//   kpz_consumer FILE.kpz
//   -> screennail: 1041 bytes
//      model: DSLR-M100
//
// Built by the package tests against an installed tree (CMake package or
// pkg-config), against the unpacked Debian packages, and with the library's
// sources added as a subdirectory.
#include <cstdio>

#include "raw/DtRaw.h"
#include "raw/DtRawScreennailInfo.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: kpz_consumer FILE.kpz\n");
    return 2;
  }
  DtRaw raw;
  const int rc = raw.Initialize(argv[1]);
  if (rc != 0) {
    std::fprintf(stderr, "kpz_consumer: %s: cannot read (result %d)\n", argv[1], rc);
    return 1;
  }
  DtRawScreennailInfo info;
  if (raw.GetScreennailInfo(&info) != 0) {
    std::fprintf(stderr, "kpz_consumer: %s: no preview\n", argv[1]);
    return 1;
  }
  char model[64] = {};
  if (raw.GetModelName(model, sizeof model) != 0) {
    std::fprintf(stderr, "kpz_consumer: %s: no model name\n", argv[1]);
    return 1;
  }
  std::printf("screennail: %u bytes\nmodel: %s\n", static_cast<unsigned>(info.m_size), model);
  return 0;
}
