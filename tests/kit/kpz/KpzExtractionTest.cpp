// KpzExtractionTest.cpp - the one way from a source to its picture
// (kit/kpz/KpzExtraction): the same range and bytes as the reader's own
// steps, the head-only form agreeing with the whole one, and every failure
// as a value (kind, exit status, errno, words) for files written with the
// test-data builder.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzExtraction.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "kpz/KpzSource.h"
#include "raw/DtRawErrorText.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"
#include "util/io/DtNlReadAt.h"

#if defined(KPZ_TEST_HAVE_JPEG)
#include "support/KpzJpegBuilder.h"
#endif

namespace {

using kpztest::Bytes;
using kpztest::KpzSpec;
using Kind = KpzPictureReader::Kind;
using Failure = KpzExtraction::Failure;

KpzExtraction::Outcome ExtractPath(const std::string& path, const KpzExtraction::Options& want,
                                   bool wantBytes) {
  KpzExtraction::Outcome o;
  kpztest::CaptureStderr([&] {
    KpzSource source;
    o = KpzExtraction::Extract(path, &source, want, wantBytes);
  });
  return o;
}

TEST(KpzExtraction, PreviewRangeAndBytesAreTheStoredOnes) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(2500, 1);
  const Bytes file = kpztest::BuildKpz(recipe);
  const std::string path = dir.Write("a.kpz", file);

  const KpzExtraction::Outcome ranged = ExtractPath(path, {}, false);
  ASSERT_TRUE(ranged.ok()) << ranged.words;
  EXPECT_EQ(ranged.status, KpzExitStatus::Ok);
  EXPECT_TRUE(ranged.bytes.empty());  // not asked for
  ASSERT_EQ(ranged.range.length, recipe.screennail.size());
  EXPECT_EQ(Bytes(file.begin() + static_cast<long>(ranged.range.offset),
                  file.begin() + static_cast<long>(ranged.range.offset + ranged.range.length)),
            recipe.screennail);

  const KpzExtraction::Outcome read = ExtractPath(path, {}, true);
  ASSERT_TRUE(read.ok()) << read.words;
  EXPECT_EQ(read.bytes, recipe.screennail);
  EXPECT_FALSE(read.turned);
}

TEST(KpzExtraction, ThePathFormOpensThenExtractsAndCallsTheLocatedHookFirst) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(2500, 1);
  const std::string path = dir.Write("a.kpz", kpztest::BuildKpz(recipe));
  KpzExtraction::Options want;
  int calls = 0;
  KpzPictureReader::Picture seen;
  want.located = [&](const KpzSource& source, const KpzPictureReader::Picture& range) {
    ++calls;
    seen = range;
    EXPECT_GE(source.Fd(), 0);  // the opened file, before anything of the picture is read
  };
  KpzSource source;
  KpzExtraction::Outcome got;
  kpztest::CaptureStderr([&] { got = KpzExtraction::Extract(path, &source, want, true); });
  ASSERT_TRUE(got.ok()) << got.words;
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(seen.offset, got.range.offset);
  EXPECT_EQ(seen.length, got.range.length);
  EXPECT_EQ(got.bytes, recipe.screennail);
  EXPECT_GE(source.Fd(), 0);  // kept open for the caller

  KpzSource absent;
  calls = 0;
  const KpzExtraction::Outcome missing =
      KpzExtraction::Extract(dir.Path() + "/absent.kpz", &absent, want, false);
  EXPECT_EQ(missing.failure, Failure::Unreadable);
  EXPECT_EQ(missing.err, ENOENT);
  EXPECT_EQ(missing.status, KpzExitStatus::Input);
  EXPECT_EQ(missing.words, "file not found");
  EXPECT_EQ(calls, 0);
}

TEST(KpzExtraction, ThumbnailOfABigEndianFile) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.order = DtNlBigEndian;
  recipe.thumbnail = kpztest::FakeJpeg(321, 2);
  const std::string path = dir.Write("t.kpz", kpztest::BuildKpz(recipe));
  KpzExtraction::Options want;
  want.kind = Kind::Thumbnail;
  const KpzExtraction::Outcome o = ExtractPath(path, want, true);
  ASSERT_TRUE(o.ok()) << o.words;
  EXPECT_EQ(o.bytes, recipe.thumbnail);
}

