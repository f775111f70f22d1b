// The exported requests: each checks its socket, takes one side mutex and queues on the object.
#include <qiv/async_io.h>
#include <qiv/thread.h>

#include <memory>
#include <new>

#include "aio/io_data.h"
#include "aio/socket_table.h"
#include "base/diagnostic.h"
#include "base/scoped_lock.h"

namespace {

using qiv::aio::kSocketLimit;
using qiv::aio::LazyMutexArray;
using qiv::aio::TableEntry;
using qiv::base::ScopedLock;

constexpr unsigned int kPostStackBytes = 2u * 1024 * 1024;

/** Calls `push` on a bound socket's object while holding the socket's mutex of one side. */
template <class Push>
int WithSocket(LazyMutexArray& side, int socket, const Push& push) {
  if (socket < 0 || socket >= kSocketLimit) return QIV_ERROR;
  const ScopedLock lock(side[socket]);
  CSocketOperation* const operation = TableEntry(socket);
  return operation == nullptr ? QIV_ERROR : push(*operation);
}

template <class Push>
int WithSendSide(int socket, const Push& push) {
  return WithSocket(CSocketOperation::m_sendMutex, socket, push);
}

template <class Push>
int WithRecvSide(int socket, const Push& push) {
  return WithSocket(CSocketOperation::m_recvMutex, socket, push);
}

void* RunPostedCompletion(void* record) {
  const std::unique_ptr<const IO_DATA> posted(static_cast<const IO_DATA*>(record));
  posted->callback(static_cast<unsigned int>(posted->errorCode),
                   static_cast<unsigned int>(posted->doneBytes), posted->userData);
  return nullptr;
}

}  // namespace

extern "C" {

int QIV_AsyncIO_PostQueuedCompleteStatusEx(QIV_HANDLE /*queue*/, int socket, unsigned int error,
                                           unsigned int bytes, void* user,
                                           QIV_ASYNC_CALLBACK callback) noexcept {
  if (callback == nullptr) return QIV_ERROR;
  std::unique_ptr<IO_DATA> posted(new (std::nothrow) IO_DATA());
  if (posted == nullptr) return QIV_ERROR;
  posted->socketFd = socket;
  posted->errorCode = static_cast<int>(error);
  posted->length = static_cast<int>(bytes);
  posted->doneBytes = static_cast<int>(bytes);
  posted->userData = user;
  posted->callback = callback;
  if (QIV_ThreadDetached_Create(RunPostedCompletion, posted.get(), kPostStackBytes) != QIV_TRUE) {
    return QIV_ERROR;
  }
  static_cast<void>(posted.release());  // the thread's now
  return QIV_OK;
}

int QIV_AsyncIO_SendEx(int socket, const void* data, int length, void* user,
                       QIV_ASYNC_CALLBACK callback) noexcept {
  return WithSendSide(socket, [&](CSocketOperation& operation) {
    return operation.PushTCPSendRequest(data, length, user, callback);
  });
}

int QIV_AsyncIO_RecvEx(int socket, void* buffer, int length, void* user,
                       QIV_ASYNC_CALLBACK callback) noexcept {
  return WithRecvSide(socket, [&](CSocketOperation& operation) {
    return operation.PushTCPRecvRequest(buffer, length, user, callback);
  });
}

int QIV_AsyncIO_SendToEx(int socket, const void* data, int length, void* user,
                         const QIV_ADDR_T* destination, QIV_ASYNC_CALLBACK callback) noexcept {
  return WithSendSide(socket, [&](CSocketOperation& operation) {
    return operation.PushUDPSendRequest(data, length, user, destination, callback);
  });
}

int QIV_AsyncIO_RecvFromEx(int socket, void* buffer, int length, void* user, QIV_ADDR_T* source,
                           QIV_ASYNC_CALLBACK callback) noexcept {
  return WithRecvSide(socket, [&](CSocketOperation& operation) {
    return operation.PushUDPRecvRequest(buffer, length, user, source, callback);
  });
}

int QIV_AsyncIO_ConnectEx(int socket, const QIV_ADDR_T* address, void* /*unused1*/,
                          unsigned int /*unused2*/, void* user,
                          QIV_ASYNC_CALLBACK callback) noexcept {
  if (address == nullptr || user == nullptr || callback == nullptr) return QIV_ERROR;
  return WithSendSide(socket, [&](CSocketOperation& operation) {
    return operation.PushConnectRequest(user, address, callback);
  });
}

int QIV_AsyncIO_AcceptEx(int socket, QIV_ADDR_T* peer, void* /*unused1*/, unsigned int /*unused2*/,
                         void* user, QIV_ASYNC_CALLBACK callback) noexcept {
  qiv::base::Diagnose("QIV_AsyncIO_AcceptEx %d\n", socket);
  if (user == nullptr || callback == nullptr) return QIV_ERROR;
  return WithRecvSide(socket, [&](CSocketOperation& operation) {
    return operation.PushAcceptRequest(user, peer, callback);
  });
}

int QIV_AsyncIO_SetIOQueueMemorySize(int bytes) noexcept {
  if (bytes < 1) return QIV_ERROR;
  g_max_socket_send_dataMemory.store(bytes, std::memory_order_relaxed);
  return QIV_OK;
}

}  // extern "C"
