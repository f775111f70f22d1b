// The time classes: a stamp in microseconds and a calendar time in seconds.
#include <qiv/time_classes.h>

#include "base/no_cancellation.h"
#include "base/wrapping.h"

namespace qiv {

static_assert(sizeof(qiv_time_tick) == alignof(qiv_time_tick) + 8, "virtual table, 64-bit value");
static_assert(sizeof(time_t) != 4 || sizeof(qiv_time) == 8 + sizeof(tm), "table, seconds, fields");

namespace {

using base::WrappingDifference;
using base::WrappingProduct;
using base::WrappingSum;

constexpr long long kMillisecondsPerSecond = 1000;
constexpr long long kMicrosecondsPerMillisecond = 1000;
constexpr long long kMicrosecondsPerSecond = 1000000;

// value / unit, rounded half up. Adding half a unit to the whole value could overflow.
long long RoundedQuotient(long long value, long long unit) {
  if (value < 0) return -1;
  return value / unit + (value % unit + unit / 2) / unit;
}

bool IsUsable(const timeval* time) {
  return time != nullptr && time->tv_sec != -1 && time->tv_usec != -1;
}

timeval* PutTimeval(long long value, long long unitsPerSecond, timeval* out) {
  if (out == nullptr || value < 0) return nullptr;
  const long long microsecondsPerUnit = kMicrosecondsPerSecond / unitsPerSecond;
  out->tv_sec = static_cast<time_t>(value / unitsPerSecond);
  out->tv_usec = static_cast<suseconds_t>(value % unitsPerSecond * microsecondsPerUnit);
  return out;
}

// Zeros when the platform cannot represent the year.
tm LocalFields(time_t seconds) {
  const base::NoCancellation noCancellation;
  tm fields = {};
  // A failed conversion may leave some fields written.
  if (localtime_r(&seconds, &fields) == nullptr) return {};
  return fields;
}

}  // namespace

qiv_time_tick::qiv_time_tick() noexcept : m_microseconds(now()) {}
qiv_time_tick::qiv_time_tick(long long microseconds) noexcept : m_microseconds(microseconds) {}
qiv_time_tick::qiv_time_tick(const qiv_time_tick& other) noexcept = default;
qiv_time_tick& qiv_time_tick::operator=(const qiv_time_tick& other) noexcept = default;
qiv_time_tick::~qiv_time_tick() = default;

long long qiv_time_tick::now() noexcept {
  timeval time = {};
  if (gettimeofday(&time, nullptr) != 0) return -1;
  return static_cast<long long>(time.tv_sec) * kMicrosecondsPerSecond + time.tv_usec;
}

long long qiv_time_tick::get_time() const noexcept { return m_microseconds; }
long long qiv_time_tick::update_time() noexcept { return m_microseconds = now(); }

qiv_time_tick& qiv_time_tick::operator+=(const qiv_time_tick& other) noexcept {
  m_microseconds = WrappingSum(m_microseconds, other.m_microseconds);
  return *this;
}

qiv_time_tick& qiv_time_tick::operator-=(const qiv_time_tick& other) noexcept {
  m_microseconds = WrappingDifference(m_microseconds, other.m_microseconds);
  return *this;
}

long long qiv_time_tick::timeval2ms(const timeval* time) noexcept {
  if (!IsUsable(time)) return -1;
  const long long rounded =
      WrappingSum(time->tv_usec, kMicrosecondsPerMillisecond / 2) / kMicrosecondsPerMillisecond;
  return WrappingSum(WrappingProduct(time->tv_sec, kMillisecondsPerSecond), rounded);
}

long long qiv_time_tick::timeval2us(const timeval* time) noexcept {
  if (!IsUsable(time)) return -1;
  return WrappingSum(WrappingProduct(time->tv_sec, kMicrosecondsPerSecond), time->tv_usec);
}

timeval* qiv_time_tick::ms2timeval(long long ms, timeval* out) noexcept {
  return PutTimeval(ms, kMillisecondsPerSecond, out);
}

timeval* qiv_time_tick::us2timeval(long long us, timeval* out) noexcept {
  return PutTimeval(us, kMicrosecondsPerSecond, out);
}

long long qiv_time_tick::us2ms(long long us) noexcept {
  return RoundedQuotient(us, kMicrosecondsPerMillisecond);
}

long long qiv_time_tick::us2s(long long us) noexcept {
  return RoundedQuotient(us, kMicrosecondsPerSecond);
}

long long qiv_time_tick::ms2s(long long ms) noexcept {
  return RoundedQuotient(ms, kMillisecondsPerSecond);
}

bool operator==(const qiv_time_tick& a, const qiv_time_tick& b) noexcept {
  return a.get_time() == b.get_time();
}

bool operator<(const qiv_time_tick& a, const qiv_time_tick& b) noexcept {
  return a.get_time() < b.get_time();
}

bool operator>(const qiv_time_tick& a, const qiv_time_tick& b) noexcept {
  return a.get_time() > b.get_time();
}

qiv_time::qiv_time() noexcept : qiv_time(static_cast<long long>(time(nullptr))) {}

qiv_time::qiv_time(long long seconds) noexcept
    : m_seconds(static_cast<time_t>(seconds)), m_fields(LocalFields(m_seconds)) {}

qiv_time::qiv_time(const qiv_time& other) noexcept = default;
qiv_time::~qiv_time() = default;

qiv_time& qiv_time::operator=(const qiv_time& other) noexcept {
  m_seconds = other.m_seconds;
  m_fields = LocalFields(m_seconds);
  return *this;
}

long long qiv_time::now() noexcept {
  m_seconds = time(nullptr);
  m_fields = LocalFields(m_seconds);
  return m_seconds;
}

long long qiv_time::update_time() noexcept { return now(); }
long long qiv_time::get_time() const noexcept { return m_seconds; }

int qiv_time::get_year() const noexcept {
  // The last representable years are less than 1900 below the largest int.
  return static_cast<int>(static_cast<unsigned int>(m_fields.tm_year) + 1900u);
}

int qiv_time::get_mon() const noexcept { return m_fields.tm_mon; }
int qiv_time::get_day() const noexcept { return m_fields.tm_mday; }
int qiv_time::get_hour() const noexcept { return m_fields.tm_hour; }
int qiv_time::get_min() const noexcept { return m_fields.tm_min; }
int qiv_time::get_sec() const noexcept { return m_fields.tm_sec; }
int qiv_time::get_week_day() const noexcept { return m_fields.tm_wday; }
int qiv_time::get_mon_day() const noexcept { return m_fields.tm_mday; }
int qiv_time::get_year_day() const noexcept { return m_fields.tm_yday; }

tm* qiv_time::time2tm(long long seconds, tm* out) noexcept {
  if (out == nullptr || seconds < 0) return nullptr;
  const base::NoCancellation noCancellation;
  const auto narrowed = static_cast<time_t>(seconds);
  return localtime_r(&narrowed, out);
}

qiv_time& qiv_time::operator+=(const qiv_time& other) noexcept {
  m_seconds = static_cast<time_t>(WrappingSum(m_seconds, other.m_seconds));
  m_fields = LocalFields(m_seconds);
  return *this;
}

qiv_time& qiv_time::operator-=(const qiv_time& other) noexcept {
  const bool isNegative = m_seconds < other.m_seconds;
  const auto difference = static_cast<time_t>(WrappingDifference(m_seconds, other.m_seconds));
  // A positive difference beyond time_t has wrapped below zero.
  m_seconds = isNegative || difference < 0 ? 0 : difference;
  m_fields = LocalFields(m_seconds);
  return *this;
}

bool operator==(const qiv_time& a, const qiv_time& b) noexcept {
  return a.get_time() == b.get_time();
}

bool operator!=(const qiv_time& a, const qiv_time& b) noexcept { return !(a == b); }

bool operator<(const qiv_time& a, const qiv_time& b) noexcept {
  return a.get_time() < b.get_time();
}

bool operator>(const qiv_time& a, const qiv_time& b) noexcept { return b < a; }

}  // namespace qiv
