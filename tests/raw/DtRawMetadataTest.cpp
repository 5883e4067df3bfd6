// Tests of DtRaw's metadata queries: the 16-bit getters (raw image size,
// colour space, custom rendering, 35 mm focal length, flash, exposure program,
// ISO speed), the rational getters (focal length, F-number, exposure time with
// its 1/n reduction, signed exposure bias), maker and model names (from the
// tag's bytes and from the memory copy, with every bound of that copy), the
// shooting date-time parser, the Exif and Iob versions and GetT593Mode. Files
// are built by kpztest::BuildKpz in both byte orders and read in file and
// buffer mode; log lines are compared whole.
#include "raw/DtRaw.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "raw/DtRawError.h"
#include "raw/DtRawTestUtil.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"
#include "support/LogExpect.h"

namespace {

using dtrawtest::Loaded;
using dtrawtest::Mode;
using kpztest::Bytes;
using kpztest::CaptureStderr;
using kpztest::Ifd;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

const char* kRawCpp = "jni/raw/DtRaw.cpp";

// The INFO / WARN line of the `occurrence`-th logging call with `format`
// inside `function` of DtRaw.cpp, printing `message`.
std::string Info(const std::string& function, const std::string& format,
                 const std::string& message, int occurrence = 1) {
  return kpztest::InfoLine(kRawCpp, function,
                           kpztest::LogCallLineIn(kRawCpp, function, format, occurrence), message);
}
std::string Info(const std::string& function, const std::string& message) {
  return Info(function, message, message);
}
// A getter's WARN line for a tag too short: it names the getter and the size,
// and stands at the getter's look-up call, the line of its INFO line for a
// missing tag (`missing`).
std::string InvalidDataLine(const std::string& function, const std::string& missing,
                            std::uint32_t size) {
  return kpztest::WarnLine(kRawCpp, function, kpztest::LogCallLineIn(kRawCpp, function, missing),
                           "Raw: " + function + "() invalid data, size=" + std::to_string(size) +
                               ".");
}

// ---- Parameters: byte order and mode ----------------------------------------

using OrderMode = std::tuple<DtNlByteOrder, Mode>;

std::string OrderModeName(const testing::TestParamInfo<OrderMode>& p) {
  return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
         dtrawtest::ModeName(std::get<1>(p.param));
}

class DtRawMeta : public testing::TestWithParam<OrderMode> {
 protected:
  DtNlByteOrder Order() const { return std::get<0>(GetParam()); }
  Mode LoadMode() const { return std::get<1>(GetParam()); }

  // Loads `recipe` with this test's byte order, or fails the test.
  void LoadSpec(KpzSpec recipe, KpzLayout* where = nullptr) {
    recipe.order = Order();
    m_file.reset(new Loaded(kpztest::BuildKpz(recipe, where)));
    ASSERT_EQ(m_file->Load(LoadMode()), DtRawOk);
  }
  DtRaw& Raw() { return m_file->raw; }
  // Bytes the memory copy holds: the head in file mode, the buffer otherwise.
  std::uint32_t CopySize() const {
    return LoadMode() == Mode::File ? DtRaw::READ_SIZE
                                    : static_cast<std::uint32_t>(m_file->Bytes().size());
  }

  std::unique_ptr<Loaded> m_file;
};

INSTANTIATE_TEST_SUITE_P(OrdersAndModes, DtRawMeta,
                         testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                          testing::Values(Mode::File, Mode::Buffer)),
                         OrderModeName);

// ---- 16-bit getters ----------------------------------------------------------

TEST_P(DtRawMeta, SixteenBitGettersDecodeInTheFilesByteOrderSilently) {
  KpzSpec recipe;
  recipe.pixelX = 0x1234;
  recipe.pixelY = 0x0FA0;
  recipe.colorSpace = 1;
  recipe.customRendered = 1;
  recipe.focalLength35 = 0x0105;
  recipe.exposureProgram = 3;
  recipe.isoSpeed = 0x0C80;
  LoadSpec(recipe);
  unsigned short width = 0;
  unsigned short height = 0;
  short colorSpace = 0;
  short rendered = 0;
  unsigned int num = 0;
  unsigned int den = 0;
  unsigned char program = 0;
  unsigned short iso = 0;
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(Raw().GetRawImageWidth(&width), DtRawOk);
    EXPECT_EQ(Raw().GetRawImageHeight(&height), DtRawOk);
    EXPECT_EQ(Raw().GetColorSpace(&colorSpace), DtRawOk);
    EXPECT_EQ(Raw().GetCustomRendered(&rendered), DtRawOk);
    EXPECT_EQ(Raw().Get35mmFocalLength(&num, &den), DtRawOk);
    EXPECT_EQ(Raw().GetExposureProgram(&program), DtRawOk);
    EXPECT_EQ(Raw().GetISOSpeed(&iso), DtRawOk);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(width, 0x1234);
  EXPECT_EQ(height, 0x0FA0);
  EXPECT_EQ(colorSpace, 1);
  EXPECT_EQ(rendered, 1);
  EXPECT_EQ(num, 0x0105u);
  EXPECT_EQ(den, 1u);
  EXPECT_EQ(program, 3);
  EXPECT_EQ(iso, 0x0C80);
}

TEST_P(DtRawMeta, SignedSixteenBitValuesKeepTheirBits) {
  KpzSpec recipe;
  recipe.colorSpace = 0xFFFF;  // "uncalibrated"
  recipe.customRendered = 0x8001;
  LoadSpec(recipe);
  short colorSpace = 0;
  short rendered = 0;
  EXPECT_EQ(Raw().GetColorSpace(&colorSpace), DtRawOk);
  EXPECT_EQ(Raw().GetCustomRendered(&rendered), DtRawOk);
  EXPECT_EQ(colorSpace, -1);
  EXPECT_EQ(rendered, -32767);
}

TEST_P(DtRawMeta, ExposureProgramKeepsTheLowByte) {
  KpzSpec recipe;
  recipe.exposureProgram = 0x0102;
  LoadSpec(recipe);
  unsigned char program = 0;
  EXPECT_EQ(Raw().GetExposureProgram(&program), DtRawOk);
  EXPECT_EQ(program, 0x02);
}

TEST_P(DtRawMeta, SixteenBitGettersReadTheFirstOfSeveralValues) {
  KpzSpec recipe;
  recipe.editExif = [](Ifd& exif) {
    exif.Remove(tag::kIsoSpeed);
    exif.AddShorts(tag::kIsoSpeed, {400, 800, 1600});
  };
  LoadSpec(recipe);
  unsigned short iso = 0;
  EXPECT_EQ(Raw().GetISOSpeed(&iso), DtRawOk);
  EXPECT_EQ(iso, 400);
}

struct FlashCase {
  std::uint16_t value;
  DtRawFlashInfo want;
};

