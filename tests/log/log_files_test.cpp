// The files of the log service: names, sizes, directories, failures.
#include <qiv/log.h>

#include <gtest/gtest.h>
#include <qiv/library.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "log/log_fixture.h"
#include "support/captured_output.h"

namespace {

using qiv::test::CapturedOutput;
using qiv::test::Lines;
using qiv::test::LogTest;
using qiv::test::ReadTextFile;
using qiv::test::TextsOf;
using qiv::test::WriteTextFile;

using Texts = std::vector<std::string>;

class LogFilesTest : public LogTest {
 protected:
  /** Queues a line of this many bytes, its CR LF included. */
  static void WriteLine(std::size_t bytes) {
    static const std::size_t head =
        static_cast<std::size_t>(FormatTimeAndName(nullptr, 0, LOG_ERR, "f", 1));
    EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%s", std::string(bytes - head - 2, 'x').c_str()));
  }

  static int Input(const std::string& text) {
    return GetLogService()->InputDataToFile(text.data(), static_cast<unsigned int>(text.size()));
  }

  static void LimitFiles(rlim_t bytes) {
    rlimit limit{};
    limit.rlim_cur = bytes;
    limit.rlim_max = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }

  mode_t Mode(const std::string& path) const {
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    return status.st_mode & 07777;
  }
};

TEST_F(LogFilesTest, LinesOf600BytesGoOneToAFileOf1000) {
  LogToFiles(1000);
  for (int i = 0; i < 3; ++i) WriteLine(600);
  StopLogService(false);
  EXPECT_EQ((Texts{"qiv_log_1.log", "qiv_log_2.log", "qiv_log_3_w.log"}), Names());
  EXPECT_EQ(600u, Finished(1).size());
  EXPECT_EQ(600u, Finished(2).size());
  EXPECT_EQ(600u, Working(3).size());
}

TEST_F(LogFilesTest, FileTakesLinesUpToItsLimitExactly) {
  LogToFiles(1000);
  WriteLine(600);
  WriteLine(400);
  WriteLine(999);
  WriteLine(100);
  StopLogService(false);
  EXPECT_EQ(1000u, Finished(1).size());
  EXPECT_EQ(999u, Finished(2).size());
  EXPECT_EQ(100u, Working(3).size());
}

TEST_F(LogFilesTest, LineLongerThanTheLimitGetsAFreshFile) {
  LogToFiles(100);
  WriteLine(300);
  WriteLine(60);
  WriteLine(500);
  StopLogService(false);
  EXPECT_EQ(300u, Finished(1).size());
  EXPECT_EQ(60u, Finished(2).size());
  EXPECT_EQ(500u, Working(3).size());
}

TEST_F(LogFilesTest, LinesWrittenInOneGoFillTheFilesLikeLinesWrittenOneByOne) {
  constexpr unsigned int kLimit = 5000;
  LogToFiles(kLimit);
  std::mt19937 random(20261121);
  std::uniform_int_distribution<std::size_t> size(60, 2046);
  std::vector<std::size_t> files(1, 0);
  for (int i = 0; i < 500; ++i) {
    const std::size_t bytes = size(random);
    WriteLine(bytes);
    if (files.back() + bytes > kLimit) files.push_back(0);
    files.back() += bytes;
  }
  StopLogService(false);
  ASSERT_LT(50u, files.size());
  for (std::size_t i = 0; i + 1 < files.size(); ++i) {
    EXPECT_EQ(files[i], Finished(static_cast<int>(i + 1)).size()) << i;
  }
  EXPECT_EQ(files.back(), Working(static_cast<int>(files.size())).size());
}

TEST_F(LogFilesTest, WithWrapAroundNumber1FollowsNumber100) {
  LogToFiles(1, 1);
  for (int i = 1; i <= 102; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  StopLogService(false);
  EXPECT_EQ(100u, Names().size());
  EXPECT_EQ(Texts{"101"}, TextsOf(Finished(1)));
  EXPECT_EQ(Texts{"102"}, TextsOf(Working(2)));
  EXPECT_EQ("", Finished(2)) << "deleted";
  EXPECT_EQ(Texts{"3"}, TextsOf(Finished(3)));
  EXPECT_EQ(Texts{"100"}, TextsOf(Finished(100)));
  EXPECT_EQ(1u, GetLogService()->nFileIndex);
}

TEST_F(LogFilesTest, WithoutWrapAroundNumber101FollowsNumber100) {
  LogToFiles(1, 0);
  for (int i = 1; i <= 102; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  StopLogService(false);
  EXPECT_EQ(102u, Names().size());
  EXPECT_EQ(Texts{"1"}, TextsOf(Finished(1)));
  EXPECT_EQ(Texts{"101"}, TextsOf(Finished(101)));
  EXPECT_EQ(Texts{"102"}, TextsOf(Working(102)));
}

TEST_F(LogFilesTest, FirstFileReplacesThoseOfAnEarlierRun) {
  WriteTextFile(FinishedName(1), "earlier");
  WriteTextFile(WorkingName(1), "earlier");
  WriteTextFile(FinishedName(2), "earlier");
  LogToFiles();
  WriteLog(LOG_ERR, "f", 1, "x");
  StopLogService(false);
  EXPECT_EQ((Texts{"qiv_log_1_w.log", "qiv_log_2.log"}), Names());
  EXPECT_EQ(Texts{"x"}, TextsOf(Working(1)));
}

TEST_F(LogFilesTest, NumbersGoOnWhenTheTargetIsEnabledAgain) {
  LogToFiles(100);
  WriteLine(90);
  WriteLine(90);
  DisableTarget(LOG_TARGET_FILE);
  EXPECT_EQ((Texts{"qiv_log_1.log", "qiv_log_2_w.log"}), Names()) << "keeps its working name";
  LogToFiles(100);
  WriteLine(80);
  StopLogService(false);
  EXPECT_EQ((Texts{"qiv_log_1.log", "qiv_log_2_w.log"}), Names());
  EXPECT_EQ(80u, Working(2).size()) << "opened anew";
}

TEST_F(LogFilesTest, StopEndsTheFilesUntilTheyAreEnabledAgain) {
  LogToFiles(12345);
  EXPECT_EQ(12345u, GetLogService()->nMaxFileSize);
  WriteLog(LOG_ERR, "f", 1, "x");
  StopLogService(false);
  EXPECT_FALSE(GetLogService()->bFileOut);
  EXPECT_EQ(-1, GetLogService()->hLogFile);
  EXPECT_EQ(0u, GetLogService()->nMaxFileSize);
  EXPECT_STREQ("", GetLogService()->szLogDir);
  EXPECT_TRUE(GetLogService()->bCyclic);
  EXPECT_EQ(-5, WriteLog(LOG_ERR, "f", 1, "x"));
}

TEST_F(LogFilesTest, FilesOfSize0AreOf2MiB) {
  LogToFiles(0);
  EXPECT_EQ(2097152u, GetLogService()->nMaxFileSize);
}

TEST_F(LogFilesTest, FileIsForItsOwnerAndNotForProgramsThatAreStarted) {
  LogToFiles();
  WriteLog(LOG_ERR, "f", 1, "x");
  ASSERT_TRUE(qiv::test::Eventually([&] { return !Working(1).empty(); }));
  EXPECT_EQ(0600u, Mode(WorkingName(1)));
  LogService* const service = GetLogService();
  service->fileMutex.Lock();
  EXPECT_EQ(FD_CLOEXEC, fcntl(service->hLogFile, F_GETFD));
  service->fileMutex.Unlock();
}

TEST_F(LogFilesTest, DirectoryIsMadeAndItsParentIsNot) {
  const mode_t saved = umask(0);
  EnableTarget(LOG_TARGET_FILE, (Directory() + "/new").c_str(), 0, 0);
  umask(saved);
  EXPECT_EQ(0766u, Mode(Directory() + "/new"));
  WriteLog(LOG_ERR, "f", 1, "x");
  StopLogService(false);
  EXPECT_EQ(Texts{"x"}, TextsOf(ReadTextFile(Directory() + "/new/qiv_log_1_w.log")));

  EXPECT_EQ(0, EnableTarget(LOG_TARGET_FILE, (Directory() + "/a/b").c_str(), 0, 0));
  EXPECT_TRUE(GetLogService()->bFileOut);
  EXPECT_FALSE(std::filesystem::exists(Directory() + "/a"));
}

TEST_F(LogFilesTest, BackslashesOfTheDirectoryCountAsSlashes) {
  ASSERT_EQ(0, chdir(Directory().c_str()));
  ASSERT_EQ(0, mkdir("logs", 0700));
  EnableTarget(LOG_TARGET_FILE, "logs\\sub", 0, 0);
  EXPECT_STREQ("logs/sub/", GetLogService()->szLogDir);
  WriteLog(LOG_ERR, "f", 1, "x");
  StopLogService(false);
  EXPECT_EQ(Texts{"x"}, TextsOf(ReadTextFile("logs/sub/qiv_log_1_w.log")));
}

TEST_F(LogFilesTest, DirectoryEndsInOneSlash) {
  const std::pair<const char*, const char*> table[] = {
      {".", "./"}, {"./", "./"}, {".\\", "./"}, {"", "/"}, {nullptr, "./qivlog/"}};
  ASSERT_EQ(0, chdir(Directory().c_str()));
  for (const auto& [given, kept] : table) {
    EXPECT_EQ(0, GetLogService()->SwitchFileService(true, given, 0, false));
    EXPECT_STREQ(kept, GetLogService()->szLogDir);
  }
  EXPECT_TRUE(std::filesystem::is_directory("qivlog"));
}

TEST_F(LogFilesTest, DirectoryOf256CharactersIsTakenAndALongerOneIsNot) {
  std::string directory = Directory();
  while (directory.size() + 2 <= 256) directory += "/.";
  if (directory.size() < 256) directory += '/';
  ASSERT_EQ(256u, directory.size());
  EnableTarget(LOG_TARGET_FILE, directory.c_str(), 0, 0);
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "x"));
  StopLogService(false);
  EXPECT_EQ(Texts{"x"}, TextsOf(Working(1)));

  directory += "/";
  EXPECT_EQ(-6, GetLogService()->SwitchFileService(true, directory.c_str(), 0, false));
  EXPECT_EQ(-6, GetLogService()->StartWriteFile(directory.c_str(), 0));
  EXPECT_EQ(0, EnableTarget(LOG_TARGET_FILE, directory.c_str(), 0, 0)) << "kept";
  EXPECT_EQ(-5, WriteLog(LOG_ERR, "f", 1, "x"));
}

TEST_F(LogFilesTest, InputWithoutTheTargetWritesNothing) {
  EXPECT_EQ(0, Input("x"));
  EXPECT_EQ(-1, GetLogService()->hLogFile);
}

TEST_F(LogFilesTest, InputIsAppendedWhereTheFileEndsNow) {
  LogToFiles();
  EXPECT_EQ(0, Input("first "));
  ASSERT_EQ(0, truncate(WorkingName(1).c_str(), 0));
  EXPECT_EQ(0, Input("second"));
  EXPECT_EQ("second", Working(1));
  EXPECT_EQ(-6, GetLogService()->InputDataToFile(nullptr, 1));
}

TEST_F(LogFilesTest, FileThatCannotBeFinishedGivesMinus8AndIsBegunAnew) {
  LogToFiles(10);
  EXPECT_EQ(0, Input("12345678"));
  std::filesystem::create_directories(FinishedName(1) + "/full");
  EXPECT_EQ(-8, Input("lost"));
  EXPECT_EQ(-1, GetLogService()->hLogFile);
  EXPECT_EQ("12345678", Working(1));
  EXPECT_EQ(0, Input("next"));
  EXPECT_EQ("next", Working(1)) << "kept: truncated";
  EXPECT_EQ(0u, GetLogService()->nFileIndex);
}

TEST_F(LogFilesTest, FileThatCannotBeOpenedGivesMinus8AndAMessageForEachText) {
  LogToFiles();
  ASSERT_EQ(0, mkdir(WorkingName(1).c_str(), 0700));
  CapturedOutput error(STDERR_FILENO);
  EXPECT_EQ(-8, Input("lost"));
  EXPECT_EQ(-8, Input("lost"));
  const std::string message = "LogService OpenFile[" + WorkingName(1) + "] failed\n";
  EXPECT_EQ(message + message, error.Stop());
  ASSERT_EQ(0, rmdir(WorkingName(1).c_str()));
  EXPECT_EQ(0, Input("x"));
  EXPECT_EQ("x", Working(1));
}

TEST_F(LogFilesTest, RemovedDirectoryLosesLinesAndIsReportedForEach) {
  const std::string directory = Directory() + "/gone";
  EnableTarget(LOG_TARGET_FILE, directory.c_str(), 200, 0);
  WriteLine(150);
  ASSERT_TRUE(qiv::test::Eventually(
      [&] { return ReadTextFile(directory + "/qiv_log_1_w.log").size() == 150; }));
  std::filesystem::remove_all(directory);
  CapturedOutput error(STDERR_FILENO);
  for (int i = 0; i < 4; ++i) WriteLine(150);
  EXPECT_EQ(0, StopLogService(false));
  const std::string message = "LogService OpenFile[" + directory + "/qiv_log_1_w.log] failed\n";
  EXPECT_EQ(message + message + message, error.Stop()) << "the first finds no file to rename";
}

TEST_F(LogFilesTest, AnotherDirectoryIsKeptWaitingUntilTheOpenFileIsFull) {
  const std::string other = Directory() + "/other";
  LogToFiles(200);
  EXPECT_EQ(0, Input("first"));
  EnableTarget(LOG_TARGET_FILE, other.c_str(), 200, 0);
  EXPECT_EQ(0, Input("second"));
  EXPECT_EQ("firstsecond", Working(1));
  DisableTarget(LOG_TARGET_FILE);
  EnableTarget(LOG_TARGET_FILE, other.c_str(), 200, 0);
  EXPECT_EQ(0, Input("third"));
  EXPECT_EQ("third", ReadTextFile(other + "/qiv_log_1_w.log"));
}

// What a full disk does: a write that takes a part, and writes that take nothing.
TEST_F(LogFilesTest, FilesThatMayNotGrowLoseLinesAndNoProcess) {
  const std::string directory = Directory();
  EXPECT_EXIT(
      {
        LimitFiles(1000);
        EnableTarget(LOG_TARGET_FILE, directory.c_str(), 0, 0);
        for (int i = 0; i < 100; ++i) WriteLine(100);
        const int result = StopLogService(false);
        std::exit(result == 0 && ReadTextFile(directory + "/qiv_log_1_w.log").size() == 1000 ? 0
                                                                                             : 1);
      },
      testing::ExitedWithCode(0), "");
}

// Lines that the disk did not take fill no file.
TEST_F(LogFilesTest, FilesThatMayNotGrowToTheirLimitAreNotFinished) {
  const std::string directory = Directory();
  EXPECT_EXIT(
      {
        LimitFiles(1000);
        EnableTarget(LOG_TARGET_FILE, directory.c_str(), 5000, 1);
        for (int i = 0; i < 300; ++i) WriteLine(100);
        std::exit(StopLogService(false));
      },
      testing::ExitedWithCode(0), "");
  EXPECT_EQ(Texts{"qiv_log_1_w.log"}, Names());
  EXPECT_EQ(1000u, Working(1).size());
}

TEST_F(LogFilesTest, DirectoryThatTakesNoFilesGivesMinus8AndAMessage) {
  CapturedOutput error(STDERR_FILENO);
  EXPECT_EQ(0, EnableTarget(LOG_TARGET_FILE, "/proc/self", 0, 0));
  EXPECT_EQ(-8, Input("lost"));
  EXPECT_EQ("LogService OpenFile[/proc/self/qiv_log_1_w.log] failed\n", error.Stop());
}

}  // namespace
