// Tests of DtRaw's lifecycle and loading: Initialize (path, string, file),
// InitializeBuf, Finalize, the head copy of the file, I/O failures of the
// head read (through the fault seam) and GetIobIndex. Every case runs over
// files built by kpztest::BuildKpz, in file and buffer mode, in both byte
// orders and for both model branches where the case applies.
#include "raw/DtRaw.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "raw/DtRawError.h"
#include "raw/DtRawTestUtil.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/LogExpect.h"
#include "util/DtNlString.h"
#include "util/io/DtNlFile.h"

namespace {

using dtrawtest::Loaded;
using dtrawtest::Mode;
using dtrawtest::RawInfo;
using kpztest::Bytes;
using kpztest::CaptureStderr;
using kpztest::KpzSpec;

const char* kEngCpp = "jni/raw/DtRawEng.cpp";
const char* kParserCpp = "jni/raw/parser/DtRawIFDParserBase.cpp";

KpzSpec Spec(DtNlByteOrder order, bool m372) {
  KpzSpec recipe;
  recipe.order = order;
  recipe.m372 = m372;
  return recipe;
}

std::string NotTiffLine() {
  return dtrawtest::OtherInfo(kEngCpp, "Parse", "[DtRawEng::Parse]: Not TIFF Byteorder err!!");
}

// The Iob index as GetIobIndex reports it, or the result code as text.
std::string IobIndex(DtRaw& raw) {
  const char* value = nullptr;
  int size = -1;
  const int result = raw.GetIobIndex(&value, &size);
  if (result != DtRawOk) {
    return "error " + std::to_string(result);
  }
  return std::string(value, static_cast<std::size_t>(size));
}

// Every query refuses with -201 and logs nothing.
void ExpectEmpty(DtRaw& raw) {
  std::string err = CaptureStderr([&] {
    const char* value = nullptr;
    int size = 0;
    DtRawScreennailInfo sn;
    DtRawThumbnailInfo tn;
    unsigned char rotation = 0;
    unsigned char buff[8] = {};
    EXPECT_EQ(raw.GetIobIndex(&value, &size), DtRawErrNotInit);
    EXPECT_EQ(raw.GetScreennailInfo(&sn), DtRawErrNotInit);
    EXPECT_EQ(raw.GetThumbnailInfo(&tn), DtRawErrNotInit);
    EXPECT_EQ(raw.GetThumbnailData(buff, sizeof buff), DtRawErrNotInit);
    EXPECT_EQ(raw.GetRotationInfo(&rotation), DtRawErrNotInit);
  });
  EXPECT_EQ(err, "");
}

// ---- Every mode, byte order and model branch -----------------------------

using Variant = std::tuple<DtNlByteOrder, bool, Mode>;

class DtRawLoad : public testing::TestWithParam<Variant> {
 protected:
  DtNlByteOrder Order() const { return std::get<0>(GetParam()); }
  bool M372() const { return std::get<1>(GetParam()); }
  Mode LoadMode() const { return std::get<2>(GetParam()); }
  KpzSpec MySpec() const { return Spec(Order(), M372()); }
};

TEST_P(DtRawLoad, InitializeSucceedsSilentlyAndAnswersFromTheParsedTags) {
  Loaded file(kpztest::BuildKpz(MySpec()));
  int result = -1;
  std::string err = CaptureStderr([&] { result = file.Load(LoadMode()); });
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
}

TEST_P(DtRawLoad, SecondInitializeReleasesTheFirstAndParsesAgain) {
  Loaded file(kpztest::BuildKpz(MySpec()));
  ASSERT_EQ(file.Load(LoadMode()), DtRawOk);
  ASSERT_EQ(file.Load(LoadMode()), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));

  // A different file in the same object replaces the first one's answers.
  KpzSpec other = MySpec();
  other.iobIndex = "THM";
  Loaded second(kpztest::BuildKpz(other));
  if (LoadMode() == Mode::File) {
    ASSERT_EQ(file.raw.Initialize(second.Path().c_str()), DtRawOk);
  } else {
    std::vector<unsigned char> bytes(second.Bytes());
    ASSERT_EQ(file.raw.InitializeBuf(bytes.data(), static_cast<int>(bytes.size())), DtRawOk);
    EXPECT_EQ(IobIndex(file.raw), std::string("THM\0", 4));
    file.raw.Finalize();  // before `bytes` goes
    return;
  }
  EXPECT_EQ(IobIndex(file.raw), std::string("THM\0", 4));
}

