// KpzRotatorTest.cpp - the kpz tool's rotate operation on one file
// (kit/kpz/KpzRotator), in process: the whole file compared before and
// after (only the orientation bytes change, the modification time is kept), dry runs,
// refusals, and write failures made by the fault seam.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzRotator.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>

#include "kpz/KpzSource.h"
#include "support/BoundedRun.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
using Dir = KpzRotation::Direction;

const std::time_t kAccess = 1000000000;
const std::time_t kModified = 1100000000;

KpzRotator::Change Turn(Dir d) {
  KpzRotator::Change c;
  c.turn = d;
  return c;
}

KpzRotator::Change Code(unsigned char code) {
  KpzRotator::Change c;
  c.setCode = true;
  c.code = code;
  return c;
}

class KpzRotatorTest : public testing::Test {
 protected:
  // Writes `recipe` as r.kpz with known times; keeps its bytes and layout.
  void Make(const KpzSpec& recipe) {
    order = recipe.order;
    image = kpztest::BuildKpz(recipe, &where);
    path = dir.Write("r.kpz", image);
    ASSERT_FALSE(path.empty());
    ASSERT_TRUE(kpztest::SetFileTimes(path, kAccess, kModified));
  }

  KpzRotator::Outcome Rotate(const KpzRotator::Change& change, bool dryRun = false) {
    KpzRotator::Outcome out;
    kpztest::CaptureStderr([&] { out = KpzRotator::Rotate(path, change, dryRun); });
    return out;
  }

  // The image with orientation `exif` written at IFD0's (and IFD1's) value.
  Bytes WithOrientation(std::uint16_t exif, bool ifd1 = true) const {
    Bytes b = kpztest::Patched(
        image, kpztest::TagValueOffset(image, order, where.ifd0, kpztest::tag::kOrientation),
        kpztest::U16Bytes(exif, order));
    if (ifd1) {
      b = kpztest::Patched(
          b, kpztest::TagValueOffset(image, order, where.ifd1, kpztest::tag::kOrientation),
          kpztest::U16Bytes(exif, order));
    }
    return b;
  }

  void ExpectUnchanged() const {
    EXPECT_EQ(kpztest::ReadFileBytes(path), image);
    EXPECT_EQ(kpztest::GetFileTimes(path).modification, kModified);
  }

  kpztest::TempDir dir;
  DtNlByteOrder order = DtNlLittleEndian;
  Bytes image;
  KpzLayout where;
  std::string path;
};

TEST_F(KpzRotatorTest, ClockwiseTurnChangesOnlyTheOrientationBytesAndKeepsTheTimes) {
  KpzSpec recipe;
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_TRUE(out.written);
  EXPECT_EQ(out.before, 0);
  EXPECT_EQ(out.after, 1);
  EXPECT_EQ(out.failure, KpzRotator::Failure::None);
  const Bytes now = kpztest::ReadFileBytes(path);
  EXPECT_EQ(now, WithOrientation(6));
  // Reading the file may move its access time (relatime); the modification
  // time is the one a changed file would show.
  EXPECT_EQ(kpztest::GetFileTimes(path).modification, kModified);
}

TEST_F(KpzRotatorTest, BigEndianFileGetsItsOwnByteOrder) {
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::CounterClockwise));
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_EQ(out.after, 3);
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(8));
}

TEST_F(KpzRotatorTest, MirroredPictureTurnedStaysMirrored) {
  KpzSpec recipe;
  recipe.orientation = 2;  // mirrored horizontally: code 4
  recipe.thumbnailOrientation = 2;
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_EQ(out.before, 4);
  EXPECT_EQ(out.after, 7);
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(7));
}

TEST_F(KpzRotatorTest, CodeIsSetOutright) {
  KpzSpec recipe;
  recipe.orientation = 3;
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Code(5));
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_EQ(out.before, 2);
  EXPECT_EQ(out.after, 5);
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(5));
}

TEST_F(KpzRotatorTest, FileWithoutThumbnailOrientationChangesOnlyIfd0) {
  KpzSpec recipe;
  recipe.thumbnailOrientation.reset();
  Make(recipe);
  ASSERT_TRUE(Rotate(Turn(Dir::HalfTurn)).ok);
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(3, false));
}

