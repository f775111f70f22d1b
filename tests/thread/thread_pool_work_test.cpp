// How pools hand work over.
#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/semaphore.h>
#include <qiv/thread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "base/scoped_lock.h"
#include "support/captured_output.h"
#include "support/eventually.h"
#include "support/latch.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"
#include "thread/thread_pool_fixture.h"

namespace qiv::thread {
namespace {

using test::CapturedOutput;
using test::Eventually;
using test::Latch;
using test::RunInThread;

qiv_tlsTraceInfoOper& TraceInfo() { return *qiv_tlsTraceInfoOper::instance(); }

bool IsIdle(QIV_HANDLE pool, std::size_t index) {
  const base::ScopedLock lock(Record(pool)->mutex);
  return Record(pool)->threads[index].bIdle == 1;
}

unsigned int WaitingSubmitters(QIV_HANDLE pool) {
  const base::ScopedLock lock(Record(pool)->mutex);
  return Record(pool)->nWaiting;
}

void* StoreSelf(void* id) {
  *static_cast<std::atomic<unsigned int>*>(id) = QIV_Thread_GetSelfId();
  return nullptr;
}

void SetTrace(const char* text) {
  QIV_TRACEINFO record = {};
  std::strncpy(record.firstText, text, sizeof(record.firstText) - 1);
  TraceInfo().setTraceInfo(&record);
}

/** What the item finds in its thread; "-" stands for no record. */
struct SeenTrace {
  std::string text;
  QIV_TRACEINFO record = {};
  Latch done;

  static void* Store(void* seen) {
    QIV_TRACEINFO record;
    const bool has = TraceInfo().getTraceInfo(&record) == QIV_OK;
    static_cast<SeenTrace*>(seen)->text = has ? record.firstText : "-";
    static_cast<SeenTrace*>(seen)->record = record;
    static_cast<SeenTrace*>(seen)->done.Open();
    return nullptr;
  }

  static std::string Of(QIV_HANDLE pool) {
    SeenTrace seen;
    EXPECT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, Store, &seen, 1));
    EXPECT_TRUE(seen.done.Wait());
    return seen.text;
  }
};

class ThreadPoolWorkTest : public StartedLibraryTest {
 protected:
  void TearDown() override {
    TraceInfo().eraseTraceInfo();
    StartedLibraryTest::TearDown();
  }
};

TEST_F(ThreadPoolWorkTest, ANullPoolAndANullFunctionAreRefusedWithAMessage) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 1);
  const std::string message = "zelmar !!! QIV_ThreadPool_Work param error, return -1 1\n\n";
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_ThreadPool_Work(nullptr, Nothing, nullptr));
  EXPECT_EQ(-1, QIV_ThreadPool_Work(pool, nullptr, nullptr));
  EXPECT_EQ(-1, QIV_ThreadPool_WorkEx(nullptr, Nothing, nullptr, 1));
  EXPECT_EQ(-1, QIV_ThreadPool_WorkEx(pool, nullptr, nullptr, 1));
  EXPECT_EQ(message + message + message + message, output.Stop());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, AClosedPoolRefusesWorkWithoutAMessage) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  {
    const base::ScopedLock lock(Record(pool)->mutex);
    Record(pool)->bQuit = 1;
  }
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, QIV_ThreadPool_Work(pool, Nothing, nullptr));
  EXPECT_EQ(-1, QIV_ThreadPool_WorkEx(pool, Nothing, nullptr, 1));
  EXPECT_EQ("", output.Stop());
  {
    const base::ScopedLock lock(Record(pool)->mutex);
    Record(pool)->bQuit = 0;
  }
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, TheItemGetsItsArgument) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  std::atomic<int> count{41};
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, Count, &count));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(42, count);
}