TEST_P(DtRawLoad, FinalizeEmptiesTheObjectAndMayBeRepeated) {
  Loaded file(kpztest::BuildKpz(MySpec()));
  ASSERT_EQ(file.Load(LoadMode()), DtRawOk);
  std::string err = CaptureStderr([&] {
    file.raw.Finalize();
    file.raw.Finalize();
  });
  EXPECT_EQ(err, "");
  ExpectEmpty(file.raw);
  // The object can be initialised again afterwards.
  ASSERT_EQ(file.Load(LoadMode()), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
}

TEST_P(DtRawLoad, NullPathEmptiesAnInitialisedObject) {
  Loaded file(kpztest::BuildKpz(MySpec()));
  ASSERT_EQ(file.Load(LoadMode()), DtRawOk);
  int result = 0;
  std::string err = CaptureStderr(
      [&] { result = file.raw.Initialize(static_cast<const char*>(nullptr)); });
  EXPECT_EQ(result, DtRawErrParam);
  EXPECT_EQ(err, "");
  ExpectEmpty(file.raw);
}

TEST_P(DtRawLoad, InitializeBufArgumentCheckLeavesTheEarlierStateInPlace) {
  Loaded file(kpztest::BuildKpz(MySpec()));
  ASSERT_EQ(file.Load(LoadMode()), DtRawOk);
  unsigned char other[16] = {};
  int nullBuffer = 0;
  int zeroSize = 0;
  std::string err = CaptureStderr([&] {
    nullBuffer = file.raw.InitializeBuf(nullptr, 16);
    zeroSize = file.raw.InitializeBuf(other, 0);
  });
  EXPECT_EQ(nullBuffer, DtRawErrParam);
  EXPECT_EQ(zeroSize, DtRawErrParam);
  EXPECT_EQ(err, "");
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
  // The head copy (or the caller's buffer) and the stream are still there.
  std::vector<unsigned char> thumb(32);
  CaptureStderr([&] { EXPECT_EQ(file.raw.GetThumbnailData(thumb.data(), 32), DtRawOk); });
  EXPECT_EQ(thumb, kpztest::FakeJpeg(32, 0x20));
}

TEST_P(DtRawLoad, ParseFailureIsReturnedUnchangedAndEmptiesTheObject) {
  Loaded good(kpztest::BuildKpz(MySpec()));
  ASSERT_EQ(good.Load(LoadMode()), DtRawOk);
  KpzSpec recipe = MySpec();
  recipe.m372 = false;
  recipe.model.reset();
  Loaded bad(kpztest::BuildKpz(recipe));
  std::vector<unsigned char> badBytes(bad.Bytes());
  int result = 0;
  std::string err = CaptureStderr([&] {
    if (LoadMode() == Mode::File) {
      result = good.raw.Initialize(bad.Path().c_str());
    } else {
      result = good.raw.InitializeBuf(badBytes.data(), static_cast<int>(badBytes.size()));
    }
  });
  EXPECT_EQ(result, DtRawErrFormat);
  EXPECT_EQ(err, dtrawtest::OtherInfo(kEngCpp, "Parse", "[DtRawEng::Parse]: not exist model name!!"));
  ExpectEmpty(good.raw);
}

std::string VariantName(const testing::TestParamInfo<Variant>& p) {
  return std::string(dtrawtest::OrderName(std::get<0>(p.param))) +
         (std::get<1>(p.param) ? "M372" : "OtherModel") +
         dtrawtest::ModeName(std::get<2>(p.param));
}

INSTANTIATE_TEST_SUITE_P(AllVariants, DtRawLoad,
                         testing::Combine(testing::Values(DtNlLittleEndian, DtNlBigEndian),
                                          testing::Bool(),
                                          testing::Values(Mode::File, Mode::Buffer)),
                         VariantName);

// ---- Lifecycle without a file --------------------------------------------

TEST(DtRaw, FreshObjectAnswersNotInitialised) {
  DtRaw raw;
  ExpectEmpty(raw);
}

TEST(DtRaw, FinalizeOnAnEmptyObjectIsHarmlessAnyNumberOfTimes) {
  DtRaw raw;
  std::string err = CaptureStderr([&] {
    raw.Finalize();
    raw.Finalize();
    raw.Finalize();
  });
  EXPECT_EQ(err, "");
  ExpectEmpty(raw);
}

TEST(DtRaw, NullPathOnAnEmptyObjectReturnsParam) {
  DtRaw raw;
  int result = 0;
  std::string err =
      CaptureStderr([&] { result = raw.Initialize(static_cast<const char*>(nullptr)); });
  EXPECT_EQ(result, DtRawErrParam);
  EXPECT_EQ(err, "");
  ExpectEmpty(raw);
}

TEST(DtRaw, InitializeBufArgumentCheckOnAnEmptyObjectLeavesItEmpty) {
  DtRaw raw;
  unsigned char byte = 0;
  EXPECT_EQ(raw.InitializeBuf(nullptr, 1), DtRawErrParam);
  EXPECT_EQ(raw.InitializeBuf(&byte, 0), DtRawErrParam);
  ExpectEmpty(raw);
}

TEST(DtRaw, InitializeAcceptsADtNlStringAndADtNlFile) {
  Loaded file(kpztest::BuildKpz(Spec(DtNlLittleEndian, false)));
  DtNlString path(file.Path().c_str());
  EXPECT_EQ(file.raw.Initialize(path), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));

  DtNlFile asFile(file.Path().c_str());
  EXPECT_EQ(file.raw.Initialize(asFile), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
  // The same DtNlFile again: the earlier state is released and parsed anew.
  EXPECT_EQ(file.raw.Initialize(asFile), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
}

TEST(DtRaw, FileModeAfterBufferModeAndBackWorks) {
  Loaded file(kpztest::BuildKpz(Spec(DtNlBigEndian, true)));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
}

// ---- Buffer mode ownership -----------------------------------------------

TEST(DtRaw, BufferModeNeverFreesTheCallersBuffer) {
  const Bytes bytes = kpztest::BuildKpz(Spec(DtNlLittleEndian, false));
  unsigned char* heap = new unsigned char[bytes.size()];
  std::memcpy(heap, bytes.data(), bytes.size());
  {
    DtRaw raw;
    ASSERT_EQ(raw.InitializeBuf(heap, static_cast<int>(bytes.size())), DtRawOk);
    raw.Finalize();
    // Still ours: readable and writable (a sanitizer build reports any misuse).
    EXPECT_EQ(std::memcmp(heap, bytes.data(), bytes.size()), 0);
    ASSERT_EQ(raw.InitializeBuf(heap, static_cast<int>(bytes.size())), DtRawOk);
  }  // the destructor finalises the second initialisation
  heap[0] = bytes[0];
  EXPECT_EQ(std::memcmp(heap, bytes.data(), bytes.size()), 0);
  delete[] heap;  // a double free would be reported here
}

TEST(DtRaw, NegativeBufferSizeIsNotRejected) {
  // Taken as an unsigned size: the caller vouches for the bytes; the parse
  // here reads only within the real file.
  Bytes bytes = kpztest::BuildKpz(Spec(DtNlLittleEndian, false));
  DtRaw raw;
  EXPECT_EQ(raw.InitializeBuf(bytes.data(), -1), DtRawOk);
  EXPECT_EQ(IobIndex(raw), std::string("R98\0", 4));
}

// ---- The head copy ----------------------------------------------------------

TEST(DtRaw, ShortFileIsFollowedByZerosInTheHeadCopy) {
  // A first, full-size file leaves pattern bytes in the heap block that the
  // next head copy is likely to reuse.
  KpzSpec big = Spec(DtNlLittleEndian, false);
  big.minTotalSize = DtRaw::READ_SIZE;
  Loaded first(kpztest::BuildKpz(big));
  ASSERT_EQ(first.Load(Mode::File), DtRawOk);
  first.raw.Finalize();

  // The Iob index of the short file points at 8 bytes past the file's end.
  const std::uint32_t dangling = 0x0F00;
  KpzSpec recipe = Spec(DtNlLittleEndian, false);
  recipe.editIob = [&](kpztest::Ifd& iob) {
    iob.Remove(kpztest::tag::kIobIndex);
    iob.AddAt(kpztest::tag::kIobIndex, kpztest::kTiffAscii, 8, Bytes(), dangling);
  };
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_LT(file.Bytes().size(), dangling);
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string(8, '\0'));
}

// What a file-mode initialisation reports: result, screennail and log.
struct HeadOutcome {
  int result = 0;
  int infoResult = 0;
  DtRawScreennailInfo info{};
  std::string log;
};

HeadOutcome InitializeAndLocate(const std::string& path) {
  HeadOutcome o;
  o.log = CaptureStderr([&] {
    DtRaw raw;
    o.result = raw.Initialize(path.c_str());
    o.infoResult = raw.GetScreennailInfo(&o.info);
    kpztest::DisarmAll();  // the capture reads its file through stdio
  });
  return o;
}

TEST(DtRaw, HeadAlreadyInMemoryIsReadInOneCallWithoutHints) {
  kpztest::TempDir dir;
  KpzSpec recipe = Spec(DtNlLittleEndian, false);
  recipe.minTotalSize = 3 * DtRaw::READ_SIZE;
  const std::string path = dir.Write("w.kpz", kpztest::BuildKpz(recipe));
  if (!kpztest::ReadsWithoutWaiting(path)) {
    GTEST_SKIP() << "no reads without waiting here: every head is read as from a cold disk";
  }
  kpztest::FaultGuard guard;
  const HeadOutcome o = InitializeAndLocate(path);
  ASSERT_EQ(o.result, DtRawOk);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Preadv2), 1);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 0);
  EXPECT_TRUE(kpztest::FadviseCalls().empty());
}

