#include "raw/DtRawError.h"

#include <gtest/gtest.h>

namespace {

DtNlStatus StatusOf(DtNlErrCode code, INT32 sysErrNo) {
  DtNlStatus status;
  status = code;
  status.sysErrNo = sysErrNo;
  return status;
}

TEST(DtRawError, NotFoundStatusGivesNotFoundWhateverTheDefault) {
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrNotFound, 2), DtRawErrOpen), -302);
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrNotFound, 0), DtRawErrSeek), -302);
}

TEST(DtRawError, IoStatusGivesDeviceErrorWhateverTheDefault) {
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrIo, 5), DtRawErrRead), -399);
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrIo, 0), DtRawErrClose), -399);
}

TEST(DtRawError, OtherFailureGivesTheDefault) {
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrSeek, 22), DtRawErrSeek), -305);
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrSeek, 22), 12345), 12345);
  EXPECT_EQ(DtRawError::GetRawErr(StatusOf(DtNlErrRead, 14), DtRawErrRead), -307);
}

TEST(DtRawError, SuccessStatusAlsoGivesTheDefault) {
  EXPECT_EQ(DtRawError::GetRawErr(DtNlStatus(), DtRawErrRead), -307);
  EXPECT_EQ(DtRawError::GetRawErr(DtNlStatus(), DtRawOk), 0);
}

TEST(DtRawError, CodesKeepTheirFixedValues) {
  EXPECT_EQ(DtRawOk, 0);
  EXPECT_EQ(DtRawErrNoData, -100);
  EXPECT_EQ(DtRawErrFormat, -101);
  EXPECT_EQ(DtRawErrBufferMode, -102);
  EXPECT_EQ(DtRawErrParam, -200);
  EXPECT_EQ(DtRawErrNotInit, -201);
  EXPECT_EQ(DtRawErrOpen, -300);
  EXPECT_EQ(DtRawErrBuffOpen, -301);
  EXPECT_EQ(DtRawErrNotFound, -302);
  EXPECT_EQ(DtRawErrClose, -303);
  EXPECT_EQ(DtRawErrBuffClose, -304);
  EXPECT_EQ(DtRawErrSeek, -305);
  EXPECT_EQ(DtRawErrTell, -306);
  EXPECT_EQ(DtRawErrRead, -307);
  EXPECT_EQ(DtRawErrWrite, -308);
  EXPECT_EQ(DtRawErrReadOnly, -309);
  EXPECT_EQ(DtRawErrStat, -310);
  EXPECT_EQ(DtRawErrSetTime, -311);
  EXPECT_EQ(DtRawErrIo, -399);
  EXPECT_EQ(DtRawErrNotTiff, -400);
  EXPECT_EQ(DtRawErrExifVersion, -401);
  EXPECT_EQ(DtRawErrSize, -402);
  EXPECT_EQ(DtRawErrIobVersion, -403);
  EXPECT_EQ(sizeof(DtRawErrCode), 4u);
}

}  // namespace
