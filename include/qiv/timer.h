/**
 * @file
 * Periodic timers. Each has a thread of its own, which calls the application and then sleeps for
 * the period, until the timer is killed. A process has at most 256 of them at a time.
 *
 * Timers do not need the library to be started, and go on when it is stopped: the application kills
 * its own. None of the functions sets a last error. Each timer prints the two lines on standard
 * error that belong to its condition (condition.h).
 */
#ifndef QIV_TIMER_H
#define QIV_TIMER_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Starts a timer. The first call comes at once, possibly before this function returns, unless the
 * timer is killed before it; each later one comes a period after the call before it has returned,
 * so calls never overlap and the schedule drifts by the time that they take.
 *
 * @param callback  called as callback(id, user) on the timer's thread, with no lock held. It may
 *                  start timers and kill others, but not its own. Null makes a timer that only
 *                  sleeps.
 * @param user      handed to `callback`
 * @param period    milliseconds between two calls; 0 calls without a pause
 * @param id        receives the timer's id, 0 to 255: the lowest one that is free. Null receives
 *                  nothing.
 * @return 0, also when no thread can be started: such a timer never calls, and is killed like any
 *         other; -1 when 256 timers exist or memory is short (`id` is not written then)
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_create(3p), pthread_cond_timedwait(3p)
 * @see QIV_KillTimer
 */
QIV_API int QIV_SetTimer(void (*callback)(unsigned int id, void* user), void* user,
                         unsigned int period, unsigned int* id) QIV_NOEXCEPT;

/**
 * Ends a timer and frees its id. A sleep in progress ends at once, a call in progress is waited
 * for: when this function has returned 0, the callback is not running and will not run again.
 *
 * @param id  the timer; an id that no timer has is left alone
 * @return 0, also when no timer has the id and when another thread has ended the timer meanwhile;
 *         -1 when `id` is above 255, when the end would have to wait for the calling thread (in the
 *         timer's own callback, and in one that the timer's callback is about to end in turn), or
 *         when the callback has let somebody else join or detach its thread
 * @par Errors         no errno
 * @par Thread safety  any threads, the same timer too; not under a lock that the callback takes. No
 *                     cancellation point: a cancellation takes effect after it.
 * @par System         pthread_cond_signal(3p), pthread_join(3p)
 * @see QIV_SetTimer
 */
QIV_API int QIV_KillTimer(unsigned int id);

/**
 * Marks the timer table as prepared. Timers that exist go on. Calling it is never necessary: the
 * table is ready when the library is loaded.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_InitTimer_Inter(void) QIV_NOEXCEPT;

/**
 * Takes back QIV_InitTimer_Inter(). Ends no timer and frees nothing.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_FiniTimer_Inter(void) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
