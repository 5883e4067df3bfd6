// KpzInfoText.cpp - the words, units and layout of `info`'s
// table (kit/kpz). See KpzInfoText.h for each rule.

#include "kpz/KpzInfoText.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include "kpz/KpzRotation.h"
#include "kpz/KpzUpright.h"

namespace {

const std::size_t kLabelColumn = 18;  // the longest label, "Exposure program", and two spaces

std::uint64_t gcd(std::uint64_t a, std::uint64_t b) {
  while (b != 0) {  // Euclid: b strictly decreases
    const std::uint64_t r = a % b;
    a = b;
    b = r;
  }
  return a;
}

std::string row(const char* label, const std::string& value) {
  const std::string name(label);
  std::string line = "  " + name;
  line.append(name.size() < kLabelColumn ? kLabelColumn - name.size() : 1, ' ');
  line += value;
  line += '\n';
  return line;
}

// The value of a getter in words, or why it is absent.
template <typename T, typename F>
std::string shown(const KpzMetadata::Value<T>& v, F words) {
  return v.Ok() ? words(v.value) : KpzInfoText::Absent(v.result, v.pastEnd);
}

std::string number(std::uint64_t n) { return std::to_string(n); }

}  // namespace

std::string KpzInfoText::Absent(int result, bool pastEnd) {
  if (pastEnd) {
    return "not recorded (its place lies past the end of the file)";
  }
  const std::string code = "(error " + std::to_string(result) + ")";
  switch (result) {
    case DtRawErrNoData:
      return "not recorded";
    case DtRawErrSize:
      return "recorded in an unexpected form, not shown " + code;
    case DtRawErrExifVersion:
    case DtRawErrIobVersion:
      return "recorded, but not as four digits " + code;
    default:
      return "unreadable " + code;
  }
}

std::string KpzInfoText::Decimal(std::uint64_t num, std::uint64_t den, unsigned int places) {
  if (den == 0) {
    return "?";
  }
  std::uint64_t scale = 1;
  for (unsigned int i = 0; i < places && i < 6; ++i) {
    scale *= 10;
  }
  // num is at most 32 bits wide in every use, so num * scale cannot wrap.
  const std::uint64_t scaled = (num * scale + den / 2) / den;
  std::string text = number(scaled / scale);
  std::uint64_t fraction = scaled % scale;
  if (fraction == 0) {
    return text;
  }
  std::string digits = number(fraction);
  digits.insert(0, number(scale).size() - 1 - digits.size(), '0');
  while (!digits.empty() && digits.back() == '0') {
    digits.pop_back();
  }
  return text + "." + digits;
}

std::string KpzInfoText::ExposureTime(const KpzMetadata::Fraction& f) {
  if (f.denominator == 0) {
    if (f.numerator == 1) {
      return "1/0 s (longer than 1 s; the exact time is not kept)";
    }
    return number(f.numerator) + "/0 s (not a valid time)";
  }
  if (f.numerator % f.denominator == 0) {
    return number(f.numerator / f.denominator) + " s";
  }
  if (f.numerator == 1) {
    return "1/" + number(f.denominator) + " s";
  }
  if (f.numerator > f.denominator) {
    return Decimal(f.numerator, f.denominator, 2) + " s";
  }
  const std::uint64_t d = gcd(f.numerator, f.denominator);
  return number(f.numerator / d) + "/" + number(f.denominator / d) + " s";
}

std::string KpzInfoText::FNumber(const KpzMetadata::Fraction& f) {
  if (f.denominator == 0) {
    return "not a valid value (" + number(f.numerator) + "/0)";
  }
  return "f/" + Decimal(f.numerator, f.denominator, 2);
}

std::string KpzInfoText::Iso(UINT16 iso) { return number(iso); }