class DtRawFlash : public testing::TestWithParam<std::tuple<OrderMode, FlashCase>> {};

TEST_P(DtRawFlash, FlashValueIsSplitIntoItsBits) {
  const OrderMode om = std::get<0>(GetParam());
  const FlashCase c = std::get<1>(GetParam());
  KpzSpec recipe;
  recipe.order = std::get<0>(om);
  recipe.flash = c.value;
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(std::get<1>(om)), DtRawOk);
  DtRawFlashInfo info;
  info.m_fired = info.m_return = info.m_mode = info.m_function = info.m_redEye = 0xEE;
  int result = -1;
  std::string err = CaptureStderr([&] { result = file.raw.GetFlashInfo(&info); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(info.m_fired, c.want.m_fired);
  EXPECT_EQ(info.m_return, c.want.m_return);
  EXPECT_EQ(info.m_mode, c.want.m_mode);
  EXPECT_EQ(info.m_function, c.want.m_function);
  EXPECT_EQ(info.m_redEye, c.want.m_redEye);
}

DtRawFlashInfo Flash(int fired, int ret, int mode, int function, int redEye) {
  DtRawFlashInfo info;
  info.m_fired = static_cast<UINT8>(fired);
  info.m_return = static_cast<UINT8>(ret);
  info.m_mode = static_cast<UINT8>(mode);
  info.m_function = static_cast<UINT8>(function);
  info.m_redEye = static_cast<UINT8>(redEye);
  return info;
}

INSTANTIATE_TEST_SUITE_P(
    Values, DtRawFlash,
    testing::Combine(testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                      testing::Values(Mode::File, Mode::Buffer)),
                     testing::Values(FlashCase{0x0059, Flash(1, 0, 3, 0, 1)},
                                     FlashCase{0x0026, Flash(0, 3, 0, 1, 0)},
                                     FlashCase{0x0000, Flash(0, 0, 0, 0, 0)},
                                     FlashCase{0x007F, Flash(1, 3, 3, 1, 1)},
                                     // Bits above 6 are not part of any field.
                                     FlashCase{0xFF80, Flash(0, 0, 0, 0, 0)},
                                     FlashCase{0x000A, Flash(0, 1, 1, 0, 0)})),
    [](const testing::TestParamInfo<std::tuple<OrderMode, FlashCase>>& p) {
      const OrderMode om = std::get<0>(p.param);
      return std::string(dtrawtest::OrderName(std::get<0>(om))) +
             dtrawtest::ModeName(std::get<1>(om)) + "Value" +
             std::to_string(std::get<1>(p.param).value);
    });

// ---- Every getter: missing, short, uninitialised, null ---------------------

enum class Dir { Ifd0, Exif, Iob };

// What one call did: its result and whether it wrote its outputs.
struct Outcome {
  int result;
  bool wrote;
};

struct Getter {
  const char* name;
  std::uint16_t tagId;
  Dir dir;
  const char* missing;  // INFO text when the tag is missing
  std::function<Outcome(DtRaw&)> call;        // with sentinel outputs
  std::function<int(DtRaw&)> callWithNull;    // with a null output
};

// A getter with one output of type T, called with a sentinel value.
template <typename T>
std::function<Outcome(DtRaw&)> One(int (DtRaw::*fn)(T*), T sentinel) {
  return [fn, sentinel](DtRaw& raw) {
    T value = sentinel;
    const int result = (raw.*fn)(&value);
    return Outcome{result, value != sentinel};
  };
}
template <typename T>
std::function<int(DtRaw&)> OneNull(int (DtRaw::*fn)(T*)) {
  return [fn](DtRaw& raw) { return (raw.*fn)(nullptr); };
}
template <typename T>
std::function<Outcome(DtRaw&)> Two(int (DtRaw::*fn)(T*, T*), T sentinel) {
  return [fn, sentinel](DtRaw& raw) {
    T a = sentinel;
    T b = sentinel;
    const int result = (raw.*fn)(&a, &b);
    return Outcome{result, a != sentinel || b != sentinel};
  };
}
template <typename T>
std::function<int(DtRaw&)> TwoNull(int (DtRaw::*fn)(T*, T*)) {
  return [fn](DtRaw& raw) {
    T a{};
    const int first = (raw.*fn)(nullptr, &a);
    const int second = (raw.*fn)(&a, nullptr);
    return first == second ? first : 1;  // 1: the two disagree
  };
}

Outcome CallFlash(DtRaw& raw) {
  DtRawFlashInfo info;
  info.m_fired = info.m_return = info.m_mode = info.m_function = info.m_redEye = 0xEE;
  const int result = raw.GetFlashInfo(&info);
  return Outcome{result, info.m_fired != 0xEE || info.m_return != 0xEE || info.m_mode != 0xEE ||
                             info.m_function != 0xEE || info.m_redEye != 0xEE};
}

Outcome CallDateTime(DtRaw& raw) {
  DtRawDateTime dt;
  dt.m_year = 0xEEEE;
  dt.m_month = dt.m_day = dt.m_hour = dt.m_minute = dt.m_second = 0xEE;
  const int result = raw.GetOrgDateTime(&dt);
  return Outcome{result, dt.m_year != 0xEEEE || dt.m_month != 0xEE || dt.m_day != 0xEE ||
                             dt.m_hour != 0xEE || dt.m_minute != 0xEE || dt.m_second != 0xEE};
}

std::function<Outcome(DtRaw&)> Name(int (DtRaw::*fn)(char*, unsigned int)) {
  return [fn](DtRaw& raw) {
    char buff[16];
    std::memset(buff, 0x7E, sizeof buff);
    const int result = (raw.*fn)(buff, sizeof buff);
    bool wrote = false;
    for (char c : buff) {
      wrote = wrote || c != 0x7E;
    }
    return Outcome{result, wrote};
  };
}

