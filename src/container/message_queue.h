// The records of the message queues.
//
// A record's mutexes are constant-initialised and stay for good, so that a sender or receiver that
// comes too late finds the queue closed and not its mutex gone. The conditions are made and
// destroyed with the queue. hListMutex guards the list, the count and every use of the conditions;
// bInUse changes under it too and may be read without it. Lock order: g_MsgQTableMutex, hListMutex,
// then hArriveMutex or hSpaceMutex.
#ifndef QIV_CONTAINER_MESSAGE_QUEUE_H
#define QIV_CONTAINER_MESSAGE_QUEUE_H

#include <pthread.h>
#include <qiv/message_queue.h>

#include <atomic>
#include <cstddef>

#include "base/constant_mutex.h"

namespace qiv::container {

/** A stored message; made by malloc(). */
struct MessageNode {
  QIV_MSG_BLOCK_T block;
  MessageNode* next;  // the next one by priority; among equal ones, by arrival
};

}  // namespace qiv::container

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the order of the fields is fixed
struct alignas(8) QIV_MQ_INTER {
  std::atomic<int> bInUse{0};
  pthread_mutex_t hListMutex = PTHREAD_MUTEX_INITIALIZER;
  unsigned int nMsgCount = 0;
  pthread_mutex_t hSpaceMutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_mutex_t hArriveMutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t hSpaceCond = PTHREAD_COND_INITIALIZER;   // broadcast after a receive
  pthread_cond_t hArriveCond = PTHREAD_COND_INITIALIZER;  // broadcast after a send
  qiv::container::MessageNode* pHead = nullptr;
  qiv::container::MessageNode* pTail = nullptr;  // the last node where there is a first one
};

static_assert(offsetof(QIV_MSG_BLOCK_T, iPriority) == 4, "fields in order, without gaps");
static_assert(offsetof(QIV_MSG_BLOCK_T, iMsgLen) == 8, "fields in order, without gaps");
static_assert(offsetof(QIV_MSG_BLOCK_T, chMsgData) == 12, "fields in order, without gaps");
static_assert(sizeof(QIV_MSG_BLOCK_T) == 8108, "fields in order, without gaps");
static_assert(sizeof(void*) != 4 || sizeof(qiv::container::MessageNode) == 8112, "no gaps");
static_assert(sizeof(void*) != 4 || offsetof(qiv::container::MessageNode, next) == 8108, "last");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, hListMutex) == 4, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, nMsgCount) == 28, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, hSpaceMutex) == 32, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, hArriveMutex) == 56, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, hSpaceCond) == 80, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, hArriveCond) == 128, "in order");
static_assert(sizeof(void*) != 4 || offsetof(QIV_MQ_INTER, pHead) == 176, "in order");
static_assert(sizeof(void*) != 4 || sizeof(QIV_MQ_INTER) == 184, "padded");

namespace qiv::container {

constexpr int kQueueCount = 100;

extern QIV_MQ_INTER g_MsgQTable[kQueueCount];
/** Held over the creation and the end of a queue. */
extern base::ConstantMutex g_MsgQTableMutex;

/**
 * Waits until something changes. The caller holds hListMutex, which is released; since a send
 * broadcasts under both mutexes, none that comes after the caller's look is missed. The wait may
 * end early, and at any time when another thread looks first.
 *
 * @param ms     longest wait; 0 is no limit
 * @param which  non-zero: for a message to arrive; 0: for one to leave
 * @return 0, also when the time has run out; -1 when the wait's mutex cannot be locked
 */
int QIV_MsgQWaitTimeOut_Inter(QIV_MQ_INTER* queue, unsigned int ms, int which);

}  // namespace qiv::container

#endif
