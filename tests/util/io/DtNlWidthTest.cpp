// Behaviour that depends on the widths of the machine's types, pinned so that
// the same expectations hold on the 32-bit ARM target (long, off_t, time_t and
// pointers of 32 bits, run under emulation) and on a 64-bit build host.
//
// Covered: the fixed widths of the interface types and the layout of the
// plain records (DtNlStatus, DtRawScreennailInfo, DtRawThumbnailInfo,
// DtNlNode and the list that is its own end node); the file channel's 64-bit
// seek offset cut to its low 32 bits and positions past 2 GiB that a 32-bit
// ftell cannot report; stat against stat64 on sparse files of 3 and 5 GiB;
// the last second of a 32-bit clock and the largest clock value of each
// width; raw-file offsets near the top of the 32-bit range, which must never
// wrap into the memory copy.
//
// Where the widths differ on purpose (stat's st_size, time_t) each test
// states both outcomes and checks the one of the machine it runs on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawScreennailInfo.h"
#include "raw/DtRawTestUtil.h"
#include "raw/DtRawThumbnailInfo.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"
#include "util/DtNlDataUtil.h"
#include "util/DtNlListImpl.h"
#include "util/DtNlStatus.h"
#include "util/DtNlTypes.h"
#include "util/io/DtNlFile.h"
#include "util/io/DtNlFileIo.h"
#include "util/io/DtNlFileStatus.h"
#include "util/io/DtNlFileStatus64.h"
#include "util/io/DtNlIo.h"
#include "util/io/DtNlTime.h"

