#include "sys/file_copy.h"

#include <fcntl.h>
#include <qiv/file.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>

#include "support/failing_allocation.h"
#include "support/interrupting_signals.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/test_limit.h"
#include "sys/file_fixture.h"

namespace {

using qiv::test::ReadTextFile;
using qiv::test::RunInThread;

std::string Bytes(std::size_t count) {
  std::string bytes(count, '\0');
  unsigned int state = 1;
  for (char& byte : bytes) {
    state = state * 1103515245u + 12345u;
    byte = static_cast<char>(state >> 16);
  }
  return bytes;
}

class FileCopyTest : public qiv::test::FileFixture {
 protected:
  int Copy(const std::string& from, const std::string& to, int failIfExists = 0) const {
    return QIV_CopyFile(In(from).c_str(), In(to).c_str(), failIfExists);
  }
  off_t SizeOf(const std::string& name) const {
    struct stat status = {};
    return stat(In(name).c_str(), &status) == 0 ? status.st_size : -1;
  }
  void Link(const std::string& target, const std::string& name) const {
    ASSERT_EQ(0, symlink(In(target).c_str(), In(name).c_str()));
  }
};

TEST_F(FileCopyTest, CopyHasTheContentWhateverItsSize) {
  constexpr std::size_t kBlock = qiv::kCopyBlockBytes;
  for (const std::size_t size : {std::size_t{1}, std::size_t{2}, std::size_t{4095},
                                 std::size_t{4096}, kBlock - 1, kBlock, kBlock + 1, 5 * kBlock}) {
    const std::string content = Bytes(size);
    MakeFile("source", content);
    EXPECT_EQ(0, Copy("source", "target")) << size;
    EXPECT_TRUE(content == ReadTextFile(In("target"))) << size;
    EXPECT_TRUE(content == ReadTextFile(In("source"))) << size;
  }
}

TEST_F(FileCopyTest, LargerTargetIsCutAndKeepsItsMode) {
  MakeFile("source", "short");
  MakeFile("target", Bytes(10000));
  ASSERT_EQ(0, chmod(In("source").c_str(), 0755));
  ASSERT_EQ(0, chmod(In("target").c_str(), 0620));
  EXPECT_EQ(0, Copy("source", "target"));
  EXPECT_EQ("short", ReadTextFile(In("target")));
  EXPECT_EQ(0620u, ModeOf(In("target")) & 07777);
}

TEST_F(FileCopyTest, NewTargetHasTheModeOfTheSourceUnderTheUmask) {
  MakeFile("source", "text");
  ASSERT_EQ(0, chmod(In("source").c_str(), 0751));
  EXPECT_EQ(0, Copy("source", "target"));
  EXPECT_EQ(0751u, ModeOf(In("target")) & 07777);
  umask(027);
  EXPECT_EQ(0, Copy("source", "masked"));
  EXPECT_EQ(0750u, ModeOf(In("masked")) & 07777);
}

/** The mode that the platform leaves to a file which is created with `mode` and written. */
mode_t ModeLeftByThePlatform(const std::string& path, mode_t mode) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, mode);
  EXPECT_EQ(4, write(file, "text", 4));
  struct stat status = {};
  EXPECT_EQ(0, fstat(file, &status));
  close(file);
  return status.st_mode & 07777;
}

TEST_F(FileCopyTest, SetIdBitsAreCopiedWhereThePlatformLeavesThem) {
  MakeFile("source", "text");
  for (const mode_t mode : {04755u, 02755u, 06755u}) {
    const std::string name = std::to_string(mode);
    ASSERT_EQ(0, chmod(In("source").c_str(), mode));
    EXPECT_EQ(0, Copy("source", name));
    EXPECT_EQ(ModeLeftByThePlatform(In(name + "expected"), mode), ModeOf(In(name)) & 07777) << name;
  }
}

