// The record behind an event's handle, and what the files of events share.
//
// The record's mutex guards what is in the pipe and the life of its two ends. Waits take no lock,
// and what they read and write is atomic; an event is not to be bound while a thread waits for it.
// Those order nothing (relaxed), but the read end: QIV_SetEvent() releases it and the waits acquire
// it, which hands on what the setting thread did.
#ifndef QIV_SYNC_EVENT_H
#define QIV_SYNC_EVENT_H

#include <poll.h>
#include <pthread.h>
#include <qiv/types.h>

#include <atomic>
#include <cstddef>

namespace qiv::sync {

constexpr int kNoDescriptor = -1;

/** Bits of QIV_EVENT_T::pollMode. */
constexpr unsigned int kPollForReading = 1;
constexpr unsigned int kPollForWriting = 2;

struct QIV_EVENT_T {
  std::atomic<int> iPipeFd[2] = {{kNoDescriptor}, {kNoDescriptor}};  // read end, write end
  std::atomic<int> socket{kNoDescriptor};
  std::atomic<unsigned int> pollMode{0};
  std::atomic<unsigned int> networkEventMask{0};
  std::atomic<unsigned int> triggeredEvent{0};
  unsigned int reserved = 0;
  std::atomic<int> errorCode{0};  // of triggeredEvent
  pthread_mutex_t mutex;
};

static_assert(sizeof(std::atomic<int>) == 4, "the fields are 32 bits wide");
static_assert(offsetof(QIV_EVENT_T, socket) == 8, "follows the pipe");
static_assert(offsetof(QIV_EVENT_T, pollMode) == 12, "follows the socket");
static_assert(offsetof(QIV_EVENT_T, networkEventMask) == 16, "follows the poll mode");
static_assert(offsetof(QIV_EVENT_T, triggeredEvent) == 20, "follows the mask");
static_assert(offsetof(QIV_EVENT_T, reserved) == 24, "follows the triggered event");
static_assert(offsetof(QIV_EVENT_T, errorCode) == 28, "follows the reserved word");
static_assert(offsetof(QIV_EVENT_T, mutex) == 32, "follows the error");
static_assert(sizeof(void*) != 4 || sizeof(QIV_EVENT_T) == 32 + sizeof(pthread_mutex_t),
              "nothing follows the mutex on 32-bit platforms");

inline QIV_EVENT_T* RecordOf(QIV_HANDLE event) { return static_cast<QIV_EVENT_T*>(event); }

/** -1 once the record is bound to a socket. */
inline int ReadEnd(const QIV_EVENT_T& record) {
  return record.iPipeFd[0].load(std::memory_order_acquire);
}

/** Closes what is open of the pipe; the caller sees to it that nobody else uses it. */
void ClosePipe(QIV_EVENT_T& record);

/** Signals: puts a byte into the pipe. QIV_TRUE, or QIV_FALSE and a message. */
int QIV_WritePipe_Inter(QIV_EVENT_T* record);

/** Drains the pipe. QIV_TRUE, or QIV_FALSE on a failure. */
int QIV_ReadPipe_Inter(QIV_EVENT_T* record);

/** What the system reported for one entry of a wait: 0 when it signals the record, whose triggered
 *  event and error are written for a socket; -1 when not. */
int QIV_GetEventTriggeredFlag_Inter(QIV_EVENT_T* record, const pollfd* entry);

/** Destroys the record's mutex. */
void QIV_ClearEventMutex_Inter(QIV_EVENT_T* record);

}  // namespace qiv::sync

#endif
