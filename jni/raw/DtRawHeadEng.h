// DtRawHeadEng.h - a parse engine lent a head channel: its parses read the
// facade's head through that channel (DtRawHeadIo), which records where and
// why the parse stops and, when asked, where the entries it kept lie.
//
// Layer: jni/raw (engine part), beside DtRawEng. Made by
// DtRawRecord::ParseThrough for a facade (DtRaw) whose caller wants the
// failure's words and the entries' places from the facade's own parse. The
// facade owns the engine as any other; the channel is borrowed and must
// outlive the facade's next Initialize or InitializeBuf.
//
//   DtRawHeadIo io(fileSize);
//   DtRaw raw;
//   DtRawRecord::ParseThrough(&raw, &io);  // lends raw a DtRawHeadEng over io
//   const int code = raw.Initialize(path);
//   // DtRawErrorText::Stopped(code, io, ...) tells why it failed
//
// Pointer members: m_io is borrowed, never freed.
#ifndef KPZ_RAW_DTRAWHEADENG_H
#define KPZ_RAW_DTRAWHEADENG_H

#include "raw/DtRawEng.h"
#include "raw/parser/DtRawHeadIo.h"
#include "util/io/DtNlDataStream.h"

class DtRawHeadEng : public DtRawEng {
 public:
  explicit DtRawHeadEng(DtRawHeadIo* io);
  ~DtRawHeadEng() override;
  DtRawHeadEng(const DtRawHeadEng&) = delete;
  DtRawHeadEng& operator=(const DtRawHeadEng&) = delete;

  // The stream `engine` parses for `stream`: `stream` itself for a plain
  // engine (told by the identity of its type alone) or a stream that is not
  // over a memory block; for an engine lent a head channel, its own stream
  // through that channel over the same block (the engine's, valid until its
  // next parse).
  static DtNlDataStream* Through(DtRawEng* engine, DtNlDataStream* stream);

 private:
  DtRawHeadIo* m_io;
  DtNlDataStream m_through;  // over m_io
};

#endif  // KPZ_RAW_DTRAWHEADENG_H
