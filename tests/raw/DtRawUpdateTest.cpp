// Tests of DtRaw's in-place write-back: SetRotationInfo (queueing of both
// orientations, the DateTime sync and every refusal), Update (the write, the
// refreshed parsed values, the restored or zeroed file times, the empty
// queue) and every failure path of Update through the fault seam (status,
// open, seek, write, close, utime). Each case works on a real temporary file
// and compares the whole file before and after: exactly the expected bytes
// change. Files are built by kpztest::BuildKpz in both byte orders, for both
// model branches.
//
// Update's assertion on an invalid tag category has no test: the queue is
// filled only from IFD0 and IFD1 entries, so no public call can reach it.
#include "raw/DtRaw.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "raw/DtRawError.h"
#include "raw/DtRawTestUtil.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"
#include "support/LogExpect.h"
#include "util/io/DtNlTime.h"

namespace {

using dtrawtest::Loaded;
using dtrawtest::Mode;
using kpztest::Bytes;
using kpztest::Call;
using kpztest::FileTimes;
using kpztest::Ifd;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
namespace tag = kpztest::tag;

const char* kRawCpp = "jni/raw/DtRaw.cpp";
const char* kFileCpp = "jni/util/io/DtNlFile.cpp";
const char* kFileIoCpp = "jni/util/io/DtNlFileIo.cpp";
const char* kViolation = "Raw: rotation data size is exif standard violation!!";
const char* kBufferMode = "Raw: Because it is a buffer mode, data cannot be updated.";

// Times set on the file before Update, well in the past.
const FileTimes kOld = {1000000000, 1100000000};

std::string Info(const std::string& function, const std::string& format,
                 const std::string& message, int occurrence = 1) {
  return kpztest::InfoLine(kRawCpp, function,
                           kpztest::LogCallLineIn(kRawCpp, function, format, occurrence), message);
}
std::string Info(const std::string& function, const std::string& message, int occurrence = 1) {
  return Info(function, message, message, occurrence);
}

std::string RotationLine(int rotation) {
  return Info("SetRotationInfo", "[DtRaw::SetRotationInfo]: %d.",
              "[DtRaw::SetRotationInfo]: " + std::to_string(rotation) + ".");
}
std::string NoThumbnailDateTimeLine() {
  return Info("syncDateTime", "Raw: No Thumbnail DateTime.");
}
std::string UpdateOkLine() { return Info("Update", "Raw: Update OK."); }
std::string NoUpdateLine() { return Info("Update", "[Raw:Update]: There is no updated data."); }
std::string SetTimeErrLines(int err) {
  return kpztest::ErrLine(kFileCpp, "SetTime", 475, "utime err(" + std::to_string(err) + ").") +
         kpztest::ErrLine(kRawCpp, "setTimeStamp",
                          kpztest::LogCallLineIn(kRawCpp, "setTimeStamp",
                                                 "Raw: DtNlFile.SetTime err."),
                          "Raw: DtNlFile.SetTime err.");
}
std::string WriteErrLines(int err) {
  return kpztest::ErrLine(kFileIoCpp, "WriteU8", 243, "fwrite err(" + std::to_string(err) + ").") +
         Info("Update", "[Raw:Update]: Write Err!!");
}
std::string SeekErrLines(int err) {
  return dtrawtest::FseekErr(err) +
         Info("Update", "[Raw:Update]: Seek Err!!: %d", "[Raw:Update]: Seek Err!!: -1");
}

// The fault seam's counts as the last Captured body ended. The capture itself
// opens, reads and closes a file, so its own calls are left out: counts are
// reset when the body starts and taken when it ends, and every fault still
// armed then is disarmed so that it cannot hit the capture.
int g_counts[static_cast<int>(Call::Count)] = {};

std::string Captured(const std::function<void()>& body) {
  return kpztest::CaptureStderr([&] {
    kpztest::ResetCounts();
    body();
    for (int i = 0; i < static_cast<int>(Call::Count); ++i) {
      g_counts[i] = kpztest::CallCount(static_cast<Call>(i));
    }
    kpztest::DisarmAll();
  });
}

int Counted(Call call) { return g_counts[static_cast<int>(call)]; }

// Expects the file's access and modification times to be `want`. Reading the
// file may move its access time, so this comes before any OnDisk().
void ExpectTimes(const std::string& path, const FileTimes& want) {
  const FileTimes now = kpztest::GetFileTimes(path);
  EXPECT_EQ(now.access, want.access);
  EXPECT_EQ(now.modification, want.modification);
}

// Where the values that the write-back may change lie in the file (0: absent).
struct Positions {
  std::uint32_t ifd0Orientation = 0;
  std::uint32_t ifd1Orientation = 0;
  std::uint32_t ifd0DateTime = 0;
  std::uint32_t ifd1DateTime = 0;
};

// A file on disk built from a recipe, its positions and a DtRaw over it.
class Target {
 public:
  explicit Target(const KpzSpec& recipe) : m_order(recipe.order) {
    KpzLayout where;
    Bytes bytes = kpztest::BuildKpz(recipe, &where);
    pos.ifd0Orientation = kpztest::TagValueOffset(bytes, m_order, where.ifd0, tag::kOrientation);
    pos.ifd1Orientation = kpztest::TagValueOffset(bytes, m_order, where.ifd1, tag::kOrientation);
    pos.ifd0DateTime = kpztest::TagValueOffset(bytes, m_order, where.ifd0, tag::kDateTime);
    pos.ifd1DateTime = kpztest::TagValueOffset(bytes, m_order, where.ifd1, tag::kDateTime);
    m_file.reset(new Loaded(std::move(bytes)));
  }

