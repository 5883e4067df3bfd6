#include "util/DtNlString.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace {

std::string Text(const DtNlString& s) { return s.text == nullptr ? "<null>" : std::string(s.text); }

// ---- construction and assignment ----

TEST(DtNlString, DefaultStringIsEmptyWithNonNullText) {
  DtNlString s;
  ASSERT_NE(s.text, nullptr);
  EXPECT_EQ(s.length, 0u);
  EXPECT_EQ(s.text[0], '\0');
}

TEST(DtNlString, NullTextConstructorLeavesTextNullAndLengthZero) {
  DtNlString s(static_cast<const char*>(nullptr));
  EXPECT_EQ(s.text, nullptr);
  EXPECT_EQ(s.length, 0u);
}

TEST(DtNlString, TextConstructorCopiesIntoItsOwnBlock) {
  char source[] = "hello";
  DtNlString s(source);
  ASSERT_NE(s.text, nullptr);
  EXPECT_NE(s.text, source);
  EXPECT_EQ(s.length, 5u);
  source[0] = 'j';
  EXPECT_EQ(Text(s), "hello");
}

TEST(DtNlString, CopyConstructorMakesAnIndependentCopy) {
  DtNlString a("abc");
  DtNlString b(a);
  ASSERT_NE(b.text, nullptr);
  EXPECT_NE(b.text, a.text);
  EXPECT_EQ(Text(b), "abc");
  EXPECT_EQ(b.length, 3u);
  a.Append("d", nullptr);
  EXPECT_EQ(Text(b), "abc");
}

TEST(DtNlString, CopyOfANullStringIsANullString) {
  DtNlString a(static_cast<const char*>(nullptr));
  DtNlString b(a);
  EXPECT_EQ(b.text, nullptr);
  EXPECT_EQ(b.length, 0u);
}

TEST(DtNlString, ByteConstructorDropsOneTrailingNul) {
  const unsigned char data[] = {'a', 'b', 0, 0};
  DtNlString s(data, 4);
  EXPECT_EQ(s.length, 3u);
  EXPECT_EQ(Text(s), "ab");
}

TEST(DtNlString, ByteConstructorTakesTheLow8BitsOfALargerSize) {
  std::vector<unsigned char> data(300, 'x');
  DtNlString s(data.data(), static_cast<unsigned char>(300 & 0xFF));
  EXPECT_EQ(s.length, 44u);
  EXPECT_EQ(Text(s), std::string(44, 'x'));
}

TEST(DtNlString, ByteConstructorTakes255BytesWhole) {
  std::vector<unsigned char> data(255, 'y');
  DtNlString s(data.data(), 255);
  EXPECT_EQ(s.length, 255u);
  EXPECT_EQ(Text(s), std::string(255, 'y'));
}

TEST(DtNlString, ByteConstructorWithNullDataLeavesTextNull) {
  DtNlString s(static_cast<const unsigned char*>(nullptr), 4);
  EXPECT_EQ(s.text, nullptr);
  EXPECT_EQ(s.length, 0u);
}

TEST(DtNlString, AssignTextReplacesAndReturnsTheString) {
  DtNlString s("old");
  DtNlString& r = (s = "newer");
  EXPECT_EQ(&r, &s);
  EXPECT_EQ(Text(s), "newer");
  EXPECT_EQ(s.length, 5u);
}

TEST(DtNlString, AssignNullTextChangesNothing) {
  DtNlString s("keep");
  s = static_cast<const char*>(nullptr);
  EXPECT_EQ(Text(s), "keep");
  EXPECT_EQ(s.length, 4u);
}

TEST(DtNlString, AssignStringCopiesTheText) {
  DtNlString a("abc");
  DtNlString b("zz");
  DtNlString& r = (b = a);
  EXPECT_EQ(&r, &b);
  EXPECT_NE(b.text, a.text);
  EXPECT_EQ(Text(b), "abc");
  EXPECT_EQ(b.length, 3u);
}

TEST(DtNlString, SelfAssignmentKeepsTheSameBlock) {
  DtNlString s("same");
  char* before = s.text;
  DtNlString& alias = s;
  DtNlString& r = (s = alias);
  EXPECT_EQ(&r, &s);
  EXPECT_EQ(s.text, before);
  EXPECT_EQ(Text(s), "same");
}

// ---- setString ----

