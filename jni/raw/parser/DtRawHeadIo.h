// DtRawHeadIo.h - the memory channel over a file's head through which one
// parse runs, and the record of where and why that parse stopped.
//
// Layer: jni/raw/parser, over the memory channel (jni/util/io/DtNlBuffIo).
// The record's parse (DtRawRecord) lends one to the facade's stream. It reads
// exactly as a plain memory channel (the IFD parsers read it in place, as
// they read DtNlBuffIo); in addition, the engine and the IFD parsers find it
// behind their stream's channel (Of) and, as a step fails, record what they
// were reading: the directory (its category and offset) and the extent of the
// read that fell short, the directory itself or one of its values; or which
// check of the layout refused the head. The first failure recorded wins, as
// the channel's own status keeps its first error: a parse is read once,
// after it returned, and nothing is looked up in the head again to explain it.
//
// A short file's head has zeros after the file's end. The parse may read a
// directory or value whole from those zeros and fail only later, on what the
// zeros made it meet ("no maker note"); so the directories (and the maker
// note's header) read whole are noted as they are, and at the first failure
// the first of them, or of their values, that ends past the file's real size
// (FileSize) is recorded too (FirstCut). A parse that succeeds pays one note
// per directory.
//
// Asked to (KeepPlaces), it also keeps where the parse found each entry it
// kept: the directory, the tag, the entry's and the value's positions, the
// value's size and bytes (Places). A caller that changes values in place or
// tells a value cut off from one not recorded reads them there after the
// parse, instead of looking for the entries in the head itself.
//
//   DtRawHeadIo io(fileSize);
//   DtNlDataStream stream(&io);             // lent
//   stream.Open(head, DtRawHeadIo::HEAD_SIZE);
//   if (engine.Parse(&stream) != DtRawOk) {
//     const DtRawHeadIo::Stop& stop = io.Stopped();   // where and why
//   }
//
// Pointer members, all borrowed: m_head (the block given to Open); the tag
// lists and target ids of the directories noted (the parsers', looked at only
// during the parse, at its first failure); the tags whose lengths are kept
// (compared, never followed after the parse); the places asked for
// (KeepPlaces, written during the parse). Not copyable. One parse at a
// time; read the record after the parse returned.
#ifndef KPZ_RAW_PARSER_DTRAWHEADIO_H
#define KPZ_RAW_PARSER_DTRAWHEADIO_H

#include <cstdint>

#include "util/DtNlTypes.h"
#include "util/io/DtNlBuffIo.h"

class DtRawTagData;
class DtRawTagDataList;

class DtRawHeadIo final : public DtNlBuffIo {
 public:
  // Bytes of a head: DtRaw::READ_SIZE.
  static constexpr UINT HEAD_SIZE = 0x10000;

  // No category: the TIFF header itself.
  static constexpr INT32 NO_CATEGORY = -1;

  // Why the parse stopped.
  enum Step : INT32 {
    StepNone,        // it did not stop (or stopped where nothing is recorded)
    StepNotTiff,     // no TIFF byte-order mark (m_offset 0) or marker (2)
    StepRead,        // a read of a directory, one of its values or the maker
                     // note's 12-byte header fell short of the head
    StepModel,       // IFD0's camera model is missing (m_tagFound false), or
                     // is not 1 to 32 bytes long (m_bytes: its length)
    StepExif,        // no Exif directory followed: IFD0 has no Exif pointer
                     // (m_tagFound false) or not a 4-byte one (m_bytes)
    StepMakerNote,   // the Exif directory has no maker note
    StepNotKavi,     // the maker note of a "DSLR-M372" has no "KAVI" header
                     // (m_offset: the maker note's offset)
    StepKmPointer,   // the maker note has no pointer to the Km maker note
                     // (m_tagFound false) or not a 4-byte one (m_bytes)
  };

  // Where and why the parse stopped: the first failure recorded.
  struct Stop {
    Step m_step = StepNone;
    int m_code = 0;                 // the result the failing step returned
    INT32 m_category = NO_CATEGORY;  // the directory read (a DtRawTagCategory)
    UINT32 m_offset = 0;            // its offset, as the parse took it (32-bit)
    bool m_value = false;           // StepRead: one of its values fell short
    std::uint64_t m_start = 0;      // StepRead: the nominal extent in the file
    std::uint64_t m_end = 0;        //   of the read that fell short
    bool m_tagFound = false;        // StepModel, StepExif, StepKmPointer
    std::uint64_t m_bytes = 0;      // the refused tag's length, without wrap
  };

