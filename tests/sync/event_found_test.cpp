// What a wait finds on the socket of an event.
#include "sync/event_socket_fixture.h"

namespace {

using qiv::test::BeginConnect;
using qiv::test::Enumerate;
using qiv::test::Event;
using qiv::test::EventSocketTest;
using qiv::test::ExpectedResult;
using qiv::test::Socket;
using qiv::test::TcpPair;
using qiv::test::WaitFor;
using qiv::test::WaitLong;

TEST_F(EventSocketTest, DataIsFoundAsReadAndStaysFound) {
  const TcpPair pair;
  Select(pair.first, QIV_EVENT_READ | QIV_EVENT_CLOSE);
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
  qiv::test::WriteAll(pair.second, "data");
  ExpectFound(QIV_EVENT_READ);
  ExpectFound(QIV_EVENT_READ);
  EXPECT_EQ("data", qiv::test::ReadExactly(pair.first, 4));
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
}

TEST_F(EventSocketTest, APeerThatClosedIsFoundAsCloseWithReadSelected) {
  for (const unsigned int mask : {QIV_EVENT_READ, QIV_EVENT_CLOSE}) {
    TcpPair pair;
    Select(pair.first, mask);
    pair.second.Close();
    ExpectFound(QIV_EVENT_CLOSE);
  }
}

TEST_F(EventSocketTest, DataBeforeTheEndIsFoundAsReadWithCloseSelected) {
  TcpPair pair;
  Select(pair.first, QIV_EVENT_CLOSE);
  qiv::test::WriteAll(pair.second, "x");
  pair.second.Close();
  ExpectFound(QIV_EVENT_READ);
  EXPECT_EQ("x", qiv::test::ReadExactly(pair.first, 1));
  ExpectFound(QIV_EVENT_CLOSE);
}

TEST_F(EventSocketTest, APeerThatResetsIsFoundAsClose) {
  TcpPair pair;
  Select(pair.first, QIV_EVENT_READ);
  qiv::test::Reset(pair.second);
  ExpectFound(QIV_EVENT_CLOSE);
}

TEST_F(EventSocketTest, ADatagramIsFoundAsReadAndAnEmptyOneAsClose) {
  const Socket receiver = qiv::test::BoundUdpSocket();
  const Socket sender = qiv::test::UdpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(receiver);
  Select(receiver, QIV_EVENT_READ);
  ASSERT_EQ(4, QIV_SendTo(sender.Get(), "data", 4, &address));
  ExpectFound(QIV_EVENT_READ);
  char buffer[8];
  EXPECT_EQ(4, QIV_Recv(receiver.Get(), buffer, sizeof(buffer)));
  ASSERT_EQ(0, QIV_SendTo(sender.Get(), "", 0, &address));
  ExpectFound(QIV_EVENT_CLOSE);
}

TEST_F(EventSocketTest, RoomToSendIsFoundAsWrite) {
  const TcpPair pair;
  Select(pair.first, QIV_EVENT_WRITE);
  ExpectFound(QIV_EVENT_WRITE);
}

TEST_F(EventSocketTest, ReadingIsFoundBeforeWriting) {
  const TcpPair pair;
  Select(pair.first, QIV_EVENT_READ | QIV_EVENT_WRITE);
  ExpectFound(QIV_EVENT_WRITE);
  qiv::test::WriteAll(pair.second, "x");
  ASSERT_TRUE(HasArrived(pair.first, POLLIN));
  ExpectFound(QIV_EVENT_READ);
}

TEST_F(EventSocketTest, AConnectionRequestIsFoundAsAcceptAndLeavesTheErrorAlone) {
  const Socket listener = qiv::test::Listener();
  Select(listener, QIV_EVENT_ACCEPT);
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
  m_event->Record().errorCode.store(77);
  const Socket client = qiv::test::TcpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  ASSERT_EQ(0, QIV_ConnectWithTimeOut(client.Get(), &address, QIV_INFINITE));
  ExpectFound(QIV_EVENT_ACCEPT);
  EXPECT_EQ(77, m_event->Record().errorCode.load());
}

TEST_F(EventSocketTest, AnEstablishedConnectionIsFoundAsConnectWithoutError) {
  const Socket listener = qiv::test::Listener();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  const Socket client = qiv::test::TcpSocket();
  Select(client, QIV_EVENT_CONNECT);
  BeginConnect(client, address);
  m_event->Record().errorCode.store(77);
  ExpectFound(QIV_EVENT_CONNECT);
  EXPECT_EQ(0, m_event->Record().errorCode.load());
}

TEST_F(EventSocketTest, ARefusedConnectionIsKeptToLeaveTheErrorAsItWas) {
  const Socket refusing = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(refusing);
  for (const int earlierError : {0, 77}) {
    const Socket client = qiv::test::TcpSocket();
    Select(client, QIV_EVENT_CONNECT);
    BeginConnect(client, address);
    m_event->Record().errorCode.store(earlierError);
    EXPECT_EQ(0, WaitLong(*m_event));
    EXPECT_EQ(earlierError, m_event->Record().errorCode.load());
    EXPECT_EQ(earlierError == 0 ? ExpectedResult(16) : ExpectedResult(16, 77), Enumerate(*m_event));
  }
}

TEST_F(EventSocketTest, ConnectHidesReadingAndWriting) {
  const TcpPair pair;
  Select(pair.first, QIV_EVENT_CONNECT | QIV_EVENT_READ | QIV_EVENT_WRITE);
  qiv::test::WriteAll(pair.second, "x");
  ExpectFound(QIV_EVENT_CONNECT);
}

TEST_F(EventSocketTest, AListenerWithReadOrCloseSelectedIsFoundAsNothingWithAnError) {
  const Socket listener = qiv::test::Listener();
  const Socket client = qiv::test::TcpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  ASSERT_EQ(0, QIV_ConnectWithTimeOut(client.Get(), &address, QIV_INFINITE));
  for (const unsigned int mask : {QIV_EVENT_READ, QIV_EVENT_CLOSE}) {
    for (const unsigned int accept : {0U, QIV_EVENT_ACCEPT}) {
      Select(listener, mask | accept);
      m_event->Record().errorCode.store(0);
      ExpectFound(0);
      EXPECT_EQ(EINVAL, m_event->Record().errorCode.load()) << mask << accept;
    }
  }
}

TEST_F(EventSocketTest, ASocketThatHasNotBegunToConnectIsFoundAsConnect) {
  const Socket socket = qiv::test::TcpSocket();
  Select(socket, QIV_EVENT_CONNECT);
  ExpectFound(QIV_EVENT_CONNECT);
}

TEST_F(EventSocketTest, ARefusedConnectionIsFoundAsCloseOrWriteWithoutConnectSelected) {
  const Socket refusing = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(refusing);
  const std::pair<unsigned int, unsigned int> rows[] = {{QIV_EVENT_READ, QIV_EVENT_CLOSE},
                                                        {QIV_EVENT_CLOSE, QIV_EVENT_CLOSE},
                                                        {QIV_EVENT_WRITE, QIV_EVENT_WRITE}};
  for (const auto& [mask, found] : rows) {
    const Socket client = qiv::test::TcpSocket();
    ASSERT_EQ(0, QIV_SetNonBlock(client.Get(), 1));
    BeginConnect(client, address);
    ASSERT_TRUE(qiv::test::HasArrived(client, POLLIN));
    Select(client, mask);
    ExpectFound(found);
  }
}

TEST_F(EventSocketTest, AnErrorIsToldOnlyWhereConnectIsSelected) {
  const TcpPair pair;
  m_event->Record().errorCode.store(77);
  m_event->Record().triggeredEvent.store(QIV_EVENT_READ);
  Select(pair.first, QIV_EVENT_READ);
  EXPECT_EQ(ExpectedResult(QIV_EVENT_READ), Enumerate(*m_event));
  Select(pair.first, QIV_EVENT_CONNECT);
  EXPECT_EQ(ExpectedResult(QIV_EVENT_READ, 77), Enumerate(*m_event));
}

TEST_F(EventSocketTest, OutOfBandDataIsNeverReported) {
  const TcpPair pair;
  Select(pair.first, QIV_EVENT_OUT_OF_BAND);
  ASSERT_EQ(1, send(pair.second.Get(), "!", 1, MSG_OOB));
  ASSERT_TRUE(HasArrived(pair.first, POLLPRI));
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
}

TEST_F(EventSocketTest, AClosedDescriptorEndsAWaitAtOnceWithoutAnIndex) {
  Socket socket = qiv::test::UdpSocket();
  Select(socket, QIV_EVENT_READ);
  socket.Close();
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, -1));
}

