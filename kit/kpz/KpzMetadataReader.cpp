// KpzMetadataReader.cpp - asks one DtRaw every metadata getter for the kpz
// tool's `info` (tools/kpz, above jni/raw). See KpzMetadataReader.h.

#include "kpz/KpzMetadataReader.h"

#include <filesystem>
#include <system_error>
#include <vector>

#include "kpz/KpzErrorText.h"
#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"

namespace {

// A name getter's text: the bytes before the first zero.
KpzMetadata::Value<std::string> readName(DtRaw& raw, bool model) {
  std::vector<char> buff(KpzMetadataReader::kNameBuffer, '\0');
  KpzMetadata::Value<std::string> v;
  v.result = model ? raw.GetModelName(buff.data(), KpzMetadataReader::kNameBuffer)
                   : raw.GetMakerName(buff.data(), KpzMetadataReader::kNameBuffer);
  if (v.Ok()) {
    buff.back() = '\0';  // the getter ends the text; kept safe regardless
    v.value = buff.data();
  }
  return v;
}

KpzMetadata::Value<KpzMetadata::Fraction> readFraction(DtRaw& raw,
                                                       int (DtRaw::*getter)(unsigned int*,
                                                                            unsigned int*)) {
  unsigned int num = 0;
  unsigned int den = 0;
  KpzMetadata::Value<KpzMetadata::Fraction> v;
  v.result = (raw.*getter)(&num, &den);
  if (v.Ok()) {
    v.value.numerator = num;
    v.value.denominator = den;
  }
  return v;
}

// Stores `result` in *v and, when it is 0, `value` too.
template <typename T, typename U>
void keep(KpzMetadata::Value<T>* v, int result, const U& value) {
  v->result = result;
  if (result == DtRawOk) {
    v->value = static_cast<T>(value);
  }
}

// Fills every value of *md from an initialised `raw`.
void readAll(DtRaw& raw, KpzMetadata* md) {
  md->make = readName(raw, false);
  md->model = readName(raw, true);

  DtRawDateTime dt;
  keep(&md->dateTimeOriginal, raw.GetOrgDateTime(&dt), dt);

  md->exposureTime = readFraction(raw, &DtRaw::GetExposureTime);
  md->fNumber = readFraction(raw, &DtRaw::GetFNumber);
  md->focalLength = readFraction(raw, &DtRaw::GetRealFocalLength);
  md->focalLength35mm = readFraction(raw, &DtRaw::Get35mmFocalLength);

  unsigned short iso = 0;
  keep(&md->isoSpeed, raw.GetISOSpeed(&iso), iso);

  int biasNum = 0;
  int biasDen = 0;
  const int biasResult = raw.GetExposureBias(&biasNum, &biasDen);
  KpzMetadata::SignedFraction bias;
  bias.numerator = biasNum;
  bias.denominator = biasDen;
  keep(&md->exposureBias, biasResult, bias);

  unsigned char program = 0;
  keep(&md->exposureProgram, raw.GetExposureProgram(&program), program);

  DtRawFlashInfo flash;
  keep(&md->flash, raw.GetFlashInfo(&flash), flash);

  unsigned char rotation = 0;
  keep(&md->rotation, raw.GetRotationInfo(&rotation), rotation);

  unsigned short width = 0;
  keep(&md->rawImageWidth, raw.GetRawImageWidth(&width), width);
  unsigned short height = 0;
  keep(&md->rawImageHeight, raw.GetRawImageHeight(&height), height);

  short colorSpace = 0;
  keep(&md->colorSpace, raw.GetColorSpace(&colorSpace), colorSpace);
  short customRendered = 0;
  keep(&md->customRendered, raw.GetCustomRendered(&customRendered), customRendered);

  // Deliberate: a version that is not four digits stores 0 with -401/-403;
  // like every other value it is kept only with result 0.
  unsigned short exifVersion = 0;
  keep(&md->exifVersion, raw.GetExifVersion(&exifVersion), exifVersion);
  unsigned short iobVersion = 0;
  keep(&md->iobVersion, raw.GetIobVersion(&iobVersion), iobVersion);

  const char* index = nullptr;
  int indexSize = 0;
  md->iobIndex.result = raw.GetIobIndex(&index, &indexSize);
  if (md->iobIndex.Ok() && index != nullptr && indexSize > 0) {
    md->iobIndex.value.assign(index, static_cast<std::size_t>(indexSize));
  }

  unsigned char mode = 0;
  keep(&md->t593Mode, raw.GetT593Mode(&mode), mode);

  // The picture getters write fields before a later step fails: the record
  // is kept only when it was read whole.
  DtRawScreennailInfo screennail;
  keep(&md->screennail, raw.GetScreennailInfo(&screennail), screennail);
  DtRawThumbnailInfo thumbnail;
  keep(&md->thumbnail, raw.GetThumbnailInfo(&thumbnail), thumbnail);
}

}  // namespace

bool KpzMetadataReader::Read(const std::string& path, KpzMetadata* out) {
  *out = KpzMetadata();
  out->file = path;
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    out->error = KpzErrorText::Directory();
    return false;
  }
  DtRaw raw;
  out->initialized = true;
  out->initResult = raw.Initialize(path.c_str());
  if (out->initResult != DtRawOk) {
    out->error = KpzErrorText::ForFile(path, out->initResult);
    return false;
  }
  readAll(raw, out);
  raw.Finalize();
  return true;
}

bool KpzMetadataReader::ReadHead(KpzSource& source, const std::string& name, KpzMetadata* out) {
  *out = KpzMetadata();
  out->file = name;
  DtRaw raw;
  out->initialized = true;
  out->initResult = raw.InitializeBuf(source.Head(), static_cast<int>(KpzSource::kHeadSize));
  if (out->initResult != DtRawOk) {
    out->error = KpzErrorText::Parse(out->initResult, source.Head(), source.Size());
    return false;
  }
  readAll(raw, out);
  raw.Finalize();
  return true;
}
