// Threads in a child made by fork().
#include <gtest/gtest.h>
#include <qiv/thread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "support/eventually.h"
#include "support/leak_check.h"
#include "support/test_limit.h"

namespace {

using ThreadForkTest = qiv::test::LeakCheckedTest;

bool StartsAndJoinsAThread() {
  const auto routine = [](void*) -> void* { return nullptr; };
  const unsigned int id = QIV_Thread_Create(routine, nullptr, 0, 0, 0, SCHED_OTHER);
  return id != QIV_INVALID_ID && QIV_Thread_Wait(id) == QIV_OK;
}

TEST_F(ThreadForkTest, ChildMadeWhileThreadsStartCanStartThreads) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&stop] {
      while (!stop) StartsAndJoinsAThread();
    });
  }
  const int rounds = qiv::test::ScaledLoad(200);
  for (int i = 0; i < rounds && !HasFailure(); ++i) {
    const pid_t child = fork();
    if (child == 0) _exit(StartsAndJoinsAThread() ? 0 : 1);
    int status = -1;
    const bool hasEnded =
        qiv::test::Eventually([&] { return waitpid(child, &status, WNOHANG) == child; });
    EXPECT_TRUE(hasEnded) << i;
    EXPECT_EQ(0, status) << i;
    if (!hasEnded) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
    }
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
