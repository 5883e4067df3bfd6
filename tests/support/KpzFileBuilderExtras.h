// KpzFileBuilderExtras.h - helpers for tests that change KPZ files in place
// (tests only): where a tag's value lies in a file image, the file's times
// and mode on disk, and the source line of a library log call inside one
// function.
//
//   kpztest::Bytes image = kpztest::BuildKpz(recipe, &where);
//   std::uint32_t at = kpztest::TagValueOffset(image, recipe.order, where.ifd0, 0x0112);
//   kpztest::SetFileTimes(path, 1000000000, 1100000000);
//   int line = kpztest::LogCallLineIn("jni/raw/DtRaw.cpp", "Update",
//                                     "Raw: Because it is a buffer mode, data cannot be updated.");
//
// The file helpers call stat/utime/chmod, which the fault seam wraps: call
// them only while no fault is armed (they show in the seam's call counts).
// No pointer members; every function is stateless.
#ifndef KPZ_TESTS_SUPPORT_KPZFILEBUILDEREXTRAS_H
#define KPZ_TESTS_SUPPORT_KPZFILEBUILDEREXTRAS_H

#include <cstdint>
#include <ctime>
#include <string>

#include "support/KpzFileBuilder.h"
#include "util/DtNlDataUtil.h"

namespace kpztest {

// Absolute offset of the 4-byte value field of the first entry with `tagId`
// in the directory at `ifdAt` of `image` (numbers in `order`); 0 when there
// is no such entry or the directory does not fit in the image.
std::uint32_t TagFieldOffset(const Bytes& image, DtNlByteOrder order, std::uint32_t ifdAt,
                             std::uint16_t tagId);
// Absolute offset of that entry's value bytes: the field itself for values of
// at most 4 bytes (count x unit size of the TIFF type), else the offset the
// field holds. 0 as above.
std::uint32_t TagValueOffset(const Bytes& image, DtNlByteOrder order, std::uint32_t ifdAt,
                             std::uint16_t tagId);

// `image` with `bytes` written over it at `at` (the image never grows).
Bytes Patched(Bytes image, std::uint32_t at, const Bytes& bytes);

// Access and modification times of a file on disk.
struct FileTimes {
  std::time_t access = 0;
  std::time_t modification = 0;
};
// utime(path, {access, modification}); false on failure.
bool SetFileTimes(const std::string& path, std::time_t access, std::time_t modification);
// The file's times; both -1 when stat fails.
FileTimes GetFileTimes(const std::string& path);
// The permission bits (st_mode & 07777); -1 when stat fails.
int FileMode(const std::string& path);
// chmod(path, mode); false on failure.
bool SetFileMode(const std::string& path, unsigned int mode);

// 1-based line of the `occurrence`-th (1-based) logging call with the format
// string `format` (as spelt in the source, escapes included) inside the
// definition of `function` (a line at column 0, not a comment, containing
// "::function(")
// in the repository file `relPath`. The line returned is the one holding
// __LINE__ (the call may continue over up to three lines). -1 when not found.
int LogCallLineIn(const std::string& relPath, const std::string& function,
                  const std::string& format, int occurrence = 1);

}  // namespace kpztest

#endif  // KPZ_TESTS_SUPPORT_KPZFILEBUILDEREXTRAS_H
