/**
 * @file
 * A byte ring of fixed capacity. One thread writes; another one reads everything that is stored, by
 * way of a callback.
 *
 * What the callback is given is not always what was written: see QIV_CycleBufferRead().
 *
 * None of the functions sets a last error or prints.
 */
#ifndef QIV_CYCLE_BUFFER_H
#define QIV_CYCLE_BUFFER_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Makes an empty buffer. It takes twice the capacity of memory: the second half stays zero and
 * backs the lengths that QIV_CycleBufferRead() hands out. A buffer that is never more than half
 * full hands out each byte once and in order; the lengths of a fuller one may reach past what is
 * stored.
 *
 * @param handle    receives the buffer; left alone on failure; null is refused
 * @param capacity  bytes, at least 1
 * @param read      called by QIV_CycleBufferRead() on its thread, as read(data, len, user), with no
 *                  lock held. `len` bytes at `data` may be read until the call returns; it may be
 *                  0. It may write to the buffer and ask for its count, but neither read nor
 *                  destroy it. Null is refused.
 * @param user      handed to `read`
 * @return 0; -1 when `handle` or `read` is null, `capacity` is below 1, or memory is short
 * @par Errors         errno: ENOMEM when memory is short
 * @par Thread safety  any threads
 * @par System         malloc(3), pthread_mutex_init(3p)
 * @see QIV_CycleBufferDestroy
 */
QIV_API int QIV_CycleBufferInit(QIV_HANDLE* handle, int capacity,
                                void (*read)(char* data, int len, void* user),
                                void* user) QIV_NOEXCEPT;

/**
 * Stores bytes, all or none.
 *
 * @param handle  the buffer; null is refused
 * @param data    `length` bytes; null is refused
 * @param length  bytes, at least 1
 * @return 0; -1 when an argument is refused or less than `length` bytes are free
 * @par Errors         no errno
 * @par Thread safety  any threads, also while one reads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_CycleBufferWrite(QIV_HANDLE handle, const void* data, int length) QIV_NOEXCEPT;

/**
 * Hands everything stored to the callback and takes it out. Bytes written meanwhile stay stored; a
 * callback that does not return (an exception, a cancelled thread) leaves everything stored.
 *
 * With n bytes stored from offset r on, in a buffer of the given capacity:
 *
 * | Case | Calls |
 * |---|---|
 * | r + n < capacity | one, with the n bytes |
 * | otherwise | two: (capacity - n) bytes from r on, then all bytes before the write offset |
 *
 * The first of the two lengths is right only when r equals n. When r is larger, zero bytes follow
 * the stored ones; when r is smaller, the last ones before the end of the ring are not delivered.
 * A buffer that is filled from offset 0 delivers nothing, in two calls of length 0.
 *
 * @param handle  the buffer; null is refused
 * @return 0; -1 when `handle` is null or nothing is stored
 * @par Errors         no errno
 * @par Thread safety  one thread at a time, also while others write; two readers would get the same
 *                     bytes
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_CycleBufferRead(QIV_HANDLE handle);

/**
 * Tells how many bytes are stored. While a read is under way, its bytes still count.
 *
 * @param handle  the buffer; null is refused
 * @param count   receives the number of bytes; null is refused
 * @return 0; -1 for a refused argument
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_mutex_lock(3p)
 */
QIV_API int QIV_CycleBufferValue(QIV_HANDLE handle, unsigned int* count) QIV_NOEXCEPT;

/**
 * Ends a buffer and frees it. What is stored is dropped.
 *
 * @param handle  the buffer, which nobody uses any more; null is refused
 * @return 0; -1 when `handle` is null
 * @par Errors         no errno
 * @par Thread safety  one thread, once
 * @par System         pthread_mutex_destroy(3p), free(3)
 */
QIV_API int QIV_CycleBufferDestroy(QIV_HANDLE handle) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
