#include "util/DtNlLogger.h"

#include <gtest/gtest.h>

#include <cstdio>

#include <string>
#include <vector>

#include "support/LogExpect.h"

namespace {

using kpztest::CaptureStderr;

TEST(DtNlLogger, PutLogWritesOneFramedLineInTheCallersColour) {
  std::string err = CaptureStderr([] {
    DtNlLogger::PutLog("ERR ", "\033[31m", "jni/util/io/DtNlFileIo.cpp", "Open", 77,
                       "fopen(filePath: %s) err(%d).", "/x", 2);
  });
  EXPECT_EQ(err, "\033[31mERR  [jni/util/io/DtNlFileIo.cpp::Open:77]: "
                 "fopen(filePath: /x) err(2).\033[0m\n");
}

TEST(DtNlLogger, LevelMacrosPairTagsWithTheirColours) {
  std::string err = CaptureStderr([] {
    DtNlLogger::PutLog(DTNL_LV_INFO, "f", "g", 1, "i");
    DtNlLogger::PutLog(DTNL_LV_WARN, "f", "g", 2, "w");
    DtNlLogger::PutLog(DTNL_LV_ERR, "f", "g", 3, "e");
  });
  EXPECT_EQ(err, kpztest::InfoLine("f", "g", 1, "i") + kpztest::WarnLine("f", "g", 2, "w") +
                     kpztest::ErrLine("f", "g", 3, "e"));
}

TEST(DtNlLogger, LogMacroNamesTheSourcePathAndBareFunction) {
  int line = 0;
  std::string err = CaptureStderr([&] {
    line = __LINE__; DTNL_LOG(DTNL_LV_WARN, line, "value %u", 7u);
  });
  // The test file is compiled without the library's path mapping, so only the
  // shape is checked here; the library's own tests pin the mapped path.
  EXPECT_NE(err.find("DtNlLoggerTest.cpp::operator():" + std::to_string(line) + "]: value 7"),
            std::string::npos)
      << err;
}

TEST(DtNlLogger, LongMessageIsCutAt1022CharactersWithoutMark) {
  std::string message(2000, 'a');
  std::string err = CaptureStderr(
      [&] { DtNlLogger::PutLog("INFO", "\033[0m", "f", "g", 1, "%s", message.c_str()); });
  EXPECT_EQ(err, kpztest::InfoLine("f", "g", 1, std::string(1022, 'a')));
}

TEST(DtNlLogger, MessageOf1022CharactersIsPrintedWhole) {
  std::string message(1022, 'b');
  std::string err = CaptureStderr(
      [&] { DtNlLogger::PutLog("INFO", "\033[0m", "f", "g", 1, "%s", message.c_str()); });
  EXPECT_EQ(err, kpztest::InfoLine("f", "g", 1, message));
}

TEST(DtNlLogger, TextWithoutConversionsIsCutAt1022CharactersLikeAFormattedOne) {
  const std::string text(1500, 'c');
  std::string err = CaptureStderr([&] {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    DtNlLogger::PutLog("INFO", "\033[0m", "f", "g", 1, text.c_str());
#pragma GCC diagnostic pop
  });
  EXPECT_EQ(err, kpztest::InfoLine("f", "g", 1, std::string(1022, 'c')));
}

TEST(DtNlLogger, LineNumbersArePrintedAsPrintfPrintsThem) {
  const int lines[] = {0, 7, -1, 2147483647, -2147483647 - 1};
  for (const int line : lines) {
    std::string err = CaptureStderr(
        [&] { DtNlLogger::PutLog("WARN", "\033[33m", "f", "g", line, "x %d", 1); });
    char expected[128];
    std::snprintf(expected, sizeof expected, "\033[33mWARN [f::g:%d]: x 1\033[0m\n", line);
    EXPECT_EQ(err, expected) << line;
  }
}

TEST(DtNlLogger, VeryLongFileAndFunctionNamesArePrintedWhole) {
  const std::string file(900, 'f');
  const std::string function(300, 'g');
  std::string err = CaptureStderr([&] {
    DtNlLogger::PutLog("INFO", "\033[0m", file.c_str(), function.c_str(), 5, "m %s", "n");
  });
  EXPECT_EQ(err, kpztest::InfoLine(file, function, 5, "m n"));
}

TEST(DtNlLogger, NamesThatJustFitTheLineKeepALongMessageWhole) {
  // 960 bytes of names in all, and a message of the longest length kept.
  const std::string file(480, 'f');
  const std::string function(960 - 480 - 4 - 4, 'g');  // after "\033[0m" and "INFO"
  const std::string message(1022, 'm');
  std::string err = CaptureStderr([&] {
    DtNlLogger::PutLog("INFO", "\033[0m", file.c_str(), function.c_str(), -2147483647 - 1, "%s",
                       message.c_str());
  });
  EXPECT_EQ(err, kpztest::InfoLine(file, function, -2147483647 - 1, message));
}

TEST(DtNlLogger, AssertWithTrueConditionPrintsNothingAndReturns) {
  std::string err = CaptureStderr([] { DtNlLogger::Assert("f", "g", 1, 1, "never %d", 1); });
  EXPECT_EQ(err, "");
}

TEST(DtNlLoggerDeathTest, AssertWithFalseConditionAndEmptyFormatEndsWithStatus255) {
  EXPECT_EXIT(DtNlLogger::Assert("jni/util/DtNlUtil.cpp", "ReadBits", 42, 0, ""),
              testing::ExitedWithCode(255),
              testing::Eq(kpztest::AssertText("jni/util/DtNlUtil.cpp", "ReadBits", 42, "")));
}

TEST(DtNlLoggerDeathTest, AssertFormatsItsMessage) {
  EXPECT_EXIT(DtNlLogger::Assert("f", "Read1Bit", 9, 0, "offsetBit is %u", 8u),
              testing::ExitedWithCode(255),
              testing::Eq("###########################################################\n"
                          "## ASSERT!! [f::Read1Bit:9]: offsetBit is 8!!\n"
                          "###########################################################\n"));
}

TEST(DtNlLogger, DumpPrintsUpperCaseHexFieldsAfterTheTitleInWhite) {
  const UINT8 bytes[] = {0x01, 0xAB, 0xFF};
  std::string err = CaptureStderr([&] { DtNlLogger::PutDump("INFO", "f", "g", 5, "hdr:", bytes, 3); });
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "INFO", "f", "g", 5, "hdr:0x01 0xAB 0xFF "));
}

