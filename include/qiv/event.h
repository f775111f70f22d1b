/**
 * @file
 * Events in the Win32 manner, and waits for several of them and for sockets at once.
 *
 * An event is signalled by QIV_SetEvent() and stays so, whoever waits for it, until
 * QIV_ResetEvent(): one set releases every waiting thread. QIV_EventSelect() binds an event to a
 * socket for good; from then on it stands for what happens on the socket, in
 * QIV_WaitForMultipleObjects() alone.
 *
 * What a thread did before it set an event is visible to a thread whose wait found it signalled.
 *
 * Failures are told by the result, and most of them by a line on standard error, written by
 * QIV_OutputDebug().
 * Where such a line shows an errno and no system call has failed, it is an older one. No last error
 * is set.
 */
#ifndef QIV_EVENT_H
#define QIV_EVENT_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/** @name Results of the waits */
/** @{ */
/** The event is signalled. QIV_WaitForMultipleObjects() gives the index of an object instead. */
#define QIV_WAIT_SIGNALLED 0
#define QIV_WAIT_TIMEOUT 0x7FFFFFFF    /**< the time ran out */
#define QIV_WAIT_NULL_EVENT 0x7FFFFFFE /**< the event is null */
#define QIV_WAIT_NO_PIPE 0x7FFFFFFD    /**< the event is bound to a socket */
#define QIV_WAIT_FAILED 0x7FFFFFFC     /**< the system's wait failed */
/** @} */

/** The most entries that QIV_WaitForMultipleObjects() watches; a socket may take two. */
#define QIV_WAIT_MAX_ENTRIES 128

/** @name What may happen on a socket */
/** @{ */
#define QIV_EVENT_READ 1u        /**< there is something to read */
#define QIV_EVENT_WRITE 2u       /**< there is room to write */
#define QIV_EVENT_OUT_OF_BAND 4u /**< can be selected and is never reported */
#define QIV_EVENT_ACCEPT 8u      /**< a connection waits to be accepted */
#define QIV_EVENT_CONNECT 16u    /**< connecting has come to an end, whether it worked or not */
#define QIV_EVENT_CLOSE 32u /**< readable, with nothing to read: the peer has closed, as a rule */
/** @} */

/** What QIV_EnumNetworkEvents() fills: 44 bytes. */
typedef struct {
  unsigned int events; /**< the event that was found, one of QIV_EVENT_...; 0 before any was found,
                          or when the socket could not tell what there is to read */
  int errors[10]; /**< by the number of the event's bit; only errors[4], of a connect, is used */
} QIV_NETWORK_EVENTS_T;

/**
 * Creates an event.
 *
 * @param signalled  non-zero: the event starts signalled
 * @return the event, to be ended by QIV_CloseEvent(); null when memory or descriptors are short
 * @par Errors         errno of malloc(), which prints nothing, of pipe2(), or of poll() or write()
 *                     when the event is to start signalled
 * @par Thread safety  any threads
 * @par System         pipe2(2); the two descriptors are closed by exec
 * @see QIV_CloseEvent
 */
QIV_API QIV_HANDLE QIV_CreateEvent(int signalled) QIV_NOEXCEPT;

/**
 * Ends an event. The socket that it may be bound to stays open.
 *
 * A thread that found the event signalled may close it at once, even while QIV_SetEvent() is still
 * on its way out on another thread. No thread may wait for it, or begin to use it, any more.
 *
 * @param event  the event; null is refused
 * @return 1; 0 when `event` is null
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         close(2)
 */
QIV_API int QIV_CloseEvent(QIV_HANDLE event) QIV_NOEXCEPT;

/**
 * Signals an event, which lets all threads that wait for it go on. It may be signalled already: it
 * is taken back for an instant then, in which a wait may see it so.
 *
 * @param event  the event; null and one that is bound to a socket are refused
 * @return 1, or 0 on a failure
 * @par Errors         errno of poll(), read() or write()
 * @par Thread safety  any threads
 * @par System         poll(2), read(2), write(2)
 */
QIV_API int QIV_SetEvent(QIV_HANDLE event) QIV_NOEXCEPT;