TEST(DtNlString, SetStringWithNullTextChangesNothing) {
  DtNlString s("abc");
  s.setString(static_cast<const char*>(nullptr));
  EXPECT_EQ(Text(s), "abc");
  EXPECT_EQ(s.length, 3u);
}

TEST(DtNlString, SetStringFromItsOwnTextOrATailOfIt) {
  DtNlString s("abcdef");
  s.setString(s.text);
  EXPECT_EQ(Text(s), "abcdef");
  s.setString(s.text + 2);
  EXPECT_EQ(Text(s), "cdef");
  EXPECT_EQ(s.length, 4u);
}

TEST(DtNlString, SetBytesDropsOnlyOneTrailingNul) {
  const unsigned char data[] = {'a', 'b', 0, 0};
  DtNlString s;
  s.setString(data, 4u);
  EXPECT_EQ(s.length, 3u);
  EXPECT_EQ(Text(s), "ab");
  EXPECT_EQ(s.text[2], '\0');
  EXPECT_EQ(s.text[3], '\0');
}

TEST(DtNlString, SetBytesWithoutTrailingNulKeepsEveryByte) {
  const unsigned char data[] = {'a', 'b', 'c'};
  DtNlString s;
  s.setString(data, 3u);
  EXPECT_EQ(s.length, 3u);
  EXPECT_EQ(Text(s), "abc");
}

TEST(DtNlString, SetBytesKeepsInnerNuls) {
  const unsigned char data[] = {'a', 0, 'b'};
  DtNlString s;
  s.setString(data, 3u);
  EXPECT_EQ(s.length, 3u);
  EXPECT_EQ(s.text[0], 'a');
  EXPECT_EQ(s.text[1], '\0');
  EXPECT_EQ(s.text[2], 'b');
  EXPECT_EQ(s.text[3], '\0');
}

TEST(DtNlString, SetBytesOfSizeZeroGivesTheEmptyStringWithoutReadingBeforeTheData) {
  // The byte before `data` is a NUL: reading it would turn the size into
  // 0xFFFFFFFF characters.
  std::vector<unsigned char> bytes = {0, 'q'};
  DtNlString s("old");
  s.setString(bytes.data() + 1, 0u);
  ASSERT_NE(s.text, nullptr);
  EXPECT_EQ(s.length, 0u);
  EXPECT_EQ(Text(s), "");
}

TEST(DtNlString, ByteConstructorOfSizeZeroGivesTheEmptyString) {
  std::vector<unsigned char> bytes = {0, 'q'};
  DtNlString s(bytes.data() + 1, static_cast<unsigned char>(0));
  ASSERT_NE(s.text, nullptr);
  EXPECT_EQ(s.length, 0u);
}

TEST(DtNlString, SetBytesWithNullDataChangesNothing) {
  DtNlString s("abc");
  s.setString(static_cast<const unsigned char*>(nullptr), 3u);
  EXPECT_EQ(Text(s), "abc");
  EXPECT_EQ(s.length, 3u);
}

TEST(DtNlString, SetBytesTakesAFull32BitSize) {
  std::vector<unsigned char> data(300, 'z');
  DtNlString s;
  s.setString(data.data(), 300u);
  EXPECT_EQ(s.length, 300u);
  EXPECT_EQ(Text(s), std::string(300, 'z'));
}

// ---- queries ----

TEST(DtNlString, EqualsComparesExactly) {
  EXPECT_EQ(DtNlString("abc").Equals("abc"), 1);
  EXPECT_EQ(DtNlString("abcd").Equals("abc"), 0);
  EXPECT_EQ(DtNlString("ab").Equals("abc"), 0);
  EXPECT_EQ(DtNlString("abc").Equals("abC"), 0);
  EXPECT_EQ(DtNlString("").Equals(""), 1);
}

TEST(DtNlString, CaseEqualsIgnoresAsciiCase) {
  EXPECT_EQ(DtNlString("abc").CaseEquals("ABC"), 1);
  EXPECT_EQ(DtNlString("aBc").CaseEquals("AbC"), 1);
  EXPECT_EQ(DtNlString("ab").CaseEquals("ABC"), 0);
  EXPECT_EQ(DtNlString("abcd").CaseEquals("ABC"), 0);
}