  int Load(Mode mode = Mode::File) { return m_file->Load(mode); }
  DtRaw& Raw() { return m_file->raw; }
  const std::string& Path() const { return m_file->Path(); }
  const Bytes& Original() const { return m_file->Bytes(); }
  Bytes OnDisk() const { return kpztest::ReadFileBytes(Path()); }
  // The original with `value` as orientation at every position given.
  Bytes WithOrientation(std::uint16_t value, bool ifd0, bool ifd1) const {
    Bytes out = Original();
    if (ifd0) out = kpztest::Patched(out, pos.ifd0Orientation, kpztest::U16Bytes(value, m_order));
    if (ifd1) out = kpztest::Patched(out, pos.ifd1Orientation, kpztest::U16Bytes(value, m_order));
    return out;
  }
  // `image` with IFD0's 20 DateTime bytes over IFD1's.
  Bytes WithSyncedDateTime(Bytes image) const {
    const Bytes ifd0(Original().begin() + static_cast<std::ptrdiff_t>(pos.ifd0DateTime),
                     Original().begin() + static_cast<std::ptrdiff_t>(pos.ifd0DateTime) + 20);
    return kpztest::Patched(std::move(image), pos.ifd1DateTime, ifd0);
  }

  Positions pos;

 private:
  DtNlByteOrder m_order;
  std::unique_ptr<Loaded> m_file;
};

KpzSpec Spec(DtNlByteOrder order, bool m372 = false) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.m372 = m372;
  return recipe;
}

// ---- The main road, over byte orders and model branches ---------------------

using OrderModel = std::tuple<DtNlByteOrder, bool>;

class DtRawUpdate : public testing::TestWithParam<OrderModel> {
 protected:
  KpzSpec BaseSpec() const { return Spec(std::get<0>(GetParam()), std::get<1>(GetParam())); }
  DtNlByteOrder Order() const { return std::get<0>(GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(OrdersAndModels, DtRawUpdate,
                         testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                          testing::Bool()),
                         [](const testing::TestParamInfo<OrderModel>& p) {
                           return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
                                  (std::get<1>(p.param) ? "M372" : "OtherModel");
                         });

TEST_P(DtRawUpdate, RotationIsQueuedThenWrittenAtBothOrientationsWithTimesKept) {
  Target t(BaseSpec());
  ASSERT_NE(t.pos.ifd0Orientation, 0u);
  ASSERT_NE(t.pos.ifd1Orientation, 0u);
  ASSERT_EQ(t.Load(), DtRawOk);

  int result = -1;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, RotationLine(1) + NoThumbnailDateTimeLine());
  // Nothing reaches the file before Update.
  EXPECT_EQ(t.OnDisk(), t.Original());

  ASSERT_TRUE(kpztest::SetFileTimes(t.Path(), kOld.access, kOld.modification));
  kpztest::FaultGuard guard;
  err = Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, UpdateOkLine());
  EXPECT_EQ(Counted(Call::Fopen), 1);
  EXPECT_EQ(Counted(Call::Fwrite), 2);
  EXPECT_EQ(Counted(Call::Utime), 1);
  kpztest::DisarmAll();

  // Orientation 6 in the file's order: 06 00 little endian, 00 06 big endian.
  const Bytes want = t.WithOrientation(6, true, true);
  const Bytes six = Order() == DtNlLittleEndian ? Bytes{0x06, 0x00} : Bytes{0x00, 0x06};
  EXPECT_EQ(Bytes(want.begin() + static_cast<std::ptrdiff_t>(t.pos.ifd0Orientation),
                  want.begin() + static_cast<std::ptrdiff_t>(t.pos.ifd0Orientation) + 2),
            six);
  ExpectTimes(t.Path(), kOld);
  EXPECT_EQ(t.OnDisk(), want);

  // Later queries see the new value.
  unsigned char rotation = 0xAA;
  EXPECT_EQ(t.Raw().GetRotationInfo(&rotation), DtRawOk);
  EXPECT_EQ(rotation, 1);
  DtRawThumbnailInfo info;
  Captured([&] { EXPECT_EQ(t.Raw().GetThumbnailInfo(&info), DtRawOk); });
  EXPECT_EQ(info.m_rotation, 1);
}

TEST_P(DtRawUpdate, UpdateWithAValidTimeSetsBothFileTimesToZero) {
  Target t(BaseSpec());
  ASSERT_EQ(t.Load(), DtRawOk);
  Captured([&] { ASSERT_EQ(t.Raw().SetRotationInfo(2), DtRawOk); });
  ASSERT_TRUE(kpztest::SetFileTimes(t.Path(), kOld.access, kOld.modification));
  const DtNlTime now;
  ASSERT_EQ(now.IsValid(), 1);
  int result = -1;
  std::string err = Captured([&] { result = t.Raw().Update(&now); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, UpdateOkLine());
  ExpectTimes(t.Path(), FileTimes{0, 0});
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(3, true, true));
}

