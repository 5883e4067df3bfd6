// KpzNameSetTest.cpp - the names a run has written, as digests
// (kit/kpz/KpzNameSet): every name added is found, no other is, through the
// table's growth, at a dozen to two dozen bytes per name.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzNameSet.h"

#include <string>

namespace {

std::string NameOf(int i) { return "shoot-" + std::to_string(i) + "/IMG_" + std::to_string(i) + ".preview.jpg"; }

TEST(KpzNameSetTest, AnEmptySetHoldsNothing) {
  const KpzNameSet s;
  EXPECT_FALSE(s.Contains(""));
  EXPECT_FALSE(s.Contains("a"));
  EXPECT_EQ(s.Size(), 0u);
}

TEST(KpzNameSetTest, ANameIsAddedOnce) {
  KpzNameSet s;
  EXPECT_TRUE(s.Insert("a.preview.jpg"));
  EXPECT_FALSE(s.Insert("a.preview.jpg"));
  EXPECT_TRUE(s.Contains("a.preview.jpg"));
  EXPECT_FALSE(s.Contains("A.preview.jpg"));
  EXPECT_FALSE(s.Contains("a.preview.jp"));
  EXPECT_TRUE(s.Insert(""));
  EXPECT_TRUE(s.Contains(""));
  EXPECT_EQ(s.Size(), 2u);
}

TEST(KpzNameSetTest, NamesDifferingInOneByteOrLengthAreDifferent) {
  KpzNameSet s;
  const std::string base(40, 'x');
  for (std::size_t i = 0; i < base.size(); ++i) {
    std::string n = base;
    n[i] = 'y';
    EXPECT_TRUE(s.Insert(n)) << i;
    EXPECT_TRUE(s.Insert(base.substr(0, i))) << i;
  }
  EXPECT_FALSE(s.Contains(base));
  EXPECT_EQ(s.Size(), 2 * base.size());
}

TEST(KpzNameSetTest, EveryNameIsFoundThroughGrowthAndNoOther) {
  KpzNameSet s;
  constexpr int kNames = 200000;
  for (int i = 0; i < kNames; ++i) {
    ASSERT_TRUE(s.Insert(NameOf(i))) << i;
  }
  EXPECT_EQ(s.Size(), static_cast<std::size_t>(kNames));
  for (int i = 0; i < kNames; ++i) {
    ASSERT_TRUE(s.Contains(NameOf(i))) << i;
    ASSERT_FALSE(s.Contains(NameOf(i + kNames))) << i;
  }
  // 12 bytes a slot, at most 4 slots for every 3 names after growth, at
  // least 4 for 3 before: between 12 and 32 bytes a name.
  EXPECT_LE(s.Bytes(), static_cast<std::size_t>(kNames) * 32);
  EXPECT_GE(s.Bytes(), static_cast<std::size_t>(kNames) * 12);
}

}  // namespace

#else
TEST(KpzNameSetTest, Skipped) { GTEST_SKIP() << "built without the kit"; }
#endif
