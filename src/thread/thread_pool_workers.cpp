// The workers of a thread pool: start, stop, claim, and the routine that they run.
//
// The locks are told in thread_pool.h. A worker is handed work only while it is idle, and it is
// claimed under the pool's mutex; so a worker that gives up waiting finds under that mutex whether
// it was handed something after all.
#include <qiv/debug.h>
#include <qiv/semaphore.h>
#include <qiv/thread.h>

#include <new>

#include "sync/semaphore_wait.h"
#include "thread/thread_ids.h"
#include "thread/thread_pool.h"

namespace qiv::thread {
namespace {

constexpr unsigned int kDefaultStackSize = 0x100000;

bool IsEmpty(const QIV_THREADPOOL_THREAD& slot) { return slot.hThread == QIV_INVALID_ID; }

unsigned int WorkerCount(const QIV_THREADPOOL& pool) {
  return pool.nCurrCount.load(std::memory_order_relaxed);
}

/** Tells a submitter that waits to look again, unless all have been told. */
void WakeSubmitter(QIV_THREADPOOL* pool) {
  if (pool->nWaiting == 0) return;
  int told = 0;
  sem_getvalue(&pool->idleWorkers, &told);
  if (static_cast<unsigned int>(told) < pool->nWaiting) QIV_SemPost(&pool->idleWorkers);
}

void SetIdle(QIV_THREADPOOL_THREAD* slot) {
  slot->bIdle = 1;
  ++slot->pThreadPool->nIdle;
  WakeSubmitter(slot->pThreadPool);
}

void SetNotIdle(QIV_THREADPOOL_THREAD* slot) {
  slot->pThreadPool->nIdle -= static_cast<unsigned int>(slot->bIdle);
  slot->bIdle = 0;
}

void Clear(QIV_THREADPOOL_THREAD* slot) {
  QIV_SemDestroy(&slot->sem);
  new (slot) QIV_THREADPOOL_THREAD{};
  slot->hThread = QIV_INVALID_ID;
}

/** Takes a worker out of its pool. */
void Leave(QIV_THREADPOOL_THREAD* slot) {
  QIV_THREADPOOL* const pool = slot->pThreadPool;
  SetNotIdle(slot);
  Clear(slot);
  pool->nCurrCount.fetch_sub(1, std::memory_order_relaxed);
  WakeSubmitter(pool);
}

QIV_THREADPOOL_THREAD* FirstEmptySlot(QIV_THREADPOOL* pool) {
  for (unsigned int i = 0; i < pool->nMaxCount; ++i) {
    if (IsEmpty(pool->threads[i])) return &pool->threads[i];
  }
  return nullptr;
}

QIV_THREADPOOL_THREAD* FirstWorker(QIV_THREADPOOL* pool) {
  for (unsigned int i = 0; i < pool->nMaxCount; ++i) {
    if (!IsEmpty(pool->threads[i])) return &pool->threads[i];
  }
  return nullptr;
}

bool StartThread(QIV_THREADPOOL_THREAD* slot) {
  const QIV_THREADPOOL* const pool = slot->pThreadPool;
  const unsigned int stackSize = pool->nStackSize != 0 ? pool->nStackSize : kDefaultStackSize;
  slot->hThread = QIV_Thread_Create(f_Thread_Svc, slot, stackSize, 0, 0, 0);
  return !IsEmpty(*slot);
}

/** How long a worker waits for work: the first ones never give up. */
unsigned int IdleTimeout(const QIV_THREADPOOL_THREAD& slot) {
  const QIV_THREADPOOL& pool = *slot.pThreadPool;
  return slot.nIndex < pool.nInitCount ? QIV_INFINITE : pool.nIdleTimeout;
}

/** False when the worker has left its pool, having waited in vain. */
bool WaitForWork(QIV_THREADPOOL_THREAD* slot) {
  const unsigned int timeout = IdleTimeout(*slot);
  while (!sync::WaitForSemaphore(&slot->sem, timeout)) {
    if (timeout == QIV_INFINITE) continue;
    const PoolLock lock(slot->pThreadPool);
    if (QIV_SemTimedWait(&slot->sem, 0) == QIV_OK) return true;
    Leave(slot);
    return false;
  }
  return true;
}

void RunWork(QIV_THREADPOOL_THREAD* slot) {
  // Kept: an empty record is not installed, so that of an earlier item stays.
  qiv_tlsTraceInfoOper::instance()->setTraceInfo(&slot->traceInfo);
  slot->pfnWork(slot->pParam);
  slot->pfnWork = nullptr;
  slot->pParam = nullptr;
}

/** Serves until the worker is asked to end. @return false when it has left its pool by itself */
bool Serve(QIV_THREADPOOL_THREAD* slot) {
  while (WaitForWork(slot)) {
    // An item that was accepted before the pool was closed comes first; the request to quit has a
    // post of its own.
    if (slot->pfnWork != nullptr) {
      RunWork(slot);
    } else if (slot->bQuit.load(std::memory_order_relaxed) != 0) {
      return true;
    }
    const PoolLock lock(slot->pThreadPool);
    if (slot->bQuit.load(std::memory_order_relaxed) == 0) SetIdle(slot);
  }
  return false;
}

}  // namespace

QIV_THREADPOOL_THREAD* QIV_GetIdle_Local(QIV_THREADPOOL* pool) noexcept {
  if (pool == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_GetIdle_Local pThreadPool == NULL error, return NULL 1\n");
    return nullptr;
  }
  const PoolLock lock(pool);
  if (pool->nIdle == 0) return nullptr;
  QIV_THREADPOOL_THREAD* slot = pool->threads;
  while (slot->bIdle == 0) ++slot;
  SetNotIdle(slot);
  return slot;
}

int QIV_CreateThread_Local(QIV_THREADPOOL* pool) noexcept {
  if (WorkerCount(*pool) == pool->nMaxCount) {
    QIV_OutputDebug(
        "zelmar !!! QIV_CreateThread_Local (pThreadPool->nCurrCount == pThreadPool->nMaxCount) "
        "error, return -1, 1\n");
    return QIV_ERROR;
  }
  QIV_THREADPOOL_THREAD* const slot = FirstEmptySlot(pool);
  if (slot == nullptr) return QIV_ERROR;
  slot->pfnWork = nullptr;
  if (QIV_SemCreate(&slot->sem, 0) != QIV_OK) {
    QIV_OutputDebug("zelmar !!! QIV_CreateThread_Local QIV_SemCreate error, return -1 2\n");
    return QIV_ERROR;
  }
  slot->nIndex = static_cast<unsigned int>(slot - pool->threads);
  slot->bQuit.store(0, std::memory_order_relaxed);
  slot->pThreadPool = pool;
  if (!StartThread(slot)) {
    QIV_OutputDebug("zelmar !!! QIV_CreateThread_Local QIV_Thread_Create error, return -1 3\n");
    Clear(slot);
    return QIV_ERROR;
  }
  SetIdle(slot);
  pool->nCurrCount.fetch_add(1, std::memory_order_relaxed);
  return QIV_OK;
}

int QIV_DestroyThread_Local(QIV_THREADPOOL* pool) {
  const PoolLock lock(pool);
  if (WorkerCount(*pool) == 0) return QIV_ERROR;
  QIV_THREADPOOL_THREAD* const slot = FirstWorker(pool);
  if (slot == nullptr) return QIV_OK;
  slot->bQuit.store(1, std::memory_order_relaxed);
  SetNotIdle(slot);
  QIV_SemPost(&slot->sem);
  {
    const PoolUnlock unlock(pool);
    QIV_Thread_Wait(slot->hThread);
  }
  Leave(slot);
  return QIV_OK;
}

void* f_Thread_Svc(void* parameter) {
  if (parameter == nullptr) {
    QIV_OutputDebug("zelmar !!! f_Thread_Svc pParam == NULL error, return NULL 1\n");
    return nullptr;
  }
  const bool isJoined = Serve(static_cast<QIV_THREADPOOL_THREAD*>(parameter));
  if (!isJoined) ThreadIds::DetachSelf();
  qiv_tlsTraceInfoOper::instance()->eraseTraceInfo();
  return nullptr;
}

}  // namespace qiv::thread