std::vector<Getter> AllGetters() {
  return {
      {"GetRawImageHeight", tag::kPixelY, Dir::Exif, "Raw: not exist raw image height!!",
       One<unsigned short>(&DtRaw::GetRawImageHeight, 0xA5A5),
       OneNull<unsigned short>(&DtRaw::GetRawImageHeight)},
      {"GetRawImageWidth", tag::kPixelX, Dir::Exif, "Raw: not exist raw image width!!",
       One<unsigned short>(&DtRaw::GetRawImageWidth, 0xA5A5),
       OneNull<unsigned short>(&DtRaw::GetRawImageWidth)},
      {"GetColorSpace", tag::kColorSpace, Dir::Exif, "Raw: not exist color space!!",
       One<short>(&DtRaw::GetColorSpace, 0x5A5A), OneNull<short>(&DtRaw::GetColorSpace)},
      {"GetCustomRendered", tag::kCustomRendered, Dir::Exif, "Raw: not exist custom rendered!!",
       One<short>(&DtRaw::GetCustomRendered, 0x5A5A), OneNull<short>(&DtRaw::GetCustomRendered)},
      {"Get35mmFocalLength", tag::kFocalLength35, Dir::Exif,
       "Raw: not exist focal length in 35mm!!",
       Two<unsigned int>(&DtRaw::Get35mmFocalLength, 0xA5A5A5A5u),
       TwoNull<unsigned int>(&DtRaw::Get35mmFocalLength)},
      {"GetFlashInfo", tag::kFlash, Dir::Exif, "Raw: not exist flash information!!", CallFlash,
       OneNull<DtRawFlashInfo>(&DtRaw::GetFlashInfo)},
      {"GetExposureProgram", tag::kExposureProgram, Dir::Exif,
       "Raw: not exist exposure program!!",
       One<unsigned char>(&DtRaw::GetExposureProgram, 0xA5),
       OneNull<unsigned char>(&DtRaw::GetExposureProgram)},
      {"GetISOSpeed", tag::kIsoSpeed, Dir::Exif, "Raw: not exist iso speed rate!!",
       One<unsigned short>(&DtRaw::GetISOSpeed, 0xA5A5),
       OneNull<unsigned short>(&DtRaw::GetISOSpeed)},
      {"GetRealFocalLength", tag::kFocalLength, Dir::Exif, "Raw: not exist focal length!!",
       Two<unsigned int>(&DtRaw::GetRealFocalLength, 0xA5A5A5A5u),
       TwoNull<unsigned int>(&DtRaw::GetRealFocalLength)},
      {"GetFNumber", tag::kFNumber, Dir::Exif, "Raw: not exist f value!!",
       Two<unsigned int>(&DtRaw::GetFNumber, 0xA5A5A5A5u),
       TwoNull<unsigned int>(&DtRaw::GetFNumber)},
      {"GetExposureTime", tag::kExposureTime, Dir::Exif, "Raw: not exist exposure time!!",
       Two<unsigned int>(&DtRaw::GetExposureTime, 0xA5A5A5A5u),
       TwoNull<unsigned int>(&DtRaw::GetExposureTime)},
      {"GetExposureBias", tag::kExposureBias, Dir::Exif, "Raw: not exist exposure bias!!",
       Two<int>(&DtRaw::GetExposureBias, 0x5A5A5A5A), TwoNull<int>(&DtRaw::GetExposureBias)},
      {"GetMakerName", tag::kMake, Dir::Ifd0, "Raw: not exist maker name!!",
       Name(&DtRaw::GetMakerName),
       [](DtRaw& raw) { return raw.GetMakerName(nullptr, 16); }},
      {"GetModelName", tag::kModel, Dir::Ifd0, "Raw: not exist model name!!",
       Name(&DtRaw::GetModelName),
       [](DtRaw& raw) { return raw.GetModelName(nullptr, 16); }},
      {"GetOrgDateTime", tag::kDateTimeOriginal, Dir::Exif,
       "Raw: not exist original date time!!", CallDateTime,
       OneNull<DtRawDateTime>(&DtRaw::GetOrgDateTime)},
      {"GetExifVersion", tag::kExifVersion, Dir::Exif, "Raw: not exist exif version!!",
       One<unsigned short>(&DtRaw::GetExifVersion, 0xA5A5),
       OneNull<unsigned short>(&DtRaw::GetExifVersion)},
      {"GetIobVersion", tag::kIobVersion, Dir::Iob, "Raw: not exist iob version!!",
       One<unsigned short>(&DtRaw::GetIobVersion, 0xA5A5),
       OneNull<unsigned short>(&DtRaw::GetIobVersion)},
  };
}

// Applies `edit` to the directory the getter reads.
void EditDirOf(KpzSpec* recipe, Dir dir, std::function<void(Ifd&)> edit) {
  switch (dir) {
    case Dir::Ifd0:
      recipe->editIfd0 = std::move(edit);
      break;
    case Dir::Exif:
      recipe->editExif = std::move(edit);
      break;
    case Dir::Iob:
      recipe->editIob = std::move(edit);
      break;
  }
}

TEST(DtRawMetadata, EveryGetterBeforeInitialisationReturnsNotInitSilently) {
  DtRaw raw;
  for (const Getter& g : AllGetters()) {
    SCOPED_TRACE(g.name);
    Outcome out{0, true};
    std::string err = CaptureStderr([&] { out = g.call(raw); });
    EXPECT_EQ(out.result, DtRawErrNotInit);
    EXPECT_FALSE(out.wrote);
    EXPECT_EQ(err, "");
  }
}

TEST(DtRawMetadata, EveryGetterAfterFinalizeReturnsNotInit) {
  Loaded file(kpztest::BuildKpz(KpzSpec()));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  file.raw.Finalize();
  for (const Getter& g : AllGetters()) {
    SCOPED_TRACE(g.name);
    EXPECT_EQ(g.call(file.raw).result, DtRawErrNotInit);
  }
}

TEST(DtRawMetadata, EveryGetterRefusesANullOutputWithParamSilently) {
  Loaded file(kpztest::BuildKpz(KpzSpec()));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  for (const Getter& g : AllGetters()) {
    SCOPED_TRACE(g.name);
    int result = 0;
    std::string err = CaptureStderr([&] { result = g.callWithNull(file.raw); });
    EXPECT_EQ(result, DtRawErrParam);
    EXPECT_EQ(err, "");
  }
}

TEST(DtRawMetadata, EveryGetterSucceedsOnTheStandardFile) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    KpzSpec recipe;
    recipe.order = order;
    Loaded file(kpztest::BuildKpz(recipe));
    ASSERT_EQ(file.Load(Mode::File), DtRawOk);
    for (const Getter& g : AllGetters()) {
      SCOPED_TRACE(g.name);
      const Outcome out = g.call(file.raw);
      EXPECT_EQ(out.result, DtRawOk);
      EXPECT_TRUE(out.wrote);
    }
  }
}

class DtRawMissingTag : public testing::TestWithParam<std::tuple<OrderMode, std::size_t>> {};

TEST_P(DtRawMissingTag, MissingTagReturnsNoDataWithItsInfoLineAndWritesNothing) {
  const OrderMode om = std::get<0>(GetParam());
  const Getter g = AllGetters()[std::get<1>(GetParam())];
  KpzSpec recipe;
  recipe.order = std::get<0>(om);
  const std::uint16_t id = g.tagId;
  EditDirOf(&recipe, g.dir, [id](Ifd& ifd) { ifd.Remove(id); });
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(std::get<1>(om)), DtRawOk);
  Outcome out{0, true};
  std::string err = CaptureStderr([&] { out = g.call(file.raw); });
  EXPECT_EQ(out.result, DtRawErrNoData);
  EXPECT_FALSE(out.wrote);
  EXPECT_EQ(err, Info(g.name, g.missing));
}

