// The start of a thread and the trampoline that a thread with a trace record begins in.
//
// The routine may end its thread or be cancelled: what the trampoline holds is released by
// destructors, and it lets the unwinding through.
#include "thread/thread_start.h"

#include <pthread.h>
#include <qiv/thread.h>

#include <cstddef>

#include "base/diagnostic.h"
#include "thread/thread_ids.h"

namespace qiv::thread {

static_assert(sizeof(void*) != 4 || offsetof(StartRecord, routine) == 200, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(StartRecord, argument) == 204, "fields in order");
static_assert(sizeof(void*) != 4 || offsetof(StartRecord, hasTrace) == 208, "fields in order");

namespace {

qiv_tlsTraceInfoOper& TraceInfo() { return *qiv_tlsTraceInfoOper::instance(); }

class InheritedTrace {
 public:
  explicit InheritedTrace(const StartRecord& record) noexcept
      : m_installed(record.hasTrace != 0 && TraceInfo().setTraceInfo(&record.trace) == QIV_OK) {}
  ~InheritedTrace() {
    if (m_installed) TraceInfo().eraseTraceInfo();
  }
  InheritedTrace(const InheritedTrace&) = delete;
  InheritedTrace& operator=(const InheritedTrace&) = delete;

 private:
  bool m_installed;
};

void* RunThread(void* parameter) {
  if (parameter == nullptr) {
    base::Diagnose("pfnThreadStartAddress, pParam is null!\r\n");
    return nullptr;
  }
  const StartRecordPointer record(static_cast<StartRecord*>(parameter));
  const InheritedTrace trace(*record);
  if (record->routine != nullptr) record->routine(record->argument);
  return nullptr;
}

}  // namespace

ThreadStart::ThreadStart(ThreadRoutine routine, void* argument) noexcept
    : m_routine(routine), m_argument(argument) {
  QIV_TRACEINFO trace;
  if (TraceInfo().getTraceInfo(&trace) != QIV_OK) return;
  m_routine = nullptr;
  m_record.reset(static_cast<StartRecord*>(std::calloc(1, sizeof(StartRecord))));
  if (!m_record) return;
  m_routine = pfnThreadStartAddress;
  m_argument = m_record.get();
  m_record->trace = trace;
  m_record->routine = routine;
  m_record->argument = argument;
  m_record->hasTrace = 1;
}

unsigned int StartJoinable(const pthread_attr_t* attributes, ThreadRoutine routine,
                           void* argument) noexcept {
  ThreadStart start(routine, argument);
  if (!start.IsReady()) return QIV_INVALID_ID;
  const unsigned int id = ThreadIds::Create(attributes, start.Routine(), start.Argument());
  if (id != QIV_INVALID_ID) start.HandOver();
  return id;
}

bool StartDetached(const pthread_attr_t* attributes, ThreadRoutine routine,
                   void* argument) noexcept {
  ThreadStart start(routine, argument);
  if (!start.IsReady()) return false;
  pthread_t thread;
  const bool started = pthread_create(&thread, attributes, start.Routine(), start.Argument()) == 0;
  if (started) start.HandOver();
  return started;
}

void LockStartsForFork() noexcept {
  TraceInfo().lockForFork();
  ThreadIds::LockForFork();
}

void UnlockStartsAfterFork() noexcept {
  ThreadIds::UnlockAfterFork();
  TraceInfo().unlockAfterFork();
}

}  // namespace qiv::thread

extern "C" {

void* pfnThreadStartAddress(void* record) { return qiv::thread::RunThread(record); }

void* pfnDetachedThreadStartAddress(void* record) { return qiv::thread::RunThread(record); }

}  // extern "C"
