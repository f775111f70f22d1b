#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/time.h>
#include <qiv/time_classes.h>

#include <algorithm>
#include <climits>
#include <limits>
#include <string>

#include "support/run_in_thread.h"
#include "support/time_zone.h"

namespace {

using qiv::test::SetZone;

constexpr qiv_int64 kMicrosPerSecond = 1000000;
constexpr qiv_int64 kHalfYear = 182LL * 86400 * kMicrosPerSecond;
constexpr int kUntouched = -77;

// A zone five hours west of UTC, four while daylight saving is in force, as it is for 60 days
// around now.
std::string ZoneWithDaylightSavingNow() {
  const time_t now = time(nullptr);
  tm utc = {};
  gmtime_r(&now, &utc);
  const int start = (utc.tm_yday + 365 - 60) % 365 + 1;
  const int end = (utc.tm_yday + 60) % 365 + 1;
  return "AAA5BBB4,J" + std::to_string(start) + ",J" + std::to_string(end);
}

QIV_TIME_EXP_T Record(int year, int month, int day, int hour, int minute, int second) {
  QIV_TIME_EXP_T record = {};
  record.tm_year = year - 1900;
  record.tm_mon = month - 1;
  record.tm_mday = day;
  record.tm_hour = hour;
  record.tm_min = minute;
  record.tm_sec = second;
  return record;
}

TEST(AnsiTimeTest, SecondsBecomeMicroseconds) {
  EXPECT_EQ(0, QIV_TimeFromAnsiTime(0));
  EXPECT_EQ(1700000000000000LL, QIV_TimeFromAnsiTime(1700000000));
  EXPECT_EQ(-1000000, QIV_TimeFromAnsiTime(-1));
}

TEST(AnsiTimeTest, ProductBeyond64BitsWraps) {
  EXPECT_EQ(0, QIV_TimeFromAnsiTime(1LL << 58));
  EXPECT_EQ(-1000000, QIV_TimeFromAnsiTime(LLONG_MAX));
  EXPECT_EQ(0, QIV_TimeFromAnsiTime(LLONG_MIN));
}

TEST(AnsiTimeTest, MicrosecondsAreTruncatedTowardZero) {
  EXPECT_EQ(-1, QIV_AnsiTimeFromTime(-1500000));
  EXPECT_EQ(0, QIV_AnsiTimeFromTime(-999999));
  EXPECT_EQ(1, QIV_AnsiTimeFromTime(1999999));
  EXPECT_EQ(LLONG_MIN / 1000000, QIV_AnsiTimeFromTime(LLONG_MIN));
}

TEST(ExpTimeTest, NullOutputIsRefused) {
  EXPECT_EQ(-1, QIV_ExpTimeFromTime(0, 0, nullptr));
  EXPECT_EQ(-1, QIV_ExpTimeFromTimeGMT(0, nullptr));
  EXPECT_EQ(-1, QIV_ExpTimeFromTimeLocal(0, nullptr));
}

TEST(ExpTimeTest, EveryFieldIsFilled) {
  QIV_TIME_EXP_T record = {};
  ASSERT_EQ(0, QIV_ExpTimeFromTimeGMT(1709622489LL * kMicrosPerSecond + 123456, &record));
  EXPECT_EQ(123456, record.tm_usec);
  EXPECT_EQ(9, record.tm_sec);
  EXPECT_EQ(8, record.tm_min);
  EXPECT_EQ(7, record.tm_hour);
  EXPECT_EQ(5, record.tm_mday);
  EXPECT_EQ(2, record.tm_mon);
  EXPECT_EQ(124, record.tm_year);
  EXPECT_EQ(2, record.tm_wday);
  EXPECT_EQ(64, record.tm_yday);
  EXPECT_EQ(0, record.tm_isdst);
  EXPECT_EQ(0, record.tm_gmtoff);
}

TEST(ExpTimeTest, OneMicrosecondBefore1970IsKeptAtSecondZeroWithNegativeMicroseconds) {
  QIV_TIME_EXP_T record = {};
  ASSERT_EQ(0, QIV_ExpTimeFromTimeGMT(-1, &record));
  EXPECT_EQ(70, record.tm_year);
  EXPECT_EQ(0, record.tm_mon);
  EXPECT_EQ(1, record.tm_mday);
  EXPECT_EQ(0, record.tm_hour + record.tm_min + record.tm_sec);
  EXPECT_EQ(-1, record.tm_usec);
}

TEST(ExpTimeTest, OffsetMovesTheWallClockAndIsStored) {
  QIV_TIME_EXP_T record = {};
  ASSERT_EQ(0, QIV_ExpTimeFromTime(0, 8 * 3600, &record));
  EXPECT_EQ(8, record.tm_hour);
  EXPECT_EQ(28800, record.tm_gmtoff);
  ASSERT_EQ(0, QIV_ExpTimeFromTime(0, -1, &record));
  EXPECT_EQ(69, record.tm_year);
  EXPECT_EQ(59, record.tm_sec);
  EXPECT_EQ(-1, record.tm_gmtoff);
}

TEST(ExpTimeTest, ExtremeTimesAndOffsetsAreConvertedOrRefusedWhole) {
  for (const QIV_TIME_T time : {LLONG_MIN, LLONG_MAX}) {
    for (const int offset : {INT_MIN, INT_MAX}) {
      QIV_TIME_EXP_T record = {};
      record.tm_gmtoff = kUntouched;
      const int result = QIV_ExpTimeFromTime(time, offset, &record);
      EXPECT_EQ(result == 0 ? offset : kUntouched, record.tm_gmtoff);
      EXPECT_EQ(result == 0 ? time % kMicrosPerSecond : 0, record.tm_usec);
    }
  }
}

TEST(ExpTimeLocalTest, FieldsShowTheLocalZoneAndGmtoffIsItsOffset) {
  SetZone("CCC-8");
  QIV_TIME_EXP_T record = {};
  ASSERT_EQ(0, QIV_ExpTimeFromTimeLocal(1500000, &record));
  EXPECT_EQ(8, record.tm_hour);
  EXPECT_EQ(1, record.tm_sec);
  EXPECT_EQ(500000, record.tm_usec);
  EXPECT_EQ(28800, record.tm_gmtoff);
}

TEST(ExpTimeLocalTest, GmtoffWhileDaylightSavingIsInForceIsStandardPlusOneHour) {
  SetZone(ZoneWithDaylightSavingNow().c_str());
  QIV_TIME_EXP_T record = {};
  ASSERT_EQ(0, QIV_ExpTimeFromTimeLocal(QIV_TimeNow(), &record));
  EXPECT_EQ(1, record.tm_isdst);
  EXPECT_EQ(-4 * 3600, record.tm_gmtoff);
}

TEST(ExpTimeLocalTest, TimeBeyondADaylightSavingChangeStillGetsTheCurrentOffset) {
  SetZone(ZoneWithDaylightSavingNow().c_str());
  const QIV_TIME_T time = QIV_TimeNow() - kHalfYear;
  QIV_TIME_EXP_T local = {};
  QIV_TIME_EXP_T standard = {};
  ASSERT_EQ(0, QIV_ExpTimeFromTimeLocal(time, &local));
  ASSERT_EQ(0, QIV_ExpTimeFromTime(time, -5 * 3600, &standard));
  EXPECT_EQ(0, local.tm_isdst);
  EXPECT_EQ(standard.tm_hour, local.tm_hour);
  EXPECT_EQ(-4 * 3600, local.tm_gmtoff);
}

struct ConversionRow {
  const char* name;
  QIV_TIME_EXP_T record;
  int result;
  qiv_int64 seconds;
};

TEST(TimeFromExpTimeTest, DatesBecomeTimes) {
  const ConversionRow rows[] = {
      {"epoch", Record(1970, 1, 1, 0, 0, 0), 0, 0},
      {"second before the epoch", Record(1969, 12, 31, 23, 59, 59), -1, 0},
      {"leap day of 2000", Record(2000, 2, 29, 12, 0, 0), 0, 951825600},
      {"day after the leap day of 2000", Record(2000, 3, 1, 0, 0, 0), 0, 951868800},
      {"last day of February 2100", Record(2100, 2, 28, 0, 0, 0), 0, 4107456000},
      {"1 March 2100, no leap day", Record(2100, 3, 1, 0, 0, 0), 0, 4107542400},
      {"January counts from the year before", Record(2024, 1, 1, 0, 0, 0), 0, 1704067200},
      {"December", Record(2024, 12, 31, 23, 59, 59), 0, 1735689599},
      {"leap second of the record", Record(2016, 12, 31, 23, 59, 60), 0, 1483228800},
      {"day beyond its month", Record(2024, 1, 32, 0, 0, 0), 0, 1706745600},
      {"hour below zero", Record(2024, 1, 1, -1, 0, 0), 0, 1704063600},
      {"year 1900", Record(1900, 3, 1, 0, 0, 0), -1, 0},
      {"month below the table", Record(2024, 0, 1, 0, 0, 0), -1, 0},
      {"month above the table", Record(2024, 13, 1, 0, 0, 0), -1, 0},
      {"smallest month", Record(2024, INT_MIN + 1, 1, 0, 0, 0), -1, 0},
  };
  for (const ConversionRow& row : rows) {
    QIV_TIME_T time = kUntouched;
    EXPECT_EQ(row.result, QIV_TimeFromExpTime(&row.record, &time)) << row.name;
    EXPECT_EQ(row.result == 0 ? row.seconds * kMicrosPerSecond : kUntouched, time) << row.name;
  }
}

TEST(TimeFromExpTimeTest, EveryDayOfFourHundredYearsComesBack) {
  // A platform's time_t may end before.
  const auto lastDay = std::min<qiv_int64>(146096, std::numeric_limits<time_t>::max() / 86400);
  for (qiv_int64 day = 0; day <= lastDay; ++day) {
    const QIV_TIME_T time = day * 86400 * kMicrosPerSecond;
    QIV_TIME_EXP_T record = {};
    ASSERT_EQ(0, QIV_ExpTimeFromTimeGMT(time, &record)) << "day " << day;
    QIV_TIME_T back = kUntouched;
    ASSERT_EQ(0, QIV_TimeFromExpTime(&record, &back));
    ASSERT_EQ(time, back) << "day " << day;
  }
}

TEST(TimeFromExpTimeTest, OnlyMicrosecondsToYearsAreUsed) {
  QIV_TIME_EXP_T record = Record(1970, 1, 1, 0, 0, 1);
  record.tm_usec = 5;
  record.tm_wday = 99;
  record.tm_yday = -99;
  record.tm_isdst = 1;
  record.tm_gmtoff = 3600;
  QIV_TIME_T time = kUntouched;
  ASSERT_EQ(0, QIV_TimeFromExpTime(&record, &time));
  EXPECT_EQ(1000005, time);
}

TEST(TimeFromExpTimeTest, NegativeMicrosecondsDoNotMakeADateBefore1970) {
  QIV_TIME_EXP_T record = Record(1970, 1, 1, 0, 0, 0);
  record.tm_usec = -1;
  QIV_TIME_T time = kUntouched;
  ASSERT_EQ(0, QIV_TimeFromExpTime(&record, &time));
  EXPECT_EQ(-1, time);
}

TEST(TimeFromExpTimeTest, ExtremeFieldsWrapWithoutHarm) {
  QIV_TIME_EXP_T record = {};
  record.tm_usec = INT_MAX;
  record.tm_sec = INT_MAX;
  record.tm_min = INT_MAX;
  record.tm_hour = INT_MAX;
  record.tm_mday = INT_MAX;
  record.tm_mon = 11;
  record.tm_year = INT_MAX;
  record.tm_gmtoff = INT_MIN;
  QIV_TIME_T time = kUntouched;
  EXPECT_EQ(0, QIV_TimeFromExpTime(&record, &time));
  EXPECT_EQ(0, QIV_TimeFromExpTimeGMT(&record, &time));
  record.tm_year = INT_MIN;
  record.tm_mon = 0;
  EXPECT_EQ(-1, QIV_TimeFromExpTime(&record, &time));
}

TEST(TimeFromExpTimeTest, NullPointersAreRefused) {
  const QIV_TIME_EXP_T record = Record(2000, 1, 1, 0, 0, 0);
  QIV_TIME_T time = kUntouched;
  EXPECT_EQ(-1, QIV_TimeFromExpTime(nullptr, &time));
  EXPECT_EQ(-1, QIV_TimeFromExpTime(&record, nullptr));
  EXPECT_EQ(-1, QIV_TimeFromExpTimeGMT(nullptr, &time));
  EXPECT_EQ(-1, QIV_TimeFromExpTimeGMT(&record, nullptr));
  EXPECT_EQ(kUntouched, time);
}

TEST(TimeFromExpTimeGmtTest, OffsetIsSubtracted) {
  QIV_TIME_EXP_T record = Record(1970, 1, 1, 8, 0, 0);
  record.tm_gmtoff = 8 * 3600;
  QIV_TIME_T time = kUntouched;
  ASSERT_EQ(0, QIV_TimeFromExpTimeGMT(&record, &time));
  EXPECT_EQ(0, time);
}

TEST(TimeFromExpTimeGmtTest, OffsetWestOfUtcIsSubtractedToo) {
  QIV_TIME_EXP_T record = Record(1970, 1, 1, 19, 0, 0);
  record.tm_gmtoff = -5 * 3600;
  QIV_TIME_T time = kUntouched;
  ASSERT_EQ(0, QIV_TimeFromExpTimeGMT(&record, &time));
  EXPECT_EQ(86400 * kMicrosPerSecond, time);
}

TEST(TimeFromExpTimeGmtTest, MonthOutOfRangeIsKeptASuccessThatWritesNothing) {
  for (const int month : {0, 13}) {
    const QIV_TIME_EXP_T record = Record(2024, month, 1, 0, 0, 0);
    QIV_TIME_T time = kUntouched;
    EXPECT_EQ(0, QIV_TimeFromExpTimeGMT(&record, &time)) << month;
    EXPECT_EQ(kUntouched, time) << month;
  }
}

TEST(TimeFromExpTimeGmtTest, DateBefore1970IsKeptASuccessThatWritesNothing) {
  const QIV_TIME_EXP_T record = Record(1969, 12, 31, 23, 59, 59);
  QIV_TIME_T time = kUntouched;
  EXPECT_EQ(0, QIV_TimeFromExpTimeGMT(&record, &time));
  EXPECT_EQ(kUntouched, time);
}

// The platform's conversions may be cancellation points; these functions are none.
TEST(TimeCancellationTest, ThreadWithACancellationPendingConvertsAndGoesOn) {
  const auto convert = [] {
    int ignored = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
    pthread_cancel(pthread_self());
    pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
    QIV_TIME_EXP_T record = {};
    char text[64];
    size_t length = 0;
    QIV_ExpTimeFromTimeLocal(0, &record);
    QIV_CTime(text, 0);
    QIV_StrFmtTime(text, &length, sizeof text, "%c", &record);
    tm fields = {};
    qiv::qiv_time::time2tm(0, &fields);
    qiv::qiv_time(5).update_time();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
    return true;
  };
  EXPECT_TRUE(qiv::test::RunInThread(convert).Get());
}

}  // namespace
