// The state of the global memory pool, one object that is built at load time.
#ifndef QIV_MEMORY_MEMORY_POOL_GLOBAL_H
#define QIV_MEMORY_MEMORY_POOL_GLOBAL_H

#include <qiv/memory_pool_ex.h>

#include <atomic>
#include <cstddef>
#include <map>
#include <memory>

#include "base/load_time_mutex.h"

namespace qiv {

class CGlobalMemoryPool {
 public:
  CGlobalMemoryPool() noexcept : m_mutex(0) {}
  ~CGlobalMemoryPool();
  CGlobalMemoryPool(const CGlobalMemoryPool&) = delete;
  CGlobalMemoryPool& operator=(const CGlobalMemoryPool&) = delete;

  /** True when all pools exist. */
  bool Init(unsigned int limit) noexcept;
  void Fini();

  void* Alloc(unsigned int size) noexcept;
  void Free(void* pointer) noexcept;

  /** The pool for a size, which becomes its chunk size; null above the largest. */
  QIV_MemoryPoolEx* ClassPool(unsigned int& size) noexcept;

  unsigned int Size() noexcept;
  unsigned int IdleSize() noexcept;

 private:
  static constexpr std::size_t kClasses = 5;
  static constexpr unsigned int kLargestLimit = 0x80000000;

  using Figure = unsigned int (QIV_MemoryPoolEx::*)() const;
  using PoolPointer = std::unique_ptr<QIV_MemoryPoolEx>;

  static PoolPointer NewClassPool(unsigned int limit, unsigned int chunkSize);
  void DestroyPools() QIV_REQUIRES(m_mutex);
  bool AllExist() const noexcept QIV_REQUIRES(m_mutex);
  qiv_uint64 Sum(Figure figure) const noexcept QIV_REQUIRES(m_mutex);

  std::atomic<unsigned int> m_limit{kLargestLimit};
  base::LoadTimeMutex m_mutex;
  std::map<void*, QIV_MemoryPoolEx*> m_mapPools QIV_GUARDED_BY(m_mutex);
  std::multimap<void*, QIV_MemoryPoolEx*> m_mapSpareNodes QIV_GUARDED_BY(m_mutex);
  QIV_MemoryPoolEx* m_pools[kClasses] QIV_GUARDED_BY(m_mutex) = {};  // owned
  bool m_isReady QIV_GUARDED_BY(m_mutex) = false;
};

extern CGlobalMemoryPool g_globalMemoryPool;

}  // namespace qiv

#endif
