#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "raw/DtRawEng.h"
#include "raw/DtRawError.h"
#include "raw/RawTestChannels.h"
#include "support/FaultInjection.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzFileBuilderExtras.h"
#include "support/LogExpect.h"

namespace {

using kpztest::Bytes;
using kpztest::CaptureStderr;
using kpztest::Ifd;
using kpztest::KpzLayout;
using kpztest::KpzSpec;
using kpztest::RawChannel;
using kpztest::RawStream;
namespace tag = kpztest::tag;

const char* const kSrc = "jni/raw/DtRawEng.cpp";
const int kLineFileSeek =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: File Seek Err!!");
const int kLineReadOrder =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: Read TIFF Byteorder err!!");
const int kLineNotOrder =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: Not TIFF Byteorder err!!");
const int kLineReadMarker =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: Read TIFF Marker err!!");
const int kLineNotMarker =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: Not TIFF Marker err!!");
const int kLineReadIfd0 =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: Read IFD0 offset err!!");
const int kLineNoModel =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: not exist model name!!");
const int kLineNoMakerNote =
    kpztest::LogCallLineIn(kSrc, "Parse", "[DtRawEng::Parse]: not exist maker note pointer!");
const int kLineIfd0Err =
    kpztest::LogCallLineIn(kSrc, "parseIFD", "[DtRawEng::parseIFD]: IFD0th parse err!!");
const int kLineIfd1Err =
    kpztest::LogCallLineIn(kSrc, "parseIFD", "[DtRawEng::parseIFD]: IFD1th parse err!!");
const int kLineExifErr =
    kpztest::LogCallLineIn(kSrc, "parseIFD", "[DtRawEng::parseIFD]: ExifIFD parse err!!");
const int kLineIobErr = kpztest::LogCallLineIn(
    kSrc, "parseIFD", "[DtRawEng::parseIFD]: Interoperability IFD parse err!!");
const int kLinePkmnSeek =
    kpztest::LogCallLineIn(kSrc, "parseKaviMakerNote", "[DtRawEng::pKMN]: File Seek Err!!");
const int kLinePkmnHeader = kpztest::LogCallLineIn(
    kSrc, "parseKaviMakerNote", "[DtRawEng::pKMN]: Read kavi maker note header Err!!");
const int kLinePkmnNotKavi = kpztest::LogCallLineIn(kSrc, "parseKaviMakerNote",
                                                    "[DtRawEng::pKMN]: maker note is not kavi!!");
const int kLinePkmnParse =
    kpztest::LogCallLineIn(kSrc, "parseKaviMakerNote", "[DtRawEng::pKMN]: maker note parse err!!");
const int kLineNoKm = kpztest::LogCallLineIn(
    kSrc, "parseKaviMakerNote", "DtRawEng: There is no km maker note pointer though it is M372!!");
const int kLineKmInvalid = kpztest::LogCallLineIn(
    kSrc, "parseKaviMakerNote", "DtRawEng: km maker note pointer is invalid, size=%d.");
const int kLineKmParse =
    kpztest::LogCallLineIn(kSrc, "parseKaviMakerNote", "DtRawEng: km maker note parse err!!");

const char* const kParserSrc = "jni/raw/parser/DtRawIFDParserBase.cpp";
const int kParserLineFileSeek =
    kpztest::LogCallLineIn(kParserSrc, "parse", "DtRawIFDParserBase: File Seek Err!!");
const int kParserLineDirNum =
    kpztest::LogCallLineIn(kParserSrc, "parse", "DtRawIFDParserBase: Read Dir Num Err!!");
const int kParserLineReadTag =
    kpztest::LogCallLineIn(kParserSrc, "parse", "DtRawIFDParserBase: Read Tag Err!!");

// Every parser pointer of `eng` is null.
void ExpectNoParsers(const DtRawEng& eng) {
  EXPECT_EQ(eng.m_ifd0Parser, nullptr);
  EXPECT_EQ(eng.m_ifd1Parser, nullptr);
  EXPECT_EQ(eng.m_exifParser, nullptr);
  EXPECT_EQ(eng.m_iobParser, nullptr);
  EXPECT_EQ(eng.m_makerNoteParser, nullptr);
  EXPECT_EQ(eng.m_kmMakerNoteParser, nullptr);
}

std::string Line(const char* function, int line, const std::string& message) {
  return kpztest::InfoLine(kSrc, function, line, message);
}
std::string ParseLine(int line, const std::string& message) { return Line("Parse", line, message); }
std::string IfdLine(int line, const std::string& message) {
  return Line("parseIFD", line, message);
}
std::string PkmnLine(int line, const std::string& message) {
  return Line("parseKaviMakerNote", line, message);
}
std::string DirNumErr() {
  return kpztest::InfoLine(kParserSrc, "parse", kParserLineDirNum,
                           "DtRawIFDParserBase: Read Dir Num Err!!");
}
std::string FseekErr(int err) {
  return kpztest::ErrLine(kpztest::FileIoSource(), "Seek", 267,
                          "fseek err(" + std::to_string(err) + ").");
}

Bytes DataOf(const DtRawTagData* t) {
  if (t == nullptr || t->m_data == nullptr) return Bytes();
  return Bytes(t->m_data, t->m_data + t->m_size);
}

class EngineChannels : public testing::TestWithParam<kpztest::RawParam> {
 protected:
  DtNlByteOrder Order() const { return GetParam().order; }
  RawChannel Channel() const { return GetParam().channel; }
  KpzSpec Spec() const {
    KpzSpec recipe;
    recipe.order = Order();
    return recipe;
  }
  // Parses `bytes` with `eng`; stderr in *err.
  int Run(DtRawEng* eng, const Bytes& bytes, std::string* err) {
    RawStream s(Channel(), bytes);
    EXPECT_EQ(s.OpenResult(), 0);
    int result = 1;
    *err = CaptureStderr([&] { result = eng->Parse(s.Get()); });
    return result;
  }
  int Run(DtRawEng* eng, const KpzSpec& recipe, std::string* err) {
    return Run(eng, kpztest::BuildKpz(recipe), err);
  }
  UINT32 U32Of(const DtRawTagData* t) const {
    return (t != nullptr && t->m_data != nullptr && t->m_size >= 4)
               ? DtNlDataUtil::U8ArrayToU32(t->m_data, Order())
               : 0xDEADBEEFu;
  }
};

TEST_P(EngineChannels, ValidFileParsesEveryDirectorySilently) {
  KpzSpec recipe = Spec();
  KpzLayout at;
  const Bytes bytes = kpztest::BuildKpz(recipe, &at);
  EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 4), Order() == DtNlLittleEndian
                                                         ? (Bytes{0x49, 0x49, 0x2A, 0x00})
                                                         : (Bytes{0x4D, 0x4D, 0x00, 0x2A}));
  DtRawEng eng;
  std::string err;
  ASSERT_EQ(Run(&eng, bytes, &err), DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_byteOrder, Order());
  EXPECT_EQ(eng.m_isM372, 0);
  EXPECT_EQ(U32Of(eng.getTagData(tag::kJpegOffset, eng.m_ifd0Parser)), at.screennail);
  EXPECT_EQ(U32Of(eng.getTagData(tag::kJpegLength, eng.m_ifd0Parser)), 64u);
  EXPECT_EQ(U32Of(eng.getTagData(tag::kJpegOffset, eng.m_ifd1Parser)), at.thumbnail);
  const DtRawTagData* mn = eng.getTagData(tag::kMakerNote, eng.m_exifParser);
  ASSERT_NE(mn, nullptr);
  EXPECT_EQ(mn->m_offset, at.makerNote);
  EXPECT_EQ(mn->m_size, at.makerNoteSize);
  EXPECT_EQ(DataOf(eng.getTagData(tag::kIobVersion, eng.m_iobParser)), (Bytes{'0', '1', '0', '0'}));
  const DtRawTagData* scn = eng.getTagData(tag::kScnWidthHeight, eng.m_makerNoteParser);
  ASSERT_NE(scn, nullptr);
  EXPECT_EQ(scn->m_category, static_cast<UINT32>(DtRawTagCategoryMakerNote));
  EXPECT_EQ(DataOf(scn), kpztest::U32sBytes({1080, 1616}, Order()));
  EXPECT_EQ(eng.m_kmMakerNoteParser, nullptr);
}

