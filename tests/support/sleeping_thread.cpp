#include "support/sleeping_thread.h"

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "support/test_limit.h"

namespace qiv::test {
namespace {

// The letter behind the name in parentheses: S for a thread that waits for an event.
char State(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string line;
  std::getline(file, line);
  const std::size_t end = line.rfind(')');
  return end == std::string::npos || end + 2 >= line.size() ? '?' : line[end + 2];
}

}  // namespace

bool WaitUntilAsleep(pid_t thread) {
  constexpr int kLooks = 5;
  const auto end = std::chrono::steady_clock::now() + TestLimit();
  int looks = 0;
  while (looks < kLooks && std::chrono::steady_clock::now() < end) {
    looks = State(thread) == 'S' ? looks + 1 : 0;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return looks == kLooks;
}

}  // namespace qiv::test
