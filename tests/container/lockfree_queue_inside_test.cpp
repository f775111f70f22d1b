// The lock-free queue in states that other threads leave it in for a moment only. Here they last:
// the tests count pushers in that do not exist, set the tail back, and hold a push up.
#include <gtest/gtest.h>
#include <qiv/lockfree_queue.h>

#include <atomic>
#include <cstddef>

#include "container/counted_element.h"
#include "support/eventually.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"

namespace qiv {

struct LockfreeQueueInside {
  explicit LockfreeQueueInside(qiv_lockfreeQImpl& looked) : queue(looked) {}

  unsigned int Epoch() const { return queue.m_epoch.load(std::memory_order_relaxed); }
  unsigned int Inside(unsigned int place) const {
    return queue.m_inside[place].load(std::memory_order_relaxed);
  }
  void Enter(unsigned int place) { queue.m_inside[place].fetch_add(1, std::memory_order_seq_cst); }
  void Leave(unsigned int place) { queue.m_inside[place].fetch_sub(1, std::memory_order_seq_cst); }

  /** As if the pusher of the only element had not moved the tail yet. */
  void SetTailBackToHead() {
    queue.m_tail.store(queue.m_head.load(std::memory_order_relaxed), std::memory_order_seq_cst);
  }
  bool TailIsAtHead() const {
    return queue.m_tail.load(std::memory_order_relaxed) ==
           queue.m_head.load(std::memory_order_relaxed);
  }
  bool TailIsLast() const {
    return queue.m_tail.load(std::memory_order_relaxed)->next.load(std::memory_order_relaxed) ==
           nullptr;
  }

  /** Makes the last node its own successor: pushes run round it until LetPushesGo(). */
  void HoldPushesUp() {
    qiv_lockfreeQImpl::Node* const last = queue.m_tail.load(std::memory_order_relaxed);
    last->next.store(last, std::memory_order_relaxed);
  }
  void LetPushesGo() {
    queue.m_tail.load(std::memory_order_relaxed)->next.store(nullptr, std::memory_order_relaxed);
  }

  std::size_t OffsetOfHead() const { return Offset(&queue.m_head); }
  std::size_t OffsetOfTail() const { return Offset(&queue.m_tail); }
  std::size_t OffsetOfReserved() const { return Offset(&queue.m_reserved); }
  std::size_t OffsetOfCount() const { return Offset(&queue.m_count); }
  std::size_t OffsetOfPopMutex() const { return Offset(&queue.m_popMutex); }
  unsigned int Reserved() const { return queue.m_reserved; }

  std::size_t Offset(const void* member) const {
    return static_cast<std::size_t>(static_cast<const char*>(member) -
                                    reinterpret_cast<const char*>(&queue));
  }

  qiv_lockfreeQImpl& queue;
};

}  // namespace qiv

namespace {

using qiv::LockfreeQueueInside;
using qiv::qiv_lockfreeQImpl;
using qiv::test::CountedElement;
using qiv::test::ElementPointer;
using qiv::test::Eventually;
using qiv::test::NumberOf;
using qiv::test::RunInThread;
using qiv::test::SleepingCall;

class LockfreeQueueInsideTest : public qiv::test::CountedElementTest {
 protected:
  void Push(int number) { m_queue.push_back(new CountedElement(0, number)); }
  int PopNumber() {
    const ElementPointer element = m_queue.pop_front();
    return element ? NumberOf(element) : -1;
  }

  qiv_lockfreeQImpl m_queue;
  LockfreeQueueInside m_inside{m_queue};
};

TEST_F(LockfreeQueueInsideTest, PopSendsNewPushesElsewhereAndWaitsForThoseUnderWayOnly) {
  Push(1);
  const unsigned int place = m_inside.Epoch();
  m_inside.Enter(place);
  SleepingCall pop([this] { return PopNumber(); });
  ASSERT_TRUE(Eventually([&] { return m_inside.Epoch() == 1 - place; }));
  m_inside.HoldPushesUp();
  auto push = RunInThread([this] {
    Push(2);
    return 0;
  });
  EXPECT_TRUE(Eventually([&] { return m_inside.Inside(1 - place) == 1; }));
  EXPECT_EQ(1U, m_inside.Inside(place));
  EXPECT_FALSE(pop.HasReturned());
  m_inside.Leave(place);
  EXPECT_EQ(1, pop.Get());
  EXPECT_FALSE(push.IsReady());
  m_inside.LetPushesGo();
  push.Get();
  EXPECT_EQ(2, PopNumber());
}

TEST_F(LockfreeQueueInsideTest, PopWaitsForAPushThatHasCountedItselfInTheOtherPlaceLate) {
  Push(1);
  const unsigned int other = 1 - m_inside.Epoch();
  m_inside.Enter(other);
  SleepingCall pop([this] { return PopNumber(); });
  EXPECT_FALSE(pop.HasReturned());
  m_inside.Leave(other);
  EXPECT_EQ(1, pop.Get());
}

TEST_F(LockfreeQueueInsideTest, PopMovesATailOnThatIsBehind) {
  Push(1);
  m_inside.SetTailBackToHead();
  EXPECT_EQ(1, m_queue.empty()) << "for a moment, as the push is still under way";
  EXPECT_EQ(1, PopNumber());
  ASSERT_TRUE(m_inside.TailIsAtHead()) << "at the node popped, which is the dummy now";
  Push(2);
  EXPECT_EQ(2, PopNumber());
}

TEST_F(LockfreeQueueInsideTest, PushMovesATailOnThatIsBehind) {
  Push(1);
  m_inside.SetTailBackToHead();
  Push(2);
  EXPECT_TRUE(m_inside.TailIsLast());
  EXPECT_EQ(1, PopNumber());
  EXPECT_EQ(2, PopNumber());
}

TEST_F(LockfreeQueueInsideTest, FixedMembersStandInTheirOrder) {
  EXPECT_EQ(sizeof(void*), m_inside.OffsetOfHead());
  EXPECT_EQ(2 * sizeof(void*), m_inside.OffsetOfTail());
  EXPECT_EQ(3 * sizeof(void*), m_inside.OffsetOfReserved());
  EXPECT_EQ(3 * sizeof(void*) + 4, m_inside.OffsetOfCount());
  EXPECT_EQ(3 * sizeof(void*) + 8, m_inside.OffsetOfPopMutex());
  EXPECT_EQ(0U, m_inside.Reserved());
}

}  // namespace
