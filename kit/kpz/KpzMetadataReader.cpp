// KpzMetadataReader.cpp - asks one DtRaw every metadata getter for `info`
// in every front end (kit/kpz, above jni/raw). See KpzMetadataReader.h.

#include "kpz/KpzMetadataReader.h"

#include <initializer_list>
#include <utility>
#include <vector>

#include "kpz/KpzErrorText.h"
#include "kpz/KpzSource.h"
#include "raw/DtRaw.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawHeadIo.h"
#include "raw/parser/DtRawTagData.h"

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

using Places = DtRawHeadIo::Places;

// True when the library read the value of `p` from somewhere else than
// where its entry puts it: a value held outside its entry at an offset of
// 2 GiB or more, which the library takes with its sign, so that its read of
// the head clamps it to byte 0 and answers the file's first bytes.
bool readFromTheStart(const DtRawHeadIo::Place& p) {
  return p.m_size > 4 && p.m_hasData && p.m_pos > 0x7FFFFFFFu;
}

// A value one of whose places lies past the end of the file, or was read
// from the file's start instead of its place: not recorded there, whatever
// the library made of the bytes it read. `pastEnd` says which.
template <typename T>
void cutOff(KpzMetadata::Value<T>* v, const Places& places,
            std::initializer_list<std::pair<DtRawTagCategory, UINT16>> tags) {
  for (const auto& t : tags) {
    const INT32 category = static_cast<INT32>(t.first);
    const DtRawHeadIo::Place* p = places.Get(category, t.second);
    const bool pastEnd = p != nullptr ? p->PastEnd(places.m_fileSize) : places.Cut(category);
    if (pastEnd || (p != nullptr && readFromTheStart(*p))) {
      v->result = DtRawErrNoData;
      v->value = T{};
      v->pastEnd = pastEnd;
      return;
    }
  }
}

// Marks every value of *md that lies past the end of the file (zeros were
// read there) or at an offset the library's read clamps to the file's
// start, from where its parse found the entries (`places`).
void markPastEnd(const Places& places, KpzMetadata* md) {
  // In a file at least as long as the head, every place the parse reads
  // lies in the head, hence in the file (nominal places beyond the head
  // are not read from it), but for values at 2 GiB or more: those are
  // looked for in every file.
  const DtRawTagCategory ifd0 = DtRawTagCategoryIfd0;
  const DtRawTagCategory ifd1 = DtRawTagCategoryIfd1;
  const DtRawTagCategory exif = DtRawTagCategoryExif;
  const DtRawTagCategory iob = DtRawTagCategoryIob;
  const DtRawTagCategory note = DtRawTagCategoryMakerNote;
  const DtRawTagCategory km = DtRawTagCategoryKmMakerNote;
  cutOff(&md->make, places, {{ifd0, 0x010F}});
  cutOff(&md->model, places, {{ifd0, 0x0110}});
  cutOff(&md->dateTimeOriginal, places, {{exif, 0x9003}});
  cutOff(&md->exposureTime, places, {{exif, 0x829A}});
  cutOff(&md->fNumber, places, {{exif, 0x829D}});
  cutOff(&md->focalLength, places, {{exif, 0x920A}});
  cutOff(&md->focalLength35mm, places, {{exif, 0xA405}});
  cutOff(&md->isoSpeed, places, {{exif, 0x8827}});
  cutOff(&md->exposureBias, places, {{exif, 0x9204}});
  cutOff(&md->exposureProgram, places, {{exif, 0x8822}});
  cutOff(&md->flash, places, {{exif, 0x9209}});
  cutOff(&md->rotation, places, {{ifd0, 0x0112}});
  cutOff(&md->rawImageWidth, places, {{exif, 0xA002}});
  cutOff(&md->rawImageHeight, places, {{exif, 0xA003}});
  cutOff(&md->colorSpace, places, {{exif, 0xA001}});
  cutOff(&md->customRendered, places, {{exif, 0xA401}});
  cutOff(&md->exifVersion, places, {{exif, 0x9000}});
  cutOff(&md->iobVersion, places, {{iob, 0x0002}});
  cutOff(&md->iobIndex, places, {{iob, 0x0001}});
  // The preview's offset and length (the Km maker note's when it has them,
  // IFD0's otherwise) and its pixel size in the maker note: a record not
  // whole in the file is not given.
  if (places.Get(km, 0x0088) != nullptr) {
    cutOff(&md->screennail, places, {{km, 0x0088}, {km, 0x0089}, {note, 0xB02C}});
  } else {
    cutOff(&md->screennail, places, {{ifd0, 0x0201}, {ifd0, 0x0202}, {note, 0xB02C}});
  }
  cutOff(&md->thumbnail, places, {{ifd1, 0x0201}, {ifd1, 0x0202}, {ifd1, 0x0103}});
}

}  // namespace

bool KpzMetadataReader::Read(const std::string& path, KpzMetadata* out) {
  KpzSource source;
  std::string why;
  if (!source.Open(path, &why)) {
    *out = KpzMetadata();
    out->file = path;
    out->error = why;
    out->openErrno = source.Errno();
    // A file that could not be opened or read has the library's code for
    // it; one that was not read at all (a directory, device, pipe, socket)
    // none.
    const int code = KpzErrorText::OpenResult(out->openErrno);
    out->initialized = code != 0;
    out->initResult = code;
    return false;
  }
  return ReadOpened(source, path, out);
}

bool KpzMetadataReader::ReadOpened(KpzSource& source, const std::string& name, KpzMetadata* out) {
  *out = KpzMetadata();
  out->file = name;
  // The one parse runs through a head channel that records why it stops
  // and where the entries it kept lie.
  DtRawHeadIo io(source.Size());
  Places places;
  io.KeepPlaces(&places);
  DtRaw raw;
  DtRawRecord::ParseThrough(&raw, &io);
  out->initialized = true;
  const std::string libraryPath = source.LibraryPath();
  out->initResult = raw.Initialize(libraryPath.c_str());
  if (out->initResult != DtRawOk) {
    out->error = KpzErrorText::ForParse(io, out->initResult);
    return false;
  }
  readAll(raw, out);
  raw.Finalize();
  markPastEnd(places, out);
  return true;
}

bool KpzMetadataReader::ReadHead(KpzSource& source, const std::string& name, KpzMetadata* out) {
  *out = KpzMetadata();
  out->file = name;
  DtRawHeadIo io(source.Size());
  Places places;
  io.KeepPlaces(&places);
  DtRaw raw;
  DtRawRecord::ParseThrough(&raw, &io);
  out->initialized = true;
  out->initResult = raw.InitializeBuf(source.Head(), static_cast<int>(KpzSource::kHeadSize));
  if (out->initResult != DtRawOk) {
    out->error = KpzErrorText::Stopped(out->initResult, io);
    return false;
  }
  readAll(raw, out);
  raw.Finalize();
  markPastEnd(places, out);
  return true;
}
