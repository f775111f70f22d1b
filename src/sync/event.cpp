// Events: a pipe that holds one byte while the event is signalled.
//
// The record's mutex is held while the pipe is drained and written, and to close it: no other lock
// is taken under it, and the thread cannot be cancelled meanwhile. Waits take no lock.
#include "sync/event.h"

#include <fcntl.h>
#include <qiv/debug.h>
#include <qiv/event.h>
#include <qiv/mutex.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"

namespace qiv::sync {
namespace {

constexpr char kSignal = 'e';
constexpr int kLookOnce = 0;

QIV_EVENT_T* NewRecord() {
  void* const memory = std::malloc(sizeof(QIV_EVENT_T));
  return memory == nullptr ? nullptr : new (memory) QIV_EVENT_T;
}

// Non-blocking, so that a pipe which a child process shares cannot hold the lock up.
bool OpenPipe(QIV_EVENT_T& record) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) return false;
  record.iPipeFd[0].store(ends[0], std::memory_order_relaxed);
  record.iPipeFd[1].store(ends[1], std::memory_order_relaxed);
  return true;
}

/** False with nothing left behind but the memory and the pipe. */
bool MakeMutexAndSignal(QIV_EVENT_T* record, bool signalled) {
  if (QIV_MutexCreate(&record->mutex, PTHREAD_MUTEX_NORMAL) != QIV_OK) return false;
  if (!signalled || QIV_WritePipe_Inter(record) == QIV_TRUE) return true;
  QIV_ClearEventMutex_Inter(record);
  return false;
}

// To be done before the byte is written, and under the lock, so that the value cannot be an old
// one.
void PublishToWaits(QIV_EVENT_T& record) {
  record.iPipeFd[0].store(record.iPipeFd[0].load(std::memory_order_relaxed),
                          std::memory_order_release);
}

int SetUnderLock(QIV_EVENT_T* record) {
  const qiv::base::ScopedLock lock(record->mutex);
  if (QIV_ReadPipe_Inter(record) != QIV_TRUE) {
    QIV_OutputDebug("zelmar !!! QIV_SetEvent read pipe return error %d 1\n", errno);
    return QIV_FALSE;
  }
  PublishToWaits(*record);
  if (QIV_WritePipe_Inter(record) != QIV_TRUE) {
    QIV_OutputDebug("zelmar !!! QIV_SetEvent write pipe return error %d 2\n", errno);
    return QIV_FALSE;
  }
  return QIV_TRUE;
}

}  // namespace

void ClosePipe(QIV_EVENT_T& record) {
  if (ReadEnd(record) == kNoDescriptor) return;
  for (std::atomic<int>& end : record.iPipeFd) {
    close(end.exchange(kNoDescriptor, std::memory_order_relaxed));
  }
}

int QIV_WritePipe_Inter(QIV_EVENT_T* record) {
  const int writeEnd = record->iPipeFd[1].load(std::memory_order_relaxed);
  pollfd entry = {writeEnd, POLLWRNORM, 0};
  const bool isWritable = poll(&entry, 1, kLookOnce) > 0 && (entry.revents & POLLWRNORM) != 0;
  if (isWritable && write(writeEnd, &kSignal, sizeof(kSignal)) == sizeof(kSignal)) return QIV_TRUE;
  QIV_OutputDebug("zelmar !!!! QIV_WritePipe_Inter return QIV_FALSE errno = %d", errno);
  return QIV_FALSE;
}

int QIV_ReadPipe_Inter(QIV_EVENT_T* record) {
  const int readEnd = ReadEnd(*record);
  char bytes[256];
  pollfd entry = {readEnd, POLLRDNORM, 0};
  while (poll(&entry, 1, kLookOnce) > 0) {
    if (entry.revents != POLLRDNORM) return QIV_FALSE;
    const ssize_t got = read(readEnd, bytes, sizeof(bytes));
    if (got < 1) return QIV_FALSE;
    // A short read has emptied the pipe: another look would find nothing.
    if (static_cast<std::size_t>(got) < sizeof(bytes)) break;
  }
  return QIV_TRUE;
}

void QIV_ClearEventMutex_Inter(QIV_EVENT_T* record) { QIV_MutexDestroy(&record->mutex); }

}  // namespace qiv::sync

extern "C" {

QIV_HANDLE QIV_CreateEvent(int signalled) noexcept {
  using namespace qiv::sync;
  const qiv::base::NoCancellation noCancellation;
  QIV_EVENT_T* const record = NewRecord();
  if (record == nullptr) return nullptr;
  if (OpenPipe(*record) && MakeMutexAndSignal(record, signalled != 0)) return record;
  QIV_OutputDebug("zelmar !!! QIV_CreateEvent return error %d 0\n", errno);
  ClosePipe(*record);
  std::free(record);
  return nullptr;
}

int QIV_CloseEvent(QIV_HANDLE event) noexcept {
  using namespace qiv::sync;
  if (event == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_CloseEvent !hEvnet return error 0\n");
    return QIV_FALSE;
  }
  const qiv::base::NoCancellation noCancellation;
  QIV_EVENT_T* const record = RecordOf(event);
  {
    // The thread whose signal led here may still hold it.
    const qiv::base::ScopedLock lock(record->mutex);
    ClosePipe(*record);
  }
  QIV_ClearEventMutex_Inter(record);
  std::free(record);
  return QIV_TRUE;
}

int QIV_SetEvent(QIV_HANDLE event) noexcept {
  if (event == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_SetEvent !hEvent return error 0\n");
    return QIV_FALSE;
  }
  const qiv::base::NoCancellation noCancellation;
  return qiv::sync::SetUnderLock(qiv::sync::RecordOf(event));
}

int QIV_ResetEvent(QIV_HANDLE event) noexcept {
  using namespace qiv::sync;
  if (event == nullptr) {
    QIV_OutputDebug("zelmar !!! QIV_ResetEvent  !hEvent return error 0\n");
    return QIV_FALSE;
  }
  QIV_EVENT_T* const record = RecordOf(event);
  const qiv::base::NoCancellation noCancellation;
  const qiv::base::ScopedLock lock(record->mutex);
  if (ReadEnd(*record) == kNoDescriptor) {
    QIV_OutputDebug("zelmar !!! QIV_ResetEvent (pEvent->iPipeFd[0] == -1) return error 1\n");
    return QIV_FALSE;
  }
  return QIV_ReadPipe_Inter(record);
}

}  // extern "C"