TEST_F(ThreadPoolWorkTest, TheIdleWorkerWithTheLowestIndexIsTaken) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(3, 3);
  for (int round = 0; round < 3; ++round) {
    std::atomic<unsigned int> id{0};
    EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, StoreSelf, &id));
    EXPECT_TRUE(Eventually([&] { return id != 0 && IsIdle(pool, 0); }));
    EXPECT_EQ(Record(pool)->threads[0].hThread, id);
  }
  Latch latch;
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, WaitForLatch, &latch));
  std::atomic<unsigned int> id{0};
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, StoreSelf, &id));
  EXPECT_TRUE(Eventually([&] { return id != 0; }));
  EXPECT_EQ(Record(pool)->threads[1].hThread, id);
  latch.Open();
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, AnIdleWorkerIsTakenBeforeANewOneIsStarted) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 4);
  for (int i = 0; i < 5; ++i) {
    std::atomic<int> count{0};
    EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, Count, &count));
    EXPECT_TRUE(Eventually([&] { return count == 1 && IsIdle(pool, 0); }));
  }
  EXPECT_EQ(1U, Record(pool)->nCurrCount);
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, WithAllWorkersBusyWorkFailsAtOnceAndTheWaitFlagWaitsForAnIdleOne) {
  Latch latch;
  std::atomic<int> count{0};
  const QIV_HANDLE pool = QIV_ThreadPool_Create(2, 2);
  QIV_ThreadPool_Work(pool, WaitForLatch, &latch);
  QIV_ThreadPool_Work(pool, WaitForLatch, &latch);
  EXPECT_EQ(-1, QIV_ThreadPool_Work(pool, Count, &count));
  auto submitted = RunInThread([&] { return QIV_ThreadPool_WorkEx(pool, Count, &count, 1); });
  EXPECT_TRUE(Eventually([&] { return WaitingSubmitters(pool) == 1; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(30));  // the submitter looks every 5 ms
  EXPECT_FALSE(submitted.IsReady());
  EXPECT_EQ(0, count);
  latch.Open();
  EXPECT_EQ(QIV_OK, submitted.Get());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(1, count);
}

TEST_F(ThreadPoolWorkTest, DestroySendsWaitingSubmittersAway) {
  Latch latch;
  std::atomic<int> count{0};
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  QIV_ThreadPool_Work(pool, WaitForLatch, &latch);
  const auto submit = [&] { return QIV_ThreadPool_WorkEx(pool, Count, &count, 1); };
  auto first = RunInThread(submit);
  auto second = RunInThread(submit);
  EXPECT_TRUE(Eventually([&] { return WaitingSubmitters(pool) == 2; }));
  auto destroyed = RunInThread([pool] { return QIV_ThreadPool_Destroy(pool); });
  EXPECT_EQ(-1, first.Get());
  EXPECT_EQ(-1, second.Get());
  EXPECT_FALSE(destroyed.IsReady()) << "an item is still running";
  latch.Open();
  EXPECT_EQ(QIV_OK, destroyed.Get());
  EXPECT_EQ(0, count);
}

TEST_F(ThreadPoolWorkTest, DestroySendsASubmitterAwayThatWaitsForAPoolOfNoWorkers) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 0);
  auto submitted = RunInThread([&] { return QIV_ThreadPool_WorkEx(pool, Nothing, nullptr, 1); });
  EXPECT_TRUE(Eventually([&] { return WaitingSubmitters(pool) == 1; }));
  QIV_InitThreadPool_Inter();
  EXPECT_EQ(1U, WaitingSubmitters(pool)) << "a pool that somebody waits for is not forgotten";
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(-1, submitted.Get());
}

TEST_F(ThreadPoolWorkTest, SubmittersThatArriveDuringAndAfterTheDestructionAreRefused) {
  const int rounds = test::ScaledLoad(300);
  for (int i = 0; i < rounds; ++i) {
    const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 2);
    std::atomic<int> run{0};
    std::atomic<int> accepted{0};
    std::vector<test::ThreadResult<bool>> submitters;
    for (int s = 0; s < 4; ++s) {
      submitters.push_back(RunInThread([&] {
        while (QIV_ThreadPool_WorkEx(pool, Count, &run, 1) == QIV_OK) ++accepted;
        return true;
      }));
    }
    ASSERT_TRUE(Eventually([&] { return accepted > 0; }));
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
    for (auto& submitter : submitters) ASSERT_TRUE(submitter.Get());
    ASSERT_EQ(accepted, run);
  }
}

TEST_F(ThreadPoolWorkTest, AWorkerThatIsDoneTakesTheItemsOfWaitingSubmittersInTheirOrder) {
  Latch latch;
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  QIV_ThreadPool_Work(pool, WaitForLatch, &latch);
  struct Item {
    std::vector<int>* order;
    int number;
  };
  std::vector<int> order;
  Item items[] = {{&order, 0}, {&order, 1}, {&order, 2}};
  std::vector<test::ThreadResult<int>> submitters;
  for (Item& item : items) {
    submitters.push_back(RunInThread([pool, &item] {
      const auto note = [](void* argument) -> void* {
        const auto* const own = static_cast<Item*>(argument);
        own->order->push_back(own->number);
        return nullptr;
      };
      return QIV_ThreadPool_WorkEx(pool, note, &item, 1);
    }));
    const auto waiting = static_cast<unsigned int>(item.number) + 1;
    EXPECT_TRUE(Eventually([&] { return WaitingSubmitters(pool) == waiting; }));
  }
  latch.Open();
  for (auto& submitter : submitters) EXPECT_EQ(QIV_OK, submitter.Get());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ((std::vector<int>{0, 1, 2}), order);
}

