// Start, stop, ring and end of the log service.
#include <qiv/log.h>

#include <gtest/gtest.h>
#include <qiv/library.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "log/log_fixture.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/failing_thread_start.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/stopwatch.h"

namespace {

using qiv::test::BlockedWriter;
using qiv::test::CapturedOutput;
using qiv::test::FailingAllocation;
using qiv::test::FailingFor;
using qiv::test::FreeBytes;
using qiv::test::Lines;
using qiv::test::LogTest;
using qiv::test::SleepingCall;
using qiv::test::TextsOf;

using Texts = std::vector<std::string>;

constexpr unsigned int kRingBytes = 2097152;

class LogServiceTest : public LogTest {
 protected:
  static int Push(const std::string& text) {
    return GetLogService()->PushData(text.data(), static_cast<unsigned int>(text.size()));
  }
  /** A text as WriteLog() queues it. */
  static int PushLine(const std::string& text) {
    return GetLogService()->PushData((text + "\r\n").c_str(),
                                     static_cast<unsigned int>(text.size() + 3));
  }

  /** Queues a line and waits until the writer has it, and waits for a reader of its file. */
  void BlockTheWriter() {
    LogToFiles(0xFFFFFFFFu);
    ASSERT_EQ(0, WriteLog(LOG_ERR, "f", 1, "first"));
    ASSERT_TRUE(qiv::test::WaitUntilTaken());
  }
};

TEST_F(LogServiceTest, ThereIsOneService) {
  LogService* const service = GetLogService();
  EXPECT_EQ(service, qiv::test::RunInThread([] { return GetLogService(); }).Get());
  EXPECT_FALSE(service->bRunning);
  EXPECT_FALSE(service->bDisabled);
  EXPECT_FALSE(service->bConsole);
  EXPECT_FALSE(service->bDebugOut);
  EXPECT_FALSE(service->bFileOut);
  EXPECT_EQ(LOG_INF, service->logLevel);
  EXPECT_EQ(QIV_INVALID_ID, service->hWriterThread);
  EXPECT_EQ(nullptr, service->pRingBase);
  EXPECT_EQ(-1, service->hLogFile);
  EXPECT_EQ(0u, service->nFileIndex);
  EXPECT_TRUE(service->bCyclic);
  EXPECT_EQ(0u, service->nMaxFileSize);
}

TEST_F(LogServiceTest, FirstLineStartsTheServiceAndAStopFreesIt) {
  LogService* const service = GetLogService();
  LogToFiles();
  EXPECT_EQ(0, StartLogService());
  EXPECT_FALSE(service->bRunning);
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "x"));
  EXPECT_TRUE(service->bRunning);
  EXPECT_NE(QIV_INVALID_ID, service->hWriterThread);
  EXPECT_NE(nullptr, service->pRingBase);
  EXPECT_EQ(0, service->ServiceStart()) << "runs already";
  EXPECT_EQ(0, service->ServiceStop(true));
  EXPECT_FALSE(service->bRunning);
  EXPECT_EQ(QIV_INVALID_ID, service->hWriterThread);
  EXPECT_EQ(nullptr, service->pRingBase);
  EXPECT_EQ(nullptr, service->pRingWrite);
  EXPECT_EQ(0, service->ServiceStop(true)) << "does not run";
  EXPECT_EQ(0, StopLogService(false));
}

TEST_F(LogServiceTest, DisabledServiceDoesNotStart) {
  EXPECT_EQ(0, StopLogService(true));
  EXPECT_EQ(-2, GetLogService()->ServiceStart());
  EXPECT_EQ(0, StopLogService(false));
  EXPECT_EQ(0, GetLogService()->ServiceStart());
}

TEST_F(LogServiceTest, StartGivesMinus1AtEachFailedAllocation) {
  LogToFiles();
  int failed = 0;
  for (int nth = 1;; ++nth) {
    int result = 0;
    bool happened = false;
    {
      const FailingAllocation failing(nth);
      result = GetLogService()->ServiceStart();
      happened = failing.Happened();
    }
    if (!happened) {
      EXPECT_EQ(0, result);
      break;
    }
    EXPECT_EQ(-1, result) << nth;
    EXPECT_FALSE(GetLogService()->bRunning);
    ++failed;
  }
  EXPECT_LE(2, failed) << "at least the ring and the queue";
}

TEST_F(LogServiceTest, WithoutAThreadALineGivesMinus1AndTheNextOneTriesAgain) {
  LogToFiles();
  {
    const qiv::test::FailingThreadStart failing;
    EXPECT_EQ(-1, WriteLog(LOG_ERR, "f", 1, "lost"));
    EXPECT_EQ(-1, GetLogService()->ServiceStart());
    EXPECT_EQ(nullptr, GetLogService()->pRingBase);
  }
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "x"));
  StopLogService(false);
  EXPECT_EQ(Texts{"x"}, TextsOf(Working(1)));
}

TEST_F(LogServiceTest, TextForAServiceThatDoesNotRunGivesMinus2) {
  EXPECT_EQ(-2, Push("x"));
  EXPECT_EQ(-2, GetLogService()->PushData(nullptr, 1));
}

