/**
 * @file
 * Counting semaphores: exported functions on a platform semaphore in the caller's storage, and two
 * classes. They serve the threads of one process. None sets a last error or prints.
 *
 * The exported timed wait polls and is immune to changes of the system time; qiv::qiv_sem waits in
 * the platform's timed wait against the wall clock.
 */
#ifndef QIV_SEMAPHORE_H
#define QIV_SEMAPHORE_H

#include <qiv/mutex.h>
#include <qiv/types.h>
#include <semaphore.h>

QIV_EXTERN_C_BEGIN

/**
 * Initialises a semaphore in the caller's storage.
 *
 * @param sem    storage to initialise; null is refused
 * @param count  initial count
 * @return 0; -1 when `sem` is null or `count` is above the platform's limit (SEM_VALUE_MAX)
 * @par Errors         errno of sem_init()
 * @par Thread safety  not on the same storage at once
 * @par System         sem_init(3)
 * @see QIV_SemDestroy
 */
QIV_API int QIV_SemCreate(sem_t* sem, unsigned int count) QIV_NOEXCEPT;

/**
 * Ends a semaphore made by QIV_SemCreate(). No thread may wait on it or use it afterwards.
 *
 * @param sem  the semaphore; null is refused
 * @return 0; -1 when `sem` is null or the platform refuses
 * @par Errors         errno of sem_destroy()
 * @par Thread safety  one thread, once
 * @par System         sem_destroy(3)
 */
QIV_API int QIV_SemDestroy(sem_t* sem) QIV_NOEXCEPT;

/**
 * Takes the semaphore, waiting for it without limit. A signal does not end the wait. Cancellation
 * point.
 *
 * @param sem  the semaphore; null is refused
 * @return 0; -1 when `sem` is null or the platform reports an error
 * @par Errors         errno of sem_wait()
 * @par Thread safety  any threads
 * @par System         sem_wait(3)
 */
QIV_API int QIV_SemWait(sem_t* sem);

/**
 * Takes the semaphore, waiting at most `ms` milliseconds. Cancellation point unless `ms` is 0.
 *
 * Looks at the count every 10 ms, so it may return a little more than 10 ms late. A
 * change of the system time does not
 * affect it, and a signal does not end it.
 *
 * @param sem  the semaphore; null is refused
 * @param ms   longest wait in milliseconds; 0 looks once, all bits set is no limit
 * @return 0 when taken; -1 when `sem` is null or the time ran out (not told apart)
 * @par Errors         errno of sem_trywait()
 * @par Thread safety  any threads
 * @par System         sem_trywait(3), clock_gettime(2)
 */
QIV_API int QIV_SemTimedWait(sem_t* sem, unsigned int ms);

/**
 * Raises the count by one, which lets one waiting thread go on.
 *
 * @param sem  the semaphore; null is refused
 * @return 0; -1 when `sem` is null or the count is at the platform's limit
 * @par Errors         errno of sem_post()
 * @par Thread safety  any threads
 * @par System         sem_post(3)
 */
QIV_API int QIV_SemPost(sem_t* sem) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

/** A semaphore whose count has an upper bound. */
class QIV_API QIV_Sema {
 public:
  /**
   * @param initial  initial count; it may be above `maximum`
   * @param maximum  count from which on Post() refuses
   */
  QIV_Sema(unsigned int initial, unsigned int maximum) noexcept;
  ~QIV_Sema();
  QIV_Sema(const QIV_Sema&) = delete;
  QIV_Sema& operator=(const QIV_Sema&) = delete;

  /** QIV_SemWait(). */
  int Wait();
  /** QIV_SemTimedWait(). */
  int TimedWait(unsigned int ms);
  /** Raises the count by one: 0; -1, and nothing posted, when it stands at the maximum or above. */
  int Post() noexcept;

 private:
  sem_t m_sem;
  unsigned int m_maximum;
  QIV_Mutex m_mutex;
};

namespace qiv {

/** A semaphore whose timed wait ends at a time of the wall clock. */
class QIV_API qiv_sem {
 public:
  /** A count of 0. */
  qiv_sem() noexcept;
  /** @param count  initial count; a count that init() refuses leaves 0 */
  explicit qiv_sem(int count) noexcept;
  virtual ~qiv_sem();
  qiv_sem(const qiv_sem&) = delete;
  qiv_sem& operator=(const qiv_sem&) = delete;

  /**
   * Creates the semaphore anew; no thread may wait on it.
   *
   * @return 0; -1 when the count is negative or above the platform's limit
   */
  int init(int count) noexcept;
  /** Ends the semaphore, which only init() makes usable again: 0, or -1 when the platform refuses.
   */
  int destroy() noexcept;
  /** Raises the count `n` times: 0, also for `n` below 1; -1 at the first post that fails. */
  int post(int n) noexcept;
  /** post(1). */
  int post_1() noexcept;

  /**
   * Takes the semaphore. Cancellation point.
   *
   * A signal ends a wait without limit, but not one with a limit. A change of the system time
   * shortens or lengthens the latter.
   *
   * @param ms  longest wait in milliseconds; below 0 there is no limit
   * @return 0 when taken; -1 when the time ran out, a signal ended the wait, or on an error
   * @par System  sem_wait(3), sem_timedwait(3p), gettimeofday(2)
   */
  int wait(int ms);

 private:
  sem_t m_sem;
};

}  // namespace qiv

#endif  // __cplusplus

#endif