  // The first directory, value or header read whole that ends past FileSize.
  struct Cut {
    bool m_set = false;
    INT32 m_category = NO_CATEGORY;
    bool m_value = false;  // a value of that directory, not the directory
    std::uint64_t m_start = 0;
    std::uint64_t m_end = 0;
  };

  // Where the parse found one kept entry (a target tag) of a directory it
  // read whole. Kept only when asked (KeepPlaces).
  struct Place {
    INT32 m_category = NO_CATEGORY;  // the directory (a DtRawTagCategory)
    UINT16 m_tag = 0;
    UINT32 m_entry = 0;         // where its 12-byte entry starts
    UINT32 m_pos = 0;           // where its value lies: the entry's field, or the offset held
    UINT32 m_size = 0;          // the value's bytes as the parser counts them (32-bit)
    bool m_hasData = false;     // m_data holds the value (1 to 32 bytes, as the parse read it)
    UINT8 m_data[32] = {};

    // True when a byte of the entry or of the value lies at or past
    // `fileSize`: the parse read zeros there, not the file.
    bool PastEnd(std::uint64_t fileSize) const;
  };

  // The kept entries of every directory the parse read whole, in the order
  // read, and which directories those were.
  struct Places {
    static constexpr UINT MAX_PLACES = 40;  // the target ids of all six directories fit
    static constexpr UINT CATEGORIES = 6;   // DtRawTagCategoryIfd0 .. KmMakerNote
    Place m_at[MAX_PLACES];
    UINT m_count = 0;
    std::uint64_t m_fileSize = 0;
    bool m_read[CATEGORIES] = {};  // by category: the directory was read whole
    bool m_cut[CATEGORIES] = {};   // by category: it runs past the end of the file

    // The entry of `tag` in the directory of `category`, or null when the
    // parse kept none.
    const Place* Get(INT32 category, UINT16 tag) const;
    // True when the directory of `category` runs past the end of the file
    // (its entries there were read as zeros), or was not reached because the
    // directory holding its pointer does, or when the entry holding its
    // offset is cut: an entry missing there (or found where a cut offset
    // led) may well be cut off.
    bool Cut(INT32 category) const;
  };

  // A channel for the head of a file of `fileSize` bytes (its real size).
  explicit DtRawHeadIo(std::uint64_t fileSize);
  ~DtRawHeadIo() override;
  DtRawHeadIo(const DtRawHeadIo&) = delete;
  DtRawHeadIo& operator=(const DtRawHeadIo&) = delete;

  using DtNlBuffIo::Open;
  // As DtNlBuffIo::Open; also forgets what an earlier parse recorded.
  int Open(const UINT8* buffer, UINT size) override;
  // As DtNlBuffIo::Seek; a seek from the start also keeps its target (the
  // low 32 bits of `offset`) as MovedTo.
  int Seek(long long offset, DtNlIoSeekPos origin) override;

  // Where the last seek from the start moved the channel, as asked (before
  // any clamping): the offset of the directory being read, since an IFD
  // parser moves the channel there and then reads a head channel in place.
  UINT32 MovedTo() const { return m_movedTo; }

  std::uint64_t FileSize() const { return m_fileSize; }
  // The block given to Open (null before), and its bytes.
  // The block given to Open (null before), and its bytes: for the parse's
  // own use, while the block lives (a facade frees its head copy when its
  // parse fails).
  const UINT8* Head() const { return m_head; }
  UINT HeadSize() const { return m_headSize; }
  // The block's first bytes (the TIFF header), kept by Open: valid after
  // the block is gone. Zeros past HeadSize().
  const UINT8* Header() const { return m_header; }
  const Stop& Stopped() const { return m_stop; }
  const Cut& FirstCut() const { return m_cut; }

  // The head channel behind `io`, or null for any other channel (this
  // channel is told first, by the identity of its type).
  static DtRawHeadIo* Of(DtNlIo* io);

  // Has the next parses through this channel keep in *places (borrowed: it
  // must outlive them; null, the default, keeps none) where each kept entry
  // of every directory read whole lies (Places). Each Open empties it. A
  // parse that keeps nothing pays nothing for this but one test per
  // directory and one per entry kept.
  void KeepPlaces(Places* places);

