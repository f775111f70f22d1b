// What a signal, a full pipe and a cancellation do to reads and writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <vector>

#include "support/interrupting_signals.h"
#include "support/leak_check.h"

namespace {

class FileBlockingTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(0, pipe(m_ends));
  }
  void TearDown() override {
    QIV_CloseFile(m_ends[0]);
    QIV_CloseFile(m_ends[1]);
    LeakCheckedTest::TearDown();
  }

  int Reader() const { return m_ends[0]; }
  int Writer() const { return m_ends[1]; }

 private:
  int m_ends[2] = {-1, -1};
};

TEST_F(FileBlockingTest, SignalEndsARead) {
  const qiv::test::InterruptingSignals signals(std::chrono::milliseconds(2));
  char buffer[8] = "abc";
  int count = 99;
  EXPECT_EQ(-1, QIV_ReadFile(Reader(), buffer, sizeof buffer, &count));
  EXPECT_EQ(EINTR, errno);
  EXPECT_EQ(-1, count);
  EXPECT_STREQ("abc", buffer);
}

TEST_F(FileBlockingTest, ShortReadGivesTheCountOfWhatCame) {
  ASSERT_EQ(0, QIV_WriteFile(Writer(), "abc", 3, nullptr));
  char buffer[8] = {};
  int count = 99;
  EXPECT_EQ(0, QIV_ReadFile(Reader(), buffer, sizeof buffer, &count));
  EXPECT_EQ(3, count);
}

TEST_F(FileBlockingTest, ShortWriteGivesTheCountOfWhatFitted) {
  ASSERT_EQ(0, fcntl(Writer(), F_SETFL, O_NONBLOCK));
  const std::vector<char> data(4000000, 'x');
  int count = 99;
  EXPECT_EQ(0,
            QIV_WriteFile(Writer(), data.data(), static_cast<unsigned int>(data.size()), &count));
  EXPECT_GT(count, 0);
  EXPECT_LT(count, static_cast<int>(data.size()));
  count = 99;
  EXPECT_EQ(-1,
            QIV_WriteFile(Writer(), data.data(), static_cast<unsigned int>(data.size()), &count));
  EXPECT_EQ(EAGAIN, errno);
  EXPECT_EQ(-1, count);
}

void* ReadUntilCancelled(void* file) {
  char buffer[8];
  QIV_ReadFile(*static_cast<int*>(file), buffer, sizeof buffer, nullptr);
  return nullptr;
}

TEST_F(FileBlockingTest, CancelledReadEndsItsThread) {
  int file = Reader();
  pthread_t thread{};
  ASSERT_EQ(0, pthread_create(&thread, nullptr, ReadUntilCancelled, &file));
  ASSERT_EQ(0, pthread_cancel(thread));
  void* result = nullptr;
  ASSERT_EQ(0, pthread_join(thread, &result));
  EXPECT_EQ(PTHREAD_CANCELED, result);
}

}  // namespace
