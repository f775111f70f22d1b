// Unbinding and rebinding while requests are pending and callbacks run.
#include <gtest/gtest.h>
#include <qiv/async_io.h>

#include <chrono>
#include <string>
#include <thread>

#include "aio/queue_fixture.h"
#include "support/completions.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::Bound;
using qiv::test::BusyWorker;
using qiv::test::Completion;
using qiv::test::Completions;
using qiv::test::Queue;
using qiv::test::TcpPair;

class UnbindTest : public qiv::test::BothModesTest {};

INSTANTIATE_TEST_SUITE_P(Modes, UnbindTest, ::testing::Values(0, 1), qiv::test::ModeName);

TEST_P(UnbindTest, UnbindingOnAnotherThreadWaitsForARunningCallbackInMode1Only) {
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

TEST_P(UnbindTest, UnbindingDropsPendingRequestsWithoutCallbacks) {
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

TEST_P(UnbindTest, ACallbackMayUnbindItsSocket) {
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

TEST_P(UnbindTest, ASendCallbackMayUnbindItsSocket) {
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

TEST_P(UnbindTest, AReceiveCallbackMayUnbindAfterAResetWithASendPending) {
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

TEST_P(UnbindTest, ACallbackMayRebindItsSocketAndTheNewRequestsComplete) {
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

TEST_P(UnbindTest, ACallbackMayQueueTheNextRequest) {
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

}  // namespace
