// Start and stop: the only file that knows every family.
//
// The start count and the services' flags are guarded by g_libraryMutex. g_Af is written under it
// and read without a lock.
#include "core/library.h"

#include <qiv/adapter.h>
#include <qiv/error.h>
#include <qiv/library.h>
#include <qiv/log.h>
#include <qiv/memory_pool_global.h>
#include <qiv/message_queue.h>
#include <qiv/mutex.h>
#include <qiv/socket.h>
#include <qiv/thread_pool.h>
#include <qiv/timer.h>

#include <csignal>
#include <iterator>

#include "base/load_order.h"
#include "base/load_time_mutex.h"
#include "base/scoped_lock.h"

const char* pVersion = "version: 1.1.15.460672";

namespace qiv::core {
namespace {

constexpr unsigned int kInterfaceVersion = 0x0101000C;

constexpr unsigned int kLogToConsole = 1;
constexpr unsigned int kLogToFiles = 2;

QIV_LOAD_ORDER(QIV_LOAD_LIBRARY_MUTEX) base::LoadTimeMutex g_libraryMutex{0};

unsigned int g_startCount QIV_GUARDED_BY(g_libraryMutex) = 0;

Service g_services[] QIV_GUARDED_BY(g_libraryMutex) = {
    {nullptr, QIV_FiniTimer_Inter, false},  // kept: never stopped, timers outlive a stop
    {QIV_InitNetwork_Inter, QIV_FiniNetwork_Inter, false},
    {QIV_MsgQInitEx_Inter, QIV_MsgQFiniEx_Inter, false},
    {QIV_InitThreadPool_Inter, QIV_FiniThreadPool_Inter, false},
    {QIV_InitError_Inter, QIV_FiniError_Inter, false},
};

bool FirstStart() QIV_REQUIRES(g_libraryMutex) {
  std::signal(SIGPIPE, SIG_IGN);
  if (StartServices(std::begin(g_services), std::end(g_services))) return true;
  QIV_FiniMemoryPool_Inter();
  return false;
}

// A query that fails or finds no address leaves the family as it is.
void RefreshPreferredFamily() QIV_REQUIRES(g_libraryMutex) {
  QIV_ADAPTER_INFO* adapters = nullptr;
  int family = 0;
  if (QIV_GetAdapterInfoEx(&adapters, &family) != QIV_OK) return;
  QIV_FreeAdapterInfo(adapters);
  // Relaxed: the number stands alone, nothing is published with it.
  if (family != 0) __atomic_store_n(&g_Af, family, __ATOMIC_RELAXED);
}

void LastStop() QIV_REQUIRES(g_libraryMutex) {
  QIV_Log(0, nullptr);
  StopServices(std::begin(g_services), std::end(g_services));
  QIV_FiniMemoryPool_Inter();  // not a service: no start switches it on
}

}  // namespace

bool StartServices(Service* first, Service* last) noexcept {
  for (Service* service = first; service != last; ++service) service->started = false;
  for (Service* service = first; service != last; ++service) {
    if (service->start == nullptr) continue;
    if (service->start() != QIV_OK) {
      StopServices(first, last);
      return false;
    }
    service->started = true;
  }
  return true;
}

void StopServices(Service* first, Service* last) noexcept {
  for (Service* service = first; service != last; ++service) {
    if (!service->started) continue;
    service->stop();
    service->started = false;
  }
}

unsigned int StartCount() noexcept {
  const base::ScopedLock lock(g_libraryMutex);
  return g_startCount;
}

}  // namespace qiv::core

extern "C" {

int QIV_Init(void) noexcept {
  using namespace qiv::core;
  const qiv::base::ScopedLock lock(g_libraryMutex);
  if (g_startCount == 0 && !FirstStart()) return QIV_ERROR;
  ++g_startCount;
  RefreshPreferredFamily();
  return QIV_OK;
}

int QIV_InitEx(void) noexcept { return QIV_Init(); }

int QIV_Fini(void) noexcept {
  using namespace qiv::core;
  g_libraryMutex.Lock();
  // Kept: no guard against more stops than starts. The count wraps and nothing is stopped.
  --g_startCount;
  if (g_startCount == 0) LastStop();
  return g_libraryMutex.Unlock();
}

int QIV_FiniEx(void) noexcept { return QIV_Fini(); }

int QIV_Log(unsigned int flags, const void* directory) noexcept {
  using namespace qiv::core;
  if (flags == 0) {
    DisableTarget(LOG_TARGET_CONSOLE);
    DisableTarget(LOG_TARGET_FILE);
    StopLogService(true);
    return QIV_OK;
  }
  StartLogService();
  if ((flags & kLogToConsole) != 0) EnableTarget(LOG_TARGET_CONSOLE, nullptr, 0, 0);
  if ((flags & kLogToFiles) != 0) EnableTarget(LOG_TARGET_FILE, directory, 0, 0);
  AdjustLogLevel(LOG_INF);
  return QIV_OK;
}

unsigned int QIV_GetQIVVersion(void) noexcept { return qiv::core::kInterfaceVersion; }

}  // extern "C"
