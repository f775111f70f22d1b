// A pool of equal chunks that can give its unused blocks back to the system.
//
// Taking and giving are constant-time. Trimming needs the free list in the order of addresses, so it
// is sorted then, rather than kept sorted by every give. Not thread-safe.
#ifndef QIV_AIO_TRIMMABLE_POOL_H
#define QIV_AIO_TRIMMABLE_POOL_H

#include <algorithm>
#include <boost/pool/pool.hpp>
#include <cstddef>
#include <functional>
#include <new>
#include <vector>

namespace qiv::aio {

class TrimmablePool : private boost::pool<> {
 public:
  explicit TrimmablePool(std::size_t chunkSize) : boost::pool<>(chunkSize, kFirstGrowth) {}

  /** A chunk, or null when memory is short. */
  void* Take() noexcept {
    return ordered_malloc();  // the ordered form keeps the list of blocks sorted
  }

  void Give(void* chunk) noexcept { (store().free)(chunk); }

  /** Gives every block without a taken chunk back; does nothing when memory for it is short. */
  void Trim() noexcept {
    if (SortFreeChunks()) release_memory();
  }

 private:
  static constexpr std::size_t kFirstGrowth = 32;

  bool SortFreeChunks() noexcept {
    std::vector<void*> chunks;
    bool complete = true;
    try {
      while (!store().empty()) {
        chunks.push_back(nullptr);
        chunks.back() = (store().malloc)();
      }
    } catch (const std::bad_alloc&) {
      complete = false;
    }
    std::sort(chunks.begin(), chunks.end(), std::greater<>());
    for (void* chunk : chunks) Give(chunk);
    return complete;
  }
};

}  // namespace qiv::aio

#endif
