// A completion queue and what is bound to it, taken apart in the right order.
#ifndef QIV_TESTS_AIO_QUEUE_FIXTURE_H
#define QIV_TESTS_AIO_QUEUE_FIXTURE_H

#include <qiv/async_io.h>

#include <cstdint>
#include <string>

#include "support/completions.h"
#include "support/latch.h"
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

/** Every test runs with callbacks under the lock (mode 1) and without. */
class BothModesTest : public LeakCheckedTest, public ::testing::WithParamInterface<int> {
 protected:
  int Mode() const { return GetParam(); }
};

inline std::string ModeName(const ::testing::TestParamInfo<int>& mode) {
  return "Mode" + std::to_string(mode.param);
}

/** Keeps a one-worker queue's worker in a callback until it is let go. */
class BusyWorker {
 public:
  explicit BusyWorker(const Queue& queue) : m_bound(queue, m_pair.first) {
    m_completions.onCompletion = [this](const Completion&) {
      m_entered.Open();
      EXPECT_TRUE(m_mayGo.Wait());
    };
    EXPECT_EQ(0, QIV_AsyncIO_RecvEx(m_pair.first.Get(), &m_byte, 1, &m_completions,
                                    Completions::Callback));
    WriteAll(m_pair.second, "x");
    EXPECT_TRUE(m_entered.Wait());
  }
  ~BusyWorker() { LetGo(); }
  void LetGo() {
    m_mayGo.Open();
    EXPECT_TRUE(m_completions.WaitFor(1));
  }

  int BusySocket() const { return m_pair.first.Get(); }
  void ForgetBinding() { m_bound.Forget(); }

 private:
  TcpPair m_pair;
  Bound m_bound;
  Completions m_completions;
  Latch m_entered;
  Latch m_mayGo;
  char m_byte = 0;
};

}  // namespace qiv::test

#endif
