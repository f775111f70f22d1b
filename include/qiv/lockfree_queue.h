/**
 * @file
 * A queue of counted objects for any number of threads: first in, first out, without limit. Exists
 * in C++ only.
 *
 * Pushing takes no lock. Threads that pop take turns, and each frees the node that it has unlinked,
 * for which it waits until the pushes are over that were under way at that moment. Pushes that
 * begin later are not waited for. A push is short, but while a pusher is kept from running, all
 * pops wait: do not mix threads of different priorities in one queue.
 *
 * A push or pop that never ends makes pops wait for ever. So neither belongs in a signal handler,
 * nor may it be left by longjmp() or asynchronous cancellation; neither is a cancellation point. In
 * the child of a fork(), a queue that other threads were using at the fork() may only be destroyed.
 */
#ifndef QIV_LOCKFREE_QUEUE_H
#define QIV_LOCKFREE_QUEUE_H

#include <qiv/mutex.h>
#include <qiv/refobj.h>
#include <qiv/types.h>

#ifdef __cplusplus

#include <atomic>

namespace qiv {

/**
 * The queue itself, without trace records. Applications use qiv_lockfreeQ, which has one of these
 * and the same operations.
 */
class QIV_API qiv_lockfreeQImpl {
 public:
  /** An empty queue. Throws std::bad_alloc. */
  qiv_lockfreeQImpl();
  /** Drops the references to the elements left. No thread may use the queue any more. */
  virtual ~qiv_lockfreeQImpl();
  qiv_lockfreeQImpl(const qiv_lockfreeQImpl&) = delete;
  qiv_lockfreeQImpl& operator=(const qiv_lockfreeQImpl&) = delete;

  /** Puts an element at the end; null is ignored. Throws std::bad_alloc. */
  void push_back(cshared_ptr<cobject> value);
  /** Takes the first element. @return the element; null when the queue is empty */
  cshared_ptr<cobject> pop_front() noexcept;
  /** @return 1 when there was no element a moment ago, otherwise 0 */
  int empty() const noexcept;
  /** @return the number of elements a moment ago; see qiv_lockfreeQ::size() */
  int size() const noexcept;

 private:
  friend struct LockfreeQueueInside;  // by which tests look inside

  /// @cond
  struct Node {
    cobject* value;  // with a reference; null in the dummy
    std::atomic<Node*> next;
  };
  /// @endcond

  QIV_INTERNAL void link(Node* node) noexcept;
  QIV_INTERNAL Node* unlinkDummy() noexcept QIV_REQUIRES(m_popMutex);
  QIV_INTERNAL void waitForPushers() noexcept QIV_REQUIRES(m_popMutex);

  // The layout is fixed up to the mutex. What follows is this library's own.
  std::atomic<Node*> m_head;  // the dummy, whose element has been handed out or never was
  std::atomic<Node*> m_tail;  // the last node or, while a push is under way, one before it
  unsigned int m_reserved;
  std::atomic<int> m_count;
  QIV_Mutex m_popMutex;
  std::atomic<unsigned int> m_epoch;      // which one of the next counts new pushes
  std::atomic<unsigned int> m_inside[2];  // pushes that may look at nodes
  std::atomic<unsigned int> m_pops;       // dummies unlinked; wraps
};

/**
 * The queue. Trace records travel with the elements: a thread that pops one takes over the record
 * that the thread had that pushed it.
 *
 * push_back(), pop_front(), empty() and size() may be called by any threads at once. What a thread
 * did before it pushed an element is done for the thread that pops it. The elements that one thread
 * pushes are popped in that order.
 *
 * A call uses the queue until it has returned, a push also when its element has already been
 * popped. Destroy the queue after that.
 */
class QIV_API qiv_lockfreeQ : public virtual qiv_refobj {
 public:
  /** An empty queue. When memory is short it holds nothing for its whole life; see size(). */
  qiv_lockfreeQ() noexcept;
  /** Drops the references to the elements left. No thread may use the queue any more. */
  ~qiv_lockfreeQ() override;
  qiv_lockfreeQ(const qiv_lockfreeQ&) = delete;
  qiv_lockfreeQ& operator=(const qiv_lockfreeQ&) = delete;

  /**
   * Puts an element at the end and keeps a reference to it. The element's trace record becomes that
   * of the calling thread, or all zero when it has none.
   *
   * An element has one record, which pushes write and pops read without a lock. So push an element
   * again only after the pop that took it has returned. Without other threads it may be in the
   * queue several times; its pops all find the record of the last push.
   *
   * Throws std::bad_alloc, and the queue is as it was. The record has been overwritten then.
   *
   * @param value  the element; null is ignored
   */
  void push_back(cshared_ptr<cobject> value);

  /**
   * Takes the first element. The element's trace record becomes that of the calling thread, unless
   * it is empty: then the thread keeps the one it has. Waits for the pops before it, also to find
   * the queue empty.
   *
   * @return the element with the queue's reference to it; null when the queue is empty
   */
  cshared_ptr<cobject> pop_front() noexcept;

  /**
   * Whether there was no element a moment ago. An element whose push has not returned may be missed
   * though a pop would find it.
   *
   * @return 1 or 0; 1 when the queue was made without memory
   */
  int empty() const noexcept;

  /**
   * How many elements there were a moment ago. While others push and pop it may be off by as many,
   * even below 0.
   *
   * @return the number; -1 when the queue was made without memory
   */
  int size() const noexcept;

 private:
  qiv_lockfreeQImpl* m_impl;
};

}  // namespace qiv

#endif  // __cplusplus

#endif
