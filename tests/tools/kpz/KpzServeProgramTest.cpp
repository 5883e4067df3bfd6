// KpzServeProgramTest.cpp - where kpz finds its server program
// (tools/kpz/KpzServeProgram). Handing it a command line is run end to end
// by tests/tools/KpzToolServeProgramTest.cpp and the server's tests.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzServeProgram.h"

namespace {

TEST(KpzServeProgram, TheProgramIsFoundFromTheBinarysOwnFolder) {
  EXPECT_EQ(KpzServeProgram::Beside("/opt/kpz/bin/kpz", "../libexec/kpz/kpz-serve"),
            "/opt/kpz/bin/../libexec/kpz/kpz-serve");
  EXPECT_EQ(KpzServeProgram::Beside("/kpz", "kpz-serve"), "/kpz-serve");
  EXPECT_EQ(KpzServeProgram::Beside("bin/kpz", "../libexec/kpz/kpz-serve"),
            "bin/../libexec/kpz/kpz-serve");
}

TEST(KpzServeProgram, AnAbsolutePlaceIsTakenAsItIs) {
  EXPECT_EQ(KpzServeProgram::Beside("/opt/kpz/bin/kpz", "/usr/libexec/kpz/kpz-serve"),
            "/usr/libexec/kpz/kpz-serve");
}

TEST(KpzServeProgram, NoPlaceOrNoFolderGivesNothing) {
  EXPECT_EQ(KpzServeProgram::Beside("/opt/kpz/bin/kpz", ""), "");
  EXPECT_EQ(KpzServeProgram::Beside("kpz", "../libexec/kpz/kpz-serve"), "");
  EXPECT_EQ(KpzServeProgram::Beside("", "kpz-serve"), "");
}

}  // namespace

#else

TEST(KpzServeProgram, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
