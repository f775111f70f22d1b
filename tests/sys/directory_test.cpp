#include <fcntl.h>
#include <qiv/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <map>
#include <string>

#include "support/failing_allocation.h"
#include "support/no_descriptor_limit.h"
#include "support/test_limit.h"
#include "sys/file_fixture.h"

namespace {

using Entries = std::map<std::string, _FILE_FIND_INFO>;

class DirectoryTest : public qiv::test::FileFixture {
 protected:
  static Entries Read(QIV_HANDLE directory) {
    Entries entries;
    _FILE_FIND_INFO info;
    for (;;) {
      std::memset(&info, 0xAB, sizeof info);
      if (QIV_FindFileInDir(directory, &info) != 0) break;
      EXPECT_TRUE(entries.emplace(info.szName, info).second) << info.szName << " comes twice";
    }
    const _FILE_FIND_INFO untouched = info;
    EXPECT_EQ(-1, QIV_FindFileInDir(directory, &info)) << "the end stays the end";
    EXPECT_EQ(0, std::memcmp(&untouched, &info, sizeof info));
    EXPECT_EQ('\xAB', info.szName[0]);
    return entries;
  }

  static Entries List(const std::string& path) {
    QIV_HANDLE directory = QIV_OpenDir(path.c_str());
    EXPECT_NE(nullptr, directory) << path;
    Entries entries = Read(directory);
    EXPECT_EQ(0, QIV_CloseDir(directory));
    return entries;
  }

