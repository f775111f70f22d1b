// Message queues when memory is short, and what they leave alone: the last error, and the output
// but for the lines of the conditions.
#include <gtest/gtest.h>
#include <pthread.h>
#include <qiv/error.h>
#include <qiv/library.h>
#include <qiv/message_queue.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/scoped_lock.h"
#include "container/message_queue.h"
#include "container/message_queue_fixture.h"
#include "support/captured_output.h"
#include "support/failing_allocation.h"
#include "sync/condition.h"

namespace {

using qiv::qiv_msgq;
using qiv::base::ScopedLock;
using qiv::test::CapturedOutput;
using qiv::test::DataOf;
using qiv::test::FailingAllocation;
using qiv::test::Message;
using qiv::test::Room;

constexpr unsigned int kLastError = 4711;

std::size_t Attributes() {
  const ScopedLock lock(qiv::sync::g_lockCondAttr);
  return qiv::sync::g_mapCondAttr.size();
}

/** The line of a condition that exists. */
std::string Line(const char* function, pthread_cond_t& condition) {
  const ScopedLock lock(qiv::sync::g_lockCondAttr);
  std::array<char, 200> line = {};
  std::snprintf(line.data(), line.size(), "%s pCond:%p,pCondAttr:%p\r\n", function,
                static_cast<void*>(&condition),
                static_cast<void*>(qiv::sync::g_mapCondAttr.at(&condition)));
  return line.data();
}

std::string LinesOfCreation(QIV_MQ_INTER* queue) {
  return Line("QIV_CondCreate", queue->hArriveCond) + Line("QIV_CondCreate", queue->hSpaceCond);
}

std::string LinesOfDestruction(QIV_MQ_INTER* queue) {
  return Line("QIV_CondDestroy", queue->hArriveCond) + Line("QIV_CondDestroy", queue->hSpaceCond);
}

/** A started library whose last error, and standard output, nothing may change. */
class MessageQueueFailureTest : public qiv::test::LeakCheckedTest {
 protected:
  void SetUp() override {
    LeakCheckedTest::SetUp();
    m_attributes = Attributes();
    ASSERT_EQ(0, QIV_Init());
    ASSERT_EQ(0, QIV_SetLastError(kLastError));
    m_output = std::make_unique<CapturedOutput>(STDOUT_FILENO);
    m_errors = std::make_unique<CapturedOutput>(STDERR_FILENO);
  }
  void TearDown() override {
    m_errors.reset();
    EXPECT_EQ("", m_output->Stop());
    EXPECT_EQ(kLastError, QIV_GetLastError());
    EXPECT_EQ(0, QIV_Fini());
    EXPECT_EQ(m_attributes, Attributes());
    LeakCheckedTest::TearDown();
  }

  /** What has been written to standard error since the last call. */
  std::string TakeErrors() {
    const std::string text = m_errors->Stop();
    m_errors = std::make_unique<CapturedOutput>(STDERR_FILENO);
    return text;
  }

  std::size_t m_attributes = 0;

 private:
  std::unique_ptr<CapturedOutput> m_output;
  std::unique_ptr<CapturedOutput> m_errors;
};

TEST_F(MessageQueueFailureTest, CreateAndDestroyWriteTheLinesOfTheArrivalThenOfTheSpace) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  EXPECT_EQ(LinesOfCreation(queue), TakeErrors());
  const std::string expected = LinesOfDestruction(queue);
  EXPECT_EQ(0, QIV_MsgQDestroyEx(queue));
  EXPECT_EQ(expected, TakeErrors());
  EXPECT_EQ(0, QIV_MsgQDestroyEx(queue));
  EXPECT_EQ("", TakeErrors()) << "nothing to destroy";
}

TEST_F(MessageQueueFailureTest, StopWritesTheLinesOfTheQueuesThatExistInTheOrderOfTheirPlaces) {
  std::array<QIV_MQ_INTER*, 3> queues = {};
  for (QIV_MQ_INTER*& queue : queues) ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  ASSERT_EQ(0, QIV_MsgQDestroyEx(queues[1]));
  TakeErrors();
  const std::string expected = LinesOfDestruction(queues[0]) + LinesOfDestruction(queues[2]);
  EXPECT_EQ(0, QIV_MsgQFiniEx_Inter());
  EXPECT_EQ(expected, TakeErrors());
  EXPECT_EQ(0, QIV_MsgQFiniEx_Inter());
  EXPECT_EQ(0, QIV_MsgQInitEx_Inter());
  EXPECT_EQ("", TakeErrors());
}