namespace {

using kpztest::Bytes;
using kpztest::CaptureStderr;

const char* const kFileIoCpp = "jni/util/io/DtNlFileIo.cpp";
const char* const kFileCpp = "jni/util/io/DtNlFile.cpp";

constexpr std::size_t kPtr = sizeof(void*);
// True where struct stat reports sizes beyond 2 GiB (64-bit hosts, and
// platforms whose stat record carries a 64-bit size on 32-bit machines).
constexpr bool kWideStatSize = sizeof(std::declval<struct stat&>().st_size) >= 8;
constexpr bool kWideTime = sizeof(time_t) >= 8;

std::string ErrnoText(const std::string& head, int err) {
  return head + "(" + std::to_string(err) + ").";
}

void ExpectStatus(DtNlStatus const& status, DtNlErrCode code, int err) {
  EXPECT_EQ(status.errCode, code);
  EXPECT_EQ(status.sysErrNo, err);
}

// ---------------------------------------------------------------- type widths

TEST(DtNlWidth, InterfaceIntegerTypesHaveTheirNamedWidthsOnEveryMachine) {
  EXPECT_EQ(sizeof(UINT8), 1u);
  EXPECT_EQ(sizeof(UINT16), 2u);
  EXPECT_EQ(sizeof(UINT32), 4u);
  EXPECT_EQ(sizeof(UINT), 4u);
  EXPECT_EQ(sizeof(INT32), 4u);
  EXPECT_TRUE(std::is_unsigned<UINT>::value);
  EXPECT_TRUE(std::is_signed<INT32>::value);
  // The channel takes 64-bit offsets even where long is 32 bits.
  EXPECT_EQ(sizeof(long long), 8u);
  EXPECT_EQ(sizeof(DtNlIoSeekPos), 4u);
  EXPECT_EQ(sizeof(DtNlErrCode), 4u);
  EXPECT_EQ(sizeof(DtNlByteOrder), 4u);
}

// The three machines the suite runs on, and the widths each is pinned to, so
// that a toolchain with other widths (a 32-bit ARM C library with 64-bit
// time_t or off_t, say) is noticed rather than silently taking the other
// branch of the tests below.
//   x86-64 Linux  LP64:  long, pointers, off_t, time_t, st_size 64; char signed
//   arm64 Linux   LP64:  the same widths; char unsigned       (as arm64-v8a)
//   armhf Linux   ILP32: all of them 32 bits; char unsigned   (as armeabi-v7a,
//                 whose C library has a 64-bit st_size, see below)
TEST(DtNlWidth, ThisMachineIsOneOfTheThreeWithPinnedWidths) {
  constexpr std::size_t kStatSize = sizeof(std::declval<struct stat&>().st_size);
  const bool charSigned = std::numeric_limits<char>::is_signed;
#if defined(__x86_64__) || defined(__aarch64__)
  EXPECT_EQ(sizeof(long), 8u);
  EXPECT_EQ(kPtr, 8u);
  EXPECT_EQ(sizeof(off_t), 8u);
  EXPECT_EQ(sizeof(time_t), 8u);
  EXPECT_EQ(kStatSize, 8u);
  EXPECT_TRUE(kWideStatSize);
  EXPECT_TRUE(kWideTime);
#if defined(__x86_64__)
  EXPECT_TRUE(charSigned);
#else
  EXPECT_FALSE(charSigned);
#endif
#elif defined(__arm__) && defined(__ANDROID__)
  // armeabi-v7a (not run here, for a device run): Android's C library gives
  // struct stat a 64-bit st_size on 32-bit ARM; time_t stays 32 bits.
  EXPECT_EQ(sizeof(long), 4u);
  EXPECT_EQ(kPtr, 4u);
  EXPECT_EQ(sizeof(time_t), 4u);
  EXPECT_EQ(kStatSize, 8u);
  EXPECT_TRUE(kWideStatSize);
  EXPECT_FALSE(kWideTime);
  EXPECT_FALSE(charSigned);
#elif defined(__arm__)
  EXPECT_EQ(sizeof(long), 4u);
  EXPECT_EQ(kPtr, 4u);
  EXPECT_EQ(sizeof(off_t), 4u);
  EXPECT_EQ(sizeof(time_t), 4u);
  EXPECT_EQ(kStatSize, 4u);
  EXPECT_FALSE(kWideStatSize);
  EXPECT_FALSE(kWideTime);
  EXPECT_FALSE(charSigned);
#else
  (void)kStatSize;
  (void)charSigned;
  FAIL() << "a machine whose widths are not pinned here: add it";
#endif
}

// ---------------------------------------------------------------- record layout

TEST(DtNlWidth, StatusIsTwo32BitFieldsInOrderOnEveryMachine) {
  static_assert(std::is_standard_layout<DtNlStatus>::value, "plain value type");
  EXPECT_EQ(sizeof(DtNlStatus), 8u);
  EXPECT_EQ(offsetof(DtNlStatus, errCode), 0u);
  EXPECT_EQ(offsetof(DtNlStatus, sysErrNo), 4u);
}

TEST(DtNlWidth, ScreennailInfoIsTwelveBytesWithItsFieldsInOrder) {
  static_assert(std::is_standard_layout<DtRawScreennailInfo>::value, "plain record");
  EXPECT_EQ(sizeof(DtRawScreennailInfo), 12u);
  EXPECT_EQ(offsetof(DtRawScreennailInfo, m_fileOffset), 0u);
  EXPECT_EQ(offsetof(DtRawScreennailInfo, m_size), 4u);
  EXPECT_EQ(offsetof(DtRawScreennailInfo, m_horizon), 8u);
  EXPECT_EQ(offsetof(DtRawScreennailInfo, m_vertical), 10u);
}

TEST(DtNlWidth, ThumbnailInfoIsTwelveBytesWithItsFieldsInOrder) {
  static_assert(std::is_standard_layout<DtRawThumbnailInfo>::value, "plain record");
  EXPECT_EQ(sizeof(DtRawThumbnailInfo), 12u);
  EXPECT_EQ(offsetof(DtRawThumbnailInfo, m_compression), 0u);
  EXPECT_EQ(offsetof(DtRawThumbnailInfo, m_rotation), 1u);
  EXPECT_EQ(offsetof(DtRawThumbnailInfo, m_size), 4u);
  EXPECT_EQ(offsetof(DtRawThumbnailInfo, m_fileOffset), 8u);
}

TEST(DtNlWidth, NodeIsThreePointersAndAKeyPaddedToPointerAlignment) {
  static_assert(std::is_standard_layout<DtNlNode>::value, "plain structure");
  EXPECT_EQ(offsetof(DtNlNode, next), 0u);
  EXPECT_EQ(offsetof(DtNlNode, prev), kPtr);
  EXPECT_EQ(offsetof(DtNlNode, value), 2 * kPtr);
  EXPECT_EQ(offsetof(DtNlNode, key), 3 * kPtr);
  // 16 bytes on a 32-bit machine, 32 (28 and 4 of padding) on a 64-bit one.
  EXPECT_EQ(sizeof(DtNlNode), kPtr == 4 ? 16u : 32u);
}

TEST(DtNlWidth, ListIsItsOwnEndNodeFollowedByItsCount) {
  DtNlListImpl list;
  const DtNlNode* end = list.GetEndNode();
  EXPECT_EQ(static_cast<const void*>(end), static_cast<const void*>(&list));
  EXPECT_EQ(end->next, end);
  EXPECT_EQ(end->prev, end);
  EXPECT_EQ(end->value, nullptr);
  EXPECT_EQ(end->key, 0xFFFFFFFFu);
  // The count follows the node's four fields: at byte 16 on a 32-bit
  // machine, at byte 32 (28 and 4 of padding) on a 64-bit one. (What follows
  // the count, the bounds of a lent node block, is the list's own business.)
  DtNlListImpl filled;
  int values[3] = {1, 2, 3};
  for (int& v : values) {
    ASSERT_NE(filled.PushBack(&v, DtNlListImpl::NO_KEY), nullptr);
  }
  UINT32 count = 0;
  std::memcpy(&count, reinterpret_cast<const unsigned char*>(&filled) + 4 * kPtr, sizeof count);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(count, filled.GetSize());
}

// ---------------------------------------------------------------- file channel offsets

class DtNlWidthFile : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.Path().empty());
    path_ = dir_.Write("sixteen.bin", kpztest::PatternBytes(16, 0x31));
    ASSERT_FALSE(path_.empty());
    ASSERT_EQ(io_.Open(path_.c_str(), "rb"), 0);
  }
  // The file goes before the directory: an emptied directory is removed even
  // where listing it fails (32-bit readdir under user-mode emulation).
  void TearDown() override {
    io_.Close();
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  kpztest::TempDir dir_;
  std::string path_;
  DtNlFileIo io_;
};

