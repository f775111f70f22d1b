// Lines, levels, targets and codes of the log service.
#include <qiv/log.h>

#include <gtest/gtest.h>
#include <qiv/library.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cmath>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "log/log_fixture.h"
#include "support/captured_output.h"
#include "support/matches.h"
#include "support/time_zone.h"

namespace {

using qiv::test::CapturedOutput;
using qiv::test::Lines;
using qiv::test::LogTest;
using qiv::test::Matches;
using qiv::test::TextsOf;

using Texts = std::vector<std::string>;

constexpr char kDatePattern[] = "\\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.000\\]";

/** The date as the head has it. */
std::string DateNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[64];
  std::strftime(text, sizeof text, "[%Y-%m-%d %H:%M:%S.000]", &local);
  return text;
}

/** The head, made between two looks at the clock in the same second. */
std::string Head(log_level level, const char* file, int line) {
  char head[4096];
  std::string before;
  do {
    before = DateNow();
    EXPECT_LT(0, FormatTimeAndName(head, sizeof head, level, file, line));
  } while (before != DateNow());
  EXPECT_EQ(before, std::string(head).substr(0, before.size()));
  return std::string(head).substr(before.size());
}

TEST_F(LogTest, LineHasDateLevelFileAndNumberAndEndsInCrLf) {
  LogToFiles();
  EXPECT_EQ(0, WriteLog(LOG_DBG, "/a/b/c.cpp", 7, "%s", "x"));
  EXPECT_EQ(0, StopLogService(false));
  const std::string expected =
      std::string(kDatePattern) + "\\[DBG\\]\\[FILE:c\\.cpp\\]\\[LINE:7\\] x\r\n";
  EXPECT_TRUE(Matches(Working(1), expected)) << Working(1);
}

TEST_F(LogTest, HeadHasTheLocalTimeWithMillisecondsThatAreAlways000) {
  qiv::test::SetZone("UTC0");
  EXPECT_EQ("[ERR][FILE:c.cpp][LINE:1] ", Head(LOG_ERR, "c.cpp", 1));
  qiv::test::SetZone("CCC-8");
  EXPECT_EQ("[ERR][FILE:c.cpp][LINE:1] ", Head(LOG_ERR, "c.cpp", 1));
  qiv::test::SetZone("DDD3");
  EXPECT_EQ("[ERR][FILE:c.cpp][LINE:1] ", Head(LOG_ERR, "c.cpp", 1));
}

TEST_F(LogTest, HeadNamesTheLevel) {
  EXPECT_EQ("[DISABLE][FILE:f][LINE:1] ", Head(LOG_DISABLE, "f", 1));
  EXPECT_EQ("[ERR][FILE:f][LINE:1] ", Head(LOG_ERR, "f", 1));
  EXPECT_EQ("[DBG][FILE:f][LINE:1] ", Head(LOG_DBG, "f", 1));
  EXPECT_EQ("[INF][FILE:f][LINE:1] ", Head(LOG_INF, "f", 1));
}

TEST_F(LogTest, LevelsOutsideTheTableAreUnknown) {
  EXPECT_EQ("[UNKNOWN][FILE:f][LINE:1] ", Head(4, "f", 1));
  EXPECT_EQ("[UNKNOWN][FILE:f][LINE:1] ", Head(-1, "f", 1));
  EXPECT_EQ("[UNKNOWN][FILE:f][LINE:1] ", Head(2147483647, "f", 1));
  EXPECT_EQ("[UNKNOWN][FILE:f][LINE:1] ", Head(-2147483647 - 1, "f", 1));
}

TEST_F(LogTest, HeadHasTheFileBehindTheLastSlashOfEitherKind) {
  EXPECT_EQ("[ERR][FILE:c.cpp][LINE:1] ", Head(LOG_ERR, "/a/b\\c.cpp", 1));
  EXPECT_EQ("[ERR][FILE:c.cpp][LINE:1] ", Head(LOG_ERR, "a\\b/c.cpp", 1));
  EXPECT_EQ("[ERR][FILE:][LINE:1] ", Head(LOG_ERR, "a/b/", 1));
  EXPECT_EQ("[ERR][FILE:][LINE:-2147483648] ", Head(LOG_ERR, "", -2147483647 - 1));
}

TEST_F(LogTest, HeadThatDoesNotFitIsCutAndItsWholeLengthTold) {
  char head[32];
  std::memset(head, '#', sizeof head);
  const int whole = FormatTimeAndName(nullptr, 0, LOG_ERR, "f", 1);
  EXPECT_EQ(static_cast<int>(std::strlen("[2026-11-15 10:30:07.000][ERR][FILE:f][LINE:1] ")),
            whole);
  EXPECT_EQ(whole, FormatTimeAndName(head, 10, LOG_ERR, "f", 1));
  EXPECT_EQ(9u, std::strlen(head));
  EXPECT_EQ('#', head[10]);
}

