// The workers of a flexible thread pool.
//
// A worker's last look at the queue and its leaving are one step under the pool's mutex: an item
// that was queued before it is found, and the submitter of a later one no longer counts on it.
//
// A handler may end its thread or be cancelled: the worker leaves by its destructor then, and lets
// the unwinding through.
#include <qiv/semaphore.h>
#include <qiv/thread.h>

#include "base/scoped_lock.h"
#include "sync/semaphore_wait.h"
#include "thread/thread_pool_flex.h"

namespace qiv::thread {
namespace {

using base::ScopedLock;

qiv_tlsTraceInfoOper& TraceInfo() { return *qiv_tlsTraceInfoOper::instance(); }

thread_local const FlexPool* t_ownPool = nullptr;

/**
 * Counts its thread as idle. The order is relaxed: who reads the count holds the mutex, and a
 * worker that no longer waits takes the mutex before it does anything that matters.
 */
class Idle {
 public:
  explicit Idle(FlexPool* pool) noexcept : m_pool(pool) {
    m_pool->nIdle.fetch_add(1, std::memory_order_relaxed);
  }
  ~Idle() { m_pool->nIdle.fetch_sub(1, std::memory_order_relaxed); }
  Idle(const Idle&) = delete;
  Idle& operator=(const Idle&) = delete;

 private:
  FlexPool* m_pool;
};

class FlexWorker {
 public:
  explicit FlexWorker(FlexPool* pool) noexcept : m_pool(pool) { t_ownPool = pool; }
  ~FlexWorker() {
    t_ownPool = nullptr;
    if (m_pool == nullptr) return;
    const ScopedLock lock(m_pool->mutex);
    Leave(m_pool);
  }
  FlexWorker(const FlexWorker&) = delete;
  FlexWorker& operator=(const FlexWorker&) = delete;

  void Run() {
    while (!m_pool->Is(kFlexExiting)) {
      const bool posted = WaitForPost();
      if (m_pool->Is(kFlexExiting)) return;
      FlexItemPointer item = posted ? Take() : TakeOrLeave();
      if (item) Handle(std::move(item));
      if (m_pool == nullptr) return;
    }
  }

 private:
  bool WaitForPost() {
    const Idle idle(m_pool);
    return sync::WaitForSemaphore(&m_pool->semWork, m_pool->nIdleTimeout);
  }

  // May be null: another worker, at the end of its wait, has taken the item that was posted.
  FlexItemPointer Take() {
    const ScopedLock lock(m_pool->mutex);
    return m_pool->pQueue->TakeHead();
  }

  FlexItemPointer TakeOrLeave() {
    FlexPool* const pool = m_pool;
    const ScopedLock lock(pool->mutex);
    FlexItemPointer item = pool->pQueue->TakeHead();
    if (!item) {
      m_pool = nullptr;
      Leave(pool);
    }
    return item;
  }

  void Handle(FlexItemPointer item) {
    // Kept: an item without a record leaves the thread's record as it is.
    if (item->traceCaptured != 0) TraceInfo().setTraceInfo(&item->traceInfo);
    void* const data = item->pData;
    item.reset();
    m_pool->pfnHandler(data);
  }

  static void Leave(FlexPool* pool) QIV_REQUIRES(pool->mutex) {
    // First, as the pool may be gone and the process at its end once this thread does not count.
    TraceInfo().eraseTraceInfo();
    // Relaxed: under the mutex, as every access is.
    const QIV_INT32 others = pool->nAlive.fetch_sub(1, std::memory_order_relaxed) - 1;
    if (!pool->Is(kFlexExiting)) {
      ProvideWorker(pool, pool->pQueue->nCount);  // none when nothing waits
    } else if (others == 0) {
      QIV_SemPost(&pool->semExit);
    }
  }

  FlexPool* m_pool;  // null once the worker has left
};

void* RunWorker(void* pool) {
  FlexWorker worker(static_cast<FlexPool*>(pool));
  worker.Run();
  return nullptr;
}

}  // namespace

bool ProvideWorker(FlexPool* pool, QIV_INT32 waiting) noexcept {
  // Relaxed: nAlive is under the mutex; for nIdle see Idle.
  const QIV_INT32 alive = pool->nAlive.load(std::memory_order_relaxed);
  if (pool->nIdle.load(std::memory_order_relaxed) >= waiting || alive >= pool->nMaxThreads) {
    return alive > 0;
  }
  const auto stackSize = static_cast<unsigned int>(pool->nStackSize);
  if (QIV_ThreadDetached_Create(RunWorker, pool, stackSize) != QIV_TRUE) return alive > 0;
  pool->nAlive.fetch_add(1, std::memory_order_relaxed);
  return true;
}

bool IsWorkerOf(const FlexPool* pool) noexcept { return t_ownPool == pool; }

}  // namespace qiv::thread
