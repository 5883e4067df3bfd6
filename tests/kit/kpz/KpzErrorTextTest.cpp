// KpzErrorTextTest.cpp - the words of the kpz tool for the library's result
// codes (kit/kpz/KpzErrorText): one case per code a parse or a file-mode
// initialisation can return, and the re-read that tells a real read error
// (permissions, device errors, a directory) from a file laid out otherwise.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzErrorText.h"

#include <cerrno>
#include <string>

#include "raw/DtRawError.h"
#include "raw/parser/DtRawHeadIo.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

const std::string kUnreadable =
    "not a KPZ raw file (its directories cannot be read within the first 64 KiB)";
const std::string kNoTiff = "not a KPZ raw file (no TIFF header)";
const std::string kFormat = "not a KPZ raw file (camera model, Exif data or maker note missing)";

struct Words {
  int code;
  std::string parse;       // after a parse that recorded nothing
  std::string initialize;  // as the library reports it in file mode
};

class KpzErrorTextPerCode : public testing::TestWithParam<Words> {};

TEST_P(KpzErrorTextPerCode, HasItsWordsAfterAParseAndAfterAFileModeInitialisation) {
  const DtRawHeadIo nothingRecorded(0);
  EXPECT_EQ(KpzErrorText::Stopped(GetParam().code, nothingRecorded), GetParam().parse);
  EXPECT_EQ(KpzErrorText::Initialize(GetParam().code), GetParam().initialize);
}

std::string Numbered(int code) {
  return "the file cannot be read as a KPZ raw file (error " + std::to_string(code) + ")";
}

// Every code of DtRawErrCode: the parse's own first, then the rest.
INSTANTIATE_TEST_SUITE_P(
    EveryCode, KpzErrorTextPerCode,
    testing::Values(Words{DtRawErrSeek, kUnreadable, kUnreadable},
                    Words{DtRawErrTell, kUnreadable, kUnreadable},
                    Words{DtRawErrRead, kUnreadable, "the file cannot be read"},
                    Words{DtRawErrNotTiff, kNoTiff, kNoTiff},
                    Words{DtRawErrFormat, kFormat, kFormat},
                    Words{DtRawErrNotFound, Numbered(-302), "file not found"},
                    Words{DtRawErrOpen, Numbered(-300), "the file cannot be opened for reading"},
                    Words{DtRawErrIo, Numbered(-399), "input/output error while reading the file"},
                    Words{DtRawErrClose, Numbered(-303), "the file cannot be read"},
                    Words{DtRawErrParam, Numbered(-200), Numbered(-200)},
                    Words{DtRawErrBuffOpen, Numbered(-301), Numbered(-301)},
                    Words{DtRawErrBuffClose, Numbered(-304), Numbered(-304)},
                    Words{DtRawErrSize, Numbered(-402), Numbered(-402)},
                    Words{DtRawErrNoData, Numbered(-100), Numbered(-100)},
                    Words{-1, Numbered(-1), Numbered(-1)}));

// A head that reads fine: a read-or-parse code is the file's layout, named
// by what the head holds.
TEST(KpzErrorText, ParseCodesOfAReadableFileAreAboutItsLayout) {
  kpztest::TempDir dir;
  kpztest::KpzSpec recipe;
  recipe.ifd1Pointer = 0;  // IFD0 is the only directory
  const std::string one = dir.Write("one.kpz", kpztest::BuildKpz(recipe));
  const std::string single = "not a KPZ raw file (only one directory, no second one after IFD0)";
  EXPECT_EQ(KpzErrorText::ForFile(one, DtRawErrRead), single);
  EXPECT_EQ(KpzErrorText::ForFile(one, DtRawErrSeek), single);
  EXPECT_EQ(KpzErrorText::ForFile(one, DtRawErrTell), single);
  recipe = kpztest::KpzSpec();
  recipe.hasMakerNote = false;
  const std::string plain = dir.Write("plain.kpz", kpztest::BuildKpz(recipe));
  EXPECT_EQ(KpzErrorText::ForFile(plain, DtRawErrFormat), "not a KPZ raw file (no maker note)");
  const std::string junk = dir.Write("junk.kpz", kpztest::Bytes(100, 'j'));
  EXPECT_EQ(KpzErrorText::ForFile(junk, DtRawErrNotTiff), kNoTiff);
}

// A code the head read again does not give (the file changed in between)
// keeps the code's own words: the head's reason would be about another file.
TEST(KpzErrorText, CodeTheHeadDoesNotGiveKeepsItsOwnWords) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("ok.kpz", kpztest::Bytes(100, 'j'));
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrRead), kUnreadable);
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrSeek), kUnreadable);
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrFormat), kFormat);
  const std::string good = dir.Write("good.kpz", kpztest::BuildKpz(kpztest::KpzSpec()));
  EXPECT_EQ(KpzErrorText::ForFile(good, DtRawErrRead), kUnreadable);
  EXPECT_EQ(KpzErrorText::ForFile(good, DtRawErrNotTiff), kNoTiff);
}

TEST(KpzErrorText, ReadErrorMetAgainKeepsItsOwnWords) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("io.kpz", kpztest::Bytes(100, 'j'));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO, 0, /*times=*/5);
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrRead), "input/output error while reading the file");
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrNotTiff),
            "input/output error while reading the file");
  kpztest::Arm(kpztest::Call::Open, EACCES);
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrOpen),
            "the file cannot be opened for reading (permission denied)");
}

TEST(KpzErrorText, MissingFileAndDirectoryAreNamedAsSuch) {
  kpztest::TempDir dir;
  EXPECT_EQ(KpzErrorText::ForFile(dir.Path() + "/gone.kpz", DtRawErrNotFound), "file not found");
  EXPECT_EQ(KpzErrorText::ForFile(dir.Path(), DtRawErrNotTiff), KpzErrorText::Directory());
}

TEST(KpzErrorText, FailureTheReReadDoesNotMeetKeepsTheLibrarysWords) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("t.kpz", kpztest::Bytes(100, 'j'));
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrIo), "input/output error while reading the file");
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrOpen), "the file cannot be opened for reading");
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrClose), "the file cannot be read");
}

TEST(KpzErrorText, CodesNoReadCanGiveAreNotReRead) {
  kpztest::TempDir dir;
  const std::string path = dir.Write("n.kpz", kpztest::Bytes(100, 'j'));
  kpztest::FaultGuard guard;
  EXPECT_EQ(KpzErrorText::ForFile(path, DtRawErrSize), Numbered(-402));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Open), 0);
}

TEST(KpzErrorText, DirectoryIsNotAKpzFile) {
  EXPECT_STREQ(KpzErrorText::Directory(), "is a directory, not a KPZ raw file");
}

}  // namespace

#else

TEST(KpzErrorText, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
