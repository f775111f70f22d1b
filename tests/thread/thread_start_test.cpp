#include "thread/thread_start.h"

#include <qiv/thread.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <limits>

#include "support/captured_output.h"
#include "support/latch.h"
#include "support/leak_check.h"

namespace {

using qiv::test::CapturedOutput;
using qiv::test::Latch;
using qiv::thread::StartRecord;
using qiv::thread::ThreadStart;

qiv::qiv_tlsTraceInfoOper& Traces() { return *qiv::qiv_tlsTraceInfoOper::instance(); }

QIV_TRACEINFO TraceRecord(const char* text) {
  QIV_TRACEINFO record = {};
  std::strncpy(record.firstText, text, QIV_TRACE_TEXT_SIZE - 1);
  record.secondFlag = 9;
  return record;
}

class ThreadStartTest : public qiv::test::LeakCheckedTest {
 protected:
  void TearDown() override {
    Traces().eraseTraceInfo();
    LeakCheckedTest::TearDown();
  }

  static StartRecord* NewStartRecord(void* (*routine)(void*), void* argument) {
    auto* record = static_cast<StartRecord*>(std::calloc(1, sizeof(StartRecord)));
    record->routine = routine;
    record->argument = argument;
    return record;
  }
};

/** The record that the thread has while its routine runs. */
struct Seen {
  int result = -2;
  QIV_TRACEINFO record = {};
  static void* Look(void* seen) {
    auto* self = static_cast<Seen*>(seen);
    self->result = Traces().getTraceInfo(&self->record);
    return seen;
  }
};

TEST_F(ThreadStartTest, WithoutARecordTheThreadStartsOnTheRoutineAndNothingIsAllocated) {
  int argument = 0;
  const ThreadStart start(Seen::Look, &argument);
  ASSERT_TRUE(start.IsReady());
  EXPECT_EQ(&Seen::Look, start.Routine());
  EXPECT_EQ(&argument, start.Argument());
}

TEST_F(ThreadStartTest, WithARecordTheStartRecordCarriesItOver) {
  const QIV_TRACEINFO mine = TraceRecord("creator");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  int argument = 0;
  const ThreadStart start(Seen::Look, &argument);
  ASSERT_TRUE(start.IsReady());
  EXPECT_EQ(&pfnThreadStartAddress, start.Routine());
  const auto* record = static_cast<const StartRecord*>(start.Argument());
  EXPECT_EQ(0, std::memcmp(&mine, &record->trace, sizeof(mine)));
  EXPECT_EQ(&Seen::Look, record->routine);
  EXPECT_EQ(&argument, record->argument);
  EXPECT_EQ(1, record->hasTrace);
}

TEST_F(ThreadStartTest, NewThreadInheritsItsCreatorsRecord) {
  const QIV_TRACEINFO mine = TraceRecord("creator");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  Seen seen;
  ASSERT_EQ(0, QIV_Thread_Wait(QIV_Thread_Create(Seen::Look, &seen, 0, 0, 0, 0)));
  EXPECT_EQ(0, seen.result);
  EXPECT_EQ(0, std::memcmp(&mine, &seen.record, sizeof(mine)));
}

TEST_F(ThreadStartTest, NewThreadHasNoRecordWhenItsCreatorHasNone) {
  Seen seen;
  ASSERT_EQ(0, QIV_Thread_Wait(QIV_Thread_Create(Seen::Look, &seen, 0, 0, 0, 0)));
  EXPECT_EQ(-1, seen.result);
}

TEST_F(ThreadStartTest, DetachedThreadInheritsItsCreatorsRecord) {
  struct Shared {
    Seen seen;
    Latch done;
  };
  static Shared shared;
  const QIV_TRACEINFO mine = TraceRecord("creator");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  ASSERT_EQ(1, QIV_ThreadDetached_Create(
                   [](void*) -> void* {
                     Seen::Look(&shared.seen);
                     shared.done.Open();
                     return nullptr;
                   },
                   nullptr, 0));
  ASSERT_TRUE(shared.done.Wait());
  EXPECT_EQ(0, shared.seen.result);
  EXPECT_EQ(0, std::memcmp(&mine, &shared.seen.record, sizeof(mine)));
}

TEST_F(ThreadStartTest, FailedCreationLosesNoStartRecord) {
  const QIV_TRACEINFO mine = TraceRecord("creator");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  pthread_attr_t attributes;
  ASSERT_EQ(0, pthread_attr_init(&attributes));
  constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, (kMax - kMax / 4) & ~std::size_t{0xFFFF}));
  Seen seen;
  EXPECT_EQ(QIV_INVALID_ID, qiv::thread::StartJoinable(&attributes, Seen::Look, &seen));
  EXPECT_FALSE(qiv::thread::StartDetached(&attributes, Seen::Look, &seen));
  EXPECT_EQ(0, pthread_attr_destroy(&attributes));
}

