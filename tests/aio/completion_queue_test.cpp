// Queues, bindings, arguments and messages.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <qiv/async_io.h>
#include <qiv/system.h>
#include <qiv/thread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <climits>
#include <string>
#include <thread>

#include "aio/queue_fixture.h"
#include "aio/socket_operation.h"
#include "support/captured_output.h"
#include "support/completions.h"
#include "support/failing_allocation.h"
#include "support/failing_thread_start.h"
#include "support/latch.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::Bound;
using qiv::test::CapturedOutput;
using qiv::test::Completion;
using qiv::test::Completions;
using qiv::test::InvalidQueue;
using qiv::test::Queue;
using qiv::test::Socket;

class CompletionQueueTest : public qiv::test::LeakCheckedTest {
 protected:
  void TearDown() override {
    g_max_socket_send_dataMemory.store(-1);
    LeakCheckedTest::TearDown();
  }
};

TEST_F(CompletionQueueTest, WorkerCountBelow1GivesAQueueToWhichNothingBinds) {
  const Socket socket = qiv::test::TcpSocket();
  for (const int workers : {0, -1, INT_MIN}) {
    const Queue queue(workers);
    ASSERT_NE(nullptr, queue.Get());
    ASSERT_NE(InvalidQueue(), queue.Get());
    EXPECT_EQ(-1, QIV_AsyncIO_BindIOHandleToQueueEx(socket.Get(), queue.Get())) << workers;
    EXPECT_EQ(-1, QIV_AsyncIO_UnBindIOHandleEx(socket.Get(), queue.Get())) << workers;
  }
}

TEST_F(CompletionQueueTest, DestroyRefusesNullAndMinus1) {
  EXPECT_EQ(-1, QIV_AsyncIO_DestroyQueueEx(nullptr));
  EXPECT_EQ(-1, QIV_AsyncIO_DestroyQueueEx(InvalidQueue()));
}

TEST_F(CompletionQueueTest, DestroyOfAnIdleQueueReturnsSoon) {
  const QIV_HANDLE queue = QIV_AIO_CreateQueueEx(3, 0);
  EXPECT_EQ(0, qiv::test::RunInThread([queue] { return QIV_AsyncIO_DestroyQueueEx(queue); }).Get());
}

TEST_F(CompletionQueueTest, EveryWorkerIsAThreadWithAnEpollDescriptor) {
  const int threads = qiv::test::ThreadsAtRest();
  const int descriptors = qiv::test::CountEntries("/proc/self/fd");
  const Queue queue(3, 1);
  EXPECT_EQ(threads + 3, qiv::test::CountEntries("/proc/self/task"));
  EXPECT_EQ(descriptors + 3, qiv::test::CountEntries("/proc/self/fd"));
}

TEST_F(CompletionQueueTest, CreateNewMakesAQueueInMode1WithSoManyWorkers) {
  const int threads = qiv::test::ThreadsAtRest();
  const QIV_HANDLE queue = QIV_AsyncIO_CreateQueueEx_New(2);
  EXPECT_EQ(threads + 2, qiv::test::CountEntries("/proc/self/task"));
  EXPECT_EQ(0, QIV_AsyncIO_DestroyQueueEx(queue));
}

TEST_F(CompletionQueueTest, CreateEx2MakesTwiceProcessorsPlus1Workers) {
  const int threads = qiv::test::ThreadsAtRest();
  const QIV_HANDLE queue = QIV_AsyncIO_CreateQueueEx2();
  EXPECT_EQ(threads + (QIV_GetCPUNumber() + 1) * 2, qiv::test::CountEntries("/proc/self/task"));
  EXPECT_EQ(0, QIV_AsyncIO_DestroyQueueEx(queue));
}

TEST_F(CompletionQueueTest, BindAndUnbindRefuseBadArguments) {
  const Queue queue(2);
  const Socket socket = qiv::test::TcpSocket();
  const struct {
    int socket;
    QIV_HANDLE queue;
  } kRows[] = {{-1, queue.Get()},       {-2, queue.Get()},
               {INT_MIN, queue.Get()},  {65536, queue.Get()},
               {70000, queue.Get()},    {INT_MAX, queue.Get()},
               {socket.Get(), nullptr}, {socket.Get(), InvalidQueue()}};
  for (const auto& row : kRows) {
    EXPECT_EQ(-1, QIV_AsyncIO_BindIOHandleToQueueEx(row.socket, row.queue)) << row.socket;
    EXPECT_EQ(-1, QIV_AsyncIO_UnBindIOHandleEx(row.socket, row.queue)) << row.socket;
  }
}

