/**
 * @file
 * Files and directories: open, read, write, status, copy, listing.
 *
 * A file is a descriptor of the platform, so that its own calls work on it too; -1 is none. Files
 * beyond 2 GiB work on every platform. Null pointers and the descriptor -1 are refused before the
 * platform is called. No function here sets a last error or prints.
 *
 * On 32-bit glibc, whose time_t has 32 bits, a file dated after January 2038 can be opened, but its
 * status cannot be read (EOVERFLOW), so it cannot be copied either.
 *
 * Functions without QIV_NOEXCEPT may be cancellation points, where the call of the platform behind
 * them is one.
 */
#ifndef QIV_FILE_H
#define QIV_FILE_H

#include <qiv/types.h>

QIV_EXTERN_C_BEGIN

/** @name Flags of QIV_OpenFile() */
/** @{ */
#define QIV_OPEN_READ 0x1u       /**< read */
#define QIV_OPEN_WRITE 0x2u      /**< write */
#define QIV_OPEN_CREATE 0x4u     /**< create the file when there is none */
#define QIV_OPEN_APPEND 0x8u     /**< write at the end of the file */
#define QIV_OPEN_TRUNCATE 0x10u  /**< empty the file */
#define QIV_OPEN_EXCLUSIVE 0x40u /**< with QIV_OPEN_CREATE: fail when there is a file */
#define QIV_OPEN_DIRECT \
  0x800u /**< transfer without the platform's cache; see O_DIRECT of open(2) */
/** @} */

/** @name Permission bits, as reported and as given to QIV_OpenFile() */
/** @{ */
#define QIV_PERM_OWNER_READ 0x400u    /**< owner reads; always included in a new file */
#define QIV_PERM_OWNER_WRITE 0x200u   /**< owner writes */
#define QIV_PERM_OWNER_EXECUTE 0x100u /**< owner executes */
#define QIV_PERM_GROUP_READ 0x40u     /**< group reads */
#define QIV_PERM_GROUP_WRITE 0x20u    /**< group writes */
#define QIV_PERM_GROUP_EXECUTE 0x10u  /**< group executes */
#define QIV_PERM_OTHERS_READ 0x4u     /**< others read */
#define QIV_PERM_OTHERS_WRITE 0x2u    /**< others write */
#define QIV_PERM_OTHERS_EXECUTE 0x1u  /**< others execute */
#define QIV_PERM_SET_USER_ID 0x8000u  /**< set-user-id */
/** Reported: set-group-id. Given: owner executes. */
#define QIV_PERM_SET_GROUP_ID 0x4000u
/** Never reported. Given: owner writes. */
#define QIV_PERM_CREATE_WRITABLE 0x2000u
/** Never reported. Given: owner reads, and nothing else whatever the other bits. */
#define QIV_PERM_CREATE_READ_ONLY 0x1000u
/** @} */

/** @name Types of files */
/** @{ */
#define QIV_FILE_TYPE_CHARACTER_DEVICE 1u /**< character device, such as a terminal */
#define QIV_FILE_TYPE_OTHER 8u            /**< none of the others */
#define QIV_FILE_TYPE_SOCKET 16u          /**< socket */
#define QIV_FILE_TYPE_PIPE 32u            /**< pipe, with a name or without */
#define QIV_FILE_TYPE_SYMBOLIC_LINK 64u   /**< symbolic link; never reported */
#define QIV_FILE_TYPE_BLOCK_DEVICE 128u   /**< block device, such as a disk */
#define QIV_FILE_TYPE_DIRECTORY 256u      /**< directory */
#define QIV_FILE_TYPE_REGULAR 512u        /**< regular file */
/** @} */

/** Status of an open file: sixteen 32-bit words. Times are in seconds. */
typedef struct QIV_FILE_STAT {
  QIV_UINT32 dwType;        /**< QIV_FILE_TYPE_... */
  QIV_UINT32 dwUserId;      /**< owner */
  QIV_UINT32 dwGroupId;     /**< owner's group */
  QIV_UINT32 dwPermissions; /**< QIV_PERM_... */
  QIV_UINT32 dwDevice;      /**< device number of a device file */
  QIV_UINT32 dwLinks;       /**< hard links */
  qiv_uint64 ullInode;      /**< inode number */
  qiv_int64 llSize;         /**< bytes */
  qiv_int64 llAccessTime;   /**< last access, seconds since 1970 */
  qiv_int64 llChangeTime;   /**< last status change, seconds since 1970 */
  qiv_int64 llModifyTime;   /**< last modification, seconds since 1970 */
} QIV_FILE_STAT;

/** Bytes of the name field of a directory entry. */
#define QIV_FILE_NAME_BYTES 264

