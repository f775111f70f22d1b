// The life of message queues: places, creation, end, start and stop.
#include <gtest/gtest.h>
#include <qiv/library.h>
#include <qiv/message_queue.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "container/message_queue.h"
#include "container/message_queue_fixture.h"
#include "support/captured_output.h"

namespace {

using qiv::test::CapturedOutput;
using qiv::test::Message;
using qiv::test::Room;

constexpr std::size_t kPlaces = 100;

/** Forgets the output of creations and destructions, and destroys what a test leaves. */
class MessageQueueTableTest : public qiv::test::LeakCheckedTest {
 protected:
  ~MessageQueueTableTest() override {
    for (QIV_MQ_INTER& queue : qiv::container::g_MsgQTable) QIV_MsgQDestroyEx(&queue);
  }

  static std::vector<QIV_MQ_INTER*> TakeEveryPlace() {
    std::vector<QIV_MQ_INTER*> queues(kPlaces);
    for (QIV_MQ_INTER*& queue : queues) EXPECT_EQ(0, QIV_MsgQCreateEx(&queue));
    return queues;
  }

 private:
  CapturedOutput m_output{STDERR_FILENO};
};

TEST_F(MessageQueueTableTest, CreateAndDestroyRefuseNull) {
  EXPECT_EQ(-1, QIV_MsgQCreateEx(nullptr));
  EXPECT_EQ(-1, QIV_MsgQDestroyEx(nullptr));
}

TEST_F(MessageQueueTableTest, AHundredQueuesCanBeMadeAndNoMore) {
  const auto queues = TakeEveryPlace();
  QIV_MQ_INTER* refused = nullptr;
  EXPECT_EQ(-1, QIV_MsgQCreateEx(&refused));
  EXPECT_EQ(nullptr, refused);
  EXPECT_TRUE(std::is_sorted(queues.begin(), queues.end()));
  EXPECT_EQ(queues.end(), std::adjacent_find(queues.begin(), queues.end()));
}

TEST_F(MessageQueueTableTest, CreateTakesTheLowestFreePlace) {
  const auto queues = TakeEveryPlace();
  for (const std::size_t place : {70U, 3U, 99U}) EXPECT_EQ(0, QIV_MsgQDestroyEx(queues[place]));
  for (const std::size_t place : {3U, 70U, 99U}) {
    QIV_MQ_INTER* queue = nullptr;
    EXPECT_EQ(0, QIV_MsgQCreateEx(&queue));
    EXPECT_EQ(queues[place], queue);
  }
}

TEST_F(MessageQueueTableTest, DestroyedQueueRefusesAndIsDestroyedAgainWithSuccess) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  ASSERT_EQ(0, QIV_MsgQDestroyEx(queue));
  QIV_MSG_BLOCK_T block = Message(0, "a");
  EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &block));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queue, &block, 0));
  EXPECT_EQ(0, QIV_MsgQDestroyEx(queue));
}

TEST_F(MessageQueueTableTest, DestroyDiscardsWhatIsStored) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  const QIV_MSG_BLOCK_T message = Message(0, "a");
  for (int i = 0; i < 3; ++i) ASSERT_EQ(0, QIV_MsgQSendEx(queue, &message));
  ASSERT_EQ(0, QIV_MsgQDestroyEx(queue));
  QIV_MQ_INTER* again = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&again));
  EXPECT_EQ(queue, again) << "the stale handle names the new queue";
  QIV_MSG_BLOCK_T got = Room(10);
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(again, &got, 1));
}

TEST_F(MessageQueueTableTest, QueuesWorkWithoutAStart) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  QIV_MSG_BLOCK_T block = Message(0, "a");
  EXPECT_EQ(0, QIV_MsgQSendEx(queue, &block));
  EXPECT_EQ(0, QIV_MsgQReceiveEx(queue, &block, 0));
}

TEST_F(MessageQueueTableTest, OnlyTheLastStopDestroysTheQueues) {
  ASSERT_EQ(0, QIV_Init());
  ASSERT_EQ(0, QIV_Init());
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  const QIV_MSG_BLOCK_T message = Message(0, "a");
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_EQ(0, QIV_MsgQSendEx(queue, &message));
  ASSERT_EQ(0, QIV_Fini());
  EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &message));
}

TEST_F(MessageQueueTableTest, EveryQueueIsFreeAfterAStop) {
  TakeEveryPlace();
  EXPECT_EQ(0, QIV_MsgQFiniEx_Inter());
  TakeEveryPlace();
  EXPECT_EQ(0, QIV_MsgQFiniEx_Inter());
}

TEST_F(MessageQueueTableTest, StartFreesThePlacesOfQueuesMadeBefore) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  const QIV_MSG_BLOCK_T message = Message(0, "a");
  ASSERT_EQ(0, QIV_MsgQSendEx(queue, &message));
  EXPECT_EQ(0, QIV_MsgQInitEx_Inter());
  EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &message));
  TakeEveryPlace();
}

}  // namespace
