#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/shared_mutex.h>

#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "support/eventually.h"
#include "support/failing_allocation.h"
#include "support/latch.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/test_limit.h"

namespace qiv {
namespace {

using test::Latch;
using test::RunInThread;

class SharedMutexTest : public test::LeakCheckedTest {
 protected:
  /** Waits until a writer stands outside, which keeps new readers out. */
  void WaitForAWaitingWriter() {
    while (m_mutex.TryLockShread() == QIV_OK) {
      m_mutex.UnlockShared();
      std::this_thread::yield();
    }
  }

  QIV_SharedMutex m_mutex;
};

TEST_F(SharedMutexTest, TwoReadersEnterTogetherAndKeepAWriterOut) {
  EXPECT_EQ(QIV_OK, m_mutex.LockShared());
  EXPECT_EQ(QIV_OK, m_mutex.LockShared());
  EXPECT_EQ(-1, m_mutex.TryLock());
  EXPECT_EQ(QIV_OK, m_mutex.UnlockShared());
  EXPECT_EQ(-1, m_mutex.TryLock());
  EXPECT_EQ(QIV_OK, m_mutex.UnlockShared());
  EXPECT_EQ(QIV_OK, m_mutex.TryLock());
  EXPECT_EQ(QIV_OK, m_mutex.Unlock());
}

TEST_F(SharedMutexTest, AWriterKeepsReadersAndWritersOut) {
  EXPECT_EQ(QIV_OK, m_mutex.Lock());
  EXPECT_EQ(-1, m_mutex.TryLock());
  EXPECT_EQ(-1, m_mutex.TryLockShread());
  EXPECT_EQ(QIV_OK, m_mutex.Unlock());
  EXPECT_EQ(QIV_OK, m_mutex.TryLockShread());
  EXPECT_EQ(QIV_OK, m_mutex.UnlockShared());
}

TEST_F(SharedMutexTest, AWaitingWriterKeepsNewReadersOutUntilItHadItsTurn) {
  std::vector<char> order;
  m_mutex.LockShared();
  auto writer = RunInThread([&] {
    m_mutex.Lock();
    order.push_back('w');
    return m_mutex.Unlock();
  });
  WaitForAWaitingWriter();
  EXPECT_EQ(-1, m_mutex.TryLockShread());
  auto reader = RunInThread([&] {
    m_mutex.LockShared();
    order.push_back('r');
    return m_mutex.UnlockShared();
  });
  EXPECT_FALSE(writer.IsReady());
  EXPECT_FALSE(reader.IsReady());
  m_mutex.UnlockShared();
  EXPECT_EQ(QIV_OK, writer.Get());
  EXPECT_EQ(QIV_OK, reader.Get());
  EXPECT_EQ((std::vector<char>{'w', 'r'}), order);
}

TEST_F(SharedMutexTest, UnlockWithoutAWaitingWriterLetsAllBlockedReadersIn) {
  constexpr int kReaders = 4;
  std::atomic<int> started{0};
  std::atomic<int> inside{0};
  Latch allInside;
  m_mutex.Lock();
  std::vector<test::ThreadResult<bool>> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.push_back(RunInThread([&] {
      ++started;
      m_mutex.LockShared();
      // Nobody leaves before the last one is in.
      if (++inside == kReaders) allInside.Open();
      const bool all = allInside.Wait();
      m_mutex.UnlockShared();
      return all;
    }));
  }
  while (started != kReaders) std::this_thread::yield();
  EXPECT_EQ(0, inside);
  m_mutex.Unlock();
  for (auto& reader : readers) EXPECT_TRUE(reader.Get());
}

TEST_F(SharedMutexTest, UnlockDoesNotCheckThatTheCallerHoldsTheLock) {
  EXPECT_EQ(QIV_OK, m_mutex.Unlock());
  m_mutex.Lock();
  EXPECT_TRUE(RunInThread([&] { return m_mutex.Unlock() == QIV_OK; }).Get());
  EXPECT_EQ(QIV_OK, m_mutex.TryLock());
  m_mutex.Unlock();
}

/** A thread that is cancelled while it waits for the lock as a writer. */
TEST_F(SharedMutexTest, ACancelledWriterNoLongerKeepsReadersOut) {
  m_mutex.LockShared();
  pthread_t writer;
  ASSERT_EQ(0, pthread_create(
                   &writer, nullptr,
                   [](void* mutex) -> void* {
                     static_cast<QIV_SharedMutex*>(mutex)->Lock();
                     return nullptr;
                   },
                   &m_mutex));
  WaitForAWaitingWriter();
  auto reader = RunInThread([&] {
    m_mutex.LockShared();
    return m_mutex.UnlockShared();
  });
  pthread_cancel(writer);
  void* result = nullptr;
  pthread_join(writer, &result);
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_EQ(QIV_OK, reader.Get());
  m_mutex.UnlockShared();
  EXPECT_EQ(QIV_OK, m_mutex.TryLock());
  m_mutex.Unlock();
}

TEST_F(SharedMutexTest, ACancelledReaderLeavesTheLockUsable) {
  m_mutex.Lock();
  pthread_t reader;
  std::atomic<pid_t> id{0};
  auto argument = std::make_pair(&m_mutex, &id);
  ASSERT_EQ(0, pthread_create(
                   &reader, nullptr,
                   [](void* both) -> void* {
                     const auto& [mutex, thread] = *static_cast<decltype(argument)*>(both);
                     thread->store(test::SystemThreadId());
                     mutex->LockShared();
                     return nullptr;
                   },
                   &argument));
  EXPECT_TRUE(test::Eventually([&] { return id != 0; }));
  EXPECT_TRUE(test::WaitUntilAsleep(id));
  pthread_cancel(reader);
  pthread_join(reader, nullptr);
  m_mutex.Unlock();
  EXPECT_EQ(QIV_OK, m_mutex.TryLock());
  m_mutex.Unlock();
}

TEST_F(SharedMutexTest, UnlockGivesAWaitingWriterItsTurnBeforeTheReaders) {
  std::vector<char> order;
  m_mutex.Lock();
  test::SleepingCall writer([&] {
    m_mutex.Lock();
    order.push_back('w');
    return m_mutex.Unlock();
  });
  test::SleepingCall reader([&] {
    m_mutex.LockShared();
    order.push_back('r');
    return m_mutex.UnlockShared();
  });
  m_mutex.Unlock();
  EXPECT_EQ(QIV_OK, writer.Get());
  EXPECT_EQ(QIV_OK, reader.Get());
  EXPECT_EQ((std::vector<char>{'w', 'r'}), order);
}

TEST_F(SharedMutexTest, ReadersNeverSeeAWriterHalfway) {
  const int rounds = test::ScaledLoad(20000);
  long first = 0;
  long second = 0;
  std::vector<test::ThreadResult<bool>> threads;
  for (int t = 0; t < 2; ++t) {
    threads.push_back(RunInThread([&] {
      for (int i = 0; i < rounds; ++i) {
        m_mutex.Lock();
        ++first;
        ++second;
        m_mutex.Unlock();
      }
      return true;
    }));
  }
  for (int t = 0; t < 4; ++t) {
    threads.push_back(RunInThread([&] {
      bool equal = true;
      for (int i = 0; i < rounds; ++i) {
        m_mutex.LockShared();
        equal = equal && first == second;
        m_mutex.UnlockShared();
      }
      return equal;
    }));
  }
  for (auto& thread : threads) EXPECT_TRUE(thread.Get());
  EXPECT_EQ(2L * rounds, first);
  EXPECT_EQ(2L * rounds, second);
}

class SharedMutexHandleTest : public test::LeakCheckedTest {};

TEST_F(SharedMutexHandleTest, TheFunctionsDoWhatTheMethodsDo) {
  QIV_HANDLE mutex = nullptr;
  ASSERT_EQ(QIV_OK, QIV_SharedMutexCreate(&mutex));
  ASSERT_NE(nullptr, mutex);
  EXPECT_EQ(QIV_OK, QIV_SharedMutexLockShared(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexTryLockShared(&mutex));
  EXPECT_EQ(-1, QIV_SharedMutexTryLock(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexUnlockShared(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexUnlockShared(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexLock(&mutex));
  EXPECT_EQ(-1, QIV_SharedMutexTryLock(&mutex));
  EXPECT_EQ(-1, QIV_SharedMutexTryLockShared(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexUnlock(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexTryLock(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexUnlock(&mutex));
  EXPECT_EQ(QIV_OK, QIV_SharedMutexDestroy(&mutex));
  EXPECT_EQ(nullptr, mutex);
}

TEST_F(SharedMutexHandleTest, CreateOnAVariableThatIsNotNullLeavesItUnchanged) {
  int something = 0;
  QIV_HANDLE mutex = &something;
  EXPECT_EQ(-1, QIV_SharedMutexCreate(&mutex));
  EXPECT_EQ(&something, mutex);
}

TEST_F(SharedMutexHandleTest, NullAddressesAndNullHandlesAreRefused) {
  EXPECT_EQ(-1, QIV_SharedMutexCreate(nullptr));
  using Function = int (*)(QIV_HANDLE*);
  const Function functions[] = {QIV_SharedMutexDestroy,      QIV_SharedMutexLock,
                                QIV_SharedMutexUnlock,       QIV_SharedMutexTryLock,
                                QIV_SharedMutexLockShared,   QIV_SharedMutexUnlockShared,
                                QIV_SharedMutexTryLockShared};
  for (const Function function : functions) {
    QIV_HANDLE mutex = nullptr;
    EXPECT_EQ(-1, function(nullptr));
    EXPECT_EQ(-1, function(&mutex));
    EXPECT_EQ(nullptr, mutex);
  }
}

TEST_F(SharedMutexHandleTest, CreateWithoutMemoryFailsAndLeavesTheVariableNull) {
  QIV_HANDLE mutex = nullptr;
  const test::FailingAllocation failure(1);
  EXPECT_EQ(-1, QIV_SharedMutexCreate(&mutex));
  EXPECT_EQ(nullptr, mutex);
}

}  // namespace
}  // namespace qiv
