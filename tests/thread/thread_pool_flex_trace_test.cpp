// The submitter's trace record: in the item, and in the worker when the handler runs.
#include <qiv/thread_pool_flex.h>
#include <qiv/time.h>
#include <qiv/trace_info.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "support/failing_allocation.h"
#include "support/run_in_thread.h"
#include "thread/thread_pool_flex_fixture.h"

namespace {

using qiv::test::Blocker;
using qiv::test::Eventually;
using qiv::test::FailingAllocation;
using qiv::test::Job;
using qiv::test::RunInThread;
using qiv::test::TestPool;

qiv::qiv_tlsTraceInfoOper& TraceInfo() { return *qiv::qiv_tlsTraceInfoOper::instance(); }

QIV_TRACEINFO MakeRecord(const char* text) {
  QIV_TRACEINFO record = {};
  std::strncpy(record.firstText, text, QIV_TRACE_TEXT_SIZE - 1);
  std::strncpy(record.thirdText, "third", QIV_TRACE_TEXT_SIZE - 1);
  record.firstFlag = 7;
  record.secondFlag = 9;
  return record;
}

/** An item that keeps the record that its handler finds. */
struct Look {
  int result = -2;
  QIV_TRACEINFO record = {};
  Job job = [this] { result = TraceInfo().getTraceInfo(&record); };
};

bool AreSame(const QIV_TRACEINFO& a, const QIV_TRACEINFO& b) {
  return std::memcmp(&a, &b, sizeof(a)) == 0;
}

class ThreadPoolFlexTraceTest : public qiv::test::LeakCheckedTest {
 protected:
  void TearDown() override {
    TraceInfo().eraseTraceInfo();
    LeakCheckedTest::TearDown();
  }

  /** Submits as a thread with this record. */
  static int SubmitAs(const QIV_TRACEINFO& record, const TestPool& pool, Job& job) {
    return RunInThread([&] {
             TraceInfo().setTraceInfo(&record);
             const int result = pool.Submit(job);
             TraceInfo().eraseTraceInfo();
             return result;
           })
        .Get();
  }
};

TEST_F(ThreadPoolFlexTraceTest, HandlerFindsTheRecordOfItsSubmitter) {
  Look first;
  Look second;
  const QIV_TRACEINFO one = MakeRecord("one");
  const QIV_TRACEINFO two = MakeRecord("two");
  TestPool pool(1);
  ASSERT_EQ(1, SubmitAs(one, pool, first.job));
  ASSERT_EQ(1, SubmitAs(two, pool, second.job));
  pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(0, first.result);
  EXPECT_TRUE(AreSame(one, first.record));
  EXPECT_EQ(0, second.result);
  EXPECT_TRUE(AreSame(two, second.record));
}

TEST_F(ThreadPoolFlexTraceTest, HandlerFindsNoRecordWhenNoSubmitterHadOne) {
  Look look;
  TestPool pool(1);
  ASSERT_EQ(1, pool.Submit(look.job));
  pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(-1, look.result);
}

TEST_F(ThreadPoolFlexTraceTest, KeptItemWithoutARecordLeavesTheOneThatTheWorkerHas) {
  Look withRecord;
  Look without;
  const QIV_TRACEINFO one = MakeRecord("one");
  TestPool pool(1);
  ASSERT_EQ(1, SubmitAs(one, pool, withRecord.job));
  ASSERT_EQ(1, pool.Submit(without.job));
  pool.Destroy(TestPool::kNoLimit);
  EXPECT_EQ(0, without.result);
  EXPECT_TRUE(AreSame(one, without.record));
}

TEST_F(ThreadPoolFlexTraceTest, ItemHoldsDataTimeRecordAndWhetherThereWasOne) {
  Blocker blocker;
  Job withRecord = [] {};
  Job without = [] {};
  const QIV_TRACEINFO one = MakeRecord("one");
  TestPool pool(1);
  ASSERT_EQ(1, pool.Submit(blocker.job));
  ASSERT_TRUE(blocker.WaitUntilStarted());
  const QIV_TIME_T before = QIV_TimeNow();
  ASSERT_EQ(1, SubmitAs(one, pool, withRecord));
  ASSERT_EQ(1, pool.Submit(without));
  const QIV_TIME_T after = QIV_TimeNow();
  const qiv::thread::FlexItem* const head = pool.Record().pQueue->pHead;
  const qiv::thread::FlexItem* const tail = pool.Record().pQueue->pTail;
  EXPECT_EQ(tail, head->pNext);
  EXPECT_EQ(nullptr, tail->pNext);
  EXPECT_EQ(&withRecord, head->pData);
  EXPECT_EQ(&without, tail->pData);
  EXPECT_EQ(1, head->traceCaptured);
  EXPECT_EQ(0, tail->traceCaptured);
  EXPECT_TRUE(AreSame(one, head->traceInfo));
  EXPECT_TRUE(AreSame(QIV_TRACEINFO(), tail->traceInfo));
  for (const auto* item : {head, tail}) {
    const QIV_TIME_T time =
        item->submitTime.tv_sec * QIV_TIME_T{1000000} + item->submitTime.tv_usec;
    EXPECT_LE(before, time);
    EXPECT_GE(after, time);
  }
  blocker.Release();
}

TEST_F(ThreadPoolFlexTraceTest, NothingIsQueuedAtEachFailedAllocationOfASubmitterWithARecord) {
  Look look;
  const QIV_TRACEINFO mine = MakeRecord("mine");
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&mine));
  TestPool pool(1);
  for (int nth = 1; nth <= 2; ++nth) {  // the item, and what carries the record to a new worker
    SCOPED_TRACE(nth);
    const FailingAllocation failure(nth);
    EXPECT_EQ(0, pool.Submit(look.job));
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(0, pool.QueueSize());
  }
  const FailingAllocation failure(3);
  EXPECT_EQ(1, pool.Submit(look.job));
  EXPECT_FALSE(failure.Happened());
  pool.Destroy(TestPool::kNoLimit);
  EXPECT_TRUE(AreSame(mine, look.record));
}

