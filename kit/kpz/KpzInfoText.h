// KpzInfoText.h - `info`'s table: one KPZ file's metadata in
// words a photographer reads, with units.
//
// Part of the kit (kit/kpz), above the library: it turns a
// KpzMetadata record (filled by KpzMetadataReader) into text and calls
// nothing below. A value whose getter failed is shown as "not recorded"
// (result -100) or "unreadable (error <code>)", never as a zero.
//
//   a.kpz
//     Maker             KAVI
//     Exposure time     1/250 s
//     F-number          f/5.6
//     ...
//
//   std::fputs(KpzInfoText::Table(md).c_str(), stdout);
//
// Holds nothing; every operation is a static function. The single-value
// formatters are public so that each rule can be pinned on its own.
#ifndef KPZ_KIT_KPZ_KPZINFOTEXT_H
#define KPZ_KIT_KPZ_KPZINFOTEXT_H

#include <cstdint>
#include <string>

#include "kpz/KpzMetadata.h"

class KpzInfoText {
 public:
  // The file's name on a line of its own, then one line per value: two
  // spaces, the label padded to one column, the value. Ends with a newline.
  // (A record that was never read shows every value as unreadable, error
  // -201; the tool reports such files on standard error instead.)
  static std::string Table(const KpzMetadata& md);

  // Why a value is absent: "not recorded" for -100; "recorded in an
  // unexpected form, not shown (error -402)" for a value of the wrong size or
  // layout; "recorded, but not as four digits (error -401)" (or -403) for a
  // version; "unreadable (error <code>)" for any other code. A value whose
  // place lies past the end of a cut file (`pastEnd`): "not recorded (its
  // place lies past the end of the file)".
  static std::string Absent(int result, bool pastEnd = false);

  // num/den rounded half up to at most `places` decimals, trailing zeros
  // dropped: (28, 10, 2) "2.8", (8, 1, 2) "8", (95, 100, 2) "0.95". `den`
  // must not be 0 (then "?" is returned).
  static std::string Decimal(std::uint64_t num, std::uint64_t den, unsigned int places);

  // "1/250 s"; "0 s"; "2 s" for 2/1; "1/0 s (longer than 1 s; the exact time
  // is not kept)" for 1/0, which is what the library makes of any time over
  // one second; "<n>/0 s (not a valid time)" for another zero denominator.
  static std::string ExposureTime(const KpzMetadata::Fraction& f);
  // "f/8", "f/5.6" (56/10), "f/0.95"; "not a valid value (<n>/0)".
  static std::string FNumber(const KpzMetadata::Fraction& f);
  // "ISO" row: the number as recorded.
  static std::string Iso(UINT16 iso);
  // "-1/3 EV", "+1 1/3 EV", "+2 EV", "0 EV" (halves and thirds as mixed
  // fractions), "-0.3 EV" (tenths, hundredths ... exact decimals), "+7/9 EV"
  // (anything else, reduced); "<n>/0 EV (not a valid value)".
  static std::string ExposureBias(const KpzMetadata::SignedFraction& f);
  // "50 mm (75 mm in 35 mm film)", "18.5 mm"; a 35 mm value of 0 gives
  // "(35 mm film equivalent unknown)"; either part may be absent.
  static std::string FocalLength(const KpzMetadata::Value<KpzMetadata::Fraction>& real,
                                 const KpzMetadata::Value<KpzMetadata::Fraction>& film35);
  // "manual", "normal program", "aperture priority", ... "unknown (<n>)".
  static std::string ExposureProgram(UINT8 program);
  // "fired, auto mode, red-eye reduction", "did not fire, compulsory flash
  // suppression", "no flash function", with the return light in words.
  static std::string Flash(const DtRawFlashInfo& flash);
  // "6000 x 4000 pixels", or "width 6000, height not recorded".
  static std::string ImageSize(const KpzMetadata::Value<UINT16>& width,
                               const KpzMetadata::Value<UINT16>& height);
  // "sRGB" (1), "uncalibrated" (0xFFFF), "unknown (<n>)".
  static std::string ColourSpace(std::int16_t value);
  // "normal process" (0), "custom process" (1), "unknown (<n>)".
  static std::string CustomRendered(std::int16_t value);
  // 230 -> "2.30", 100 -> "1.00".
  static std::string Version(UINT16 value);
  // "2010-05-01 12:34:56" (the numbers as recorded, not range-tested).
  static std::string DateTime(const DtRawDateTime& dt);
  // "<n> bytes at offset <o>, <w> x <h> pixels" (or "pixel size not recorded").
  static std::string Preview(const DtRawScreennailInfo& info);
  // "<n> bytes at offset <o>, JPEG (compression 6)".
  static std::string Thumbnail(const DtRawThumbnailInfo& info);
  // Recorded text up to its first zero byte, control characters as \xNN;
  // "(empty)" when nothing is left.
  static std::string Text(const std::string& bytes);
};

#endif  // KPZ_KIT_KPZ_KPZINFOTEXT_H
