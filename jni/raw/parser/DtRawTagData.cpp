// DtRawTagData.cpp - one kept directory entry; copies never carry the value bytes.
#include "raw/parser/DtRawTagData.h"

DtRawTagData::DtRawTagData(const DtRawTagData& other) : DtRawTagData() { copy(other); }

DtRawTagData& DtRawTagData::operator=(const DtRawTagData& other) {
  copy(other);
  return *this;
}

DtRawTagData::~DtRawTagData() {}

void DtRawTagData::copy(const DtRawTagData& other) {
  if (&other == this) {
    return;
  }
  m_category = other.m_category;
  m_tagId = other.m_tagId;
  m_offset = other.m_offset;
  m_size = other.m_size;
  // Deliberate: a copy never shares (and so never frees) the source's bytes.
  m_data = nullptr;
  m_byteOrder = other.m_byteOrder;
}
