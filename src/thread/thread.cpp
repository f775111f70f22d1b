// Threads: checked functions over the platform's threads and a class that holds a thread id.
#include <pthread.h>
#include <qiv/thread.h>

#include <cstddef>

#include "thread/thread_ids.h"
#include "thread/thread_start.h"

static_assert(sizeof(QIV_Thread) == 4, "a thread id");

namespace {

constexpr int kNotSupported = -2;

/** The attributes of a thread to be made. Each setter is false when the platform refuses. */
class ThreadAttributes {
 public:
  ThreadAttributes() noexcept : m_valid(pthread_attr_init(&m_attributes) == 0) {}
  ~ThreadAttributes() {
    if (m_valid) pthread_attr_destroy(&m_attributes);
  }
  ThreadAttributes(const ThreadAttributes&) = delete;
  ThreadAttributes& operator=(const ThreadAttributes&) = delete;

  bool IsValid() const noexcept { return m_valid; }
  const pthread_attr_t* Get() const noexcept { return &m_attributes; }

  bool SetPolicy(int policy) noexcept {
    return pthread_attr_setschedpolicy(&m_attributes, policy) == 0;
  }
  bool SetPriority(int priority) noexcept {
    sched_param parameter = {};
    parameter.sched_priority = priority;
    return pthread_attr_setschedparam(&m_attributes, &parameter) == 0;
  }
  /** 0 leaves the platform's default. */
  bool SetStackSize(std::size_t bytes) noexcept {
    return bytes == 0 || pthread_attr_setstacksize(&m_attributes, bytes) == 0;
  }
  bool SetDetached() noexcept {
    return pthread_attr_setdetachstate(&m_attributes, PTHREAD_CREATE_DETACHED) == 0;
  }

 private:
  pthread_attr_t m_attributes;
  bool m_valid;
};

}  // namespace

QIV_Thread::QIV_Thread() noexcept : m_id(QIV_INVALID_ID) {}
QIV_Thread::QIV_Thread(const QIV_Thread&) noexcept = default;
QIV_Thread& QIV_Thread::operator=(const QIV_Thread&) noexcept = default;
QIV_Thread::~QIV_Thread() {}  // leaves the thread alone

int QIV_Thread::Create(void* (*routine)(void*), void* argument, unsigned int stackSize, int ignored,
                       int priority, int policy) noexcept {
  m_id = QIV_Thread_Create(routine, argument, stackSize, ignored, priority, policy);
  return m_id == QIV_INVALID_ID ? QIV_ERROR : QIV_OK;
}

int QIV_Thread::Wait() { return QIV_Thread_Wait(m_id); }
int QIV_Thread::Suspend() noexcept { return QIV_Thread_Suspend(m_id); }
int QIV_Thread::Resume() noexcept { return QIV_Thread_Resume(m_id); }
int QIV_Thread::SetPriority(int priority) noexcept {
  return QIV_Thread_SetPriority(m_id, priority);
}
int QIV_Thread::SetSchedPolicy(int policy) noexcept {
  return QIV_Thread_SetSchedPolicy(m_id, policy);
}

extern "C" {

unsigned int QIV_Thread_Create(void* (*routine)(void*), void* argument, unsigned int stackSize,
                               int /*ignored*/, int priority, int policy) noexcept {
  if (routine == nullptr) return QIV_INVALID_ID;
  ThreadAttributes attributes;
  // The policy goes first: the platform checks the priority against it. Kept: the thread goes on
  // inheriting its scheduling, so neither takes effect by itself.
  if (!attributes.IsValid() || !attributes.SetPolicy(policy) ||
      !attributes.SetStackSize(stackSize) || !attributes.SetPriority(priority)) {
    return QIV_INVALID_ID;
  }
  return qiv::thread::StartJoinable(attributes.Get(), routine, argument);
}

int QIV_ThreadDetached_Create(void* (*routine)(void*), void* argument,
                              unsigned int stackSize) noexcept {
  if (routine == nullptr) return QIV_FALSE;
  ThreadAttributes attributes;
  if (!attributes.IsValid() || !attributes.SetDetached() || !attributes.SetStackSize(stackSize)) {
    return QIV_FALSE;
  }
  const bool started = qiv::thread::StartDetached(attributes.Get(), routine, argument);
  return started ? QIV_TRUE : QIV_FALSE;
}

void QIV_Thread_Exit(void) { pthread_exit(nullptr); }

int QIV_Thread_Wait(unsigned int id) {
  return id == QIV_INVALID_ID ? QIV_ERROR : qiv::thread::ThreadIds::Join(id);
}

unsigned int QIV_Thread_GetSelfId(void) noexcept { return qiv::thread::ThreadIds::Self(); }

int QIV_Thread_Suspend(unsigned int /*id*/) noexcept { return kNotSupported; }

int QIV_Thread_Resume(unsigned int /*id*/) noexcept { return kNotSupported; }

int QIV_Thread_SetPriority(unsigned int id, int priority) noexcept {
  return id == QIV_INVALID_ID ? QIV_ERROR : qiv::thread::ThreadIds::SetPriority(id, priority);
}

int QIV_Thread_SetSchedPolicy(unsigned int id, int policy) noexcept {
  if (id == QIV_INVALID_ID) return QIV_ERROR;
  // Kept: only the value is looked at; the thread stays as it is.
  ThreadAttributes scratch;
  return scratch.IsValid() && scratch.SetPolicy(policy) ? QIV_OK : QIV_ERROR;
}

}  // extern "C"
