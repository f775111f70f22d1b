// Accepts and connects carried out by a running queue, and what a hang-up must not do to them.
#include <gtest/gtest.h>
#include <qiv/async_io.h>
#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <memory>
#include <vector>

#include "aio/queue_fixture.h"
#include "support/completions.h"
#include "support/latch.h"

namespace {

using qiv::test::Bound;
using qiv::test::BusyWorker;
using qiv::test::Completion;
using qiv::test::Completions;
using qiv::test::Latch;
using qiv::test::Queue;
using qiv::test::Socket;
using qiv::test::TcpPair;

class AsyncConnectTest : public qiv::test::BothModesTest {};

INSTANTIATE_TEST_SUITE_P(Modes, AsyncConnectTest, ::testing::Values(0, 1), qiv::test::ModeName);

TEST_P(AsyncConnectTest, AcceptReportsTheNewDescriptorAndThePeer) {
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

TEST_P(AsyncConnectTest, ConnectReportsSuccessWithZeroBytes) {
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

TEST_P(AsyncConnectTest, ConnectToAClosedPortReportsConnectionRefused) {
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

TEST_P(AsyncConnectTest, ConnectAndReceiveQueuedRightAfterBindingBothComplete) {
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
TEST_P(AsyncConnectTest, AHangUpFromBeforeTheConnectReportsNeitherConnectNorReceive) {
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

TEST_P(AsyncConnectTest, ARefusedConnectIsReportedAsSuchAlsoWithAReceivePending) {
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

TEST_P(AsyncConnectTest, ASendWithoutAConnectionIsReportedAsAFailure) {
  const Queue queue(1, Mode());
  const Socket client = qiv::test::TcpSocket();
  const Bound bound(queue, client);
  Completions completions;
  ASSERT_EQ(0, QIV_AsyncIO_SendEx(client.Get(), "x", 1, &completions, Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_NE(0u, completions.All()[0].error);
}

// Each of two listeners' callbacks binds to the worker on which the other listener's callback runs.
TEST_P(AsyncConnectTest, AcceptCallbacksMayBindSocketsToEachOthersWorkers) {
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

TEST_P(AsyncConnectTest, ThousandsOfConnectionsComeAndGo) {
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
