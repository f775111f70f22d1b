// Life of a socket's object, its receive and connect requests, and its place in the epoll set.
#include "aio/socket_operation.h"

#include <qiv/time.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <new>

#include "base/load_order.h"
#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "net/address_length.h"

using qiv::base::ScopedLock;

namespace {

constexpr std::size_t kMostPendingRequests = 3840;

}  // namespace

QIV_LOAD_ORDER(QIV_LOAD_SOCKET_UUID_MUTEX)
qiv::base::LoadTimeMutex CSocketOperation::m_gUuidMutex{-1};
QIV_LOAD_ORDER(QIV_LOAD_SOCKET_SEND_MUTEXES) qiv::aio::LazyMutexArray CSocketOperation::m_sendMutex;
QIV_LOAD_ORDER(QIV_LOAD_SOCKET_RECV_MUTEXES) qiv::aio::LazyMutexArray CSocketOperation::m_recvMutex;
std::atomic<unsigned int> CSocketOperation::m_gUuid{0};

CSocketOperation::CSocketOperation(int socketFd, int epollFd) noexcept
    : m_socketFd(socketFd),
      m_epollFd(epollFd),
      m_createTick(QIV_GetTimeTick()),
      m_recvRequestPool(sizeof(IO_DATA)),
      m_sendRequestPool(sizeof(IO_DATA)) {
  {
    const ScopedLock lock(m_gUuidMutex);
    m_uuid = m_gUuid.fetch_add(1, std::memory_order_acq_rel);
  }
  ChangeSocketOpr(SOCKET_OPR_ADD);
}

CSocketOperation::~CSocketOperation() {
  m_sendQueue.Clear();
  m_recvQueue.Clear();
  ChangeSocketOpr(SOCKET_OPR_DEL);
}

unsigned int CSocketOperation::NextUuid() noexcept {
  return m_gUuid.load(std::memory_order_acquire);
}

int CSocketOperation::PushTCPRecvRequest(void* buffer, int length, void* userData,
                                         QIV_ASYNC_CALLBACK callback) noexcept {
  return PushRecvRequest(QIV_IO_TCP_RECV, buffer, length, userData, nullptr, callback);
}

int CSocketOperation::PushUDPRecvRequest(void* buffer, int length, void* userData,
                                         QIV_ADDR_T* address,
                                         QIV_ASYNC_CALLBACK callback) noexcept {
  return PushRecvRequest(QIV_IO_UDP_RECV, buffer, length, userData, address, callback);
}

int CSocketOperation::PushAcceptRequest(void* userData, QIV_ADDR_T* address,
                                        QIV_ASYNC_CALLBACK callback) noexcept {
  return PushRecvRequest(QIV_IO_ACCEPT, nullptr, 0, userData, address, callback);
}

int CSocketOperation::PushRecvRequest(QIV_IO_TYPE type, void* buffer, int length, void* userData,
                                      QIV_ADDR_T* address, QIV_ASYNC_CALLBACK callback) noexcept {
  if (length < 0) return kBadArguments;
  const ScopedLock lock(m_recvMutex[m_socketFd]);
  if (m_recvQueue.Size() >= kMostPendingRequests || !m_recvQueue.MakeRoom()) return QIV_ERROR;
  IO_DATA* const request = NewRequest(&m_recvRequestPool, type, userData, callback);
  if (request == nullptr) return QIV_ERROR;
  request->buffer = buffer;
  request->length = length;
  request->addr = address;
  const bool fillsCallersRecord = type == QIV_IO_UDP_RECV || type == QIV_IO_ACCEPT;
  if (address != nullptr && !fillsCallersRecord) {
    request->addrCopy = *address;
    request->addr = &request->addrCopy;
  }

  const bool wasEmpty = m_recvQueue.IsEmpty();
  m_recvQueue.Append(request);
  if (wasEmpty) ChangeSocketOpr(SOCKET_OPR_ADD_READ);
  return QIV_OK;
}

int CSocketOperation::PushConnectRequest(void* userData, const QIV_ADDR_T* address,
                                         QIV_ASYNC_CALLBACK callback) noexcept {
  const ScopedLock lock(m_sendMutex[m_socketFd]);
  if (m_sendQueue.Size() >= kMostPendingRequests || !m_sendQueue.MakeRoom()) return QIV_ERROR;
  IO_DATA* const request = NewRequest(&m_sendRequestPool, QIV_IO_CONNECT, userData, callback);
  if (request == nullptr) return QIV_ERROR;
  const qiv::base::NoCancellation noCancellation;
  const int result = connect(m_socketFd, &address->any, qiv::net::AddressLength(*address));
  if (result != 0 && errno != EINPROGRESS && errno != EAGAIN) {
    m_sendRequestPool.Give(request);
    return result;
  }
  AppendSend(request);
  return QIV_OK;
}

