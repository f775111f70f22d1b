#include "support/failing_thread_start.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<bool> g_fails{false};
std::atomic<int> g_failures{0};

}  // namespace

// The linker leads the calls of pthread_create() in the objects of this program here.
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*routine)(void*), void* argument) {
  if (!g_fails.load(std::memory_order_acquire)) {
    return __real_pthread_create(thread, attributes, routine, argument);
  }
  g_failures.fetch_add(1, std::memory_order_acq_rel);
  return EAGAIN;
}

}  // extern "C"

namespace qiv::test {

FailingThreadStart::FailingThreadStart() noexcept {
  g_failures.store(0, std::memory_order_release);
  g_fails.store(true, std::memory_order_release);
}
FailingThreadStart::~FailingThreadStart() { g_fails.store(false, std::memory_order_release); }
int FailingThreadStart::Count() noexcept { return g_failures.load(std::memory_order_acquire); }

}  // namespace qiv::test
