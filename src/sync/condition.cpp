// Conditions: the platform's condition on the monotonic clock, and the list of their attributes.
//
// g_mapCondAttr is guarded by g_lockCondAttr, which is also held while the trace lines are written.
// No other lock is taken under it. g_mapIsGone is set under the lock too; threads that still run
// while the process exits go on without the map.
#include "sync/condition.h"

#include <qiv/condition.h>
#include <time.h>

#include <memory>
#include <new>
#include <utility>

#include "base/deadline.h"
#include "base/diagnostic.h"
#include "base/load_order.h"
#include "base/scoped_lock.h"

static_assert(sizeof(QIV_Cond) == sizeof(pthread_cond_t), "nothing else");

namespace qiv::sync {

QIV_LOAD_ORDER(QIV_LOAD_COND_ATTR_MAP)
std::map<pthread_cond_t*, pthread_condattr_t*> g_mapCondAttr;

QIV_LOAD_ORDER(QIV_LOAD_COND_ATTR_LOCK) base::LoadTimeMutex g_lockCondAttr{-1};

namespace {

bool g_mapIsGone QIV_GUARDED_BY(g_lockCondAttr) = false;

void FreeAttribute(pthread_condattr_t* attribute) {
  pthread_condattr_destroy(attribute);
  delete attribute;
}

/** Destroyed before the map. */
class EndOfMap {
 public:
  constexpr EndOfMap() noexcept = default;
  ~EndOfMap() {
    const base::ScopedLock lock(g_lockCondAttr);
    // A condition that is left does not need its attribute.
    for (const auto& entry : g_mapCondAttr) FreeAttribute(entry.second);
    g_mapIsGone = true;
  }
  EndOfMap(const EndOfMap&) = delete;
  EndOfMap& operator=(const EndOfMap&) = delete;
};

QIV_LOAD_ORDER(QIV_LOAD_COND_ATTR_END) EndOfMap g_endOfMap;

struct AttributeDeleter {
  void operator()(pthread_condattr_t* attribute) const { FreeAttribute(attribute); }
};
using AttributePointer = std::unique_ptr<pthread_condattr_t, AttributeDeleter>;

/** An attribute for the monotonic clock, or null. */
AttributePointer NewMonotonicAttribute() {
  std::unique_ptr<pthread_condattr_t> storage(new (std::nothrow) pthread_condattr_t);
  if (!storage || pthread_condattr_init(storage.get()) != 0) return nullptr;
  AttributePointer attribute(storage.release());
  if (pthread_condattr_setclock(attribute.get(), CLOCK_MONOTONIC) != 0) return nullptr;
  return attribute;
}

/** Throws std::bad_alloc. */
void EnterAttribute(pthread_cond_t* condition, AttributePointer attribute) {
  const base::ScopedLock lock(g_lockCondAttr);
  // Kept: an address that is entered already gets the new attribute, and the old one is not freed.
  const bool isKept = !g_mapIsGone;
  if (isKept) g_mapCondAttr[condition] = attribute.get();
  base::Diagnose("QIV_CondCreate pCond:%p,pCondAttr:%p\r\n", static_cast<void*>(condition),
                 static_cast<void*>(attribute.get()));
  if (isKept) static_cast<void>(attribute.release());  // the map's now
}

void RemoveAttribute(pthread_cond_t* condition) {
  const base::ScopedLock lock(g_lockCondAttr);
  if (g_mapIsGone) return;
  const auto entry = g_mapCondAttr.find(condition);
  if (entry == g_mapCondAttr.end()) return;
  base::Diagnose("QIV_CondDestroy pCond:%p,pCondAttr:%p\r\n", static_cast<void*>(condition),
                 static_cast<void*>(entry->second));
  FreeAttribute(entry->second);
  g_mapCondAttr.erase(entry);
}

}  // namespace
}  // namespace qiv::sync

// When memory for the attribute that the map keeps is short, one that nobody keeps does as well: a
// timed wait on any other clock would end at once.
QIV_Cond::QIV_Cond() noexcept : m_condition PTHREAD_COND_INITIALIZER {
  if (QIV_CondCreate(&m_condition) == QIV_OK) return;
  pthread_condattr_t attribute;
  if (pthread_condattr_init(&attribute) != 0) return;
  pthread_condattr_setclock(&attribute, CLOCK_MONOTONIC);
  pthread_cond_init(&m_condition, &attribute);
  pthread_condattr_destroy(&attribute);
}
QIV_Cond::~QIV_Cond() { QIV_CondDestroy(&m_condition); }
int QIV_Cond::Wait(pthread_mutex_t* mutex) { return QIV_CondWait(&m_condition, mutex); }
int QIV_Cond::TimedWait(pthread_mutex_t* mutex, unsigned int ms) {
  return QIV_CondTimedWait(&m_condition, mutex, ms);
}
int QIV_Cond::Signal() noexcept { return QIV_CondSignal(&m_condition); }
int QIV_Cond::BroadCast() noexcept { return QIV_CondBroadCast(&m_condition); }

extern "C" {

int QIV_CondCreate(pthread_cond_t* condition) noexcept {
  using namespace qiv::sync;
  if (condition == nullptr) return QIV_ERROR;
  AttributePointer attribute = NewMonotonicAttribute();
  if (!attribute || pthread_cond_init(condition, attribute.get()) != 0) return QIV_ERROR;
  try {
    EnterAttribute(condition, std::move(attribute));
  } catch (const std::bad_alloc&) {
    pthread_cond_destroy(condition);
    return QIV_ERROR;
  }
  return QIV_OK;
}

int QIV_CondDestroy(pthread_cond_t* condition) noexcept {
  if (condition == nullptr) return QIV_ERROR;
  qiv::sync::RemoveAttribute(condition);
  return pthread_cond_destroy(condition);
}

int QIV_CondWait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (condition == nullptr || mutex == nullptr) return QIV_ERROR;
  return pthread_cond_wait(condition, mutex);
}

int QIV_CondTimedWait(pthread_cond_t* condition, pthread_mutex_t* mutex, unsigned int ms) {
  if (condition == nullptr || mutex == nullptr) return QIV_ERROR;
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto deadline = qiv::base::Deadline::After(now, ms);
  return pthread_cond_timedwait(condition, mutex, deadline.Get());
}

int QIV_CondSignal(pthread_cond_t* condition) noexcept {
  return condition == nullptr ? QIV_ERROR : pthread_cond_signal(condition);
}

int QIV_CondBroadCast(pthread_cond_t* condition) noexcept {
  return condition == nullptr ? QIV_ERROR : pthread_cond_broadcast(condition);
}

}  // extern "C"
