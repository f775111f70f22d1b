#include <gtest/gtest.h>
#include <poll.h>
#include <qiv/event.h>
#include <qiv/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "support/leak_check.h"
#include "support/sockets.h"
#include "support/test_limit.h"
#include "sync/event_fixture.h"

namespace {

using qiv::test::Event;
using qiv::test::MessagesOf;
using qiv::test::Socket;
using qiv::test::TcpPair;

constexpr unsigned char kUntouched = 0xAA;
constexpr std::size_t kResultBytes = 44;
constexpr std::size_t kConnectSlot = 20;

using ResultBytes = std::array<unsigned char, kResultBytes>;

int WaitFor(const Event& event, int ms) {
  const QIV_HANDLE events[] = {event.Get()};
  return QIV_WaitForMultipleObjects(1, events, 0, ms);
}

int WaitLong(const Event& event) {
  return WaitFor(event, static_cast<int>(qiv::test::TestLimit().count()));
}

/** The record that QIV_EnumNetworkEvents() fills, at an odd address. */
ResultBytes Enumerate(const Event& event) {
  std::array<unsigned char, kResultBytes + 1> memory;
  memory.fill(kUntouched);
  MessagesOf([&] { EXPECT_EQ(0, QIV_EnumNetworkEvents(0, event.Get(), &memory[1])); });
  ResultBytes bytes;
  std::memcpy(bytes.data(), &memory[1], bytes.size());
  return bytes;
}

ResultBytes ExpectedResult(unsigned int found) {
  ResultBytes bytes;
  bytes.fill(kUntouched);
  std::memcpy(bytes.data(), &found, sizeof(found));
  return bytes;
}

ResultBytes ExpectedResult(unsigned int found, int connectError) {
  ResultBytes bytes = ExpectedResult(found);
  std::memcpy(&bytes[kConnectSlot], &connectError, sizeof(connectError));
  return bytes;
}

/** Begins to connect a non-blocking socket. */
void BeginConnect(const Socket& socket, const QIV_ADDR_T& address) {
  const int result = connect(socket.Get(), &address.any, sizeof(sockaddr_in));
  EXPECT_TRUE(result == 0 || errno == EINPROGRESS) << errno;
}

bool HasArrived(const Socket& socket, short event) {
  pollfd entry = {socket.Get(), event, 0};
  return poll(&entry, 1, static_cast<int>(qiv::test::TestLimit().count())) == 1;
}

bool IsNonBlocking(const Socket& socket) {
  return (fcntl(socket.Get(), F_GETFL) & O_NONBLOCK) != 0;
}

class EventSocketTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    m_event.emplace();
  }
  void TearDown() override {
    m_event.reset();
    LeakCheckedTest::TearDown();
  }

  void Select(const Socket& socket, unsigned int mask) {
    ASSERT_EQ(0, QIV_EventSelect(socket.Get(), m_event->Get(), mask));
  }
  void ExpectFound(unsigned int found) {
    EXPECT_EQ(0, WaitLong(*m_event));
    EXPECT_EQ(ExpectedResult(found), Enumerate(*m_event));
  }

  std::optional<Event> m_event;
};

// --- binding -------------------------------------------------------------------------------------

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

// --- what is found -------------------------------------------------------------------------------

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

TEST_F(EventSocketTest, ASocketThatTellsNoCountIsFoundAsNothingWithAnError) {
  const Socket listener = qiv::test::Listener();
  Select(listener, QIV_EVENT_READ | QIV_EVENT_ACCEPT);
  const Socket client = qiv::test::TcpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(listener);
  ASSERT_EQ(0, QIV_ConnectWithTimeOut(client.Get(), &address, QIV_INFINITE));
  ExpectFound(0);
  EXPECT_EQ(EINVAL, m_event->Record().errorCode.load());
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

// --- the decision about one entry ----------------------------------------------------------------

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

// --- enumeration ---------------------------------------------------------------------------------

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

}  // namespace