TEST(KpzExtraction, HeadOnlyFormGivesTheSameRangeAsTheWholeFile) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(70000, 3);  // the preview lies past the head
  recipe.thumbnail = kpztest::FakeJpeg(900, 4);
  const Bytes file = kpztest::BuildKpz(recipe);
  kpztest::TempDir dir;
  const std::string path = dir.Write("h.kpz", file);
  for (Kind kind : {Kind::Preview, Kind::Thumbnail}) {
    KpzExtraction::Options want;
    want.kind = kind;
    const KpzExtraction::Outcome whole = ExtractPath(path, want, false);
    ASSERT_TRUE(whole.ok()) << whole.words;
    const std::size_t headLength = std::min<std::size_t>(file.size(), KpzSource::kHeadSize);
    KpzExtraction::Outcome head;
    DtNlMemReadAt held(file.data(), headLength, file.size());
    kpztest::CaptureStderr([&] { head = KpzExtraction::Locate(held, want); });
    ASSERT_TRUE(head.ok()) << head.words;
    EXPECT_EQ(head.range.offset, whole.range.offset);
    EXPECT_EQ(head.range.length, whole.range.length);
  }
}

TEST(KpzExtraction, HeadOnlyFormRefusesAPictureBeyondTheFilesSize) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(70000, 5);
  const Bytes file = kpztest::BuildKpz(recipe);
  KpzExtraction::Outcome o;
  // The size told is the head's alone: the preview cannot lie inside it.
  DtNlMemReadAt held(file.data(), KpzSource::kHeadSize, KpzSource::kHeadSize);
  kpztest::CaptureStderr([&] { o = KpzExtraction::Locate(held, {}); });
  EXPECT_EQ(o.failure, Failure::BadPicture);
  EXPECT_EQ(o.status, KpzExitStatus::Input);
  EXPECT_EQ(o.words, "preview extends past the end of the file");
}

TEST(KpzExtraction, AThumbnailClaimingHundredsOfMegabytesIsRefusedBeforeAnyRead) {
  // A sparse file of 600 MB whose thumbnail claims 600 MB, all inside it:
  // refused as too large, by the path form and the head-only form alike,
  // with no read past the head.
  const std::uint32_t claimed = 600u * 1024 * 1024;
  KpzSpec recipe;
  recipe.thumbnailLengthTag = claimed;
  const Bytes file = kpztest::BuildKpz(recipe);
  kpztest::TempDir dir;
  const std::string path = dir.Write("huge.kpz", file);
  const std::uint64_t size = std::uint64_t{claimed} + 0x20000;
  ASSERT_TRUE(kpztest::ExtendFileSparse(path, size));
  const std::string words =
      "the thumbnail stored in this file is too large (629145600 bytes; a thumbnail is at most "
      "262144)";
  KpzExtraction::Options want;
  want.kind = Kind::Thumbnail;
  for (const bool wantBytes : {false, true}) {
    kpztest::ResetCounts();
    const KpzExtraction::Outcome o = ExtractPath(path, want, wantBytes);
    EXPECT_EQ(o.failure, Failure::BadPicture);
    EXPECT_EQ(o.status, KpzExitStatus::Input);
    EXPECT_EQ(o.code, 0);
    EXPECT_EQ(o.words, words);
    EXPECT_TRUE(o.bytes.empty());
    EXPECT_LE(kpztest::CallCount(kpztest::Call::Pread), 1);  // the head, no more
  }
  KpzExtraction::Outcome head;
  // The head as the file on the disk holds it: its bytes, then the zeros the
  // sparse extension added.
  Bytes first(KpzSource::kHeadSize, 0);
  std::copy_n(file.begin(), std::min<std::size_t>(file.size(), first.size()), first.begin());
  DtNlMemReadAt held(first.data(), first.size(), size);
  kpztest::CaptureStderr([&] { head = KpzExtraction::Locate(held, want); });
  EXPECT_EQ(head.failure, Failure::BadPicture);
  EXPECT_EQ(head.words, words);
  // The preview of the same file is read as usual.
  const KpzExtraction::Outcome preview = ExtractPath(path, {}, true);
  EXPECT_TRUE(preview.ok()) << preview.words;
  EXPECT_EQ(preview.bytes, recipe.screennail);
}

