// The first asynchronous interface, every call of which fails.
#include <qiv/async_io_legacy.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>
#include <type_traits>

#include "support/leak_check.h"

namespace {

using AnyArguments = int (*)(...);

struct LegacyCall {
  const char* name;
  AnyArguments function;
};

std::ostream& operator<<(std::ostream& out, const LegacyCall& row) { return out << row.name; }

void NeverCalled(unsigned long /*error*/, unsigned long /*bytes*/, void* /*user*/) {
  ADD_FAILURE() << "a callback was called";
}

class AsyncIoLegacyTest : public qiv::test::LeakCheckedTest {};

class AsyncIoLegacyCallTest : public AsyncIoLegacyTest,
                              public ::testing::WithParamInterface<LegacyCall> {};

TEST_P(AsyncIoLegacyCallTest, ReturnsMinusOneWhateverItIsGiven) {
  const AnyArguments call = GetParam().function;
  char buffer[8] = "unread";
  QIV_ADDR_T address = {};
  void* const handle = buffer;
  void* const noHandle = nullptr;
  errno = 0;
  EXPECT_EQ(-1, call());
  EXPECT_EQ(-1, call(0));
  EXPECT_EQ(-1, call(-1, INT_MIN, UINT_MAX));
  EXPECT_EQ(-1, call(noHandle, noHandle, 0UL, noHandle, noHandle));
  EXPECT_EQ(-1, call(handle, buffer, 8UL, buffer, &address));
  EXPECT_EQ(-1, call(handle, NeverCalled));
  EXPECT_EQ(-1, call(handle, 1, 2UL, 3UL, buffer, NeverCalled));
  EXPECT_EQ(0, errno);
  EXPECT_STREQ("unread", buffer);
}

INSTANTIATE_TEST_SUITE_P(
    Calls, AsyncIoLegacyCallTest,
    ::testing::Values(LegacyCall{"CreateQueue", QIV_AsyncIO_CreateQueue},
                      LegacyCall{"CreateQueueEx", QIV_AsyncIO_CreateQueueEx},
                      LegacyCall{"DestroyQueue", QIV_AsyncIO_DestroyQueue},
                      LegacyCall{"BindIOHandleToQueue", QIV_AsyncIO_BindIOHandleToQueue},
                      LegacyCall{"BindCallBackToIOHandle", QIV_AsyncIO_BindCallBackToIOHandle},
                      LegacyCall{"PostQueuedCompleteStatus", QIV_AsyncIO_PostQueuedCompleteStatus},
                      LegacyCall{"Send", QIV_AsyncIO_Send}, LegacyCall{"Recv", QIV_AsyncIO_Recv},
                      LegacyCall{"SendTo", QIV_AsyncIO_SendTo},
                      LegacyCall{"RecvFrom", QIV_AsyncIO_RecvFrom},
                      LegacyCall{"WriteFile", QIV_AsyncIO_WriteFile},
                      LegacyCall{"ReadFile", QIV_AsyncIO_ReadFile}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(AsyncIoLegacyTest, ClassesHaveOneMemberAndNothingVirtual) {
  EXPECT_EQ(sizeof(void*), sizeof(QIV_AsyncIO));
  EXPECT_EQ(4U, sizeof(QIV_AsyncIOQueue));
  EXPECT_FALSE(std::is_polymorphic<QIV_AsyncIO>::value);
  EXPECT_FALSE(std::is_polymorphic<QIV_AsyncIOQueue>::value);
}

TEST_F(AsyncIoLegacyTest, EveryRequestOfAHandleFails) {
  char buffer[8] = "unread";
  QIV_ADDR_T address = {};
  for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(buffer)}) {
    QIV_AsyncIO io(handle);
    EXPECT_EQ(-1, io.IOSend(buffer, sizeof(buffer), &io));
    EXPECT_EQ(-1, io.IORecv(buffer, sizeof(buffer), &io));
    EXPECT_EQ(-1, io.IOSendTo(buffer, sizeof(buffer), &io, &address));
    EXPECT_EQ(-1, io.IORecvFrom(buffer, sizeof(buffer), &io, &address));
    EXPECT_EQ(-1, io.IOWriteFile(buffer, sizeof(buffer), &io));
    EXPECT_EQ(-1, io.IOReadFile(buffer, sizeof(buffer), &io));
    EXPECT_EQ(-1, io.IOSend(nullptr, ULONG_MAX, nullptr));
    EXPECT_EQ(-1, io.IORecvFrom(nullptr, ULONG_MAX, nullptr, nullptr));
  }
  EXPECT_STREQ("unread", buffer);
}

TEST_F(AsyncIoLegacyTest, HandleIsKept) {
  int target = 0;
  const QIV_AsyncIO io(&target);
  EXPECT_EQ(&target, *reinterpret_cast<void* const*>(&io));
}

TEST_F(AsyncIoLegacyTest, BindingFailsWithAnArgumentAndWithNull) {
  QIV_AsyncIOQueue queue;
  QIV_AsyncIO io(nullptr);
  EXPECT_EQ(-1, io.BindCallBackToIOHandle(nullptr));
  EXPECT_EQ(-1, io.BindCallBackToIOHandle(NeverCalled));
  EXPECT_EQ(-1, io.BindIOHandleToQueue(nullptr));
  EXPECT_EQ(-1, io.BindIOHandleToQueue(&queue));
}

TEST_F(AsyncIoLegacyTest, QueueHandleIs0AndMinusOneAfterInitialize) {
  QIV_AsyncIOQueue queue;
  EXPECT_EQ(0, queue.GetHandle());
  EXPECT_EQ(-1, queue.Initialize());
  EXPECT_EQ(-1, queue.GetHandle());
}

/** Runs steps in a child process; what they return, 0 to 255, or -1 when a signal ended it. */
template <class Steps>
int InAChild(Steps steps) {
  const pid_t child = fork();
  if (child == 0) _exit(steps());
  int status = 0;
  EXPECT_EQ(child, waitpid(child, &status, 0));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void OpenStandardInput() {
  const int file = open("/dev/null", O_RDONLY);
  if (file > 0) {
    dup2(file, STDIN_FILENO);
    close(file);
  }
}

bool IsStandardInputOpen() { return fcntl(STDIN_FILENO, F_GETFD) != -1; }

TEST_F(AsyncIoLegacyTest, ReleaseIsKeptToCloseStandardInputWithoutInitialize) {
  EXPECT_EQ(0, InAChild([] {
              OpenStandardInput();
              QIV_AsyncIOQueue queue;
              if (!IsStandardInputOpen()) return 1;
              if (queue.Release() != 0) return 2;
              if (IsStandardInputOpen()) return 3;
              // The handle stays as it is; closing it once more fails unseen.
              return queue.GetHandle() == 0 && queue.Release() == 0 ? 0 : 4;
            }));
}

TEST_F(AsyncIoLegacyTest, ReleaseDoesNothingAfterInitialize) {
  EXPECT_EQ(0, InAChild([] {
              OpenStandardInput();
              QIV_AsyncIOQueue queue;
              if (queue.Initialize() != -1) return 1;
              errno = 0;
              if (queue.Release() != 0 || errno != 0) return 2;
              return IsStandardInputOpen() && queue.GetHandle() == -1 ? 0 : 3;
            }));
}

TEST_F(AsyncIoLegacyTest, DestructorsReleaseNothing) {
  EXPECT_EQ(0, InAChild([] {
              OpenStandardInput();
              { const QIV_AsyncIOQueue queue; }
              { const QIV_AsyncIO io(nullptr); }
              return IsStandardInputOpen() ? 0 : 1;
            }));
}

}  // namespace
