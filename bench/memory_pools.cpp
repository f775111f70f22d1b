// An allocation and its free in each kind of pool, beside malloc() and free(); the pool of equal
// blocks beside boost::pool, too. One at a time, and 64 allocations that are then freed.
#include <qiv/library.h>
#include <qiv/memory_pool.h>
#include <qiv/memory_pool_ex.h>
#include <qiv/memory_pool_global.h>

#include <boost/pool/pool.hpp>
#include <cstdlib>

#include "compare.h"

namespace {

constexpr unsigned int kSize = 128;
constexpr int kPairs = 200000;
constexpr unsigned int kChunkSize = 4096;
constexpr unsigned int kMostBlocks = 64;
constexpr unsigned int kMostChunks = 16;
constexpr unsigned int kGlobalLimit = 64 * 1024 * 1024;

struct Malloc {
  static void* Alloc() { return std::malloc(kSize); }
  static void Free(void* memory) { std::free(memory); }
};

class BoostPool {
 public:
  void* Alloc() { return m_pool.malloc(); }
  void Free(void* memory) { m_pool.free(memory); }

 private:
  boost::pool<> m_pool{kSize};
};

template <int checkBoundary, int noLock>
class BlockPool {
 public:
  void* Alloc() { return m_pool.Alloc(); }
  void Free(void* memory) { m_pool.Free(memory); }

 private:
  QIV_MemoryPool m_pool{kSize, 1, kMostBlocks, checkBoundary, -1, noLock};
};

template <int noLock>
class TrackedPool {
 public:
  void* Alloc() { return m_pool.Alloc(kSize); }
  void Free(void* memory) { m_pool.Free(memory); }

 private:
  QIV_MemoryPoolEx m_pool{1, kMostChunks, -1, noLock, kChunkSize};
};

class GlobalPool {
 public:
  GlobalPool() { QIV_MemoryPoolGlobal_Init(kGlobalLimit); }
  ~GlobalPool() { QIV_FiniMemoryPool_Inter(); }
  GlobalPool(const GlobalPool&) = delete;
  GlobalPool& operator=(const GlobalPool&) = delete;
  static void* Alloc() { return QIV_MemoryPoolGlobal_Alloc(kSize); }
  static void Free(void* memory) { QIV_MemoryPoolGlobal_Free(memory); }
};

/** Picoseconds, as a pair takes few nanoseconds. */
template <class Pool, int atOnce>
double PicosecondsPerPair() {
  Pool pool;
  void* volatile pointers[atOnce];
  const qiv::bench::Timer timer;
  constexpr int kRounds = kPairs / atOnce;
  for (int round = 0; round < kRounds; ++round) {
    for (void* volatile& pointer : pointers) pointer = pool.Alloc();
    for (void* volatile& pointer : pointers) pool.Free(pointer);
  }
  return timer.Nanoseconds() * 1000 / (kRounds * atOnce);
}

template <int atOnce>
void CompareAll() {
  using qiv::bench::Compare;
  constexpr auto plain = PicosecondsPerPair<Malloc, atOnce>;
  constexpr auto boost = PicosecondsPerPair<BoostPool, atOnce>;
  std::printf("%u bytes, %d at once\n", kSize, atOnce);
  qiv::bench::PrintHead("ps a pair of allocation and free");
  Compare("equal blocks / malloc", PicosecondsPerPair<BlockPool<0, 0>, atOnce>, plain);
  Compare("equal blocks, checked / malloc", PicosecondsPerPair<BlockPool<1, 0>, atOnce>, plain);
  Compare("equal blocks, no lock / malloc", PicosecondsPerPair<BlockPool<0, 1>, atOnce>, plain);
  Compare("equal blocks, no lock / boost::pool", PicosecondsPerPair<BlockPool<0, 1>, atOnce>,
          boost);
  Compare("any size / malloc", PicosecondsPerPair<TrackedPool<0>, atOnce>, plain);
  Compare("any size, no lock / malloc", PicosecondsPerPair<TrackedPool<1>, atOnce>, plain);
  Compare("global / malloc", PicosecondsPerPair<GlobalPool, atOnce>, plain);
}

}  // namespace

int main() {
  if (QIV_Init() != QIV_OK) return 1;
  CompareAll<1>();
  CompareAll<64>();
  return QIV_Fini();
}