// Every getter but GetModelName: a file without a model name does not parse,
// so that getter never meets a missing tag on an initialised object.
INSTANTIATE_TEST_SUITE_P(
    Getters, DtRawMissingTag,
    testing::Combine(testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                      testing::Values(Mode::File, Mode::Buffer)),
                     testing::Values<std::size_t>(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 14,
                                                  15, 16)),
    [](const testing::TestParamInfo<std::tuple<OrderMode, std::size_t>>& p) {
      const OrderMode om = std::get<0>(p.param);
      return std::string(dtrawtest::OrderName(std::get<0>(om))) +
             dtrawtest::ModeName(std::get<1>(om)) + AllGetters()[std::get<1>(p.param)].name;
    });

TEST(DtRawMetadata, AFileWithoutModelNameNeverInitialises) {
  KpzSpec recipe;
  recipe.model.reset();
  Loaded file(kpztest::BuildKpz(recipe));
  CaptureStderr([&] { EXPECT_EQ(file.Load(Mode::File), DtRawErrFormat); });
  char buff[16] = {};
  EXPECT_EQ(file.raw.GetModelName(buff, sizeof buff), DtRawErrNotInit);
}

// A 16-bit or version tag whose value is too short or kept without bytes.
struct ShortCase {
  std::size_t getter;  // index into AllGetters()
  std::uint16_t type;
  std::uint32_t count;
  std::uint32_t size;  // bytes: count x unit
};

class DtRawShortTag : public testing::TestWithParam<std::tuple<DtNlByteOrder, ShortCase>> {};

TEST_P(DtRawShortTag, ShortTagReturnsNoDataWithTheWarnLineNamingItsSize) {
  const ShortCase c = std::get<1>(GetParam());
  const Getter g = AllGetters()[c.getter];
  KpzSpec recipe;
  recipe.order = std::get<0>(GetParam());
  const std::uint16_t id = g.tagId;
  EditDirOf(&recipe, g.dir, [id, c](Ifd& ifd) {
    ASSERT_TRUE(ifd.Replace(id, c.type, c.count, Bytes(c.size, 0x31)));
  });
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  Outcome out{0, true};
  std::string err = CaptureStderr([&] { out = g.call(file.raw); });
  EXPECT_EQ(out.result, DtRawErrNoData);
  EXPECT_FALSE(out.wrote);
  EXPECT_EQ(err, InvalidDataLine(g.name, g.missing, c.size));
}

INSTANTIATE_TEST_SUITE_P(
    Getters, DtRawShortTag,
    testing::Combine(
        testing::Values(DtNlLittleEndian, DtNlBigEndian),
        testing::Values(
            // One byte, fewer than the two a 16-bit value needs.
            ShortCase{0, kpztest::kTiffByte, 1, 1}, ShortCase{1, kpztest::kTiffByte, 1, 1},
            ShortCase{2, kpztest::kTiffByte, 1, 1}, ShortCase{3, kpztest::kTiffByte, 1, 1},
            ShortCase{4, kpztest::kTiffByte, 1, 1}, ShortCase{5, kpztest::kTiffByte, 1, 1},
            ShortCase{6, kpztest::kTiffByte, 1, 1}, ShortCase{7, kpztest::kTiffByte, 1, 1},
            // 40 bytes: kept by position only, without value bytes.
            ShortCase{0, kpztest::kTiffShort, 20, 40}, ShortCase{5, kpztest::kTiffShort, 20, 40},
            ShortCase{7, kpztest::kTiffShort, 20, 40},
            // No bytes at all.
            ShortCase{2, kpztest::kTiffShort, 0, 0},
            // Versions need four bytes.
            ShortCase{15, kpztest::kTiffUndefined, 3, 3},
            ShortCase{16, kpztest::kTiffUndefined, 3, 3},
            ShortCase{15, kpztest::kTiffUndefined, 40, 40},
            ShortCase{16, kpztest::kTiffUndefined, 40, 40})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, ShortCase>>& p) {
      const ShortCase c = std::get<1>(p.param);
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
             AllGetters()[c.getter].name + "Size" + std::to_string(c.size);
    });

// ---- Rationals -------------------------------------------------------------------

TEST_P(DtRawMeta, RationalGettersReturnNumeratorAndDenominatorSilently) {
  KpzSpec recipe;
  recipe.focalLength = std::make_pair(std::uint32_t{0x01020304}, std::uint32_t{10});
  recipe.fNumber = std::make_pair(std::uint32_t{28}, std::uint32_t{0x0A0B0C0D});
  recipe.exposureBias = std::make_pair(std::int32_t{-1}, std::int32_t{3});
  LoadSpec(recipe);
  unsigned int num = 0;
  unsigned int den = 0;
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(Raw().GetRealFocalLength(&num, &den), DtRawOk);
    EXPECT_EQ(num, 0x01020304u);
    EXPECT_EQ(den, 10u);
    EXPECT_EQ(Raw().GetFNumber(&num, &den), DtRawOk);
    EXPECT_EQ(num, 28u);
    EXPECT_EQ(den, 0x0A0B0C0Du);
  });
  EXPECT_EQ(err, "");
}

TEST_P(DtRawMeta, ExposureBiasIsSigned) {
  for (const auto& bias : {std::make_pair(-1, 3), std::make_pair(2, -3),
                           std::make_pair(-2147483647 - 1, 2147483647), std::make_pair(0, 1)}) {
    KpzSpec recipe;
    recipe.exposureBias = bias;
    LoadSpec(recipe);
    int num = 7;
    int den = 7;
    EXPECT_EQ(Raw().GetExposureBias(&num, &den), DtRawOk);
    EXPECT_EQ(num, bias.first);
    EXPECT_EQ(den, bias.second);
  }
}

struct TimeCase {
  std::uint32_t num;
  std::uint32_t den;
  std::uint32_t wantNum;
  std::uint32_t wantDen;
};

class DtRawExposureTime : public testing::TestWithParam<std::tuple<OrderMode, TimeCase>> {};