TEST_F(FileCopyTest, NameMayHave255Bytes) {
  MakeFile("source", "text");
  EXPECT_EQ(0, Copy("source", std::string(255, 'n')));
  EXPECT_EQ("text", ReadTextFile(In(std::string(255, 'n'))));
  EXPECT_EQ(-1, Copy("source", std::string(256, 'n')));
  EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(FileCopyTest, NullAndWhatIsMissingAreRefused) {
  const std::string path = MakeFile("source", "text");
  EXPECT_EQ(-1, QIV_CopyFile(nullptr, path.c_str(), 0));
  EXPECT_EQ(-1, QIV_CopyFile(path.c_str(), nullptr, 0));
  EXPECT_EQ(-1, Copy("missing", "target"));
  EXPECT_FALSE(Exists(In("target")));
  EXPECT_EQ(-1, Copy("source", "missing/target"));
  EXPECT_EQ("text", ReadTextFile(path));
}

TEST_F(FileCopyTest, EmptySourceIsKeptRefused) {
  MakeFile("source", "");
  EXPECT_EQ(-1, Copy("source", "target"));
  EXPECT_TRUE(Exists(In("target"))) << "it was created before";
  MakeFile("target", "text");
  EXPECT_EQ(-1, Copy("source", "target"));
  EXPECT_EQ("", ReadTextFile(In("target"))) << "it was emptied before";
}

TEST_F(FileCopyTest, FlagRefusesAnExistingTargetAndLeavesItUntouched) {
  MakeFile("source", "text");
  MakeFile("target", "old content");
  for (const int flag : {1, 2, -1}) {
    EXPECT_EQ(-1, Copy("source", "target", flag)) << flag;
    EXPECT_EQ("old content", ReadTextFile(In("target"))) << flag;
  }
}

TEST_F(FileCopyTest, FlagCopiesToANewTarget) {
  MakeFile("source", "text");
  EXPECT_EQ(0, Copy("source", "target", 1));
  EXPECT_EQ("text", ReadTextFile(In("target")));
}

TEST_F(FileCopyTest, LinkThatLeadsNowhereExistsForTheFlag) {
  MakeFile("source", "text");
  Link("nowhere", "link");
  EXPECT_EQ(-1, Copy("source", "link", 1));
  EXPECT_FALSE(Exists(In("nowhere")));
  EXPECT_EQ(0, Copy("source", "link", 0));
  EXPECT_EQ("text", ReadTextFile(In("nowhere")));
}

TEST_F(FileCopyTest, FileIsNeverCopiedOntoItself) {
  const std::string content = Bytes(10000);
  MakeFile("source", content);
  Link("source", "symbolic");
  ASSERT_EQ(0, link(In("source").c_str(), In("hard").c_str()));
  for (const char* const target : {"source", "hard", "symbolic", "./source"}) {
    for (const char* const source : {"source", "hard", "symbolic"}) {
      EXPECT_EQ(-1, Copy(source, target)) << source << " to " << target;
      EXPECT_TRUE(content == ReadTextFile(In("source"))) << source << " to " << target;
    }
  }
}

TEST_F(FileCopyTest, SymbolicLinksAreFollowed) {
  MakeFile("source", "text");
  MakeFile("target", "old");
  Link("source", "sourceLink");
  Link("target", "targetLink");
  EXPECT_EQ(0, Copy("sourceLink", "targetLink"));
  EXPECT_EQ("text", ReadTextFile(In("target")));
  struct stat status = {};
  ASSERT_EQ(0, lstat(In("targetLink").c_str(), &status));
  EXPECT_TRUE(S_ISLNK(status.st_mode));
}

TEST_F(FileCopyTest, SourceThatIsNoRegularFileIsRefusedAtOnce) {
  ASSERT_EQ(0, mkfifo(In("pipe").c_str(), 0600));
  ASSERT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  MakeFile("target", "old");
  for (const std::string& source : {In("pipe"), In("directory"), std::string("/dev/zero")}) {
    EXPECT_EQ(-1, QIV_CopyFile(source.c_str(), In("target").c_str(), 0)) << source;
  }
  EXPECT_EQ("old", ReadTextFile(In("target")));
}

TEST_F(FileCopyTest, TargetThatHoldsNoContentIsRefused) {
  MakeFile("source", "text");
  ASSERT_EQ(0, mkfifo(In("pipe").c_str(), 0600));
  ASSERT_EQ(0, QIV_MakeDir(In("directory").c_str()));
  for (const std::string& target : {In("pipe"), In("directory"), std::string("/dev/null")}) {
    EXPECT_EQ(-1, QIV_CopyFile(In("source").c_str(), target.c_str(), 0)) << target;
  }
}

TEST_F(FileCopyTest, ShortMemoryAndNoDescriptorsFail) {
  const std::string source = MakeFile("source", "text");
  const std::string target = MakeFile("target", "old");
  {
    const qiv::test::FailingAllocation failing(1);
    EXPECT_EQ(-1, QIV_CopyFile(source.c_str(), target.c_str(), 0));
    EXPECT_TRUE(failing.Happened());
  }
  EXPECT_EQ("old", ReadTextFile(target)) << "short memory destroys no target";
  const qiv::test::NoDescriptorLimit none;
  EXPECT_EQ(-1, QIV_CopyFile(source.c_str(), target.c_str(), 0));
}

bool CopyBytes(int source, int target, off_t count) {
  const std::unique_ptr<char[]> block(new char[qiv::kCopyBlockBytes]);
  return qiv::CopyBytes(source, target, count, block.get());
}

TEST_F(FileCopyTest, SourceThatEndsEarlyFails) {
  const int source = QIV_OpenFile(MakeFile("source", "12345").c_str(), 0x1, 0);
  const int target = QIV_OpenFile(In("target").c_str(), 0x3 | 0x4, 0x600);
  EXPECT_FALSE(CopyBytes(source, target, 6));
  EXPECT_EQ("12345", ReadTextFile(In("target")));
  EXPECT_FALSE(CopyBytes(source, target, 1));
  EXPECT_TRUE(CopyBytes(source, target, 0));
  EXPECT_EQ(0, QIV_FileSeek(source, 0, SEEK_SET, nullptr));
  EXPECT_TRUE(CopyBytes(source, target, 5));
  QIV_CloseFile(source);
  QIV_CloseFile(target);
}

TEST_F(FileCopyTest, TargetWithoutSpaceFails) {
  const int source = QIV_OpenFile(MakeFile("source", "12345").c_str(), 0x1, 0);
  const int target = QIV_OpenFile("/dev/full", 0x3, 0);
  ASSERT_NE(-1, target);
  EXPECT_FALSE(CopyBytes(source, target, 5));
  EXPECT_EQ(ENOSPC, errno);
  QIV_CloseFile(source);
  QIV_CloseFile(target);
}

int FeedInPieces(int pipe, const std::string& content) {
  for (std::size_t at = 0; at < content.size(); at += 10000) {
    EXPECT_EQ(10000, write(pipe, &content[at], 10000));
  }
  return 0;
}

std::string DrainInPieces(int pipe, std::size_t count) {
  std::string received;
  char block[7000];
  while (received.size() < count) {
    const ssize_t got = read(pipe, block, sizeof block);
    if (got <= 0) break;
    received.append(block, static_cast<std::size_t>(got));
  }
  return received;
}

TEST_F(FileCopyTest, PiecesAndSignalsAreNoFailure) {
  int in[2];
  int out[2];
  ASSERT_EQ(0, pipe(in));
  ASSERT_EQ(0, pipe(out));
  const std::string content = Bytes(1000000);
  auto fed = RunInThread([&] { return FeedInPieces(in[1], content); });
  auto drained = RunInThread([&] { return DrainInPieces(out[0], content.size()); });
  {
    const qiv::test::InterruptingSignals signals(std::chrono::milliseconds(1));
    EXPECT_TRUE(CopyBytes(in[0], out[1], static_cast<off_t>(content.size())));
  }
  fed.Get();
  EXPECT_TRUE(content == drained.Get());
  for (const int end : {in[0], in[1], out[0], out[1]}) close(end);
}

void ShrinkAndGrow(const std::string& path, off_t size, const std::atomic<bool>& done) {
  while (!done.load(std::memory_order_acquire)) {
    EXPECT_EQ(0, truncate(path.c_str(), 1));
    EXPECT_EQ(0, truncate(path.c_str(), size));
  }
}

TEST_F(FileCopyTest, SourceThatShrinksMeanwhileNeverCrashes) {
  constexpr off_t kSize = off_t{1024} * 1024;
  MakeFile("source", Bytes(std::size_t{kSize}));
  std::atomic<bool> done{false};
  std::thread shrinking([&] { ShrinkAndGrow(In("source"), kSize, done); });
  for (int i = 0; i < qiv::test::ScaledLoad(500); ++i) {
    const int result = Copy("source", "target");
    EXPECT_TRUE(result == 0 || result == -1);
    const off_t size = SizeOf("target");
    EXPECT_TRUE(result == -1 || size == 1 || size == kSize) << size;
  }
  done.store(true, std::memory_order_release);
  shrinking.join();
}

/** Mounts a file system of 256 KiB; where that is not allowed, limits files to as much. */
void TakeSpaceAway(const std::string& directory) {
  const bool isAlone = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
  if (isAlone && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
      mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=256k") == 0) {
    return;
  }
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {262144, 262144};
  setrlimit(RLIMIT_FSIZE, &limit);
}

/** Which of the steps on a full disk went wrong; 0 when none did. */
int FailedStep(const std::string& large, const std::string& small, const std::string& target) {
  if (QIV_CopyFile(large.c_str(), target.c_str(), 0) != -1) return 1;
  if (errno != ENOSPC && errno != EFBIG) return 2;
  if (QIV_DeleteFile(target.c_str()) != 0) return 3;
  return QIV_CopyFile(small.c_str(), target.c_str(), 0) == 0 ? 0 : 4;
}

TEST_F(FileCopyTest, CopyThatDoesNotFitFailsWithoutASignal) {
  const std::string large = MakeFile("large", Bytes(4000000));
  const std::string small = MakeFile("small", Bytes(1000));
  ASSERT_EQ(0, QIV_MakeDir(In("disk").c_str()));
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) {
    TakeSpaceAway(In("disk"));
    _exit(FailedStep(large, small, In("disk/target")));
  }
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status) << "exit status, or the signal that ended it";
}

TEST_F(FileCopyTest, FileSizeLimitFailsWithItsSignalIgnored) {
  MakeFile("source", Bytes(100000));
  MakeFile("target", "old");
  const auto saved = signal(SIGXFSZ, SIG_IGN);
  rlimit before = {};
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &before));
  rlimit limit = before;
  limit.rlim_cur = 4096;
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
  EXPECT_EQ(-1, Copy("source", "target"));
  EXPECT_EQ(EFBIG, errno);
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &before));
  signal(SIGXFSZ, saved);
}

}  // namespace
