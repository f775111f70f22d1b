// How senders and receivers wake each other: which mutex is held where, and what a thread does that
// has been woken.
#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/message_queue.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/scoped_lock.h"
#include "container/haltable_call.h"
#include "container/message_queue.h"
#include "container/message_queue_fixture.h"
#include "support/eventually.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/stopwatch.h"

namespace {

using qiv::base::ScopedLock;
using qiv::test::DataOf;
using qiv::test::Eventually;
using qiv::test::HaltableCall;
using qiv::test::kNoLimit;
using qiv::test::Message;
using qiv::test::Room;
using qiv::test::RunInThread;
using qiv::test::SleepingCall;
using qiv::test::Stopwatch;

/** Also when the calling thread holds it. */
bool IsHeld(pthread_mutex_t& mutex) {
  if (pthread_mutex_trylock(&mutex) != 0) return true;
  pthread_mutex_unlock(&mutex);
  return false;
}

/** Lets one thread lock a mutex several times: a test that holds hListMutex can destroy the queue.
 */
class Recursive {
 public:
  explicit Recursive(pthread_mutex_t& mutex) : m_mutex(mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_destroy(&m_mutex);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~Recursive() {
    pthread_mutex_destroy(&m_mutex);
    pthread_mutex_init(&m_mutex, nullptr);
  }
  Recursive(const Recursive&) = delete;
  Recursive& operator=(const Recursive&) = delete;

 private:
  pthread_mutex_t& m_mutex;
};

class MessageQueueWakeupTest : public qiv::test::MessageQueueTest {
 protected:
  std::string Receive(unsigned int timeoutMs) {
    QIV_MSG_BLOCK_T block = Room(QIV_MSGQ_MAX_DATA);
    const int result = QIV_MsgQReceiveEx(m_queue, &block, timeoutMs);
    return result == 0 ? DataOf(block) : std::to_string(result);
  }

  /** A receive on a thread of its own; what it has got, or its result. */
  auto SleepingReceive(unsigned int timeoutMs) {
    return std::make_unique<HaltableCall<std::string>>(
        [this, timeoutMs] { return Receive(timeoutMs); });
  }

  /** As for a message that another receiver has taken already. */
  void WakeReceivers() {
    const ScopedLock lock(m_queue->hArriveMutex);
    pthread_cond_broadcast(&m_queue->hArriveCond);
  }