TEST_F(ThreadPoolWorkTest, AWaitingSubmittersTraceRecordTravelsToo) {
  Latch latch;
  SeenTrace seen;
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  QIV_ThreadPool_Work(pool, WaitForLatch, &latch);
  auto submitted = RunInThread([&] {
    SetTrace("waiting");
    const int result = QIV_ThreadPool_WorkEx(pool, SeenTrace::Store, &seen, 1);
    TraceInfo().eraseTraceInfo();
    return result;
  });
  EXPECT_TRUE(Eventually([&] { return WaitingSubmitters(pool) == 1; }));
  latch.Open();
  EXPECT_EQ(QIV_OK, submitted.Get());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ("waiting", seen.text);
}

TEST_F(ThreadPoolWorkTest, AnItemThatCancelsItsThreadDoesNotTakeTheWorkerAway) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  std::atomic<int> count{0};
  const auto cancelSelf = [](void*) -> void* {
    pthread_cancel(pthread_self());
    return nullptr;
  };
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, cancelSelf, nullptr, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, Count, &count, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, Count, &count, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(2, count);
}

TEST_F(ThreadPoolWorkTest, ASubmitterThatIsCancelledWhileItWaitsLeavesThePoolUsable) {
  Latch latch;
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  QIV_ThreadPool_Work(pool, WaitForLatch, &latch);
  pthread_t submitter;
  ASSERT_EQ(0, pthread_create(
                   &submitter, nullptr,
                   [](void* own) -> void* {
                     QIV_ThreadPool_WorkEx(own, Nothing, nullptr, 1);
                     return nullptr;
                   },
                   pool));
  EXPECT_TRUE(Eventually([&] { return WaitingSubmitters(pool) == 1; }));
  pthread_cancel(submitter);
  void* result = nullptr;
  pthread_join(submitter, &result);
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_EQ(0U, WaitingSubmitters(pool));
  latch.Open();
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, Nothing, nullptr, 1));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, AWorkerThatFindsAnItemAndTheRequestToQuitRunsTheItemFirst) {
  std::atomic<int> count{0};
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  {
    const base::ScopedLock lock(Record(pool)->mutex);
    QIV_THREADPOOL_THREAD* const slot = QIV_GetIdle_Local(Record(pool));
    ASSERT_NE(nullptr, slot);
    slot->pfnWork = Count;
    slot->pParam = &count;
    slot->bQuit = 1;
    QIV_SemPost(&slot->sem);
  }
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(1, count);
}

TEST_F(ThreadPoolWorkTest, EveryItemAcceptedBeforeDestroyIsRun) {
  const int rounds = test::ScaledLoad(2000);
  std::atomic<int> run{0};
  int accepted = 0;
  for (int i = 0; i < rounds; ++i) {
    const QIV_HANDLE pool = QIV_ThreadPool_CreateFlex(static_cast<unsigned int>(i % 2), 2, 0, 1);
    for (int item = 0; item < 3; ++item) {
      if (QIV_ThreadPool_Work(pool, Count, &run) == QIV_OK) ++accepted;
    }
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
    ASSERT_EQ(accepted, run);
  }
}

TEST_F(ThreadPoolWorkTest, TheInternalOperationsRefuseNullWithAMessage) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(nullptr, QIV_GetIdle_Local(nullptr));
  EXPECT_EQ(nullptr, f_Thread_Svc(nullptr));
  EXPECT_EQ(
      "zelmar !!! QIV_GetIdle_Local pThreadPool == NULL error, return NULL 1\n\n"
      "zelmar !!! f_Thread_Svc pParam == NULL error, return NULL 1\n\n",
      output.Stop());
}

// Trace records.

