/**
 * @file
 * System services: sleep, random numbers, identifiers, character sets, and snapshots of processor,
 * memory and network counters.
 *
 * The counters are cumulative and raw: for a rate, take two snapshots and divide their difference
 * by the time between them. No function here sets a last error or prints.
 */
#ifndef QIV_SYSTEM_H
#define QIV_SYSTEM_H

#include <qiv/types.h>
#ifdef __cplusplus
#include <string>
#endif

QIV_EXTERN_C_BEGIN

/** A 128-bit identifier. The integers are in the processor's own byte order. */
typedef struct QIV_UUID_T {
  unsigned int Data1;     /**< first group of the text: 8 hexadecimal digits */
  unsigned short Data2;   /**< second group: 4 digits */
  unsigned short Data3;   /**< third group: 4 digits */
  unsigned char Data4[8]; /**< fourth and fifth group, 4 and 12 digits, byte by byte */
} QIV_UUID_T;

/** Time that one processor has spent, in the kernel's clock ticks. */
typedef struct QIV_CPU_STAT_T {
  qiv_uint64 ullIdle;      /**< idle */
  qiv_uint64 ullSystem;    /**< in the kernel */
  qiv_uint64 ullUser;      /**< in programs, those with a lowered priority included */
  qiv_uint64 ullIdleAll;   /**< idle or waiting for input and output */
  qiv_uint64 ullIrq;       /**< in interrupts, soft ones included */
  qiv_uint64 ullReserved1; /**< not written */
  qiv_uint64 ullReserved2; /**< not written */
} QIV_CPU_STAT_T;

/** Memory of the system, in bytes. */
typedef struct QIV_MEMORY_STATUS_T {
  qiv_uint64 ullTotalPhys; /**< physical memory */
  qiv_uint64 ullAvailPhys; /**< what programs can still get of it */
  qiv_uint64 ullTotalSwap; /**< swap space */
  qiv_uint64 ullAvailSwap; /**< free swap space */
  qiv_uint64 ullReserved1; /**< 0 */
  qiv_uint64 ullReserved2; /**< 0 */
} QIV_MEMORY_STATUS_T;

/** Bytes of the name field of the network records. */
#define QIV_NETFLOW_NAME_BYTES 264

/** Counters of one network interface, 32 bits each. */
typedef struct QIV_NETFLOW_T {
  char szName[QIV_NETFLOW_NAME_BYTES]; /**< in: name of the interface, at most 15 characters read */
  QIV_UINT32 dwLinkSpeedBps;           /**< link speed in bit/s, modulo 2^32 */
  QIV_UINT32 dwRecvBytes;              /**< received bytes */
  QIV_UINT32 dwRecvPackets;            /**< received packets */
  QIV_UINT32 dwSendBytes;              /**< transmitted bytes */
  QIV_UINT32 dwSendPackets;            /**< transmitted packets */
  QIV_UINT32 dwLinkSpeedMbps;          /**< link speed in Mbit/s */
} QIV_NETFLOW_T;

/** Counters of one network interface, 64 bits each. */
typedef struct QIV_NETFLOW_EX_T {
  char szName[QIV_NETFLOW_NAME_BYTES]; /**< in: name of the interface, at most 15 characters read */
  qiv_uint64 ullLinkSpeedBps;          /**< link speed in bit/s */
  qiv_uint64 ullRecvBytes;             /**< received bytes */
  qiv_uint64 ullRecvPackets;           /**< received packets */
  qiv_uint64 ullSendBytes;             /**< transmitted bytes */
  qiv_uint64 ullSendPackets;           /**< transmitted packets */
} QIV_NETFLOW_EX_T;

/**
 * Suspends the calling thread. A signal ends the sleep. Cancellation point.
 *
 * @param us  microseconds
 * @return 0; -1 when a signal ended the sleep or the platform refuses the length
 * @par Errors         errno of usleep()
 * @par Thread safety  any threads
 * @par System         usleep(3)
 */
QIV_API int QIV_USleep(unsigned int us);

/**
 * Suspends the calling thread. A signal ends the sleep. Cancellation point.
 *
 * @param ms  milliseconds; the time in microseconds is taken modulo 2^32, so 4294967 ms (71 min)
 *            is the longest sleep
 * @return 0; -1 when a signal ended the sleep or the platform refuses the length
 * @par Errors         errno of usleep()
 * @par Thread safety  any threads
 * @par System         usleep(3)
 */
QIV_API int QIV_Sleep(unsigned int ms);

/**
 * Gives a pseudo-random number, of no use for secrets.
 *
 * Reseeds the platform's generator from the millisecond tick at every call, so calls within the
 * same millisecond give the same number.
 *
 * @return 0 to 2^31 - 1
 * @par Errors         none
 * @par Thread safety  any threads; they share the generator, and with it random() of the program
 * @par System         srandom(3), random(3)
 */
QIV_API int QIV_Rand(void) QIV_NOEXCEPT;

/**
 * Fills memory with zeros.
 *
 * @param p  the memory; null does nothing
 * @param n  bytes
 * @par Errors         none
 * @par Thread safety  as for any write to the memory
 * @par System         memset(3)
 */
QIV_API void QIV_ZeroMemory(void* p, unsigned int n) QIV_NOEXCEPT;

/**
 * Counts the configured processors, those that are offline included.
 *
 * @return the count; -1 when the platform does not know
 * @par Errors         errno of sysconf()
 * @par Thread safety  any threads
 * @par System         sysconf(3)
 */
