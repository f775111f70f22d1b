/**
 * @file
 * Two value classes: a time stamp in microseconds, and a calendar time in seconds with its fields
 * in the local zone. Both read the wall clock. Exist in C++ only.
 *
 * The local zone is that of the environment variable TZ. A TZ changed by setenv() is sure to count
 * only after a call of tzset().
 */
#ifndef QIV_TIME_CLASSES_H
#define QIV_TIME_CLASSES_H

#include <qiv/types.h>

#ifdef __cplusplus
#include <sys/time.h>
#include <time.h>

namespace qiv {

/**
 * A time stamp: microseconds since 1970-01-01 00:00:00 UTC on the wall clock. It is not a tick of
 * QIV_GetTimeTick(). Arithmetic wraps at 64 bits. One object must not be written by one thread
 * while another uses it.
 */
class QIV_API qiv_time_tick {
 public:
  /** The current time; see now(). */
  qiv_time_tick() noexcept;
  /** @param microseconds  the value */
  explicit qiv_time_tick(long long microseconds) noexcept;
  /** The time that the other has. */
  qiv_time_tick(const qiv_time_tick& other) noexcept;
  /** Takes the time that the other has. */
  qiv_time_tick& operator=(const qiv_time_tick& other) noexcept;
  virtual ~qiv_time_tick();

  /** The current time; -1 when the platform's clock fails. System: gettimeofday(2). */
  static long long now() noexcept;

  /** The microseconds. */
  long long get_time() const noexcept;
  /** Takes the current time and returns it. */
  long long update_time() noexcept;

  /** Adds the other's microseconds. */
  qiv_time_tick& operator+=(const qiv_time_tick& other) noexcept;
  /** Subtracts the other's microseconds. The result may be negative. */
  qiv_time_tick& operator-=(const qiv_time_tick& other) noexcept;

  /** Milliseconds, rounded; -1 for null and when `tv_sec` or `tv_usec` is -1. */
  static long long timeval2ms(const timeval* time) noexcept;
  /** Microseconds; -1 for null and when `tv_sec` or `tv_usec` is -1. */
  static long long timeval2us(const timeval* time) noexcept;
  /** Fills `out` and returns it; null, and nothing written, for null or a negative `ms`. */
  static timeval* ms2timeval(long long ms, timeval* out) noexcept;
  /** Fills `out` and returns it; null, and nothing written, for null or a negative `us`. */
  static timeval* us2timeval(long long us, timeval* out) noexcept;
  /** Microseconds to milliseconds, rounded; -1 for a negative value. */
  static long long us2ms(long long us) noexcept;
  /** Microseconds to seconds, rounded; -1 for a negative value. */
  static long long us2s(long long us) noexcept;
  /** Milliseconds to seconds, rounded; -1 for a negative value. */
  static long long ms2s(long long ms) noexcept;

 private:
  long long m_microseconds;
};

/** @return whether both are the same microsecond */
QIV_API bool operator==(const qiv_time_tick& a, const qiv_time_tick& b) noexcept;
/** @return whether `a` is earlier than `b` */
QIV_API bool operator<(const qiv_time_tick& a, const qiv_time_tick& b) noexcept;
/** @return whether `a` is later than `b` */
QIV_API bool operator>(const qiv_time_tick& a, const qiv_time_tick& b) noexcept;

/**
 * A calendar time: seconds since 1970-01-01 00:00:00 UTC, as wide as the platform's time_t, and
 * their fields in the local zone, kept in step. A time whose year the platform cannot represent has
 * zeros in its fields. One object must not be written by one thread while another uses it.
 */
class QIV_API qiv_time {
 public:
  /** The current time. */
  qiv_time() noexcept;
  /** @param seconds  the value, narrowed to the platform's time_t */
  explicit qiv_time(long long seconds) noexcept;
  /** The time that the other has, with its fields. */
  qiv_time(const qiv_time& other) noexcept;
  /** Takes the time that the other has; the fields are those of the local zone as it is now. */
  qiv_time& operator=(const qiv_time& other) noexcept;
  virtual ~qiv_time();

  /** Takes the current time and returns its seconds. System: time(2), localtime_r(3). */
  long long now() noexcept;
  /** Does what now() does. */
  long long update_time() noexcept;

  /** The seconds. */
  long long get_time() const noexcept;
  /** The full year, 1970 and so on. */
  int get_year() const noexcept;
  /** The month, 0 for January. */
  int get_mon() const noexcept;
  /** The day of the month, from 1. */
  int get_day() const noexcept;
  /** The hour, 0 to 23. */
  int get_hour() const noexcept;
  /** The minute, 0 to 59. */
  int get_min() const noexcept;
  /** The second, 0 to 59, or 60 where the zone counts leap seconds. */
  int get_sec() const noexcept;
  /** The day of the week, 0 for Sunday. */
  int get_week_day() const noexcept;
  /** The day of the month, from 1. */
  int get_mon_day() const noexcept;
  /** The day of the year, from 0. */
  int get_year_day() const noexcept;

  /**
   * Breaks seconds down in the local zone.
   *
   * @return `out`; null when `out` is null, `seconds` is negative (nothing written) or the platform
   *         cannot represent the year
   */
  static tm* time2tm(long long seconds, tm* out) noexcept;

  /** Adds the other's seconds; a sum beyond time_t wraps. */
  qiv_time& operator+=(const qiv_time& other) noexcept;
  /** Subtracts the other's seconds; a result below 0 or beyond time_t becomes 0. */
  qiv_time& operator-=(const qiv_time& other) noexcept;

 private:
  time_t m_seconds;
  tm m_fields;
};

/** @return whether both are the same second */
QIV_API bool operator==(const qiv_time& a, const qiv_time& b) noexcept;
/** @return whether the two are different seconds */
QIV_API bool operator!=(const qiv_time& a, const qiv_time& b) noexcept;
/** @return whether `a` is earlier than `b` */
QIV_API bool operator<(const qiv_time& a, const qiv_time& b) noexcept;
/** @return whether `a` is later than `b` */
QIV_API bool operator>(const qiv_time& a, const qiv_time& b) noexcept;

}  // namespace qiv

#endif  // __cplusplus

#endif
