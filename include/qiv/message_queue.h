/**
 * @file
 * Message queues: exported functions on queues that copy whole messages and deliver them by
 * priority, and a class that passes pointers on in the order of their arrival.
 *
 * Senders never wait; receivers wait with a time-out. None of the functions sets a last error.
 */
#ifndef QIV_MESSAGE_QUEUE_H
#define QIV_MESSAGE_QUEUE_H

#include <qiv/mutex.h>
#include <qiv/semaphore.h>
#include <qiv/types.h>

/** The most bytes of data that a message carries. */
#define QIV_MSGQ_MAX_DATA 8096

QIV_EXTERN_C_BEGIN

/** A message: 8108 bytes without gaps. */
typedef struct QIV_MSG_BLOCK_T {
  unsigned int iMsgType; /**< the caller's; copied and never looked at */
  int iPriority;         /**< messages with a larger one are delivered earlier */
  int iMsgLen;           /**< bytes of data; before a receive, the bytes that there is room for */
  char chMsgData[QIV_MSGQ_MAX_DATA]; /**< the first `iMsgLen` bytes count */
} QIV_MSG_BLOCK_T;

/** A queue made by QIV_MsgQCreateEx(). */
typedef struct QIV_MQ_INTER QIV_MQ_INTER;

/**
 * Makes an empty queue. There is room for 100; the free place with the lowest number is taken.
 *
 * @param out  receives the queue. Null is refused. When a place was free but the queue could not be
 *             built in it, it receives that place all the same, which is no queue.
 * @return 0; -1 when `out` is null, when 100 queues exist or memory is short
 * @par Errors         no errno; on success two lines on standard error, of the queue's conditions
 * @par Thread safety  any threads
 * @par System         pthread_cond_init(3p)
 * @see QIV_MsgQDestroyEx
 */
QIV_API int QIV_MsgQCreateEx(QIV_MQ_INTER** out) QIV_NOEXCEPT;

/**
 * Ends a queue made by QIV_MsgQCreateEx() and discards its messages.
 *
 * No thread should send or receive any more: those that do get -1, also when another queue is made
 * at the same address at once. Calls that begin after that are calls to the new queue.
 *
 * @param queue  the queue; null is refused
 * @return 0, also when the queue has been destroyed before; -1 when `queue` is null
 * @par Errors         no errno; two lines on standard error, of the conditions of a queue that ends
 * @par Thread safety  any threads
 * @par System         pthread_cond_destroy(3p), free(3)
 */
QIV_API int QIV_MsgQDestroyEx(QIV_MQ_INTER* queue) QIV_NOEXCEPT;

/**
 * Puts a copy of a message into a queue, behind those of equal or higher priority, and wakes the
 * receivers. Never waits for room: a queue grows as long as there is memory, about 8 KiB for each
 * message whatever its length.
 *
 * @param queue  the queue; null and a destroyed one are refused
 * @param msg    the message; null is refused. With a negative length it carries no data, and is
 *               received with that length.
 * @return 0; -1, with the queue as it was, when an argument is refused, the length is above
 *         QIV_MSGQ_MAX_DATA or memory is short
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         malloc(3), pthread_cond_broadcast(3p)
 */
QIV_API int QIV_MsgQSendEx(QIV_MQ_INTER* queue, const QIV_MSG_BLOCK_T* msg) QIV_NOEXCEPT;

/**
 * Takes the first message from a queue, waiting for one. Cancellation point while it waits.
 *
 * A message that is longer than there is room for is lost: it leaves the queue, and of `msg` only
 * the type and the priority are filled.
 *
 * @param queue       the queue; null and a destroyed one are refused
 * @param msg         filled; null is refused. On entry its `iMsgLen` is the number of bytes that
 *                    there is room for in `chMsgData`.
 * @param timeout_ms  longest wait in milliseconds. 0 takes a message that is there, but otherwise
 *                    waits for the next send, or the queue's end, without limit and returns -1
 *                    without the message. All bits set is 4294967295 ms, as good as no limit.
 * @return 0; -1 when an argument is refused, the message is longer than there is room for, the
 *         queue ends, or the time has run out. `msg` is as it was unless the message was too long.
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_cond_timedwait(3p), pthread_cond_wait(3p)
 */
