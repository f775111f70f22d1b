// Atomics: words that are changed under one mutex, and lock-free ones.
//
// g_atomicsMutex is held over look and store in QIV_AtomicCas(). The single-attempt functions look
// without it, so the words are read and written atomically as well.
#include "sync/atomic.h"

#include <qiv/atomic.h>

#include "base/scoped_lock.h"

namespace qiv::sync {

// Usable before the load of the library is over and never destroyed: no user can come too late.
base::ConstantMutex g_atomicsMutex;

}  // namespace qiv::sync

namespace {

using qiv::sync::g_atomicsMutex;

template <class Word>
Word CompareAndSwap(volatile Word* address, Word value, Word comparand) {
  if (address == nullptr) return Word();
  const qiv::base::ScopedLock lock(g_atomicsMutex);
  const Word found = __atomic_load_n(address, __ATOMIC_RELAXED);
  if (found == comparand) __atomic_store_n(address, value, __ATOMIC_RELAXED);
  return found;
}

int Sum(int a, int b) {
  return static_cast<int>(static_cast<unsigned int>(a) + static_cast<unsigned int>(b));
}

int Look(const volatile int* address) {
  return address == nullptr ? 0 : __atomic_load_n(address, __ATOMIC_RELAXED);
}

}  // namespace

namespace qiv {

static_assert(sizeof(qiv_atomic) == 4, "one 32-bit value");

// GCC makes the __sync built-ins full barriers on every platform, unlike the std::atomic
// operations.

qiv_atomic::qiv_atomic(long value) noexcept : m_value(static_cast<int>(value)) {}

long qiv_atomic::get() const noexcept { return __sync_val_compare_and_swap(&m_value, 0, 0); }

long qiv_atomic::set(long value) noexcept {
  const int found = __atomic_exchange_n(&m_value, static_cast<int>(value), __ATOMIC_SEQ_CST);
  __sync_synchronize();
  return found;
}

long qiv_atomic::increment() noexcept { return __sync_add_and_fetch(&m_value, 1); }

long qiv_atomic::decrement() noexcept { return __sync_sub_and_fetch(&m_value, 1); }

}  // namespace qiv

extern "C" {

int QIV_AtomicCas(volatile int* address, int value, int comparand) noexcept {
  return CompareAndSwap(address, value, comparand);
}

void* QIV_AtomicCasPtr(void* volatile* address, void* value, void* comparand) noexcept {
  return CompareAndSwap(address, value, comparand);
}

// Kept: these four try once. When another thread is quicker, they store nothing.

int QIV_AtomicInc(volatile int* address) noexcept { return QIV_AtomicAdd(address, 1); }

int QIV_AtomicDec(volatile int* address) noexcept { return QIV_AtomicAdd(address, -1); }

int QIV_AtomicAdd(volatile int* address, int amount) noexcept {
  const int found = Look(address);
  return QIV_AtomicCas(address, Sum(found, amount), found);
}

int QIV_AtomicSet(volatile int* address, int value) noexcept {
  return QIV_AtomicCas(address, value, Look(address));
}

int QIV_InitAtomic_Inter(void) noexcept { return QIV_OK; }

int QIV_FiniAtomic_Inter(void) noexcept { return QIV_OK; }

}  // extern "C"
