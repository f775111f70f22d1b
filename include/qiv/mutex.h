/**
 * @file
 * Mutexes: exported functions on a platform mutex in the caller's storage, and classes over them.
 *
 * None of them sets a last error or prints. Lock semantics are those of the platform's mutex type.
 */
#ifndef QIV_MUTEX_H
#define QIV_MUTEX_H

#include <pthread.h>
#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Initialises a mutex in the caller's storage.
 *
 * @param mutex  storage to initialise; null is refused
 * @param type   -1 for a recursive mutex; any other value is the platform's mutex type (0 normal,
 *               1 recursive, 2 error-checking). A type that the platform does not know leaves its
 *               default type and still succeeds.
 * @return 0; -1 when `mutex` is null
 * @par Errors         no errno
 * @par Thread safety  not on the same storage at once
 * @par System         pthread_mutex_init(3p), pthread_mutexattr_settype(3p)
 * @see QIV_MutexDestroy
 */
QIV_API int QIV_MutexCreate(pthread_mutex_t* mutex, int type) QIV_NOEXCEPT;

/**
 * Ends a mutex made by QIV_MutexCreate(). No thread may hold it or use it afterwards.
 *
 * @param mutex  the mutex; null is refused
 * @return 0; -1 when `mutex` is null or the platform refuses (a held mutex)
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         pthread_mutex_destroy(3p)
 */
QIV_API int QIV_MutexDestroy(pthread_mutex_t* mutex) QIV_NOEXCEPT;

/**
 * Takes a mutex, waiting for it as long as it is held.
 *
 * @param mutex  the mutex; null is refused
 * @return 0; -1 when `mutex` is null or the platform reports an error
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_MutexLock(pthread_mutex_t* mutex) QIV_NOEXCEPT;

/**
 * Takes a mutex if that is possible at once.
 *
 * @param mutex  the mutex; null is refused
 * @return 0 when taken; -1 when `mutex` is null, when another thread holds it, or on an error
 *         (not told apart)
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_trylock(3p)
 */
QIV_API int QIV_MutexTryLock(pthread_mutex_t* mutex) QIV_NOEXCEPT;

/**
 * Releases a mutex that the calling thread holds.
 *
 * @param mutex  the mutex; null is refused
 * @return 0; -1 when `mutex` is null or the platform reports an error
 * @par Errors         no errno
 * @par Thread safety  the thread that took it
 * @par System         pthread_mutex_unlock(3p)
 */
QIV_API int QIV_MutexUnlock(pthread_mutex_t* mutex) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

/**
 * A mutex, recursive unless constructed with another type. Every method returns what the exported
 * function of the same name returns. The destructor destroys the mutex.
 */
class QIV_API QIV_CAPABILITY QIV_Mutex {
 public:
  QIV_Mutex() noexcept;
  /** @param type  as for QIV_MutexCreate(); all bits set (-1) is recursive */
  explicit QIV_Mutex(unsigned int type) noexcept;
  ~QIV_Mutex();
  QIV_Mutex(const QIV_Mutex&) = delete;
  QIV_Mutex& operator=(const QIV_Mutex&) = delete;

  /** Takes the mutex, waiting as long as it is held. @return as QIV_MutexLock() */
  int Lock() noexcept QIV_ACQUIRE();
  /** Releases the mutex, in the thread that took it. @return as QIV_MutexUnlock() */
  int Unlock() noexcept QIV_RELEASE();
  /** Takes the mutex if that is possible at once. @return as QIV_MutexTryLock() */
  int TryLock() noexcept QIV_TRY_ACQUIRE(0);

 private:
  pthread_mutex_t m_mutex;
};

/** A mutex like QIV_Mutex, but non-recursive unless constructed with another type. */
class QIV_API QIV_CAPABILITY QIV_UniqueMutex {
 public:
  QIV_UniqueMutex() noexcept;
  /** @param type  as for QIV_MutexCreate() */
  explicit QIV_UniqueMutex(unsigned int type) noexcept;
  ~QIV_UniqueMutex();
  QIV_UniqueMutex(const QIV_UniqueMutex&) = delete;
  QIV_UniqueMutex& operator=(const QIV_UniqueMutex&) = delete;

  /** Takes the mutex, waiting as long as it is held. @return as QIV_MutexLock() */
  int Lock() noexcept QIV_ACQUIRE();
  /** Releases the mutex, in the thread that took it. @return as QIV_MutexUnlock() */
  int Unlock() noexcept QIV_RELEASE();
  /** Takes the mutex if that is possible at once. @return as QIV_MutexTryLock() */
  int TryLock() noexcept QIV_TRY_ACQUIRE(0);

 private:
  pthread_mutex_t m_mutex;
};

namespace qiv {

/** A mutex, recursive unless constructed with another type. */
class QIV_API QIV_CAPABILITY qiv_mutex {
 public:
  qiv_mutex() noexcept;
  /** @param type  as for QIV_MutexCreate() */
  explicit qiv_mutex(int type) noexcept;
  ~qiv_mutex();
  qiv_mutex(const qiv_mutex&) = delete;
  qiv_mutex& operator=(const qiv_mutex&) = delete;

  /** Takes the mutex, waiting as long as it is held. @return as QIV_MutexLock() */
  int lock() noexcept QIV_ACQUIRE();
  /** Takes the mutex if that is possible at once. @return as QIV_MutexTryLock() */
  int trylock() noexcept QIV_TRY_ACQUIRE(0);
  /** Releases the mutex, in the thread that took it. @return as QIV_MutexUnlock() */
  int unlock() noexcept QIV_RELEASE();

 private:
  pthread_mutex_t m_mutex;
};

/** A recursive mutex that can be a base class. */
class QIV_API QIV_CAPABILITY qiv_recursive_mutex {
 public:
  qiv_recursive_mutex() noexcept;
  virtual ~qiv_recursive_mutex();
  qiv_recursive_mutex(const qiv_recursive_mutex&) = delete;
  qiv_recursive_mutex& operator=(const qiv_recursive_mutex&) = delete;

  /** Takes the mutex, waiting as long as it is held. @return as QIV_MutexLock() */
  int lock() noexcept QIV_ACQUIRE();
  /** Takes the mutex if that is possible at once. @return as QIV_MutexTryLock() */
  int trylock() noexcept QIV_TRY_ACQUIRE(0);
  /** Releases the mutex, in the thread that took it. @return as QIV_MutexUnlock() */
  int unlock() noexcept QIV_RELEASE();

 private:
  pthread_mutex_t m_mutex;
};

}  // namespace qiv

#endif  // __cplusplus

#endif
