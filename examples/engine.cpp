#include "engine.h"

#include <netinet/in.h>
#include <qiv/library.h>
#include <qiv/socket.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <system_error>

namespace echo {
namespace {

// Runs callbacks with their worker's lock held, which makes an unbind on another thread wait for
// the callback that is running: the guarantee that BoundSocket gives.
constexpr int kLockedCallbacks = 1;

// What QIV_AIO_CreateQueueEx() returns on failure: all bits set, not null.
bool IsQueue(QIV_HANDLE queue) { return reinterpret_cast<std::intptr_t>(queue) != -1; }

}  // namespace

Library::Library() {
  if (QIV_Init() != QIV_OK) {
    throw std::runtime_error("cannot start the library");
  }
}

Library::~Library() { QIV_Fini(); }

CompletionQueue::CompletionQueue(int workers)
    : m_queue(QIV_AIO_CreateQueueEx(workers, kLockedCallbacks)) {
  if (!IsQueue(m_queue)) {
    throw std::system_error(errno, std::generic_category(), "cannot create a completion queue");
  }
}

CompletionQueue::~CompletionQueue() { QIV_AsyncIO_DestroyQueueEx(m_queue); }

BoundSocket::BoundSocket(int descriptor, const CompletionQueue& queue)
    : m_descriptor(descriptor), m_queue(queue.Handle()) {
  if (QIV_AsyncIO_BindIOHandleToQueueEx(m_descriptor, m_queue) != QIV_OK) {
    QIV_CloseSocket(m_descriptor, 0);
    throw std::runtime_error("cannot bind a socket to the completion queue");
  }
}

BoundSocket::~BoundSocket() { Close(); }

void BoundSocket::Close() {
  if (m_descriptor == -1) {
    return;
  }
  // In this order: once it is closed, the number may belong to another socket.
  QIV_AsyncIO_UnBindIOHandleEx(m_descriptor, m_queue);
  QIV_CloseSocket(m_descriptor, 0);
  m_descriptor = -1;
}

int NewStreamSocket() {
  const int descriptor = QIV_CreateSocket(AF_INET, SOCK_STREAM, 0);
  if (descriptor == -1) {
    throw std::system_error(errno, std::generic_category(), "cannot create a socket");
  }
  return descriptor;
}

QIV_ADDR_T LoopbackAddress(int port) {
  QIV_ADDR_T address;
  QIV_MakeAddr4ByInt(htonl(INADDR_LOOPBACK), static_cast<unsigned short>(port), &address);
  return address;
}

}  // namespace echo
