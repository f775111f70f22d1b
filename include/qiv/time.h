/**
 * @file
 * Calendar time: now, ticks, broken-down records, texts.
 *
 * Absolute time is a QIV_TIME_T, microseconds since 1970-01-01 00:00:00 UTC, negative before it.
 * Ticks are milliseconds of the monotonic clock. No function here sets a last error, prints or is a
 * cancellation point.
 *
 * The local zone is that of the environment variable TZ. A TZ changed by setenv() is sure to count
 * only after a call of tzset().
 */
#ifndef QIV_TIME_H
#define QIV_TIME_H

#include <qiv/types.h>
#include <time.h>

QIV_EXTERN_C_BEGIN

/**
 * A broken-down time. tm_sec to tm_isdst mean what the fields of the same names mean in the
 * platform's struct tm.
 */
typedef struct QIV_TIME_EXP_T {
  QIV_INT32 tm_usec;   /**< microseconds past the second; negative for times before 1970 */
  QIV_INT32 tm_sec;    /**< seconds, 0 to 60 */
  QIV_INT32 tm_min;    /**< minutes, 0 to 59 */
  QIV_INT32 tm_hour;   /**< hours, 0 to 23 */
  QIV_INT32 tm_mday;   /**< day of the month, 1 to 31 */
  QIV_INT32 tm_mon;    /**< month, 0 (January) to 11 */
  QIV_INT32 tm_year;   /**< years since 1900 */
  QIV_INT32 tm_wday;   /**< day of the week, 0 (Sunday) to 6 */
  QIV_INT32 tm_yday;   /**< day of the year, from 0 */
  QIV_INT32 tm_isdst;  /**< daylight-saving flag of the platform */
  QIV_INT32 tm_gmtoff; /**< seconds that the zone lies east of UTC */
} QIV_TIME_EXP_T;

/**
 * Reads the wall clock.
 *
 * @return microseconds since 1970-01-01 00:00:00 UTC
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         gettimeofday(2)
 */
QIV_API QIV_TIME_T QIV_TimeNow(void) QIV_NOEXCEPT;

/**
 * Reads the monotonic clock, rounded to the nearest millisecond. The value starts anywhere and
 * wraps after about 49.7 days, so only differences of two ticks mean something.
 *
 * @return milliseconds, modulo 2^32; 0 when there is no monotonic clock
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         clock_gettime(2)
 * @see QIV_GetTimeTick64
 */
QIV_API unsigned int QIV_GetTimeTick(void) QIV_NOEXCEPT;

/**
 * Reads the monotonic clock like QIV_GetTimeTick(), without the wrap.
 *
 * @return milliseconds; 0 when there is no monotonic clock
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         clock_gettime(2)
 */
QIV_API qiv_int64 QIV_GetTimeTick64(void) QIV_NOEXCEPT;

/**
 * Turns seconds into an absolute time.
 *
 * @param seconds  seconds since 1970-01-01 00:00:00 UTC
 * @return `seconds` in microseconds; a product beyond 64 bits wraps
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API QIV_TIME_T QIV_TimeFromAnsiTime(qiv_int64 seconds) QIV_NOEXCEPT;

/**
 * Turns an absolute time into seconds.
 *
 * @param time  microseconds since 1970-01-01 00:00:00 UTC
 * @return seconds, truncated toward zero: -1500000 gives -1
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API qiv_int64 QIV_AnsiTimeFromTime(QIV_TIME_T time) QIV_NOEXCEPT;

/**
 * Breaks a time down as a clock shows it that runs `offset` seconds east of UTC.
 *
 * Seconds are truncated toward zero and tm_usec keeps the sign of `time`: -1 with offset 0 gives
 * 1970-01-01 00:00:00 with tm_usec -1.
 *
 * @param time    absolute time
 * @param offset  seconds east of UTC; added to the time and stored in tm_gmtoff
 * @param out     receives the record; null is refused
 * @return 0; -1 when `out` is null or the platform cannot represent the year (`out` untouched)
 * @par Errors         no errno of its own
 * @par Thread safety  any threads
 * @par System         gmtime_r(3)
 */
QIV_API int QIV_ExpTimeFromTime(QIV_TIME_T time, QIV_INT32 offset,
                                QIV_TIME_EXP_T* out) QIV_NOEXCEPT;

/**
 * Breaks a time down in UTC: QIV_ExpTimeFromTime() with offset 0.
 *
 * @param time  absolute time
 * @param out   receives the record; null is refused
 * @return 0; -1 when `out` is null or the platform cannot represent the year (`out` untouched)
 * @par Errors         no errno of its own
 * @par Thread safety  any threads
 * @par System         gmtime_r(3)
 */
