#include <qiv/thread.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <thread>

#include "support/eventually.h"
#include "support/failing_allocation.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "thread/thread_id_table.h"
#include "thread/thread_ids.h"

namespace {

using qiv::test::Eventually;
using qiv::test::FailingAllocation;
using qiv::test::Latch;
using qiv::test::RunInThread;
using qiv::thread::PlatformThreadIds;
using qiv::thread::TableThreadIds;
using qiv::thread::ThreadIdTable;

void* WaitForLatch(void* latch) { return static_cast<Latch*>(latch)->Wait() ? latch : nullptr; }

/** Attributes with a stack that no machine has room for. */
class HugeStack {
 public:
  HugeStack() {
    pthread_attr_init(&m_attributes);
    constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
    pthread_attr_setstacksize(&m_attributes, (kMax - kMax / 4) & ~std::size_t{0xFFFF});
  }
  ~HugeStack() { pthread_attr_destroy(&m_attributes); }
  const pthread_attr_t* Get() const { return &m_attributes; }

 private:
  pthread_attr_t m_attributes;
};

// What every implementation does.

template <class Ids>
class ThreadIdsTest : public qiv::test::LeakCheckedTest {
 protected:
  using Id = decltype(Ids::Self());
  static void* StoreSelf(void* id) {
    *static_cast<Id*>(id) = Ids::Self();
    return nullptr;
  }
};

using Implementations = ::testing::Types<PlatformThreadIds<std::uintptr_t>, TableThreadIds>;
TYPED_TEST_SUITE(ThreadIdsTest, Implementations);

TYPED_TEST(ThreadIdsTest, CreatorAndThreadSeeTheSameId) {
  typename TestFixture::Id seen = 0;
  const auto id = TypeParam::Create(nullptr, TestFixture::StoreSelf, &seen);
  ASSERT_NE(TypeParam::kInvalid, id);
  ASSERT_EQ(0, TypeParam::Join(id));
  EXPECT_EQ(id, seen);
}

TYPED_TEST(ThreadIdsTest, OwnIdStaysTheSameAndDiffersFromThoseOfOtherThreads) {
  const auto own = TypeParam::Self();
  EXPECT_NE(TypeParam::kInvalid, own);
  EXPECT_NE(0u, own);
  EXPECT_NE(own, RunInThread([] { return TypeParam::Self(); }).Get());
  EXPECT_EQ(own, TypeParam::Self());
}

TYPED_TEST(ThreadIdsTest, FailedCreationGivesTheInvalidId) {
  const HugeStack attributes;
  Latch latch;
  EXPECT_EQ(TypeParam::kInvalid, TypeParam::Create(attributes.Get(), WaitForLatch, &latch));
}

TYPED_TEST(ThreadIdsTest, PriorityMustSuitThePolicyOfTheThread) {
  Latch latch;
  const auto id = TypeParam::Create(nullptr, WaitForLatch, &latch);
  ASSERT_NE(TypeParam::kInvalid, id);
  EXPECT_EQ(0, TypeParam::SetPriority(id, 0));
  EXPECT_EQ(-1, TypeParam::SetPriority(id, 5));
  latch.Open();
  EXPECT_EQ(0, TypeParam::Join(id));
}

// What the table adds: it knows which ids are in use.

class TableThreadIdsTest : public qiv::test::LeakCheckedTest {
 protected:
  static unsigned int Start(Latch* latch) {
    return TableThreadIds::Create(nullptr, WaitForLatch, latch);
  }
};

TEST_F(TableThreadIdsTest, IdOfAJoinedThreadNamesNothing) {
  Latch latch;
  latch.Open();
  const unsigned int id = Start(&latch);
  ASSERT_EQ(0, TableThreadIds::Join(id));
  EXPECT_EQ(-1, TableThreadIds::Join(id));
  EXPECT_EQ(-1, TableThreadIds::SetPriority(id, 0));
}

TEST_F(TableThreadIdsTest, UnknownIdsAreRefused) {
  for (const unsigned int id : {0u, 0x7FFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu}) {
    EXPECT_EQ(-1, TableThreadIds::Join(id)) << id;
    EXPECT_EQ(-1, TableThreadIds::SetPriority(id, 0)) << id;
  }
}

TEST_F(TableThreadIdsTest, ThreadThatJoinsItselfFailsAndStaysJoinable) {
  struct Shared {
    int result = 0;
  } shared;
  const unsigned int id = TableThreadIds::Create(
      nullptr,
      [](void* argument) -> void* {
        static_cast<Shared*>(argument)->result = TableThreadIds::Join(TableThreadIds::Self());
        return nullptr;
      },
      &shared);
  EXPECT_EQ(0, TableThreadIds::Join(id));
  EXPECT_EQ(-1, shared.result);
}

TEST_F(TableThreadIdsTest, SecondJoinerFailsAtOnceAndPriorityIsRefusedDuringAJoin) {
  Latch latch;
  const unsigned int id = Start(&latch);
  auto joiner = RunInThread([id] { return TableThreadIds::Join(id); });
  ASSERT_TRUE(Eventually([id] { return TableThreadIds::SetPriority(id, 0) == -1; }));
  EXPECT_EQ(-1, TableThreadIds::Join(id));
  EXPECT_FALSE(joiner.IsReady());
  latch.Open();
  EXPECT_EQ(0, joiner.Get());
}

TEST_F(TableThreadIdsTest, ThreadThatIsBeingJoinedMaySetItsOwnPriority) {
  struct Shared {
    Latch latch;
    int result = -2;
  } shared;
  const unsigned int id = TableThreadIds::Create(
      nullptr,
      [](void* argument) -> void* {
        auto* const self = static_cast<Shared*>(argument);
        WaitForLatch(&self->latch);
        self->result = TableThreadIds::SetPriority(TableThreadIds::Self(), 0);
        return nullptr;
      },
      &shared);
  auto joiner = RunInThread([id] { return TableThreadIds::Join(id); });
  ASSERT_TRUE(Eventually([id] { return TableThreadIds::SetPriority(id, 0) == -1; }));
  shared.latch.Open();
  EXPECT_EQ(0, joiner.Get());
  EXPECT_EQ(0, shared.result);
}

TEST_F(TableThreadIdsTest, MainThreadHasAnId) {
  const unsigned int id = TableThreadIds::Self();
  EXPECT_NE(0u, id);
  EXPECT_EQ(0, TableThreadIds::SetPriority(id, 0));
}

TEST_F(TableThreadIdsTest, ForeignThreadKeepsItsIdUntilItEnds) {
  unsigned int first = 0;
  const unsigned int second = RunInThread([&first] {
                                first = TableThreadIds::Self();
                                EXPECT_EQ(0, TableThreadIds::SetPriority(first, 0));
                                return TableThreadIds::Self();
                              }).Get();
  EXPECT_EQ(first, second);
  EXPECT_EQ(-1, TableThreadIds::SetPriority(first, 0));
  EXPECT_EQ(-1, TableThreadIds::Join(first));
}

struct ForeignThread {
  std::atomic<unsigned int> id{0};
  Latch latch;
  static void* Run(void* argument) {
    auto* self = static_cast<ForeignThread*>(argument);
    self->id.store(TableThreadIds::Self(), std::memory_order_release);
    return WaitForLatch(&self->latch);
  }
  [[nodiscard]] bool HasId() const { return id.load(std::memory_order_acquire) != 0; }
};

TEST_F(TableThreadIdsTest, ForeignJoinableThreadCanBeJoined) {
  ForeignThread foreign;
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, ForeignThread::Run, &foreign));
  ASSERT_TRUE(Eventually([&] { return foreign.HasId(); }));
  auto joiner = RunInThread([&] { return TableThreadIds::Join(foreign.id); });
  ASSERT_TRUE(Eventually([&] { return TableThreadIds::SetPriority(foreign.id, 0) == -1; }));
  foreign.latch.Open();
  EXPECT_EQ(0, joiner.Get());
  EXPECT_EQ(-1, TableThreadIds::Join(foreign.id));
}

