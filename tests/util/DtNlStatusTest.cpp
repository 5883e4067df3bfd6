#include "util/DtNlStatus.h"

#include <gtest/gtest.h>

namespace {

TEST(DtNlStatus, DefaultStateIsSuccessWithBothFieldsZero) {
  DtNlStatus s;
  EXPECT_EQ(s.errCode, DtNlErrNone);
  EXPECT_EQ(s.sysErrNo, 0);
  EXPECT_FALSE(s.IsFailure());
  EXPECT_TRUE(s.IsSuccess());
}

TEST(DtNlStatus, AssigningABareCodeDiscardsTheCapturedErrno) {
  DtNlStatus s;
  s.sysErrNo = 5;
  s = DtNlErrIo;
  EXPECT_EQ(s.errCode, DtNlErrIo);
  EXPECT_EQ(s.sysErrNo, 0);
}

TEST(DtNlStatus, CopyConstructionKeepsBothFields) {
  DtNlStatus s;
  s.errCode = DtNlErrSeek;
  s.sysErrNo = 22;
  DtNlStatus copy(s);
  EXPECT_EQ(copy.errCode, DtNlErrSeek);
  EXPECT_EQ(copy.sysErrNo, 22);
}

TEST(DtNlStatus, SelfAssignmentKeepsBothFields) {
  DtNlStatus s;
  s.errCode = DtNlErrRead;
  s.sysErrNo = 5;
  DtNlStatus& alias = s;
  s = alias;
  EXPECT_EQ(s.errCode, DtNlErrRead);
  EXPECT_EQ(s.sysErrNo, 5);
}

TEST(DtNlStatus, AssignmentCopiesBothFields) {
  DtNlStatus a;
  a.errCode = DtNlErrTell;
  a.sysErrNo = 9;
  DtNlStatus b;
  b = a;
  EXPECT_EQ(b.errCode, DtNlErrTell);
  EXPECT_EQ(b.sysErrNo, 9);
}

TEST(DtNlStatus, ClearResetsBothFields) {
  DtNlStatus s;
  s.errCode = DtNlErrOpen;
  s.sysErrNo = 13;
  s.Clear();
  EXPECT_EQ(s.errCode, DtNlErrNone);
  EXPECT_EQ(s.sysErrNo, 0);
}

TEST(DtNlStatus, ZeroCodeWithCapturedErrnoCountsAsFailure) {
  DtNlStatus s;
  s.sysErrNo = 2;
  EXPECT_TRUE(s.IsFailure());
}

TEST(DtNlStatus, NegativeCodeWithoutErrnoCountsAsFailure) {
  DtNlStatus s;
  s = DtNlErrNotSupported;
  EXPECT_TRUE(s.IsFailure());
}

TEST(DtNlStatus, CodesKeepTheirContractValues) {
  EXPECT_EQ(DtNlErrOpen, -1000);
  EXPECT_EQ(DtNlErrAlreadyOpen, -1001);
  EXPECT_EQ(DtNlErrClose, -1002);
  EXPECT_EQ(DtNlErrSeek, -1010);
  EXPECT_EQ(DtNlErrTell, -1011);
  EXPECT_EQ(DtNlErrRead, -1020);
  EXPECT_EQ(DtNlErrWrite, -1021);
  EXPECT_EQ(DtNlErrFlush, -1023);
  EXPECT_EQ(DtNlErrSync, -1025);
  EXPECT_EQ(DtNlErrMkFile, -1030);
  EXPECT_EQ(DtNlErrMkDir, -1031);
  EXPECT_EQ(DtNlErrRmFile, -1032);
  EXPECT_EQ(DtNlErrRmDir, -1033);
  EXPECT_EQ(DtNlErrDirBusy, -1034);
  EXPECT_EQ(DtNlErrRename, -1040);
  EXPECT_EQ(DtNlErrGetList, -1041);
  EXPECT_EQ(DtNlErrNotFound, -1050);
  EXPECT_EQ(DtNlErrStat, -1051);
  EXPECT_EQ(DtNlErrSetTime, -1052);
  EXPECT_EQ(DtNlErrChmod, -1053);
  EXPECT_EQ(DtNlErrNotSupported, -1198);
  EXPECT_EQ(DtNlErrIo, -1199);
  EXPECT_EQ(DtNlErrInvalidParam, -8999);
  EXPECT_EQ(DtNlErrNoMemory, -9999);
  EXPECT_EQ(sizeof(DtNlStatus), 8u);
}

}  // namespace
