// A run of the test program fails when there is nothing to run, and when a test ends the process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

pid_t g_process = 0;
bool g_isComplete = false;

// The children of tests end as they like.
void FailUnlessComplete() {
  if (g_isComplete || getpid() != g_process) return;
  std::fputs("no test was chosen, or one has ended the process\n", stderr);
  _exit(1);
}

class WholeRun : public ::testing::EmptyTestEventListener {
 public:
  void OnTestProgramStart(const ::testing::UnitTest& /*all*/) override {
    g_process = getpid();
    std::atexit(FailUnlessComplete);
  }
  void OnTestProgramEnd(const ::testing::UnitTest& all) override {
    g_isComplete = all.test_to_run_count() > 0;
  }
};

[[maybe_unused]] const bool g_isWatched = [] {
  ::testing::UnitTest::GetInstance()->listeners().Append(new WholeRun);
  return true;
}();

}  // namespace
