// Message queues: a fixed table of queues that keep copies of messages sorted by priority.
//
// What guards what is told in message_queue.h.
#include "container/message_queue.h"

#include <qiv/condition.h>
#include <qiv/time.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/scoped_lock.h"

namespace qiv::container {

QIV_MQ_INTER g_MsgQTable[kQueueCount];
base::ConstantMutex g_MsgQTableMutex;

namespace {

constexpr int kArrival = 1;

// How many queues have ended at each place: tells a thread whose queue has ended meanwhile from one
// of the queue that has been made there since. Changed under hListMutex.
std::atomic<unsigned int> g_generations[kQueueCount];

struct NodeDeleter {
  void operator()(MessageNode* node) const { std::free(node); }
};
using NodePointer = std::unique_ptr<MessageNode, NodeDeleter>;

/** Holds a mutex, if it could be taken, until the end of the scope, also when the thread is
 *  cancelled. */
class MutexHold {
 public:
  explicit MutexHold(pthread_mutex_t* mutex) noexcept
      : m_mutex(mutex), m_isHeld(QIV_MutexLock(mutex) == QIV_OK) {}
  ~MutexHold() {
    if (m_isHeld) QIV_MutexUnlock(m_mutex);
  }
  MutexHold(const MutexHold&) = delete;
  MutexHold& operator=(const MutexHold&) = delete;

  bool IsHeld() const noexcept { return m_isHeld; }

 private:
  pthread_mutex_t* m_mutex;
  const bool m_isHeld;
};

bool IsInUse(const QIV_MQ_INTER* queue) {
  return queue->bInUse.load(std::memory_order_acquire) != 0;
}

void SetInUse(QIV_MQ_INTER* queue, int inUse) {
  queue->bInUse.store(inUse, std::memory_order_release);
}

std::atomic<unsigned int>& Generation(const QIV_MQ_INTER* queue) {
  return g_generations[queue - g_MsgQTable];
}

unsigned int CurrentGeneration(const QIV_MQ_INTER* queue) {
  return Generation(queue).load(std::memory_order_acquire);
}

/** Takes hListMutex of a queue; false, and not held, when the queue of that generation has been
 *  destroyed. */
bool LockList(QIV_MQ_INTER* queue, unsigned int generation) {
  if (QIV_MutexLock(&queue->hListMutex) != QIV_OK) return false;
  if (IsInUse(queue) && CurrentGeneration(queue) == generation) return true;
  QIV_MutexUnlock(&queue->hListMutex);
  return false;
}

void UnlockList(QIV_MQ_INTER* queue) { QIV_MutexUnlock(&queue->hListMutex); }

void Broadcast(pthread_cond_t* condition, pthread_mutex_t& mutex) {
  const base::ScopedLock lock(mutex);
  QIV_CondBroadCast(condition);
}

void FreeNodes(QIV_MQ_INTER* queue) {
  while (queue->pHead != nullptr) {
    const NodePointer node(queue->pHead);
    queue->pHead = node->next;
  }
  queue->pTail = nullptr;
  queue->nMsgCount = 0;
}

/** Called under the mutex of the table. */
bool Open(QIV_MQ_INTER* queue) {
  if (QIV_CondCreate(&queue->hArriveCond) != QIV_OK) return false;
  if (QIV_CondCreate(&queue->hSpaceCond) != QIV_OK) {
    QIV_CondDestroy(&queue->hArriveCond);
    return false;
  }
  const base::ScopedLock lock(queue->hListMutex);
  SetInUse(queue, 1);
  return true;
}

/** Called under the mutex of the table. */
void Close(QIV_MQ_INTER* queue) {
  if (!IsInUse(queue)) return;
  {
    const base::ScopedLock lock(queue->hListMutex);
    FreeNodes(queue);
    SetInUse(queue, 0);
    Generation(queue).fetch_add(1, std::memory_order_release);
    // A condition may not be destroyed while threads wait for it.
    Broadcast(&queue->hArriveCond, queue->hArriveMutex);
    Broadcast(&queue->hSpaceCond, queue->hSpaceMutex);
  }
  QIV_CondDestroy(&queue->hArriveCond);
  QIV_CondDestroy(&queue->hSpaceCond);
}

void CloseAll() {
  const base::ScopedLock lock(g_MsgQTableMutex);
  for (QIV_MQ_INTER& queue : g_MsgQTable) Close(&queue);
}

/** The bytes of data of a message whose length has been checked. */
std::size_t DataSize(const QIV_MSG_BLOCK_T& block) {
  return block.iMsgLen > 0 ? static_cast<std::size_t>(block.iMsgLen) : 0;
}

/** A node with a copy of the message; null when that is too long or memory is short. */
NodePointer NewNode(const QIV_MSG_BLOCK_T* msg) {
  const int length = msg->iMsgLen;
  if (length > QIV_MSGQ_MAX_DATA) return nullptr;
  NodePointer node(static_cast<MessageNode*>(std::malloc(sizeof(MessageNode))));
  if (!node) return nullptr;
  node->block.iMsgType = msg->iMsgType;
  node->block.iPriority = msg->iPriority;
  node->block.iMsgLen = length;
  std::memcpy(node->block.chMsgData, msg->chMsgData, DataSize(node->block));
  node->next = nullptr;
  return node;
}

/** Called under hListMutex. */
void Insert(QIV_MQ_INTER* queue, MessageNode* node) {
  const int priority = node->block.iPriority;
  MessageNode** link = &queue->pHead;
  // Behind the last one is where most messages go.
  if (queue->pHead != nullptr && priority <= queue->pTail->block.iPriority) {
    link = &queue->pTail->next;
  }
  while (*link != nullptr && priority <= (*link)->block.iPriority) link = &(*link)->next;
  node->next = *link;
  *link = node;
  if (node->next == nullptr) queue->pTail = node;
  ++queue->nMsgCount;
}

/** Called under hListMutex. */
NodePointer TakeHead(QIV_MQ_INTER* queue) {
  NodePointer head(queue->pHead);
  queue->pHead = head->next;
  --queue->nMsgCount;
  return head;
}

/** Waits until there is a message. True with hListMutex held; false, and not held, when there is
 *  none in time. */
bool LockListWithMessage(QIV_MQ_INTER* queue, unsigned int generation, unsigned int timeoutMs) {
  unsigned int start = QIV_GetTimeTick();
  unsigned int remainingMs = timeoutMs;
  for (;;) {
    if (!LockList(queue, generation)) return false;
    if (queue->nMsgCount != 0 && queue->pHead != nullptr) return true;
    if (queue->nMsgCount != 0) {
      UnlockList(queue);
    } else if (QIV_MsgQWaitTimeOut_Inter(queue, remainingMs, kArrival) != QIV_OK) {
      return false;
    }
    const unsigned int now = QIV_GetTimeTick();
    const unsigned int spentMs = now - start;
    if (remainingMs < spentMs) return false;
    remainingMs -= spentMs;
    start = now;
    // Kept: also for a time-out of 0 that has just been woken by a message, which stays.
    if (timeoutMs != QIV_INFINITE && remainingMs == 0) return false;
  }
}

}  // namespace

int QIV_MsgQWaitTimeOut_Inter(QIV_MQ_INTER* queue, unsigned int ms, int which) {
  pthread_mutex_t* const mutex = which != 0 ? &queue->hArriveMutex : &queue->hSpaceMutex;
  pthread_cond_t* const condition = which != 0 ? &queue->hArriveCond : &queue->hSpaceCond;
  const MutexHold hold(mutex);
  UnlockList(queue);
  if (!hold.IsHeld()) return QIV_ERROR;
  if (ms != 0) {
    QIV_CondTimedWait(condition, mutex, ms);
  } else {
    QIV_CondWait(condition, mutex);
  }
  return QIV_OK;
}

}  // namespace qiv::container