TEST_F(KpzRotatorTest, ThumbnailDateTimeIsSetEqualToThePicturesWhenTheyDiffer) {
  KpzSpec recipe;
  recipe.thumbnailDateTime = "2001:01:01 00:00:00";
  Make(recipe);
  ASSERT_TRUE(Rotate(Turn(Dir::Clockwise)).ok);
  const Bytes expected = kpztest::Patched(
      WithOrientation(6),
      kpztest::TagValueOffset(image, order, where.ifd1, kpztest::tag::kDateTime),
      kpztest::AsciiBytes("2010:05:01 12:34:56"));
  EXPECT_EQ(kpztest::ReadFileBytes(path), expected);
}

TEST_F(KpzRotatorTest, DryRunWritesNothingButTellsTheChange) {
  KpzSpec recipe;
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise), true);
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_FALSE(out.written);
  EXPECT_EQ(out.before, 0);
  EXPECT_EQ(out.after, 1);
  ExpectUnchanged();
  EXPECT_EQ(KpzRotator::Report("r.kpz", out, true),
            "r.kpz: normal -> rotated 90° clockwise (dry run, not written)\n");
}

TEST_F(KpzRotatorTest, DryRunOfAReadOnlyFileIsRefusedLikeTheRealRun) {
  KpzSpec recipe;
  Make(recipe);
  ASSERT_TRUE(kpztest::SetFileMode(path, 0444));
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise), true);
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.result, -309);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
}

TEST_F(KpzRotatorTest, SameCodeIsNotWritten) {
  KpzSpec recipe;
  recipe.orientation = 6;
  Make(recipe);
  ASSERT_TRUE(kpztest::SetFileMode(path, 0444));  // not even looked at
  const KpzRotator::Outcome out = Rotate(Code(1));
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_FALSE(out.written);
  EXPECT_EQ(out.before, 1);
  EXPECT_EQ(out.after, 1);
  ExpectUnchanged();
  EXPECT_EQ(KpzRotator::Report("r.kpz", out, false),
            "r.kpz: rotated 90° clockwise -> rotated 90° clockwise (unchanged)\n");
}

TEST_F(KpzRotatorTest, ReadOnlyFileIsRefusedAndLeftAsItIs) {
  KpzSpec recipe;
  Make(recipe);
  ASSERT_TRUE(kpztest::SetFileMode(path, 0444));
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_FALSE(out.written);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -309);
  EXPECT_EQ(out.error, "the file is read-only (its owner may not write it); not changed");
  EXPECT_EQ(kpztest::FileMode(path), 0444);
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, FileWithoutOrientationCannotBeRotated) {
  KpzSpec recipe;
  recipe.orientation.reset();
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Input);
  EXPECT_EQ(out.result, -100);
  EXPECT_EQ(out.error, "no orientation recorded in this file; it cannot be set in place");
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, ThumbnailOrientationOfFourBytesIsRefused) {
  KpzSpec recipe;
  recipe.editIfd1 = [](kpztest::Ifd& ifd) {
    ifd.Replace(kpztest::tag::kOrientation, kpztest::kTiffLong, 1,
                kpztest::U32Bytes(1, ifd.Order()));
  };
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -402);
  EXPECT_EQ(out.error, "an orientation entry is not 2 bytes long; not changed");
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, MissingFileAndDirectoryAreInputFailures) {
  path = dir.Path() + "/gone.kpz";
  KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Input);
  EXPECT_EQ(out.result, -302);
  EXPECT_EQ(out.error, "file not found");
  path = dir.Path();
  out = Rotate(Turn(Dir::Clockwise));
  EXPECT_EQ(out.failure, KpzRotator::Failure::Input);
  EXPECT_EQ(out.error, "is a directory, not a KPZ raw file");
}

TEST_F(KpzRotatorTest, DeviceErrorUnderTheHeadReadIsReportedAsOneNotAsALayoutFault) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fread, EIO);  // the library's head read
  kpztest::Arm(kpztest::Call::Pread, EIO);  // the tool's own read of it
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Input);
  EXPECT_EQ(out.error, "input/output error while reading the file");
  kpztest::DisarmAll();
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, DirectoriesBeyondTheHeadAreALayoutFault) {
  KpzSpec recipe;
  recipe.makerNotePointer = 0x12000;
  recipe.minTotalSize = 0x20000;
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Input);
  EXPECT_EQ(out.error, "not a KPZ raw file (the maker note lies beyond the first 64 KiB)");
}

