// The functions of the log service, and the one service that they use.
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "base/constant_mutex.h"
#include "base/load_order.h"
#include "base/scoped_lock.h"
#include "log/log_service.h"
#include "thread/thread_start.h"

/** Makes the service of the process at its first use and ends it with the process, or with the
 *  library. Its memory stays: other threads may log until the process is gone. */
class LogService::Lifetime {
 public:
  // At load already: a fork while another thread makes the service or starts a thread must not
  // leave half of it to the child.
  Lifetime() noexcept { pthread_atfork(LockForFork, UnlockAfterFork, ResetInChild); }
  ~Lifetime() {
    LogService* const service = s_service.load(std::memory_order_acquire);
    if (service != nullptr) service->Close();
  }
  Lifetime(const Lifetime&) = delete;
  Lifetime& operator=(const Lifetime&) = delete;

  static LogService* Service() noexcept {
    LogService* const service = s_service.load(std::memory_order_acquire);
    return service != nullptr ? service : Make();
  }

 private:
  static LogService* Make() noexcept {
    const qiv::base::ScopedLock lock(s_making);
    LogService* service = s_service.load(std::memory_order_relaxed);
    if (service == nullptr) {
      service = new (s_memory) LogService;
      s_service.store(service, std::memory_order_release);
    }
    return service;
  }

  // A child can start threads and log.
  static void LockForFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS {
    s_making.Lock();
    LogService* const service = s_service.load(std::memory_order_relaxed);
    if (service != nullptr) service->LockForFork();
    qiv::log::LockDatesForFork();
    qiv::thread::LockStartsForFork();
  }
  static void UnlockAfterFork() noexcept QIV_NO_THREAD_SAFETY_ANALYSIS {
    qiv::thread::UnlockStartsAfterFork();
    qiv::log::UnlockDatesAfterFork();
    LogService* const service = s_service.load(std::memory_order_relaxed);
    if (service != nullptr) service->UnlockAfterFork();
    s_making.Unlock();
  }
  static void ResetInChild() noexcept {
    UnlockAfterFork();
    LogService* const service = s_service.load(std::memory_order_relaxed);
    if (service != nullptr) service->ResetInChild();
  }

  static const Lifetime s_lifetime;
  static qiv::base::ConstantMutex s_making;
  static std::atomic<LogService*> s_service;  // written under s_making
  alignas(LogService) static unsigned char s_memory[];
};

QIV_LOAD_ORDER(QIV_LOAD_LOG_SERVICE) const LogService::Lifetime LogService::Lifetime::s_lifetime;
qiv::base::ConstantMutex LogService::Lifetime::s_making;
std::atomic<LogService*> LogService::Lifetime::s_service{nullptr};
alignas(LogService) unsigned char LogService::Lifetime::s_memory[sizeof(LogService)];

using namespace qiv::log;

namespace {

constexpr unsigned int kMostText = 2044;

/** Keeps errno as it is to the end of the scope. */
class ErrnoKeeper {
 public:
  ~ErrnoKeeper() { errno = m_saved; }
  int Saved() const noexcept { return m_saved; }

 private:
  const int m_saved = errno;
};

bool HasTarget(const LogService& service) {
  return service.bConsole.load(std::memory_order_relaxed) ||
         service.bDebugOut.load(std::memory_order_relaxed) ||
         service.bFileOut.load(std::memory_order_relaxed);
}

/** Null for a target that takes no flag: an unknown one. */
std::atomic<bool>* FlagOf(LogService* service, log_services target) {
  switch (target) {
    case LOG_TARGET_CONSOLE:
      return &service->bConsole;
    case LOG_TARGET_DEBUG:
      return &service->bDebugOut;
    case LOG_TARGET_FILE:
      return &service->bFileOut;
    default:
      return nullptr;
  }
}

unsigned int Cut(unsigned int length) { return std::min(length, kMostText); }

}  // namespace

extern "C" {

LogService* GetLogService(void) noexcept { return LogService::Lifetime::Service(); }

int WriteLog(log_level level, const char* file, int line, const char* format, ...) noexcept {
  if (format == nullptr || file == nullptr) return kBadArgument;
  LogService* const service = GetLogService();
  if (level > service->logLevel.load(std::memory_order_relaxed)) return kFiltered;
  if (!HasTarget(*service)) return kNoTarget;
  const ErrnoKeeper errnoKeeper;
  if (!service->bRunning.load(std::memory_order_acquire)) {
    const int result = service->ServiceStart();
    if (result != kSuccess) return result;
  }
  char text[kLineBytes];
  const int head = FormatTimeAndName(text, kLineBytes - 1, level, file, line);
  if (head < 0) return kNotFormatted;
  unsigned int length = Cut(static_cast<unsigned int>(head));
  errno = errnoKeeper.Saved();  // for %m
  std::va_list arguments;
  va_start(arguments, format);
  const int message = std::vsnprintf(text + length, kLineBytes - 1 - length, format, arguments);
  va_end(arguments);
  if (message < 0) return kNotFormatted;
  length = Cut(length + static_cast<unsigned int>(message));
  std::memcpy(text + length, "\r\n", sizeof "\r\n");
  return service->PushData(text, length + sizeof "\r\n");
}

int AdjustLogLevel(log_level level) noexcept {
  GetLogService()->logLevel.store(level, std::memory_order_relaxed);
  return kSuccess;
}

int EnableTarget(log_services target, const void* arg, unsigned int maxSize,
                 unsigned int cyclic) noexcept {
  LogService* const service = GetLogService();
  std::atomic<bool>* const flag = FlagOf(service, target);
  if (flag == nullptr) return kBadArgument;
  if (target == LOG_TARGET_FILE) {
    service->SwitchFileService(true, static_cast<const char*>(arg), maxSize, cyclic != 0);
  } else {
    flag->store(true, std::memory_order_relaxed);
  }
  return kSuccess;
}

int DisableTarget(log_services target) noexcept {
  LogService* const service = GetLogService();
  std::atomic<bool>* const flag = FlagOf(service, target);
  if (flag == nullptr) return kBadArgument;
  if (flag->load(std::memory_order_relaxed)) service->FinishQueuedLines();
  if (target == LOG_TARGET_FILE) {
    service->SwitchFileService(false);
  } else {
    flag->store(false, std::memory_order_relaxed);
  }
  if (!HasTarget(*service)) service->ServiceStop(true);
  return kSuccess;
}

int StartLogService(void) noexcept {
  GetLogService()->bDisabled.store(false, std::memory_order_relaxed);
  return kSuccess;
}

int StopLogService(bool disable) noexcept {
  LogService* const service = GetLogService();
  service->bDisabled.store(disable, std::memory_order_relaxed);
  return service->ServiceStop(true);
}

}  // extern "C"
