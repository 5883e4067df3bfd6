// GalleryReaderFuzzer.cpp - libFuzzer target: the read path of the gallery
// calls (jni/KpzGalleryReader, under the JNI methods getInfo, getThumbnail
// and readPreview). The input is written to a temporary file, opened by path
// and through a descriptor; the info is taken and both pictures located and
// read.
//
//   build/fuzz/fuzz/GalleryReaderFuzzer -dict=fuzz/kpz.dict build/fuzz/corpus/raw build/fuzz/seeds/raw
//
// The checks: a failure always has a kind and words; the info's lengths are
// those of pictures that lie inside the file; a picture read equals the
// input's bytes at its place; the descriptor keeps its offset and stays open.
#include <fcntl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzRawQueries.h"
#include "FuzzScratchFile.h"
#include "KpzGalleryReader.h"

namespace {

void CheckFailure(const KpzGalleryReader::Failure& why, const char* what) {
  kpzfuzz::Check(why.m_kind != DtRawFailure::KindNone && why.m_words[0] != '\0', what,
                 static_cast<int>(why.m_kind));
}

void Exercise(KpzGalleryReader& reader, const std::uint8_t* data, std::size_t size) {
  KpzGalleryReader::Info info;
  reader.GetInfo(&info);
  kpzfuzz::Check(info.m_orientation >= 1 && info.m_orientation <= 8, "orientation",
                 info.m_orientation);
  kpzfuzz::Check(info.m_previewLength <= size && info.m_thumbnailLength <= size,
                 "a length the file does not hold");
  for (KpzGalleryReader::PictureKind kind :
       {KpzGalleryReader::PicturePreview, KpzGalleryReader::PictureThumbnail}) {
    KpzGalleryReader::Failure why;
    KpzGalleryReader::Picture picture;
    if (!reader.Locate(kind, &picture, &why)) {
      CheckFailure(why, "Locate");
      continue;
    }
    kpzfuzz::Check(picture.m_length >= 1 && picture.m_offset <= size &&
                       picture.m_length <= size - picture.m_offset,
                   "a picture outside the file");
    std::vector<UINT8> out(picture.m_length);
    const bool read = reader.Read(picture, out.data(), &why);
    kpzfuzz::Check(read, "Read of a picture inside the file");
    kpzfuzz::Check(std::memcmp(out.data(), data + picture.m_offset, picture.m_length) == 0,
                   "the picture's bytes");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  SetUpScratch("GalleryReaderFuzzer");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = TheScratch().file;
  if (!WriteWhole(path, data, size)) {
    std::perror("GalleryReaderFuzzer: writing the input");
    std::abort();
  }
  {
    KpzGalleryReader reader;
    KpzGalleryReader::Failure why;
    if (reader.OpenPath(path.c_str(), &why)) {
      Exercise(reader, data, size);
    } else {
      CheckFailure(why, "OpenPath");
    }
  }
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  kpzfuzz::Check(fd >= 0, "open of the scratch file");
  kpzfuzz::Check(lseek(fd, 3, SEEK_SET) == 3, "lseek");
  {
    KpzGalleryReader reader;
    KpzGalleryReader::Failure why;
    if (reader.OpenFd(fd, &why)) {
      Exercise(reader, data, size);
    } else {
      CheckFailure(why, "OpenFd");
    }
  }
  kpzfuzz::Check(lseek(fd, 0, SEEK_CUR) == 3, "the descriptor's offset moved");
  kpzfuzz::Check(close(fd) == 0, "the descriptor was closed");
  return 0;
}
