// The reader/writer lock: counters under one mutex, with a condition for each kind of waiter.
//
// m_state is guarded by m_guard, which is released while a thread waits at a gate.
#include <qiv/shared_mutex.h>

#include <new>

#include "base/scoped_lock.h"
#include "sync/platform_mutex.h"

static_assert(sizeof(QIV_SharedMutex::CStateData) == 12, "three 32-bit counters");

namespace {

using GuardLock = qiv::base::ScopedLock<QIV_UniqueMutex>;

QIV_SharedMutex* FromHandle(const QIV_HANDLE* handle) {
  return handle == nullptr ? nullptr : static_cast<QIV_SharedMutex*>(*handle);
}

}  // namespace

/** Counts a writer as waiting until its wait is over. */
class QIV_SharedMutex::WaitingWriter {
 public:
  explicit WaitingWriter(QIV_SharedMutex* mutex) QIV_NO_THREAD_SAFETY_ANALYSIS : m_mutex(mutex) {
    ++m_mutex->m_state.waitingWriters;
  }
  ~WaitingWriter() QIV_NO_THREAD_SAFETY_ANALYSIS {
    --m_mutex->m_state.waitingWriters;
    // A cancelled wait may have been the one that was woken, or the last that kept readers out.
    if (!m_admitted && m_mutex->m_state.exclusive == 0) m_mutex->WakeNext();
  }
  WaitingWriter(const WaitingWriter&) = delete;
  WaitingWriter& operator=(const WaitingWriter&) = delete;

  void SetAdmitted() { m_admitted = true; }

 private:
  QIV_SharedMutex* m_mutex;
  bool m_admitted = false;
};

QIV_SharedMutex::QIV_SharedMutex() noexcept = default;
QIV_SharedMutex::~QIV_SharedMutex() = default;

bool QIV_SharedMutex::WriterMayEnter() const {
  return m_state.sharedHolders == 0 && m_state.exclusive == 0;
}

bool QIV_SharedMutex::ReaderMayEnter() const {
  return m_state.exclusive == 0 && m_state.waitingWriters == 0;
}

void QIV_SharedMutex::WakeNext() {
  if (m_state.waitingWriters != 0) {
    m_writerGate.Signal();
  } else {
    m_readerGate.BroadCast();
  }
}

int QIV_SharedMutex::Lock() {
  const GuardLock lock(m_guard);
  if (!WriterMayEnter()) {
    WaitingWriter waiting(this);
    while (!WriterMayEnter()) m_writerGate.Wait(qiv::sync::PlatformMutex(m_guard));
    waiting.SetAdmitted();
  }
  m_state.exclusive = 1;
  return QIV_OK;
}

int QIV_SharedMutex::Unlock() noexcept {
  const GuardLock lock(m_guard);
  m_state.exclusive = 0;
  WakeNext();
  return QIV_OK;
}

int QIV_SharedMutex::TryLock() noexcept {
  const GuardLock lock(m_guard);
  if (!WriterMayEnter()) return QIV_ERROR;
  m_state.exclusive = 1;
  return QIV_OK;
}

int QIV_SharedMutex::LockShared() {
  const GuardLock lock(m_guard);
  while (!ReaderMayEnter()) m_readerGate.Wait(qiv::sync::PlatformMutex(m_guard));
  ++m_state.sharedHolders;
  return QIV_OK;
}

int QIV_SharedMutex::UnlockShared() noexcept {
  const GuardLock lock(m_guard);
  --m_state.sharedHolders;
  if (m_state.sharedHolders == 0 && m_state.waitingWriters != 0) m_writerGate.Signal();
  return QIV_OK;
}

int QIV_SharedMutex::TryLockShread() noexcept {
  const GuardLock lock(m_guard);
  if (!ReaderMayEnter()) return QIV_ERROR;
  ++m_state.sharedHolders;
  return QIV_OK;
}

extern "C" {

int QIV_SharedMutexCreate(QIV_HANDLE* handle) noexcept {
  if (handle == nullptr || *handle != nullptr) return QIV_ERROR;
  *handle = new (std::nothrow) QIV_SharedMutex;
  return *handle == nullptr ? QIV_ERROR : QIV_OK;
}

int QIV_SharedMutexDestroy(QIV_HANDLE* handle) noexcept {
  if (FromHandle(handle) == nullptr) return QIV_ERROR;
  delete FromHandle(handle);
  *handle = nullptr;
  return QIV_OK;
}

int QIV_SharedMutexLock(QIV_HANDLE* handle) {
  QIV_SharedMutex* const mutex = FromHandle(handle);
  return mutex == nullptr ? QIV_ERROR : mutex->Lock();
}

int QIV_SharedMutexUnlock(QIV_HANDLE* handle) noexcept {
  QIV_SharedMutex* const mutex = FromHandle(handle);
  return mutex == nullptr ? QIV_ERROR : mutex->Unlock();
}

int QIV_SharedMutexTryLock(QIV_HANDLE* handle) noexcept {
  QIV_SharedMutex* const mutex = FromHandle(handle);
  return mutex == nullptr ? QIV_ERROR : mutex->TryLock();
}

int QIV_SharedMutexLockShared(QIV_HANDLE* handle) {
  QIV_SharedMutex* const mutex = FromHandle(handle);
  return mutex == nullptr ? QIV_ERROR : mutex->LockShared();
}

int QIV_SharedMutexUnlockShared(QIV_HANDLE* handle) noexcept {
  QIV_SharedMutex* const mutex = FromHandle(handle);
  return mutex == nullptr ? QIV_ERROR : mutex->UnlockShared();
}

int QIV_SharedMutexTryLockShared(QIV_HANDLE* handle) noexcept {
  QIV_SharedMutex* const mutex = FromHandle(handle);
  return mutex == nullptr ? QIV_ERROR : mutex->TryLockShread();
}

}  // extern "C"
