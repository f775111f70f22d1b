/**
 * @file
 * Threads behind 32-bit ids, thread-local keys, and a thin class over the former.
 *
 * A new thread starts with its creator's trace record (trace_info.h). Policies and priorities are
 * the platform's numbers. None of the functions sets a last error.
 *
 * A thread id is the platform's own where that fits 32 bits. Elsewhere the library numbers the
 * threads: an id is never 0 and names its thread until the thread is joined, or until it ends when
 * it is detached or was not made by QIV_Thread_Create(). There, an id that names no thread gives
 * -1; where ids are the platform's own, using an id after its thread was joined is undefined.
 */
#ifndef QIV_THREAD_H
#define QIV_THREAD_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Starts a joinable thread.
 *
 * Policy and priority must fit each other, but take effect only as far as the platform applies
 * them: the thread inherits its creator's scheduling by default.
 *
 * @param routine    runs in the new thread, its result is dropped; null is refused
 * @param argument   handed to `routine`
 * @param stackSize  stack in bytes; 0 for the platform's default
 * @param ignored    has no effect
 * @param priority   a priority of `policy`; 0 for SCHED_OTHER
 * @param policy     the platform's scheduling policy; 0 is SCHED_OTHER
 * @return the thread's id, to be given to QIV_Thread_Wait(); QIV_INVALID_ID when `routine` is null,
 *         a value is refused by the platform, or memory or threads are short
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_create(3p), pthread_attr_setschedpolicy(3p),
 *                     pthread_attr_setstacksize(3p), pthread_attr_setschedparam(3p)
 * @see QIV_Thread_Wait
 */
QIV_API unsigned int QIV_Thread_Create(void* (*routine)(void*), void* argument,
                                       unsigned int stackSize, int ignored, int priority,
                                       int policy) QIV_NOEXCEPT;

/**
 * Starts a thread that nobody waits for.
 *
 * @param routine    runs in the new thread, its result is dropped; null is refused
 * @param argument   handed to `routine`
 * @param stackSize  stack in bytes; 0 for the platform's default
 * @return 1 when the thread was started; 0 otherwise
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_create(3p), pthread_attr_setdetachstate(3p)
 */
QIV_API int QIV_ThreadDetached_Create(void* (*routine)(void*), void* argument,
                                      unsigned int stackSize) QIV_NOEXCEPT;

/**
 * Ends the calling thread with a null exit value, unwinding its stack. Does not return.
 *
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         pthread_exit(3p)
 */
QIV_API void QIV_Thread_Exit(void);

/**
 * Waits for a thread to end and releases it.
 *
 * @param id  the thread; all bits set is refused
 * @return 0; -1 when `id` is refused or the thread cannot be joined: it is detached, it is the
 *         calling thread, or another thread is joining it
 * @par Errors         no errno
 * @par Thread safety  any threads; one of them joins. A cancellation point: the thread can still be
 *                     joined after the wait was cancelled.
 * @par System         pthread_join(3p)
 * @see QIV_Thread_Create
 */
QIV_API int QIV_Thread_Wait(unsigned int id);

/**
 * Gives the calling thread's id.
 *
 * @return the id; QIV_INVALID_ID when the thread was not made by QIV_Thread_Create(), asks for the
 *         first time, and memory or the platform's keys are short
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_self(3p)
 */
QIV_API unsigned int QIV_Thread_GetSelfId(void) QIV_NOEXCEPT;

/**
 * Not supported on this platform.
 *
 * @param id  ignored
 * @return -2
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_Thread_Suspend(unsigned int id) QIV_NOEXCEPT;

/**
 * Not supported on this platform.
 *
 * @param id  ignored
 * @return -2
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_Thread_Resume(unsigned int id) QIV_NOEXCEPT;

/**
 * Changes a thread's priority within its present policy.
 *
 * @param id        the thread; all bits set is refused
 * @param priority  a priority of the thread's policy
 * @return 0; -1 when `id` is refused or the platform refuses. Where the library numbers the
 *         threads, also for a thread that is being joined, unless it is the calling one.
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_getschedparam(3p), pthread_setschedparam(3p)
 */
QIV_API int QIV_Thread_SetPriority(unsigned int id, int priority) QIV_NOEXCEPT;

