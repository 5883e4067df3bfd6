// DtRawHeadIoTest.cpp - the head channel (jni/raw/parser/DtRawHeadIo): it
// reads as a plain memory channel, keeps the first failure the parse records
// in it, and what the parse records there (why a head fails, where the
// entries it kept lie) is what an independent step-by-step walk of the head
// (tests/support/KpzLayoutWalk) finds, which serves here as the oracle: the
// same Finding, the same words and the same places for every head of
// standard files cut at every offset, thousands of damaged heads and random
// ones.
#include "raw/parser/DtRawHeadIo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "raw/DtRaw.h"
#include "raw/DtRawEng.h"
#include "raw/DtRawError.h"
#include "raw/DtRawErrorText.h"
#include "raw/DtRawLayoutCheck.h"
#include "raw/DtRawRecord.h"
#include "raw/parser/DtRawTagData.h"
#include "raw/parser/DtRawTagDataList.h"
#include "support/KpzFileBuilder.h"
#include "support/KpzLayoutWalk.h"
#include "support/LogExpect.h"
#include "util/io/DtNlBuffIo.h"
#include "util/io/DtNlDataStream.h"

namespace {

using kpztest::Bytes;
using Finding = DtRawLayoutCheck::Finding;

const UINT kHead = DtRawHeadIo::HEAD_SIZE;

std::uint32_t Next(std::mt19937& rng) { return static_cast<std::uint32_t>(rng()); }

struct Head {
  std::vector<UINT8> bytes = std::vector<UINT8>(kHead, 0);
  std::uint64_t fileSize = 0;
};

// The first bytes of `file` (all of a shorter one), zeros after.
Head HeadOf(const Bytes& file, std::uint64_t fileSize) {
  Head h;
  std::copy(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(
                                             file.size(), kHead)),
            h.bytes.begin());
  h.fileSize = fileSize;
  return h;
}

std::string WordsOf(const Finding& f) {
  char words[DtRawLayoutCheck::WORDS_SIZE];
  DtRawLayoutCheck::Words(f, words, sizeof words);
  return words;
}

std::string Describe(const Finding& f) {
  return "code " + std::to_string(f.m_code) + " reason " + std::to_string(f.m_reason) + " part " +
         std::to_string(f.m_part) + (f.m_value ? " value" : "") + " bytes " +
         std::to_string(f.m_bytes) + " \"" + WordsOf(f) + "\"";
}

bool ReadFamily(int code) {
  return code == DtRawErrSeek || code == DtRawErrTell || code == DtRawErrRead;
}

// The facade's result over the head through its own plain memory channel.
int FacadeCode(Head& h) {
  DtRaw raw;
  return raw.InitializeBuf(h.bytes.data(), static_cast<int>(h.bytes.size()));
}

// The engine over the head through a head channel asked to keep places:
// its result and what it recorded.
struct Recorded {
  int code = 0;
  Finding finding;
  DtRawHeadIo::Places places;
};
void ParseThroughHead(const Head& h, Recorded* r) {
  DtRawHeadIo io(h.fileSize);
  io.KeepPlaces(&r->places);
  DtNlDataStream stream(&io);
  EXPECT_EQ(stream.Open(h.bytes.data(), kHead), 0);
  DtRawEng eng;
  r->code = eng.Parse(&stream);
  r->finding = DtRawLayoutCheck::Recorded(io, r->code);
}

// The words a front end gives for `code` by the walk's finding: its reason
// when the walk found one for that code, else the code's own words.
std::string WalkedWords(int code, const Finding& walked) {
  const bool same = walked.m_code == code || (ReadFamily(walked.m_code) && ReadFamily(code));
  const std::string reason = WordsOf(walked);
  if (same && !reason.empty()) {
    return "not a KPZ raw file (" + reason + ")";
  }
  const DtRawHeadIo nothingRecorded(0);
  char words[DtRawErrorText::WORDS_SIZE];
  DtRawErrorText::Stopped(code, nothingRecorded, words, sizeof words);
  return words;
}

// The directory category of a part of the walk's.
INT32 CategoryOf(DtRawLayoutCheck::Part part) {
  return static_cast<INT32>(part) - static_cast<INT32>(DtRawLayoutCheck::PartIfd0) +
         static_cast<INT32>(DtRawTagCategoryIfd0);
}