TEST_P(EngineChannels, M372FileReadsTheHeaderedMakerNoteAndTheKmMakerNote) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  KpzLayout at;
  const Bytes bytes = kpztest::BuildKpz(recipe, &at);
  DtRawEng eng;
  std::string err;
  ASSERT_EQ(Run(&eng, bytes, &err), DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_isM372, 1);
  EXPECT_EQ(U32Of(eng.getTagData(tag::kKmPointer, eng.m_makerNoteParser)), at.km);
  EXPECT_NE(eng.getTagData(tag::kScnWidthHeight, eng.m_makerNoteParser), nullptr);
  ASSERT_NE(eng.m_kmMakerNoteParser, nullptr);
  EXPECT_EQ(U32Of(eng.getTagData(tag::kKmScreennailOffset, eng.m_kmMakerNoteParser)),
            at.screennail);
  EXPECT_EQ(U32Of(eng.getTagData(tag::kKmScreennailLength, eng.m_kmMakerNoteParser)), 64u);
}

TEST_P(EngineChannels, MixedByteOrderMarkIsNotTiff) {
  Bytes bytes = kpztest::BuildKpz(Spec());
  bytes[0] = 0x49;
  bytes[1] = 0x4D;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, bytes, &err), DtRawErrNotTiff);
  EXPECT_EQ(err, ParseLine(kLineNotOrder, "[DtRawEng::Parse]: Not TIFF Byteorder err!!"));
}

