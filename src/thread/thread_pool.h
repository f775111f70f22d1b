// The records of the thread pools and what is done with their workers.
//
// A pool's mutex guards everything in the pool but what a worker that was handed work reads: its
// slot's work, argument and trace record are its own from the post of its semaphore until it says
// that it is idle again. The mutex is made when the record is first used and stays for good, so
// that a submitter that comes too late finds the pool closed and not its mutex gone.
#ifndef QIV_THREAD_THREAD_POOL_H
#define QIV_THREAD_THREAD_POOL_H

#include <pthread.h>
#include <qiv/thread_pool.h>
#include <qiv/trace_info.h>
#include <qiv/types.h>
#include <semaphore.h>

#include <atomic>
#include <cstddef>

#include "thread/platform_thread.h"

namespace qiv::thread {

struct QIV_THREADPOOL;

/** A worker's slot. It is empty exactly when it names no thread; then all else in it is 0. */
struct QIV_THREADPOOL_THREAD {
  unsigned int nIndex;
  QIV_THREADPOOL* pThreadPool;
  int bIdle;               // waits for work and may be handed some
  std::atomic<int> bQuit;  // the worker looks at it without the lock
  unsigned int hThread;
  sem_t sem;  // posted for each item of work and to make the worker look at bQuit
  ThreadRoutine pfnWork;
  void* pParam;
  QIV_TRACEINFO traceInfo;
};

/** A submitter that waits, on its own stack, and what it wants run. */
struct WaitingSubmitter {
  ThreadRoutine work;
  void* param;
  QIV_TRACEINFO traceInfo;
  pthread_cond_t wake;  // on the monotonic clock
  bool isTaken;         // by a worker
  WaitingSubmitter* next;
};

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the order of the fields is fixed
struct QIV_THREADPOOL {
  int bUsed;  // guarded by the mutex of the table
  int bQuit;
  unsigned int nMaxCount;
  unsigned int nInitCount;
  unsigned int nCurrCount;
  unsigned int nStackSize;
  unsigned int nIdleTimeout;
  pthread_mutex_t mutex;
  QIV_THREADPOOL_THREAD threads[MAX_THREAD_PER_THREADPOOL];
  WaitingSubmitter* firstWaiting;  // the queue; while it has any, no worker is idle
  pthread_cond_t submittersLeft;   // nWaiting is 0
  unsigned int nWaiting;           // submitters in the queue, or taken from it and on their way out
  unsigned int nIdle;              // slots whose bIdle is 1
  unsigned int lastRetired;  // the thread that ended by itself and was not joined yet, or invalid
};

static_assert(offsetof(QIV_THREADPOOL, bQuit) == 4, "fields in order");
static_assert(offsetof(QIV_THREADPOOL, nMaxCount) == 8, "fields in order");
static_assert(offsetof(QIV_THREADPOOL, nInitCount) == 12, "fields in order");
static_assert(offsetof(QIV_THREADPOOL, nCurrCount) == 16, "fields in order");
static_assert(offsetof(QIV_THREADPOOL, nStackSize) == 20, "fields in order");
static_assert(offsetof(QIV_THREADPOOL, nIdleTimeout) == 24, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL, mutex) == 28, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL, threads) == 52, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, pThreadPool) == 4, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, bIdle) == 8, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, bQuit) == 12, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, hThread) == 16, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, sem) == 20, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, pfnWork) == 36, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, pParam) == 40, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_THREADPOOL_THREAD, traceInfo) == 44, "in order");
static_assert(sizeof(void*) != 4 || sizeof(QIV_THREADPOOL_THREAD) == 244, "nothing follows");

/** Claims the idle worker with the lowest index; null when there is none. */
QIV_THREADPOOL_THREAD* QIV_GetIdle_Local(QIV_THREADPOOL* pool) noexcept;

/** Starts a worker, which is idle. The caller holds the pool's mutex. @return 0 or -1 */
int QIV_CreateThread_Local(QIV_THREADPOOL* pool) noexcept;

/** Stops the worker with the lowest index and waits for its end. @return -1 when there is none */
int QIV_DestroyThread_Local(QIV_THREADPOOL* pool) noexcept;

/** What a worker runs. @param slot  its slot */
void* f_Thread_Svc(void* slot);

}  // namespace qiv::thread

#endif
