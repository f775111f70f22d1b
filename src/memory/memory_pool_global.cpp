// Global pool: five tracked pools behind one mutex and one limit.
//
// m_mutex guards everything but the limit, and stands for the locks that the five pools do without.
// Lock order: the library mutex, m_mutex, the pools' chunk pools. m_mutex is held while pools are
// deleted, so that nobody uses one that goes. g_isGone is set under it when the process exits or
// the library is unloaded: threads that still run then get nothing.
#include "memory/memory_pool_global.h"

#include <qiv/memory_pool_global.h>

#include <algorithm>
#include <iterator>
#include <new>

#include "base/load_order.h"
#include "base/scoped_lock.h"
#include "memory/pool_size.h"
#include "memory/spare_nodes.h"

namespace qiv {

QIV_LOAD_ORDER(QIV_LOAD_GLOBAL_MEMORY_POOL) CGlobalMemoryPool g_globalMemoryPool;

namespace {

using Lock = base::ScopedLock<base::LoadTimeMutex>;

struct SizeClass {
  unsigned int largest;
  unsigned int chunkSize;
};

constexpr SizeClass kSizeClasses[] = {
    {500, 2048}, {5120, 20480}, {51200, 204800}, {512000, 0x200000}, {0xA00000, 0xA00000}};

constexpr long long kIdleTimeoutMs = 60000;

bool g_isGone = false;  // guarded by m_mutex; no member, as it outlives the object

/** The end of the table for a size that no class serves. */
const SizeClass* ClassOf(unsigned int size) {
  return std::find_if(std::begin(kSizeClasses), std::end(kSizeClasses),
                      [size](const SizeClass& sizeClass) { return size <= sizeClass.largest; });
}

bool IsServed(const SizeClass* sizeClass) { return sizeClass != std::end(kSizeClasses); }

std::size_t IndexOf(const SizeClass* sizeClass) {
  return static_cast<std::size_t>(sizeClass - std::begin(kSizeClasses));
}

}  // namespace

// The pools stay: threads may still use their memory while the process exits, and a child process
// made by fork() has none of their threads.
CGlobalMemoryPool::~CGlobalMemoryPool() {
  const Lock lock(m_mutex);
  g_isGone = true;
}

bool CGlobalMemoryPool::Init(unsigned int limit) noexcept {
  limit = std::min(limit, kLargestLimit);
  m_limit.store(limit, std::memory_order_relaxed);  // a number that nothing else goes with
  const Lock lock(m_mutex);
  if (g_isGone) return false;
  for (std::size_t i = 0; i < kClasses; ++i) {
    if (m_pools[i] == nullptr) {
      m_pools[i] = NewClassPool(limit, kSizeClasses[i].chunkSize).release();
    }
  }
  m_isReady = AllExist();
  return m_isReady;
}

void CGlobalMemoryPool::Fini() {
  const Lock lock(m_mutex);
  if (!g_isGone) DestroyPools();
}

void* CGlobalMemoryPool::Alloc(unsigned int size) noexcept {
  const SizeClass* const sizeClass = ClassOf(size);
  if (!IsServed(sizeClass)) return nullptr;
  const Lock lock(m_mutex);
  if (g_isGone) return nullptr;
  QIV_MemoryPoolEx* const pool = m_pools[IndexOf(sizeClass)];
  if (pool == nullptr) return nullptr;
  const bool needsChunk = size > pool->IdleSize();
  if (needsChunk && Sum(&QIV_MemoryPoolEx::Size) + sizeClass->chunkSize >
                        m_limit.load(std::memory_order_relaxed)) {
    return nullptr;
  }
  if (!memory::HasSpareNode(m_mapSpareNodes)) return nullptr;
  void* const allocated = pool->Alloc(size);
  if (allocated == nullptr) return nullptr;
  memory::EnterWithSpareNode(m_mapPools, m_mapSpareNodes, allocated, pool);
  return allocated;
}

void CGlobalMemoryPool::Free(void* pointer) noexcept {
  if (pointer == nullptr) return;
  const Lock lock(m_mutex);
  if (g_isGone) return;
  const auto entry = m_mapPools.find(pointer);
  if (entry == m_mapPools.end()) return;
  entry->second->Free(pointer);
  memory::RemoveAndKeepNode(m_mapPools, m_mapSpareNodes, entry);
}

QIV_MemoryPoolEx* CGlobalMemoryPool::ClassPool(unsigned int& size) noexcept {
  const SizeClass* const sizeClass = ClassOf(size);
  if (!IsServed(sizeClass)) return nullptr;
  size = sizeClass->chunkSize;
  const Lock lock(m_mutex);
  return g_isGone ? nullptr : m_pools[IndexOf(sizeClass)];
}

unsigned int CGlobalMemoryPool::Size() noexcept {
  const Lock lock(m_mutex);
  return g_isGone || !m_isReady ? 0 : memory::SizeFigure(Sum(&QIV_MemoryPoolEx::Size));
}

unsigned int CGlobalMemoryPool::IdleSize() noexcept {
  const Lock lock(m_mutex);
  return g_isGone || !m_isReady ? 0 : memory::SizeFigure(Sum(&QIV_MemoryPoolEx::IdleSize));
}

/** Null also where the pool would be without its implementation: it would never serve anything. */
CGlobalMemoryPool::PoolPointer CGlobalMemoryPool::NewClassPool(unsigned int limit,
                                                               unsigned int chunkSize) {
  constexpr int kNoLock = 1;
  PoolPointer pool(new (std::nothrow)
                       QIV_MemoryPoolEx(1, limit / chunkSize, kIdleTimeoutMs, kNoLock, chunkSize));
  if (pool && pool->m_pPool == nullptr) pool.reset();
  return pool;
}

void CGlobalMemoryPool::DestroyPools() {
  for (QIV_MemoryPoolEx*& pool : m_pools) {
    delete pool;
    pool = nullptr;
  }
  m_isReady = false;
  // What is still allocated is gone with its pool; a late free must not reach a later one.
  m_mapPools.clear();
  m_mapSpareNodes.clear();
}

bool CGlobalMemoryPool::AllExist() const noexcept {
  return std::all_of(std::begin(m_pools), std::end(m_pools),
                     [](const QIV_MemoryPoolEx* pool) { return pool != nullptr; });
}

qiv_uint64 CGlobalMemoryPool::Sum(Figure figure) const noexcept {
  qiv_uint64 sum = 0;
  for (const QIV_MemoryPoolEx* pool : m_pools) {
    if (pool != nullptr) sum += (pool->*figure)();
  }
  return sum;
}

bool QIV_InitMemoryPool(unsigned int limit) noexcept { return g_globalMemoryPool.Init(limit); }

void QIV_FiniMemoryPool() { g_globalMemoryPool.Fini(); }

QIV_MemoryPoolEx* QIV_GetMemoryPoolEx(unsigned int& size) noexcept {
  return g_globalMemoryPool.ClassPool(size);
}

unsigned int QIV_GetMemoryPoolExTotalSize() noexcept { return g_globalMemoryPool.Size(); }

unsigned int QIV_GetMemoryPoolExTotalIdleSize() noexcept { return g_globalMemoryPool.IdleSize(); }

}  // namespace qiv

extern "C" {

int QIV_MemoryPoolGlobal_Init(unsigned int limit) noexcept {
  return QIV_InitMemoryPool_Inter(limit) == QIV_OK ? 1 : 0;
}

void* QIV_MemoryPoolGlobal_Alloc(unsigned int size) noexcept {
  return qiv::g_globalMemoryPool.Alloc(size);
}

void QIV_MemoryPoolGlobal_Free(void* pointer) noexcept { qiv::g_globalMemoryPool.Free(pointer); }

unsigned int QIV_MemoryPoolGlobal_Size(void) noexcept {
  return qiv::QIV_GetMemoryPoolExTotalSize();
}

unsigned int QIV_MemoryPoolGlobal_IdleSize(void) noexcept {
  return qiv::QIV_GetMemoryPoolExTotalIdleSize();
}

int QIV_InitMemoryPool_Inter(unsigned int limit) noexcept {
  return qiv::QIV_InitMemoryPool(limit) ? QIV_OK : QIV_ERROR;
}

int QIV_FiniMemoryPool_Inter(void) {
  qiv::QIV_FiniMemoryPool();
  return QIV_OK;
}

}  // extern "C"