TEST_F(DtNlWidthFile, SeekDropsTheUpperHalfOfA64BitOffsetFromTheStart) {
  // 2^32 + 5: the upper half is dropped on every machine, so this is 5 (a
  // 64-bit fseek would otherwise stand 4 GiB further on).
  EXPECT_EQ(io_.Seek(0x100000005LL, DtNlIoSeekSet), 0);
  EXPECT_EQ(io_.Tell(), 5);
  EXPECT_EQ(io_.Tell64(), 5LL);
}

TEST_F(DtNlWidthFile, SeekDropsTheUpperHalfFromTheCurrentPositionAndTheEnd) {
  ASSERT_EQ(io_.Seek(3, DtNlIoSeekSet), 0);
  // 2^32 + 2 from the current position moves 2.
  EXPECT_EQ(io_.Seek(0x100000002LL, DtNlIoSeekCur), 0);
  EXPECT_EQ(io_.Tell(), 5);
  // 0xFFFFFFFC keeps its low 32 bits, -4: four bytes before the end.
  EXPECT_EQ(io_.Seek(0xFFFFFFFCLL, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io_.Tell(), 12);
  // -2^32 - 4 from the end is also -4.
  ASSERT_EQ(io_.Seek(0, DtNlIoSeekSet), 0);
  EXPECT_EQ(io_.Seek(-0x100000004LL, DtNlIoSeekEnd), 0);
  EXPECT_EQ(io_.Tell(), 12);
  EXPECT_TRUE(io_.GetStatus().IsSuccess());
}

TEST_F(DtNlWidthFile, OffsetOfTwoGibibytesIsNegativeIn32BitsAndFailsOnEveryMachine) {
  ASSERT_EQ(io_.Seek(7, DtNlIoSeekSet), 0);
  const std::string err =
      CaptureStderr([&] { EXPECT_EQ(io_.Seek(0x80000000LL, DtNlIoSeekSet), -1); });
  EXPECT_EQ(err, kpztest::ErrLine(kFileIoCpp, "Seek", 267, ErrnoText("fseek err", EINVAL)));
  ExpectStatus(io_.GetStatus(), DtNlErrSeek, EINVAL);
  EXPECT_EQ(io_.Tell(), 7);  // the position is kept
}

TEST_F(DtNlWidthFile, PositionPastTwoGibibytesCannotBeToldButCanBeLeftAgain) {
  // Seeking past the end of a file is allowed; relative seeks reach 2 GiB
  // without any offset above the signed 32-bit range.
  ASSERT_EQ(io_.Seek(0x7FFFFFFFLL, DtNlIoSeekSet), 0);
  EXPECT_EQ(io_.Tell(), 0x7FFFFFFF);
  ASSERT_EQ(io_.Seek(1, DtNlIoSeekCur), 0);
  const std::string err = CaptureStderr([&] {
    EXPECT_EQ(io_.Tell(), -1);
    EXPECT_EQ(io_.Tell64(), -1LL);
  });
  EXPECT_EQ(err,
            kpztest::ErrLine(kFileIoCpp, "Tell", 285, ErrnoText("ftell err", EOVERFLOW)) +
                kpztest::ErrLine(kFileIoCpp, "Tell64", 304, ErrnoText("ftell err", EOVERFLOW)));
  ExpectStatus(io_.GetStatus(), DtNlErrTell, EOVERFLOW);
  // One step back is within reach again; the first error stays recorded.
  ASSERT_EQ(io_.Seek(-1, DtNlIoSeekCur), 0);
  EXPECT_EQ(io_.Tell(), 0x7FFFFFFF);
  EXPECT_EQ(io_.Tell64(), 0x7FFFFFFFLL);
  ExpectStatus(io_.GetStatus(), DtNlErrTell, EOVERFLOW);
}

// ---------------------------------------------------------------- stat and stat64

class DtNlWidthStat : public testing::Test {
 protected:
  // A sparse file of `size` bytes (no data blocks written); false when the
  // file system cannot hold it.
  bool MakeSparse(const std::string& name, long long size) {
    path_ = dir_.Path() + "/" + name;
    const int fd = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
      return false;
    }
    const int truncated = ::ftruncate64(fd, static_cast<off64_t>(size));
    ::close(fd);
    return truncated == 0;
  }
  void TearDown() override {
    if (!path_.empty()) ::unlink(path_.c_str());
  }

  kpztest::TempDir dir_;
  std::string path_;
};

