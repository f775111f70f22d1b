#include <qiv/message_queue.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "container/message_queue.h"
#include "container/message_queue_fixture.h"

namespace {

using qiv::test::DataOf;
using qiv::test::kNoLimit;
using qiv::test::Message;
using qiv::test::Room;

using MessageQueueTest = qiv::test::MessageQueueTest;

TEST_F(MessageQueueTest, SendAndReceiveRefuseNull) {
  QIV_MSG_BLOCK_T block = Message(0, "a");
  EXPECT_EQ(-1, QIV_MsgQSendEx(nullptr, &block));
  EXPECT_EQ(-1, QIV_MsgQSendEx(m_queue, nullptr));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(nullptr, &block, 0));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(m_queue, nullptr, 0));
}

TEST_F(MessageQueueTest, EveryFieldIsDelivered) {
  QIV_MSG_BLOCK_T sent = Message(-7, std::string("a\0b", 3), 0xFFFFFFFEu);
  ASSERT_EQ(0, QIV_MsgQSendEx(m_queue, &sent));
  sent = Message(0, "overwritten");
  QIV_MSG_BLOCK_T got = Room(3);
  ASSERT_EQ(0, QIV_MsgQReceiveEx(m_queue, &got, 0));
  EXPECT_EQ(0xFFFFFFFEu, got.iMsgType);
  EXPECT_EQ(-7, got.iPriority);
  EXPECT_EQ(std::string("a\0b", 3), DataOf(got));
  EXPECT_EQ(0x5A, got.chMsgData[3]) << "written behind the data";
}

TEST_F(MessageQueueTest, LargerPriorityComesFirstAndEqualOnesInTheOrderOfArrival) {
  Send(5, "first 5");
  Send(9, "first 9");
  Send(5, "second 5");
  Send(9, "second 9");
  EXPECT_EQ("first 9", Take());
  EXPECT_EQ("second 9", Take());
  EXPECT_EQ("first 5", Take());
  EXPECT_EQ("second 5", Take());
  EXPECT_TRUE(IsEmpty());
}

TEST_F(MessageQueueTest, PrioritiesAreSigned) {
  Send(-1, "-1");
  Send(INT_MIN, "least");
  Send(0, "0");
  Send(INT_MAX, "greatest");
  Send(-1, "second -1");
  EXPECT_EQ("greatest", Take());
  EXPECT_EQ("0", Take());
  EXPECT_EQ("-1", Take());
  EXPECT_EQ("second -1", Take());
  EXPECT_EQ("least", Take());
}

TEST_F(MessageQueueTest, SendAfterTheQueueRanEmptyStartsAnew) {
  Send(1, "a");
  EXPECT_EQ("a", Take());
  Send(1, "b");
  Send(1, "c");
  EXPECT_EQ("b", Take());
  EXPECT_EQ("c", Take());
}

TEST_F(MessageQueueTest, LongestDataIsTakenAndOneByteMoreIsRefused) {
  const std::string longest(QIV_MSGQ_MAX_DATA, 'x');
  Send(0, longest);
  QIV_MSG_BLOCK_T tooLong = Message(9, longest);
  tooLong.iMsgLen = 8097;
  EXPECT_EQ(-1, QIV_MsgQSendEx(m_queue, &tooLong));
  tooLong.iMsgLen = INT_MAX;
  EXPECT_EQ(-1, QIV_MsgQSendEx(m_queue, &tooLong));
  EXPECT_EQ(longest, Take());
  EXPECT_TRUE(IsEmpty());
}

TEST_F(MessageQueueTest, EmptyMessageIsDelivered) {
  Send(0, "");
  QIV_MSG_BLOCK_T got = Room(0);
  ASSERT_EQ(0, QIV_MsgQReceiveEx(m_queue, &got, 0));
  EXPECT_EQ(0, got.iMsgLen);
  EXPECT_EQ(0x5A, got.chMsgData[0]);
}

TEST_F(MessageQueueTest, NegativeLengthIsKeptAndCarriesNoData) {
  for (const int length : {-1, -8096, INT_MIN}) {
    QIV_MSG_BLOCK_T sent = Message(3, "data");
    sent.iMsgLen = length;
    ASSERT_EQ(0, QIV_MsgQSendEx(m_queue, &sent));
    QIV_MSG_BLOCK_T got = Room(length);
    ASSERT_EQ(0, QIV_MsgQReceiveEx(m_queue, &got, 0));
    EXPECT_EQ(length, got.iMsgLen);
    EXPECT_EQ(3, got.iPriority);
    EXPECT_EQ(0x5A, got.chMsgData[0]);
  }
}

TEST_F(MessageQueueTest, RoomIsComparedAsSigned) {
  QIV_MSG_BLOCK_T sent = Message(0, "");
  sent.iMsgLen = -5;
  ASSERT_EQ(0, QIV_MsgQSendEx(m_queue, &sent));
  QIV_MSG_BLOCK_T got = Room(-6);
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(m_queue, &got, 0));
  EXPECT_EQ(-6, got.iMsgLen);
  EXPECT_TRUE(IsEmpty());
}

TEST_F(MessageQueueTest, ReceiveWithTooLittleRoomIsKeptLosingTheMessage) {
  const QIV_MSG_BLOCK_T sent = Message(8, "four", 77);
  ASSERT_EQ(0, QIV_MsgQSendEx(m_queue, &sent));
  Send(1, "next");
  QIV_MSG_BLOCK_T got = Room(3);
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(m_queue, &got, kNoLimit));
  EXPECT_EQ(77u, got.iMsgType);
  EXPECT_EQ(8, got.iPriority);
  EXPECT_EQ(3, got.iMsgLen);
  EXPECT_EQ(0x5A, got.chMsgData[0]);
  EXPECT_EQ("next", Take());
  EXPECT_TRUE(IsEmpty());
}

TEST_F(MessageQueueTest, QueuesDoNotMix) {
  QIV_MQ_INTER* other = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&other));
  ASSERT_NE(m_queue, other);
  const QIV_MSG_BLOCK_T message = Message(0, "other's");
  ASSERT_EQ(0, QIV_MsgQSendEx(other, &message));
  EXPECT_TRUE(IsEmpty());
  QIV_MSG_BLOCK_T got = Room(100);
  EXPECT_EQ(0, QIV_MsgQReceiveEx(other, &got, 0));
  EXPECT_EQ(0, QIV_MsgQDestroyEx(other));
}

TEST(MessageQueueLayoutTest, RecordsHaveTheirStatedSizes) {
  EXPECT_EQ(8108u, sizeof(QIV_MSG_BLOCK_T));
  EXPECT_EQ(8096, QIV_MSGQ_MAX_DATA);
  EXPECT_EQ((8108 + 2 * sizeof(void*) - 1) / sizeof(void*) * sizeof(void*),
            sizeof(qiv::container::MessageNode));
}

}  // namespace
