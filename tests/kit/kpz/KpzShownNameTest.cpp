// KpzShownNameTest.cpp - file names as the front ends print them on a line
// (kit/kpz/KpzShownName): plain names unchanged, others quoted with C's
// escapes, so that no name forges a line or moves the terminal's cursor.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzShownName.h"

#include <string>

namespace {

TEST(KpzShownName, PlainNamesAreShownUnchanged) {
  EXPECT_EQ(KpzShownName::Of("shots/a.kpz"), "shots/a.kpz");
  EXPECT_EQ(KpzShownName::Of("d\xC3\xA9j\xC3\xA0 vu.kpz"), "d\xC3\xA9j\xC3\xA0 vu.kpz");
  EXPECT_EQ(KpzShownName::Of("a\\b.kpz"), "a\\b.kpz");
  EXPECT_EQ(KpzShownName::Of("it's.kpz"), "it's.kpz");
  EXPECT_EQ(KpzShownName::Of(""), "");
  EXPECT_TRUE(KpzShownName::IsPlain("x.kpz"));
}

TEST(KpzShownName, NewlinesCannotForgeALine) {
  const std::string name = "evil\nwrote out-fake.preview.jpg (1 bytes)\nkpz: x.kpz";
  const std::string shown = KpzShownName::Of(name);
  EXPECT_EQ(shown, "'evil\\nwrote out-fake.preview.jpg (1 bytes)\\nkpz: x.kpz'");
  EXPECT_EQ(shown.find('\n'), std::string::npos);
}

TEST(KpzShownName, ControlCharactersAreEscapedTheCWay) {
  EXPECT_EQ(KpzShownName::Of("\x1b[2J.kpz"), "'\\033[2J.kpz'");
  EXPECT_EQ(KpzShownName::Of("a\tb\rc"), "'a\\tb\\rc'");
  EXPECT_EQ(KpzShownName::Of(std::string("a\0b", 3)), "'a\\000b'");
  EXPECT_EQ(KpzShownName::Of("del\x7f"), "'del\\177'");
  EXPECT_EQ(KpzShownName::Of("\a\b\f\v"), "'\\a\\b\\f\\v'");
}

TEST(KpzShownName, C1ControlsAndLineSeparatorsAreEscapedByteByByte) {
  EXPECT_EQ(KpzShownName::Of("a\xC2\x85" "b"), "'a\\302\\205b'");      // NEL
  EXPECT_EQ(KpzShownName::Of("a\xE2\x80\xA8" "b"), "'a\\342\\200\\250b'");  // U+2028
}

TEST(KpzShownName, InvalidUtf8BytesAreEscaped) {
  EXPECT_EQ(KpzShownName::Of("a\xff.kpz"), "'a\\377.kpz'");
  EXPECT_EQ(KpzShownName::Of("\xC3"), "'\\303'");                // cut short
  EXPECT_EQ(KpzShownName::Of("\xC0\xAF"), "'\\300\\257'");       // overlong
  EXPECT_EQ(KpzShownName::Of("\xED\xA0\x80"), "'\\355\\240\\200'");  // a surrogate
}

TEST(KpzShownName, QuotedNamesEscapeBackslashesAndQuotes) {
  // Once quoted, a backslash or quote of the name cannot pass for an escape.
  EXPECT_EQ(KpzShownName::Of("a\\n\n"), "'a\\\\n\\n'");
  EXPECT_EQ(KpzShownName::Of("it's\n"), "'it\\'s\\n'");
  // A name that begins with a quote is quoted, so that it cannot pass for a
  // quoted one.
  EXPECT_EQ(KpzShownName::Of("'x\\n'"), "'\\'x\\\\n\\''");
}

}  // namespace

#else
TEST(KpzShownName, Skipped) { GTEST_SKIP() << "the kit is not built"; }
#endif
