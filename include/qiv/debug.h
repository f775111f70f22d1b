/**
 * @file
 * Debug output: diagnostic messages on standard error.
 *
 * There is no level, no time stamp and no lock beyond that of the standard error stream. No
 * function here is a cancellation point, so failure paths of any kind may call them.
 */
#ifndef QIV_DEBUG_H
#define QIV_DEBUG_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Formats one message and writes it to standard error, followed by a line feed. The line feed is
 * added to a message that ends in one, too.
 *
 * A message is cut to 5117 characters; one of exactly 5118 then lacks its line feed. A message that
 * cannot be formatted is replaced by "QIV_OutputDebug error,input parameter is too long!!!",
 * without a line feed.
 *
 * @param format  conversions of printf(); null counts as a message that cannot be formatted
 * @return the result of fputs(): not negative, or EOF when standard error cannot be written
 * @par Errors         errno stays as it was
 * @par Thread safety  any threads; messages are written one after the other
 * @par System         vsnprintf(3), fputs(3)
 * @see QIV_OutputDebugString
 */
QIV_API int QIV_OutputDebug(const char* format, ...) QIV_NOEXCEPT QIV_PRINTF_FORMAT(1, 2);

/**
 * Writes a text to standard error as it stands.
 *
 * @param text  the text; null is refused
 * @return the result of fputs(): not negative, or EOF when standard error cannot be written or
 *         `text` is null
 * @par Errors         errno stays as it was
 * @par Thread safety  any threads; texts are written one after the other
 * @par System         fputs(3)
 */
QIV_API int QIV_OutputDebugString(const char* text) QIV_NOEXCEPT;

#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 202311L)

/**
 * Does nothing, whatever the arguments; there for programs that still call it.
 *
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API void QIV_Debug(...) QIV_NOEXCEPT;

/**
 * Does nothing, whatever its first argument and those behind it; there for programs that still call
 * it.
 *
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API void qiv2_log(...) QIV_NOEXCEPT;

#else

/* C99 takes any arguments only through declarations without a prototype. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wstrict-prototypes"
QIV_API void QIV_Debug();
QIV_API void qiv2_log();
#pragma GCC diagnostic pop

#endif

QIV_EXTERN_C_END

#endif