TEST_F(MessageQueueFailureTest, EverythingElseIsSilentAndLeavesTheLastErrorAlone) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  TakeErrors();
  QIV_MSG_BLOCK_T message = Message(1, "data");
  QIV_MSG_BLOCK_T tooLong = message;
  tooLong.iMsgLen = QIV_MSGQ_MAX_DATA + 1;
  QIV_MSG_BLOCK_T tooSmall = Room(1);
  EXPECT_EQ(-1, QIV_MsgQCreateEx(nullptr));
  EXPECT_EQ(-1, QIV_MsgQDestroyEx(nullptr));
  EXPECT_EQ(-1, QIV_MsgQSendEx(nullptr, &message));
  EXPECT_EQ(-1, QIV_MsgQSendEx(queue, nullptr));
  EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &tooLong));
  EXPECT_EQ(0, QIV_MsgQSendEx(queue, &message));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queue, &tooSmall, 1));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queue, &message, 1));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(nullptr, &message, 1));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queue, nullptr, 1));
  EXPECT_EQ("", TakeErrors());
  EXPECT_EQ(kLastError, QIV_GetLastError());
  EXPECT_EQ(0, QIV_MsgQDestroyEx(queue));
  TakeErrors();
  EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &message));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queue, &message, 1));
  EXPECT_EQ("", TakeErrors());
}

TEST_F(MessageQueueFailureTest, CreateInAFullTableIsSilent) {
  QIV_MQ_INTER* queue = nullptr;
  for (int i = 0; i < qiv::container::kQueueCount; ++i) ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  TakeErrors();
  EXPECT_EQ(-1, QIV_MsgQCreateEx(&queue));
  EXPECT_EQ("", TakeErrors());
}

TEST_F(MessageQueueFailureTest, ClassIsSilentAndLeavesTheLastErrorAlone) {
  QIV_MSG_BLOCK_T* block = nullptr;
  QIV_MSG_BLOCK_T message = Message(1, "data");
  {
    qiv_msgq queue;
    EXPECT_EQ(-1, queue.putq(nullptr));
    EXPECT_EQ(-1, queue.getq(nullptr, 1));
    EXPECT_EQ(0, queue.putq(&message));
    EXPECT_EQ(0, queue.getq(&block, 1));
    EXPECT_EQ(-1, queue.getq(&block, 1));
    queue.reset();
    queue.destroy();
    EXPECT_EQ(-1, queue.putq(&message));
    EXPECT_EQ(-1, queue.getq(&block, 1));
    EXPECT_EQ(0, queue.init());
  }
  EXPECT_EQ("", TakeErrors());
}

TEST_F(MessageQueueFailureTest, CreateWithoutMemoryGivesThePlaceWhichStaysFreeAndKeepsNothing) {
  const QIV_MSG_BLOCK_T message = Message(0, "a");
  int ofTheSecondCondition = 0;
  int nth = 0;
  for (bool happened = true; happened;) {
    QIV_MQ_INTER* queue = nullptr;
    int result = 0;
    {
      const FailingAllocation failing(++nth);
      result = QIV_MsgQCreateEx(&queue);
      happened = failing.Happened();
    }
    EXPECT_EQ(&qiv::container::g_MsgQTable[0], queue) << "kept";
    if (!happened) {
      EXPECT_EQ(0, result);
      EXPECT_EQ(LinesOfCreation(queue), TakeErrors());
      EXPECT_EQ(0, QIV_MsgQSendEx(queue, &message));
      continue;
    }
    EXPECT_EQ(-1, result);
    EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &message));
    EXPECT_EQ(m_attributes, Attributes());
    const std::string lines = TakeErrors();
    if (lines.empty()) continue;  // of the first condition
    ++ofTheSecondCondition;
    std::array<char, 200> created = {};
    std::array<char, 200> destroyed = {};
    void* const arrival = &queue->hArriveCond;
    std::snprintf(created.data(), created.size(), "QIV_CondCreate pCond:%p,", arrival);
    std::snprintf(destroyed.data(), destroyed.size(), "\r\nQIV_CondDestroy pCond:%p,", arrival);
    EXPECT_EQ(0u, lines.find(created.data()));
    EXPECT_NE(std::string::npos, lines.find(destroyed.data()));
    EXPECT_EQ(std::string::npos, lines.find("QIV_CondCreate", 1));
  }
  EXPECT_GE(ofTheSecondCondition, 1);
  EXPECT_GT(nth - 1, ofTheSecondCondition) << "some of the first condition, too";
}

TEST_F(MessageQueueFailureTest, SendHasOneAllocationWithoutWhichTheQueueIsAsItWas) {
  QIV_MQ_INTER* queue = nullptr;
  ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
  const QIV_MSG_BLOCK_T message = Message(2, "b");
  {
    const FailingAllocation failing(1);
    EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &message));
    EXPECT_TRUE(failing.Happened());
  }
  EXPECT_EQ(0u, queue->nMsgCount);
  EXPECT_EQ(nullptr, queue->pHead);
  {
    const FailingAllocation failing(2);
    EXPECT_EQ(0, QIV_MsgQSendEx(queue, &message));
    EXPECT_FALSE(failing.Happened());
  }
  {
    const FailingAllocation failing(1);
    EXPECT_EQ(-1, QIV_MsgQSendEx(queue, &message));
  }
  QIV_MSG_BLOCK_T got = Room(1);
  EXPECT_EQ(0, QIV_MsgQReceiveEx(queue, &got, 0));
  EXPECT_EQ("b", DataOf(got));
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queue, &got, 1));
}

