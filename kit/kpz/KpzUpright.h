// KpzUpright.h - turns a preview or thumbnail JPEG upright for `kpz preview
// --upright` and `kpz thumbnail --upright`, so that it shows the right way up
// in any viewer, also in one that ignores Exif orientation.
//
// Part of the kit (kit/kpz), above the library's record of a file
// (DtRawRecord: the orientation, from the one parse of its head) and
// TurboJPEG (the JPEG work). The stored JPEG is as the sensor saw the scene;
// IFD0's orientation, as a rotation code 0..7 (DtRaw::GetRotationInfo's,
// kept in the record), says what must be done to show it upright. The
// code's Exif orientation (DtRaw::convRotInfoUsetoStd) picks the turn:
//
//   code  Exif  turn
//   0     1     none: the stored bytes are written unchanged
//   1     6     90° clockwise
//   2     3     180°
//   3     8     90° counter-clockwise
//   4     2     mirrored left to right
//   5     5     mirrored left to right, then 90° counter-clockwise (transpose)
//   6     4     mirrored top to bottom
//   7     7     mirrored left to right, then 90° clockwise (transverse)
//
// The turn is made on the JPEG's DCT coefficients, without decoding: the
// picture is exactly the stored one, turned. That is possible only when
// every edge the turn moves to the left or top is a whole number of MCU
// blocks (8 or 16 pixels, by the chroma sampling). Otherwise (Edges):
//   Reencode  (default) the picture is decoded, turned pixel by pixel and
//             encoded again at kQuality with the same chroma sampling
//             (4:2:2 and 4:4:0 swap under a quarter turn; 4:1:1 becomes
//             4:2:0); its size is kept, its pixels change slightly.
//   Trim      the turn stays lossless and the partial blocks of the edges
//             that would move are cut off (fewer than one block of pixels
//             on one or two edges); how many is reported.
// Markers (Exif, ICC profile, comments) are kept. When the JPEG carries its
// own Exif orientation (APP1 Exif, IFD0 tag 0x0112), it is set to 1 in the
// output, in place and in the segment's byte order, so that no viewer turns
// the picture a second time.
//
// The JPEG is untrusted. Its declared pixel size is checked against its
// length (kMaxPixelsPerByte), against kMaxPixels and, above 4 million pixels,
// against the bytes of coded data its scans hold (padding after its end not
// counted), at what one byte can stand for in its coding (Huffman 256 pixels,
// progressive 512, arithmetic 2048: "the JPEG declares WxH pixels, too large
// for its N bytes of arithmetic-coded data; it is damaged, not turned")
// before anything is decoded or transformed, so memory and time stay bounded
// by the data there; every TurboJPEG failure,
// and every warning about damaged data, ends in words and no output.
//
//   const KpzUpright::Orientation o = KpzUpright::OrientationOf(record);
//   KpzUpright::Applied a = KpzUpright::Apply(o, jpeg.data(), jpeg.size(),
//                                             KpzUpright::Edges::Reencode, "preview");
//   if (!a.turns || a.result.ok) { write(a.turns ? a.result.jpeg : jpeg); say(a.remark); }
//
// Holds nothing; every operation is a static function, safe on any thread
// (each thread keeps its own TurboJPEG handles).
#ifndef KPZ_KIT_KPZ_KPZUPRIGHT_H
#define KPZ_KIT_KPZ_KPZUPRIGHT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "util/DtNlTypes.h"

class DtRawRecord;

class KpzUpright {
 public:
  // What to do with partial blocks on an edge the turn moves.
  enum class Edges { Reencode, Trim };

  // The quality of a re-encoded picture.
  static constexpr int kQuality = 95;
  // Limits on the picture a JPEG declares: no real JPEG holds more than a
  // few hundred pixels per byte (every block costs at least one bit).
  static constexpr std::uint64_t kMaxPixels = 100000000;
  static constexpr std::uint64_t kMaxPixelsPerByte = 2048;

  // The orientation a file asks for.
  struct Orientation {
    int result = 0;          // DtRaw::GetRotationInfo's result (0, -100 missing, ...)
    unsigned char code = 0;  // the rotation code when result is 0
    int stored = -1;         // IFD0's orientation value as stored; -1 when not found
  };

  // The orientation `record` holds (the one parse of the file's head).
  static Orientation OrientationOf(const DtRawRecord& record);

  // The orientation of the file whose first bytes are `head` (`size`
  // bytes): DtRawRecord::Parse, then OrientationOf; a head that does not
  // parse gives the parse's result code.
  static Orientation ReadOrientation(const UINT8* head, std::size_t size);

