// The workers of a thread pool: start, stop, claim, and the routine that they run.
//
// The locks are told in thread_pool.h. A worker is handed work only while it is idle, and it is
// claimed under the pool's mutex; so a worker that gives up waiting finds under that mutex whether
// it was handed something after all.
#include <qiv/debug.h>
#include <qiv/mutex.h>
#include <qiv/semaphore.h>
#include <qiv/thread.h>

#include <new>
#include <utility>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "sync/semaphore_wait.h"
#include "thread/thread_pool.h"

namespace qiv::thread {
namespace {

constexpr unsigned int kDefaultStackSize = 0x100000;

bool IsEmpty(const QIV_THREADPOOL_THREAD& slot) { return slot.hThread == QIV_INVALID_ID; }

/** Has the first submitter that waits, if there is one, look again. */
void WakeSubmitter(QIV_THREADPOOL* pool) {
  if (pool->firstWaiting != nullptr) pthread_cond_signal(&pool->firstWaiting->wake);
}

/** Hands a worker the item of the first submitter that waits, if there is one. */
bool TakeFromSubmitter(QIV_THREADPOOL_THREAD* slot) {
  WaitingSubmitter* const submitter = slot->pThreadPool->firstWaiting;
  if (submitter == nullptr) return false;
  slot->pThreadPool->firstWaiting = submitter->next;
  slot->pfnWork = submitter->work;
  slot->pParam = submitter->param;
  slot->traceInfo = submitter->traceInfo;
  submitter->isTaken = true;
  pthread_cond_signal(&submitter->wake);
  return true;
}

void SetIdle(QIV_THREADPOOL_THREAD* slot) {
  slot->bIdle = 1;
  ++slot->pThreadPool->nIdle;
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
  --pool->nCurrCount;
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

/** Joins the worker that left its pool by itself before this one did, if any. */
void Join(unsigned int retired) {
  if (retired != QIV_INVALID_ID) QIV_Thread_Wait(retired);
}

/**
 * Takes a worker that has waited in vain out of its pool, unless it was handed something after all.
 * Its thread is left to the next one that retires, or to the end of the pool, to be joined: a
 * detached thread might still run when the library is unloaded.
 */
bool Retire(QIV_THREADPOOL_THREAD* slot) {
  unsigned int predecessor = QIV_INVALID_ID;
  {
    QIV_THREADPOOL* const pool = slot->pThreadPool;
    const base::ScopedLock lock(pool->mutex);
    if (QIV_SemTimedWait(&slot->sem, 0) == QIV_OK) return false;
    predecessor = std::exchange(pool->lastRetired, slot->hThread);
    Leave(slot);
  }
  Join(predecessor);
  return true;
}

/** False when the worker has retired. */
bool WaitForWork(QIV_THREADPOOL_THREAD* slot) {
  const unsigned int timeout = IdleTimeout(*slot);
  while (!sync::WaitForSemaphore(&slot->sem, timeout)) {
    if (timeout == QIV_INFINITE) continue;
    return !Retire(slot);
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

bool MustQuit(const QIV_THREADPOOL_THREAD& slot) {
  return slot.bQuit.load(std::memory_order_relaxed) != 0;
}

/** After an item: true with the next one, if a submitter waits; otherwise the worker is idle. */
bool TakeNextOrSetIdle(QIV_THREADPOOL_THREAD* slot) {
  const base::ScopedLock lock(slot->pThreadPool->mutex);
  if (MustQuit(*slot)) return false;
  if (TakeFromSubmitter(slot)) return true;
  SetIdle(slot);
  return false;
}

/** Serves until the worker is asked to end or retires. */
void Serve(QIV_THREADPOOL_THREAD* slot) {
  while (WaitForWork(slot)) {
    // An item that was accepted before the pool was closed comes first; the request to quit has a
    // post of its own.
    if (slot->pfnWork == nullptr) {
      if (MustQuit(*slot)) return;
      continue;
    }
    do {
      RunWork(slot);
    } while (TakeNextOrSetIdle(slot));
  }
}

}  // namespace

QIV_THREADPOOL_THREAD* QIV_GetIdle_Local(QIV_THREADPOOL* pool) noexcept {
  if (pool == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_GetIdle_Local pThreadPool == NULL error, return NULL 1\n");
    return nullptr;
  }
  const base::ScopedLock lock(pool->mutex);
  for (unsigned int i = 0; pool->nIdle != 0 && i < pool->nMaxCount; ++i) {
    QIV_THREADPOOL_THREAD* const slot = &pool->threads[i];
    if (slot->bIdle == 0) continue;
    SetNotIdle(slot);
    return slot;
  }
  return nullptr;
}

int QIV_CreateThread_Local(QIV_THREADPOOL* pool) noexcept {
  if (pool->nCurrCount == pool->nMaxCount) {
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
  ++pool->nCurrCount;
  return QIV_OK;
}

int QIV_DestroyThread_Local(QIV_THREADPOOL* pool) noexcept {
  const base::NoCancellation noCancellation;
  const base::ScopedLock lock(pool->mutex);
  if (pool->nCurrCount == 0) return QIV_ERROR;
  QIV_THREADPOOL_THREAD* const slot = FirstWorker(pool);
  if (slot == nullptr) return QIV_OK;
  slot->bQuit.store(1, std::memory_order_relaxed);
  SetNotIdle(slot);
  QIV_SemPost(&slot->sem);
  QIV_MutexUnlock(&pool->mutex);
  QIV_Thread_Wait(slot->hThread);
  QIV_MutexLock(&pool->mutex);
  Leave(slot);
  return QIV_OK;
}

void* f_Thread_Svc(void* parameter) {
  if (parameter == nullptr) {
    QIV_OutputDebug("zelmar !!! f_Thread_Svc pParam == NULL error, return NULL 1\n");
    return nullptr;
  }
  // A worker that an item had cancelled would take the next item with it.
  const base::NoCancellation noCancellation;
  Serve(static_cast<QIV_THREADPOOL_THREAD*>(parameter));
  qiv_tlsTraceInfoOper::instance()->eraseTraceInfo();
  return nullptr;
}

}  // namespace qiv::thread