// The places the parse kept are the walk's, entry for entry, and so are the
// directories read whole and cut.
bool SamePlaces(const DtRawHeadIo::Places& got, const KpzLayoutWalk::Places& walked,
                const std::string& what) {
  bool same = got.m_count == walked.m_count && got.m_fileSize == walked.m_fileSize;
  EXPECT_TRUE(same) << what << ": " << got.m_count << " places kept, the walk's "
                    << walked.m_count;
  for (UINT i = 0; same && i < walked.m_count; ++i) {
    const KpzLayoutWalk::Place& w = walked.m_at[i];
    const DtRawHeadIo::Place* p = got.Get(CategoryOf(w.m_part), w.m_tag);
    same = p != nullptr && p->m_entry == w.m_entry && p->m_pos == w.m_pos &&
           p->m_size == w.m_size && p->m_hasData == w.m_hasData &&
           (!w.m_hasData || std::memcmp(p->m_data, w.m_data, w.m_size) == 0) &&
           p->PastEnd(got.m_fileSize) == w.PastEnd(walked.m_fileSize);
    EXPECT_TRUE(same) << what << ": the place of tag " << w.m_tag << " in part " << w.m_part;
  }
  for (INT32 part = DtRawLayoutCheck::PartIfd0; same && part <= DtRawLayoutCheck::PartKmMakerNote;
       ++part) {
    const auto category = static_cast<UINT>(CategoryOf(static_cast<DtRawLayoutCheck::Part>(part)));
    same = got.m_read[category] == walked.m_read[part] &&
           got.m_cut[category] == walked.m_cut[part] &&
           got.Cut(static_cast<INT32>(category)) ==
               walked.Cut(static_cast<DtRawLayoutCheck::Part>(part));
    EXPECT_TRUE(same) << what << ": part " << part << " read, cut or counted cut otherwise";
  }
  return same;
}

// The calls kept for programs built against 1.0.0 (Inspect, Locate and the
// words of DtRawErrorText::Parse) answer for `h` what the walk does.
bool KeptCallsAgree(const Head& h, int plain, const Finding& walked,
                    const KpzLayoutWalk::Places& walkedPlaces, const std::string& what) {
  const Finding got = DtRawLayoutCheck::Inspect(h.bytes.data(), h.fileSize);
  bool same = plain == DtRawOk
                  ? got.m_reason == DtRawLayoutCheck::ReasonNone && got.m_code == DtRawOk
                  : (got.m_code == walked.m_code ||
                     (ReadFamily(got.m_code) && ReadFamily(walked.m_code))) &&
                        got.m_reason == walked.m_reason && got.m_part == walked.m_part &&
                        got.m_value == walked.m_value && got.m_bytes == walked.m_bytes;
  EXPECT_TRUE(same) << what << ": Inspect " << Describe(got) << ", walked " << Describe(walked);
  DtRawLayoutCheck::Places places;
  DtRawLayoutCheck::Locate(h.bytes.data(), h.fileSize, &places);
  bool located = places.m_count == walkedPlaces.m_count &&
                 places.m_fileSize == walkedPlaces.m_fileSize;
  for (UINT i = 0; located && i < walkedPlaces.m_count; ++i) {
    const KpzLayoutWalk::Place& w = walkedPlaces.m_at[i];
    const DtRawLayoutCheck::Place* p = places.Get(w.m_part, w.m_tag);
    located = p != nullptr && p->m_entry == w.m_entry && p->m_pos == w.m_pos &&
              p->m_size == w.m_size && p->m_hasData == w.m_hasData &&
              (!w.m_hasData || std::memcmp(p->m_data, w.m_data, w.m_size) == 0) &&
              p->PastEnd(places.m_fileSize) == w.PastEnd(walkedPlaces.m_fileSize);
  }
  for (INT32 part = DtRawLayoutCheck::PartIfd0; located && part <= DtRawLayoutCheck::PartKmMakerNote;
       ++part) {
    const auto which = static_cast<DtRawLayoutCheck::Part>(part);
    located = places.m_read[part] == walkedPlaces.m_read[part] &&
              places.m_cut[part] == walkedPlaces.m_cut[part] &&
              places.Cut(which) == walkedPlaces.Cut(which);
  }
  EXPECT_TRUE(located) << what << ": Locate's places are not the walk's";
  bool words = true;
  if (plain != DtRawOk) {
    char told[DtRawErrorText::WORDS_SIZE];
    DtRawErrorText::Parse(plain, h.bytes.data(), h.fileSize, told, sizeof told);
    words = std::string(told) == WalkedWords(plain, walked);
    EXPECT_TRUE(words) << what << ": \"" << told << "\" against \"" << WalkedWords(plain, walked)
                       << "\"";
  }
  return same && located && words;
}

