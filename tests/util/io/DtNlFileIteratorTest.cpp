#include "util/io/DtNlFileIterator.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "support/FaultInjection.h"
#include "support/LogExpect.h"
#include "util/io/DtNlFile.h"

namespace {

const char* const kSrc = "jni/util/io/DtNlFileIterator.cpp";

int CountOpenFds() {
  int n = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    (void)entry;
    ++n;
  }
  return n;
}

class DtNlFileIteratorTest : public testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/kpz-iter-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    std::ofstream(dir_ + "/a.kpz") << "a";
    std::ofstream(dir_ + "/b.kpz") << "b";
    std::filesystem::create_directory(dir_ + "/sub");
  }
  void TearDown() override {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }

  void Open(DtNlFileIterator* it) const {
    ASSERT_EQ(DtNlFile(dir_.c_str()).GetList(it).errCode, DtNlErrNone);
  }

  kpztest::FaultGuard guard_;
  std::string dir_;
};

using DtNlFileIteratorDeathTest = DtNlFileIteratorTest;

const std::set<std::string> kAll = {".", "..", "a.kpz", "b.kpz", "sub"};

TEST_F(DtNlFileIteratorTest, NewIteratorIsClosedAndYieldsNothing) {
  DtNlFileIterator it;
  char dummy[] = "x";
  char* name = dummy;
  EXPECT_EQ(it.Next(&name), 0);
  EXPECT_EQ(name, nullptr);
  DtNlString text("keep");
  EXPECT_EQ(it.Next(&text), 0);
  EXPECT_STREQ(text.text, "keep");
}

TEST_F(DtNlFileIteratorTest, NextYieldsEveryEntryIncludingDotAndDotDot) {
  DtNlFileIterator it;
  Open(&it);
  std::multiset<std::string> seen;
  char* name = nullptr;
  for (int guard = 0; guard < 100 && it.Next(&name) == 1; ++guard) {
    ASSERT_NE(name, nullptr);
    seen.insert(name);
  }
  EXPECT_EQ(seen, std::multiset<std::string>(kAll.begin(), kAll.end()));
  EXPECT_EQ(name, nullptr);
}

TEST_F(DtNlFileIteratorTest, StringNextAssignsNamesAndKeepsTheLastAtTheEnd) {
  DtNlFileIterator it;
  Open(&it);
  std::set<std::string> seen;
  std::string last;
  DtNlString name;
  for (int guard = 0; guard < 100 && it.Next(&name) == 1; ++guard) {
    seen.insert(name.text);
    last = name.text;
  }
  EXPECT_EQ(seen, kAll);
  EXPECT_EQ(std::string(name.text), last);
}

TEST_F(DtNlFileIteratorTest, EndClosesTheStreamAndKeepsReturningZero) {
  const int base = CountOpenFds();
  DtNlFileIterator it;
  Open(&it);
  EXPECT_EQ(CountOpenFds(), base + 1);
  char* name = nullptr;
  int entries = 0;
  while (entries < 100 && it.Next(&name) == 1) ++entries;
  EXPECT_EQ(entries, 5);
  EXPECT_EQ(CountOpenFds(), base);  // closed at the end
  char dummy[] = "x";
  name = dummy;
  EXPECT_EQ(it.Next(&name), 0);
  EXPECT_EQ(name, nullptr);
}

TEST_F(DtNlFileIteratorTest, CloseReleasesTheStreamAndMayBeRepeated) {
  const int base = CountOpenFds();
  DtNlFileIterator it;
  Open(&it);
  char* name = nullptr;
  EXPECT_EQ(it.Next(&name), 1);
  it.close();
  EXPECT_EQ(CountOpenFds(), base);
  it.close();
  EXPECT_EQ(it.Next(&name), 0);
  EXPECT_EQ(name, nullptr);
}

TEST_F(DtNlFileIteratorTest, DestructorClosesTheStream) {
  const int base = CountOpenFds();
  {
    DtNlFileIterator it;
    Open(&it);
    EXPECT_EQ(CountOpenFds(), base + 1);
  }
  EXPECT_EQ(CountOpenFds(), base);
}

TEST_F(DtNlFileIteratorTest, EmptyDirectoryYieldsOnlyDotAndDotDot) {
  DtNlFileIterator it;
  ASSERT_EQ(DtNlFile((dir_ + "/sub").c_str()).GetList(&it).errCode, DtNlErrNone);
  std::set<std::string> seen;
  DtNlString name;
  for (int guard = 0; guard < 100 && it.Next(&name) == 1; ++guard) seen.insert(name.text);
  EXPECT_EQ(seen, (std::set<std::string>{".", ".."}));
}

TEST_F(DtNlFileIteratorDeathTest, NextIntoNullTextPointerAsserts) {
  DtNlFileIterator it;
  char** none = nullptr;
  EXPECT_EXIT(it.Next(none), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "Next", 11, "")));
}

TEST_F(DtNlFileIteratorDeathTest, NextIntoNullStringAsserts) {
  DtNlFileIterator it;
  DtNlString* none = nullptr;
  EXPECT_EXIT(it.Next(none), testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText(kSrc, "Next", 26, "")));
}

}  // namespace
