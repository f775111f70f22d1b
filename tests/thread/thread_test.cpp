#include <qiv/thread.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <limits>

#include "support/latch.h"
#include "support/leak_check.h"

namespace {

using qiv::test::Latch;

class ThreadTest : public qiv::test::LeakCheckedTest {};

void* AddOne(void* number) {
  ++*static_cast<int*>(number);
  return number;
}

TEST_F(ThreadTest, RoutineRunsWithItsArgumentBeforeWaitReturns) {
  int number = 41;
  const unsigned int id = QIV_Thread_Create(AddOne, &number, 0, 0, 0, 0);
  ASSERT_NE(QIV_INVALID_ID, id);
  EXPECT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_EQ(42, number);
}

TEST_F(ThreadTest, FourthArgumentHasNoEffect) {
  for (const int ignored : {-1, 1, std::numeric_limits<int>::max()}) {
    int number = 0;
    EXPECT_EQ(0, QIV_Thread_Wait(QIV_Thread_Create(AddOne, &number, 0, ignored, 0, 0)));
    EXPECT_EQ(1, number);
  }
}

TEST_F(ThreadTest, CreateRefusesWhatThePlatformRefuses) {
  struct Row {
    const char* what;
    unsigned int stackSize;
    int priority;
    int policy;
    bool started;
  };
  const Row kRows[] = {
      {"defaults", 0, 0, SCHED_OTHER, true},
      {"unknown policy", 0, 0, 99, false},
      {"negative policy", 0, 0, -1, false},
      {"stack too small", 1, 0, SCHED_OTHER, false},
      {"stack given", 256 * 1024, 0, SCHED_OTHER, true},
      {"priority of another policy", 0, 5, SCHED_OTHER, false},
      {"real-time policy without a priority", 0, 0, SCHED_FIFO, false},
      {"real-time policy with a priority", 0, 1, SCHED_FIFO, true},
      {"priority too high", 0, 1000, SCHED_RR, false},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.what);
    int number = 0;
    const unsigned int id =
        QIV_Thread_Create(AddOne, &number, row.stackSize, 0, row.priority, row.policy);
    EXPECT_EQ(row.started, id != QIV_INVALID_ID);
    EXPECT_EQ(row.started ? 0 : -1, QIV_Thread_Wait(id));
    EXPECT_EQ(row.started ? 1 : 0, number);
  }
}

TEST_F(ThreadTest, PolicyAndPriorityAreKeptWithoutEffectOnTheThread) {
  struct Scheduling {
    int policy = -1;
    sched_param parameter = {};
  };
  Scheduling mine;
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &mine.policy, &mine.parameter));
  Scheduling seen;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        auto* scheduling = static_cast<Scheduling*>(argument);
        pthread_getschedparam(pthread_self(), &scheduling->policy, &scheduling->parameter);
        return nullptr;
      },
      &seen, 0, 0, 1, SCHED_FIFO);
  ASSERT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_EQ(mine.policy, seen.policy);
  EXPECT_EQ(mine.parameter.sched_priority, seen.parameter.sched_priority);
}

// More than any platform's default, so that it cannot be met by chance.
constexpr unsigned int kStackSize = 32 * 1024 * 1024;

std::size_t OwnStackSize() {
  pthread_attr_t attributes;
  std::size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  pthread_attr_getstacksize(&attributes, &size);
  pthread_attr_destroy(&attributes);
  return size;
}

TEST_F(ThreadTest, ThreadHasTheStackThatWasAskedFor) {
  std::size_t size = 0;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        *static_cast<std::size_t*>(argument) = OwnStackSize();
        return nullptr;
      },
      &size, kStackSize, 0, 0, 0);
  ASSERT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_GE(size, kStackSize / 100 * 95);
}

TEST_F(ThreadTest, NullRoutineIsRefused) {
  EXPECT_EQ(QIV_INVALID_ID, QIV_Thread_Create(nullptr, nullptr, 0, 0, 0, 0));
  EXPECT_EQ(0, QIV_ThreadDetached_Create(nullptr, nullptr, 0));
}

