// Tests of DtRaw's picture queries: GetScreennailInfo (both model branches),
// GetThumbnailInfo, GetThumbnailData (from the head copy, from the file, the
// buffer-mode limit and its I/O failures through the fault seam), the two
// rotation tables and GetRotationInfo. Files are built by kpztest::BuildKpz,
// in both byte orders, read in file and buffer mode.
#include "raw/DtRaw.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "raw/DtRawError.h"
#include "raw/DtRawTestUtil.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using dtrawtest::Loaded;
using dtrawtest::Mode;
using dtrawtest::RawInfo;
using dtrawtest::RawWarn;
using kpztest::Bytes;
using kpztest::CaptureStderr;
using kpztest::Ifd;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

const char* kWarnInvalid = "Raw: %s() invalid data, size=%d.";

KpzSpec Spec(DtNlByteOrder order, bool m372) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.m372 = m372;
  return recipe;
}

std::string ModelLine(bool m372) {
  return m372 ? RawInfo("GetScreennailInfo", "Raw: model is M372.")
              : RawInfo("GetScreennailInfo", "Raw: model is not M372.");
}

// A record with recognisable contents, to see which fields a call wrote.
DtRawScreennailInfo SentinelScreennail() {
  DtRawScreennailInfo info;
  info.m_fileOffset = 0xDEADBEEF;
  info.m_size = 0xCAFEF00D;
  info.m_horizon = 0xAAAA;
  info.m_vertical = 0xBBBB;
  return info;
}

DtRawThumbnailInfo SentinelThumbnail() {
  DtRawThumbnailInfo info;
  info.m_compression = 0xEE;
  info.m_rotation = 0xDD;
  info.m_size = 0xCAFEF00D;
  info.m_fileOffset = 0xDEADBEEF;
  return info;
}

// ---- Parameters: byte order and mode ----------------------------------------

using OrderMode = std::tuple<DtNlByteOrder, Mode>;

std::string OrderModeName(const testing::TestParamInfo<OrderMode>& p) {
  return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
         dtrawtest::ModeName(std::get<1>(p.param));
}

class DtRawPicture : public testing::TestWithParam<OrderMode> {
 protected:
  DtNlByteOrder Order() const { return std::get<0>(GetParam()); }
  Mode LoadMode() const { return std::get<1>(GetParam()); }

  // Loads `recipe` (with this test's byte order) or fails the test.
  void LoadSpec(KpzSpec recipe, KpzLayout* where = nullptr) {
    recipe.order = Order();
    m_file.reset(new Loaded(kpztest::BuildKpz(recipe, where)));
    ASSERT_EQ(m_file->Load(LoadMode()), DtRawOk);
  }
  DtRaw& Raw() { return m_file->raw; }

  std::unique_ptr<Loaded> m_file;
};

INSTANTIATE_TEST_SUITE_P(OrdersAndModes, DtRawPicture,
                         testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                          testing::Values(Mode::File, Mode::Buffer)),
                         OrderModeName);

// ---- GetScreennailInfo: other models ------------------------------------------

