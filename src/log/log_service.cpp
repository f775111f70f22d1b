// The log service: start, stop, the ring of queued lines and the thread that writes them.
//
// queueMutex guards the ring, the queue, bQuit, the counts and what the writer has in flight;
// serviceMutex is held over a start and a stop and guards the thread ids and what a writer that
// nobody waited for has left. It is the first of the three to be taken; fileMutex (see
// log_files.cpp) and queueMutex are held together in Close() alone, in this order. bRunning is
// cleared under queueMutex, so whatever is accepted is queued before bQuit is set.
//
// The writer reads the lines of a batch without a lock. They count as free already, as the bytes do
// that a wrap skips; what lies behind the ring makes up for both, so that no line of WriteLog() is
// ever written over before it has been read.
#include "log/log_service.h"

#include <pthread.h>
#include <qiv/debug.h>
#include <qiv/system.h>
#include <qiv/thread.h>
#include <qiv/time.h>

#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "base/no_cancellation.h"
#include "base/scoped_lock.h"
#include "thread/thread_start.h"

using namespace qiv::log;
using qiv::base::NoCancellation;
using qiv::base::ScopedLock;

static_assert(offsetof(_LOG, length) == sizeof(void*), "text and length");
static_assert(sizeof(void*) != 4 || sizeof(_LOG) == 8, "text and length");
static_assert(sizeof(LogService::szLogDir) == 260, "the directory");

namespace {

constexpr unsigned int kRingBytes = 2097152;
constexpr unsigned int kBatchBytes = 65536 - kLineBytes;
constexpr unsigned int kSlackBytes = kBatchBytes + kLineBytes;
constexpr unsigned int kRoomBytes = kRingBytes + kSlackBytes;

constexpr int kPlain = 0;
constexpr unsigned int kWriterStack = 131072;
constexpr unsigned int kWriterPauseMs = 5;
constexpr qiv_int64 kExitLimitMs = 1000;

/** Looks every millisecond; false when the condition does not hold at `end`. */
template <class Condition>
bool WaitUntil(qiv_int64 end, Condition holds) {
  while (!holds()) {
    if (QIV_GetTimeTick64() >= end) return false;
    QIV_Sleep(1);
  }
  return true;
}

/** Blocks all signals for the threads that are started while it lives: the application's handlers
 * do not run on the writer's small stack, and a file at its size limit or a closed standard output
 * does not end the process. */
class SignalsBlocked {
 public:
  SignalsBlocked() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &m_saved);
  }
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_saved, nullptr); }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
  sigset_t m_saved;
};

/** Holds a mutex, if it could be taken before `end`. */
class TimedLock {
 public:
  TimedLock(QIV_Mutex* mutex, qiv_int64 end) QIV_NO_THREAD_SAFETY_ANALYSIS
      : m_mutex(mutex),
        m_isHeld(WaitUntil(end, [mutex] { return mutex->TryLock() == QIV_OK; })) {}
  ~TimedLock() QIV_NO_THREAD_SAFETY_ANALYSIS {
    if (m_isHeld) m_mutex->Unlock();
  }
  TimedLock(const TimedLock&) = delete;
  TimedLock& operator=(const TimedLock&) = delete;

  bool IsHeld() const noexcept { return m_isHeld; }

 private:
  QIV_Mutex* const m_mutex;
  const bool m_isHeld;
};