struct DetachedRun {
  Latch done;
  bool detached = false;
  std::size_t stackSize = 0;
  static void* Run(void* argument) {
    auto* self = static_cast<DetachedRun*>(argument);
    pthread_attr_t attributes;
    int state = PTHREAD_CREATE_JOINABLE;
    if (pthread_getattr_np(pthread_self(), &attributes) == 0) {
      pthread_attr_getdetachstate(&attributes, &state);
      pthread_attr_destroy(&attributes);
    }
    self->detached = state == PTHREAD_CREATE_DETACHED;
    self->stackSize = OwnStackSize();
    self->done.Open();
    return nullptr;
  }
};

TEST_F(ThreadTest, DetachedThreadRunsAndIsDetached) {
  // The thread may still be in Open() when the wait is over.
  static DetachedRun run;
  ASSERT_EQ(1, QIV_ThreadDetached_Create(DetachedRun::Run, &run, 0));
  ASSERT_TRUE(run.done.Wait());
  EXPECT_TRUE(run.detached);
}

TEST_F(ThreadTest, DetachedThreadHasTheStackThatWasAskedForOrIsNotStarted) {
  static DetachedRun run;
  EXPECT_EQ(0, QIV_ThreadDetached_Create(DetachedRun::Run, &run, 1));
  ASSERT_EQ(1, QIV_ThreadDetached_Create(DetachedRun::Run, &run, kStackSize));
  ASSERT_TRUE(run.done.Wait());
  EXPECT_GE(run.stackSize, kStackSize / 100 * 95);
}

TEST_F(ThreadTest, InvalidIdIsRefused) {
  EXPECT_EQ(-1, QIV_Thread_Wait(QIV_INVALID_ID));
  EXPECT_EQ(-1, QIV_Thread_SetPriority(QIV_INVALID_ID, 0));
  EXPECT_EQ(-1, QIV_Thread_SetSchedPolicy(QIV_INVALID_ID, SCHED_OTHER));
}

TEST_F(ThreadTest, ThreadSeesTheIdThatItsCreatorGot) {
  unsigned int seen = 0;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        *static_cast<unsigned int*>(argument) = QIV_Thread_GetSelfId();
        return nullptr;
      },
      &seen, 0, 0, 0, 0);
  ASSERT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_EQ(id, seen);
  EXPECT_NE(id, QIV_Thread_GetSelfId());
}

TEST_F(ThreadTest, ThreadThatWaitsForItselfFailsAndCanStillBeWaitedFor) {
  int result = 0;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        *static_cast<int*>(argument) = QIV_Thread_Wait(QIV_Thread_GetSelfId());
        return nullptr;
      },
      &result, 0, 0, 0, 0);
  EXPECT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_EQ(-1, result);
}

TEST_F(ThreadTest, ExitEndsTheThreadAndRunsDestructors) {
  struct Trail {
    bool unwound = false;
    bool returned = false;
  } trail;
  const unsigned int id = QIV_Thread_Create(
      [](void* argument) -> void* {
        struct Mark {
          bool* flag;
          ~Mark() { *flag = true; }
        };
        auto* marks = static_cast<Trail*>(argument);
        const Mark unwound = {&marks->unwound};
        QIV_Thread_Exit();
        marks->returned = true;
        return nullptr;
      },
      &trail, 0, 0, 0, 0);
  ASSERT_EQ(0, QIV_Thread_Wait(id));
  EXPECT_TRUE(trail.unwound);
  EXPECT_FALSE(trail.returned);
}

TEST_F(ThreadTest, SuspendAndResumeAreUnsupportedForAnyId) {
  for (const unsigned int id : {0u, 1u, QIV_Thread_GetSelfId(), QIV_INVALID_ID}) {
    EXPECT_EQ(-2, QIV_Thread_Suspend(id));
    EXPECT_EQ(-2, QIV_Thread_Resume(id));
  }
}