TEST_P(DtRawExposureTime, ExposureTimeIsReducedToOneOverN) {
  const OrderMode om = std::get<0>(GetParam());
  const TimeCase c = std::get<1>(GetParam());
  KpzSpec recipe;
  recipe.order = std::get<0>(om);
  recipe.exposureTime = std::make_pair(c.num, c.den);
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(std::get<1>(om)), DtRawOk);
  unsigned int num = 0xA5A5A5A5u;
  unsigned int den = 0xA5A5A5A5u;
  int result = -1;
  std::string err = CaptureStderr([&] { result = file.raw.GetExposureTime(&num, &den); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(num, c.wantNum);
  EXPECT_EQ(den, c.wantDen);
}

INSTANTIATE_TEST_SUITE_P(
    Values, DtRawExposureTime,
    testing::Combine(testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                      testing::Values(Mode::File, Mode::Buffer)),
                     testing::Values(TimeCase{1, 60, 1, 60}, TimeCase{10, 600, 1, 60},
                                     TimeCase{10, 2500, 1, 250},
                                     // Two seconds or more: the truncation gives 1/0.
                                     TimeCase{4, 1, 1, 0}, TimeCase{2, 1, 1, 0},
                                     // A zero denominator is returned as read.
                                     TimeCase{5, 0, 5, 0}, TimeCase{1, 0, 1, 0},
                                     TimeCase{0, 5, 0, 5}, TimeCase{7, 20, 1, 2},
                                     TimeCase{3, 1000, 1, 333},
                                     TimeCase{0xFFFFFFFFu, 0xFFFFFFFFu, 1, 1})),
    [](const testing::TestParamInfo<std::tuple<OrderMode, TimeCase>>& p) {
      const OrderMode om = std::get<0>(p.param);
      const TimeCase c = std::get<1>(p.param);
      return std::string(dtrawtest::OrderName(std::get<0>(om))) +
             dtrawtest::ModeName(std::get<1>(om)) + std::to_string(c.num) + "Over" +
             std::to_string(c.den);
    });

struct FractionSizeCase {
  const char* name;
  std::uint16_t type;
  std::uint32_t count;
  std::uint32_t bytes;
};

class DtRawFractionSize
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, FractionSizeCase>> {};

TEST_P(DtRawFractionSize, FractionNotExactlyOneRationalReturnsSizeWithoutALine) {
  const FractionSizeCase c = std::get<1>(GetParam());
  const std::vector<Getter> all = AllGetters();
  for (std::size_t index : {std::size_t{8}, std::size_t{9}, std::size_t{10}, std::size_t{11}}) {
    const Getter& g = all[index];
    SCOPED_TRACE(g.name);
    KpzSpec recipe;
    recipe.order = std::get<0>(GetParam());
    const std::uint16_t id = g.tagId;
    recipe.editExif = [id, c](Ifd& exif) {
      ASSERT_TRUE(exif.Replace(id, c.type, c.count, kpztest::PatternBytes(c.bytes, 3)));
    };
    Loaded file(kpztest::BuildKpz(recipe));
    ASSERT_EQ(file.Load(Mode::File), DtRawOk);
    Outcome out{0, true};
    std::string err = CaptureStderr([&] { out = g.call(file.raw); });
    EXPECT_EQ(out.result, DtRawErrSize);
    EXPECT_FALSE(out.wrote);
    EXPECT_EQ(err, "");
  }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, DtRawFractionSize,
    testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                     testing::Values(FractionSizeCase{"TwoRationals", kpztest::kTiffRational, 2,
                                                      16},
                                     FractionSizeCase{"OneLong", kpztest::kTiffLong, 1, 4},
                                     FractionSizeCase{"SevenBytes", kpztest::kTiffUndefined, 7, 7},
                                     FractionSizeCase{"NineBytes", kpztest::kTiffUndefined, 9, 9},
                                     FractionSizeCase{"NoBytesKept", kpztest::kTiffRational, 5, 40},
                                     FractionSizeCase{"Empty", kpztest::kTiffRational, 0, 0})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, FractionSizeCase>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) + std::get<1>(p.param).name;
    });

TEST(DtRawMetadata, EightBytesOfAnyTypeAreOneRational) {
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.editExif = [](Ifd& exif) {
    ASSERT_TRUE(exif.Replace(tag::kFNumber, kpztest::kTiffUndefined, 8,
                             Bytes{0, 0, 0, 35, 0, 0, 0, 10}));
  };
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  unsigned int num = 0;
  unsigned int den = 0;
  EXPECT_EQ(file.raw.GetFNumber(&num, &den), DtRawOk);
  EXPECT_EQ(num, 35u);
  EXPECT_EQ(den, 10u);
}

// ---- Maker and model names ------------------------------------------------

std::string Text(const std::vector<char>& buff) { return std::string(buff.data()); }

TEST_P(DtRawMeta, MakerAndModelNamesAreCopiedWithTheirTerminator) {
  LoadSpec(KpzSpec());
  std::vector<char> maker(32, 0x7E);
  std::vector<char> model(32, 0x7E);
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(Raw().GetMakerName(maker.data(), 32), DtRawOk);
    EXPECT_EQ(Raw().GetModelName(model.data(), 32), DtRawOk);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(Text(maker), "KAVI");
  EXPECT_EQ(Text(model), "DSLR-M100");
  // The rest of the buffer is cleared.
  for (std::size_t i = 4; i < maker.size(); ++i) EXPECT_EQ(maker[i], 0) << i;
  for (std::size_t i = 9; i < model.size(); ++i) EXPECT_EQ(model[i], 0) << i;
}

TEST_P(DtRawMeta, M372ModelNameIsReportedAsStored) {
  KpzSpec recipe;
  recipe.m372 = true;
  LoadSpec(recipe);
  std::vector<char> model(16, 0x7E);
  EXPECT_EQ(Raw().GetModelName(model.data(), 16), DtRawOk);
  EXPECT_EQ(Text(model), "DSLR-M372");
}

TEST_P(DtRawMeta, NameAsLongAsTheBufferOrLongerIsCutByOne) {
  LoadSpec(KpzSpec());
  // "KAVI" and its zero byte are 5 bytes.
  for (unsigned int size : {1u, 2u, 4u, 5u, 6u}) {
    SCOPED_TRACE(size);
    std::vector<char> buff(size + 8, 0x7E);
    EXPECT_EQ(Raw().GetMakerName(buff.data(), size), DtRawOk);
    EXPECT_EQ(Text(buff), std::string("KAVI").substr(0, size - 1));
    EXPECT_EQ(buff[size - 1], 0);
    // Nothing beyond the caller's size is touched.
    for (std::size_t i = size; i < buff.size(); ++i) EXPECT_EQ(buff[i], 0x7E) << i;
  }
}

TEST_P(DtRawMeta, ThirtyTwoByteModelIsKeptInTheTagAndCut) {
  const std::string longModel(31, 'M');  // 32 bytes with the zero: still kept in the tag
  KpzSpec recipe;
  recipe.model = longModel;
  LoadSpec(recipe);
  std::vector<char> small(16, 0x7E);
  EXPECT_EQ(Raw().GetModelName(small.data(), 16), DtRawOk);
  EXPECT_EQ(Text(small), std::string(15, 'M'));
  std::vector<char> exact(32, 0x7E);
  EXPECT_EQ(Raw().GetModelName(exact.data(), 32), DtRawOk);
  EXPECT_EQ(Text(exact), longModel);
}

