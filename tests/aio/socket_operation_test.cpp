// A socket's object without a worker: nothing drains its queues, so that every limit can be
// reached.
#include "aio/socket_operation.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "aio/operation.h"
#include "aio/worker.h"
#include "support/captured_output.h"
#include "support/completions.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/sockets.h"

namespace {

using qiv::test::CapturedOutput;
using qiv::test::Completions;
using qiv::test::FailingAllocation;
using qiv::test::FailingFor;

constexpr int kLargest = CDataMemoryPool::kLargestChunk;
constexpr int kDefaultLimit = 33554432;

class SocketOperationTest : public qiv::test::LeakCheckedTest {
 protected:
  int Push(int length) {
    return m_operation.PushTCPSendRequest(m_data.data(), length, &m_completions,
                                          Completions::Callback);
  }

  std::vector<int> QueuedLengths() {
    std::vector<int> lengths;
    while (const IO_DATA* request = m_operation.FrontSendRequest()) {
      lengths.push_back(request->length);
      m_operation.PopSendRequest();
    }
    return lengths;
  }

  void SetUp() override {
    LeakCheckedTest::SetUp();
    g_max_socket_send_dataMemory.store(-1);
  }

  void TearDown() override {
    g_max_socket_send_dataMemory.store(-1);
    m_socket.Close();
    LeakCheckedTest::TearDown();
  }