/**
 * Takes the signal of an event back. It may be unsignalled already.
 *
 * @param event  the event; null and one that is bound to a socket are refused
 * @return 1, or 0 on a failure
 * @par Errors         errno of poll() or read()
 * @par Thread safety  any threads
 * @par System         poll(2), read(2)
 */
QIV_API int QIV_ResetEvent(QIV_HANDLE event) QIV_NOEXCEPT;

/**
 * Waits until an event is signalled; the event stays signalled. Cancellation point.
 *
 * @param event  the event; null and one that is bound to a socket are refused
 * @param ms     longest wait, milliseconds; 0 looks once; -1 is no limit
 * @return QIV_WAIT_SIGNALLED; QIV_WAIT_TIMEOUT; QIV_WAIT_NULL_EVENT when `event` is null;
 *         QIV_WAIT_NO_PIPE when it is bound to a socket; QIV_WAIT_FAILED when the system's wait
 *         failed, which a signal handler makes it do, even in a look of 0 ms
 * @par Errors         errno of poll(); EINTR after a signal
 * @par Thread safety  any threads
 * @par System         poll(2)
 */
QIV_API int QIV_WaitForSingleObject(QIV_HANDLE event, int ms);

/**
 * Waits until one of several objects is signalled: an event that is set, or an event whose socket
 * is ready for what QIV_EventSelect() chose. Cancellation point. A signal does not end the wait,
 * and it goes on with the time that is left.
 *
 * Nothing is consumed: events stay signalled and sockets ready. Which event was found on a socket,
 * QIV_EnumNetworkEvents() tells.
 *
 * @param count    number of elements of `events`; with 0 or less, only the time passes
 * @param events   the events; null elements are skipped. What does not fit into
 *                 QIV_WAIT_MAX_ENTRIES entries is not watched. A plain event takes one entry; a
 *                 bound one takes one for read, accept and close together, one for write, and both
 *                 for connect.
 * @param waitAll  ignored: any one object ends the wait
 * @param ms       longest wait, milliseconds; 0 looks once; -1 is no limit
 * @return the lowest index whose object is signalled; QIV_WAIT_TIMEOUT when the time ran out, on a
 *         failure, and, at once, when the system reports nothing but errors on the sockets;
 *         QIV_WAIT_NULL_EVENT when `events` is null
 * @par Errors         errno of poll()
 * @par Thread safety  any threads, same events
 * @par System         poll(2), ioctl(2) FIONREAD, getsockopt(2) SO_ERROR
 * @see QIV_EventSelect, QIV_EnumNetworkEvents
 */
QIV_API int QIV_WaitForMultipleObjects(int count, const QIV_HANDLE* events, int waitAll, int ms);

/**
 * Binds an event to a socket, or binds it anew. It is a plain event no more: it can be neither set
 * nor reset, and only QIV_WaitForMultipleObjects() waits for it. The socket becomes non-blocking.
 *
 * @param socket  a descriptor; -1 is refused
 * @param event   the event; null is refused
 * @param mask    what to wait for, QIV_EVENT_... bits; 0 is refused
 * @return 0 or -1
 * @par Errors         errno of fcntl(), whose failure does not count
 * @par Thread safety  any threads, while none waits for the event
 * @par System         fcntl(2) O_NONBLOCK
 */
QIV_API int QIV_EventSelect(int socket, QIV_HANDLE event, unsigned int mask) QIV_NOEXCEPT;

/**
 * Tells what QIV_WaitForMultipleObjects() found on the socket of an event: ask for the event whose
 * index it has returned. A finding stays until a wait finds something else, also when waits time
 * out or another event ends them, and when the event is bound anew.
 *
 * Writes the event that was found into the first four bytes of the result, and, where connecting is
 * selected and the event keeps an error, that error into errors[4]; nothing else. The text of
 * QIV_WaitForSingleObject() about an event without pipe appears on standard error.
 *
 * @param socket  the socket; -1 is refused, and any other value is not looked at
 * @param event   the event; null is refused
 * @param result  a QIV_NETWORK_EVENTS_T, at any address; null is refused
 * @return 0 or -1
 * @par Errors         no errno of its own
 * @par Thread safety  any threads; while another one waits for the same event, the parts of the
 *                     result may be of two waits
 * @par System         poll(2)
 */
QIV_API int QIV_EnumNetworkEvents(int socket, QIV_HANDLE event, void* result) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
