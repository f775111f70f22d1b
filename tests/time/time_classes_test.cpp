#include <qiv/time_classes.h>

#include <gtest/gtest.h>
#include <qiv/time.h>

#include <climits>
#include <limits>
#include <type_traits>

#include "support/time_zone.h"

namespace {

using qiv::qiv_time;
using qiv::qiv_time_tick;
using qiv::test::SetZone;

TEST(TimeTickTest, DefaultIsTheWallClockInMicroseconds) {
  const QIV_TIME_T before = QIV_TimeNow();
  const qiv_time_tick tick;
  EXPECT_LE(before, tick.get_time());
  EXPECT_LE(tick.get_time(), qiv_time_tick::now());
}

TEST(TimeTickTest, UpdateTakesTheCurrentTime) {
  qiv_time_tick tick(5);
  const QIV_TIME_T before = QIV_TimeNow();
  tick.update_time();
  EXPECT_LE(before, tick.get_time());
}

TEST(TimeTickTest, CopiesHaveTheValue) {
  qiv_time_tick tick(5);
  const qiv_time_tick copy(tick);
  qiv_time_tick assigned(6);
  assigned = tick;
  tick += qiv_time_tick(1);
  EXPECT_EQ(5, copy.get_time());
  EXPECT_EQ(5, assigned.get_time());
}

TEST(TimeTickTest, SumsAndDifferencesReturnTheTick) {
  qiv_time_tick tick(5);
  EXPECT_EQ(&tick, &(tick += qiv_time_tick(7)));
  EXPECT_EQ(12, tick.get_time());
  EXPECT_EQ(&tick, &(tick -= qiv_time_tick(20)));
  EXPECT_EQ(-8, tick.get_time());
}

TEST(TimeTickTest, SumsBeyond64BitsWrap) {
  qiv_time_tick tick(LLONG_MAX);
  tick += qiv_time_tick(1);
  EXPECT_EQ(LLONG_MIN, tick.get_time());
  tick -= qiv_time_tick(1);
  EXPECT_EQ(LLONG_MAX, tick.get_time());
}

TEST(TimeTickTest, ComparisonsCompareTheValues) {
  const qiv_time_tick small(-1);
  const qiv_time_tick large(1);
  EXPECT_TRUE(small == qiv_time_tick(-1));
  EXPECT_FALSE(small == large);
  EXPECT_TRUE(small < large);
  EXPECT_FALSE(large < small);
  EXPECT_TRUE(large > small);
  EXPECT_FALSE(small > small);
}

struct TimevalRow {
  const char* name;
  timeval time;
  long long ms;
  long long us;
};

TEST(TimeTickTest, TimevalsBecomeMillisecondsAndMicroseconds) {
  const TimevalRow rows[] = {
      {"zero", {0, 0}, 0, 0},
      {"rounded down", {1, 499}, 1000, 1000499},
      {"rounded up", {1, 500}, 1001, 1000500},
      {"carries", {1, 999500}, 2000, 1999500},
      {"seconds of -1 are refused", {-1, 5}, -1, -1},
      {"microseconds of -1 are refused", {5, -1}, -1, -1},
      {"other negative seconds are not", {-2, 0}, -2000, -2000000},
      {"beyond 32 bits", {2000000000, 1}, 2000000000000, 2000000000000001},
  };
  for (const TimevalRow& row : rows) {
    EXPECT_EQ(row.ms, qiv_time_tick::timeval2ms(&row.time)) << row.name;
    EXPECT_EQ(row.us, qiv_time_tick::timeval2us(&row.time)) << row.name;
  }
  EXPECT_EQ(-1, qiv_time_tick::timeval2ms(nullptr));
  EXPECT_EQ(-1, qiv_time_tick::timeval2us(nullptr));
}

TEST(TimeTickTest, ExtremeTimevalsWrapWithoutHarm) {
  using Seconds = std::numeric_limits<decltype(timeval::tv_sec)>;
  using Microseconds = std::numeric_limits<decltype(timeval::tv_usec)>;
  const timeval largest = {Seconds::max(), Microseconds::max()};
  const timeval smallest = {Seconds::min(), Microseconds::min()};
  EXPECT_NE(qiv_time_tick::timeval2ms(&largest), qiv_time_tick::timeval2ms(&smallest));
  EXPECT_NE(qiv_time_tick::timeval2us(&largest), qiv_time_tick::timeval2us(&smallest));
}

TEST(TimeTickTest, MillisecondsBecomeATimeval) {
  timeval time = {};
  EXPECT_EQ(&time, qiv_time_tick::ms2timeval(1234, &time));
  EXPECT_EQ(1, time.tv_sec);
  EXPECT_EQ(234000, time.tv_usec);
}

TEST(TimeTickTest, MicrosecondsBecomeATimeval) {
  timeval time = {};
  EXPECT_EQ(&time, qiv_time_tick::us2timeval(1234567, &time));
  EXPECT_EQ(1, time.tv_sec);
  EXPECT_EQ(234567, time.tv_usec);
}

TEST(TimeTickTest, NegativeValuesAndNullGiveNoTimeval) {
  timeval time = {7, 8};
  EXPECT_EQ(nullptr, qiv_time_tick::ms2timeval(-1, &time));
  EXPECT_EQ(nullptr, qiv_time_tick::us2timeval(-1, &time));
  EXPECT_EQ(7, time.tv_sec);
  EXPECT_EQ(8, time.tv_usec);
  EXPECT_EQ(nullptr, qiv_time_tick::ms2timeval(1, nullptr));
  EXPECT_EQ(nullptr, qiv_time_tick::us2timeval(1, nullptr));
}

struct UnitRow {
  long long value;
  long long inThousands;
  long long inMillions;
};

TEST(TimeTickTest, UnitsAreConvertedRounded) {
  const UnitRow rows[] = {
      {-1, -1, -1},
      {LLONG_MIN, -1, -1},
      {0, 0, 0},
      {499, 0, 0},
      {500, 1, 0},
      {1499, 1, 0},
      {1500, 2, 0},
      {499999, 500, 0},
      {500000, 500, 1},
      {1500000, 1500, 2},
      {LLONG_MAX, 9223372036854776, 9223372036855},
  };
  for (const UnitRow& row : rows) {
    EXPECT_EQ(row.inThousands, qiv_time_tick::us2ms(row.value)) << row.value;
    EXPECT_EQ(row.inThousands, qiv_time_tick::ms2s(row.value)) << row.value;
    EXPECT_EQ(row.inMillions, qiv_time_tick::us2s(row.value)) << row.value;
  }
}

TEST(QivTimeTest, DefaultAndUpdateAreTheCurrentTime) {
  const time_t before = time(nullptr);
  qiv_time current;
  EXPECT_LE(before, current.get_time());
  qiv_time old(0);
  EXPECT_LE(before, old.update_time());
  EXPECT_LE(before, old.get_time());
  EXPECT_EQ(current.get_time(), qiv_time(current).get_time());
  EXPECT_EQ(current.now(), current.get_time());
  EXPECT_GE(current.get_year(), 2024);
}

TEST(QivTimeTest, FieldsAreThoseOfTheLocalZone) {
  SetZone("CCC-8");
  const qiv_time time(1704067200 - 8 * 3600 + 3723);  // 2024-01-01 01:02:03 there
  EXPECT_EQ(2024, time.get_year());
  EXPECT_EQ(0, time.get_mon()) << "January";
  EXPECT_EQ(1, time.get_day());
  EXPECT_EQ(1, time.get_mon_day());
  EXPECT_EQ(1, time.get_hour());
  EXPECT_EQ(2, time.get_min());
  EXPECT_EQ(3, time.get_sec());
  EXPECT_EQ(1, time.get_week_day()) << "Monday";
  EXPECT_EQ(0, time.get_year_day());
}

TEST(QivTimeTest, CopiesAndAssignmentsHaveSecondsAndFields) {
  SetZone("UTC0");
  qiv_time time(86400);
  const qiv_time copy(time);
  qiv_time assigned(0);
  assigned = time;
  time += qiv_time(86400);
  EXPECT_EQ(86400, copy.get_time());
  EXPECT_EQ(2, copy.get_day());
  EXPECT_EQ(86400, assigned.get_time());
  EXPECT_EQ(2, assigned.get_day());
}

TEST(QivTimeTest, SumMovesTheFieldsToo) {
  SetZone("UTC0");
  qiv_time time(3600);
  EXPECT_EQ(&time, &(time += qiv_time(86400)));
  EXPECT_EQ(90000, time.get_time());
  EXPECT_EQ(2, time.get_day());
  EXPECT_EQ(1, time.get_hour());
}

TEST(QivTimeTest, NegativeDifferenceBecomesZero) {
  SetZone("UTC0");
  constexpr long long kFirst = std::numeric_limits<time_t>::min();
  const struct {
    const char* name;
    long long value;
    long long subtracted;
  } rows[] = {
      {"ten minus twenty", 10, 20},
      {"below 32 bits", INT_MIN, 1},
      {"below the first time", kFirst, 1},
      {"far below the first time", kFirst, std::numeric_limits<time_t>::max()},
  };
  for (const auto& row : rows) {
    qiv_time time(row.value);
    EXPECT_EQ(&time, &(time -= qiv_time(row.subtracted))) << row.name;
    EXPECT_EQ(0, time.get_time()) << row.name;
    EXPECT_EQ(1970, time.get_year()) << row.name;
    EXPECT_EQ(0, time.get_sec()) << row.name;
  }
}

TEST(QivTimeTest, DifferenceBeyondTheLastTimeBecomesZero) {
  qiv_time time(std::numeric_limits<time_t>::max());
  time -= qiv_time(-1);
  EXPECT_EQ(0, time.get_time());
}

TEST(QivTimeTest, PositiveDifferenceMovesTheFieldsToo) {
  SetZone("UTC0");
  qiv_time time(86400 + 5);
  time -= qiv_time(86400);
  EXPECT_EQ(5, time.get_time());
  EXPECT_EQ(1, time.get_day());
  EXPECT_EQ(5, time.get_sec());
}

TEST(QivTimeTest, TimesBefore1970KeepTheirSign) {
  SetZone("UTC0");
  const qiv_time time(-1);
  EXPECT_EQ(-1, time.get_time());
  EXPECT_EQ(1969, time.get_year());
}

TEST(QivTimeTest, ExtremeTimesAreSafe) {
  for (const long long seconds : {LLONG_MIN, LLONG_MAX, 67768036191676799LL}) {
    qiv_time time(seconds);
    EXPECT_EQ(static_cast<time_t>(seconds), time.get_time());
    time.get_year();
    time += qiv_time(seconds);
    time -= qiv_time(LLONG_MIN);
    EXPECT_GE(time.get_time(), 0);
  }
}

TEST(QivTimeTest, ComparisonsCompareTheSeconds) {
  const qiv_time small(1);
  const qiv_time large(2);
  EXPECT_TRUE(small == qiv_time(1));
  EXPECT_TRUE(small != large);
  EXPECT_FALSE(small != small);
  EXPECT_TRUE(small < large);
  EXPECT_FALSE(large < small);
  EXPECT_TRUE(large > small);
  EXPECT_FALSE(small > small);
}

TEST(QivTimeTest, Time2TmBreaksSecondsDownInTheLocalZone) {
  SetZone("CCC-8");
  tm fields = {};
  EXPECT_EQ(&fields, qiv_time::time2tm(0, &fields));
  EXPECT_EQ(8, fields.tm_hour);
  fields.tm_hour = 77;
  EXPECT_EQ(nullptr, qiv_time::time2tm(-1, &fields));
  EXPECT_EQ(77, fields.tm_hour);
  EXPECT_EQ(nullptr, qiv_time::time2tm(0, nullptr));
}

TEST(TimeClassesTest, BothHaveAVirtualDestructorAndTheirFieldsOnly) {
  struct Stamp {
    void* table;
    long long microseconds;
  };
  struct Calendar {
    void* table;
    time_t seconds;
    tm fields;
  };
  EXPECT_TRUE(std::has_virtual_destructor<qiv_time_tick>::value);
  EXPECT_TRUE(std::has_virtual_destructor<qiv_time>::value);
  EXPECT_EQ(sizeof(Stamp), sizeof(qiv_time_tick));
  EXPECT_EQ(sizeof(Calendar), sizeof(qiv_time));
}

}  // namespace
