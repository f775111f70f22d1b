// The lock-free queue under load.
#include <gtest/gtest.h>
#include <qiv/lockfree_queue.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "container/counted_element.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"

namespace {

using qiv::qiv_lockfreeQ;
using qiv::qiv_lockfreeQImpl;
using qiv::test::CountedElement;
using qiv::test::ElementPointer;
using qiv::test::RunInThread;
using qiv::test::ScaledLoad;

constexpr int kThreadsPerSide = 8;

using LockfreeQueueStressTest = qiv::test::CountedElementTest;

/** What one popper has got: per pusher, the numbers in the order of the pops. */
using Numbers = std::vector<std::vector<int>>;

Numbers PopUntil(qiv_lockfreeQ& queue, std::atomic<int>& left) {
  Numbers numbers(kThreadsPerSide);
  while (left.load(std::memory_order_relaxed) > 0) {
    const ElementPointer popped = queue.pop_front();
    if (!popped) {
      std::this_thread::yield();
      continue;
    }
    const auto& element = dynamic_cast<const CountedElement&>(*popped);
    numbers[static_cast<std::size_t>(element.pusher)].push_back(element.number);
    left.fetch_sub(1, std::memory_order_relaxed);
  }
  return numbers;
}

void ExpectEachOnceAndInOrder(const std::vector<Numbers>& ofPoppers, int elementsEach) {
  for (std::size_t pusher = 0; pusher < kThreadsPerSide; ++pusher) {
    std::vector<int> all;
    for (const Numbers& numbers : ofPoppers) {
      EXPECT_TRUE(std::is_sorted(numbers[pusher].begin(), numbers[pusher].end()));
      all.insert(all.end(), numbers[pusher].begin(), numbers[pusher].end());
    }
    std::sort(all.begin(), all.end());
    ASSERT_EQ(static_cast<std::size_t>(elementsEach), all.size());
    for (int i = 0; i < elementsEach; ++i) ASSERT_EQ(i, all[static_cast<std::size_t>(i)]);
  }
}

TEST_F(LockfreeQueueStressTest, EightPushersAndEightPoppersHandOverEachElementOnceAndInOrder) {
  const int elementsEach = ScaledLoad(10000);
  qiv_lockfreeQ queue;
  std::atomic<int> left{kThreadsPerSide * elementsEach};
  std::atomic<bool> stop{false};
  std::vector<qiv::test::ThreadResult<Numbers>> poppers;
  std::vector<std::thread> others;
  for (int i = 0; i < kThreadsPerSide; ++i) {
    poppers.push_back(RunInThread([&] { return PopUntil(queue, left); }));
    others.emplace_back([&queue, i, elementsEach] {
      for (int number = 0; number < elementsEach; ++number) {
        queue.push_back(new CountedElement(i, number));
      }
    });
  }
  // Someone who only looks.
  others.emplace_back([&] {
    while (!stop.load(std::memory_order_acquire)) {
      EXPECT_GE(queue.size(), -kThreadsPerSide);
      std::this_thread::yield();
    }
  });
  std::vector<Numbers> results;
  for (auto& popper : poppers) results.push_back(popper.Get());
  stop.store(true, std::memory_order_release);
  for (std::thread& thread : others) thread.join();
  ExpectEachOnceAndInOrder(results, elementsEach);
  EXPECT_EQ(0, queue.size());
  EXPECT_EQ(1, queue.empty());
}

TEST_F(LockfreeQueueStressTest, NearlyEmptyQueueHandsOverEveryElement) {
  // Pushers and poppers at the same node all the time: each thread pushes one and pops one.
  const int rounds = ScaledLoad(20000);
  qiv_lockfreeQImpl queue;
  std::vector<qiv::test::ThreadResult<int>> threads;
  for (int i = 0; i < 4; ++i) {
    threads.push_back(RunInThread([&queue, rounds] {
      ElementPointer element = new CountedElement;
      for (int round = 0; round < rounds; ++round) {
        queue.push_back(element);
        element = nullptr;
        while (!element) element = queue.pop_front();
      }
      return 0;
    }));
  }
  for (auto& thread : threads) EXPECT_EQ(0, thread.Get());
  EXPECT_EQ(0, queue.size());
}

TEST_F(LockfreeQueueStressTest, PopsReturnDuringAStreamOfPushes) {
  const int pops = ScaledLoad(20000);
  constexpr int kLongest = 50000;  // keeps the memory in bounds
  qiv_lockfreeQImpl queue;
  std::atomic<bool> stop{false};
  std::vector<std::thread> pushers;
  for (int i = 0; i < 3; ++i) {
    pushers.emplace_back([&] {
      const ElementPointer element = new CountedElement;
      while (!stop.load(std::memory_order_acquire)) {
        if (queue.size() < kLongest) queue.push_back(element);
      }
    });
  }
  auto popper = RunInThread([&] {
    int popped = 0;
    while (popped < pops) popped += queue.pop_front() ? 1 : 0;
    return popped;
  });
  EXPECT_EQ(pops, popper.Get());
  stop.store(true, std::memory_order_release);
  for (std::thread& pusher : pushers) pusher.join();
}

TEST_F(LockfreeQueueStressTest, QueueThatIsNeverEmptyNeverSaysSo) {
  // Each pop frees a node, which the push behind it is likely to get and to make the last one.
  const int looks = ScaledLoad(20000000);
  qiv_lockfreeQImpl queue;
  for (int i = 0; i < 3; ++i) queue.push_back(new CountedElement);
  std::atomic<bool> stop{false};
  std::thread mover([&] {
    while (!stop.load(std::memory_order_relaxed)) queue.push_back(queue.pop_front());
  });
  int wrong = 0;
  for (int look = 0; look < looks; ++look) wrong += queue.empty();
  EXPECT_EQ(0, wrong);
  stop.store(true, std::memory_order_relaxed);
  mover.join();
}

TEST_F(LockfreeQueueStressTest, EveryPopperGetsTheRecordThatBelongsToItsElement) {
  const int elementsEach = ScaledLoad(3000);
  qiv_lockfreeQ queue;
  std::vector<qiv::test::ThreadResult<int>> threads;
  for (int i = 0; i < 3; ++i) {
    threads.push_back(RunInThread([&queue, i, elementsEach] {
      qiv::qiv_tlsTraceInfoOper* const trace = qiv::qiv_tlsTraceInfoOper::instance();
      QIV_TRACEINFO record = {};
      record.firstText[0] = static_cast<char>('a' + i);
      trace->setTraceInfo(&record);
      for (int number = 0; number < elementsEach; ++number) {
        queue.push_back(new CountedElement(i, number));
      }
      trace->eraseTraceInfo();
      return 0;
    }));
    threads.push_back(RunInThread([&queue, elementsEach] {
      qiv::qiv_tlsTraceInfoOper* const trace = qiv::qiv_tlsTraceInfoOper::instance();
      int wrong = 0;
      for (int popped = 0; popped < elementsEach;) {
        const ElementPointer element = queue.pop_front();
        if (!element) continue;
        ++popped;
        QIV_TRACEINFO record = {};
        trace->getTraceInfo(&record);
        const int pusher = dynamic_cast<const CountedElement&>(*element).pusher;
        wrong += record.firstText[0] == 'a' + pusher ? 0 : 1;
      }
      trace->eraseTraceInfo();
      return wrong;
    }));
  }
  for (auto& thread : threads) EXPECT_EQ(0, thread.Get());
}

}  // namespace
