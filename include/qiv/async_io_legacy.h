/**
 * @file
 * The first asynchronous interface, kept so that programs linked with it still load: every call
 * fails, and nothing is started. Use async_io.h, whose names end in Ex.
 *
 * The functions take any arguments and look at none. In C before C23 they are therefore declared
 * without a prototype, of which compilers may warn where they are called.
 * QIV_AsyncIO_CreateQueueEx() is no relative of QIV_AIO_CreateQueueEx() and
 * QIV_AsyncIO_CreateQueueEx_New(), which work.
 */
#ifndef QIV_ASYNC_IO_LEGACY_H
#define QIV_ASYNC_IO_LEGACY_H

#include <qiv/address.h>
#include <qiv/types.h>

/** The parameters of a function that takes any arguments. */
#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202311L)
#define QIV_ANY_ARGUMENTS ...
#else
#define QIV_ANY_ARGUMENTS
#endif

QIV_EXTERN_C_BEGIN

/**
 * Would report the outcome of one request; is never called.
 *
 * @param error  an errno value
 * @param bytes  bytes sent or received
 * @param user   the caller's value from the request
 */
typedef void (*QIV_ASYNC_LEGACY_CALLBACK)(unsigned long error, unsigned long bytes, void* user);

#ifndef __cplusplus
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
#endif

/**
 * Would create a queue.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_CreateQueueEx2
 */
QIV_API int QIV_AsyncIO_CreateQueue(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would create a queue with a number of workers.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AIO_CreateQueueEx
 */
QIV_API int QIV_AsyncIO_CreateQueueEx(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would destroy a queue.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_DestroyQueueEx
 */
QIV_API int QIV_AsyncIO_DestroyQueue(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would bind a handle to a queue.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_BindIOHandleToQueueEx
 */
QIV_API int QIV_AsyncIO_BindIOHandleToQueue(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would set the callback of a handle.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_BindCallBackToIOHandleEx
 */
QIV_API int QIV_AsyncIO_BindCallBackToIOHandle(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would post a completion.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_PostQueuedCompleteStatusEx
 */
QIV_API int QIV_AsyncIO_PostQueuedCompleteStatus(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would queue a stream send.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_SendEx
 */
QIV_API int QIV_AsyncIO_Send(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would queue a stream receive.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_RecvEx
 */
QIV_API int QIV_AsyncIO_Recv(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would queue a datagram send.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_SendToEx
 */
QIV_API int QIV_AsyncIO_SendTo(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would queue a datagram receive.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_AsyncIO_RecvFromEx
 */
QIV_API int QIV_AsyncIO_RecvFrom(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would queue a write to a file.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_WriteFile
 */
QIV_API int QIV_AsyncIO_WriteFile(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

/**
 * Would queue a read from a file.
 *
 * @return -1
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 * @see QIV_ReadFile
 */
QIV_API int QIV_AsyncIO_ReadFile(QIV_ANY_ARGUMENTS) QIV_NOEXCEPT;

#ifndef __cplusplus
#pragma GCC diagnostic pop
#endif

#undef QIV_ANY_ARGUMENTS

QIV_EXTERN_C_END

#ifdef __cplusplus

/** A queue of the first interface, which cannot be created. One thread at a time. */
class QIV_API QIV_AsyncIOQueue {
 public:
  /** A queue with the handle 0. */
  QIV_AsyncIOQueue() noexcept;
  /** Does nothing: the handle is not released. */
  ~QIV_AsyncIOQueue();

  /** Makes the handle what QIV_AsyncIO_CreateQueue() returns: -1. @return -1 */
  int Initialize() noexcept;
  /**
   * Closes the handle unless it is -1. Without an Initialize() before, that is descriptor 0: the
   * process's standard input. System: close(2).
   *
   * @return 0
   */
  int Release();
  /** The handle: 0, or -1 after Initialize(). */
  int GetHandle() const noexcept;

 private:
  int m_handle;
};

/** Requests of the first interface on one handle; every one fails. Any threads. */
class QIV_API QIV_AsyncIO {
 public:
  /** @param handle  kept, and looked at by nobody */
  QIV_AsyncIO(void* handle) noexcept;
  /** Does nothing: the handle is the caller's. */
  ~QIV_AsyncIO();

  /** Calls QIV_AsyncIO_BindCallBackToIOHandle() unless the callback is null. @return -1 */
  int BindCallBackToIOHandle(QIV_ASYNC_LEGACY_CALLBACK callback) noexcept;
  /** Calls QIV_AsyncIO_Send(). @return -1 */
  int IOSend(void* buffer, unsigned long length, void* user) noexcept;
  /** Calls QIV_AsyncIO_Recv(). @return -1 */
  int IORecv(void* buffer, unsigned long length, void* user) noexcept;
  /** Calls QIV_AsyncIO_SendTo(). @return -1 */
  int IOSendTo(void* buffer, unsigned long length, void* user, QIV_ADDR_T* destination) noexcept;
  /** Calls QIV_AsyncIO_RecvFrom(). @return -1 */
  int IORecvFrom(void* buffer, unsigned long length, void* user, QIV_ADDR_T* source) noexcept;
  /** Calls QIV_AsyncIO_WriteFile(). @return -1 */
  int IOWriteFile(void* buffer, unsigned long length, void* user) noexcept;
  /** Calls QIV_AsyncIO_ReadFile(). @return -1 */
  int IOReadFile(void* buffer, unsigned long length, void* user) noexcept;
  /** Calls QIV_AsyncIO_BindIOHandleToQueue() unless the queue is null. @return -1 */
  int BindIOHandleToQueue(QIV_AsyncIOQueue* queue) noexcept;

 private:
  void* m_handle;
};

#endif  // __cplusplus

#endif
