// Requests carried out by a running queue, end to end.
#include <gtest/gtest.h>
#include <qiv/async_io.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "aio/queue_fixture.h"
#include "support/completions.h"
#include "support/latch.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::Bound;
using qiv::test::Completion;
using qiv::test::Completions;
using qiv::test::Latch;
using qiv::test::Queue;
using qiv::test::Socket;
using qiv::test::TcpPair;

/** Every test runs with callbacks under the lock (mode 1) and without. */
class RequestsTest : public qiv::test::LeakCheckedTest, public ::testing::WithParamInterface<int> {
 protected:
  int Mode() const { return GetParam(); }
};

INSTANTIATE_TEST_SUITE_P(Modes, RequestsTest, ::testing::Values(0, 1),
                         [](const auto& mode) { return "Mode" + std::to_string(mode.param); });

TEST_P(RequestsTest, SendOf40000BytesIsReportedInThreePieces) {
  const Queue queue(1, Mode());
  const TcpPair pair;
  const Bound bound(queue, pair.first);
  Completions completions;
  const std::string data = qiv::test::Pattern(40000, 1);
  ASSERT_EQ(0, QIV_AsyncIO_SendEx(pair.first.Get(), data.data(), 40000, &completions,
                                  Completions::Callback));
  EXPECT_EQ(data, qiv::test::ReadExactly(pair.second, data.size()));
  ASSERT_TRUE(completions.WaitFor(3));
  const std::vector<Completion> all = completions.All();
  EXPECT_EQ(16384u, all[0].bytes);
  EXPECT_EQ(16384u, all[1].bytes);
  EXPECT_EQ(7232u, all[2].bytes);
  for (const Completion& completion : all) EXPECT_EQ(0u, completion.error);
}

TEST_P(RequestsTest, SixteenMiBArriveWholeAndInOrder) {
  const Queue queue(2, Mode());
  const TcpPair pair;
  const Bound bound(queue, pair.first);
  const std::string data = qiv::test::Pattern(16 << 20, 2);
  ASSERT_EQ(0, QIV_AsyncIO_SendEx(pair.first.Get(), data.data(), static_cast<int>(data.size()),
                                  nullptr, nullptr));
  EXPECT_TRUE(data == qiv::test::ReadExactly(pair.second, data.size()));
}

TEST_P(RequestsTest, ReceivesCompleteInTheirOrder) {
  const Queue queue(1, Mode());
  const TcpPair pair;
  const Bound bound(queue, pair.first);
  constexpr int kReceives = 50;
  std::string buffers(kReceives, '?');
  Completions completions;
  for (int i = 0; i < kReceives; ++i) {
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), &buffers[static_cast<std::size_t>(i)], 1,
                                    &completions, Completions::Callback));
  }
  const std::string data = qiv::test::Pattern(kReceives, 4);
  qiv::test::WriteAll(pair.second, data);
  ASSERT_TRUE(completions.WaitFor(kReceives));
  EXPECT_EQ(data, buffers);
}

TEST_P(RequestsTest, ReceiveFromAPeerThatHasClosedReportsZeroBytes) {
  const Queue queue(1, Mode());
  TcpPair pair;
  const Bound bound(queue, pair.first);
  Completions completions;
  char buffer[16];
  ASSERT_EQ(0,
            QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 16, &completions, Completions::Callback));
  pair.second.Close();
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_EQ(0u, completions.All()[0].bytes);
}

TEST_P(RequestsTest, APeerThatResetsFailsTheReceive) {
  const Queue queue(1, Mode());
  TcpPair pair;
  const Bound bound(queue, pair.first);
  Completions completions;
  char buffer[16];
  ASSERT_EQ(0,
            QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 16, &completions, Completions::Callback));
  qiv::test::Reset(pair.second);
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_EQ(static_cast<unsigned int>(ECONNRESET), completions.All()[0].error);
  EXPECT_EQ(0u, completions.All()[0].bytes);
}