// Its constructor allocates.
std::deque<_LOG>* NewQueue() {
  try {
    return new std::deque<_LOG>;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

LogService::LogService() noexcept
    : bRunning(false),
      logLevel(LOG_INF),
      bDisabled(false),
      bConsole(false),
      bDebugOut(false),
      bFileOut(false),
      hWriterThread(QIV_INVALID_ID),
      bQuit(0),
      queueMutex(),
      pRingBase(nullptr),
      pRingWrite(nullptr),
      nRingFree(0),
      logQueue(nullptr),
      hLogFile(-1),
      nFileIndex(0),
      bCyclic(true),
      nMaxFileSize(0),
      szLogDir(),
      m_inFlight(nullptr),
      m_queued(0),
      m_taken(0),
      m_written(0),
      m_isReportingLostLine(false),
      m_hasWriterEnded(false),
      m_leavingThread(QIV_INVALID_ID),
      m_leftRing(nullptr) {
  QIV_MutexCreate(&queueMutex, kPlain);
}

LogService::~LogService() {
  if (!Close()) {
    ServiceStop(false);
    JoinWriter();
    FreeLeftRing();
  }
  QIV_MutexDestroy(&queueMutex);
}

int LogService::ServiceStart() noexcept {
  const NoCancellation noCancellation;
  const ScopedLock start(serviceMutex);
  if (bRunning.load(std::memory_order_relaxed)) return kSuccess;
  if (bDisabled.load(std::memory_order_relaxed)) return kNotRunning;
  JoinWriter();
  FreeLeftRing();
  if (!MakeRing()) return kNoResources;
  {
    const SignalsBlocked signalsBlocked;
    hWriterThread = QIV_Thread_Create(WriteLogProc, this, kWriterStack, 0, 0, 0);
  }
  if (hWriterThread == QIV_INVALID_ID) {
    LeaveRing();
    FreeLeftRing();
    return kNoResources;
  }
  bRunning.store(true, std::memory_order_release);
  return kSuccess;
}

int LogService::ServiceStop(bool wait) noexcept {
  const NoCancellation noCancellation;
  const ScopedLock stop(serviceMutex);
  if (!bRunning.load(std::memory_order_relaxed)) return kSuccess;
  {
    const ScopedLock lock(queueMutex);
    bRunning.store(false, std::memory_order_relaxed);
    bQuit = 1;
  }
  m_leavingThread = hWriterThread;
  hWriterThread = QIV_INVALID_ID;
  if (wait) JoinWriter();
  LeaveRing();
  SwitchFileService(false);
  if (wait) FreeLeftRing();
  return kSuccess;
}

/** Of a writer that has been told to end, if there is one. */
void LogService::JoinWriter() noexcept {
  if (m_leavingThread != QIV_INVALID_ID) QIV_Thread_Wait(m_leavingThread);
  m_leavingThread = QIV_INVALID_ID;
}

/** Makes an empty ring. A child made by fork() has one, which it takes over. */
bool LogService::MakeRing() noexcept {
  const ScopedLock lock(queueMutex);
  if (pRingBase == nullptr) {
    std::unique_ptr<char[]> ring(new (std::nothrow) char[kRoomBytes]);
    if (ring == nullptr) return false;
    logQueue = NewQueue();
    if (logQueue == nullptr) return false;
    pRingBase = ring.release();
  }
  logQueue->clear();
  pRingWrite = pRingBase;
  nRingFree = kRingBytes;
  bQuit = 0;
  m_hasWriterEnded = false;
  return true;
}

/** Drops what is queued; the ring itself is left to the writer, which may still read from it. */
void LogService::LeaveRing() noexcept {
  const ScopedLock lock(queueMutex);
  delete logQueue;
  logQueue = nullptr;
  m_leftRing = pRingBase;
  pRingBase = nullptr;
  pRingWrite = nullptr;
  m_taken = m_queued;
  m_written = m_queued;
}

void LogService::FreeLeftRing() noexcept { delete[] std::exchange(m_leftRing, nullptr); }

int LogService::PushData(const char* text, unsigned int length) noexcept {
  const int result = Queue(text, length);
  if (result != kLost) return result;
  WriteLog(LOG_ERR, "../logmodule", 449, "push_back allo exception");
  const ScopedLock lock(queueMutex);
  m_isReportingLostLine = false;
  return kSuccess;
}

/** Kept: a line for which the queue cannot grow counts as queued; another line tells of it, unless
 *  it is that line itself. */
int LogService::Queue(const char* text, unsigned int length) noexcept {
  const ScopedLock lock(queueMutex);
  if (!bRunning.load(std::memory_order_relaxed)) return kNotRunning;
  if (nRingFree < length) return kRingFull;
  if (text == nullptr) return kBadArgument;
  if (length == 0) return kSuccess;
  char* const position = Place(length);
  if (position == nullptr) return kRingFull;
  std::memcpy(position, text, length);
  position[length - 1] = '\0';
  try {
    logQueue->push_back({position, length});
  } catch (const std::bad_alloc&) {
    if (m_isReportingLostLine) return kSuccess;
    m_isReportingLostLine = true;
    return kLost;
  }
  pRingWrite = position + length;
  nRingFree -= length;
  ++m_queued;
  return kSuccess;
}

/** Where a text of this length goes; null when only a line in use is there, which happens to texts
 *  that are longer than those of WriteLog(). */
char* LogService::Place(unsigned int length) noexcept {
  const char* const end = pRingBase + kRoomBytes;
  const bool wraps = length > static_cast<std::size_t>(end - pRingWrite);
  char* const position = wraps ? pRingBase : pRingWrite;
  const char* const oldest =
      m_inFlight != nullptr || logQueue->empty() ? m_inFlight : logQueue->front().text;
  if (oldest == nullptr) return position;
  const bool isInUseToTheEnd = oldest >= pRingWrite;
  if (wraps && isInUseToTheEnd) return nullptr;
  if (!wraps && !isInUseToTheEnd) return position;
  return length <= static_cast<std::size_t>(oldest - position) ? position : nullptr;
}

void* LogService::WriteLogProc(void* self) {
  if (self == nullptr) return nullptr;
  const NoCancellation noCancellation;
  auto* const service = static_cast<LogService*>(self);
  Batch batch;
  while (service->TakeBatch(&batch)) {
    if (batch.count == 0) {
      QIV_Sleep(kWriterPauseMs);
    } else {
      service->WriteBatch(batch);
    }
  }
  return nullptr;
}

/** Takes lines that lie one behind the other, none when none waits. False: the writer ends. */
bool LogService::TakeBatch(Batch* batch) noexcept {
  const ScopedLock lock(queueMutex);
  m_written = m_taken;
  m_inFlight = nullptr;
  batch->count = 0;
  if (logQueue == nullptr || logQueue->empty()) {
    m_hasWriterEnded = bQuit != 0;
    return bQuit == 0;
  }
  m_inFlight = logQueue->front().text;
  const char* end = m_inFlight;
  while (!logQueue->empty() && batch->count < Batch::kMostLines) {
    const _LOG line = logQueue->front();
    const auto bytes = static_cast<unsigned int>(line.text + line.length - m_inFlight);
    if (line.text != end || (batch->count > 0 && bytes > kBatchBytes)) break;
    logQueue->pop_front();
    batch->lines[batch->count++] = line;
    nRingFree += line.length;
    end += line.length;
  }
  m_taken += batch->count;
  return true;
}

void LogService::WriteBatch(const Batch& batch) noexcept {
  const bool toConsole = bConsole.load(std::memory_order_relaxed);
  const bool toDebug = bDebugOut.load(std::memory_order_relaxed);
  for (unsigned int at = 0; at < batch.count; ++at) {
    if (toConsole) std::fputs(batch.lines[at].text, stdout);
    if (toDebug) QIV_OutputDebugString(batch.lines[at].text);
  }
  if (bFileOut.load(std::memory_order_relaxed)) AppendToFiles(batch.lines, batch.count);
}

unsigned long long LogService::QueuedLines() noexcept {
  const ScopedLock lock(queueMutex);
  return m_queued;
}

bool LogService::HasWritten(unsigned long long lines) noexcept {
  const ScopedLock lock(queueMutex);
  return m_written >= lines;
}

void LogService::FinishQueuedLines() noexcept {
  const NoCancellation noCancellation;
  const unsigned long long queued = QueuedLines();
  while (!HasWritten(queued)) QIV_Sleep(1);
}

/** The end of the process or of the library: a second for what is queued. False, and everything
 * stays as it is, when a target takes nothing any more or a stop waits for one. */
bool LogService::Close() noexcept {
  const NoCancellation noCancellation;
  const qiv_int64 end = QIV_GetTimeTick64() + kExitLimitMs;
  bDisabled.store(true, std::memory_order_relaxed);
  const unsigned long long queued = QueuedLines();
  if (!WaitUntil(end, [&] { return HasWritten(queued); })) return false;
  const TimedLock service(&serviceMutex, end);
  const TimedLock files(&fileMutex, end);  // which the stop takes
  if (!service.IsHeld() || !files.IsHeld()) return false;
  ServiceStop(false);
  if (m_leavingThread != QIV_INVALID_ID && !WaitUntil(end, [&] { return HasWriterEnded(); })) {
    return false;
  }
  JoinWriter();
  FreeLeftRing();
  return true;
}

bool LogService::HasWriterEnded() noexcept {
  const ScopedLock lock(queueMutex);
  return m_hasWriterEnded;
}

// Neither serviceMutex nor fileMutex is taken: a fork does not wait for a stop or a file. The child
// makes both anew, since they are recursive and may belong to a thread of its parent, and what they
// guard is put into words that are whole at any moment.
void LogService::LockForFork() noexcept { QIV_MutexLock(&queueMutex); }

void LogService::UnlockAfterFork() noexcept { QIV_MutexUnlock(&queueMutex); }

/** The child has no writer. What is queued is the parent's to write. */
void LogService::ResetInChild() noexcept {
  new (&serviceMutex) QIV_Mutex;
  new (&fileMutex) QIV_Mutex;
  bRunning.store(false, std::memory_order_relaxed);
  hWriterThread = QIV_INVALID_ID;
  m_leavingThread = QIV_INVALID_ID;
  m_inFlight = nullptr;
  m_taken = m_queued;
  m_written = m_queued;
  m_isReportingLostLine = false;
  StopWriteFile();
}
