// KpzRotationTest.cpp - rotation codes in words and their composition with
// quarter turns (kit/kpz/KpzRotation), checked against the pixel
// transforms the codes stand for.
#include <gtest/gtest.h>

#if defined(KPZ_TEST_HAVE_KIT)

#include "kpz/KpzRotation.h"

#include <array>
#include <string>

#include "raw/DtRaw.h"

namespace {

using Dir = KpzRotation::Direction;

// A 2 x 2 integer matrix acting on picture coordinates (x right, y down).
using Matrix = std::array<int, 4>;  // {a, b, c, d}: (x, y) -> (a x + b y, c x + d y)

Matrix Mul(const Matrix& p, const Matrix& q) {  // p after q
  return {p[0] * q[0] + p[1] * q[2], p[0] * q[1] + p[1] * q[3],
          p[2] * q[0] + p[3] * q[2], p[2] * q[1] + p[3] * q[3]};
}

const Matrix kIdentity = {1, 0, 0, 1};
const Matrix kClockwise = {0, -1, 1, 0};  // right (1, 0) goes down to (0, 1)
const Matrix kMirrorLeftRight = {-1, 0, 0, 1};
const Matrix kMirrorTopBottom = {1, 0, 0, -1};

Matrix Power(const Matrix& m, int n) {
  Matrix r = kIdentity;
  for (int i = 0; i < n; ++i) {
    r = Mul(m, r);
  }
  return r;
}

// The transform of each rotation code, from the Exif meaning of the
// orientation it maps to: "mirror horizontally and rotate 90 degrees
// counter-clockwise" is the mirror first, then the turn.
Matrix TransformOf(unsigned char code) {
  switch (code) {
    case 0: return kIdentity;
    case 1: return kClockwise;
    case 2: return Power(kClockwise, 2);
    case 3: return Power(kClockwise, 3);
    case 4: return kMirrorLeftRight;
    case 5: return Mul(Power(kClockwise, 3), kMirrorLeftRight);
    case 6: return kMirrorTopBottom;
    default: return Mul(kClockwise, kMirrorLeftRight);
  }
}

TEST(KpzRotation, ClockwiseTurnsThePlainCodesInOrder) {
  EXPECT_EQ(KpzRotation::Turn(0, Dir::Clockwise), 1);
  EXPECT_EQ(KpzRotation::Turn(1, Dir::Clockwise), 2);
  EXPECT_EQ(KpzRotation::Turn(2, Dir::Clockwise), 3);
  EXPECT_EQ(KpzRotation::Turn(3, Dir::Clockwise), 0);
}

TEST(KpzRotation, CompositionTableForAllCodesAndTurns) {
  // [code][cw, ccw, 180]
  const unsigned char table[8][3] = {{1, 3, 2}, {2, 0, 3}, {3, 1, 0}, {0, 2, 1},
                                     {7, 5, 6}, {4, 6, 7}, {5, 7, 4}, {6, 4, 5}};
  for (unsigned char code = 0; code < 8; ++code) {
    EXPECT_EQ(KpzRotation::Turn(code, Dir::Clockwise), table[code][0]) << int(code);
    EXPECT_EQ(KpzRotation::Turn(code, Dir::CounterClockwise), table[code][1]) << int(code);
    EXPECT_EQ(KpzRotation::Turn(code, Dir::HalfTurn), table[code][2]) << int(code);
  }
}

TEST(KpzRotation, TurningMatchesTurningThePictureAsShown) {
  const struct {
    Dir dir;
    Matrix turn;
  } turns[] = {{Dir::Clockwise, kClockwise},
               {Dir::CounterClockwise, Power(kClockwise, 3)},
               {Dir::HalfTurn, Power(kClockwise, 2)}};
  for (unsigned char code = 0; code < 8; ++code) {
    for (const auto& t : turns) {
      EXPECT_EQ(TransformOf(KpzRotation::Turn(code, t.dir)), Mul(t.turn, TransformOf(code)))
          << "code " << int(code) << " turned " << KpzRotation::Words(t.dir);
    }
  }
}

TEST(KpzRotation, MirroredVerticallyIsMirroredHorizontallyTurnedHalfWay) {
  EXPECT_EQ(TransformOf(6), Mul(Power(kClockwise, 2), kMirrorLeftRight));
}

TEST(KpzRotation, MirroredCodesStayMirroredAndPlainOnesPlain) {
  for (unsigned char code = 0; code < 8; ++code) {
    for (Dir d : {Dir::Clockwise, Dir::CounterClockwise, Dir::HalfTurn}) {
      EXPECT_EQ(KpzRotation::IsMirrored(KpzRotation::Turn(code, d)), code >= 4) << int(code);
    }
  }
  EXPECT_FALSE(KpzRotation::IsMirrored(8));
}

TEST(KpzRotation, OppositeTurnsCancelAndFourQuarterTurnsAreWhole) {
  for (unsigned char code = 0; code < 8; ++code) {
    EXPECT_EQ(KpzRotation::Turn(KpzRotation::Turn(code, Dir::Clockwise), Dir::CounterClockwise),
              code);
    EXPECT_EQ(KpzRotation::Turn(KpzRotation::Turn(code, Dir::HalfTurn), Dir::HalfTurn), code);
    unsigned char c = code;
    for (int i = 0; i < 4; ++i) {
      c = KpzRotation::Turn(c, Dir::Clockwise);
    }
    EXPECT_EQ(c, code);
  }
}

TEST(KpzRotation, CodeAboveSevenIsTakenAsNormal) {
  EXPECT_EQ(KpzRotation::Turn(8, Dir::Clockwise), 1);
  EXPECT_EQ(KpzRotation::Turn(255, Dir::HalfTurn), 2);
  EXPECT_EQ(KpzRotation::Turn(9, Dir::CounterClockwise), 3);
}

TEST(KpzRotation, EveryCodeHasItsWords) {
  const char* const words[8] = {"normal",
                                "rotated 90° clockwise",
                                "rotated 180°",
                                "rotated 90° counter-clockwise",
                                "mirrored horizontally",
                                "mirrored horizontally, rotated 90° counter-clockwise",
                                "mirrored vertically",
                                "mirrored horizontally, rotated 90° clockwise"};
  for (unsigned char code = 0; code < 8; ++code) {
    EXPECT_STREQ(KpzRotation::Words(code), words[code]);
  }
  EXPECT_STREQ(KpzRotation::Words(static_cast<unsigned char>(8)), "unknown");
}

TEST(KpzRotation, WordsFollowTheExifOrientationOfEachCode) {
  // Exif orientation -> its meaning, as the standard words it.
  const struct {
    unsigned short exif;
    const char* words;
  } exif[] = {{1, "normal"},
              {6, "rotated 90° clockwise"},
              {3, "rotated 180°"},
              {8, "rotated 90° counter-clockwise"},
              {2, "mirrored horizontally"},
              {5, "mirrored horizontally, rotated 90° counter-clockwise"},
              {4, "mirrored vertically"},
              {7, "mirrored horizontally, rotated 90° clockwise"}};
  for (const auto& e : exif) {
    EXPECT_STREQ(KpzRotation::Words(DtRaw::convRotInfoStdtoUse(e.exif)), e.words) << e.exif;
  }
}

TEST(KpzRotation, TurnsHaveWords) {
  EXPECT_STREQ(KpzRotation::Words(Dir::Clockwise), "90° clockwise");
  EXPECT_STREQ(KpzRotation::Words(Dir::CounterClockwise), "90° counter-clockwise");
  EXPECT_STREQ(KpzRotation::Words(Dir::HalfTurn), "180°");
}

}  // namespace

#else

TEST(KpzRotation, NeedsTheKpzTool) { GTEST_SKIP() << "the kpz tool is not built"; }

#endif
