// Idle-timeout pool: the class and the functions that applications use.
#include <qiv/memory_pool.h>

#include <new>

#include "base/no_cancellation.h"

static_assert(sizeof(QIV_MemoryPool) == 2 * sizeof(void*), "virtual table and the pool");

QIV_MemoryPool::QIV_MemoryPool(unsigned int blockSize, unsigned int initialCount,
                               unsigned int maximumCount, int checkBoundary, long long idleTimeout,
                               int noLock) noexcept
    : m_pPool(new (std::nothrow) qiv::CRealMemoryPool(blockSize, initialCount, maximumCount,
                                                      checkBoundary > 0, idleTimeout, noLock > 0)) {
  if (m_pPool != nullptr) m_pPool->Start();
}

QIV_MemoryPool::~QIV_MemoryPool() {
  const qiv::base::NoCancellation noCancellation;  // a destructor may not be left by unwinding
  if (m_pPool != nullptr) m_pPool->Stop();
  delete m_pPool;
}

void* QIV_MemoryPool::Alloc() noexcept { return m_pPool == nullptr ? nullptr : m_pPool->Alloc(); }

void QIV_MemoryPool::Free(void* block) noexcept {
  if (m_pPool != nullptr) m_pPool->Free(block);
}

unsigned int QIV_MemoryPool::Size() const noexcept {
  return m_pPool == nullptr ? 0 : m_pPool->Size();
}

unsigned int QIV_MemoryPool::IdleSize() const noexcept {
  return m_pPool == nullptr ? 0 : m_pPool->IdleSize();
}

namespace {

QIV_MemoryPool* FromHandle(QIV_HANDLE pool) { return static_cast<QIV_MemoryPool*>(pool); }

}  // namespace

extern "C" {

QIV_HANDLE QIV_MemoryPool_Create(unsigned int blockSize, unsigned int initialCount,
                                 unsigned int maximumCount, int checkBoundary,
                                 long long idleTimeout, int noLock) noexcept {
  return new (std::nothrow)
      QIV_MemoryPool(blockSize, initialCount, maximumCount, checkBoundary, idleTimeout, noLock);
}

void QIV_MemoryPool_Destroy(QIV_HANDLE pool) { delete FromHandle(pool); }

void* QIV_MemoryPool_Alloc(QIV_HANDLE pool) noexcept {
  return pool == nullptr ? nullptr : FromHandle(pool)->Alloc();
}

void QIV_MemoryPool_Free(QIV_HANDLE pool, void* block) noexcept {
  if (pool != nullptr) FromHandle(pool)->Free(block);
}

unsigned int QIV_MemoryPool_Size(QIV_HANDLE pool) noexcept {
  return pool == nullptr ? 0 : FromHandle(pool)->Size();
}

unsigned int QIV_MemoryPool_IdleSize(QIV_HANDLE pool) noexcept {
  return pool == nullptr ? 0 : FromHandle(pool)->IdleSize();
}

}  // extern "C"
