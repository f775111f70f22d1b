/**
 * @file
 * Condition variables on the monotonic clock: exported functions on a platform condition in the
 * caller's storage, and a class over them.
 *
 * Only null arguments are checked; waits and signals hand the platform's error numbers (positive)
 * through. None of them sets a last error.
 */
#ifndef QIV_CONDITION_H
#define QIV_CONDITION_H

#include <pthread.h>
#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Initialises a condition in the caller's storage. Prints one line on standard error with the
 * addresses of the condition and of the attribute that the library keeps for it.
 *
 * @param condition  storage to initialise; null is refused. A condition that is initialised a
 *                   second time without QIV_CondDestroy() loses the memory of its first attribute.
 * @return 0; -1 when `condition` is null, memory is short or the platform refuses (nothing printed)
 * @par Errors         no errno
 * @par Thread safety  not on the same storage at once
 * @par System         pthread_cond_init(3p), pthread_condattr_setclock(3p)
 * @see QIV_CondDestroy
 */
QIV_API int QIV_CondCreate(pthread_cond_t* condition) QIV_NOEXCEPT;

/**
 * Ends a condition. No thread may wait on it or use it afterwards. Prints one line on standard
 * error when QIV_CondCreate() made it; one made otherwise is destroyed all the same.
 *
 * @param condition  the condition; null is refused
 * @return the platform's result (0); -1 when `condition` is null
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         pthread_cond_destroy(3p)
 */
QIV_API int QIV_CondDestroy(pthread_cond_t* condition) QIV_NOEXCEPT;

/**
 * Releases the mutex, waits to be woken, and takes the mutex again. May wake without a signal.
 *
 * @param condition  the condition; null is refused
 * @param mutex      held by the calling thread; null is refused
 * @return the platform's result: 0 when woken; -1 when an argument is null
 * @par Errors         no errno
 * @par Thread safety  any threads; a cancellation point
 * @par System         pthread_cond_wait(3p)
 */
QIV_API int QIV_CondWait(pthread_cond_t* condition, pthread_mutex_t* mutex);

/**
 * Does what QIV_CondWait() does, for a limited time. A change of the system time does not affect
 * the limit, provided that QIV_CondCreate() made the condition.
 *
 * @param condition  the condition; null is refused
 * @param mutex      held by the calling thread; null is refused
 * @param ms         longest wait, milliseconds; no value means for ever
 * @return the platform's result: 0 when woken, ETIMEDOUT when the time ran out; -1 when an argument
 *         is null
 * @par Errors         no errno
 * @par Thread safety  any threads; a cancellation point
 * @par System         pthread_cond_timedwait(3p), clock_gettime(2)
 */
QIV_API int QIV_CondTimedWait(pthread_cond_t* condition, pthread_mutex_t* mutex, unsigned int ms);

/**
 * Wakes at least one of the threads that wait.
 *
 * @param condition  the condition; null is refused
 * @return the platform's result (0); -1 when `condition` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_cond_signal(3p)
 */
QIV_API int QIV_CondSignal(pthread_cond_t* condition) QIV_NOEXCEPT;

/**
 * Wakes every thread that waits.
 *
 * @param condition  the condition; null is refused
 * @return the platform's result (0); -1 when `condition` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_cond_broadcast(3p)
 */
QIV_API int QIV_CondBroadCast(pthread_cond_t* condition) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

/**
 * A condition variable: the platform's condition and nothing else. Every method returns what the
 * exported function of the same name returns.
 */
class QIV_API QIV_Cond {
 public:
  QIV_Cond() noexcept;
  ~QIV_Cond();
  QIV_Cond(const QIV_Cond&) = delete;
  QIV_Cond& operator=(const QIV_Cond&) = delete;

  /** Waits to be woken. @param mutex  held by the calling thread; released during the wait */
  int Wait(pthread_mutex_t* mutex);
  /**
   * Waits to be woken, for a limited time.
   *
   * @param mutex  held by the calling thread; released during the wait
   * @param ms     longest wait, milliseconds
   */
  int TimedWait(pthread_mutex_t* mutex, unsigned int ms);
  /** Wakes at least one of the threads that wait. */
  int Signal() noexcept;
  /** Wakes every thread that waits. */
  int BroadCast() noexcept;

 private:
  pthread_cond_t m_condition;
};

#endif  // __cplusplus

#endif
