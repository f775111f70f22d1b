// Many threads at the log service.
#include <qiv/log.h>

#include <gtest/gtest.h>
#include <qiv/library.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "log/log_fixture.h"
#include "support/test_limit.h"

namespace {

using qiv::test::Lines;
using qiv::test::LogTest;
using qiv::test::TextOf;

class LogStressTest : public LogTest {};

/** The sum that a line carries, so that a line made of two is found. */
unsigned int SumOf(const std::string& text) {
  unsigned int sum = 0;
  for (const char c : text) sum = sum * 31 + static_cast<unsigned char>(c);
  return sum;
}

std::string TextWithSum(int producer, long number) {
  const auto length = static_cast<std::size_t>((number * 7919 + producer) % 700);
  const std::string text = "p" + std::to_string(producer) + " n" + std::to_string(number) + " " +
                           std::string(length, static_cast<char>('a' + number % 26));
  return text + " " + std::to_string(SumOf(text));
}

bool IsWhole(const std::string& text) {
  const std::size_t space = text.rfind(' ');
  return space != std::string::npos &&
         text.substr(space + 1) == std::to_string(SumOf(text.substr(0, space)));
}

/** Reads lines as they come out: whole, and each producer's in order. */
class Reader {
 public:
  void Take(const std::string& log) {
    for (const std::string& line : Lines(log)) {
      const std::string text = TextOf(line);
      int producer = 0;
      long number = 0;
      ASSERT_TRUE(IsWhole(text)) << line;
      ASSERT_EQ(2, std::sscanf(text.c_str(), "p%d n%ld ", &producer, &number)) << line;
      ASSERT_LT(m_last[producer], number) << line;
      m_last[producer] = number;
      ++m_count[producer];
    }
  }
  long Count(int producer) { return m_count[producer]; }
  long Count() const {
    long count = 0;
    for (const auto& [producer, lines] : m_count) count += lines;
    return count;
  }

 private:
  std::map<int, long> m_last;
  std::map<int, long> m_count;
};

TEST_F(LogStressTest, StartsAndStopsWhileOthersWriteLoseNothingThatWasAccepted) {
  constexpr int kWriters = 4;
  std::atomic<bool> stop{false};
  std::vector<std::atomic<long>> accepted(kWriters);
  std::vector<std::thread> threads;
  const auto isExpected = [](int result) {
    return result == 0 || result == -2 || result == -4 || result == -5;
  };
  for (int writer = 0; writer < kWriters; ++writer) {
    threads.emplace_back([&, writer] {
      while (!stop) {
        const int result = WriteLog(LOG_ERR, "f", writer, "x");
        EXPECT_TRUE(isExpected(result)) << result;
        if (result == 0) ++accepted[static_cast<std::size_t>(writer)];
      }
    });
  }
  for (int i = 0; i < 2; ++i) {
    threads.emplace_back([&, i] {
      while (!stop) {
        EXPECT_EQ(0, StopLogService(i == 0));
        EXPECT_EQ(0, StartLogService());
        EXPECT_EQ(0, GetLogService()->SwitchFileService(true, Directory().c_str(), 100000, true));
        EXPECT_EQ(0, AdjustLogLevel(LOG_INF));
      }
    });
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(qiv::test::ScaledLoad(1000)));
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_LT(0, accepted[0]);
}

TEST_F(LogStressTest, DisablingLosesNothingThatWasAcceptedBefore) {
  const int rounds = qiv::test::ScaledLoad(200);
  long written = 0;
  for (int round = 0; round < rounds; ++round) {
    LogToFiles(0, 1);
    long accepted = 0;
    for (int i = 0; i < 100; ++i) accepted += WriteLog(LOG_ERR, "f", 1, "%d", i) == 0 ? 1 : 0;
    switch (round % 3) {
      case 0:
        DisableTarget(LOG_TARGET_FILE);
        break;
      case 1:
        StopLogService(false);
        break;
      default:
        QIV_Log(0, nullptr);
        StartLogService();
    }
    ASSERT_EQ(static_cast<std::size_t>(accepted), Lines(Working(1)).size());
    written += accepted;
  }
  EXPECT_EQ(100L * rounds, written);
}

// How long it runs is set by QIV_SOAK_SECONDS; a moment unless it is.
TEST_F(LogStressTest, SoakKeepsEveryAcceptedLineWholeAndInOrder) {
  constexpr int kProducers = 4;
  constexpr unsigned int kFileBytes = 65536;
  constexpr long kMostAhead = 4000;
  const char* const setting = std::getenv("QIV_SOAK_SECONDS");
  const auto duration = setting != nullptr ? std::chrono::milliseconds(1000L * std::atol(setting))
                                           : std::chrono::milliseconds(1000);
  std::atomic<bool> stop{false};
  std::atomic<long> taken{0};
  std::vector<long> accepted(kProducers, 0);
  std::vector<long> full(kProducers, 0);
  LogToFiles(kFileBytes, 1);
  std::vector<std::thread> producers;
  for (int producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&, producer] {
      for (long number = 1; !stop; ++number) {
        const auto at = static_cast<std::size_t>(producer);
        const int result = WriteLog(LOG_ERR, "f", 1, "%s", TextWithSum(producer, number).c_str());
        EXPECT_TRUE(result == 0 || result == -4) << result;
        ++(result == 0 ? accepted : full)[at];
        // 100 files take twice as many: the reader is there before their numbers come round.
        while (!stop && number - kMostAhead / kProducers > taken / kProducers) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
      }
    });
  }
  Reader reader;
  const auto takeFinished = [&](int number) {
    const std::string log = Finished(number);
    EXPECT_GE(kFileBytes, log.size());
    reader.Take(log);
    taken = reader.Count();
    ASSERT_EQ(0, unlink(FinishedName(number).c_str())) << "taken once";
  };
  int next = 1;
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end && !HasFatalFailure()) {
    if (access(FinishedName(next).c_str(), F_OK) == 0) {
      takeFinished(next);
      next = next % 100 + 1;
    } else {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
  stop = true;
  for (std::thread& producer : producers) producer.join();
  StopLogService(false);
  while (access(FinishedName(next).c_str(), F_OK) == 0 && !HasFatalFailure()) {
    takeFinished(next);
    next = next % 100 + 1;
  }
  reader.Take(Working(next));
  for (int producer = 0; producer < kProducers; ++producer) {
    const auto at = static_cast<std::size_t>(producer);
    EXPECT_EQ(accepted[at], reader.Count(producer)) << full[at] << " lines found the ring full";
    EXPECT_LT(0, accepted[at]);
  }
}

}  // namespace
