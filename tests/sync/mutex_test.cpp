#include <qiv/mutex.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <ctime>
#include <type_traits>

#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::RunInThread;

class MutexTest : public qiv::test::LeakCheckedTest {
 protected:
  ~MutexTest() override { QIV_MutexDestroy(&m_mutex); }
  pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

/** What a correct program does not do. */
class MutexMisuseTest : public MutexTest {};

TEST_F(MutexTest, EveryFunctionRefusesNull) {
  EXPECT_EQ(-1, QIV_MutexCreate(nullptr, 0));
  EXPECT_EQ(-1, QIV_MutexDestroy(nullptr));
  EXPECT_EQ(-1, QIV_MutexLock(nullptr));
  EXPECT_EQ(-1, QIV_MutexTryLock(nullptr));
  EXPECT_EQ(-1, QIV_MutexUnlock(nullptr));
}

TEST_F(MutexTest, CreateWithUnknownTypeIsKeptASuccessAndTheMutexWorks) {
  ASSERT_EQ(0, QIV_MutexCreate(&m_mutex, 7));
  EXPECT_EQ(0, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

TEST_F(MutexTest, RecursiveMutexTakenTwiceNeedsTwoUnlocks) {
  ASSERT_EQ(0, QIV_MutexCreate(&m_mutex, -1));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  const auto tryElsewhere = [this] {
    const int result = QIV_MutexTryLock(&m_mutex);
    if (result == 0) QIV_MutexUnlock(&m_mutex);
    return result;
  };
  ASSERT_EQ(0, QIV_MutexUnlock(&m_mutex));
  EXPECT_EQ(-1, RunInThread(tryElsewhere).Get());
  ASSERT_EQ(0, QIV_MutexUnlock(&m_mutex));
  EXPECT_EQ(0, RunInThread(tryElsewhere).Get());
}

TEST_F(MutexTest, SecondLockOfANormalMutexWaitsForEver) {
  ASSERT_EQ(0, QIV_MutexCreate(&m_mutex, 0));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(-1, QIV_MutexTryLock(&m_mutex));
  timespec limit = {};
  clock_gettime(CLOCK_REALTIME, &limit);
  ++limit.tv_sec;
  EXPECT_EQ(ETIMEDOUT, pthread_mutex_timedlock(&m_mutex, &limit)) << "no error check, no recursion";
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

TEST_F(MutexMisuseTest, ErrorCheckingTypeIsPassedThrough) {
  ASSERT_EQ(0, QIV_MutexCreate(&m_mutex, PTHREAD_MUTEX_ERRORCHECK));
  EXPECT_EQ(-1, QIV_MutexUnlock(&m_mutex));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(-1, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

TEST_F(MutexTest, TryLockFailsWhileAnotherThreadHoldsTheMutex) {
  ASSERT_EQ(0, QIV_MutexCreate(&m_mutex, -1));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(-1, RunInThread([this] { return QIV_MutexTryLock(&m_mutex); }).Get());
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

TEST_F(MutexMisuseTest, DestroyOfAHeldMutexFails) {
  ASSERT_EQ(0, QIV_MutexCreate(&m_mutex, 0));
  ASSERT_EQ(0, QIV_MutexLock(&m_mutex));
  EXPECT_EQ(-1, QIV_MutexDestroy(&m_mutex));
  EXPECT_EQ(0, QIV_MutexUnlock(&m_mutex));
}

// The four classes differ in the case of their methods' names.
template <class Mutex>
struct UpperCase {
  static int Lock(Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS { return mutex.Lock(); }
  static int TryLock(Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS { return mutex.TryLock(); }
  static int Unlock(Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS { return mutex.Unlock(); }
};
template <class Mutex>
struct LowerCase {
  static int Lock(Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS { return mutex.lock(); }
  static int TryLock(Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS { return mutex.trylock(); }
  static int Unlock(Mutex& mutex) QIV_NO_THREAD_SAFETY_ANALYSIS { return mutex.unlock(); }
};

template <class Calls, class Mutex>
void ExpectRecursive(Mutex& mutex) {
  ASSERT_EQ(0, Calls::Lock(mutex));
  ASSERT_EQ(0, Calls::Lock(mutex));
  EXPECT_EQ(0, Calls::TryLock(mutex));
  EXPECT_EQ(-1, RunInThread([&] { return Calls::TryLock(mutex); }).Get());
  EXPECT_EQ(0, Calls::Unlock(mutex));
  EXPECT_EQ(0, Calls::Unlock(mutex));
  EXPECT_EQ(0, Calls::Unlock(mutex));
}

template <class Calls, class Mutex>
void ExpectNonRecursive(Mutex& mutex) {
  ASSERT_EQ(0, Calls::Lock(mutex));
  EXPECT_EQ(-1, Calls::TryLock(mutex));
  EXPECT_EQ(0, Calls::Unlock(mutex));
}

TEST(MutexClassTest, QivMutexIsRecursiveByDefault) {
  QIV_Mutex byDefault;
  ExpectRecursive<UpperCase<QIV_Mutex>>(byDefault);
  QIV_Mutex normal(0);
  ExpectNonRecursive<UpperCase<QIV_Mutex>>(normal);
  QIV_Mutex recursive(0xFFFFFFFFu);
  ExpectRecursive<UpperCase<QIV_Mutex>>(recursive);
}

TEST(MutexClassTest, QivUniqueMutexIsNonRecursiveByDefault) {
  QIV_UniqueMutex byDefault;
  ExpectNonRecursive<UpperCase<QIV_UniqueMutex>>(byDefault);
  QIV_UniqueMutex recursive(PTHREAD_MUTEX_RECURSIVE);
  ExpectRecursive<UpperCase<QIV_UniqueMutex>>(recursive);
}

TEST(MutexClassTest, NamespaceMutexIsRecursiveByDefault) {
  qiv::qiv_mutex byDefault;
  ExpectRecursive<LowerCase<qiv::qiv_mutex>>(byDefault);
  qiv::qiv_mutex normal(0);
  ExpectNonRecursive<LowerCase<qiv::qiv_mutex>>(normal);
}

TEST(MutexClassTest, RecursiveMutexIsRecursiveAndPolymorphic) {
  qiv::qiv_recursive_mutex mutex;
  ExpectRecursive<LowerCase<qiv::qiv_recursive_mutex>>(mutex);
  EXPECT_TRUE(std::has_virtual_destructor<qiv::qiv_recursive_mutex>::value);
}

TEST(MutexClassTest, ClassesHoldOneMutexAndNothingElse) {
  EXPECT_EQ(sizeof(pthread_mutex_t), sizeof(QIV_Mutex));
  EXPECT_EQ(sizeof(pthread_mutex_t), sizeof(QIV_UniqueMutex));
  EXPECT_EQ(sizeof(pthread_mutex_t), sizeof(qiv::qiv_mutex));
  EXPECT_EQ(sizeof(void*) + sizeof(pthread_mutex_t), sizeof(qiv::qiv_recursive_mutex));
}

}  // namespace
