// DtRaw.h - the raw file facade: the one object through which the rest of the
// system reads a KPZ raw file (camera raw with TIFF structure).
//
// Layer: jni/raw, above the parse engine (jni/raw/DtRawEng, jni/raw/parser) and
// the files-and-streams layer (jni/util/io); the JNI entry sits above it.
//
// Initialisation reads the first READ_SIZE bytes of the file into a heap copy
// (or takes a caller's buffer) and has a DtRawEng parse it; every query then
// answers from the parsed tag lists. Values that lie beyond the copy (the
// screennail, a far thumbnail) are read from the file itself.
//
// In file mode a changed orientation (and with it IFD1's DateTime) can be
// written back in place: SetRotationInfo queues the new value bytes, Update
// writes them at the tags' own file positions and restores the file's times.
//
//   raw.SetRotationInfo(1);    // queued only
//   raw.Update(nullptr);       // written; access and modification times kept
//
//   DtRaw raw;
//   if (raw.Initialize("/sdcard/DCIM/a.kpz") == 0) {
//     DtRawScreennailInfo info;
//     raw.GetScreennailInfo(&info);
//   }
//   raw.Finalize();  // also done by the destructor
//
// Results are signed 32-bit raw-layer codes (DtRawErrCode): 0 on success,
// negative on failure; I/O failures are mapped through DtRawError::GetRawErr.
//
// Ownership of the pointer members:
//   m_rawEng  owned: created on first initialisation, deleted by Finalize.
//   m_stream  owned: created on first initialisation, deleted by Finalize.
//   m_buff    owned (array) when m_isBuffOwner is 1 (file mode); borrowed from
//             the caller of InitializeBuf otherwise, and then it must stay valid
//             and unchanged until Finalize. Never freed in buffer mode.
// One DtRaw is used by one thread at a time.
#ifndef KPZ_RAW_DTRAW_H
#define KPZ_RAW_DTRAW_H

#include <utime.h>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawFlashInfo.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "raw/parser/DtRawTagDataList.h"
#include "util/DtNlString.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlFile.h"

class DtRawEng;
class DtNlDataStream;
class DtNlTime;

class DtRaw {
 public:
  // Bytes of the file head that are read into memory and parsed.
  static constexpr UINT READ_SIZE = 0x10000;

  DtRaw();
  ~DtRaw();  // Finalize()
  DtRaw(const DtRaw&) = delete;
  DtRaw& operator=(const DtRaw&) = delete;

  // ---- Lifecycle -------------------------------------------------------

  // File mode. Reads the file head and parses it. 0 when initialised; on any
  // failure the object is left empty and the result is -300 (open), -303
  // (close), -307 (read), -302 / -399 (file missing / device error) or the
  // engine's parse code. A null path empties the object and returns -200.
  int Initialize(const char* path);
  int Initialize(DtNlString& path);
  int Initialize(DtNlFile& file);

  // Buffer mode over the caller's `size` bytes (borrowed, see above). A null
  // `buff` or a zero `size` returns -200 and leaves the object as it was;
  // otherwise 0, or the object is left empty and the result is -301 / -304
  // (stream open / close) or the engine's parse code.
  int InitializeBuf(unsigned char* buff, int size);

  // Releases the engine, the stream, an owned buffer and pending updates.
  // Safe on an empty object and any number of times; never frees a caller's
  // buffer. The stored file path, m_buffSize and m_isBuffMode are kept.
  void Finalize();

  // The Iob directory's tag 1: *value points at its bytes (owned by the
  // engine, valid until Finalize or re-initialisation), *size is their count.
  // -201 when not initialised, -100 (logged) when absent.
  int GetIobIndex(const char** value, int* size);

  // ---- Screennail and thumbnail ----------------------------------------

  // Position, length and pixel size of the screennail. 0 on success; -201 not
  // initialised; -100 when its offset or length tag is missing or too short
  // (fields decoded before the failure keep their new values).
  int GetScreennailInfo(DtRawScreennailInfo* info);

  // Position, length, compression and rotation of the IFD1 thumbnail. 0 on
  // success (a missing orientation gives rotation 0); -201; -100 when the
  // offset, length or compression tag is missing or too short.
  int GetThumbnailInfo(DtRawThumbnailInfo* info);

  // Copies min(size, thumbnail length) bytes of the thumbnail into `buff`,
  // from the memory copy when it lies wholly inside it, else from the file.
  // 0 on success; -201; GetThumbnailInfo's codes; -100 in buffer mode when
  // the thumbnail is not inside the buffer; -300/-301/-303/-304/-305/-307,
  // -302/-399 for I/O failures. Never leaves the stream's channel open.
  int GetThumbnailData(unsigned char* buff, unsigned int size);

