#include "time/tick.h"

#include <gtest/gtest.h>
#include <qiv/time.h>

namespace {

struct TickRow {
  const char* name;
  timespec clock;
  unsigned int tick;
  qiv_int64 tick64;
};

TEST(TickTest, ClockReadingsAreRoundedHalfUpToMilliseconds) {
  const TickRow rows[] = {
      {"zero", {0, 0}, 0, 0},
      {"just below half", {0, 499999}, 0, 0},
      {"half", {0, 500000}, 1, 1},
      {"whole", {7, 3000000}, 7003, 7003},
      {"carries into the next second", {1, 999500000}, 2000, 2000},
      {"last before the wrap", {4294967, 295499999}, 4294967295u, 4294967295ll},
      {"wrap", {4294967, 295500000}, 0, 4294967296ll},
      {"after the wrap", {4294968, 0}, 704, 4294968000ll},
  };
  for (const TickRow& row : rows) {
    EXPECT_EQ(row.tick, qiv::TickFrom(row.clock)) << row.name;
    EXPECT_EQ(row.tick64, qiv::Tick64From(row.clock)) << row.name;
  }
}

timespec Monotonic() {
  timespec clock = {};
  clock_gettime(CLOCK_MONOTONIC, &clock);
  return clock;
}

TEST(TickTest, Tick64IsTheMonotonicClock) {
  const qiv_int64 before = qiv::Tick64From(Monotonic());
  const qiv_int64 tick = QIV_GetTimeTick64();
  EXPECT_LE(before, tick);
  EXPECT_LE(tick, qiv::Tick64From(Monotonic()));
}

TEST(TickTest, TickIsTheLowHalfOfTick64) {
  const qiv_int64 before = QIV_GetTimeTick64();
  const unsigned int tick = QIV_GetTimeTick();
  const qiv_int64 after = QIV_GetTimeTick64();
  EXPECT_LE(tick - static_cast<unsigned int>(before), static_cast<unsigned int>(after - before));
}

TEST(TickTest, TimeNowIsTheWallClockInMicroseconds) {
  const auto wallClock = [] {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<QIV_TIME_T>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
  };
  const QIV_TIME_T before = wallClock();
  const QIV_TIME_T now = QIV_TimeNow();
  EXPECT_LE(before, now);
  EXPECT_LE(now, wallClock());
}

}  // namespace