std::string KpzInfoText::ExposureBias(const KpzMetadata::SignedFraction& f) {
  if (f.denominator == 0) {
    return std::to_string(f.numerator) + "/0 EV (not a valid value)";
  }
  // Widened so that the magnitude of INT32_MIN is representable.
  std::int64_t num = f.numerator;
  std::int64_t den = f.denominator;
  if (den < 0) {
    num = -num;
    den = -den;
  }
  if (num == 0) {
    return "0 EV";
  }
  const char* sign = num < 0 ? "-" : "+";
  std::uint64_t n = static_cast<std::uint64_t>(num < 0 ? -num : num);
  std::uint64_t d = static_cast<std::uint64_t>(den);
  const std::uint64_t g = gcd(n, d);
  n /= g;
  d /= g;
  if (d == 1) {
    return sign + number(n) + " EV";
  }
  if (d == 2 || d == 3) {
    const std::uint64_t whole = n / d;
    const std::string part = number(n % d) + "/" + number(d);
    return sign + (whole > 0 ? number(whole) + " " + part : part) + " EV";
  }
  if (100 % d == 0) {
    return sign + Decimal(n, d, 2) + " EV";
  }
  return sign + number(n) + "/" + number(d) + " EV";
}

std::string KpzInfoText::FocalLength(const KpzMetadata::Value<KpzMetadata::Fraction>& real,
                                     const KpzMetadata::Value<KpzMetadata::Fraction>& film35) {
  std::string text;
  if (!real.Ok()) {
    text = Absent(real.result, real.pastEnd);
  } else if (real.value.denominator == 0) {
    text = number(real.value.numerator) + "/0 mm (not a valid value)";
  } else {
    text = Decimal(real.value.numerator, real.value.denominator, 2) + " mm";
  }
  if (!film35.Ok()) {
    return text;
  }
  // The 35 mm value is a whole number of millimetres stored as value/1.
  if (film35.value.numerator == 0) {
    return text + " (35 mm film equivalent unknown)";
  }
  return text + " (" + number(film35.value.numerator) + " mm in 35 mm film)";
}

std::string KpzInfoText::ExposureProgram(UINT8 program) {
  static const char* const kPrograms[] = {
      "not defined",       "manual",           "normal program",
      "aperture priority", "shutter priority", "creative program",
      "action program",    "portrait mode",    "landscape mode"};
  if (program < sizeof(kPrograms) / sizeof(kPrograms[0])) {
    return kPrograms[program];
  }
  return "unknown (" + number(program) + ")";
}

std::string KpzInfoText::Flash(const DtRawFlashInfo& flash) {
  std::vector<std::string> parts;
  if (flash.m_fired != 0) {
    parts.emplace_back("fired");
  } else if (flash.m_function == 0) {
    parts.emplace_back("did not fire");
  }
  if (flash.m_function != 0) {
    parts.emplace_back("no flash function");
  }
  switch (flash.m_mode) {
    case 1:
      parts.emplace_back("compulsory flash firing");
      break;
    case 2:
      parts.emplace_back("compulsory flash suppression");
      break;
    case 3:
      parts.emplace_back("auto mode");
      break;
    default:
      break;  // 0: mode unknown, nothing to say
  }
  switch (flash.m_return) {
    case 1:
      parts.emplace_back("return light status 1 (reserved)");
      break;
    case 2:
      parts.emplace_back("return light not detected");
      break;
    case 3:
      parts.emplace_back("return light detected");
      break;
    default:
      break;  // 0: no return light detection
  }
  if (flash.m_redEye != 0) {
    parts.emplace_back("red-eye reduction");
  }
  std::string text;
  for (const std::string& p : parts) {
    text += text.empty() ? p : ", " + p;
  }
  return text;
}

std::string KpzInfoText::ImageSize(const KpzMetadata::Value<UINT16>& width,
                                   const KpzMetadata::Value<UINT16>& height) {
  if (width.Ok() && height.Ok()) {
    return number(width.value) + " x " + number(height.value) + " pixels";
  }
  const auto side = [](const KpzMetadata::Value<UINT16>& v) {
    return v.Ok() ? number(v.value) : Absent(v.result, v.pastEnd);
  };
  return "width " + side(width) + ", height " + side(height);
}

std::string KpzInfoText::ColourSpace(std::int16_t value) {
  const UINT16 stored = static_cast<UINT16>(value);  // Exif stores it unsigned
  if (stored == 1) {
    return "sRGB";
  }
  if (stored == 0xFFFF) {
    return "uncalibrated";
  }
  return "unknown (" + number(stored) + ")";
}