  // Exif orientation (1..8) to rotation code (0..7); anything else gives 0.
  static unsigned char convRotInfoStdtoUse(unsigned short std);
  // Rotation code (0..7) to Exif orientation (1..8); anything else gives 1.
  static unsigned char convRotInfoUsetoStd(unsigned char use);

  // The picture's rotation code from IFD0's orientation. 0 on success; -201;
  // -100 when the tag is missing or too short.
  int GetRotationInfo(unsigned char* rotation);

  // ---- Metadata ------------------------------------------------------------
  //
  // Every getter returns 0 on success and then writes its outputs; -201 when
  // not initialised; -200 for a null output (nothing is written); -100 when
  // its tag is missing (logged at INFO) or too short (logged at WARN with the
  // tag's size). Outputs are left untouched on failure unless said otherwise.
  // Integers are decoded in the file's own byte order.

  // Exif PixelYDimension / PixelXDimension (16 bits).
  int GetRawImageHeight(unsigned short* height);
  int GetRawImageWidth(unsigned short* width);
  // Exif ColorSpace / CustomRendered (16 bits, kept as stored).
  int GetColorSpace(short* colorSpace);
  int GetCustomRendered(short* customRendered);
  // Exif FocalLengthIn35mmFilm as the fraction value/1.
  int Get35mmFocalLength(unsigned int* num, unsigned int* den);
  // Exif Flash split into its bit fields.
  int GetFlashInfo(DtRawFlashInfo* flash);
  // Exif ExposureProgram: the low byte of its 16-bit value.
  int GetExposureProgram(unsigned char* program);
  // Exif ISOSpeedRatings (the first 16-bit value).
  int GetISOSpeed(unsigned short* iso);

  // Rational tags: numerator and denominator as stored. -402 (no log line)
  // when the tag is not exactly one rational (8 bytes).
  int GetRealFocalLength(unsigned int* num, unsigned int* den);
  int GetFNumber(unsigned int* num, unsigned int* den);
  // As above, then brought to the form 1/n: with a numerator above 1 the
  // result is 1/(den / num), truncated (10/2500 gives 1/250, 4/1 gives 1/0);
  // a zero denominator is returned as read (5/0 stays 5/0).
  int GetExposureTime(unsigned int* num, unsigned int* den);
  // Signed rational: both words taken as signed 32-bit numbers.
  int GetExposureBias(int* num, int* den);

  // IFD0 Make / Model as zero-terminated text in `buff` of `size` bytes. On
  // success at most size - 1 characters are kept and buff[size - 1] is 0
  // (a longer name is cut). Values over 32 bytes are copied from the memory
  // copy of the file head. -200 for a null `buff` or a `size` of 0 and -100
  // for a missing tag, both with nothing written; -100 also when the value
  // cannot be read whole (it starts or ends past the memory copy), and then
  // `buff` holds zeros and at most what could be read. Never more than
  // `size` bytes are written.
  int GetMakerName(char* buff, unsigned int size);
  int GetModelName(char* buff, unsigned int size);

  // Exif DateTimeOriginal ("YYYY:MM:DD HH:MM:SS" and its zero byte). -402
  // when the value is not exactly 20 bytes or breaks the form (logged).
  int GetOrgDateTime(DtRawDateTime* dateTime);

  // Exif ExifVersion / Iob InteroperabilityVersion: four digits as a number
  // ("0230" gives 230). -100 when shorter than 4 bytes (WARN). When the four
  // bytes are not all digits, 0 is stored and -401 / -403 is returned.
  int GetExifVersion(unsigned short* version);
  int GetIobVersion(unsigned short* version);

  // Always stores 0 and returns 0, initialised or not; nothing is read. A
  // null `mode` is not written through (the result is still 0).
  int GetT593Mode(unsigned char* mode);

  // ---- Write-back (file mode only) --------------------------------------

  // Queues a new orientation for IFD0 and, when it has one of 2 bytes, IFD1
  // (rotation code 0..7; any other code means orientation 1), and IFD1's
  // DateTime set equal to IFD0's when the two differ. Nothing reaches the
  // file before Update. 0 when queued; -102 in buffer mode; -201 not
  // initialised; -310 / -302 / -399 when the file's status cannot be read;
  // -309 when the file's owner may not write it; -100 when IFD0 has no
  // orientation; -402 when an orientation is not 2 bytes (for IFD1 this
  // also drops every change queued so far). Outside buffer mode the call
  // itself is logged first; refusals of the file or its tags add a line.
  int SetRotationInfo(unsigned char rotation);