  std::string m_data = std::string(1 << 20, 'x');
  Completions m_completions;
  qiv::test::Socket m_socket = qiv::test::UdpSocket();
  CSocketOperation m_operation{m_socket.Get(), -1};
};

TEST_F(SocketOperationTest, SendIsSplitIntoPiecesOfAtMost16384Bytes) {
  const struct {
    int length;
    std::vector<int> pieces;
  } kRows[] = {{1, {1}},
               {16383, {16383}},
               {16384, {16384}},
               {16385, {16384, 1}},
               {32768, {16384, 16384}},
               {40000, {16384, 16384, 7232}}};
  for (const auto& row : kRows) {
    ASSERT_EQ(0, Push(row.length));
    EXPECT_EQ(row.pieces, QueuedLengths()) << row.length;
    EXPECT_EQ(0, m_operation.UsedDataMemory());
  }
}

TEST_F(SocketOperationTest, UsedMemoryCountsClassSizesNotLengths) {
  const struct {
    int length;
    int used;
  } kRows[] = {{1, 32}, {1500, 1500}, {1501, 2048}, {16384, 16384}, {16385, 16384 + 32}};
  for (const auto& row : kRows) {
    ASSERT_EQ(0, Push(row.length));
    EXPECT_EQ(row.used, m_operation.UsedDataMemory()) << row.length;
    QueuedLengths();
  }
}

TEST_F(SocketOperationTest, PiecesHoldACopyOfTheDataInOrder) {
  std::string data = qiv::test::Pattern(50000, 3);
  ASSERT_EQ(0, m_operation.PushTCPSendRequest(data.data(), 50000, nullptr, nullptr));
  const std::string original = data;
  data.assign(data.size(), '\0');
  std::string copied;
  while (const IO_DATA* request = m_operation.FrontSendRequest()) {
    copied.append(static_cast<const char*>(request->buffer),
                  static_cast<std::size_t>(request->length));
    m_operation.PopSendRequest();
  }
  EXPECT_EQ(original, copied);
}

TEST_F(SocketOperationTest, SendRefusesBadArgumentsWithMinus4) {
  EXPECT_EQ(-4, Push(0));
  EXPECT_EQ(-4, Push(-1));
  EXPECT_EQ(-4, m_operation.PushTCPSendRequest(nullptr, 5, nullptr, nullptr));
  EXPECT_EQ(-4, m_operation.PushUDPSendRequest("x", 0, nullptr, nullptr, nullptr));
  EXPECT_EQ(-4, m_operation.PushSendRequest(QIV_IO_CONNECT, "x", 1, nullptr, nullptr, nullptr));
}

TEST_F(SocketOperationTest, ReceiveRefusesANegativeLengthWithMinus4) {
  char buffer[8];
  EXPECT_EQ(-4, m_operation.PushTCPRecvRequest(buffer, -1, nullptr, nullptr));
  EXPECT_EQ(-4, m_operation.PushUDPRecvRequest(buffer, -8, nullptr, nullptr, nullptr));
}

TEST_F(SocketOperationTest, SendsAreRefusedWithMinus5OnceMoreThan32MiBArePending) {
  for (long long used = 0; used <= kDefaultLimit; used += 1 << 20) ASSERT_EQ(0, Push(1 << 20));
  ASSERT_GT(m_operation.UsedDataMemory(), kDefaultLimit);
  CapturedOutput standardError(STDERR_FILENO);
  EXPECT_EQ(-5, Push(1));
  EXPECT_EQ("over max data memory limit! m_socketFd{" + std::to_string(m_socket.Get()) + "}\r\n",
            standardError.Stop());
}

TEST_F(SocketOperationTest, ExactlyTheLimitIsNotOverIt) {
  g_max_socket_send_dataMemory.store(kLargest);
  ASSERT_EQ(0, Push(kLargest));
  ASSERT_EQ(kLargest, m_operation.UsedDataMemory());
  EXPECT_EQ(0, Push(1));
  EXPECT_EQ(-5, Push(1));
}

TEST_F(SocketOperationTest, OneRequestMayTakeTheTotalPastTheLimit) {
  g_max_socket_send_dataMemory.store(1);
  EXPECT_EQ(0, Push(1 << 20));
  EXPECT_EQ(-5, Push(1));
}

TEST_F(SocketOperationTest, ACommonLimitOnceTakenStaysWithTheSocket) {
  g_max_socket_send_dataMemory.store(100);
  ASSERT_EQ(0, Push(200));
  g_max_socket_send_dataMemory.store(-1);
  EXPECT_EQ(-5, Push(1));
}

TEST_F(SocketOperationTest, The3841stPendingReceiveIsRefused) {
  char byte = 0;
  for (int i = 0; i < 3840; ++i) {
    ASSERT_EQ(0, m_operation.PushTCPRecvRequest(&byte, 1, nullptr, nullptr)) << i;
  }
  EXPECT_EQ(-1, m_operation.PushTCPRecvRequest(&byte, 1, nullptr, nullptr));
  m_operation.PopRecvRequest();
  EXPECT_EQ(0, m_operation.PushTCPRecvRequest(&byte, 1, nullptr, nullptr));
}

TEST_F(SocketOperationTest, ConnectIsRefusedWhile3840SendsArePending) {
  for (int i = 0; i < 3840; ++i) ASSERT_EQ(0, Push(1));
  const QIV_ADDR_T address = qiv::test::AddressOf(qiv::test::BoundUdpSocket());
  EXPECT_EQ(-1, m_operation.PushConnectRequest(&m_completions, &address, Completions::Callback));
  m_operation.PopSendRequest();
  EXPECT_EQ(0, m_operation.PushConnectRequest(&m_completions, &address, Completions::Callback));
}

TEST_F(SocketOperationTest, ConnectRefusedAtOnceGivesMinus1AndQueuesNothing) {
  QIV_ADDR_T address = {};
  address.family = 77;
  EXPECT_EQ(-1, m_operation.PushConnectRequest(&m_completions, &address, Completions::Callback));
  EXPECT_NE(0, errno);
  EXPECT_EQ(nullptr, m_operation.FrontSendRequest());
}

TEST_F(SocketOperationTest, ReceiveKeepsTheCallersRecordOnlyForDatagramsAndAccepts) {
  QIV_ADDR_T address = {};
  address.family = 2;
  const struct {
    QIV_IO_TYPE type;
    bool keepsPointer;
  } kRows[] = {{QIV_IO_TCP_RECV, false}, {QIV_IO_UDP_RECV, true}, {QIV_IO_ACCEPT, true}};
  for (const auto& row : kRows) {
    char byte = 0;
    ASSERT_EQ(0, m_operation.PushRecvRequest(row.type, &byte, 1, nullptr, &address, nullptr));
    const IO_DATA* request = m_operation.FrontRecvRequest();
    EXPECT_EQ(row.keepsPointer ? &address : &request->addrCopy, request->addr) << row.type;
    m_operation.PopRecvRequest();
  }
}

TEST_F(SocketOperationTest, StreamBacklogIsTrimmedOnceDrainedToAQuarter) {
  for (int i = 0; i < 2048; ++i) ASSERT_EQ(0, Push(100));
  CapturedOutput standardError(STDERR_FILENO);
  ASSERT_EQ(0, Push(100));  // sees 2048 queued requests
  while (m_operation.UsedDataMemory() > 128 * 513) m_operation.PopSendRequest();
  ASSERT_EQ(0, Push(100));  // sees 513
  m_operation.PopSendRequest();
  m_operation.PopSendRequest();
  ASSERT_EQ(0, Push(100));  // sees 512
  ASSERT_EQ(0, Push(100));
  EXPECT_EQ("trim boost pool!\r\n", standardError.Stop());
}

TEST_F(SocketOperationTest, ShortStreamBacklogIsNotTrimmed) {
  CapturedOutput standardError(STDERR_FILENO);
  for (int i = 0; i < 2048; ++i) ASSERT_EQ(0, Push(100));  // the last sees 2047
  QueuedLengths();
  ASSERT_EQ(0, Push(100));
  EXPECT_EQ("", standardError.Stop());
}

TEST_F(SocketOperationTest, DatagramBacklogHasThresholdsOfItsOwn) {
  const auto push = [this] {
    return m_operation.PushUDPSendRequest("x", 1, nullptr, nullptr, nullptr);
  };
  CapturedOutput standardError(STDERR_FILENO);
  for (int i = 0; i < 10241; ++i) ASSERT_EQ(0, push());  // the last sees 10240
  while (m_operation.UsedDataMemory() > 32 * 2560) m_operation.PopSendRequest();
  ASSERT_EQ(0, push());
  EXPECT_EQ("trim boost pool!\r\n", standardError.Stop());
}

// The allocations of a first send: room in the queue, a block of records, a block of chunks.
TEST_F(SocketOperationTest, SendWithoutMemoryFailsWithMinus6) {
  const struct {
    int failing;
    const char* message;
    int used;
  } kRows[] = {{1, "", 0}, {2, "", 0}, {3, "PushSendRequest 3\n", 1500}};
  for (const auto& row : kRows) {
    CSocketOperation operation(m_socket.Get(), -1);
    {
      CapturedOutput standardError(STDERR_FILENO);
      const int result = [&] {
        const FailingAllocation failure(row.failing, FailingFor::kEver);
        return operation.PushTCPSendRequest(m_data.data(), 1500, nullptr, nullptr);
      }();
      EXPECT_EQ(row.message, standardError.Stop());
      EXPECT_EQ(-6, result) << row.failing;
    }
    EXPECT_EQ(nullptr, operation.FrontSendRequest());
    EXPECT_EQ(row.used, operation.UsedDataMemory()) << "kept: not taken back";
    EXPECT_EQ(0, operation.PushTCPSendRequest(m_data.data(), 1500, nullptr, nullptr));
  }
}

TEST_F(SocketOperationTest, PiecesQueuedBeforeMemoryRanOutAreKept) {
  const int result = [&] {
    const FailingAllocation failure(4, FailingFor::kEver);  // the second piece's class is a new one
    return m_operation.PushTCPSendRequest(m_data.data(), kLargest + 1, nullptr, nullptr);
  }();
  EXPECT_EQ(-6, result);
  EXPECT_EQ(std::vector<int>{kLargest}, QueuedLengths());
}

TEST_F(SocketOperationTest, ReceiveAndConnectWithoutMemoryFail) {
  char byte = 0;
  const QIV_ADDR_T address = qiv::test::AddressOf(qiv::test::BoundUdpSocket());
  for (int failing = 1; failing <= 2; ++failing) {
    CSocketOperation operation(m_socket.Get(), -1);
    {
      const FailingAllocation failure(failing, FailingFor::kEver);
      EXPECT_EQ(-1, operation.PushTCPRecvRequest(&byte, 1, nullptr, nullptr));
    }
    const FailingAllocation failure(failing, FailingFor::kEver);
    EXPECT_EQ(-1, operation.PushConnectRequest(nullptr, &address, nullptr));
  }
}

TEST(SerialNumberTest, IsBetweenAlsoWhereTheNumbersWrap) {
  const struct {
    unsigned int first;
    unsigned int serial;
    unsigned int end;
    bool isBetween;
  } kRows[] = {
      {10, 9, 10, false},
      {10, 10, 10, false},
      {10, 10, 11, true},
      {10, 11, 11, false},
      {10, 9, 11, false},
      {0xFFFFFFFEu, 0xFFFFFFFFu, 1, true},
      {0xFFFFFFFEu, 0, 1, true},
      {0xFFFFFFFEu, 1, 1, false},
      {0x80000005u, 3, 0x80000006u, false},  // far older than half of all numbers
      {0x80000005u, 0x80000006u, 0x80000007u, true},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(row.isBetween, qiv::aio::IsSerialBetween(row.first, row.serial, row.end))
        << row.first << ' ' << row.serial << ' ' << row.end;
  }
}

TEST_F(SocketOperationTest, UnknownEditIsRefused) {
  EXPECT_EQ(-1, m_operation.ChangeSocketOpr(static_cast<__SOCKET_OPR>(6)));
}

TEST_F(SocketOperationTest, SerialNumbersGrow) {
  const unsigned int next = CSocketOperation::NextUuid();
  const CSocketOperation another(m_socket.Get(), -1);
  EXPECT_EQ(next, another.Uuid());
  EXPECT_EQ(next + 1, CSocketOperation::NextUuid());
}

class RegistrationTest : public qiv::test::LeakCheckedTest {
 protected:
  // What the set reports of the socket now, if it is registered at all.
  unsigned int Reported() const {
    epoll_event event = {};
    return epoll_wait(m_epoll.Get(), &event, 1, 0) == 1 ? event.events : 0;
  }

