// KpzBeneathTest.cpp - names opened beneath a directory (kit/kpz/KpzBeneath),
// by openat2 where the kernel has it and by the O_NOFOLLOW walk.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzBeneath.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace {

class KpzBeneathTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/kpz-beneath-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    m_base = tmpl;
    ASSERT_EQ(mkdir((m_base + "/root").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((m_base + "/root/sub").c_str(), 0700), 0);
    write(m_base + "/root/sub/a.kpz");
    write(m_base + "/secret.kpz");
    ASSERT_EQ(symlink("../secret.kpz", (m_base + "/root/out.kpz").c_str()), 0);
    ASSERT_EQ(symlink("/", (m_base + "/root/slash").c_str()), 0);
    ASSERT_EQ(symlink("sub/a.kpz", (m_base + "/root/in.kpz").c_str()), 0);
    m_root = open((m_base + "/root").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_GE(m_root, 0);
  }
  void TearDown() override {
    close(m_root);
    const std::string rm = "rm -rf '" + m_base + "'";
    ASSERT_EQ(std::system(rm.c_str()), 0);
  }
  static void write(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ASSERT_GE(fd, 0);
    close(fd);
  }
  int openIt(const std::string& name, int* err) {
    return GetParam() ? KpzBeneath::OpenByWalk(m_root, name, O_RDONLY, err)
                      : KpzBeneath::Open(m_root, name, O_RDONLY, err);
  }

  std::string m_base;
  int m_root = -1;
};

TEST_P(KpzBeneathTest, OpensAFileBeneath) {
  int err = 0;
  const int fd = openIt("sub/a.kpz", &err);
  ASSERT_GE(fd, 0) << err;
  close(fd);
}

TEST_P(KpzBeneathTest, RefusesDotDotBeforeOpening) {
  int err = 0;
  EXPECT_LT(openIt("../secret.kpz", &err), 0);
  EXPECT_EQ(err, EINVAL);
  EXPECT_LT(openIt("sub/../../secret.kpz", &err), 0);
  EXPECT_LT(openIt("/etc/passwd", &err), 0);
  EXPECT_LT(openIt("sub//a.kpz", &err), 0);
  EXPECT_LT(openIt("./sub/a.kpz", &err), 0);
}

TEST_P(KpzBeneathTest, RefusesALinkLeadingOut) {
  int err = 0;
  EXPECT_LT(openIt("out.kpz", &err), 0);
  EXPECT_NE(err, 0);
  EXPECT_LT(openIt("slash/etc/passwd", &err), 0);
}

TEST_P(KpzBeneathTest, ALinkInsideFollowsOnlyWithOpenat2) {
  int err = 0;
  const int fd = openIt("in.kpz", &err);
  if (GetParam()) {
    EXPECT_LT(fd, 0);  // the walk follows no link at all
    EXPECT_EQ(err, ELOOP);
  } else if (fd >= 0) {
    close(fd);
  } else {
    EXPECT_EQ(err, ELOOP);  // a kernel without openat2
  }
}

TEST_P(KpzBeneathTest, AMissingNameIsENOENT) {
  int err = 0;
  EXPECT_LT(openIt("sub/none.kpz", &err), 0);
  EXPECT_EQ(err, ENOENT);
}

TEST(KpzBeneath, WellFormedNames) {
  EXPECT_TRUE(KpzBeneath::WellFormed(""));
  EXPECT_TRUE(KpzBeneath::WellFormed("a/b.kpz"));
  EXPECT_TRUE(KpzBeneath::WellFormed("..a/b..kpz"));
  EXPECT_FALSE(KpzBeneath::WellFormed("a/"));
  EXPECT_FALSE(KpzBeneath::WellFormed("/a"));
  EXPECT_FALSE(KpzBeneath::WellFormed("a/./b"));
  EXPECT_FALSE(KpzBeneath::WellFormed(std::string("a\0b", 3)));
}

INSTANTIATE_TEST_SUITE_P(OpenAndWalk, KpzBeneathTest, ::testing::Bool());

}  // namespace

#else
TEST(KpzBeneath, SkippedWithoutTheKit) { GTEST_SKIP() << "the kit is not built"; }
#endif
