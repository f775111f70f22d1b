#include <qiv/memory_block.h>

#include <gtest/gtest.h>
#include <qiv/time.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/failing_allocation.h"
#include "support/matches.h"
#include "support/time_zone.h"

namespace qiv::test {
namespace {

QIV_HANDLE Owner(std::uintptr_t number) { return reinterpret_cast<QIV_HANDLE>(number); }

std::string QuotedPointerText(const void* pointer) {
  char text[64];
  std::snprintf(text, sizeof(text), "\"0x%p\"", pointer);
  return text;
}

qiv_uint64 Tick() { return static_cast<qiv_uint64>(QIV_GetTimeTick64()); }

/** The text of one field of a description, with its quotes if it has any. */
std::string Field(const std::string& text, const std::string& name) {
  const std::string label = "\"" + name + "\": ";
  const auto labelAt = text.find(label);
  if (labelAt == std::string::npos) return "no such field in " + text;
  const auto start = labelAt + label.size();
  const auto end = std::min(text.find(", \"", start), text.find(" }", start));
  return text.substr(start, end - start);
}

TEST(MemoryBlockTest, FreshBlockHasGuardBytesRightBeforeAndBehindTheUserArea) {
  for (const unsigned int size : {1u, 3u, 100u, 4096u}) {
    CMemoryBlock block(size);
    const char* const start = block.AllocPtr();
    ASSERT_NE(nullptr, start);
    for (unsigned int i = 0; i < 4; ++i) {
      EXPECT_EQ(0x16, start[i]) << size;
      EXPECT_EQ(0x16, start[size + 4 + i]) << size;
    }
    EXPECT_FALSE(block.BoundaryOverflow()) << size;
    EXPECT_EQ(start + 4, block.Ptr(nullptr)) << size;
  }
}

TEST(MemoryBlockTest, AnyChangedGuardByteIsAnOverflowUntilTheBoundaryIsReset) {
  constexpr unsigned int kSize = 100;
  CMemoryBlock block(kSize);
  char* const user = block.Ptr(nullptr);
  for (const int offset : {-4, -3, -2, -1, 100, 101, 102, 103}) {
    user[offset] = 0x17;
    EXPECT_TRUE(block.BoundaryOverflow()) << offset;
    block.ResetBoundary();
    EXPECT_FALSE(block.BoundaryOverflow()) << offset;
    EXPECT_EQ(0x16, user[offset]) << offset;
  }
}

TEST(MemoryBlockTest, UserAreaIsNotExaminedAndNotTouchedByTheReset) {
  CMemoryBlock block(100);
  char* const user = block.Ptr(nullptr);
  std::memset(user, 0x7F, 100);
  EXPECT_FALSE(block.BoundaryOverflow());
  block.ResetBoundary();
  EXPECT_EQ(std::string(100, 0x7F), std::string(user, 100));
}

TEST(MemoryBlockTest, IsLentAndTakenBackManyTimesAtTheSameAddress) {
  CMemoryBlock block(8);
  char* const first = block.Ptr(nullptr);
  for (int round = 0; round < 10; ++round) {
    block.Reset();
    EXPECT_EQ(first, block.Ptr(nullptr));
  }
}

TEST(MemoryBlockTest, TimeOffsetIsTheLastUseLessTheTickGiven) {
  const qiv_uint64 before = Tick();
  CMemoryBlock block(8);
  EXPECT_GE(block.TimeOffset(before), 0);
  EXPECT_LE(block.TimeOffset(Tick()), 0);
  EXPECT_EQ(-5000, block.TimeOffset(before + 5000) - block.TimeOffset(before));
  EXPECT_GT(block.TimeOffset(0), 0);
}

TEST(MemoryBlockTest, LendingAndTakingBackStampTheTimeOfTheLastUse) {
  CMemoryBlock block(8);
  const qiv_int64 created = block.TimeOffset(0);
  while (static_cast<qiv_int64>(Tick()) < created + 20) std::this_thread::yield();
  block.Ptr(nullptr);
  block.Reset();
  EXPECT_GE(block.TimeOffset(0), created + 20);
  const qiv_int64 returned = block.TimeOffset(0);
  block.Ptr(nullptr);
  while (static_cast<qiv_int64>(Tick()) < returned + 20) std::this_thread::yield();
  block.Reset();
  EXPECT_GE(block.TimeOffset(0), returned + 20);
}

TEST(MemoryBlockTest, DescriptionIsAJsonObjectOnOneLine) {
  CMemoryBlock block(100);
  const std::string text = block.ToString();
  const std::string quoted = "\"0x[^\"]+\"";
  const std::string time =
      "\"[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} [0-9]{4}\"";
  const std::string form("\\{ \"BlockSize\": 100, \"Alloc\": " + quoted + ", \"User\": " + quoted +
                         ", \"Used\": false, \"LastThreadId\": " + quoted +
                         ", \"CreateTime\": " + time + ", \"LastTime\": " + time +
                         ", \"HeaderBoundary\": \" 0x16 0x16 0x16 0x16\""
                         ", \"TailBoundary\": \" 0x16 0x16 0x16 0x16\" \\}");
  EXPECT_TRUE(Matches(text, form)) << text;
}

TEST(MemoryBlockTest, DescriptionOfABlockThatWasNeverLentShowsEqualTimesAndNoOwner) {
  const CMemoryBlock block(100);
  const std::string text = block.ToString();
  EXPECT_EQ("false", Field(text, "Used"));
  EXPECT_EQ(Field(text, "CreateTime"), Field(text, "LastTime"));
  EXPECT_EQ(QuotedPointerText(nullptr), Field(text, "LastThreadId"));
  EXPECT_EQ(QuotedPointerText(block.AllocPtr()), Field(text, "Alloc")) << "0x before %p is kept";
  EXPECT_EQ(QuotedPointerText(block.AllocPtr() + 4), Field(text, "User"));
}

TEST(MemoryBlockTest, DescriptionOfALentBlockShowsItsOwnerAndKeepsHimOnceItIsBack) {
  CMemoryBlock block(100);
  block.Ptr(Owner(0x1234));
  EXPECT_EQ("true", Field(block.ToString(), "Used"));
  EXPECT_EQ(QuotedPointerText(Owner(0x1234)), Field(block.ToString(), "LastThreadId"));
  block.Reset();
  EXPECT_EQ("false", Field(block.ToString(), "Used"));
  EXPECT_EQ(QuotedPointerText(Owner(0x1234)), Field(block.ToString(), "LastThreadId"));
}

TEST(MemoryBlockTest, DescriptionShowsEachGuardByteInHexadecimal) {
  CMemoryBlock block(2);
  char* const user = block.Ptr(nullptr);
  user[-4] = 0;
  user[-1] = 0x7;
  user[2] = static_cast<char>(0xFF);
  user[5] = static_cast<char>(0x80);
  EXPECT_EQ("\" 0x0 0x16 0x16 0x7\"", Field(block.ToString(), "HeaderBoundary"));
  EXPECT_EQ("\" 0xff 0x16 0x16 0x80\"", Field(block.ToString(), "TailBoundary"));
}

TEST(MemoryBlockTest, DescriptionShowsLocalWallClockTimes) {
  SetZone("XST-3");
  char before[25];
  char after[25];
  std::string text;
  do {  // until it all falls into one second
    QIV_CTime(before, QIV_TimeNow());
    const CMemoryBlock block(1);
    text = Field(block.ToString(), "CreateTime");
    QIV_CTime(after, QIV_TimeNow());
  } while (std::strcmp(before, after) != 0);
  // Ticks are rounded to the nearest millisecond, so that the second may be the next one.
  char next[25];
  QIV_CTime(next, QIV_TimeNow() + 1000000);
  EXPECT_TRUE(text == "\"" + std::string(after) + "\"" || text == "\"" + std::string(next) + "\"")
      << text << " instead of " << after;
}

TEST(MemoryBlockTest, BlockOfNoBytesHasAnAllocationButLendsNullAndHasNoGuards) {
  CMemoryBlock block(0);
  EXPECT_NE(nullptr, block.AllocPtr());
  EXPECT_FALSE(block.BoundaryOverflow());
  block.ResetBoundary();
  EXPECT_EQ("\"\"", Field(block.ToString(), "HeaderBoundary"));
  EXPECT_EQ(QuotedPointerText(nullptr), Field(block.ToString(), "User"));
  EXPECT_EQ(nullptr, block.Ptr(nullptr));
  block.Reset();
}

TEST(MemoryBlockTest, BlockWithoutMemoryLendsNullAndDescribesItself) {
  const FailingAllocation failure(1);
  CMemoryBlock block(100);
  EXPECT_TRUE(failure.Happened());
  EXPECT_EQ(nullptr, block.AllocPtr());
  EXPECT_FALSE(block.BoundaryOverflow());
  block.ResetBoundary();
  EXPECT_EQ(nullptr, block.Ptr(nullptr));
  block.Reset();
  EXPECT_EQ("100", Field(block.ToString(), "BlockSize"));
  EXPECT_EQ("\"\"", Field(block.ToString(), "TailBoundary"));
}

TEST(MemoryBlockTest, SizeThatLeavesNoRoomForTheGuardsIsAFailedAllocation) {
  if (sizeof(std::size_t) > sizeof(unsigned int)) {
    EXPECT_EQ(nullptr, CMemoryBlock(0).Ptr(nullptr));  // there is always room on 64-bit systems
    return;
  }
  for (const unsigned int size : {0xFFFFFFF8u, 0xFFFFFFFFu}) {
    EXPECT_EQ(nullptr, CMemoryBlock(size).AllocPtr()) << size;
  }
}

TEST(MemoryBlockDeathTest, LendingALentBlockAborts) {
  CMemoryBlock block(8);
  block.Ptr(nullptr);
  EXPECT_DEATH(block.Ptr(nullptr),
               "\\.\\./memory_block\\.cpp: ?25: char\\* qiv::CMemoryBlock::Ptr\\(QIV_HANDLE\\): "
               "Assertion `!m_bUsed' failed\\.");
}

TEST(MemoryBlockDeathTest, TakingBackABlockThatIsNotLentAborts) {
  CMemoryBlock block(8);
  EXPECT_DEATH(block.Reset(),
               "\\.\\./memory_block\\.cpp: ?37: void qiv::CMemoryBlock::Reset\\(\\): "
               "Assertion `m_bUsed' failed\\.");
}

TEST(MemoryBlockDeathTest, AskingALentBlockForItsIdleTimeAborts) {
  CMemoryBlock block(8);
  block.Ptr(nullptr);
  EXPECT_DEATH(block.TimeOffset(0),
               "\\.\\./memory_block\\.cpp: ?71: qiv_int64 "
               "qiv::CMemoryBlock::TimeOffset\\(qiv_uint64\\) const: "
               "Assertion `!m_bUsed' failed\\.");
}

}  // namespace
}  // namespace qiv::test