  bool IsRegistered() const {
    epoll_event event = {};
    const bool added = epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, m_socket.Get(), &event) == 0;
    if (added) epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, m_socket.Get(), nullptr);
    return !added && errno == EEXIST;
  }

  void TearDown() override {
    m_epoll.Close();
    m_socket.Close();
    LeakCheckedTest::TearDown();
  }

  qiv::test::Socket m_epoll{epoll_create1(0)};
  qiv::test::Socket m_socket = qiv::test::BoundUdpSocket();
};

TEST_F(RegistrationTest, InterestFollowsTheQueues) {
  CSocketOperation operation(m_socket.Get(), m_epoll.Get());
  EXPECT_TRUE(IsRegistered());
  EXPECT_EQ(0u, Reported());
  ASSERT_EQ(0, operation.PushUDPSendRequest("x", 1, nullptr, nullptr, nullptr));
  EXPECT_EQ(static_cast<unsigned int>(EPOLLOUT), Reported());
  operation.PopSendRequest();
  EXPECT_EQ(0u, Reported());
}

TEST_F(RegistrationTest, UnregisterDoesNothingWhileARequestIsPending) {
  CSocketOperation operation(m_socket.Get(), m_epoll.Get());
  char byte = 0;
  ASSERT_EQ(0, operation.PushTCPRecvRequest(&byte, 1, nullptr, nullptr));
  EXPECT_EQ(0, operation.ChangeSocketOpr(SOCKET_OPR_DEL));
  EXPECT_TRUE(IsRegistered());
  operation.PopRecvRequest();
  EXPECT_EQ(0, operation.ChangeSocketOpr(SOCKET_OPR_DEL));
  EXPECT_FALSE(IsRegistered());
}

