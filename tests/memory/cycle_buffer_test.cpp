#include <gtest/gtest.h>
#include <qiv/cycle_buffer.h>

#include <climits>
#include <stdexcept>
#include <string>

#include "memory/cycle_buffer_fixture.h"
#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace qiv::test {
namespace {

void Ignore(char* /*data*/, int /*len*/, void* /*user*/) {}

std::string Zeros(std::size_t count) {
  std::string zeros;
  zeros.resize(count);
  return zeros;
}

bool ReadThrows(CycleBuffer& buffer) {
  try {
    buffer.Read();
  } catch (const std::runtime_error&) {
    return true;
  }
  return false;
}

class CycleBufferTest : public LeakCheckedTest {};

TEST_F(CycleBufferTest, InitRefusesNullPointersAndCapacitiesBelowOne) {
  int something = 0;
  QIV_HANDLE handle = &something;
  EXPECT_EQ(-1, QIV_CycleBufferInit(nullptr, 10, Ignore, nullptr));
  EXPECT_EQ(-1, QIV_CycleBufferInit(&handle, 10, nullptr, nullptr));
  EXPECT_EQ(-1, QIV_CycleBufferInit(&handle, 0, Ignore, nullptr));
  EXPECT_EQ(-1, QIV_CycleBufferInit(&handle, -1, Ignore, nullptr));
  EXPECT_EQ(-1, QIV_CycleBufferInit(&handle, INT_MIN, Ignore, nullptr));
  EXPECT_EQ(&something, handle);
}

TEST_F(CycleBufferTest, InitFailsWhenMemoryIsShort) {
  for (const int capacity : {10, INT_MAX}) {
    QIV_HANDLE handle = nullptr;
    const FailingAllocation failing(1);
    EXPECT_EQ(-1, QIV_CycleBufferInit(&handle, capacity, Ignore, nullptr));
    EXPECT_EQ(nullptr, handle);
    // Where twice the largest capacity does not fit in a size_t, no memory is asked for.
    EXPECT_EQ(capacity == 10 || sizeof(std::size_t) > 4, failing.Happened());
  }
}

TEST_F(CycleBufferTest, WriteRefusesNullPointersAndLengthsBelowOne) {
  CycleBuffer buffer(10);
  EXPECT_EQ(-1, QIV_CycleBufferWrite(nullptr, "a", 1));
  EXPECT_EQ(-1, QIV_CycleBufferWrite(buffer.Handle(), nullptr, 1));
  EXPECT_EQ(-1, QIV_CycleBufferWrite(buffer.Handle(), "a", 0));
  EXPECT_EQ(-1, QIV_CycleBufferWrite(buffer.Handle(), "a", -1));
  EXPECT_EQ(-1, QIV_CycleBufferWrite(buffer.Handle(), "a", INT_MIN));
  EXPECT_EQ(0u, buffer.Count());
}

TEST_F(CycleBufferTest, NullHandlesAndNullCountAreRefused) {
  const CycleBuffer buffer(10);
  unsigned int count = 77;
  EXPECT_EQ(-1, QIV_CycleBufferRead(nullptr));
  EXPECT_EQ(-1, QIV_CycleBufferValue(nullptr, &count));
  EXPECT_EQ(77u, count);
  EXPECT_EQ(-1, QIV_CycleBufferValue(buffer.Handle(), nullptr));
  EXPECT_EQ(-1, QIV_CycleBufferDestroy(nullptr));
}

TEST_F(CycleBufferTest, DestroyFreesABufferThatHoldsData) {
  QIV_HANDLE handle = nullptr;
  ASSERT_EQ(0, QIV_CycleBufferInit(&handle, 10, Ignore, nullptr));
  ASSERT_EQ(0, QIV_CycleBufferWrite(handle, "abc", 3));
  EXPECT_EQ(0, QIV_CycleBufferDestroy(handle));
}

TEST_F(CycleBufferTest, ReadOfAnEmptyBufferFailsWithoutACall) {
  CycleBuffer buffer(10);
  EXPECT_EQ(-1, buffer.Read());
  ASSERT_EQ(0, buffer.Write("abc"));
  ASSERT_EQ(0, buffer.Read());
  buffer.TakeDeliveries();
  EXPECT_EQ(-1, buffer.Read());
  EXPECT_EQ(Deliveries(), buffer.TakeDeliveries());
}

TEST_F(CycleBufferTest, ReadDeliversSeveralWritesAtOnce) {
  CycleBuffer buffer(10);
  ASSERT_EQ(0, buffer.Write("abc"));
  ASSERT_EQ(0, buffer.Write("de"));
  EXPECT_EQ(5u, buffer.Count());
  EXPECT_EQ((Deliveries{{0, "abcde"}}), buffer.ReadAll());
  EXPECT_EQ(0u, buffer.Count());
  ASSERT_EQ(0, buffer.Write("fghi"));
  EXPECT_EQ((Deliveries{{5, "fghi"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, WriteOfTheFreeSpaceSucceedsAndOneByteMoreChangesNothing) {
  CycleBuffer buffer(10);
  ASSERT_EQ(0, buffer.Write("abc"));
  EXPECT_EQ(-1, buffer.Write("12345678"));
  EXPECT_EQ(-1, QIV_CycleBufferWrite(buffer.Handle(), "a", INT_MAX));
  EXPECT_EQ(3u, buffer.Count());
  EXPECT_EQ((Deliveries{{0, "abc"}}), buffer.ReadAll());
  EXPECT_EQ(0, buffer.Write("0123456789"));
  EXPECT_EQ(10u, buffer.Count());
  EXPECT_EQ(-1, buffer.Write("a"));
  EXPECT_EQ(10u, buffer.Count());
}

TEST_F(CycleBufferTest, WrappedDataArrivesWholeWhenItsLengthIsTheReadOffset) {
  CycleBuffer buffer(10);
  buffer.StartAt(6);
  ASSERT_EQ(0, buffer.Write("abcdef"));
  EXPECT_EQ((Deliveries{{6, "abcd"}, {0, "ef"}}), buffer.ReadAll());
  ASSERT_EQ(0, buffer.Write("gh"));
  EXPECT_EQ((Deliveries{{2, "gh"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, FirstLengthOfWrappedDataIsTheCapacityLessItsLength) {
  CycleBuffer buffer(10);
  buffer.StartAt(6);
  ASSERT_EQ(0, buffer.Write("abcdefgh"));
  EXPECT_EQ((Deliveries{{6, "ab"}, {0, "efgh"}}), buffer.ReadAll());
  EXPECT_EQ(0u, buffer.Count());
}

TEST_F(CycleBufferTest, FirstLengthThatLeadsPastTheRingReadsZeros) {
  CycleBuffer buffer(10);
  buffer.StartAt(8);
  ASSERT_EQ(0, buffer.Write("abc"));
  EXPECT_EQ((Deliveries{{8, "ab" + Zeros(5)}, {0, "c"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, LongestFirstLengthPastTheRingReadsZeros) {
  CycleBuffer buffer(10);
  buffer.StartAt(9);
  ASSERT_EQ(0, buffer.Write("a"));
  EXPECT_EQ((Deliveries{{9, "a" + Zeros(8)}, {0, ""}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, DataUpToTheEndIsDeliveredInTwoCallsTheSecondEmpty) {
  CycleBuffer buffer(10);
  buffer.StartAt(5);
  ASSERT_EQ(0, buffer.Write("abcde"));
  EXPECT_EQ((Deliveries{{5, "abcde"}, {0, ""}}), buffer.ReadAll());
  ASSERT_EQ(0, buffer.Write("f"));
  EXPECT_EQ((Deliveries{{0, "f"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, FullBufferIsDeliveredInTwoCallsTheFirstEmpty) {
  CycleBuffer buffer(10);
  ASSERT_EQ(0, buffer.Write("01234"));
  ASSERT_EQ(0, buffer.Write("56789"));
  EXPECT_EQ((Deliveries{{0, ""}, {0, ""}}), buffer.ReadAll());
  EXPECT_EQ(0u, buffer.Count());
  buffer.StartAt(3);
  ASSERT_EQ(0, buffer.Write("0123456789"));
  EXPECT_EQ((Deliveries{{3, ""}, {0, "789"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, BufferOfOneByteHoldsOneByte) {
  CycleBuffer buffer(1);
  EXPECT_EQ(-1, buffer.Write("ab"));
  EXPECT_EQ(0, buffer.Write("a"));
  EXPECT_EQ(-1, buffer.Write("b"));
  EXPECT_EQ((Deliveries{{0, ""}, {0, ""}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, BytesWrittenDuringAReadStayStored) {
  CycleBuffer buffer(10);
  ASSERT_EQ(0, buffer.Write("abc"));
  buffer.onDelivery = [&] { EXPECT_EQ(0, buffer.Write("de")); };
  EXPECT_EQ((Deliveries{{0, "abc"}}), buffer.ReadAll());
  buffer.onDelivery = nullptr;
  EXPECT_EQ(2u, buffer.Count());
  EXPECT_EQ((Deliveries{{3, "de"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, BytesThatAreBeingReadStillTakeRoom) {
  CycleBuffer buffer(10);
  ASSERT_EQ(0, buffer.Write("abc"));
  buffer.onDelivery = [&] {
    EXPECT_EQ(3u, buffer.Count());
    EXPECT_EQ(-1, buffer.Write("12345678"));
  };
  EXPECT_EQ((Deliveries{{0, "abc"}}), buffer.ReadAll());
  EXPECT_EQ(0u, buffer.Count());
}

TEST_F(CycleBufferTest, CallbackRunsWithoutTheLock) {
  CycleBuffer buffer(10);
  ASSERT_EQ(0, buffer.Write("abc"));
  int written = -1;
  buffer.onDelivery = [&] { written = RunInThread([&] { return buffer.Write("de"); }).Get(); };
  ASSERT_EQ(0, buffer.Read());
  EXPECT_EQ(0, written);
}

TEST_F(CycleBufferTest, CallbackThatThrowsLeavesEverythingStored) {
  CycleBuffer buffer(10);
  buffer.StartAt(6);
  EXPECT_EQ(0, buffer.Write("abcdef"));
  buffer.onDelivery = [] { throw std::runtime_error("not now"); };
  EXPECT_TRUE(ReadThrows(buffer));
  buffer.onDelivery = nullptr;
  buffer.TakeDeliveries();
  EXPECT_EQ((Deliveries{{6, "abcd"}, {0, "ef"}}), buffer.ReadAll());
}

TEST_F(CycleBufferTest, ReadInTheCallbackNeverTakesOutMoreThanIsStored) {
  CycleBuffer buffer(10);
  EXPECT_EQ(0, buffer.Write("abc"));
  buffer.onDelivery = [&] {
    buffer.onDelivery = nullptr;
    buffer.Read();
  };
  EXPECT_EQ((Deliveries{{0, "abc"}, {0, "abc"}}), buffer.ReadAll());
  EXPECT_EQ(0u, buffer.Count());
}

}  // namespace
}  // namespace qiv::test