TEST_P(DtRawMeta, ZeroSizeOrNullBufferIsRefusedWithoutWriting) {
  LoadSpec(KpzSpec());
  char buff[4] = {0x7E, 0x7E, 0x7E, 0x7E};
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(Raw().GetMakerName(buff, 0), DtRawErrParam);
    EXPECT_EQ(Raw().GetModelName(buff, 0), DtRawErrParam);
    EXPECT_EQ(Raw().GetMakerName(nullptr, 4), DtRawErrParam);
    EXPECT_EQ(Raw().GetModelName(nullptr, 4), DtRawErrParam);
  });
  EXPECT_EQ(err, "");
  for (char c : buff) EXPECT_EQ(c, 0x7E);
}

TEST_P(DtRawMeta, LongMakerNameIsReadFromTheMemoryCopy) {
  // 40 bytes with the zero: the parser keeps no bytes for it.
  const std::string longMaker = "KAVI Corporation of far-away places, Ltd";
  ASSERT_EQ(longMaker.size(), 40u);
  KpzSpec recipe;
  recipe.make = longMaker.substr(0, 39);
  LoadSpec(recipe);
  std::vector<char> buff(32, 0x7E);
  std::string err = CaptureStderr([&] { EXPECT_EQ(Raw().GetMakerName(buff.data(), 32), DtRawOk); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(Text(buff), longMaker.substr(0, 31));
  std::vector<char> wide(64, 0x7E);
  EXPECT_EQ(Raw().GetMakerName(wide.data(), 64), DtRawOk);
  EXPECT_EQ(Text(wide), longMaker.substr(0, 39));
  for (std::size_t i = 39; i < wide.size(); ++i) EXPECT_EQ(wide[i], 0) << i;
}

TEST_P(DtRawMeta, LongNameReadsLeaveTheObjectUsable) {
  KpzSpec recipe;
  recipe.make = std::string(45, 'k');
  LoadSpec(recipe);
  std::vector<char> buff(50, 0);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Raw().GetMakerName(buff.data(), 50), DtRawOk);
    EXPECT_EQ(Text(buff), std::string(45, 'k'));
  }
  DtRawThumbnailInfo info;
  CaptureStderr([&] { EXPECT_EQ(Raw().GetThumbnailInfo(&info), DtRawOk); });
  std::vector<unsigned char> thumb(info.m_size, 0);
  EXPECT_EQ(Raw().GetThumbnailData(thumb.data(), info.m_size), DtRawOk);
  EXPECT_EQ(Raw().GetMakerName(buff.data(), 50), DtRawOk);
}

// Maker tag of `count` ASCII bytes said to lie at `offset` (no bytes written).
void MakerAt(KpzSpec* recipe, std::uint32_t count, std::uint32_t offset) {
  recipe->editIfd0 = [count, offset](Ifd& ifd0) {
    ASSERT_TRUE(ifd0.ReplaceRaw(tag::kMake, kpztest::kTiffAscii, count, offset));
  };
}

TEST_P(DtRawMeta, NameOffsetBeyondTheMemoryCopyIsAnOpenFailureWithoutReading) {
  KpzSpec recipe;
  recipe.minTotalSize = 0x10100;  // the file goes on past the head in file mode
  LoadSpec(recipe);
  const std::uint32_t copy = CopySize();
  for (std::uint32_t offset : {copy + 1, copy + 100, 0x7FFFFFFFu, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(offset);
    KpzSpec broken = recipe;
    MakerAt(&broken, 40, offset);
    LoadSpec(broken);
    std::vector<char> buff(48, 0x7E);
    int result = 0;
    std::string err = CaptureStderr([&] { result = Raw().GetMakerName(buff.data(), 32); });
    EXPECT_EQ(result, DtRawErrNoData);
    EXPECT_EQ(err, Info("getRawTagDataValue", "Raw: value open err!!"));
    // Cleared, but nothing read into it, and nothing past the caller's size.
    for (std::size_t i = 0; i < 32; ++i) EXPECT_EQ(buff[i], 0) << i;
    for (std::size_t i = 32; i < buff.size(); ++i) EXPECT_EQ(buff[i], 0x7E) << i;
  }
}

TEST_P(DtRawMeta, NameStartingAtTheEndOfTheMemoryCopyIsAShortRead) {
  KpzSpec recipe;
  recipe.minTotalSize = 0x10100;
  LoadSpec(recipe);
  KpzSpec broken = recipe;
  MakerAt(&broken, 40, CopySize());
  LoadSpec(broken);
  std::vector<char> buff(32, 0x7E);
  int result = 0;
  std::string err = CaptureStderr([&] { result = Raw().GetMakerName(buff.data(), 32); });
  EXPECT_EQ(result, DtRawErrNoData);
  EXPECT_EQ(err, Info("getRawTagDataValue", "Raw: value read err!!"));
  for (char c : buff) EXPECT_EQ(c, 0);
}

TEST_P(DtRawMeta, NameCrossingTheEndOfTheMemoryCopyCopiesWhatIsThereAndFails) {
  KpzSpec recipe;
  recipe.minTotalSize = 0x10100;
  LoadSpec(recipe);
  const std::uint32_t offset = CopySize() - 10;
  KpzSpec broken = recipe;
  MakerAt(&broken, 40, offset);
  LoadSpec(broken);
  std::vector<char> buff(48, 0x7E);
  int result = 0;
  std::string err = CaptureStderr([&] { result = Raw().GetMakerName(buff.data(), 40); });
  EXPECT_EQ(result, DtRawErrNoData);
  EXPECT_EQ(err, Info("getRawTagDataValue", "Raw: value read err!!"));
  const Bytes& image = m_file->Bytes();
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(static_cast<std::uint8_t>(buff[i]), image[offset + i]) << i;
  }
  for (std::size_t i = 10; i < 40; ++i) EXPECT_EQ(buff[i], 0) << i;
  for (std::size_t i = 40; i < buff.size(); ++i) EXPECT_EQ(buff[i], 0x7E) << i;
}

TEST_P(DtRawMeta, NameEndingExactlyAtTheEndOfTheMemoryCopyIsRead) {
  KpzSpec recipe;
  recipe.minTotalSize = 0x10100;
  LoadSpec(recipe);
  const std::uint32_t offset = CopySize() - 40;
  KpzSpec broken = recipe;
  MakerAt(&broken, 40, offset);
  LoadSpec(broken);
  std::vector<char> buff(41, 0x7E);
  EXPECT_EQ(Raw().GetMakerName(buff.data(), 41), DtRawOk);
  const Bytes& image = m_file->Bytes();
  for (std::size_t i = 0; i < 40; ++i) {
    EXPECT_EQ(static_cast<std::uint8_t>(buff[i]), image[offset + i]) << i;
  }
  EXPECT_EQ(buff[40], 0);
}