TEST_P(DtRawPicture, OtherModelTakesTheScreennailFromIfd0AndTheSizeFromTheMakerNote) {
  KpzLayout where;
  LoadSpec(Spec(Order(), false), &where);
  DtRawScreennailInfo info = SentinelScreennail();
  int result = -1;
  std::string err = CaptureStderr([&] { result = Raw().GetScreennailInfo(&info); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, ModelLine(false));
  EXPECT_EQ(info.m_fileOffset, where.screennail);
  EXPECT_EQ(info.m_size, 64u);
  // The maker note stores the height first: (1080, 1616).
  EXPECT_EQ(info.m_horizon, 1616);
  EXPECT_EQ(info.m_vertical, 1080);
}

TEST_P(DtRawPicture, ScreennailSizeKeepsTheLow16BitsOfEachValue) {
  KpzSpec recipe = Spec(Order(), false);
  recipe.scnHeightWidth = std::make_pair(std::uint32_t{0x00012345}, std::uint32_t{0xFFFF0010});
  LoadSpec(recipe);
  DtRawScreennailInfo info;
  CaptureStderr([&] { EXPECT_EQ(Raw().GetScreennailInfo(&info), DtRawOk); });
  EXPECT_EQ(info.m_vertical, 0x2345);
  EXPECT_EQ(info.m_horizon, 0x0010);
}

struct ScnCase {
  const char* name;
  std::function<void(Ifd&)> edit;
};

class DtRawNoScnSize : public testing::TestWithParam<std::tuple<DtNlByteOrder, ScnCase>> {};

TEST_P(DtRawNoScnSize, MissingOrShortScnWidthHeightGivesZeroSizeAndSuccess) {
  KpzSpec recipe = Spec(std::get<0>(GetParam()), false);
  recipe.editMakerNote = std::get<1>(GetParam()).edit;
  KpzLayout where;
  Loaded file(kpztest::BuildKpz(recipe, &where));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  DtRawScreennailInfo info = SentinelScreennail();
  int result = -1;
  std::string err = CaptureStderr([&] { result = file.raw.GetScreennailInfo(&info); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, ModelLine(false) + RawInfo("GetScreennailInfo",
                                            "Raw: not reading SCN_WIDTH_HEIGHT tag (not error)."));
  EXPECT_EQ(info.m_fileOffset, where.screennail);
  EXPECT_EQ(info.m_size, 64u);
  EXPECT_EQ(info.m_horizon, 0);
  EXPECT_EQ(info.m_vertical, 0);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawNoScnSize,
    testing::Combine(
        testing::Values(DtNlLittleEndian, DtNlBigEndian),
        testing::Values(
            ScnCase{"Absent", [](Ifd& mn) { mn.Remove(tag::kScnWidthHeight); }},
            // One LONG: 4 bytes, fewer than the 8 the two values need.
            ScnCase{"FourBytes", [](Ifd& mn) { mn.Replace(tag::kScnWidthHeight, kpztest::kTiffLong, 1,
                                                          Bytes{0, 0, 4, 0x38}); }},
            ScnCase{"SevenBytes", [](Ifd& mn) { mn.Replace(tag::kScnWidthHeight, kpztest::kTiffUndefined, 7,
                                                           Bytes(7, 1)); }},
            // 40 bytes are kept by position only, without value bytes.
            ScnCase{"NoValueBytes", [](Ifd& mn) { mn.Replace(tag::kScnWidthHeight, kpztest::kTiffLong, 10,
                                                             Bytes(40, 1)); }})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, ScnCase>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
             std::get<1>(p.param).name;
    });

// ---- GetScreennailInfo: DSLR-M372 ---------------------------------------------

TEST_P(DtRawPicture, M372TakesTheScreennailFromTheKmMakerNoteOnlyAndIs640By480) {
  KpzSpec recipe = Spec(Order(), true);
  // IFD0's own tags disagree; they must not be used for this model.
  recipe.editIfd0 = [](Ifd& ifd0) {
    ifd0.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, 0x1111);
    ifd0.ReplaceRaw(tag::kJpegLength, kpztest::kTiffLong, 1, 0x2222);
  };
  recipe.scnHeightWidth = std::make_pair(std::uint32_t{100}, std::uint32_t{200});
  KpzLayout where;
  LoadSpec(recipe, &where);
  DtRawScreennailInfo info = SentinelScreennail();
  int result = -1;
  std::string err = CaptureStderr([&] { result = Raw().GetScreennailInfo(&info); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, ModelLine(true));
  EXPECT_EQ(info.m_fileOffset, where.screennail);
  EXPECT_EQ(info.m_size, 64u);
  EXPECT_EQ(info.m_horizon, 640);
  EXPECT_EQ(info.m_vertical, 480);
}

TEST_P(DtRawPicture, M372WithoutIfd0ScreennailTagsOrSizeTagStillSucceeds) {
  KpzSpec recipe = Spec(Order(), true);
  recipe.ifd0ScreennailTags = false;
  recipe.scnHeightWidth.reset();
  KpzLayout where;
  LoadSpec(recipe, &where);
  DtRawScreennailInfo info;
  std::string err = CaptureStderr([&] { EXPECT_EQ(Raw().GetScreennailInfo(&info), DtRawOk); });
  EXPECT_EQ(err, ModelLine(true));
  EXPECT_EQ(info.m_fileOffset, where.screennail);
  EXPECT_EQ(info.m_horizon, 640);
  EXPECT_EQ(info.m_vertical, 480);
}

// ---- GetScreennailInfo failures: both branches -----------------------------

enum class Broken { Missing, Short, NoBytes };

struct ScnFailure {
  const char* name;
  bool m372;
  bool lengthTag;  // false: the offset tag is broken
  Broken how;
};

class DtRawScreennailFailure
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, Mode, ScnFailure>> {};

TEST_P(DtRawScreennailFailure, BrokenOffsetOrLengthTagReturnsNoDataWithItsLine) {
  const DtNlByteOrder order = std::get<0>(GetParam());
  const ScnFailure c = std::get<2>(GetParam());
  const std::uint16_t id = c.m372 ? (c.lengthTag ? tag::kKmScreennailLength : tag::kKmScreennailOffset)
                                  : (c.lengthTag ? tag::kJpegLength : tag::kJpegOffset);
  auto edit = [&](Ifd& ifd) {
    if (c.how == Broken::Missing) {
      ifd.Remove(id);
    } else if (c.how == Broken::Short) {
      ifd.Replace(id, kpztest::kTiffShort, 1, kpztest::U16Bytes(7, order));  // 2 bytes
    } else {
      ifd.Replace(id, kpztest::kTiffLong, 9, Bytes(36, 0));  // 36 bytes: no value bytes kept
    }
  };
  KpzSpec recipe = Spec(order, c.m372);
  if (c.m372) {
    recipe.editKm = edit;
  } else {
    recipe.editIfd0 = edit;
  }
  KpzLayout where;
  Loaded file(kpztest::BuildKpz(recipe, &where));
  ASSERT_EQ(file.Load(std::get<1>(GetParam())), DtRawOk);

  DtRawScreennailInfo info = SentinelScreennail();
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.raw.GetScreennailInfo(&info); });
  EXPECT_EQ(result, DtRawErrNoData);

  std::string line;
  const int size = c.how == Broken::Short ? 2 : 36;
  if (!c.lengthTag) {
    line = c.how == Broken::Missing
               ? RawInfo("GetScreennailInfo", "Raw: screen nail offset.")
               : RawWarn("GetScreennailInfo", "Raw: invalid screen nail offset data, size=%d.",
                         "Raw: invalid screen nail offset data, size=" + std::to_string(size) + ".");
  } else {
    line = c.how == Broken::Missing
               ? RawInfo("GetScreennailInfo", "Raw: screen nail size.")
               : RawWarn("GetScreennailInfo", "Raw: invalid screen nail size data, size=%d.",
                         "Raw: invalid screen nail size data, size=" + std::to_string(size) + ".");
  }
  EXPECT_EQ(err, ModelLine(c.m372) + line);

  // Fields decoded before the failure keep their new values; the rest are untouched.
  EXPECT_EQ(info.m_fileOffset, c.lengthTag ? where.screennail : 0xDEADBEEFu);
  EXPECT_EQ(info.m_size, 0xCAFEF00Du);
  EXPECT_EQ(info.m_horizon, 0xAAAA);
  EXPECT_EQ(info.m_vertical, 0xBBBB);
}

