// Tracked pool: the class and the functions that applications use.
#include <qiv/memory_pool_ex.h>

#include <new>

#include "base/no_cancellation.h"

static_assert(sizeof(QIV_MemoryPoolEx) == 2 * sizeof(void*), "virtual table and the pool");

QIV_MemoryPoolEx::QIV_MemoryPoolEx(unsigned int initialChunks, unsigned int maximumChunks,
                                   long long idleTimeout, int noLock,
                                   unsigned int chunkSize) noexcept
    : m_pPool(new (std::nothrow) qiv::CRealMemoryPoolEx(initialChunks, maximumChunks, idleTimeout,
                                                        noLock > 0, chunkSize)) {
  if (m_pPool != nullptr) m_pPool->Start();
}

QIV_MemoryPoolEx::~QIV_MemoryPoolEx() {
  const qiv::base::NoCancellation noCancellation;  // a destructor may not be left by unwinding
  if (m_pPool != nullptr) m_pPool->Stop();
  delete m_pPool;
}

void* QIV_MemoryPoolEx::Alloc(unsigned int size) noexcept {
  return m_pPool == nullptr ? nullptr : m_pPool->Alloc(size);
}

void QIV_MemoryPoolEx::Free(void* pointer) noexcept {
  if (m_pPool != nullptr) m_pPool->Free(pointer);
}

unsigned int QIV_MemoryPoolEx::Size() const noexcept {
  return m_pPool == nullptr ? 0 : m_pPool->Size();
}

unsigned int QIV_MemoryPoolEx::IdleSize() const noexcept {
  return m_pPool == nullptr ? 0 : m_pPool->IdleSize();
}

namespace {

QIV_MemoryPoolEx* FromHandle(QIV_HANDLE pool) { return static_cast<QIV_MemoryPoolEx*>(pool); }

}  // namespace

extern "C" {

QIV_HANDLE QIV_MemoryPoolEx_Create(unsigned int initialChunks, unsigned int maximumChunks,
                                   long long idleTimeout, int noLock,
                                   unsigned int chunkSize) noexcept {
  return new (std::nothrow)
      QIV_MemoryPoolEx(initialChunks, maximumChunks, idleTimeout, noLock, chunkSize);
}

void QIV_MemoryPoolEx_Destroy(QIV_HANDLE pool) { delete FromHandle(pool); }

void* QIV_MemoryPoolEx_Alloc(QIV_HANDLE pool, unsigned int size) noexcept {
  return pool == nullptr ? nullptr : FromHandle(pool)->Alloc(size);
}

void QIV_MemoryPoolEx_Free(QIV_HANDLE pool, void* pointer) noexcept {
  if (pool != nullptr) FromHandle(pool)->Free(pointer);
}

unsigned int QIV_MemoryPoolEx_Size(QIV_HANDLE pool) noexcept {
  return pool == nullptr ? 0 : FromHandle(pool)->Size();
}

unsigned int QIV_MemoryPoolEx_IdleSize(QIV_HANDLE pool) noexcept {
  return pool == nullptr ? 0 : FromHandle(pool)->IdleSize();
}

}  // extern "C"
