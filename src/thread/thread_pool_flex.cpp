// Flexible thread pool: creation, submission and destruction.
#include "thread/thread_pool_flex.h"

#include <qiv/semaphore.h>
#include <qiv/system.h>
#include <qiv/thread_pool_flex.h>
#include <qiv/time.h>

#include <algorithm>
#include <cstddef>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"

namespace qiv::thread {

static_assert(sizeof(void*) != 4 || offsetof(FlexPool, nState) == 4, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, nMaxThreads) == 8, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, nAlive) == 12, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, nIdle) == 16, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, nIdleTimeout) == 20, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, pfnHandler) == 24, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, semExit) == 28, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, semWork) == 44, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, mutex) == 60, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexPool, pQueue) == 84, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexQueue, pTail) == 4, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexQueue, nCount) == 8, "fields in order");
static_assert(sizeof(void*) != 4 || sizeof(FlexQueue) == 12, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexItem, pData) == 4, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(FlexItem, submitTime) == 8, "fields in order");
static_assert(offsetof(FlexItem, traceInfo) == offsetof(FlexItem, submitTime) + sizeof(timeval),
              "in order");
static_assert(offsetof(FlexItem, traceCaptured) == offsetof(FlexItem, traceInfo) + 197, "in order");

namespace {

using base::ScopedLock;

constexpr int kDefaultStackSize = 0x100000;
constexpr int kMinStackSize = 0x40000;
constexpr unsigned int kDrainLookMs = 500;
constexpr unsigned int kUnwindMs = 10;
constexpr unsigned int kCallersLookMs = 1;
constexpr int kNoLimit = -1;

/** Keeps the pool from being freed while a thread is in a call. Its end is the last access. */
class CallInProgress {
 public:
  explicit CallInProgress(FlexPool* pool) noexcept : m_callers(&pool->nCallers) {
    m_callers->fetch_add(1, std::memory_order_acquire);
  }
  ~CallInProgress() { m_callers->fetch_sub(1, std::memory_order_release); }
  CallInProgress(const CallInProgress&) = delete;
  CallInProgress& operator=(const CallInProgress&) = delete;

 private:
  std::atomic<QIV_INT32>* m_callers;
};

int StackSizeFor(int request) {
  return request == 0 ? kDefaultStackSize : std::max(request, kMinStackSize);
}

FlexPool* Create(int maxThreads, int idleTimeout, void (*handler)(void*), int stackSize) {
  if (handler == nullptr || maxThreads <= 0 || stackSize < 0) return nullptr;
  MallocPointer<FlexQueue> queue = NewByMalloc<FlexQueue>();
  if (!queue) return nullptr;
  return NewByMalloc<FlexPool>(maxThreads, idleTimeout, handler, stackSize, std::move(queue))
      .release();
}

FlexItemPointer NewItem(void* data) {
  FlexItemPointer item = NewByMalloc<FlexItem>();
  if (!item) return nullptr;
  item->pData = data;
  gettimeofday(&item->submitTime, nullptr);
  const int result = qiv_tlsTraceInfoOper::instance()->getTraceInfo(&item->traceInfo);
  item->traceCaptured = result == QIV_OK ? 1 : 0;
  return item;
}

bool Dispatch(FlexPool* pool, void* data) {
  const CallInProgress call(pool);
  FlexItemPointer item = NewItem(data);
  if (!item) return false;
  const ScopedLock lock(pool->mutex);
  const QIV_INT32 waiting = pool->pQueue->nCount;
  if (!pool->Is(kFlexRunning) || waiting >= FlexQueue::kMaxItems) return false;
  // Before the item is in the queue: where no worker will come, it need not be taken out again.
  if (!ProvideWorker(pool, waiting + 1)) return false;
  pool->pQueue->Append(std::move(item));
  QIV_SemPost(&pool->semWork);
  return true;
}

int QueueSize(FlexPool* pool) {
  const CallInProgress call(pool);
  const ScopedLock lock(pool->mutex);
  return pool->Is(kFlexRunning) ? pool->pQueue->nCount : QIV_ERROR;
}

/** False when another thread is destroying the pool already. */
bool BeginDraining(FlexPool* pool) {
  const CallInProgress call(pool);
  const ScopedLock lock(pool->mutex);
  if (!pool->Is(kFlexRunning)) return false;
  pool->nState.store(kFlexDraining, std::memory_order_release);
  return true;
}

bool IsDrained(FlexPool* pool) {
  const ScopedLock lock(pool->mutex);
  const QIV_INT32 waiting = pool->pQueue->nCount;
  // There is a worker, unless a handler has ended its thread when no other could be started.
  if (waiting > 0) ProvideWorker(pool, waiting);
  return waiting == 0;
}

void WaitUntilDrained(FlexPool* pool, int timeout) {
  const unsigned int start = QIV_GetTimeTick();
  while (!IsDrained(pool)) {
    const unsigned int elapsed = QIV_GetTimeTick() - start;
    if (timeout != kNoLimit && elapsed >= static_cast<unsigned int>(timeout)) return;
    QIV_Sleep(kDrainLookMs);
  }
}

void EndWorkers(FlexPool* pool) {
  QIV_INT32 alive = 0;
  {
    const ScopedLock lock(pool->mutex);
    pool->nState.store(kFlexExiting, std::memory_order_release);
    alive = pool->nAlive.load(std::memory_order_relaxed);  // changed only under the mutex
    for (QIV_INT32 i = 0; i < alive; ++i) QIV_SemPost(&pool->semWork);
  }
  if (alive == 0) return;
  QIV_SemWait(&pool->semExit);
  // The last worker still holds the mutex while it posts: wait until it has let go of the pool.
  { const ScopedLock lock(pool->mutex); }
  // The threads themselves end without the pool, but with code of the library.
  QIV_Sleep(kUnwindMs);
}

void Destroy(FlexPool* pool, int timeout) {
  if (IsWorkerOf(pool)) return;
  const base::NoCancellation noCancellation;
  if (!BeginDraining(pool)) return;
  if (timeout > 0 || timeout == kNoLimit) WaitUntilDrained(pool, timeout);
  EndWorkers(pool);
  while (pool->nCallers.load(std::memory_order_acquire) != 0) QIV_Sleep(kCallersLookMs);
  DestroyAndFree()(pool);
}

}  // namespace

