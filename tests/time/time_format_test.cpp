#include <gtest/gtest.h>
#include <qiv/time.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "support/failing_allocation.h"
#include "support/time_zone.h"

namespace {

using qiv::test::SetZone;

constexpr qiv_int64 kSecond = 1000000;
constexpr char kFill = '#';

std::string TextOf(QIV_TIME_T time) {
  char buffer[32];
  std::memset(buffer, kFill, sizeof buffer);
  EXPECT_EQ(0, QIV_CTime(buffer, time));
  EXPECT_EQ('\0', buffer[24]);
  EXPECT_EQ(kFill, buffer[25]) << "written past 25 bytes";
  return {buffer, 24};
}

TEST(CTimeTest, NullBufferIsRefused) { EXPECT_EQ(-1, QIV_CTime(nullptr, 0)); }

TEST(CTimeTest, TextHasTheFixedLayout) {
  SetZone("UTC0");
  EXPECT_EQ("Thu Jan 01 00:00:00 1970", TextOf(0));
  EXPECT_EQ("Tue Mar 05 07:08:09 2024", TextOf(1709622489LL * kSecond + 999999));
  EXPECT_EQ("Wed Dec 31 23:59:58 1969", TextOf(-2 * kSecond));
}

TEST(CTimeTest, TextShowsTheLocalZone) {
  SetZone("CCC-8");
  EXPECT_EQ("Thu Jan 01 08:00:00 1970", TextOf(0));
}

TEST(CTimeTest, YearBelow1000HasLeadingZeros) {
  SetZone("UTC0");
  for (const qiv_int64 seconds : {-31000000000LL, -50000000000LL, -61500000000LL}) {
    // Years 987, 385 and 21, but for a narrow time_t.
    const auto narrowed = static_cast<time_t>(seconds);
    tm fields = {};
    ASSERT_NE(nullptr, gmtime_r(&narrowed, &fields));
    char year[16];
    std::snprintf(year, sizeof year, "%04d", fields.tm_year + 1900);
    EXPECT_EQ(year, TextOf(seconds * kSecond).substr(20));
  }
}

TEST(CTimeTest, EveryMonthAndDayHasItsName) {
  SetZone("UTC0");
  const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const char* const days[] = {"Thu", "Fri", "Sat", "Sun", "Mon", "Tue", "Wed"};
  for (int month = 0; month < 12; ++month) {
    EXPECT_EQ(months[month], TextOf((month * 31LL) * 86400 * kSecond).substr(4, 3));
  }
  for (int day = 0; day < 7; ++day) {
    EXPECT_EQ(days[day], TextOf(day * 86400LL * kSecond).substr(0, 3));
  }
}

TEST(CTimeTest, ExtremeTimesStayWithinTheirBuffer) {
  SetZone("UTC0");
  TextOf(LLONG_MAX);
  TextOf(LLONG_MIN);
}

QIV_TIME_EXP_T SampleRecord() {
  QIV_TIME_EXP_T record = {};
  record.tm_sec = 9;
  record.tm_min = 8;
  record.tm_hour = 7;
  record.tm_mday = 5;
  record.tm_mon = 2;
  record.tm_year = 124;
  record.tm_wday = 2;
  record.tm_yday = 64;
  record.tm_gmtoff = 3600;
  return record;
}

struct FormatRow {
  const char* format;
  const char* text;
};

TEST(StrFmtTimeTest, ConversionsGiveTheirTexts) {
  const FormatRow rows[] = {
      {"", ""},
      {"plain", "plain"},
      {"%D %T", "03/05/24 07:08:09"},
      {"%C", "20"},
      {"%e", " 5"},
      {"%r", "07:08:09 AM"},
      {"%R", "07:08"},
      {"%Y-%m-%d", "2024-03-05"},
      {"%%", "%"},
      {"%%D", "%D"},
      {"100%% at %R", "100% at 07:08"},
      {"%j", "065"},
      {"%a %b", "Tue Mar"},
      {"%e%e%e", " 5 5 5"},
  };
  const QIV_TIME_EXP_T record = SampleRecord();
  for (const FormatRow& row : rows) {
    char out[64];
    size_t length = 999;
    ASSERT_EQ(0, QIV_StrFmtTime(out, &length, sizeof out, row.format, &record)) << row.format;
    EXPECT_STREQ(row.text, out) << row.format;
    EXPECT_EQ(std::strlen(row.text), length) << row.format;
  }
}

TEST(StrFmtTimeTest, CenturyIsKeptAtYearPlus1970) {
  QIV_TIME_EXP_T record = SampleRecord();
  char out[32];
  size_t length = 0;
  const struct {
    int year;
    const char* text;
  } rows[] = {{1999, "20"}, {2029, "20"}, {2030, "21"}, {1829, "18"}, {800, " 8"}};
  for (const auto& row : rows) {
    record.tm_year = row.year - 1900;
    ASSERT_EQ(0, QIV_StrFmtTime(out, &length, sizeof out, "%C", &record));
    EXPECT_STREQ(row.text, out) << row.year;
  }
  record.tm_year = INT_MAX;
  ASSERT_EQ(0, QIV_StrFmtTime(out, &length, sizeof out, "%C", &record));
  EXPECT_STREQ("21474856", out);
}

TEST(StrFmtTimeTest, ZoneOfTheRecordIsNotShown) {
  const QIV_TIME_EXP_T record = SampleRecord();
  char out[32];
  size_t length = 0;
  ASSERT_EQ(0, QIV_StrFmtTime(out, &length, sizeof out, "%z", &record));
  EXPECT_EQ(std::string::npos, std::string(out).find("0100"));
}

TEST(StrFmtTimeTest, PercentAtTheEndIsSafe) {
  const QIV_TIME_EXP_T record = SampleRecord();
  char out[32];
  size_t length = 999;
  ASSERT_EQ(0, QIV_StrFmtTime(out, &length, sizeof out, "x%", &record));
  EXPECT_EQ(length, std::strlen(out));
}

struct CapacityRow {
  const char* name;
  const char* format;
  size_t capacity;
  const char* text;
};

// The rewritten format has to be shorter than the capacity, and so has the text.
TEST(StrFmtTimeTest, TextThatDoesNotFitIsASuccessWithAnEmptyText) {
  const CapacityRow rows[] = {
      {"text fits exactly", "abc", 4, "abc"},
      {"text one too long", "abc", 3, ""},
      {"one byte, empty format", "", 1, ""},
      {"one byte, text", "a", 1, ""},
      {"text fits, expansion does not", "%R", 5, ""},
      {"expansion fits, text does not", "%B", 5, ""},
      {"expansion and text fit", "%R", 6, "07:08"},
      {"text as long as %T's expansion", "%T", 9, "07:08:09"},
      {"%T's expansion one too long", "%T", 8, ""},
      {"%r's expansion one too long", "%r", 11, ""},
      {"%r fits", "%r", 12, "07:08:09 AM"},
      {"number cut off by the capacity", "a%e", 2, ""},
      {"number fills the capacity", "a%e", 3, ""},
      {"number fits", "a%e", 4, "a 5"},
      {"walk ends before the rest of a long format", "%D%D%D%D%D%D", 9, ""},
  };
  const QIV_TIME_EXP_T record = SampleRecord();
  for (const CapacityRow& row : rows) {
    char out[64];
    std::memset(out, kFill, sizeof out);
    size_t length = 999;
    ASSERT_EQ(0, QIV_StrFmtTime(out, &length, row.capacity, row.format, &record)) << row.name;
    EXPECT_STREQ(row.text, out) << row.name;
    EXPECT_EQ(std::strlen(row.text), length) << row.name;
    EXPECT_EQ(kFill, out[row.capacity]) << row.name;
  }
}

TEST(StrFmtTimeTest, CapacityZeroWritesNothing) {
  const QIV_TIME_EXP_T record = SampleRecord();
  char out = kFill;
  size_t length = 999;
  EXPECT_EQ(0, QIV_StrFmtTime(&out, &length, 0, "%T", &record));
  EXPECT_EQ(0u, length);
  EXPECT_EQ(kFill, out);
}

TEST(StrFmtTimeTest, HugeCapacitiesAreAsGoodAsLargeOnes) {
  const QIV_TIME_EXP_T record = SampleRecord();
  for (const size_t capacity : {static_cast<size_t>(UINT_MAX) - 11, static_cast<size_t>(UINT_MAX),
                                static_cast<size_t>(UINT_MAX) + 2, SIZE_MAX}) {
    if (capacity < 64) continue;
    char out[64];
    size_t length = 0;
    ASSERT_EQ(0, QIV_StrFmtTime(out, &length, capacity, "%T", &record));
    EXPECT_STREQ("07:08:09", out);
    EXPECT_EQ(8u, length);
  }
}

TEST(StrFmtTimeTest, FieldsOutOfRangeAreSafe) {
  QIV_TIME_EXP_T record = {};
  for (const int value : {INT_MIN, -1, 100, INT_MAX}) {
    record.tm_sec = record.tm_min = record.tm_hour = record.tm_mday = record.tm_mon = value;
    record.tm_year = record.tm_wday = record.tm_yday = record.tm_isdst = value;
    char out[128];
    size_t length = 0;
    ASSERT_EQ(0, QIV_StrFmtTime(out, &length, sizeof out, "%C %e %H %M %S", &record));
    EXPECT_EQ(std::strlen(out), length);
  }
}

TEST(StrFmtTimeTest, NullPointersAreRefused) {
  const QIV_TIME_EXP_T record = SampleRecord();
  char out[8] = {kFill};
  size_t length = 999;
  EXPECT_EQ(-1, QIV_StrFmtTime(nullptr, &length, 8, "%T", &record));
  EXPECT_EQ(-1, QIV_StrFmtTime(out, nullptr, 8, "%T", &record));
  EXPECT_EQ(-1, QIV_StrFmtTime(out, &length, 8, nullptr, &record));
  EXPECT_EQ(-1, QIV_StrFmtTime(out, &length, 8, "%T", nullptr));
  EXPECT_EQ(999u, length);
  EXPECT_EQ(kFill, out[0]);
}

TEST(StrftimeExtraTest, ReturnsTheCharactersWritten) {
  tm fields = {};
  fields.tm_mday = 31;
  char out[16];
  EXPECT_EQ(2u, win32_strftime_extra(out, sizeof out, "%e", &fields));
  EXPECT_STREQ("31", out);
}

TEST(StrftimeExtraTest, ShortMemoryGivesZeroAndWritesNothing) {
  const tm fields = {};
  char out[64] = {kFill};
  const qiv::test::FailingAllocation failing(1);
  EXPECT_EQ(0u, win32_strftime_extra(out, sizeof out, "%D %T, and a longer text", &fields));
  EXPECT_TRUE(failing.Happened());
  EXPECT_EQ(kFill, out[0]);
}

TEST(StrftimeExtraTest, NullPointersGiveZero) {
  const tm fields = {};
  char out[16];
  EXPECT_EQ(0u, win32_strftime_extra(nullptr, 16, "x", &fields));
  EXPECT_EQ(0u, win32_strftime_extra(out, 16, nullptr, &fields));
  EXPECT_EQ(0u, win32_strftime_extra(out, 16, "x", nullptr));
}

}  // namespace