TEST_P(DtRawUpdate, UpdateWithAnInvalidTimeRestoresTheFileTimes) {
  Target t(BaseSpec());
  ASSERT_EQ(t.Load(), DtRawOk);
  Captured([&] { ASSERT_EQ(t.Raw().SetRotationInfo(3), DtRawOk); });
  ASSERT_TRUE(kpztest::SetFileTimes(t.Path(), kOld.access, kOld.modification));
  kpztest::FaultGuard guard;
  kpztest::SetTime(0);  // a clock reading of 0 gives an invalid time
  const DtNlTime invalid;
  kpztest::ClearTime();
  ASSERT_EQ(invalid.IsValid(), 0);
  int result = -1;
  Captured([&] { result = t.Raw().Update(&invalid); });
  EXPECT_EQ(result, DtRawOk);
  ExpectTimes(t.Path(), kOld);
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(8, true, true));
}

TEST_P(DtRawUpdate, DifferingDateTimesMakeUpdateCopyIfd0sIntoIfd1) {
  KpzSpec recipe = BaseSpec();
  recipe.thumbnailDateTime = std::string("2009:12:31 23:59:59");
  Target t(recipe);
  ASSERT_NE(t.pos.ifd1DateTime, 0u);
  ASSERT_EQ(t.Load(), DtRawOk);
  int result = -1;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(0); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, RotationLine(0));  // the DateTime is queued silently
  ASSERT_TRUE(kpztest::SetFileTimes(t.Path(), kOld.access, kOld.modification));
  kpztest::FaultGuard guard;
  Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(Counted(Call::Fwrite), 3);
  kpztest::DisarmAll();
  ExpectTimes(t.Path(), kOld);  // before the file is read again
  const Bytes want = t.WithSyncedDateTime(t.WithOrientation(1, true, true));
  EXPECT_EQ(t.OnDisk(), want);
  EXPECT_EQ(std::string(want.begin() + static_cast<std::ptrdiff_t>(t.pos.ifd1DateTime),
                        want.begin() + static_cast<std::ptrdiff_t>(t.pos.ifd1DateTime) + 19),
            "2010:05:01 12:34:56");
}

TEST_P(DtRawUpdate, EqualDateTimesAreNotWritten) {
  KpzSpec recipe = BaseSpec();
  recipe.thumbnailDateTime = recipe.dateTime;
  Target t(recipe);
  ASSERT_EQ(t.Load(), DtRawOk);
  int result = -1;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(5); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, RotationLine(5));
  kpztest::FaultGuard guard;
  Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(Counted(Call::Fwrite), 2);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(5, true, true));
}

TEST_P(DtRawUpdate, TheParsedDateTimeIsRefreshedSoASecondRotationWritesNoDateTime) {
  KpzSpec recipe = BaseSpec();
  recipe.thumbnailDateTime = std::string("2001:01:01 01:01:01");
  Target t(recipe);
  ASSERT_EQ(t.Load(), DtRawOk);
  kpztest::FaultGuard guard;
  Captured([&] {
    EXPECT_EQ(t.Raw().SetRotationInfo(1), DtRawOk);
    EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk);
  });
  EXPECT_EQ(Counted(Call::Fwrite), 3);
  kpztest::ResetCounts();
  Captured([&] {
    EXPECT_EQ(t.Raw().SetRotationInfo(2), DtRawOk);
    EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk);
  });
  EXPECT_EQ(Counted(Call::Fwrite), 2);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.WithSyncedDateTime(t.WithOrientation(3, true, true)));
}

TEST_P(DtRawUpdate, TwoRotationsBeforeUpdateAreWrittenInOrderSoTheLaterWins) {
  Target t(BaseSpec());
  ASSERT_EQ(t.Load(), DtRawOk);
  kpztest::FaultGuard guard;
  Captured([&] {
    EXPECT_EQ(t.Raw().SetRotationInfo(1), DtRawOk);
    EXPECT_EQ(t.Raw().SetRotationInfo(2), DtRawOk);
    EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk);
  });
  EXPECT_EQ(Counted(Call::Fseek), 4);
  EXPECT_EQ(Counted(Call::Fwrite), 4);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(3, true, true));
  unsigned char rotation = 0;
  EXPECT_EQ(t.Raw().GetRotationInfo(&rotation), DtRawOk);
  EXPECT_EQ(rotation, 2);
}

TEST_P(DtRawUpdate, TwoRotationsAreQueuedInOrderAsAFailedThirdWriteShows) {
  Target t(BaseSpec());
  ASSERT_EQ(t.Load(), DtRawOk);
  Captured([&] {
    EXPECT_EQ(t.Raw().SetRotationInfo(1), DtRawOk);
    EXPECT_EQ(t.Raw().SetRotationInfo(2), DtRawOk);
  });
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Fwrite, ENOSPC, 2);  // the second call's IFD0 write fails
  int result = 0;
  Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawErrWrite);
  kpztest::DisarmAll();
  // The first call's two changes are in the file, the second call's are not.
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(6, true, true));
}

// ---- Orientation codes -----------------------------------------------------------