// One head: the result is the plain channel's; the recorded Finding and
// places are the walk's; the record's words are the words told from the
// walk. False (after reporting) on any difference.
bool Agrees(Head& h, const std::string& what) {
  const int plain = FacadeCode(h);
  Recorded r;
  ParseThroughHead(h, &r);
  EXPECT_EQ(r.code, plain) << what;
  if (r.code != plain) {
    return false;
  }
  const Finding walked = KpzLayoutWalk::Inspect(h.bytes.data(), h.fileSize);
  KpzLayoutWalk::Places walkedPlaces;
  KpzLayoutWalk::Locate(h.bytes.data(), h.fileSize, &walkedPlaces);
  const bool places = SamePlaces(r.places, walkedPlaces, what);
  const Finding& got = r.finding;
  bool same = true;
  if (plain == DtRawOk) {
    same = got.m_reason == DtRawLayoutCheck::ReasonNone && got.m_code == DtRawOk;
  } else {
    same = (got.m_code == walked.m_code ||
            (ReadFamily(got.m_code) && ReadFamily(walked.m_code))) &&
           got.m_reason == walked.m_reason && got.m_part == walked.m_part &&
           got.m_value == walked.m_value && got.m_bytes == walked.m_bytes;
  }
  EXPECT_TRUE(same) << what << ": recorded " << Describe(got) << ", walked "
                    << Describe(walked);

  // The words every front end shows: the record's, against the words the
  // walk gives for the same head.
  const DtRawExpected<DtRawRecord> record =
      DtRawRecord::Parse(h.bytes.data(), kHead, h.fileSize, DtRawRecord::FieldsPictures);
  if (plain == DtRawOk) {
    EXPECT_TRUE(record.Ok()) << what;
    return same && places && record.Ok();
  }
  const std::string walkedWords = WalkedWords(plain, walked);
  const bool words = !record.Ok() && std::string(record.Failure().m_words) == walkedWords &&
                     record.Failure().m_code == plain;
  EXPECT_TRUE(words) << what << ": \"" << (record.Ok() ? "" : record.Failure().m_words)
                     << "\" against \"" << walkedWords << "\"";
  // The failure carries the reason its words tell (none when the words are
  // the code's own).
  const bool told = walkedWords.find(WordsOf(walked)) != std::string::npos &&
                    walked.m_reason != DtRawLayoutCheck::ReasonNone;
  const DtRawFailure& why = record.Failure();
  const bool reason = record.Ok() ||
                      (told ? why.m_reason == walked.m_reason && why.m_part == walked.m_part &&
                                  why.m_value == walked.m_value
                            : why.m_reason == DtRawLayoutCheck::ReasonNone && why.m_at == 0);
  EXPECT_TRUE(reason) << what << ": the failure's reason " << why.m_reason << " part "
                      << why.m_part << " against " << Describe(walked);
  return same && places && words && reason && KeptCallsAgree(h, plain, walked, walkedPlaces, what);
}

// An ordinary TIFF: one directory at offset 8 whose next offset is 0.
Bytes OrdinaryTiff(DtNlByteOrder order) {
  kpztest::Ifd ifd(order);
  ifd.AddShort(0x0100, 64).AddShort(0x0101, 64).AddShort(0x0103, 1).AddLong(0x0111, 256);
  ifd.SetNext(0);
  kpztest::KpzFile file(order);
  file.Header(8).PlaceIfd(8, ifd).Place(256, kpztest::PatternBytes(512, 3)).PadTo(1024);
  return file.Take();
}

// Standard files in both byte orders, with and without the M372 maker
// notes, small and larger than the head, and ordinary TIFFs.
std::vector<Bytes> Seeds() {
  std::vector<Bytes> seeds;
  for (const DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    for (const bool m372 : {false, true}) {
      for (const std::uint32_t total : {0u, 0x18000u}) {
        kpztest::KpzSpec r;
        r.order = order;
        r.m372 = m372;
        r.minTotalSize = total;
        seeds.push_back(kpztest::BuildKpz(r));
      }
    }
    seeds.push_back(OrdinaryTiff(order));
  }
  return seeds;
}