std::vector<ScnFailure> AllScnFailures() {
  std::vector<ScnFailure> all;
  const char* names[2][2][3] = {
      {{"OffsetMissing", "OffsetShort", "OffsetNoBytes"},
       {"LengthMissing", "LengthShort", "LengthNoBytes"}},
      {{"KmOffsetMissing", "KmOffsetShort", "KmOffsetNoBytes"},
       {"KmLengthMissing", "KmLengthShort", "KmLengthNoBytes"}}};
  for (int m = 0; m < 2; ++m) {
    for (int l = 0; l < 2; ++l) {
      for (int h = 0; h < 3; ++h) {
        all.push_back(ScnFailure{names[m][l][h], m == 1, l == 1, static_cast<Broken>(h)});
      }
    }
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawScreennailFailure,
    testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                     testing::Values(Mode::File, Mode::Buffer),
                     testing::ValuesIn(AllScnFailures())),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, Mode, ScnFailure>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
             dtrawtest::ModeName(std::get<1>(p.param)) + std::get<2>(p.param).name;
    });

TEST(DtRawScreennail, QueriesBeforeInitialisationReturnNotInit) {
  DtRaw raw;
  DtRawScreennailInfo sn = SentinelScreennail();
  DtRawThumbnailInfo tn = SentinelThumbnail();
  unsigned char rotation = 9;
  unsigned char buff[4] = {1, 2, 3, 4};
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(raw.GetScreennailInfo(&sn), DtRawErrNotInit);
    EXPECT_EQ(raw.GetThumbnailInfo(&tn), DtRawErrNotInit);
    EXPECT_EQ(raw.GetThumbnailData(buff, sizeof buff), DtRawErrNotInit);
    EXPECT_EQ(raw.GetRotationInfo(&rotation), DtRawErrNotInit);
  });
  EXPECT_EQ(err, "");
  EXPECT_EQ(sn.m_fileOffset, 0xDEADBEEFu);
  EXPECT_EQ(tn.m_fileOffset, 0xDEADBEEFu);
  EXPECT_EQ(rotation, 9);
  EXPECT_EQ(buff[0], 1);
}

TEST(DtRawScreennail, NullOutputsAreRefusedWithParam) {
  // Deliberate: a null record or destination is refused with -200.
  Loaded file(kpztest::BuildKpz(Spec(DtNlLittleEndian, false)));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  std::string err = CaptureStderr([&] {
    EXPECT_EQ(file.raw.GetScreennailInfo(nullptr), DtRawErrParam);
    EXPECT_EQ(file.raw.GetThumbnailInfo(nullptr), DtRawErrParam);
    EXPECT_EQ(file.raw.GetThumbnailData(nullptr, 32), DtRawErrParam);
    EXPECT_EQ(file.raw.GetRotationInfo(nullptr), DtRawErrParam);
  });
  EXPECT_EQ(err, "");
}

// ---- GetThumbnailInfo -------------------------------------------------------------

