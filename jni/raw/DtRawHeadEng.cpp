// DtRawHeadEng.cpp - see DtRawHeadEng.h.
#include "raw/DtRawHeadEng.h"

#include <typeinfo>

#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlIo.h"

DtRawHeadEng::DtRawHeadEng(DtRawHeadIo* io) : DtRawEng(), m_io(io), m_through(io) {}

DtRawHeadEng::~DtRawHeadEng() { m_io = nullptr; }

DtNlDataStream* DtRawHeadEng::Through(DtRawEng* engine, DtNlDataStream* stream) {
  if (engine == nullptr || stream == nullptr || typeid(*engine) == typeid(DtRawEng)) {
    return stream;
  }
  DtRawHeadEng* const lent = dynamic_cast<DtRawHeadEng*>(engine);
  DtNlIo* const io = stream->GetIo();
  if (lent == nullptr || lent->m_io == nullptr || io == nullptr || io == lent->m_io ||
      typeid(*io) != typeid(DtNlBuffIo) || io->Seek(0, DtNlIoSeekSet) != 0) {
    return stream;
  }
  // The same block from its start: the parse reads it through the channel.
  const UINT8* block = nullptr;
  const UINT size = static_cast<const DtNlBuffIo*>(io)->View(&block);
  if (block == nullptr || lent->m_through.Open(block, size) != 0) {
    return stream;
  }
  return &lent->m_through;
}
