#include <qiv/trace_info.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/thread.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "log/trace_info.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::qiv_tlsTraceInfoOper;
using qiv::qiv_tlsTraceInfoOperImpl;
using qiv::test::CapturedOutput;
using qiv::test::FailingAllocation;
using qiv::test::RunInThread;

qiv_tlsTraceInfoOper& TraceInfo() { return *qiv_tlsTraceInfoOper::instance(); }

void Put(char (&field)[QIV_TRACE_TEXT_SIZE], const std::string& text) {
  std::memcpy(field, text.data(), std::min(text.size(), sizeof(field)));
}

QIV_TRACEINFO Record(const std::string& first, const std::string& second, const std::string& third,
                     unsigned char firstFlag = 0, unsigned char secondFlag = 0) {
  QIV_TRACEINFO record = {};
  Put(record.firstText, first);
  Put(record.secondText, second);
  Put(record.thirdText, third);
  record.firstFlag = firstFlag;
  record.secondFlag = secondFlag;
  return record;
}

bool IsAllZero(const QIV_TRACEINFO& record) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
  return std::all_of(bytes, bytes + sizeof(record), [](unsigned char byte) { return byte == 0; });
}

class TraceInfoTest : public qiv::test::LeakCheckedTest {
 protected:
  void TearDown() override {
    TraceInfo().eraseTraceInfo();
    LeakCheckedTest::TearDown();
  }
};

TEST_F(TraceInfoTest, ThereIsOneInstance) {
  ASSERT_NE(nullptr, qiv_tlsTraceInfoOper::instance());
  EXPECT_EQ(qiv_tlsTraceInfoOper::instance(), qiv_tlsTraceInfoOper::instance());
}

TEST_F(TraceInfoTest, RecordWithoutFirstAndSecondTextIsRefusedAndInstallsNothing) {
  const QIV_TRACEINFO empty = Record("", "", "third", 1, 2);
  EXPECT_EQ(-1, TraceInfo().setTraceInfo(&empty));
  QIV_TRACEINFO read;
  EXPECT_EQ(-1, TraceInfo().getTraceInfo(&read));
}

TEST_F(TraceInfoTest, EmptyRecordLeavesTheOneThatIsThere) {
  const QIV_TRACEINFO mine = Record("first", "", "");
  const QIV_TRACEINFO empty = Record("", "", "third");
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&mine));
  EXPECT_EQ(-1, TraceInfo().setTraceInfo(&empty));
  QIV_TRACEINFO read;
  ASSERT_EQ(0, TraceInfo().getTraceInfo(&read));
  EXPECT_EQ(0, std::memcmp(&mine, &read, sizeof(mine)));
}

TEST_F(TraceInfoTest, NullRecordIsRefusedInSilence) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, TraceInfo().setTraceInfo(nullptr));
  EXPECT_EQ("", output.Stop());
}

TEST_F(TraceInfoTest, WhatIsSetIsReadBack) {
  const std::string longest(64, 'x');
  struct Row {
    const char* what;
    QIV_TRACEINFO record;
  };
  const Row kRows[] = {
      {"all fields", Record("first", "second", "third", 1, 255)},
      {"first text alone", Record("a", "", "")},
      {"second text alone", Record("", "b", "")},
      {"longest texts", Record(longest, longest, longest, 7, 8)},
      {"bytes above 127", Record("\xE4\xB8\xAD", "\xFF", "\x80")},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.what);
    ASSERT_EQ(0, TraceInfo().setTraceInfo(&row.record));
    QIV_TRACEINFO read;
    std::memset(&read, 0x5A, sizeof(read));
    EXPECT_EQ(0, TraceInfo().getTraceInfo(&read));
    EXPECT_EQ(0, std::memcmp(&row.record, &read, sizeof(read)));
  }
}

TEST_F(TraceInfoTest, TextsAreTakenUpToTheirNul) {
  const std::string withTail("ab\0cd", 5);
  const QIV_TRACEINFO record = Record(withTail, withTail, withTail);
  const QIV_TRACEINFO expected = Record("ab", "ab", "ab");
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&record));
  QIV_TRACEINFO read;
  ASSERT_EQ(0, TraceInfo().getTraceInfo(&read));
  EXPECT_EQ(0, std::memcmp(&expected, &read, sizeof(read)));
}