TEST_P(DtRawPicture, ThumbnailInfoReportsIfd1) {
  KpzSpec recipe = Spec(Order(), false);
  recipe.thumbnailCompression = 0x1206;  // only the low byte is kept
  recipe.thumbnailOrientation = 6;       // rotate 90 degrees clockwise
  KpzLayout where;
  LoadSpec(recipe, &where);
  DtRawThumbnailInfo info = SentinelThumbnail();
  int result = -1;
  std::string err = CaptureStderr([&] { result = Raw().GetThumbnailInfo(&info); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(info.m_fileOffset, where.thumbnail);
  EXPECT_EQ(info.m_size, 32u);
  EXPECT_EQ(info.m_compression, 0x06);
  EXPECT_EQ(info.m_rotation, 1);
}

struct ThumbFailure {
  const char* name;
  std::uint16_t id;
  Broken how;
  int size;              // m_size in the WARN line
  const char* infoText;  // the INFO line when the tag is missing
  int written;           // fields written before the failure: 0 none, 1 offset, 2 offset+size
  int warnOccurrence;    // which of the WARN calls of the source
};

class DtRawThumbnailFailure
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, ThumbFailure>> {};

TEST_P(DtRawThumbnailFailure, BrokenIfd1TagReturnsNoDataWithItsLine) {
  const DtNlByteOrder order = std::get<0>(GetParam());
  const ThumbFailure c = std::get<1>(GetParam());
  KpzSpec recipe = Spec(order, false);
  recipe.editIfd1 = [&](Ifd& ifd1) {
    if (c.how == Broken::Missing) {
      ifd1.Remove(c.id);
    } else if (c.how == Broken::Short) {
      // One byte fewer than the value needs.
      const std::uint32_t n = c.id == tag::kCompression ? 1u : 3u;
      ifd1.Replace(c.id, kpztest::kTiffUndefined, n, Bytes(n, 1));
    } else {
      ifd1.Replace(c.id, kpztest::kTiffUndefined, 33, Bytes(33, 1));
    }
  };
  KpzLayout where;
  Loaded file(kpztest::BuildKpz(recipe, &where));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  DtRawThumbnailInfo info = SentinelThumbnail();
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.raw.GetThumbnailInfo(&info); });
  EXPECT_EQ(result, DtRawErrNoData);
  if (c.how == Broken::Missing) {
    EXPECT_EQ(err, RawInfo("GetThumbnailInfo", c.infoText));
  } else {
    EXPECT_EQ(err, RawWarn("GetThumbnailInfo", kWarnInvalid,
                           "Raw: GetThumbnailInfo() invalid data, size=" + std::to_string(c.size) +
                               ".",
                           c.warnOccurrence));
  }
  EXPECT_EQ(info.m_fileOffset, c.written >= 1 ? where.thumbnail : 0xDEADBEEFu);
  EXPECT_EQ(info.m_size, c.written >= 2 ? 32u : 0xCAFEF00Du);
  EXPECT_EQ(info.m_compression, 0xEE);
  EXPECT_EQ(info.m_rotation, 0xDD);

  // GetThumbnailData fails the same way, before touching the caller's buffer.
  unsigned char buff[4] = {9, 9, 9, 9};
  err = CaptureStderr([&] { EXPECT_EQ(file.raw.GetThumbnailData(buff, 4), DtRawErrNoData); });
  EXPECT_NE(err, "");
  EXPECT_EQ(buff[0], 9);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawThumbnailFailure,
    testing::Combine(
        testing::Values(DtNlLittleEndian, DtNlBigEndian),
        testing::Values(
            ThumbFailure{"OffsetMissing", tag::kJpegOffset, Broken::Missing, 0,
                         "Raw: not exist thumbnail!!", 0, 1},
            ThumbFailure{"OffsetShort", tag::kJpegOffset, Broken::Short, 3, "", 0, 1},
            ThumbFailure{"OffsetNoBytes", tag::kJpegOffset, Broken::NoBytes, 33, "", 0, 1},
            ThumbFailure{"LengthMissing", tag::kJpegLength, Broken::Missing, 0,
                         "Raw: not exist thumbnail offset!!", 1, 2},
            ThumbFailure{"LengthShort", tag::kJpegLength, Broken::Short, 3, "", 1, 2},
            ThumbFailure{"LengthNoBytes", tag::kJpegLength, Broken::NoBytes, 33, "", 1, 2},
            ThumbFailure{"CompressionMissing", tag::kCompression, Broken::Missing, 0,
                         "Raw: not exist thumbnail compression!!", 2, 3},
            ThumbFailure{"CompressionShort", tag::kCompression, Broken::Short, 1, "", 2, 3},
            ThumbFailure{"CompressionNoBytes", tag::kCompression, Broken::NoBytes, 33, "", 2,
                         3})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, ThumbFailure>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
             std::get<1>(p.param).name;
    });

struct RotationCase {
  const char* name;
  std::function<void(Ifd&)> edit;
};

class DtRawThumbnailRotation
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, RotationCase>> {};