TEST_F(LogTest, HeadWithoutAFileOrAPlaceFails) {
  char head[32];
  EXPECT_EQ(-1, FormatTimeAndName(head, sizeof head, LOG_ERR, nullptr, 1));
  EXPECT_EQ(-1, FormatTimeAndName(nullptr, 1, LOG_ERR, "f", 1));
}

TEST_F(LogTest, AtTheDefaultLevelAllNamedLevelsPass) {
  LogToFiles();
  EXPECT_EQ(0, WriteLog(LOG_DISABLE, "f", 1, "0"));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "1"));
  EXPECT_EQ(0, WriteLog(LOG_DBG, "f", 1, "2"));
  EXPECT_EQ(0, WriteLog(LOG_INF, "f", 1, "3"));
  EXPECT_EQ(-3, WriteLog(4, "f", 1, "4"));
  StopLogService(false);
  EXPECT_EQ((Texts{"0", "1", "2", "3"}), TextsOf(Working(1)));
}

TEST_F(LogTest, AtLevel1OnlyErrorsAndLevel0Pass) {
  LogToFiles();
  EXPECT_EQ(0, AdjustLogLevel(LOG_ERR));
  EXPECT_EQ(0, WriteLog(LOG_DISABLE, "f", 1, "0"));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "1"));
  EXPECT_EQ(-3, WriteLog(LOG_DBG, "f", 1, "2"));
  EXPECT_EQ(-3, WriteLog(LOG_INF, "f", 1, "3"));
  StopLogService(false);
  EXPECT_EQ((Texts{"0", "1"}), TextsOf(Working(1)));
}

TEST_F(LogTest, LevelsAreComparedWithTheirSign) {
  LogToFiles();
  EXPECT_EQ(0, WriteLog(-5, "f", 1, "below"));
  AdjustLogLevel(-1);
  EXPECT_EQ(0, WriteLog(-1, "f", 1, "at"));
  EXPECT_EQ(-3, WriteLog(LOG_DISABLE, "f", 1, "above"));
  StopLogService(false);
  EXPECT_EQ((Texts{"below", "at"}), TextsOf(Working(1)));
}

TEST_F(LogTest, LevelWithoutANameIsWrittenAsUnknown) {
  LogToFiles();
  AdjustLogLevel(100);
  EXPECT_EQ(0, WriteLog(99, "f", 1, "x"));
  StopLogService(false);
  EXPECT_NE(std::string::npos, Working(1).find("[UNKNOWN][FILE:f][LINE:1] x\r\n"));
}

TEST_F(LogTest, WithoutFormatOrFileGivesMinus6WhateverTheLevel) {
  const char* const none = nullptr;
  EXPECT_EQ(-6, WriteLog(LOG_ERR, "f", 1, none));
  EXPECT_EQ(-6, WriteLog(LOG_ERR, none, 1, "x"));
  EXPECT_EQ(-6, WriteLog(100, none, 1, "x"));
}

TEST_F(LogTest, LevelIsLookedAtBeforeTheTargets) { EXPECT_EQ(-3, WriteLog(4, "f", 1, "x")); }

TEST_F(LogTest, WithoutATargetGivesMinus5AndStartsNoThread) {
  EXPECT_EQ(-5, WriteLog(LOG_ERR, "f", 1, "x"));
  EXPECT_FALSE(GetLogService()->bRunning);
  EXPECT_EQ(QIV_INVALID_ID, GetLogService()->hWriterThread);
}

TEST_F(LogTest, AfterAStopThatDisablesGivesMinus2UntilTheServiceMayStart) {
  LogToFiles();
  EXPECT_EQ(0, EnableTarget(LOG_TARGET_DEBUG, nullptr, 0, 0));
  EXPECT_EQ(0, StopLogService(true));
  EXPECT_EQ(-2, WriteLog(LOG_ERR, "f", 1, "x"));
  EXPECT_FALSE(GetLogService()->bRunning);
  EXPECT_EQ(0, StartLogService());
  EXPECT_FALSE(GetLogService()->bRunning);
  const CapturedOutput error(STDERR_FILENO);
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "x"));
  EXPECT_TRUE(GetLogService()->bRunning);
  StopLogService(false);
}

TEST_F(LogTest, TextThatCannotBeFormattedGivesMinus7) {
  LogToFiles();
  std::setlocale(LC_ALL, "C");
  const wchar_t text[] = {0x20AC, 0};
  EXPECT_EQ(-7, WriteLog(LOG_ERR, "f", 1, "%ls", text));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "next"));
  StopLogService(false);
  EXPECT_EQ(Texts{"next"}, TextsOf(Working(1)));
}

