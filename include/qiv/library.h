/**
 * @file
 * Start and stop of the library, its version and the preferred address family.
 *
 * An application calls QIV_Init() before it uses networking or the last error, and QIV_Fini() once
 * for each successful start. Mutexes, semaphores, conditions, threads and time work without a
 * start.
 */
#ifndef QIV_LIBRARY_H
#define QIV_LIBRARY_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Starts the library, or counts one more start when it is started already.
 *
 * The first start makes the whole process ignore SIGPIPE and destroys all message queues
 * (message_queue.h). Every start asks for the host's adapters
 * and sets g_Af by them, as QIV_GetAdapterInfoEx() does (adapter.h), with its line on standard
 * error; when they cannot be had the start succeeds all the same and g_Af stays as it is. Should
 * the kernel not answer, this takes up to 6 seconds, and other starts and stops wait as long.
 *
 * @return 0; -1 when a first start fails (what it had started is stopped again)
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         sigaction(2); netdevice(7), rtnetlink(7)
 * @see QIV_Fini
 */
QIV_API int QIV_Init(void) QIV_NOEXCEPT;

/**
 * Does what QIV_Init() does.
 *
 * @return as QIV_Init()
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         sigaction(2); netdevice(7), rtnetlink(7)
 */
QIV_API int QIV_InitEx(void) QIV_NOEXCEPT;

/**
 * Takes back one start; the last one stops the library. That writes what is queued for the log and
 * ends logging, destroys all message queues and ends the global memory pool (memory_pool_global.h).
 *
 * There is no guard against more stops than starts: the count wraps, and the starts that follow
 * find a count above 0 and start nothing.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_Fini(void) QIV_NOEXCEPT;

/**
 * Does what QIV_Fini() does.
 *
 * @return as QIV_Fini()
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_FiniEx(void) QIV_NOEXCEPT;

/**
 * Switches logging on or off: a short way to drive the log service of <qiv/log.h>.
 *
 * With flags it lets the service start, adds the targets named by them to those that are enabled,
 * and sets the level to LOG_INF. With 0 it disables standard output and files and stops the
 * service; the debug output stays as it is, but every line is refused until logging is on again.
 * What is queued is written first. The library's last stop does the same.
 *
 * @param flags      1 to log to standard output, 2 to log to files of 2 MiB, numbered without end;
 *                   their sum for both; 0 to switch logging off
 * @param directory  for the files, as for EnableTarget()
 * @return 0
 * @par Errors         errno is not defined afterwards
 * @par Thread safety  any threads
 * @par System         none
 * @see EnableTarget
 */
QIV_API int QIV_Log(unsigned int flags, const void* directory) QIV_NOEXCEPT;

/**
 * Gives the interface version, a byte per component from the most significant down.
 *
 * @return 0x0101000C (1.1.0.12); not derived from the text behind pVersion
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API unsigned int QIV_GetQIVVersion(void) QIV_NOEXCEPT;

/**
 * Translates an address family for the system.
 *
 * @param family  any value
 * @return g_Af for QIV_AF_PREFERRED; every other value as it is
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_GetAf_Inner(int family) QIV_NOEXCEPT;

/**
 * The preferred address family: 2 (AF_INET), 10 (AF_INET6) or 101 (QIV_AF_INET6_DUAL); 0 until a
 * start of the library has found an address.
 */
extern QIV_API int g_Af;

/** The build's version text. */
extern QIV_API const char* pVersion;

QIV_EXTERN_C_END

#endif
