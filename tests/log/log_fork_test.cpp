// The log service in a child made by fork().
#include <qiv/log.h>

#include <gtest/gtest.h>
#include <qiv/thread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "log/log_fixture.h"
#include "support/eventually.h"
#include "support/sleeping_thread.h"
#include "support/test_limit.h"

namespace {

using qiv::test::LogTest;
using qiv::test::TextsOf;

using Texts = std::vector<std::string>;

class LogForkTest : public LogTest {
 protected:
  /** What a child that runs the function ends with; -1 for one that has to be killed. */
  template <class Function>
  static int ChildResult(Function function) {
    const pid_t child = fork();
    if (child == 0) _exit(function());
    int status = 0;
    const bool hasEnded =
        qiv::test::Eventually([&] { return waitpid(child, &status, WNOHANG) == child; });
    if (hasEnded) return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return -1;
  }

  /** The child logs a line to files of its own; 0, or the code with its sign turned. */
  int ResultOfLoggingChild() const {
    return ChildResult([this] {
      EnableTarget(LOG_TARGET_FILE, ChildDirectory().c_str(), 0, 0);
      const int result = WriteLog(LOG_ERR, "f", 1, "child");
      StopLogService(false);
      return -result;
    });
  }
  std::string ChildDirectory() const { return Directory() + "/child"; }
};

TEST_F(LogForkTest, ChildHasAStoppedServiceWithoutFilesThatStartsAgain) {
  const std::string other = ChildDirectory();
  LogToFiles();
  WriteLog(LOG_ERR, "f", 1, "before");
  // A sanitizer's allocator does not survive a fork while the writer is inside it.
  ASSERT_TRUE(qiv::test::Eventually([this] { return !Working(1).empty(); }));
  EXPECT_EQ(0, ChildResult([&other] {
              if (GetLogService()->bRunning) return 1;
              if (WriteLog(LOG_ERR, "f", 1, "x") != -5) return 2;
              EnableTarget(LOG_TARGET_FILE, other.c_str(), 0, 0);
              if (WriteLog(LOG_ERR, "f", 1, "child") != 0) return 3;
              return StopLogService(false);
            }));
  WriteLog(LOG_ERR, "f", 1, "after");
  StopLogService(false);
  EXPECT_EQ((Texts{"before", "after"}), TextsOf(Working(1)));
  EXPECT_EQ(Texts{"child"}, TextsOf(qiv::test::ReadTextFile(other + "/qiv_log_1_w.log")));
}

TEST_F(LogForkTest, ChildMadeWhileThreadsLogStartAndStopDoesNotHang) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&stop] {
      while (!stop) WriteLog(LOG_ERR, "f", 1, "parent");
    });
  }
  threads.emplace_back([this, &stop] {
    while (!stop) {
      LogToFiles(100000, 1);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      StopLogService(false);
    }
  });
  const int rounds = qiv::test::ScaledLoad(100);
  for (int i = 0; i < rounds && !HasFailure(); ++i) {
    EXPECT_EQ(0, ResultOfLoggingChild()) << i;
    EXPECT_EQ(Texts{"child"},
              TextsOf(qiv::test::ReadTextFile(ChildDirectory() + "/qiv_log_1_w.log")))
        << i;
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

TEST_F(LogForkTest, ChildMadeWhileThreadsStartAndTellTheTimeDoesNotHang) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&stop] {
      while (!stop) {
        // A thread's first head of a second converts the time.
        const auto tellTime = [](void*) -> void* {
          char head[64];
          FormatTimeAndName(head, sizeof head, LOG_ERR, "f", 1);
          return nullptr;
        };
        QIV_Thread_Wait(QIV_Thread_Create(tellTime, nullptr, 0, 0, 0, 0));
      }
    });
  }
  GetLogService();
  const int rounds = qiv::test::ScaledLoad(300);
  for (int i = 0; i < rounds && !HasFailure(); ++i) {
    EXPECT_EQ(0, ResultOfLoggingChild()) << i;
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

TEST_F(LogForkTest, ForkDoesNotWaitForAStopOrAFile) {
  qiv::test::BlockedWriter writer(WorkingName(1));
  LogToFiles();
  ASSERT_EQ(0, WriteLog(LOG_ERR, "f", 1, "x"));
  ASSERT_TRUE(qiv::test::WaitUntilTaken());
  qiv::test::SleepingCall stopped([] { return StopLogService(false); });
  EXPECT_EQ(5, ChildResult([] { return -WriteLog(LOG_ERR, "f", 1, "child"); }));
  EXPECT_FALSE(stopped.HasReturned());
  EXPECT_EQ(Texts{"x"}, TextsOf(writer.Read()));
  EXPECT_EQ(0, stopped.Get());
}

}  // namespace