TEST(KpzExtraction, AThumbnailOfTheBoundIsReadAndOneByteMoreIsRefused) {
  kpztest::TempDir dir;
  KpzExtraction::Options want;
  want.kind = Kind::Thumbnail;
  KpzSpec recipe;
  recipe.thumbnail = kpztest::FakeJpeg(DtRawErrorText::THUMBNAIL_MAX_SIZE, 6);
  const KpzExtraction::Outcome fits =
      ExtractPath(dir.Write("a.kpz", kpztest::BuildKpz(recipe)), want, true);
  ASSERT_TRUE(fits.ok()) << fits.words;
  EXPECT_EQ(fits.bytes, recipe.thumbnail);
  recipe.thumbnail.push_back(0);
  const KpzExtraction::Outcome over =
      ExtractPath(dir.Write("b.kpz", kpztest::BuildKpz(recipe)), want, true);
  EXPECT_EQ(over.failure, Failure::BadPicture);
  EXPECT_EQ(over.words,
            "the thumbnail stored in this file is too large (262145 bytes; a thumbnail is at "
            "most 262144)");
}

TEST(KpzExtraction, MissingFileIsUnreadableWithItsErrno) {
  kpztest::TempDir dir;
  const KpzExtraction::Outcome o = ExtractPath(dir.Path() + "/none.kpz", {}, false);
  EXPECT_EQ(o.failure, Failure::Unreadable);
  EXPECT_EQ(o.status, KpzExitStatus::Input);
  EXPECT_EQ(o.err, ENOENT);
  EXPECT_EQ(o.words, "file not found");
}

TEST(KpzExtraction, NotAKpzFileCarriesTheParseCode) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("x.kpz", Bytes(5000, 0x41));
  const KpzExtraction::Outcome o = ExtractPath(path, {}, true);
  EXPECT_EQ(o.failure, Failure::NotKpz);
  EXPECT_EQ(o.status, KpzExitStatus::Input);
  EXPECT_NE(o.code, 0);
  EXPECT_EQ(o.words.rfind("not a KPZ raw file", 0), 0u) << o.words;
  EXPECT_TRUE(o.bytes.empty());
}

TEST(KpzExtraction, NoThumbnailIsNoPicture) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.thumbnail.clear();
  const std::string path = dir.Write("n.kpz", kpztest::BuildKpz(recipe));
  KpzExtraction::Options want;
  want.kind = Kind::Thumbnail;
  const KpzExtraction::Outcome o = ExtractPath(path, want, true);
  EXPECT_EQ(o.failure, Failure::NoPicture) << o.words;
  EXPECT_EQ(o.status, KpzExitStatus::Input);
}

// Bytes in memory that fail (`err`) or end (err 0) at byte `stop`: a
// source whose read goes wrong at a chosen point.
class BreakingReadAt : public DtNlReadAt {
 public:
  BreakingReadAt(Bytes data, std::uint64_t stop, int err)
      : m_data(std::move(data)), m_stop(stop), m_err(err) {}
  int GetData(std::uint64_t offset, std::size_t length, UINT8* out, std::size_t* got) override {
    *got = 0;
    if (offset >= m_data.size()) {
      return 0;
    }
    const std::uint64_t end = std::min<std::uint64_t>(offset + length, m_data.size());
    const std::uint64_t until = std::min(end, std::max(offset, m_stop));
    *got = static_cast<std::size_t>(until - offset);
    std::memcpy(out, m_data.data() + offset, *got);
    return until < end ? m_err : 0;
  }
  std::uint64_t Size() const override { return m_data.size(); }

 private:
  Bytes m_data;
  std::uint64_t m_stop;
  int m_err;
};