TEST_P(DtRawThumbnailRotation, MissingOrShortThumbnailOrientationGivesRotationZero) {
  KpzSpec recipe = Spec(std::get<0>(GetParam()), false);
  recipe.thumbnailOrientation = 8;
  recipe.editIfd1 = std::get<1>(GetParam()).edit;
  KpzLayout where;
  Loaded file(kpztest::BuildKpz(recipe, &where));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  DtRawThumbnailInfo info = SentinelThumbnail();
  int result = -1;
  std::string err = CaptureStderr([&] { result = file.raw.GetThumbnailInfo(&info); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, RawInfo("GetThumbnailInfo", "Raw: not exist thumbnail rotation!!(not error.)"));
  EXPECT_EQ(info.m_rotation, 0);
  EXPECT_EQ(info.m_compression, 6);
  EXPECT_EQ(info.m_size, 32u);
  EXPECT_EQ(info.m_fileOffset, where.thumbnail);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawThumbnailRotation,
    testing::Combine(
        testing::Values(DtNlLittleEndian, DtNlBigEndian),
        testing::Values(
            RotationCase{"Absent", [](Ifd& ifd1) { ifd1.Remove(tag::kOrientation); }},
            RotationCase{"OneByte", [](Ifd& ifd1) { ifd1.Replace(tag::kOrientation, kpztest::kTiffByte, 1,
                                                                Bytes{8}); }},
            RotationCase{"NoValueBytes", [](Ifd& ifd1) { ifd1.Replace(tag::kOrientation, kpztest::kTiffShort,
                                                                     20, Bytes(40, 0)); }})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, RotationCase>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
             std::get<1>(p.param).name;
    });

// ---- GetThumbnailData ----------------------------------------------------------------

TEST_P(DtRawPicture, ThumbnailDataCopiesOnlyTheThumbnailsLength) {
  LoadSpec(Spec(Order(), true));
  std::vector<unsigned char> buff(48, 0x77);
  int result = -1;
  std::string err = CaptureStderr([&] { result = Raw().GetThumbnailData(buff.data(), 48); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  const Bytes thumb = kpztest::FakeJpeg(32, 0x20);
  EXPECT_TRUE(std::equal(thumb.begin(), thumb.end(), buff.begin()));
  EXPECT_EQ(std::vector<unsigned char>(buff.begin() + 32, buff.end()),
            std::vector<unsigned char>(16, 0x77));
}

TEST_P(DtRawPicture, ThumbnailDataCopiesOnlyTheCallersSize) {
  LoadSpec(Spec(Order(), false));
  std::vector<unsigned char> buff(32, 0x77);
  EXPECT_EQ(Raw().GetThumbnailData(buff.data(), 10), DtRawOk);
  const Bytes thumb = kpztest::FakeJpeg(32, 0x20);
  EXPECT_TRUE(std::equal(thumb.begin(), thumb.begin() + 10, buff.begin()));
  EXPECT_EQ(std::vector<unsigned char>(buff.begin() + 10, buff.end()),
            std::vector<unsigned char>(22, 0x77));
  // A size of 0 copies nothing and succeeds.
  EXPECT_EQ(Raw().GetThumbnailData(buff.data(), 0), DtRawOk);
}

TEST_P(DtRawPicture, ThumbnailDataWithTheLargestSizeIsBoundedByTheThumbnail) {
  LoadSpec(Spec(Order(), false));
  std::vector<unsigned char> buff(32, 0);
  EXPECT_EQ(Raw().GetThumbnailData(buff.data(), 0xFFFFFFFFu), DtRawOk);
  EXPECT_EQ(Bytes(buff.begin(), buff.end()), kpztest::FakeJpeg(32, 0x20));
}

TEST_P(DtRawPicture, ThumbnailDataCanBeTakenRepeatedly) {
  LoadSpec(Spec(Order(), false));
  for (int i = 0; i < 3; ++i) {
    std::vector<unsigned char> buff(32, 0);
    ASSERT_EQ(Raw().GetThumbnailData(buff.data(), 32), DtRawOk);
    EXPECT_EQ(Bytes(buff.begin(), buff.end()), kpztest::FakeJpeg(32, 0x20));
  }
}

TEST(DtRawThumbnailData, InsideTheHeadIsCopiedFromMemoryWithoutOpeningTheFile) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    // The thumbnail's last byte is the head's last byte.
    KpzSpec recipe = Spec(order, false);
    recipe.thumbnailOffset = DtRaw::READ_SIZE - 32;
    Loaded file(kpztest::BuildKpz(recipe));
    ASSERT_EQ(file.Load(Mode::File), DtRawOk);
    kpztest::FaultGuard guard;
    std::vector<unsigned char> buff(32, 0);
    EXPECT_EQ(file.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
    EXPECT_EQ(Bytes(buff.begin(), buff.end()), kpztest::FakeJpeg(32, 0x20));
    EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fopen), 0);
  }
}

TEST(DtRawThumbnailData, CrossingTheHeadsEndIsReadFromTheFile) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    for (std::uint32_t at : {DtRaw::READ_SIZE - 31, DtRaw::READ_SIZE, DtRaw::READ_SIZE + 1000}) {
      KpzSpec recipe = Spec(order, true);
      recipe.thumbnailOffset = at;
      Loaded file(kpztest::BuildKpz(recipe));
      ASSERT_EQ(file.Load(Mode::File), DtRawOk);
      kpztest::FaultGuard guard;
      std::vector<unsigned char> buff(32, 0);
      int opens = -1;
      int closes = -1;
      std::string err = CaptureStderr([&] {
        EXPECT_EQ(file.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
        // Counted here: capturing standard error opens files of its own.
        opens = kpztest::CallCount(kpztest::Call::Fopen);
        closes = kpztest::CallCount(kpztest::Call::Fclose);
      });
      EXPECT_EQ(err, "");
      EXPECT_EQ(Bytes(buff.begin(), buff.end()), kpztest::FakeJpeg(32, 0x20)) << at;
      EXPECT_EQ(opens, 1);
      EXPECT_EQ(closes, 1);
    }
  }
}