  // Writes the queued changes in the order queued, brings the parsed values
  // up to date and empties the queue once the file was opened. After a
  // write the file's access and modification times are set back to what
  // they were, or both to 0 when `time` is non-null and valid. 0 also for an
  // empty queue (the file is not opened); -201; -102 in buffer mode; -310
  // (status), -300 (open), -305 (seek), -308 (write), -303 (close), -311
  // (setting the times), each possibly as -302 / -399. Bytes already written
  // stay written; a failed close leaves the times as the write made them.
  int Update(const DtNlTime* time);

 private:
  // The record (DtRawRecord) takes its answers from this object's one
  // parse, also the orientation value as stored, which no getter gives.
  friend class DtRawRecord;

  // Reads the head of m_file into `buff`. 0 on success (a short file is no
  // failure); a read error counts only when the close fails too.
  int readBuff(DtNlFile& file, unsigned char* buff, unsigned int size);

  // The steps every metadata getter shares: the engine check, the output
  // check, the look-up of `tagId` in the directory `category`, and the size
  // check of the tag found. DtRawOk with *tag set; else the getter's result:
  // -201 (no engine), -200 (`outputsOk` false: nothing logged), -100 with
  // the INFO line `missing` (no such tag), -100 with the WARN line
  // "Raw: <function>() invalid data, size=<size>." when the tag holds fewer
  // than `minSize` value bytes (0: no size check here). Both lines name
  // `function` at `line`: the getter and the line of its call.
  int findTag(const char* function, int line, bool outputsOk, unsigned short tagId,
              DtRawTagCategory category, UINT minSize, const char* missing,
              const DtRawTagData** tag);
  // Maker and model names: `size` zeros, then the value's bytes (at most
  // size - 1 of them kept); -100 when they cannot be read whole.
  int copyName(const DtRawTagData* tag, char* buff, unsigned int size);
  // Copies min(tag size, `size`) value bytes of `tag` into `buff`: from the
  // tag's own bytes, or else from the memory copy at the tag's offset. 0 on
  // success; -301 when the offset lies beyond the memory copy (nothing is
  // read); -307 when the value reaches past its end (the bytes up to the end
  // are copied); -304 / -302 / -399 for channel failures. Never writes more
  // than `size` bytes into `buff`.
  int getRawTagDataValue(const DtRawTagData* tag, unsigned char* buff, unsigned int size);
  // The tag's value as one rational: 0, or -402 unless it has exactly 8 bytes.
  int getFractionNumber(const DtRawTagData* tag, unsigned int* num, unsigned int* den);
  // Parses `size` bytes of "YYYY:MM:DD HH:MM:SS\0" into the six outputs,
  // which are written only on success. -402 (logged) for another size or a
  // broken form; -200 for a null `text`.
  int getDateTimeParts(unsigned char* text, unsigned int size, unsigned short* year,
                       unsigned char* month, unsigned char* day, unsigned char* hour,
                       unsigned char* minute, unsigned char* second);
  // Four decimal digits as a number (the first is the thousands); 0 when any
  // of the four bytes is not a digit. Reads exactly four bytes.
  static unsigned short convVerArrayToUint16(unsigned char* version);

  // Queues a change of `tag`'s value: a copy of `tag` carrying `size` new
  // value bytes (cut or zero-padded to the tag's own size) is appended to
  // m_updateList. The list's result (0 when appended).
  int requestUpdateData(const DtRawTagData* tag, const unsigned char* data, unsigned int size);
  // Queues IFD1's DateTime set to IFD0's when both are 20 bytes and differ.
  void syncDateTime();
  // Sets m_file's times to `times`, or both to 0 for a valid `time`. 0, or
  // -311 / -302 / -399 (logged at ERR).
  int setTimeStamp(utimbuf* times, const DtNlTime* time);

  DtNlFile m_file;                // the file given to Initialize; empty path at first
  DtRawEng* m_rawEng;             // owned
  DtNlDataStream* m_stream;       // owned
  unsigned char* m_buff;          // owned iff m_isBuffOwner == 1, else borrowed
  UINT m_buffSize;                // bytes of m_buff the stream is opened over
  INT32 m_isBuffOwner;            // 1 when m_buff was allocated here
  INT32 m_isBuffMode;             // 1 after InitializeBuf, 0 after a file Initialize
  DtRawTagDataList m_updateList;  // pending changes in queued order (unkeyed); owns them
};

#endif  // KPZ_RAW_DTRAW_H
