/**
 * @file
 * Dynamic libraries: load, look up, unload.
 *
 * No function here sets a last error or prints; dlerror(3) tells why one failed.
 *
 * A library named without "/" is searched for as dlopen(3) does on behalf of either the program or
 * this library. Only LD_LIBRARY_PATH, the cache of ldconfig(8) and the system's directories can be
 * relied on, not the directories that the program was linked with (RUNPATH).
 */
#ifndef QIV_DSO_H
#define QIV_DSO_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/**
 * Loads a dynamic library and runs its constructors.
 *
 * @param path   the library; without "/" it is searched for, see above; null is refused
 * @param flags  of dlopen(), RTLD_NOW or RTLD_LAZY among them
 * @return a handle for QIV_UnloadDSo(); null when `path` is null or the platform refuses
 * @par Errors         dlerror()
 * @par Thread safety  any threads
 * @par System         dlopen(3)
 * @see QIV_LoadDSo
 */
QIV_API QIV_HANDLE QIV_LoadDSoEx(const char* path, int flags);

/**
 * Loads a dynamic library with all its symbols resolved and open to libraries loaded later:
 * QIV_LoadDSoEx() with RTLD_NOW | RTLD_GLOBAL.
 *
 * @param path  the library; without "/" it is searched for, see above; null is refused
 * @return a handle for QIV_UnloadDSo(); null when `path` is null or the platform refuses
 * @par Errors         dlerror()
 * @par Thread safety  any threads
 * @par System         dlopen(3)
 */
QIV_API QIV_HANDLE QIV_LoadDSo(const char* path);

/**
 * Gives one load of a library back. With the last one its destructors run and it leaves the
 * process.
 *
 * @param library  of QIV_LoadDSo() or QIV_LoadDSoEx(), not given back yet; null and -1 are refused
 * @return 0; -1 when `library` is refused, by the platform too
 * @par Errors         dlerror()
 * @par Thread safety  any threads; none may use the library's symbols any more
 * @par System         dlclose(3)
 */
QIV_API int QIV_UnloadDSo(QIV_HANDLE library);

/**
 * Finds a function or an object of a library, or of those that it needs.
 *
 * @param library  of QIV_LoadDSo() or QIV_LoadDSoEx(); null is refused
 * @param name     the symbol; null is refused
 * @return its address; null when an argument is null or there is no such symbol
 * @par Errors         dlerror()
 * @par Thread safety  any threads
 * @par System         dlsym(3)
 */
QIV_API void* QIV_GetDsoSym(QIV_HANDLE library, const char* name) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
