// The table of thread pools, and the exported functions.
//
// g_tableMutex guards the bUsed flags and g_usedRecords. It is never held together with a pool's
// mutex. What that guards is told in thread_pool.h.
#include "thread/thread_pool.h"

#include <qiv/debug.h>
#include <qiv/semaphore.h>
#include <qiv/system.h>
#include <qiv/thread.h>

#include <iterator>

#include "base/constant_mutex.h"
#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "sync/semaphore_wait.h"

namespace qiv::thread {
namespace {

constexpr int kRecursive = -1;
constexpr unsigned int kLongestPauseMs = 5;
constexpr unsigned int kLeavingStepMs = 1;

// Zero memory, which costs nothing until a pool's record is written; so records and slots are
// prepared as they come into use.
QIV_THREADPOOL g_threadPools[64];
// How many records, from the first one, have been in use.
std::size_t g_usedRecords = 0;
base::ConstantMutex g_tableMutex;

enum class Handover { kDone, kAllBusy, kFailed };

/** Marks the first free record as used; null when there is none. */
QIV_THREADPOOL* ReserveRecord() {
  const base::ScopedLock lock(g_tableMutex);
  for (std::size_t i = 0; i < std::size(g_threadPools); ++i) {
    QIV_THREADPOOL* const pool = &g_threadPools[i];
    if (i < g_usedRecords && pool->bUsed != 0) continue;
    if (i == g_usedRecords) ++g_usedRecords;
    pool->bUsed = 1;
    return pool;
  }
  return nullptr;
}

void ReleaseRecord(QIV_THREADPOOL* pool) {
  const base::ScopedLock lock(g_tableMutex);
  pool->bUsed = 0;
}

bool IsUsed(const QIV_THREADPOOL& pool) {
  const base::ScopedLock lock(g_tableMutex);
  return pool.bUsed != 0;
}

/** Not cancelled on the way, which would leave the pool half closed for ever. */
void StopWorkers(QIV_THREADPOOL* pool) {
  const base::NoCancellation noCancellation;
  for (unsigned int i = 0; i < pool->nMaxCount; ++i) QIV_DestroyThread_Local(pool);
}

bool StartFirstWorkers(QIV_THREADPOOL* pool) {
  {
    const PoolLock lock(pool);
    unsigned int started = 0;
    while (started < pool->nInitCount && QIV_CreateThread_Local(pool) == QIV_OK) ++started;
    if (started == pool->nInitCount) return true;
    QIV_OutputDebug("zelmar !!! QIV_InitThread_Local QIV_CreateThread_Local error, return -1 2\n");
  }
  StopWorkers(pool);
  return false;
}

/** Fills a reserved record; it is closed until it says otherwise. */
void Prepare(QIV_THREADPOOL* pool) {
  for (unsigned int i = 0; i < pool->nMaxCount; ++i) pool->threads[i].hThread = QIV_INVALID_ID;
  pool->nCurrCount.store(0, std::memory_order_relaxed);
  pool->nIdle = 0;
  pool->nWaiting = 0;
  pool->bQuit = 1;
  QIV_SemCreate(&pool->idleWorkers, 0);
  QIV_MutexCreate(&pool->mutex, kRecursive);
}

bool IsOwnWorker(const QIV_THREADPOOL& pool) {
  const unsigned int self = QIV_Thread_GetSelfId();
  for (unsigned int i = 0; i < pool.nMaxCount; ++i) {
    const unsigned int worker = pool.threads[i].hThread;
    if (worker != QIV_INVALID_ID && worker == self) return true;
  }
  return false;
}

/** Refuses work from now on; false when the pool is closed already or its own worker calls. */
bool Close(QIV_THREADPOOL* pool) {
  if (!IsUsed(*pool)) return false;
  const PoolLock lock(pool);
  if (!lock.IsHeld() || pool->bQuit != 0 || IsOwnWorker(*pool)) return false;
  pool->bQuit = 1;
  for (unsigned int i = 0; i < pool->nWaiting; ++i) QIV_SemPost(&pool->idleWorkers);
  return true;
}

/** Waits until no submitter is left that was waiting as the pool was closed. */
void WaitForSubmitters(QIV_THREADPOOL* pool) {
  const base::NoCancellation noCancellation;
  const PoolLock lock(pool);
  while (pool->nWaiting != 0) {
    const PoolUnlock unlock(pool);
    QIV_Sleep(kLeavingStepMs);
  }
}

/** Called, as the rest of the submission, under the pool's mutex. */
Handover HandOver(QIV_THREADPOOL* pool, ThreadRoutine work, void* param) {
  QIV_THREADPOOL_THREAD* slot = QIV_GetIdle_Local(pool);
  if (slot != nullptr) {
    qiv_tlsTraceInfoOper::instance()->getTraceInfo(&slot->traceInfo);
  } else {
    if (pool->nCurrCount.load(std::memory_order_relaxed) >= pool->nMaxCount)
      return Handover::kAllBusy;
    if (QIV_CreateThread_Local(pool) != QIV_OK) return Handover::kFailed;
    // Kept: its slot gets no trace record. The new thread has inherited the caller's.
    slot = QIV_GetIdle_Local(pool);
  }
  slot->pfnWork = work;
  slot->pParam = param;
  QIV_SemPost(&slot->sem);
  return Handover::kDone;
}

/** Counts a submitter that waits, also when its wait is cancelled. */
class WaitingSubmitter {
 public:
  explicit WaitingSubmitter(QIV_THREADPOOL* pool) noexcept : m_pool(pool) { ++m_pool->nWaiting; }
  ~WaitingSubmitter() { --m_pool->nWaiting; }
  WaitingSubmitter(const WaitingSubmitter&) = delete;
  WaitingSubmitter& operator=(const WaitingSubmitter&) = delete;

