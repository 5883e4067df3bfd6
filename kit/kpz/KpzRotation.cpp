// KpzRotation.cpp - rotation codes in words and their composition with
// quarter turns (kit/kpz). See KpzRotation.h for the table and contracts.

#include "kpz/KpzRotation.h"

namespace {

// Quarter turns clockwise of the mirrored codes 4..7, indexed by code - 4.
constexpr unsigned int kMirroredTurns[4] = {0, 3, 2, 1};
// The mirrored code with k quarter turns clockwise, indexed by k.
constexpr unsigned char kMirroredCodes[4] = {4, 7, 6, 5};

const char* const kWords[KpzRotation::kLastCode + 1] = {
    "normal",
    "rotated 90° clockwise",
    "rotated 180°",
    "rotated 90° counter-clockwise",
    "mirrored horizontally",
    "mirrored horizontally, rotated 90° counter-clockwise",
    "mirrored vertically",
    "mirrored horizontally, rotated 90° clockwise",
};

}  // namespace

std::string KpzRotation::NotACodeWords(const std::string& given) {
  return std::string("a rotation code is ") + kCodeRange + ", not " + given;
}

bool KpzRotation::IsMirrored(unsigned char code) { return code >= 4 && code <= kLastCode; }

unsigned int KpzRotation::quarterTurns(unsigned char code) {
  if (code > kLastCode) {
    return 0;
  }
  return IsMirrored(code) ? kMirroredTurns[code - 4] : code;
}

unsigned char KpzRotation::codeOf(unsigned int turns, bool mirrored) {
  const unsigned int k = turns % 4;
  return mirrored ? kMirroredCodes[k] : static_cast<unsigned char>(k);
}

unsigned char KpzRotation::Turn(unsigned char code, Direction direction) {
  unsigned int by = 1;
  if (direction == Direction::HalfTurn) {
    by = 2;
  } else if (direction == Direction::CounterClockwise) {
    by = 3;  // three quarter turns clockwise
  }
  return codeOf(quarterTurns(code) + by, IsMirrored(code));
}

const char* KpzRotation::Words(unsigned char code) {
  return code <= kLastCode ? kWords[code] : "unknown";
}

const char* KpzRotation::Words(Direction direction) {
  switch (direction) {
    case Direction::Clockwise:
      return "90° clockwise";
    case Direction::CounterClockwise:
      return "90° counter-clockwise";
    case Direction::HalfTurn:
      break;
  }
  return "180°";
}
