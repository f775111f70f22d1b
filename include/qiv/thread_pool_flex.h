/**
 * @file
 * Flexible thread pool: one handler per pool, a queue of data pointers in front of it, and workers
 * that are started on demand and end by themselves when idle.
 *
 * Work is refused only when 65535 items wait, when memory is short or when no thread can be
 * started: busy workers are no reason. Workers take the items in the order of their submission and
 * run the handler on up to the maximum of threads at once; with a maximum of 1 the items are
 * handled strictly one after another. Before the handler is called, the worker installs the trace
 * record (trace_info.h) that the submitter had; when the submitter had none, the worker keeps the
 * record that it has.
 *
 * The handler runs without a lock. It may submit to its own pool, and may end its thread, which
 * then is replaced when items wait; it must not throw. Destroying its own pool does nothing.
 *
 * The QIV_ThreadPoolFlex_ functions and the thrmgr_ functions are the same pool; they differ in
 * what they return. None of them sets a last error or prints.
 */
#ifndef QIV_THREAD_POOL_FLEX_H
#define QIV_THREAD_POOL_FLEX_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Creates a pool. No thread is started yet.
 *
 * @param maxThreads   most workers at once; refused below 1
 * @param idleTimeout  milliseconds that a worker waits for an item before it ends; -1 for no limit.
 *                     Other negative values count as unsigned: 24 days and more.
 * @param handler      called once per item with the item's data; null is refused
 * @param stackSize    stack of a worker in bytes: 0 for 1 MiB, less than 256 KiB is raised to that;
 *                     a negative size is refused
 * @return the pool; null when an argument is refused or memory is short
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         malloc(3), sem_init(3)
 * @see thrmgr_destroy
 */
QIV_API QIV_HANDLE thrmgr_new(int maxThreads, int idleTimeout, void (*handler)(void*),
                              int stackSize) QIV_NOEXCEPT;

/**
 * Submits an item. A worker is started when fewer are idle than items wait and the maximum allows.
 *
 * @param pool  the pool; null is refused
 * @param data  handed to the handler as it is; stays the caller's, also when the item is dropped
 * @return 1 when queued; 0 when `pool` is null or being destroyed, when 65535 items wait, when
 *         memory is short, or when there is no worker and none can be started
 * @par Errors         no errno
 * @par Thread safety  any threads, the pool's handlers included. A call that is at work when the
 *                     pool is destroyed is waited for; none may begin when the destruction may be
 *                     over.
 * @par System         malloc(3), sem_post(3), pthread_create(3p)
 */
QIV_API int thrmgr_dispatch(QIV_HANDLE pool, void* data) QIV_NOEXCEPT;

/**
 * Ends a pool: refuses new items, may wait for the queue to become empty, then waits for the
 * handlers that run, drops the items that no worker has taken, and frees the pool.
 *
 * The queue is looked at every 500 ms, so a wait for it lasts a multiple of that.
 *
 * @param pool     the pool; null does nothing
 * @param timeout  longest wait for the queue to become empty in milliseconds; -1 for no limit. With
 *                 0 and with other negative values there is no such wait.
 * @par Errors         no errno. Nothing is done, and the pool goes on, when one of the pool's own
 *                     handlers calls: it would wait for itself. Nothing is done either while the
 *                     pool is being destroyed already.
 * @par Thread safety  one thread, once; other calls as thrmgr_dispatch(). No cancellation point.
 * @par System         sem_wait(3), usleep(3), pthread_create(3p), free(3)
 */
QIV_API void thrmgr_destroy(QIV_HANDLE pool, int timeout) QIV_NOEXCEPT;

/**
 * Tells how many items wait for a worker.
 *
 * @param pool  the pool; null is refused
 * @return 0 to 65535; -1 when `pool` is null or being destroyed
 * @par Errors         no errno
 * @par Thread safety  as thrmgr_dispatch()
 * @par System         none
 */
QIV_API int thrmgr_getQSize(QIV_HANDLE pool) QIV_NOEXCEPT;

/**
 * Creates a pool, as thrmgr_new().
 *
 * @param maxThreads   most workers at once; refused below 1
 * @param idleTimeout  milliseconds that a worker waits for an item before it ends; -1 for no limit
 * @param handler      called once per item with the item's data; null is refused
 * @param stackSize    stack of a worker in bytes: 0 for 1 MiB, less than 256 KiB is raised to that;
 *                     a negative size is refused
 * @return the pool; null when an argument is refused or memory is short
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         malloc(3), sem_init(3)
 * @see QIV_ThreadPoolFlex_DestroyEx
 */
QIV_API QIV_HANDLE QIV_ThreadPoolFlex_Create(int maxThreads, int idleTimeout,
                                             void (*handler)(void*), int stackSize) QIV_NOEXCEPT;

/**
 * Submits an item, as thrmgr_dispatch().
 *
 * @param pool  the pool; null is refused
 * @param data  handed to the handler as it is
 * @return 0 when queued; -1 where thrmgr_dispatch() returns 0
 * @par Errors         no errno
 * @par Thread safety  as thrmgr_dispatch()
 * @par System         malloc(3), sem_post(3), pthread_create(3p)
 */
QIV_API int QIV_ThreadPoolFlex_Work(QIV_HANDLE pool, void* data) QIV_NOEXCEPT;

/**
 * Ends a pool without waiting for the queue: thrmgr_destroy() with a time-out of 0.
 *
 * @param pool  the pool; null does nothing
 * @return 0, also when nothing was done
 * @par Errors         as thrmgr_destroy()
 * @par Thread safety  as thrmgr_destroy()
 * @par System         sem_wait(3), usleep(3), pthread_create(3p), free(3)
 */
QIV_API int QIV_ThreadPoolFlex_Destroy(QIV_HANDLE pool) QIV_NOEXCEPT;

/**
 * Ends a pool: thrmgr_destroy() with the given time-out.
 *
 * @param pool     the pool; null does nothing
 * @param timeout  longest wait for the queue to become empty in milliseconds; -1 for no limit
 * @return 0, also when nothing was done
 * @par Errors         as thrmgr_destroy()
 * @par Thread safety  as thrmgr_destroy()
 * @par System         sem_wait(3), usleep(3), pthread_create(3p), free(3)
 */
QIV_API int QIV_ThreadPoolFlex_DestroyEx(QIV_HANDLE pool, int timeout) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