  void DestroyAndCreateAtTheSamePlace() {
    QIV_MQ_INTER* again = nullptr;
    ASSERT_EQ(0, QIV_MsgQDestroyEx(m_queue));
    ASSERT_EQ(0, QIV_MsgQCreateEx(&again));
    ASSERT_EQ(m_queue, again);
  }
};

TEST_F(MessageQueueWakeupTest, SendTakesTheMutexOfArrivalsToBroadcastWhileItHoldsTheList) {
  const QIV_MSG_BLOCK_T message = Message(0, "a");
  pthread_mutex_lock(&m_queue->hArriveMutex);
  SleepingCall send([&] { return QIV_MsgQSendEx(m_queue, &message); });
  EXPECT_TRUE(IsHeld(m_queue->hListMutex));
  EXPECT_FALSE(send.HasReturned());
  pthread_mutex_unlock(&m_queue->hArriveMutex);
  EXPECT_EQ(0, send.Get());
  EXPECT_EQ("a", Take());
}

TEST_F(MessageQueueWakeupTest, ReceiveTakesTheMutexOfSpaceToBroadcastWhileItHoldsTheList) {
  Send(0, "a");
  pthread_mutex_lock(&m_queue->hSpaceMutex);
  const auto receiver = SleepingReceive(kNoLimit);
  EXPECT_TRUE(IsHeld(m_queue->hListMutex));
  EXPECT_FALSE(receiver->HasReturned());
  pthread_mutex_unlock(&m_queue->hSpaceMutex);
  EXPECT_EQ("a", receiver->Get());
}

TEST_F(MessageQueueWakeupTest, ReceiveTakesTheMutexOfArrivalsToWaitBeforeItReleasesTheList) {
  pthread_mutex_lock(&m_queue->hArriveMutex);
  const auto receiver = SleepingReceive(kNoLimit);
  EXPECT_TRUE(IsHeld(m_queue->hListMutex)) << "a send here would wake nobody";
  pthread_mutex_unlock(&m_queue->hArriveMutex);
  Send(0, "a");
  EXPECT_EQ("a", receiver->Get());
}

TEST_F(MessageQueueWakeupTest, WaitForSpaceTakesTheMutexOfSpaceBeforeItReleasesTheList) {
  Send(0, "a");
  pthread_mutex_lock(&m_queue->hSpaceMutex);
  SleepingCall wait([this] {
    pthread_mutex_lock(&m_queue->hListMutex);
    return qiv::container::QIV_MsgQWaitTimeOut_Inter(m_queue, 0, 0);
  });
  EXPECT_TRUE(IsHeld(m_queue->hListMutex));
  pthread_mutex_unlock(&m_queue->hSpaceMutex);
  EXPECT_EQ("a", Take());
  EXPECT_EQ(0, wait.Get());
}

TEST_F(MessageQueueWakeupTest, WaitingReceiverHoldsNoMutex) {
  const auto receiver = SleepingReceive(kNoLimit);
  EXPECT_FALSE(IsHeld(m_queue->hListMutex));
  EXPECT_FALSE(IsHeld(m_queue->hArriveMutex));
  EXPECT_FALSE(IsHeld(m_queue->hSpaceMutex));
  Send(0, "a");
  EXPECT_EQ("a", receiver->Get());
}

TEST_F(MessageQueueWakeupTest, WokenReceiverLooksForAMessageUnderTheMutexOfTheList) {
  const auto receiver = SleepingReceive(kNoLimit);
  pthread_mutex_lock(&m_queue->hListMutex);
  WakeReceivers();
  EXPECT_TRUE(receiver->SleepsAgain());
  EXPECT_TRUE(IsHeld(m_queue->hListMutex)) << "released by a receiver that does not hold it";
  EXPECT_FALSE(IsHeld(m_queue->hArriveMutex));
  pthread_mutex_unlock(&m_queue->hListMutex);
  Send(0, "a");
  EXPECT_EQ("a", receiver->Get());
}

TEST_F(MessageQueueWakeupTest, ReceiverThatFindsTheMessageGoneWaitsForTheNext) {
  for (const unsigned int timeoutMs : {kNoLimit, 60000u}) {
    const auto receiver = SleepingReceive(timeoutMs);
    for (int i = 0; i < 3; ++i) {
      WakeReceivers();
      ASSERT_TRUE(receiver->SleepsAgain());
      ASSERT_FALSE(receiver->HasReturned());
    }
    Send(0, "a");
    EXPECT_EQ("a", receiver->Get());
  }
}

TEST_F(MessageQueueWakeupTest, EachMessageGoesToOneOfTheReceiversThatItWakes) {
  std::vector<std::unique_ptr<HaltableCall<std::string>>> receivers;
  for (const unsigned int timeoutMs : {kNoLimit, 60000u, kNoLimit}) {
    receivers.push_back(SleepingReceive(timeoutMs));
  }
  std::string taken;
  for (const char* data : {"a", "b", "c"}) {
    Send(0, data);
    const auto hasReturned = [](const auto& receiver) { return receiver->HasReturned(); };
    auto first = receivers.end();
    ASSERT_TRUE(Eventually([&] {
      first = std::find_if(receivers.begin(), receivers.end(), hasReturned);
      return first != receivers.end();
    }));
    taken += (*first)->Get();
    receivers.erase(first);
    for (const auto& receiver : receivers) EXPECT_TRUE(receiver->SleepsAgain());
    EXPECT_TRUE(std::none_of(receivers.begin(), receivers.end(), hasReturned));
  }
  EXPECT_EQ("abc", taken);
}

TEST_F(MessageQueueWakeupTest, ReceiverThatFindsMessagesGoneAgainAndAgainWaitsItsTimeOnce) {
  constexpr unsigned int kTimeoutMs = 300;
  const Stopwatch watch;
  auto receiver = RunInThread([this] { return Receive(kTimeoutMs); });
  EXPECT_TRUE(Eventually([&] {
    WakeReceivers();
    return receiver.IsReady();
  }));
  EXPECT_GE(watch.Milliseconds(), kTimeoutMs * 95 / 100);
  QIV_MsgQDestroyEx(m_queue);  // sends it away if it waits on
  EXPECT_EQ("-1", receiver.Get());
  EXPECT_EQ(0, QIV_MsgQCreateEx(&m_queue));
}

TEST_F(MessageQueueWakeupTest, CountWithoutAMessageKeepsAReceiverForItsTimeAndNoLonger) {
  m_queue->nMsgCount = 1;
  for (const unsigned int timeoutMs : {0u, 1u, 60u}) {
    const Stopwatch watch;
    EXPECT_EQ("-1", RunInThread([&] { return Receive(timeoutMs); }).Get());
    EXPECT_GE(watch.Milliseconds(), timeoutMs * 95 / 100);
    EXPECT_FALSE(IsHeld(m_queue->hListMutex));
  }
  m_queue->nMsgCount = 0;
}

TEST_F(MessageQueueWakeupTest, CountWithoutAMessageIsNoMessageForAReceiverWithoutLimit) {
  m_queue->nMsgCount = 1;
  auto receiver = RunInThread([this] { return Receive(kNoLimit); });
  EXPECT_TRUE(Eventually([this] { return IsHeld(m_queue->hListMutex); })) << "it looks";
  EXPECT_FALSE(receiver.IsReady());
  Send(0, "a");
  EXPECT_EQ("a", receiver.Get());
  EXPECT_EQ(1u, m_queue->nMsgCount);
  m_queue->nMsgCount = 0;
}

TEST_F(MessageQueueWakeupTest, ReceiverOfADestroyedQueueKeepsOutOfTheNextOneAtItsPlace) {
  for (const unsigned int timeoutMs : {kNoLimit, 60000u}) {
    const Recursive recursive(m_queue->hListMutex);
    const auto receiver = SleepingReceive(timeoutMs);
    {
      const ScopedLock lock(m_queue->hListMutex);
      WakeReceivers();
      ASSERT_TRUE(receiver->SleepsAgain()) << "in front of the list";
      DestroyAndCreateAtTheSamePlace();
      Send(0, "of the new queue");
    }
    EXPECT_EQ("-1", receiver->Get());
    EXPECT_EQ("of the new queue", Take());
  }
}

TEST_F(MessageQueueWakeupTest, SenderOfADestroyedQueueKeepsOutOfTheNextOneAtItsPlace) {
  const QIV_MSG_BLOCK_T message = Message(0, "a");
  const Recursive recursive(m_queue->hListMutex);
  pthread_mutex_lock(&m_queue->hListMutex);
  SleepingCall send([&] { return QIV_MsgQSendEx(m_queue, &message); });
  DestroyAndCreateAtTheSamePlace();
  pthread_mutex_unlock(&m_queue->hListMutex);
  EXPECT_EQ(-1, send.Get());
  EXPECT_TRUE(IsEmpty());
}

TEST_F(MessageQueueWakeupTest, EveryReceiverLeavesAQueueThatEndsAndBeginsAnewAtOnce) {
  for (int round = 0; round < 10; ++round) {
    std::vector<std::unique_ptr<HaltableCall<std::string>>> receivers;
    for (const unsigned int timeoutMs : {kNoLimit, 0u, 60000u, kNoLimit, 0u, 60000u}) {
      receivers.push_back(SleepingReceive(timeoutMs));
    }
    DestroyAndCreateAtTheSamePlace();
    for (const auto& receiver : receivers) EXPECT_EQ("-1", receiver->Get());
  }
}

}  // namespace
