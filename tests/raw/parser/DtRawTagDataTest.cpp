#include "raw/parser/DtRawTagData.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

DtRawTagData Filled(UINT8* data) {
  DtRawTagData t;
  t.m_category = DtRawTagCategoryExif;
  t.m_tagId = 0x9003;
  t.m_offset = 0x1234;
  t.m_size = 20;
  t.m_data = data;
  t.m_byteOrder = DtNlLittleEndian;
  return t;
}

void ExpectSameButData(const DtRawTagData& copy, const DtRawTagData& src) {
  EXPECT_EQ(copy.m_category, src.m_category);
  EXPECT_EQ(copy.m_tagId, src.m_tagId);
  EXPECT_EQ(copy.m_offset, src.m_offset);
  EXPECT_EQ(copy.m_size, src.m_size);
  EXPECT_EQ(copy.m_byteOrder, src.m_byteOrder);
  EXPECT_EQ(copy.m_data, nullptr);
}

TEST(DtRawTagData, ConstructionZeroesEveryField) {
  DtRawTagData t;
  EXPECT_EQ(t.m_category, 0u);
  EXPECT_EQ(t.m_tagId, 0);
  EXPECT_EQ(t.m_offset, 0u);
  EXPECT_EQ(t.m_size, 0u);
  EXPECT_EQ(t.m_data, nullptr);
  EXPECT_EQ(t.m_byteOrder, DtNlBigEndian);
}

TEST(DtRawTagData, CopyConstructionCopiesEverythingButTheBytes) {
  UINT8 bytes[20] = {'2', '0', '1', '0'};
  const DtRawTagData src = Filled(bytes);
  const DtRawTagData copy(src);
  ExpectSameButData(copy, src);
  EXPECT_EQ(src.m_data, bytes);
}

TEST(DtRawTagData, AssignmentCopiesEverythingButTheBytes) {
  UINT8 bytes[20] = {};
  UINT8 other[4] = {};
  const DtRawTagData src = Filled(bytes);
  DtRawTagData target;
  target.m_data = other;  // replaced by null, not freed
  target = src;
  ExpectSameButData(target, src);
}

TEST(DtRawTagData, DestroyingACopyLeavesTheSourceBytesIntact) {
  std::unique_ptr<UINT8[]> bytes(new UINT8[4]{1, 2, 3, 4});
  DtRawTagData src = Filled(bytes.get());
  src.m_size = 4;
  {
    std::unique_ptr<DtRawTagData> copy(new DtRawTagData(src));
    copy->m_data = nullptr;
  }
  ASSERT_EQ(src.m_data, bytes.get());
  EXPECT_EQ(src.m_data[0], 1);
  EXPECT_EQ(src.m_data[3], 4);
}

TEST(DtRawTagData, DestructorDoesNotFreeTheBytes) {
  // The array stays the holder's; ASan would report a double delete below if
  // the destructor freed it.
  UINT8* bytes = new UINT8[3]{7, 8, 9};
  {
    DtRawTagData t;
    t.m_data = bytes;
    t.m_size = 3;
  }
  EXPECT_EQ(bytes[2], 9);
  delete[] bytes;
}

TEST(DtRawTagData, AssignmentToItselfChangesNothing) {
  UINT8 bytes[20] = {};
  DtRawTagData t = Filled(bytes);
  t.m_data = bytes;
  DtRawTagData& alias = t;
  t = alias;
  t.copy(t);
  EXPECT_EQ(t.m_data, bytes);
  EXPECT_EQ(t.m_tagId, 0x9003);
  EXPECT_EQ(t.m_size, 20u);
}

TEST(DtRawTagData, CategoriesHaveTheirFixedValues) {
  EXPECT_EQ(DtRawTagCategoryIfd0, 0u);
  EXPECT_EQ(DtRawTagCategoryIfd1, 1u);
  EXPECT_EQ(DtRawTagCategoryExif, 2u);
  EXPECT_EQ(DtRawTagCategoryIob, 3u);
  EXPECT_EQ(DtRawTagCategoryMakerNote, 4u);
  EXPECT_EQ(DtRawTagCategoryKmMakerNote, 5u);
}

}  // namespace
