/**
 * @file
 * Atomic 32-bit integers: functions that take turns under one mutex of the process, and a class
 * with the platform's lock-free instructions.
 *
 * The functions are atomic with respect to each other, not to other ways of writing the same word.
 * None of them sets a last error.
 */
#ifndef QIV_ATOMIC_H
#define QIV_ATOMIC_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Stores a value if the word holds the comparand.
 *
 * @param address    the word; null is refused
 * @param value      what to store
 * @param comparand  what the word must hold for that
 * @return the value found, which equals `comparand` when `value` was stored; 0 when `address` is
 *         null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_AtomicCas(volatile int* address, int value, int comparand) QIV_NOEXCEPT;

/**
 * Does for a pointer what QIV_AtomicCas() does for an integer.
 *
 * @param address    where the pointer is; null is refused
 * @param value      what to store
 * @param comparand  what must be there for that
 * @return the pointer found; null when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API void* QIV_AtomicCasPtr(void* volatile* address, void* value, void* comparand) QIV_NOEXCEPT;

/**
 * Tries once to add 1. When another thread changes the word meanwhile, nothing is stored and the
 * result is that thread's value: whoever needs the change compares the result with the value
 * that was expected, and tries again.
 *
 * @param address  the word; null is refused
 * @return the value found; 0 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_AtomicInc(volatile int* address) QIV_NOEXCEPT;

/**
 * Tries once to subtract 1, in the manner of QIV_AtomicInc().
 *
 * @param address  the word; null is refused
 * @return the value found; 0 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_AtomicDec(volatile int* address) QIV_NOEXCEPT;

/**
 * Tries once to add an amount, in the manner of QIV_AtomicInc(). The sum wraps around.
 *
 * @param address  the word; null is refused
 * @param amount   what to add
 * @return the value found; 0 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_AtomicAdd(volatile int* address, int amount) QIV_NOEXCEPT;

/**
 * Tries once to store a value, in the manner of QIV_AtomicInc().
 *
 * @param address  the word; null is refused
 * @param value    what to store
 * @return the value found; 0 when `address` is null
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_AtomicSet(volatile int* address, int value) QIV_NOEXCEPT;

/**
 * Announces a user of the functions above. They work without it.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_InitAtomic_Inter(void) QIV_NOEXCEPT;

/**
 * Takes back one QIV_InitAtomic_Inter(). The functions go on working.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_FiniAtomic_Inter(void) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus

namespace qiv {

/**
 * A 32-bit signed integer that any threads may use at once. Every operation is lock-free and a full
 * memory barrier; sums wrap around.
 */
class QIV_API qiv_atomic {
 public:
  /** @param value  the value to begin with; only the low 32 bits count */
  explicit qiv_atomic(long value = 0) noexcept;
  qiv_atomic(const qiv_atomic&) = delete;
  qiv_atomic& operator=(const qiv_atomic&) = delete;

  /** @return the value */
  long get() const noexcept;
  /** @param value  the new value; only the low 32 bits count. @return the old one */
  long set(long value) noexcept;
  /** Adds 1. @return the new value */
  long increment() noexcept;
  /** Subtracts 1. @return the new value */
  long decrement() noexcept;

 private:
  mutable int m_value;  // get() is an exchange too
};

}  // namespace qiv

#endif  // __cplusplus

#endif
