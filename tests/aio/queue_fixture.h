// A completion queue and what is bound to it, taken apart in the right order.
#ifndef QIV_TESTS_AIO_QUEUE_FIXTURE_H
#define QIV_TESTS_AIO_QUEUE_FIXTURE_H

#include <qiv/async_io.h>

#include <cstdint>

#include "support/leak_check.h"
#include "support/sockets.h"

namespace qiv::test {

inline QIV_HANDLE InvalidQueue() {
  return reinterpret_cast<QIV_HANDLE>(static_cast<std::intptr_t>(-1));
}

/** Owns a queue. */
class Queue {
 public:
  explicit Queue(int workers, int mode = 0) : m_queue(QIV_AIO_CreateQueueEx(workers, mode)) {}
  ~Queue() { Destroy(); }
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  QIV_HANDLE Get() const { return m_queue; }
  void Destroy() {
    if (m_queue != nullptr) QIV_AsyncIO_DestroyQueueEx(m_queue);
    m_queue = nullptr;
  }

 private:
  QIV_HANDLE m_queue;
};

/** Binds a socket and unbinds it again. */
class Bound {
 public:
  Bound(const Queue& queue, const Socket& socket) : m_queue(queue.Get()), m_socket(socket.Get()) {
    EXPECT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(m_socket, m_queue));
  }
  ~Bound() { Unbind(); }
  Bound(const Bound&) = delete;
  Bound& operator=(const Bound&) = delete;

  void Unbind() {
    if (m_socket == -1) return;
    EXPECT_EQ(0, QIV_AsyncIO_UnBindIOHandleEx(m_socket, m_queue));
    m_socket = -1;
  }

  /** The socket was unbound by somebody else. */
  void Forget() { m_socket = -1; }

 private:
  QIV_HANDLE m_queue;
  int m_socket;
};

}  // namespace qiv::test

#endif
