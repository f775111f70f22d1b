/**
 * @file
 * A pool of equal blocks that gives surplus ones back to the system once they have been idle for a
 * while: exported functions on a handle, and the classes behind them.
 *
 * None of them sets a last error. Misuse that the pool notices aborts the process, in every kind of
 * build, with the message of the platform's assert().
 */
#ifndef QIV_MEMORY_POOL_H
#define QIV_MEMORY_POOL_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Creates a pool.
 *
 * @param blockSize      bytes of each block; a pool of blocks of 0 bytes lends none
 * @param initialCount   blocks that are made at once and stay until the pool ends; fewer when
 * memory is short
 * @param maximumCount   the most blocks lent at once; at least `initialCount`, whatever is given
 * @param checkBoundary  greater than 0: every block that comes back is checked for writes beyond
 *                       its ends, and such a write aborts the process
 * @param idleTimeout    milliseconds after which a block beyond the first `initialCount` that
 * nobody has used is given back to the system; negative means never
 * @param noLock         greater than 0 together with a negative `idleTimeout`: the pool takes no
 *                       lock, and the caller serialises all calls
 * @return the pool; null when memory is short
 * @par Errors         no errno. The line of the pool's condition appears on standard error, see
 *                     QIV_CondCreate(). A pool that has an idle time-out and finds no thread for it
 *                     never gives blocks back
 * @par Thread safety  any threads
 * @par System         malloc(3), pthread_create(3p)
 * @see QIV_MemoryPool_Destroy
 */
QIV_API QIV_HANDLE QIV_MemoryPool_Create(unsigned int blockSize, unsigned int initialCount,
                                         unsigned int maximumCount, int checkBoundary,
                                         long long idleTimeout, int noLock) QIV_NOEXCEPT;

/**
 * Ends a pool and frees all of its blocks, lent ones too. For each block that is still lent it
 * prints a line on standard output, "memory_pool[POOL] check memory leaked, Block: {...}", in the
 * ascending order of their addresses.
 *
 * @param pool  a pool made by QIV_MemoryPool_Create(); null does nothing
 * @par Errors         no errno. The line of the pool's condition appears on standard error, see
 *                     QIV_CondDestroy()
 * @par Thread safety  one thread, once; no other call on the pool may be under way. Waits for the
 *                     pool's thread
 * @par System         free(3), printf(3)
 */
QIV_API void QIV_MemoryPool_Destroy(QIV_HANDLE pool);

/**
 * Lends a block: the one that came back last, or a new one.
 *
 * @param pool  the pool; null lends nothing
 * @return the block, with whatever its last user left in it, aligned to 4 bytes only; null when
 *         the maximum is lent or memory is short
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         malloc(3)
 */
QIV_API void* QIV_MemoryPool_Alloc(QIV_HANDLE pool) QIV_NOEXCEPT;

/**
 * Takes a block back.
 *
 * @param pool   the pool; null does nothing
 * @param block  what QIV_MemoryPool_Alloc() gave; null and whatever is not lent is ignored
 * @par Errors         no errno. Aborts when the pool checks and a byte beyond the block was written
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         none
 */
QIV_API void QIV_MemoryPool_Free(QIV_HANDLE pool, void* block) QIV_NOEXCEPT;

/**
 * @param pool  the pool; null counts as empty
 * @return the bytes of all blocks, lent and idle; at most 4294967295
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         none
 */
QIV_API unsigned int QIV_MemoryPool_Size(QIV_HANDLE pool) QIV_NOEXCEPT;

/**
 * @param pool  the pool; null counts as empty
 * @return the bytes of the idle blocks; at most 4294967295
 * @par Errors         no errno
 * @par Thread safety  any threads, unless the pool takes no lock
 * @par System         none
 */
QIV_API unsigned int QIV_MemoryPool_IdleSize(QIV_HANDLE pool) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus
#include <qiv/alarm_clock.h>
#include <qiv/memory_block.h>
#include <qiv/mutex.h>

#include <cstddef>
#include <list>
#include <map>

namespace qiv {

/**
 * The pool itself. Idle blocks are lent again in the reverse order of their return; the block that
 * has been idle for longest is given back to the system first. Idle blocks are looked after by an
 * alarm clock, so a pool with an idle time-out has a thread.
 *
 * Every block brings the nodes of the containers that it needs, so that lending blocks that exist
 * and taking blocks back allocates nothing.
 */
class QIV_API CRealMemoryPool {
 public:
  /** An empty pool. Takes what QIV_MemoryPool_Create() does, with flags that are true or false, and
   *  writes that line to standard error; the destructor writes that of QIV_MemoryPool_Destroy(). */
  CRealMemoryPool(unsigned int blockSize, unsigned int initialCount, unsigned int maximumCount,
                  bool checkBoundary, long long idleTimeout, bool noLock);

