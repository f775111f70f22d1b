// Sends and receives carried out by a running queue, end to end.
#include <gtest/gtest.h>
#include <qiv/async_io.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>
#include <vector>

#include "aio/queue_fixture.h"
#include "support/completions.h"

namespace {

using qiv::test::Bound;
using qiv::test::Completion;
using qiv::test::Completions;
using qiv::test::Queue;
using qiv::test::Socket;
using qiv::test::TcpPair;

class RequestsTest : public qiv::test::BothModesTest {};

INSTANTIATE_TEST_SUITE_P(Modes, RequestsTest, ::testing::Values(0, 1), qiv::test::ModeName);

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

}  // namespace
