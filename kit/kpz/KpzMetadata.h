// KpzMetadata.h - everything `info` reports, in every front end, about one
// KPZ raw file: each value as the library's getter gave it, with the getter's
// result code.
//
// Part of the kit (kit/kpz): a plain record filled by
// KpzMetadataReader and turned into words by KpzInfoText or into JSON by
// KpzInfoJson. A value is meaningful only when its `result` is 0; otherwise
// it holds its default (zero) and `result` says why it is absent (-100 not
// recorded, -402 not in the expected form, ...).
//
//   KpzMetadata md;
//   KpzMetadataReader::Read("a.kpz", &md);
//   if (md.isoSpeed.result == 0) { use(md.isoSpeed.value); }
//
// Holds no pointers: texts and byte strings are copied out of the library.
#ifndef KPZ_KIT_KPZ_KPZMETADATA_H
#define KPZ_KIT_KPZ_KPZMETADATA_H

#include <cstdint>
#include <string>

#include "raw/DtRawDateTime.h"
#include "raw/DtRawError.h"
#include "raw/DtRawFlashInfo.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawThumbnailInfo.h"
#include "util/DtNlTypes.h"

struct KpzMetadata {
  // One getter's outcome: its result code and, when that is 0, its value.
  template <typename T>
  struct Value {
    int result = DtRawErrNotInit;
    T value{};
    // The value's entry or bytes lie past the end of the file (a cut
    // file): the library read zeros there. result is then -100 (not
    // recorded) and value its default, whatever the getter answered.
    bool pastEnd = false;
    bool Ok() const { return result == DtRawOk; }
  };

  // A TIFF rational as the getter returned it.
  struct Fraction {
    UINT32 numerator = 0;
    UINT32 denominator = 0;
  };
  struct SignedFraction {
    INT32 numerator = 0;
    INT32 denominator = 0;
  };

  std::string file;           // the path as given
  // DtRaw::Initialize was called (false for a file that was not read: a
  // directory, a device, pipe or socket, one that cannot be opened)
  bool initialized = false;
  int openErrno = 0;          // the system's error when the file could not be opened or read
  int initResult = DtRawOk;   // its result; the values below are read only when it is 0
  std::string error;          // words for a failed initialisation; empty otherwise

  Value<std::string> make;                // GetMakerName
  Value<std::string> model;               // GetModelName
  Value<DtRawDateTime> dateTimeOriginal;  // GetOrgDateTime
  Value<Fraction> exposureTime;           // GetExposureTime (already in the form 1/n)
  Value<Fraction> fNumber;                // GetFNumber
  Value<UINT16> isoSpeed;                 // GetISOSpeed
  Value<SignedFraction> exposureBias;     // GetExposureBias
  Value<UINT8> exposureProgram;           // GetExposureProgram
  Value<Fraction> focalLength;            // GetRealFocalLength
  Value<Fraction> focalLength35mm;        // Get35mmFocalLength
  Value<DtRawFlashInfo> flash;            // GetFlashInfo
  Value<UINT8> rotation;                  // GetRotationInfo (a rotation code 0..7)
  Value<UINT16> rawImageWidth;            // GetRawImageWidth
  Value<UINT16> rawImageHeight;           // GetRawImageHeight
  Value<std::int16_t> colorSpace;         // GetColorSpace (0xFFFF reads as -1)
  Value<std::int16_t> customRendered;     // GetCustomRendered
  Value<UINT16> exifVersion;              // GetExifVersion ("0230" gives 230)
  Value<UINT16> iobVersion;               // GetIobVersion
  Value<std::string> iobIndex;            // GetIobIndex: all of its bytes (zeros included)
  Value<UINT8> t593Mode;                  // GetT593Mode
  Value<DtRawScreennailInfo> screennail;  // GetScreennailInfo (the preview)
  Value<DtRawThumbnailInfo> thumbnail;    // GetThumbnailInfo
};

#endif  // KPZ_KIT_KPZ_KPZMETADATA_H
