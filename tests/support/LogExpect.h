// LogExpect.h - builds the exact text of the library's diagnostic lines, and
// captures standard error around a statement, for byte-for-byte assertions.
//
//   std::string err = kpztest::CaptureStderr([&] { io.Open("/nope", "rb"); });
//   EXPECT_EQ(err, kpztest::ErrLine("jni/util/io/DtNlFileIo.cpp", "Open", 77,
//                                   "fopen(filePath: /nope) err(2)."));
#ifndef KPZ_TESTS_SUPPORT_LOGEXPECT_H
#define KPZ_TESTS_SUPPORT_LOGEXPECT_H

#include <functional>
#include <string>

namespace kpztest {

// One logger line: colour, level tag, " [file::function:line]: ", message, reset, newline.
std::string LogLine(const std::string& colour, const std::string& level, const std::string& file,
                    const std::string& function, int line, const std::string& message);
std::string InfoLine(const std::string& file, const std::string& function, int line,
                     const std::string& message);
std::string WarnLine(const std::string& file, const std::string& function, int line,
                     const std::string& message);
std::string ErrLine(const std::string& file, const std::string& function, int line,
                    const std::string& message);

// The three lines a failed assertion prints (banner, assertion line, banner).
std::string AssertText(const std::string& file, const std::string& function, int line,
                       const std::string& message);

// Runs `body` with standard error redirected and returns everything written to it.
std::string CaptureStderr(const std::function<void()>& body);

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_LOGEXPECT_H