KpzExtraction::Outcome ExtractStream(DtNlReadAt& stream, const KpzExtraction::Options& want,
                                     const KpzExtraction::Destination& into = {}) {
  KpzExtraction::Outcome o;
  kpztest::CaptureStderr([&] { o = KpzExtraction::Extract(stream, want, into); });
  return o;
}

TEST(KpzExtraction, TheStreamFormGivesTheStoredBytesFromAFileAndFromMemory) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(70000, 7);  // past the head
  recipe.thumbnail = kpztest::FakeJpeg(900, 8);
  const Bytes file = kpztest::BuildKpz(recipe);
  kpztest::TempDir dir;
  const std::string path = dir.Write("s.kpz", file);
  for (Kind kind : {Kind::Preview, Kind::Thumbnail}) {
    KpzExtraction::Options want;
    want.kind = kind;
    const Bytes& stored = kind == Kind::Preview ? recipe.screennail : recipe.thumbnail;
    DtNlFdReadAt opened;
    ASSERT_TRUE(KpzExtraction::Open(path, &opened).ok());
    const KpzExtraction::Outcome byPath = ExtractStream(opened, want);
    ASSERT_TRUE(byPath.ok()) << byPath.words;
    EXPECT_EQ(byPath.bytes, stored);
    DtNlMemReadAt memory(file.data(), file.size());
    const KpzExtraction::Outcome byMemory = ExtractStream(memory, want);
    ASSERT_TRUE(byMemory.ok()) << byMemory.words;
    EXPECT_EQ(byMemory.bytes, stored);
    EXPECT_EQ(byMemory.range.offset, byPath.range.offset);
  }
}

TEST(KpzExtraction, AHeadHeldInMemoryIsLocatedAsTheWholeFileWithNothingMoreRead) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(70000, 7);  // past the head
  recipe.thumbnail = kpztest::FakeJpeg(900, 8);
  recipe.orientation = 6;
  const Bytes file = kpztest::BuildKpz(recipe);
  for (Kind kind : {Kind::Preview, Kind::Thumbnail}) {
    KpzExtraction::Options want;
    want.kind = kind;
    want.upright = true;
    DtNlMemReadAt whole(file.data(), file.size());
    KpzExtraction::Outcome all;
    kpztest::CaptureStderr([&] { all = KpzExtraction::Locate(whole, want); });
    ASSERT_TRUE(all.ok()) << all.words;
    // Only the head is held; the file's size lies beyond it.
    DtNlMemReadAt head(file.data(), KpzSource::kHeadSize, file.size());
    KpzExtraction::Outcome located;
    kpztest::CaptureStderr([&] { located = KpzExtraction::Locate(head, want); });
    ASSERT_TRUE(located.ok()) << located.words;
    EXPECT_EQ(located.range.offset, all.range.offset);
    EXPECT_EQ(located.range.length, all.range.length);
    EXPECT_TRUE(located.turns);
    EXPECT_EQ(located.orientation.code, all.orientation.code);
    EXPECT_TRUE(located.bytes.empty());
  }
}

TEST(KpzExtraction, AHeadHeldShortOfItsFileIsUnreadableNotZeros) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(70000, 7);
  const Bytes file = kpztest::BuildKpz(recipe);
  DtNlMemReadAt cut(file.data(), 1000, file.size());  // 1000 bytes of a 64 KiB head
  KpzExtraction::Outcome o;
  kpztest::CaptureStderr([&] { o = KpzExtraction::Locate(cut, {}); });
  EXPECT_EQ(o.failure, Failure::Unreadable);
  EXPECT_EQ(o.err, ENODATA);
  EXPECT_EQ(o.status, KpzExitStatus::Input);
}

TEST(KpzExtraction, TheStreamFormReadsThePictureStraightIntoTheDestination) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(2500, 9);  // a file shorter than the head
  const Bytes file = kpztest::BuildKpz(recipe);
  DtNlMemReadAt memory(file.data(), file.size());
  Bytes target;
  int calls = 0;
  const KpzExtraction::Outcome o =
      ExtractStream(memory, {}, [&](std::size_t length) -> UINT8* {
        ++calls;
        target.assign(length, 0);
        return target.data();
      });
  ASSERT_TRUE(o.ok()) << o.words;
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(target, recipe.screennail);
  EXPECT_TRUE(o.bytes.empty());  // it went to the destination
}