TEST_F(TraceInfoTest, TextsWithoutANulAreCutAtSixtyFourCharacters) {
  const std::string full(65, 'y');
  const std::string cut(64, 'y');
  const QIV_TRACEINFO record = Record(full, full, full, 3, 4);
  const QIV_TRACEINFO expected = Record(cut, cut, cut, 3, 4);
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&record));
  QIV_TRACEINFO read;
  ASSERT_EQ(0, TraceInfo().getTraceInfo(&read));
  EXPECT_EQ(0, std::memcmp(&expected, &read, sizeof(read)));
}

TEST_F(TraceInfoTest, ShorterTextReplacesALongerOneAsAWhole) {
  const QIV_TRACEINFO before = Record(std::string(64, 'z'), "second", "third", 1, 1);
  const QIV_TRACEINFO after = Record("s", "", "", 0, 2);
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&before));
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&after));
  QIV_TRACEINFO read;
  ASSERT_EQ(0, TraceInfo().getTraceInfo(&read));
  EXPECT_EQ(0, std::memcmp(&after, &read, sizeof(read)));
}

TEST_F(TraceInfoTest, ReadingWithoutARecordGivesAnAllZeroOne) {
  QIV_TRACEINFO read;
  std::memset(&read, 0x5A, sizeof(read));
  EXPECT_EQ(-1, TraceInfo().getTraceInfo(&read));
  EXPECT_TRUE(IsAllZero(read));
}

TEST_F(TraceInfoTest, ReadingIntoNullPrintsItsLine) {
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, TraceInfo().getTraceInfo(nullptr));
  EXPECT_EQ("traceInfo is null ptr\r\n", output.Stop());
}

TEST_F(TraceInfoTest, EraseWithoutARecordSucceeds) { EXPECT_EQ(0, TraceInfo().eraseTraceInfo()); }

TEST_F(TraceInfoTest, EraseTakesTheRecordAway) {
  const QIV_TRACEINFO mine = Record("first", "", "");
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&mine));
  EXPECT_EQ(0, TraceInfo().eraseTraceInfo());
  QIV_TRACEINFO read;
  EXPECT_EQ(-1, TraceInfo().getTraceInfo(&read));
}

TEST_F(TraceInfoTest, EachThreadHasItsOwnRecord) {
  const QIV_TRACEINFO mine = Record("mine", "", "");
  ASSERT_EQ(0, TraceInfo().setTraceInfo(&mine));
  EXPECT_EQ(-1, RunInThread([] {
                  QIV_TRACEINFO read;
                  return TraceInfo().getTraceInfo(&read);
                }).Get());
  RunInThread([] {
    const QIV_TRACEINFO theirs = Record("theirs", "", "");
    TraceInfo().setTraceInfo(&theirs);
    return TraceInfo().eraseTraceInfo();
  }).Get();
  QIV_TRACEINFO read;
  ASSERT_EQ(0, TraceInfo().getTraceInfo(&read));
  EXPECT_STREQ("mine", read.firstText);
}

TEST_F(TraceInfoTest, SetWithoutAKeyPrintsItsLineAndLeavesNothing) {
  ASSERT_EQ(0, TraceInfo().eraseTraceInfo());
  ASSERT_EQ(0, qiv::qiv_tls_free());
  const QIV_TRACEINFO mine = Record("first", "", "");
  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, TraceInfo().setTraceInfo(&mine));
  EXPECT_EQ("QIV_ThreadTls_SetValue failed! g_qiv_store_tls_handle{4294967295}\r\n", output.Stop());
  QIV_TRACEINFO read;
  EXPECT_EQ(-1, TraceInfo().getTraceInfo(&read));
  EXPECT_EQ(0, TraceInfo().eraseTraceInfo());
  EXPECT_EQ(0, qiv::qiv_tls_alloc());
}

TEST_F(TraceInfoTest, ThreadsSetReadAndEraseAtOnce) {
  const int rounds = qiv::test::ScaledLoad(2000);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      for (int i = 0; i < rounds; ++i) {
        const QIV_TRACEINFO mine = Record(std::to_string(number), std::to_string(i), "");
        QIV_TRACEINFO read;
        if (TraceInfo().setTraceInfo(&mine) != 0 || TraceInfo().getTraceInfo(&read) != 0 ||
            std::memcmp(&mine, &read, sizeof(read)) != 0) {
          ++wrong;
        }
        if (i % 3 == 0) TraceInfo().eraseTraceInfo();
      }
      TraceInfo().eraseTraceInfo();
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, wrong.load());
}

// The key.

class TraceKeyTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(0, qiv::qiv_tls_free());
  }
  void TearDown() override {
    if (Handle() == QIV_INVALID_ID) qiv::qiv_tls_alloc();
    LeakCheckedTest::TearDown();
  }
  static unsigned int Handle() { return qiv::g_qiv_store_tls_handle.load(); }
};