TEST(DtNlLogger, DumpOfNullDataPrintsNoneAfterTheTitle) {
  std::string err = CaptureStderr([] { DtNlLogger::PutDump("WARN", "f", "g", 5, "t", nullptr, 4); });
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "WARN", "f", "g", 5, "tnone"));
}

TEST(DtNlLogger, DumpOfZeroBytesPrintsTheTitleAlone) {
  const UINT8 bytes[] = {0x10};
  std::string err = CaptureStderr([&] { DtNlLogger::PutDump("INFO", "f", "g", 5, "t:", bytes, 0); });
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "INFO", "f", "g", 5, "t:"));
}

TEST(DtNlLogger, DumpStopsBeforeTheFieldThatReaches1024) {
  std::vector<UINT8> bytes(300, 0x5A);
  const std::string title = "0123456789";
  std::string err = CaptureStderr(
      [&] { DtNlLogger::PutDump("INFO", "f", "g", 5, title.c_str(), bytes.data(), 300); });
  std::string expected = title;
  for (int i = 0; i < 202; ++i) expected += "0x5A ";
  EXPECT_EQ(expected.size(), 1020u);
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "INFO", "f", "g", 5, expected));
}

TEST(DtNlLogger, DumpOfNullDataUnderNearlyFullTitleOmitsNone) {
  // 1,023 - 1,020 = 3 is not above 3: no room for "none".
  const std::string title(1020, 't');
  std::string err = CaptureStderr(
      [&] { DtNlLogger::PutDump("INFO", "f", "g", 5, title.c_str(), nullptr, 0); });
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "INFO", "f", "g", 5, title.substr(0, 1020)));
}

TEST(DtNlLogger, DumpOfNullDataUnderOverlongTitleIsBoundedByTheLine) {
  // The room computation wraps; the append is still bounded, and PutLog cuts
  // the message at 1,022 characters.
  const std::string title(1500, 'q');
  std::string err = CaptureStderr(
      [&] { DtNlLogger::PutDump("INFO", "f", "g", 5, title.c_str(), nullptr, 0); });
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "INFO", "f", "g", 5, std::string(1022, 'q')));
}

TEST(DtNlLogger, DumpUnderOverlongTitleAppendsNoByteField) {
  const std::string title(1500, 'q');
  const UINT8 bytes[] = {1, 2, 3};
  std::string err = CaptureStderr(
      [&] { DtNlLogger::PutDump("INFO", "f", "g", 5, title.c_str(), bytes, 3); });
  EXPECT_EQ(err, kpztest::LogLine("\033[37m", "INFO", "f", "g", 5, std::string(1022, 'q')));
}

}  // namespace