TEST_P(RequestsTest, APeerThatResetsFailsTheSend) {
  const Queue queue(1, Mode());
  TcpPair pair;
  qiv::test::Reset(pair.second);
  const Bound bound(queue, pair.first);
  Completions completions;
  ASSERT_EQ(0, QIV_AsyncIO_SendEx(pair.first.Get(), "x", 1, &completions, Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_NE(0u, completions.All()[0].error);
  EXPECT_EQ(0u, completions.All()[0].bytes);
}

TEST_P(RequestsTest, DatagramsCarryTheirSourceAddress) {
  const Queue queue(2, Mode());
  const Socket receiver = qiv::test::BoundUdpSocket();
  const Socket sender = qiv::test::BoundUdpSocket();
  const QIV_ADDR_T to = qiv::test::AddressOf(receiver);
  const QIV_ADDR_T from = qiv::test::AddressOf(sender);
  const Bound boundReceiver(queue, receiver);
  const Bound boundSender(queue, sender);
  Completions received;
  Completions sent;
  char buffer[16] = {};
  QIV_ADDR_T source = {};
  ASSERT_EQ(0, QIV_AsyncIO_RecvFromEx(receiver.Get(), buffer, 16, &received, &source,
                                      Completions::Callback));
  ASSERT_EQ(0,
            QIV_AsyncIO_SendToEx(sender.Get(), "datagram", 8, &sent, &to, Completions::Callback));
  ASSERT_TRUE(received.WaitFor(1));
  ASSERT_TRUE(sent.WaitFor(1));
  EXPECT_STREQ("datagram", buffer);
  EXPECT_EQ(8u, received.All()[0].bytes);
  EXPECT_EQ(8u, sent.All()[0].bytes);
  EXPECT_EQ(AF_INET, source.family);
  EXPECT_EQ(from.ipv4.sin_port, source.ipv4.sin_port);
}

TEST_P(RequestsTest, AcceptReportsTheNewDescriptorAndThePeer) {
  const Queue queue(1, Mode());
  const Socket listener = qiv::test::Listener();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  const Bound bound(queue, listener);
  Completions completions;
  QIV_ADDR_T peer = {};
  ASSERT_EQ(0, QIV_AsyncIO_AcceptEx(listener.Get(), &peer, nullptr, 0, &completions,
                                    Completions::Callback));
  ASSERT_EQ(0, QIV_AsyncIO_AcceptEx(listener.Get(), nullptr, nullptr, 0, &completions,
                                    Completions::Callback));
  const Socket client = qiv::test::TcpSocket();
  const Socket second = qiv::test::TcpSocket();
  ASSERT_EQ(0, connect(client.Get(), &address.any, sizeof(sockaddr_in)));
  ASSERT_EQ(0, connect(second.Get(), &address.any, sizeof(sockaddr_in)));
  ASSERT_TRUE(completions.WaitFor(2));
  for (const Completion& completion : completions.All()) {
    EXPECT_EQ(0u, completion.error);
    const Socket accepted(static_cast<int>(completion.bytes));
    EXPECT_GT(accepted.Get(), 2);
  }
  EXPECT_EQ(qiv::test::AddressOf(client).ipv4.sin_port, peer.ipv4.sin_port);
}

TEST_P(RequestsTest, ConnectReportsSuccessWithZeroBytes) {
  const Queue queue(1, Mode());
  const Socket listener = qiv::test::Listener();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  const Socket client = qiv::test::TcpSocket();
  const Bound bound(queue, client);
  Completions completions;
  ASSERT_EQ(0, QIV_AsyncIO_ConnectEx(client.Get(), &address, nullptr, 0, &completions,
                                     Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_EQ(0u, completions.All()[0].error);
  EXPECT_EQ(0u, completions.All()[0].bytes);
}

TEST_P(RequestsTest, ConnectToAClosedPortReportsConnectionRefused) {
  const Queue queue(1, Mode());
  const Socket closed = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(closed);
  for (int round = 0; round < 50; ++round) {
    const Socket client = qiv::test::TcpSocket();
    const Bound bound(queue, client);
    Completions completions;
    ASSERT_EQ(0, QIV_AsyncIO_ConnectEx(client.Get(), &address, nullptr, 0, &completions,
                                       Completions::Callback));
    ASSERT_TRUE(completions.WaitFor(1));
    EXPECT_EQ(static_cast<unsigned int>(ECONNREFUSED), completions.All()[0].error);
    EXPECT_EQ(0u, completions.All()[0].bytes);
  }
}

TEST_P(RequestsTest, ConnectAndReceiveQueuedRightAfterBindingBothComplete) {
  const Queue queue(2, Mode());
  const Socket listener = qiv::test::Listener();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  for (int round = 0; round < qiv::test::ScaledLoad(300); ++round) {
    const Socket client = qiv::test::TcpSocket();
    const Bound bound(queue, client);
    Completions connected;
    Completions received;
    char byte = 0;
    ASSERT_EQ(0, QIV_AsyncIO_ConnectEx(client.Get(), &address, nullptr, 0, &connected,
                                       Completions::Callback));
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(client.Get(), &byte, 1, &received, Completions::Callback));
    const Socket server(accept(listener.Get(), nullptr, nullptr));
    qiv::test::WriteAll(server, "!");
    ASSERT_TRUE(connected.WaitFor(1)) << round;
    ASSERT_TRUE(received.WaitFor(1)) << round;
    EXPECT_EQ(0u, connected.All()[0].error);
    EXPECT_EQ('!', byte);
  }
}

// The worker stands in a callback while the socket's hang-up of before the connect waits behind it.
TEST_P(RequestsTest, AHangUpFromBeforeTheConnectReportsNeitherConnectNorReceive) {
  const Queue queue(1, Mode());
  const TcpPair pair;
  const Bound blocker(queue, pair.first);
  Latch firstEntered;
  Latch firstMayGo;
  Latch secondEntered;
  Latch secondMayGo;
  Completions blocked;
  std::atomic<int> calls{0};
  blocked.onCompletion = [&](const Completion&) {
    const bool isFirst = calls.fetch_add(1) == 0;
    (isFirst ? firstEntered : secondEntered).Open();
    EXPECT_TRUE((isFirst ? firstMayGo : secondMayGo).Wait());
  };
  char bytes[2];
  for (char& byte : bytes) {
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), &byte, 1, &blocked, Completions::Callback));
  }
  qiv::test::WriteAll(pair.second, "ab");
  ASSERT_TRUE(firstEntered.Wait());
  // A connect to a listener whose backlog is full stays under way.
  const Socket listener = qiv::test::Listener(AF_INET, 0);
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  const Socket filler = qiv::test::TcpSocket();
  ASSERT_EQ(0, connect(filler.Get(), &address.any, sizeof(sockaddr_in)));
  const Socket client = qiv::test::TcpSocket();
  const Bound bound(queue, client);  // reports a hang-up from here on
  firstMayGo.Open();
  ASSERT_TRUE(secondEntered.Wait());  // the hang-up is harvested together with the second byte
  Completions connected;
  Completions received;
  char byte = 0;
  ASSERT_EQ(0, QIV_AsyncIO_ConnectEx(client.Get(), &address, nullptr, 0, &connected,
                                     Completions::Callback));
  ASSERT_EQ(0, QIV_AsyncIO_RecvEx(client.Get(), &byte, 1, &received, Completions::Callback));
  secondMayGo.Open();
  EXPECT_FALSE(connected.WaitFor(1, std::chrono::milliseconds(200)));
  EXPECT_EQ(0u, received.Count());

  const Socket freed(accept(listener.Get(), nullptr, nullptr));
  const Socket server(accept(listener.Get(), nullptr, nullptr));
  qiv::test::WriteAll(server, "!");
  ASSERT_TRUE(connected.WaitFor(1));
  ASSERT_TRUE(received.WaitFor(1));
  EXPECT_EQ(0u, connected.All()[0].error);
  EXPECT_EQ('!', byte);
}