TEST_F(LogTest, TextIsCutWhereTheLineReaches2044Characters) {
  LogToFiles();
  const std::size_t head = std::strlen("[2026-11-15 10:30:07.000][ERR][FILE:f][LINE:1] ");
  const std::size_t lengths[] = {2043, 2044, 2045, 2046, 2047, 2048, 5000, 100000};
  for (const std::size_t length : lengths) {
    EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%s", std::string(length - head, 'x').c_str()));
  }
  StopLogService(false);
  const auto lines = Lines(Working(1));
  ASSERT_EQ(std::size(lengths), lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(std::min<std::size_t>(lengths[i], 2044), lines[i].size());
    EXPECT_EQ('x', lines[i].back());
  }
}

TEST_F(LogTest, HeadOfALongFileNameIsCutLikeTheText) {
  LogToFiles();
  const std::size_t head = std::strlen("[2026-11-15 10:30:07.000][ERR][FILE:][LINE:1] ");
  const std::size_t lengths[] = {1990, 1993, 1994, 2040, 2046, 2047, 2048, 3000};
  for (const std::size_t length : lengths) {
    EXPECT_EQ(0, WriteLog(LOG_ERR, std::string(length, 'f').c_str(), 1, "text"));
  }
  StopLogService(false);
  const auto lines = Lines(Working(1));
  ASSERT_EQ(std::size(lengths), lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    EXPECT_EQ(std::min<std::size_t>(head + lengths[i] + 4, 2044), lines[i].size());
  }
  EXPECT_EQ('f', lines.back().back());
}

TEST_F(LogTest, HeaderLeavesTheLogarithmAlone) {
  using namespace qiv;
  EXPECT_EQ(0.0, log(1.0));
}

TEST_F(LogTest, ErrnoStaysAndIsThereForTheFormat) {
  LogToFiles();
  errno = ENOENT;
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%m"));
  EXPECT_EQ(ENOENT, errno);
  StopLogService(false);
  EXPECT_EQ(Texts{std::strerror(ENOENT)}, TextsOf(Working(1)));
}

TEST_F(LogTest, ConsoleLinesGoToStandardOutput) {
  CapturedOutput output(STDOUT_FILENO);
  EXPECT_EQ(0, EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "first"));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "second"));
  EXPECT_EQ(0, StopLogService(false));
  std::fflush(stdout);
  EXPECT_EQ((Texts{"first", "second"}), TextsOf(output.Stop()));
  EXPECT_TRUE(GetLogService()->bConsole) << "a stop ends the files only";
}

TEST_F(LogTest, DebugLinesGoToStandardErrorAsTheyStand) {
  CapturedOutput error(STDERR_FILENO);
  EXPECT_EQ(0, EnableTarget(LOG_TARGET_DEBUG, nullptr, 0, 0));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "first"));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "100 %%"));
  EXPECT_EQ(0, StopLogService(false));
  EXPECT_EQ((Texts{"first", "100 %"}), TextsOf(error.Stop()));
}

TEST_F(LogTest, EachEnabledTargetGetsEachLine) {
  CapturedOutput output(STDOUT_FILENO);
  CapturedOutput error(STDERR_FILENO);
  EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0);
  EnableTarget(LOG_TARGET_DEBUG, nullptr, 0, 0);
  LogToFiles();
  for (int i = 0; i < 100; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", i, "%d", i));
  StopLogService(false);
  std::fflush(stdout);
  const std::string log = Working(1);
  EXPECT_EQ(100u, Lines(log).size());
  EXPECT_EQ(log, output.Stop());
  EXPECT_EQ(log, error.Stop());
}

TEST_F(LogTest, NulInATextEndsItOnTheConsoleAndIsWrittenToFiles) {
  CapturedOutput output(STDOUT_FILENO);
  EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0);
  LogToFiles();
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "a%cb", 0));
  EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "next"));
  StopLogService(false);
  std::fflush(stdout);
  EXPECT_EQ((Texts{std::string("a\0b", 3), "next"}), TextsOf(Working(1)));
  const std::string console = output.Stop();
  EXPECT_NE(std::string::npos, console.find("[LINE:1] a[")) << console;
}

TEST_F(LogTest, UnknownTargetsGiveMinus6AndChangeNothing) {
  LogToFiles();
  WriteLog(LOG_ERR, "f", 1, "x");
  for (const log_services target : {-1, 3, 100}) {
    EXPECT_EQ(-6, EnableTarget(target, nullptr, 0, 0));
    EXPECT_EQ(-6, DisableTarget(target));
  }
  EXPECT_TRUE(GetLogService()->bRunning);
  EXPECT_FALSE(GetLogService()->bConsole);
  EXPECT_FALSE(GetLogService()->bDebugOut);
  EXPECT_TRUE(GetLogService()->bFileOut);
}

