#include <fcntl.h>
#include <qiv/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

#include "support/no_descriptor_limit.h"
#include "sys/file_fixture.h"

namespace {

constexpr unsigned int kOwnerReadWrite = 0x600;

class FileTest : public qiv::test::FileFixture {
 protected:
  int Open(const std::string& name, unsigned int flags) const {
    return QIV_OpenFile(In(name).c_str(), flags, kOwnerReadWrite);
  }
};

struct FlagRow {
  unsigned int flags;
  int platformFlags;
};

// Flags that fcntl() tells of an open file.
constexpr int kVisible = O_ACCMODE | O_APPEND | O_DIRECT;

TEST_F(FileTest, AccessAndStatusFlagsBecomeThoseOfThePlatform) {
  const FlagRow rows[] = {
      {0x1, O_RDONLY},
      {0x2, O_WRONLY},
      {0x3, O_RDWR},
      {0x2 | 0x8, O_WRONLY | O_APPEND},
      {0x3 | 0x8, O_RDWR | O_APPEND},
      {0x1 | 0x20 | 0x80 | 0x100 | 0x200 | 0x400 | 0xFFFFF000u, O_RDONLY},
  };
  MakeFile("file", "text");
  for (const FlagRow& row : rows) {
    const int file = Open("file", row.flags);
    ASSERT_NE(-1, file) << row.flags;
    EXPECT_EQ(row.platformFlags, fcntl(file, F_GETFL) & kVisible) << row.flags;
    EXPECT_EQ(0, fcntl(file, F_GETFD) & FD_CLOEXEC) << "kept: programs executed inherit it";
    QIV_CloseFile(file);
  }
  EXPECT_EQ("text", qiv::test::ReadTextFile(In("file")));
}

TEST_F(FileTest, DirectFlagGivesWhatThePlatformGives) {
  MakeFile("file", "text");
  const int plain = open(In("file").c_str(), O_RDONLY | O_DIRECT);
  const int file = Open("file", 0x1 | 0x800);
  ASSERT_EQ(plain == -1, file == -1);
  if (file != -1) {
    EXPECT_EQ(O_DIRECT, fcntl(file, F_GETFL) & O_DIRECT);
  }
  QIV_CloseFile(file);
  QIV_CloseFile(plain);
}

TEST_F(FileTest, WithoutReadAndWriteNothingIsOpenedOrCreated) {
  for (const unsigned int flags : {0x0u, 0x4u, 0x44u, 0x10u, 0x81Cu, ~0x3u}) {
    EXPECT_EQ(-1, QIV_OpenFile(In("new").c_str(), flags, 0x600)) << flags;
  }
  EXPECT_FALSE(Exists(In("new")));
}

TEST_F(FileTest, OpeningRefusesNullAndWhatThePlatformRefuses) {
  EXPECT_EQ(-1, QIV_OpenFile(nullptr, 0x1, 0x600));
  EXPECT_EQ(-1, Open("missing", 0x3));
  EXPECT_EQ(ENOENT, errno);
  const std::string path = MakeFile("file", "");
  const qiv::test::NoDescriptorLimit none;
  EXPECT_EQ(-1, QIV_OpenFile(path.c_str(), 0x1, 0));
  EXPECT_EQ(EMFILE, errno);
}

TEST_F(FileTest, CreateOpensWhatExistsAndExclusiveRefusesIt) {
  QIV_CloseFile(Open("file", 0x2 | 0x4 | 0x40));
  EXPECT_TRUE(Exists(In("file")));
  EXPECT_EQ(-1, Open("file", 0x2 | 0x4 | 0x40));
  EXPECT_EQ(EEXIST, errno);
  const int file = Open("file", 0x2 | 0x4);
  EXPECT_NE(-1, file);
  QIV_CloseFile(file);
}

TEST_F(FileTest, ExclusiveWithoutCreateIsIgnored) {
  MakeFile("file", "");
  const int file = Open("file", 0x1 | 0x40);
  EXPECT_NE(-1, file);
  QIV_CloseFile(file);
  EXPECT_EQ(-1, Open("missing", 0x1 | 0x40));
  EXPECT_FALSE(Exists(In("missing")));
}

TEST_F(FileTest, TruncateEmptiesAndWithoutItTheContentStays) {
  MakeFile("file", "text");
  QIV_CloseFile(Open("file", 0x2 | 0x4));
  EXPECT_EQ("text", qiv::test::ReadTextFile(In("file")));
  QIV_CloseFile(Open("file", 0x2 | 0x10));
  EXPECT_EQ("", qiv::test::ReadTextFile(In("file")));
}

TEST_F(FileTest, TruncateEmptiesAFileOpenedForReadingToo) {
  MakeFile("file", "text");
  const int file = Open("file", 0x1 | 0x10);
  EXPECT_NE(-1, file);
  QIV_CloseFile(file);
  EXPECT_EQ("", qiv::test::ReadTextFile(In("file")));
}

TEST_F(FileTest, AppendWritesAtTheEndWhateverThePosition) {
  MakeFile("file", "text");
  const int file = Open("file", 0x2 | 0x8);
  EXPECT_EQ(0, QIV_FileSeek(file, 0, SEEK_SET, nullptr));
  EXPECT_EQ(0, QIV_WriteFile(file, "more", 4, nullptr));
  QIV_CloseFile(file);
  EXPECT_EQ("textmore", qiv::test::ReadTextFile(In("file")));
}

struct CreationRow {
  unsigned int permissions;
  mode_t mode;
};

TEST_F(FileTest, NewFilesHaveTheModeOfTheirPermissionBits) {
  const CreationRow rows[] = {
      {0, 0400},      {0x400, 0400},  {0x200, 0600},   {0x100, 0500},  {0x40, 0440},
      {0x20, 0420},   {0x10, 0410},   {0x4, 0404},     {0x2, 0402},    {0x1, 0401},
      {0x777, 0777},  {0x644, 0644},  {0x8755, 04755}, {0x4000, 0500}, {0x2000, 0600},
      {0x1000, 0400}, {0x1777, 0400}, {0xF777, 0400},  {0x7000, 0400}, {8192, 0600},
  };
  for (const CreationRow& row : rows) {
    const std::string path = In(std::to_string(row.permissions));
    const int file = QIV_OpenFile(path.c_str(), 0x2 | 0x4, row.permissions);
    ASSERT_NE(-1, file);
    QIV_CloseFile(file);
    EXPECT_EQ(row.mode, ModeOf(path) & 07777) << std::hex << row.permissions;
    QIV_DeleteFile(path.c_str());
  }
}

TEST_F(FileTest, UmaskTakesPermissionsFromANewFile) {
  umask(077);
  QIV_CloseFile(QIV_OpenFile(In("file").c_str(), 0x2 | 0x4, 0x777));
  EXPECT_EQ(0700u, ModeOf(In("file")) & 07777);
}

int CountOfRead(int file, char* buffer, unsigned int length) {
  int count = 99;
  EXPECT_EQ(0, QIV_ReadFile(file, buffer, length, &count));
  return count;
}

int CountOfWrite(int file, const char* buffer, unsigned int length) {
  int count = 99;
  EXPECT_EQ(0, QIV_WriteFile(file, buffer, length, &count));
  return count;
}

TEST_F(FileTest, WritesReadBackThroughTheSharedPosition) {
  const int file = Open("file", 0x3 | 0x4);
  EXPECT_EQ(10, CountOfWrite(file, "0123456789", 10));
  EXPECT_EQ(0, QIV_FileSeek(file, 4, SEEK_SET, nullptr));
  char buffer[16] = {};
  EXPECT_EQ(6, CountOfRead(file, buffer, sizeof buffer));
  EXPECT_STREQ("456789", buffer);
  EXPECT_EQ(0, CountOfRead(file, buffer, sizeof buffer)) << "the end of the file";
  EXPECT_EQ(0, CountOfWrite(file, buffer, 0));
  EXPECT_EQ(0, QIV_ReadFile(file, buffer, 0, nullptr));
  QIV_CloseFile(file);
}

void ExpectReadIsRefused(int file, char* buffer, unsigned int length) {
  int count = 99;
  EXPECT_EQ(-1, QIV_ReadFile(file, buffer, length, &count));
  EXPECT_EQ(-1, count);
  EXPECT_EQ(-1, QIV_ReadFile(file, buffer, length, nullptr));
}

void ExpectWriteIsRefused(int file, const char* buffer, unsigned int length) {
  int count = 99;
  EXPECT_EQ(-1, QIV_WriteFile(file, buffer, length, &count));
  EXPECT_EQ(-1, count);
  EXPECT_EQ(-1, QIV_WriteFile(file, buffer, length, nullptr));
}

TEST_F(FileTest, RefusedTransfersGiveACountOfMinusOne) {
  const int file = QIV_OpenFile(MakeFile("file", "text").c_str(), 0x3, 0);
  char buffer[4] = "abc";
  ExpectReadIsRefused(-1, buffer, 3);
  ExpectWriteIsRefused(-1, buffer, 3);
  ExpectReadIsRefused(file, nullptr, 3);
  ExpectWriteIsRefused(file, nullptr, 3);
  EXPECT_STREQ("abc", buffer);
  QIV_CloseFile(file);
}

TEST_F(FileTest, TransfersThatThePlatformRefusesGiveACountOfMinusOne) {
  const int readOnly = QIV_OpenFile(MakeFile("file", "text").c_str(), 0x1, 0);
  const int writeOnly = Open("file", 0x2);
  char buffer[4] = "abc";
  ExpectWriteIsRefused(readOnly, buffer, 3);
  EXPECT_EQ(EBADF, errno);
  errno = 0;
  ExpectReadIsRefused(writeOnly, buffer, 3);
  EXPECT_EQ(EBADF, errno);
  QIV_CloseFile(readOnly);
  QIV_CloseFile(writeOnly);
}

TEST_F(FileTest, NegativeLengthIsRefusedBeforeItReachesTheBuffer) {
  const int file = QIV_OpenFile(MakeFile("file", "0123456789").c_str(), 0x3, 0);
  char buffer[4] = "abc";
  for (const unsigned int length : {INT_MAX + 1u, static_cast<unsigned int>(-1)}) {
    errno = 0;
    ExpectReadIsRefused(file, buffer, length);
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    ExpectWriteIsRefused(file, buffer, length);
    EXPECT_EQ(EINVAL, errno);
  }
  EXPECT_STREQ("abc", buffer);
  QIV_CloseFile(file);
  EXPECT_EQ("0123456789", qiv::test::ReadTextFile(In("file")));
}

struct SeekRow {
  qiv_int64 offset;
  int origin;
  int result;
  qiv_int64 position;
};

TEST_F(FileTest, SeekReportsThePositionOrFails) {
  constexpr qiv_int64 kUntouched = 777;
  const SeekRow rows[] = {
      {4, SEEK_SET, 0, 4},
      {3, SEEK_CUR, 0, 7},
      {-7, SEEK_CUR, 0, 0},
      {-1, SEEK_CUR, -1, kUntouched},
      {0, SEEK_END, 0, 10},
      {-10, SEEK_END, 0, 0},
      {5, SEEK_END, 0, 15},
      {0, 999, -1, kUntouched},
      {-5, SEEK_SET, -1, kUntouched},
      {0xFFFFFFFF, SEEK_SET, 0, 0xFFFFFFFF},
      {0x1FFFFFFFF, SEEK_SET, 0, 0x1FFFFFFFF},
  };
  const int file = QIV_OpenFile(MakeFile("file", "0123456789").c_str(), 0x1, 0);
  for (const SeekRow& row : rows) {
    qiv_int64 position = kUntouched;
    EXPECT_EQ(row.result, QIV_FileSeek(file, row.offset, row.origin, &position)) << row.offset;
    EXPECT_EQ(row.position, position) << row.offset;
  }
  qiv_int64 position = kUntouched;
  EXPECT_EQ(-1, QIV_FileSeek(-1, 0, SEEK_SET, &position));
  EXPECT_EQ(kUntouched, position);
  QIV_CloseFile(file);
}

TEST_F(FileTest, SeekFailsWithMinusOneOnlyAndNotWithOtherNegativePositions) {
  // The one kind of file whose position may be negative: the upper half of an address space.
  const int memory = QIV_OpenFile("/proc/self/mem", 0x1, 0);
  ASSERT_NE(-1, memory);
  qiv_int64 position = 777;
  EXPECT_EQ(0, QIV_FileSeek(memory, -4096, SEEK_SET, &position));
  EXPECT_EQ(-4096, position);
  EXPECT_EQ(-1, QIV_FileSeek(memory, -1, SEEK_SET, &position));
  EXPECT_EQ(-4096, position);
  QIV_CloseFile(memory);
}

TEST_F(FileTest, FilesBeyondFourGibibytesWork) {
  constexpr qiv_int64 kFar = 5LL * 1024 * 1024 * 1024;
  const int file = Open("file", 0x3 | 0x4);
  ASSERT_EQ(0, QIV_FileSeek(file, kFar, SEEK_SET, nullptr));
  ASSERT_EQ(0, QIV_WriteFile(file, "x", 1, nullptr));
  qiv_int64 position = 0;
  EXPECT_EQ(0, QIV_FileSeek(file, 0, SEEK_CUR, &position));
  EXPECT_EQ(kFar + 1, position);
  QIV_FILE_STAT status = {};
  EXPECT_EQ(0, QIV_FileStat(file, &status));
  EXPECT_EQ(kFar + 1, status.llSize);
  QIV_CloseFile(file);
  const int again = Open("file", 0x1);
  EXPECT_NE(-1, again) << "it can be opened at that size";
  QIV_CloseFile(again);
}

TEST_F(FileTest, EndOfFileIsKeptTrueForAnyDescriptor) {
  const int file = QIV_OpenFile(MakeFile("file", "text").c_str(), 0x1, 0);
  for (const int descriptor : {file, -1, 0, 12345, INT_MIN, INT_MAX}) {
    EXPECT_EQ(1, QIV_FileIsEOF(descriptor));
  }
  QIV_CloseFile(file);
}

TEST_F(FileTest, ClosingAndFlushingMinusOneTouchesNoErrno) {
  errno = 123;
  QIV_CloseFile(-1);
  QIV_FileFlush(-1);
  EXPECT_EQ(123, errno);
}

TEST_F(FileTest, CloseGivesTheDescriptorBack) {
  const int file = QIV_OpenFile(MakeFile("file", "text").c_str(), 0x1, 0);
  QIV_CloseFile(file);
  EXPECT_EQ(-1, fcntl(file, F_GETFD));
}

TEST_F(FileTest, FlushReachesThePlatform) {
  const int file = Open("file", 0x2 | 0x4);
  errno = 0;
  QIV_FileFlush(file);
  EXPECT_EQ(0, errno);
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  QIV_FileFlush(ends[0]);
  EXPECT_EQ(EINVAL, errno) << "a pipe has no device";
  close(ends[0]);
  close(ends[1]);
  QIV_CloseFile(file);
}

}  // namespace