class DtRawHugeName : public testing::TestWithParam<std::tuple<OrderMode, std::uint32_t>> {};

// A size of 2^31 or more is taken over the caller's by the signed comparison:
// the value cannot be read whole, so the result is NoData, but the copy is
// held to the caller's buffer. The buffer is an exact-size heap block, so
// that AddressSanitizer sees any byte written past it.
TEST_P(DtRawHugeName, NameOfTwoGibibytesOrMoreFailsWithoutWritingPastTheBuffer) {
  const OrderMode om = std::get<0>(GetParam());
  const std::uint32_t count = std::get<1>(GetParam());
  KpzSpec recipe;
  recipe.order = std::get<0>(om);
  MakerAt(&recipe, count, 0x40);
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(std::get<1>(om)), DtRawOk);
  std::unique_ptr<char[]> exact(new char[32]);
  std::memset(exact.get(), 0x7E, 32);
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.raw.GetMakerName(exact.get(), 32); });
  EXPECT_EQ(result, DtRawErrNoData);
  EXPECT_EQ(err, Info("getRawTagDataValue", "Raw: value read err!!"));
  // The caller's 32 bytes hold the bytes at the tag's offset.
  for (std::size_t i = 0; i < 32; ++i) {
    EXPECT_EQ(static_cast<std::uint8_t>(exact[i]), file.Bytes()[0x40 + i]) << i;
  }
  // And with guard bytes after the caller's size.
  std::vector<char> guarded(64, 0x7E);
  CaptureStderr([&] { EXPECT_EQ(file.raw.GetMakerName(guarded.data(), 32), DtRawErrNoData); });
  for (std::size_t i = 32; i < guarded.size(); ++i) EXPECT_EQ(guarded[i], 0x7E) << i;
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, DtRawHugeName,
    testing::Combine(testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                      testing::Values(Mode::File, Mode::Buffer)),
                     testing::Values(0x80000000u, 0xFFFFFFFFu, 0x80000021u)),
    [](const testing::TestParamInfo<std::tuple<OrderMode, std::uint32_t>>& p) {
      const OrderMode om = std::get<0>(p.param);
      return std::string(dtrawtest::OrderName(std::get<0>(om))) +
             dtrawtest::ModeName(std::get<1>(om)) + "Count" + std::to_string(std::get<1>(p.param));
    });

TEST(DtRawMetadata, NameBeyondAShortFileInsideTheHeadReadsTheZeroFilledCopy) {
  KpzSpec recipe;
  MakerAt(&recipe, 40, 0x8000);  // the file is far shorter than that
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_LT(file.Bytes().size(), 0x8000u);
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  std::vector<char> buff(32, 0x7E);
  EXPECT_EQ(file.raw.GetMakerName(buff.data(), 32), DtRawOk);
  for (char c : buff) EXPECT_EQ(c, 0);
}

TEST(DtRawMetadata, EmptyNameTagGivesAnEmptyName) {
  KpzSpec recipe;
  recipe.editIfd0 = [](Ifd& ifd0) {
    ASSERT_TRUE(ifd0.Replace(tag::kMake, kpztest::kTiffAscii, 0, Bytes()));
  };
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  std::vector<char> buff(8, 0x7E);
  EXPECT_EQ(file.raw.GetMakerName(buff.data(), 8), DtRawOk);
  for (char c : buff) EXPECT_EQ(c, 0);
}

// ---- Date-time ---------------------------------------------------------------------

std::string DateTimeText(const DtRawDateTime& dt) {
  return std::to_string(dt.m_year) + "/" + std::to_string(dt.m_month) + "/" +
         std::to_string(dt.m_day) + " " + std::to_string(dt.m_hour) + ":" +
         std::to_string(dt.m_minute) + ":" + std::to_string(dt.m_second);
}

