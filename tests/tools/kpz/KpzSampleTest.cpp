// KpzSampleTest.cpp - where kpz finds the bundled sample (tools/kpz/KpzSample).
// That an installed kpz reads the installed sample is shown end to end by the
// install test (tests/package).
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_TOOL)

#include "kpz/KpzSample.h"

namespace {

TEST(KpzSample, InstalledSampleLiesInShareBesideTheBinDirectory) {
  EXPECT_EQ(KpzSample::BesideBinary("/opt/kpz/bin/kpz"), "/opt/kpz/share/kpz/sample.kpz");
  EXPECT_EQ(KpzSample::BesideBinary("/usr/bin/kpz"), "/usr/share/kpz/sample.kpz");
  EXPECT_EQ(KpzSample::BesideBinary("/bin/kpz"), "/share/kpz/sample.kpz");
  EXPECT_EQ(KpzSample::BesideBinary("bin/kpz"), "./share/kpz/sample.kpz");
}

TEST(KpzSample, BinaryOutsideABinDirectoryHasNoInstalledSample) {
  EXPECT_EQ(KpzSample::BesideBinary("/work/build/default/tools/kpz"), "");
  EXPECT_EQ(KpzSample::BesideBinary("/opt/kpz/sbin/kpz"), "");
  EXPECT_EQ(KpzSample::BesideBinary("kpz"), "");
  EXPECT_EQ(KpzSample::BesideBinary(""), "");
}

TEST(KpzSample, TestBinaryWithoutAnInstalledSampleGetsTheFallback) {
  // This test runs from the build tree, where no share/kpz lies beside it.
  EXPECT_EQ(KpzSample::Path("/the/source/tree/samples/sample.kpz"),
            "/the/source/tree/samples/sample.kpz");
}

}  // namespace

#else

TEST(KpzSample, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