TEST_P(EngineChannels, MarkerWrittenInTheOtherOrderIsNotTiff) {
  // "II" followed by 00 2A reads as 10752, and "MM" followed by 2A 00 too.
  Bytes bytes = kpztest::BuildKpz(Spec());
  const Bytes swapped =
      kpztest::U16Bytes(42, Order() == DtNlBigEndian ? DtNlLittleEndian : DtNlBigEndian);
  bytes[2] = swapped[0];
  bytes[3] = swapped[1];
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, bytes, &err), DtRawErrNotTiff);
  EXPECT_EQ(err, ParseLine(kLineNotMarker, "[DtRawEng::Parse]: Not TIFF Marker err!!"));
  EXPECT_EQ(eng.m_byteOrder, Order());
}

TEST_P(EngineChannels, HeaderCutShortFailsAtTheFieldItCuts) {
  const Bytes full = kpztest::BuildKpz(Spec());
  const struct {
    std::size_t size;
    int line;
    const char* message;
  } rows[] = {{0, kLineReadOrder, "[DtRawEng::Parse]: Read TIFF Byteorder err!!"},
              {1, kLineReadOrder, "[DtRawEng::Parse]: Read TIFF Byteorder err!!"},
              {3, kLineReadMarker, "[DtRawEng::Parse]: Read TIFF Marker err!!"},
              {6, kLineReadIfd0, "[DtRawEng::Parse]: Read IFD0 offset err!!"}};
  for (const auto& row : rows) {
    DtRawEng eng;
    std::string err;
    EXPECT_EQ(
        Run(&eng, Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(row.size)), &err),
        DtRawErrRead)
        << row.size;
    EXPECT_EQ(err, ParseLine(row.line, row.message)) << row.size;
  }
}

