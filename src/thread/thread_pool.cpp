// The table of thread pools, and the exported functions.
//
// g_tableMutex guards the bUsed flags and g_usedRecords. It is never held together with a pool's
// mutex. What that guards is told in thread_pool.h.
#include "thread/thread_pool.h"

#include <qiv/condition.h>
#include <qiv/debug.h>
#include <qiv/mutex.h>
#include <qiv/semaphore.h>
#include <qiv/thread.h>

#include <iterator>
#include <utility>

#include "base/constant_mutex.h"
#include "base/no_cancellation.h"
#include "base/scoped_lock.h"

static_assert(sizeof(QIV_ThreadPool) == sizeof(QIV_HANDLE), "a handle");

namespace qiv::thread {
namespace {

constexpr int kRecursive = -1;
constexpr unsigned int kLongestPauseMs = 5;

// Zero memory, which costs nothing until a pool's record is written; so records and slots are
// prepared as they come into use.
QIV_THREADPOOL g_threadPools[64];
// How many records, from the first one, have been in use.
std::size_t g_usedRecords = 0;
base::ConstantMutex g_tableMutex;

struct PoolSize {
  unsigned int initCount;
  unsigned int maxCount;
  unsigned int stackSize;
  unsigned int idleTimeout;
};

enum class Handover { kDone, kAllBusy, kFailed };

/** Makes what stays of a record from its first use on; the record is closed. */
void MakeRecord(QIV_THREADPOOL* pool) {
  pool->bQuit = 1;
  pool->lastRetired = QIV_INVALID_ID;
  QIV_MutexCreate(&pool->mutex, kRecursive);
  pthread_cond_init(&pool->submittersLeft, nullptr);
}

/** Marks the first free record as used; null when there is none. */
QIV_THREADPOOL* ReserveRecord() {
  const base::ScopedLock lock(g_tableMutex);
  QIV_THREADPOOL* pool = g_threadPools;
  while (pool != std::end(g_threadPools) && pool->bUsed != 0) ++pool;
  if (pool == std::end(g_threadPools)) return nullptr;
  if (pool == g_threadPools + g_usedRecords) {
    MakeRecord(pool);
    ++g_usedRecords;
  }
  pool->bUsed = 1;
  return pool;
}

void ReleaseRecord(QIV_THREADPOOL* pool) {
  const base::ScopedLock lock(g_tableMutex);
  pool->bUsed = 0;
}

std::size_t UsedRecords() {
  const base::ScopedLock lock(g_tableMutex);
  return g_usedRecords;
}

void StopWorkers(QIV_THREADPOOL* pool) {
  for (unsigned int i = 0; i < pool->nMaxCount; ++i) QIV_DestroyThread_Local(pool);
}

/** Waits for the last one of the workers that ended by themselves. */
void JoinRetiredWorker(QIV_THREADPOOL* pool) {
  const base::NoCancellation noCancellation;
  unsigned int retired = QIV_INVALID_ID;
  {
    const base::ScopedLock lock(pool->mutex);
    retired = std::exchange(pool->lastRetired, QIV_INVALID_ID);
  }
  if (retired != QIV_INVALID_ID) QIV_Thread_Wait(retired);
}

/** Fills a reserved record, which stays closed, and starts the workers that a pool begins with. */
bool StartFirstWorkers(QIV_THREADPOOL* pool, const PoolSize& size) {
  {
    const base::ScopedLock lock(pool->mutex);
    pool->nInitCount = size.initCount;
    pool->nStackSize = size.stackSize;
    pool->nMaxCount = size.maxCount;
    pool->nIdleTimeout = size.idleTimeout;
    for (unsigned int i = 0; i < pool->nMaxCount; ++i) pool->threads[i].hThread = QIV_INVALID_ID;
    unsigned int started = 0;
    while (started < pool->nInitCount && QIV_CreateThread_Local(pool) == QIV_OK) ++started;
    if (started == pool->nInitCount) return true;
    QIV_OutputDebug("zelmar !!! QIV_InitThread_Local QIV_CreateThread_Local error, return -1 2\n");
  }
  StopWorkers(pool);
  return false;
}

void Open(QIV_THREADPOOL* pool) {
  const base::ScopedLock lock(pool->mutex);
  pool->bQuit = 0;
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
  const base::ScopedLock lock(pool->mutex);
  if (pool->bQuit != 0 || IsOwnWorker(*pool)) return false;
  pool->bQuit = 1;
  for (WaitingSubmitter* waiting = pool->firstWaiting; waiting != nullptr;
       waiting = waiting->next) {
    pthread_cond_signal(&waiting->wake);
  }
  return true;
}

/** Closes a pool that nobody would miss: it has no worker and no submitter waits. */
bool CloseUnused(QIV_THREADPOOL* pool) {
  const base::ScopedLock lock(pool->mutex);
  if (pool->bQuit != 0 || pool->nCurrCount != 0 || pool->nWaiting != 0) return false;
  pool->bQuit = 1;
  return true;
}

/** Waits until no submitter is left that was waiting as the pool was closed. */
void WaitForSubmitters(QIV_THREADPOOL* pool) {
  const base::NoCancellation noCancellation;
  const base::ScopedLock lock(pool->mutex);
  while (pool->nWaiting != 0) pthread_cond_wait(&pool->submittersLeft, &pool->mutex);
}

/** Called, as the rest of the submission, under the pool's mutex. */
Handover HandOver(QIV_THREADPOOL* pool, ThreadRoutine work, void* param) {
  QIV_THREADPOOL_THREAD* slot = QIV_GetIdle_Local(pool);
  if (slot != nullptr) {
    qiv_tlsTraceInfoOper::instance()->getTraceInfo(&slot->traceInfo);
  } else {
    if (pool->nCurrCount >= pool->nMaxCount) return Handover::kAllBusy;
    if (QIV_CreateThread_Local(pool) != QIV_OK) return Handover::kFailed;
    // Kept: its slot gets no trace record. The new thread has inherited the caller's.
    slot = QIV_GetIdle_Local(pool);
  }
  slot->pfnWork = work;
  slot->pParam = param;
  QIV_SemPost(&slot->sem);
  return Handover::kDone;
}

/** A submitter's place in the queue, which it leaves also when its wait is cancelled. */
class PlaceInQueue {
 public:
  PlaceInQueue(QIV_THREADPOOL* pool, ThreadRoutine work, void* param) noexcept
      : m_pool(pool), m_waiting() {
    m_waiting.work = work;
    m_waiting.param = param;
    qiv_tlsTraceInfoOper::instance()->getTraceInfo(&m_waiting.traceInfo);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&m_waiting.wake, &attributes);
    pthread_condattr_destroy(&attributes);
    *End() = &m_waiting;
    ++m_pool->nWaiting;
  }
  ~PlaceInQueue() {
    if (!IsTaken()) *LinkTo(&m_waiting) = m_waiting.next;
    pthread_cond_destroy(&m_waiting.wake);
    --m_pool->nWaiting;
    if (m_pool->nWaiting == 0) pthread_cond_signal(&m_pool->submittersLeft);
  }
  PlaceInQueue(const PlaceInQueue&) = delete;
  PlaceInQueue& operator=(const PlaceInQueue&) = delete;

