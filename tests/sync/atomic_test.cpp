#include <gtest/gtest.h>
#include <qiv/atomic.h>

#include <climits>

#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/test_limit.h"
#include "sync/atomic.h"

namespace qiv {
namespace {

TEST(AtomicTest, CasStoresTheValueWhenTheComparandIsFound) {
  int x = 3;
  EXPECT_EQ(3, QIV_AtomicCas(&x, 5, 3));
  EXPECT_EQ(5, x);
}

TEST(AtomicTest, CasLeavesAnotherValueAlone) {
  int x = 4;
  EXPECT_EQ(4, QIV_AtomicCas(&x, 5, 3));
  EXPECT_EQ(4, x);
}

TEST(AtomicTest, CasPtrComparesWholePointers) {
  int a = 0;
  int b = 0;
  void* pointer = &a;
  EXPECT_EQ(&a, QIV_AtomicCasPtr(&pointer, &b, &b));
  EXPECT_EQ(&a, pointer);
  EXPECT_EQ(&a, QIV_AtomicCasPtr(&pointer, &b, &a));
  EXPECT_EQ(&b, pointer);
  EXPECT_EQ(&b, QIV_AtomicCasPtr(&pointer, nullptr, &b));
  EXPECT_EQ(nullptr, pointer);
}

TEST(AtomicTest, IncAndDecGiveTheValueFound) {
  int x = 7;
  EXPECT_EQ(7, QIV_AtomicInc(&x));
  EXPECT_EQ(8, x);
  EXPECT_EQ(8, QIV_AtomicDec(&x));
  EXPECT_EQ(7, x);
}

TEST(AtomicTest, AddAndSetGiveTheValueFound) {
  int x = 7;
  EXPECT_EQ(7, QIV_AtomicAdd(&x, -10));
  EXPECT_EQ(-3, x);
  EXPECT_EQ(-3, QIV_AtomicSet(&x, 100));
  EXPECT_EQ(100, x);
}

TEST(AtomicTest, SumsWrapAround) {
  int x = INT_MAX;
  EXPECT_EQ(INT_MAX, QIV_AtomicInc(&x));
  EXPECT_EQ(INT_MIN, x);
  EXPECT_EQ(INT_MIN, QIV_AtomicAdd(&x, -1));
  EXPECT_EQ(INT_MAX, x);
}

TEST(AtomicTest, ANullAddressIsRefused) {
  EXPECT_EQ(0, QIV_AtomicCas(nullptr, 1, 0));
  EXPECT_EQ(nullptr, QIV_AtomicCasPtr(nullptr, nullptr, nullptr));
  EXPECT_EQ(0, QIV_AtomicInc(nullptr));
  EXPECT_EQ(0, QIV_AtomicDec(nullptr));
  EXPECT_EQ(0, QIV_AtomicAdd(nullptr, 1));
  EXPECT_EQ(0, QIV_AtomicSet(nullptr, 1));
}

TEST(AtomicTest, TheFunctionsWorkBeforeBetweenAndAfterInitAndFini) {
  int x = 0;
  QIV_AtomicInc(&x);
  EXPECT_EQ(QIV_OK, QIV_InitAtomic_Inter());
  EXPECT_EQ(QIV_OK, QIV_InitAtomic_Inter());
  QIV_AtomicInc(&x);
  QIV_FiniAtomic_Inter();
  QIV_FiniAtomic_Inter();
  QIV_AtomicInc(&x);
  EXPECT_EQ(3, x);
}

// Whether an attempt stored can be told from its result only when no value comes twice, as here.
TEST(AtomicTest, OneAttemptStoresOnlyWhatFollowsTheValueThatItReports) {
  const int rounds = test::ScaledLoad(100000);
  int x = 0;
  const auto count = [&] {
    int stored = 0;
    for (int i = 0; i < rounds; ++i) {
      const int expected = QIV_AtomicCas(&x, 0, -1);  // a look
      if (QIV_AtomicCas(&x, expected + 1, expected) == expected) ++stored;
    }
    return stored;
  };
  auto other = test::RunInThread(count);
  const int stored = count() + other.Get();
  EXPECT_EQ(stored, x);
}

/** What an attempt gives when another thread changes the word from 7 to 9 between its look and its
 *  exchange. The attempt must not have stored anything. */
template <class Attempt>
int ResultOfLateAttempt(Attempt attempt) {
  int word = 7;
  sync::g_atomicsMutex.Lock();
  test::SleepingCall call([&] { return attempt(&word); });
  __atomic_store_n(&word, 9, __ATOMIC_RELAXED);
  sync::g_atomicsMutex.Unlock();
  const int result = call.Get();
  EXPECT_EQ(9, word);
  return result;
}

TEST(AtomicTest, AnAttemptThatComesTooLateStoresNothingAndGivesTheOtherValue) {
  EXPECT_EQ(9, ResultOfLateAttempt([](int* word) { return QIV_AtomicInc(word); }));
  EXPECT_EQ(9, ResultOfLateAttempt([](int* word) { return QIV_AtomicDec(word); }));
  EXPECT_EQ(9, ResultOfLateAttempt([](int* word) { return QIV_AtomicAdd(word, 5); }));
  EXPECT_EQ(9, ResultOfLateAttempt([](int* word) { return QIV_AtomicSet(word, 3); }));
}

TEST(AtomicClassTest, OperationsGiveTheStatedValues) {
  qiv_atomic value;
  EXPECT_EQ(0, value.get());
  EXPECT_EQ(1, value.increment());
  EXPECT_EQ(0, value.decrement());
  EXPECT_EQ(0, value.set(9));
  EXPECT_EQ(9, value.get());
  EXPECT_EQ(9, value.set(-4));
  EXPECT_EQ(-4, value.get());
  EXPECT_EQ(-5, value.decrement());
}

TEST(AtomicClassTest, SumsWrapAround) {
  qiv_atomic value(INT_MAX);
  EXPECT_EQ(INT_MIN, value.increment());
  EXPECT_EQ(INT_MAX, value.decrement());
}

TEST(AtomicClassTest, IncrementsOfSeveralThreadsAreAllCounted) {
  const int rounds = test::ScaledLoad(100000);
  qiv_atomic value;
  const auto increment = [&] {
    for (int i = 0; i < rounds; ++i) value.increment();
    return true;
  };
  auto first = test::RunInThread(increment);
  auto second = test::RunInThread(increment);
  EXPECT_TRUE(first.Get());
  EXPECT_TRUE(second.Get());
  EXPECT_EQ(2L * rounds, value.get());
}

TEST(AtomicClassTest, SetHandsOutEachValueOnce) {
  const int rounds = test::ScaledLoad(50000);
  qiv_atomic value;
  const auto swap = [&](int first) {
    return [&value, first, rounds] {
      long long sum = 0;
      for (int i = 0; i < rounds; ++i) sum += value.set(first + i);
      return sum;
    };
  };
  auto one = test::RunInThread(swap(1));
  auto two = test::RunInThread(swap(1 + rounds));
  const long long taken = one.Get() + two.Get() + value.get();
  const long long count = 2LL * rounds;
  EXPECT_EQ(count * (count + 1) / 2, taken);
}

}  // namespace
}  // namespace qiv