TEST_P(EngineChannels, Ifd0PastTheEndFailsInItsParser) {
  KpzSpec recipe = Spec();
  recipe.ifd0Offset = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err, DirNumErr() + IfdLine(kLineIfd0Err, "[DtRawEng::parseIFD]: IFD0th parse err!!"));
}

TEST_P(EngineChannels, Ifd0AtOffset0xFFFFFFFFIsClampedOrRefusedByTheChannel) {
  KpzSpec recipe = Spec();
  recipe.ifd0Offset = 0xFFFFFFFFu;
  Bytes bytes = kpztest::BuildKpz(recipe);
  bytes.resize(8);  // the header alone
  DtRawEng eng;
  std::string err;
  const int result = Run(&eng, bytes, &err);
  const std::string ifd0Err = IfdLine(kLineIfd0Err, "[DtRawEng::parseIFD]: IFD0th parse err!!");
  if (Channel() == RawChannel::Memory) {
    // -1 is clamped to 0: the header is read as a directory whose entries
    // run off the end.
    EXPECT_EQ(result, DtRawErrRead);
    EXPECT_EQ(err, kpztest::InfoLine(kParserSrc, "parse", kParserLineReadTag,
                                     "DtRawIFDParserBase: Read Tag Err!!") +
                       ifd0Err);
  } else {
    EXPECT_EQ(result, DtRawErrSeek);
    EXPECT_EQ(err, FseekErr(EINVAL) +
                       kpztest::InfoLine(kParserSrc, "parse", kParserLineFileSeek,
                                         "DtRawIFDParserBase: File Seek Err!!") +
                       ifd0Err);
  }
}

TEST_P(EngineChannels, Ifd1PastTheEndFailsInItsParser) {
  KpzSpec recipe = Spec();
  recipe.ifd1Pointer = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err, DirNumErr() + IfdLine(kLineIfd1Err, "[DtRawEng::parseIFD]: IFD1th parse err!!"));
}

TEST_P(EngineChannels, ZeroNextOffsetMakesIfd1ReadTheHeader) {
  // IFD1 is read even at offset 0: the byte-order mark becomes its entry
  // count (0x4949 or 0x4D4D) and its entries run off the end of the file.
  KpzSpec recipe = Spec();
  recipe.ifd1Pointer = 0;
  recipe.hasExif = false;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err, kpztest::InfoLine(kParserSrc, "parse", kParserLineReadTag,
                                   "DtRawIFDParserBase: Read Tag Err!!") +
                     IfdLine(kLineIfd1Err, "[DtRawEng::parseIFD]: IFD1th parse err!!"));
}

TEST_P(EngineChannels, ExifPastTheEndFailsInItsParser) {
  KpzSpec recipe = Spec();
  recipe.exifPointer = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err, DirNumErr() + IfdLine(kLineExifErr, "[DtRawEng::parseIFD]: ExifIFD parse err!!"));
}

TEST_P(EngineChannels, IobPastTheEndFailsInItsParser) {
  KpzSpec recipe = Spec();
  recipe.iobPointer = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err, DirNumErr() + IfdLine(kLineIobErr,
                                       "[DtRawEng::parseIFD]: Interoperability IFD parse err!!"));
}

TEST_P(EngineChannels, NoIobPointerIsNoError) {
  KpzSpec recipe = Spec();
  recipe.hasIob = false;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_iobParser, nullptr);
}

TEST_P(EngineChannels, NoExifPointerIsAFormatErrorWithoutALogLine) {
  KpzSpec recipe = Spec();
  recipe.hasExif = false;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_exifParser, nullptr);
  EXPECT_NE(eng.getTagData(tag::kModel, eng.m_ifd0Parser), nullptr);
}

TEST_P(EngineChannels, ExifPointerShorterThanFourBytesCountsAsAbsent) {
  KpzSpec recipe = Spec();
  recipe.editIfd0 = [](Ifd& ifd) {
    ifd.Replace(tag::kExifPointer, kpztest::kTiffShort, 1, Bytes{0, 8});
  };
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_exifParser, nullptr);
}