// A zeroed record that names the socket and the report, or null when memory is short.
IO_DATA* CSocketOperation::NewRequest(qiv::aio::TrimmablePool* pool, QIV_IO_TYPE type,
                                      void* userData, QIV_ASYNC_CALLBACK callback) noexcept {
  void* const memory = pool->Take();
  if (memory == nullptr) return nullptr;
  auto* const request = new (memory) IO_DATA();
  request->socketFd = m_socketFd;
  request->ioType = type;
  request->callback = callback;
  request->userData = userData;
  return request;
}

IO_DATA* CSocketOperation::FrontSendRequest() noexcept {
  const ScopedLock lock(m_sendMutex[m_socketFd]);
  return m_sendQueue.Front();
}

IO_DATA* CSocketOperation::FrontRecvRequest() noexcept {
  const ScopedLock lock(m_recvMutex[m_socketFd]);
  return m_recvQueue.Front();
}

void CSocketOperation::PopSendRequest() noexcept {
  const ScopedLock lock(m_sendMutex[m_socketFd]);
  IO_DATA* const request = m_sendQueue.Front();
  if (request == nullptr) return;
  if (request->length > 0) {
    m_dataPool.Give(request->buffer, request->length);
    m_usedDataMemory -= CDataMemoryPool::ClassSize(request->length);
  }
  m_sendRequestPool.Give(request);
  m_sendQueue.RemoveFront();
  if (m_sendQueue.IsEmpty()) ChangeSocketOpr(SOCKET_OPR_DEL_WRITE);
}

void CSocketOperation::PopRecvRequest() noexcept {
  const ScopedLock lock(m_recvMutex[m_socketFd]);
  IO_DATA* const request = m_recvQueue.Front();
  if (request == nullptr) return;
  m_recvRequestPool.Give(request);
  m_recvQueue.RemoveFront();
  if (m_recvQueue.IsEmpty()) ChangeSocketOpr(SOCKET_OPR_DEL_READ);
}

int CSocketOperation::ChangeSocketOpr(__SOCKET_OPR operation) noexcept {
  switch (operation) {
    case SOCKET_OPR_ADD: {
      const ScopedLock lock(m_lock);
      return Register();
    }
    case SOCKET_OPR_DEL:
      return UnregisterIfIdle();
    case SOCKET_OPR_ADD_READ:
      return AddEvents(EPOLLIN);
    case SOCKET_OPR_DEL_READ:
      return RemoveEvents(EPOLLIN);
    case SOCKET_OPR_ADD_WRITE:
      return AddEvents(EPOLLOUT);
    case SOCKET_OPR_DEL_WRITE:
      return RemoveEvents(EPOLLOUT);
  }
  return QIV_ERROR;
}

void CSocketOperation::LeaveEpollSet() noexcept {
  const ScopedLock lock(m_lock);
  m_epollFd = -1;
  m_events = 0;
}

int CSocketOperation::SetEvents(int control, unsigned int events) noexcept {
  epoll_event event = {};
  event.events = events;
  event.data.fd = m_socketFd;
  const int result = epoll_ctl(m_epollFd, control, m_socketFd, &event);
  if (result == 0) m_events = events;
  return result;
}

int CSocketOperation::Register() noexcept { return SetEvents(EPOLL_CTL_ADD, EPOLLERR | EPOLLHUP); }

// The queues are read, so both side mutexes are taken, in the order of every other place.
int CSocketOperation::UnregisterIfIdle() noexcept {
  const ScopedLock sendLock(m_sendMutex[m_socketFd]);
  const ScopedLock recvLock(m_recvMutex[m_socketFd]);
  const ScopedLock lock(m_lock);
  if (m_events == 0 || !m_sendQueue.IsEmpty() || !m_recvQueue.IsEmpty()) return QIV_OK;
  return SetEvents(EPOLL_CTL_DEL, 0);
}

int CSocketOperation::AddEvents(unsigned int events) noexcept {
  const ScopedLock lock(m_lock);
  if (m_events == 0) Register();
  return SetEvents(EPOLL_CTL_MOD, m_events | events);
}

int CSocketOperation::RemoveEvents(unsigned int events) noexcept {
  const ScopedLock lock(m_lock);
  return SetEvents(EPOLL_CTL_MOD, m_events & ~events);
}
