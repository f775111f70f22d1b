// Timers: a fixed table, and a thread for each entry in use.
//
// The table is guarded by g_timerTableMutex, with these exceptions. A timer's thread reads its own
// entry's id, callback, user value and period without a lock: they are written before it starts,
// and its entry is freed only after it has been joined. `stop` is guarded by the entry's mutex,
// which a timer's thread holds from its look at `stop` to the wait on the condition, so that no
// signal falls in between. No lock is held over a callback or a join.
//
// Lock order: g_timerTableMutex, then the locks of conditions and of thread ids. An entry's mutex
// is never held together with g_timerTableMutex.
#include "thread/timer.h"

#include <pthread.h>
#include <qiv/condition.h>
#include <qiv/thread.h>
#include <qiv/timer.h>

#include <cstddef>
#include <new>

#include "base/load_order.h"
#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "sync/platform_mutex.h"

namespace qiv::thread {

QIV_LOAD_ORDER(QIV_LOAD_TIMER_TABLE_MUTEX) base::LoadTimeMutex g_timerTableMutex{-1};

namespace {

constexpr unsigned int kTimers = 256;

using Callback = void (*)(unsigned int id, void* user);

/** All zero while it is free. */
struct Timer {
  int used;
  unsigned int id;
  Callback callback;
  void* user;
  unsigned int period;
  int stop;
  unsigned int thread;
  QIV_Cond* condition;
  pthread_mutex_t mutex;

  unsigned int serial;    // tells it from the timers that had the entry before
  int isBeingKilled;      // a kill is at work and will free the entry
  const Timer* waitsFor;  // the timer that this one's callback is killing
};

static_assert(sizeof(void*) != 4 || offsetof(Timer, id) == 4, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, callback) == 8, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, user) == 12, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, period) == 16, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, stop) == 20, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, thread) == 24, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, condition) == 28, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(Timer, mutex) == 32, "fields in order");

Timer g_timers[kTimers];
unsigned int g_lastSerial QIV_GUARDED_BY(g_timerTableMutex) = 0;

/** Signalled, under g_timerTableMutex, when a kill has freed its timer or given up. */
pthread_cond_t g_killEnded = PTHREAD_COND_INITIALIZER;

bool IsStopped(Timer& timer) {
  const base::ScopedLock lock(timer.mutex);
  return timer.stop != 0;
}

void SleepUnlessStopped(Timer& timer, unsigned int period) {
  const base::ScopedLock lock(timer.mutex);
  // A wait that ends without a time-out or a stop was woken by nobody: the whole period again.
  while (timer.stop == 0 && timer.condition->TimedWait(&timer.mutex, period) == 0) {
  }
}

/** The timer whose thread this is; null in other threads. */
thread_local Timer* t_ownTimer = nullptr;

void* RunTimer(void* argument) {
  Timer& timer = *static_cast<Timer*>(argument);
  t_ownTimer = &timer;
  const unsigned int period = timer.period;
  while (!IsStopped(timer)) {
    if (timer.callback != nullptr) timer.callback(timer.id, timer.user);
    SleepUnlessStopped(timer, period);
  }
  return nullptr;
}

Timer* FindFree() QIV_REQUIRES(g_timerTableMutex) {
  for (Timer& timer : g_timers) {
    if (timer.used == 0) return &timer;
  }
  return nullptr;
}

/** Whether the end of `timer` has to wait for the end of a callback of `other`. */
bool WaitsFor(const Timer& timer, const Timer* other) QIV_REQUIRES(g_timerTableMutex) {
  if (other == nullptr) return false;
  const Timer* last = &timer;
  while (last != nullptr && last != other) last = last->waitsFor;
  return last == other;
}

void Free(Timer& timer) QIV_REQUIRES(g_timerTableMutex) {
  for (Timer& other : g_timers) {
    if (other.waitsFor == &timer) other.waitsFor = nullptr;
  }
  delete timer.condition;
  QIV_MutexDestroy(&timer.mutex);
  timer = Timer{};
}

/** Waits until no other kill is at work on the timer; false when one has freed it. */
bool WaitForOtherKill(const Timer& timer) QIV_REQUIRES(g_timerTableMutex) {
  const unsigned int serial = timer.serial;
  while (timer.serial == serial && timer.isBeingKilled != 0) {
    pthread_cond_wait(&g_killEnded, sync::PlatformMutex(g_timerTableMutex));
  }
  return timer.serial == serial;
}

/** False when the thread cannot be joined, so that it may still use the entry. */
bool StopAndJoin(Timer& timer) {
  {
    const base::ScopedLock lock(timer.mutex);
    timer.stop = 1;
    timer.condition->Signal();
  }
  const bool hasThread = timer.thread != QIV_INVALID_ID;
  return !hasThread || QIV_Thread_Wait(timer.thread) == QIV_OK;
}

/** With g_timerTableMutex released while it waits. */
int StopAndFree(Timer& timer) QIV_REQUIRES(g_timerTableMutex) {
  timer.isBeingKilled = 1;
  g_timerTableMutex.Unlock();
  const bool isJoined = StopAndJoin(timer);
  g_timerTableMutex.Lock();
  timer.isBeingKilled = 0;
  if (isJoined) Free(timer);
  pthread_cond_broadcast(&g_killEnded);
  return isJoined ? QIV_OK : QIV_ERROR;
}

int Kill(Timer& timer) {
  // Not every platform unwinds a thread that is cancelled in a join; the marks would stay.
  const base::NoCancellation noCancellation;
  const base::ScopedLock lock(g_timerTableMutex);
  if (timer.used == 0) return QIV_OK;
  Timer* const caller = t_ownTimer;
  if (WaitsFor(timer, caller)) return QIV_ERROR;
  if (caller != nullptr) caller->waitsFor = &timer;
  const int result = WaitForOtherKill(timer) ? StopAndFree(timer) : QIV_OK;
  if (caller != nullptr) caller->waitsFor = nullptr;
  return result;
}

}  // namespace
}  // namespace qiv::thread

extern "C" {

int QIV_SetTimer(void (*callback)(unsigned int id, void* user), void* user, unsigned int period,
                 unsigned int* id) noexcept {
  using namespace qiv::thread;
  const qiv::base::ScopedLock lock(g_timerTableMutex);
  Timer* const timer = FindFree();
  if (timer == nullptr) return QIV_ERROR;
  // Without a condition the thread could not sleep.
  auto* const condition = new (std::nothrow) QIV_Cond;
  if (condition == nullptr) return QIV_ERROR;
  timer->used = 1;
  timer->id = static_cast<unsigned int>(timer - g_timers);
  timer->callback = callback;
  timer->user = user;
  timer->period = period;
  timer->condition = condition;
  QIV_MutexCreate(&timer->mutex, 0);
  timer->serial = ++g_lastSerial;
  // Kept: a failure is not told; the entry stays in use, without a thread, until it is killed.
  timer->thread = QIV_Thread_Create(RunTimer, timer, 0, 0, 0, 0);
  if (id != nullptr) *id = timer->id;
  return QIV_OK;
}

int QIV_KillTimer(unsigned int id) {
  using namespace qiv::thread;
  return id < kTimers ? Kill(g_timers[id]) : QIV_ERROR;
}

// The table is zero from the load on and each entry again when it is free: there is nothing to
// prepare. Kept: timers that run outlive both.
int QIV_InitTimer_Inter(void) noexcept { return QIV_OK; }

int QIV_FiniTimer_Inter(void) noexcept { return QIV_OK; }

}  // extern "C"