TEST_P(EngineChannels, MissingModelIsAFormatError) {
  KpzSpec recipe = Spec();
  recipe.model.reset();
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, ParseLine(kLineNoModel, "[DtRawEng::Parse]: not exist model name!!"));
}

TEST_P(EngineChannels, ModelLongerThan32BytesHasNoBytesAndIsAFormatError) {
  KpzSpec recipe = Spec();
  recipe.model = std::string(40, 'M');
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, ParseLine(kLineNoModel, "[DtRawEng::Parse]: not exist model name!!"));
}

TEST_P(EngineChannels, ModelIsComparedOverExactlyItsSize) {
  const struct {
    Bytes model;
    bool m372;  // the file is laid out as a DSLR-M372 file
    INT32 expected;
  } rows[] = {
      {kpztest::AsciiBytes("DSLR-M372", true), true, 1},   // size 10, with its zero
      {kpztest::AsciiBytes("DSLR-M372", false), true, 1},  // size 9, no zero
      {kpztest::AsciiBytes(std::string("DSLR-M372\0\0", 11), true), true, 1},  // size 12
      {kpztest::AsciiBytes("DSLR-M372X", true), false, 0},                     // further characters
      {kpztest::AsciiBytes("DSL", true), false, 0},                            // size 4
      {kpztest::AsciiBytes("dslr-m372", true), false, 0},                      // case counts
  };
  for (const auto& row : rows) {
    KpzSpec recipe = Spec();
    recipe.m372 = row.m372;
    const Bytes model = row.model;
    recipe.editIfd0 = [model](Ifd& ifd) {
      ifd.Replace(tag::kModel, kpztest::kTiffAscii, static_cast<std::uint32_t>(model.size()),
                  model);
    };
    DtRawEng eng;
    std::string err;
    EXPECT_EQ(Run(&eng, recipe, &err), DtRawOk) << model.size();
    EXPECT_EQ(err, "");
    EXPECT_EQ(eng.m_isM372, row.expected) << std::string(model.begin(), model.end());
  }
}

TEST_P(EngineChannels, MissingMakerNotePointerIsAFormatError) {
  KpzSpec recipe = Spec();
  recipe.hasMakerNote = false;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, ParseLine(kLineNoMakerNote, "[DtRawEng::Parse]: not exist maker note pointer!"));
}

TEST_P(EngineChannels, MakerNotePastTheEndFailsInItsParser) {
  KpzSpec recipe = Spec();
  recipe.makerNotePointer = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err,
            DirNumErr() + PkmnLine(kLinePkmnParse, "[DtRawEng::pKMN]: maker note parse err!!"));
}

TEST_P(EngineChannels, M372MakerNoteWithoutKaviSignatureIsAFormatError) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  recipe.makerNoteHeader = Bytes{'K', 'A', 'V', 'X', 0, 0, 0, 0, 0, 0, 0, 0};
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, PkmnLine(kLinePkmnNotKavi, "[DtRawEng::pKMN]: maker note is not kavi!!"));
  EXPECT_EQ(eng.m_makerNoteParser, nullptr);
}

TEST_P(EngineChannels, M372MakerNoteWithoutHeaderIsNotKavi) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  recipe.makerNoteHeader = Bytes();
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err, PkmnLine(kLinePkmnNotKavi, "[DtRawEng::pKMN]: maker note is not kavi!!"));
}

TEST_P(EngineChannels, M372MakerNoteHeaderCutByTheEndIsAReadError) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  KpzLayout at;
  kpztest::BuildKpz(recipe, &at);
  for (UINT32 pointer : {at.total - 4u, at.total + 100u, 0x7FFFFFFFu}) {
    recipe.makerNotePointer = pointer;
    DtRawEng eng;
    std::string err;
    EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead) << pointer;
    EXPECT_EQ(err,
              PkmnLine(kLinePkmnHeader, "[DtRawEng::pKMN]: Read kavi maker note header Err!!"));
  }
}

