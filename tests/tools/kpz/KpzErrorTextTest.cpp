// KpzErrorTextTest.cpp - the words of the kpz tool for a failed
// initialisation (tools/kpz/KpzErrorText).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzErrorText.h"

#include "raw/DtRawError.h"

namespace {

TEST(KpzErrorText, EachInitializeFailureHasItsWords) {
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrNotFound), "file not found");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrOpen), "the file cannot be opened for reading");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrIo), "input/output error while reading the file");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrRead), "the file cannot be read");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrClose), "the file cannot be read");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrNotTiff), "not a KPZ raw file (no TIFF header)");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrFormat),
            "not a KPZ raw file (camera model, Exif data or maker note missing)");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrSeek),
            "damaged KPZ raw file (a directory lies outside the first 64 KiB)");
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrTell),
            "damaged KPZ raw file (a directory lies outside the first 64 KiB)");
}

TEST(KpzErrorText, OtherCodesAreNamedByNumber) {
  EXPECT_EQ(KpzErrorText::Initialize(DtRawErrSize),
            "the file cannot be read as a KPZ raw file (error -402)");
  EXPECT_EQ(KpzErrorText::Initialize(-1), "the file cannot be read as a KPZ raw file (error -1)");
}

TEST(KpzErrorText, DirectoryIsNotAKpzFile) {
  EXPECT_STREQ(KpzErrorText::Directory(), "is a directory, not a KPZ raw file");
}

}  // namespace

#else

TEST(KpzErrorText, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