TEST(DtRawThumbnailData, PastTheEndOfAShortFileInsideTheHeadGivesZeros) {
  // Deterministic thanks to the zero-filled head copy.
  KpzSpec recipe = Spec(DtNlLittleEndian, false);
  recipe.editIfd1 = [](Ifd& ifd1) { ifd1.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, 0x2000); };
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_LT(file.Bytes().size(), 0x2000u);
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  std::vector<unsigned char> buff(32, 0x55);
  EXPECT_EQ(file.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
  EXPECT_EQ(buff, std::vector<unsigned char>(32, 0));
}

TEST(DtRawThumbnailData, PastTheEndOfTheFileBeyondTheHeadIsAReadError) {
  KpzSpec recipe = Spec(DtNlBigEndian, false);
  recipe.thumbnailLengthTag = 0x20000;  // far more than the file holds
  recipe.thumbnailOffset = DtRaw::READ_SIZE - 16;
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  std::vector<unsigned char> buff(0x20000, 0);
  int result = 0;
  std::string err =
      CaptureStderr([&] { result = file.raw.GetThumbnailData(buff.data(), 0x20000); });
  EXPECT_EQ(result, DtRawErrRead);
  EXPECT_EQ(err, RawInfo("GetThumbnailData", "Raw: Thumbnail Data Read Err!!"));
  // What the file held was still copied.
  const Bytes thumb = kpztest::FakeJpeg(32, 0x20);
  EXPECT_TRUE(std::equal(thumb.begin(), thumb.end(), buff.begin()));
}

TEST(DtRawThumbnailData, BufferModeThumbnailPastTheBufferReturnsNoData) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    KpzSpec recipe = Spec(order, true);
    Bytes bytes = kpztest::BuildKpz(recipe);
    recipe.thumbnailLengthTag = static_cast<std::uint32_t>(bytes.size());  // runs past the end
    Loaded file(kpztest::BuildKpz(recipe));
    ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
    std::vector<unsigned char> buff(bytes.size(), 0x33);
    int result = 0;
    kpztest::FaultGuard guard;
    int opens = -1;
    std::string err = CaptureStderr([&] {
      result = file.raw.GetThumbnailData(buff.data(), static_cast<unsigned>(buff.size()));
      opens = kpztest::CallCount(kpztest::Call::Fopen);
    });
    EXPECT_EQ(result, DtRawErrNoData);
    EXPECT_EQ(err, RawInfo("GetThumbnailData",
                           "Raw: Because the thumbnail is not stored in the buffer, can't get the "
                           "thumbnail."));
    EXPECT_EQ(buff, std::vector<unsigned char>(bytes.size(), 0x33));
    EXPECT_EQ(opens, 0);
    // A smaller request that fits is served.
    EXPECT_EQ(file.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
    const Bytes thumb = kpztest::FakeJpeg(32, 0x20);
    EXPECT_TRUE(std::equal(thumb.begin(), thumb.end(), buff.begin()));
  }
}

TEST(DtRawThumbnailData, OffsetsThatWouldWrapAreNeverTakenAsInsideTheBuffer) {
  // offset + count wraps to a small number in 32 bits; the subtraction form
  // sees that the offset lies past the buffer.
  for (std::uint32_t offset : {0xFFFFFFF0u, 0x80000000u}) {
    KpzSpec recipe = Spec(DtNlLittleEndian, false);
    recipe.editIfd1 = [offset](Ifd& ifd1) {
      ifd1.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, offset);
    };
    Loaded file(kpztest::BuildKpz(recipe));
    ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
    std::vector<unsigned char> buff(32, 0x44);
    int result = 0;
    std::string err = CaptureStderr([&] { result = file.raw.GetThumbnailData(buff.data(), 32); });
    EXPECT_EQ(result, DtRawErrNoData);
    EXPECT_EQ(err, RawInfo("GetThumbnailData",
                           "Raw: Because the thumbnail is not stored in the buffer, can't get the "
                           "thumbnail."));
    EXPECT_EQ(buff, std::vector<unsigned char>(32, 0x44));
  }
}

TEST(DtRawThumbnailData, OffsetBeyondTwoGibibytesFailsInTheSeek) {
  // The file channel keeps the offset as a signed 32-bit number.
  KpzSpec recipe = Spec(DtNlBigEndian, false);
  recipe.editIfd1 = [](Ifd& ifd1) {
    ifd1.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, 0xFFFFFFF0u);
  };
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  kpztest::FaultGuard guard;
  std::vector<unsigned char> buff(32, 0x44);
  int result = 0;
  int closes = -1;
  std::string err = CaptureStderr([&] {
    result = file.raw.GetThumbnailData(buff.data(), 32);
    closes = kpztest::CallCount(kpztest::Call::Fclose);
  });
  EXPECT_EQ(result, DtRawErrSeek);
  EXPECT_EQ(err, dtrawtest::FseekErr(EINVAL) +
                     RawInfo("GetThumbnailData", "Raw: Seek Err for get thumbnail!!: %d",
                             "Raw: Seek Err for get thumbnail!!: -1"));
  EXPECT_EQ(buff, std::vector<unsigned char>(32, 0x44));
  EXPECT_EQ(closes, 1);  // never left open
}