TEST(DtRawUpdateCodes, EveryRotationCodeWritesItsOrientationAndOthersWriteOne) {
  const std::uint16_t want[] = {1, 6, 3, 8, 2, 5, 4, 7, 1, 1, 1};
  const unsigned char codes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 255};
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    for (std::size_t i = 0; i < sizeof codes; ++i) {
      SCOPED_TRACE(std::to_string(codes[i]) + (order == DtNlBigEndian ? " big" : " little"));
      KpzSpec recipe = Spec(order);
      recipe.orientation = 6;  // so that orientation 1 is a change too
      recipe.thumbnailOrientation = 3;
      Target t(recipe);
      ASSERT_EQ(t.Load(), DtRawOk);
      Captured([&] {
        EXPECT_EQ(t.Raw().SetRotationInfo(codes[i]), DtRawOk);
        EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk);
      });
      EXPECT_EQ(t.OnDisk(), t.WithOrientation(want[i], true, true));
    }
  }
}

// ---- DateTime sync skipped -------------------------------------------------------

struct SyncSkip {
  const char* name;
  std::function<void(KpzSpec&)> edit;
  const char* line;
};

class DtRawSyncSkip : public testing::TestWithParam<std::tuple<DtNlByteOrder, SyncSkip>> {};

TEST_P(DtRawSyncSkip, DateTimeSyncIsSkippedWithItsLineAndOnlyOrientationsAreWritten) {
  KpzSpec recipe = Spec(std::get<0>(GetParam()));
  recipe.thumbnailDateTime = std::string("2009:12:31 23:59:59");
  std::get<1>(GetParam()).edit(recipe);
  Target t(recipe);
  ASSERT_EQ(t.Load(), DtRawOk);
  int result = -1;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, RotationLine(1) + Info("syncDateTime", std::get<1>(GetParam()).line));
  kpztest::FaultGuard guard;
  Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
  EXPECT_EQ(Counted(Call::Fwrite), 2);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(6, true, true));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawSyncSkip,
    testing::Combine(
        testing::Values(DtNlLittleEndian, DtNlBigEndian),
        testing::Values(
            SyncSkip{"NoIfd0DateTime", [](KpzSpec& s) { s.dateTime.reset(); }, "Raw: No DateTime."},
            SyncSkip{"Ifd0DateTimeOf19",
                     [](KpzSpec& s) { s.dateTime = std::string("2010:05:01 12:34:5"); },
                     "Raw: DateTime(IFD0) data size is EXIF standard violation."},
            SyncSkip{"Ifd0DateTimeOf40", [](KpzSpec& s) { s.dateTime = std::string(39, '1'); },
                     "Raw: DateTime(IFD0) data size is EXIF standard violation."},
            SyncSkip{"NoIfd1DateTime", [](KpzSpec& s) { s.thumbnailDateTime.reset(); },
                     "Raw: No Thumbnail DateTime."},
            SyncSkip{"Ifd1DateTimeOf21",
                     [](KpzSpec& s) { s.thumbnailDateTime = std::string("2009:12:31 23:59:590"); },
                     "Raw: DateTime(IFD1) data size is EXIF standard violation."},
            SyncSkip{"Ifd1DateTimeEmpty",
                     [](KpzSpec& s) {
                       s.editIfd1 = [](Ifd& ifd1) {
                         ifd1.Replace(tag::kDateTime, kpztest::kTiffAscii, 0, Bytes());
                       };
                     },
                     "Raw: DateTime(IFD1) data size is EXIF standard violation."})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, SyncSkip>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) + std::get<1>(p.param).name;
    });

TEST(DtRawUpdateSync, DateTimesAreComparedAsTextUpToTheirZeroByte) {
  Bytes ifd0Value = kpztest::AsciiBytes("2010:05:01");
  Bytes ifd1Value = ifd0Value;
  const Bytes a = kpztest::AsciiBytes("AAAAAAAA");
  const Bytes b = kpztest::AsciiBytes("BBBBBBBB");
  ifd0Value.insert(ifd0Value.end(), a.begin(), a.end());
  ifd1Value.insert(ifd1Value.end(), b.begin(), b.end());
  ASSERT_EQ(ifd0Value.size(), 20u);
  KpzSpec recipe = Spec(DtNlLittleEndian);
  recipe.thumbnailDateTime = std::string("placeholder");
  recipe.editIfd0 = [&](Ifd& ifd0) {
    ASSERT_TRUE(ifd0.Replace(tag::kDateTime, kpztest::kTiffAscii, 20, ifd0Value));
  };
  recipe.editIfd1 = [&](Ifd& ifd1) {
    ASSERT_TRUE(ifd1.Replace(tag::kDateTime, kpztest::kTiffAscii, 20, ifd1Value));
  };
  Target t(recipe);
  ASSERT_EQ(t.Load(), DtRawOk);
  kpztest::FaultGuard guard;
  Captured([&] {
    EXPECT_EQ(t.Raw().SetRotationInfo(1), DtRawOk);
    EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk);
  });
  EXPECT_EQ(Counted(Call::Fwrite), 2);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(6, true, true));
}

// ---- SetRotationInfo refusals --------------------------------------------------