TEST_F(LogTest, DisablingTheLastTargetStopsTheService) {
  CapturedOutput output(STDOUT_FILENO);
  EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0);
  LogToFiles();
  WriteLog(LOG_ERR, "f", 1, "x");
  EXPECT_EQ(0, DisableTarget(LOG_TARGET_CONSOLE));
  EXPECT_TRUE(GetLogService()->bRunning);
  EXPECT_EQ(0, DisableTarget(LOG_TARGET_DEBUG)) << "was not enabled";
  EXPECT_TRUE(GetLogService()->bRunning);
  EXPECT_EQ(0, DisableTarget(LOG_TARGET_FILE));
  EXPECT_FALSE(GetLogService()->bRunning);
  EXPECT_FALSE(GetLogService()->bDisabled) << "it may start again";
  EXPECT_EQ(-5, WriteLog(LOG_ERR, "f", 1, "x"));
}

TEST_F(LogTest, WhatWasQueuedReachesATargetThatIsDisabled) {
  CapturedOutput output(STDOUT_FILENO);
  EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0);
  LogToFiles();
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  EXPECT_EQ(0, DisableTarget(LOG_TARGET_CONSOLE));
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  EXPECT_EQ(0, DisableTarget(LOG_TARGET_FILE));
  std::fflush(stdout);
  EXPECT_EQ(1000u, Lines(output.Stop()).size());
  EXPECT_EQ(2000u, Lines(Working(1)).size());
}

TEST_F(LogTest, SwitchWithBothBitsEnablesConsoleAndFilesAndZeroDisablesThem) {
  CapturedOutput output(STDOUT_FILENO);
  AdjustLogLevel(LOG_ERR);
  EXPECT_EQ(0, QIV_Log(3, Directory().c_str()));
  EXPECT_EQ(0, WriteLog(LOG_INF, "f", 1, "x"));
  EXPECT_TRUE(GetLogService()->bConsole);
  EXPECT_FALSE(GetLogService()->bDebugOut);
  EXPECT_TRUE(GetLogService()->bFileOut);
  EXPECT_EQ(2097152u, GetLogService()->nMaxFileSize);
  EXPECT_FALSE(GetLogService()->bCyclic);
  EXPECT_EQ(0, QIV_Log(0, nullptr));
  EXPECT_FALSE(GetLogService()->bRunning);
  EXPECT_TRUE(GetLogService()->bDisabled);
  EXPECT_EQ(-5, WriteLog(LOG_INF, "f", 1, "x"));
  std::fflush(stdout);
  EXPECT_EQ(Texts{"x"}, TextsOf(output.Stop()));
  EXPECT_EQ(Texts{"x"}, TextsOf(Working(1)));
}

TEST_F(LogTest, SwitchWithOneBitEnablesItsTargetOnly) {
  QIV_Log(1, nullptr);
  EXPECT_TRUE(GetLogService()->bConsole);
  EXPECT_FALSE(GetLogService()->bFileOut);
  QIV_Log(0, nullptr);
  QIV_Log(2, Directory().c_str());
  EXPECT_FALSE(GetLogService()->bConsole);
  EXPECT_TRUE(GetLogService()->bFileOut);
}

TEST_F(LogTest, SwitchWithOtherBitsEnablesNothingButLetsTheServiceStart) {
  StopLogService(true);
  AdjustLogLevel(LOG_ERR);
  EXPECT_EQ(0, QIV_Log(0x80000004u, nullptr));
  EXPECT_FALSE(GetLogService()->bDisabled);
  EXPECT_EQ(LOG_INF, GetLogService()->logLevel);
  EXPECT_EQ(-5, WriteLog(LOG_INF, "f", 1, "x"));
}

TEST_F(LogTest, SwitchingOffLeavesTheDebugTargetButRefusesItsLines) {
  EnableTarget(LOG_TARGET_DEBUG, nullptr, 0, 0);
  QIV_Log(0, nullptr);
  EXPECT_TRUE(GetLogService()->bDebugOut);
  EXPECT_EQ(-2, WriteLog(LOG_INF, "f", 1, "x"));
}

TEST_F(LogTest, LastStopOfTheLibrarySwitchesLoggingOffAndLosesNothing) {
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_Init());
  QIV_Log(2, Directory().c_str());
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(0, WriteLog(LOG_ERR, "f", 1, "%d", i));
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_TRUE(GetLogService()->bRunning) << "there is another user";
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_FALSE(GetLogService()->bRunning);
  EXPECT_EQ(1000u, Lines(Working(1)).size());
  EXPECT_EQ(-5, WriteLog(LOG_ERR, "f", 1, "x"));
}

}  // namespace
