// Many connections at once between two queues: every message comes back byte by byte.
#include <gtest/gtest.h>
#include <qiv/async_io.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "aio/queue_fixture.h"
#include "support/latch.h"

namespace {

using qiv::test::Latch;
using qiv::test::Queue;
using qiv::test::Socket;

constexpr int kMessagesPerConnection = 200;
constexpr int kLargestMessage = 40000;

// What messages are cut from, so that checking them costs a comparison only.
const std::string& Source() {
  static const std::string source = qiv::test::Pattern(3 * kLargestMessage, 77);
  return source;
}

/** Sends back whatever arrives on the sockets that it accepts. */
class EchoServer {
 public:
  EchoServer() {
    EXPECT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(m_listener.Get(), m_queue.Get()));
    AcceptNext();
  }
  ~EchoServer() {
    QIV_AsyncIO_UnBindIOHandleEx(m_listener.Get(), m_queue.Get());
    for (const auto& peer : m_peers) {
      QIV_AsyncIO_UnBindIOHandleEx(peer->socket.Get(), m_queue.Get());
    }
    m_queue.Destroy();
  }

  QIV_ADDR_T Address() const { return qiv::test::AddressOf(m_listener); }

 private:
  struct Peer {
    Socket socket;
    char buffer[8192];
  };

  void AcceptNext() {
    EXPECT_EQ(0, QIV_AsyncIO_AcceptEx(m_listener.Get(), nullptr, nullptr, 0, this, OnAccepted));
  }

  static void OnAccepted(unsigned int error, unsigned int descriptor, void* user) {
    auto* const self = static_cast<EchoServer*>(user);
    ASSERT_EQ(0u, error);
    auto peer = std::make_unique<Peer>();
    peer->socket = Socket(static_cast<int>(descriptor));
    EXPECT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(peer->socket.Get(), self->m_queue.Get()));
    ReceiveNext(peer.get());
    self->m_peers.push_back(std::move(peer));
    self->AcceptNext();
  }

  static void ReceiveNext(Peer* peer) {
    EXPECT_EQ(0, QIV_AsyncIO_RecvEx(peer->socket.Get(), peer->buffer, sizeof(peer->buffer), peer,
                                    OnReceived));
  }

  static void OnReceived(unsigned int /*error*/, unsigned int bytes, void* user) {
    auto* const peer = static_cast<Peer*>(user);
    if (bytes == 0) return;
    EXPECT_EQ(0, QIV_AsyncIO_SendEx(peer->socket.Get(), peer->buffer, static_cast<int>(bytes),
                                    nullptr, nullptr));
    ReceiveNext(peer);
  }

  Socket m_listener = qiv::test::Listener(AF_INET, 1024);
  std::vector<std::unique_ptr<Peer>> m_peers;
  Queue m_queue{2, 0};
};

/** Counts connections that have had all their messages back. */
struct Progress {
  explicit Progress(int connections) : left(connections) {}
  std::atomic<int> left;
  std::atomic<int> failures{0};
  Latch done;

  void Finish() {
    if (left.fetch_sub(1) == 1) done.Open();
  }
};

/** Sends one message after another and compares what comes back. */
class Client {
 public:
  Client(const Queue& queue, const QIV_ADDR_T& server, unsigned int seed, Progress* progress)
      : m_queue(queue.Get()), m_random(seed + 1), m_progress(progress) {
    EXPECT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(m_socket.Get(), m_queue));
    EXPECT_EQ(0, QIV_AsyncIO_ConnectEx(m_socket.Get(), &server, nullptr, 0, this, OnConnected));
  }
  ~Client() { EXPECT_EQ(0, QIV_AsyncIO_UnBindIOHandleEx(m_socket.Get(), m_queue)); }

 private:
  static void OnConnected(unsigned int error, unsigned int /*bytes*/, void* user) {
    auto* const self = static_cast<Client*>(user);
    if (error != 0) {
      self->Fail();
    } else {
      self->SendNext();
    }
  }

  static void OnReceived(unsigned int /*error*/, unsigned int bytes, void* user) {
    static_cast<Client*>(user)->Check(bytes);
  }

  void Check(unsigned int bytes) {
    const bool isEqual = std::memcmp(m_buffer, Source().data() + m_offset + m_received, bytes) == 0;
    if (bytes == 0 || !isEqual) {
      Fail();
      return;
    }
    m_received += bytes;
    if (m_received < m_size) {
      Receive();
    } else if (++m_messages == kMessagesPerConnection) {
      m_progress->Finish();
    } else {
      SendNext();
    }
  }

  // Most messages are small, some are split into pieces.
  void SendNext() {
    const auto kind = m_random() % 20;
    const std::size_t limit = kind < 14 ? 256 : kind < 19 ? 4096 : kLargestMessage;
    m_size = 1 + m_random() % limit;
    m_offset = m_random() % (2 * kLargestMessage);
    m_received = 0;
    EXPECT_EQ(0, QIV_AsyncIO_SendEx(m_socket.Get(), Source().data() + m_offset,
                                    static_cast<int>(m_size), nullptr, nullptr));
    Receive();
  }

  void Receive() {
    EXPECT_EQ(0, QIV_AsyncIO_RecvEx(
                     m_socket.Get(), m_buffer,
                     static_cast<int>(std::min<std::size_t>(sizeof(m_buffer), m_size - m_received)),
                     this, OnReceived));
  }

  void Fail() {
    m_progress->failures.fetch_add(1);
    m_progress->Finish();
  }

  QIV_HANDLE m_queue;
  Socket m_socket = qiv::test::TcpSocket();
  std::minstd_rand m_random;
  Progress* m_progress;
  int m_messages = 0;
  std::size_t m_size = 0;
  std::size_t m_offset = 0;
  std::size_t m_received = 0;
  char m_buffer[4096];
};

class AsyncStressTest : public qiv::test::LeakCheckedTest {};

TEST_F(AsyncStressTest, FiveHundredConnectionsGetEveryMessageBack) {
  constexpr unsigned int kSeed = 20250;
  RecordProperty("seed", static_cast<int>(kSeed));
  const int connections = qiv::test::ScaledLoad(500);
  Source();
  EchoServer server;
  Queue queue(2, 1);
  Progress progress(connections);
  std::vector<std::unique_ptr<Client>> clients;
  for (int i = 0; i < connections; ++i) {
    clients.push_back(std::make_unique<Client>(queue, server.Address(),
                                               kSeed + static_cast<unsigned int>(i), &progress));
  }
  EXPECT_TRUE(progress.done.Wait()) << progress.left.load() << " connections are not done";
  clients.clear();
  queue.Destroy();
  EXPECT_EQ(0, progress.failures.load());
}

}  // namespace