TEST_F(TraceKeyTest, AllocPrintsTheKeysNumber) {
  for (const auto alloc : {+[] { return qiv::qiv_tls_alloc(); },
                           +[] {
                             qiv::qiv_at_initprocess();
                             return 0;
                           }}) {
    CapturedOutput output(STDERR_FILENO);
    EXPECT_EQ(0, alloc());
    EXPECT_EQ("qiv tls index{" + std::to_string(Handle()) + "}\r\n", output.Stop());
    EXPECT_EQ(0, qiv::qiv_tls_free());
  }
}

TEST_F(TraceKeyTest, FreeWithoutAKeyDoesNothing) {
  EXPECT_EQ(QIV_INVALID_ID, Handle());
  EXPECT_EQ(-1, qiv::qiv_tls_free());
  EXPECT_EQ(QIV_INVALID_ID, Handle());
}

TEST_F(TraceKeyTest, AtFiniProcessFreesTheKey) {
  ASSERT_EQ(0, qiv::qiv_tls_alloc());
  const unsigned int key = Handle();
  qiv::qiv_at_finiproccess();
  EXPECT_EQ(QIV_INVALID_ID, Handle());
  EXPECT_EQ(-1, QIV_ThreadTls_Destroy(key));
}

TEST_F(TraceKeyTest, AllocWithoutAFreeKeyPrintsItsLineAndKeepsTheInvalidKey) {
  std::vector<pthread_key_t> keys;
  pthread_key_t key;
  while (pthread_key_create(&key, nullptr) == 0) keys.push_back(key);

  CapturedOutput output(STDERR_FILENO);
  EXPECT_EQ(-1, qiv::qiv_tls_alloc());
  EXPECT_EQ("tls_alloc, but QIV_ThreadTls_Create failed!\r\n", output.Stop());
  EXPECT_EQ(QIV_INVALID_ID, Handle());

  for (const pthread_key_t taken : keys) pthread_key_delete(taken);
}

TEST_F(TraceKeyTest, SecondAllocGivesTheFirstKeyBack) {
  ASSERT_EQ(0, qiv::qiv_tls_alloc());
  const unsigned int first = Handle();
  ASSERT_EQ(0, qiv::qiv_tls_alloc());
  EXPECT_NE(first, Handle());
  EXPECT_EQ(-1, QIV_ThreadTls_Destroy(first));
}

// The owner of the contexts.

class TraceOwnerTest : public qiv::test::LeakCheckedTest {
 protected:
  ~TraceOwnerTest() override { QIV_ThreadTls_SetValue(qiv::g_qiv_store_tls_handle, nullptr); }
  qiv_tlsTraceInfoOperImpl m_owner;
};

TEST_F(TraceOwnerTest, TwoSetsInOneThreadAreOneContext) {
  const QIV_TRACEINFO first = Record("first", "", "");
  const QIV_TRACEINFO second = Record("second", "", "");
  ASSERT_EQ(0, m_owner.setTraceInfo(&first));
  void* const context = QIV_ThreadTls_GetValue(qiv::g_qiv_store_tls_handle);
  ASSERT_EQ(0, m_owner.setTraceInfo(&second));
  EXPECT_EQ(context, QIV_ThreadTls_GetValue(qiv::g_qiv_store_tls_handle));
  EXPECT_EQ(1u, m_owner.contextCount());
  EXPECT_EQ(0, m_owner.eraseTraceInfo());
  EXPECT_EQ(0u, m_owner.contextCount());
  EXPECT_EQ(nullptr, QIV_ThreadTls_GetValue(qiv::g_qiv_store_tls_handle));
}

TEST_F(TraceOwnerTest, ContextOfAThreadThatDoesNotEraseIsKeptUntilTheOwnerEnds) {
  RunInThread([this] {
    const QIV_TRACEINFO theirs = Record("theirs", "", "");
    return m_owner.setTraceInfo(&theirs);
  }).Get();
  EXPECT_EQ(1u, m_owner.contextCount());
}

