// A worker's thread: wakes up, harvests its epoll set under the lock, runs one request per side and
// event.
#include "aio/worker.h"

#include <fcntl.h>
#include <pthread.h>
#include <qiv/thread.h>
#include <sched.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "aio/operation.h"
#include "aio/socket_table.h"
#include "base/scoped_lock.h"

std::atomic<CSocketOperation*> gSocketOpr[qiv::aio::kSocketLimit];

namespace qiv::aio {
namespace {

using base::ScopedLock;

constexpr int kEpollSizeHint = 65536;
constexpr int kStopLookMs = 500;
constexpr unsigned int kStackBytes = 2u * 1024 * 1024;

void AskForRealTime() {
  sched_param priority = {};
  priority.sched_priority = 1;
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &priority);  // a wish: may be refused
}

bool IsConnect(const IO_DATA* request) {
  return request != nullptr && request->ioType == QIV_IO_CONNECT;
}

}  // namespace

bool Worker::Start(int mode, int maxEvents) noexcept {
  static_assert(offsetof(Worker, m_mode) == 4, "fields in order");
  static_assert(offsetof(Worker, m_epollFd) == 8, "fields in order");
  static_assert(offsetof(Worker, m_maxEvents) == 12, "fields in order");
  static_assert(offsetof(Worker, m_events) == 16, "fields in order");
  static_assert(sizeof(void*) != 4 || offsetof(Worker, m_lock) == 20, "fields in order");
  static_assert(sizeof(void*) != 4 || offsetof(Worker, m_threadId) == 44, "fields in order");
  m_mode = mode;
  m_maxEvents = maxEvents;
  m_epollFd = epoll_create(kEpollSizeHint);
  if (m_epollFd == -1) return false;
  fcntl(m_epollFd, F_SETFD, FD_CLOEXEC);
  m_events = static_cast<epoll_event*>(
      std::malloc(static_cast<std::size_t>(maxEvents) * sizeof(epoll_event)));
  if (m_events != nullptr) {
    m_threadId = QIV_Thread_Create(Main, this, kStackBytes, 0, 0, SCHED_OTHER);
    if (m_threadId != QIV_INVALID_ID) return true;
  }
  std::free(m_events);
  close(m_epollFd);
  return false;
}

void Worker::Join() { QIV_Thread_Wait(m_threadId); }

void Worker::Close() noexcept {
  DetachSockets();
  close(m_epollFd);
  std::free(m_events);
}

bool Worker::IsCurrentThread() const noexcept { return QIV_Thread_GetSelfId() == m_threadId; }

void* Worker::Main(void* worker) {
  AskForRealTime();
  static_cast<Worker*>(worker)->Run();
  return nullptr;
}

void Worker::Run() {
  while (m_stop.load(std::memory_order_acquire) == 0) {
    const int woken = epoll_wait(m_epollFd, m_events, m_maxEvents, kStopLookMs);
    if (woken > 0) HandleReadyEvents(woken);
  }
}

// The first wait has only woken the worker. What it reported may be out of date by the time that
// the lock is taken, so the events are harvested again under the lock.
void Worker::HandleReadyEvents(int count) {
  const ScopedLock lock(m_lock);
  const unsigned int nextUuid = CSocketOperation::NextUuid();
  const int ready = epoll_wait(m_epollFd, m_events, count, 0);
  for (int i = 0; i < ready; ++i) HandleEvent(m_events[i], nextUuid);
}

void Worker::HandleEvent(const epoll_event& event, unsigned int nextUuid) {
  const int socketFd = event.data.fd;
  CSocketOperation* const operation = Find(socketFd);
  if (operation == nullptr) return;
  // An object made after the harvest cannot be meant: a callback has bound the descriptor anew.
  if (IsSerialBetween(nextUuid, operation->Uuid(), CSocketOperation::NextUuid())) return;

  const bool isReadable = (event.events & EPOLLIN) != 0;
  const bool isWritable = (event.events & EPOLLOUT) != 0;
  const bool isHangUp = !isReadable && !isWritable;
  // A receive would take the error that tells the outcome of a connect, so the connect goes first.
  const bool isConnecting = IsConnect(operation->FrontSendRequest());
  if (isConnecting && !HandleSend(operation, socketFd)) return;
  // Kept: a readable event without a receive ends here, whatever the sending side would do.
  if (isReadable && operation->FrontRecvRequest() == nullptr) return;
  const bool receives = isReadable || isHangUp;
  const bool sends = (isWritable || isHangUp) && !isConnecting;
  if (receives && !HandleReceive(operation, socketFd, isHangUp)) return;
  if (sends && !HandleSend(operation, socketFd)) return;
  if (isHangUp) operation->ChangeSocketOpr(SOCKET_OPR_DEL);
}

// Runs the front receive request, if there is one. False when the object is gone.
bool Worker::HandleReceive(CSocketOperation* operation, int socketFd, bool isHangUp) {
  IO_DATA* const request = operation->FrontRecvRequest();
  if (request == nullptr) return true;
  const Identity identity(*operation);
  if (RecvOperation(m_mode, &m_lock, request) == kReceiveNotReady) {
    // A hang-up that stands although there is nothing to receive, such as a queue of socket errors
    // that nobody reads, would be reported for ever.
    if (!isHangUp || !HasHangUp(socketFd)) return true;
    GiveUpReceive(m_mode, &m_lock, request);
  }
  if (!IsStillBound(socketFd, identity)) return false;
  operation->PopRecvRequest();
  return true;
}

// Runs the front send request, if there is one. False when the object is gone.
bool Worker::HandleSend(CSocketOperation* operation, int socketFd) {
  IO_DATA* const request = operation->FrontSendRequest();
  if (request == nullptr) return true;
  // A hang-up that was reported before connect(2) began says nothing about the connect.
  if (IsConnect(request) && !ConnectIsDecided(socketFd)) return true;
  const Identity identity(*operation);
  const int length = request->length;  // read now: the callback may end the request
  const int result = SendOperation(m_mode, &m_lock, request);
  if (!IsStillBound(socketFd, identity)) return false;
  const bool isPartial = 0 < result && result < length;
  if (!isPartial) operation->PopSendRequest();
  return true;
}

// The object of a socket that belongs to this worker, or null. It stays valid while m_lock is held.
CSocketOperation* Worker::Find(int socketFd) const noexcept {
  const ScopedLock side(CSocketOperation::m_recvMutex[socketFd]);
  CSocketOperation* const operation = TableEntry(socketFd);
  return operation != nullptr && operation->EpollFd() == m_epollFd ? operation : nullptr;
}

bool Worker::IsStillBound(int socketFd, const Identity& identity) const noexcept {
  const CSocketOperation* const operation = Find(socketFd);
  return operation != nullptr && operation->Uuid() == identity.uuid &&
         operation->CreateTick() == identity.createTick;
}

// The number of this worker's epoll descriptor may be given out again once it is closed: no object
// may hold it then.
void Worker::DetachSockets() noexcept {
  for (int socketFd = 0; socketFd < kSocketLimit; ++socketFd) {
    if (gSocketOpr[socketFd].load(std::memory_order_relaxed) == nullptr) continue;
    const ScopedLock sendSide(CSocketOperation::m_sendMutex[socketFd]);
    const ScopedLock recvSide(CSocketOperation::m_recvMutex[socketFd]);
    CSocketOperation* const operation = TableEntry(socketFd);
    if (operation != nullptr && operation->EpollFd() == m_epollFd) operation->LeaveEpollSet();
  }
}

}  // namespace qiv::aio
