#include <qiv/message_queue.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "container/haltable_call.h"
#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace {

using qiv::qiv_msgq;
using qiv::test::Halt;
using qiv::test::HaltableCall;
using qiv::test::RunInThread;
using qiv::test::ScaledLoad;
using qiv::test::SleepingCall;
using qiv::test::Stopwatch;

class MessageQueueClassTest : public qiv::test::LeakCheckedTest {
 protected:
  /** Expects that no count without a pointer is left: a get of -5 ms would return -1 for it. */
  void ExpectNoCountLeft() {
    QIV_MSG_BLOCK_T* block = nullptr;
    SleepingCall get([&] { return m_queue.getq(&block, -5); });
    EXPECT_EQ(0, m_queue.putq(&m_blocks[3]));
    EXPECT_EQ(0, get.Get());
    EXPECT_EQ(&m_blocks[3], block);
  }

  /** The first pointer, or null when there is none at once. */
  QIV_MSG_BLOCK_T* Take() {
    QIV_MSG_BLOCK_T* block = nullptr;
    return m_queue.getq(&block, 0) == 0 ? block : nullptr;
  }

  qiv_msgq m_queue;
  std::vector<QIV_MSG_BLOCK_T> m_blocks = std::vector<QIV_MSG_BLOCK_T>(4);
};

TEST_F(MessageQueueClassTest, NullIsRefused) {
  EXPECT_EQ(-1, m_queue.putq(nullptr));
  EXPECT_EQ(-1, m_queue.getq(nullptr, 0));
  EXPECT_EQ(nullptr, Take());
}

TEST_F(MessageQueueClassTest, PointersComeInTheOrderOfTheirArrivalWhateverTheirPriority) {
  for (std::size_t i = 0; i < 3; ++i) {
    m_blocks[i].iPriority = static_cast<int>(i);
    ASSERT_EQ(0, m_queue.putq(&m_blocks[i]));
  }
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0])) << "the same one twice";
  for (const std::size_t i : {0U, 1U, 2U, 0U}) EXPECT_EQ(&m_blocks[i], Take());
  EXPECT_EQ(nullptr, Take());
}

TEST_F(MessageQueueClassTest, GetWaitsOutItsTimeAndLeavesThePointerAlone) {
  QIV_MSG_BLOCK_T* block = &m_blocks[1];
  const Stopwatch watch;
  EXPECT_EQ(-1, m_queue.getq(&block, 50));
  EXPECT_GE(watch.Milliseconds(), 47);
  EXPECT_EQ(&m_blocks[1], block);
}

TEST_F(MessageQueueClassTest, WaitingGetTakesTheNextPointer) {
  for (const int timeout : {-1, 60000, -5}) {
    QIV_MSG_BLOCK_T* block = nullptr;
    SleepingCall get([&] { return m_queue.getq(&block, timeout); });
    ASSERT_EQ(0, m_queue.putq(&m_blocks[2]));
    EXPECT_EQ(0, get.Get());
    EXPECT_EQ(&m_blocks[2], block);
  }
}

TEST_F(MessageQueueClassTest, GetAfterResetWaitsOutItsTime) {
  for (int i = 0; i < 3; ++i) ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  m_queue.reset();
  QIV_MSG_BLOCK_T* block = nullptr;
  const Stopwatch watch;
  EXPECT_EQ(-1, m_queue.getq(&block, 50));
  EXPECT_GE(watch.Milliseconds(), 47);
}

TEST_F(MessageQueueClassTest, GetAfterResetWithoutALimitWaitsForARealPointer) {
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  m_queue.reset();
  QIV_MSG_BLOCK_T* block = nullptr;
  SleepingCall get([&] { return m_queue.getq(&block, -1); });
  ASSERT_EQ(0, m_queue.putq(&m_blocks[1]));
  EXPECT_EQ(0, get.Get());
  EXPECT_EQ(&m_blocks[1], block);
}

TEST_F(MessageQueueClassTest, OtherNegativeTimeIsKeptEndingAtACountThatResetHasLeft) {
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  m_queue.reset();
  QIV_MSG_BLOCK_T* block = nullptr;
  EXPECT_EQ(-1, m_queue.getq(&block, -5));
}

TEST_F(MessageQueueClassTest, SignalIsKeptEndingAWaitWithoutLimit) {
  RunInThread([this] {
    const qiv::test::InterruptingSignals signals(std::chrono::milliseconds(1));
    QIV_MSG_BLOCK_T* block = nullptr;
    EXPECT_EQ(-1, m_queue.getq(&block, -1));
    EXPECT_EQ(-1, m_queue.getq(&block, 20));
    return 0;
  }).Get();
}

