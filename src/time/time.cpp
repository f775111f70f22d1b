// Calendar time: absolute times to broken-down records and back.
#include <qiv/time.h>
#include <sys/time.h>

#include <cstddef>

#include "base/no_cancellation.h"
#include "base/wrapping.h"

static_assert(sizeof(QIV_TIME_EXP_T) == 44, "eleven 32-bit integers");
static_assert(offsetof(QIV_TIME_EXP_T, tm_sec) == 4, "tm_usec stands in front");
static_assert(offsetof(QIV_TIME_EXP_T, tm_min) == 8, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_hour) == 12, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_mday) == 16, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_mon) == 20, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_year) == 24, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_wday) == 28, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_yday) == 32, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_isdst) == 36, "order of the platform's record");
static_assert(offsetof(QIV_TIME_EXP_T, tm_gmtoff) == 40, "tm_gmtoff stands behind");

namespace {

using qiv::base::WrappingDifference;
using qiv::base::WrappingProduct;
using qiv::base::WrappingSum;

constexpr qiv_int64 kMicrosecondsPerSecond = 1000000;
constexpr int kMonths = 12;
constexpr int kMarch = 2;

// Days from 1 March to the first of each month, 0 = January. A year that starts in March has its
// leap day at the end.
constexpr int kDaysFromMarch[kMonths] = {306, 337, 0, 31, 61, 92, 122, 153, 184, 214, 245, 275};
constexpr qiv_int64 kDaysFromMarch1900ToEpoch = 25508;

qiv_int64 Microseconds(qiv_int64 seconds) {
  return WrappingProduct(seconds, kMicrosecondsPerSecond);
}

// Everything but tm_gmtoff.
void PutFields(const tm& fields, QIV_TIME_T time, QIV_TIME_EXP_T* out) {
  out->tm_usec = static_cast<QIV_INT32>(time % kMicrosecondsPerSecond);
  out->tm_sec = fields.tm_sec;
  out->tm_min = fields.tm_min;
  out->tm_hour = fields.tm_hour;
  out->tm_mday = fields.tm_mday;
  out->tm_mon = fields.tm_mon;
  out->tm_year = fields.tm_year;
  out->tm_wday = fields.tm_wday;
  out->tm_yday = fields.tm_yday;
  out->tm_isdst = fields.tm_isdst;
}

// Kept: the offset of the current moment, and one hour more than the standard offset while
// daylight saving is in force, because both records go through mktime() as standard time.
bool CurrentOffset(QIV_INT32* offset) {
  const time_t now = time(nullptr);
  tm local = {};
  localtime_r(&now, &local);
  local.tm_isdst = 0;
  const time_t asLocal = mktime(&local);
  tm utc = {};
  if (gmtime_r(&now, &utc) == nullptr) return false;
  *offset = static_cast<QIV_INT32>(asLocal - mktime(&utc));
  return true;
}

qiv_int64 DaysSinceEpoch(const QIV_TIME_EXP_T& record) {
  const qiv_int64 year = static_cast<qiv_int64>(record.tm_year) - (record.tm_mon < kMarch ? 1 : 0);
  const qiv_int64 daysOfYears = year * 365 + year / 4 - year / 100 + (year / 100 + 3) / 4;
  return daysOfYears + kDaysFromMarch[record.tm_mon] + record.tm_mday - 1 -
         kDaysFromMarch1900ToEpoch;
}

}  // namespace

extern "C" {

QIV_TIME_T QIV_TimeFromAnsiTime(qiv_int64 seconds) noexcept { return Microseconds(seconds); }

qiv_int64 QIV_AnsiTimeFromTime(QIV_TIME_T time) noexcept { return time / kMicrosecondsPerSecond; }

int QIV_ExpTimeFromTime(QIV_TIME_T time, QIV_INT32 offset, QIV_TIME_EXP_T* out) noexcept {
  if (out == nullptr) return QIV_ERROR;
  const auto whole = static_cast<time_t>(time / kMicrosecondsPerSecond);
  const auto seconds = static_cast<time_t>(WrappingSum(whole, offset));
  tm fields = {};
  if (gmtime_r(&seconds, &fields) == nullptr) return QIV_ERROR;
  PutFields(fields, time, out);
  out->tm_gmtoff = offset;
  return QIV_OK;
}

int QIV_ExpTimeFromTimeGMT(QIV_TIME_T time, QIV_TIME_EXP_T* out) noexcept {
  return QIV_ExpTimeFromTime(time, 0, out);
}

int QIV_ExpTimeFromTimeLocal(QIV_TIME_T time, QIV_TIME_EXP_T* out) noexcept {
  if (out == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  timeval now = {};
  struct timezone zone = {};
  // Kept: a clock that cannot be read fails the conversion, though its value is not used.
  if (gettimeofday(&now, &zone) == -1) return QIV_ERROR;
  const auto seconds = static_cast<time_t>(time / kMicrosecondsPerSecond);
  tm fields = {};
  if (localtime_r(&seconds, &fields) == nullptr) return QIV_ERROR;
  PutFields(fields, time, out);
  return CurrentOffset(&out->tm_gmtoff) ? QIV_OK : QIV_ERROR;
}

int QIV_TimeFromExpTime(const QIV_TIME_EXP_T* in, QIV_TIME_T* out) noexcept {
  if (in == nullptr || out == nullptr) return QIV_ERROR;
  if (in->tm_mon < 0 || in->tm_mon >= kMonths) return QIV_ERROR;
  const qiv_int64 hours = DaysSinceEpoch(*in) * 24 + in->tm_hour;
  const qiv_int64 seconds = (hours * 60 + in->tm_min) * 60 + in->tm_sec;
  if (seconds < 0) return QIV_ERROR;
  *out = WrappingSum(Microseconds(seconds), in->tm_usec);
  return QIV_OK;
}

int QIV_TimeFromExpTimeGMT(const QIV_TIME_EXP_T* in, QIV_TIME_T* out) noexcept {
  if (in == nullptr || out == nullptr) return QIV_ERROR;
  // Kept: a record that cannot be converted is a success that leaves `out` untouched.
  if (QIV_TimeFromExpTime(in, out) != QIV_OK) return QIV_OK;
  *out = WrappingDifference(*out, Microseconds(in->tm_gmtoff));
  return QIV_OK;
}

}  // extern "C"
