/**
 * @file
 * Asynchronous sockets: completion queues whose workers call back when a request is done.
 *
 * A queue is a set of worker threads, each with an epoll set of its own. A socket is bound to one
 * worker of a queue; requests to send, receive, connect and accept return at once, and their
 * outcome arrives in the request's callback on that worker. Per socket, the sending side (sends,
 * connects) and the receiving side (receives, accepts) each complete in the order of their
 * requests.
 *
 * A callback may queue further requests and unbind its own socket. In mode 1 it runs while its
 * worker's lock is held, so that QIV_AsyncIO_UnBindIOHandleEx() on another thread waits for it to
 * return; it must then not unbind sockets of other workers, whose callbacks might do the same the
 * other way round. In every other mode no lock is held, any socket may be unbound, and an unbind
 * does not wait for a callback that has begun. A callback must not destroy its own queue.
 *
 * Workers ask for the real-time policy SCHED_FIFO with priority 1; without the right to it they run
 * as ordinary threads.
 */
#ifndef QIV_ASYNC_IO_H
#define QIV_ASYNC_IO_H

#include <qiv/address.h>
#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Reports the outcome of one request.
 *
 * @param error  0, or the errno value of the failure. A receive of 0 bytes at the end of a stream,
 *               or of an empty datagram, carries whatever errno held: that does not tell it from a
 *               failure.
 * @param bytes  bytes sent or received, 0 for a failed receive; the new descriptor for an accept
 *               (all bits set when it failed); 0 for a connect
 * @param user   the caller's value from the request
 */
typedef void (*QIV_ASYNC_CALLBACK)(unsigned int error, unsigned int bytes, void* user);

/**
 * Creates a completion queue and starts its workers. They keep the trace record (trace_info.h) of
 * the thread that creates it.
 *
 * @param workers  number of worker threads; below 1 gives a queue to which nothing can be bound
 * @param mode     1 to run callbacks with the worker's lock held, any other value to run them
 *                 without
 * @return the queue, or all bits set (-1, not null) on failure. After a failure the last worker
 * that could be started, if any, is left running and unused.
 * @par Errors         errno as epoll_create(2) left it when that has failed
 * @par Thread safety  any threads
 * @par System         epoll_create(2), pthread_create(3)
 * @see QIV_AsyncIO_DestroyQueueEx
 */
QIV_API QIV_HANDLE QIV_AIO_CreateQueueEx(int workers, int mode) QIV_NOEXCEPT;

/**
 * Creates a completion queue in mode 1.
 *
 * @param workers  number of worker threads
 * @return as QIV_AIO_CreateQueueEx()
 * @par Errors         as QIV_AIO_CreateQueueEx()
 * @par Thread safety  any threads
 * @par System         epoll_create(2), pthread_create(3)
 */
QIV_API QIV_HANDLE QIV_AsyncIO_CreateQueueEx_New(int workers) QIV_NOEXCEPT;

/**
 * Creates a completion queue in mode 1 with twice as many workers as processors plus one.
 *
 * @return as QIV_AIO_CreateQueueEx()
 * @par Errors         as QIV_AIO_CreateQueueEx()
 * @par Thread safety  any threads
 * @par System         epoll_create(2), pthread_create(3), sysconf(3)
 */
QIV_API QIV_HANDLE QIV_AsyncIO_CreateQueueEx2(void) QIV_NOEXCEPT;

/**
 * Stops a queue's workers, waits for them (about 500 ms) and frees the queue.
 *
 * Sockets still bound stay bound: requests on them are accepted and never complete, and their
 * descriptors cannot be bound again. Unbind them first.
 *
 * @param queue  the queue; null and all bits set are refused
 * @return 0; -1 when `queue` is refused or the caller is one of its own workers
 * @par Errors         no errno
 * @par Thread safety  one thread, once; at the same time only the queue's own callbacks may use it,
 *                     afterwards nobody
 * @par System         pthread_join(3), close(2)
 */
QIV_API int QIV_AsyncIO_DestroyQueueEx(QIV_HANDLE queue);

