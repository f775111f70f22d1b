// Semaphores: the platform's semaphore behind checked functions and two classes.
//
// m_mutex of QIV_Sema makes reading the count and posting one step, so that two threads cannot both
// pass the bound. Waiting threads do not take it: a count that falls meanwhile does no harm.
#include <qiv/semaphore.h>
#include <qiv/system.h>
#include <qiv/time.h>
#include <sys/time.h>

#include <cerrno>

#include "base/deadline.h"
#include "base/scoped_lock.h"

static_assert(sizeof(void*) != 4 || sizeof(QIV_Sema) == sizeof(sem_t) + 4 + sizeof(QIV_Mutex),
              "semaphore, maximum and mutex");
static_assert(sizeof(qiv::qiv_sem) == sizeof(void*) + sizeof(sem_t), "virtual table, semaphore");

namespace {

constexpr unsigned int kPollMs = 10;
constexpr long kNanosecondsPerMicrosecond = 1000;

bool TryTake(sem_t* sem) {
  int result = sem_trywait(sem);
  while (result != 0 && errno == EINTR) result = sem_trywait(sem);
  return result == 0;
}

}  // namespace

QIV_Sema::QIV_Sema(unsigned int initial, unsigned int maximum) noexcept
    : m_sem(), m_maximum(maximum) {
  QIV_SemCreate(&m_sem, initial);
}

QIV_Sema::~QIV_Sema() { QIV_SemDestroy(&m_sem); }
int QIV_Sema::Wait() { return QIV_SemWait(&m_sem); }
int QIV_Sema::TimedWait(unsigned int ms) { return QIV_SemTimedWait(&m_sem, ms); }

int QIV_Sema::Post() noexcept {
  const qiv::base::ScopedLock<QIV_Mutex> lock(m_mutex);
  int count = 0;
  sem_getvalue(&m_sem, &count);
  if (static_cast<unsigned int>(count) >= m_maximum) return QIV_ERROR;
  return QIV_SemPost(&m_sem);
}

namespace qiv {

qiv_sem::qiv_sem() noexcept : qiv_sem(0) {}

// Zeros are a count of 0 where init() refuses.
qiv_sem::qiv_sem(int count) noexcept : m_sem() { init(count); }

qiv_sem::~qiv_sem() { destroy(); }

int qiv_sem::init(int count) noexcept {
  return sem_init(&m_sem, 0, static_cast<unsigned int>(count)) == -1 ? QIV_ERROR : QIV_OK;
}

int qiv_sem::destroy() noexcept { return sem_destroy(&m_sem) == -1 ? QIV_ERROR : QIV_OK; }

int qiv_sem::post(int n) noexcept {
  for (int i = 0; i < n; ++i) {
    if (sem_post(&m_sem) != 0) return QIV_ERROR;
  }
  return QIV_OK;
}

int qiv_sem::post_1() noexcept { return post(1); }

int qiv_sem::wait(int ms) {
  // Kept: a signal ends the wait without limit.
  if (ms < 0) return sem_wait(&m_sem);
  timeval wallClock = {};
  if (gettimeofday(&wallClock, nullptr) != 0) return QIV_ERROR;
  timespec now = {};
  now.tv_sec = wallClock.tv_sec;
  now.tv_nsec = static_cast<long>(wallClock.tv_usec) * kNanosecondsPerMicrosecond;
  const base::Deadline deadline = base::Deadline::After(now, static_cast<unsigned int>(ms));
  int result = sem_timedwait(&m_sem, deadline.Get());
  while (result != 0 && errno == EINTR) result = sem_timedwait(&m_sem, deadline.Get());
  return result == 0 ? QIV_OK : QIV_ERROR;
}

}  // namespace qiv

extern "C" {

int QIV_SemCreate(sem_t* sem, unsigned int count) noexcept {
  return sem == nullptr ? QIV_ERROR : sem_init(sem, 0, count);
}

int QIV_SemDestroy(sem_t* sem) noexcept { return sem == nullptr ? QIV_ERROR : sem_destroy(sem); }

int QIV_SemWait(sem_t* sem) {
  if (sem == nullptr) return QIV_ERROR;
  int result = sem_wait(sem);
  while (result != 0 && errno == EINTR) result = sem_wait(sem);
  return result;
}

int QIV_SemTimedWait(sem_t* sem, unsigned int ms) {
  if (sem == nullptr) return QIV_ERROR;
  if (ms == 0) return TryTake(sem) ? QIV_OK : QIV_ERROR;
  const unsigned int start = QIV_GetTimeTick();
  while (!TryTake(sem)) {
    if (QIV_GetTimeTick() - start > ms) return QIV_ERROR;
    // Kept: the step of the polling.
    QIV_Sleep(kPollMs);
  }
  return QIV_OK;
}

int QIV_SemPost(sem_t* sem) noexcept { return sem == nullptr ? QIV_ERROR : sem_post(sem); }

}  // extern "C"
