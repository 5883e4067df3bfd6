// DtRawErrorTextTest.cpp - the library's words for a failure to read a KPZ
// file (jni/raw/DtRawErrorText): each phrase, the buffer contract (cut short,
// zero-terminated, the whole length returned, nothing written without a
// buffer), and the layout reasons over built heads.
#include "raw/DtRawErrorText.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawHeadIo.h"
#include "support/KpzFileBuilder.h"

namespace {

using Say = UINT (*)(const char*, char*, UINT);

std::string Words(Say say, const char* what) {
  char out[DtRawErrorText::WORDS_SIZE];
  const UINT n = say(what, out, sizeof out);
  EXPECT_EQ(n, std::strlen(out));
  return out;
}

// Stopped's words for `code` after the facade parsed `file`'s head through a
// head channel (null: no parse, nothing recorded).
std::string ParseWords(int code, const std::vector<std::uint8_t>* file) {
  std::vector<UINT8> head(DtRaw::READ_SIZE, 0);
  DtRawHeadIo io(file != nullptr ? file->size() : 0);
  if (file != nullptr) {
    std::memcpy(head.data(), file->data(), std::min(file->size(), head.size()));
    DtRaw raw;
    DtRawRecord::ParseThrough(&raw, &io);
    (void)raw.InitializeBuf(head.data(), static_cast<int>(head.size()));
  }
  char out[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::Stopped(code, io, out, sizeof out);
  return out;
}

TEST(DtRawErrorText, PicturePhrases) {
  EXPECT_EQ(Words(DtRawErrorText::NoPicture, "thumbnail"), "no thumbnail stored in this file");
  EXPECT_EQ(Words(DtRawErrorText::EmptyPicture, "preview"),
            "the preview stored in this file is empty (0 bytes)");
  EXPECT_EQ(Words(DtRawErrorText::PastEnd, "preview"), "preview extends past the end of the file");
  char out[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::Location("thumbnail", -402, out, sizeof out);
  EXPECT_STREQ(out, "the thumbnail's location cannot be read (error -402)");
  EXPECT_STREQ(DtRawErrorText::PreviewOutOfReach(),
               "preview lies beyond the first 2 GiB of the file, out of reach");
  EXPECT_STREQ(DtRawErrorText::Directory(), "is a directory, not a KPZ raw file");
  EXPECT_STREQ(DtRawErrorText::NotRegular(),
               "not a regular file (a device, named pipe or socket), not read");
}

TEST(DtRawErrorText, AThumbnailTooLargeIsToldWithItsLengthAndTheBound) {
  EXPECT_EQ(DtRawErrorText::THUMBNAIL_MAX_SIZE, 262144u);
  char out[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::ThumbnailTooLarge(629145600u, out, sizeof out);
  EXPECT_STREQ(out,
               "the thumbnail stored in this file is too large (629145600 bytes; a thumbnail is "
               "at most 262144)");
  EXPECT_LT(DtRawErrorText::ThumbnailTooLarge(0xFFFFFFFFu, out, sizeof out),
            DtRawErrorText::WORDS_SIZE);
  EXPECT_STREQ(out,
               "the thumbnail stored in this file is too large (4294967295 bytes; a thumbnail is "
               "at most 262144)");
}

TEST(DtRawErrorText, ReadErrorsInTheToolsWords) {
  char out[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::ReadError(ENOENT, out, sizeof out);
  EXPECT_STREQ(out, "file not found");
  DtRawErrorText::ReadError(EACCES, out, sizeof out);
  EXPECT_STREQ(out, "the file cannot be opened for reading (permission denied)");
  DtRawErrorText::ReadError(EPERM, out, sizeof out);
  EXPECT_STREQ(out, "the file cannot be opened for reading (permission denied)");
  DtRawErrorText::ReadError(EIO, out, sizeof out);
  EXPECT_STREQ(out, "input/output error while reading the file");
  DtRawErrorText::ReadError(EISDIR, out, sizeof out);
  EXPECT_STREQ(out, "is a directory, not a KPZ raw file");
  // Any other error in the system's words, lower case.
  DtRawErrorText::ReadError(EBADF, out, sizeof out);
  std::string system = std::strerror(EBADF);
  system[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(system[0])));
  EXPECT_EQ(std::string(out), "the file cannot be read (" + system + ")");
}

TEST(DtRawErrorText, PictureReadErrors) {
  char out[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::PictureReadError("preview", 0, out, sizeof out);
  EXPECT_STREQ(out, "preview extends past the end of the file");
  DtRawErrorText::PictureReadError("thumbnail", EIO, out, sizeof out);
  EXPECT_STREQ(out, "input/output error while reading the thumbnail");
  DtRawErrorText::PictureReadError("preview", ENOMEM, out, sizeof out);
  std::string system = std::strerror(ENOMEM);
  system[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(system[0])));
  EXPECT_EQ(std::string(out), "the preview cannot be read (" + system + ")");
}

TEST(DtRawErrorText, InitializeCodes) {
  char out[DtRawErrorText::WORDS_SIZE];
  const std::pair<int, const char*> cases[] = {
      {DtRawErrNotFound, "file not found"},
      {DtRawErrOpen, "the file cannot be opened for reading"},
      {DtRawErrIo, "input/output error while reading the file"},
      {DtRawErrRead, "the file cannot be read"},
      {DtRawErrClose, "the file cannot be read"},
      {DtRawErrNotTiff, "not a KPZ raw file (no TIFF header)"},
      {DtRawErrFormat, "not a KPZ raw file (camera model, Exif data or maker note missing)"},
      {DtRawErrSeek, "not a KPZ raw file (its directories cannot be read within the first 64 KiB)"},
      {DtRawErrSize, "the file cannot be read as a KPZ raw file (error -402)"},
  };
  for (const auto& c : cases) {
    DtRawErrorText::Initialize(c.first, out, sizeof out);
    EXPECT_STREQ(out, c.second) << c.first;
  }
}

TEST(DtRawErrorText, ParseNamesTheReasonTheHeadGives) {
  kpztest::KpzSpec noModel;
  noModel.model.reset();
  const std::vector<std::uint8_t> bytes = kpztest::BuildKpz(noModel);
  EXPECT_EQ(ParseWords(DtRawErrFormat, &bytes), "not a KPZ raw file (no camera model)");
  // A code the head does not give keeps its own words.
  EXPECT_EQ(ParseWords(DtRawErrNotTiff, &bytes), "not a KPZ raw file (no TIFF header)");
  EXPECT_EQ(ParseWords(DtRawErrFormat, nullptr),
            "not a KPZ raw file (camera model, Exif data or maker note missing)");
  kpztest::KpzSpec far;
  far.ifd1Pointer = 0x00F00000u;
  const std::vector<std::uint8_t> farBytes = kpztest::BuildKpz(far);
  // -305, -306 and -307 name the same event: the read of the head met its end.
  EXPECT_EQ(ParseWords(DtRawErrSeek, &farBytes),
            "not a KPZ raw file (IFD1 lies past the end of the file)");
  EXPECT_EQ(ParseWords(DtRawErrRead, &farBytes),
            "not a KPZ raw file (IFD1 lies past the end of the file)");
  EXPECT_EQ(ParseWords(DtRawErrNoData, &farBytes),
            "the file cannot be read as a KPZ raw file (error -100)");
  EXPECT_TRUE(DtRawErrorText::IsParseCode(DtRawErrTell));
  EXPECT_FALSE(DtRawErrorText::IsParseCode(DtRawErrNotFound));
}

TEST(DtRawErrorText, ABufferTooSmallIsCutAndTerminated) {
  const std::string whole = "no thumbnail stored in this file";
  char out[8];
  std::memset(out, 'x', sizeof out);
  EXPECT_EQ(DtRawErrorText::NoPicture("thumbnail", out, sizeof out), whole.size());
  EXPECT_STREQ(out, whole.substr(0, 7).c_str());
  // Without a buffer only the length comes back, and nothing is written.
  EXPECT_EQ(DtRawErrorText::NoPicture("thumbnail", nullptr, 0), whole.size());
  char one[1] = {'x'};
  EXPECT_EQ(DtRawErrorText::ReadError(ENOENT, one, 0), std::strlen("file not found"));
  EXPECT_EQ(one[0], 'x');
  EXPECT_EQ(DtRawErrorText::ReadError(ENOENT, one, 1), std::strlen("file not found"));
  EXPECT_EQ(one[0], '\0');
}

TEST(DtRawErrorText, EveryPhraseFitsTheStatedSize) {
  char out[DtRawErrorText::WORDS_SIZE];
  for (int err = 1; err < 134; ++err) {
    EXPECT_LT(DtRawErrorText::ReadError(err, out, sizeof out), DtRawErrorText::WORDS_SIZE) << err;
    EXPECT_LT(DtRawErrorText::PictureReadError("thumbnail", err, out, sizeof out),
              DtRawErrorText::WORDS_SIZE)
        << err;
  }
  EXPECT_LT(DtRawErrorText::Location("thumbnail", -2147483647 - 1, out, sizeof out),
            DtRawErrorText::WORDS_SIZE);
}

}  // namespace
