// How the platform's view of a file becomes the library's: types, permissions, times, records.
#ifndef QIV_SYS_FILE_STATUS_H
#define QIV_SYS_FILE_STATUS_H

#include <qiv/file.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace qiv {

/** QIV_FILE_TYPE_... of a mode. */
unsigned int FileType(mode_t mode) noexcept;

/** QIV_PERM_... bits of a mode, as they are reported. */
unsigned int ReportedPermissions(mode_t mode) noexcept;

/** The mode of a file that is created with QIV_PERM_... bits. */
mode_t CreationMode(unsigned int permissions) noexcept;

/** Microseconds since 1970; the nearest value that 64 bits hold. */
QIV_TIME_T Microseconds(const timespec& time) noexcept;

/** Stores the status; the name of an entry stays. */
void PutStatus(const struct stat& status, QIV_FILE_STAT* out) noexcept;
void PutStatus(const struct stat& status, _FILE_FIND_INFO* out) noexcept;

}  // namespace qiv

#endif