TEST(DtNlString, StartsWithComparesThePrefix) {
  DtNlString s("hello");
  EXPECT_EQ(s.StartsWith("he"), 1);
  EXPECT_EQ(s.StartsWith("hello"), 1);
  EXPECT_EQ(s.StartsWith(""), 1);
  EXPECT_EQ(s.StartsWith("hello!"), 0);
  EXPECT_EQ(s.StartsWith("el"), 0);
}

TEST(DtNlString, EndsWithComparesTheSuffix) {
  DtNlString s("hello");
  EXPECT_EQ(s.EndsWith("lo"), 1);
  EXPECT_EQ(s.EndsWith("hello"), 1);
  EXPECT_EQ(s.EndsWith(""), 1);
  EXPECT_EQ(s.EndsWith("hhello"), 0);
  EXPECT_EQ(s.EndsWith("he"), 0);
}

TEST(DtNlString, IndexOfFindsTheFirstOccurrenceAtOrAfterStart) {
  DtNlString s("abcb");
  EXPECT_EQ(s.IndexOf("b", 0), 1);
  EXPECT_EQ(s.IndexOf("b", 1), 1);
  EXPECT_EQ(s.IndexOf("b", 2), 3);
  EXPECT_EQ(s.IndexOf("cb", 0), 2);
  EXPECT_EQ(s.IndexOf("x", 0), -1);
  EXPECT_EQ(s.IndexOf("", 2), 2);
}

TEST(DtNlString, IndexOfOfALongerTextIsMinusOne) {
  EXPECT_EQ(DtNlString("abcb").IndexOf("abcbx", 0), -1);
}

TEST(DtNlString, IndexOfWithANegativeStartSearchesFromTheBeginning) {
  DtNlString s("abcb");
  EXPECT_EQ(s.IndexOf("a", -5), 0);
  EXPECT_EQ(s.IndexOf("b", INT_MIN), 1);
}

TEST(DtNlString, IndexOfWithAStartPastTheEndFindsNothing) {
  DtNlString s("abcb");
  EXPECT_EQ(s.IndexOf("b", 5), -1);
  EXPECT_EQ(s.IndexOf("", 99), -1);
  EXPECT_EQ(s.IndexOf("", 4), 4);
}

TEST(DtNlString, FromEndIsTheValue0x80000001) {
  EXPECT_EQ(DtNlString::FROM_END, -2147483647);
  EXPECT_EQ(static_cast<unsigned int>(DtNlString::FROM_END), 0x80000001u);
}

TEST(DtNlString, LastIndexOfFromTheEndFindsTheLastOccurrence) {
  EXPECT_EQ(DtNlString("abcb").LastIndexOf("b", DtNlString::FROM_END), 3);
  EXPECT_EQ(DtNlString("a/b/c").LastIndexOf("/", DtNlString::FROM_END), 3);
}

TEST(DtNlString, LastIndexOfFindsTheLastOccurrenceBeginningAtOrBeforeStart) {
  DtNlString s("abcb");
  EXPECT_EQ(s.LastIndexOf("b", 2), 1);
  EXPECT_EQ(s.LastIndexOf("b", 1), 1);
  EXPECT_EQ(s.LastIndexOf("b", 0), -1);
  EXPECT_EQ(s.LastIndexOf("a", 0), 0);
}

TEST(DtNlString, LastIndexOfMatchMayExtendBeyondStart) {
  EXPECT_EQ(DtNlString("abcb").LastIndexOf("bc", 1), 1);
}

TEST(DtNlString, LastIndexOfPullsStartBackToLengthMinusTextLength) {
  DtNlString s("abcb");
  EXPECT_EQ(s.LastIndexOf("bcb", 3), 1);
  EXPECT_EQ(s.LastIndexOf("a", INT_MAX), 0);
  EXPECT_EQ(s.LastIndexOf("b", 100), 3);
}

TEST(DtNlString, LastIndexOfWithANegativeStartIsMinusOne) {
  DtNlString s("abcb");
  EXPECT_EQ(s.LastIndexOf("a", -1), -1);
  EXPECT_EQ(s.LastIndexOf("a", INT_MIN), -1);
}

TEST(DtNlString, LastIndexOfALongerTextIsMinusOne) {
  EXPECT_EQ(DtNlString("abcb").LastIndexOf("abcbx", DtNlString::FROM_END), -1);
  EXPECT_EQ(DtNlString("abcb").LastIndexOf("abcbx", 0), -1);
}

