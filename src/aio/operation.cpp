#include "aio/operation.h"

#include <poll.h>
#include <qiv/socket.h>
#include <sys/socket.h>

#include <cerrno>

namespace {

// The request is not touched once the callback runs.
void Report(int mode, QIV_Mutex* workerLock, const IO_DATA& request) QIV_REQUIRES(workerLock) {
  const QIV_ASYNC_CALLBACK callback = request.callback;
  const auto error = static_cast<unsigned int>(request.errorCode);
  const auto bytes = static_cast<unsigned int>(request.doneBytes);
  void* const userData = request.userData;
  if (callback == nullptr) return;
  if (mode == kCallbackUnderLock) {
    callback(error, bytes, userData);
    return;
  }
  workerLock->Unlock();
  callback(error, bytes, userData);
  workerLock->Lock();
}

int ConnectError(int socketFd) {
  int error = 0;
  socklen_t length = sizeof(error);
  return getsockopt(socketFd, SOL_SOCKET, SO_ERROR, &error, &length) == 0 ? error : errno;
}

int SendSome(const IO_DATA& request) {
  const char* rest = static_cast<const char*>(request.buffer) + request.doneBytes;
  const auto length = static_cast<unsigned int>(request.length - request.doneBytes);
  if (request.ioType == QIV_IO_TCP_SEND || request.addr == nullptr) {
    return QIV_Send(request.socketFd, rest, length);
  }
  return QIV_SendTo(request.socketFd, rest, length, request.addr);
}

int Accept(const IO_DATA& request) {
  socklen_t length = sizeof(QIV_ADDR_T);
  return accept(request.socketFd, reinterpret_cast<sockaddr*>(request.addr),
                request.addr == nullptr ? nullptr : &length);
}

int Receive(const IO_DATA& request) {
  const auto length = static_cast<unsigned int>(request.length);
  switch (request.ioType) {
    case QIV_IO_TCP_RECV:
      return QIV_Recv(request.socketFd, request.buffer, length);
    case QIV_IO_UDP_RECV:
      return QIV_RecvFrom(request.socketFd, request.buffer, length, request.addr);
    default:
      return Accept(request);
  }
}

}  // namespace

int SendOperation(int mode, QIV_Mutex* workerLock, IO_DATA* request) {
  if (request->ioType == QIV_IO_CONNECT) {
    request->errorCode = ConnectError(request->socketFd);
    request->doneBytes = 0;
    const int result = request->errorCode == 0 ? 0 : -1;
    Report(mode, workerLock, *request);
    return result;
  }
  if (request->ioType != QIV_IO_TCP_SEND && request->ioType != QIV_IO_UDP_SEND) return -1;

  const int rest = request->length - request->doneBytes;
  const int sent = SendSome(*request);
  // Kept: EAGAIN is reported like any other error, and a piece that a partial send has finished is
  // sent once more with no bytes, which reports it a second time.
  if (sent <= 0) {
    request->errorCode = errno;
    Report(mode, workerLock, *request);
    return sent;
  }
  request->doneBytes += sent;
  if (sent < rest) return request->doneBytes;
  request->errorCode = 0;
  Report(mode, workerLock, *request);
  return sent;
}

int RecvOperation(int mode, QIV_Mutex* workerLock, IO_DATA* request) {
  const bool isAccept = request->ioType == QIV_IO_ACCEPT;
  if (!isAccept && request->ioType != QIV_IO_TCP_RECV && request->ioType != QIV_IO_UDP_RECV) {
    return -1;
  }
  const int result = Receive(*request);
  if (result < 0 && errno == EAGAIN) return kReceiveNotReady;
  // Kept: a result of 0 is reported with whatever errno holds.
  request->errorCode = result > 0 ? 0 : errno;
  request->doneBytes = result < 0 && !isAccept ? 0 : result;
  Report(mode, workerLock, *request);
  return result;
}

void GiveUpReceive(int mode, QIV_Mutex* workerLock, IO_DATA* request) {
  request->errorCode = EAGAIN;
  request->doneBytes = request->ioType == QIV_IO_ACCEPT ? -1 : 0;
  Report(mode, workerLock, *request);
}

bool HasHangUp(int socketFd) {
  pollfd record = {socketFd, 0, 0};  // errors and hang-ups are always asked for
  return poll(&record, 1, 0) == 1;
}

bool ConnectIsDecided(int socketFd) {
  pollfd record = {socketFd, POLLOUT, 0};
  return poll(&record, 1, 0) != 0;
}
