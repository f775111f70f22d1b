#include <gtest/gtest.h>
#include <qiv/system.h>

#include <climits>
#include <string>

#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/text_stream.h"
#include "sys/proc_files.h"

namespace {

class MemoryStatusTest : public qiv::test::LeakCheckedTest {};

struct MemoryRow {
  const char* name;
  const char* text;
  bool result;
  qiv_uint64 totalPhys;
  qiv_uint64 availPhys;
  qiv_uint64 totalSwap;
  qiv_uint64 availSwap;
};

void ExpectStatus(const MemoryRow& row) {
  const qiv::test::TextStream meminfo(row.text);
  QIV_MEMORY_STATUS_T status = {};
  EXPECT_EQ(row.result, qiv::ReadMemory(meminfo.Get(), &status)) << row.name;
  EXPECT_EQ(row.totalPhys * 1024, status.ullTotalPhys) << row.name;
  EXPECT_EQ(row.availPhys * 1024, status.ullAvailPhys) << row.name;
  EXPECT_EQ(row.totalSwap * 1024, status.ullTotalSwap) << row.name;
  EXPECT_EQ(row.availSwap * 1024, status.ullAvailSwap) << row.name;
}

TEST_F(MemoryStatusTest, FiguresOfTheFileFillTheRecord) {
  const MemoryRow rows[] = {
      {"estimate above the free memory",
       "MemTotal:       1000 kB\nMemFree:         100 kB\nMemAvailable:    500 kB\n"
       "Buffers:          10 kB\nCached:           20 kB\nSwapCached:        1 kB\n"
       "SwapTotal:        50 kB\nSwapFree:         40 kB\n",
       true, 1000, 500, 50, 40},
      {"kernel without an estimate",
       "MemTotal: 1000 kB\nMemFree: 100 kB\nBuffers: 10 kB\nCached: 20 kB\nSwapCached: 7 kB\n"
       "SwapTotal: 50 kB\nSwapFree: 40 kB\n",
       true, 1000, 130, 50, 40},
      {"estimate equal to the free memory",
       "MemTotal: 1000 kB\nMemFree: 100 kB\nMemAvailable: 100 kB\nBuffers: 10 kB\nCached: 20 kB\n"
       "SwapTotal: 50 kB\nSwapFree: 40 kB\n",
       true, 1000, 130, 50, 40},
      {"estimate in front of the free memory",
       "MemTotal: 1000 kB\nMemAvailable: 500 kB\nMemFree: 100 kB\nSwapTotal: 0 kB\nSwapFree: 0 "
       "kB\n",
       true, 1000, 500, 0, 0},
      {"buffers and cache missing",
       "MemTotal: 1000 kB\nMemFree: 100 kB\nSwapTotal: 5 kB\nSwapFree: 4 kB\n", true, 1000, 100, 5,
       4},
      {"reading stops once the totals were seen",
       "SwapFree: 4 kB\nSwapTotal: 5 kB\nMemFree: 100 kB\nMemTotal: 1000 kB\nBuffers: 10 kB\n",
       true, 1000, 100, 5, 4},
      {"other keys that end alike",
       "XMemTotal: 1 kB\nMemTotal: 1000 kB\nMemFree: 100 kB\nSwapCached: 9 kB\nSwapTotal: 5 kB\n"
       "SwapFreeX: 1 kB\nSwapFree: 4 kB\n",
       true, 1000, 100, 5, 4},
      {"file ends after the swap space", "MemTotal: 1000 kB\nMemFree: 100 kB\nSwapTotal: 50 kB\n",
       false, 1000, 0, 50, 0},
      {"line cut off in front of its number",
       "MemTotal: 1000 kB\nSwapTotal: 50 kB\nSwapFree:", false, 1000, 0, 50, 0},
      {"number that is none", "MemTotal: x kB\nSwapTotal: 5 kB\nSwapFree: 4 kB\n", false, 0, 0, 5,
       4},
      {"empty file", "", false, 0, 0, 0, 0},
  };
  for (const MemoryRow& row : rows) ExpectStatus(row);
}

TEST_F(MemoryStatusTest, FiguresBeyond32BitsAreReadWhole) {
  const qiv::test::TextStream meminfo(
      "MemTotal: 18014398509481983 kB\nMemFree: 4294967296 kB\nSwapTotal: 0 kB\nSwapFree: 0 kB\n");
  QIV_MEMORY_STATUS_T status = {};
  ASSERT_TRUE(qiv::ReadMemory(meminfo.Get(), &status));
  EXPECT_EQ(ULLONG_MAX - 1023, status.ullTotalPhys);
  EXPECT_EQ(4398046511104u, status.ullAvailPhys);
}

TEST_F(MemoryStatusTest, NullIsRefused) { EXPECT_EQ(-1, QIV_GetMemoryStatus(nullptr)); }

TEST_F(MemoryStatusTest, SnapshotNeedsNoMemoryOfTheProgramsAllocator) {
  QIV_MEMORY_STATUS_T status = {};
  const qiv::test::FailingAllocation failing(1, qiv::test::FailingFor::kEver);
  const int result = QIV_GetMemoryStatus(&status);
  EXPECT_FALSE(failing.Happened());
  EXPECT_EQ(0, result);
}

TEST_F(MemoryStatusTest, SnapshotIsPlausibleAndReservedFieldsAreZero) {
  QIV_MEMORY_STATUS_T status = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(0, QIV_GetMemoryStatus(&status));
  EXPECT_GT(status.ullTotalPhys, 0u);
  EXPECT_GT(status.ullAvailPhys, 0u);
  EXPECT_LE(status.ullAvailPhys, status.ullTotalPhys);
  EXPECT_LE(status.ullAvailSwap, status.ullTotalSwap);
  EXPECT_EQ(0u, status.ullReserved1);
  EXPECT_EQ(0u, status.ullReserved2);
}

TEST(ZeroMemoryTest, OnlyTheGivenBytesAreCleared) {
  char bytes[] = "abcdef";
  QIV_ZeroMemory(bytes + 1, 2);
  EXPECT_EQ(std::string("a\0\0def", 6), std::string(bytes, 6));
  QIV_ZeroMemory(bytes, 0);
  EXPECT_EQ('a', bytes[0]);
}

TEST(ZeroMemoryTest, NullIsSafe) { QIV_ZeroMemory(nullptr, 100); }

}  // namespace