// ---- the channel ------------------------------------------------------------

TEST(DtRawHeadIo, ReadsAsAPlainMemoryChannel) {
  const UINT8 block[6] = {1, 2, 3, 4, 5, 6};
  DtRawHeadIo io(6);
  ASSERT_EQ(io.Open(block, sizeof block), 0);
  UINT8 out[8] = {};
  EXPECT_EQ(io.Seek(4, DtNlIoSeekSet), 0);
  EXPECT_EQ(io.ReadU8(out, 8), 2u);  // short at the end of the block
  EXPECT_EQ(out[0], 5);
  EXPECT_EQ(io.IsEof(), 1);
  EXPECT_EQ(io.Head(), block);
  EXPECT_EQ(io.HeadSize(), 6u);
  EXPECT_EQ(io.FileSize(), 6u);
}

TEST(DtRawHeadIo, IsFoundBehindAStreamAndNoOtherChannelIs) {
  DtRawHeadIo head(0);
  DtNlBuffIo plain;
  EXPECT_EQ(DtRawHeadIo::Of(&head), &head);
  EXPECT_EQ(DtRawHeadIo::Of(&plain), nullptr);
  EXPECT_EQ(DtRawHeadIo::Of(nullptr), nullptr);
  // The static forms give the code back whatever the channel.
  EXPECT_EQ(DtRawHeadIo::Refused(&plain, DtRawHeadIo::StepMakerNote, nullptr, -400), -400);
  EXPECT_EQ(DtRawHeadIo::Unread(&plain, 8, -307), -307);
  EXPECT_TRUE(DtRawHeadIo::HeaderTaken(&plain, 8));
}

TEST(DtRawHeadIo, TheFirstFailureRecordedWinsUntilTheNextOpen) {
  const UINT8 block[16] = {};
  DtRawHeadIo io(100);
  ASSERT_EQ(io.Open(block, sizeof block), 0);
  EXPECT_EQ(io.StopInDirectory(DtRawTagCategoryExif, 40, 3, 0, 0, -307), -307);
  EXPECT_EQ(io.Refuse(DtRawHeadIo::StepMakerNote, nullptr, -400), -400);
  EXPECT_EQ(io.StopInHeader(60, -307), -307);
  const DtRawHeadIo::Stop& stop = io.Stopped();
  EXPECT_EQ(stop.m_step, DtRawHeadIo::StepRead);
  EXPECT_EQ(stop.m_code, -307);
  EXPECT_EQ(stop.m_category, static_cast<INT32>(DtRawTagCategoryExif));
  EXPECT_EQ(stop.m_offset, 40u);
  EXPECT_FALSE(stop.m_value);
  EXPECT_EQ(stop.m_start, 40u);
  EXPECT_EQ(stop.m_end, 40u + 2 + 3 * 12 + 4);  // the count, three entries, the next offset

  io.Close();
  ASSERT_EQ(io.Open(block, sizeof block), 0);
  EXPECT_EQ(io.Stopped().m_step, DtRawHeadIo::StepNone);
  // A value of more than 4 bytes is named by where it lies.
  io.StopInDirectory(DtRawTagCategoryIfd0, 8, 5, 0xFFF8, 16, -307);
  EXPECT_TRUE(io.Stopped().m_value);
  EXPECT_EQ(io.Stopped().m_start, 0xFFF8u);
  EXPECT_EQ(io.Stopped().m_end, 0xFFF8u + 16);
}