TEST_F(TableThreadIdsTest, DetachedThreadCannotBeJoinedAndItsIdGoesWithIt) {
  ForeignThread foreign;
  ASSERT_EQ(1, QIV_ThreadDetached_Create(ForeignThread::Run, &foreign, 0));
  ASSERT_TRUE(Eventually([&] { return foreign.HasId(); }));
  EXPECT_EQ(-1, TableThreadIds::Join(foreign.id));
  EXPECT_EQ(0, TableThreadIds::SetPriority(foreign.id, 0)) << "still there";
  foreign.latch.Open();
  EXPECT_TRUE(Eventually([&] { return TableThreadIds::SetPriority(foreign.id, 0) == -1; }));
}

TEST_F(TableThreadIdsTest, IdAskedForInAThreadsDestructorsStillNamesTheThread) {
  static std::atomic<bool> named{false};
  static pthread_key_t key;
  ASSERT_EQ(0, pthread_key_create(&key, [](void*) {
              named.store(TableThreadIds::SetPriority(TableThreadIds::Self(), 0) == 0);
            }));
  RunInThread([] {
    TableThreadIds::Self();
    return pthread_setspecific(key, &key);
  }).Get();
  EXPECT_TRUE(named.load());
  EXPECT_EQ(0, pthread_key_delete(key));
}