/**
 * Binds a socket to a queue: its worker is number (socket modulo workers). The socket becomes
 * non-blocking.
 *
 * @param socket  the descriptor, 0 to 65535
 * @param queue   the queue
 * @return 0; -1 when an argument is refused, the queue has no workers, the descriptor is already
 *         bound, or memory is short. A descriptor that the system cannot watch is bound with 0, and
 *         its requests never complete.
 * @par Errors         a line on standard error when the descriptor is already bound
 * @par Thread safety  any threads
 * @par System         fcntl(2), epoll_ctl(2)
 * @see QIV_AsyncIO_UnBindIOHandleEx
 */
QIV_API int QIV_AsyncIO_BindIOHandleToQueueEx(int socket, QIV_HANDLE queue) QIV_NOEXCEPT;

/**
 * Ends a socket's binding. Requests that are still pending are dropped without a callback. The
 * socket is neither shut down nor closed; unbind it before its descriptor is closed.
 *
 * @param socket  the descriptor
 * @param queue   the queue that it is bound to
 * @return 0; -1 when an argument is refused or the socket is not bound to this queue
 * @par Errors         a line on standard error when the socket is not bound to this queue
 * @par Thread safety  any threads, callbacks included (see the head of this file)
 * @par System         epoll_ctl(2)
 */
QIV_API int QIV_AsyncIO_UnBindIOHandleEx(int socket, QIV_HANDLE queue) QIV_NOEXCEPT;

/**
 * Does nothing: callbacks are given with each request. Takes any arguments.
 *
 * @return 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202311L)
QIV_API int QIV_AsyncIO_BindCallBackToIOHandleEx(...) QIV_NOEXCEPT;
#else
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
QIV_API int QIV_AsyncIO_BindCallBackToIOHandleEx();
#pragma GCC diagnostic pop
#endif

/**
 * Calls a callback on a thread of its own.
 *
 * @param queue     not used
 * @param socket    not used
 * @param error     handed to the callback
 * @param bytes     handed to the callback
 * @param user      handed to the callback
 * @param callback  the routine; null is refused
 * @return 0; -1 when `callback` is null, memory is short or no thread can be started
 * @par Errors         no errno
 * @par Thread safety  any threads; posted callbacks run in no particular order
 * @par System         pthread_create(3)
 */
QIV_API int QIV_AsyncIO_PostQueuedCompleteStatusEx(QIV_HANDLE queue, int socket, unsigned int error,
                                                   unsigned int bytes, void* user,
                                                   QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Queues a stream send. The data is copied, in pieces of at most 16384 bytes, and each piece
 * reports its own completion with its own byte count.
 *
 * A piece that takes several system calls is reported twice: with error 0, then once more with the
 * same byte count and an error value without meaning. A piece that fails, also with EAGAIN when the
 * socket could not take it although it was ready, is reported with the bytes that have gone out and
 * dropped, and the pieces behind it are still sent: after an error with too few bytes the stream
 * has a gap.
 *
 * @param socket    a bound descriptor
 * @param data      bytes to send; may be reused on return
 * @param length    number of bytes, at least 1
 * @param user      handed to the callback
 * @param callback  reports each piece; null for no report
 * @return 0; -1 when the socket is not bound; -4 for a length below 1 or null data; -5 when the
 *         socket's pending data is over the memory limit; -6 when memory is short (pieces queued
 *         before that stay queued)
 * @par Errors         a line on standard error with -5 and -6
 * @par Thread safety  any threads
 * @par System         send(2) on the worker, epoll_ctl(2)
 * @see QIV_AsyncIO_SetIOQueueMemorySize
 */