  // True when the parses through this channel keep places (KeepPlaces).
  // For the IFD parsers, once per directory.
  bool KeepsPlaces() const { return m_places != nullptr; }

  // ---- recording (the engine and the IFD parsers) ---------------------------
  // Each returns `code`, so that a failing step records and returns in one.

  // The directory of `category` at `offset` could not be read whole:
  // `entries` is its entry count, or -1 when that count itself could not be
  // read; `valuePos` and `valueSize` the value being read when it fell short
  // (valueSize 0: the directory's own bytes).
  int StopInDirectory(UINT32 category, UINT32 offset, INT32 entries, UINT32 valuePos,
                      UINT32 valueSize, int code);

  // The maker note's 12-byte header at `offset` could not be read whole.
  int StopInHeader(UINT32 offset, int code);

  // A check of the layout refused the head at `step`; `tag` is the tag it
  // looked at (null: none found), `offset` where the refused bytes lie (the
  // maker note's for StepNotKavi, the marker's for StepNotTiff).
  int Refuse(Step step, const DtRawTagData* tag, int code, UINT32 offset = 0);

  // A directory of `category` at `offset` with `entries` entries was read
  // whole, and so were the values kept in `tags` (borrowed: the parser's
  // list, which must hold them until the parse returns; `targets`, its
  // `targetCount` target ids in order). Only noted: at the first failure, the
  // directory counts as cut when it ends past the file, else the first of
  // its values kept with their bytes, in target order, that does (a value by
  // where it lies, even when the channel read it at 0 for an offset of 2 GiB
  // or more).
  void TookDirectory(UINT32 category, UINT32 offset, UINT32 entries,
                     const DtRawTagDataList* tags, const UINT16* targets, INT32 targetCount);

  // The maker note's 12-byte header at `offset` was read whole. True.
  bool TookHeader(UINT32 offset);

  // `tag` (its id, value position, size and bytes) was kept from the entry
  // at `entry` of the directory being read: noted in the places asked for,
  // and counted as read whole with the directory (TookDirectory).
  void KeptEntry(const DtRawTagData* tag, UINT32 entry);

  // A tag was kept by position only (its 32-bit size is 0 or above 32):
  // `type` and `count` as stored, for its length without wrap.
  void KeptByPosition(const DtRawTagData* tag, UINT16 type, UINT32 count);

  // Static forms over a stream's channel: they record when `io` is a head
  // channel and return `code` either way. For the engine's failing steps.
  static int Refused(DtNlIo* io, Step step, const DtRawTagData* tag, int code,
                     UINT32 offset = 0);
  static int Unread(DtNlIo* io, UINT32 offset, int code);
  static bool HeaderTaken(DtNlIo* io, UINT32 offset);

 private:
  static constexpr UINT MAX_LENGTHS = 40;
  static constexpr UINT MAX_TAKEN = 8;  // six directories and a header

  // A directory (or the maker note's header) read whole, as noted. Plain:
  // the entries beyond m_takenCount are never read.
  struct Taken {
    bool m_header;
    INT32 m_category;
    UINT32 m_offset;
    UINT32 m_entries;
    const DtRawTagDataList* m_tags;  // borrowed
    const UINT16* m_targets;         // borrowed
    INT32 m_targetCount;
  };

  // At the first failure: FirstCut from what was read whole until then.
  void findCut();
  // Notes [start, end) of `category` as read whole when it ends past the file.
  void noteCut(INT32 category, bool value, std::uint64_t start, std::uint64_t end);
  // `tag`'s length without the 32-bit wrap.
  std::uint64_t lengthOf(const DtRawTagData* tag) const;

  std::uint64_t m_fileSize;
  const UINT8* m_head;  // borrowed: the block given to Open
  UINT m_headSize;
  UINT8 m_header[8];    // its first bytes, copied
  UINT32 m_movedTo;
  Stop m_stop;
  Cut m_cut;
  Taken m_taken[MAX_TAKEN];
  UINT m_takenCount;
  // Tags kept by position only, and their lengths without wrap.
  const DtRawTagData* m_lengthTags[MAX_LENGTHS];
  std::uint64_t m_lengths[MAX_LENGTHS];
  UINT m_lengthCount;
  Places* m_places;  // borrowed; null: no places kept
  UINT m_placesNoted;  // entries noted in m_places, those of the directory being read included
};

#endif  // KPZ_RAW_PARSER_DTRAWHEADIO_H