TEST(DtRawUpdateRefusal, Ifd1OrientationOfAnotherSizeEmptiesTheQueue) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    KpzSpec recipe = Spec(order);
    recipe.thumbnailDateTime = std::string("2009:12:31 23:59:59");
    recipe.editIfd1 = [](Ifd& ifd1) {
      ASSERT_TRUE(ifd1.Replace(tag::kOrientation, kpztest::kTiffShort, 2, Bytes{0, 6, 0, 6}));
    };
    Target t(recipe);
    ASSERT_EQ(t.Load(), DtRawOk);
    int result = 0;
    std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
    EXPECT_EQ(result, DtRawErrSize);
    EXPECT_EQ(err, RotationLine(1) + Info("SetRotationInfo", kViolation, 2));
    kpztest::FaultGuard guard;
    err = Captured([&] { result = t.Raw().Update(nullptr); });
    EXPECT_EQ(result, DtRawOk);
    EXPECT_EQ(err, NoUpdateLine());
    EXPECT_EQ(Counted(Call::Fopen), 0);
    kpztest::DisarmAll();
    EXPECT_EQ(t.OnDisk(), t.Original());
  }
}

struct Ifd0Broken {
  const char* name;
  std::function<void(Ifd&)> edit;
  int result;
  const char* line;
};

class DtRawIfd0Orientation : public testing::TestWithParam<Ifd0Broken> {};

TEST_P(DtRawIfd0Orientation, MissingOrMisSizedIfd0OrientationIsRefusedAndQueuesNothing) {
  KpzSpec recipe = Spec(DtNlBigEndian);
  recipe.editIfd0 = GetParam().edit;
  Target t(recipe);
  ASSERT_EQ(t.Load(), DtRawOk);
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, GetParam().result);
  EXPECT_EQ(err, RotationLine(1) + Info("SetRotationInfo", GetParam().line));
  kpztest::FaultGuard guard;
  err = Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
  EXPECT_EQ(err, NoUpdateLine());
  EXPECT_EQ(Counted(Call::Fopen), 0);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.Original());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawIfd0Orientation,
    testing::Values(
        Ifd0Broken{"Missing", [](Ifd& ifd0) { ifd0.Remove(tag::kOrientation); }, DtRawErrNoData,
                   "Raw: No Rotation Info!!"},
        Ifd0Broken{"OneByte",
                   [](Ifd& ifd0) {
                     ifd0.Replace(tag::kOrientation, kpztest::kTiffByte, 1, Bytes{6});
                   },
                   DtRawErrSize, kViolation},
        Ifd0Broken{"FourBytes",
                   [](Ifd& ifd0) {
                     ifd0.Replace(tag::kOrientation, kpztest::kTiffShort, 2, Bytes{0, 6, 0, 6});
                   },
                   DtRawErrSize, kViolation},
        Ifd0Broken{"FortyBytes",
                   [](Ifd& ifd0) {
                     ifd0.Replace(tag::kOrientation, kpztest::kTiffShort, 20, Bytes(40, 0));
                   },
                   DtRawErrSize, kViolation}),
    [](const testing::TestParamInfo<Ifd0Broken>& p) { return std::string(p.param.name); });

TEST(DtRawUpdateRefusal, WithoutIfd1OrientationOnlyIfd0IsWritten) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    KpzSpec recipe = Spec(order);
    recipe.thumbnailOrientation.reset();
    Target t(recipe);
    ASSERT_EQ(t.pos.ifd1Orientation, 0u);
    ASSERT_EQ(t.Load(), DtRawOk);
    int result = -1;
    std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
    EXPECT_EQ(result, DtRawOk);
    EXPECT_EQ(err, RotationLine(1) +
                       Info("SetRotationInfo", "Raw: not exist rotation info for thumbnail.") +
                       NoThumbnailDateTimeLine());
    kpztest::FaultGuard guard;
    Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
    EXPECT_EQ(Counted(Call::Fwrite), 1);
    kpztest::DisarmAll();
    EXPECT_EQ(t.OnDisk(), t.WithOrientation(6, true, false));
  }
}

class DtRawFileMode : public testing::TestWithParam<unsigned int> {};

// Tests run as root, who may write any file: the refusal must come from the
// owner-write bit itself.
TEST_P(DtRawFileMode, FileWithoutTheOwnerWriteBitIsRefusedAndItsModeKept) {
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  const unsigned int mode = GetParam();
  ASSERT_TRUE(kpztest::SetFileMode(t.Path(), mode));
  if (geteuid() == 0) {
    std::FILE* f = std::fopen(t.Path().c_str(), "rb+");
    ASSERT_NE(f, nullptr);  // the system would let this caller write
    std::fclose(f);
  }
  kpztest::FaultGuard guard;
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, DtRawErrReadOnly);
  EXPECT_EQ(err, RotationLine(1) +
                     Info("SetRotationInfo", "[DtRaw::SetRotationInfo]: Read Only File!!"));
  EXPECT_EQ(Counted(Call::Chmod), 0);
  EXPECT_EQ(Counted(Call::Fopen), 0);
  err = Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
  EXPECT_EQ(err, NoUpdateLine());
  kpztest::DisarmAll();
  EXPECT_EQ(kpztest::FileMode(t.Path()), static_cast<int>(mode));
  EXPECT_EQ(t.OnDisk(), t.Original());
  ASSERT_TRUE(kpztest::SetFileMode(t.Path(), 0644));  // so that the directory can go
}

INSTANTIATE_TEST_SUITE_P(Modes, DtRawFileMode, testing::Values(0444u, 0466u, 0044u, 0000u, 0577u),
                         [](const testing::TestParamInfo<unsigned int>& p) {
                           return "Mode0" + std::to_string(p.param >> 6) +
                                  std::to_string((p.param >> 3) & 7u) +
                                  std::to_string(p.param & 7u);
                         });

