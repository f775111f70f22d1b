// The log service in a child made by fork().
#include <qiv/log.h>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "log/log_fixture.h"
#include "support/test_limit.h"

namespace {

using qiv::test::LogTest;
using qiv::test::TextsOf;

using Texts = std::vector<std::string>;

class LogForkTest : public LogTest {
 protected:
  /** What a child that runs the function ends with; a child that hangs is ended by a signal. */
  template <class Function>
  static int ChildResult(Function function) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(20);
      _exit(function());
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  }
};

TEST_F(LogForkTest, ChildHasAStoppedServiceWithoutFilesThatStartsAgain) {
  const std::string other = Directory() + "/child";
  LogToFiles();
  WriteLog(LOG_ERR, "f", 1, "before");
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
  const std::string other = Directory() + "/child";
  for (int i = 0; i < rounds; ++i) {
    ASSERT_EQ(0, ChildResult([&other] {
                EnableTarget(LOG_TARGET_FILE, other.c_str(), 0, 0);
                const int result = WriteLog(LOG_ERR, "f", 1, "child");
                StopLogService(false);
                return -result;
              }))
        << i;
    ASSERT_EQ(Texts{"child"}, TextsOf(qiv::test::ReadTextFile(other + "/qiv_log_1_w.log"))) << i;
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