TEST_F(DtNlWidthStat, FiveGibibyteFileKeepsItsLowWordInStatAndAllOfItInStat64) {
  if (!MakeSparse("five.bin", 5LL << 30)) GTEST_SKIP() << "no room for a 5 GiB sparse file";
  const DtNlFile file(path_.c_str());

  DtNlFileStatus64 s64;
  const DtNlStatus st64 = file.Stat64(&s64);
  ExpectStatus(st64, DtNlErrNone, 0);
  EXPECT_EQ(s64.GetSize(), static_cast<std::uint64_t>(5) << 30);
  EXPECT_EQ(s64.IsFile(), 1);
  EXPECT_EQ(file.IsExist(), 1);  // built on stat64 on every machine

  DtNlFileStatus s;
  DtNlStatus st;
  const std::string err = CaptureStderr([&] { st = file.Stat(&s); });
  if (kWideStatSize) {
    // A 64-bit st_size: the size is cut to its low 32 bits (5 GiB mod 4 GiB).
    EXPECT_EQ(err, "");
    ExpectStatus(st, DtNlErrNone, 0);
    EXPECT_EQ(s.GetSize(), 1u << 30);
  } else {
    // A 32-bit st_size cannot hold the size: stat itself refuses.
    EXPECT_EQ(err, kpztest::ErrLine(kFileCpp, "Stat", 403, ErrnoText("stat err", EOVERFLOW)));
    ExpectStatus(st, DtNlErrStat, EOVERFLOW);
  }
}

