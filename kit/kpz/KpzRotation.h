// KpzRotation.h - rotation codes of a KPZ file in words, and turning them.
//
// Part of the kit (kit/kpz), above the library's raw
// facade. The library keeps a picture's orientation as a rotation code 0..7
// (DtRaw::GetRotationInfo, DtRaw::SetRotationInfo): what must be done to the
// stored picture to show it upright.
//
//   code  words                                        as a transform
//   0     normal                                       R0
//   1     rotated 90° clockwise                        R1
//   2     rotated 180°                                 R2
//   3     rotated 90° counter-clockwise                R3
//   4     mirrored horizontally                        R0 after M
//   5     mirrored horizontally, rotated 90° counter-clockwise   R3 after M
//   6     mirrored vertically                          R2 after M
//   7     mirrored horizontally, rotated 90° clockwise R1 after M
//
// (Rk: k quarter turns clockwise; M: mirror left-right.) Turning a picture
// that is shown by Rk, or by Rk after M, a further quarter turn clockwise
// gives Rk+1, or Rk+1 after M: a mirrored picture stays mirrored. So
// Turn(4, Clockwise) is 7 and Turn(5, Clockwise) is 4.
//
//   unsigned char next = KpzRotation::Turn(1, KpzRotation::Direction::CounterClockwise);
//   // next == 0; KpzRotation::Words(next) == "normal"
//
// Holds nothing; every operation is a static function.
#ifndef KPZ_KIT_KPZ_KPZROTATION_H
#define KPZ_KIT_KPZ_KPZROTATION_H

#include <string>

class KpzRotation {
 public:
  // Rotation codes run from 0 to kLastCode.
  static constexpr unsigned char kLastCode = 7;
  // The codes in words, for messages ("--code takes a rotation code from 0 to 7").
  static constexpr const char* kCodeRange = "0 to 7";

  // True when `value` is a rotation code, 0..kLastCode.
  static bool IsCode(long long value) { return value >= 0 && value <= kLastCode; }

  // What every front end says of a rotation code given out of range, after
  // "kpz: ": "a rotation code is 0 to 7, not <given>" (`given` as the caller
  // wrote the number: an int of any size).
  static std::string NotACodeWords(const std::string& given);

  enum class Direction {
    Clockwise,         // a quarter turn clockwise
    CounterClockwise,  // a quarter turn counter-clockwise
    HalfTurn           // 180 degrees
  };

  // The code that shows the picture of `code` turned further by `direction`.
  // A code above kLastCode is taken as 0 (normal), as the library writes
  // such a code as the plain orientation.
  static unsigned char Turn(unsigned char code, Direction direction);

  // The picture's orientation in words ("normal", "rotated 90° clockwise",
  // ... as in the table above); "unknown" for a code above kLastCode.
  static const char* Words(unsigned char code);

  // The turn in words: "90° clockwise", "90° counter-clockwise", "180°".
  static const char* Words(Direction direction);

  // True for the mirrored codes 4..7.
  static bool IsMirrored(unsigned char code);

 private:
  // Quarter turns clockwise (0..3) of a code's transform.
  static unsigned int quarterTurns(unsigned char code);
  // The code of "quarterTurns after M" (mirrored) or of the plain turn.
  static unsigned char codeOf(unsigned int quarterTurns, bool mirrored);
};

#endif  // KPZ_KIT_KPZ_KPZROTATION_H