TEST_F(MessageQueueFailureTest, ReceiveDestroyAndStopNeedNoMemory) {
  std::array<QIV_MQ_INTER*, 2> queues = {};
  const QIV_MSG_BLOCK_T message = Message(2, "b");
  for (QIV_MQ_INTER*& queue : queues) {
    ASSERT_EQ(0, QIV_MsgQCreateEx(&queue));
    for (int i = 0; i < 3; ++i) ASSERT_EQ(0, QIV_MsgQSendEx(queue, &message));
  }
  QIV_MSG_BLOCK_T got = Room(1);
  const FailingAllocation failing(1);
  EXPECT_EQ(0, QIV_MsgQReceiveEx(queues[0], &got, 0));
  EXPECT_EQ(0, QIV_MsgQReceiveEx(queues[0], &got, 0));
  got.iMsgLen = 0;
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queues[0], &got, 0)) << "too little room";
  EXPECT_EQ(-1, QIV_MsgQReceiveEx(queues[0], &got, 1)) << "no message";
  EXPECT_EQ(0, QIV_MsgQDestroyEx(queues[0]));
  EXPECT_EQ(0, QIV_MsgQFiniEx_Inter());
  EXPECT_EQ(0, QIV_MsgQInitEx_Inter());
  EXPECT_FALSE(failing.Happened());
  EXPECT_EQ(m_attributes, Attributes());
}

TEST_F(MessageQueueFailureTest, ClassMadeWithoutMemoryRefusesUntilInit) {
  QIV_MSG_BLOCK_T block = Message(0, "");
  int nth = 0;
  for (bool happened = true; happened;) {
    std::unique_ptr<qiv_msgq> queue;
    {
      const FailingAllocation failing(++nth + 1);  // the first one is the object's
      queue = std::make_unique<qiv_msgq>();
      happened = failing.Happened();
    }
    QIV_MSG_BLOCK_T* got = nullptr;
    EXPECT_EQ(happened ? -1 : 0, queue->putq(&block));
    EXPECT_EQ(happened ? -1 : 0, queue->getq(&got, -1));
    EXPECT_TRUE(!happened || queue->init() == 0);
    EXPECT_EQ(0, queue->putq(&block));
  }
  EXPECT_GT(nth, 1);
}

TEST_F(MessageQueueFailureTest, InitOfTheClassWithoutMemoryChangesNothing) {
  QIV_MSG_BLOCK_T block = Message(0, "");
  QIV_MSG_BLOCK_T* got = nullptr;
  qiv_msgq usable;
  ASSERT_EQ(0, usable.putq(&block));
  int nth = 0;
  for (bool happened = true; happened;) {
    qiv_msgq destroyed;
    destroyed.destroy();
    int result = 0;
    {
      const FailingAllocation failing(++nth);
      result = destroyed.init();
      happened = failing.Happened();
    }
    EXPECT_EQ(happened ? -1 : 0, result);
    EXPECT_EQ(result, destroyed.putq(&block));
    if (!happened) continue;
    const FailingAllocation failing(nth);
    EXPECT_EQ(-1, usable.init());
  }
  EXPECT_GT(nth, 1);
  EXPECT_EQ(0, usable.getq(&got, 0)) << "the old content is there";
  EXPECT_EQ(&block, got);
}

/** Puts so many that each of the allocations of the growing queue comes about. */
constexpr int kManyPuts = 2000;

TEST_F(MessageQueueFailureTest, PutOfTheClassWithoutMemoryQueuesNothing) {
  std::vector<QIV_MSG_BLOCK_T> blocks(2);
  int nth = 0;
  for (bool happened = true; happened;) {
    qiv_msgq queue;
    int accepted = 0;
    {
      const FailingAllocation failing(++nth);
      while (accepted < kManyPuts && queue.putq(&blocks[0]) == 0) ++accepted;
      happened = failing.Happened();
    }
    EXPECT_EQ(happened, accepted < kManyPuts);
    EXPECT_EQ(0, queue.putq(&blocks[1]));
    QIV_MSG_BLOCK_T* got = nullptr;
    for (int i = 0; i < accepted; ++i) {
      ASSERT_EQ(0, queue.getq(&got, 0));
      ASSERT_EQ(&blocks[0], got);
    }
    EXPECT_EQ(0, queue.getq(&got, 0));
    EXPECT_EQ(&blocks[1], got);
    EXPECT_EQ(-1, queue.getq(&got, 0)) << "neither a pointer nor a count is left";
  }
  EXPECT_GT(nth, 3);
}

TEST_F(MessageQueueFailureTest, GetResetAndDestroyOfTheClassNeedNoMemory) {
  QIV_MSG_BLOCK_T block = Message(0, "");
  QIV_MSG_BLOCK_T* got = nullptr;
  qiv_msgq queue;
  for (int i = 0; i < kManyPuts; ++i) ASSERT_EQ(0, queue.putq(&block));
  const FailingAllocation failing(1);
  for (int i = 0; i < kManyPuts / 2; ++i) ASSERT_EQ(0, queue.getq(&got, -1));
  queue.reset();
  EXPECT_EQ(-1, queue.getq(&got, 0));
  queue.destroy();
  EXPECT_EQ(-1, queue.getq(&got, -1));
  EXPECT_FALSE(failing.Happened());
}

}  // namespace