QIV_API int QIV_AsyncIO_SendEx(int socket, const void* data, int length, void* user,
                               QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Queues a stream receive, which completes with whatever one system call brings. At most 3840
 * receives and accepts of a socket may be pending.
 *
 * @param socket    a bound descriptor
 * @param buffer    where the bytes go; must stay valid until the callback or the unbind
 * @param length    size of `buffer` in bytes
 * @param user      handed to the callback
 * @param callback  reports the outcome; 0 bytes mean that the peer closed or the receive failed.
 * Null for no report.
 * @return 0; -1 when the socket is not bound, too many requests are pending or memory is short; -4
 *         for a negative length
 * @par Errors         none on standard error
 * @par Thread safety  any threads
 * @par System         recv(2) on the worker, epoll_ctl(2)
 */
QIV_API int QIV_AsyncIO_RecvEx(int socket, void* buffer, int length, void* user,
                               QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Queues a datagram send; like QIV_AsyncIO_SendEx() otherwise (datagrams above 16384 bytes are sent
 * in pieces).
 *
 * @param socket       a bound descriptor
 * @param data         bytes to send; may be reused on return
 * @param length       number of bytes, at least 1
 * @param user         handed to the callback
 * @param destination  copied; null sends to the address that the socket is connected to
 * @param callback     reports each piece; null for no report
 * @return as QIV_AsyncIO_SendEx()
 * @par Errors         as QIV_AsyncIO_SendEx()
 * @par Thread safety  any threads
 * @par System         sendto(2) on the worker, epoll_ctl(2)
 */
QIV_API int QIV_AsyncIO_SendToEx(int socket, const void* data, int length, void* user,
                                 const QIV_ADDR_T* destination,
                                 QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Queues a datagram receive.
 *
 * @param socket    a bound descriptor
 * @param buffer    where the bytes go; must stay valid until the callback or the unbind
 * @param length    size of `buffer` in bytes
 * @param user      handed to the callback
 * @param source    receives the sender's address, as valid as `buffer`; null when not wanted
 * @param callback  reports the outcome; null for no report
 * @return as QIV_AsyncIO_RecvEx()
 * @par Errors         none on standard error
 * @par Thread safety  any threads
 * @par System         recvfrom(2) on the worker, epoll_ctl(2)
 */
QIV_API int QIV_AsyncIO_RecvFromEx(int socket, void* buffer, int length, void* user,
                                   QIV_ADDR_T* source, QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Starts a connect. Its outcome is always reported by the callback, also when it is known at once,
 * except a refusal by the first system call.
 *
 * @param socket    a bound descriptor
 * @param address   the peer; not null
 * @param unused1   not used
 * @param unused2   not used
 * @param user      handed to the callback; not null
 * @param callback  reports the outcome with 0 bytes; not null
 * @return 0; -1 when an argument is refused, the socket is not bound, 3840 requests of its sending
 *         side are pending, memory is short, or the system refuses at once (no callback follows)
 * @par Errors         errno as connect(2) left it when the system refuses at once
 * @par Thread safety  any threads
 * @par System         connect(2), getsockopt(2) with SO_ERROR on the worker, epoll_ctl(2)
 */
QIV_API int QIV_AsyncIO_ConnectEx(int socket, const QIV_ADDR_T* address, void* unused1,
                                  unsigned int unused2, void* user,
                                  QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Queues an accept of one connection on a listening socket. Writes one line to standard error on
 * every call.
 *
 * @param socket    a bound, listening descriptor
 * @param peer      receives the peer's address, must stay valid until the callback or the unbind;
 *                  null when not wanted
 * @param unused1   not used
 * @param unused2   not used
 * @param user      handed to the callback; not null
 * @param callback  reports the new descriptor as its bytes; not null
 * @return 0; -1 when an argument is refused, the socket is not bound, too many requests are pending
 *         or memory is short
 * @par Errors         the line "QIV_AsyncIO_AcceptEx %d" on standard error, always
 * @par Thread safety  any threads
 * @par System         accept(2) on the worker, epoll_ctl(2)
 */
QIV_API int QIV_AsyncIO_AcceptEx(int socket, QIV_ADDR_T* peer, void* unused1, unsigned int unused2,
                                 void* user, QIV_ASYNC_CALLBACK callback) QIV_NOEXCEPT;

/**
 * Sets how much copied data each socket may hold for sending. Without a call it is 32 MiB. A socket
 * takes the new limit at its next send.
 *
 * @param bytes  the limit in bytes of pool chunks, at least 1
 * @return 0; -1 when `bytes` is below 1 (nothing changes)
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_AsyncIO_SetIOQueueMemorySize(int bytes) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