TEST_F(KpzRotatorTest, FileThatCannotBeOpenedForWritingIsNotChanged) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fopen, EACCES, /*skip=*/1);  // the head read passes
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_FALSE(out.written);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -300);
  EXPECT_EQ(out.error, "the file cannot be opened for writing; not changed");
  kpztest::DisarmAll();
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, FailedWriteSaysTheFileMayBeChangedInPart) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fwrite, ENOSPC);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.error, "writing the orientation failed (error " + std::to_string(out.result) +
                           "); the file may be changed only in part");
  EXPECT_TRUE(out.result == -308 || out.result == -399) << out.result;
}

TEST_F(KpzRotatorTest, DeviceErrorWhileWritingIsSaidToBeOne) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fwrite, EIO);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -399);
  EXPECT_EQ(out.error,
            "input/output error while writing the orientation; the file may be changed only in "
            "part");
}

TEST_F(KpzRotatorTest, FailedSeekBeforeWritingIsSaidToBeOne) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  // The calls before the write-back, counted without those of the capture.
  int seeks = 0;
  kpztest::CaptureStderr([&] {
    kpztest::ResetCounts();
    KpzRotator::Rotate(path, Turn(Dir::Clockwise), true);
    seeks = kpztest::CallCount(kpztest::Call::Fseek);
  });
  KpzRotator::Outcome out;
  kpztest::CaptureStderr([&] {
    kpztest::Arm(kpztest::Call::Fseek, EINVAL, seeks);
    out = KpzRotator::Rotate(path, Turn(Dir::Clockwise), false);
    kpztest::DisarmAll();
  });
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -305);
  EXPECT_EQ(out.error,
            "the orientation's place in the file could not be reached (seek failed); the file may "
            "be changed only in part");
}

TEST_F(KpzRotatorTest, FailedCloseAfterWritingIsSaidToBeOne) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  // The calls before the write-back, counted without those of the capture.
  int closes = 0;
  kpztest::CaptureStderr([&] {
    kpztest::ResetCounts();
    KpzRotator::Rotate(path, Turn(Dir::Clockwise), true);
    closes = kpztest::CallCount(kpztest::Call::Fclose);
  });
  KpzRotator::Outcome out;
  kpztest::CaptureStderr([&] {
    kpztest::Arm(kpztest::Call::Fclose, ENOSPC, closes);
    out = KpzRotator::Rotate(path, Turn(Dir::Clockwise), false);
    kpztest::DisarmAll();
  });
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -303);
  EXPECT_EQ(out.error, "the file could not be closed after writing; it may be changed only in part");
}

TEST_F(KpzRotatorTest, TimesThatCannotBeSetBackAreReportedAfterTheWrite) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Utime, EPERM);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_TRUE(out.written);
  EXPECT_EQ(out.result, -311);
  EXPECT_EQ(out.error, "orientation written, but the file's times could not be set back");
  kpztest::DisarmAll();
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(6));
}

TEST_F(KpzRotatorTest, StatusThatCannotBeReadStopsBeforeAnything) {
  KpzSpec recipe;
  Make(recipe);
  kpztest::FaultGuard guard;
  Rotate(Turn(Dir::Clockwise), true);  // counts the stat calls; the last is the check
  const int stats = kpztest::CallCount(kpztest::Call::Stat);
  ASSERT_GE(stats, 1);
  kpztest::ResetCounts();
  kpztest::Arm(kpztest::Call::Stat, EACCES, stats - 1);
  const KpzRotator::Outcome out = Rotate(Turn(Dir::Clockwise));
  EXPECT_FALSE(out.ok);
  EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
  EXPECT_EQ(out.result, -310);
  EXPECT_EQ(out.error, "the file's status cannot be read; not changed");
  kpztest::DisarmAll();
  ExpectUnchanged();
}

// ---- one open of the file; FIFOs; the plan checked whole; the whole time --

const char kNotRegular[] = "not a regular file (a device, named pipe or socket), not read";

TEST_F(KpzRotatorTest, FifoIsRefusedInWordsWithoutWaiting) {
  const std::string fifo = dir.Path() + "/p.kpz";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  for (const bool dryRun : {false, true}) {
    const kpztest::Bounded r = kpztest::RunBounded(std::chrono::seconds(10), [&] {
      KpzRotator::Outcome out;
      kpztest::CaptureStderr([&] { out = KpzRotator::Rotate(fifo, Code(1), dryRun); });
      return std::to_string(out.ok) + "|" + std::to_string(static_cast<int>(out.failure)) + "|" +
             std::to_string(out.result) + "|" + out.error;
    });
    ASSERT_TRUE(r.started);
    EXPECT_FALSE(r.timedOut) << "rotate waited on a FIFO (dry run " << dryRun << ")";
    EXPECT_EQ(r.out, std::string("0|1|0|") + kNotRegular);
  }
}