QIV_API int QIV_GetCPUNumber(void) QIV_NOEXCEPT;

/**
 * Generates a new identifier.
 *
 * @param out  receives the 16 bytes in the order in which libuuid gives them; null is refused
 * @return 0; -1 when `out` is null
 * @par Errors         no errno of its own
 * @par Thread safety  any threads
 * @par System         uuid_generate(3)
 */
QIV_API int QIV_GetUUID(QIV_UUID_T* out) QIV_NOEXCEPT;

/**
 * Writes an identifier as "01234567-89AB-CDEF-0123-456789ABCDEF".
 *
 * The first three groups are the record's integers, so that on a little-endian processor the text
 * differs from that of libuuid.
 *
 * @param id    the identifier; null is refused
 * @param buf   receives 36 characters and a NUL; null is refused
 * @param size  bytes of `buf`; 36 is accepted and cuts off the last digit
 * @return 0; -1 when a pointer is null or `size` is below 36
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_StringFromUUID(const QIV_UUID_T* id, char* buf, int size) QIV_NOEXCEPT;

/**
 * Takes a snapshot of the counters of every configured processor.
 *
 * Records follow the order of the kernel's lines. A processor that is offline has no line there:
 * the records behind it move up, and lines of other figures, which follow, fill the last records
 * with zeros. Where too few of them follow, the snapshot fails.
 *
 * @param out   receives one record per configured processor; null only asks for the size
 * @param size  in: bytes of `out`; out: bytes needed. Null is refused
 * @return 0; -1 when a pointer is null, `*size` is too small, or the counters cannot be read or
 *         have fewer lines than there are processors. Records that were read keep their values
 * @par Errors         errno of the last system call
 * @par Thread safety  any threads
 * @par System         proc(5), /proc/stat
 * @see QIV_GetCPUNumber
 */
QIV_API int QIV_GetCPUPerformance(QIV_CPU_STAT_T* out, unsigned int* size) QIV_NOEXCEPT;

/**
 * Takes a snapshot of the system's memory.
 *
 * Available memory is the kernel's own estimate when it gives one that is above the free memory;
 * else free memory, buffers and cache together.
 *
 * @param out  receives the snapshot, zeroed first; null is refused
 * @return 0; -1 when `out` is null or the kernel's figures cannot be read. Fields that were read
 *         keep their values
 * @par Errors         errno of the last system call
 * @par Thread safety  any threads
 * @par System         proc(5), /proc/meminfo
 */
QIV_API int QIV_GetMemoryStatus(QIV_MEMORY_STATUS_T* out) QIV_NOEXCEPT;

/**
 * Takes a snapshot of one network interface. A counter above 2147483647 is stored as 2147483647.
 *
 * An interface whose driver does not tell its speed counts as one of 1000 Mbit/s. A driver that
 * answers that the speed is unknown gives 65535 Mbit/s.
 *
 * @param rec  names the interface and receives the snapshot; null is refused
 * @return 0; -1 when `rec` is null or no socket can be opened. Also -1, with the link speed
 *         written, when the counters cannot be read, no line names the interface or its line is
 *         incomplete
 * @par Errors         errno of the last system call
 * @par Thread safety  any threads
 * @par System         proc(5), /proc/net/dev; netdevice(7), SIOCETHTOOL
 * @see QIV_GetNetWorkFlowDataEx
 */
QIV_API int QIV_GetNetWorkFlowData(QIV_NETFLOW_T* rec) QIV_NOEXCEPT;

/**
 * Takes a snapshot of one network interface in 64 bits; see QIV_GetNetWorkFlowData().
 *
 * @param rec  names the interface and receives the snapshot; null is refused
 * @return 0; -1 when `rec` is null or no socket can be opened. Also -1, with the link speed
 *         written, when the counters cannot be read, no line names the interface or its line is
 *         incomplete
 * @par Errors         errno of the last system call
 * @par Thread safety  any threads
 * @par System         proc(5), /proc/net/dev; netdevice(7), SIOCETHTOOL
 */
QIV_API int QIV_GetNetWorkFlowDataEx(QIV_NETFLOW_EX_T* rec) QIV_NOEXCEPT;

#ifdef __cplusplus
/* Their names are not mangled, though only C++ can call them. */
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif

/**
 * Converts a text from UTF-8 to EUC-CN (GB2312).
 *
 * @param s  the text; null gives an empty text
 * @return the converted text; empty when a character has no form in EUC-CN, `s` is not valid UTF-8,
 *         the platform lacks the character set or memory is short (not told apart)
 * @par Errors         errno of the last system call
 * @par Thread safety  any threads
 * @par System         iconv(3)
 */
QIV_API std::string QIV_UTF82A(const char* s) QIV_NOEXCEPT;

/**
 * Converts a text from EUC-CN (GB2312) to UTF-8.
 *
 * @param s  the text; null gives an empty text
 * @return the converted text; empty when `s` is not valid EUC-CN, the platform lacks the character
 *         set or memory is short (not told apart)
 * @par Errors         errno of the last system call
 * @par Thread safety  any threads
 * @par System         iconv(3)
 */
QIV_API std::string QIV_A2UTF8(const char* s) QIV_NOEXCEPT;

#if defined(__clang__)
#pragma clang diagnostic pop
#endif
#endif  // __cplusplus

QIV_EXTERN_C_END

#endif