TEST_P(EngineChannels, M372MakerNoteAtOffset0xFFFFFFFFIsClampedOrRefusedByTheChannel) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  recipe.makerNotePointer = 0xFFFFFFFFu;
  DtRawEng eng;
  std::string err;
  const int result = Run(&eng, recipe, &err);
  if (Channel() == RawChannel::Memory) {
    // Clamped to 0: the TIFF header is no "KAVI" signature.
    EXPECT_EQ(result, DtRawErrFormat);
    EXPECT_EQ(err, PkmnLine(kLinePkmnNotKavi, "[DtRawEng::pKMN]: maker note is not kavi!!"));
  } else {
    EXPECT_EQ(result, DtRawErrSeek);
    EXPECT_EQ(err, FseekErr(EINVAL) + PkmnLine(kLinePkmnSeek, "[DtRawEng::pKMN]: File Seek Err!!"));
  }
}

TEST_P(EngineChannels, M372WithoutKmPointerIsAFormatError) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  recipe.editMakerNote = [](Ifd& ifd) { ifd.Remove(tag::kKmPointer); };
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat);
  EXPECT_EQ(err,
            PkmnLine(kLineNoKm, "DtRawEng: There is no km maker note pointer though it is M372!!"));
}

TEST_P(EngineChannels, M372KmPointerOfFewerThanFourBytesIsInvalid) {
  const struct {
    std::uint16_t type;
    std::uint32_t count;
    Bytes value;
    int size;
  } rows[] = {{kpztest::kTiffShort, 1, Bytes{0, 1}, 2},
              {kpztest::kTiffByte, 3, Bytes{0, 1, 2}, 3},
              {kpztest::kTiffLong, 0, Bytes(), 0},
              {kpztest::kTiffLong, 10, Bytes(40, 0), 40}};
  for (const auto& row : rows) {
    KpzSpec recipe = Spec();
    recipe.m372 = true;
    const auto r = row;
    recipe.editMakerNote = [r](Ifd& ifd) {
      ifd.Replace(tag::kKmPointer, r.type, r.count, r.value);
    };
    DtRawEng eng;
    std::string err;
    EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrFormat) << row.size;
    EXPECT_EQ(err, kpztest::WarnLine(kSrc, "parseKaviMakerNote", kLineKmInvalid,
                                     "DtRawEng: km maker note pointer is invalid, size=" +
                                         std::to_string(row.size) + "."));
    EXPECT_EQ(eng.m_kmMakerNoteParser, nullptr);
  }
}

TEST_P(EngineChannels, M372KmMakerNotePastTheEndFailsInItsParser) {
  KpzSpec recipe = Spec();
  recipe.m372 = true;
  recipe.kmPointer = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawErrRead);
  EXPECT_EQ(err, DirNumErr() + PkmnLine(kLineKmParse, "DtRawEng: km maker note parse err!!"));
}

TEST_P(EngineChannels, OtherModelsIgnoreTheKmPointer) {
  KpzSpec recipe = Spec();
  recipe.hasKmMakerNote = true;
  recipe.kmPointer = 0x7FFFFFFF;
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawOk);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_kmMakerNoteParser, nullptr);
}

TEST_P(EngineChannels, DirectoriesPointingAtThemselvesEndTheParse) {
  KpzSpec recipe = Spec();
  KpzLayout at;
  kpztest::BuildKpz(recipe, &at);
  recipe.ifd1Pointer = at.ifd0;  // IFD1 is IFD0 again
  recipe.editExif = [](Ifd& ifd) { ifd.SetNext(0); };
  DtRawEng eng;
  std::string err;
  EXPECT_EQ(Run(&eng, recipe, &err), DtRawOk);
  EXPECT_NE(eng.getTagData(tag::kJpegOffset, eng.m_ifd1Parser), nullptr);
  // The Exif IFD pointing at itself is read once.
  KpzSpec loop = Spec();
  loop.exifPointer = at.ifd0;
  DtRawEng eng2;
  EXPECT_EQ(Run(&eng2, loop, &err), DtRawErrFormat);
  EXPECT_EQ(err, ParseLine(kLineNoMakerNote, "[DtRawEng::Parse]: not exist maker note pointer!"));
}

