// KpzPictureReader.cpp - the preview and thumbnail JPEGs of a KPZ file for
// every front end (kit/kpz, above jni/raw). See KpzPictureReader.h.
#include "kpz/KpzPictureReader.h"

#include "kpz/KpzSource.h"

const char* KpzPictureReader::Name(Kind kind) { return DtRawRecord::Name(Which(kind)); }

DtRawExpected<DtRawRecord> KpzPictureReader::Parse(KpzSource& source) {
  return DtRawRecord::Parse(source.Head(), KpzSource::kHeadSize, source.Size(),
                            DtRawRecord::FieldsPictures);
}

bool KpzPictureReader::Find(const DtRawRecord& record, Kind kind, Picture* picture,
                            std::string* error, DtRawFailure* why) {
  const DtRawExpected<DtRawRecord::Range> range = record.Locate(Which(kind));
  if (!range) {
    *error = range.Failure().m_words;
    if (why != nullptr) {
      *why = range.Failure();
    }
    return false;
  }
  picture->offset = range->m_offset;
  picture->length = range->m_length;
  return true;
}

bool KpzPictureReader::Find(KpzSource& source, Kind kind, Picture* picture, std::string* error,
                            DtRawFailure* why) {
  const DtRawExpected<DtRawRecord> record = Parse(source);
  if (!record) {
    *error = record.Failure().m_words;
    if (why != nullptr) {
      *why = record.Failure();
    }
    return false;
  }
  return Find(*record, kind, picture, error, why);
}