TEST(DtRawUpdateRefusal, OwnerWriteBitAloneIsEnough) {
  Target t(Spec(DtNlBigEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  ASSERT_TRUE(kpztest::SetFileMode(t.Path(), 0200));
  Captured([&] {
    EXPECT_EQ(t.Raw().SetRotationInfo(1), DtRawOk);
    EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk);
  });
  EXPECT_EQ(kpztest::FileMode(t.Path()), 0200);
  ASSERT_TRUE(kpztest::SetFileMode(t.Path(), 0644));
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(6, true, true));
}

struct StatFault {
  const char* name;
  int err;
  int result;
  int fileLine;  // the DtNlFile::Stat line, 0 for none
};

class DtRawStatFault : public testing::TestWithParam<StatFault> {};

TEST_P(DtRawStatFault, StatusFailureInSetRotationInfoIsMappedAndQueuesNothing) {
  const StatFault c = GetParam();
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Stat, c.err);
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, c.result);
  std::string want = RotationLine(1);
  if (c.fileLine != 0) {
    want += kpztest::ErrLine(kFileCpp, "Stat", c.fileLine,
                             "stat err(" + std::to_string(c.err) + ").");
  }
  EXPECT_EQ(err, want);
  err = Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
  EXPECT_EQ(err, NoUpdateLine());
}

TEST_P(DtRawStatFault, StatusFailureInUpdateIsMappedAndKeepsTheQueue) {
  const StatFault c = GetParam();
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  Captured([&] { ASSERT_EQ(t.Raw().SetRotationInfo(1), DtRawOk); });
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Stat, c.err);
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, c.result);
  EXPECT_EQ(err, c.fileLine == 0 ? std::string()
                                 : kpztest::ErrLine(kFileCpp, "Stat", c.fileLine,
                                                    "stat err(" + std::to_string(c.err) + ")."));
  EXPECT_EQ(Counted(Call::Fopen), 0);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.Original());
  // The queue was kept: a retry writes it.
  err = Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, UpdateOkLine());
  EXPECT_EQ(t.OnDisk(), t.WithOrientation(6, true, true));
}

INSTANTIATE_TEST_SUITE_P(Errnos, DtRawStatFault,
                         testing::Values(StatFault{"Denied", EACCES, DtRawErrStat, 403},
                                         StatFault{"Io", EIO, DtRawErrIo, 400},
                                         StatFault{"NotFound", ENOENT, DtRawErrNotFound, 0}),
                         [](const testing::TestParamInfo<StatFault>& p) {
                           return std::string(p.param.name);
                         });

TEST(DtRawUpdateRefusal, RemovedFileReportsNotFoundFromSetRotationInfo) {
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  ASSERT_EQ(std::remove(t.Path().c_str()), 0);
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, DtRawErrNotFound);
  EXPECT_EQ(err, RotationLine(1));
}

// ---- Modes and states --------------------------------------------------------------

TEST(DtRawUpdateState, BufferModeRefusesBothCallsWithTheirLine) {
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(Mode::Buffer), DtRawOk);
  kpztest::FaultGuard guard;
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, DtRawErrBufferMode);
  EXPECT_EQ(err, Info("SetRotationInfo", kBufferMode));
  err = Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawErrBufferMode);
  EXPECT_EQ(err, Info("Update", kBufferMode));
  EXPECT_EQ(Counted(Call::Stat), 0);
  EXPECT_EQ(Counted(Call::Fopen), 0);
  kpztest::DisarmAll();
  EXPECT_EQ(t.OnDisk(), t.Original());
}

TEST(DtRawUpdateState, BufferModeIsStillRefusedAfterFinalize) {
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(Mode::Buffer), DtRawOk);
  t.Raw().Finalize();
  int result = 0;
  std::string err = Captured([&] { result = t.Raw().SetRotationInfo(1); });
  EXPECT_EQ(result, DtRawErrBufferMode);
  EXPECT_EQ(err, Info("SetRotationInfo", kBufferMode));
  // Update tests for an engine first.
  err = Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawErrNotInit);
  EXPECT_EQ(err, "");
}

TEST(DtRawUpdateState, FreshObjectReturnsNotInit) {
  DtRaw raw;
  int result = 0;
  std::string err = Captured([&] { result = raw.SetRotationInfo(4); });
  EXPECT_EQ(result, DtRawErrNotInit);
  EXPECT_EQ(err, RotationLine(4));
  err = Captured([&] { result = raw.Update(nullptr); });
  EXPECT_EQ(result, DtRawErrNotInit);
  EXPECT_EQ(err, "");
}

