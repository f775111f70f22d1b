// One request at a time, carried out by hand.
#include "aio/operation.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "support/completions.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/sockets.h"

namespace {

using qiv::test::Completion;
using qiv::test::Completions;

class OperationTest : public qiv::test::LeakCheckedTest {
 protected:
  IO_DATA Request(QIV_IO_TYPE type, const qiv::test::Socket& socket, void* buffer, int length) {
    IO_DATA request = {};
    request.socketFd = socket.Get();
    request.ioType = type;
    request.buffer = buffer;
    request.length = length;
    request.callback = Completions::Callback;
    request.userData = &m_completions;
    return request;
  }

  int Send(IO_DATA* request) {
    const Held held(m_lock);
    return SendOperation(1, &m_lock, request);
  }

  int Receive(IO_DATA* request) {
    const Held held(m_lock);
    return RecvOperation(1, &m_lock, request);
  }

  void ExpectOnly(unsigned int error, unsigned int bytes) {
    ASSERT_EQ(1u, m_completions.Count());
    EXPECT_EQ(error, m_completions.All()[0].error);
    EXPECT_EQ(bytes, m_completions.All()[0].bytes);
  }

  struct Held {
    explicit Held(QIV_Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS : m_mutex(mutex) {
      m_mutex.Lock();
    }
    ~Held() QIV_NO_THREAD_SAFETY_ANALYSIS { m_mutex.Unlock(); }
    QIV_Mutex& m_mutex;
  };