TEST_F(MessageQueueClassTest, DestroyedQueueRefusesUntilInit) {
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  m_queue.destroy();
  m_queue.destroy();
  m_queue.reset();
  QIV_MSG_BLOCK_T* block = nullptr;
  EXPECT_EQ(-1, m_queue.putq(&m_blocks[0]));
  EXPECT_EQ(-1, m_queue.getq(&block, -1));
  ASSERT_EQ(0, m_queue.init());
  EXPECT_EQ(nullptr, Take());
  ASSERT_EQ(0, m_queue.putq(&m_blocks[1]));
  EXPECT_EQ(0, m_queue.getq(&block, -1));
  EXPECT_EQ(&m_blocks[1], block);
}

TEST_F(MessageQueueClassTest, DestroySendsEveryWaitingThreadAway) {
  QIV_MSG_BLOCK_T* block = nullptr;
  std::vector<std::unique_ptr<SleepingCall<int>>> gets;
  for (const int timeout : {-1, -1, 60000, -5}) {
    gets.push_back(std::make_unique<SleepingCall<int>>(
        [this, &block, timeout] { return m_queue.getq(&block, timeout); }));
  }
  m_queue.destroy();
  for (const auto& get : gets) EXPECT_EQ(-1, get->Get());
}

/** Gets of 60 s that sleep, then stand still until the halt ends. */
std::vector<std::unique_ptr<HaltableCall<int>>> HaltedGets(qiv_msgq& queue, const Halt& halt) {
  std::vector<std::unique_ptr<HaltableCall<int>>> gets;
  for (int i = 0; i < 3; ++i) {
    gets.push_back(std::make_unique<HaltableCall<int>>([&queue] {
      QIV_MSG_BLOCK_T* block = nullptr;
      return queue.getq(&block, 60000);
    }));
    halt.Stop(gets.back()->Thread());
  }
  return gets;
}

TEST_F(MessageQueueClassTest, DestroySendsEveryWaitingThreadAwayAlsoWhenInitFollowsAtOnce) {
  Halt halt;
  const auto gets = HaltedGets(m_queue, halt);
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  halt.GoOn();
  for (const auto& get : gets) EXPECT_EQ(-1, get->Get());
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  EXPECT_EQ(&m_blocks[0], Take());
}

TEST_F(MessageQueueClassTest, ThreadsOfEveryDestroyedQueueAreSentAway) {
  Halt halt;
  const auto first = HaltedGets(m_queue, halt);
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  const auto second = HaltedGets(m_queue, halt);
  m_queue.destroy();
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  halt.GoOn();
  for (const auto& get : first) EXPECT_EQ(-1, get->Get());
  for (const auto& get : second) EXPECT_EQ(-1, get->Get());
  ExpectNoCountLeft();
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  m_queue.reset();
  QIV_MSG_BLOCK_T* block = nullptr;
  EXPECT_EQ(-1, m_queue.getq(&block, -5));
  ExpectNoCountLeft();  // nobody is left for whom it would be given back
}

TEST_F(MessageQueueClassTest, ThreadsOfADestroyedQueueLeaveThePointersOfTheNextOneAlone) {
  Halt halt;
  const auto gets = HaltedGets(m_queue, halt);
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  for (std::size_t i = 0; i < 2; ++i) ASSERT_EQ(0, m_queue.putq(&m_blocks[i]));
  halt.GoOn();
  for (const auto& get : gets) EXPECT_EQ(-1, get->Get());
  EXPECT_EQ(&m_blocks[0], Take());
  EXPECT_EQ(&m_blocks[1], Take());
  EXPECT_EQ(nullptr, Take());
}

TEST_F(MessageQueueClassTest, GetOfTheNextQueueKeepsNobodyInTheDestroyedOne) {
  Halt halt;
  const auto gets = HaltedGets(m_queue, halt);
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  // These wake for what is meant for the halted ones.
  EXPECT_EQ(nullptr, Take());
  QIV_MSG_BLOCK_T* block = nullptr;
  const Stopwatch watch;
  EXPECT_EQ(-1, m_queue.getq(&block, 50));
  EXPECT_GE(watch.Milliseconds(), 47);
  SleepingCall next([&] { return m_queue.getq(&block, -1); });
  EXPECT_FALSE(next.HasReturned());
  halt.GoOn();
  for (const auto& get : gets) EXPECT_EQ(-1, get->Get());
  EXPECT_FALSE(next.HasReturned());
  ASSERT_EQ(0, m_queue.putq(&m_blocks[1]));
  EXPECT_EQ(0, next.Get());
  EXPECT_EQ(&m_blocks[1], block);
}