TEST_F(EventSocketTest, AReusedDescriptorIsWhatTheEventStandsForThen) {
  TcpPair pair;
  Select(pair.first, QIV_EVENT_READ);
  TcpPair other;
  const int number = pair.first.Get();
  pair.first.Close();
  const Socket reused = qiv::test::MoveTo(std::move(other.first), number);
  qiv::test::WriteAll(other.second, "x");
  ExpectFound(QIV_EVENT_READ);
}

TEST_F(EventSocketTest, SocketsAndPlainEventsShareOneWait) {
  const TcpPair pair;
  const Event plain;
  Select(pair.first, QIV_EVENT_READ);
  const QIV_HANDLE events[] = {plain.Get(), m_event->Get()};
  EXPECT_EQ(0x7FFFFFFF, QIV_WaitForMultipleObjects(2, events, 1, 0));
  qiv::test::WriteAll(pair.second, "x");
  EXPECT_EQ(1, QIV_WaitForMultipleObjects(2, events, 1, -1));
  EXPECT_EQ(1, QIV_SetEvent(plain.Get()));
  EXPECT_EQ(0, QIV_WaitForMultipleObjects(2, events, 1, -1));
}

TEST_F(EventSocketTest, TheEventsOfAnEntryAreJudgedByTheMask) {
  struct Row {
    unsigned int mask;
    int reported;
    int result;
    unsigned int found;  // 99: left as it was
  };
  const Row rows[] = {
      {1, 0, -1, 99},
      {1, POLLERR | POLLHUP, -1, 99},
      {1, POLLNVAL, -1, 99},
      {1, POLLPRI, -1, 99},
      {1, POLLRDNORM, 0, 1},
      {32, POLLRDNORM | POLLHUP, 0, 1},
      {3, POLLRDNORM | POLLWRNORM, 0, 1},
      {1, POLLWRNORM, -1, 99},
      {2, POLLWRNORM, 0, 2},
      {2, POLLWRNORM | POLLERR, 0, 2},
      {2, POLLRDNORM, -1, 99},
      {10, POLLRDNORM, 0, 8},
      {10, POLLWRNORM, 0, 2},
      {8, POLLRDNORM, 0, 8},
      {8, POLLWRNORM, 0, 8},
      {9, POLLWRNORM, 0, 8},
      {9, POLLRDNORM, 0, 1},
      {4, POLLRDNORM | POLLWRNORM, -1, 99},
      {16, POLLRDNORM, 0, 16},
      {16, POLLWRNORM, 0, 16},
      {63, POLLRDNORM | POLLWRNORM, 0, 16},
      {16, POLLERR, -1, 99},
  };
  const TcpPair pair;
  qiv::test::WriteAll(pair.second, "x");
  ASSERT_TRUE(HasArrived(pair.first, POLLIN));
  for (const Row& row : rows) {
    Select(pair.first, row.mask);
    m_event->Record().triggeredEvent.store(99);
    const pollfd entry = {pair.first.Get(), 0, static_cast<short>(row.reported)};
    EXPECT_EQ(row.result, qiv::sync::QIV_GetEventTriggeredFlag_Inter(&m_event->Record(), &entry))
        << row.mask << " " << row.reported;
    EXPECT_EQ(row.found, m_event->Record().triggeredEvent.load())
        << row.mask << " " << row.reported;
  }
}

TEST_F(EventSocketTest, APlainEventIsSignalledByItsReadEndOnly) {
  struct Row {
    int reported;
    int result;
  };
  const Row rows[] = {{POLLRDNORM, 0},  {POLLRDNORM | POLLHUP, 0},
                      {POLLWRNORM, -1}, {POLLNVAL, -1},
                      {POLLHUP, -1},    {0, -1}};
  for (const Row& row : rows) {
    const pollfd entry = {m_event->ReadEnd(), 0, static_cast<short>(row.reported)};
    EXPECT_EQ(row.result, qiv::sync::QIV_GetEventTriggeredFlag_Inter(&m_event->Record(), &entry))
        << row.reported;
    EXPECT_EQ(0U, m_event->Record().triggeredEvent.load());
  }
}

}  // namespace
