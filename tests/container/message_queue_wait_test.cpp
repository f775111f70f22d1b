// Receivers that wait, and message queues under load.
#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/message_queue.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <queue>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "container/message_queue.h"
#include "container/message_queue_fixture.h"
#include "support/run_in_thread.h"
#include "support/sleeping_thread.h"
#include "support/stopwatch.h"
#include "support/test_limit.h"

namespace {

using qiv::test::DataOf;
using qiv::test::kNoLimit;
using qiv::test::Message;
using qiv::test::Room;
using qiv::test::RunInThread;
using qiv::test::ScaledLoad;
using qiv::test::SleepingCall;
using qiv::test::Stopwatch;

class MessageQueueWaitTest : public qiv::test::MessageQueueTest {
 protected:
  /** A receive on a thread of its own; its result and what it has got. */
  auto SleepingReceive(unsigned int timeoutMs) {
    return std::make_unique<SleepingCall<std::string>>([this, timeoutMs] {
      QIV_MSG_BLOCK_T block = Room(QIV_MSGQ_MAX_DATA);
      const int result = QIV_MsgQReceiveEx(m_queue, &block, timeoutMs);
      return result == 0 ? DataOf(block) : std::to_string(result);
    });
  }
};

TEST_F(MessageQueueWaitTest, ReceiveThatRunsOutOfTimeLeavesTheBlockAlone) {
  QIV_MSG_BLOCK_T block = Room(10);
  const QIV_MSG_BLOCK_T before = block;
  const Stopwatch watch;
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(m_queue, &block, 50));
  EXPECT_GE(watch.Milliseconds(), 48);
  EXPECT_EQ(0, std::memcmp(&before, &block, sizeof block));
}

TEST_F(MessageQueueWaitTest, WaitingReceiverTakesTheNextMessage) {
  for (const unsigned int timeoutMs : {kNoLimit, 60000u}) {
    const auto receiver = SleepingReceive(timeoutMs);
    Send(0, "a");
    EXPECT_EQ("a", receiver->Get());
  }
}

TEST_F(MessageQueueWaitTest, TimeOutOfZeroIsKeptWaitingForTheNextSendAndLeavingItsMessage) {
  const auto receiver = SleepingReceive(0);
  EXPECT_FALSE(receiver->HasReturned());
  Send(0, "a");
  EXPECT_EQ("-1", receiver->Get());
  EXPECT_EQ("a", Take());
}

TEST_F(MessageQueueWaitTest, TimeOutOfZeroTakesAMessageThatIsThere) {
  Send(0, "a");
  QIV_MSG_BLOCK_T block = Room(10);
  EXPECT_EQ(0, QIV_MsgQReceiveEx(m_queue, &block, 0));
  EXPECT_EQ("a", DataOf(block));
}

TEST_F(MessageQueueWaitTest, DestroySendsWaitingReceiversAway) {
  std::vector<std::unique_ptr<SleepingCall<std::string>>> receivers;
  for (const unsigned int timeoutMs : {kNoLimit, 0u, 60000u}) {
    receivers.push_back(SleepingReceive(timeoutMs));
  }
  EXPECT_EQ(0, QIV_MsgQDestroyEx(m_queue));
  for (const auto& receiver : receivers) EXPECT_EQ("-1", receiver->Get());
}

TEST_F(MessageQueueWaitTest, InternalWaitForSpaceEndsWithTheNextReceive) {
  Send(0, "a");
  SleepingCall wait([this] {
    QIV_MutexLock(&m_queue->hListMutex);
    return qiv::container::QIV_MsgQWaitTimeOut_Inter(m_queue, 0, 0);
  });
  EXPECT_EQ("a", Take());
  EXPECT_EQ(0, wait.Get());
}

struct Cancelled {
  QIV_MQ_INTER* queue;
  QIV_MSG_BLOCK_T block;
};

/** In the untimed wait: the address sanitizer does not follow a thread out of a timed one. */
void* ReceiveForEver(void* argument) {
  auto* const cancelled = static_cast<Cancelled*>(argument);
  QIV_MsgQReceiveEx(cancelled->queue, &cancelled->block, 0);
  return nullptr;
}

TEST_F(MessageQueueWaitTest, CancelledReceiverLeavesTheQueueUsable) {
  Cancelled cancelled = {m_queue, Room(10)};
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, ReceiveForEver, &cancelled));
  ASSERT_EQ(0, pthread_cancel(thread));
  void* result = nullptr;
  ASSERT_EQ(0, pthread_join(thread, &result));
  EXPECT_EQ(PTHREAD_CANCELED, result);
  Send(0, "a");
  EXPECT_EQ("a", Take());
}

/** What queues promise, in a few lines. */
class ReferenceQueue {
 public:
  void Send(const QIV_MSG_BLOCK_T& message) {
    m_byPriority[message.iPriority].push({message.iMsgType, DataOf(message)});
    ++m_count;
  }
  struct Entry {
    unsigned int type;
    std::string data;
  };
  bool IsEmpty() const { return m_count == 0; }
  int FirstPriority() const { return m_byPriority.begin()->first; }
  Entry Take() {
    const auto first = m_byPriority.begin();
    Entry entry = first->second.front();
    first->second.pop();
    if (first->second.empty()) m_byPriority.erase(first);
    --m_count;
    return entry;
  }

 private:
  std::map<int, std::queue<Entry>, std::greater<int>> m_byPriority;
  std::size_t m_count = 0;
};

