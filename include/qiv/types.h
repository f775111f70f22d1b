/**
 * @file
 * Basic types, result values, family codes and the export macro: what every other header uses.
 */
#ifndef QIV_TYPES_H
#define QIV_TYPES_H

#include <stddef.h>

/**
 * Marks what the shared library exports; everything else is built hidden. QIV_LOCAL takes a member
 * of an exported class out again.
 */
#if defined(__GNUC__)
#define QIV_API __attribute__((__visibility__("default")))
#define QIV_LOCAL __attribute__((__visibility__("hidden")))
#define QIV_PRINTF_FORMAT(text, first) __attribute__((__format__(__printf__, text, first)))
#else
#define QIV_API
#define QIV_LOCAL
#define QIV_PRINTF_FORMAT(text, first)
#endif

/**
 * QIV_NOEXCEPT stands on exported functions that neither wait nor run the caller's code. The others
 * go without it: a thread that ends or is cancelled inside them unwinds through their frames.
 */
#ifdef __cplusplus
#define QIV_EXTERN_C_BEGIN extern "C" {
#define QIV_EXTERN_C_END }
#define QIV_NOEXCEPT noexcept
#else
#define QIV_EXTERN_C_BEGIN
#define QIV_EXTERN_C_END
#define QIV_NOEXCEPT
#endif

/** Lock annotations: checked by Clang with -Wthread-safety, nothing elsewhere. */
#if defined(__clang__) && defined(__cplusplus)
#define QIV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QIV_THREAD_ANNOTATION(x)
#endif
#define QIV_CAPABILITY QIV_THREAD_ANNOTATION(capability("mutex"))
#define QIV_SCOPED_CAPABILITY QIV_THREAD_ANNOTATION(scoped_lockable)
#define QIV_GUARDED_BY(x) QIV_THREAD_ANNOTATION(guarded_by(x))
#define QIV_REQUIRES(...) QIV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QIV_ACQUIRE(...) QIV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define QIV_RELEASE(...) QIV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define QIV_TRY_ACQUIRE(...) QIV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define QIV_NO_THREAD_SAFETY_ANALYSIS QIV_THREAD_ANNOTATION(no_thread_safety_analysis)

QIV_EXTERN_C_BEGIN

typedef int QIV_INT32;
typedef unsigned int QIV_UINT32;
typedef long long qiv_int64;
typedef unsigned long long qiv_uint64;

/** A truth value: QIV_TRUE or QIV_FALSE. */
typedef int QIV_BOOL;

/** An opaque handle; null is invalid unless a function says otherwise. */
typedef void* QIV_HANDLE;

/** Absolute time: microseconds since 1970-01-01 00:00:00 UTC. */
typedef long long QIV_TIME_T;

#define QIV_TRUE 1
#define QIV_FALSE 0

#define QIV_OK 0
#define QIV_ERROR (-1)

/** The thread id and the thread-local key that no thread and no key has: all bits set. */
#define QIV_INVALID_ID 0xFFFFFFFFu

/** A time-out without limit, for functions that take one in milliseconds: all bits set. */
#define QIV_INFINITE 0xFFFFFFFFu

/** Address family: an IPv6 socket that accepts IPv4 too. */
#define QIV_AF_INET6_DUAL 101

/** Address family: the one that the host prefers, kept in g_Af. */
#define QIV_AF_PREFERRED 102

QIV_EXTERN_C_END

#endif