TEST_F(TableThreadIdsTest, EveryThreadNamesItselfWhileThreadsComeAndGo) {
  const int rounds = qiv::test::ScaledLoad(300);
  std::atomic<int> wrong{0};
  const auto create = [&] {
    for (int i = 0; i < rounds; ++i) {
      std::atomic<unsigned int> seen{0};
      const unsigned int id = TableThreadIds::Create(
          nullptr,
          [](void* argument) -> void* {
            *static_cast<std::atomic<unsigned int>*>(argument) = TableThreadIds::Self();
            return nullptr;
          },
          &seen);
      if (TableThreadIds::Join(id) != 0 || seen != id) ++wrong;
    }
  };
  const auto appear = [&] {
    for (int i = 0; i < rounds; ++i) {
      std::thread([&] {
        const unsigned int id = TableThreadIds::Self();
        std::this_thread::yield();
        if (TableThreadIds::SetPriority(id, 0) != 0 || TableThreadIds::Self() != id) ++wrong;
      }).join();
    }
  };
  std::array<std::thread, 4> threads = {std::thread(create), std::thread(appear),
                                        std::thread(create), std::thread(appear)};
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, wrong.load());
}

// The table by itself: nobody tells it that a thread ends.

class ThreadIdTableTest : public qiv::test::LeakCheckedTest {
 protected:
  ~ThreadIdTableTest() override { m_table.Clear(); }

  unsigned int Start() { return m_table.Create(nullptr, WaitForLatch, &m_latch); }

  ThreadIdTable m_table;
  Latch m_latch;
};

TEST_F(ThreadIdTableTest, NumberingSkipsAllOnesZeroAndLiveIdsWhenItWraps) {
  const unsigned int one = Start();
  const unsigned int two = Start();
  EXPECT_EQ(1u, one);
  EXPECT_EQ(2u, two);
  m_table.NumberFrom(0xFFFFFFFEu);
  const unsigned int last = Start();
  const unsigned int wrapped = Start();
  EXPECT_EQ(0xFFFFFFFEu, last);
  EXPECT_EQ(3u, wrapped);
  EXPECT_EQ(4u, m_table.Size());
  m_latch.Open();
  for (const unsigned int id : {one, two, last, wrapped}) EXPECT_EQ(0, m_table.Join(id));
  EXPECT_EQ(0u, m_table.Size());
}

