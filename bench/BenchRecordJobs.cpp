// BenchRecordJobs.cpp - the jobs over the one record parse (DtRawRecord): the
// kit's head-only locate and the gallery entry's steps. See BenchJobs.h.
// Built only when the library has the record (bench/CMakeLists.txt).
#include "BenchJobs.h"
#include "KpzGalleryReader.h"
#include "raw/DtRawRecord.h"

UINT BenchJobs::RecordLocate(const UINT8* head, std::uint64_t fileSize, std::uint64_t* offset) {
  const DtRawExpected<DtRawRecord> record =
      DtRawRecord::Parse(head, HEAD_SIZE, fileSize, DtRawRecord::FieldsPictures);
  if (!record) {
    return 0;
  }
  const DtRawExpected<DtRawRecord::Range> preview = record->Locate(DtRawRecord::PicturePreview);
  if (!preview) {
    return 0;
  }
  *offset = preview->m_offset;
  return preview->m_length;
}

UINT BenchJobs::Gallery(const char* path, UINT8* out, UINT outSize) {
  KpzGalleryReader reader;
  KpzGalleryReader::Failure why;
  if (!reader.OpenPath(path, &why)) {
    return 0;
  }
  KpzGalleryReader::Info info;
  reader.GetInfo(&info);
  KpzGalleryReader::Picture thumbnail;
  if (!reader.Locate(KpzGalleryReader::PictureThumbnail, &thumbnail, &why) ||
      thumbnail.m_length > outSize || !reader.Read(thumbnail, out, &why)) {
    return 0;
  }
  return thumbnail.m_length;
}