  static void ExpectOnlyTheName(const _FILE_FIND_INFO& info, const std::string& name) {
    _FILE_FIND_INFO expected = {};
    name.copy(expected.szName, sizeof expected.szName - 1);
    EXPECT_EQ(0, std::memcmp(&expected, &info, sizeof info)) << name;
  }
};

TEST_F(DirectoryTest, NullIsRefused) {
  _FILE_FIND_INFO info = {};
  info.dwType = 77;
  EXPECT_EQ(nullptr, QIV_OpenDir(nullptr));
  EXPECT_EQ(-1, QIV_FindFileInDir(nullptr, &info));
  EXPECT_EQ(77u, info.dwType);
  QIV_HANDLE directory = QIV_OpenDir(DirectoryPath().c_str());
  EXPECT_EQ(-1, QIV_FindFileInDir(directory, nullptr));
  EXPECT_EQ(0, QIV_CloseDir(directory));
  EXPECT_EQ(-1, QIV_CloseDir(nullptr));
}

TEST_F(DirectoryTest, WhatIsNoDirectoryIsRefused) {
  EXPECT_EQ(nullptr, QIV_OpenDir(In("missing").c_str()));
  EXPECT_EQ(ENOENT, errno);
  EXPECT_EQ(nullptr, QIV_OpenDir(MakeFile("file", "").c_str()));
  EXPECT_EQ(ENOTDIR, errno);
  EXPECT_EQ(nullptr, QIV_OpenDir(""));
  const qiv::test::NoDescriptorLimit none;
  EXPECT_EQ(nullptr, QIV_OpenDir("/"));
}

TEST_F(DirectoryTest, EmptyDirectoryHasItselfAndItsParent) {
  const Entries entries = List(DirectoryPath());
  ASSERT_EQ(2u, entries.size());
  EXPECT_EQ(256u, entries.at(".").dwType);
  EXPECT_EQ(256u, entries.at("..").dwType);
}

TEST_F(DirectoryTest, EntryHasTheStatusOfThePlatformWithTimesInMicroseconds) {
  const std::string path = MakeFile("file", "twelve bytes");
  ASSERT_EQ(0, link(path.c_str(), In("other").c_str()));
  ASSERT_EQ(0, chmod(path.c_str(), 04751));
  const timespec times[2] = {{1234567890, 999999999}, {987654321, 500000000}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
  struct stat expected = {};
  ASSERT_EQ(0, stat(path.c_str(), &expected));
  const _FILE_FIND_INFO info = List(DirectoryPath()).at("file");
  EXPECT_EQ(512u, info.dwType);
  EXPECT_EQ(getuid(), info.dwUserId);
  EXPECT_EQ(expected.st_gid, info.dwGroupId);
  EXPECT_EQ(0x8751u, info.dwPermissions);
  EXPECT_EQ(0u, info.dwDevice);
  EXPECT_EQ(2u, info.dwLinks);
  EXPECT_EQ(expected.st_ino & 0xFFFFFFFFu, info.ullInode);
  EXPECT_EQ(12, info.llSize);
  EXPECT_EQ(1234567890999999, info.llAccessTime);
  EXPECT_EQ(expected.st_ctime, info.llChangeTime / 1000000);
  EXPECT_EQ(987654321500000, info.llModifyTime);
}

TEST_F(DirectoryTest, SlashAtTheEndOfThePathDoesNotMatter) {
  MakeFile("file", "text");
  for (const char* const end : {"", "/", "//", "/."}) {
    EXPECT_EQ(4, List(DirectoryPath() + end).at("file").llSize) << end;
  }
  EXPECT_EQ(256u, List("/").at(".").dwType);
}

TEST_F(DirectoryTest, EveryKindOfFileHasItsType) {
  MakeFile("file", "");
  ASSERT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  ASSERT_EQ(0, mkfifo(In("pipe").c_str(), 0600));
  ASSERT_EQ(0, mknod(In("socket").c_str(), S_IFSOCK | 0600, 0));
  const Entries entries = List(DirectoryPath());
  EXPECT_EQ(512u, entries.at("file").dwType);
  EXPECT_EQ(256u, entries.at("directory").dwType);
  EXPECT_EQ(32u, entries.at("pipe").dwType);
  EXPECT_EQ(16u, entries.at("socket").dwType);
}

TEST_F(DirectoryTest, DeviceHasItsNumber) {
  struct stat expected = {};
  ASSERT_EQ(0, stat("/dev/null", &expected));
  const _FILE_FIND_INFO info = List("/dev").at("null");
  EXPECT_EQ(1u, info.dwType);
  EXPECT_NE(0u, info.dwDevice);
  EXPECT_EQ(expected.st_rdev, info.dwDevice);
}

TEST_F(DirectoryTest, SymbolicLinkIsFollowedSoItsOwnTypeNeverShows) {
  MakeFile("file", "text");
  ASSERT_EQ(0, symlink("file", In("toFile").c_str()));
  ASSERT_EQ(0, symlink(".", In("toDirectory").c_str()));
  const Entries entries = List(DirectoryPath());
  EXPECT_EQ(512u, entries.at("toFile").dwType);
  EXPECT_EQ(4, entries.at("toFile").llSize);
  EXPECT_EQ(256u, entries.at("toDirectory").dwType);
}

TEST_F(DirectoryTest, LinkThatLeadsNowhereKeepsOnlyItsName) {
  ASSERT_EQ(0, symlink("nowhere", In("dangling").c_str()));
  ASSERT_EQ(0, symlink("loop", In("loop").c_str()));
  const Entries entries = List(DirectoryPath());
  ExpectOnlyTheName(entries.at("dangling"), "dangling");
  ExpectOnlyTheName(entries.at("loop"), "loop");
}

TEST_F(DirectoryTest, NameOf255BytesIsWhole) {
  const std::string name(255, 'n');
  MakeFile(name, "text");
  const Entries entries = List(DirectoryPath());
  ASSERT_EQ(1u, entries.count(name));
  EXPECT_EQ(4, entries.at(name).llSize);
  EXPECT_EQ(0, entries.at(name).szName[263]);
}

TEST_F(DirectoryTest, RelativePathFollowsTheProcess) {
  MakeFile("file", "text");
  const int saved = open(".", O_RDONLY);
  ASSERT_EQ(0, chdir(DirectoryPath().c_str()));
  EXPECT_EQ(4, List(".").at("file").llSize);
  QIV_HANDLE directory = QIV_OpenDir(".");
  ASSERT_EQ(0, chdir("/proc"));
  ExpectOnlyTheName(Read(directory).at("file"), "file");
  EXPECT_EQ(0, QIV_CloseDir(directory));
  ASSERT_EQ(0, fchdir(saved));
  close(saved);
}

TEST_F(DirectoryTest, ManyEntriesAllCome) {
  const int count = qiv::test::ScaledLoad(5000);
  for (int i = 0; i < count; ++i) {
    const int file = QIV_OpenFile(In(std::to_string(i)).c_str(), 0x2 | 0x4, 0x600);
    ASSERT_NE(-1, file);
    QIV_CloseFile(file);
  }
  const Entries entries = List(DirectoryPath());
  EXPECT_EQ(static_cast<std::size_t>(count) + 2, entries.size());
  for (int i = 0; i < count; ++i) ASSERT_EQ(1u, entries.count(std::to_string(i))) << i;
}

/** The path of a new directory in `parent`; its length, "/" at the end not counted, is `length`. */
std::string MakeDeepDirectory(const std::string& parent, std::size_t length) {
  constexpr std::size_t kLongest = 200;
  std::string path = parent;
  while (path.size() < length) {
    std::size_t part = std::min(length - path.size() - 1, kLongest);
    if (length - path.size() - 1 - part == 1) --part;  // room for "/" and a character
    path += "/" + std::string(part, 'd');
    EXPECT_EQ(0, QIV_MakeDir(path.c_str()));
  }
  return path;
}

void MakeFileOfOneByte(int directory, const char* name) {
  const int file = openat(directory, name, O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(1, write(file, "x", 1));
  close(file);
}

TEST_F(DirectoryTest, PathBeyondThePlatformsLimitKeepsOnlyTheName) {
  // With "/" and the NUL, a name of three characters fits and one of four does not.
  const std::string path = MakeDeepDirectory(DirectoryPath(), PATH_MAX - 5);
  const int parent = open(path.c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_NE(-1, parent);
  MakeFileOfOneByte(parent, "fit");
  MakeFileOfOneByte(parent, "long");
  const Entries entries = List(path);
  EXPECT_EQ(512u, entries.at("fit").dwType);
  EXPECT_EQ(1, entries.at("fit").llSize);
  ExpectOnlyTheName(entries.at("long"), "long");
  EXPECT_EQ(256u, entries.at(".").dwType);
  EXPECT_EQ(4u, entries.size());
  EXPECT_EQ(0, unlinkat(parent, "long", 0));
  close(parent);
}

TEST_F(DirectoryTest, ShortMemoryGivesNoHandleAndClosesTheStream) {
  const std::string path = DirectoryPath() + "/././././././././././././././.";
  int failures = 0;
  for (;;) {
    const qiv::test::FailingAllocation failing(failures + 1);
    QIV_HANDLE directory = QIV_OpenDir(path.c_str());
    if (!failing.Happened()) {
      EXPECT_EQ(0, QIV_CloseDir(directory));
      break;
    }
    EXPECT_EQ(nullptr, directory);
    ++failures;
  }
  EXPECT_GE(failures, 2) << "the record and the path";
}

}  // namespace