TEST_F(RegistrationTest, APushRegistersASocketAgainThatWasUnregistered) {
  CSocketOperation operation(m_socket.Get(), m_epoll.Get());
  ASSERT_EQ(0, operation.ChangeSocketOpr(SOCKET_OPR_DEL));
  ASSERT_EQ(0, operation.PushUDPSendRequest("x", 1, nullptr, nullptr, nullptr));
  EXPECT_TRUE(IsRegistered());
  EXPECT_EQ(static_cast<unsigned int>(EPOLLOUT), Reported());
}

TEST_F(RegistrationTest, TheDestructorUnregistersAndDropsRequestsWithoutCallbacks) {
  Completions completions;
  {
    CSocketOperation operation(m_socket.Get(), m_epoll.Get());
    ASSERT_EQ(0, operation.PushTCPSendRequest("x", 1, &completions, Completions::Callback));
  }
  EXPECT_FALSE(IsRegistered());
  EXPECT_EQ(0u, completions.Count());
}

TEST_F(RegistrationTest, LeavingTheSetMakesEveryLaterEditFail) {
  CSocketOperation operation(m_socket.Get(), m_epoll.Get());
  operation.LeaveEpollSet();
  EXPECT_EQ(-1, operation.ChangeSocketOpr(SOCKET_OPR_ADD_WRITE));
  EXPECT_EQ(-1, operation.EpollFd());
}

}  // namespace