  /** Stops the clock and frees all blocks, lent ones too, without a report. */
  virtual ~CRealMemoryPool();

  CRealMemoryPool(const CRealMemoryPool&) = delete;
  CRealMemoryPool& operator=(const CRealMemoryPool&) = delete;

  /** Init(), and starts the alarm clock of a pool that has an idle time-out. */
  void Start() noexcept;

  /**
   * Stops the alarm clock for good and prints a line for each block that is still lent. Frees
   * nothing and takes no lock: no other call may be under way.
   */
  void Stop();

  /** Makes the initial blocks; fewer when memory is short. Start() calls it. */
  void Init() noexcept;

  /** @return as QIV_MemoryPool_Alloc() */
  void* Alloc() noexcept;
  /** Takes a block back, as QIV_MemoryPool_Free(). */
  void Free(void* block) noexcept;
  /** @return as QIV_MemoryPool_Size() */
  unsigned int Size() const noexcept;
  /** @return as QIV_MemoryPool_IdleSize() */
  unsigned int IdleSize() const noexcept;

  /** Has the idle blocks looked at in that many milliseconds, which must not be negative; a look
   *  that is scheduled already stays as it is. For the pool itself, with its lock held. */
  void CheckIdleTimeout(qiv_int64 delayedMillis) noexcept QIV_REQUIRES(m_mutex);

  /** Gives back the surplus blocks that have been idle for long enough; the clock calls it. Does
   *  nothing in a pool whose idle time-out is negative.
   *  @param alarmId  not looked at */
  void OnCheckIdleTimeoutTask(QIV_INT32 alarmId) noexcept;

  /** The alarm's callback: OnCheckIdleTimeoutTask() of the pool given; null does nothing. */
  static void OnAlarm(void* clock, int id, void* pool);

  /** Frees all blocks, lent ones too. The destructor calls it. */
  void Cleanup() noexcept;

 private:
  typedef std::list<CMemoryBlock*> BlockList;

  enum ECheckState { kNoCheck = 0, kCheckOnceIdle = 1, kCheckScheduled = 2 };

  QIV_INTERNAL bool AddIdleBlock() noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL ECheckState ReleaseIdleBlocks(std::size_t canDelete) noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL ECheckState StateWithoutIdleBlocks() const noexcept QIV_REQUIRES(m_mutex);
  QIV_INTERNAL void DestroyOldestIdleBlock() noexcept QIV_REQUIRES(m_mutex);

  unsigned int m_nBlockSize;
  unsigned int m_nInitCount;
  unsigned int m_nMaxCount;
  bool m_bCheckBoundary;
  qiv_int64 m_iIdleTimeoutMillis;
  bool m_bNoLock;
  CAlarmClock m_alarmClock;
  mutable QIV_Mutex m_mutex;
  BlockList m_listIdleBlocks QIV_GUARDED_BY(m_mutex);
  std::map<void*, CMemoryBlock*> m_mapUsedBlocks QIV_GUARDED_BY(m_mutex);
  ECheckState m_eCheckState QIV_GUARDED_BY(m_mutex);
  // The nodes of blocks that are in the other container.
  BlockList m_listSpareNodes QIV_GUARDED_BY(m_mutex);
  std::multimap<void*, CMemoryBlock*> m_mapSpareNodes QIV_GUARDED_BY(m_mutex);
  bool m_bCheckIsLost QIV_GUARDED_BY(m_mutex);
};

}  // namespace qiv

/** A pool of equal blocks, as the functions above have it. */
class QIV_API QIV_MemoryPool {
 public:
  /** Takes what QIV_MemoryPool_Create() does. Without memory, a pool that lends nothing. */
  QIV_MemoryPool(unsigned int blockSize, unsigned int initialCount, unsigned int maximumCount,
                 int checkBoundary, long long idleTimeout, int noLock) noexcept;

  /** Reports the blocks that are still lent, as QIV_MemoryPool_Destroy(), and frees all. */
  virtual ~QIV_MemoryPool();

  QIV_MemoryPool(const QIV_MemoryPool&) = delete;
  QIV_MemoryPool& operator=(const QIV_MemoryPool&) = delete;

  /** @return as QIV_MemoryPool_Alloc() */
  void* Alloc() noexcept;
  /** Takes a block back, as QIV_MemoryPool_Free(). */
  void Free(void* block) noexcept;
  /** @return as QIV_MemoryPool_Size() */
  unsigned int Size() const noexcept;
  /** @return as QIV_MemoryPool_IdleSize() */
  unsigned int IdleSize() const noexcept;

 private:
  qiv::CRealMemoryPool* m_pPool;
};

#endif  // __cplusplus

#endif