std::string KpzInfoText::CustomRendered(std::int16_t value) {
  const UINT16 stored = static_cast<UINT16>(value);
  if (stored == 0) {
    return "normal process";
  }
  if (stored == 1) {
    return "custom process";
  }
  return "unknown (" + number(stored) + ")";
}

std::string KpzInfoText::Version(UINT16 value) {
  char text[16];
  std::snprintf(text, sizeof text, "%u.%02u", static_cast<unsigned>(value / 100),
                static_cast<unsigned>(value % 100));
  return text;
}

std::string KpzInfoText::DateTime(const DtRawDateTime& dt) {
  char text[40];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u",
                static_cast<unsigned>(dt.m_year), static_cast<unsigned>(dt.m_month),
                static_cast<unsigned>(dt.m_day), static_cast<unsigned>(dt.m_hour),
                static_cast<unsigned>(dt.m_minute), static_cast<unsigned>(dt.m_second));
  return text;
}

std::string KpzInfoText::Preview(const DtRawScreennailInfo& info) {
  std::string text =
      number(info.m_size) + " bytes at offset " + number(info.m_fileOffset) + ", ";
  if (info.m_horizon == 0 && info.m_vertical == 0) {
    return text + "pixel size not recorded";
  }
  return text + number(info.m_horizon) + " x " + number(info.m_vertical) + " pixels";
}

std::string KpzInfoText::Thumbnail(const DtRawThumbnailInfo& info) {
  std::string text =
      number(info.m_size) + " bytes at offset " + number(info.m_fileOffset) + ", ";
  const std::string code = "compression " + number(info.m_compression);
  switch (info.m_compression) {
    case 1:
      return text + "uncompressed (" + code + ")";
    case 6:
    case 7:
      return text + "JPEG (" + code + ")";
    default:
      return text + code;
  }
}

std::string KpzInfoText::Text(const std::string& bytes) {
  std::string text;
  for (const char c : bytes) {
    const unsigned char u = static_cast<unsigned char>(c);
    if (u == 0) {
      break;
    }
    if (u < 0x20 || u == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(u));
      text += escaped;
    } else {
      text += c;
    }
  }
  return text.empty() ? "(empty)" : text;
}

std::string KpzInfoText::Table(const KpzMetadata& md) {
  std::string out = md.file + "\n";
  out += row("Maker", shown(md.make, Text));
  out += row("Model", shown(md.model, Text));
  out += row("Date taken", shown(md.dateTimeOriginal, DateTime));
  out += row("Exposure time", shown(md.exposureTime, ExposureTime));
  out += row("F-number", shown(md.fNumber, FNumber));
  out += row("ISO", shown(md.isoSpeed, Iso));
  out += row("Exposure bias", shown(md.exposureBias, ExposureBias));
  out += row("Exposure program", shown(md.exposureProgram, ExposureProgram));
  out += row("Focal length", FocalLength(md.focalLength, md.focalLength35mm));
  out += row("Flash", shown(md.flash, Flash));
  out += row("Orientation", shown(md.rotation, [](UINT8 code) {
               std::string words = KpzRotation::Words(code);
               if (code >= 1 && code <= KpzRotation::kLastCode) {
                 words += std::string(" (--upright turns the preview ") +
                          KpzUpright::TurnWords(code) + ")";
               }
               return words;
             }));
  out += row("Raw image size", ImageSize(md.rawImageWidth, md.rawImageHeight));
  out += row("Colour space", shown(md.colorSpace, ColourSpace));
  out += row("Custom rendered", shown(md.customRendered, CustomRendered));
  out += row("Exif version", shown(md.exifVersion, Version));
  out += row("Iob version", shown(md.iobVersion, Version));
  out += row("Iob index", shown(md.iobIndex, Text));
  out += row("T593 mode", shown(md.t593Mode, [](UINT8 v) { return number(v); }));
  out += row("Preview", shown(md.screennail, Preview));
  out += row("Thumbnail", shown(md.thumbnail, Thumbnail));
  return out;
}