TEST(DtRaw, HeadFromADiskIsReadAloneWithoutReadahead) {
  kpztest::TempDir dir;
  KpzSpec recipe = Spec(DtNlLittleEndian, false);
  recipe.minTotalSize = 3 * DtRaw::READ_SIZE;
  const std::string path = dir.Write("h.kpz", kpztest::BuildKpz(recipe));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Preadv2, EAGAIN, 0, 100);  // nothing in memory, as on a cold disk
  const HeadOutcome o = InitializeAndLocate(path);
  ASSERT_EQ(o.result, DtRawOk);
  const std::vector<kpztest::FadviseCall> calls = kpztest::FadviseCalls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].offset, 0);
  EXPECT_EQ(calls[0].length, 0);
  EXPECT_EQ(calls[0].advice, POSIX_FADV_RANDOM);
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 1);  // the head in one read
}

TEST(DtRaw, RefusedReadHintsChangeNoResultAndNoLogLine) {
  kpztest::TempDir dir;
  for (const bool m372 : {false, true}) {
    const std::string path =
        dir.Write(m372 ? "m.kpz" : "o.kpz", kpztest::BuildKpz(Spec(DtNlBigEndian, m372)));
    const std::string missing = dir.Path() + "/missing.kpz";
    for (const std::string& p : {path, missing}) {
      kpztest::FaultGuard guard;
      const HeadOutcome plain = InitializeAndLocate(p);
      kpztest::ResetCounts();
      kpztest::Arm(kpztest::Call::Preadv2, EAGAIN, 0, 100);  // the hint is asked for
      kpztest::Arm(kpztest::Call::Fadvise, EINVAL, 0, 100);  // and refused
      const HeadOutcome refused = InitializeAndLocate(p);
      EXPECT_EQ(refused.result, plain.result) << p;
      EXPECT_EQ(refused.infoResult, plain.infoResult) << p;
      EXPECT_EQ(refused.info.m_fileOffset, plain.info.m_fileOffset);
      EXPECT_EQ(refused.info.m_size, plain.info.m_size);
      EXPECT_EQ(refused.info.m_horizon, plain.info.m_horizon);
      EXPECT_EQ(refused.info.m_vertical, plain.info.m_vertical);
      EXPECT_EQ(refused.log, plain.log);
      EXPECT_EQ(plain.result == DtRawOk, p == path);
      EXPECT_EQ(kpztest::CallCount(kpztest::Call::Fadvise), p == path ? 1 : 0);
    }
  }
}

