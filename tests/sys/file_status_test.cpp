#include "sys/file_status.h"

#include <gtest/gtest.h>
#include <sys/sysmacros.h>

#include <climits>
#include <cstring>

namespace {

struct TypeRow {
  mode_t mode;
  unsigned int type;
};

TEST(FileTypeTest, EveryTypeHasItsCode) {
  const TypeRow rows[] = {
      {S_IFREG, 512}, {S_IFDIR, 256}, {S_IFCHR, 1},   {S_IFBLK, 128},
      {S_IFIFO, 32},  {S_IFLNK, 64},  {S_IFSOCK, 16}, {0, 8},
  };
  for (const TypeRow& row : rows) {
    EXPECT_EQ(row.type, qiv::FileType(row.mode)) << std::oct << row.mode;
    EXPECT_EQ(row.type, qiv::FileType(row.mode | 07777)) << "permissions do not matter";
  }
  EXPECT_EQ(8u, qiv::FileType(S_IFMT));
}

struct PermissionRow {
  unsigned int bit;
  mode_t reportedFor;
  mode_t created;
};

// The last three rows are kept: their two directions differ.
constexpr PermissionRow kPermissionRows[] = {
    {0x400, 0400, 0400}, {0x200, 0200, 0600},    {0x100, 0100, 0500},   {0x40, 0040, 0440},
    {0x20, 0020, 0420},  {0x10, 0010, 0410},     {0x4, 0004, 0404},     {0x2, 0002, 0402},
    {0x1, 0001, 0401},   {0x8000, 04000, 04400}, {0x4000, 02000, 0500}, {0x2000, 0, 0600},
    {0x1000, 0, 0400},
};

TEST(FilePermissionTest, EveryBitIsReportedForItsModeAlone) {
  for (const PermissionRow& row : kPermissionRows) {
    if (row.reportedFor == 0) continue;
    EXPECT_EQ(row.bit, qiv::ReportedPermissions(row.reportedFor)) << std::hex << row.bit;
    EXPECT_EQ(row.bit, qiv::ReportedPermissions(S_IFREG | row.reportedFor)) << "with a type";
  }
}

TEST(FilePermissionTest, EveryModeIsReportedAsTheSumOfItsBits) {
  for (mode_t mode = 0; mode <= 07777; ++mode) {
    unsigned int expected = 0;
    for (const PermissionRow& row : kPermissionRows) {
      if ((mode & row.reportedFor) != 0) expected |= row.bit;
    }
    ASSERT_EQ(expected, qiv::ReportedPermissions(mode)) << std::oct << mode;
  }
  EXPECT_EQ(0u, qiv::ReportedPermissions(01000)) << "the sticky bit has no code";
}

TEST(FilePermissionTest, EveryBitCreatesItsModeTogetherWithOwnerRead) {
  EXPECT_EQ(0400u, qiv::CreationMode(0));
  for (const PermissionRow& row : kPermissionRows) {
    EXPECT_EQ(row.created, qiv::CreationMode(row.bit)) << std::hex << row.bit;
  }
}

TEST(FilePermissionTest, EveryCombinationCreatesTheSumOfItsBits) {
  for (unsigned int bits = 0; bits <= 0xFFFF; ++bits) {
    mode_t expected = 0400;
    for (const PermissionRow& row : kPermissionRows) {
      if ((bits & row.bit) != 0) expected |= row.created;
    }
    if ((bits & 0x1000) != 0) expected = 0400;
    ASSERT_EQ(expected, qiv::CreationMode(bits)) << std::hex << bits;
  }
  EXPECT_EQ(0400u, qiv::CreationMode(0xFFFF0000u)) << "unknown bits are ignored";
}

timespec TimeOf(qiv_int64 seconds, long nanoseconds) {
  timespec time = {};
  time.tv_sec = static_cast<time_t>(seconds);
  time.tv_nsec = nanoseconds;
  return time;
}

TEST(FileTimeTest, TimesAreMicrosecondsSince1970) {
  EXPECT_EQ(0, qiv::Microseconds(TimeOf(0, 0)));
  EXPECT_EQ(1500000000123456, qiv::Microseconds(TimeOf(1500000000, 123456789)));
  EXPECT_EQ(2147483647999999, qiv::Microseconds(TimeOf(2147483647, 999999999)));
  EXPECT_EQ(-1500000, qiv::Microseconds(TimeOf(-2, 500000000))) << "before 1970";
}

struct FarTimeRow {
  qiv_int64 seconds;
  QIV_TIME_T microseconds;
};

TEST(FileTimeTest, TimesBeyond64BitsGiveTheNearest) {
  constexpr qiv_int64 kMostSeconds = LLONG_MAX / 1000000;
  const FarTimeRow rows[] = {
      {INT_MAX, INT_MAX * 1000000LL},
      {INT_MIN, INT_MIN * 1000000LL},
      {kMostSeconds - 1, (kMostSeconds - 1) * 1000000},
      {kMostSeconds, LLONG_MAX},
      {LLONG_MAX, LLONG_MAX},
      {LLONG_MIN, LLONG_MIN},
  };
  for (const FarTimeRow& row : rows) {
    const timespec time = TimeOf(row.seconds, 0);
    if (time.tv_sec != row.seconds) continue;  // beyond the platform's own width
    EXPECT_EQ(row.microseconds, qiv::Microseconds(time)) << row.seconds;
  }
}

struct stat SampleStatus() {
  struct stat status = {};
  status.st_mode = S_IFCHR | S_ISUID | 0640;
  status.st_uid = 4000000001u;
  status.st_gid = 1002;
  status.st_rdev = makedev(4, 3);
  status.st_nlink = 7;
  status.st_ino = 0xFEDCBA9876543210u;
  status.st_size = 0x123456789ABCDEF0;
  status.st_atim = TimeOf(-3, 250000000);
  status.st_ctim = TimeOf(1500000002, 2000);
  status.st_mtim = TimeOf(1500000003, 3999);
  return status;
}

TEST(FileRecordTest, StatusHasSecondsAndTheWholeInode) {
  // Sixteen words that are not aligned for more than 32 bits.
  unsigned int words[18];
  std::memset(words, 0xAB, sizeof words);
  qiv::PutStatus(SampleStatus(), reinterpret_cast<QIV_FILE_STAT*>(&words[1]));
  const unsigned int expected[18] = {
      0xABABABABu, 1,           4000000001u, 1002,        0x8640u,     0x403,
      7,           0x76543210u, 0xFEDCBA98u, 0x9ABCDEF0u, 0x12345678u, 0xFFFFFFFDu,
      0xFFFFFFFFu, 1500000002,  0,           1500000003,  0,           0xABABABABu,
  };
  for (int i = 0; i < 18; ++i) EXPECT_EQ(expected[i], words[i]) << i;
}

TEST(FileRecordTest, EntryHasMicrosecondsAndKeepsTheHighHalfOfTheInodeZero) {
  _FILE_FIND_INFO info = {};
  std::strcpy(info.szName, "name");
  qiv::PutStatus(SampleStatus(), &info);
  EXPECT_STREQ("name", info.szName);
  EXPECT_EQ(1u, info.dwType);
  EXPECT_EQ(4000000001u, info.dwUserId);
  EXPECT_EQ(1002u, info.dwGroupId);
  EXPECT_EQ(0x8640u, info.dwPermissions);
  EXPECT_EQ(0x403u, info.dwDevice);
  EXPECT_EQ(7u, info.dwLinks);
  EXPECT_EQ(0x76543210u, info.ullInode);
  EXPECT_EQ(0x123456789ABCDEF0, info.llSize);
  EXPECT_EQ(-2750000, info.llAccessTime);
  EXPECT_EQ(1500000002000002, info.llChangeTime);
  EXPECT_EQ(1500000003000003, info.llModifyTime);
}

}  // namespace