TEST_F(CompletionQueueTest, BindingTwiceFailsWithAMessage) {
  const Queue queue(1);
  const Socket socket = qiv::test::TcpSocket();
  const Bound bound(queue, socket);
  CapturedOutput standardError(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_AsyncIO_BindIOHandleToQueueEx(socket.Get(), queue.Get()));
  EXPECT_EQ(
      "QIV_AsyncIO_BindIOHandleToQueueEx, ERROR, socketFd = " + std::to_string(socket.Get()) + "\n",
      standardError.Stop());
}

std::string NotBoundMessage(const Socket& socket) {
  return "QIV_AsyncIO_UnBindIOHandleEx gSocketOpr[socketFd] = NULL, socketFd = " +
         std::to_string(socket.Get()) + "\n";
}

TEST_F(CompletionQueueTest, UnbindingASocketThatWasNeverBoundFailsWithAMessage) {
  const Queue queue(1);
  const Socket socket = qiv::test::TcpSocket();
  CapturedOutput standardError(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_AsyncIO_UnBindIOHandleEx(socket.Get(), queue.Get()));
  EXPECT_EQ(NotBoundMessage(socket), standardError.Stop());
}

TEST_F(CompletionQueueTest, UnbindingFromAnotherQueueFailsWithAMessage) {
  const Queue queue(1);
  const Queue other(1);
  const Socket socket = qiv::test::TcpSocket();
  const Bound bound(queue, socket);
  CapturedOutput standardError(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_AsyncIO_UnBindIOHandleEx(socket.Get(), other.Get()));
  EXPECT_EQ(NotBoundMessage(socket), standardError.Stop());
}

TEST_F(CompletionQueueTest, ASocketCanBeBoundAgainAfterItsUnbinding) {
  const Queue first(1);
  const Queue second(2);
  const Socket socket = qiv::test::TcpSocket();
  for (int round = 0; round < 20; ++round) {
    const Bound bound(round % 2 == 0 ? first : second, socket);
  }
}

TEST_F(CompletionQueueTest, BindingMakesTheSocketNonBlocking) {
  const Queue queue(1);
  const Socket socket = qiv::test::TcpSocket();
  ASSERT_EQ(0, fcntl(socket.Get(), F_GETFL) & O_NONBLOCK);
  const Bound bound(queue, socket);
  EXPECT_NE(0, fcntl(socket.Get(), F_GETFL) & O_NONBLOCK);
}

TEST_F(CompletionQueueTest, BindingACallbackDoesNothingWhateverItsArguments) {
  EXPECT_EQ(0, QIV_AsyncIO_BindCallBackToIOHandleEx());
  EXPECT_EQ(0, QIV_AsyncIO_BindCallBackToIOHandleEx(3, Completions::Callback));
}

TEST_F(CompletionQueueTest, SocketsAreServedByWorkerDescriptorModuloWorkers) {
  const Queue queue(4);
  const int numbers[] = {205, 209, 206};
  std::thread::id threads[3];
  for (int i = 0; i < 3; ++i) {
    const Socket socket = qiv::test::MoveTo(qiv::test::BoundUdpSocket(), numbers[i]);
    const QIV_ADDR_T address = qiv::test::AddressOf(socket);
    const Bound bound(queue, socket);
    Completions completions;
    ASSERT_EQ(0, QIV_AsyncIO_SendToEx(socket.Get(), "x", 1, &completions, &address,
                                      Completions::Callback));
    ASSERT_TRUE(completions.WaitFor(1));
    threads[i] = completions.All()[0].thread;
  }
  EXPECT_EQ(threads[0], threads[1]);
  EXPECT_NE(threads[0], threads[2]);
}

