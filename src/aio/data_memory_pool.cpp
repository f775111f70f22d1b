#include "aio/data_memory_pool.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace {

constexpr int kClassSizes[] = {32,   64,   128,  256,  512,  1500, 2048,
                               3072, 4096, 5120, 6144, 7168, 8192, CDataMemoryPool::kLargestChunk};

std::ptrdiff_t ClassIndex(int length) {
  const int* fit = std::lower_bound(std::begin(kClassSizes), std::end(kClassSizes) - 1, length);
  return fit - std::begin(kClassSizes);
}

}  // namespace

int CDataMemoryPool::ClassSize(int length) noexcept { return kClassSizes[ClassIndex(length)]; }

void* CDataMemoryPool::Take(int length) noexcept { return m_pools[ClassIndex(length)].Take(); }

void CDataMemoryPool::Give(void* chunk, int length) noexcept {
  m_pools[ClassIndex(length)].Give(chunk);
}

void CDataMemoryPool::Trim() noexcept {
  for (Pool& pool : m_pools) pool.Trim();
}
