// KpzReadHintTest.cpp - the kpz tool's access hints (kit/kpz/KpzReadHint):
// what reaches posix_fadvise, what never does (an empty range, which the
// system would take as "to the end of the file"), and that a refusal is
// reported as such and leaves errno alone.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzReadHint.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"

namespace {

class KpzReadHintTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string path = dir.Write("f.kpz", kpztest::Bytes(10000, 0x5A));
    fd = ::open(path.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
  }
  void TearDown() override { ::close(fd); }

  kpztest::TempDir dir;
  int fd = -1;
};

TEST_F(KpzReadHintTest, WillNeedIsPassedOnForExactlyTheRange) {
  kpztest::FaultGuard guard;
  EXPECT_TRUE(KpzReadHint::WillNeed(fd, 1234, 5678));
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].fd, fd);
  EXPECT_EQ(calls[0].offset, 1234);
  EXPECT_EQ(calls[0].length, 5678);
  EXPECT_EQ(calls[0].advice, POSIX_FADV_WILLNEED);
}

TEST_F(KpzReadHintTest, EmptyOrUnreachableRangeIsNeverPassedOn) {
  kpztest::FaultGuard guard;
  EXPECT_FALSE(KpzReadHint::WillNeed(fd, 100, 0));
  EXPECT_FALSE(KpzReadHint::WillNeed(fd, UINT64_MAX, 10));
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), 0);
}

TEST_F(KpzReadHintTest, RangeBeyondTheLargestOffsetIsCutThere) {
  kpztest::FaultGuard guard;
  EXPECT_TRUE(KpzReadHint::WillNeed(fd, 100, UINT64_MAX));
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].offset, 100);
  EXPECT_EQ(calls[0].length, static_cast<long long>(std::numeric_limits<off_t>::max()) - 100);
}

TEST_F(KpzReadHintTest, RefusalIsReportedAndLeavesErrnoAlone) {
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fadvise, EINVAL, 0, 1);
  errno = 77;
  EXPECT_FALSE(KpzReadHint::WillNeed(fd, 0, 100));
  EXPECT_EQ(errno, 77);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), 1);
}

TEST_F(KpzReadHintTest, BadDescriptorIsRefusedByTheSystem) {
  EXPECT_FALSE(KpzReadHint::WillNeed(-1, 0, 100));
}

}  // namespace

#else

TEST(KpzReadHint, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