TEST_F(ThreadTest, SetPriorityKeepsThePolicyAndRefusesWhatThePolicyDoesNotAllow) {
  int policy = -1;
  sched_param parameter = {};
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &policy, &parameter));
  EXPECT_EQ(0, QIV_Thread_SetPriority(QIV_Thread_GetSelfId(), parameter.sched_priority));
  EXPECT_EQ(-1, QIV_Thread_SetPriority(QIV_Thread_GetSelfId(), 1000));
  int after = -1;
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &after, &parameter));
  EXPECT_EQ(policy, after);
}

TEST_F(ThreadTest, SetSchedPolicyIsKeptAsACheckOfTheValueOnly) {
  int before = -1;
  sched_param parameter = {};
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &before, &parameter));
  const unsigned int self = QIV_Thread_GetSelfId();
  EXPECT_EQ(0, QIV_Thread_SetSchedPolicy(self, SCHED_FIFO));
  EXPECT_EQ(0, QIV_Thread_SetSchedPolicy(self, SCHED_RR));
  EXPECT_EQ(0, QIV_Thread_SetSchedPolicy(self, SCHED_OTHER));
  EXPECT_EQ(-1, QIV_Thread_SetSchedPolicy(self, 99));
  EXPECT_EQ(0, QIV_Thread_SetSchedPolicy(0, SCHED_FIFO)) << "no thread is looked up";
  int after = -1;
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &after, &parameter));
  EXPECT_EQ(before, after);
}

TEST_F(ThreadTest, ClassWithoutAThreadNamesTheInvalidId) {
  QIV_Thread thread;
  EXPECT_EQ(sizeof(unsigned int), sizeof(thread));
  EXPECT_EQ(-1, thread.Wait());
  EXPECT_EQ(-1, thread.SetPriority(0));
  EXPECT_EQ(-1, thread.SetSchedPolicy(SCHED_OTHER));
  EXPECT_EQ(-2, thread.Suspend());
  EXPECT_EQ(-2, thread.Resume());
}

TEST_F(ThreadTest, ClassForwardsToItsThread) {
  Latch latch;
  QIV_Thread thread;
  const auto wait = [](void* argument) -> void* {
    return static_cast<Latch*>(argument)->Wait() ? argument : nullptr;
  };
  ASSERT_EQ(0, thread.Create(wait, &latch, 256 * 1024, 7, 0, SCHED_OTHER));
  EXPECT_EQ(0, thread.SetPriority(0));
  EXPECT_EQ(-1, thread.SetPriority(1000));
  EXPECT_EQ(0, thread.SetSchedPolicy(SCHED_RR));
  EXPECT_EQ(-1, thread.SetSchedPolicy(99));
  latch.Open();
  EXPECT_EQ(0, thread.Wait());
}

TEST_F(ThreadTest, CopiesOfTheClassNameTheSameThread) {
  int number = 0;
  QIV_Thread thread;
  ASSERT_EQ(0, thread.Create(AddOne, &number, 0, 0, 0, SCHED_OTHER));
  const QIV_Thread copy(thread);
  QIV_Thread assigned;
  assigned = copy;
  EXPECT_EQ(0, assigned.Wait());
  EXPECT_EQ(1, number);
  EXPECT_EQ(-1, thread.Wait()) << "it has been joined";
}

TEST_F(ThreadTest, ClassCreateFailsWithMinusOne) {
  int number = 0;
  QIV_Thread thread;
  EXPECT_EQ(-1, thread.Create(AddOne, &number, 0, 0, 0, 99));
  EXPECT_EQ(-1, thread.Wait());
}

TEST_F(ThreadTest, EndOfTheClassNeitherJoinsNorDetaches) {
  struct Shared {
    Latch latch;
    unsigned int id = 0;
  } shared;
  {
    QIV_Thread thread;
    ASSERT_EQ(0, thread.Create(
                     [](void* argument) -> void* {
                       auto* self = static_cast<Shared*>(argument);
                       self->id = QIV_Thread_GetSelfId();
                       self->latch.Open();
                       return nullptr;
                     },
                     &shared, 0, 0, 0, 0));
  }
  ASSERT_TRUE(shared.latch.Wait());
  EXPECT_EQ(0, QIV_Thread_Wait(shared.id));
}

}  // namespace
