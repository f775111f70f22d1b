/**
 * @file
 * Basic types, result values, family codes and the export macro: what every other header uses.
 */
#ifndef QIV_TYPES_H
#define QIV_TYPES_H

#include <stddef.h>

#if defined(__GNUC__)
/** Marks what the shared library exports; everything else is built hidden. */
#define QIV_API __attribute__((__visibility__("default")))
/** Marks the members of an exported class that are the library's own business. */
#define QIV_INTERNAL __attribute__((__visibility__("hidden")))
/**
 * Lets the compiler check the arguments of a function like printf().
 *
 * @param text   position of the format text among the parameters, from 1
 * @param first  position of the first argument that the text formats; 0 for a va_list
 */
#define QIV_PRINTF_FORMAT(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define QIV_API
#define QIV_INTERNAL
#define QIV_PRINTF_FORMAT(text, first)
#endif

#ifdef __cplusplus
/** Begins declarations whose names C and C++ share. */
#define QIV_EXTERN_C_BEGIN extern "C" {
/** Ends what QIV_EXTERN_C_BEGIN began. */
#define QIV_EXTERN_C_END }
/**
 * Stands on exported functions that are no cancellation points and never run the caller's code:
 * those of them that wait cannot be cancelled meanwhile. The others go without it: a thread that
 * ends or is cancelled inside them unwinds through their frames.
 */
#define QIV_NOEXCEPT noexcept
#else
#define QIV_EXTERN_C_BEGIN
#define QIV_EXTERN_C_END
#define QIV_NOEXCEPT
#endif

/**
 * @name Lock annotations
 * Checked by Clang with -Wthread-safety; nothing elsewhere.
 */
/** @{ */
#if defined(__clang__) && defined(__cplusplus)
/** Writes an attribute of Clang's analysis; the macros below use it. */
#define QIV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QIV_THREAD_ANNOTATION(x)
#endif
/** The class is a lock. */
#define QIV_CAPABILITY QIV_THREAD_ANNOTATION(capability("mutex"))
/** The class holds a lock from its construction to its end. */
#define QIV_SCOPED_CAPABILITY QIV_THREAD_ANNOTATION(scoped_lockable)
/** The member is used only under the lock `x`. */
#define QIV_GUARDED_BY(x) QIV_THREAD_ANNOTATION(guarded_by(x))
/** The function is called with these locks held. */
#define QIV_REQUIRES(...) QIV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/** The function takes these locks; without an argument, the object itself. */
#define QIV_ACQUIRE(...) QIV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/** The function releases these locks; without an argument, the object itself. */
#define QIV_RELEASE(...) QIV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/** The function has taken the lock when its result is the first argument. */
#define QIV_TRY_ACQUIRE(...) QIV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
/** The function is not looked at: it handles locks in a way that the analysis cannot follow. */
#define QIV_NO_THREAD_SAFETY_ANALYSIS QIV_THREAD_ANNOTATION(no_thread_safety_analysis)
/** @} */

QIV_EXTERN_C_BEGIN

typedef int QIV_INT32;                 /**< 32 bits, signed */
typedef unsigned int QIV_UINT32;       /**< 32 bits, unsigned */
typedef long long qiv_int64;           /**< 64 bits, signed */
typedef unsigned long long qiv_uint64; /**< 64 bits, unsigned */

/** A truth value: QIV_TRUE or QIV_FALSE. */
typedef int QIV_BOOL;

/** An opaque handle; null is invalid unless a function says otherwise. */
typedef void* QIV_HANDLE;

/** Absolute time: microseconds since 1970-01-01 00:00:00 UTC. */
typedef long long QIV_TIME_T;

#define QIV_TRUE 1  /**< true, as a QIV_BOOL */
#define QIV_FALSE 0 /**< false, as a QIV_BOOL */

#define QIV_OK 0       /**< the result of most functions when they have done their work */
#define QIV_ERROR (-1) /**< the result of most functions when they have failed */

/** The thread id and the thread-local key that no thread and no key has: all bits set. */
#define QIV_INVALID_ID 0xFFFFFFFFu

/** A time-out without limit, for functions that take one in milliseconds: all bits set. */
#define QIV_INFINITE 0xFFFFFFFFu

/** Address family: an IPv6 socket that accepts IPv4 too. */
#define QIV_AF_INET6_DUAL 101

/** Address family: the one that the host prefers, kept in g_Af. */
#define QIV_AF_PREFERRED 102

QIV_EXTERN_C_END

#ifdef __cplusplus
/** Classes and functions that only C++ can use; the older classes stand outside it as `QIV_...`. */
namespace qiv {}
#endif

#endif