TEST_F(DtNlWidthStat, ThreeGibibyteFileIsSizedByStatOnlyWhereItsSizeFieldIsWide) {
  if (!MakeSparse("three.bin", 3LL << 30)) GTEST_SKIP() << "no room for a 3 GiB sparse file";
  const DtNlFile file(path_.c_str());

  DtNlFileStatus64 s64;
  ExpectStatus(file.Stat64(&s64), DtNlErrNone, 0);
  EXPECT_EQ(s64.GetSize(), 0xC0000000ull);

  DtNlFileStatus s;
  DtNlStatus st;
  const std::string err = CaptureStderr([&] { st = file.Stat(&s); });
  if (kWideStatSize) {
    // 3 GiB still fits the unsigned 32-bit size.
    EXPECT_EQ(err, "");
    ExpectStatus(st, DtNlErrNone, 0);
    EXPECT_EQ(s.GetSize(), 0xC0000000u);
  } else {
    // Beyond the signed 32-bit file offset: refused, and logged.
    EXPECT_EQ(err, kpztest::ErrLine(kFileCpp, "Stat", 403, ErrnoText("stat err", EOVERFLOW)));
    ExpectStatus(st, DtNlErrStat, EOVERFLOW);
  }
}

TEST_F(DtNlWidthStat, FileJustBelowTwoGibibytesIsSizedAlikeByStatAndStat64) {
  if (!MakeSparse("below.bin", 0x7FFFFFFFLL)) GTEST_SKIP() << "no room for a 2 GiB sparse file";
  const DtNlFile file(path_.c_str());
  DtNlFileStatus s;
  ExpectStatus(file.Stat(&s), DtNlErrNone, 0);
  EXPECT_EQ(s.GetSize(), 0x7FFFFFFFu);
  DtNlFileStatus64 s64;
  ExpectStatus(file.Stat64(&s64), DtNlErrNone, 0);
  EXPECT_EQ(s64.GetSize(), 0x7FFFFFFFull);
}

// ---------------------------------------------------------------- clock width

// Runs a test body in UTC and restores the caller's zone afterwards.
class UtcZone {
 public:
  UtcZone() {
    const char* tz = getenv("TZ");
    m_hadTz = tz != nullptr;
    if (m_hadTz) m_oldTz = tz;
    setenv("TZ", "UTC0", 1);
    tzset();
  }
  ~UtcZone() {
    if (m_hadTz) {
      setenv("TZ", m_oldTz.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  UtcZone(const UtcZone&) = delete;
  UtcZone& operator=(const UtcZone&) = delete;

 private:
  bool m_hadTz = false;
  std::string m_oldTz;
};

void ExpectFields(DtNlTime const& t, int year, int month, int day, int hour, int minute,
                  int second) {
  EXPECT_EQ(t.GetYear(), year);
  EXPECT_EQ(t.GetMonth(), month);
  EXPECT_EQ(t.GetDay(), day);
  EXPECT_EQ(t.GetHour(), hour);
  EXPECT_EQ(t.GetMinute(), minute);
  EXPECT_EQ(t.GetSecond(), second);
}

TEST(DtNlWidth, LastSecondOfA32BitClockBreaksDownOnEveryMachine) {
  UtcZone utc;
  kpztest::FaultGuard guard;
  kpztest::SetTime(static_cast<time_t>(0x7FFFFFFF));
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 1);
  ExpectFields(t, 2038, 1, 19, 3, 14, 7);
}

TEST(DtNlWidth, LargestClockValueOfTheMachineStaysValid) {
  UtcZone utc;
  kpztest::FaultGuard guard;
  kpztest::SetTime(std::numeric_limits<time_t>::max());
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 1);
  if (kWideTime) {
    // Beyond the years an int holds: the broken-down fields stay zero.
    ExpectFields(t, 1900, 1, 0, 0, 0, 0);
  } else {
    // A 32-bit clock ends in 2038, which breaks down normally.
    ExpectFields(t, 2038, 1, 19, 3, 14, 7);
  }
}

// ---------------------------------------------------------------- raw offsets near 4 GiB

using dtrawtest::Loaded;
using dtrawtest::Mode;
namespace tag = kpztest::tag;

class DtNlWidthRaw : public testing::TestWithParam<Mode> {};

// Removes a file on scope exit; declared after the Loaded that owns its
// directory, it runs first (see DtNlWidthFile::TearDown).
class UnlinkOnExit {
 public:
  explicit UnlinkOnExit(std::string path) : m_path(std::move(path)) {}
  ~UnlinkOnExit() { ::unlink(m_path.c_str()); }
  UnlinkOnExit(const UnlinkOnExit&) = delete;
  UnlinkOnExit& operator=(const UnlinkOnExit&) = delete;