TEST_F(CompletionQueueTest, RequestsOnUnboundOrImpossibleSocketsFail) {
  const Socket socket = qiv::test::TcpSocket();
  const Socket closed = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(closed);
  char buffer[4] = {};
  QIV_ADDR_T peer = {};
  Completions completions;
  for (const int fd : {socket.Get(), -1, 65536, 70000, INT_MIN, INT_MAX}) {
    const auto callback = Completions::Callback;
    EXPECT_EQ(-1, QIV_AsyncIO_SendEx(fd, buffer, 4, &completions, callback));
    EXPECT_EQ(-1, QIV_AsyncIO_RecvEx(fd, buffer, 4, &completions, callback));
    EXPECT_EQ(-1, QIV_AsyncIO_SendToEx(fd, buffer, 4, &completions, &address, callback));
    EXPECT_EQ(-1, QIV_AsyncIO_RecvFromEx(fd, buffer, 4, &completions, &peer, callback));
    EXPECT_EQ(-1, QIV_AsyncIO_ConnectEx(fd, &address, nullptr, 0, &completions, callback));
    EXPECT_EQ(-1, QIV_AsyncIO_AcceptEx(fd, &peer, nullptr, 0, &completions, callback));
  }
  EXPECT_EQ(0u, completions.Count());
}

TEST_F(CompletionQueueTest, ConnectAndAcceptRefuseNullArguments) {
  const Queue queue(1);
  const Socket socket = qiv::test::TcpSocket();
  const Bound bound(queue, socket);
  const Socket closed = qiv::test::BoundSocket(AF_INET, SOCK_STREAM);
  const QIV_ADDR_T address = qiv::test::AddressOf(closed);
  int user = 0;
  const auto callback = Completions::Callback;
  EXPECT_EQ(-1, QIV_AsyncIO_ConnectEx(socket.Get(), nullptr, nullptr, 0, &user, callback));
  EXPECT_EQ(-1, QIV_AsyncIO_ConnectEx(socket.Get(), &address, nullptr, 0, nullptr, callback));
  EXPECT_EQ(-1, QIV_AsyncIO_ConnectEx(socket.Get(), &address, nullptr, 0, &user, nullptr));
  EXPECT_EQ(-1, QIV_AsyncIO_AcceptEx(socket.Get(), nullptr, nullptr, 0, nullptr, callback));
  EXPECT_EQ(-1, QIV_AsyncIO_AcceptEx(socket.Get(), nullptr, nullptr, 0, &user, nullptr));
}

TEST_F(CompletionQueueTest, AcceptWritesALineOnEveryCall) {
  int user = 0;
  CapturedOutput standardError(STDERR_FILENO);
  QIV_AsyncIO_AcceptEx(77, nullptr, nullptr, 0, &user, Completions::Callback);
  EXPECT_EQ("QIV_AsyncIO_AcceptEx 77\n", standardError.Stop());
}

TEST_F(CompletionQueueTest, SetMemorySizeRefusesLessThan1AndChangesNothing) {
  ASSERT_EQ(0, QIV_AsyncIO_SetIOQueueMemorySize(5000));
  EXPECT_EQ(-1, QIV_AsyncIO_SetIOQueueMemorySize(0));
  EXPECT_EQ(-1, QIV_AsyncIO_SetIOQueueMemorySize(-1));
  EXPECT_EQ(5000, g_max_socket_send_dataMemory.load());
}