TEST_F(LogServiceTest, LastByteOfATextCountsAsItsEnd) {
  CapturedOutput output(STDOUT_FILENO);
  LogToFiles();
  EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0);
  ASSERT_EQ(0, GetLogService()->ServiceStart());
  EXPECT_EQ(0, Push("abcX"));
  EXPECT_EQ(0, Push("Y"));
  EXPECT_EQ(0, Push("def\n#"));
  EXPECT_EQ(0, Push(""));
  EXPECT_EQ(-6, GetLogService()->PushData(nullptr, 1));
  StopLogService(false);
  std::fflush(stdout);
  EXPECT_EQ("abcdef\n", Working(1));
  EXPECT_EQ("abcdef\n", output.Stop());
}

TEST_F(LogServiceTest, RingTakes2MiBAndThenGivesMinus4) {
  BlockedWriter writer(WorkingName(1));
  BlockTheWriter();
  EXPECT_EQ(kRingBytes, FreeBytes()) << "credited before it is written";
  const std::string text(997, 'x');  // 1000 bytes in the ring
  unsigned int accepted = 0;
  while (PushLine(text) == 0) ++accepted;
  EXPECT_EQ(kRingBytes / 1000, accepted);
  EXPECT_EQ(-4, PushLine(text));
  EXPECT_EQ(0, PushLine(std::string(100, 'y'))) << "there is room for less";
  EXPECT_EQ(-4, Push(std::string(kRingBytes + 1, 'z')));
  writer.Open();
  const auto stopped = qiv::test::RunInThread([] { return StopLogService(false); });
  EXPECT_EQ(accepted + 2, Lines(writer.Read()).size());
}

TEST_F(LogServiceTest, NoLineIsWrittenOverHoweverFullTheRingIs) {
  BlockedWriter writer(WorkingName(1));
  BlockTheWriter();
  auto all = qiv::test::RunInThread([&writer] { return writer.Read(); });
  const int lines = qiv::test::ScaledLoad(50000);
  for (int i = 0; i < lines; ++i) {
    const std::string padding(static_cast<std::size_t>(i * 7919 % 1900), 'x');
    while (WriteLog(LOG_ERR, "f", i, "%d %s", i, padding.c_str()) == -4) std::this_thread::yield();
  }
  StopLogService(false);
  const auto texts = TextsOf(all.Get());
  ASSERT_EQ(static_cast<std::size_t>(lines) + 1, texts.size());
  for (int i = 0; i < lines; ++i) {
    const std::size_t padding = static_cast<std::size_t>(i * 7919 % 1900);
    ASSERT_EQ(std::to_string(i) + " " + std::string(padding, 'x'),
              texts[static_cast<std::size_t>(i) + 1]);
  }
}

TEST_F(LogServiceTest, TextsLongerThanALineStayWhole) {
  LogToFiles(0xFFFFFFFFu);
  ASSERT_EQ(0, GetLogService()->ServiceStart());
  std::string expected;
  for (unsigned int i = 0; i < 200; ++i) {
    const std::string text(1 + i * 104729 % 400000, static_cast<char>('a' + i % 26));
    const std::string line = text + '#';
    while (Push(line) == -4) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    expected += text;
  }
  EXPECT_EQ(0, Push(std::string(1000, 'z')));
  StopLogService(false);
  expected += std::string(999, 'z');
  EXPECT_TRUE(expected == Working(1));
}

TEST_F(LogServiceTest, LineForWhichTheQueueCannotGrowIsKeptToGive0AndTold) {
  BlockedWriter writer(WorkingName(1));
  BlockTheWriter();
  int before = 0;
  bool happened = false;
  while (!happened) {
    const FailingAllocation failing(1);
    EXPECT_EQ(0, PushLine("x"));
    happened = failing.Happened();
    if (!happened) ++before;
  }
  writer.Open();
  const auto stopped = qiv::test::RunInThread([] { return StopLogService(false); });
  const auto texts = TextsOf(writer.Read());
  ASSERT_EQ(static_cast<std::size_t>(before) + 2, texts.size());
  EXPECT_EQ("push_back allo exception", texts.back());
}

TEST_F(LogServiceTest, QueueThatCannotGrowForTheMessageEitherLosesTheLineOnly) {
  BlockedWriter writer(WorkingName(1));
  BlockTheWriter();
  const unsigned int freeBytes = FreeBytes();
  unsigned int queued = 0;
  {
    const FailingAllocation failing(1, FailingFor::kEver);
    while (!failing.Happened()) {
      EXPECT_EQ(0, PushLine("x"));
      ++queued;
    }
  }
  EXPECT_EQ(freeBytes - (queued - 1) * 4, FreeBytes());
  writer.Open();
  const auto stopped = qiv::test::RunInThread([] { return StopLogService(false); });
  EXPECT_EQ(queued, Lines(writer.Read()).size()) << "the first line, and all but the last of these";
}