TEST_P(EngineChannels, ReusedEngineKeepsItsParsersButNoEarlierEntries) {
  DtRawEng eng;
  std::string err;
  KpzSpec full = Spec();
  full.m372 = true;
  ASSERT_EQ(Run(&eng, full, &err), DtRawOk);
  DtRawExifIFDParser* exif = eng.m_exifParser;
  KpzSpec noExif = Spec();
  noExif.hasExif = false;
  EXPECT_EQ(Run(&eng, noExif, &err), DtRawErrFormat);
  EXPECT_EQ(err, "");
  EXPECT_EQ(eng.m_exifParser, exif);
  EXPECT_EQ(eng.getTagData(tag::kMakerNote, eng.m_exifParser), nullptr);
  EXPECT_EQ(eng.getTagData(tag::kScnWidthHeight, eng.m_makerNoteParser), nullptr);
  EXPECT_EQ(eng.getTagData(tag::kKmScreennailOffset, eng.m_kmMakerNoteParser), nullptr);
  EXPECT_EQ(eng.m_isM372, 0);
  ASSERT_EQ(Run(&eng, full, &err), DtRawOk);
  EXPECT_NE(eng.getTagData(tag::kKmScreennailOffset, eng.m_kmMakerNoteParser), nullptr);
}

TEST_P(EngineChannels, FinalizeNullsTheParsersAndTheNextParseStartsThemAfresh) {
  DtRawEng eng;
  std::string err;
  ASSERT_EQ(Run(&eng, Spec(), &err), DtRawOk);
  DtRawIFD0Parser* ifd0 = eng.m_ifd0Parser;
  ASSERT_NE(ifd0, nullptr);
  eng.Finalize();
  ExpectNoParsers(eng);
  // A parse after Finalize gets a parser in the state of a new one (its
  // earlier next offset is gone), with the same object behind it.
  ASSERT_EQ(Run(&eng, Spec(), &err), DtRawOk);
  EXPECT_EQ(eng.m_ifd0Parser, ifd0);
  EXPECT_NE(eng.getTagData(tag::kModel, eng.m_ifd0Parser), nullptr);
  eng.Finalize();
  KpzSpec ifd1Missing = Spec();
  ifd1Missing.ifd1Pointer = 0x7FFFFFFF;
  EXPECT_EQ(Run(&eng, ifd1Missing, &err), DtRawErrRead);
  ASSERT_NE(eng.m_ifd1Parser, nullptr);
  EXPECT_EQ(eng.m_ifd1Parser->GetNextIFDOffset(), 0u);
}

INSTANTIATE_TEST_SUITE_P(AllChannels, EngineChannels, kpztest::AllRawParams(),
                         kpztest::RawParamName);

// ---- without a channel, or with a failing file ----------------------------

TEST(DtRawEng, NewEngineHasNoParsersBigEndianAndTheM372FlagSet) {
  DtRawEng eng;
  ExpectNoParsers(eng);
  EXPECT_EQ(eng.m_byteOrder, DtNlBigEndian);
  EXPECT_EQ(eng.m_isM372, 1);
}

TEST(DtRawEng, NullStreamIsAnInvalidArgument) {
  DtRawEng eng;
  std::string err = CaptureStderr([&] { EXPECT_EQ(eng.Parse(nullptr), DtRawErrParam); });
  EXPECT_EQ(err, "");
}