TEST_F(KpzRotatorTest, FifoRenamedOverThePathAfterTheOpenIsNeverOpened) {
  Make(KpzSpec());
  const std::string fifo = dir.Path() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const kpztest::Bounded r = kpztest::RunBounded(std::chrono::seconds(10), [&] {
    KpzSource source;
    std::string why;
    if (!source.Open(path, &why)) {
      return "open: " + why;
    }
    // The point the test chooses: between the open and the library's work.
    if (std::rename(fifo.c_str(), path.c_str()) != 0) {
      return std::string("rename failed");
    }
    KpzRotator::Outcome out;
    kpztest::CaptureStderr([&] { out = KpzRotator::Rotate(source, Code(1), false); });
    // The file written is the one opened (now without a name): read back
    // through its descriptor.
    Bytes now(image.size());
    const ssize_t n = pread(source.Fd(), now.data(), now.size(), 0);
    const bool same = n == static_cast<ssize_t>(image.size()) && now == WithOrientation(6);
    return std::to_string(out.ok) + "|" + std::to_string(out.written) + "|" +
           std::to_string(same) + "|" + out.error;
  });
  ASSERT_TRUE(r.started);
  EXPECT_FALSE(r.timedOut) << "the library opened the FIFO put under the name";
  EXPECT_EQ(r.out, "1|1|1|");
  struct stat st;
  ASSERT_EQ(lstat(path.c_str(), &st), 0);
  EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

TEST_F(KpzRotatorTest, WithoutProcTheNameIsUsedAfterItsCheck) {
  Make(KpzSpec());
  KpzSource source;
  std::string why;
  ASSERT_TRUE(source.Open(path, &why)) << why;
  EXPECT_EQ(source.LibraryPath(), "/proc/self/fd/" + std::to_string(source.Fd()));
  EXPECT_EQ(source.LibraryPath("/no/such/proc"), path);
  source.Close();
  EXPECT_EQ(source.LibraryPath(), "");
}

TEST_F(KpzRotatorTest, AFarIfd1DateTimeRefusesTheChangeBeforeAnyByteIsWritten) {
  // IFD1's date and time differs from IFD0's (so the library writes it) and
  // its offset points about 3.9 GB away: the orientations at the start of
  // the file would be written before the far place failed.
  for (const bool dryRun : {false, true}) {
    KpzSpec recipe;
    recipe.thumbnailDateTime = "2001:01:01 00:00:00";
    recipe.editIfd1 = [](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, 3906250000u);
    };
    Make(recipe);
    const KpzRotator::Outcome out = Rotate(Code(3), dryRun);
    EXPECT_FALSE(out.ok);
    EXPECT_FALSE(out.written);
    EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
    EXPECT_EQ(out.result, -305);
    EXPECT_EQ(out.error,
              "a place the new orientation is written to (IFD1's date and time, 20 bytes at byte "
              "3906250000) lies past the end of the file (" +
                  std::to_string(image.size()) + " bytes); not changed");
    ExpectUnchanged();
  }
}

TEST_F(KpzRotatorTest, APlaceJustInsideTheFileIsWritten) {
  // The plan's bound is exact: IFD1's date and time ending at the file's
  // last byte is written.
  KpzSpec recipe;
  recipe.thumbnailDateTime = "2001:01:01 00:00:00";
  Bytes probe = kpztest::BuildKpz(recipe);
  const std::uint32_t at = static_cast<std::uint32_t>(probe.size());
  recipe.minTotalSize = at + 20;
  recipe.editIfd1 = [at](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, at);
  };
  Make(recipe);
  ASSERT_EQ(image.size(), at + 20u);
  const KpzRotator::Outcome out = Rotate(Code(1));
  EXPECT_TRUE(out.ok) << out.error;
  EXPECT_TRUE(out.written);
  const Bytes now = kpztest::ReadFileBytes(path);
  ASSERT_EQ(now.size(), image.size());
  EXPECT_EQ(std::string(now.end() - 20, now.end() - 1), "2010:05:01 12:34:56");
}