TEST(DtRawHeadIo, KeepsTheFirstStructureReadFromPastTheFilesEnd) {
  const UINT8 block[16] = {};
  DtRawHeadIo io(100);
  ASSERT_EQ(io.Open(block, sizeof block), 0);
  io.TookDirectory(DtRawTagCategoryIfd0, 8, 2, nullptr, nullptr, 0);  // 8..38: inside
  io.TookDirectory(DtRawTagCategoryIfd1, 90, 1, nullptr, nullptr, 0);  // 90..108: runs past 100
  io.TookHeader(200);
  EXPECT_FALSE(io.FirstCut().m_set);  // looked for at the first failure only
  io.Refuse(DtRawHeadIo::StepMakerNote, nullptr, DtRawErrFormat);
  EXPECT_TRUE(io.FirstCut().m_set);
  EXPECT_EQ(io.FirstCut().m_category, static_cast<INT32>(DtRawTagCategoryIfd1));
  EXPECT_EQ(io.FirstCut().m_start, 90u);
  EXPECT_EQ(io.FirstCut().m_end, 108u);

  // A value at 2 GiB or more (read at 0) is named by where it lies.
  DtRawHeadIo whole(0x18000);
  ASSERT_EQ(whole.Open(block, sizeof block), 0);
  static const UINT16 kTargets[] = {0x9003, 0x829A};
  DtRawTagDataList kept;
  DtRawTagData* inside = kept.NewTagData(10);  // first kept, later in target order
  inside->m_tagId = 0x829A;
  inside->m_offset = 0x10000;  // ends past the file too
  inside->m_size = 10;
  ASSERT_EQ(kept.PushBack(inside, inside->m_tagId), 0);
  DtRawTagData* far = kept.NewTagData(20);
  far->m_tagId = 0x9003;
  far->m_offset = 0x80000000u;
  far->m_size = 20;
  ASSERT_EQ(kept.PushBack(far, far->m_tagId), 0);
  whole.TookDirectory(DtRawTagCategoryExif, 8, 3, &kept, kTargets, 2);
  whole.StopInDirectory(DtRawTagCategoryMakerNote, 0x7000, -1, 0, 0, DtRawErrRead);
  EXPECT_TRUE(whole.FirstCut().m_set);
  EXPECT_TRUE(whole.FirstCut().m_value);
  EXPECT_EQ(whole.FirstCut().m_category, static_cast<INT32>(DtRawTagCategoryExif));
  EXPECT_EQ(whole.FirstCut().m_start, 0x80000000u);  // the first in target order
}

TEST(DtRawHeadIo, ATagsLengthIsTakenWithoutTheWrap) {
  // A LONG entry of count 0x40000000 at offset 8: 2^32 bytes, kept with a
  // 32-bit size of 0 at its own field (offset 16).
  std::vector<UINT8> block(64, 0);
  const UINT8 entry[12] = {0x10, 0x01, 4, 0, 0, 0, 0, 0x40, 0, 0, 0, 0};
  std::memcpy(block.data() + 8, entry, sizeof entry);
  DtRawHeadIo io(64);
  ASSERT_EQ(io.Open(block.data(), static_cast<UINT>(block.size())), 0);
  DtRawTagData tag;
  tag.m_tagId = 0x0110;
  tag.m_offset = 16;
  tag.m_size = 0;
  tag.m_byteOrder = DtNlLittleEndian;
  io.Refuse(DtRawHeadIo::StepModel, &tag, DtRawErrFormat);
  EXPECT_TRUE(io.Stopped().m_tagFound);
  EXPECT_EQ(io.Stopped().m_bytes, 0x100000000ull);

  // A tag kept by position only: its length as the parser gave it.
  ASSERT_EQ(io.Open(block.data(), static_cast<UINT>(block.size())), -1);  // already open
  io.Close();
  ASSERT_EQ(io.Open(block.data(), static_cast<UINT>(block.size())), 0);
  DtRawTagData far;
  far.m_offset = 4000;
  far.m_size = 36;
  io.KeptByPosition(&far, 4, 0x40000009u);
  io.Refuse(DtRawHeadIo::StepExif, &far, DtRawErrFormat);
  EXPECT_EQ(io.Stopped().m_bytes, 0x100000024ull);
}

// ---- what the parse records, against the walk -------------------------------

