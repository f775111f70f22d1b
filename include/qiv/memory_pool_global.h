/**
 * @file
 * An allocator of the whole process for requests of up to 10 MiB, under one limit: five pools of
 * memory_pool_ex.h with chunks of growing sizes.
 *
 * It works between QIV_MemoryPoolGlobal_Init() and the last QIV_Fini(), and does not depend on a
 * QIV_Init(). None of the functions sets a last error.
 */
#ifndef QIV_MEMORY_POOL_GLOBAL_H
#define QIV_MEMORY_POOL_GLOBAL_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Switches the allocator on, or changes its limit: pools that exist stay as they are, missing ones
 * are made.
 *
 * @param limit  the most bytes in all chunks together; more than 0x80000000 count as that. Each
 * pool has one chunk from the start whatever the limit, 12810240 bytes in all; limits of single
 * pools are those of the call that made them.
 * @return 1 when all five pools exist; 0 when memory is short: call again. Until then, sizes whose
 *         pool exists are served all the same
 * @par Errors         no errno. Each pool that is made has a condition, whose line appears on
 *                     standard error, see QIV_CondCreate()
 * @par Thread safety  any threads
 * @par System         malloc(3), pthread_create(3p)
 */
QIV_API int QIV_MemoryPoolGlobal_Init(unsigned int limit) QIV_NOEXCEPT;

/**
 * Allocates.
 *
 * @param size  bytes, at most 10485760. A request of 0 bytes is one of up to 500 bytes and is like
 *              that of QIV_MemoryPoolEx_Alloc(): until it is freed, the next one that fits into the
 *              rest of the same chunk aborts the process
 * @return the bytes, without any alignment; null for a larger size, while the pool for the size
 *         does not exist, when another chunk is needed and would exceed the limit or the maximum of
 *         that pool, or memory is short
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         malloc(3)
 */
QIV_API void* QIV_MemoryPoolGlobal_Alloc(unsigned int size) QIV_NOEXCEPT;

/**
 * Frees an allocation.
 *
 * @param pointer  what QIV_MemoryPoolGlobal_Alloc() gave; null and whatever is not allocated is
 *                 ignored, an allocation of before the last stop included
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API void QIV_MemoryPoolGlobal_Free(void* pointer) QIV_NOEXCEPT;

/**
 * @return the bytes of all chunks; 0 unless all five pools exist
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API unsigned int QIV_MemoryPoolGlobal_Size(void) QIV_NOEXCEPT;

/**
 * @return the bytes that can be allocated without another chunk, over all pools; 0 unless all five
 *         exist
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API unsigned int QIV_MemoryPoolGlobal_IdleSize(void) QIV_NOEXCEPT;

/**
 * Does what QIV_MemoryPoolGlobal_Init() does.
 *
 * @param limit  as there
 * @return 0 when all five pools exist; -1 otherwise
 * @par Errors         as there
 * @par Thread safety  any threads
 * @par System         malloc(3), pthread_create(3p)
 */
QIV_API int QIV_InitMemoryPool_Inter(unsigned int limit) QIV_NOEXCEPT;

/**
 * Switches the allocator off: frees all memory of it, and reports on standard output what was not
 * freed, as QIV_MemoryPoolEx_Destroy(). The last QIV_Fini() does so, too, and a first QIV_Init()
 * that fails.
 *
 * @return 0
 * @par Errors         no errno. The line of each pool's condition appears on standard error, see
 *                     QIV_CondDestroy()
 * @par Thread safety  any threads; nobody may use what was allocated any more. Waits for the pools'
 *                     threads
 * @par System         free(3), printf(3)
 */
QIV_API int QIV_FiniMemoryPool_Inter(void);

QIV_EXTERN_C_END

#ifdef __cplusplus
#include <qiv/memory_pool_ex.h>

namespace qiv {

/** As QIV_MemoryPoolGlobal_Init(). @return true when all five pools exist */
QIV_API bool QIV_InitMemoryPool(unsigned int limit) noexcept;

/** As QIV_FiniMemoryPool_Inter(). */
QIV_API void QIV_FiniMemoryPool();

/**
 * The pool that serves requests of a size.
 *
 * @param size  bytes; becomes the chunk size of the pool. Left as it is above 10485760.
 * @return the pool; null above 10485760 and where the pool does not exist. It has no lock of its
 *         own, so nothing may be called on it that another thread's use of the allocator can meet,
 *         and it ends with the allocator.
 */
QIV_API QIV_MemoryPoolEx* QIV_GetMemoryPoolEx(unsigned int& size) noexcept;

/** As QIV_MemoryPoolGlobal_Size(). */
QIV_API unsigned int QIV_GetMemoryPoolExTotalSize() noexcept;

/** As QIV_MemoryPoolGlobal_IdleSize(). */
QIV_API unsigned int QIV_GetMemoryPoolExTotalIdleSize() noexcept;

}  // namespace qiv

#endif  // __cplusplus

#endif