 private:
  QIV_THREADPOOL* m_pool;
};

void WaitForIdleWorker(QIV_THREADPOOL* pool) {
  const WaitingSubmitter waiting(pool);
  const PoolUnlock unlock(pool);
  sync::WaitForSemaphore(&pool->idleWorkers, kLongestPauseMs);
}

int Submit(QIV_THREADPOOL* pool, ThreadRoutine work, void* param, bool wait) {
  if (pool == nullptr || work == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_ThreadPool_Work param error, return -1 1\n");
    return QIV_ERROR;
  }
  const PoolLock lock(pool);
  if (!lock.IsHeld()) return QIV_ERROR;
  while (pool->bQuit == 0) {
    const Handover result = HandOver(pool, work, param);
    if (result == Handover::kDone) return QIV_OK;
    if (result == Handover::kFailed || !wait) return QIV_ERROR;
    WaitForIdleWorker(pool);
  }
  return QIV_ERROR;
}

}  // namespace
}  // namespace qiv::thread

QIV_ThreadPool::QIV_ThreadPool() noexcept : m_pool(nullptr) {}
QIV_ThreadPool::~QIV_ThreadPool() {}  // leaves the pool alone
QIV_ThreadPool::QIV_ThreadPool(const QIV_ThreadPool&) noexcept = default;
QIV_ThreadPool& QIV_ThreadPool::operator=(const QIV_ThreadPool&) noexcept = default;

int QIV_ThreadPool::Create(unsigned int initCount, unsigned int maxCount) noexcept {
  m_pool = QIV_ThreadPool_Create(initCount, maxCount);
  return m_pool == nullptr ? QIV_ERROR : QIV_OK;
}

int QIV_ThreadPool::Destroy() noexcept { return QIV_ThreadPool_Destroy(m_pool); }

int QIV_ThreadPool::Work(void* (*work)(void*), void* param) noexcept {
  return QIV_ThreadPool_Work(m_pool, work, param);
}

extern "C" {

int QIV_InitThreadPool_Inter(void) noexcept {
  using namespace qiv::thread;
  const qiv::base::ScopedLock lock(g_tableMutex);
  for (std::size_t i = 0; i < g_usedRecords; ++i) {
    QIV_THREADPOOL* const pool = &g_threadPools[i];
    // Workers go on using their pool's record.
    if (pool->nCurrCount.load(std::memory_order_relaxed) == 0) pool->bUsed = 0;
  }
  return QIV_OK;
}

int QIV_FiniThreadPool_Inter(void) noexcept { return QIV_OK; }

QIV_HANDLE QIV_ThreadPool_CreateFlex(unsigned int initCount, unsigned int maxCount,
                                     unsigned int stackSize, unsigned int idleTimeout) noexcept {
  using namespace qiv::thread;
  if (maxCount > MAX_THREAD_PER_THREADPOOL) {
    QIV_OutputDebug(
        "zelmar !!! QIV_ThreadPool_Create nMaxCount > MAX_THREAD_PER_THREADPOOL error, return -1 "
        "1\n");
    return nullptr;
  }
  QIV_THREADPOOL* const pool = ReserveRecord();
  if (pool == nullptr) {
    QIV_OutputDebug(
        "zelmar !!! QIV_ThreadPool_Create QIV_GetIdleThreadPool_Local error, return -1 2\n");
    return nullptr;
  }
  pool->nInitCount = initCount;
  pool->nStackSize = stackSize;
  pool->nMaxCount = maxCount;
  pool->nIdleTimeout = idleTimeout;
  Prepare(pool);
  if (!StartFirstWorkers(pool)) {
    QIV_OutputDebug("zelmar !!! QIV_ThreadPool_Create QIV_InitThread_Local error, return -1 3\n");
    ReleaseRecord(pool);
    return nullptr;
  }
  pool->bQuit = 0;
  return pool;
}

QIV_HANDLE QIV_ThreadPool_Create(unsigned int initCount, unsigned int maxCount) noexcept {
  return QIV_ThreadPool_CreateFlex(initCount, maxCount, 0, QIV_INFINITE);
}

QIV_HANDLE QIV_ThreadPool_CreateEx(unsigned int initCount, unsigned int maxCount,
                                   unsigned int stackSize) noexcept {
  return QIV_ThreadPool_CreateFlex(initCount, maxCount, stackSize, QIV_INFINITE);
}

int QIV_ThreadPool_Destroy(QIV_HANDLE handle) noexcept {
  using namespace qiv::thread;
  auto* const pool = static_cast<QIV_THREADPOOL*>(handle);
  if (pool == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_ThreadPool_Destroy pThreadPool == NULL return\n");
    return QIV_ERROR;
  }
  if (!Close(pool)) return QIV_ERROR;
  StopWorkers(pool);
  WaitForSubmitters(pool);
  QIV_SemDestroy(&pool->idleWorkers);
  QIV_MutexDestroy(&pool->mutex);
  ReleaseRecord(pool);
  return QIV_OK;
}

int QIV_ThreadPool_WorkEx(QIV_HANDLE pool, void* (*work)(void*), void* param, int wait) {
  return qiv::thread::Submit(static_cast<qiv::thread::QIV_THREADPOOL*>(pool), work, param,
                             wait != 0);
}

int QIV_ThreadPool_Work(QIV_HANDLE pool, void* (*work)(void*), void* param) noexcept {
  return QIV_ThreadPool_WorkEx(pool, work, param, 0);
}

}  // extern "C"