TEST(DtRaw, EmptyFileFailsInTheParseOverZeros) {
  Loaded file(Bytes{});
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.Load(Mode::File); });
  EXPECT_EQ(result, DtRawErrNotTiff);
  EXPECT_EQ(err, NotTiffLine());
  ExpectEmpty(file.raw);
}

TEST(DtRaw, MissingFileReportsNotFoundAndLogsTheOpen) {
  kpztest::TempDir dir;
  const std::string path = dir.Path() + "/missing.kpz";
  DtRaw raw;
  int result = 0;
  std::string err = CaptureStderr([&] { result = raw.Initialize(path.c_str()); });
  EXPECT_EQ(result, DtRawErrNotFound);
  EXPECT_EQ(err, dtrawtest::FopenErr(path, ENOENT) +
                     RawInfo("readBuff", "[DtRaw::readBuff]: Open Err!! %s",
                             "[DtRaw::readBuff]: Open Err!! " + path));
  ExpectEmpty(raw);
}

TEST(DtRaw, DirectoryPathFailsInTheParseOverZeros) {
  // A directory opens for reading but yields no bytes; the read error is
  // dropped because the close succeeds, so the parse sees only zeros.
  kpztest::TempDir dir;
  DtRaw raw;
  int result = 0;
  std::string err = CaptureStderr([&] { result = raw.Initialize(dir.Path().c_str()); });
  EXPECT_EQ(result, DtRawErrNotTiff);
  EXPECT_EQ(err, NotTiffLine());
  ExpectEmpty(raw);
}