extern "C" {

int QIV_MsgQInitEx_Inter(void) noexcept {
  qiv::container::CloseAll();
  return QIV_OK;
}

int QIV_MsgQFiniEx_Inter(void) noexcept {
  qiv::container::CloseAll();
  return QIV_OK;
}

int QIV_MsgQCreateEx(QIV_MQ_INTER** out) noexcept {
  using namespace qiv::container;
  if (out == nullptr) return QIV_ERROR;
  const qiv::base::ScopedLock lock(g_MsgQTableMutex);
  for (QIV_MQ_INTER& queue : g_MsgQTable) {
    if (IsInUse(&queue)) continue;
    *out = &queue;  // kept: also when the queue cannot be opened
    return Open(&queue) ? QIV_OK : QIV_ERROR;
  }
  return QIV_ERROR;
}

int QIV_MsgQDestroyEx(QIV_MQ_INTER* queue) noexcept {
  using namespace qiv::container;
  if (queue == nullptr) return QIV_ERROR;
  const qiv::base::ScopedLock lock(g_MsgQTableMutex);
  Close(queue);
  return QIV_OK;
}

int QIV_MsgQSendEx(QIV_MQ_INTER* queue, const QIV_MSG_BLOCK_T* msg) noexcept {
  using namespace qiv::container;
  if (msg == nullptr || queue == nullptr || !IsInUse(queue)) return QIV_ERROR;
  const unsigned int generation = CurrentGeneration(queue);
  NodePointer node = NewNode(msg);
  if (!node || !LockList(queue, generation)) return QIV_ERROR;
  Insert(queue, node.release());
  Broadcast(&queue->hArriveCond, queue->hArriveMutex);
  UnlockList(queue);
  return QIV_OK;
}

int QIV_MsgQReceiveEx(QIV_MQ_INTER* queue, QIV_MSG_BLOCK_T* msg, unsigned int timeout_ms) {
  using namespace qiv::container;
  if (msg == nullptr || queue == nullptr || !IsInUse(queue)) return QIV_ERROR;
  if (!LockListWithMessage(queue, CurrentGeneration(queue), timeout_ms)) return QIV_ERROR;
  const NodePointer node = TakeHead(queue);
  const bool fits = msg->iMsgLen >= node->block.iMsgLen;
  if (fits) Broadcast(&queue->hSpaceCond, queue->hSpaceMutex);
  UnlockList(queue);
  msg->iMsgType = node->block.iMsgType;
  msg->iPriority = node->block.iPriority;
  // Kept: a message that does not fit is lost.
  if (!fits) return QIV_ERROR;
  msg->iMsgLen = node->block.iMsgLen;
  std::memcpy(msg->chMsgData, node->block.chMsgData, DataSize(node->block));
  return QIV_OK;
}

}  // extern "C"