// IFD0's date and time, copied into IFD1's when the two differ, claimed at
// `offset`; IFD1's differs so that the copy is planned.
KpzSpec WithIfd0DateTimeAt(std::uint32_t offset) {
  KpzSpec recipe;
  recipe.thumbnailDateTime = "2001:01:01 00:00:00";
  recipe.editIfd0 = [offset](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, offset);
  };
  return recipe;
}

TEST_F(KpzRotatorTest, AnIfd0DateTimeAtANegativeOffsetIsNotCopiedOverTheThumbnails) {
  // An offset of 2 GiB or more is negative as a signed 32-bit number: the
  // library's read of the head clamps it to byte 0, so the "date and time"
  // it would copy into IFD1's is the file's TIFF header. The change is
  // refused before any byte is written, dry run or not.
  for (const std::uint32_t offset : {0x80000000u, 0x80000001u, 0xFFFFFFECu, 0xFFFFFFFFu}) {
    for (const bool dryRun : {false, true}) {
      Make(WithIfd0DateTimeAt(offset));
      const KpzRotator::Outcome out = Rotate(Code(3), dryRun);
      EXPECT_FALSE(out.ok) << offset;
      EXPECT_FALSE(out.written);
      EXPECT_EQ(out.failure, KpzRotator::Failure::Output);
      EXPECT_EQ(out.result, -305);
      EXPECT_EQ(out.error, "the date and time to be copied to the thumbnail's (IFD0's date and "
                           "time, 20 bytes at byte " +
                               std::to_string(offset) + ") lies past the end of the file (" +
                               std::to_string(image.size()) + " bytes); not changed");
      ExpectUnchanged();
    }
  }
}

TEST_F(KpzRotatorTest, PlacesAtTwoGiBInsideALargerFileAreRefusedAsOutOfReach) {
  // A sparse file of 2 GiB and more: IFD0's date and time (copied) or IFD1's
  // (written) at 2 GiB lie inside it, but the library takes the offset with
  // its sign. Nothing is written; the file's own bytes stay as they were.
  const std::uint64_t size = 0x80000100u;
  for (const bool copied : {true, false}) {
    KpzSpec recipe;
    recipe.thumbnailDateTime = "2001:01:01 00:00:00";
    const auto far = [](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, 0x80000000u);
    };
    if (copied) {
      recipe.editIfd0 = far;
    } else {
      recipe.editIfd1 = far;
    }
    Make(recipe);
    ASSERT_TRUE(kpztest::ExtendFileSparse(path, size));
    ASSERT_TRUE(kpztest::SetFileTimes(path, kAccess, kModified));
    const KpzRotator::Outcome out = Rotate(Code(3));
    EXPECT_FALSE(out.ok);
    EXPECT_FALSE(out.written);
    EXPECT_EQ(out.result, -305);
    EXPECT_EQ(out.error,
              std::string(copied ? "the date and time to be copied to the thumbnail's (IFD0's"
                                 : "a place the new orientation is written to (IFD1's") +
                  " date and time, 20 bytes at byte 2147483648) lies 2 GiB or more into the "
                  "file, beyond the reach of a change in place; not changed");
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(static_cast<std::uint64_t>(st.st_size), size);
    EXPECT_EQ(st.st_mtime, kModified);
    std::FILE* f = std::fopen(path.c_str(), "rb");
    ASSERT_NE(f, nullptr);
    Bytes start(image.size());
    EXPECT_EQ(std::fread(start.data(), 1, start.size(), f), start.size());
    std::fclose(f);
    EXPECT_EQ(start, image);
  }
}

TEST_F(KpzRotatorTest, AnIfd0DateTimeOverTheTiffHeaderIsNotCopied) {
  for (const std::uint32_t offset : {0u, 7u}) {
    Make(WithIfd0DateTimeAt(offset));
    const KpzRotator::Outcome out = Rotate(Code(3));
    EXPECT_FALSE(out.ok);
    EXPECT_FALSE(out.written);
    EXPECT_EQ(out.result, -305);
    EXPECT_EQ(out.error, "the date and time to be copied to the thumbnail's (IFD0's date and "
                         "time, 20 bytes at byte " +
                             std::to_string(offset) +
                             ") overlaps the file's 8-byte TIFF header; not changed");
    ExpectUnchanged();
  }
}

