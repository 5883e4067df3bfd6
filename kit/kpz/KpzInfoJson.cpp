// KpzInfoJson.cpp - `info --json`'s object, built with
// nlohmann-json (kit/kpz). Keys: docs/KPZ-JSON.md; contracts: KpzInfoJson.h.

#include "kpz/KpzInfoJson.h"

#include <nlohmann/json.hpp>

#include "kpz/KpzUpright.h"
#include "raw/DtRaw.h"

namespace {

using Json = nlohmann::ordered_json;

// A text value up to its first zero byte.
std::string text(const std::string& bytes) { return bytes.substr(0, bytes.find('\0')); }

// {"result": r, <fields>} where each field is null unless r is 0.
template <typename T, typename F>
Json entry(const KpzMetadata::Value<T>& v, std::initializer_list<const char*> keys, F fill) {
  Json j;
  j["result"] = v.result;
  if (v.pastEnd) {
    j["pastEnd"] = true;
  }
  for (const char* key : keys) {
    j[key] = nullptr;
  }
  if (v.Ok()) {
    fill(v.value, j);
  }
  return j;
}

template <typename T>
Json number(const KpzMetadata::Value<T>& v) {
  return entry(v, {"value"}, [](const T& x, Json& j) { j["value"] = x; });
}

template <typename T>
Json fraction(const KpzMetadata::Value<T>& v) {
  return entry(v, {"numerator", "denominator"}, [](const T& x, Json& j) {
    j["numerator"] = x.numerator;
    j["denominator"] = x.denominator;
  });
}

Json string(const KpzMetadata::Value<std::string>& v) {
  return entry(v, {"value"}, [](const std::string& x, Json& j) { j["value"] = text(x); });
}

}  // namespace

std::string KpzInfoJson::Line(const KpzMetadata& md) {
  Json j;
  j["file"] = md.file;
  if (md.initialized) {
    j["result"] = md.initResult;
  } else {
    j["result"] = nullptr;
  }
  if (!md.error.empty()) {
    j["error"] = md.error;
    return j.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  }
  j["error"] = nullptr;
  j["make"] = string(md.make);
  j["model"] = string(md.model);
  j["dateTimeOriginal"] =
      entry(md.dateTimeOriginal, {"year", "month", "day", "hour", "minute", "second"},
            [](const DtRawDateTime& x, Json& o) {
              o["year"] = x.m_year;
              o["month"] = x.m_month;
              o["day"] = x.m_day;
              o["hour"] = x.m_hour;
              o["minute"] = x.m_minute;
              o["second"] = x.m_second;
            });
  j["exposureTime"] = fraction(md.exposureTime);
  j["fNumber"] = fraction(md.fNumber);
  j["isoSpeed"] = number(md.isoSpeed);
  j["exposureBias"] = fraction(md.exposureBias);
  j["exposureProgram"] = number(md.exposureProgram);
  j["focalLength"] = fraction(md.focalLength);
  j["focalLength35mm"] = fraction(md.focalLength35mm);
  j["flash"] = entry(md.flash, {"fired", "return", "mode", "function", "redEye"},
                     [](const DtRawFlashInfo& x, Json& o) {
                       o["fired"] = x.m_fired;
                       o["return"] = x.m_return;
                       o["mode"] = x.m_mode;
                       o["function"] = x.m_function;
                       o["redEye"] = x.m_redEye;
                     });
  j["rotation"] = entry(md.rotation, {"code", "exifOrientation"}, [](UINT8 code, Json& o) {
    o["code"] = code;
    o["exifOrientation"] = DtRaw::convRotInfoUsetoStd(code);
  });
  // What --upright would apply: the rotation code, 0 (nothing) when the
  // orientation is missing or cannot be read.
  const UINT8 upright = md.rotation.Ok() && md.rotation.value <= 7 ? md.rotation.value : 0;
  j["upright"]["code"] = upright;
  if (upright != 0) {
    j["upright"]["turn"] = KpzUpright::TurnWords(upright);
  } else {
    j["upright"]["turn"] = nullptr;
  }
  j["rawImageWidth"] = number(md.rawImageWidth);
  j["rawImageHeight"] = number(md.rawImageHeight);
  j["colorSpace"] = number(md.colorSpace);
  j["customRendered"] = number(md.customRendered);
  j["exifVersion"] = number(md.exifVersion);
  j["iobVersion"] = number(md.iobVersion);
  j["iobIndex"] = entry(md.iobIndex, {"value", "size"}, [](const std::string& x, Json& o) {
    o["value"] = text(x);
    o["size"] = x.size();
  });
  j["t593Mode"] = number(md.t593Mode);
  j["screennail"] = entry(md.screennail, {"offset", "size", "width", "height"},
                          [](const DtRawScreennailInfo& x, Json& o) {
                            o["offset"] = x.m_fileOffset;
                            o["size"] = x.m_size;
                            o["width"] = x.m_horizon;
                            o["height"] = x.m_vertical;
                          });
  j["thumbnail"] = entry(md.thumbnail, {"offset", "size", "compression", "rotation"},
                         [](const DtRawThumbnailInfo& x, Json& o) {
                           o["offset"] = x.m_fileOffset;
                           o["size"] = x.m_size;
                           o["compression"] = x.m_compression;
                           o["rotation"] = x.m_rotation;
                         });
  return j.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}
