/**
 * @file
 * Pools of worker threads that take a function and an argument at a time.
 *
 * Workers are made on demand up to a pool's maximum. Those that a pool begins with stay for its
 * life; the others may end after an idle time. There is no queue: a pool whose workers are all busy
 * refuses work, or lets the submitter wait. There is room for 64 pools. Failures are reported as a
 * result and as a message of QIV_OutputDebug(); none of the functions sets a last error.
 */
#ifndef QIV_THREAD_POOL_H
#define QIV_THREAD_POOL_H

#include <qiv/types.h>

/** The most workers that a pool may have. */
#define MAX_THREAD_PER_THREADPOOL 512

QIV_EXTERN_C_BEGIN

/**
 * Makes a pool.
 *
 * @param initCount    workers to begin with, which stay for the pool's life; at most `maxCount`
 * @param maxCount     the most workers at once, 0 to 512
 * @param stackSize    bytes of each worker's stack; 0 is 1 MiB
 * @param idleTimeout  milliseconds for which a worker beyond the first `initCount` waits for work
 *                     before it ends; all bits set: for ever
 * @return the pool; null when `maxCount` is above 512, when 64 pools exist, or when a worker cannot
 *         be started (always the case with `initCount` above `maxCount`)
 * @par Errors         no errno; a message on standard error
 * @par Thread safety  any threads
 * @par System         pthread_create(3), sem_init(3)
 * @see QIV_ThreadPool_Destroy
 */
QIV_API QIV_HANDLE QIV_ThreadPool_CreateFlex(unsigned int initCount, unsigned int maxCount,
                                             unsigned int stackSize,
                                             unsigned int idleTimeout) QIV_NOEXCEPT;

/**
 * Makes a pool with stacks of 1 MiB whose workers all stay.
 *
 * @param initCount  workers to begin with
 * @param maxCount   the most workers at once, 0 to 512
 * @return as QIV_ThreadPool_CreateFlex()
 * @par Errors         no errno; a message on standard error
 * @par Thread safety  any threads
 * @par System         pthread_create(3), sem_init(3)
 */
QIV_API QIV_HANDLE QIV_ThreadPool_Create(unsigned int initCount,
                                         unsigned int maxCount) QIV_NOEXCEPT;

/**
 * Makes a pool whose workers all stay.
 *
 * @param initCount  workers to begin with
 * @param maxCount   the most workers at once, 0 to 512
 * @param stackSize  bytes of each worker's stack; 0 is 1 MiB
 * @return as QIV_ThreadPool_CreateFlex()
 * @par Errors         no errno; a message on standard error
 * @par Thread safety  any threads
 * @par System         pthread_create(3), sem_init(3)
 */
QIV_API QIV_HANDLE QIV_ThreadPool_CreateEx(unsigned int initCount, unsigned int maxCount,
                                           unsigned int stackSize) QIV_NOEXCEPT;

/**
 * Ends a pool: new work is refused, waiting submitters are sent away, and every item that a worker
 * has taken is run to its end first. The handle is invalid afterwards, although using it is
 * refused as long as no other pool has taken its place.
 *
 * @param pool  the pool; null is refused
 * @return 0; -1 when `pool` is null (with a message), when it is closed or being closed, or when
 *         one of its own workers calls
 * @par Errors         no errno
 * @par Thread safety  any thread but the pool's workers; not a cancellation point
 * @par System         pthread_join(3)
 */
QIV_API int QIV_ThreadPool_Destroy(QIV_HANDLE pool) QIV_NOEXCEPT;

/**
 * Hands one item of work to a worker: an idle one, or a new one while there are fewer than the
 * maximum. The item runs with the caller's trace record; when the caller has none, with the record
 * that the worker has from an earlier item.
 *
 * @param pool   the pool; null is refused
 * @param work   runs in a worker, its result is dropped; null is refused. It must return: it may
 *               not end its thread.
 * @param param  handed to `work`
 * @param wait   what to do while all workers are busy: 0 fails; any other value waits, without
 *               limit, for one to become idle. A worker that waits for its own pool may wait for
 *               ever.
 * @return 0 when a worker took the item; -1 when `pool` or `work` is null (with a message), when
 *         the pool is being closed, when all workers are busy, or when none could be started
 * @par Errors         no errno
 * @par Thread safety  any threads; a cancellation point if `wait` is not 0
 * @par System         sem_post(3), pthread_create(3)
 */
QIV_API int QIV_ThreadPool_WorkEx(QIV_HANDLE pool, void* (*work)(void*), void* param, int wait);

/**
 * Does what QIV_ThreadPool_WorkEx() does without waiting.
 *
 * @param pool   the pool; null is refused
 * @param work   runs in a worker, its result is dropped; null is refused
 * @param param  handed to `work`
 * @return 0 when a worker took the item; -1 otherwise
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         sem_post(3), pthread_create(3)
 */
QIV_API int QIV_ThreadPool_Work(QIV_HANDLE pool, void* (*work)(void*), void* param) QIV_NOEXCEPT;

/**
 * Prepares the table of pools; the start of the library does. Forgets pools that are left without
 * workers; pools with workers stay until they are destroyed.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any thread
 * @par System         none
 */
QIV_API int QIV_InitThreadPool_Inter(void) QIV_NOEXCEPT;

/**
 * Closes the table of pools; the stop of the library does. Pools that are still open are not
 * touched: they stay usable until they are destroyed.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any thread
 * @par System         none
 */
QIV_API int QIV_FiniThreadPool_Inter(void) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

/** The handle of a pool. It owns nothing: its end leaves the pool alone. */
class QIV_API QIV_ThreadPool {
 public:
  /** Names no pool. */
  QIV_ThreadPool() noexcept;
  ~QIV_ThreadPool();
  /** Names the same pool as the other. */
  QIV_ThreadPool(const QIV_ThreadPool&) noexcept;
  /** Names the same pool as the other from now on; the pool named before stays open. */
  QIV_ThreadPool& operator=(const QIV_ThreadPool&) noexcept;

  /** QIV_ThreadPool_Create(). @return 0; -1 when there is no pool */
  int Create(unsigned int initCount, unsigned int maxCount) noexcept;
  /** QIV_ThreadPool_Destroy(). */
  int Destroy() noexcept;
  /** QIV_ThreadPool_Work(). */
  int Work(void* (*work)(void*), void* param) noexcept;

 private:
  QIV_HANDLE m_pool;
};

#endif  // __cplusplus

#endif