TEST_P(DtRawMeta, OriginalDateTimeIsParsedSilently) {
  LoadSpec(KpzSpec());  // "2010:05:01 12:34:56"
  DtRawDateTime dt;
  int result = -1;
  std::string err = CaptureStderr([&] { result = Raw().GetOrgDateTime(&dt); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(DateTimeText(dt), "2010/5/1 12:34:56");
}

struct GoodDateTime {
  const char* text;
  const char* want;
};

class DtRawGoodDateTime : public testing::TestWithParam<GoodDateTime> {};

TEST_P(DtRawGoodDateTime, DateTimeWithColonsOrSpacesParsesWithoutRangeTests) {
  KpzSpec recipe;
  recipe.dateTimeOriginal = std::string(GetParam().text);
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  DtRawDateTime dt;
  EXPECT_EQ(file.raw.GetOrgDateTime(&dt), DtRawOk);
  EXPECT_EQ(DateTimeText(dt), GetParam().want);
}

INSTANTIATE_TEST_SUITE_P(Texts, DtRawGoodDateTime,
                         testing::Values(GoodDateTime{"2010 05 01 12 34 56", "2010/5/1 12:34:56"},
                                         GoodDateTime{"2010:05 01 12:34 56", "2010/5/1 12:34:56"},
                                         GoodDateTime{"2010:13:01 99:34:56", "2010/13/1 99:34:56"},
                                         GoodDateTime{"0000:00:00 00:00:00", "0/0/0 0:0:0"},
                                         GoodDateTime{"9999:99:99 99:99:99",
                                                      "9999/99/99 99:99:99"}));

struct BadDateTime {
  const char* name;
  Bytes value;        // the 20 bytes (or another size) as stored
  const char* format; // as spelt in the source; null: the size message
  std::string shown;  // the text the line shows
};

Bytes Ascii20(const std::string& text) {
  Bytes out = kpztest::AsciiBytes(text, false);
  out.resize(20, 0);
  return out;
}

class DtRawBadDateTime : public testing::TestWithParam<std::tuple<OrderMode, BadDateTime>> {};

TEST_P(DtRawBadDateTime, BrokenDateTimeReturnsSizeWithItsLineAndWritesNothing) {
  const OrderMode om = std::get<0>(GetParam());
  const BadDateTime c = std::get<1>(GetParam());
  KpzSpec recipe;
  recipe.order = std::get<0>(om);
  recipe.editExif = [c](Ifd& exif) {
    ASSERT_TRUE(exif.Replace(tag::kDateTimeOriginal, kpztest::kTiffAscii,
                             static_cast<std::uint32_t>(c.value.size()), c.value));
  };
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(std::get<1>(om)), DtRawOk);
  Outcome out{0, true};
  std::string err = CaptureStderr([&] { out = CallDateTime(file.raw); });
  EXPECT_EQ(out.result, DtRawErrSize);
  EXPECT_FALSE(out.wrote);
  if (c.format == nullptr) {
    EXPECT_EQ(err, Info("getDateTimeParts", "[DtRaw::getDateTimeParts]: No Raw DateTime!!"));
  } else {
    std::string message = c.format;
    const std::size_t at = message.find("\\\"%s\\\"");
    ASSERT_NE(at, std::string::npos);
    // The message as printed: the escaped quotes and backslash unescaped.
    message = message.substr(0, at) + "\"" + c.shown + "\"";
    const std::size_t slash = message.find("\\\\0");
    if (slash != std::string::npos) message.replace(slash, 3, "\\0");
    EXPECT_EQ(err, Info("getDateTimeParts", c.format, message));
  }
}

const char* kColonFormat = R"(Raw: Format Err!! ':' - \"%s\")";
const char* kSpaceFormat = R"(Raw: Format Err!! 'SP' - \"%s\")";
const char* kNulFormat = R"(Raw: Format Err!! '\\0' - \"%s\")";
const char* kNumberFormat = R"(Raw: Format Err!! Number - \"%s\")";

INSTANTIATE_TEST_SUITE_P(
    Texts, DtRawBadDateTime,
    testing::Combine(
        testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                         testing::Values(Mode::File, Mode::Buffer)),
        testing::Values(
            BadDateTime{"TInsteadOfSpace", Ascii20("2010:05:01T12:34:56"), kSpaceFormat,
                        "2010:05:01T12:34:56"},
            BadDateTime{"ColonAtTen", Ascii20("2010:05:01:12:34:56"), kSpaceFormat,
                        "2010:05:01:12:34:56"},
            BadDateTime{"Dashes", Ascii20("2010-05-01 12:34:56"), kColonFormat,
                        "2010-05-01 12:34:56"},
            BadDateTime{"DashAtSixteen", Ascii20("2010:05:01 12:34-56"), kColonFormat,
                        "2010:05:01 12:34-56"},
            // The first fault wins: position 4 comes before position 10.
            BadDateTime{"DashAndT", Ascii20("2010-05-01T12:34:56"), kColonFormat,
                        "2010-05-01T12:34:56"},
            BadDateTime{"LetterInYear", Ascii20("2O10:05:01 12:34:56"), kNumberFormat,
                        "2O10:05:01 12:34:56"},
            BadDateTime{"SpaceForDigit", Ascii20("2010:05:01 12:34: 6"), kNumberFormat,
                        "2010:05:01 12:34: 6"},
            // Twenty characters and no zero byte: the line shows exactly them.
            BadDateTime{"NoZeroByte", kpztest::AsciiBytes("2010:05:01 12:34:567", false),
                        kNulFormat, "2010:05:01 12:34:567"},
            // A zero byte early: the line shows the text up to it.
            BadDateTime{"EarlyZero", Ascii20("2010:05"), kColonFormat, "2010:05"},
            BadDateTime{"Nineteen", kpztest::AsciiBytes("2010:05:01 12:34:5"), nullptr, ""},
            BadDateTime{"TwentyOne", kpztest::AsciiBytes("2010:05:01 12:34:567"), nullptr, ""},
            BadDateTime{"Forty", Bytes(40, '1'), nullptr, ""},
            BadDateTime{"Empty", Bytes(), nullptr, ""})),
    [](const testing::TestParamInfo<std::tuple<OrderMode, BadDateTime>>& p) {
      const OrderMode om = std::get<0>(p.param);
      return std::string(dtrawtest::OrderName(std::get<0>(om))) +
             dtrawtest::ModeName(std::get<1>(om)) + std::get<1>(p.param).name;
    });

// ---- Versions ------------------------------------------------------------------

struct VersionCase {
  const char* text;
  unsigned short want;
  int exifResult;
  int iobResult;
};

class DtRawVersion : public testing::TestWithParam<std::tuple<OrderMode, VersionCase>> {};

TEST_P(DtRawVersion, FourDigitsBecomeANumberAndZeroIsAFailureStoredAnyway) {
  const OrderMode om = std::get<0>(GetParam());
  const VersionCase c = std::get<1>(GetParam());
  KpzSpec recipe;
  recipe.order = std::get<0>(om);
  recipe.exifVersion = std::string(c.text);
  recipe.iobVersion = std::string(c.text);
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(std::get<1>(om)), DtRawOk);
  unsigned short exif = 0xA5A5;
  unsigned short iob = 0xA5A5;
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(file.raw.GetExifVersion(&exif), c.exifResult);
    EXPECT_EQ(file.raw.GetIobVersion(&iob), c.iobResult);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(exif, c.want);
  EXPECT_EQ(iob, c.want);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, DtRawVersion,
    testing::Combine(
        testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                         testing::Values(Mode::File, Mode::Buffer)),
        testing::Values(VersionCase{"0230", 230, DtRawOk, DtRawOk},
                        VersionCase{"0100", 100, DtRawOk, DtRawOk},
                        VersionCase{"9999", 9999, DtRawOk, DtRawOk},
                        VersionCase{"1000", 1000, DtRawOk, DtRawOk},
                        // Only the first four bytes count.
                        VersionCase{"02319", 231, DtRawOk, DtRawOk},
                        VersionCase{"02a0", 0, DtRawErrExifVersion, DtRawErrIobVersion},
                        VersionCase{"023 ", 0, DtRawErrExifVersion, DtRawErrIobVersion},
                        VersionCase{"0000", 0, DtRawErrExifVersion, DtRawErrIobVersion})),
    [](const testing::TestParamInfo<std::tuple<OrderMode, VersionCase>>& p) {
      const OrderMode om = std::get<0>(p.param);
      std::string text = std::get<1>(p.param).text;
      for (char& ch : text) {
        if (!std::isalnum(static_cast<unsigned char>(ch))) ch = '_';
      }
      return std::string(dtrawtest::OrderName(std::get<0>(om))) +
             dtrawtest::ModeName(std::get<1>(om)) + "Text" + text;
    });

// ---- GetT593Mode ---------------------------------------------------------------

TEST(DtRawMetadata, T593ModeIsAlwaysZeroWithOrWithoutInitialisation) {
  DtRaw raw;
  unsigned char mode = 0xA5;
  std::string err = CaptureStderr([&] { EXPECT_EQ(raw.GetT593Mode(&mode), DtRawOk); });
  EXPECT_EQ(err, "");
  EXPECT_EQ(mode, 0);
  Loaded file(kpztest::BuildKpz(KpzSpec()));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  mode = 0xA5;
  EXPECT_EQ(file.raw.GetT593Mode(&mode), DtRawOk);
  EXPECT_EQ(mode, 0);
}

TEST(DtRawMetadata, T593ModeWithANullOutputStillReturnsZero) {
  DtRaw raw;
  EXPECT_EQ(raw.GetT593Mode(nullptr), DtRawOk);
}

}  // namespace
