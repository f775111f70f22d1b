/**
 * @file
 * A pool for requests of any size up to that of its chunks: exported functions on a handle, and the
 * classes behind them.
 *
 * None of them sets a last error. Misuse that the pool notices aborts the process, in every kind of
 * build, with the message of the platform's assert().
 */
#ifndef QIV_MEMORY_POOL_EX_H
#define QIV_MEMORY_POOL_EX_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Creates a pool.
 *
 * @param initialChunks  chunks that are made at once and stay until the pool ends; 0 counts as 1
 * @param maximumChunks  the most chunks in use at once; at least the initial number
 * @param idleTimeout    milliseconds after which a chunk beyond the initial ones that nothing is
 *                       allocated from is given back to the system; negative means never
 * @param noLock         greater than 0: the pool takes no lock, and the caller serialises all calls
 * @param chunkSize      bytes of a chunk, and of the largest request
 * @return the pool; null when memory is short
 * @par Errors         no errno. The line of the pool's condition appears on standard error, see
 *                     QIV_CondCreate(). A pool that has an idle time-out and finds no thread for it
 *                     never gives chunks back
 * @par Thread safety  any threads
 * @par System         malloc(3), pthread_create(3p)
 * @see QIV_MemoryPoolEx_Destroy
 */
QIV_API QIV_HANDLE QIV_MemoryPoolEx_Create(unsigned int initialChunks, unsigned int maximumChunks,
                                           long long idleTimeout, int noLock,
                                           unsigned int chunkSize) QIV_NOEXCEPT;

/**
 * Ends a pool and frees all of its chunks. For each allocation that was not freed it prints a line
 * on standard output, "memory_pool_ex[POOL] check memory leaked, Used record: ...", in the
 * ascending order of their addresses; then one for each chunk that holds any, as
 * QIV_MemoryPool_Destroy().
 *
 * @param pool  a pool made by QIV_MemoryPoolEx_Create(); null does nothing
 * @par Errors         no errno. The line of the pool's condition appears on standard error, see
 *                     QIV_CondDestroy()
 * @par Thread safety  one thread, once; no other call on the pool may be under way. Waits for the
 *                     pool's thread
 * @par System         free(3), printf(3)
 */
QIV_API void QIV_MemoryPoolEx_Destroy(QIV_HANDLE pool);

/**
 * Allocates. Allocations of one chunk lie side by side: each begins where the one before it ended,
 * whatever its alignment.
 *
 * @param pool  the pool; null allocates nothing
 * @param size  bytes. A request of 0 bytes gets the first address that is free in the current chunk
 *              and leaves it free. Until it is freed, the next request that fits into the rest of
 *              that chunk, one of 0 bytes too, would get the same address: it aborts the process
 * @return the bytes; null when `size` exceeds the chunk size, all chunks are in use or memory is
 *         short
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         malloc(3)
 */
QIV_API void* QIV_MemoryPoolEx_Alloc(QIV_HANDLE pool, unsigned int size) QIV_NOEXCEPT;

/**
 * Frees an allocation. The room of the latest one is there for the next at once; that of others
 * once everything in their chunk is freed.
 *
 * @param pool     the pool; null does nothing
 * @param pointer  what QIV_MemoryPoolEx_Alloc() gave; null and whatever is not allocated is ignored
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         none
 */
QIV_API void QIV_MemoryPoolEx_Free(QIV_HANDLE pool, void* pointer) QIV_NOEXCEPT;

/**
 * @param pool  the pool; null counts as empty
 * @return the bytes of all chunks; at most 4294967295
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         none
 */
QIV_API unsigned int QIV_MemoryPoolEx_Size(QIV_HANDLE pool) QIV_NOEXCEPT;

/**
 * @param pool  the pool; null counts as empty
 * @return the bytes of the idle chunks and of the rest of the chunk that is allocated from; at most
 *         4294967295
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         none
 */