TEST(KpzExtraction, TheStreamFormFailsInWordsWhenNoDestinationIsToBeHad) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(2500, 10);
  const Bytes file = kpztest::BuildKpz(recipe);
  DtNlMemReadAt memory(file.data(), file.size());
  const KpzExtraction::Outcome o =
      ExtractStream(memory, {}, [](std::size_t) -> UINT8* { return nullptr; });
  EXPECT_EQ(o.failure, Failure::Unreadable);
  EXPECT_EQ(o.words, "not enough memory to read the preview");
}

TEST(KpzExtraction, TheStreamFormSortsAFailedPictureReadAndKeepsItsRange) {
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(70000, 11);
  const Bytes file = kpztest::BuildKpz(recipe);
  DtNlMemReadAt whole(file.data(), file.size());
  const KpzExtraction::Outcome good = ExtractStream(whole, {});
  ASSERT_TRUE(good.ok()) << good.words;
  // Past the head, inside the preview.
  const std::uint64_t inside = KpzSource::kHeadSize + 100;
  ASSERT_LT(inside, good.range.offset + good.range.length);

  BreakingReadAt failing(file, inside, EIO);
  const KpzExtraction::Outcome io = ExtractStream(failing, {});
  EXPECT_EQ(io.kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(io.err, EIO);
  EXPECT_EQ(io.words, "input/output error while reading the preview");
  EXPECT_EQ(io.range.offset, good.range.offset);
  EXPECT_EQ(io.range.length, good.range.length);

  BreakingReadAt ending(file, inside, 0);
  const KpzExtraction::Outcome ended = ExtractStream(ending, {});
  EXPECT_EQ(ended.kind, DtRawFailure::KindDamaged);
  EXPECT_EQ(ended.err, 0);
  EXPECT_EQ(ended.words, "preview extends past the end of the file");

  // A failure in the head: nothing located.
  BreakingReadAt head(file, 10, EIO);
  const KpzExtraction::Outcome inHead = ExtractStream(head, {});
  EXPECT_EQ(inHead.kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(inHead.err, EIO);
  EXPECT_EQ(inHead.words, "input/output error while reading the file");
  EXPECT_EQ(inHead.range.length, 0u);
}

TEST(KpzExtraction, OpenRefusesADirectoryAndAMissingFileInTheRecordsWords) {
  kpztest::TempDir dir;
  DtNlFdReadAt file;
  const KpzExtraction::Outcome directory = KpzExtraction::Open(dir.Path(), &file);
  EXPECT_EQ(directory.kind, DtRawFailure::KindUnreadable);
  EXPECT_EQ(directory.err, EISDIR);
  EXPECT_EQ(directory.words, "is a directory, not a KPZ raw file");
  const KpzExtraction::Outcome missing = KpzExtraction::Open(dir.Path() + "/none.kpz", &file);
  EXPECT_EQ(missing.err, ENOENT);
  EXPECT_EQ(missing.words, "file not found");
  EXPECT_EQ(missing.status, KpzExitStatus::Input);
}

TEST(KpzExtraction, ExitStatusesAreTheToolsNumbers) {
  EXPECT_EQ(KpzExitCode(KpzExitStatus::Ok), 0);
  EXPECT_EQ(KpzExitCode(KpzExitStatus::Input), 1);
  EXPECT_EQ(KpzExitCode(KpzExitStatus::Usage), 2);
  EXPECT_EQ(KpzExitCode(KpzExitStatus::Output), 3);
}

#if defined(KPZ_TEST_HAVE_JPEG)
TEST(KpzExtraction, UprightTurnsAsTheFileAsksAndSaysSo) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  recipe.orientation = 6;  // 90° clockwise
  const Bytes file = kpztest::BuildKpz(recipe);
  const std::string path = dir.Write("u.kpz", file);
  KpzExtraction::Options want;
  want.upright = true;
  const KpzExtraction::Outcome o = ExtractPath(path, want, false);
  ASSERT_TRUE(o.ok()) << o.words;
  ASSERT_TRUE(o.turns);
  ASSERT_TRUE(o.turned);
  // The same turn as the upright step's own.
  KpzUpright::Orientation orientation;
  KpzUpright::Applied direct;
  kpztest::CaptureStderr([&] {
    Bytes head(file.begin(), file.begin() + static_cast<long>(std::min<std::size_t>(
                                                  file.size(), KpzSource::kHeadSize)));
    head.resize(KpzSource::kHeadSize, 0);
    orientation = KpzUpright::ReadOrientation(head.data(), head.size());
    direct = KpzUpright::Apply(orientation, recipe.screennail.data(), recipe.screennail.size(),
                               KpzUpright::Edges::Reencode, "preview");
  });
  ASSERT_TRUE(direct.result.ok) << direct.error;
  EXPECT_EQ(o.bytes, direct.result.jpeg);
  EXPECT_EQ(o.remark, direct.remark);
  EXPECT_EQ(o.turn.outWidth, 48);
  EXPECT_EQ(o.turn.outHeight, 64);
}

TEST(KpzExtraction, TheStreamFormTurnsWithoutTheDestination) {
  KpzSpec recipe;
  recipe.screennail = kpztest::MakeJpeg(64, 48, TJSAMP_420);
  recipe.orientation = 6;
  const Bytes file = kpztest::BuildKpz(recipe);
  kpztest::TempDir dir;
  const std::string path = dir.Write("u.kpz", file);
  KpzExtraction::Options want;
  want.upright = true;
  const KpzExtraction::Outcome byPath = ExtractPath(path, want, false);
  ASSERT_TRUE(byPath.turned) << byPath.words;
  DtNlMemReadAt memory(file.data(), file.size());
  int calls = 0;
  const KpzExtraction::Outcome o = ExtractStream(memory, want, [&](std::size_t) -> UINT8* {
    ++calls;
    return nullptr;
  });
  ASSERT_TRUE(o.ok()) << o.words;
  EXPECT_EQ(calls, 0);  // the stored bytes are only the turn's input
  EXPECT_TRUE(o.turned);
  EXPECT_EQ(o.bytes, byPath.bytes);
  EXPECT_EQ(o.remark, byPath.remark);
}

TEST(KpzExtraction, UprightOfANormalPictureIsTheStoredBytes) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::MakeJpeg(32, 32, TJSAMP_444);
  recipe.orientation = 1;
  const std::string path = dir.Write("n.kpz", kpztest::BuildKpz(recipe));
  KpzExtraction::Options want;
  want.upright = true;
  const KpzExtraction::Outcome o = ExtractPath(path, want, true);
  ASSERT_TRUE(o.ok()) << o.words;
  EXPECT_FALSE(o.turns);
  EXPECT_FALSE(o.turned);
  EXPECT_EQ(o.bytes, recipe.screennail);
  EXPECT_NE(o.remark.find("not turned"), std::string::npos) << o.remark;
}

TEST(KpzExtraction, APictureThatCannotBeTurnedIsABadPicture) {
  kpztest::TempDir dir;
  KpzSpec recipe;
  recipe.screennail = kpztest::FakeJpeg(3000, 9);  // not a decodable JPEG
  recipe.orientation = 3;
  const std::string path = dir.Write("b.kpz", kpztest::BuildKpz(recipe));
  KpzExtraction::Options want;
  want.upright = true;
  const KpzExtraction::Outcome o = ExtractPath(path, want, false);
  EXPECT_EQ(o.failure, Failure::BadPicture);
  EXPECT_EQ(o.status, KpzExitStatus::Input);
  EXPECT_EQ(o.words.rfind("the preview cannot be turned upright", 0), 0u) << o.words;
}
#endif

}  // namespace

#else
TEST(KpzExtraction, SkippedWithoutTheKit) { GTEST_SKIP() << "the kit is not built"; }
#endif
