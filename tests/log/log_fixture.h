// A log service that writes into a directory of the test's own.
#ifndef QIV_TESTS_LOG_LOG_FIXTURE_H
#define QIV_TESTS_LOG_LOG_FIXTURE_H

#include <fcntl.h>
#include <qiv/library.h>
#include <qiv/log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/eventually.h"
#include "support/leak_check.h"
#include "support/temporary_directory.h"

namespace qiv::test {

/** The lines of a log, without their CR LF; one that lacks it is marked. */
inline std::vector<std::string> Lines(const std::string& log) {
  std::vector<std::string> lines;
  std::size_t at = 0;
  while (at < log.size()) {
    const std::size_t end = log.find("\r\n", at);
    lines.push_back(end == std::string::npos ? log.substr(at) + "<no CR LF>"
                                             : log.substr(at, end - at));
    at = end == std::string::npos ? log.size() : end + 2;
  }
  return lines;
}

/** What follows the head of a line. */
inline std::string TextOf(const std::string& line) {
  const std::size_t head = line.find("][LINE:");
  const std::size_t end = line.find("] ", head + 1);
  return head == std::string::npos || end == std::string::npos ? "<no head>" : line.substr(end + 2);
}

inline std::vector<std::string> TextsOf(const std::string& log) {
  std::vector<std::string> texts;
  for (const std::string& line : Lines(log)) texts.push_back(TextOf(line));
  return texts;
}

class LogTest : public LeakCheckedTest {
 protected:
  void TearDown() override {
    QIV_Log(0, nullptr);
    DisableTarget(LOG_TARGET_DEBUG);
    StartLogService();
    AdjustLogLevel(LOG_INF);
    LeakCheckedTest::TearDown();
  }

  const std::string& Directory() const { return m_directory.Path(); }
  std::string WorkingName(int number) const {
    return m_directory / ("qiv_log_" + std::to_string(number) + "_w.log");
  }
  std::string FinishedName(int number) const {
    return m_directory / ("qiv_log_" + std::to_string(number) + ".log");
  }
  std::string Working(int number) const { return ReadTextFile(WorkingName(number)); }
  std::string Finished(int number) const { return ReadTextFile(FinishedName(number)); }

  /** The names in the directory, sorted. */
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(Directory())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void LogToFiles(unsigned int maxSize = 0, unsigned int cyclic = 0) const {
    ASSERT_EQ(0, EnableTarget(LOG_TARGET_FILE, Directory().c_str(), maxSize, cyclic));
  }

 private:
  TemporaryDirectory m_directory;
};

/** Keeps the writer waiting in its first open of a file, until Read(): the file is a pipe. */
class BlockedWriter {
 public:
  /** @param name  of the log's first working file */
  explicit BlockedWriter(std::string name) : m_name(std::move(name)) {
    EXPECT_EQ(0, mkfifo(m_name.c_str(), 0600));
  }
  ~BlockedWriter() {
    if (m_pipe != -1) close(m_pipe);
  }
  BlockedWriter(const BlockedWriter&) = delete;
  BlockedWriter& operator=(const BlockedWriter&) = delete;

  /** Lets the writer go on. */
  void Open() { m_pipe = open(m_name.c_str(), O_RDONLY); }

  /** All that the writer writes until it closes the file. */
  std::string Read() {
    if (m_pipe == -1) Open();
    std::string all;
    char part[65536];
    for (ssize_t count; (count = read(m_pipe, part, sizeof part)) > 0;) {
      all.append(part, static_cast<std::size_t>(count));
    }
    return all;
  }

 private:
  std::string m_name;
  int m_pipe = -1;
};

/** Reads members that the writer changes. */
template <class Read>
auto UnderQueueMutex(Read read) {
  LogService* const service = GetLogService();
  pthread_mutex_lock(&service->queueMutex);
  const auto value = read(*service);
  pthread_mutex_unlock(&service->queueMutex);
  return value;
}

inline unsigned int FreeBytes() {
  return UnderQueueMutex([](const LogService& service) { return service.nRingFree; });
}

/** True once the writer has taken all that was queued. */
inline bool WaitUntilTaken() {
  return Eventually([] {
    return UnderQueueMutex([](const LogService& service) {
      return service.logQueue == nullptr || service.logQueue->empty();
    });
  });
}

}  // namespace qiv::test

#endif
