// The log service beside spdlog's loggers: the cost of a call as the caller sees it, and the lines
// per second that reach files without a dropped line. All write the same lines to files of 2 MiB,
// 100 of them; a full queue makes the caller wait with each of them.
#include <qiv/log.h>
#include <spdlog/async.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "compare.h"

namespace {

using qiv::bench::Timer;

constexpr unsigned int kFileBytes = 2097152;
constexpr char kPattern[] = "[%Y-%m-%d %H:%M:%S.000][%l][FILE:%s][LINE:%#] %v";

std::string g_directory;

class QivLogger {
 public:
  QivLogger() { EnableTarget(LOG_TARGET_FILE, (g_directory + "/qiv").c_str(), kFileBytes, 1); }
  ~QivLogger() { Finish(); }
  void Write(int number) {
    while (WriteLog(LOG_INF, __FILE__, __LINE__, "message %d of the %s", number, "benchmark") !=
           0) {
      std::this_thread::yield();
    }
  }
  void Finish() { StopLogService(false); }
};

class SpdLogger {
 public:
  void Write(int number) {
    SPDLOG_LOGGER_CALL(m_logger, spdlog::level::info, "message {} of the {}", number, "benchmark");
  }
  void Finish() {
    m_logger->flush();
    m_logger.reset();
    m_pool.reset();  // its end waits for what is queued
  }

 protected:
  static spdlog::sink_ptr NewSink() {
    return std::make_shared<spdlog::sinks::rotating_file_sink_mt>(g_directory + "/spdlog.log",
                                                                  kFileBytes, 100);
  }
  void Use(std::shared_ptr<spdlog::logger> logger) {
    m_logger = std::move(logger);
    m_logger->set_pattern(kPattern);
  }

  std::shared_ptr<spdlog::details::thread_pool> m_pool;

 private:
  std::shared_ptr<spdlog::logger> m_logger;
};

class SpdSync : public SpdLogger {
 public:
  SpdSync() { Use(std::make_shared<spdlog::logger>("sync", NewSink())); }
};

class SpdAsync : public SpdLogger {
 public:
  SpdAsync() {
    m_pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
    Use(std::make_shared<spdlog::async_logger>("async", NewSink(), m_pool,
                                               spdlog::async_overflow_policy::block));
  }
};

/** Nanoseconds of each of a few calls behind each other, with pauses between them. */
template <class Logger>
std::vector<double> CallTimes() {
  constexpr int kBursts = 100;
  constexpr int kCalls = 500;
  Logger logger;
  std::vector<double> times;
  times.reserve(std::size_t{kBursts} * kCalls);
  for (int burst = 0; burst < kBursts; ++burst) {
    for (int call = 0; call < kCalls; ++call) {
      const Timer timer;
      logger.Write(call);
      times.push_back(timer.Nanoseconds());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  logger.Finish();
  std::sort(times.begin(), times.end());
  return times;
}

template <class Logger, int kPerMille>
double CallTime() {
  const std::vector<double> times = CallTimes<Logger>();
  return times[times.size() * kPerMille / 1000];
}

template <class Logger, int kThreads>
double LinesPerSecond() {
  constexpr int kLines = 400000;
  Logger logger;
  const Timer timer;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&logger] {
      for (int line = 0; line < kLines / kThreads; ++line) logger.Write(line);
    });
  }
  for (std::thread& thread : threads) thread.join();
  logger.Finish();
  return kLines / timer.Nanoseconds() * 1e9;
}

template <class Peer>
void CompareWith(const char* name) {
  std::printf("\nbeside %s\n", name);
  qiv::bench::PrintHead("");
  qiv::bench::Compare("ns of a call, median", CallTime<QivLogger, 500>, CallTime<Peer, 500>);
  qiv::bench::Compare("ns of a call, 99.9 % are faster", CallTime<QivLogger, 999>,
                      CallTime<Peer, 999>);
  qiv::bench::Compare("lines/s, 1 producer", LinesPerSecond<QivLogger, 1>, LinesPerSecond<Peer, 1>);
  qiv::bench::Compare("lines/s, 4 producers", LinesPerSecond<QivLogger, 4>,
                      LinesPerSecond<Peer, 4>);
}

}  // namespace

int main() {
  std::string directory = (std::filesystem::temp_directory_path() / "qiv-bench-XXXXXX").string();
  if (mkdtemp(directory.data()) == nullptr) return 1;
  g_directory = directory;
  CompareWith<SpdAsync>("spdlog, asynchronous");
  CompareWith<SpdSync>("spdlog, synchronous");
  std::filesystem::remove_all(directory);
  return 0;
}