TEST_F(ThreadPoolWorkTest, AnIdleWorkerRunsTheItemWithTheSubmittersTraceRecord) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  SetTrace("first");
  EXPECT_EQ("first", SeenTrace::Of(pool));
  SetTrace("second");
  EXPECT_EQ("second", SeenTrace::Of(pool));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, TheWholeTraceRecordTravels) {
  QIV_TRACEINFO record = {};
  std::strcpy(record.firstText, "one");
  std::strcpy(record.secondText, "two");
  std::strcpy(record.thirdText, "three");
  record.firstFlag = 4;
  record.secondFlag = 5;
  TraceInfo().setTraceInfo(&record);
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  SeenTrace seen;
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, SeenTrace::Store, &seen));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(0, std::memcmp(&record, &seen.record, sizeof(record)));
}

TEST_F(ThreadPoolWorkTest, AnItemOfASubmitterWithoutARecordRunsWithTheRecordOfTheItemBefore) {
  const QIV_HANDLE pool = QIV_ThreadPool_Create(1, 1);
  EXPECT_EQ("-", SeenTrace::Of(pool));
  SetTrace("first");
  EXPECT_EQ("first", SeenTrace::Of(pool));
  TraceInfo().eraseTraceInfo();
  EXPECT_EQ("first", SeenTrace::Of(pool));
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

TEST_F(ThreadPoolWorkTest, AWorkerStartedForAnItemInheritsTheRecordAndItsSlotGetsNone) {
  SetTrace("creator");
  Latch latch;
  const QIV_HANDLE pool = QIV_ThreadPool_Create(0, 2);
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Work(pool, WaitForLatch, &latch));
  const QIV_TRACEINFO empty = {};
  EXPECT_EQ(0, std::memcmp(&empty, &Record(pool)->threads[0].traceInfo, sizeof(empty)));
  EXPECT_EQ("creator", SeenTrace::Of(pool));
  EXPECT_EQ(0, std::memcmp(&empty, &Record(pool)->threads[1].traceInfo, sizeof(empty)));
  latch.Open();
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

// Many submitters.

struct Load {
  QIV_HANDLE pool;
  std::atomic<int> run{0};
  int items;
};

/** Four threads submit, waiting where all workers are busy; every item must run once. */
void SubmitFromFourThreads(QIV_HANDLE pool, int items) {
  ASSERT_NE(nullptr, pool);
  Load load = {pool, {0}, items};
  std::vector<test::ThreadResult<int>> submitters;
  for (int i = 0; i < 4; ++i) {
    submitters.push_back(RunInThread([&load] {
      int accepted = 0;
      for (int item = 0; item < load.items; ++item) {
        if (QIV_ThreadPool_WorkEx(load.pool, Count, &load.run, 1) == QIV_OK) ++accepted;
      }
      return accepted;
    }));
  }
  for (auto& submitter : submitters) EXPECT_EQ(items, submitter.Get());
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
  EXPECT_EQ(4 * items, load.run);
}

TEST_F(ThreadPoolWorkTest, EveryItemOfFourSubmittersRunsOnce) {
  SubmitFromFourThreads(QIV_ThreadPool_Create(2, 4), test::ScaledLoad(100000));
}

TEST_F(ThreadPoolWorkTest, NoPostIsLostWhenIdleWorkersEndAfterAMillisecond) {
  SubmitFromFourThreads(QIV_ThreadPool_CreateFlex(0, 4, 0, 1), test::ScaledLoad(100000));
}

TEST_F(ThreadPoolWorkTest, NoPostIsLostWhenWorkersEndAtOnce) {
  SubmitFromFourThreads(QIV_ThreadPool_CreateFlex(0, 3, 0, 0), test::ScaledLoad(2000));
}

/** Pauses about as long as the idle time-out, so that workers give up as work arrives. */
TEST_F(ThreadPoolWorkTest, NoPostIsLostAtTheMomentOfTheIdleTimeout) {
  const int rounds = test::ScaledLoad(1000);
  const QIV_HANDLE pool = QIV_ThreadPool_CreateFlex(0, 2, 0, 1);
  std::atomic<int> run{0};
  for (int i = 0; i < rounds; ++i) {
    ASSERT_EQ(QIV_OK, QIV_ThreadPool_WorkEx(pool, Count, &run, 1));
    ASSERT_TRUE(Eventually([&] { return run == i + 1; })) << i;
    usleep(static_cast<useconds_t>(900 + i % 300));
  }
  EXPECT_EQ(QIV_OK, QIV_ThreadPool_Destroy(pool));
}

}  // namespace
}  // namespace qiv::thread
