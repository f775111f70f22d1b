// Priority queue: two clerks hand in orders of different urgency through one message queue, a
// packer takes the most urgent one first. Everything is checked: each order is packed once, and the
// urgent ones that were there at the same time before the others.
#include <qiv/library.h>
#include <qiv/message_queue.h>
#include <qiv/thread.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr int kOrdersOfEachClerk = 30;
constexpr int kLevels = 3;
constexpr int kOrders = 2 * kOrdersOfEachClerk;
constexpr int kEndPriority = -1;  // below every order: packed orders come first
constexpr unsigned int kOrder = 1;
constexpr unsigned int kEnd = 2;

struct Clerk {
  QIV_MQ_INTER* queue;
  int firstOrder;
  bool allSent;
};

struct Packer {
  QIV_MQ_INTER* queue;
  int timesPacked[kOrders];
  bool urgentFirst;
  bool sawTheEnd;
};

int UrgencyOf(int order) { return order % kLevels; }

bool Send(QIV_MQ_INTER* queue, unsigned int type, int priority, int order) {
  QIV_MSG_BLOCK_T message;
  message.iMsgType = type;
  message.iPriority = priority;
  message.iMsgLen = sizeof order;
  std::memcpy(message.chMsgData, &order, sizeof order);
  return QIV_MsgQSendEx(queue, &message) == QIV_OK;
}

void* HandIn(void* argument) {
  Clerk& clerk = *static_cast<Clerk*>(argument);
  clerk.allSent = true;
  for (int i = 0; i < kOrdersOfEachClerk; ++i) {
    const int order = clerk.firstOrder + i;
    clerk.allSent = Send(clerk.queue, kOrder, UrgencyOf(order), order) && clerk.allSent;
  }
  return nullptr;
}

void* Pack(void* argument) {
  Packer& packer = *static_cast<Packer*>(argument);
  int lastUrgency = kLevels;
  QIV_MSG_BLOCK_T message;
  // Before each receive iMsgLen says how many bytes there is room for.
  message.iMsgLen = QIV_MSGQ_MAX_DATA;
  while (QIV_MsgQReceiveEx(packer.queue, &message, QIV_INFINITE) == QIV_OK) {
    if (message.iMsgType == kEnd) {
      packer.sawTheEnd = true;
      return nullptr;
    }
    int order = 0;
    std::memcpy(&order, message.chMsgData, sizeof order);
    ++packer.timesPacked[order];
    packer.urgentFirst = packer.urgentFirst && message.iPriority <= lastUrgency;
    lastUrgency = message.iPriority;
    message.iMsgLen = QIV_MSGQ_MAX_DATA;
  }
  return nullptr;
}

bool RunToTheEnd(void* (*routine)(void*), void* first, void* second) {
  const unsigned int firstId = QIV_Thread_Create(routine, first, 0, 0, 0, 0);
  const unsigned int secondId =
      second == nullptr ? QIV_INVALID_ID : QIV_Thread_Create(routine, second, 0, 0, 0, 0);
  const bool started =
      firstId != QIV_INVALID_ID && (second == nullptr || secondId != QIV_INVALID_ID);
  if (firstId != QIV_INVALID_ID) QIV_Thread_Wait(firstId);
  if (secondId != QIV_INVALID_ID) QIV_Thread_Wait(secondId);
  return started;
}

bool EachOrderOnce(const Packer& packer) {
  for (const int times : packer.timesPacked) {
    if (times != 1) {
      return false;
    }
  }
  return true;
}

// The packer begins when all orders are there, so that the order of packing is known.
bool PackAll(QIV_MQ_INTER* queue) {
  Clerk clerks[] = {{queue, 0, false}, {queue, kOrdersOfEachClerk, false}};
  Packer packer = {queue, {}, true, false};
  if (!RunToTheEnd(HandIn, &clerks[0], &clerks[1]) || !clerks[0].allSent || !clerks[1].allSent) {
    std::fprintf(stderr, "priority_queue: an order could not be handed in\n");
    return false;
  }
  if (!Send(queue, kEnd, kEndPriority, 0) || !RunToTheEnd(Pack, &packer, nullptr)) {
    std::fprintf(stderr, "priority_queue: the packer cannot begin\n");
    return false;
  }
  const bool isRight = packer.sawTheEnd && packer.urgentFirst && EachOrderOnce(packer);
  std::printf("%d orders packed, urgent ones first%s\n", kOrders, isRight ? "" : ": wrong");
  return isRight;
}

}  // namespace

int main() {
  if (QIV_Init() != QIV_OK) {
    std::fprintf(stderr, "priority_queue: the library does not start\n");
    return 1;
  }
  QIV_MQ_INTER* queue = nullptr;
  bool isRight = false;
  if (QIV_MsgQCreateEx(&queue) == QIV_OK) {
    isRight = PackAll(queue);
    QIV_MsgQDestroyEx(queue);
  }
  QIV_Fini();
  return isRight ? 0 : 1;
}
