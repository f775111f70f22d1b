// Binding events to sockets, and what an enumeration tells.
#include "sync/event_socket_fixture.h"

namespace {

using qiv::test::Enumerate;
using qiv::test::EventSocketTest;
using qiv::test::ExpectedResult;
using qiv::test::IsNonBlocking;
using qiv::test::MessagesOf;
using qiv::test::Socket;
using qiv::test::TcpPair;
using qiv::test::WaitFor;

TEST_F(EventSocketTest, SelectRefusesBadArgumentsAndLeavesTheEventPlain) {
  const Socket socket = qiv::test::UdpSocket();
  const auto expectRefused = [](int descriptor, QIV_HANDLE event, unsigned int mask) {
    int result = 0;
    EXPECT_EQ("zelmar !!! QIV_EventSelect input param error return error 0\n\n",
              MessagesOf([&] { result = QIV_EventSelect(descriptor, event, mask); }));
    EXPECT_EQ(-1, result);
  };
  expectRefused(-1, m_event->Get(), QIV_EVENT_READ);
  expectRefused(socket.Get(), nullptr, QIV_EVENT_READ);
  expectRefused(socket.Get(), m_event->Get(), 0);
  EXPECT_FALSE(IsNonBlocking(socket));
  EXPECT_EQ(1, QIV_SetEvent(m_event->Get()));
}

TEST_F(EventSocketTest, SelectClosesThePipeAndMakesTheSocketNonBlocking) {
  const Socket socket = qiv::test::UdpSocket();
  const int descriptors = qiv::test::CountEntries("/proc/self/fd");
  EXPECT_EQ("", MessagesOf([&] { Select(socket, QIV_EVENT_WRITE | QIV_EVENT_READ); }));
  EXPECT_EQ(descriptors - 2, qiv::test::CountEntries("/proc/self/fd"));
  EXPECT_EQ(-1, m_event->ReadEnd());
  EXPECT_EQ(-1, m_event->WriteEnd());
  EXPECT_EQ(socket.Get(), m_event->Record().socket.load());
  EXPECT_EQ(3U, m_event->Record().networkEventMask.load());
  EXPECT_TRUE(IsNonBlocking(socket));
}

TEST_F(EventSocketTest, TheMaskDecidesWhatIsPolled) {
  struct Row {
    unsigned int mask;
    unsigned int pollMode;
  };
  const Row rows[] = {{1, 1},  {2, 2},  {4, 0},  {8, 1}, {16, 3}, {32, 1}, {3, 3},         {10, 3},
                      {34, 3}, {41, 1}, {20, 3}, {6, 2}, {63, 3}, {64, 0}, {0xFFFFFFFF, 3}};
  const Socket socket = qiv::test::UdpSocket();
  for (const Row& row : rows) {
    Select(socket, row.mask);
    EXPECT_EQ(row.pollMode, m_event->Record().pollMode.load()) << row.mask;
    EXPECT_EQ(row.mask, m_event->Record().networkEventMask.load());
  }
}

TEST_F(EventSocketTest, SelectOfADescriptorThatIsNotOpenSucceeds) {
  EXPECT_EQ(0, QIV_EventSelect(1000000, m_event->Get(), QIV_EVENT_READ));
  EXPECT_EQ(0, QIV_EventSelect(-2, m_event->Get(), QIV_EVENT_READ));
}

TEST_F(EventSocketTest, ABoundEventCannotBeSet) {
  const Socket socket = qiv::test::UdpSocket();
  Select(socket, QIV_EVENT_READ);
  for (int round = 0; round < 2; ++round) {  // nor is its lock left held
    int result = -1;
    EXPECT_EQ(
        "zelmar !!!! QIV_WritePipe_Inter return QIV_FALSE errno = 7\n"
        "zelmar !!! QIV_SetEvent write pipe return error 7 2\n\n",
        MessagesOf([&] {
          errno = 7;
          result = QIV_SetEvent(m_event->Get());
        }));
    EXPECT_EQ(0, result);
  }
}

TEST_F(EventSocketTest, ABoundEventCannotBeReset) {
  const Socket socket = qiv::test::UdpSocket();
  Select(socket, QIV_EVENT_READ);
  int result = -1;
  EXPECT_EQ("zelmar !!! QIV_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n\n",
            MessagesOf([&] { result = QIV_ResetEvent(m_event->Get()); }));
  EXPECT_EQ(0, result);
}

TEST_F(EventSocketTest, ABoundEventCannotBeWaitedForAlone) {
  const Socket socket = qiv::test::UdpSocket();
  Select(socket, QIV_EVENT_WRITE);
  int result = -1;
  EXPECT_EQ("zelmar !!! QIV_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n\n",
            MessagesOf([&] { result = QIV_WaitForSingleObject(m_event->Get(), -1); }));
  EXPECT_EQ(0x7FFFFFFD, result);
}

TEST_F(EventSocketTest, ABoundEventCanBeBoundToAnotherSocket) {
  const TcpPair first;
  const TcpPair second;
  Select(first.first, QIV_EVENT_READ);
  Select(second.first, QIV_EVENT_READ);
  qiv::test::WriteAll(first.second, "x");
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
  qiv::test::WriteAll(second.second, "x");
  ExpectFound(QIV_EVENT_READ);
}

TEST_F(EventSocketTest, EnumerationRefusesBadArgumentsAndWritesNothing) {
  QIV_NETWORK_EVENTS_T result = {12345, {}};
  const auto expectRefused = [](int socket, QIV_HANDLE event, void* memory) {
    int refused = 0;
    EXPECT_EQ("zelmar !!! QIV_EnumNetworkEvents input param error return error 0\n\n",
              MessagesOf([&] { refused = QIV_EnumNetworkEvents(socket, event, memory); }));
    EXPECT_EQ(-1, refused);
  };
  expectRefused(-1, m_event->Get(), &result);
  expectRefused(0, nullptr, &result);
  expectRefused(0, m_event->Get(), nullptr);
  EXPECT_EQ(12345U, result.events);
}

TEST_F(EventSocketTest, EnumerationBeforeAnyWaitFindsNothing) {
  EXPECT_EQ(ExpectedResult(0), Enumerate(*m_event));
}

TEST_F(EventSocketTest, EnumerationOfABoundEventIsKeptToPrintTheLineOfTheSingleWait) {
  const Socket socket = qiv::test::UdpSocket();
  Select(socket, QIV_EVENT_READ);
  QIV_NETWORK_EVENTS_T result = {};
  EXPECT_EQ("zelmar !!! QIV_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n\n",
            MessagesOf([&] { QIV_EnumNetworkEvents(socket.Get(), m_event->Get(), &result); }));
}

TEST_F(EventSocketTest, APlainEventStaysUsableAfterItsEnumeration) {
  EXPECT_EQ(1, QIV_SetEvent(m_event->Get()));
  EXPECT_EQ(ExpectedResult(0), Enumerate(*m_event));
  EXPECT_EQ(1, m_event->BytesInPipe());
  EXPECT_EQ(1, QIV_SetEvent(m_event->Get()));
  EXPECT_EQ(1, QIV_ResetEvent(m_event->Get()));
  EXPECT_EQ(1, QIV_SetEvent(m_event->Get()));
}

TEST_F(EventSocketTest, AFindingStaysUntilAnotherWaitFindsSomething) {
  const TcpPair pair;
  Select(pair.first, QIV_EVENT_READ);
  qiv::test::WriteAll(pair.second, "x");
  ExpectFound(QIV_EVENT_READ);
  char byte = 0;
  ASSERT_EQ(1, read(pair.first.Get(), &byte, 1));
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
  EXPECT_EQ(ExpectedResult(QIV_EVENT_READ), Enumerate(*m_event));
  Select(pair.second, QIV_EVENT_READ);
  EXPECT_EQ(0x7FFFFFFF, WaitFor(*m_event, 0));
  EXPECT_EQ(ExpectedResult(QIV_EVENT_READ), Enumerate(*m_event));
}

}  // namespace