TEST_F(KpzRotatorTest, AnIfd1DateTimeOverTheTiffHeaderIsNotWritten) {
  for (const std::uint32_t offset : {0u, 4u, 7u}) {
    KpzSpec recipe;
    recipe.thumbnailDateTime = "2001:01:01 00:00:00";
    recipe.editIfd1 = [offset](kpztest::Ifd& ifd) {
      ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, offset);
    };
    Make(recipe);
    const KpzRotator::Outcome out = Rotate(Code(3));
    EXPECT_FALSE(out.ok);
    EXPECT_FALSE(out.written);
    EXPECT_EQ(out.result, -305);
    EXPECT_EQ(out.error,
              "a place the new orientation is written to (IFD1's date and time, 20 bytes at byte " +
                  std::to_string(offset) + ") overlaps the file's 8-byte TIFF header; not changed");
    ExpectUnchanged();
  }
}

TEST_F(KpzRotatorTest, AnIfd1DateTimeOverADirectoryEntryIsNotWritten) {
  // IFD1's date and time claimed where IFD0's orientation entry stands: the
  // copy would overwrite the entry (and the orientation just written).
  KpzSpec recipe;
  recipe.thumbnailDateTime = "2001:01:01 00:00:00";
  Make(recipe);
  const std::uint32_t entry =
      kpztest::TagValueOffset(image, order, where.ifd0, kpztest::tag::kOrientation) - 8;
  recipe.editIfd1 = [entry](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, entry - 4);
  };
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Code(3));
  EXPECT_FALSE(out.ok);
  EXPECT_FALSE(out.written);
  EXPECT_EQ(out.result, -305);
  EXPECT_EQ(out.error,
            "a place the new orientation is written to (IFD1's date and time, 20 bytes at byte " +
                std::to_string(entry - 4) + ") overlaps IFD0's entry of tag 274 (12 bytes at byte " +
                std::to_string(entry) + "); not changed");
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, AnIfd1DateTimeOverlappingTheCopiedOneIsNotWritten) {
  // Both date and time values claimed 10 bytes apart: writing one over the
  // other would change IFD0's as well.
  KpzSpec recipe = WithIfd0DateTimeAt(0);
  Make(KpzSpec());
  const std::uint32_t at = static_cast<std::uint32_t>(image.size());
  recipe.minTotalSize = at + 40;
  recipe.editIfd0 = [at](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, at);
  };
  recipe.editIfd1 = [at](kpztest::Ifd& ifd) {
    ifd.ReplaceRaw(kpztest::tag::kDateTime, 2, 20, at + 10);
  };
  Make(recipe);
  const KpzRotator::Outcome out = Rotate(Code(3));
  EXPECT_FALSE(out.ok);
  EXPECT_FALSE(out.written);
  EXPECT_EQ(out.result, -305);
  EXPECT_EQ(out.error,
            "a place the new orientation is written to (IFD1's date and time, 20 bytes at byte " +
                std::to_string(at + 10) +
                ") overlaps the date and time copied to it (20 bytes at byte " +
                std::to_string(at) + "); not changed");
  ExpectUnchanged();
}

TEST_F(KpzRotatorTest, TheWholeModificationTimeIsKept) {
  Make(KpzSpec());
  // 03:04:05.987654321 on a day of 2021.
  struct timespec times[2];
  times[0].tv_sec = 1610000000;
  times[0].tv_nsec = 123456789;
  times[1].tv_sec = 1609988645;
  times[1].tv_nsec = 987654321;
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  const KpzRotator::Outcome out = Rotate(Code(1));
  ASSERT_TRUE(out.ok) << out.error;
  EXPECT_TRUE(out.written);
  EXPECT_EQ(kpztest::ReadFileBytes(path), WithOrientation(6));
  struct stat st;
  ASSERT_EQ(stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mtim.tv_sec, 1609988645);
  EXPECT_EQ(st.st_mtim.tv_nsec, 987654321);
}

TEST(KpzRotator, ReportNamesBothOrientations) {
  KpzRotator::Outcome out;
  out.ok = true;
  out.before = 1;
  out.after = 0;
  EXPECT_EQ(KpzRotator::Report("a.kpz", out, false), "a.kpz: rotated 90° clockwise -> normal\n");
  out.before = 4;
  out.after = 7;
  EXPECT_EQ(KpzRotator::Report("b.kpz", out, false),
            "b.kpz: mirrored horizontally -> mirrored horizontally, rotated 90° clockwise\n");
}

}  // namespace

#else

TEST(KpzRotator, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