TEST(DtNlString, LastIndexOfAnEmptyTextReturnsStartOrTheLength) {
  DtNlString s("abcb");
  EXPECT_EQ(s.LastIndexOf("", 2), 2);
  EXPECT_EQ(s.LastIndexOf("", DtNlString::FROM_END), 4);
  EXPECT_EQ(s.LastIndexOf("", 9), 4);
}

TEST(DtNlString, LastIndexOfWithoutAMatchIsMinusOne) {
  EXPECT_EQ(DtNlString("abcb").LastIndexOf("x", DtNlString::FROM_END), -1);
}

TEST(DtNlString, QueriesTreatANullTextAsEmpty) {
  DtNlString s(static_cast<const char*>(nullptr));
  EXPECT_EQ(s.Equals(""), 1);
  EXPECT_EQ(s.Equals("a"), 0);
  EXPECT_EQ(s.CaseEquals(""), 1);
  EXPECT_EQ(s.StartsWith(""), 1);
  EXPECT_EQ(s.EndsWith(""), 1);
  EXPECT_EQ(s.IndexOf("", 0), 0);
  EXPECT_EQ(s.IndexOf("a", 0), -1);
  EXPECT_EQ(s.LastIndexOf("", DtNlString::FROM_END), 0);
  EXPECT_EQ(s.LastIndexOf("a", DtNlString::FROM_END), -1);
}

// ---- SubStr ----

TEST(DtNlString, SubStrWithEndCopiesTheHalfOpenRange) {
  DtNlString s("hello");
  DtNlString o("prev");
  EXPECT_EQ(s.SubStr(1, 3, &o), &o);
  EXPECT_EQ(Text(o), "el");
  EXPECT_EQ(o.length, 2u);
  EXPECT_EQ(Text(s), "hello");
}

TEST(DtNlString, SubStrCutsAnEndPastTheLength) {
  DtNlString s("hello");
  DtNlString o;
  s.SubStr(1, 99, &o);
  EXPECT_EQ(Text(o), "ello");
  EXPECT_EQ(o.length, 4u);
}

TEST(DtNlString, SubStrToTheEnd) {
  DtNlString s("hello");
  DtNlString o;
  EXPECT_EQ(s.SubStr(1, &o), &o);
  EXPECT_EQ(Text(o), "ello");
  EXPECT_EQ(s.SubStr(0, &o), &o);
  EXPECT_EQ(Text(o), "hello");
}

TEST(DtNlString, SubStrAtOrPastTheLengthLeavesOutAsItWas) {
  DtNlString s("hello");
  DtNlString o("prev");
  char* before = o.text;
  EXPECT_EQ(s.SubStr(5, &o), &o);
  EXPECT_EQ(s.SubStr(6, &o), &o);
  EXPECT_EQ(s.SubStr(5, 9, &o), &o);
  EXPECT_EQ(o.text, before);
  EXPECT_EQ(Text(o), "prev");
}

TEST(DtNlString, SubStrWithANegativeStartIsANoOp) {
  DtNlString s("hello");
  DtNlString o("prev");
  EXPECT_EQ(s.SubStr(-1, &o), &o);
  EXPECT_EQ(s.SubStr(-1, 3, &o), &o);
  EXPECT_EQ(Text(o), "prev");
}

TEST(DtNlString, SubStrWithStartNotBeforeEndIsANoOp) {
  DtNlString s("hello");
  DtNlString o("prev");
  s.SubStr(2, 2, &o);
  s.SubStr(3, 1, &o);
  s.SubStr(0, -4, &o);
  EXPECT_EQ(Text(o), "prev");
}

TEST(DtNlString, SubStrWithoutOutEditsTheStringItself) {
  DtNlString s("hello");
  EXPECT_EQ(s.SubStr(1, 3, nullptr), &s);
  EXPECT_EQ(Text(s), "el");
  EXPECT_EQ(s.length, 2u);
  DtNlString t("hello");
  EXPECT_EQ(t.SubStr(3, nullptr), &t);
  EXPECT_EQ(Text(t), "lo");
}

TEST(DtNlString, SubStrNoOpWithoutOutReturnsTheStringUnchanged) {
  DtNlString s("hello");
  EXPECT_EQ(s.SubStr(7, nullptr), &s);
  EXPECT_EQ(Text(s), "hello");
}