/**
 * Tells whether the platform knows a scheduling policy. Changes nothing: no thread is looked up.
 *
 * @param id      any value; all bits set is refused
 * @param policy  the platform's scheduling policy
 * @return 0 when the policy is known; -1 when it is not or `id` is refused
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_attr_setschedpolicy(3p)
 */
QIV_API int QIV_Thread_SetSchedPolicy(unsigned int id, int policy) QIV_NOEXCEPT;

/**
 * Creates a thread-local key. Its value is null in every thread; the values are not freed when
 * threads end.
 *
 * @return the key; QIV_INVALID_ID when the platform has none left
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_key_create(3p)
 * @see QIV_ThreadTls_Destroy
 */
QIV_API unsigned int QIV_ThreadTls_Create(void) QIV_NOEXCEPT;

/**
 * Sets the calling thread's value of a key.
 *
 * @param key    the key; all bits set is refused
 * @param value  any pointer
 * @return 0; -1 when `key` is refused or the platform refuses
 * @par Errors         no errno
 * @par Thread safety  any threads; each has its own value
 * @par System         pthread_setspecific(3p)
 */
QIV_API int QIV_ThreadTls_SetValue(unsigned int key, void* value) QIV_NOEXCEPT;

/**
 * Reads the calling thread's value of a key.
 *
 * @param key  the key; all bits set is refused
 * @return the value; null when this thread set none or `key` is refused
 * @par Errors         none
 * @par Thread safety  any threads; each has its own value
 * @par System         pthread_getspecific(3p)
 */
QIV_API void* QIV_ThreadTls_GetValue(unsigned int key) QIV_NOEXCEPT;

/**
 * Deletes a key. The threads' values are left alone.
 *
 * @param key  the key; all bits set is refused
 * @return 0; -1 when `key` is refused or the platform refuses
 * @par Errors         no errno
 * @par Thread safety  one thread, once, while no other one uses the key
 * @par System         pthread_key_delete(3p)
 */
QIV_API int QIV_ThreadTls_Destroy(unsigned int key) QIV_NOEXCEPT;

/**
 * What a thread runs that inherits a trace record: installs the record, calls the routine, erases
 * the record and frees the start record, also when the routine ends the thread.
 *
 * @param record  a start record of the library; a null one gives a line on standard error
 * @return null
 * @par Errors         no errno
 * @par Thread safety  any threads; runs the caller's routine
 * @par System         none
 */
QIV_API void* pfnThreadStartAddress(void* record);

/**
 * Does what pfnThreadStartAddress() does; the library does not use it.
 *
 * @param record  a start record of the library; a null one gives a line on standard error
 * @return null
 * @par Errors         no errno
 * @par Thread safety  any threads; runs the caller's routine
 * @par System         none
 */
QIV_API void* pfnDetachedThreadStartAddress(void* record);

QIV_EXTERN_C_END

#ifdef __cplusplus

/**
 * The id of a thread. It owns nothing: its end neither joins nor detaches the thread. Methods but
 * Create() return what the exported function of the same name returns for the stored id.
 */
class QIV_API QIV_Thread {
 public:
  /** Names no thread. */
  QIV_Thread() noexcept;
  /** Names the same thread as the other. */
  QIV_Thread(const QIV_Thread&) noexcept;
  /** Names the same thread as the other from now on; the thread named before goes on. */
  QIV_Thread& operator=(const QIV_Thread&) noexcept;
  ~QIV_Thread();

  /** QIV_Thread_Create() with the same arguments. @return 0; -1 when no thread was started */
  int Create(void* (*routine)(void*), void* argument, unsigned int stackSize, int ignored,
             int priority, int policy) noexcept;
  /** Waits for the end of the thread; see QIV_Thread_Wait(). */
  int Wait();
  /** Does what QIV_Thread_Suspend() does. */
  int Suspend() noexcept;
  /** Does what QIV_Thread_Resume() does. */
  int Resume() noexcept;
  /** Sets the thread's priority; see QIV_Thread_SetPriority(). */
  int SetPriority(int priority) noexcept;
  /** Sets the thread's scheduling policy; see QIV_Thread_SetSchedPolicy(). */
  int SetSchedPolicy(int policy) noexcept;

 private:
  unsigned int m_id;
};

#endif  // __cplusplus

#endif
