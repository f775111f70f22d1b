#include <gtest/gtest.h>
#include <qiv/system.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "support/failing_allocation.h"
#include "support/leak_check.h"
#include "support/text_stream.h"
#include "sys/proc_files.h"

namespace {

constexpr qiv_uint64 kNotWritten = 0xABABABABABABABABull;

class CpuTest : public qiv::test::LeakCheckedTest {
 protected:
  static std::vector<QIV_CPU_STAT_T> Records(std::size_t count) {
    std::vector<QIV_CPU_STAT_T> records(count);
    std::memset(records.data(), 0xAB, count * sizeof(QIV_CPU_STAT_T));
    return records;
  }
};

bool Read(const std::string& text, std::vector<QIV_CPU_STAT_T>* records) {
  const qiv::test::TextStream stat(text);
  return qiv::ReadProcessors(stat.Get(), static_cast<unsigned int>(records->size()),
                             records->data());
}

std::string Line(unsigned int number, unsigned int user) {
  return "cpu" + std::to_string(number) + " " + std::to_string(user) + " 2 3 4 5 6 7 8 9 10\n";
}

TEST_F(CpuTest, CountersOfALineFillItsRecord) {
  auto records = Records(1);
  ASSERT_TRUE(
      Read("cpu  9 9 9 9 9 9 9\ncpu0 1 20 300 4000 50000 600000 7000000 8 9 10\n", &records));
  EXPECT_EQ(4000u, records[0].ullIdle);
  EXPECT_EQ(300u, records[0].ullSystem);
  EXPECT_EQ(21u, records[0].ullUser);
  EXPECT_EQ(54000u, records[0].ullIdleAll);
  EXPECT_EQ(7600000u, records[0].ullIrq);
  EXPECT_EQ(kNotWritten, records[0].ullReserved1);
  EXPECT_EQ(kNotWritten, records[0].ullReserved2);
}

TEST_F(CpuTest, TwelveProcessorsAreToldApart) {
  std::string text = "cpu  1 2 3 4 5 6 7\n";
  for (unsigned int i = 0; i < 12; ++i) text += Line(i, 100 * i);
  auto records = Records(12);
  ASSERT_TRUE(Read(text + "intr 1 2 3\n", &records));
  for (unsigned int i = 0; i < 12; ++i) {
    EXPECT_EQ(100 * i + 2, records[i].ullUser) << i;
    EXPECT_EQ(4u, records[i].ullIdle) << i;
  }
}

TEST_F(CpuTest, All64BitsAreReadAndLargerNumbersGiveTheLargest) {
  auto records = Records(1);
  ASSERT_TRUE(
      Read("cpu\ncpu0 0 0 18446744073709551615 18446744073709551616 0 4294967296 1\n", &records));
  EXPECT_EQ(ULLONG_MAX, records[0].ullSystem);
  EXPECT_EQ(ULLONG_MAX, records[0].ullIdle);
  EXPECT_EQ(4294967297u, records[0].ullIrq);
}

TEST_F(CpuTest, RecordsFollowTheLinesWhenAProcessorIsOffline) {
  auto records = Records(3);
  ASSERT_TRUE(
      Read("cpu  1 2 3 4 5 6 7\n" + Line(0, 10) + Line(2, 20) + "intr 5 6 7\nctxt 8\n", &records));
  EXPECT_EQ(12u, records[0].ullUser);
  EXPECT_EQ(22u, records[1].ullUser);
  EXPECT_EQ(0u, records[2].ullUser);
  EXPECT_EQ(0u, records[2].ullIdle);
}

TEST_F(CpuTest, ProcessorNumberIsKeptOneDigitLongOnTheFirstTenLines) {
  auto records = Records(1);
  ASSERT_TRUE(Read("cpu  1 2 3 4 5 6 7\ncpu17 1 2 3 4 5 6 7\n", &records));
  EXPECT_EQ(7u + 1u, records[0].ullUser);
  EXPECT_EQ(3u, records[0].ullIdle);
}

TEST_F(CpuTest, MissingColumnsAreZero) {
  auto records = Records(1);
  ASSERT_TRUE(Read("cpu  1 2 3 4\ncpu0 1 2 3 4", &records));
  EXPECT_EQ(3u, records[0].ullUser);
  EXPECT_EQ(4u, records[0].ullIdleAll);
  EXPECT_EQ(0u, records[0].ullIrq);
}

TEST_F(CpuTest, FileThatEndsTooEarlyFailsWithTheRecordsReadSoFar) {
  auto records = Records(2);
  EXPECT_FALSE(Read("cpu  1 2 3 4 5 6 7\n" + Line(0, 10), &records));
  EXPECT_EQ(12u, records[0].ullUser);
  EXPECT_EQ(kNotWritten, records[1].ullUser);
  EXPECT_FALSE(Read("cpu  1 2 3 4 5 6 7\n", &records));
  EXPECT_FALSE(Read("", &records));
}

TEST_F(CpuTest, LinesOfRubbishGiveZeros) {
  for (const char* line : {"cpu", "cpuX 1 2", "\n", "cpu0", "cpu0 x", "cpu0 -1", "cp"}) {
    auto records = Records(1);
    ASSERT_TRUE(Read(std::string("cpu\n") + line + "\n", &records)) << line;
    EXPECT_EQ(0u, records[0].ullUser) << line;
  }
}

TEST_F(CpuTest, NumberIsThatOfConfiguredProcessors) {
  EXPECT_EQ(sysconf(_SC_NPROCESSORS_CONF), QIV_GetCPUNumber());
}

unsigned int Needed() { return 56u * static_cast<unsigned int>(QIV_GetCPUNumber()); }

TEST_F(CpuTest, SizeTooSmallFailsAndReportsTheSize) {
  auto records = Records(static_cast<std::size_t>(QIV_GetCPUNumber()));
  for (const unsigned int given : {0u, Needed() - 1}) {
    unsigned int size = given;
    EXPECT_EQ(-1, QIV_GetCPUPerformance(records.data(), &size));
    EXPECT_EQ(Needed(), size);
    EXPECT_EQ(kNotWritten, records[0].ullIdle);
  }
}

TEST_F(CpuTest, NullPointersAreRefused) {
  QIV_CPU_STAT_T record = {};
  EXPECT_EQ(-1, QIV_GetCPUPerformance(&record, nullptr));
  unsigned int size = UINT_MAX;
  EXPECT_EQ(-1, QIV_GetCPUPerformance(nullptr, &size));
  EXPECT_EQ(Needed(), size);
}

TEST_F(CpuTest, SnapshotNeedsNoMemoryOfTheProgramsAllocator) {
  auto records = Records(static_cast<std::size_t>(QIV_GetCPUNumber()));
  unsigned int size = Needed();
  const qiv::test::FailingAllocation failing(1, qiv::test::FailingFor::kEver);
  const int result = QIV_GetCPUPerformance(records.data(), &size);
  EXPECT_FALSE(failing.Happened());
  EXPECT_EQ(0, result);
}

TEST_F(CpuTest, SnapshotFillsEveryProcessorAndReportsTheSize) {
  auto records = Records(static_cast<std::size_t>(QIV_GetCPUNumber()));
  unsigned int size = Needed() + 100;
  ASSERT_EQ(0, QIV_GetCPUPerformance(records.data(), &size));
  EXPECT_EQ(Needed(), size);
  qiv_uint64 total = 0;
  for (const QIV_CPU_STAT_T& record : records) {
    EXPECT_NE(kNotWritten, record.ullIdle);
    EXPECT_GE(record.ullIdleAll, record.ullIdle);
    total += record.ullUser + record.ullSystem + record.ullIdle;
  }
  EXPECT_GT(total, 0u);
}

}  // namespace
