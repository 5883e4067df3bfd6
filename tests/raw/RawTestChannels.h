// RawTestChannels.h - runs the raw layer's parser and engine tests over both
// channels (memory and file) and both byte orders.
//
// A kpztest::RawStream puts the given bytes behind a DtNlDataStream: either a
// DtNlBuffIo over an exact-size heap copy (so that AddressSanitizer sees any
// read outside the bytes) or a DtNlFileIo over a temporary file. Tests take a
// kpztest::RawParam from testing::WithParamInterface and instantiate with
// kpztest::AllRawParams() and kpztest::RawParamName.
//
//   class MyTest : public testing::TestWithParam<kpztest::RawParam> {};
//   TEST_P(MyTest, Works) {
//     kpztest::RawStream s(GetParam().channel, bytes);
//     parser.Parse(s.Get(), 0, 8, GetParam().order);
//   }
//   INSTANTIATE_TEST_SUITE_P(All, MyTest, kpztest::AllRawParams(), kpztest::RawParamName);
//
// Pointer members of RawStream: all owned (unique_ptr); the stream borrows the
// channel, which borrows the byte copy.
#ifndef KPZ_TESTS_RAW_RAWTESTCHANNELS_H
#define KPZ_TESTS_RAW_RAWTESTCHANNELS_H

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "support/KpzFileBuilder.h"
#include "util/DtNlDataUtil.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlDataStream.h"
#include "util/io/DtNlFileIo.h"

namespace kpztest {

enum class RawChannel { Memory, File };

struct RawParam {
  RawChannel channel;
  DtNlByteOrder order;
};

inline testing::internal::ParamGenerator<RawParam> AllRawParams() {
  return testing::Values(
      RawParam{RawChannel::Memory, DtNlBigEndian}, RawParam{RawChannel::Memory, DtNlLittleEndian},
      RawParam{RawChannel::File, DtNlBigEndian}, RawParam{RawChannel::File, DtNlLittleEndian});
}

inline std::string RawParamName(const testing::TestParamInfo<RawParam>& p) {
  return std::string(p.param.channel == RawChannel::Memory ? "Memory" : "File") +
         (p.param.order == DtNlBigEndian ? "Big" : "Little");
}

// The file channel logs its own failures; these are the names of its lines.
inline const char* FileIoSource() { return "jni/util/io/DtNlFileIo.cpp"; }

class RawStream {
 public:
  RawStream(RawChannel channel, const Bytes& bytes) : m_size(static_cast<UINT>(bytes.size())) {
    if (channel == RawChannel::Memory) {
      // At least one byte so that the copy has an address; m_size stays exact.
      m_copy.reset(new UINT8[bytes.empty() ? 1 : bytes.size()]);
      if (!bytes.empty()) std::memcpy(m_copy.get(), bytes.data(), bytes.size());
      std::unique_ptr<DtNlBuffIo> io(new DtNlBuffIo());
      m_openResult = io->Open(m_copy.get(), m_size);
      m_io = std::move(io);
    } else {
      m_dir.reset(new TempDir());
      m_path = m_dir->Write("raw.kpz", bytes);
      std::unique_ptr<DtNlFileIo> io(new DtNlFileIo());
      m_openResult = io->Open(m_path.c_str(), "rb");
      m_io = std::move(io);
    }
    m_stream.reset(new DtNlDataStream(m_io.get()));
  }
  ~RawStream() {
    m_stream.reset();
    m_io.reset();
  }
  RawStream(const RawStream&) = delete;
  RawStream& operator=(const RawStream&) = delete;

  DtNlDataStream* Get() const { return m_stream.get(); }
  DtNlIo* Io() const { return m_io.get(); }
  int OpenResult() const { return m_openResult; }
  UINT Size() const { return m_size; }

 private:
  UINT m_size;
  std::unique_ptr<UINT8[]> m_copy;  // memory channel's bytes
  std::unique_ptr<TempDir> m_dir;   // file channel's directory
  std::string m_path;
  std::unique_ptr<DtNlIo> m_io;
  std::unique_ptr<DtNlDataStream> m_stream;
  int m_openResult = -1;
};

}  // namespace kpztest

#endif  // KPZ_TESTS_RAW_RAWTESTCHANNELS_H