QIV_API int QIV_ExpTimeFromTimeGMT(QIV_TIME_T time, QIV_TIME_EXP_T* out) QIV_NOEXCEPT;

/**
 * Breaks a time down in the local zone.
 *
 * tm_gmtoff is the offset of the current moment, not of `time`, and counts one hour more than the
 * standard offset while daylight saving is in force now.
 *
 * @param time  absolute time
 * @param out   receives the record; null is refused
 * @return 0; -1 when `out` is null, the platform cannot represent the year (`out` untouched), or
 *         the clock or its zone cannot be read
 * @par Errors         no errno of its own
 * @par Thread safety  any threads, while none changes TZ
 * @par System         localtime_r(3), gettimeofday(2), time(2), mktime(3), gmtime_r(3)
 */
QIV_API int QIV_ExpTimeFromTimeLocal(QIV_TIME_T time, QIV_TIME_EXP_T* out) QIV_NOEXCEPT;

/**
 * Puts a record together again, its fields taken as UTC. tm_wday, tm_yday, tm_isdst and tm_gmtoff
 * are ignored. Fields other than tm_mon may lie outside their usual range.
 *
 * @param in   the record; null is refused
 * @param out  receives the absolute time; null is refused
 * @return 0; -1 when a pointer is null, tm_mon is not 0 to 11, or the date lies before 1970 (`out`
 *         untouched)
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_TimeFromExpTime(const QIV_TIME_EXP_T* in, QIV_TIME_T* out) QIV_NOEXCEPT;

/**
 * Puts a record together again and subtracts its tm_gmtoff.
 *
 * A record that QIV_TimeFromExpTime() refuses still gives 0 and leaves `out` untouched, so the
 * result does not tell dates before 1970.
 *
 * @param in   the record; null is refused
 * @param out  receives the absolute time; null is refused
 * @return 0; -1 when a pointer is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_TimeFromExpTimeGMT(const QIV_TIME_EXP_T* in, QIV_TIME_T* out) QIV_NOEXCEPT;

/**
 * Writes a time in the local zone as "Thu Jan 01 00:00:00 1970": 24 characters and a NUL.
 *
 * The year has four characters, which mean something for the years 0 to 9999 only: outside of them
 * some are no digits. A time that cannot be broken down gives "Sun Jan 00 00:00:00 1900".
 *
 * @param buffer  at least 25 bytes; null is refused
 * @param time    absolute time
 * @return 0; -1 when `buffer` is null
 * @par Errors         no errno of its own
 * @par Thread safety  as QIV_ExpTimeFromTimeLocal()
 * @par System         localtime_r(3)
 */
QIV_API int QIV_CTime(char* buffer, QIV_TIME_T time) QIV_NOEXCEPT;

/**
 * Formats a record as strftime() does.
 *
 * `%z` and `%Z` do not show the record's tm_gmtoff. `%C` is (tm_year + 1970) / 100; `%D`, `%r`,
 * `%R`, `%T` and `%e` work on every platform.
 *
 * @param out       receives the text with its NUL; null is refused
 * @param length    receives the characters written, NUL not counted; null is refused
 * @param capacity  bytes of `out`; 0 writes nothing. The format, with `%C` and the others of its
 *                  line replaced, has to fit as well
 * @param format    conversions of strftime(); null is refused
 * @param time      the record; null is refused
 * @return 0, also when the text did not fit (`*length` is then 0 and `out` the empty text); -1 when
 *         a pointer is null
 * @par Errors         no errno of its own
 * @par Thread safety  any threads
 * @par System         strftime(3)
 */
QIV_API int QIV_StrFmtTime(char* out, size_t* length, size_t capacity, const char* format,
                           const QIV_TIME_EXP_T* time) QIV_NOEXCEPT;

/**
 * The formatter behind QIV_StrFmtTime(), on a platform record.
 *
 * @param s       receives the text with its NUL; null is refused
 * @param max     bytes of `s`; 0 writes nothing
 * @param format  as for QIV_StrFmtTime(); null is refused
 * @param tm      the record; null is refused
 * @return characters written, NUL not counted; 0 when the text did not fit (`s` is then empty), or
 * a pointer is null or memory is short (`s` untouched)
 * @par Errors         no errno of its own
 * @par Thread safety  any threads
 * @par System         strftime(3)
 */
QIV_API unsigned int win32_strftime_extra(char* s, unsigned int max, const char* format,
                                          const struct tm* tm) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
