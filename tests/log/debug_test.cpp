#include <qiv/debug.h>

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "support/captured_output.h"
#include "support/leak_check.h"
#include "support/run_in_thread.h"

namespace {

using qiv::test::CapturedOutput;

class DebugTest : public qiv::test::LeakCheckedTest {};

template <class Write>
std::string Written(Write write) {
  CapturedOutput output(STDERR_FILENO);
  write();
  return output.Stop();
}

TEST_F(DebugTest, MessageIsFormattedAndEndsInALineFeed) {
  EXPECT_EQ("a5\n", Written([] { EXPECT_GE(QIV_OutputDebug("a%d", 5), 0); }));
}

TEST_F(DebugTest, LineFeedIsKeptAddedToAMessageThatHasOne) {
  EXPECT_EQ("x\n\n", Written([] { QIV_OutputDebug("x\n"); }));
}

TEST_F(DebugTest, EmptyMessageIsALineFeed) {
  EXPECT_EQ("\n", Written([] { QIV_OutputDebug("%s", ""); }));
}

struct LengthRow {
  const char* name;
  std::size_t length;
  std::size_t written;
  const char* end;
};

TEST_F(DebugTest, LongMessagesAreCutAt5117Characters) {
  const LengthRow rows[] = {
      {"longest whole message", 5117, 5117, "\n"}, {"kept without its line feed", 5118, 5117, ""},
      {"first past the buffer", 5119, 5117, "\n"}, {"as long as the buffer", 5120, 5117, "\n"},
      {"much longer", 100000, 5117, "\n"},
  };
  for (const LengthRow& row : rows) {
    const std::string text(row.length, 'x');
    EXPECT_EQ(std::string(row.written, 'x') + row.end,
              Written([&] { QIV_OutputDebug("%s", text.c_str()); }))
        << row.name;
  }
}

constexpr const char* kCannotFormat = "QIV_OutputDebug error,input parameter is too long!!!";

TEST_F(DebugTest, MessageThatCannotBeFormattedIsReplacedWithoutALineFeed) {
  // No wide character above 127 has a form in the "C" locale.
  EXPECT_EQ(kCannotFormat, Written([] { QIV_OutputDebug("abc%ls", L"\u20ac"); }));
}

TEST_F(DebugTest, NullFormatIsReplacedToo) {
  const char* const format = nullptr;
  EXPECT_EQ(kCannotFormat, Written([&] { QIV_OutputDebug(format, 0); }));
}

TEST_F(DebugTest, StringIsWrittenAsItStands) {
  EXPECT_EQ("y", Written([] { EXPECT_GE(QIV_OutputDebugString("y"), 0); }));
  EXPECT_EQ("%d\n", Written([] { QIV_OutputDebugString("%d\n"); }));
}

TEST_F(DebugTest, NullStringGivesEof) {
  EXPECT_EQ("", Written([] { EXPECT_EQ(EOF, QIV_OutputDebugString(nullptr)); }));
}

TEST_F(DebugTest, ResultIsEofAndErrnoStaysWhenStandardErrorIsClosed) {
  const int saved = dup(STDERR_FILENO);
  close(STDERR_FILENO);
  errno = ERANGE;
  const int message = QIV_OutputDebug("lost");
  const int text = QIV_OutputDebugString("lost");
  const int error = errno;
  dup2(saved, STDERR_FILENO);
  close(saved);
  std::clearerr(stderr);
  EXPECT_EQ(EOF, message);
  EXPECT_EQ(EOF, text);
  EXPECT_EQ(ERANGE, error);
}

TEST_F(DebugTest, CancelledThreadWritesItsMessageAndGoesOn) {
  bool wentOn = false;
  const std::string written = Written([&] {
    qiv::test::RunInThread([&] {
      int ignored = 0;
      pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
      pthread_cancel(pthread_self());
      pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &ignored);
      QIV_OutputDebug("still here");
      pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
      wentOn = true;
      return 0;
    }).Get();
  });
  EXPECT_TRUE(wentOn);
  EXPECT_EQ("still here\n", written);
}

TEST_F(DebugTest, NoOpsTakeAnyArgumentsAndWriteNothing) {
  EXPECT_EQ("", Written([] {
              QIV_Debug();
              QIV_Debug("x %d", 1, 2.5);
              qiv2_log(1);
              qiv2_log("x", 2, 2.5);
            }));
}

}  // namespace