TEST(DtNlString, SubStrIntoItselfAsOut) {
  DtNlString s("hello");
  s.SubStr(2, &s);
  EXPECT_EQ(Text(s), "llo");
}

TEST(DtNlString, SubStrOfANullStringIsANoOp) {
  DtNlString s(static_cast<const char*>(nullptr));
  DtNlString o("prev");
  s.SubStr(0, &o);
  s.SubStr(0, 1, &o);
  EXPECT_EQ(Text(o), "prev");
}

// ---- Append ----

TEST(DtNlString, AppendWritesTextFollowedBySIntoOut) {
  DtNlString s("ab");
  DtNlString o("prev");
  EXPECT_EQ(s.Append("cd", &o), &o);
  EXPECT_EQ(Text(o), "abcd");
  EXPECT_EQ(o.length, 4u);
  EXPECT_EQ(Text(s), "ab");
}

TEST(DtNlString, AppendingAnEmptyTextLeavesOutAsItWas) {
  DtNlString s("ab");
  DtNlString o("prev");
  EXPECT_EQ(s.Append("", &o), &o);
  EXPECT_EQ(s.Append(nullptr, &o), &o);
  EXPECT_EQ(Text(o), "prev");
}

TEST(DtNlString, AppendWithoutOutChangesTheStringItself) {
  DtNlString s("hello");
  EXPECT_EQ(s.Append("!", nullptr), &s);
  EXPECT_EQ(Text(s), "hello!");
  EXPECT_EQ(s.length, 6u);
}

TEST(DtNlString, AppendItsOwnText) {
  DtNlString s("ab");
  s.Append(s.text, nullptr);
  EXPECT_EQ(Text(s), "abab");
}

TEST(DtNlString, AppendToANullOrEmptyString) {
  DtNlString n(static_cast<const char*>(nullptr));
  n.Append("x", nullptr);
  EXPECT_EQ(Text(n), "x");
  EXPECT_EQ(n.length, 1u);
  DtNlString e;
  e.Append("y", nullptr);
  EXPECT_EQ(Text(e), "y");
}

// ---- Insert ----

TEST(DtNlString, InsertAtTheFrontMiddleAndEnd) {
  DtNlString s("ab");
  DtNlString o;
  EXPECT_EQ(s.Insert(0, "x", &o), &o);
  EXPECT_EQ(Text(o), "xab");
  EXPECT_EQ(s.Insert(1, "x", &o), &o);
  EXPECT_EQ(Text(o), "axb");
  EXPECT_EQ(o.length, 3u);
  EXPECT_EQ(s.Insert(2, "x", &o), &o);
  EXPECT_EQ(Text(o), "abx");
  EXPECT_EQ(Text(s), "ab");
}

TEST(DtNlString, InsertPastTheEndOrAtANegativeIndexAppends) {
  DtNlString s("ab");
  DtNlString o;
  s.Insert(99, "xy", &o);
  EXPECT_EQ(Text(o), "abxy");
  s.Insert(-1, "z", &o);
  EXPECT_EQ(Text(o), "abz");
}

TEST(DtNlString, InsertingAnEmptyTextLeavesOutAsItWas) {
  DtNlString s("ab");
  DtNlString o("prev");
  EXPECT_EQ(s.Insert(1, "", &o), &o);
  EXPECT_EQ(s.Insert(1, nullptr, &o), &o);
  EXPECT_EQ(s.Insert(5, "", &o), &o);
  EXPECT_EQ(Text(o), "prev");
}

TEST(DtNlString, InsertWithoutOutChangesTheStringItself) {
  DtNlString s("hello");
  EXPECT_EQ(s.Insert(2, "--", nullptr), &s);
  EXPECT_EQ(Text(s), "he--llo");
  EXPECT_EQ(s.length, 7u);
}

TEST(DtNlString, InsertItsOwnText) {
  DtNlString s("ab");
  s.Insert(1, s.text, nullptr);
  EXPECT_EQ(Text(s), "aabb");
}

TEST(DtNlString, InsertIntoANullStringAppends) {
  DtNlString s(static_cast<const char*>(nullptr));
  s.Insert(0, "x", nullptr);
  EXPECT_EQ(Text(s), "x");
}

}  // namespace
