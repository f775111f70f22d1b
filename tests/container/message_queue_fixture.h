// Messages and queues for the tests of the message queues.
#ifndef QIV_TESTS_CONTAINER_MESSAGE_QUEUE_FIXTURE_H
#define QIV_TESTS_CONTAINER_MESSAGE_QUEUE_FIXTURE_H

#include <gtest/gtest.h>
#include <qiv/message_queue.h>

#include <cstring>
#include <string>

#include "support/leak_check.h"

namespace qiv::test {

constexpr unsigned int kNoLimit = 0xFFFFFFFFu;

inline QIV_MSG_BLOCK_T Message(int priority, const std::string& data, unsigned int type = 0) {
  QIV_MSG_BLOCK_T block = {};
  block.iMsgType = type;
  block.iPriority = priority;
  block.iMsgLen = static_cast<int>(data.size());
  std::memcpy(block.chMsgData, data.data(), data.size());
  return block;
}

/** A block to receive into, with room for as many bytes; what is not written to stays visible. */
inline QIV_MSG_BLOCK_T Room(int capacity) {
  QIV_MSG_BLOCK_T block;
  std::memset(&block, 0x5A, sizeof block);
  block.iMsgLen = capacity;
  return block;
}

inline std::string DataOf(const QIV_MSG_BLOCK_T& block) {
  return std::string(block.chMsgData,
                     block.iMsgLen > 0 ? static_cast<std::size_t>(block.iMsgLen) : 0);
}

class MessageQueueTest : public LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    ASSERT_EQ(0, QIV_MsgQCreateEx(&m_queue));
  }
  void TearDown() override {
    EXPECT_EQ(0, QIV_MsgQDestroyEx(m_queue));
    LeakCheckedTest::TearDown();
  }

  void Send(int priority, const std::string& data) {
    const QIV_MSG_BLOCK_T message = Message(priority, data);
    ASSERT_EQ(0, QIV_MsgQSendEx(m_queue, &message));
  }

  /** The data of the first message, which must be there. */
  std::string Take() {
    QIV_MSG_BLOCK_T block = Room(QIV_MSGQ_MAX_DATA);
    EXPECT_EQ(0, QIV_MsgQReceiveEx(m_queue, &block, 1));
    return DataOf(block);
  }

  bool IsEmpty() {
    QIV_MSG_BLOCK_T block = Room(QIV_MSGQ_MAX_DATA);
    return QIV_MsgQReceiveEx(m_queue, &block, 1) == -1;
  }

  QIV_MQ_INTER* m_queue = nullptr;
};

}  // namespace qiv::test

#endif