// ---- GetThumbnailData: I/O failures of the file read --------------------------------

// A file whose thumbnail lies past the head, so that it is read from the file.
std::unique_ptr<Loaded> FarThumbnail(DtNlByteOrder order) {
  KpzSpec recipe = Spec(order, false);
  recipe.thumbnailOffset = DtRaw::READ_SIZE + 64;
  std::unique_ptr<Loaded> file(new Loaded(kpztest::BuildKpz(recipe)));
  EXPECT_EQ(file->Load(Mode::File), DtRawOk);
  return file;
}

struct IoFault {
  const char* name;
  kpztest::Call call;
  int err;
  int expected;
};

class DtRawThumbnailIoFault
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, IoFault>> {};

TEST_P(DtRawThumbnailIoFault, FileReadFailureIsMappedAndLogged) {
  std::unique_ptr<Loaded> file(FarThumbnail(std::get<0>(GetParam())));
  const IoFault c = std::get<1>(GetParam());
  kpztest::FaultGuard guard;
  kpztest::Arm(c.call, c.err);
  std::vector<unsigned char> buff(32, 0);
  int result = 0;
  int closes = -1;
  std::string err = CaptureStderr([&] {
    result = file->raw.GetThumbnailData(buff.data(), 32);
    closes = kpztest::CallCount(kpztest::Call::Fclose);
  });
  EXPECT_EQ(result, c.expected);
  std::string want;
  switch (c.call) {
    case kpztest::Call::Fopen:
      want = dtrawtest::FopenErr(file->Path(), c.err) +
             RawInfo("GetThumbnailData", "Raw: Open Err!! [%s]", "Raw: Open Err!! [" + file->Path() + "]");
      break;
    case kpztest::Call::Fseek:
      want = dtrawtest::FseekErr(c.err) +
             RawInfo("GetThumbnailData", "Raw: Seek Err for get thumbnail!!: %d",
                     "Raw: Seek Err for get thumbnail!!: -1");
      break;
    case kpztest::Call::Fread:
      // The file channel closes itself on a read error, without a line.
      want = RawInfo("GetThumbnailData", "Raw: Thumbnail Data Read Err!!");
      break;
    default:
      want = dtrawtest::FcloseErr(c.err);
      break;
  }
  EXPECT_EQ(err, want);
  // The channel is never left open: every successful fopen was closed.
  const int opened = c.call == kpztest::Call::Fopen ? 0 : 1;
  EXPECT_EQ(closes, opened);
  // The object stays initialised.
  DtRawThumbnailInfo info;
  EXPECT_EQ(file->raw.GetThumbnailInfo(&info), DtRawOk);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawThumbnailIoFault,
    testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                     testing::Values(IoFault{"OpenNotFound", kpztest::Call::Fopen, ENOENT, DtRawErrNotFound},
                                     IoFault{"OpenIo", kpztest::Call::Fopen, EIO, DtRawErrIo},
                                     IoFault{"OpenDenied", kpztest::Call::Fopen, EACCES, DtRawErrOpen},
                                     IoFault{"SeekIo", kpztest::Call::Fseek, EIO, DtRawErrIo},
                                     IoFault{"SeekOther", kpztest::Call::Fseek, EINVAL, DtRawErrSeek},
                                     IoFault{"ReadIo", kpztest::Call::Fread, EIO, DtRawErrIo},
                                     IoFault{"ReadOther", kpztest::Call::Fread, EBADF, DtRawErrRead},
                                     IoFault{"CloseIo", kpztest::Call::Fclose, EIO, DtRawErrIo},
                                     IoFault{"CloseOther", kpztest::Call::Fclose, EBADF, DtRawErrClose})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, IoFault>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
             std::get<1>(p.param).name;
    });

TEST(DtRawThumbnailData, RemovedFileReportsNotFound) {
  std::unique_ptr<Loaded> file(FarThumbnail(DtNlLittleEndian));
  ASSERT_EQ(std::remove(file->Path().c_str()), 0);
  std::vector<unsigned char> buff(32, 0);
  int result = 0;
  std::string err = CaptureStderr([&] { result = file->raw.GetThumbnailData(buff.data(), 32); });
  EXPECT_EQ(result, DtRawErrNotFound);
  EXPECT_EQ(err, dtrawtest::FopenErr(file->Path(), ENOENT) +
                     RawInfo("GetThumbnailData", "Raw: Open Err!! [%s]",
                             "Raw: Open Err!! [" + file->Path() + "]"));
}

