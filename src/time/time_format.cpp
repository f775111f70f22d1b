// Calendar time: the fixed text and strftime() with conversions that some platforms lack.
#include <qiv/time.h>

#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "base/no_cancellation.h"

namespace {

constexpr char kMonthNames[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr char kDayNames[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

char Digit(int value) { return static_cast<char>('0' + value); }

void PutName(char* at, const char (&name)[4]) { std::memcpy(at, name, 3); }

void PutTwoDigits(char* at, int value) {
  at[0] = Digit(value / 10);
  at[1] = Digit(value % 10);
}

// "%2d": blank-padded to two characters. False when the platform cannot print it.
bool AppendNumber(std::string* text, int value) {
  char digits[16];
  const int length = std::snprintf(digits, sizeof digits, "%2d", value);
  if (length < 0) return false;
  text->append(digits, static_cast<std::size_t>(length));
  return true;
}

// Kept: the century counts from 1970 + tm_year.
int Century(const tm& time) { return static_cast<int>((time.tm_year + 1970LL) / 100); }

bool AppendConversion(std::string* text, char conversion, const tm& time) {
  switch (conversion) {
    case 'C':
      return AppendNumber(text, Century(time));
    case 'e':
      return AppendNumber(text, time.tm_mday);
    case 'D':
      text->append("%m/%d/%y");
      return true;
    case 'r':
      text->append("%I:%M:%S %p");
      return true;
    case 'R':
      text->append("%H:%M");
      return true;
    case 'T':
      text->append("%H:%M:%S");
      return true;
    default:
      text->push_back('%');
      text->push_back(conversion);
      return true;
  }
}

// Rewrites `format` into conversions that every strftime() has. False when the result is not
// shorter than `max`; the walk ends there, so `rewritten` never grows far beyond `max`.
bool Rewrite(const char* format, std::size_t max, const tm& time, std::string* rewritten) {
  const std::size_t length = std::strlen(format);
  std::size_t i = 0;
  while (i < length && rewritten->size() < max) {
    if (format[i] != '%') {
      rewritten->push_back(format[i]);
      ++i;
      continue;
    }
    // A '%' at the end takes the terminating NUL for its conversion.
    if (!AppendConversion(rewritten, format[i + 1], time)) return false;
    i += 2;
  }
  return rewritten->size() < max;
}

tm FieldsOf(const QIV_TIME_EXP_T& record) {
  tm fields = {};
  fields.tm_sec = record.tm_sec;
  fields.tm_min = record.tm_min;
  fields.tm_hour = record.tm_hour;
  fields.tm_mday = record.tm_mday;
  fields.tm_mon = record.tm_mon;
  fields.tm_year = record.tm_year;
  fields.tm_wday = record.tm_wday;
  fields.tm_yday = record.tm_yday;
  fields.tm_isdst = record.tm_isdst;
  return fields;
}

}  // namespace

extern "C" {

int QIV_CTime(char* buffer, QIV_TIME_T time) noexcept {
  if (buffer == nullptr) return QIV_ERROR;
  QIV_TIME_EXP_T record = {};
  // Kept: the result is not checked; the text then shows the zeroed record.
  QIV_ExpTimeFromTimeLocal(time, &record);
  const int year = record.tm_year + 1900;
  std::memcpy(buffer, "Www Mmm DD hh:mm:ss YYYY", 25);
  PutName(buffer, kDayNames[record.tm_wday]);
  PutName(buffer + 4, kMonthNames[record.tm_mon]);
  PutTwoDigits(buffer + 8, record.tm_mday);
  PutTwoDigits(buffer + 11, record.tm_hour);
  PutTwoDigits(buffer + 14, record.tm_min);
  PutTwoDigits(buffer + 17, record.tm_sec);
  buffer[20] = Digit(year / 1000);
  buffer[21] = Digit(year % 1000 / 100);
  buffer[22] = Digit(year % 100 / 10);
  buffer[23] = Digit(year % 10);
  return QIV_OK;
}

int QIV_StrFmtTime(char* out, size_t* length, size_t capacity, const char* format,
                   const QIV_TIME_EXP_T* time) noexcept {
  if (out == nullptr || length == nullptr) return QIV_ERROR;
  if (format == nullptr || time == nullptr) return QIV_ERROR;
  const tm fields = FieldsOf(*time);
  const std::size_t max = capacity < UINT_MAX ? capacity : UINT_MAX;
  // Kept: a text that does not fit is a success of length 0.
  *length = win32_strftime_extra(out, static_cast<unsigned int>(max), format, &fields);
  return QIV_OK;
}

unsigned int win32_strftime_extra(char* s, unsigned int max, const char* format,
                                  const struct tm* tm) noexcept {
  if (s == nullptr || max == 0 || format == nullptr || tm == nullptr) return 0;
  const qiv::base::NoCancellation noCancellation;
  try {
    std::string rewritten;
    std::size_t length = 0;
    if (Rewrite(format, max, *tm, &rewritten)) length = strftime(s, max, rewritten.c_str(), tm);
    if (length == 0) s[0] = '\0';
    return static_cast<unsigned int>(length);
  } catch (const std::exception&) {
    return 0;
  }
}

}  // extern "C"
