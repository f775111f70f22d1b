#include "support/leak_check.h"

#include <dirent.h>
#include <pthread.h>

#include <chrono>
#include <thread>

#include "support/test_limit.h"

namespace qiv::test {
namespace {

constexpr const char* kDescriptors = "/proc/self/fd";
constexpr const char* kThreads = "/proc/self/task";

// The thread sanitizer starts a thread of its own with the first thread of the program; it is there
// before the count then. A small stack, as the platform keeps it for the next thread that it fits.
void StartFirstThread() {
  constexpr size_t kSmallStack = size_t{64} * 1024;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kSmallStack);
  pthread_t thread;
  const auto doNothing = [](void*) -> void* { return nullptr; };
  if (pthread_create(&thread, &attributes, doNothing, nullptr) == 0) pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
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

int CountUntilAtMost(const char* directory, int limit) {
  const auto end = std::chrono::steady_clock::now() + TestLimit();
  int count = CountEntries(directory);
  while (count > limit && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    count = CountEntries(directory);
  }
  return count;
}

void LeakCheckedTest::SetUp() {
  StartFirstThread();
  m_descriptors = CountEntries(kDescriptors);
  m_threads = CountEntries(kThreads);
}

void LeakCheckedTest::TearDown() {
  EXPECT_LE(CountUntilAtMost(kThreads, m_threads), m_threads) << "threads left behind";
  EXPECT_LE(CountUntilAtMost(kDescriptors, m_descriptors), m_descriptors)
      << "descriptors left behind";
}

}  // namespace qiv::test
