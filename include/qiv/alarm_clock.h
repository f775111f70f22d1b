/**
 * @file
 * A class that runs callbacks after a delay, on one thread of its own. Exists in C++ only.
 */
#ifndef QIV_ALARM_CLOCK_H
#define QIV_ALARM_CLOCK_H

#include <qiv/condition.h>
#include <qiv/mutex.h>
#include <qiv/types.h>

#ifdef __cplusplus
#include <list>
#include <map>

namespace qiv {

/**
 * An alarm clock. Alarms are registered under a number, fire once when they are due, and are then
 * forgotten: a callback that wants to be called again adds its alarm again.
 *
 * Callbacks run on the clock's thread, one at a time and without a lock held: one that takes long
 * delays those behind it. Every operation may be called by any threads at once, callbacks included;
 * the clock must not be destroyed by its own callback. Due times are ticks of QIV_GetTimeTick64().
 *
 * A clock is stopped for good: nothing fires any more after Stop(), whatever is called then.
 */
class QIV_API CAlarmClock {
 public:
  /** One alarm that has not fired. */
  struct CAlarm {
    int id;                                              ///< its number
    void (*callback)(void* clock, int id, void* param);  ///< called when it is due; may be null
    void* param;                                         ///< handed to the callback
    qiv_int64 dueTime;                                   ///< tick at which it is due, milliseconds
  };

  /** An empty clock without a thread. Prints a line on standard error, as its condition does. */
  CAlarmClock();

  /** Does what Stop() does and frees the alarms that are left. Waits for a callback in progress. */
  virtual ~CAlarmClock();

  CAlarmClock(const CAlarmClock&) = delete;
  CAlarmClock& operator=(const CAlarmClock&) = delete;

  /**
   * Starts the clock's thread, unless it has one. On a stopped clock the thread ends at once.
   *
   * @return true when there is a thread now; false when none can be started: try again later
   */
  bool Start() noexcept;

  /**
   * Stops the clock for good: waits for a callback in progress, ends the thread and deletes all
   * alarms. In a callback of this clock it does not wait: the thread ends with that callback, and
   * the next Stop() elsewhere, or the destructor, releases it. Does nothing before Start().
   *
   * Must not be called under a lock, or in a callback, that a callback of this clock waits for. No
   * cancellation point: a cancellation takes effect after it.
   */
  void Stop();

  /**
   * Adds an alarm, whether the clock has a thread or not. Alarms that are due at the same tick fire
   * in the order in which they were added. Takes a look at each alarm that is due before it.
   *
   * @param id        the alarm's number, unique among those that have not fired
   * @param callback  called as callback(clock, id, param), the clock as its address; null makes an
   *                  alarm that only expires
   * @param param     handed to `callback`
   * @param delay     milliseconds from now; a negative one counts as 0, one past the end of time as
   *                  never
   * @return true when it was added; false when `id` is taken (the alarm that has it stays as it is)
   *         or memory is short
   */
  bool AddAlarm(int id, void (*callback)(void* clock, int id, void* param), void* param,
                long long delay) noexcept;

  /**
   * Removes an alarm that has not fired.
   *
   * @return true when it was removed, and will not fire; false when no alarm has the number: it was
   *         never added, or it has fired, and its callback may still run
   */
  bool RemoveAlarm(int id) noexcept;

  /** The loop of the clock's thread, which Start() makes and which is the only one to run it;
   *  returns when the clock is stopped. */
  void Run();

  /** The routine of the clock's thread: Run() of the clock given; null does nothing. @return null
   */
  static void* OnThreadRunCallback(void* clock);

 private:
  typedef std::list<CAlarm*> AlarmList;

  QIV_INTERNAL bool IsOwnThread() noexcept;
  QIV_INTERNAL bool RequestStop() noexcept;
  QIV_INTERNAL void Join();
  QIV_INTERNAL void DeleteAlarms() noexcept;
  QIV_INTERNAL CAlarm* WaitForDueAlarm();
  QIV_INTERNAL CAlarm* TakeFront() noexcept QIV_REQUIRES(m_listMutex);

  QIV_Mutex m_mutex;
  QIV_UniqueMutex m_listMutex;
  unsigned int m_hThread QIV_GUARDED_BY(m_listMutex);
  QIV_Cond m_cond;
  bool m_bStop QIV_GUARDED_BY(m_listMutex);
  bool m_bWaiting QIV_GUARDED_BY(m_listMutex);
  AlarmList m_listAlarms QIV_GUARDED_BY(m_listMutex);
  std::map<int, AlarmList::iterator> m_mapAlarms QIV_GUARDED_BY(m_listMutex);
};

}  // namespace qiv

#endif  // __cplusplus

#endif