// Keeps a one-worker queue's worker in a callback until it is let go.
class BusyWorker {
 public:
  explicit BusyWorker(const Queue& queue) : m_bound(queue, m_pair.first) {
    m_completions.onCompletion = [this](const Completion&) {
      m_entered.Open();
      EXPECT_TRUE(m_mayGo.Wait());
    };
    EXPECT_EQ(0, QIV_AsyncIO_RecvEx(m_pair.first.Get(), &m_byte, 1, &m_completions,
                                    Completions::Callback));
    qiv::test::WriteAll(m_pair.second, "x");
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

TEST_P(RequestsTest, ARefusedConnectIsReportedAsSuchAlsoWithAReceivePending) {
  const Queue queue(1, Mode());
  BusyWorker worker(queue);
  const Socket closed = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(closed);
  const Socket client = qiv::test::TcpSocket();
  const Bound bound(queue, client);
  Completions connected;
  Completions received;
  char byte = 0;
  ASSERT_EQ(0, QIV_AsyncIO_ConnectEx(client.Get(), &address, nullptr, 0, &connected,
                                     Completions::Callback));
  ASSERT_EQ(0, QIV_AsyncIO_RecvEx(client.Get(), &byte, 1, &received, Completions::Callback));
  worker.LetGo();
  ASSERT_TRUE(connected.WaitFor(1));
  ASSERT_TRUE(received.WaitFor(1));
  EXPECT_EQ(static_cast<unsigned int>(ECONNREFUSED), connected.All()[0].error);
  EXPECT_EQ(0u, received.All()[0].bytes);
}

TEST_P(RequestsTest, ReceivesEndWhileAnUnreadQueueOfSocketErrorsStands) {
  const Queue queue(1, Mode());
  const QIV_ADDR_T address = qiv::test::AddressOf(qiv::test::BoundUdpSocket());  // closed again
  const Socket socket = qiv::test::UdpSocket();
  const int on = 1;
  ASSERT_EQ(0, setsockopt(socket.Get(), IPPROTO_IP, IP_RECVERR, &on, sizeof(on)));
  ASSERT_EQ(0, connect(socket.Get(), &address.any, sizeof(sockaddr_in)));
  const Bound bound(queue, socket);
  Completions completions;
  char buffer[8];
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(socket.Get(), buffer, 8, &completions, Completions::Callback));
  }
  ASSERT_EQ(1, send(socket.Get(), "x", 1, 0));
  ASSERT_TRUE(completions.WaitFor(3));
  EXPECT_EQ(static_cast<unsigned int>(ECONNREFUSED), completions.All()[0].error);
  EXPECT_EQ(static_cast<unsigned int>(EAGAIN), completions.All()[1].error);
  EXPECT_EQ(static_cast<unsigned int>(EAGAIN), completions.All()[2].error);
}

