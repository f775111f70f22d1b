#include <gtest/gtest.h>
#include <qiv/event.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string>

#include "support/failing_allocation.h"
#include "support/interrupting_signals.h"
#include "support/leak_check.h"
#include "support/no_descriptor_limit.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/sockets.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"
#include "sync/event_fixture.h"

namespace {

using qiv::test::Event;
using qiv::test::MessagesOf;
using qiv::test::NoDescriptorLimit;
using qiv::test::ReplacedDescriptor;
using qiv::test::Stopwatch;

/** The limit that no test reaches. */
int LongMs() { return static_cast<int>(qiv::test::TestLimit().count()); }

class EventTest : public qiv::test::LeakCheckedTest {};

// --- life ----------------------------------------------------------------------------------------

TEST_F(EventTest, AnEventStartsAsAsked) {
  const Event unsignalled(0);
  EXPECT_EQ(QIV_WAIT_TIMEOUT, QIV_WaitForSingleObject(unsignalled.Get(), 0));
  for (const int signalled : {1, -1, INT_MIN, 256}) {
    const Event event(signalled);
    EXPECT_EQ(0, QIV_WaitForSingleObject(event.Get(), 0)) << signalled;
    EXPECT_EQ(1, event.BytesInPipe()) << signalled;
  }
}

TEST_F(EventTest, ARecordStartsPlain) {
  const Event event;
  EXPECT_NE(event.ReadEnd(), event.WriteEnd());
  EXPECT_EQ(-1, event.Record().socket.load());
  EXPECT_EQ(0U, event.Record().pollMode.load());
  EXPECT_EQ(0U, event.Record().networkEventMask.load());
  EXPECT_EQ(0U, event.Record().triggeredEvent.load());
  EXPECT_EQ(0U, event.Record().reserved);
  EXPECT_EQ(0, event.Record().errorCode.load());
}

TEST_F(EventTest, TheFieldsStandInTheirOrderInTheHandlesMemory) {
  const Event event;
  int words[8];
  std::memcpy(words, event.Get(), sizeof(words));
  EXPECT_EQ(event.ReadEnd(), words[0]);
  EXPECT_EQ(event.WriteEnd(), words[1]);
  EXPECT_EQ(-1, words[2]);
  EXPECT_EQ(0, words[6]);
  EXPECT_EQ(0, words[7]);
}

TEST_F(EventTest, ThePipeIsClosedByExec) {
  const Event event;
  EXPECT_NE(0, fcntl(event.ReadEnd(), F_GETFD) & FD_CLOEXEC);
  EXPECT_NE(0, fcntl(event.WriteEnd(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(EventTest, WithoutMemoryThereIsNoEventAndNoMessage) {
  QIV_HANDLE event = this;
  EXPECT_EQ("", MessagesOf([&] {
              const qiv::test::FailingAllocation noMemory(1);
              event = QIV_CreateEvent(1);
              EXPECT_TRUE(noMemory.Happened());
            }));
  EXPECT_EQ(nullptr, event);
}

TEST_F(EventTest, WithoutDescriptorsThereIsNoEventAndNothingIsClosed) {
  QIV_HANDLE event = this;
  const int descriptors = qiv::test::CountEntries("/proc/self/fd");
  EXPECT_EQ("zelmar !!! QIV_CreateEvent return error 24 0\n\n", MessagesOf([&] {
              const NoDescriptorLimit noDescriptors;
              event = QIV_CreateEvent(1);
              EXPECT_EQ(EMFILE, errno);
            }));
  EXPECT_EQ(nullptr, event);
  EXPECT_EQ(descriptors, qiv::test::CountEntries("/proc/self/fd"));
}

TEST_F(EventTest, CloseGivesOneAndClosesThePipe) {
  const int descriptors = qiv::test::CountEntries("/proc/self/fd");
  QIV_HANDLE event = QIV_CreateEvent(1);
  ASSERT_NE(nullptr, event);
  EXPECT_EQ(descriptors + 2, qiv::test::CountEntries("/proc/self/fd"));
  EXPECT_EQ(1, QIV_CloseEvent(event));
  EXPECT_EQ(descriptors, qiv::test::CountEntries("/proc/self/fd"));
}

TEST_F(EventTest, CloseOfABoundEventLeavesTheSocketOpen) {
  const qiv::test::Socket socket = qiv::test::UdpSocket();
  QIV_HANDLE event = QIV_CreateEvent(0);
  EXPECT_EQ(0, QIV_EventSelect(socket.Get(), event, QIV_EVENT_READ));
  EXPECT_EQ(1, QIV_CloseEvent(event));
  EXPECT_NE(-1, fcntl(socket.Get(), F_GETFD));
}

// --- null events ---------------------------------------------------------------------------------

struct NullRow {
  const char* message;
  int result;
  int (*call)(QIV_HANDLE);
};

TEST_F(EventTest, NullEventsAreRefusedWithTheirMessages) {
  const NullRow rows[] = {
      {"zelmar !!! QIV_CloseEvent !hEvnet return error 0\n", 0, QIV_CloseEvent},
      {"zelmar !!! QIV_SetEvent !hEvent return error 0\n", 0, QIV_SetEvent},
      {"zelmar !!! QIV_ResetEvent  !hEvent return error 0\n", 0, QIV_ResetEvent},
      {"zelmar !!! QIV_WaitForSingleObject !hEvent return error 0\n", 0x7FFFFFFE,
       [](QIV_HANDLE event) { return QIV_WaitForSingleObject(event, -1); }},
      {"zelmar !!! QIV_WaitForMultipleObjects ((nEventCount < 0) || !hEvents) return error 0\n",
       0x7FFFFFFE, [](QIV_HANDLE) { return QIV_WaitForMultipleObjects(1, nullptr, 0, -1); }},
  };
  for (const NullRow& row : rows) {
    int result = 12345;
    EXPECT_EQ(std::string(row.message) + "\n", MessagesOf([&] { result = row.call(nullptr); }));
    EXPECT_EQ(row.result, result) << row.message;
  }
}

// --- set and reset -------------------------------------------------------------------------------

TEST_F(EventTest, AWaitDoesNotTakeTheSignal) {
  const Event event(1);
  EXPECT_EQ(0, QIV_WaitForSingleObject(event.Get(), 0));
  EXPECT_EQ(0, QIV_WaitForSingleObject(event.Get(), 0));
  EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
  EXPECT_EQ(0x7FFFFFFF, QIV_WaitForSingleObject(event.Get(), 0));
}

TEST_F(EventTest, ThreeSetsLeaveOneByteInThePipe) {
  const Event event;
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(1, QIV_SetEvent(event.Get()));
    EXPECT_EQ(1, event.BytesInPipe());
  }
  char byte = 0;
  EXPECT_EQ(1, read(event.ReadEnd(), &byte, 1));
  EXPECT_EQ('e', byte);
}

TEST_F(EventTest, ResetOfAnUnsignalledEventSucceeds) {
  const Event event;
  EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
  EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
  EXPECT_EQ(0, event.BytesInPipe());
}

TEST_F(EventTest, ResetDrainsAPipeOfAnyFilling) {
  const Event event;
  for (const std::size_t bytes : {1U, 255U, 256U, 257U, 512U, 1000U}) {
    const std::string filling(bytes, 'x');
    ASSERT_EQ(static_cast<ssize_t>(bytes), write(event.WriteEnd(), filling.data(), bytes));
    EXPECT_EQ(1, QIV_ResetEvent(event.Get())) << bytes;
    EXPECT_EQ(0, event.BytesInPipe()) << bytes;
  }
}

TEST_F(EventTest, SuccessPrintsNothing) {
  EXPECT_EQ("", MessagesOf([] {
              const Event event(1);
              QIV_SetEvent(event.Get());
              QIV_WaitForSingleObject(event.Get(), -1);
              QIV_ResetEvent(event.Get());
              QIV_WaitForSingleObject(event.Get(), 0);
            }));
}

TEST_F(EventTest, AFailedWriteIsReportedAndLeavesTheEventUsable) {
  const Event event(1);
  int result = -1;
  EXPECT_EQ(
      "zelmar !!!! QIV_WritePipe_Inter return QIV_FALSE errno = 28\n"
      "zelmar !!! QIV_SetEvent write pipe return error 28 2\n\n",
      MessagesOf([&] {
        const ReplacedDescriptor full(event.WriteEnd(), "/dev/full", O_WRONLY);
        result = QIV_SetEvent(event.Get());
      }));
  EXPECT_EQ(0, result);
  EXPECT_EQ(1, QIV_SetEvent(event.Get()));
}

TEST_F(EventTest, AFailedPollOfTheWriteEndIsReportedAndLeavesTheEventUsable) {
  const Event event;
  int result = -1;
  EXPECT_EQ(
      "zelmar !!!! QIV_WritePipe_Inter return QIV_FALSE errno = 22\n"
      "zelmar !!! QIV_SetEvent write pipe return error 22 2\n\n",
      MessagesOf([&] {
        const NoDescriptorLimit pollFails;
        result = QIV_SetEvent(event.Get());
      }));
  EXPECT_EQ(0, result);
  EXPECT_EQ(0, event.BytesInPipe());
  EXPECT_EQ(1, QIV_SetEvent(event.Get()));
}

TEST_F(EventTest, AFailedReadIsReportedAndLeavesTheEventUsable) {
  const Event event;
  int setResult = -1;
  int resetResult = -1;
  EXPECT_EQ("zelmar !!! QIV_SetEvent read pipe return error 9 1\n\n", MessagesOf([&] {
              const ReplacedDescriptor unreadable(event.ReadEnd(), "/dev/null", O_WRONLY);
              setResult = QIV_SetEvent(event.Get());
              resetResult = QIV_ResetEvent(event.Get());
            }));
  EXPECT_EQ(0, setResult);
  EXPECT_EQ(0, resetResult);
  EXPECT_EQ(1, QIV_SetEvent(event.Get()));
  EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
}

TEST_F(EventTest, APipeThatReportsMoreThanReadinessIsNotDrained) {
  const Event event(1);
  const int file = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(file, event.WriteEnd());  // the byte is still there, and the other end hung up
  close(file);
  EXPECT_EQ(0, QIV_ResetEvent(event.Get()));
}

TEST_F(EventTest, ADrainThatReadsNothingEndsInsteadOfTurningForEver) {
  const Event event;
  const ReplacedDescriptor endOfFile(event.ReadEnd(), "/dev/null", O_RDONLY);
  EXPECT_EQ(0, QIV_ResetEvent(event.Get()));
}

TEST_F(EventTest, AFailedPollOfTheReadEndIsKeptToCountAsDrained) {
  const Event event(1);
  {
    const NoDescriptorLimit pollFails;
    EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
  }
  EXPECT_EQ(1, event.BytesInPipe());
}

// --- the wait for one event ----------------------------------------------------------------------

TEST_F(EventTest, AWaitThatNobodyEndsLastsItsTime) {
  const Event event;
  const Stopwatch time;
  EXPECT_EQ(0x7FFFFFFF, QIV_WaitForSingleObject(event.Get(), 100));
  EXPECT_GE(time.Milliseconds(), 95);
}

TEST_F(EventTest, ASetEndsWaitsWithAndWithoutLimit) {
  for (const int ms : {-1, LongMs(), INT_MAX}) {
    const Event event;
    qiv::test::SleepingCall waiter(
        [&event, ms] { return QIV_WaitForSingleObject(event.Get(), ms); });
    EXPECT_EQ(1, QIV_SetEvent(event.Get()));
    EXPECT_EQ(0, waiter.Get()) << ms;
  }
}

TEST_F(EventTest, OneSetReleasesAllThreadsThatWait) {
  const Event event;
  const auto wait = [&event] { return QIV_WaitForSingleObject(event.Get(), -1); };
  qiv::test::SleepingCall first(wait);
  qiv::test::SleepingCall second(wait);
  qiv::test::SleepingCall third(wait);
  EXPECT_EQ(1, QIV_SetEvent(event.Get()));
  EXPECT_EQ(0, first.Get());
  EXPECT_EQ(0, second.Get());
  EXPECT_EQ(0, third.Get());
}

TEST_F(EventTest, ASignalHandlerIsKeptToFailTheWaitForOneEvent) {
  const Event event;
  int result = 0;
  EXPECT_EQ("zelmar QIV_WaitForSingleObject poll error return error 4 3\n\n", MessagesOf([&] {
              const qiv::test::InterruptingSignals signals(std::chrono::milliseconds(20));
              result = QIV_WaitForSingleObject(event.Get(), LongMs());
            }));
  EXPECT_EQ(0x7FFFFFFC, result);
}

TEST_F(EventTest, AFailedPollFailsTheWait) {
  const Event event(1);
  int result = 0;
  EXPECT_EQ("zelmar QIV_WaitForSingleObject poll error return error 22 3\n\n", MessagesOf([&] {
              const NoDescriptorLimit pollFails;
              result = QIV_WaitForSingleObject(event.Get(), LongMs());
            }));
  EXPECT_EQ(0x7FFFFFFC, result);
}

TEST_F(EventTest, AClosedReadEndIsKeptToCountAsSignalled) {
  const Event event;
  const int saved = dup(event.ReadEnd());
  close(event.ReadEnd());
  EXPECT_EQ(0, QIV_WaitForSingleObject(event.Get(), -1));
  dup2(saved, event.ReadEnd());
  close(saved);
}

// --- threads -------------------------------------------------------------------------------------

TEST_F(EventTest, WhatASetterWroteIsSeenByTheThreadThatWaited) {
  for (int round = 0; round < 100; ++round) {
    const Event event;
    int plain = 0;
    auto setter = qiv::test::RunInThread([&] {
      plain = 42;
      return QIV_SetEvent(event.Get());
    });
    const QIV_HANDLE events[] = {event.Get()};
    EXPECT_EQ(0, round % 2 == 0 ? QIV_WaitForSingleObject(event.Get(), LongMs())
                                : QIV_WaitForMultipleObjects(1, events, 0, LongMs()));
    EXPECT_EQ(42, plain);
    EXPECT_EQ(1, setter.Get());
  }
}

TEST_F(EventTest, AThreadThatFoundTheEventSignalledMayCloseItAtOnce) {
  const int rounds = qiv::test::ScaledLoad(500);
  for (int round = 0; round < rounds; ++round) {
    QIV_HANDLE event = QIV_CreateEvent(0);
    ASSERT_NE(nullptr, event);
    auto setter = qiv::test::RunInThread([event] { return QIV_SetEvent(event); });
    ASSERT_EQ(0, QIV_WaitForSingleObject(event, LongMs()));
    ASSERT_EQ(1, QIV_CloseEvent(event));
    ASSERT_EQ(1, setter.Get());
  }
}

TEST_F(EventTest, ACancelledThreadLeavesTheEventUsable) {
  const Event event;
  pthread_t thread;
  const auto setAndWait = [](void* handle) -> void* {
    pthread_cancel(pthread_self());
    // Neither of these is a cancellation point; the wait is one.
    QIV_SetEvent(handle);
    QIV_ResetEvent(handle);
    QIV_SetEvent(handle);
    QIV_WaitForSingleObject(handle, 0);
    QIV_ResetEvent(handle);
    return nullptr;
  };
  ASSERT_EQ(0, pthread_create(&thread, nullptr, setAndWait, event.Get()));
  void* result = nullptr;
  ASSERT_EQ(0, pthread_join(thread, &result));
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_EQ(0, QIV_WaitForSingleObject(event.Get(), 0));
  EXPECT_EQ(1, QIV_ResetEvent(event.Get()));
}

}  // namespace