  Completions m_completions;
  QIV_Mutex m_lock;
};

qiv::test::TcpPair NonBlockingPair() {
  qiv::test::TcpPair pair;
  fcntl(pair.first.Get(), F_SETFL, O_NONBLOCK);
  fcntl(pair.second.Get(), F_SETFL, O_NONBLOCK);
  return pair;
}

// Fills the connection until send(2) would wait.
std::size_t Fill(const qiv::test::Socket& socket) {
  const std::string block(65536, 'f');
  std::size_t filled = 0;
  ssize_t sent = 0;
  while ((sent = send(socket.Get(), block.data(), block.size(), MSG_DONTWAIT)) > 0) {
    filled += static_cast<std::size_t>(sent);
  }
  return filled;
}

// Reads what has arrived, at least a byte.
void Drain(const qiv::test::Socket& socket) {
  ASSERT_EQ(1u, qiv::test::ReadExactly(socket, 1).size());
  std::string block(65536, '\0');
  while (recv(socket.Get(), &block[0], block.size(), MSG_DONTWAIT) > 0) {
  }
}

TEST_F(OperationTest, APieceSentInSeveralCallsIsKeptReportedTwice) {
  qiv::test::TcpPair pair = NonBlockingPair();
  std::string data(8 << 20, 'd');
  const int length = static_cast<int>(data.size());
  IO_DATA request = Request(QIV_IO_TCP_SEND, pair.first, &data[0], length);

  const int partial = Send(&request);
  ASSERT_GT(partial, 0);
  ASSERT_LT(partial, length);
  EXPECT_EQ(partial, request.doneBytes);
  EXPECT_EQ(0u, m_completions.Count());

  int last = 0;
  while (request.doneBytes < length) {
    Drain(pair.second);
    const int before = request.doneBytes;
    last = Send(&request);
    if (last == -1) continue;  // still full: reported, which this loop does not count
    if (request.doneBytes < length) {
      EXPECT_EQ(request.doneBytes, last);
    } else {
      EXPECT_EQ(length - before, last);
    }
  }
  EXPECT_LT(last, length);
  ASSERT_GE(m_completions.Count(), 1u);
  const Completion first = m_completions.All().back();
  EXPECT_EQ(0u, first.error);
  EXPECT_EQ(static_cast<unsigned int>(length), first.bytes);

  const std::size_t reports = m_completions.Count();
  errno = 42;
  EXPECT_EQ(0, Send(&request));
  ASSERT_EQ(reports + 1, m_completions.Count());
  EXPECT_EQ(42u, m_completions.All().back().error);
  EXPECT_EQ(static_cast<unsigned int>(length), m_completions.All().back().bytes);
}

TEST_F(OperationTest, SendThatWouldWaitIsKeptReportedWithEagain) {
  qiv::test::TcpPair pair = NonBlockingPair();
  Fill(pair.first);
  char byte = 'x';
  IO_DATA request = Request(QIV_IO_TCP_SEND, pair.first, &byte, 1);
  EXPECT_EQ(-1, Send(&request));
  ExpectOnly(EAGAIN, 0);
}

TEST_F(OperationTest, SendOfAllBytesReturnsTheirCountAndReportsIt) {
  qiv::test::TcpPair pair = NonBlockingPair();
  std::string data = "hello";
  IO_DATA request = Request(QIV_IO_TCP_SEND, pair.first, &data[0], 5);
  EXPECT_EQ(5, Send(&request));
  ExpectOnly(0, 5);
  EXPECT_EQ("hello", qiv::test::ReadExactly(pair.second, 5));
}

TEST_F(OperationTest, ReceiveThatWouldWaitIsNotReported) {
  qiv::test::TcpPair pair = NonBlockingPair();
  char buffer[8];
  IO_DATA request = Request(QIV_IO_TCP_RECV, pair.first, buffer, 8);
  EXPECT_EQ(kReceiveNotReady, Receive(&request));
  EXPECT_EQ(0u, m_completions.Count());
}

TEST_F(OperationTest, ReceiveCompletesWithWhatOneCallBrings) {
  qiv::test::TcpPair pair = NonBlockingPair();
  qiv::test::WriteAll(pair.second, "ten bytes!");
  char buffer[1000] = {};
  IO_DATA request = Request(QIV_IO_TCP_RECV, pair.first, buffer, 1000);
  EXPECT_EQ(10, Receive(&request));
  ExpectOnly(0, 10);
  EXPECT_STREQ("ten bytes!", buffer);
}

TEST_F(OperationTest, ReceiveAfterThePeersCloseIsKeptReportedWithWhateverErrnoHolds) {
  qiv::test::TcpPair pair = NonBlockingPair();
  pair.second.Close();
  char buffer[8];
  IO_DATA request = Request(QIV_IO_TCP_RECV, pair.first, buffer, 8);
  errno = 33;
  EXPECT_EQ(0, Receive(&request));
  ExpectOnly(33, 0);
}

TEST_F(OperationTest, FailedReceiveReportsErrnoAndZeroBytes) {
  const qiv::test::Socket socket = qiv::test::TcpSocket();
  char buffer[8];
  IO_DATA request = Request(QIV_IO_TCP_RECV, socket, buffer, 8);
  EXPECT_EQ(-1, Receive(&request));
  ExpectOnly(ENOTCONN, 0);
}

TEST_F(OperationTest, FailedAcceptReportsMinus1AsItsDescriptor) {
  const qiv::test::Socket socket = qiv::test::TcpSocket();
  IO_DATA request = Request(QIV_IO_ACCEPT, socket, nullptr, 0);
  EXPECT_EQ(-1, Receive(&request));
  ExpectOnly(EINVAL, 0xFFFFFFFFu);
}

TEST_F(OperationTest, TypesOfTheOtherSideAreRefusedWithoutACallback) {
  qiv::test::TcpPair pair = NonBlockingPair();
  char byte = 0;
  IO_DATA receive = Request(QIV_IO_TCP_RECV, pair.first, &byte, 1);
  EXPECT_EQ(-1, Send(&receive));
  IO_DATA send = Request(QIV_IO_TCP_SEND, pair.first, &byte, 1);
  EXPECT_EQ(-1, Receive(&send));
  EXPECT_EQ(0u, m_completions.Count());
}

TEST_F(OperationTest, OnlyMode1KeepsTheLockDuringTheCallback) {
  for (const int mode : {0, 1, 2}) {
    Completions completions;
    int tryLock = 0;
    completions.onCompletion = [&](const Completion&) {
      tryLock = qiv::test::RunInThread([&]() QIV_NO_THREAD_SAFETY_ANALYSIS {
                  const int result = m_lock.TryLock();
                  if (result == 0) m_lock.Unlock();
                  return result;
                }).Get();
    };
    const qiv::test::TcpPair pair = NonBlockingPair();
    char byte = 'x';
    IO_DATA request = Request(QIV_IO_TCP_SEND, pair.first, &byte, 1);
    request.userData = &completions;
    {
      const Held held(m_lock);
      EXPECT_EQ(1, SendOperation(mode, &m_lock, &request));
    }
    EXPECT_EQ(mode == 1 ? -1 : 0, tryLock) << mode;
  }
}

TEST_F(OperationTest, ConnectReportsTheSocketsError) {
  const qiv::test::Socket socket = qiv::test::TcpSocket();
  fcntl(socket.Get(), F_SETFL, O_NONBLOCK);
  const qiv::test::Socket closed = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(closed);
  connect(socket.Get(), &address.any, sizeof(sockaddr_in));
  IO_DATA request = Request(QIV_IO_CONNECT, socket, nullptr, 0);
  EXPECT_EQ(-1, Send(&request));
  ExpectOnly(ECONNREFUSED, 0);
}

TEST_F(OperationTest, ConnectOfADescriptorWithoutASocketReportsTheFailedRead) {
  const qiv::test::Socket file(open("/dev/null", O_RDONLY));
  IO_DATA request = Request(QIV_IO_CONNECT, file, nullptr, 0);
  EXPECT_EQ(-1, Send(&request));
  ExpectOnly(ENOTSOCK, 0);
}

TEST_F(OperationTest, DatagramSendWithoutAnAddressGoesToTheConnectedPeer) {
  const qiv::test::Socket receiver = qiv::test::BoundUdpSocket();
  const qiv::test::Socket sender = qiv::test::UdpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(receiver);
  ASSERT_EQ(0, connect(sender.Get(), &address.any, sizeof(sockaddr_in)));
  char bytes[] = "abc";
  IO_DATA request = Request(QIV_IO_UDP_SEND, sender, bytes, 3);
  EXPECT_EQ(3, Send(&request));
  EXPECT_EQ("abc", qiv::test::ReadExactly(receiver, 3));
}

TEST_F(OperationTest, RequestsWithoutACallbackAreCarriedOutSilently) {
  const qiv::test::TcpPair pair = NonBlockingPair();
  char byte = 'x';
  IO_DATA request = Request(QIV_IO_TCP_SEND, pair.first, &byte, 1);
  request.callback = nullptr;
  EXPECT_EQ(1, Send(&request));
  EXPECT_EQ("x", qiv::test::ReadExactly(pair.second, 1));
}

}  // namespace
