/**
 * @file
 * Heap memory with an alignment of the caller's choice.
 */
#ifndef QIV_ALIGNED_MEMORY_H
#define QIV_ALIGNED_MEMORY_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Allocates zeroed memory. It costs `alignment` bytes and a pointer more than `size`: the pointer
 * stands in front of the memory and holds the address of the heap block.
 *
 * @param size       bytes; 0 gives a pointer that can be freed
 * @param alignment  bytes, a power of two; 1 is one
 * @return memory at a multiple of `alignment`; null when `alignment` is 0 or no power of two, or
 *         when memory is short
 * @par Errors         EINVAL for the alignment, ENOMEM when memory is short
 * @par Thread safety  any threads
 * @par System         malloc(3)
 * @see QIV_AlignedFree
 */
QIV_API void* QIV_AlignedMalloc(unsigned int size, unsigned int alignment) QIV_NOEXCEPT;

/**
 * Frees memory of QIV_AlignedMalloc().
 *
 * @param memory  what QIV_AlignedMalloc() returned, freed for the first time; null is ignored
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         free(3)
 */
QIV_API void QIV_AlignedFree(void* memory) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