TEST_F(CompletionQueueTest, PostedCompletionRunsOnAnotherThread) {
  Completions completions;
  EXPECT_EQ(0, QIV_AsyncIO_PostQueuedCompleteStatusEx(nullptr, 3, 0, 100, &completions,
                                                      Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_EQ(0u, completions.All()[0].error);
  EXPECT_EQ(100u, completions.All()[0].bytes);
  EXPECT_NE(std::this_thread::get_id(), completions.All()[0].thread);
}

TEST_F(CompletionQueueTest, PostedValuesPassThroughUnchanged) {
  Completions completions;
  EXPECT_EQ(0, QIV_AsyncIO_PostQueuedCompleteStatusEx(InvalidQueue(), -5, 0xFFFFFFFFu, 0x80000001u,
                                                      &completions, Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_EQ(0xFFFFFFFFu, completions.All()[0].error);
  EXPECT_EQ(0x80000001u, completions.All()[0].bytes);
}

TEST_F(CompletionQueueTest, PostRefusesANullCallback) {
  EXPECT_EQ(-1, QIV_AsyncIO_PostQueuedCompleteStatusEx(nullptr, 3, 0, 100, nullptr, nullptr));
}

TEST_F(CompletionQueueTest, DestroyFromOneOfItsOwnCallbacksIsRefused) {
  const Queue queue(1);
  const Socket socket = qiv::test::BoundUdpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(socket);
  const Bound bound(queue, socket);
  Completions completions;
  int result = 0;
  completions.onCompletion = [&](const Completion&) {
    result = QIV_AsyncIO_DestroyQueueEx(queue.Get());
  };
  ASSERT_EQ(
      0, QIV_AsyncIO_SendToEx(socket.Get(), "x", 1, &completions, &address, Completions::Callback));
  ASSERT_TRUE(completions.WaitFor(1));
  EXPECT_EQ(-1, result);
}

// One worker has ended, the other is still in a callback that binds to the first.
TEST_F(CompletionQueueTest, ACallbackMayBindAndUnbindUntilTheDestructionIsOver) {
  for (const int mode : {0, 1}) {
    const int threads = qiv::test::ThreadsAtRest();
    const QIV_HANDLE queue = QIV_AIO_CreateQueueEx(2, mode);
    const Socket busy = qiv::test::MoveTo(qiv::test::BoundUdpSocket(), 601);
    const Socket other = qiv::test::MoveTo(qiv::test::BoundUdpSocket(), 600);
    const QIV_ADDR_T address = qiv::test::AddressOf(busy);
    ASSERT_EQ(0, QIV_AsyncIO_BindIOHandleToQueueEx(busy.Get(), queue));
    qiv::test::Latch entered;
    qiv::test::Latch mayGo;
    int results[] = {-2, -2, -2};
    Completions completions;
    completions.onCompletion = [&](const Completion&) {
      entered.Open();
      EXPECT_TRUE(mayGo.Wait());
      results[0] = QIV_AsyncIO_BindIOHandleToQueueEx(other.Get(), queue);
      results[1] = QIV_AsyncIO_UnBindIOHandleEx(other.Get(), queue);
      results[2] = QIV_AsyncIO_UnBindIOHandleEx(busy.Get(), queue);
    };
    ASSERT_EQ(
        0, QIV_AsyncIO_SendToEx(busy.Get(), "x", 1, &completions, &address, Completions::Callback));
    ASSERT_TRUE(entered.Wait());
    auto destroyed = qiv::test::RunInThread([queue] { return QIV_AsyncIO_DestroyQueueEx(queue); });
    // Two of the library's threads and the destroying one; the idle worker ends by itself.
    while (qiv::test::CountEntries("/proc/self/task") > threads + 2) std::this_thread::yield();
    mayGo.Open();
    EXPECT_EQ(0, destroyed.Get());
    for (const int result : results) EXPECT_EQ(0, result) << mode;
  }
}

TEST_F(CompletionQueueTest, BindingWithoutMemoryFailsAndLeavesTheSocketUnbound) {
  const Queue queue(1);
  const Socket socket = qiv::test::BoundUdpSocket();
  {
    const qiv::test::FailingAllocation failure(1);
    EXPECT_EQ(-1, QIV_AsyncIO_BindIOHandleToQueueEx(socket.Get(), queue.Get()));
    EXPECT_TRUE(failure.Happened());
  }
  const Bound bound(queue, socket);
}

TEST_F(CompletionQueueTest, PostingWithoutMemoryFails) {
  const qiv::test::FailingAllocation failure(1);
  EXPECT_EQ(
      -1, QIV_AsyncIO_PostQueuedCompleteStatusEx(nullptr, 3, 0, 1, nullptr, Completions::Callback));
  EXPECT_TRUE(failure.Happened());
}

TEST_F(CompletionQueueTest, PostingWithoutAThreadFails) {
  const qiv::test::FailingThreadStart failure;
  EXPECT_EQ(
      -1, QIV_AsyncIO_PostQueuedCompleteStatusEx(nullptr, 3, 0, 1, nullptr, Completions::Callback));
  EXPECT_EQ(1, qiv::test::FailingThreadStart::Count());
}

TEST_F(CompletionQueueTest, QueueWithoutAThreadFailsAndLeavesNothing) {
  const qiv::test::FailingThreadStart failure;
  EXPECT_EQ(InvalidQueue(), QIV_AIO_CreateQueueEx(3, 0));
  EXPECT_EQ(1, qiv::test::FailingThreadStart::Count());
}

// A queue destroyed with a socket still bound: the descriptor's number can never be bound again in
// the process, so this runs in a child.
[[noreturn]] void UseASocketOfADestroyedQueue() {
  const Socket socket = qiv::test::BoundUdpSocket();
  const QIV_ADDR_T address = qiv::test::AddressOf(socket);
  {
    const Queue queue(1);
    if (QIV_AsyncIO_BindIOHandleToQueueEx(socket.Get(), queue.Get()) != 0) _exit(1);
  }
  const Queue later(1);  // gets the descriptor numbers that have become free
  Completions completions;
  const int sent =
      QIV_AsyncIO_SendToEx(socket.Get(), "x", 1, &completions, &address, Completions::Callback);
  if (sent != 0) _exit(2);
  if (completions.WaitFor(1, std::chrono::milliseconds(300))) _exit(3);
  if (QIV_AsyncIO_BindIOHandleToQueueEx(socket.Get(), later.Get()) != -1) _exit(4);
  CapturedOutput standardError(STDERR_FILENO);
  const int unbound = QIV_AsyncIO_UnBindIOHandleEx(socket.Get(), later.Get());
  if (unbound != -1 || standardError.Stop() != NotBoundMessage(socket)) _exit(5);
  _exit(0);
}

TEST(CompletionQueueDeathTest, ADestroyedQueuesSocketReachesNoLaterQueueWithTheSameEpollNumber) {
  EXPECT_EXIT(UseASocketOfADestroyedQueue(), ::testing::ExitedWithCode(0), "");
}

// Creates a queue while only `spare` descriptors are left, and ends the process with a code of two
// digits: the threads and the descriptors that the failed creation has left behind. What it leaves
// stays for the life of the process, so each case runs in a child.
[[noreturn]] void CreateWithSpareDescriptors(int workers, int spare) {
  // Sanitizers add a thread with the first one, and need descriptors for their first looks.
  QIV_Thread_Wait(QIV_Thread_Create([](void*) -> void* { return nullptr; }, nullptr, 0, 0, 0, 0));
  int next = 0;
  while (next < 100) next = open("/dev/null", O_RDONLY);  // every number below is taken then
  close(next);
  const int threads = qiv::test::ThreadsAtRest();
  const int descriptors = qiv::test::CountEntries("/proc/self/fd");
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t before = limit.rlim_cur;
  limit.rlim_cur = static_cast<rlim_t>(next + spare);
  setrlimit(RLIMIT_NOFILE, &limit);
  const QIV_HANDLE queue = QIV_AIO_CreateQueueEx(workers, 0);
  limit.rlim_cur = before;
  setrlimit(RLIMIT_NOFILE, &limit);
  if (queue != InvalidQueue()) _exit(99);
  const int threadsLeft = qiv::test::CountEntries("/proc/self/task") - threads;
  const int descriptorsLeft = qiv::test::CountEntries("/proc/self/fd") - descriptors;
  _exit(threadsLeft * 10 + descriptorsLeft);
}

TEST(CompletionQueueDeathTest, FailureAtTheFirstWorkerLeavesNothing) {
  EXPECT_EXIT(CreateWithSpareDescriptors(3, 0), ::testing::ExitedWithCode(0), "");
}

TEST(CompletionQueueDeathTest, FailureAtTheSecondWorkerIsKeptLeavingTheFirstRunning) {
  EXPECT_EXIT(CreateWithSpareDescriptors(3, 1), ::testing::ExitedWithCode(11), "");
}

TEST(CompletionQueueDeathTest, LaterFailureIsKeptLeavingTheLastStartedWorkerRunning) {
  EXPECT_EXIT(CreateWithSpareDescriptors(5, 4), ::testing::ExitedWithCode(11), "");
}

}  // namespace
