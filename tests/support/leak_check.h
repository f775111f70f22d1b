// A fixture that fails a test which leaves descriptors or threads behind.
#ifndef QIV_TESTS_SUPPORT_LEAK_CHECK_H
#define QIV_TESTS_SUPPORT_LEAK_CHECK_H

#include <gtest/gtest.h>

namespace qiv::test {

/** Entries of a directory, "." and ".." not counted; -1 when it cannot be read. */
int CountEntries(const char* directory);

/** The entries once there are at most `limit`, or when TestLimit() has passed first: threads that
 *  have been joined may still be listed for a moment. */
int CountUntilAtMost(const char* directory, int limit);

/** The threads of the process that has started none yet: an emulator or a sanitizer has one of its
 *  own, and one more for a moment at the start. */
inline int ThreadsAtRest() { return CountUntilAtMost("/proc/self/task", 2); }

class LeakCheckedTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  int m_descriptors = 0;
  int m_threads = 0;
};

}  // namespace qiv::test

#endif