TEST(DtRawThumbnailData, MemoryAndFileReadsMayAlternate) {
  // Near thumbnail from memory, then the same object re-initialised on a far
  // one from the file, then memory again: the stream switches channels.
  KpzSpec nearSpec = Spec(DtNlLittleEndian, false);
  Loaded nearFile(kpztest::BuildKpz(nearSpec));
  std::unique_ptr<Loaded> farFile(FarThumbnail(DtNlLittleEndian));
  std::vector<unsigned char> buff(32, 0);
  ASSERT_EQ(nearFile.Load(Mode::File), DtRawOk);
  EXPECT_EQ(nearFile.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
  ASSERT_EQ(nearFile.raw.Initialize(farFile->Path().c_str()), DtRawOk);
  EXPECT_EQ(nearFile.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
  EXPECT_EQ(nearFile.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
  EXPECT_EQ(Bytes(buff.begin(), buff.end()), kpztest::FakeJpeg(32, 0x20));
  ASSERT_EQ(nearFile.Load(Mode::File), DtRawOk);
  EXPECT_EQ(nearFile.raw.GetThumbnailData(buff.data(), 32), DtRawOk);
  EXPECT_EQ(Bytes(buff.begin(), buff.end()), kpztest::FakeJpeg(32, 0x20));
}

// ---- Rotation codes -----------------------------------------------------------------

TEST(DtRawRotation, StandardToUseFollowsTheTable) {
  const unsigned char expected[9] = {0, 0, 4, 2, 6, 5, 1, 7, 3};
  for (unsigned short std = 0; std <= 8; ++std) {
    EXPECT_EQ(DtRaw::convRotInfoStdtoUse(std), expected[std]) << std;
  }
}

TEST(DtRawRotation, StandardOutsideOneToEightGivesZero) {
  for (int std : {0, 9, 10, 0x0100, 0x0106, 0xFFFF}) {
    EXPECT_EQ(DtRaw::convRotInfoStdtoUse(static_cast<unsigned short>(std)), 0) << std;
  }
}

TEST(DtRawRotation, UseToStandardFollowsTheTable) {
  const unsigned char expected[8] = {1, 6, 3, 8, 2, 5, 4, 7};
  for (unsigned char use = 0; use <= 7; ++use) {
    EXPECT_EQ(DtRaw::convRotInfoUsetoStd(use), expected[use]) << int{use};
  }
}

TEST(DtRawRotation, UseOutsideZeroToSevenGivesOne) {
  for (int use : {8, 9, 0x80, 0xFF}) {
    EXPECT_EQ(DtRaw::convRotInfoUsetoStd(static_cast<unsigned char>(use)), 1) << use;
  }
}

TEST(DtRawRotation, TablesAreEachOthersInverse) {
  for (unsigned short std = 1; std <= 8; ++std) {
    EXPECT_EQ(DtRaw::convRotInfoUsetoStd(DtRaw::convRotInfoStdtoUse(std)), std) << std;
  }
  for (unsigned char use = 0; use <= 7; ++use) {
    EXPECT_EQ(DtRaw::convRotInfoStdtoUse(DtRaw::convRotInfoUsetoStd(use)), use) << int{use};
  }
}

TEST_P(DtRawPicture, RotationInfoConvertsIfd0Orientation) {
  for (int value : {1, 6, 3, 8, 2, 5, 4, 7, 0, 9}) {
    const auto orientation = static_cast<std::uint16_t>(value);
    KpzSpec recipe = Spec(Order(), orientation % 2 == 0);
    recipe.orientation = orientation;
    LoadSpec(recipe);
    unsigned char rotation = 0xAA;
    std::string err = CaptureStderr([&] { EXPECT_EQ(Raw().GetRotationInfo(&rotation), DtRawOk); });
    EXPECT_EQ(err, "");
    EXPECT_EQ(rotation, DtRaw::convRotInfoStdtoUse(orientation)) << orientation;
  }
}

TEST_P(DtRawPicture, RotationInfoWithoutOrientationReturnsNoData) {
  KpzSpec recipe = Spec(Order(), false);
  recipe.orientation.reset();
  LoadSpec(recipe);
  unsigned char rotation = 0xAA;
  int result = 0;
  std::string err = CaptureStderr([&] { result = Raw().GetRotationInfo(&rotation); });
  EXPECT_EQ(result, DtRawErrNoData);
  EXPECT_EQ(err, RawInfo("GetRotationInfo", "Raw: not exist rotation information!!"));
  EXPECT_EQ(rotation, 0xAA);
}

TEST_P(DtRawPicture, RotationInfoWithAShortOrientationReturnsNoData) {
  for (int variant = 0; variant < 2; ++variant) {
    KpzSpec recipe = Spec(Order(), true);
    const int size = variant == 0 ? 1 : 34;
    recipe.editIfd0 = [variant](Ifd& ifd0) {
      if (variant == 0) {
        ifd0.Replace(tag::kOrientation, kpztest::kTiffByte, 1, Bytes{6});
      } else {
        ifd0.Replace(tag::kOrientation, kpztest::kTiffShort, 17, Bytes(34, 0));
      }
    };
    LoadSpec(recipe);
    unsigned char rotation = 0xAA;
    int result = 0;
    std::string err = CaptureStderr([&] { result = Raw().GetRotationInfo(&rotation); });
    EXPECT_EQ(result, DtRawErrNoData);
    EXPECT_EQ(err, RawWarn("GetRotationInfo", kWarnInvalid,
                           "Raw: GetRotationInfo() invalid data, size=" + std::to_string(size) + ".",
                           4));
    EXPECT_EQ(rotation, 0xAA);
  }
}

}  // namespace