TEST_F(TraceOwnerTest, SetFailsAtEachAllocationAndChangesNothing) {
  const QIV_TRACEINFO mine = Record(std::string(64, 'm'), std::string(64, 'n'), "");
  for (int nth = 1; nth <= 5; ++nth) {  // the context, its three texts, its entry in the map
    SCOPED_TRACE(nth);
    const FailingAllocation failure(nth);
    EXPECT_EQ(-1, m_owner.setTraceInfo(&mine));
    EXPECT_TRUE(failure.Happened());
    EXPECT_EQ(0u, m_owner.contextCount());
    EXPECT_EQ(nullptr, QIV_ThreadTls_GetValue(qiv::g_qiv_store_tls_handle));
  }
  const FailingAllocation failure(6);
  EXPECT_EQ(0, m_owner.setTraceInfo(&mine));
  EXPECT_FALSE(failure.Happened());
}

TEST_F(TraceOwnerTest, SetOverAnExistingRecordNeedsNoMemory) {
  const QIV_TRACEINFO small = Record("s", "", "");
  const QIV_TRACEINFO large = Record(std::string(64, 'l'), std::string(64, 'l'), "");
  ASSERT_EQ(0, m_owner.setTraceInfo(&small));
  const FailingAllocation failure(1);
  EXPECT_EQ(0, m_owner.setTraceInfo(&large));
  EXPECT_FALSE(failure.Happened());
}

// Layout and counting.

TEST(TraceLayoutTest, RecordHasItsFieldsWithoutGaps) {
  EXPECT_EQ(197u, sizeof(QIV_TRACEINFO));
  EXPECT_EQ(65u, offsetof(QIV_TRACEINFO, secondText));
  EXPECT_EQ(130u, offsetof(QIV_TRACEINFO, thirdText));
  EXPECT_EQ(195u, offsetof(QIV_TRACEINFO, firstFlag));
  EXPECT_EQ(196u, offsetof(QIV_TRACEINFO, secondFlag));
}

TEST(TraceLayoutTest, FacadeIsATablePointerAndAPointerToItsImplementation) {
  EXPECT_EQ(2 * sizeof(void*), sizeof(qiv_tlsTraceInfoOper));
  EXPECT_TRUE(std::has_virtual_destructor<qiv_tlsTraceInfoOper>::value);
  EXPECT_TRUE(std::has_virtual_destructor<qiv_tlsTraceInfoOperImpl>::value);
  EXPECT_TRUE((std::is_base_of<shared_object, qiv::CTraceInfo_context>::value));
}

class Counted : public shared_object {
 public:
  explicit Counted(int* destroyed) : m_destroyed(destroyed) {}
  ~Counted() override { ++*m_destroyed; }

 private:
  int* m_destroyed;
};
using CountedPointer = smartptr<Counted, shared_object, qiv::qiv_mutex>;

TEST(SmartPointerTest, LastPointerDestroysTheObject) {
  int destroyed = 0;
  CountedPointer first(new Counted(&destroyed));
  {
    const CountedPointer second(first);
    EXPECT_EQ(first.get(), second.get());
    first = CountedPointer();
    EXPECT_EQ(0, destroyed);
  }
  EXPECT_EQ(1, destroyed);
  EXPECT_FALSE(first);
}

TEST(SmartPointerTest, MovedPointerIsNullAndCountsOnce) {
  int destroyed = 0;
  CountedPointer first(new Counted(&destroyed));
  CountedPointer second(std::move(first));
  EXPECT_EQ(nullptr, first.get());  // NOLINT: a moved-from pointer is promised to be null
  second = CountedPointer(new Counted(&destroyed));
  EXPECT_EQ(1, destroyed);
  CountedPointer& same = second;
  second = same;
  EXPECT_EQ(1, destroyed);
}

TEST(SmartPointerTest, DestructionRunsOnceWhenTheDestructorTakesAReference) {
  class Reentrant : public shared_object {
   public:
    explicit Reentrant(int* destroyed) : m_destroyed(destroyed) {}
    ~Reentrant() override {
      ++*m_destroyed;
      const smartptr<Reentrant, shared_object, qiv::qiv_mutex> self(this);
    }

   private:
    int* m_destroyed;
  };
  int destroyed = 0;
  { const smartptr<Reentrant, shared_object, qiv::qiv_mutex> only(new Reentrant(&destroyed)); }
  EXPECT_EQ(1, destroyed);
}

TEST(SmartPointerTest, PointersOfManyThreadsDestroyTheObjectOnce) {
  int destroyed = 0;
  {
    const CountedPointer shared(new Counted(&destroyed));
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([shared] {
        for (int round = 0; round < qiv::test::ScaledLoad(5000); ++round) {
          CountedPointer copy;
          copy = shared;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    EXPECT_EQ(0, destroyed);
  }
  EXPECT_EQ(1, destroyed);
}

}  // namespace