TEST_F(MessageQueueWaitTest, RandomSendsAndReceivesAgreeWithAPlainModel) {
  std::minstd_rand random(61);
  ReferenceQueue model;
  const int operations = ScaledLoad(100000);
  for (int i = 0; i < operations; ++i) {
    // Long stretches of more sends than receives and the other way round.
    const unsigned int sendsOutOf10 = i / 1000 % 2 == 0 ? 6 : 4;
    if (random() / 8 % 10 < sendsOutOf10) {
      const std::size_t length = random() / 8 % 4 == 0 ? random() / 8 % 8097 : random() / 8 % 9;
      const auto message =
          Message(static_cast<int>(random() / 8 % 7) - 3, std::string(length, static_cast<char>(i)),
                  static_cast<unsigned int>(i));
      ASSERT_EQ(0, QIV_MsgQSendEx(m_queue, &message));
      model.Send(message);
    } else if (!model.IsEmpty()) {
      QIV_MSG_BLOCK_T block = Room(random() / 8 % 3 == 0 ? 4 : QIV_MSGQ_MAX_DATA);
      const int room = block.iMsgLen;
      const int priority = model.FirstPriority();
      const auto expected = model.Take();
      const bool fits = static_cast<int>(expected.data.size()) <= room;
      ASSERT_EQ(fits ? 0 : -1, QIV_MsgQReceiveEx(m_queue, &block, kNoLimit));
      ASSERT_EQ(expected.type, block.iMsgType);
      ASSERT_EQ(priority, block.iPriority);
      ASSERT_EQ(fits ? static_cast<int>(expected.data.size()) : room, block.iMsgLen);
      ASSERT_EQ(fits ? expected.data : "", fits ? DataOf(block) : "");
    }
  }
  while (!model.IsEmpty()) ASSERT_EQ(model.Take().data, Take());
  EXPECT_TRUE(IsEmpty());
}

constexpr int kThreads = 8;

struct Item {
  int sender;
  int number;
};

QIV_MSG_BLOCK_T ItemMessage(Item item) {
  QIV_MSG_BLOCK_T block = {};
  block.iMsgLen = sizeof item;
  std::memcpy(block.chMsgData, &item, sizeof item);
  return block;
}

/** Receives until a message without data comes. */
std::vector<Item> ReceiveAll(QIV_MQ_INTER* queue) {
  std::vector<Item> items;
  for (;;) {
    QIV_MSG_BLOCK_T block = Room(sizeof(Item));
    if (QIV_MsgQReceiveEx(queue, &block, kNoLimit) != 0 || block.iMsgLen == 0) return items;
    Item item = {};
    std::memcpy(&item, block.chMsgData, sizeof item);
    items.push_back(item);
  }
}

/** Whether one receiver got each sender's items in the order in which they were sent. */
bool AreInOrder(const std::vector<Item>& items) {
  std::vector<int> next(kThreads, 0);
  return std::all_of(items.begin(), items.end(), [&next](const Item& item) {
    int& atLeast = next[static_cast<std::size_t>(item.sender)];
    const bool isInOrder = item.number >= atLeast;
    atLeast = item.number + 1;
    return isInOrder;
  });
}

TEST_F(MessageQueueWaitTest, EightSendersAndEightReceiversLoseAndDoubleNothing) {
  const int itemsPerSender = ScaledLoad(5000);
  std::vector<qiv::test::ThreadResult<std::vector<Item>>> receivers;
  std::vector<qiv::test::ThreadResult<int>> senders;
  for (int i = 0; i < kThreads; ++i) {
    receivers.push_back(RunInThread([this] { return ReceiveAll(m_queue); }));
  }
  for (int sender = 0; sender < kThreads; ++sender) {
    senders.push_back(RunInThread([this, sender, itemsPerSender] {
      int sent = 0;
      for (int i = 0; i < itemsPerSender; ++i) {
        const QIV_MSG_BLOCK_T message = ItemMessage({sender, i});
        sent += QIV_MsgQSendEx(m_queue, &message) == 0 ? 1 : 0;
        if (i % 16 == 0) std::this_thread::yield();  // lets receivers go to sleep
      }
      return sent;
    }));
  }
  for (auto& sender : senders) EXPECT_EQ(itemsPerSender, sender.Get());
  for (int i = 0; i < kThreads; ++i) Send(INT_MIN, "");
  std::vector<int> received(static_cast<std::size_t>(kThreads * itemsPerSender), 0);
  for (auto& receiver : receivers) {
    const std::vector<Item> items = receiver.Get();
    EXPECT_TRUE(AreInOrder(items));
    for (const Item& item : items) {
      ++received[static_cast<std::size_t>(item.sender * itemsPerSender + item.number)];
    }
  }
  EXPECT_TRUE(std::all_of(received.begin(), received.end(), [](int times) { return times == 1; }));
}

TEST_F(MessageQueueWaitTest, QueuesMayEndAndBeginAnewWhileOthersUseTheirHandles) {
  const int rounds = ScaledLoad(300);
  std::atomic<bool> stop{false};
  std::vector<std::thread> users;
  for (int i = 0; i < 3; ++i) {
    users.emplace_back([this, &stop] {
      QIV_MSG_BLOCK_T block = Room(1);
      while (!stop.load(std::memory_order_acquire)) {
        const QIV_MSG_BLOCK_T message = Message(0, "a");
        QIV_MsgQSendEx(m_queue, &message);
        block.iMsgLen = 1;
        QIV_MsgQReceiveEx(m_queue, &block, 1);
      }
    });
  }
  for (int round = 0; round < rounds; ++round) {
    EXPECT_EQ(0, QIV_MsgQDestroyEx(m_queue));
    QIV_MQ_INTER* again = nullptr;
    EXPECT_EQ(0, QIV_MsgQCreateEx(&again));
    EXPECT_EQ(m_queue, again);
  }
  stop.store(true, std::memory_order_release);
  for (std::thread& user : users) user.join();
}

}  // namespace
