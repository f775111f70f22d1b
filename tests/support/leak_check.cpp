#include "support/leak_check.h"

#include <dirent.h>

#include <chrono>
#include <thread>

#include "support/test_limit.h"

namespace qiv::test {
namespace {

constexpr const char* kDescriptors = "/proc/self/fd";
constexpr const char* kThreads = "/proc/self/task";

// A detached thread may still be on its way out when the test body ends.
int CountUntilAtMost(const char* directory, int limit) {
  const auto end = std::chrono::steady_clock::now() + TestLimit();
  int count = CountEntries(directory);
  while (count > limit && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    count = CountEntries(directory);
  }
  return count;
}

}  // namespace

int CountEntries(const char* directory) {
  DIR* stream = opendir(directory);
  if (stream == nullptr) return -1;
  int count = 0;
  while (readdir(stream) != nullptr) ++count;
  closedir(stream);
  return count - 2;
}

void LeakCheckedTest::SetUp() {
  // The thread sanitizer starts a thread of its own with the first thread of the program: that one
  // is counted too.
  std::thread([] {}).join();
  m_descriptors = CountEntries(kDescriptors);
  m_threads = CountEntries(kThreads);
}

void LeakCheckedTest::TearDown() {
  EXPECT_LE(CountUntilAtMost(kThreads, m_threads), m_threads) << "threads left behind";
  EXPECT_LE(CountUntilAtMost(kDescriptors, m_descriptors), m_descriptors)
      << "descriptors left behind";
}

}  // namespace qiv::test
