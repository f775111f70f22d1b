/**
 * @file
 * The last error of each thread, and the platform's own error number and its text.
 *
 * The last error belongs to the application: no function of the library writes it except
 * QIV_SetLastError(). It exists from the first QIV_Init() to the last QIV_Fini().
 */
#ifndef QIV_ERROR_H
#define QIV_ERROR_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Stores the calling thread's last error.
 *
 * @param code  any value; its meaning is the application's
 * @return 0; -1 when the library is not started (nothing is stored)
 * @par Errors         no errno
 * @par Thread safety  any threads; each has its own value. Not during the last stop of the library
 * @par System         pthread_setspecific(3p)
 */
QIV_API int QIV_SetLastError(unsigned int code) QIV_NOEXCEPT;

/**
 * Reads the calling thread's last error.
 *
 * @return the value last stored by this thread; 0 when it stored none or the library is not started
 *         (not told apart)
 * @par Errors         none
 * @par Thread safety  any threads; each has its own value
 * @par System         pthread_getspecific(3p)
 */
QIV_API unsigned int QIV_GetLastError(void) QIV_NOEXCEPT;

/**
 * Reads the platform's error number of the calling thread.
 *
 * @return errno
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         errno(3)
 */
QIV_API int QIV_GetSystemLastError(void) QIV_NOEXCEPT;

/**
 * Sets the platform's error number of the calling thread.
 *
 * @param error  the new errno
 * @par Errors         sets errno to `error`
 * @par Thread safety  any threads
 * @par System         errno(3)
 */
QIV_API void QIV_SetSystemLastError(int error) QIV_NOEXCEPT;

/**
 * Gives the platform's text for one of its error numbers.
 *
 * @param error  an errno value
 * @return a text that the platform owns; the calling thread's next call may overwrite it
 * @par Errors         none
 * @par Thread safety  as safe as the platform's strerror()
 * @par System         strerror(3)
 */
QIV_API const char* QIV_GetSystemErrorString(int error) QIV_NOEXCEPT;

/**
 * Starts the last-error store; QIV_Init() does.
 *
 * @return 0 when the store can be used afterwards, also when it was started before; -1 otherwise
 * @par Errors         no errno
 * @par Thread safety  under the start of the library only
 * @par System         pthread_key_create(3p)
 * @see QIV_FiniError_Inter
 */
QIV_API int QIV_InitError_Inter(void) QIV_NOEXCEPT;

/**
 * Ends the last-error store; QIV_Fini() does. Without a store it does nothing.
 *
 * @return 0
 * @par Errors         no errno
 * @par Thread safety  under the stop of the library only
 * @par System         pthread_key_delete(3p)
 */
QIV_API int QIV_FiniError_Inter(void) QIV_NOEXCEPT;

/**
 * Does what QIV_SetLastError() does.
 *
 * @param code  any value
 * @return 0; -1 when the library is not started
 * @par Errors         no errno
 * @par Thread safety  any threads
 * @par System         pthread_setspecific(3p)
 */
QIV_API int QIV_SetLastError_Inter(unsigned int code) QIV_NOEXCEPT;

/**
 * Does what QIV_GetLastError() does.
 *
 * @return the calling thread's value, or 0
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         pthread_getspecific(3p)
 */
QIV_API unsigned int QIV_GetLastError_Inter(void) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#ifdef __cplusplus
namespace qiv {

/**
 * Creates the thread-local key of the last-error store.
 *
 * @return 0, or the platform's error number
 * @par Thread safety  under the start of the library only
 * @par System         pthread_key_create(3p)
 */
QIV_API int CreateTlsKey() noexcept;

/**
 * Deletes the thread-local key of the last-error store.
 *
 * @return 0, or the platform's error number (EINVAL when there is no store)
 * @par Thread safety  under the stop of the library only
 * @par System         pthread_key_delete(3p)
 */
QIV_API int DestroyTlsKey() noexcept;

/**
 * Reads the calling thread's slot of the last-error store.
 *
 * @return the slot's value; null when nothing was stored or there is no store
 * @par Thread safety  any threads
 * @par System         pthread_getspecific(3p)
 */
QIV_API void* GetTlsValue() noexcept;

/**
 * Writes the calling thread's slot of the last-error store.
 *
 * @param value  the error code as a pointer-sized integer
 * @return 0, or the platform's error number (EINVAL when there is no store)
 * @par Thread safety  any threads
 * @par System         pthread_setspecific(3p)
 */
QIV_API int SetTlsValue(void* value) noexcept;

}  // namespace qiv
#endif

#endif
