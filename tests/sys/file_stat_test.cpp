// Status of open files, and names: delete, rename, access, directories made and removed.
#include <fcntl.h>
#include <qiv/file.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "sys/file_fixture.h"

namespace {

class FileStatTest : public qiv::test::FileFixture {};
class FileNameTest : public qiv::test::FileFixture {
 protected:
  // Without set-group-id, which a directory may inherit.
  static mode_t TypeAndAccessOf(const std::string& path) { return ModeOf(path) & (S_IFMT | 0777); }
};

unsigned int TypeOf(int file) {
  QIV_FILE_STAT status = {};
  EXPECT_EQ(0, QIV_FileStat(file, &status));
  return status.dwType;
}

TEST_F(FileStatTest, StatusIsThatOfThePlatformWithTimesInSeconds) {
  const std::string path = MakeFile("file", "twelve bytes");
  ASSERT_EQ(0, link(path.c_str(), In("other").c_str()));
  ASSERT_EQ(0, chmod(path.c_str(), 04751));
  const int file = QIV_OpenFile(path.c_str(), 0x1, 0);
  const timespec times[2] = {{1234567890, 999999999}, {987654321, 500000000}};
  ASSERT_EQ(0, futimens(file, times));
  struct stat expected = {};
  ASSERT_EQ(0, fstat(file, &expected));
  QIV_FILE_STAT status;
  ASSERT_EQ(0, QIV_FileStat(file, &status));
  EXPECT_EQ(512u, status.dwType);
  EXPECT_EQ(getuid(), status.dwUserId);
  EXPECT_EQ(expected.st_gid, status.dwGroupId);
  EXPECT_EQ(0x8751u, status.dwPermissions);
  EXPECT_EQ(0u, status.dwDevice);
  EXPECT_EQ(2u, status.dwLinks);
  EXPECT_EQ(expected.st_ino, status.ullInode);
  EXPECT_EQ(12, status.llSize);
  EXPECT_EQ(1234567890, status.llAccessTime);
  EXPECT_EQ(expected.st_ctime, status.llChangeTime);
  EXPECT_EQ(987654321, status.llModifyTime);
  QIV_CloseFile(file);
}

void ExpectTypeAndClose(unsigned int type, int file) {
  EXPECT_EQ(type, TypeOf(file));
  QIV_CloseFile(file);
}

TEST_F(FileStatTest, EveryKindOfDescriptorHasItsType) {
  ASSERT_EQ(0, symlink("nowhere", In("link").c_str()));
  int pipeEnds[2];
  int socketEnds[2];
  ASSERT_EQ(0, pipe(pipeEnds));
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, socketEnds));
  for (const int end : pipeEnds) ExpectTypeAndClose(32, end);
  for (const int end : socketEnds) ExpectTypeAndClose(16, end);
  ExpectTypeAndClose(256, open(DirectoryPath().c_str(), O_RDONLY));
  ExpectTypeAndClose(1, open("/dev/null", O_RDWR));
  ExpectTypeAndClose(64, open(In("link").c_str(), O_PATH | O_NOFOLLOW));
  ExpectTypeAndClose(8, eventfd(0, 0));
}

TEST_F(FileStatTest, DeviceFileHasItsNumber) {
  const int device = QIV_OpenFile("/dev/null", 0x1, 0);
  struct stat expected = {};
  ASSERT_EQ(0, fstat(device, &expected));
  QIV_FILE_STAT status = {};
  ASSERT_EQ(0, QIV_FileStat(device, &status));
  EXPECT_NE(0u, status.dwDevice);
  EXPECT_EQ(expected.st_rdev, status.dwDevice);
  QIV_CloseFile(device);
}

TEST_F(FileStatTest, RefusedStatusLeavesTheRecord) {
  QIV_FILE_STAT status = {};
  status.dwType = 77;
  EXPECT_EQ(-1, QIV_FileStat(-1, &status));
  EXPECT_EQ(-1, QIV_FileStat(0, nullptr));
  const int file = QIV_OpenFile(MakeFile("file", "").c_str(), 0x1, 0);
  QIV_CloseFile(file);
  EXPECT_EQ(-1, QIV_FileStat(file, &status));
  EXPECT_EQ(EBADF, errno);
  EXPECT_EQ(77u, status.dwType);
}