QIV_API unsigned int QIV_MemoryPoolEx_IdleSize(QIV_HANDLE pool) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus
#include <qiv/memory_pool.h>
#include <qiv/mutex.h>

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace qiv {

class CGlobalMemoryPool;

/** A chunk in use. */
struct QIV_API CUsedRecord {
  char* m_pAllocPtr;            ///< start of the chunk
  char* m_pIdlePtr;             ///< first byte that is not allocated
  unsigned int m_nRemainBytes;  ///< bytes left behind m_pIdlePtr
  int m_iUsedNum;               ///< allocations that are not freed

  /**
   * Describes the record in the form of a JSON object without its opening brace, beginning with a
   * comma.
   *
   * @throws std::bad_alloc
   */
  std::string ToString() const;
};

/**
 * The pool itself. Allocates from one chunk, the current one, from front to back. A chunk that a
 * request does not fit any more is let go, and returns to the chunk pool when its last allocation
 * is freed; the current one never does.
 *
 * What the pool needs to keep its books is kept for later use, so that steady traffic allocates
 * nothing.
 */
class QIV_API CRealMemoryPoolEx {
 public:
  /** An empty pool. Takes what QIV_MemoryPoolEx_Create() does, with a flag that is true or false.
   */
  CRealMemoryPoolEx(unsigned int initialChunks, unsigned int maximumChunks, long long idleTimeout,
                    bool noLock, unsigned int chunkSize);

  /** Frees all chunks without a report. */
  virtual ~CRealMemoryPoolEx();

  CRealMemoryPoolEx(const CRealMemoryPoolEx&) = delete;
  CRealMemoryPoolEx& operator=(const CRealMemoryPoolEx&) = delete;

  /** Starts the chunk pool. */
  void Start() noexcept;

  /**
   * Gives the current chunk back if nothing in it is allocated, prints a line for each allocation
   * that was not freed, and stops the chunk pool. Takes no lock: no other call may be under way.
   */
  void Stop();

  /** @return as QIV_MemoryPoolEx_Alloc() */
  void* Alloc(size_t size) noexcept;
  /** Takes an allocation back, as QIV_MemoryPoolEx_Free(). */
  void Free(void* pointer) noexcept;
  /** @return as QIV_MemoryPoolEx_Size() */
  unsigned int Size() const noexcept;
  /** @return as QIV_MemoryPoolEx_IdleSize() */
  unsigned int IdleSize() const noexcept;

  /** Gives every chunk back to the chunk pool and forgets all allocations. The destructor calls it.
   */
  void Cleanup() noexcept;

 private:
  QIV_INTERNAL bool HasRoom(size_t size) const noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL bool StartChunk() noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL CUsedRecord* TakeRecord() noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL void GiveRecord(CUsedRecord* record) noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL void GiveBackRoom(char* freed) noexcept QIV_REQUIRES(m_mutex);

  CRealMemoryPool m_pool;
  bool m_bNoLock;
  unsigned int m_nChunkSize;
  mutable QIV_Mutex m_mutex;
  char* m_pLastAlloc QIV_GUARDED_BY(m_mutex);
  CUsedRecord* m_pCurrentRecord QIV_GUARDED_BY(m_mutex);
  std::map<void*, CUsedRecord*> m_mapUsedRecords QIV_GUARDED_BY(m_mutex);
  std::multimap<void*, CUsedRecord*> m_mapSpareNodes QIV_GUARDED_BY(m_mutex);
  std::vector<std::unique_ptr<CUsedRecord>> m_spareRecords QIV_GUARDED_BY(m_mutex);
};

}  // namespace qiv

/** A pool for requests of any size up to that of its chunks, as the functions above have it. */
class QIV_API QIV_MemoryPoolEx {
 public:
  /** Takes what QIV_MemoryPoolEx_Create() does. Without memory, a pool that allocates nothing. */
  QIV_MemoryPoolEx(unsigned int initialChunks, unsigned int maximumChunks, long long idleTimeout,
                   int noLock, unsigned int chunkSize) noexcept;

  /** Reports what was not freed, as QIV_MemoryPoolEx_Destroy(), and frees all. */
  virtual ~QIV_MemoryPoolEx();

  QIV_MemoryPoolEx(const QIV_MemoryPoolEx&) = delete;
  QIV_MemoryPoolEx& operator=(const QIV_MemoryPoolEx&) = delete;

  /** @return as QIV_MemoryPoolEx_Alloc() */
  void* Alloc(unsigned int size) noexcept;
  /** Takes an allocation back, as QIV_MemoryPoolEx_Free(). */
  void Free(void* pointer) noexcept;
  /** @return as QIV_MemoryPoolEx_Size() */
  unsigned int Size() const noexcept;
  /** @return as QIV_MemoryPoolEx_IdleSize() */
  unsigned int IdleSize() const noexcept;

 private:
  friend class qiv::CGlobalMemoryPool;

  qiv::CRealMemoryPoolEx* m_pPool;
};

#endif  // __cplusplus

#endif
