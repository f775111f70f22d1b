// Copies that must not wait and not take a terminal over.
#include <fcntl.h>
#include <qiv/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/run_in_thread.h"
#include "support/test_limit.h"
#include "sys/file_fixture.h"

namespace {

using qiv::test::ReadTextFile;
using qiv::test::RunInThread;

class FileCopyHazardsTest : public qiv::test::FileFixture {
 protected:
  /** Makes `name` lead to what `other` leads to, without a moment at which it leads nowhere. */
  void Replace(const std::string& name, const std::string& other) const {
    ASSERT_EQ(0, link(In(other).c_str(), In("next").c_str()));
    ASSERT_EQ(0, rename(In("next").c_str(), In(name).c_str()));
  }
};

TEST_F(FileCopyHazardsTest, SourceThatBecomesAPipeNeitherWaitsNorEmptiesTheTarget) {
  ASSERT_EQ(0, mkfifo(In("pipe").c_str(), 0600));
  MakeFile("file", "text");
  MakeFile("target", "text");
  Replace("source", "file");
  std::atomic<bool> done{false};
  std::thread replacing([&] {
    while (!done.load(std::memory_order_acquire)) {
      Replace("source", "pipe");
      Replace("source", "file");
    }
  });
  auto copies = RunInThread([&] {
    int wrong = 0;
    for (int i = 0; i < qiv::test::ScaledLoad(5000); ++i) {
      QIV_CopyFile(In("source").c_str(), In("target").c_str(), 0);
      if (ReadTextFile(In("target")) != "text") ++wrong;
    }
    return wrong;
  });
  EXPECT_EQ(0, copies.Get());
  done.store(true, std::memory_order_release);
  replacing.join();
}

TEST_F(FileCopyHazardsTest, SourceThatIsNoRegularFileIsNotEvenOpened) {
  ASSERT_EQ(0, mkfifo(In("pipe").c_str(), 0600));
  const int watch = inotify_init1(IN_NONBLOCK);
  ASSERT_NE(-1, inotify_add_watch(watch, In("pipe").c_str(), IN_OPEN));
  EXPECT_EQ(-1, QIV_CopyFile(In("pipe").c_str(), In("target").c_str(), 0));
  char events[4096];
  EXPECT_EQ(-1, read(watch, events, sizeof events)) << "it was opened";
  EXPECT_EQ(EAGAIN, errno);
  close(open(In("pipe").c_str(), O_RDONLY | O_NONBLOCK));
  EXPECT_LT(0, read(watch, events, sizeof events)) << "opening would have shown";
  close(watch);
}

/** In a process without a terminal: which step went wrong; 0 when none did. */
int FailedStep(const char* source, const char* terminal) {
  if (setsid() == -1) return 1;
  if (QIV_CopyFile(source, terminal, 0) != -1) return 2;
  return open("/dev/tty", O_RDWR) == -1 && errno == ENXIO ? 0 : 3;
}

/** The side of a new terminal that a program talks from; the path of the other side. */
int MakeTerminal(char* path, std::size_t size) {
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  EXPECT_EQ(0, grantpt(master));
  EXPECT_EQ(0, unlockpt(master));
  EXPECT_EQ(0, ptsname_r(master, path, size));
  return master;
}

TEST_F(FileCopyHazardsTest, TerminalAsTargetDoesNotBecomeTheTerminalOfTheProcess) {
  const std::string source = MakeFile("source", "text");
  char terminal[PATH_MAX] = "";
  const int master = MakeTerminal(terminal, sizeof terminal);
  const pid_t child = fork();
  ASSERT_NE(-1, child);
  if (child == 0) _exit(FailedStep(source.c_str(), terminal));
  int status = 0;
  ASSERT_EQ(child, waitpid(child, &status, 0));
  EXPECT_EQ(0, status) << "exit status, or the signal that ended it";
  close(master);
}

}  // namespace
