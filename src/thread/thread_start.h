// How a thread starts: directly on the caller's routine, or through a start record that carries the
// creator's trace record over. Used by QIV_Thread_Create() and QIV_ThreadDetached_Create().
#ifndef QIV_THREAD_THREAD_START_H
#define QIV_THREAD_THREAD_START_H

#include <qiv/trace_info.h>

#include <cstdlib>
#include <memory>

#include "thread/platform_thread.h"

namespace qiv::thread {

/** Zero-filled on creation. Belongs to the new thread as soon as that exists, which frees it. */
struct StartRecord {
  QIV_TRACEINFO trace;
  ThreadRoutine routine;
  void* argument;
  unsigned char hasTrace;
};

struct StartRecordDeleter {
  void operator()(StartRecord* record) const noexcept { std::free(record); }
};
using StartRecordPointer = std::unique_ptr<StartRecord, StartRecordDeleter>;

/** What to hand to the platform for a new thread of the calling one. */
class ThreadStart {
 public:
  ThreadStart(ThreadRoutine routine, void* argument) noexcept;

  /** False when memory for the start record is short. */
  bool IsReady() const noexcept { return m_routine != nullptr; }
  ThreadRoutine Routine() const noexcept { return m_routine; }
  void* Argument() const noexcept { return m_argument; }

  /** Leaves the start record to the thread that runs now. */
  void HandOver() noexcept { static_cast<void>(m_record.release()); }

 private:
  ThreadRoutine m_routine;
  void* m_argument;
  StartRecordPointer m_record;
};

/** Starts a joinable thread with the calling thread's trace record; its id or QIV_INVALID_ID. */
unsigned int StartJoinable(const pthread_attr_t* attributes, ThreadRoutine routine,
                           void* argument) noexcept;

/** Starts a thread with detached attributes, like StartJoinable(). */
bool StartDetached(const pthread_attr_t* attributes, ThreadRoutine routine,
                   void* argument) noexcept;

/** Called around a fork, so that the child can start threads whatever others were doing. */
void LockStartsForFork() noexcept;
void UnlockStartsAfterFork() noexcept;

}  // namespace qiv::thread

#endif