TEST(DtRawUpdateState, UpdateWithAnEmptyQueueReturnsZeroWithoutOpeningTheFile) {
  Target t(Spec(DtNlBigEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  ASSERT_TRUE(kpztest::SetFileTimes(t.Path(), kOld.access, kOld.modification));
  kpztest::FaultGuard guard;
  int result = -1;
  std::string err = Captured([&] { result = t.Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, NoUpdateLine());
  EXPECT_EQ(Counted(Call::Fopen), 0);
  EXPECT_EQ(Counted(Call::Stat), 0);
  EXPECT_EQ(Counted(Call::Utime), 0);
  kpztest::DisarmAll();
  ExpectTimes(t.Path(), kOld);
}

TEST(DtRawUpdateState, FinalizeDropsPendingChanges) {
  Target t(Spec(DtNlLittleEndian));
  ASSERT_EQ(t.Load(), DtRawOk);
  Captured([&] { ASSERT_EQ(t.Raw().SetRotationInfo(1), DtRawOk); });
  t.Raw().Finalize();
  ASSERT_EQ(t.Load(), DtRawOk);
  std::string err = Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
  EXPECT_EQ(err, NoUpdateLine());
  EXPECT_EQ(t.OnDisk(), t.Original());
}

TEST(DtRawUpdateState, AnUpdatedFileParsesWithTheNewValues) {
  Target t(Spec(DtNlBigEndian, true));
  ASSERT_EQ(t.Load(), DtRawOk);
  Captured([&] {
    ASSERT_EQ(t.Raw().SetRotationInfo(7), DtRawOk);
    ASSERT_EQ(t.Raw().Update(nullptr), DtRawOk);
  });
  DtRaw again;
  ASSERT_EQ(again.Initialize(t.Path().c_str()), DtRawOk);
  unsigned char rotation = 0;
  EXPECT_EQ(again.GetRotationInfo(&rotation), DtRawOk);
  EXPECT_EQ(rotation, 7);
}

// ---- Update's I/O failures ------------------------------------------------------

// A loaded file with two orientation changes queued and old times set.
std::unique_ptr<Target> Queued(DtNlByteOrder order) {
  std::unique_ptr<Target> t(new Target(Spec(order)));
  EXPECT_EQ(t->Load(), DtRawOk);
  Captured([&] { EXPECT_EQ(t->Raw().SetRotationInfo(1), DtRawOk); });
  EXPECT_TRUE(kpztest::SetFileTimes(t->Path(), kOld.access, kOld.modification));
  return t;
}

// The queue is empty after a failure once the file was opened.
void ExpectQueueEmpty(Target& t) {
  std::string err = Captured([&] { EXPECT_EQ(t.Raw().Update(nullptr), DtRawOk); });
  EXPECT_EQ(err, NoUpdateLine());
}

struct OpenFault {
  const char* name;
  int err;
  int result;
};

class DtRawUpdateOpenFault
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, OpenFault>> {};

TEST_P(DtRawUpdateOpenFault, OpenFailureIsMappedLoggedAndKeepsTheQueue) {
  const OpenFault c = std::get<1>(GetParam());
  std::unique_ptr<Target> t = Queued(std::get<0>(GetParam()));
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Fopen, c.err);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, c.result);
  EXPECT_EQ(err, dtrawtest::FopenErr(t->Path(), c.err) +
                     Info("Update", "[Raw:Update]: Open Err!! %s",
                          "[Raw:Update]: Open Err!! " + t->Path()));
  EXPECT_EQ(Counted(Call::Utime), 0);
  kpztest::DisarmAll();
  ExpectTimes(t->Path(), kOld);
  EXPECT_EQ(t->OnDisk(), t->Original());
  // Retry with the queue kept.
  err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, UpdateOkLine());
  EXPECT_EQ(t->OnDisk(), t->WithOrientation(6, true, true));
}

INSTANTIATE_TEST_SUITE_P(
    Errnos, DtRawUpdateOpenFault,
    testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                     testing::Values(OpenFault{"Denied", EACCES, DtRawErrOpen},
                                     OpenFault{"NotFound", ENOENT, DtRawErrNotFound},
                                     OpenFault{"Io", EIO, DtRawErrIo})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, OpenFault>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) + std::get<1>(p.param).name;
    });

// One failing step of the write loop.
struct LoopFault {
  const char* name;
  Call call;
  int err;
  int skip;  // changes written before the failing one
  int result;
};

class DtRawUpdateLoopFault
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, LoopFault>> {};

TEST_P(DtRawUpdateLoopFault, FailureInTheLoopKeepsEarlierBytesAndEmptiesTheQueue) {
  const LoopFault c = std::get<1>(GetParam());
  std::unique_ptr<Target> t = Queued(std::get<0>(GetParam()));
  kpztest::FaultGuard guard;
  kpztest::Arm(c.call, c.err, c.skip);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, c.result);
  EXPECT_EQ(err, c.call == Call::Fseek ? SeekErrLines(c.err) : WriteErrLines(c.err));
  // The times are set back only when something was written.
  EXPECT_EQ(Counted(Call::Utime), c.skip == 0 ? 0 : 1);
  kpztest::DisarmAll();
  if (c.skip >= 1) {
    ExpectTimes(t->Path(), kOld);
  } else {
    // Nothing was written and the times were not set. (The access time may
    // still move: stdio may read the block it seeks into.)
    EXPECT_EQ(kpztest::GetFileTimes(t->Path()).modification, kOld.modification);
  }
  EXPECT_EQ(t->OnDisk(), t->WithOrientation(6, c.skip >= 1, false));
  ExpectQueueEmpty(*t);
  // The parsed copy follows what was written.
  unsigned char rotation = 0xAA;
  EXPECT_EQ(t->Raw().GetRotationInfo(&rotation), DtRawOk);
  EXPECT_EQ(rotation, c.skip >= 1 ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, DtRawUpdateLoopFault,
    testing::Combine(
        testing::Values(DtNlLittleEndian, DtNlBigEndian),
        testing::Values(LoopFault{"FirstSeek", Call::Fseek, EINVAL, 0, DtRawErrSeek},
                        LoopFault{"FirstSeekIo", Call::Fseek, EIO, 0, DtRawErrIo},
                        LoopFault{"SecondSeek", Call::Fseek, EINVAL, 1, DtRawErrSeek},
                        LoopFault{"FirstWrite", Call::Fwrite, ENOSPC, 0, DtRawErrWrite},
                        LoopFault{"FirstWriteIo", Call::Fwrite, EIO, 0, DtRawErrIo},
                        LoopFault{"SecondWrite", Call::Fwrite, ENOSPC, 1, DtRawErrWrite},
                        LoopFault{"SecondWriteIo", Call::Fwrite, EIO, 1, DtRawErrIo})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, LoopFault>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) + std::get<1>(p.param).name;
    });