TEST_P(RequestsTest, UnbindingOnAnotherThreadWaitsForARunningCallbackInMode1Only) {
  const Queue queue(1, Mode());
  BusyWorker worker(queue);
  worker.ForgetBinding();
  auto unbound = qiv::test::RunInThread(
      [&] { return QIV_AsyncIO_UnBindIOHandleEx(worker.BusySocket(), queue.Get()); });
  if (Mode() == 1) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(unbound.IsReady());
  } else {
    EXPECT_EQ(0, unbound.Get());
    return;
  }
  worker.LetGo();
  EXPECT_EQ(0, unbound.Get());
}

TEST_P(RequestsTest, ASendWithoutAConnectionIsReportedAsAFailure) {
  const Queue queue(1, Mode());
  const Socket client = qiv::test::TcpSocket();
  const Bound bound(queue, client);
  Completions completions;
  ASSERT_EQ(0, QIV_AsyncIO_SendEx(client.Get(), "x", 1, &completions, Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_NE(0u, completions.All()[0].error);
}

TEST_P(RequestsTest, UnbindingDropsPendingRequestsWithoutCallbacks) {
  const Queue queue(1, Mode());
  const TcpPair pair;
  Completions completions;
  char buffer[4];
  {
    const Bound bound(queue, pair.first);
    ASSERT_EQ(0,
              QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 4, &completions, Completions::Callback));
  }
  qiv::test::WriteAll(pair.second, "late");
  {
    const Bound bound(queue, pair.first);
    Completions again;
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 4, &again, Completions::Callback));
    ASSERT_TRUE(again.WaitFor(1));
    EXPECT_EQ(4u, again.All()[0].bytes);
  }
  EXPECT_EQ(0u, completions.Count());
}