TEST_F(ThreadIdTableTest, ZeroIsNeverGiven) {
  m_table.NumberFrom(0);
  EXPECT_EQ(1u, m_table.Self());
}

TEST_F(ThreadIdTableTest, LeftoverOfAnEndedThreadIsNotTakenForANewThread) {
  pthread_t firstThread = {};
  pthread_t secondThread = {};
  const auto ask = [this](pthread_t* thread) {
    *thread = pthread_self();
    return m_table.Self();
  };
  const unsigned int first = RunInThread([&] { return ask(&firstThread); }).Get();
  const unsigned int second = RunInThread([&] { return ask(&secondThread); }).Get();
  EXPECT_NE(first, second);
  // The platform usually gives the new thread the pthread_t of the ended one.
  const bool reused = pthread_equal(firstThread, secondThread) != 0;
  EXPECT_EQ(reused ? 1u : 2u, m_table.Size());
}

TEST_F(ThreadIdTableTest, SelfEndsRemovesAForeignThreadAndLeavesACreatedOne) {
  EXPECT_FALSE(m_table.SelfEnds()) << "without an entry";
  m_table.Self();
  EXPECT_EQ(1u, m_table.Size());
  EXPECT_TRUE(m_table.SelfEnds());
  EXPECT_EQ(0u, m_table.Size());

  const unsigned int id = m_table.Create(
      nullptr,
      [](void* table) -> void* {
        static_cast<ThreadIdTable*>(table)->SelfEnds();
        return nullptr;
      },
      &m_table);
  EXPECT_EQ(0, m_table.Join(id));
}

TEST_F(ThreadIdTableTest, ShortMemoryStartsNoThreadAndGivesNoId) {
  {
    const FailingAllocation failure(1);
    EXPECT_EQ(QIV_INVALID_ID, Start());
  }
  {
    const FailingAllocation failure(1);
    EXPECT_EQ(QIV_INVALID_ID, m_table.Self());
  }
  EXPECT_EQ(0u, m_table.Size());
}

TEST_F(ThreadIdTableTest, FailedCreationLeavesNoEntry) {
  const HugeStack attributes;
  EXPECT_EQ(QIV_INVALID_ID, m_table.Create(attributes.Get(), WaitForLatch, &m_latch));
  EXPECT_EQ(0u, m_table.Size());
}

// Stands in for pthread_join(), which the thread sanitizer does not let be cancelled.
int WaitToBeCancelled(pthread_t, void**) {
  for (;;) {
    pthread_testcancel();
    std::this_thread::yield();
  }
}

TEST_F(ThreadIdTableTest, FailedJoinLeavesTheThreadJoinable) {
  const unsigned int id = Start();
  EXPECT_EQ(-1, m_table.Join(id, [](pthread_t, void**) { return EDEADLK; }));
  EXPECT_EQ(0, m_table.SetPriority(id, 0));
  m_latch.Open();
  EXPECT_EQ(0, m_table.Join(id));
}

TEST_F(ThreadIdTableTest, ThreadCanBeJoinedAfterAJoinWasCancelled) {
  struct Shared {
    ThreadIdTable* table;
    unsigned int id;
  } shared = {&m_table, Start()};
  pthread_t joiner;
  ASSERT_EQ(0, pthread_create(
                   &joiner, nullptr,
                   [](void* argument) -> void* {
                     auto* join = static_cast<Shared*>(argument);
                     join->table->Join(join->id, WaitToBeCancelled);
                     return nullptr;
                   },
                   &shared));
  ASSERT_TRUE(Eventually([&] { return m_table.SetPriority(shared.id, 0) == -1; }));
  ASSERT_EQ(0, pthread_cancel(joiner));
  void* result = nullptr;
  ASSERT_EQ(0, pthread_join(joiner, &result));
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_EQ(0, m_table.SetPriority(shared.id, 0));
  m_latch.Open();
  EXPECT_EQ(0, m_table.Join(shared.id));
}

}  // namespace