struct CloseFault {
  const char* name;
  int err;
  int result;
};

class DtRawUpdateCloseFault
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, CloseFault>> {};

TEST_P(DtRawUpdateCloseFault, CloseFailureKeepsTheBytesButNotTheTimes) {
  const CloseFault c = std::get<1>(GetParam());
  std::unique_ptr<Target> t = Queued(std::get<0>(GetParam()));
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Fclose, c.err);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, c.result);
  EXPECT_EQ(err, dtrawtest::FcloseErr(c.err));
  EXPECT_EQ(Counted(Call::Utime), 0);
  kpztest::DisarmAll();
  EXPECT_EQ(t->OnDisk(), t->WithOrientation(6, true, true));
  // The write made the modification time new, and it was not set back.
  EXPECT_NE(kpztest::GetFileTimes(t->Path()).modification, kOld.modification);
  ExpectQueueEmpty(*t);
}

INSTANTIATE_TEST_SUITE_P(
    Errnos, DtRawUpdateCloseFault,
    testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                     testing::Values(CloseFault{"BadFile", EBADF, DtRawErrClose},
                                     CloseFault{"Io", EIO, DtRawErrIo})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, CloseFault>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) + std::get<1>(p.param).name;
    });

TEST(DtRawUpdateFault, CloseFailureAfterASeekFailureReturnsTheSeekFailure) {
  std::unique_ptr<Target> t = Queued(DtNlLittleEndian);
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Fseek, EINVAL);
  kpztest::Arm(Call::Fclose, EIO);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawErrSeek);
  EXPECT_EQ(err, SeekErrLines(EINVAL) + dtrawtest::FcloseErr(EIO));
  EXPECT_EQ(Counted(Call::Utime), 0);
  kpztest::DisarmAll();
  EXPECT_EQ(t->OnDisk(), t->Original());
  ExpectQueueEmpty(*t);
}

struct TimeFault {
  const char* name;
  int err;
  int result;
};

class DtRawUpdateTimeFault
    : public testing::TestWithParam<std::tuple<DtNlByteOrder, TimeFault>> {};

TEST_P(DtRawUpdateTimeFault, SettingTheTimesFailsAfterTheBytesAreWritten) {
  const TimeFault c = std::get<1>(GetParam());
  std::unique_ptr<Target> t = Queued(std::get<0>(GetParam()));
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Utime, c.err);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, c.result);
  EXPECT_EQ(err, SetTimeErrLines(c.err));
  kpztest::DisarmAll();
  EXPECT_EQ(t->OnDisk(), t->WithOrientation(6, true, true));
  EXPECT_NE(kpztest::GetFileTimes(t->Path()).modification, kOld.modification);
  ExpectQueueEmpty(*t);
}

INSTANTIATE_TEST_SUITE_P(
    Errnos, DtRawUpdateTimeFault,
    testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                     testing::Values(TimeFault{"Permission", EPERM, DtRawErrSetTime},
                                     TimeFault{"Io", EIO, DtRawErrIo},
                                     TimeFault{"NotFound", ENOENT, DtRawErrNotFound})),
    [](const testing::TestParamInfo<std::tuple<DtNlByteOrder, TimeFault>>& p) {
      return std::string(dtrawtest::OrderName(std::get<0>(p.param))) + std::get<1>(p.param).name;
    });

TEST(DtRawUpdateFault, TimeFailureComesBeforeALaterWriteFailure) {
  std::unique_ptr<Target> t = Queued(DtNlBigEndian);
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Fwrite, ENOSPC, 1);
  kpztest::Arm(Call::Utime, EPERM);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(nullptr); });
  EXPECT_EQ(result, DtRawErrSetTime);
  EXPECT_EQ(err, WriteErrLines(ENOSPC) + SetTimeErrLines(EPERM));
  kpztest::DisarmAll();
  EXPECT_EQ(t->OnDisk(), t->WithOrientation(6, true, false));
}

TEST(DtRawUpdateFault, TimeFailureWithAValidTimeIsReportedToo) {
  std::unique_ptr<Target> t = Queued(DtNlLittleEndian);
  const DtNlTime now;
  kpztest::FaultGuard guard;
  kpztest::Arm(Call::Utime, EPERM);
  int result = 0;
  std::string err = Captured([&] { result = t->Raw().Update(&now); });
  EXPECT_EQ(result, DtRawErrSetTime);
  EXPECT_EQ(err, SetTimeErrLines(EPERM));
}

}  // namespace