TEST_P(RequestsTest, ACallbackMayUnbindItsSocket) {
  const Queue queue(1, Mode());
  for (int round = 0; round < 50; ++round) {
    const TcpPair pair;
    Bound bound(queue, pair.first);
    bound.Forget();
    Completions received;
    int result = -2;
    received.onCompletion = [&](const Completion&) {
      result = QIV_AsyncIO_UnBindIOHandleEx(pair.first.Get(), queue.Get());
    };
    char buffer[8];
    Completions sent;
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 8, &received, Completions::Callback));
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 8, &received, Completions::Callback));
    qiv::test::WriteAll(pair.second, "x");
    ASSERT_TRUE(received.WaitFor(1));
    EXPECT_EQ(0, result);
    EXPECT_EQ(1u, received.Count());
    EXPECT_EQ(-1, QIV_AsyncIO_SendEx(pair.first.Get(), "x", 1, &sent, Completions::Callback));
  }
}

TEST_P(RequestsTest, ASendCallbackMayUnbindItsSocket) {
  const Queue queue(1, Mode());
  for (int round = 0; round < 50; ++round) {
    const TcpPair pair;
    Bound bound(queue, pair.first);
    bound.Forget();
    Completions sent;
    sent.onCompletion = [&](const Completion&) {
      EXPECT_EQ(0, QIV_AsyncIO_UnBindIOHandleEx(pair.first.Get(), queue.Get()));
    };
    const std::string data(100000, 's');
    ASSERT_EQ(
        0, QIV_AsyncIO_SendEx(pair.first.Get(), data.data(), 100000, &sent, Completions::Callback));
    ASSERT_TRUE(sent.WaitFor(1));
  }
}

TEST_P(RequestsTest, AReceiveCallbackMayUnbindAfterAResetWithASendPending) {
  const Queue queue(1, Mode());
  for (int round = 0; round < qiv::test::ScaledLoad(100); ++round) {
    TcpPair pair;
    Bound bound(queue, pair.first);
    bound.Forget();
    Completions received;
    received.onCompletion = [&](const Completion&) {
      EXPECT_EQ(0, QIV_AsyncIO_UnBindIOHandleEx(pair.first.Get(), queue.Get()));
    };
    char buffer[8];
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 8, &received, Completions::Callback));
    const std::string data(4 << 20, 's');  // more than the connection takes
    ASSERT_EQ(0, QIV_AsyncIO_SendEx(pair.first.Get(), data.data(), 4 << 20, nullptr, nullptr));
    qiv::test::Reset(pair.second);
    ASSERT_TRUE(received.WaitFor(1));
  }
}

TEST_P(RequestsTest, ACallbackMayRebindItsSocketAndTheNewRequestsComplete) {
  const Queue queue(1, Mode());
  const TcpPair pair;
  const Bound bound(queue, pair.first);
  char buffer[2];
  Completions second;
  Completions first;
  first.onCompletion = [&](const Completion&) {
    EXPECT_EQ(0, QIV_AsyncIO_UnBindIOHandleEx(pair.first.Get(), queue.Get()));
    EXPECT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(pair.first.Get(), queue.Get()));
    EXPECT_EQ(0,
              QIV_AsyncIO_RecvEx(pair.first.Get(), buffer + 1, 1, &second, Completions::Callback));
  };
  ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 1, &first, Completions::Callback));
  ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), buffer, 1, &first, Completions::Callback));
  qiv::test::WriteAll(pair.second, "ab");
  ASSERT_TRUE(second.WaitFor(1));
  EXPECT_EQ('b', buffer[1]);
  EXPECT_EQ(1u, first.Count());
}