TEST_F(MessageQueueClassTest, DestroyWithoutWaitingThreadsWakesNobodyLater) {
  QIV_MSG_BLOCK_T* block = nullptr;
  EXPECT_EQ(-1, m_queue.getq(&block, 1));
  m_queue.destroy();
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  ExpectNoCountLeft();
}

TEST_F(MessageQueueClassTest, InitOfAUsableQueueIsKeptLosingItsContent) {
  // In a process of its own, since the old deque is lost, too.
  const auto check = [this] {
    m_queue.putq(&m_blocks[0]);
    const bool isInit = m_queue.init() == 0;
    const bool isEmpty = Take() == nullptr;
    const bool isUsable = m_queue.putq(&m_blocks[1]) == 0 && Take() == &m_blocks[1];
    _exit(isInit && isEmpty && isUsable ? 0 : 1);
  };
  EXPECT_EXIT(check(), ::testing::ExitedWithCode(0), "");
}

TEST_F(MessageQueueClassTest, DestructorIsVirtualAndLeavesTheBlocksAlone) {
  EXPECT_TRUE(std::has_virtual_destructor<qiv_msgq>::value);
  const std::unique_ptr<QIV_MSG_BLOCK_T> block(new QIV_MSG_BLOCK_T);
  qiv_msgq queue;
  EXPECT_EQ(0, queue.putq(block.get()));
}

void* GetForEver(void* queue) {
  QIV_MSG_BLOCK_T* block = nullptr;
  static_cast<qiv_msgq*>(queue)->getq(&block, -1);
  return nullptr;
}

TEST_F(MessageQueueClassTest, CancelledGetLeavesTheQueueUsable) {
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, GetForEver, &m_queue));
  ASSERT_EQ(0, pthread_cancel(thread));
  ASSERT_EQ(0, pthread_join(thread, nullptr));
  ASSERT_EQ(0, m_queue.putq(&m_blocks[0]));
  EXPECT_EQ(&m_blocks[0], Take());
  m_queue.destroy();
  ASSERT_EQ(0, m_queue.init());
  ExpectNoCountLeft();  // the destruction has given none for the cancelled thread
}

TEST_F(MessageQueueClassTest, ManyProducersAndConsumersLoseAndDoubleNothing) {
  constexpr int kThreads = 4;
  const std::size_t blocksEach = static_cast<std::size_t>(ScaledLoad(5000));
  // Only the addresses travel.
  std::vector<char> addresses(kThreads * blocksEach);
  std::vector<std::atomic<int>> received(addresses.size());
  std::vector<qiv::test::ThreadResult<int>> threads;
  for (std::size_t producer = 0; producer < kThreads; ++producer) {
    threads.push_back(RunInThread([&, producer] {
      for (std::size_t i = producer * blocksEach; i < (producer + 1) * blocksEach; ++i) {
        if (m_queue.putq(reinterpret_cast<QIV_MSG_BLOCK_T*>(&addresses[i])) != 0) return -1;
      }
      return 0;
    }));
    threads.push_back(RunInThread([&] {
      for (std::size_t i = 0; i < blocksEach; ++i) {
        QIV_MSG_BLOCK_T* block = nullptr;
        if (m_queue.getq(&block, -1) != 0) return -1;
        const auto index = reinterpret_cast<char*>(block) - addresses.data();
        received[static_cast<std::size_t>(index)].fetch_add(1, std::memory_order_relaxed);
      }
      return 0;
    }));
  }
  for (auto& thread : threads) EXPECT_EQ(0, thread.Get());
  for (const std::atomic<int>& times : received) {
    ASSERT_EQ(1, times.load(std::memory_order_relaxed));
  }
}

TEST_F(MessageQueueClassTest, DestroyInitAndResetMayRunWhileOthersPutAndGet) {
  const int rounds = ScaledLoad(500);
  std::atomic<bool> stop{false};
  std::vector<std::thread> users;
  for (int i = 0; i < 2; ++i) {
    users.emplace_back([&] {
      while (!stop.load(std::memory_order_acquire)) m_queue.putq(&m_blocks[0]);
    });
    users.emplace_back([&] {
      QIV_MSG_BLOCK_T* block = nullptr;
      while (!stop.load(std::memory_order_acquire)) m_queue.getq(&block, 1);
    });
    users.emplace_back([&] {
      QIV_MSG_BLOCK_T* block = nullptr;
      while (!stop.load(std::memory_order_acquire)) m_queue.getq(&block, -1);
    });
  }
  for (int round = 0; round < rounds; ++round) {
    m_queue.reset();
    m_queue.destroy();
    EXPECT_EQ(0, m_queue.init());
  }
  stop.store(true, std::memory_order_release);
  m_queue.destroy();  // wakes those that wait without limit
  for (std::thread& user : users) user.join();
}

}  // namespace