TEST_F(ThreadStartTest, TrampolineWithoutAStartRecordPrintsItsLine) {
  for (const auto trampoline : {pfnThreadStartAddress, pfnDetachedThreadStartAddress}) {
    CapturedOutput output(STDERR_FILENO);
    EXPECT_EQ(nullptr, trampoline(nullptr));
    const std::string text = output.Stop();
    EXPECT_EQ("pfnThreadStartAddress, pParam is null!\r\n", text);
    EXPECT_EQ(40u, text.size());
  }
}

TEST_F(ThreadStartTest, TrampolineRunsTheRoutineAndDropsItsResult) {
  for (const auto trampoline : {pfnThreadStartAddress, pfnDetachedThreadStartAddress}) {
    Seen seen;
    EXPECT_EQ(nullptr, trampoline(NewStartRecord(Seen::Look, &seen)));
    EXPECT_EQ(-1, seen.result);
  }
}

TEST_F(ThreadStartTest, TrampolineInstallsTheRecordForTheRoutineAndErasesItAfterwards) {
  Seen during;
  StartRecord* const start = NewStartRecord(Seen::Look, &during);
  start->trace = TraceRecord("carried");
  start->hasTrace = 1;
  pfnThreadStartAddress(start);
  EXPECT_EQ(0, during.result);
  EXPECT_STREQ("carried", during.record.firstText);
  Seen after;
  Seen::Look(&after);
  EXPECT_EQ(-1, after.result);
}

TEST_F(ThreadStartTest, TrampolineLeavesTheThreadsOwnRecordAloneWhenNoneIsCarried) {
  const QIV_TRACEINFO mine = TraceRecord("mine");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  Seen during;
  StartRecord* const start = NewStartRecord(Seen::Look, &during);
  start->trace = TraceRecord("carried");
  pfnThreadStartAddress(start);
  EXPECT_STREQ("mine", during.record.firstText);
  Seen after;
  Seen::Look(&after);
  EXPECT_EQ(0, after.result);
}

TEST_F(ThreadStartTest, TrampolineToleratesAMissingRoutine) {
  EXPECT_EQ(nullptr, pfnThreadStartAddress(NewStartRecord(nullptr, nullptr)));
}

/** Sees the thread's record once its stack is unwound: keys are cleaned up after that. */
class AfterUnwinding {
 public:
  AfterUnwinding() {
    pthread_key_create(&s_key, [](void* seen) { Seen::Look(seen); });
  }
  ~AfterUnwinding() { pthread_key_delete(s_key); }
  static void Arm(Seen* seen) { pthread_setspecific(s_key, seen); }

 private:
  static pthread_key_t s_key;
};
pthread_key_t AfterUnwinding::s_key;

TEST_F(ThreadStartTest, ThreadThatExitsItselfHasItsRecordErased) {
  const QIV_TRACEINFO mine = TraceRecord("creator");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  const AfterUnwinding afterUnwinding;
  Seen seen;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        AfterUnwinding::Arm(static_cast<Seen*>(argument));
        QIV_Thread_Exit();
        return nullptr;
      },
      &seen, 0, 0, 0, 0);
  ASSERT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_EQ(-1, seen.result);
}

TEST_F(ThreadStartTest, CancelledThreadHasItsRecordErased) {
  const QIV_TRACEINFO mine = TraceRecord("creator");
  ASSERT_EQ(0, Traces().setTraceInfo(&mine));
  const AfterUnwinding afterUnwinding;
  Seen seen;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        AfterUnwinding::Arm(static_cast<Seen*>(argument));
        pthread_cancel(pthread_self());
        pthread_testcancel();
        return nullptr;
      },
      &seen, 0, 0, 0, 0);
  ASSERT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_EQ(-1, seen.result);
}

}  // namespace
