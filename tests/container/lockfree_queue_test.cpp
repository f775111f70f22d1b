#include <qiv/lockfree_queue.h>

#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <random>
#include <string>

#include "container/counted_element.h"
#include "support/failing_allocation.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"

namespace {

using qiv::qiv_lockfreeQ;
using qiv::qiv_tlsTraceInfoOper;
using qiv::test::Count;
using qiv::test::CountedElement;
using qiv::test::ElementPointer;
using qiv::test::FailingAllocation;
using qiv::test::NumberOf;
using qiv::test::RunInThread;

using LockfreeQueueTest = qiv::test::CountedElementTest;

ElementPointer NewElement(int number = 0) { return new CountedElement(0, number); }

QIV_TRACEINFO Record(const char* first) {
  QIV_TRACEINFO record = {};
  std::strcpy(record.firstText, first);
  std::strcpy(record.secondText, first[0] == '\0' ? "" : "second");
  std::strcpy(record.thirdText, "third");
  record.firstFlag = 1;
  record.secondFlag = 255;
  return record;
}

/** Runs a function on a thread whose trace record is the given one, or none. */
template <class Function>
void RunTraced(const char* first, Function function) {
  RunInThread([first, function] {
    const QIV_TRACEINFO record = Record(first);
    qiv_tlsTraceInfoOper* const trace = qiv_tlsTraceInfoOper::instance();
    // Kept: an empty record is refused.
    EXPECT_EQ(first[0] == '\0' ? -1 : 0, trace->setTraceInfo(&record));
    function();
    trace->eraseTraceInfo();
    return 0;
  }).Get();
}

/** A function on a thread without a trace record, which it may get there. */
template <class Function>
void RunUntraced(Function function) {
  RunInThread([function] {
    function();
    qiv_tlsTraceInfoOper::instance()->eraseTraceInfo();
    return 0;
  }).Get();
}

/** The calling thread's record; first text "none" where it has none. */
QIV_TRACEINFO CurrentRecord() {
  QIV_TRACEINFO record = {};
  if (qiv_tlsTraceInfoOper::instance()->getTraceInfo(&record) != 0) return Record("none");
  return record;
}

TEST_F(LockfreeQueueTest, NewQueueIsEmpty) {
  qiv_lockfreeQ queue;
  EXPECT_FALSE(queue.pop_front());
  EXPECT_EQ(0, queue.size());
  EXPECT_EQ(1, queue.empty());
}

TEST_F(LockfreeQueueTest, ElementsComeInTheOrderOfTheirPushes) {
  qiv_lockfreeQ queue;
  for (int number = 0; number < 3; ++number) {
    EXPECT_EQ(number, queue.size());
    queue.push_back(NewElement(number));
    EXPECT_EQ(0, queue.empty());
  }
  for (int number = 0; number < 3; ++number) {
    EXPECT_EQ(3 - number, queue.size());
    EXPECT_EQ(number, NumberOf(queue.pop_front()));
  }
  EXPECT_EQ(0, queue.size());
  EXPECT_EQ(1, queue.empty());
  EXPECT_FALSE(queue.pop_front());
}

TEST_F(LockfreeQueueTest, QueueKeepsOneReferenceUntilThePop) {
  qiv_lockfreeQ queue;
  const ElementPointer element = NewElement();
  queue.push_back(element);
  EXPECT_EQ(2, Count(element));
  const ElementPointer popped = queue.pop_front();
  EXPECT_TRUE(popped == element);
  EXPECT_EQ(2, Count(element)) << "the pusher's and the popper's";
}

TEST_F(LockfreeQueueTest, OneElementMayBeQueuedTwice) {
  qiv_lockfreeQ queue;
  const ElementPointer element = NewElement();
  queue.push_back(element);
  queue.push_back(element);
  EXPECT_EQ(3, Count(element));
  EXPECT_TRUE(queue.pop_front() == element);
  EXPECT_TRUE(queue.pop_front() == element);
  EXPECT_EQ(1, Count(element));
}

TEST_F(LockfreeQueueTest, NullIsIgnored) {
  qiv_lockfreeQ queue;
  queue.push_back(nullptr);
  EXPECT_EQ(0, queue.size());
  qiv::qiv_lockfreeQImpl inner;
  inner.push_back(nullptr);
  EXPECT_EQ(0, inner.size());
  EXPECT_FALSE(inner.pop_front());
}

TEST_F(LockfreeQueueTest, DestructionReleasesEachElementLeftOnce) {
  const ElementPointer kept = NewElement();
  {
    qiv_lockfreeQ queue;
    queue.push_back(NewElement());
    queue.push_back(kept);
    queue.push_back(NewElement());
    queue.pop_front();
    EXPECT_EQ(2, CountedElement::Living());
  }
  EXPECT_EQ(1, CountedElement::Living());
  EXPECT_EQ(1, Count(kept));
}

TEST_F(LockfreeQueueTest, QueueIsCountedItself) {
  const qiv::cshared_ptr<qiv_lockfreeQ> queue(new qiv_lockfreeQ);
  queue->push_back(NewElement());
  EXPECT_EQ(1, queue->size());
}

/** How many allocations of a push failed, each of them once. */
template <class Queue>
int FailEveryAllocationOfAPush(Queue& queue, const ElementPointer& element) {
  for (int nth = 1;; ++nth) {
    const FailingAllocation failing(nth);
    try {
      queue.push_back(element);
      EXPECT_FALSE(failing.Happened());
      return nth - 1;
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(failing.Happened());
      EXPECT_EQ(1, Count(element));
      EXPECT_EQ(0, queue.size());
      EXPECT_EQ(1, queue.empty());
      EXPECT_FALSE(queue.pop_front());
    }
  }
}

TEST_F(LockfreeQueueTest, PushWithoutMemoryThrowsAndQueuesNothing) {
  RunUntraced([] {
    qiv_lockfreeQ queue;
    qiv::qiv_lockfreeQImpl inner;
    const ElementPointer element = NewElement();
    EXPECT_EQ(1, FailEveryAllocationOfAPush(queue, element));
    EXPECT_TRUE(queue.pop_front() == element);
    EXPECT_EQ(1, FailEveryAllocationOfAPush(inner, element));
    EXPECT_TRUE(inner.pop_front() == element);
    EXPECT_EQ(1, Count(element));
  });
}

TEST_F(LockfreeQueueTest, PopWithoutMemoryForTheRecordGivesTheElement) {
  int failures = 0;
  for (bool happened = true; happened;) {
    qiv_lockfreeQ queue;
    RunTraced("pusher", [&queue] { queue.push_back(NewElement()); });
    RunUntraced([&] {
      const FailingAllocation failing(failures + 1);
      const ElementPointer element = queue.pop_front();
      happened = failing.Happened();
      EXPECT_TRUE(element);
      EXPECT_EQ(1, Count(element));
      EXPECT_STREQ(happened ? "none" : "pusher", CurrentRecord().firstText);
    });
    EXPECT_EQ(0, queue.size());
    EXPECT_EQ(0, CountedElement::Living());
    if (happened) ++failures;
  }
  EXPECT_GE(failures, 1);
}

TEST_F(LockfreeQueueTest, LookingAtAndDestroyingAQueueNeedNoMemory) {
  auto queue = std::make_unique<qiv_lockfreeQ>();
  for (int number = 0; number < 3; ++number) queue->push_back(NewElement(number));
  const FailingAllocation failing(1);
  EXPECT_EQ(3, queue->size());
  EXPECT_EQ(0, queue->empty());
  queue.reset();
  EXPECT_EQ(0, CountedElement::Living());
  EXPECT_FALSE(failing.Happened());
}

TEST_F(LockfreeQueueTest, QueueMadeWithoutMemoryHoldsNothing) {
  int failures = 0;
  for (int nth = 1;; ++nth) {
    const FailingAllocation failing(nth);
    qiv_lockfreeQ queue;
    if (!failing.Happened()) break;
    ++failures;
    queue.push_back(NewElement());
    EXPECT_EQ(-1, queue.size());
    EXPECT_EQ(1, queue.empty());
    EXPECT_FALSE(queue.pop_front());
  }
  EXPECT_EQ(2, failures) << "its own object and the dummy";
}

TEST_F(LockfreeQueueTest, RandomPushesAndPopsAgreeWithAPlainModel) {
  std::minstd_rand random(62);
  qiv_lockfreeQ queue;
  std::deque<int> model;
  const int operations = qiv::test::ScaledLoad(100000);
  for (int number = 0; number < operations; ++number) {
    const unsigned int pushesOutOf10 = number / 500 % 2 == 0 ? 6 : 4;
    if (random() / 8 % 10 < pushesOutOf10) {
      queue.push_back(NewElement(number));
      model.push_back(number);
    } else {
      const ElementPointer element = queue.pop_front();
      ASSERT_EQ(!model.empty(), static_cast<bool>(element));
      if (element) {
        ASSERT_EQ(model.front(), NumberOf(element));
        model.pop_front();
      }
    }
    ASSERT_EQ(static_cast<int>(model.size()), queue.size());
    ASSERT_EQ(model.empty() ? 1 : 0, queue.empty());
    ASSERT_EQ(static_cast<int>(model.size()), CountedElement::Living());
  }
}

TEST_F(LockfreeQueueTest, PopperTakesOverTheWholeRecordOfThePusher) {
  qiv_lockfreeQ queue;
  RunTraced("pusher", [&queue] { queue.push_back(NewElement()); });
  RunTraced("popper", [&queue] {
    const ElementPointer element = queue.pop_front();
    const QIV_TRACEINFO expected = Record("pusher");
    const QIV_TRACEINFO mine = CurrentRecord();
    EXPECT_EQ(0, std::memcmp(&expected, &mine, sizeof expected));
    EXPECT_EQ(0, std::memcmp(&expected, &element->m_traceInfo, sizeof expected));
  });
}

TEST_F(LockfreeQueueTest, RecordIsThatOfTheTimeOfThePush) {
  qiv_lockfreeQ queue;
  RunTraced("at the push", [&queue] {
    queue.push_back(NewElement());
    const QIV_TRACEINFO later = Record("later");
    qiv_tlsTraceInfoOper::instance()->setTraceInfo(&later);
  });
  RunTraced("popper", [&queue] {
    queue.pop_front();
    EXPECT_STREQ("at the push", CurrentRecord().firstText);
  });
}

TEST_F(LockfreeQueueTest, PushWithoutARecordClearsTheElementsAndThePopperKeepsItsOwn) {
  qiv_lockfreeQ queue;
  ElementPointer element = NewElement();
  element->m_traceInfo = Record("old");
  RunTraced("", [&] { queue.push_back(element); });
  const QIV_TRACEINFO zero = {};
  EXPECT_EQ(0, std::memcmp(&zero, &element->m_traceInfo, sizeof zero));
  RunTraced("popper", [&queue] {
    EXPECT_TRUE(queue.pop_front());
    EXPECT_STREQ("popper", CurrentRecord().firstText);
  });
  RunTraced("", [&] { queue.push_back(element); });
  RunTraced("", [&queue] {
    EXPECT_TRUE(queue.pop_front());
    EXPECT_STREQ("none", CurrentRecord().firstText);
  });
}

TEST_F(LockfreeQueueTest, ElementQueuedTwiceBringsTheRecordOfItsLastPushWithBothPops) {
  qiv_lockfreeQ queue;
  const ElementPointer element = NewElement();
  RunTraced("first push", [&] { queue.push_back(element); });
  RunTraced("last push", [&] { queue.push_back(element); });
  for (int pop = 0; pop < 2; ++pop) {
    RunTraced("popper", [&queue] {
      queue.pop_front();
      EXPECT_STREQ("last push", CurrentRecord().firstText);
    });
  }
}

TEST_F(LockfreeQueueTest, PopOfAnEmptyQueueLeavesTheRecordAlone) {
  qiv_lockfreeQ queue;
  RunTraced("popper", [&queue] {
    EXPECT_FALSE(queue.pop_front());
    EXPECT_STREQ("popper", CurrentRecord().firstText);
  });
}

}  // namespace
