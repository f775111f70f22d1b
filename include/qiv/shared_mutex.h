/**
 * @file
 * Reader/writer locks that prefer writers: functions on a handle and the class behind them.
 *
 * Any number of readers hold the lock together, or one writer alone. A waiting writer keeps new
 * readers out. None of the functions sets a last error. Unlocks that no lock precedes are not
 * detected and spoil the lock.
 */
#ifndef QIV_SHARED_MUTEX_H
#define QIV_SHARED_MUTEX_H

#include <qiv/condition.h>
#include <qiv/mutex.h>
#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Makes a reader/writer lock. Its two conditions print a line each on standard error, see
 * QIV_CondCreate().
 *
 * @param handle  address of a variable that holds null; it receives the lock
 * @return 0; -1 when `handle` is null, when the variable does not hold null (it is left as it is),
 *         or when memory is short
 * @par Errors         no errno
 * @par Thread safety  not on the same variable at once
 * @par System         pthread_mutex_init(3p), pthread_cond_init(3p)
 * @see QIV_SharedMutexDestroy
 */
QIV_API int QIV_SharedMutexCreate(QIV_HANDLE* handle) QIV_NOEXCEPT;

/**
 * Ends a lock that nobody holds or waits for, and sets the variable to null.
 *
 * @param handle  address of the variable with the lock
 * @return 0; -1 when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         pthread_mutex_destroy(3p), pthread_cond_destroy(3p)
 */
QIV_API int QIV_SharedMutexDestroy(QIV_HANDLE* handle) QIV_NOEXCEPT;

/**
 * Takes the lock alone, waiting until no reader and no other writer holds it. Not recursive.
 *
 * @param handle  address of the variable with the lock
 * @return 0; -1 when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  any threads; a cancellation point
 * @par System         pthread_cond_wait(3p)
 */
QIV_API int QIV_SharedMutexLock(QIV_HANDLE* handle);

/**
 * Releases a lock taken alone: the next waiting writer gets its turn, or else all waiting readers.
 *
 * @param handle  address of the variable with the lock
 * @return 0; -1 when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_cond_signal(3p), pthread_cond_broadcast(3p)
 */
QIV_API int QIV_SharedMutexUnlock(QIV_HANDLE* handle) QIV_NOEXCEPT;

/**
 * Takes the lock alone if nobody holds it.
 *
 * @param handle  address of the variable with the lock
 * @return 0 when taken; -1 when somebody holds it, or when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_SharedMutexTryLock(QIV_HANDLE* handle) QIV_NOEXCEPT;

/**
 * Takes the lock together with other readers, waiting while a writer holds it or waits for it. A
 * thread that is a reader already may wait for ever behind a writer.
 *
 * @param handle  address of the variable with the lock
 * @return 0; -1 when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  any threads; a cancellation point
 * @par System         pthread_cond_wait(3p)
 */
QIV_API int QIV_SharedMutexLockShared(QIV_HANDLE* handle);

/**
 * Releases a reader's hold; the last one lets a waiting writer in.
 *
 * @param handle  address of the variable with the lock
 * @return 0; -1 when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_cond_signal(3p)
 */
QIV_API int QIV_SharedMutexUnlockShared(QIV_HANDLE* handle) QIV_NOEXCEPT;

/**
 * Takes the lock together with other readers if no writer holds it or waits for it.
 *
 * @param handle  address of the variable with the lock
 * @return 0 when taken; -1 when a writer holds it or waits, or when `handle` or the lock is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_SharedMutexTryLockShared(QIV_HANDLE* handle) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

/** A reader/writer lock. The methods do what the functions do, and return 0 but for the two that
 *  try. */
class QIV_API QIV_SharedMutex {
 public:
  /** Who holds the lock and who waits for it. */
  struct CStateData {
    unsigned int sharedHolders = 0;  /**< readers inside */
    unsigned int exclusive = 0;      /**< 1 while a writer is inside */
    unsigned int waitingWriters = 0; /**< writers outside */
  };

  QIV_SharedMutex() noexcept;
  ~QIV_SharedMutex();
  QIV_SharedMutex(const QIV_SharedMutex&) = delete;
  QIV_SharedMutex& operator=(const QIV_SharedMutex&) = delete;

  /** Takes the lock alone. A cancellation point. */
  int Lock();
  /** Releases a lock taken alone. */
  int Unlock() noexcept;
  /** Takes the lock alone if nobody holds it. @return 0 or -1 */
  int TryLock() noexcept;
  /** Takes the lock together with other readers. A cancellation point. */
  int LockShared();
  /** Releases a reader's hold. */
  int UnlockShared() noexcept;
  /** Takes the lock with other readers if no writer holds it or waits. @return 0 or -1 */
  int TryLockShread() noexcept;

 private:
  class WaitingWriter;

  QIV_INTERNAL bool WriterMayEnter() const QIV_REQUIRES(m_guard);
  QIV_INTERNAL bool ReaderMayEnter() const QIV_REQUIRES(m_guard);
  QIV_INTERNAL void WakeNext() QIV_REQUIRES(m_guard);

  CStateData m_state QIV_GUARDED_BY(m_guard);
  QIV_UniqueMutex m_guard;
  QIV_Cond m_readerGate;
  QIV_Cond m_writerGate;
};

#endif  // __cplusplus

#endif
