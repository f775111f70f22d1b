// Chunks for outgoing data in fourteen size classes. Not thread-safe.
#ifndef QIV_AIO_DATA_MEMORY_POOL_H
#define QIV_AIO_DATA_MEMORY_POOL_H

#include "aio/trimmable_pool.h"

class CDataMemoryPool {
 public:
  /** The most bytes that one chunk holds. */
  static constexpr int kLargestChunk = 16384;

  /** The size of the chunk that holds `length` bytes, 1 to kLargestChunk. */
  static int ClassSize(int length) noexcept;

  /** A chunk for `length` bytes, or null when memory is short. */
  void* Take(int length) noexcept;

  /** Gives back a chunk that was taken for `length` bytes. */
  void Give(void* chunk, int length) noexcept;

  /** Gives every unused block of every class back to the system. */
  void Trim() noexcept;

 private:
  using Pool = qiv::aio::TrimmablePool;

  Pool m_pools[14] = {Pool(32),   Pool(64),   Pool(128),  Pool(256),          Pool(512),
                      Pool(1500), Pool(2048), Pool(3072), Pool(4096),         Pool(5120),
                      Pool(6144), Pool(7168), Pool(8192), Pool(kLargestChunk)};
};

#endif