 private:
  std::string m_path;
};

INSTANTIATE_TEST_SUITE_P(BothModes, DtNlWidthRaw, testing::Values(Mode::File, Mode::Buffer),
                         [](const testing::TestParamInfo<Mode>& param) {
                           return std::string(dtrawtest::ModeName(param.param));
                         });

TEST_P(DtNlWidthRaw, ScreennailOffsetAndLengthAbove2GiBAreReportedUnsigned) {
  kpztest::KpzSpec plan;
  plan.ifd0ScreennailTags = false;
  plan.scnHeightWidth.reset();
  plan.editIfd0 = [](kpztest::Ifd& ifd) {
    ifd.AddLong(tag::kJpegOffset, 0x80000000u);
    ifd.AddLong(tag::kJpegLength, 0xFFFFFFF0u);
  };
  Loaded loaded(kpztest::BuildKpz(plan));
  const UnlinkOnExit cleanup(loaded.Path());
  ASSERT_EQ(loaded.Load(GetParam()), 0);
  DtRawScreennailInfo info;
  int result = 1;
  CaptureStderr([&] { result = loaded.raw.GetScreennailInfo(&info); });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(info.m_fileOffset, 0x80000000u);
  EXPECT_EQ(info.m_size, 0xFFFFFFF0u);
}

// A thumbnail whose offset plus length wraps around 32 bits to a small
// number: a sum-form bounds check would take it for bytes inside the memory
// copy (and on a 32-bit machine the pointer sum wraps as well).
Bytes WrappingThumbnailFile() {
  kpztest::KpzSpec plan;
  plan.editIfd1 = [](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(tag::kJpegOffset, kpztest::kTiffLong, 1, 0xFFFFFFF0u);
    ifd.ReplaceRaw(tag::kJpegLength, kpztest::kTiffLong, 1, 0x20u);
  };
  return kpztest::BuildKpz(plan);
}

TEST_P(DtNlWidthRaw, ThumbnailWhoseEndWrapsAround32BitsIsNeverTakenFromTheMemoryCopy) {
  Loaded loaded(WrappingThumbnailFile());
  const UnlinkOnExit cleanup(loaded.Path());
  ASSERT_EQ(loaded.Load(GetParam()), 0);
  DtRawThumbnailInfo info;
  ASSERT_EQ(loaded.raw.GetThumbnailInfo(&info), 0);
  ASSERT_EQ(info.m_fileOffset, 0xFFFFFFF0u);
  ASSERT_EQ(info.m_size, 0x20u);

  unsigned char buff[0x20];
  for (unsigned char& b : buff) b = 0xEE;
  int result = 0;
  const std::string err =
      CaptureStderr([&] { result = loaded.raw.GetThumbnailData(buff, sizeof buff); });
  if (GetParam() == Mode::Buffer) {
    EXPECT_EQ(result, DtRawErrNoData);
    EXPECT_EQ(err, dtrawtest::RawInfo("GetThumbnailData",
                                      "Raw: Because the thumbnail is not stored in the buffer, "
                                      "can't get the thumbnail."));
  } else {
    // Read from the file: the offset's low 32 bits are negative, so the seek
    // fails on every machine.
    EXPECT_EQ(result, DtRawErrSeek);
    EXPECT_EQ(err,
              dtrawtest::FseekErr(EINVAL) +
                  dtrawtest::RawInfo("GetThumbnailData", "Raw: Seek Err for get thumbnail!!: %d",
                                     "Raw: Seek Err for get thumbnail!!: -1"));
  }
  for (unsigned char b : buff) EXPECT_EQ(b, 0xEE);
}

}  // namespace
