// DtRawEng.h - the parse engine: reads the TIFF header of a KPZ raw file and
// the directories the system needs, each with its own parser, and answers tag
// look-ups.
//
// Layer: jni/raw (engine part), over the IFD parsers of jni/raw/parser and the
// data stream of jni/util/io; owned by the facade DtRaw, which reads the parser
// pointers and m_isM372 directly.
//
// Directories are read in a fixed order: IFD0 (at the header's offset), IFD1
// (IFD0's next offset), the Exif IFD (IFD0 tag 0x8769), the Iob IFD (Exif tag
// 0xA005), the KAVI maker note (Exif tag 0x927C; behind a 12-byte "KAVI" header
// for model DSLR-M372) and, for DSLR-M372 only, the Km maker note (maker-note
// tag 0xB028). All offsets are absolute (base 0).
//
//   DtRawEng eng;
//   if (eng.Parse(&stream) == DtRawOk) {
//     DtRawTagData* off = eng.getTagData(0x0201, eng.m_ifd0Parser);  // or null
//   }
//   eng.Finalize();
//
// Pointer members: the six parser pointers are null until a parse needs the
// parser and null again after Finalize; while set, each points at the
// engine's own parser object of that kind (m_*Storage), which the engine
// keeps for its whole life so that no parse allocates. "Deleting" a parser
// (Finalize) empties it and nulls the pointer. The stream given to Parse is
// borrowed for the call only.
#ifndef KPZ_RAW_DTRAWENG_H
#define KPZ_RAW_DTRAWENG_H

#include "raw/parser/DtRawExifIFDParser.h"
#include "raw/parser/DtRawIFD0Parser.h"
#include "raw/parser/DtRawIFD1Parser.h"
#include "raw/parser/DtRawIFDParserBase.h"
#include "raw/parser/DtRawIobIFDParser.h"
#include "raw/parser/DtRawKaviKmMakerNoteParser.h"
#include "raw/parser/DtRawKaviMakerNoteParser.h"
#include "raw/parser/DtRawTagData.h"
#include "util/DtNlDataUtil.h"
#include "util/DtNlTypes.h"

class DtNlDataStream;

class DtRawEng {
 public:
  // No parsers; m_byteOrder big endian; m_isM372 1 until a parse sets it.
  DtRawEng();
  // Finalize().
  virtual ~DtRawEng();
  DtRawEng(const DtRawEng&) = delete;
  DtRawEng& operator=(const DtRawEng&) = delete;

  // Parses the stream from its start. DtRawOk; DtRawErrNotTiff for a bad
  // byte-order mark or marker; DtRawErrFormat when the model name, the Exif
  // IFD, the maker-note pointer, the "KAVI" signature or the Km pointer is
  // missing or invalid; a parser's code; or the channel's status mapped by
  // DtRawError::GetRawErr over DtRawErrSeek / DtRawErrRead. Every failure is
  // logged (INFO; WARN for an invalid Km pointer) except the missing Exif
  // IFD. A null stream (or one without a channel) gives DtRawErrParam.
  // Entries parsed before a failure stay until Finalize or the next Parse.
  int Parse(DtNlDataStream* stream);

  // parser->GetTagData(tagId), or null for a null parser. Owned by the parser.
  DtRawTagData* getTagData(unsigned short tagId, DtRawIFDParserBase* parser);

  // Releases every parser's entries and nulls the pointers.
  void Finalize();

  DtRawIFD0Parser* m_ifd0Parser;                    // &m_ifd0Storage or null
  DtRawIFD1Parser* m_ifd1Parser;                    // &m_ifd1Storage or null
  DtRawExifIFDParser* m_exifParser;                 // &m_exifStorage or null
  DtRawIobIFDParser* m_iobParser;                   // &m_iobStorage or null
  DtRawKaviMakerNoteParser* m_makerNoteParser;      // &m_makerNoteStorage or null
  DtRawKaviKmMakerNoteParser* m_kmMakerNoteParser;  // &m_kmMakerNoteStorage or null
  DtNlByteOrder m_byteOrder;                        // the file's byte order
  INT32 m_isM372;                                   // 1 for model "DSLR-M372"

 private:
  // The parser objects behind the pointers, made once with the engine.
  DtRawIFD0Parser m_ifd0Storage;
  DtRawIFD1Parser m_ifd1Storage;
  DtRawExifIFDParser m_exifStorage;
  DtRawIobIFDParser m_iobStorage;
  DtRawKaviMakerNoteParser m_makerNoteStorage;
  DtRawKaviKmMakerNoteParser m_kmMakerNoteStorage;

  // IFD0, IFD1, then the Exif and Iob IFDs when their pointers are present.
  int parseIFD(DtNlDataStream* stream, UINT32 ifd0Offset);
  // The maker note at `offset` and, for DSLR-M372, the Km maker note.
  int parseKaviMakerNote(DtNlDataStream* stream, UINT32 offset);
};

#endif  // KPZ_RAW_DTRAWENG_H
