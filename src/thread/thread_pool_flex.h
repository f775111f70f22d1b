// The records of the flexible thread pool and what its workers do with them.
//
// mutex guards the queue, every change of nState and nAlive, and the start of workers: whoever
// holds it knows whether a worker will still look at the queue. nIdle is changed by the workers
// without it. nCallers counts calls of other threads, so that the pool outlives them.
//
// Nobody joins the workers. The last one to leave an exiting pool posts semExit while it holds the
// mutex, and touches nothing of the pool once it has released that. Under the mutex only the
// mutexes of the trace records are taken.
#ifndef QIV_THREAD_THREAD_POOL_FLEX_H
#define QIV_THREAD_THREAD_POOL_FLEX_H

#include <qiv/mutex.h>
#include <qiv/trace_info.h>
#include <qiv/types.h>
#include <semaphore.h>
#include <sys/time.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace qiv::thread {

struct DestroyAndFree {
  template <class T>
  void operator()(T* object) const noexcept {
    object->~T();
    std::free(object);
  }
};
template <class T>
using MallocPointer = std::unique_ptr<T, DestroyAndFree>;

/** Builds an object in memory from malloc(); null when memory is short. */
template <class T, class... Arguments>
MallocPointer<T> NewByMalloc(Arguments&&... arguments) noexcept {
  void* const memory = std::malloc(sizeof(T));
  if (memory == nullptr) return nullptr;
  return MallocPointer<T>(new (memory) T{std::forward<Arguments>(arguments)...});
}

struct FlexItem {
  FlexItem* pNext;
  void* pData;
  timeval submitTime;
  QIV_TRACEINFO traceInfo;
  unsigned char traceCaptured; /**< 0 when the submitter had no record */
};
using FlexItemPointer = MallocPointer<FlexItem>;

struct FlexQueue {
  static constexpr QIV_INT32 kMaxItems = 65535;

  FlexQueue() = default;
  ~FlexQueue();
  FlexQueue(const FlexQueue&) = delete;
  FlexQueue& operator=(const FlexQueue&) = delete;

  void Append(FlexItemPointer item) noexcept;
  /** Null when the queue is empty. */
  FlexItemPointer TakeHead() noexcept;

  FlexItem* pHead = nullptr;
  FlexItem* pTail = nullptr;
  QIV_INT32 nCount = 0;
};

enum FlexState : QIV_INT32 {
  kFlexRunning = 0,
  kFlexDraining = 1, /**< being destroyed; no new items */
  kFlexExiting = 2,  /**< workers end; no more items are taken */
};

struct FlexPool {
  FlexPool(int maxThreads, int idleTimeout, void (*handler)(void*), int stackSize,
           MallocPointer<FlexQueue> queue) noexcept;
  ~FlexPool();
  FlexPool(const FlexPool&) = delete;
  FlexPool& operator=(const FlexPool&) = delete;

  bool Is(FlexState state) const noexcept {
    return nState.load(std::memory_order_acquire) == state;
  }

  QIV_INT32 nStackSize;
  std::atomic<QIV_INT32> nState{kFlexRunning};
  QIV_INT32 nMaxThreads;
  std::atomic<QIV_INT32> nAlive{0};
  std::atomic<QIV_INT32> nIdle{0};
  QIV_UINT32 nIdleTimeout;
  void (*pfnHandler)(void*);
  sem_t semExit;
  sem_t semWork;
  QIV_UniqueMutex mutex;
  const MallocPointer<FlexQueue> pQueue;
  std::atomic<QIV_INT32> nCallers{0};
};

/**
 * Starts a worker when fewer are idle than `waiting` items and the maximum allows. False when no
 * worker is alive afterwards, so that nobody would come for the items.
 */
bool ProvideWorker(FlexPool* pool, QIV_INT32 waiting) noexcept QIV_REQUIRES(pool->mutex);

/** Whether the calling thread is a worker of the pool. */
bool IsWorkerOf(const FlexPool* pool) noexcept;

}  // namespace qiv::thread

#endif