/** An entry of a directory. Times are in microseconds. */
typedef struct _FILE_FIND_INFO {
  char szName[QIV_FILE_NAME_BYTES]; /**< name without the directory, NUL-terminated */
  QIV_UINT32 dwType;                /**< QIV_FILE_TYPE_... */
  QIV_UINT32 dwUserId;              /**< owner */
  QIV_UINT32 dwGroupId;             /**< owner's group */
  QIV_UINT32 dwPermissions;         /**< QIV_PERM_... */
  QIV_UINT32 dwDevice;              /**< device number of a device file */
  QIV_UINT32 dwLinks;               /**< hard links */
  qiv_uint64 ullInode;              /**< low 32 bits of the inode number */
  qiv_int64 llSize;                 /**< bytes */
  QIV_TIME_T llAccessTime;          /**< last access */
  QIV_TIME_T llChangeTime;          /**< last status change */
  QIV_TIME_T llModifyTime;          /**< last modification */
} _FILE_FIND_INFO, QIV_FILE_FIND_INFO;

/**
 * Opens a file. Programs that the process executes inherit the descriptor.
 *
 * @param path         the file; null is refused
 * @param flags        QIV_OPEN_... bits, QIV_OPEN_READ or QIV_OPEN_WRITE among them; others are
 *                     ignored
 * @param permissions  QIV_PERM_... bits of a file that is created, less those of the process's
 *                     umask; others are ignored
 * @return a descriptor for QIV_CloseFile(); -1 when `path` is null, `flags` lack both reading and
 *         writing, or the platform refuses
 * @par Errors         errno of open()
 * @par Thread safety  any threads
 * @par System         open(2)
 */
QIV_API int QIV_OpenFile(const char* path, unsigned int flags, unsigned int permissions);

/**
 * Closes a descriptor.
 *
 * @param file  the descriptor; -1 is ignored
 * @par Errors         errno of close()
 * @par Thread safety  any threads; none may use the descriptor any more
 * @par System         close(2)
 */
QIV_API void QIV_CloseFile(int file);

/**
 * Reads from a file's position, once: fewer bytes than asked may come.
 *
 * @param file    the descriptor; -1 is refused
 * @param buffer  receives the bytes; null is refused
 * @param length  bytes, at most 2147483647
 * @param count   receives the bytes read, 0 at the end of the file, -1 on failure; may be null
 * @return 0; -1 when an argument or the platform refuses
 * @par Errors         errno of read(), EINTR among them; EINVAL for a length above the limit
 * @par Thread safety  any threads; they share the position of the descriptor
 * @par System         read(2)
 */
QIV_API int QIV_ReadFile(int file, void* buffer, unsigned int length, int* count);

/**
 * Writes at a file's position, once: fewer bytes than given may be written.
 *
 * @param file    the descriptor; -1 is refused
 * @param buffer  the bytes; null is refused
 * @param length  bytes, at most 2147483647
 * @param count   receives the bytes written, -1 on failure; may be null
 * @return 0; -1 when an argument or the platform refuses
 * @par Errors         errno of write(), EINTR among them; EINVAL for a length above the limit
 * @par Thread safety  any threads; they share the position of the descriptor
 * @par System         write(2)
 */
QIV_API int QIV_WriteFile(int file, const void* buffer, unsigned int length, int* count);

/**
 * Moves a file's position.
 *
 * @param file      the descriptor; -1 is refused
 * @param offset    bytes from the origin
 * @param origin    SEEK_SET, SEEK_CUR or SEEK_END
 * @param position  receives the new position in bytes from the start, nothing on failure; may be
 *                  null
 * @return 0; -1 when the descriptor or the platform refuses
 * @par Errors         errno of lseek()
 * @par Thread safety  any threads; they share the position of the descriptor
 * @par System         lseek(2) with 64-bit offsets
 */
QIV_API int QIV_FileSeek(int file, qiv_int64 offset, int origin, qiv_int64* position);

/**
 * Tells nothing: the end of a file shows in the count of QIV_ReadFile().
 *
 * @param file  any descriptor
 * @return 1
 * @par Errors         none
 * @par Thread safety  any threads
 * @par System         none
 */
QIV_API int QIV_FileIsEOF(int file) QIV_NOEXCEPT;

/**
 * Reads the status of an open file.
 *
 * @param file    the descriptor; -1 is refused
 * @param status  receives the status: a QIV_FILE_STAT, or sixteen 32-bit words in its order; null
 *                is refused
 * @return 0; -1 when an argument or the platform refuses (`status` untouched)
 * @par Errors         errno of fstat()
 * @par Thread safety  any threads
 * @par System         fstat(2)
 */
QIV_API int QIV_FileStat(int file, void* status);

/**
 * Writes what the platform still holds of a file to its device, and waits for it.
 *
 * @param file  the descriptor; -1 is ignored
 * @par Errors         errno of fsync()
 * @par Thread safety  any threads
 * @par System         fsync(2)
 */
QIV_API void QIV_FileFlush(int file);

/**
 * Deletes a file, or an empty directory.
 *
 * @param path  the file; null is refused
 * @return 0; -1 when `path` is null or the platform refuses
 * @par Errors         errno of remove()
 * @par Thread safety  any threads
 * @par System         remove(3)
 */
QIV_API int QIV_DeleteFile(const char* path);

/**
 * Renames a file or a directory. A file that has the new name is replaced.
 *
 * @param oldPath  the present name; null is refused
 * @param newPath  the new name, in the same file system; null is refused
 * @return 0; -1 when a path is null or the platform refuses
 * @par Errors         errno of rename()
 * @par Thread safety  any threads
 * @par System         rename(2)
 */
