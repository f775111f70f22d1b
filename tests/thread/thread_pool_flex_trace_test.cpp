// The submitter's trace record: in the item, and in the worker when the handler runs.
#include <qiv/thread_pool_flex.h>
#include <qiv/time.h>
#include <qiv/trace_info.h>

#include <gtest/gtest.h>
#include <pthread.h>

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

class ThreadPoolFlexTraceTest : public qiv::test::FlexPoolTest {
 protected:
  void TearDown() override {
    TraceInfo().eraseTraceInfo();
    FlexPoolTest::TearDown();
  }

  /** Submits as a thread with this record. */
  int SubmitAs(const QIV_TRACEINFO& record, Job& job) {
    return RunInThread([&] {
             TraceInfo().setTraceInfo(&record);
             const int result = Submit(job);
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
  Create(1);
  ASSERT_EQ(1, SubmitAs(one, first.job));
  ASSERT_EQ(1, SubmitAs(two, second.job));
  Destroy(kNoLimit);
  EXPECT_EQ(0, first.result);
  EXPECT_TRUE(AreSame(one, first.record));
  EXPECT_EQ(0, second.result);
  EXPECT_TRUE(AreSame(two, second.record));
}

TEST_F(ThreadPoolFlexTraceTest, HandlerFindsNoRecordWhenNoSubmitterHadOne) {
  Look look;
  Create(1);
  ASSERT_EQ(1, Submit(look.job));
  Destroy(kNoLimit);
  EXPECT_EQ(-1, look.result);
}

TEST_F(ThreadPoolFlexTraceTest, KeptItemWithoutARecordLeavesTheOneThatTheWorkerHas) {
  Look withRecord;
  Look without;
  const QIV_TRACEINFO one = MakeRecord("one");
  Create(1);
  ASSERT_EQ(1, SubmitAs(one, withRecord.job));
  ASSERT_EQ(1, Submit(without.job));
  Destroy(kNoLimit);
  EXPECT_EQ(0, without.result);
  EXPECT_TRUE(AreSame(one, without.record));
}

TEST_F(ThreadPoolFlexTraceTest, ItemHoldsDataTimeRecordAndWhetherThereWasOne) {
  Blocker blocker;
  Job withRecord = [] {};
  Job without = [] {};
  const QIV_TRACEINFO one = MakeRecord("one");
  Create(1);
  ASSERT_EQ(1, Submit(blocker.job));
  ASSERT_TRUE(blocker.WaitUntilStarted());
  const QIV_TIME_T before = QIV_TimeNow();
  ASSERT_EQ(1, SubmitAs(one, withRecord));
  ASSERT_EQ(1, Submit(without));
  const QIV_TIME_T after = QIV_TimeNow();
  const qiv::thread::FlexItem* const head = Record().pQueue->pHead;
  const qiv::thread::FlexItem* const tail = Record().pQueue->pTail;
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
  Create(1);
  for (int nth = 1; nth <= 2; ++nth) {  // the item, and what carries the record to a new worker
    SCOPED_TRACE(nth);
    const FailingAllocation failure(nth);
    EXPECT_EQ(0, Submit(look.job));
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(0, QueueSize());
  }
  const FailingAllocation failure(3);
  EXPECT_EQ(1, Submit(look.job));
  EXPECT_FALSE(failure.Happened());
  Destroy(kNoLimit);
  EXPECT_TRUE(AreSame(mine, look.record));
}

/** What a thread's record is when the thread has run its routine to the end. */
class RecordAtThreadEnd {
 public:
  RecordAtThreadEnd() { pthread_key_create(&m_key, Read); }
  ~RecordAtThreadEnd() { pthread_key_delete(m_key); }
  RecordAtThreadEnd(const RecordAtThreadEnd&) = delete;
  RecordAtThreadEnd& operator=(const RecordAtThreadEnd&) = delete;

  /** To be called in the thread. */
  void Watch() { pthread_setspecific(m_key, this); }
  /** What getTraceInfo() gave. */
  [[nodiscard]] bool EventuallyIs(int result) const {
    return Eventually([&] { return m_result.load() == result; });
  }

 private:
  static void Read(void* self) {
    QIV_TRACEINFO record;
    static_cast<RecordAtThreadEnd*>(self)->m_result.store(TraceInfo().getTraceInfo(&record));
  }

  pthread_key_t m_key = 0;
  std::atomic<int> m_result{-2};
};

TEST_F(ThreadPoolFlexTraceTest, WorkerErasesItsRecordWhenItEnds) {
  for (const int idleTimeout : {-1, 0}) {  // ended by the destruction; by the time-out
    RecordAtThreadEnd atEnd;
    Job nothing = [] {};
    Job watch = [&] {
      QIV_TRACEINFO record;
      EXPECT_EQ(0, TraceInfo().getTraceInfo(&record));
      atEnd.Watch();
    };
    Blocker blocker;
    Create(1, idleTimeout);
    ASSERT_EQ(1, Submit(blocker.job));  // starts the worker, which so inherits no record
    ASSERT_EQ(1, SubmitAs(MakeRecord("item"), watch));
    blocker.Release();
    if (idleTimeout == 0) {
      EXPECT_TRUE(atEnd.EventuallyIs(-1));
    }
    Destroy(kNoLimit);
    EXPECT_TRUE(atEnd.EventuallyIs(-1));
  }
}

}  // namespace