  bool IsTaken() const noexcept { return m_waiting.isTaken; }

  /** Waits until a worker takes the item or there may be one to take it. The pool's mutex, which
   *  is recursive, is held once here, as the wait needs it. */
  void Wait() { QIV_CondTimedWait(&m_waiting.wake, &m_pool->mutex, kLongestPauseMs); }

 private:
  WaitingSubmitter** LinkTo(const WaitingSubmitter* waiting) noexcept {
    WaitingSubmitter** link = &m_pool->firstWaiting;
    while (*link != waiting) link = &(*link)->next;
    return link;
  }
  WaitingSubmitter** End() noexcept { return LinkTo(nullptr); }

  QIV_THREADPOOL* m_pool;
  WaitingSubmitter m_waiting;
};

int WaitForWorker(QIV_THREADPOOL* pool, ThreadRoutine work, void* param) {
  PlaceInQueue place(pool, work, param);
  for (;;) {
    place.Wait();
    if (place.IsTaken()) return QIV_OK;
    if (pool->bQuit != 0) return QIV_ERROR;
    const Handover result = HandOver(pool, work, param);
    if (result != Handover::kAllBusy) return result == Handover::kDone ? QIV_OK : QIV_ERROR;
  }
}

int Submit(QIV_THREADPOOL* pool, ThreadRoutine work, void* param, bool wait) {
  if (pool == nullptr || work == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_ThreadPool_Work param error, return -1 1\n");
    return QIV_ERROR;
  }
  const base::ScopedLock lock(pool->mutex);
  if (pool->bQuit != 0) return QIV_ERROR;
  const Handover result = HandOver(pool, work, param);
  if (result == Handover::kAllBusy && wait) return WaitForWorker(pool, work, param);
  return result == Handover::kDone ? QIV_OK : QIV_ERROR;
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
  const std::size_t usedRecords = UsedRecords();
  for (std::size_t i = 0; i < usedRecords; ++i) {
    // Workers go on using their pool's record.
    if (CloseUnused(&g_threadPools[i])) ReleaseRecord(&g_threadPools[i]);
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
  if (!StartFirstWorkers(pool, {initCount, maxCount, stackSize, idleTimeout})) {
    QIV_OutputDebug("zelmar !!! QIV_ThreadPool_Create QIV_InitThread_Local error, return -1 3\n");
    ReleaseRecord(pool);
    return nullptr;
  }
  Open(pool);
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
  JoinRetiredWorker(pool);
  WaitForSubmitters(pool);
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
