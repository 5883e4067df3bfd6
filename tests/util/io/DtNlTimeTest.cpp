#include "util/io/DtNlTime.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <cstdint>
#include <ctime>
#include <limits>
#include <string>

#include "support/FaultInjection.h"

namespace {

void ExpectFields(DtNlTime const& t, int year, int month, int day, int hour, int minute,
                  int second) {
  EXPECT_EQ(t.GetYear(), year);
  EXPECT_EQ(t.GetMonth(), month);
  EXPECT_EQ(t.GetDay(), day);
  EXPECT_EQ(t.GetHour(), hour);
  EXPECT_EQ(t.GetMinute(), minute);
  EXPECT_EQ(t.GetSecond(), second);
}

void ExpectLocal(DtNlTime const& t, time_t seconds) {
  struct tm expected {};
  ASSERT_NE(localtime_r(&seconds, &expected), nullptr);
  ExpectFields(t, expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday,
               expected.tm_hour, expected.tm_min, expected.tm_sec);
}

// Runs the test body in UTC and restores the caller's zone afterwards.
class UtcZone {
 public:
  UtcZone() {
    const char* tz = getenv("TZ");
    hadTz_ = tz != nullptr;
    if (hadTz_) old_ = tz;
    setenv("TZ", "UTC0", 1);
    tzset();
  }
  ~UtcZone() {
    if (hadTz_) {
      setenv("TZ", old_.c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  UtcZone(const UtcZone&) = delete;
  UtcZone& operator=(const UtcZone&) = delete;

 private:
  bool hadTz_ = false;
  std::string old_;
};

TEST(DtNlTime, ClockAtZeroGivesAnInvalidTimeWithZeroedFields) {
  kpztest::FaultGuard guard;
  kpztest::SetTime(0);
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 0);
  ExpectFields(t, 1900, 1, 0, 0, 0, 0);
}

TEST(DtNlTime, NegativeClockIsInvalid) {
  kpztest::FaultGuard guard;
  kpztest::SetTime(-1);
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 0);
  ExpectFields(t, 1900, 1, 0, 0, 0, 0);
}

TEST(DtNlTime, ClockAtOneIsValid) {
  kpztest::FaultGuard guard;
  kpztest::SetTime(1);
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 1);
  ExpectLocal(t, 1);
}

TEST(DtNlTime, ConstructionReadsTheClockOnce) {
  kpztest::FaultGuard guard;
  DtNlTime t;
  EXPECT_EQ(kpztest::CallCount(kpztest::Call::Time), 1);
  EXPECT_EQ(t.IsValid(), 1);
}

TEST(DtNlTime, FieldsAreTheLocalBrokenDownTime) {
  kpztest::FaultGuard guard;
  kpztest::SetTime(1700000000);
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 1);
  ExpectLocal(t, 1700000000);
}

TEST(DtNlTime, FieldsInUtcCountMonthFromOneAndYearFrom1900) {
  kpztest::FaultGuard guard;
  UtcZone utc;
  kpztest::SetTime(1700000000);  // 2023-11-14 22:13:20 UTC
  DtNlTime t;
  ExpectFields(t, 2023, 11, 14, 22, 13, 20);
  kpztest::SetTime(951782400 - 1);  // 2000-02-28 23:59:59 UTC
  DtNlTime leap;
  ExpectFields(leap, 2000, 2, 28, 23, 59, 59);
}

TEST(DtNlTime, ClockBeyondTheBrokenDownRangeIsValidWithZeroedFields) {
  // localtime_r cannot represent this year in an int: the fields stay zero.
  // A 32-bit time_t ends in 2038, which breaks down normally.
  if (sizeof(time_t) < 8) {
    GTEST_SKIP() << "time_t is 32 bits wide here";
  }
  kpztest::FaultGuard guard;
  kpztest::SetTime(std::numeric_limits<time_t>::max());
  DtNlTime t;
  EXPECT_EQ(t.IsValid(), 1);
  ExpectFields(t, 1900, 1, 0, 0, 0, 0);
}

}  // namespace