QIV_API int QIV_RenameFile(const char* oldPath, const char* newPath);

/**
 * Asks whether the real user of the process may reach a file.
 *
 * @param path  the file; null is refused
 * @param mode  F_OK, or R_OK, W_OK and X_OK in any combination, as in unistd.h
 * @return 0 when everything asked is allowed; -1 otherwise
 * @par Errors         errno of access()
 * @par Thread safety  any threads
 * @par System         access(2)
 */
QIV_API int QIV_AccessFile(const char* path, int mode);

/**
 * Copies a regular file: its content, and its permissions to a target that is created.
 *
 * A target that is created belongs to the caller and gets the permissions of the source, set-id
 * bits included, less those of the process's umask. The set-id bits stay only where the platform
 * leaves them to a file that is written: a copy that root makes of another user's set-user-id
 * program is a set-user-id program of root.
 *
 * An existing target is overwritten and keeps its permissions. A copy that fails half-way leaves an
 * incomplete target behind. A file is never copied onto itself, whatever the names.
 *
 * @param source        the file; null is refused, and so is one without content
 * @param target        the copy, a regular file or a block device; null is refused
 * @param failIfExists  1: refuse a target that exists, a symbolic link that leads nowhere included;
 *                      0: overwrite it
 * @return 0; -1 when an argument is refused, the source is not a regular file, is empty, shrinks
 *         while it is copied or is the target, or when any step fails
 * @par Errors         errno of the system call that failed; undefined where none did: the files are
 *                     the same one, one is of an unsuitable type, or the source ends early
 * @par Thread safety  any threads
 * @par System         stat(2), open(2), lseek(2), read(2), write(2); not a cancellation point
 */
QIV_API int QIV_CopyFile(const char* source, const char* target, int failIfExists) QIV_NOEXCEPT;

/**
 * Tells the path of the program that runs in the process.
 *
 * @param buffer  receives the path without a NUL, at most 260 bytes; a longer path is cut. Null is
 *                refused
 * @param size    bytes of `buffer` that the path may fill. To have a NUL behind it, zero the buffer
 *                and give its size less 1
 * @return 0; -1 when `buffer` is null, or the path does not fit into `size` or cannot be read
 * @par Errors         EINVAL for a null `buffer`, else ENOMEM
 * @par Thread safety  any threads
 * @par System         readlink(2), /proc/self/exe
 */
QIV_API int QIV_GetCurExePath(char* buffer, int size) QIV_NOEXCEPT;

/**
 * Creates a directory, with the permissions 0766 less those of the process's umask. Its parent must
 * exist.
 *
 * @param path  the directory; null is refused
 * @return 0; -1 when `path` is null or the platform refuses, as it does when the name is in use
 * @par Errors         errno of mkdir()
 * @par Thread safety  any threads
 * @par System         mkdir(2)
 */
QIV_API int QIV_MakeDir(const char* path);

/**
 * Removes an empty directory, or deletes a file.
 *
 * @param path  the directory; null is refused
 * @return 0; -1 when `path` is null or the platform refuses
 * @par Errors         errno of remove()
 * @par Thread safety  any threads
 * @par System         remove(3)
 */
QIV_API int QIV_RemoveDir(const char* path);

/**
 * Opens a directory for QIV_FindFileInDir().
 *
 * @param path  the directory, with or without "/" at its end; null is refused
 * @return a handle for QIV_CloseDir(); null when `path` is null, the platform refuses or memory is
 *         short
 * @par Errors         errno of opendir()
 * @par Thread safety  any threads
 * @par System         opendir(3)
 */
QIV_API QIV_HANDLE QIV_OpenDir(const char* path) QIV_NOEXCEPT;

/**
 * Reads the next entry of a directory, in no particular order; "." and ".." are entries too.
 *
 * The status is that of the file which the entry leads to: symbolic links are followed. Where there
 * is none to read (the link leads nowhere, the file is gone, the path is too long, or it is
 * relative and the process has changed its directory), the record holds the name and zeros.
 *
 * @param directory  of QIV_OpenDir(); null is refused
 * @param info       receives the entry; null is refused
 * @return 0; -1 at the end, on failure and when an argument is refused (`info` untouched)
 * @par Errors         errno of readdir()
 * @par Thread safety  any threads with handles of their own; one thread at a time with one handle
 * @par System         readdir(3), stat(2)
 */
QIV_API int QIV_FindFileInDir(QIV_HANDLE directory, _FILE_FIND_INFO* info) QIV_NOEXCEPT;

/**
 * Closes a directory and frees the handle.
 *
 * @param directory  of QIV_OpenDir(); null is refused
 * @return 0; -1 when `directory` is null
 * @par Errors         errno of closedir()
 * @par Thread safety  any threads; none may use the handle any more
 * @par System         closedir(3)
 */
QIV_API int QIV_CloseDir(QIV_HANDLE directory) QIV_NOEXCEPT;

QIV_EXTERN_C_END

#endif