// IFD0 points at a second directory past the end of a 1 KiB file: the parse
// reads zeros there and fails later; the failure names IFD1 and its offset.
TEST(DtRawHeadIo, TheFailureSaysWhereThePartLies) {
  for (const DtNlByteOrder order : {DtNlLittleEndian, DtNlBigEndian}) {
    kpztest::Ifd ifd(order);
    ifd.AddShort(0x0100, 64).AddShort(0x0101, 64);
    ifd.SetNext(0x5000);
    kpztest::KpzFile file(order);
    file.Header(8).PlaceIfd(8, ifd).PadTo(1024);
    const Bytes bytes = file.Take();
    std::optional<DtRawExpected<DtRawRecord>> record;
    kpztest::CaptureStderr(
        [&] { record.emplace(DtRawRecord::Parse(bytes.data(), bytes.size(), bytes.size())); });
    ASSERT_TRUE(record.has_value());
    ASSERT_FALSE(record->Ok());
    const DtRawFailure& why = record->Failure();
    EXPECT_EQ(why.m_kind, DtRawFailure::KindNotKpz);
    EXPECT_STREQ(why.m_words, "not a KPZ raw file (IFD1 lies past the end of the file)");
    EXPECT_EQ(why.m_reason, DtRawLayoutCheck::ReasonPastEnd);
    EXPECT_EQ(why.m_part, DtRawLayoutCheck::PartIfd1);
    EXPECT_FALSE(why.m_value);
    EXPECT_EQ(why.m_at, 0x5000u);
  }
  // A failure that is not the layout's names no place.
  DtRawFailure why;
  why.Set(DtRawFailure::KindUnreadable, 5, 0, "input/output error while reading the file");
  EXPECT_EQ(why.m_reason, DtRawLayoutCheck::ReasonNone);
  EXPECT_EQ(why.m_part, DtRawLayoutCheck::PartNone);
  EXPECT_EQ(why.m_at, 0u);
}

TEST(DtRawHeadIo, AGoodFileRecordsNothing) {
  for (const Bytes& file : Seeds()) {
    Head h = HeadOf(file, file.size());
    Recorded r;
    ParseThroughHead(h, &r);
    if (r.code == DtRawOk) {
      EXPECT_EQ(r.finding.m_reason, DtRawLayoutCheck::ReasonNone);
    }
  }
}

// A head that is all ones, all zeros or all 42s, alone or behind a TIFF
// header, in files of every size.
TEST(DtRawHeadIo, RecordsWhatTheWalkFindsForFilledHeads) {
  int disagreements = 0;
  kpztest::CaptureStderr([&] {
    for (const int fill : {0x00, 0xFF, 0x2A}) {
      for (const std::uint64_t size : {0ull, 1ull, 8ull, 0x10000ull, 0x100000000ull}) {
        Head h;
        std::fill(h.bytes.begin(), h.bytes.end(), static_cast<UINT8>(fill));
        h.fileSize = size;
        disagreements += Agrees(h, "filled head") ? 0 : 1;
        h.bytes[0] = h.bytes[1] = 'M';
        h.bytes[2] = 0;
        h.bytes[3] = 42;
        disagreements += Agrees(h, "filled head behind a header") ? 0 : 1;
      }
    }
  });
  EXPECT_EQ(disagreements, 0);
}

// Every standard file cut at every offset of its structures (and at a
// stride beyond), and every one of them claimed larger than it is.
TEST(DtRawHeadIo, RecordsWhatTheWalkFindsForFilesCutAtEveryOffset) {
  int checked = 0;
  int disagreements = 0;
  int failures = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    for (const Bytes& file : Seeds()) {
      for (std::size_t cut = 0; cut <= file.size() && disagreements < 5;
           cut += cut < 2048 ? 1 : 4093) {
        const Bytes shorter(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(cut));
        Head h = HeadOf(shorter, cut);
        disagreements += Agrees(h, "cut at " + std::to_string(cut)) ? 0 : 1;
        failures += FacadeCode(h) != DtRawOk ? 1 : 0;
        ++checked;
      }
    }
  });
  EXPECT_EQ(disagreements, 0);
  EXPECT_GT(checked, 6000);
  EXPECT_GT(failures, checked / 3);
}

