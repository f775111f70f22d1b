// Flight plan: from a local departure and a duration to the local arrival; and a wait by ticks.
#include <qiv/system.h>
#include <qiv/time.h>
#include <stdio.h>
#include <string.h>

static const QIV_INT32 kLisbon = 3600;  // seconds east of UTC, in summer
static const QIV_INT32 kNewYork = -4 * 3600;
static const QIV_TIME_T kMinute = 60000000;  // microseconds

// The moment when a clock that runs `offset` seconds east of UTC shows this time of 2026.
static int MomentOf(int month, int day, int hour, int minute, QIV_INT32 offset, QIV_TIME_T* out) {
  QIV_TIME_EXP_T clock;
  memset(&clock, 0, sizeof clock);
  clock.tm_year = 2026 - 1900;
  clock.tm_mon = month - 1;
  clock.tm_mday = day;
  clock.tm_hour = hour;
  clock.tm_min = minute;
  if (QIV_TimeFromExpTime(&clock, out) != QIV_OK) return QIV_ERROR;
  *out -= QIV_TimeFromAnsiTime(offset);
  return QIV_OK;
}

static int Print(const char* what, QIV_TIME_T moment, QIV_INT32 offset, const char* expected) {
  QIV_TIME_EXP_T clock;
  char text[32];
  size_t length = 0;
  if (QIV_ExpTimeFromTime(moment, offset, &clock) != QIV_OK) return QIV_ERROR;
  if (QIV_StrFmtTime(text, &length, sizeof text, "%Y-%m-%d %H:%M", &clock) != QIV_OK) {
    return QIV_ERROR;
  }
  printf("%s %s\n", what, text);
  return strcmp(text, expected) == 0 ? QIV_OK : QIV_ERROR;
}

int main(void) {
  QIV_TIME_T departure = 0;
  if (MomentOf(7, 14, 20, 30, kLisbon, &departure) != QIV_OK) return 1;
  const QIV_TIME_T arrival = departure + (8 * 60 + 5) * kMinute;
  if (Print("departure, Lisbon:  ", departure, kLisbon, "2026-07-14 20:30") != QIV_OK ||
      Print("departure, UTC:     ", departure, 0, "2026-07-14 19:30") != QIV_OK ||
      Print("arrival, New York:  ", arrival, kNewYork, "2026-07-14 23:35") != QIV_OK) {
    return 1;
  }

  // Unsigned differences of ticks are right also when the counter wraps in between.
  const unsigned int start = QIV_GetTimeTick();
  while (QIV_GetTimeTick() - start < 20) QIV_Sleep(5);
  printf("boarding ended after 20 ms\n");
  return 0;
}
