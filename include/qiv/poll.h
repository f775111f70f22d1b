/**
 * @file
 * Waiting until descriptors are ready: the system's select and poll, and a poll with a budget of
 * time that survives signals.
 *
 * None of these functions sets a last error or prints. They keep no state: any threads may call
 * them at once.
 */
#ifndef QIV_POLL_H
#define QIV_POLL_H

#include <poll.h>
#include <qiv/types.h>
#include <sys/select.h>
#include <sys/time.h>

QIV_EXTERN_C_BEGIN

/**
 * Tells whether a descriptor is in a set.
 *
 * @param descriptor  0 or above; there is no upper bound, so that sets longer than FD_SETSIZE bits
 *                    can be read too: the caller's set must reach that far
 * @param set         the set
 * @return 1 when the descriptor is in the set; 0 when it is not, when it is negative or when `set`
 *         is null
 * @par Errors         no errno
 * @par Thread safety  any threads, while none changes the set
 * @par System         FD_ISSET(3)
 */
QIV_API int QIV_FdIsSet(int descriptor, const fd_set* set) QIV_NOEXCEPT;

/**
 * Waits until descriptors of the sets are ready. The caller's time-out is never changed.
 *
 * @param count    the highest descriptor in the sets, plus 1
 * @param read     descriptors to read from, reduced to those that are ready; may be null
 * @param write    descriptors to write to, reduced to those that are ready; may be null
 * @param error    descriptors to watch for exceptional conditions, reduced likewise; may be null
 * @param timeout  the longest wait; null is no limit
 * @return the number of ready descriptors in all sets; 0 when the time ran out; -1 on an error
 * @par Errors         errno as select() sets it; a signal ends the wait with EINTR
 * @par Thread safety  any threads
 * @par System         select(2)
 */
QIV_API int QIV_Select(int count, fd_set* read, fd_set* write, fd_set* error,
                       struct timeval* timeout);

/**
 * Does what QIV_Select() does, but the system may lower the caller's time-out to the time left.
 *
 * @param count    as for QIV_Select()
 * @param read     as for QIV_Select()
 * @param write    as for QIV_Select()
 * @param error    as for QIV_Select()
 * @param timeout  the longest wait, lowered by the time spent; null is no limit
 * @return as QIV_Select()
 * @par Errors         errno as select() sets it; a signal ends the wait with EINTR
 * @par Thread safety  any threads
 * @par System         select(2)
 */
QIV_API int QIV_SelectEx(int count, fd_set* read, fd_set* write, fd_set* error,
                         struct timeval* timeout);

/**
 * Waits until one of the descriptors is ready.
 *
 * @param records  `count` records; the system fills in `revents`
 * @param count    number of records
 * @param ms       longest wait, milliseconds; 0 looks once; negative is no limit
 * @return the number of records with a non-zero `revents`; 0 when the time ran out; -1 on an error
 * @par Errors         errno as poll() sets it; a signal ends the wait with EINTR
 * @par Thread safety  any threads, on different records
 * @par System         poll(2)
 */
QIV_API int QIV_Poll(struct pollfd* records, unsigned int count, int ms);

/**
 * Waits until one of the descriptors is ready, against a budget of time. A signal does not end the
 * wait: it goes on with the time left.
 *
 * A caller that waits several times against one budget passes the same variable again and again.
 * A signal that arrives when the budget is used up gives -1 with EINTR and a budget of 0.
 *
 * @param records  `count` records; the system fills in `revents`
 * @param count    number of records
 * @param budget   the longest wait in milliseconds, lowered by the time spent, never below 0; 0
 *                 looks once. Null or QIV_INFINITE is no limit, and nothing is written then.
 *                 Callers do not use 2147483648 to 4294967294: such a wait has no limit, and a
 *                 signal ends it with EINTR or starts a limited one.
 * @return the number of records with a non-zero `revents`; 0 when the time ran out; -1 on an error
 * @par Errors         errno as poll() sets it
 * @par Thread safety  any threads, on different records and budgets
 * @par System         poll(2), clock_gettime(2)
 */
QIV_API int QIV_PollEx(struct pollfd* records, unsigned int count, unsigned int* budget);

QIV_EXTERN_C_END

#endif