TEST(DtRaw, DirectoryBeyondTheHeadFailsInTheParseInFileModeOnly) {
  // The maker note stays where the layout put it (its values still point at
  // its data area there); a copy of it is placed past the head, and the Exif
  // pointer names the copy.
  const std::uint32_t far = DtRaw::READ_SIZE + 0x10;
  KpzSpec recipe = Spec(DtNlLittleEndian, false);
  recipe.makerNotePointer = far;
  // Grown past 32 bytes, so that the Exif IFD keeps it by position only.
  recipe.editMakerNote = [](kpztest::Ifd& mn) { mn.AddUndefined(0x0001, Bytes(24, 0x5A)); };
  kpztest::KpzLayout where;
  Bytes moved = kpztest::BuildKpz(recipe, &where);
  moved.resize(far + where.makerNoteSize + 16, 0);
  std::memcpy(&moved[far], &moved[where.makerNote], where.makerNoteSize);

  Loaded file(moved);
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.Load(Mode::File); });
  EXPECT_EQ(result, DtRawErrRead);
  EXPECT_EQ(err, dtrawtest::OtherInfo(kParserCpp, "parse", "DtRawIFDParserBase: Read Dir Num Err!!") +
                     dtrawtest::OtherInfo(kEngCpp, "parseKaviMakerNote",
                                          "[DtRawEng::pKMN]: maker note parse err!!"));
  ExpectEmpty(file.raw);

  // The caller's buffer has no such limit.
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  DtRawScreennailInfo info;
  CaptureStderr([&] { EXPECT_EQ(file.raw.GetScreennailInfo(&info), DtRawOk); });
  EXPECT_EQ(info.m_horizon, 1616);
  EXPECT_EQ(info.m_vertical, 1080);
}

// ---- I/O failures of the head read ----------------------------------------

struct OpenFault {
  int err;
  int expected;
};

class DtRawOpenFault : public testing::TestWithParam<OpenFault> {};

TEST_P(DtRawOpenFault, OpenFailureIsMappedAndEmptiesTheObject) {
  Loaded file(kpztest::BuildKpz(Spec(DtNlBigEndian, false)));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fopen, GetParam().err);
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.Load(Mode::File); });
  EXPECT_EQ(result, GetParam().expected);
  EXPECT_EQ(err, dtrawtest::FopenErr(file.Path(), GetParam().err) +
                     RawInfo("readBuff", "[DtRaw::readBuff]: Open Err!! %s",
                             "[DtRaw::readBuff]: Open Err!! " + file.Path()));
  ExpectEmpty(file.raw);
}

INSTANTIATE_TEST_SUITE_P(Errnos, DtRawOpenFault,
                         testing::Values(OpenFault{ENOENT, DtRawErrNotFound},
                                         OpenFault{EIO, DtRawErrIo},
                                         OpenFault{EACCES, DtRawErrOpen}));

struct CloseFault {
  int err;
  int expected;
};

class DtRawCloseFault : public testing::TestWithParam<CloseFault> {};