QIV_API int QIV_MsgQReceiveEx(QIV_MQ_INTER* queue, QIV_MSG_BLOCK_T* msg, unsigned int timeout_ms);

/**
 * Makes every queue's place free; the library's start does. Queues that exist are destroyed.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_MsgQInitEx_Inter(void) QIV_NOEXCEPT;

/**
 * Destroys every queue that exists; the library's last stop does.
 *
 * @return 0
 * @par Errors         no errno; two lines on standard error for each queue
 * @par Thread safety  any threads
 * @par System         pthread_cond_destroy(3p), free(3)
 */
QIV_API int QIV_MsgQFiniEx_Inter(void) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

#include <deque>

namespace qiv {

/**
 * A queue of pointers to messages that the caller owns: first in, first out, without limit. The
 * priority of a message does not count. Any threads may use it at once, except for construction and
 * destruction. The blocks are never freed, neither are they read.
 */
class QIV_API qiv_msgq {
 public:
  /** Calls init(). When memory is short, the queue refuses everything until init() succeeds. */
  qiv_msgq() noexcept;
  /** Calls destroy(). No thread may wait in getq() any more. */
  virtual ~qiv_msgq();
  qiv_msgq(const qiv_msgq&) = delete;
  qiv_msgq& operator=(const qiv_msgq&) = delete;

  /**
   * Makes the queue usable, after destroy() or a construction without memory, and empty. On a queue
   * that is usable the memory of the old content is lost; use reset() there.
   *
   * @return 0; -1 when memory is short, and nothing is changed
   */
  int init() noexcept;

  /**
   * Puts a pointer at the end and wakes one thread that waits in getq().
   *
   * @param blk  the message, which must live until it has been taken out; null is refused
   * @return 0; -1 when `blk` is null, the queue is not usable or memory is short
   */
  int putq(QIV_MSG_BLOCK_T* blk) noexcept;

  /**
   * Takes the first pointer, waiting for one. Cancellation point. Returns -1 early when the queue
   * is destroyed meanwhile, also when init() follows at once, and without a time-out also when a
   * signal arrives.
   *
   * @param out      receives the pointer; null is refused. Not written on -1.
   * @param timeout  longest wait in milliseconds on the wall clock; -1 is no limit. With any other
   *                 negative value the call waits without limit, too, but returns -1 when it wakes
   *                 and finds the queue empty, which only happens after a reset(), destroy() or
   *                 init().
   * @return 0; -1 when `out` is null, the queue is not usable, the time has run out or a signal has
   *         ended a wait without limit
   * @par System  sem_wait(3), sem_timedwait(3p)
   */
  int getq(QIV_MSG_BLOCK_T** out, int timeout);

  /** Empties the queue; threads in getq() wait on. */
  void reset() noexcept;

  /** Empties the queue and makes it unusable: threads in getq() return -1, and so do putq() and
   *  getq() until init(). */
  void destroy() noexcept;

 private:
  class QIV_INTERNAL Visit;

  QIV_INTERNAL void leave(unsigned int generation) noexcept;

  qiv_recursive_mutex m_mutex;
  qiv_sem m_sem;  // its count is at least the pointers in the queue and m_leaving together
  std::deque<QIV_MSG_BLOCK_T*>* m_queue QIV_GUARDED_BY(m_mutex);  // null while it is not usable
  unsigned int m_generation QIV_GUARDED_BY(m_mutex);  // how often the queue has been destroyed
  unsigned int m_waiting QIV_GUARDED_BY(m_mutex);     // threads in getq() of this generation
  unsigned int m_leaving QIV_GUARDED_BY(m_mutex);     // threads in getq() of earlier ones
};

}  // namespace qiv

#endif  // __cplusplus

#endif
