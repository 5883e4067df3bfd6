// DtRawLayoutCheckTest.cpp - the library's walk of a head that does not
// parse (jni/raw/DtRawLayoutCheck), through its own interface: the reason and
// its words in a caller's buffer, which reasons are damage, and that it agrees
// with the facade's result code. (Every reason in both byte orders, and the
// agreement over random heads, are checked through the kit's face of it in
// tests/kit/kpz/KpzLayoutCheckTest.cpp.)
#include "raw/DtRawLayoutCheck.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "raw/DtRaw.h"
#include "raw/DtRawError.h"
#include "support/KpzFileBuilder.h"

namespace {

struct Head {
  std::vector<UINT8> bytes = std::vector<UINT8>(DtRawLayoutCheck::HEAD_SIZE, 0);
  std::uint64_t fileSize = 0;
};

Head HeadOf(const std::vector<std::uint8_t>& file) {
  Head h;
  if (!file.empty()) {  // an empty vector's data() may be null
    std::memcpy(h.bytes.data(), file.data(), std::min(file.size(), h.bytes.size()));
  }
  h.fileSize = file.size();
  return h;
}

// The facade's result over the same head.
int FacadeCode(Head& h) {
  DtRaw raw;
  return raw.InitializeBuf(h.bytes.data(), static_cast<int>(h.bytes.size()));
}

std::string WordsOf(const DtRawLayoutCheck::Finding& f) {
  char out[DtRawLayoutCheck::WORDS_SIZE];
  const UINT n = DtRawLayoutCheck::Words(f, out, sizeof out);
  EXPECT_EQ(n, std::strlen(out));
  return out;
}

TEST(DtRawLayoutCheck, AGoodFileParses) {
  Head h = HeadOf(kpztest::BuildKpz(kpztest::KpzSpec()));
  const DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
  EXPECT_EQ(f.m_code, DtRawOk);
  EXPECT_EQ(f.m_reason, DtRawLayoutCheck::ReasonNone);
  EXPECT_EQ(WordsOf(f), "");
  EXPECT_EQ(FacadeCode(h), DtRawOk);
}

TEST(DtRawLayoutCheck, ReasonsAgreeWithTheFacadeAndSayWhetherTheFileIsDamaged) {
  struct Case {
    const char* name;
    kpztest::KpzSpec recipe;
    const char* words;
    bool damage;
  };
  std::vector<Case> cases;
  {
    Case c{"ifd1 past the end", {}, "IFD1 lies past the end of the file", true};
    c.recipe.ifd1Pointer = 0x00F00000u;
    cases.push_back(c);
  }
  {
    Case c{"exif past the end", {}, "the Exif directory lies past the end of the file", true};
    c.recipe.exifPointer = 0x00F00000u;
    cases.push_back(c);
  }
  {
    Case c{"one directory", {}, "only one directory, no second one after IFD0", false};
    c.recipe.hasIfd1 = false;
    cases.push_back(c);
  }
  {
    Case c{"no model", {}, "no camera model", false};
    c.recipe.model.reset();
    cases.push_back(c);
  }
  {
    Case c{"no maker note", {}, "no maker note", false};
    c.recipe.hasMakerNote = false;
    cases.push_back(c);
  }
  {
    Case c{"ifd1 beyond the head", {}, "IFD1 lies beyond the first 64 KiB", false};
    c.recipe.ifd1Pointer = 0x00011000u;
    c.recipe.minTotalSize = 0x00020000u;
    cases.push_back(c);
  }
  for (Case& c : cases) {
    Head h = HeadOf(kpztest::BuildKpz(c.recipe));
    const DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
    EXPECT_EQ(f.m_code, FacadeCode(h)) << c.name;
    EXPECT_NE(f.m_code, DtRawOk) << c.name;
    EXPECT_EQ(WordsOf(f), c.words) << c.name;
    EXPECT_EQ(DtRawLayoutCheck::IsDamage(f.m_reason), c.damage) << c.name;
  }
}

TEST(DtRawLayoutCheck, ShortFilesAndNoTiff) {
  Head empty = HeadOf({});
  DtRawLayoutCheck::Finding f = DtRawLayoutCheck::Inspect(empty.bytes.data(), 0);
  EXPECT_EQ(f.m_code, DtRawErrNotTiff);
  EXPECT_EQ(WordsOf(f), "the file is empty");
  EXPECT_FALSE(DtRawLayoutCheck::IsDamage(f.m_reason));

  std::vector<std::uint8_t> cut = kpztest::BuildKpz(kpztest::KpzSpec());
  cut.resize(5);
  Head h = HeadOf(cut);
  f = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
  EXPECT_EQ(f.m_code, FacadeCode(h));
  EXPECT_EQ(WordsOf(f), "the file ends within its TIFF header");
  EXPECT_TRUE(DtRawLayoutCheck::IsDamage(f.m_reason));

  Head text = HeadOf(kpztest::AsciiBytes("hello, world", false));
  f = DtRawLayoutCheck::Inspect(text.bytes.data(), text.fileSize);
  EXPECT_EQ(WordsOf(f), "no TIFF header");
  EXPECT_EQ(DtRawLayoutCheck::Inspect(nullptr, 100).m_code, DtRawOk);
}

TEST(DtRawLayoutCheck, WordsInASmallBufferAreCutAndTerminated) {
  DtRawLayoutCheck::Finding f;
  f.m_code = DtRawErrRead;
  f.m_reason = DtRawLayoutCheck::ReasonRunsBeyondHead;
  f.m_part = DtRawLayoutCheck::PartMakerNote;
  f.m_value = true;
  const std::string whole = "a value in the maker note runs beyond the first 64 KiB";
  char out[10];
  EXPECT_EQ(DtRawLayoutCheck::Words(f, out, sizeof out), whole.size());
  EXPECT_EQ(std::string(out), whole.substr(0, 9));
  EXPECT_EQ(DtRawLayoutCheck::Words(f, nullptr, 0), whole.size());
  f.m_reason = DtRawLayoutCheck::ReasonBadKmPointer;
  f.m_bytes = 18446744073709551615ull;
  char big[DtRawLayoutCheck::WORDS_SIZE];
  EXPECT_LT(DtRawLayoutCheck::Words(f, big, sizeof big), DtRawLayoutCheck::WORDS_SIZE);
  EXPECT_EQ(std::string(big),
            "the pointer to the Km maker note is not a 4-byte offset (it has "
            "18446744073709551615 bytes)");
}

}  // namespace
