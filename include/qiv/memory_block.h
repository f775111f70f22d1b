/**
 * @file
 * A block of memory with guard bytes around it, which the memory pools lend. Exists in C++ only.
 */
#ifndef QIV_MEMORY_BLOCK_H
#define QIV_MEMORY_BLOCK_H

#include <qiv/types.h>

#ifdef __cplusplus
#include <cstddef>
#include <string>

namespace qiv {

/**
 * A block of memory of a fixed size that is lent and taken back many times. Four bytes of 0x16
 * stand directly before the user's bytes and four directly behind them, so that writes beyond
 * either end can be noticed.
 *
 * Misuse aborts the process, in every kind of build, with the message of the platform's assert().
 * Nothing is locked: whoever owns the block serialises the calls.
 */
class QIV_API CMemoryBlock {
 public:
  /**
   * Allocates a block that is not lent, with its guard bytes.
   *
   * @param size  bytes for the user. Without memory, and for 0 bytes, there is no user area: such a
   *              block lends null and has no guard bytes.
   * @par System  malloc(3)
   */
  explicit CMemoryBlock(unsigned int size) noexcept;

  /** Frees the block, also one that is lent. */
  ~CMemoryBlock();

  CMemoryBlock(const CMemoryBlock&) = delete;
  CMemoryBlock& operator=(const CMemoryBlock&) = delete;

  /**
   * Lends the block; it must not be lent already.
   *
   * @param owner  who borrows it, for ToString(); the pools give the id of the calling thread
   * @return the user area, whose start is 4 bytes past what malloc() gives, so aligned to 4 bytes
   *         only; null when there is none
   */
  char* Ptr(QIV_HANDLE owner) noexcept;

  /** Takes the block back; it must be lent. The guard bytes are not looked at. */
  void Reset() noexcept;

  /** @return the start of the allocation, 4 bytes before the user area; null without memory */
  char* AllocPtr() const noexcept;

  /** @return true when a guard byte has changed; false for a block without a user area */
  bool BoundaryOverflow() const noexcept;

  /** Writes the guard bytes anew; does nothing to a block without a user area. */
  void ResetBoundary() noexcept;

  /**
   * For how long the block has been idle; it must not be lent.
   *
   * @param now  tick of QIV_GetTimeTick64(), milliseconds
   * @return the tick of the last Ptr() or Reset(), or of the construction, less `now`: negative for
   *         a time that has passed
   */
  qiv_int64 TimeOffset(qiv_uint64 now) const noexcept;

  /**
   * Describes the block as a JSON object on one line: size, addresses, whether and to whom it is
   * lent, local times of its creation and its last use, and the guard bytes. The lists of guard
   * bytes of a block without a user area are empty.
   *
   * @throws std::bad_alloc
   */
  std::string ToString() const;

 private:
  friend class CRealMemoryPool;

  /** The most characters of a description, its NUL included. */
  enum { kDescriptionSize = 512 };

  QIV_INTERNAL bool HasUserArea() const noexcept;
  QIV_INTERNAL void Describe(char (&text)[kDescriptionSize]) const noexcept;

  unsigned int m_nBlockSize;
  char* m_pAlloc;
  char* m_pUser;
  bool m_bUsed;
  QIV_HANDLE m_hLastThread;
  qiv_uint64 m_iCreateTime;
  qiv_uint64 m_iLastTime;
};

}  // namespace qiv

#endif  // __cplusplus

#endif