TEST_F(FileNameTest, NullIsRefused) {
  const std::string path = MakeFile("file", "");
  EXPECT_EQ(-1, QIV_DeleteFile(nullptr));
  EXPECT_EQ(-1, QIV_RenameFile(nullptr, In("new").c_str()));
  EXPECT_EQ(-1, QIV_RenameFile(path.c_str(), nullptr));
  EXPECT_EQ(-1, QIV_RenameFile(nullptr, nullptr));
  EXPECT_EQ(-1, QIV_AccessFile(nullptr, F_OK));
  EXPECT_EQ(-1, QIV_MakeDir(nullptr));
  EXPECT_EQ(-1, QIV_RemoveDir(nullptr));
  EXPECT_TRUE(Exists(path));
}

TEST_F(FileNameTest, DeleteRemovesAFileOnce) {
  const std::string path = MakeFile("file", "text");
  EXPECT_EQ(0, QIV_DeleteFile(path.c_str()));
  EXPECT_FALSE(Exists(path));
  EXPECT_EQ(-1, QIV_DeleteFile(path.c_str()));
  EXPECT_EQ(ENOENT, errno);
}

TEST_F(FileNameTest, DeleteAndRemoveDirectoryAreKeptAlike) {
  ASSERT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  EXPECT_EQ(0, QIV_DeleteFile(In("directory").c_str())) << "an empty directory";
  EXPECT_EQ(0, QIV_RemoveDir(MakeFile("file", "text").c_str())) << "a file";
  EXPECT_FALSE(Exists(In("directory")));
  EXPECT_FALSE(Exists(In("file")));
}

TEST_F(FileNameTest, DeleteOfALinkLeavesItsFile) {
  const std::string path = MakeFile("file", "text");
  ASSERT_EQ(0, symlink(path.c_str(), In("link").c_str()));
  EXPECT_EQ(0, QIV_DeleteFile(In("link").c_str()));
  EXPECT_FALSE(Exists(In("link")));
  EXPECT_TRUE(Exists(path));
}

TEST_F(FileNameTest, DirectoryWithAnEntryIsNotRemoved) {
  ASSERT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  MakeFile("directory/file", "text");
  EXPECT_EQ(-1, QIV_RemoveDir(In("directory").c_str()));
  EXPECT_EQ(-1, QIV_DeleteFile(In("directory").c_str()));
  EXPECT_EQ(0, QIV_RemoveDir(In("directory/file").c_str()));
  EXPECT_EQ(0, QIV_RemoveDir(In("directory").c_str()));
  EXPECT_FALSE(Exists(In("directory")));
}

TEST_F(FileNameTest, RenameMovesAndReplaces) {
  const std::string path = MakeFile("old", "content");
  MakeFile("new", "replaced");
  EXPECT_EQ(0, QIV_RenameFile(path.c_str(), In("new").c_str()));
  EXPECT_FALSE(Exists(path));
  EXPECT_EQ("content", qiv::test::ReadTextFile(In("new")));
  EXPECT_EQ(-1, QIV_RenameFile(path.c_str(), In("new").c_str()));
  EXPECT_EQ(ENOENT, errno);
}

TEST_F(FileNameTest, AccessTellsWhatThePlatformTells) {
  const std::string path = MakeFile("file", "text");
  ASSERT_EQ(0, chmod(path.c_str(), 0600));
  EXPECT_EQ(0, QIV_AccessFile(path.c_str(), F_OK));
  EXPECT_EQ(0, QIV_AccessFile(path.c_str(), R_OK | W_OK));
  EXPECT_EQ(-1, QIV_AccessFile(path.c_str(), X_OK)) << "nobody may, the superuser included";
  EXPECT_EQ(-1, QIV_AccessFile(In("missing").c_str(), F_OK));
  EXPECT_EQ(-1, QIV_AccessFile(path.c_str(), 0x1000));
}

TEST_F(FileNameTest, NewDirectoryHasMode0766) {
  EXPECT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  EXPECT_EQ(static_cast<mode_t>(S_IFDIR | 0766), TypeAndAccessOf(In("directory")));
  umask(027);
  EXPECT_EQ(0, QIV_MakeDir(In("masked").c_str()));
  EXPECT_EQ(static_cast<mode_t>(S_IFDIR | 0740), TypeAndAccessOf(In("masked")));
}

TEST_F(FileNameTest, DirectoryIsNotMadeTwiceNorWithoutItsParent) {
  EXPECT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  EXPECT_EQ(-1, QIV_MakeDir(In("directory").c_str()));
  EXPECT_EQ(EEXIST, errno);
  EXPECT_EQ(-1, QIV_MakeDir(In("missing/directory").c_str()));
  EXPECT_EQ(ENOENT, errno);
}

}  // namespace
