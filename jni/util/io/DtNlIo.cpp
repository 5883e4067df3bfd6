// DtNlIo.cpp - the channel base: status recording and the forwarding Opens.
#include "util/io/DtNlIo.h"

#include <cerrno>

#include "util/DtNlString.h"
#include "util/io/DtNlFile.h"

const INT32 DtNlIo::KIND_MEMORY;
const INT32 DtNlIo::KIND_FILE;

DtNlIo::DtNlIo(INT32 kind) : m_endFlag(0), m_status(), m_baseOffset(0), m_kind(kind) {}

DtNlIo::~DtNlIo() {}

int DtNlIo::Open(DtNlFile const& file, const char* mode) {
  const DtNlString path(file.GetPath());
  return Open(path, mode);
}

int DtNlIo::Open(DtNlString const& path, const char* mode) { return Open(path.text, mode); }

int DtNlIo::Open(const char* /*path*/, const char* /*mode*/) {
  init();
  setErr(DtNlErrNotSupported);
  return -1;
}

int DtNlIo::Open(const UINT8* /*buffer*/, UINT /*size*/) {
  init();
  setErr(DtNlErrNotSupported);
  return -1;
}

int DtNlIo::Flush() { return 0; }

DtNlStatus DtNlIo::GetStatus() const { return m_status; }

INT32 DtNlIo::GetBaseOffset() const { return m_baseOffset; }

void DtNlIo::SetBaseOffset(INT32 baseOffset) { m_baseOffset = baseOffset; }

INT32 DtNlIo::GetKind() const { return m_kind; }

void DtNlIo::init() {
  m_status.Clear();
  m_endFlag = 0;
  m_baseOffset = 0;
}

void DtNlIo::setErr(DtNlErrCode code) {
  if (m_status.errCode >= 0 && m_status.sysErrNo == 0) {
    m_status.errCode = code;
  }
  if (m_status.sysErrNo == 0) {
    m_status.sysErrNo = errno;
  }
}

INT32 DtNlIo::lowOffset(long long offset) {
  // Deliberate truncation: conversion to unsigned keeps the low 32 bits modulo
  // 2^32; the result is then read back as a two's-complement 32-bit value
  // without relying on implementation-defined narrowing.
  const UINT32 low = static_cast<UINT32>(static_cast<unsigned long long>(offset));
  if (low <= 0x7FFFFFFFu) {
    return static_cast<INT32>(low);
  }
  return static_cast<INT32>(low - 0x80000000u) - 0x7FFFFFFF - 1;
}