TEST_P(DtRawCloseFault, CloseFailureOfTheHeadIsMappedAndEmptiesTheObject) {
  Loaded file(kpztest::BuildKpz(Spec(DtNlLittleEndian, true)));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Fclose, GetParam().err);
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.Load(Mode::File); });
  EXPECT_EQ(result, GetParam().expected);
  EXPECT_EQ(err, dtrawtest::FcloseErr(GetParam().err));
  ExpectEmpty(file.raw);
}

INSTANTIATE_TEST_SUITE_P(Errnos, DtRawCloseFault,
                         testing::Values(CloseFault{EIO, DtRawErrIo},
                                         CloseFault{EBADF, DtRawErrClose}));

TEST(DtRaw, ReadErrorIsDroppedWhenTheCloseSucceeds) {
  Loaded file(kpztest::BuildKpz(Spec(DtNlLittleEndian, false)));
  // Shorter than the head: the read that finds its end is a second one.
  ASSERT_LT(file.Bytes().size(), static_cast<std::size_t>(DtRaw::READ_SIZE));
  kpztest::FaultGuard guard;
  // The whole file arrives, then the read reports an I/O error.
  kpztest::Arm(kpztest::Call::Pread, EIO, 1, 1);
  int result = -1;
  std::string err = CaptureStderr([&] { result = file.Load(Mode::File); });
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 2);  // the failing one included
  EXPECT_EQ(result, DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(IobIndex(file.raw), std::string("R98\0", 4));
}

TEST(DtRaw, ReadErrorBeforeAnyByteLeavesZerosForTheParse) {
  Loaded file(kpztest::BuildKpz(Spec(DtNlBigEndian, false)));
  kpztest::FaultGuard guard;
  kpztest::Arm(kpztest::Call::Pread, EIO, 0, 1);
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.Load(Mode::File); });
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Pread), 1);
  EXPECT_EQ(result, DtRawErrNotTiff);
  EXPECT_EQ(err, NotTiffLine());
  ExpectEmpty(file.raw);
}

// ---- GetIobIndex -------------------------------------------------------------

TEST(DtRaw, GetIobIndexRefusesNullOutputs) {
  // Deliberate: null outputs are refused with -200 instead of written through.
  Loaded file(kpztest::BuildKpz(Spec(DtNlLittleEndian, false)));
  ASSERT_EQ(file.Load(Mode::Buffer), DtRawOk);
  const char* value = nullptr;
  int size = 0;
  EXPECT_EQ(file.raw.GetIobIndex(nullptr, &size), DtRawErrParam);
  EXPECT_EQ(file.raw.GetIobIndex(&value, nullptr), DtRawErrParam);
}

TEST(DtRaw, GetIobIndexPointsIntoTheParsedTag) {
  KpzSpec recipe = Spec(DtNlBigEndian, true);
  recipe.iobIndex = std::string(31, 'x');  // 32 bytes with its zero: still kept
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  EXPECT_EQ(IobIndex(file.raw), std::string(31, 'x') + std::string(1, '\0'));
}

struct MissingIob {
  const char* name;
  bool hasIob;
  std::optional<std::string> index;
};

class DtRawMissingIob : public testing::TestWithParam<MissingIob> {};

TEST_P(DtRawMissingIob, GetIobIndexWithoutBytesReturnsNoData) {
  KpzSpec recipe = Spec(DtNlLittleEndian, false);
  recipe.hasIob = GetParam().hasIob;
  recipe.iobIndex = GetParam().index;
  Loaded file(kpztest::BuildKpz(recipe));
  ASSERT_EQ(file.Load(Mode::File), DtRawOk);
  const char* value = nullptr;
  int size = -7;
  int result = 0;
  std::string err = CaptureStderr([&] { result = file.raw.GetIobIndex(&value, &size); });
  EXPECT_EQ(result, DtRawErrNoData);
  EXPECT_EQ(err, RawInfo("GetIobIndex", "Raw: not exist iob index!!"));
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(size, -7);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DtRawMissingIob,
    testing::Values(MissingIob{"NoIobDirectory", false, std::string("R98")},
                    MissingIob{"NoIndexTag", true, std::nullopt},
                    MissingIob{"IndexLongerThanKept", true, std::string(40, 'y')}),
    [](const testing::TestParamInfo<MissingIob>& p) { return std::string(p.param.name); });

}  // namespace
