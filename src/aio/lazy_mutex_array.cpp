#include "aio/lazy_mutex_array.h"

#include <new>

namespace qiv::aio {
namespace {

pthread_mutex_t g_setUpLock = PTHREAD_MUTEX_INITIALIZER;

}  // namespace

QIV_Mutex* LazyMutexArray::Element(int index) noexcept {
  return std::launder(reinterpret_cast<QIV_Mutex*>(m_storage[index]));
}

void LazyMutexArray::SetUp(int index) noexcept {
  QIV_MutexLock(&g_setUpLock);
  if (!m_ready[index].load(std::memory_order_relaxed)) {
    new (m_storage[index]) QIV_Mutex;
    m_ready[index].store(true, std::memory_order_release);
  }
  QIV_MutexUnlock(&g_setUpLock);
}

}  // namespace qiv::aio