// Numbers that matter (offsets at and around the end of the file and of the
// head, 0, 2 GiB, the largest, counts) written over random places of the
// structures, random bytes, and cuts.
TEST(DtRawHeadIo, RecordsWhatTheWalkFindsForDamagedFiles) {
  std::mt19937 rng(20261126);
  const std::vector<Bytes> seeds = Seeds();
  int checked = 0;
  int failures = 0;
  int disagreements = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    for (int i = 0; i < 12000 && disagreements < 5; ++i) {
      Bytes file = seeds[Next(rng) % seeds.size()];
      const std::uint32_t structures =
          std::min<std::uint32_t>(static_cast<std::uint32_t>(file.size()), 1024);
      const int edits = 1 + static_cast<int>(Next(rng) % 3);
      for (int e = 0; e < edits; ++e) {
        const std::uint32_t at = Next(rng) % (structures - 4);
        const std::uint32_t size = static_cast<std::uint32_t>(file.size());
        const std::uint32_t values[] = {0,          1,          8,          size - 2,
                                        size,       size + 100, 0xFFF0,     0xFFFA,
                                        0xFFFE,     0x10000,    0x18000,    0x7FFFFFFF,
                                        0x80000000, 0xFFFFFFF4, 0xFFFFFFFF, 0x40000000,
                                        0x80000001, Next(rng) % 0x20000, Next(rng) % 65535};
        switch (Next(rng) % 3) {
          case 0: {  // a 32-bit number
            const std::uint32_t v = values[Next(rng) % (sizeof values / sizeof values[0])];
            for (std::uint32_t b = 0; b < 4; ++b) {
              file[at + b] = static_cast<std::uint8_t>(v >> (8 * b));
            }
            break;
          }
          case 1: {  // a 16-bit count or type
            const std::uint16_t v =
                static_cast<std::uint16_t>(Next(rng) % 2 ? Next(rng) % 16 : Next(rng));
            file[at] = static_cast<std::uint8_t>(v);
            file[at + 1] = static_cast<std::uint8_t>(v >> 8);
            break;
          }
          default:
            file[at] = static_cast<std::uint8_t>(Next(rng));
            break;
        }
      }
      if (Next(rng) % 3 == 0) {
        file.resize(Next(rng) % (file.size() + 1));  // cut: zeros after the end
      }
      Head h = HeadOf(file, file.size());
      disagreements += Agrees(h, "damaged file " + std::to_string(i)) ? 0 : 1;
      failures += FacadeCode(h) != DtRawOk ? 1 : 0;
      ++checked;
    }
  });
  EXPECT_EQ(disagreements, 0);
  EXPECT_EQ(checked, 12000);
  EXPECT_GT(failures, 600);  // the damage reached the structures
  EXPECT_LT(failures, checked);
}

// Random bytes behind a valid TIFF header, random file sizes; and filled
// heads.
TEST(DtRawHeadIo, RecordsWhatTheWalkFindsForRandomHeads) {
  std::mt19937 rng(4242);
  int disagreements = 0;
  const std::string err = kpztest::CaptureStderr([&] {
    for (int i = 0; i < 2000 && disagreements < 5; ++i) {
      Head h;
      const bool big = Next(rng) % 2 == 0;
      for (std::size_t b = 8; b < h.bytes.size(); ++b) {
        h.bytes[b] = static_cast<UINT8>(Next(rng) % 4 == 0 ? Next(rng) : Next(rng) % 3);
      }
      h.bytes[0] = h.bytes[1] = static_cast<UINT8>(big ? 'M' : 'I');
      h.bytes[2] = static_cast<UINT8>(big ? 0 : 42);
      h.bytes[3] = static_cast<UINT8>(big ? 42 : 0);
      const std::uint32_t ifd0 = Next(rng) % 0x11000;
      for (std::size_t b = 0; b < 4; ++b) {
        h.bytes[big ? 7 - b : 4 + b] = static_cast<UINT8>(ifd0 >> (8 * b));
      }
      const std::uint64_t sizes[] = {
          0, 1, 3, 7, 8, 100, 0xFFFF, 0x10000, 0x20000, 0xFFFFFFFFull, Next(rng) % 0x30000};
      h.fileSize = sizes[Next(rng) % (sizeof sizes / sizeof sizes[0])];
      disagreements += Agrees(h, "random head " + std::to_string(i)) ? 0 : 1;
    }
    for (const int fill : {0x00, 0xFF, 0x2A, 0x49, 0x4D}) {
      for (const std::uint64_t size : {0ull, 1ull, 2ull, 3ull, 8ull, 0x10000ull, 0x100000000ull}) {
        Head h;
        std::fill(h.bytes.begin(), h.bytes.end(), static_cast<UINT8>(fill));
        h.fileSize = size;
        disagreements += Agrees(h, "filled head") ? 0 : 1;
        h.bytes[0] = h.bytes[1] = 'M';
        h.bytes[2] = 0;
        h.bytes[3] = 42;
        disagreements += Agrees(h, "filled head behind a header") ? 0 : 1;
      }
    }
  });
  EXPECT_EQ(disagreements, 0);
}

}  // namespace