/** What getTraceInfo() gives when a thread has run its routine to the end. */
class ResultAtThreadEnd {
 public:
  /** To be called in the thread. */
  void Watch() { t_reader.target = &m_result; }

  [[nodiscard]] bool EventuallyIs(int result) const {
    return Eventually([&] { return m_result.load() == result; });
  }

 private:
  // Destroyed before the platform clears the thread-local keys, as a key's destructor is not.
  struct Reader {
    ~Reader() {
      QIV_TRACEINFO record;
      if (target != nullptr) target->store(TraceInfo().getTraceInfo(&record));
    }
    std::atomic<int>* target = nullptr;
  };
  static thread_local Reader t_reader;

  std::atomic<int> m_result{-2};
};
thread_local ResultAtThreadEnd::Reader ResultAtThreadEnd::t_reader;

TEST_F(ThreadPoolFlexTraceTest, WorkerErasesItsRecordWhenItEnds) {
  for (const int idleTimeout : {-1, 0}) {  // ended by the destruction; by the time-out
    ResultAtThreadEnd atEnd;
    Job watch = [&] {
      QIV_TRACEINFO record;
      EXPECT_EQ(0, TraceInfo().getTraceInfo(&record));
      atEnd.Watch();
    };
    Blocker blocker;
    TestPool pool(1, idleTimeout);
    ASSERT_EQ(1, pool.Submit(blocker.job));  // starts the worker, which so inherits no record
    ASSERT_EQ(1, SubmitAs(MakeRecord("item"), pool, watch));
    blocker.Release();
    if (idleTimeout == 0) {
      EXPECT_TRUE(atEnd.EventuallyIs(-1));
    }
    pool.Destroy(TestPool::kNoLimit);
    EXPECT_TRUE(atEnd.EventuallyIs(-1));
  }
}

}  // namespace