  // True when `o` asks for a turn (a rotation code 1..7 was read).
  static bool Turns(const Orientation& o);
  // Why nothing is turned, in words ("its orientation is normal", "no
  // orientation is recorded in this file", "its orientation value 9 is not
  // one of 1 to 8"); empty when Turns(o).
  static std::string WhyNotTurned(const Orientation& o);

  // True when `value` is an Exif orientation value, 1..8.
  static bool IsExifOrientation(long long value) { return value >= 1 && value <= 8; }

  // What every front end says of an Exif orientation value out of range:
  // "its orientation value <value> is not one of 1 to 8".
  static std::string NotAnExifOrientationWords(long long value);

  // The turn of rotation `code` in words: "90° clockwise", "180°",
  // "mirrored left to right", ...; "none" for 0 and unknown codes.
  static const char* TurnWords(unsigned char code);

  enum class Treatment {
    Lossless,   // turned in the DCT domain, the whole picture
    Trimmed,    // turned in the DCT domain, partial edge blocks cut off
    Reencoded   // decoded, turned and encoded again at kQuality
  };

  struct Result {
    bool ok = false;
    std::string error;  // words, when !ok
    std::vector<UINT8> jpeg;
    Treatment treatment = Treatment::Lossless;
    int width = 0;             // the stored picture's size
    int height = 0;
    int outWidth = 0;          // the written picture's size
    int outHeight = 0;
    int blockWidth = 0;        // the MCU size of the stored picture
    int blockHeight = 0;
    int cutColumns = 0;        // Trimmed: pixels cut from the stored picture's right edge
    int cutRows = 0;           //          and from its bottom edge
    int ownOrientation = 0;    // the JPEG's own Exif orientation before it was set to 1; 0: none
  };

  // Turns the `size` bytes at `jpeg` for rotation `code` (1..7).
  static Result Turn(const UINT8* jpeg, std::size_t size, unsigned char code, Edges edges);

  // What was done by the turn of rotation `code`, for the per-file line of
  // -v ("turned 90° clockwise, losslessly", "... re-encoded at quality 95:
  // its height, 1080, is not a whole number of 16-pixel blocks", "... 8
  // pixel rows cut from the bottom edge ..."); Apply puts the picture's
  // name before it.
  static std::string Note(const Result& r, unsigned char code);
  // The end-of-run summary's words for a run of such files, or empty for a
  // lossless turn: "re-encoded at quality 95: edges not a whole number of
  // 16-pixel blocks", "trimmed to whole 16-pixel blocks".
  static std::string SummaryNote(const Result& r);

  // What `preview --upright` (and every other front end that offers it)
  // does with one picture: the turn the file asks for, and the words for it.
  struct Applied {
    bool turns = false;  // the file asks for a turn (Turns(orientation))
    Result result;       // the turn, when `turns`
    std::string error;   // when `turns` and !result.ok: "the <name> cannot be turned upright: ..."
    std::string remark;  // "<name> <Note>" or "<name> not turned: <WhyNotTurned>"
  };

  // Turns the stored picture (`size` bytes at `jpeg`, named `name` in the
  // words: "preview") as `orientation` asks. When it asks for no turn,
  // `jpeg` is not looked at (it may be null) and only the remark is set.
  static Applied Apply(const Orientation& orientation, const UINT8* jpeg, std::size_t size,
                       Edges edges, const char* name);

  // The pixel size a JPEG's header declares (`size` bytes at `jpeg`). True
  // with *width and *height set (both above 0); false when no header can be
  // read.
  static bool PictureSize(const UINT8* jpeg, std::size_t size, int* width, int* height);

  // Sets the Exif orientation (APP1 "Exif", IFD0 tag 0x0112, one SHORT) of
  // every Exif segment before the image data to 1, in place, in the
  // segment's byte order. Returns the first value found before the change
  // (0 when there is none). Every offset is checked against the bytes.
  static int SetOwnOrientationToNormal(UINT8* jpeg, std::size_t size);

  // The value of IFD0's orientation (tag 0x0112, one SHORT) in the TIFF
  // structure of a JPEG's own Exif segment, `size` bytes at `tiff`; -1 when
  // it is not there or cannot be read within those bytes. With `setNormal`,
  // the value is set to 1. (A KPZ file's own orientation comes from its
  // record: OrientationOf.)
  static int TiffOrientation(UINT8* tiff, std::size_t size, bool setNormal);

 private:
  // Turn without the catch of std::bad_alloc.
  static Result turn(const UINT8* jpeg, std::size_t size, unsigned char code, Edges edges);
};

#endif  // KPZ_KIT_KPZ_KPZUPRIGHT_H