TEST(DtRawEng, LookUpInAMissingParserGivesNull) {
  DtRawEng eng;
  EXPECT_EQ(eng.getTagData(tag::kModel, nullptr), nullptr);
  EXPECT_EQ(eng.getTagData(tag::kModel, eng.m_ifd0Parser), nullptr);
}

TEST(DtRawEng, FinalizeDeletesEveryParserAndMayBeRepeated) {
  kpztest::KpzSpec recipe;
  recipe.m372 = true;
  RawStream s(RawChannel::Memory, kpztest::BuildKpz(recipe));
  DtRawEng eng;
  ASSERT_EQ(eng.Parse(s.Get()), DtRawOk);
  ASSERT_NE(eng.m_kmMakerNoteParser, nullptr);
  eng.Finalize();
  ExpectNoParsers(eng);
  eng.Finalize();
  EXPECT_EQ(eng.m_ifd0Parser, nullptr);
}

TEST(DtRawEng, FailedFirstSeekMapsTheChannelStatus) {
  kpztest::FaultGuard guard;
  const struct {
    int err;
    int expected;
  } rows[] = {{EIO, DtRawErrIo}, {EINVAL, DtRawErrSeek}};
  for (const auto& row : rows) {
    RawStream s(RawChannel::File, kpztest::BuildKpz(kpztest::KpzSpec()));
    DtRawEng eng;
    kpztest::Arm(kpztest::Call::Fseek, row.err);
    int result = 0;
    const std::string err = CaptureStderr([&] { result = eng.Parse(s.Get()); });
    kpztest::DisarmAll();
    EXPECT_EQ(result, row.expected);
    EXPECT_EQ(err,
              FseekErr(row.err) + ParseLine(kLineFileSeek, "[DtRawEng::Parse]: File Seek Err!!"));
  }
}

TEST(DtRawEng, DeviceErrorReadingTheHeaderGivesIoError) {
  kpztest::FaultGuard guard;
  RawStream s(RawChannel::File, kpztest::BuildKpz(kpztest::KpzSpec()));
  DtRawEng eng;
  kpztest::Arm(kpztest::Call::Fread, EIO);
  int result = 0;
  const std::string err = CaptureStderr([&] { result = eng.Parse(s.Get()); });
  kpztest::DisarmAll();
  EXPECT_EQ(result, DtRawErrIo);
  EXPECT_EQ(err, ParseLine(kLineReadOrder, "[DtRawEng::Parse]: Read TIFF Byteorder err!!"));
}

TEST(DtRawEng, DeviceErrorReadingTheMakerNoteHeaderGivesIoError) {
  // Reads before the header: mark, marker, IFD0 offset, then every entry of
  // the directories; the fread after them is the 12-byte header.
  kpztest::FaultGuard guard;
  kpztest::KpzSpec recipe;
  recipe.m372 = true;
  const Bytes bytes = kpztest::BuildKpz(recipe);
  int readsBefore = 0;
  {
    // Count the reads of a parse that stops at the header (bad signature).
    kpztest::KpzSpec bad = recipe;
    bad.makerNoteHeader = Bytes{'X', 'X', 'X', 'X'};
    RawStream s(RawChannel::File, kpztest::BuildKpz(bad));
    DtRawEng eng;
    CaptureStderr([&] {
      kpztest::ResetCounts();
      EXPECT_EQ(eng.Parse(s.Get()), DtRawErrFormat);
      readsBefore = kpztest::CallCount(kpztest::Call::Fread) - 1;
    });
  }
  RawStream s(RawChannel::File, bytes);
  DtRawEng eng;
  kpztest::Arm(kpztest::Call::Fread, EIO, readsBefore);
  int result = 0;
  const std::string err = CaptureStderr([&] { result = eng.Parse(s.Get()); });
  kpztest::DisarmAll();
  EXPECT_EQ(result, DtRawErrIo);
  EXPECT_EQ(err, PkmnLine(kLinePkmnHeader, "[DtRawEng::pKMN]: Read kavi maker note header Err!!"));
}

}  // namespace
