// A pool of equal chunks that can give its unused blocks back to the system.
//
// Taking and giving are constant-time. Trimming needs the free list in the order of addresses, so
// it is sorted then, rather than kept sorted by every give. Not thread-safe.
#ifndef QIV_AIO_TRIMMABLE_POOL_H
#define QIV_AIO_TRIMMABLE_POOL_H

#include <algorithm>
#include <boost/pool/pool.hpp>
#include <cstddef>
#include <functional>
#include <new>
#include <vector>

namespace qiv::aio {

template <class Allocator>
class BasicTrimmablePool : private boost::pool<Allocator> {
 public:
  explicit BasicTrimmablePool(std::size_t chunkSize) : Base(chunkSize, kFirstGrowth) {}

  /** A chunk, or null when memory is short. */
  void* Take() noexcept {
    return this->ordered_malloc();  // the ordered form keeps the list of blocks sorted
  }

  void Give(void* chunk) noexcept { (this->store().free)(chunk); }

  /** Gives every block without a taken chunk back; does nothing when memory for it is short. */
  void Trim() noexcept {
    if (SortFreeChunks()) this->release_memory();
  }

 private:
  using Base = boost::pool<Allocator>;
  static constexpr std::size_t kFirstGrowth = 32;

  bool SortFreeChunks() noexcept {
    std::vector<void*> chunks;
    bool complete = true;
    try {
      while (!this->store().empty()) {
        chunks.push_back(nullptr);
        chunks.back() = (this->store().malloc)();
      }
    } catch (const std::bad_alloc&) {
      complete = false;
    }
    std::sort(chunks.begin(), chunks.end(), std::greater<>());
    for (void* chunk : chunks) Give(chunk);
    return complete;
  }
};

using TrimmablePool = BasicTrimmablePool<boost::default_user_allocator_new_delete>;

}  // namespace qiv::aio

#endif
