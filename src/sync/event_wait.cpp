// Waits for one event and for several objects: polls of the pipes' read ends and of sockets.
//
// No lock is taken and no memory allocated. The atomics of the records are described in event.h.
#include <qiv/debug.h>
#include <qiv/event.h>
#include <qiv/time.h>

#include <algorithm>
#include <cerrno>

#include "sync/event.h"

namespace qiv::sync {
namespace {

/** What one multi-object wait looks at, in the order of the caller's array. */
class PollTable {
 public:
  /** Enters objects until one does not fit. */
  PollTable(const QIV_HANDLE* events, int count) {
    for (int index = 0; index < count && m_count < QIV_WAIT_MAX_ENTRIES; ++index) {
      if (events[index] != nullptr) Enter(RecordOf(events[index]), index);
    }
  }
  PollTable(const PollTable&) = delete;
  PollTable& operator=(const PollTable&) = delete;

  int Count() const { return m_count; }
  int Index(int entry) const { return m_indexes[entry]; }

  bool IsSignalled(int entry) const {
    return QIV_GetEventTriggeredFlag_Inter(m_records[entry], &m_entries[entry]) != -1;
  }

  int Poll(int ms) { return poll(m_entries, static_cast<nfds_t>(m_count), ms); }

 private:
  void Enter(QIV_EVENT_T* record, int index) {
    const int readEnd = ReadEnd(*record);
    if (readEnd != kNoDescriptor) return EnterDescriptor(readEnd, POLLRDNORM, record, index);
    const int socket = record->socket.load(std::memory_order_relaxed);
    const unsigned int mode = record->pollMode.load(std::memory_order_relaxed);
    if ((mode & kPollForReading) != 0) EnterDescriptor(socket, POLLRDNORM, record, index);
    if ((mode & kPollForWriting) != 0) EnterDescriptor(socket, POLLWRNORM, record, index);
  }

  void EnterDescriptor(int descriptor, short event, QIV_EVENT_T* record, int index) {
    if (m_count == QIV_WAIT_MAX_ENTRIES) return;
    m_entries[m_count] = {descriptor, event, 0};
    m_records[m_count] = record;
    m_indexes[m_count] = index;
    ++m_count;
  }

  int m_count = 0;
  pollfd m_entries[QIV_WAIT_MAX_ENTRIES];
  // Kept here: the caller's array may change during the wait.
  QIV_EVENT_T* m_records[QIV_WAIT_MAX_ENTRIES];
  int m_indexes[QIV_WAIT_MAX_ENTRIES];
};

int MillisecondsUntil(qiv_int64 end, int most) {
  return static_cast<int>(std::clamp<qiv_int64>(end - QIV_GetTimeTick64(), 0, most));
}

int PollAgainWhenInterrupted(PollTable& table, int ms) {
  const bool isTimed = ms > 0;
  // The tick rounds: one more, so that signals never make the wait shorter.
  const qiv_int64 end = isTimed ? QIV_GetTimeTick64() + ms + 1 : 0;
  int result = table.Poll(ms);
  while (result == -1 && errno == EINTR) {
    result = table.Poll(isTimed ? MillisecondsUntil(end, ms) : ms);
  }
  return result;
}

}  // namespace
}  // namespace qiv::sync

extern "C" {

int QIV_WaitForSingleObject(QIV_HANDLE event, int ms) {
  using namespace qiv::sync;
  if (event == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_WaitForSingleObject !hEvent return error 0\n");
    return QIV_WAIT_NULL_EVENT;
  }
  const QIV_EVENT_T& record = *RecordOf(event);
  pollfd entry = {ReadEnd(record), POLLRDNORM, 0};
  if (entry.fd == kNoDescriptor) {
    QIV_OutputDebug(
        "zelmar !!! QIV_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n");
    return QIV_WAIT_NO_PIPE;
  }
  const int result = poll(&entry, 1, ms);
  if (result < 0) {
    QIV_OutputDebug("zelmar QIV_WaitForSingleObject poll error return error %d 3\n", errno);
    return QIV_WAIT_FAILED;
  }
  if (result == 0) return QIV_WAIT_TIMEOUT;
  ReadEnd(record);  // acquires what the setting thread has released
  return QIV_WAIT_SIGNALLED;
}

int QIV_WaitForMultipleObjects(int count, const QIV_HANDLE* events, int /*waitAll*/, int ms) {
  using namespace qiv::sync;
  if (events == nullptr) {
    QIV_OutputDebug(
        "zelmar !!! QIV_WaitForMultipleObjects ((nEventCount < 0) || !hEvents) return error 0\n");
    return QIV_WAIT_NULL_EVENT;
  }
  PollTable table(events, count);
  if (PollAgainWhenInterrupted(table, ms) < 1) return QIV_WAIT_TIMEOUT;
  for (int entry = 0; entry < table.Count(); ++entry) {
    if (table.IsSignalled(entry)) return table.Index(entry);
  }
  return QIV_WAIT_TIMEOUT;
}

}  // extern "C"