TEST_P(RequestsTest, ACallbackMayQueueTheNextRequest) {
  const Queue queue(1, Mode());
  const TcpPair pair;
  const Bound bound(queue, pair.first);
  constexpr std::size_t kBytes = 1000;
  std::string received;
  char byte = 0;
  Completions completions;
  completions.onCompletion = [&](const Completion&) {
    received += byte;
    if (received.size() == kBytes) return;
    EXPECT_EQ(0,
              QIV_AsyncIO_RecvEx(pair.first.Get(), &byte, 1, &completions, Completions::Callback));
  };
  ASSERT_EQ(0, QIV_AsyncIO_RecvEx(pair.first.Get(), &byte, 1, &completions, Completions::Callback));
  const std::string data = qiv::test::Pattern(kBytes, 9);
  qiv::test::WriteAll(pair.second, data);
  ASSERT_TRUE(completions.WaitFor(kBytes));
  EXPECT_EQ(data, received);
}

// Each of two listeners' callbacks binds to the worker on which the other listener's callback runs.
TEST_P(RequestsTest, AcceptCallbacksMayBindSocketsToEachOthersWorkers) {
  const Queue queue(2, Mode());
  const Socket listeners[] = {qiv::test::MoveTo(qiv::test::Listener(), 400),
                              qiv::test::MoveTo(qiv::test::Listener(), 401)};
  const Bound bound0(queue, listeners[0]);
  const Bound bound1(queue, listeners[1]);
  for (int round = 0; round < qiv::test::ScaledLoad(200); ++round) {
    Completions accepted[2];
    Latch bothIn[2];
    std::vector<std::unique_ptr<Socket>> sockets(2);
    for (int i = 0; i < 2; ++i) {
      accepted[i].onCompletion = [&, i](const Completion& completion) {
        bothIn[i].Open();
        EXPECT_TRUE(bothIn[1 - i].Wait());
        // Descriptors 501 and 500: the other listener's worker.
        sockets[static_cast<std::size_t>(i)] = std::make_unique<Socket>(
            qiv::test::MoveTo(Socket(static_cast<int>(completion.bytes)), 501 - i));
        const int fd = sockets[static_cast<std::size_t>(i)]->Get();
        EXPECT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(fd, queue.Get()));
      };
      ASSERT_EQ(0, QIV_AsyncIO_AcceptEx(listeners[i].Get(), nullptr, nullptr, 0, &accepted[i],
                                        Completions::Callback));
    }
    Socket clients[] = {qiv::test::TcpSocket(), qiv::test::TcpSocket()};
    for (int i = 0; i < 2; ++i) {
      const QIV_ADDR_T address = qiv::test::AddressOf(listeners[i]);
      ASSERT_EQ(0, connect(clients[i].Get(), &address.any, sizeof(sockaddr_in)));
    }
    ASSERT_TRUE(accepted[0].WaitFor(1));
    ASSERT_TRUE(accepted[1].WaitFor(1));
    for (const auto& socket : sockets) {
      ASSERT_EQ(0, QIV_AsyncIO_UnBindIOHandleEx(socket->Get(), queue.Get()));
    }
  }
}

TEST_P(RequestsTest, ThousandsOfConnectionsComeAndGo) {
  const Queue queue(2, Mode());
  const Socket listener = qiv::test::Listener();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  for (int round = 0; round < qiv::test::ScaledLoad(3000); ++round) {
    Socket client = qiv::test::TcpSocket();
    ASSERT_EQ(0, connect(client.Get(), &address.any, sizeof(sockaddr_in)));
    const Socket server(accept(listener.Get(), nullptr, nullptr));
    const Bound bound(queue, server);
    Completions completions;
    char byte = 0;
    ASSERT_EQ(0, QIV_AsyncIO_RecvEx(server.Get(), &byte, 1, &completions, Completions::Callback));
    if (round % 3 != 0) qiv::test::WriteAll(client, "z");
    if (round % 3 == 1) qiv::test::Reset(client);
    if (round % 3 == 0) client.Close();
    ASSERT_TRUE(completions.WaitFor(1)) << round;
  }
}

}  // namespace
