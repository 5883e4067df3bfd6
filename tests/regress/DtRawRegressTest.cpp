// Regression cases for DtRaw found by fuzzing: each finding is one named test
// whose input is described with the test-data builder.
//
// UpdateNeverWritesPastTheEndOfAShortFile: a file shorter than the 64 KiB
// head copy whose IFD1 DateTime points into the zero-filled part of the copy.
// The parse reads zeros there, SetRotationInfo queues IFD0's DateTime for it
// (the two differ), and Update wrote the 20 bytes at that position: past the
// file's end, growing a 646-byte file to 32,788 bytes. Update now refuses a
// change that does not lie wholly in the file, like a failed seek (-305),
// after writing the changes queued before it.
#include "raw/DtRaw.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstddef>
#include <string>

#include "raw/DtRawError.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::Ifd;
using kpztest::KpzSpec;

long long FileSize(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}

// IFD1's DateTime (20 bytes, ASCII) at absolute offset 0x8000, with no bytes
// written there: the file ends long before it.
Bytes DateTimePastTheEnd(DtNlByteOrder order) {
  KpzSpec description;
  description.order = order;
  description.editIfd1 = [](Ifd& ifd1) {
    ifd1.AddAt(kpztest::tag::kDateTime, kpztest::kTiffAscii, 20, Bytes(), 0x8000);
  };
  return kpztest::BuildKpz(description);
}

TEST(DtRawRegress, SetRotationInfoLeavesAShortFileUntouched) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    const Bytes bytes = DateTimePastTheEnd(order);
    ASSERT_LT(bytes.size(), 0x8000u);
    kpztest::TempDir dir;
    const std::string path = dir.Write("short.kpz", bytes);
    DtRaw raw;
    int set = 1;
    (void)kpztest::CaptureStderr([&] {
      ASSERT_EQ(raw.Initialize(path.c_str()), DtRawOk);
      set = raw.SetRotationInfo(1);
    });
    EXPECT_EQ(set, DtRawOk);
    EXPECT_EQ(FileSize(path), static_cast<long long>(bytes.size()));
  }
}

TEST(DtRawRegress, UpdateNeverWritesPastTheEndOfAShortFile) {
  for (DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    const Bytes bytes = DateTimePastTheEnd(order);
    kpztest::TempDir dir;
    const std::string path = dir.Write("short.kpz", bytes);
    DtRaw raw;
    int updated = 0;
    const std::string err = kpztest::CaptureStderr([&] {
      ASSERT_EQ(raw.Initialize(path.c_str()), DtRawOk);
      ASSERT_EQ(raw.SetRotationInfo(1), DtRawOk);
      updated = raw.Update(nullptr);
    });
    EXPECT_EQ(updated, DtRawErrSeek);
    EXPECT_NE(err.find("[Raw:Update]: Value past the end of the file!! offset=32768 size=20 "
                       "fileSize=" + std::to_string(bytes.size())),
              std::string::npos)
        << err;
    // The file keeps its size; the orientations queued before the refused
    // change were written, and the parsed copy follows them.
    EXPECT_EQ(FileSize(path), static_cast<long long>(bytes.size()));
    const Bytes after = kpztest::ReadFileBytes(path);
    ASSERT_EQ(after.size(), bytes.size());
    std::size_t changed = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) changed += (after[i] != bytes[i]) ? 1u : 0u;
    EXPECT_GT(changed, 0u);
    EXPECT_LE(changed, 2u);  // 1 -> 6 in each 2-byte orientation: one byte each
    unsigned char rotation = 0;
    (void)kpztest::CaptureStderr([&] { EXPECT_EQ(raw.GetRotationInfo(&rotation), DtRawOk); });
    EXPECT_EQ(rotation, 1);
  }
}

}  // namespace
