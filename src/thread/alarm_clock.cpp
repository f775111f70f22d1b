// Alarm clock: a list of alarms in the order of their due times, a map that finds them by number,
// and a thread that sleeps until the first one is due.
//
// m_mutex serialises Start() and Stop(), and is held over the join. m_listMutex guards all members
// behind it. Lock order: m_mutex, m_listMutex, the locks of thread ids. The clock's thread never
// takes m_mutex, since who holds it may be joining that thread; what its callbacks call of Start()
// and Stop() goes without. No lock is held over a callback.
#include <qiv/alarm_clock.h>

#include <qiv/thread.h>
#include <qiv/time.h>

#include <cstddef>
#include <memory>
#include <new>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "sync/platform_mutex.h"
#include "thread/alarm_time.h"

namespace qiv {

static_assert(sizeof(void*) != 4 || offsetof(CAlarmClock::CAlarm, callback) == 4, "in order");
static_assert(sizeof(void*) != 4 || offsetof(CAlarmClock::CAlarm, param) == 8, "in order");
static_assert(offsetof(CAlarmClock::CAlarm, dueTime) + 8 == sizeof(CAlarmClock::CAlarm), "last");

CAlarmClock::CAlarmClock()
    : m_mutex(0), m_hThread(QIV_INVALID_ID), m_bStop(false), m_bWaiting(false) {}

CAlarmClock::~CAlarmClock() {
  Stop();
  DeleteAlarms();
}

bool CAlarmClock::Start() noexcept {
  if (IsOwnThread()) return true;
  const base::ScopedLock lock(m_mutex);
  // Held over the creation, so that the thread knows itself as this clock's from its first
  // callback.
  const base::ScopedLock listLock(m_listMutex);
  if (m_hThread == QIV_INVALID_ID) {
    m_hThread = QIV_Thread_Create(OnThreadRunCallback, this, 0, 0, 0, 0);
  }
  return m_hThread != QIV_INVALID_ID;
}

void CAlarmClock::Stop() {
  if (IsOwnThread()) {
    if (RequestStop()) DeleteAlarms();
    return;
  }
  // Not every platform unwinds a thread that is cancelled in a join; the mutex would stay locked.
  const base::NoCancellation noCancellation;
  const base::ScopedLock lock(m_mutex);
  // Kept: only the first stop deletes alarms, and the stop is never taken back.
  const bool isFirst = RequestStop();
  Join();
  if (isFirst) DeleteAlarms();
}

bool CAlarmClock::AddAlarm(int id, void (*callback)(void* clock, int id, void* param), void* param,
                           long long delay) noexcept try {
  std::unique_ptr<CAlarm> alarm(new (std::nothrow) CAlarm{id, callback, param, 0});
  if (!alarm) return false;
  alarm->dueTime = thread::DueTime(QIV_GetTimeTick64(), delay);
  AlarmList node(1, alarm.get());  // whatever can fail comes before the list changes
  const base::ScopedLock lock(m_listMutex);
  if (!m_mapAlarms.try_emplace(id, node.begin()).second) return false;
  auto next = m_listAlarms.begin();
  while (next != m_listAlarms.end() && (*next)->dueTime <= alarm->dueTime) ++next;
  m_listAlarms.splice(next, node);
  if (m_bWaiting && m_listAlarms.front() == alarm.get()) m_cond.BroadCast();
  static_cast<void>(alarm.release());  // the list's now
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

bool CAlarmClock::RemoveAlarm(int id) noexcept {
  const base::ScopedLock lock(m_listMutex);
  const auto entry = m_mapAlarms.find(id);
  if (entry == m_mapAlarms.end()) return false;
  delete *entry->second;
  m_listAlarms.erase(entry->second);
  m_mapAlarms.erase(entry);
  return true;
}

void CAlarmClock::Run() {
  for (;;) {
    // Owned while the callback runs, which may end the thread.
    const std::unique_ptr<CAlarm> alarm(WaitForDueAlarm());
    if (!alarm) return;
    if (alarm->callback != nullptr) alarm->callback(this, alarm->id, alarm->param);
  }
}

void* CAlarmClock::OnThreadRunCallback(void* clock) {
  if (clock != nullptr) static_cast<CAlarmClock*>(clock)->Run();
  return nullptr;
}

bool CAlarmClock::IsOwnThread() noexcept {
  const unsigned int self = QIV_Thread_GetSelfId();
  const base::ScopedLock lock(m_listMutex);
  return self != QIV_INVALID_ID && self == m_hThread;
}

/** Has the thread leave at its next look. True when that is new to a thread that exists. */
bool CAlarmClock::RequestStop() noexcept {
  const base::ScopedLock lock(m_listMutex);
  if (m_hThread == QIV_INVALID_ID || m_bStop) return false;
  m_bStop = true;
  m_cond.BroadCast();
  return true;
}

/** Waits for the thread, if there is one; under m_mutex, so that nobody else does. */
void CAlarmClock::Join() {
  m_listMutex.Lock();
  const unsigned int thread = m_hThread;
  m_listMutex.Unlock();
  if (thread == QIV_INVALID_ID) return;
  QIV_Thread_Wait(thread);
  const base::ScopedLock lock(m_listMutex);
  m_hThread = QIV_INVALID_ID;
}

void CAlarmClock::DeleteAlarms() noexcept {
  const base::ScopedLock lock(m_listMutex);
  while (!m_listAlarms.empty()) delete TakeFront();
}

/** Sleeps until an alarm is due and takes it out; null when the clock is stopped. */
CAlarmClock::CAlarm* CAlarmClock::WaitForDueAlarm() {
  const base::ScopedLock lock(m_listMutex);
  pthread_mutex_t* const mutex = sync::PlatformMutex(m_listMutex);
  while (!m_bStop) {
    if (m_listAlarms.empty()) {
      m_bWaiting = true;
      m_cond.Wait(mutex);
      m_bWaiting = false;
      continue;
    }
    const qiv_int64 now = QIV_GetTimeTick64();
    const qiv_int64 dueTime = m_listAlarms.front()->dueTime;
    if (now >= dueTime) return TakeFront();
    m_bWaiting = true;
    m_cond.TimedWait(mutex, thread::WaitPiece(dueTime - now));
    m_bWaiting = false;
  }
  return nullptr;
}

CAlarmClock::CAlarm* CAlarmClock::TakeFront() noexcept {
  CAlarm* const alarm = m_listAlarms.front();
  m_mapAlarms.erase(alarm->id);
  m_listAlarms.pop_front();
  return alarm;
}

}  // namespace qiv