TEST_F(LogServiceTest, StopWaitsUntilWhatIsQueuedIsWritten) {
  BlockedWriter writer(WorkingName(1));
  BlockTheWriter();
  for (int i = 0; i < 3000; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  SleepingCall stopped([] { return StopLogService(true); });
  EXPECT_FALSE(stopped.HasReturned());
  EXPECT_EQ(3001u, Lines(writer.Read()).size());
  EXPECT_EQ(0, stopped.Get());
}

TEST_F(LogServiceTest, StopWithoutWaitingDropsWhatIsQueuedAndTheServiceMayStartAgain) {
  BlockedWriter writer(WorkingName(1));
  BlockTheWriter();
  for (int i = 0; i < 3000; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  // The files are the writer's until its file is open.
  SleepingCall stopped([] { return GetLogService()->ServiceStop(false); });
  EXPECT_EQ(Texts{"first"}, TextsOf(writer.Read()));
  EXPECT_EQ(0, stopped.Get());
  EXPECT_FALSE(GetLogService()->bRunning);
  EXPECT_EQ(nullptr, GetLogService()->pRingBase);
  ASSERT_EQ(0, unlink(WorkingName(1).c_str()));
  LogToFiles();
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "again"));
  StopLogService(false);
  EXPECT_EQ(Texts{"again"}, TextsOf(Working(1)));
}

TEST_F(LogServiceTest, AServiceOfOnesOwnWorksLikeThatOfTheProcess) {
  {
    LogService service;
    EXPECT_EQ(0, service.SwitchFileService(true, Directory().c_str(), 0, true));
    EXPECT_EQ(0, service.ServiceStart());
    EXPECT_EQ(0, service.PushData("x\r\n", 4));
  }
  EXPECT_EQ("x\r\n", Working(1));
}

TEST_F(LogServiceTest, EndOfAServiceOfOnesOwnWaitsForAWriteInProgress) {
  BlockedWriter writer(WorkingName(1));
  auto service = std::make_unique<LogService>();
  ASSERT_EQ(0, service->SwitchFileService(true, Directory().c_str(), 0, true));
  ASSERT_EQ(0, service->ServiceStart());
  ASSERT_EQ(0, service->PushData("x\r\n", 4));
  auto ended = qiv::test::RunInThread([&service] {
    service.reset();
    return true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(1200));  // longer than queued lines get
  EXPECT_FALSE(ended.IsReady());
  EXPECT_EQ("x\r\n", writer.Read());
  EXPECT_TRUE(ended.Get());
}

std::atomic<int> g_signals{0};

TEST_F(LogServiceTest, WriterTakesNoSignals) {
  LogToFiles();
  std::signal(SIGUSR1, [](int) { ++g_signals; });
  ASSERT_EQ(0, WriteLog(LOG_ERR, "f", 1, "x"));
  sigset_t user;
  sigemptyset(&user);
  sigaddset(&user, SIGUSR1);
  ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &user, nullptr));
  ASSERT_EQ(0, kill(getpid(), SIGUSR1));
  ASSERT_EQ(0, StopLogService(false)) << "the writer has run since";
  EXPECT_EQ(0, g_signals);
  ASSERT_EQ(0, pthread_sigmask(SIG_UNBLOCK, &user, nullptr));
  EXPECT_EQ(1, g_signals) << "the caller's mask is as it was";
}

TEST_F(LogServiceTest, ProcessThatExitsWhileTheServiceRunsWritesWhatIsQueued) {
  const std::string directory = Directory();
  EXPECT_EXIT(
      {
        EnableTarget(LOG_TARGET_FILE, directory.c_str(), 0, 0);
        for (int i = 0; i < 1000; ++i) WriteLog(LOG_ERR, "f", 1, "%d", i);
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
  EXPECT_EQ(1000u, Lines(Working(1)).size());
}

TEST_F(LogServiceTest, ProcessThatExitsWhileATargetBlocksEndsAllTheSame) {
  const BlockedWriter writer(WorkingName(1));
  const std::string directory = Directory();
  const qiv::test::Stopwatch watch;
  EXPECT_EXIT(
      {
        EnableTarget(LOG_TARGET_FILE, directory.c_str(), 0, 0);
        for (int i = 0; i < 1000; ++i) WriteLog(LOG_ERR, "f", 1, "%d", i);
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
  EXPECT_LE(950, watch.Milliseconds());
}

TEST_F(LogServiceTest, ProcessThatExitsWhileOtherThreadsLogEnds) {
  const std::string directory = Directory();
  const std::string third = FinishedName(3);
  EXPECT_EXIT(
      {
        EnableTarget(LOG_TARGET_FILE, directory.c_str(), 10000, 1);
        for (int i = 0; i < 4; ++i) {
          std::thread([] {
            for (;;) WriteLog(LOG_ERR, "f", 1, "x");
          }).detach();
        }
        qiv::test::Eventually([&] { return access(third.c_str(), F_OK) == 0; });
        std::exit(3);
      },
      testing::ExitedWithCode(3), "");
}

}  // namespace
