// Events that stand for a socket: binding them, and telling what happened on the socket.
//
// The record's mutex is held while an event loses its pipe and is bound, so that it is not being
// set or reset meanwhile. Waits take no lock; they store what they found in atomics.
#include <qiv/debug.h>
#include <qiv/event.h>
#include <qiv/socket.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "sync/event.h"

namespace qiv::sync {
namespace {

constexpr int kSignalled = 0;
constexpr int kNotSignalled = -1;
constexpr std::size_t kConnectSlot = 4;

static_assert(sizeof(QIV_NETWORK_EVENTS_T) == 44, "a mask and ten errors");
static_assert(offsetof(QIV_NETWORK_EVENTS_T, errors) == 4, "the errors follow the mask");

void Found(QIV_EVENT_T& record, unsigned int event) {
  record.triggeredEvent.store(event, std::memory_order_relaxed);
}

void Found(QIV_EVENT_T& record, unsigned int event, int error) {
  record.errorCode.store(error, std::memory_order_relaxed);
  Found(record, event);
}

void FindReadOrClose(QIV_EVENT_T& record, int socket) {
  int waiting = 0;
  if (ioctl(socket, FIONREAD, &waiting) == -1) return Found(record, 0, errno);
  Found(record, waiting < 1 ? QIV_EVENT_CLOSE : QIV_EVENT_READ, 0);
}

void FindConnect(QIV_EVENT_T& record, int socket) {
  int error = 0;
  socklen_t length = sizeof(error);
  const int result = getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length);
  // Kept: a pending error is not stored, the record keeps the one it has.
  if (result == 0 && error == 0) return Found(record, QIV_EVENT_CONNECT, 0);
  Found(record, QIV_EVENT_CONNECT);
}

unsigned int PollModeFor(unsigned int mask) {
  if ((mask & QIV_EVENT_CONNECT) != 0) return kPollForReading | kPollForWriting;
  unsigned int mode = 0;
  if ((mask & (QIV_EVENT_READ | QIV_EVENT_ACCEPT | QIV_EVENT_CLOSE)) != 0) mode |= kPollForReading;
  if ((mask & QIV_EVENT_WRITE) != 0) mode |= kPollForWriting;
  return mode;
}

void Bind(QIV_EVENT_T& record, int socket, unsigned int mask) {
  const base::ScopedLock lock(record.mutex);
  ClosePipe(record);
  record.networkEventMask.store(mask, std::memory_order_relaxed);
  record.socket.store(socket, std::memory_order_relaxed);
  QIV_SetNonBlock(socket, 1);
  record.pollMode.store(PollModeFor(mask), std::memory_order_relaxed);
}

}  // namespace

int QIV_GetEventTriggeredFlag_Inter(QIV_EVENT_T* record, const pollfd* entry) {
  const bool isReadable = (entry->revents & POLLRDNORM) != 0;
  const bool isWritable = (entry->revents & POLLWRNORM) != 0;
  if (!isReadable && !isWritable) return kNotSignalled;
  if (isReadable && ReadEnd(*record) != kNoDescriptor) return kSignalled;

  const unsigned int mask = record->networkEventMask.load(std::memory_order_relaxed);
  const int socket = record->socket.load(std::memory_order_relaxed);
  if ((mask & QIV_EVENT_CONNECT) != 0) {
    FindConnect(*record, socket);
    return kSignalled;
  }
  if (isReadable && (mask & (QIV_EVENT_READ | QIV_EVENT_CLOSE)) != 0) {
    FindReadOrClose(*record, socket);
    return kSignalled;
  }
  if (isWritable && (mask & QIV_EVENT_WRITE) != 0) {
    Found(*record, QIV_EVENT_WRITE, 0);
    return kSignalled;
  }
  if ((mask & QIV_EVENT_ACCEPT) == 0) return kNotSignalled;
  Found(*record, QIV_EVENT_ACCEPT);
  return kSignalled;
}

}  // namespace qiv::sync

extern "C" {

int QIV_EventSelect(int socket, QIV_HANDLE event, unsigned int mask) noexcept {
  using namespace qiv::sync;
  if (socket == kNoDescriptor || event == nullptr || mask == 0) {
    QIV_OutputDebug("zelmar !!! QIV_EventSelect input param error return error 0\n");
    return QIV_ERROR;
  }
  const qiv::base::NoCancellation noCancellation;
  Bind(*RecordOf(event), socket, mask);
  return QIV_OK;
}

int QIV_EnumNetworkEvents(int socket, QIV_HANDLE event, void* result) noexcept {
  using namespace qiv::sync;
  if (socket == kNoDescriptor || event == nullptr || result == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_EnumNetworkEvents input param error return error 0\n");
    return QIV_ERROR;
  }
  const qiv::base::NoCancellation noCancellation;
  // Kept: its result does not matter, but what it says on standard error appears.
  QIV_WaitForSingleObject(event, 0);

  const QIV_EVENT_T& record = *RecordOf(event);
  auto* const bytes = static_cast<unsigned char*>(result);
  const int error = record.errorCode.load(std::memory_order_relaxed);
  const unsigned int mask = record.networkEventMask.load(std::memory_order_relaxed);
  if (error != 0 && (mask & QIV_EVENT_CONNECT) != 0) {
    const std::size_t offset =
        offsetof(QIV_NETWORK_EVENTS_T, errors) + kConnectSlot * sizeof(error);
    std::memcpy(bytes + offset, &error, sizeof(error));
  }
  const unsigned int triggered = record.triggeredEvent.load(std::memory_order_relaxed);
  std::memcpy(bytes, &triggered, sizeof(triggered));
  return QIV_OK;
}

}  // extern "C"