FlexQueue::~FlexQueue() {
  while (TakeHead()) {
  }
}

void FlexQueue::Append(FlexItemPointer item) noexcept {
  FlexItem* const last = item.release();
  (pTail == nullptr ? pHead : pTail->pNext) = last;
  pTail = last;
  ++nCount;
}

FlexItemPointer FlexQueue::TakeHead() noexcept {
  FlexItemPointer item(pHead);
  if (!item) return nullptr;
  pHead = item->pNext;
  if (pHead == nullptr) pTail = nullptr;
  --nCount;
  return item;
}

FlexPool::FlexPool(int maxThreads, int idleTimeout, void (*handler)(void*), int stackSize,
                   MallocPointer<FlexQueue> queue) noexcept
    : nStackSize(StackSizeFor(stackSize)),
      nMaxThreads(maxThreads),
      nIdleTimeout(static_cast<QIV_UINT32>(idleTimeout)),
      pfnHandler(handler),
      semExit(),
      semWork(),
      pQueue(std::move(queue)) {
  QIV_SemCreate(&semExit, 0);
  QIV_SemCreate(&semWork, 0);
}

FlexPool::~FlexPool() {
  QIV_SemDestroy(&semExit);
  QIV_SemDestroy(&semWork);
}

}  // namespace qiv::thread

extern "C" {

QIV_HANDLE thrmgr_new(int maxThreads, int idleTimeout, void (*handler)(void*),
                      int stackSize) noexcept {
  return qiv::thread::Create(maxThreads, idleTimeout, handler, stackSize);
}

int thrmgr_dispatch(QIV_HANDLE pool, void* data) noexcept {
  if (pool == nullptr) return QIV_FALSE;
  const bool queued = qiv::thread::Dispatch(static_cast<qiv::thread::FlexPool*>(pool), data);
  return queued ? QIV_TRUE : QIV_FALSE;
}

void thrmgr_destroy(QIV_HANDLE pool, int timeout) noexcept {
  if (pool != nullptr) qiv::thread::Destroy(static_cast<qiv::thread::FlexPool*>(pool), timeout);
}

int thrmgr_getQSize(QIV_HANDLE pool) noexcept {
  if (pool == nullptr) return QIV_ERROR;
  return qiv::thread::QueueSize(static_cast<qiv::thread::FlexPool*>(pool));
}

QIV_HANDLE QIV_ThreadPoolFlex_Create(int maxThreads, int idleTimeout, void (*handler)(void*),
                                     int stackSize) noexcept {
  return thrmgr_new(maxThreads, idleTimeout, handler, stackSize);
}

int QIV_ThreadPoolFlex_Work(QIV_HANDLE pool, void* data) noexcept {
  return thrmgr_dispatch(pool, data) == QIV_TRUE ? QIV_OK : QIV_ERROR;
}

int QIV_ThreadPoolFlex_Destroy(QIV_HANDLE pool) noexcept {
  return QIV_ThreadPoolFlex_DestroyEx(pool, 0);
}

int QIV_ThreadPoolFlex_DestroyEx(QIV_HANDLE pool, int timeout) noexcept {
  thrmgr_destroy(pool, timeout);
  return QIV_OK;
}

}  // extern "C"
